#include "ui/SettingFeedback/BubbleTipWindows.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>

namespace qorquicomponents {

BubbleTipWindows::BubbleTipWindows(QWidget* parent) : QWidget(parent), m_label(new QLabel(this)) {
    setObjectName(QStringLiteral("bubbleTipWindows"));
    setAttribute(Qt::WA_TranslucentBackground, true);
    m_label->setObjectName(QStringLiteral("bubbleTipLab"));
    m_label->setWordWrap(true);
    m_label->setFixedWidth(kLabelWidth);
    m_label->setStyleSheet(QStringLiteral(
        "QLabel{font-family: Microsoft YaHei UI;font-size: 14px;color: rgba(0, 0, 0, 0.70);line-height:20px; }"));
    hide();
}

void BubbleTipWindows::setText(const QString& text) {
    m_label->setText(text);
    m_label->adjustSize();
}

void BubbleTipWindows::setTriangleInfo(int offset, int height) {
    m_triangleOffset = offset;
    m_triangleHeight = height;
    m_label->move(18, 18 + height / 2);
    update();
}

void BubbleTipWindows::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing, true);
    const QRectF body(4, 4 + m_triangleHeight, width() - 8, height() - 8 - m_triangleHeight);
    QPainterPath path;
    path.addRoundedRect(body, 8, 8);
    QPainterPath triangle;
    triangle.moveTo(body.left() + m_triangleOffset, body.top());
    triangle.lineTo(body.left() + m_triangleOffset + m_triangleHeight, body.top() - m_triangleHeight);
    triangle.lineTo(body.left() + m_triangleOffset + 2 * m_triangleHeight, body.top());
    triangle.closeSubpath();
    path = path.united(triangle);
    painter.setPen(QColor(0, 0, 0, 30));
    painter.setBrush(Qt::white);
    painter.drawPath(path);
}

}  // namespace qorquicomponents
