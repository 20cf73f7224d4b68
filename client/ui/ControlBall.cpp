#include "ui/ControlBall.h"

#include <QPainter>

ControlBall::ControlBall(const QString& language, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), m_language(language) {
    setFixedSize(56, 56);
    setAttribute(Qt::WA_ShowWithoutActivating, true);
    hide();
}

void ControlBall::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(0xF4, 0xF6, 0xFA));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x1C, 0x7F, 0xFF));
    painter.drawEllipse(rect().adjusted(4, 4, -4, -4));
    painter.setBrush(Qt::white);
    painter.drawEllipse(rect().center() + QPointF(0.5, 0.5), 8, 8);
}
