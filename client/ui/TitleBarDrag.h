// Moves a frameless window while the left button drags its title bar. Fed
// with the title bar's events by the window's event filter; events of every
// other type are ignored.
#pragma once

#include <QPoint>

class QEvent;
class QWidget;

namespace qorquicomponents {

class TitleBarDrag {
public:
    explicit TitleBarDrag(QWidget* window) : m_window(window) {}

    void handleEvent(QEvent* event);
    bool isDragging() const { return m_dragging; }

private:
    QWidget* m_window;
    QPoint m_dragOffset;  // the press point relative to the window's corner
    bool m_dragging = false;
};

}  // namespace qorquicomponents
