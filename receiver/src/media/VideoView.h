// Shows the cast picture full size in the panel: the newest decoded frame,
// aspect kept with black bars, the PC's pointer drawn over it, and the
// panel user's touches and mouse actions on the picture reported in the
// protocol's 0..65535 units over the picture (bars excluded).
//
// Reported actions (pointerAction):
//   touch screen            touchDown, touchMove, touchUp (first touch point)
//   left mouse button       touchDown, touchMove, touchUp
//   right mouse button      mouseRightDown, mouseRightDrag, mouseRightUp
//   wheel                   mouseWheel, once per wheel step (120 eighths of a
//                           degree), at the pointer's position
// A press outside the picture is ignored; moves and releases of a press
// that started on it are clamped to its edges.
//
// Window mode (useVideoWindow): the receiver's sink draws and scales the
// picture into a native child window filling the view; Qt then draws only
// the PC's pointer (a small shaped child window above it) and takes the
// input. The picture's size comes from setPictureSize.
#pragma once

#include <QImage>
#include <QMutex>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QString>
#include <QWidget>

namespace zv::media {

class VideoView : public QWidget {
    Q_OBJECT
public:
    static constexpr int kUnits = 65535;

    explicit VideoView(QWidget* parent = nullptr);

    // Any thread (the receiver's frame callback): the newest picture, painted
    // later on the GUI thread. Frames arriving faster than the view paints
    // replace each other; only the last is shown. Stop the pipeline before
    // destroying the view.
    void presentFrame(const QImage& frame);
    // GUI thread: forget the picture (black until the next one).
    void clear();
    // GUI thread: the PC's pointer in 0..65535 units over the picture.
    void setCursorPosition(int x, int y, bool visible);

    // GUI thread: makes the native surface the sink draws into; its X id.
    unsigned long useVideoWindow();
    bool inWindowMode() const { return m_surface != nullptr; }
    // Any thread: the stream's picture size (window mode).
    void setPictureSize(int width, int height);

    // Where the picture is drawn now (empty without a picture).
    QRectF pictureRect() const;
    QImage currentFrame() const { return m_frame; }
    // Widget position to picture units, clamped; false when outside the picture.
    bool toPictureUnits(const QPointF& position, int* x, int* y) const;

signals:
    void pointerAction(const QString& type, int x, int y);
    // Window mode: the surface changed size (the sink must rescale).
    void surfaceResized();

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void takePendingFrame();
    void emitAt(const QString& type, const QPointF& position);
    void placePointer();

    QWidget* m_surface = nullptr;  // window mode: the sink's window
    QWidget* m_pointer = nullptr;  // window mode: the PC's pointer over it
    QSize m_pictureSize;           // window mode

    QMutex m_pendingMutex;
    QImage m_pending;
    bool m_updateQueued = false;

    QImage m_frame;
    int m_cursorX = 0;
    int m_cursorY = 0;
    bool m_cursorVisible = false;
    bool m_leftDown = false;
    bool m_rightDown = false;
    bool m_touchDown = false;
    int m_wheelEighths = 0;  // turned but not yet a whole step
};

}  // namespace zv::media
