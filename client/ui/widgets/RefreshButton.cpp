#include "ui/widgets/RefreshButton.h"

#include <QPainter>
#include <QTimer>

namespace qorquicomponents {

RefreshButton::RefreshButton(QWidget* parent)
    : QPushButton(parent),
      m_timer(new QTimer(this)),
      m_picture(QStringLiteral(":/OrvixUpgrade/image/common_reflash2x.png")) {
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setFlat(true);
    setFixedSize(20, 20);
    m_timer->setInterval(static_cast<int>(kTickMs));
    connect(m_timer, &QTimer::timeout, this, &RefreshButton::updateIndex);
    connect(this, &QPushButton::clicked, this, [this] { setIsClicked(true); });
}

bool RefreshButton::isSpinning() const { return m_timer->isActive(); }
int RefreshButton::tickIntervalMs() const { return m_timer->interval(); }

void RefreshButton::setIsClicked(bool clicked) {
    if (clicked && !m_timer->isActive()) m_timer->start();
    m_isClicked = clicked;
}

void RefreshButton::updateIndex() {
    if (m_isClicked) m_angle += kStepDegrees;
    // The steps are whole numbers, so the sum lands on -360 exactly.
    if (m_angle == -360.0) {
        m_isClicked = false;
        m_angle = 0.0;
        m_timer->stop();
    }
    update();
}

void RefreshButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.translate(width() / 2.0, height() / 2.0);
    painter.rotate(m_angle);
    const QRectF target(-width() / 2.0, -height() / 2.0, width(), height());
    painter.drawPixmap(target, m_picture, QRectF(m_picture.rect()));
}

}  // namespace qorquicomponents
