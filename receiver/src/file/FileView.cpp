#include "file/FileView.h"

#include <QMutexLocker>
#include <QPainter>
#include <QTransform>

#include <cmath>

namespace receiver {

FileView::FileView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAutoFillBackground(false);
}

void FileView::showPicture(const QImage& picture) {
    m_mode = Mode::Picture;
    m_picture = picture;
    m_rotation = 0;
    m_percent = 100;
    m_pan = {};
    update();
}

void FileView::showSound(const QString& name) {
    m_mode = Mode::Sound;
    m_soundName = name;
    update();
}

void FileView::showVideo() {
    m_mode = Mode::Video;
    QMutexLocker lock(&m_frameMutex);
    m_frame = QImage();
    update();
}

void FileView::clear() {
    m_mode = Mode::Empty;
    m_picture = QImage();
    {
        QMutexLocker lock(&m_frameMutex);
        m_frame = QImage();
    }
    update();
}

void FileView::setRotation(int degrees) {
    // A turn shows the picture fitted and centred, as the PC does.
    m_rotation = degrees;
    m_percent = 100;
    m_pan = {};
    update();
}

void FileView::setScalePercent(int percent) {
    const double old = m_percent;
    m_percent = std::clamp(percent, 25, 400);
    m_pan *= m_percent / old;  // zoom about the page's centre
    clampPan();
    update();
}

void FileView::translateBy(int dx, int dy) {
    m_pan += QPointF(dx * width() / 2048.0, dy * height() / 2048.0);
    clampPan();
    update();
}

void FileView::presentFrame(const QImage& frame) {
    QMutexLocker lock(&m_frameMutex);
    m_frame = frame;
    if (m_updateQueued) return;
    m_updateQueued = true;
    QMetaObject::invokeMethod(this, [this] {
        {
            QMutexLocker inner(&m_frameMutex);
            m_updateQueued = false;
        }
        update();
    }, Qt::QueuedConnection);
}

QSizeF FileView::turnedSize() const {
    const bool sideways = std::abs(m_rotation / 90) % 2 == 1;
    return sideways ? QSizeF(m_picture.height(), m_picture.width()) : QSizeF(m_picture.size());
}

double FileView::fitScale() const {
    const QSizeF turned = turnedSize();
    if (turned.isEmpty() || width() <= 0 || height() <= 0) return 1.0;
    return std::min(width() / turned.width(), height() / turned.height());
}

void FileView::clampPan() {
    // The picture never leaves a gap at an edge it covers: a side smaller
    // than the page stays centred, a larger one moves at most to its edge.
    const QSizeF shown = turnedSize() * fitScale() * (m_percent / 100.0);
    const double roomX = std::max(0.0, (shown.width() - width()) / 2);
    const double roomY = std::max(0.0, (shown.height() - height()) / 2);
    m_pan.setX(std::clamp(m_pan.x(), -roomX, roomX));
    m_pan.setY(std::clamp(m_pan.y(), -roomY, roomY));
}

void FileView::resizeEvent(QResizeEvent* event) {
    clampPan();
    QWidget::resizeEvent(event);
}

QImage FileView::render() {
    QImage page(size().isEmpty() ? QSize(1, 1) : size(), QImage::Format_RGB32);
    QWidget::render(&page);
    return page;
}

void FileView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (m_mode == Mode::Picture && !m_picture.isNull()) {
        const double scale = fitScale() * (m_percent / 100.0);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.translate(width() / 2.0 + m_pan.x(), height() / 2.0 + m_pan.y());
        painter.rotate(m_rotation);
        painter.scale(scale, scale);
        painter.drawImage(QPointF(-m_picture.width() / 2.0, -m_picture.height() / 2.0), m_picture);
        return;
    }
    if (m_mode == Mode::Video) {
        QImage frame;
        {
            QMutexLocker lock(&m_frameMutex);
            frame = m_frame;
        }
        if (frame.isNull()) return;
        const QSize fitted = frame.size().scaled(size(), Qt::KeepAspectRatio);
        const QRect target(QPoint((width() - fitted.width()) / 2, (height() - fitted.height()) / 2), fitted);
        painter.drawImage(target, frame);
        return;
    }
    if (m_mode == Mode::Sound) {
        painter.setPen(Qt::white);
        QFont font = painter.font();
        font.setPixelSize(std::max(16, height() / 20));
        painter.setFont(font);
        painter.drawText(rect(), Qt::AlignCenter, m_soundName);
    }
}

}  // namespace receiver
