#include "ui/TitleBarDrag.h"

#include <QEvent>
#include <QMouseEvent>
#include <QWidget>

namespace qorquicomponents {

void TitleBarDrag::handleEvent(QEvent* event) {
    // The title bar also gets paint, hover, resize and other events: only the
    // three mouse button events are QMouseEvents.
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton) {
            m_dragging = true;
            m_dragOffset = mouse->globalPos() - m_window->frameGeometry().topLeft();
        }
        break;
    }
    case QEvent::MouseMove: {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (m_dragging && (mouse->buttons() & Qt::LeftButton)) m_window->move(mouse->globalPos() - m_dragOffset);
        break;
    }
    case QEvent::MouseButtonRelease:
        m_dragging = false;
        break;
    default:
        break;
    }
}

}  // namespace qorquicomponents
