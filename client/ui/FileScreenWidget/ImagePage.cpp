#include "ui/FileScreenWidget/ImagePage.h"

#include <QImage>
#include <QImageReader>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>
#include <QTransform>

#include <algorithm>
#include <thread>

#include "casting/CManageAll.h"
#include "casting/Log.h"

namespace qorquicomponents {

namespace {

constexpr qreal kCornerRadius = 8.0;

}  // namespace

ImagePage::ImagePage(QWidget* parent) : QWidget(parent), m_timer(new QTimer(this)) {
    setObjectName(QStringLiteral("imagePage"));
    m_timer->setInterval(kFrameMs);
    connect(m_timer, &QTimer::timeout, this, &ImagePage::onTimeout);
}

bool ImagePage::isAnimating() const { return m_timer->isActive(); }

void ImagePage::readPixmap(const QString& path) {
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull()) ZV_LOG(WARNING) << " cannot read " << path.toStdString() << ": "
                                        << reader.errorString().toStdString();
    m_pixmap = QPixmap::fromImage(image);
}

void ImagePage::getImageSize(int& width, int& height) const {
    width = m_width;
    height = m_height;
}

void ImagePage::setLabelBox(float x, float y, float scale) {
    m_viewWidth = static_cast<int>(std::min(static_cast<double>(m_width) * scale, static_cast<double>(width())));
    m_viewHeight = static_cast<int>(std::min(static_cast<double>(m_height) * scale, static_cast<double>(height())));
    m_centreX = (m_width / 2 - x) * scale;
    m_centreY = (m_height / 2 - y) * scale;
}

void ImagePage::setPixmap() {
    m_width = m_pixmap.width();
    m_height = m_pixmap.height();
    if (m_width <= 0 || m_height <= 0) {
        m_sourceRect = QRect();
        m_targetRect = QRect();
        update();
        return;
    }
    m_scale = static_cast<float>(std::min(static_cast<double>(width()) / m_width,
                                          static_cast<double>(height()) / m_height));
    m_sourceRect = QRect(0, 0, m_width, m_height);
    m_viewWidth = static_cast<int>(m_scale * m_width);
    m_viewHeight = static_cast<int>(m_scale * m_height);
    m_fitScale = m_scale;
    m_centreX = static_cast<float>(m_viewWidth / 2);
    m_centreY = static_cast<float>(m_viewHeight / 2);
    m_targetRect = QRect(width() / 2 - m_viewWidth / 2, height() / 2 - m_viewHeight / 2, m_viewWidth, m_viewHeight);
    update();
}

void ImagePage::scale(float factor) {
    if (m_width <= 0 || m_height <= 0) return;
    m_scale *= factor;
    if (m_scale > kZoomLimit * m_fitScale || m_scale < m_fitScale / kZoomLimit) {
        m_scale /= factor;
        return;
    }
    setLabelBox(m_offsetX, m_offsetY, m_scale);
    // The view must stay inside the scaled picture; if not, it glides back
    // to the picture's centre while the zoom animates.
    const bool insideX =
        (m_centreX - m_viewWidth / 2) * (m_scale * m_width - m_centreX - m_viewWidth / 2) >= 0;
    const bool insideY =
        (m_centreY - m_viewHeight / 2) * (m_scale * m_height - m_centreY - m_viewHeight / 2) >= 0;
    if (insideX && insideY) {
        m_animatePan = false;
    } else {
        m_panX = -m_offsetX;
        m_panY = -m_offsetY;
        m_offsetX = 0;
        m_offsetY = 0;
        m_animatePan = true;
    }
    m_factor = factor;
    m_step = 0;
    m_timer->start();
    sendScale(static_cast<int>(100 * m_scale / m_fitScale));
}

void ImagePage::onTimeout() {
    const float frameScale = m_scale * (10 + m_step * (m_factor - 1)) / (10 * m_factor);
    float x = m_offsetX;
    float y = m_offsetY;
    if (m_animatePan) {
        x = m_offsetX - m_panX + m_panX * m_step / 10;
        y = m_offsetY - m_panY + m_panY * m_step / 10;
    }
    setLabelBox(x, y, frameScale);
    updateSourceRect(frameScale);
    m_targetRect = QRect(width() / 2 - m_viewWidth / 2, height() / 2 - m_viewHeight / 2, m_viewWidth, m_viewHeight);
    update();
    ++m_step;
    if (m_step > kLastFrame) m_timer->stop();
}

void ImagePage::updateSourceRect(float scale) {
    m_sourceRect = QRect(static_cast<int>((m_centreX - m_viewWidth / 2) / scale),
                         static_cast<int>((m_centreY - m_viewHeight / 2) / scale),
                         static_cast<int>(m_viewWidth / scale), static_cast<int>(m_viewHeight / scale));
}

void ImagePage::moveLable(float mx, float my) {
    if (m_width <= 0 || m_height <= 0) return;
    m_animatePan = false;
    m_offsetX += mx / m_scale;
    m_offsetY += my / m_scale;
    m_panX = mx / m_scale;
    m_panY = my / m_scale;
    m_centreX = m_scale * (m_width / 2 - m_offsetX);
    m_centreY = m_scale * (m_height / 2 - m_offsetY);
    // A direction that would show beyond the picture's edge is refused.
    if (m_centreX - m_viewWidth / 2 < 0 || m_centreX + m_viewWidth / 2 > m_scale * m_width) {
        m_offsetX -= mx / m_scale;
        m_centreX = m_scale * (m_width / 2 - m_offsetX);
        m_panX = 0;
    }
    if (m_centreY - m_viewHeight / 2 < 0 || m_centreY + m_viewHeight / 2 > m_scale * m_height) {
        m_offsetY -= my / m_scale;
        m_centreY = m_scale * (m_height / 2 - m_offsetY);
        m_panY = 0;
    }
    updateSourceRect(m_scale);
    update();
    sendTranslation(static_cast<int>(kPanUnits * m_panX * m_scale / width()),
                    static_cast<int>(kPanUnits * m_panY * m_scale / height()));
}

void ImagePage::rotate(bool clockwise) {
    const int quarter = clockwise ? 90 : -90;
    m_angle += quarter;
    m_offsetX = m_offsetY = 0;
    m_panX = m_panY = 0;
    m_centreX = m_centreY = 0;
    m_timer->stop();
    if (!m_pixmap.isNull()) m_pixmap = m_pixmap.transformed(QTransform().rotate(quarter), Qt::FastTransformation);
    setPixmap();
    sendRotation(m_angle);
}

void ImagePage::reset() {
    m_timer->stop();
    m_scale = 1.0f;
    m_angle = 0;
    m_offsetX = m_offsetY = 0;
    m_panX = m_panY = 0;
    m_centreX = m_centreY = 0;
    m_animatePan = false;
    m_dragging = false;
}

void ImagePage::clearPage() {
    reset();
    m_pixmap = QPixmap();
    m_width = m_height = 0;
    m_sourceRect = QRect();
    m_targetRect = QRect();
    update();
}

// ---------------------------------------------------------------------------
// The library calls: each on a detached thread of its own. The values are
// absolute for scale and angle, so a late call cannot leave a wrong zoom.
// ---------------------------------------------------------------------------

void ImagePage::sendScale(int percent) {
    emit signalLibraryCall(QStringLiteral("scalePicture"), percent, 0);
    std::thread([percent] { CManageAll::getInstance()->scalePicture(percent); }).detach();
}

void ImagePage::sendRotation(int angle) {
    emit signalLibraryCall(QStringLiteral("rotatePicture"), angle, 0);
    emit signalLibraryCall(QStringLiteral("translatePicture"), 0, 0);
    std::thread([angle] {
        CManageAll* library = CManageAll::getInstance();
        library->rotatePicture(angle);
        library->translatePicture(0, 0);
    }).detach();
}

void ImagePage::sendTranslation(int x, int y) {
    emit signalLibraryCall(QStringLiteral("translatePicture"), x, y);
    std::thread([x, y] { CManageAll::getInstance()->translatePicture(x, y); }).detach();
}

// ---------------------------------------------------------------------------
// Painting and dragging
// ---------------------------------------------------------------------------

void ImagePage::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(rect()), kCornerRadius, kCornerRadius);
    painter.setClipPath(clip);
    painter.fillRect(rect(), QColor(QStringLiteral("#000000")));
    if (!m_pixmap.isNull() && m_sourceRect.isValid()) painter.drawPixmap(m_targetRect, m_pixmap, m_sourceRect);
}

void ImagePage::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_dragPoint = event->pos();
        m_dragging = true;
    }
    emit signalImageMousePress();
    QWidget::mousePressEvent(event);
}

void ImagePage::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragging) {
        const QPoint step = event->pos() - m_dragPoint;
        moveLable(static_cast<float>(step.x()), static_cast<float>(step.y()));
        m_dragPoint = event->pos();
    }
    QWidget::mouseMoveEvent(event);
}

void ImagePage::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) m_dragging = false;
    QWidget::mouseReleaseEvent(event);
}

}  // namespace qorquicomponents
