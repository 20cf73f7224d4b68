// The reverse screen's tool column, a small window kept at the reverse
// screen's right edge: reverse control on/off, home and back (shown while
// control is on), snapshot and key-frame refresh. Its grip drags it up and
// down; the reverse screen stores where it was left.
#pragma once

#include <QPoint>
#include <QWidget>

class QToolButton;

namespace qorquicomponents {

class ReverseScreenSidebar : public QWidget {
    Q_OBJECT

public:
    static constexpr int kWidth = 44;

    explicit ReverseScreenSidebar(QWidget* parent = nullptr);

    // Shows whether control is on; home and back show only then.
    void setControlStatus(bool on);
    bool controlStatus() const { return m_controlOn; }
    // Every tool but the control switch itself (reconnecting disables them).
    void setToolsEnabled(bool enabled);
    void setBackEnabled(bool enabled);

    QToolButton* controlButton() const { return m_control; }
    QToolButton* homeButton() const { return m_home; }
    QToolButton* backButton() const { return m_back; }
    QToolButton* photoButton() const { return m_photo; }
    QToolButton* refreshButton() const { return m_refresh; }

signals:
    void signalSetControl();
    void signalBackToHome();
    void signalBackToPrevious();
    void signalTakePhoto();
    void signalKeyFrame();
    void signalDragStart();
    void signalDragEnd();

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QToolButton* addTool(const QString& name, const QString& text, const QString& tip);

    QToolButton* m_control = nullptr;
    QToolButton* m_home = nullptr;
    QToolButton* m_back = nullptr;
    QToolButton* m_photo = nullptr;
    QToolButton* m_refresh = nullptr;
    bool m_controlOn = false;
    bool m_backEnabled = true;
    bool m_dragging = false;
    QPoint m_dragOffset;
};

}  // namespace qorquicomponents
