#include "ui/widgets/LoadingWidget.h"

#include <QPainter>
#include <QTimer>

namespace qorquicomponents {

namespace {
constexpr int kStepMs = 40;
constexpr int kStepDegrees = 15;
constexpr int kRadius = 22;
}  // namespace

LoadingWidget::LoadingWidget(QWidget* parent) : QWidget(parent), m_timer(new QTimer(this)) {
    setObjectName(QStringLiteral("loadingWidget"));
    setAttribute(Qt::WA_NoSystemBackground, true);
    m_timer->setInterval(kStepMs);
    connect(m_timer, &QTimer::timeout, this, [this] {
        m_angle = (m_angle + kStepDegrees) % 360;
        update();
    });
    hide();
}

void LoadingWidget::showLoading() {
    if (parentWidget() != nullptr) setGeometry(parentWidget()->rect());
    raise();
    show();
}

void LoadingWidget::hideLoading() { hide(); }

void LoadingWidget::showEvent(QShowEvent* event) {
    m_timer->start();
    QWidget::showEvent(event);
}

void LoadingWidget::hideEvent(QHideEvent* event) {
    m_timer->stop();
    QWidget::hideEvent(event);
}

void LoadingWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(255, 255, 255, 150));

    const QPointF centre = rect().center();
    const QRectF ring(centre.x() - kRadius, centre.y() - kRadius, 2 * kRadius, 2 * kRadius);
    QPen track(QColor(28, 127, 255, 40), 5);
    painter.setPen(track);
    painter.drawEllipse(ring);
    QPen arc(QColor(28, 127, 255), 5, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(arc);
    // Qt angles are in 1/16 degree, counter-clockwise; spin clockwise.
    painter.drawArc(ring, -m_angle * 16, 100 * 16);
}

}  // namespace qorquicomponents
