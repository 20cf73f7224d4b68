#include "media/VideoView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QResizeEvent>
#include <QTouchEvent>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace zv::media {
namespace {

constexpr int kWheelStep = 120;  // eighths of a degree per notch

// A classic arrow pointer, tip at (0, 0), in pixels.
QPainterPath arrowShape() {
    QPainterPath path;
    path.moveTo(0, 0);
    path.lineTo(0, 17);
    path.lineTo(4.5, 13);
    path.lineTo(7.5, 19.5);
    path.lineTo(10, 18.5);
    path.lineTo(7, 12);
    path.lineTo(12, 12);
    path.closeSubpath();
    return path;
}

// The pointer as its own small window: drawn by Qt above the sink's surface.
class PointerWidget : public QWidget {
public:
    explicit PointerWidget(QWidget* parent) : QWidget(parent) {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setAttribute(Qt::WA_NativeWindow);
        setFixedSize(14, 22);
        setMask(QRegion(arrowShape().toFillPolygon().toPolygon()) + QRegion(0, 0, 2, 2));
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), Qt::black);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::white);
        painter.translate(1.5, 1.5);
        painter.scale(0.8, 0.8);
        painter.drawPath(arrowShape());
    }
};

}  // namespace

VideoView::VideoView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_AcceptTouchEvents);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMouseTracking(false);
    setFocusPolicy(Qt::StrongFocus);
}

void VideoView::presentFrame(const QImage& frame) {
    QMutexLocker lock(&m_pendingMutex);
    m_pending = frame;
    if (m_updateQueued) return;
    m_updateQueued = true;
    QMetaObject::invokeMethod(this, [this] { takePendingFrame(); }, Qt::QueuedConnection);
}

void VideoView::takePendingFrame() {
    {
        QMutexLocker lock(&m_pendingMutex);
        m_frame = m_pending;
        m_pending = QImage();
        m_updateQueued = false;
    }
    update();
}

void VideoView::clear() {
    {
        QMutexLocker lock(&m_pendingMutex);
        m_pending = QImage();
    }
    m_frame = QImage();
    if (m_surface != nullptr) {
        m_pictureSize = QSize();
        m_surface->hide();  // shown again by the next picture size
        placePointer();
    }
    update();
}

void VideoView::setCursorPosition(int x, int y, bool visible) {
    m_cursorX = std::clamp(x, 0, kUnits);
    m_cursorY = std::clamp(y, 0, kUnits);
    m_cursorVisible = visible;
    if (m_surface != nullptr) {
        placePointer();
        return;
    }
    update();
}

unsigned long VideoView::useVideoWindow() {
    if (m_surface == nullptr) {
        m_surface = new QWidget(this);
        m_surface->setAttribute(Qt::WA_NativeWindow);
        m_surface->setAttribute(Qt::WA_PaintOnScreen);  // the sink paints it, never Qt
        m_surface->setAttribute(Qt::WA_NoSystemBackground);
        m_surface->setAttribute(Qt::WA_TransparentForMouseEvents);
        m_surface->setGeometry(rect());
        m_pointer = new PointerWidget(this);
        m_pointer->hide();
    }
    return static_cast<unsigned long>(m_surface->winId());
}

void VideoView::setPictureSize(int width, int height) {
    QMetaObject::invokeMethod(
        this,
        [this, width, height] {
            m_pictureSize = QSize(width, height);
            m_surface->show();
            placePointer();
        },
        Qt::QueuedConnection);
}

void VideoView::placePointer() {
    if (m_pointer == nullptr) return;
    const QRectF picture = pictureRect();
    if (!m_cursorVisible || picture.isEmpty()) {
        m_pointer->hide();
        return;
    }
    m_pointer->move(QPointF(picture.left() + picture.width() * m_cursorX / kUnits,
                            picture.top() + picture.height() * m_cursorY / kUnits)
                        .toPoint());
    m_pointer->show();
    m_pointer->raise();
}

void VideoView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    if (m_surface == nullptr) return;
    m_surface->setGeometry(rect());
    placePointer();
    emit surfaceResized();
}

QRectF VideoView::pictureRect() const {
    const QSize source = m_surface != nullptr ? m_pictureSize : m_frame.size();
    if (source.isEmpty() || width() <= 0 || height() <= 0) return {};
    const QSizeF picture = QSizeF(source).scaled(QSizeF(size()), Qt::KeepAspectRatio);
    return QRectF(QPointF((width() - picture.width()) / 2.0, (height() - picture.height()) / 2.0), picture);
}

bool VideoView::toPictureUnits(const QPointF& position, int* x, int* y) const {
    const QRectF picture = pictureRect();
    if (picture.isEmpty()) return false;
    const double u = (position.x() - picture.left()) / picture.width();
    const double v = (position.y() - picture.top()) / picture.height();
    *x = std::clamp(static_cast<int>(std::lround(u * kUnits)), 0, kUnits);
    *y = std::clamp(static_cast<int>(std::lround(v * kUnits)), 0, kUnits);
    return u >= 0.0 && u <= 1.0 && v >= 0.0 && v <= 1.0;
}

void VideoView::emitAt(const QString& type, const QPointF& position) {
    int x = 0, y = 0;
    toPictureUnits(position, &x, &y);
    emit pointerAction(type, x, y);
}

void VideoView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (m_surface != nullptr) return;  // the sink draws the picture
    const QRectF picture = pictureRect();
    if (picture.isEmpty()) return;
    if (picture.size() != QSizeF(m_frame.size())) painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(picture, m_frame);
    if (m_cursorVisible) {
        const QPointF tip(picture.left() + picture.width() * m_cursorX / kUnits,
                          picture.top() + picture.height() * m_cursorY / kUnits);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(tip);
        painter.setPen(QPen(Qt::black, 1.2));
        painter.setBrush(Qt::white);
        painter.drawPath(arrowShape());
    }
}

bool VideoView::event(QEvent* event) {
    switch (event->type()) {
        case QEvent::TouchBegin:
        case QEvent::TouchUpdate:
        case QEvent::TouchEnd:
        case QEvent::TouchCancel: {
            auto* touch = static_cast<QTouchEvent*>(event);
            event->accept();  // no mouse events made up from it
            if (touch->touchPoints().isEmpty()) return true;
            const QPointF position = touch->touchPoints().first().pos();
            int x = 0, y = 0;
            if (event->type() == QEvent::TouchBegin) {
                m_touchDown = toPictureUnits(position, &x, &y);
                if (m_touchDown) emit pointerAction(QStringLiteral("touchDown"), x, y);
            } else if (m_touchDown && event->type() == QEvent::TouchUpdate) {
                emitAt(QStringLiteral("touchMove"), position);
            } else if (m_touchDown) {
                m_touchDown = false;
                emitAt(QStringLiteral("touchUp"), position);
            }
            return true;
        }
        default:
            return QWidget::event(event);
    }
}

void VideoView::mousePressEvent(QMouseEvent* event) {
    if (event->source() != Qt::MouseEventNotSynthesized) return;
    int x = 0, y = 0;
    if (!toPictureUnits(event->localPos(), &x, &y)) return;
    if (event->button() == Qt::LeftButton && !m_leftDown) {
        m_leftDown = true;
        emit pointerAction(QStringLiteral("touchDown"), x, y);
    } else if (event->button() == Qt::RightButton && !m_rightDown) {
        m_rightDown = true;
        emit pointerAction(QStringLiteral("mouseRightDown"), x, y);
    }
}

void VideoView::mouseMoveEvent(QMouseEvent* event) {
    if (event->source() != Qt::MouseEventNotSynthesized) return;
    if (m_leftDown) emitAt(QStringLiteral("touchMove"), event->localPos());
    if (m_rightDown) emitAt(QStringLiteral("mouseRightDrag"), event->localPos());
}

void VideoView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->source() != Qt::MouseEventNotSynthesized) return;
    if (event->button() == Qt::LeftButton && m_leftDown) {
        m_leftDown = false;
        emitAt(QStringLiteral("touchUp"), event->localPos());
    } else if (event->button() == Qt::RightButton && m_rightDown) {
        m_rightDown = false;
        emitAt(QStringLiteral("mouseRightUp"), event->localPos());
    }
}

void VideoView::wheelEvent(QWheelEvent* event) {
    int x = 0, y = 0;
    if (!toPictureUnits(event->position(), &x, &y)) return;
    event->accept();
    m_wheelEighths += event->angleDelta().y();
    while (std::abs(m_wheelEighths) >= kWheelStep) {
        m_wheelEighths -= m_wheelEighths > 0 ? kWheelStep : -kWheelStep;
        emit pointerAction(QStringLiteral("mouseWheel"), x, y);
    }
}

}  // namespace zv::media
