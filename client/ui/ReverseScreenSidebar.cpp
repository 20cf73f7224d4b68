#include "ui/ReverseScreenSidebar.h"

#include <QMouseEvent>
#include <QToolButton>
#include <QVBoxLayout>

namespace qorquicomponents {

ReverseScreenSidebar::ReverseScreenSidebar(QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowDoesNotAcceptFocus) {
    setObjectName(QStringLiteral("reverseScreenSidebar"));
    setAttribute(Qt::WA_ShowWithoutActivating, true);
    setAttribute(Qt::WA_StyledBackground, true);
    setFixedWidth(kWidth);
    setStyleSheet(QStringLiteral(
        "QWidget#reverseScreenSidebar{background:rgba(255,255,255,0.92);border-radius:6px;}"
        "QToolButton{border:none;color:#4A5468;font-family:\"Microsoft YaHei UI\";font-size:10px;"
        "min-width:40px;max-width:40px;min-height:36px;}"
        "QToolButton:hover{background:rgba(28,127,255,0.2);}"
        "QToolButton:disabled{color:#BCC4CF;}"
        "QToolButton[Status=\"Using\"]{color:#1C7FFF;}"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 12, 2, 12);
    layout->setSpacing(4);

    m_control = addTool(QStringLiteral("controlBtn"), tr("Control"), tr("Reverse control"));
    m_home = addTool(QStringLiteral("homeBtn"), tr("Home"), tr("Back to home"));
    m_back = addTool(QStringLiteral("backBtn"), tr("Back"), tr("Back to previous"));
    m_photo = addTool(QStringLiteral("photoBtn"), tr("Photo"), tr("Take a snapshot"));
    m_refresh = addTool(QStringLiteral("refreshBtn"), tr("Refresh"), tr("Refresh the picture"));
    connect(m_control, &QToolButton::clicked, this, &ReverseScreenSidebar::signalSetControl);
    connect(m_home, &QToolButton::clicked, this, &ReverseScreenSidebar::signalBackToHome);
    connect(m_back, &QToolButton::clicked, this, &ReverseScreenSidebar::signalBackToPrevious);
    connect(m_photo, &QToolButton::clicked, this, &ReverseScreenSidebar::signalTakePhoto);
    connect(m_refresh, &QToolButton::clicked, this, &ReverseScreenSidebar::signalKeyFrame);
    setControlStatus(false);
}

QToolButton* ReverseScreenSidebar::addTool(const QString& name, const QString& text, const QString& tip) {
    auto* button = new QToolButton(this);
    button->setObjectName(name);
    button->setText(text);
    button->setToolTip(tip);
    button->setFocusPolicy(Qt::NoFocus);
    layout()->addWidget(button);
    return button;
}

void ReverseScreenSidebar::setControlStatus(bool on) {
    m_controlOn = on;
    m_control->setProperty("Status", on ? "Using" : "Unuse");
    m_control->setStyleSheet(m_control->styleSheet());
    m_home->setVisible(on);
    m_back->setVisible(on);
    adjustSize();
}

void ReverseScreenSidebar::setToolsEnabled(bool enabled) {
    m_control->setEnabled(enabled);
    m_home->setEnabled(enabled);
    m_back->setEnabled(enabled && m_backEnabled);
    m_photo->setEnabled(enabled);
    m_refresh->setEnabled(enabled);
}

void ReverseScreenSidebar::setBackEnabled(bool enabled) {
    m_backEnabled = enabled;
    m_back->setEnabled(enabled);
}

void ReverseScreenSidebar::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragOffset = event->globalPos() - pos();
        emit signalDragStart();
    }
    QWidget::mousePressEvent(event);
}

void ReverseScreenSidebar::mouseMoveEvent(QMouseEvent* event) {
    // Up and down only: the column stays at the window's edge.
    if (m_dragging) move(x(), event->globalPos().y() - m_dragOffset.y());
    QWidget::mouseMoveEvent(event);
}

void ReverseScreenSidebar::mouseReleaseEvent(QMouseEvent* event) {
    if (m_dragging && event->button() == Qt::LeftButton) {
        m_dragging = false;
        emit signalDragEnd();
    }
    QWidget::mouseReleaseEvent(event);
}

}  // namespace qorquicomponents
