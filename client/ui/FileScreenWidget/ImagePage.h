// The picture page of the file-cast viewer: shows the cast picture and lets
// the user zoom, rotate and drag it. Every change is drawn here with a short
// animation and told to the panel (scale in per cent of the fit, the
// accumulated angle, pan steps in 1/2048 of the page) on a detached thread
// each, so the GUI never waits for the library. GUI thread only.
#pragma once

#include <QPixmap>
#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QString>
#include <QWidget>

class QMouseEvent;
class QPaintEvent;
class QTimer;

namespace qorquicomponents {

class ImagePage : public QWidget {
    Q_OBJECT

public:
    explicit ImagePage(QWidget* parent = nullptr);

    // Reads the file, deciding the format from the content and applying
    // its orientation tag. An unreadable file leaves an empty picture.
    void readPixmap(const QString& path);
    // Fits the picture into the page and draws it whole.
    void setPixmap();
    void getImageSize(int& width, int& height) const;

    // One zoom step by factor (1.25 in, 0.8 out); refused beyond a quarter
    // to four times the fit.
    void scale(float factor);
    // A quarter turn, clockwise when true; back to the fit.
    void rotate(bool clockwise);
    // A drag by (mx, my) page pixels; never shows beyond the picture's edge.
    void moveLable(float mx, float my);
    void setLabelBox(float x, float y, float scale);
    // Before every file change: plain scale, no turn, no pan.
    void reset();
    void clearPage();

    // State, for the viewer and for checks.
    float currentScale() const { return m_scale; }
    float fitScale() const { return m_fitScale; }
    QRect sourceRect() const { return m_sourceRect; }
    QRect targetRect() const { return m_targetRect; }
    QPointF offset() const { return QPointF(m_offsetX, m_offsetY); }
    int angle() const { return m_angle; }
    int animationStep() const { return m_step; }
    bool isAnimating() const;
    bool isPanAnimated() const { return m_animatePan; }
    bool hasPicture() const { return !m_pixmap.isNull(); }

    static constexpr int kFrameMs = 20;
    static constexpr int kLastFrame = 10;
    static constexpr float kZoomLimit = 4.0f;
    static constexpr int kPanUnits = 2048;

signals:
    // Every mouse press on the page (the viewer shows its control bar).
    void signalImageMousePress();
    // What was just handed to the library, on the GUI thread before the
    // call's thread starts: "scalePicture" (per cent), "rotatePicture"
    // (angle), "translatePicture" (x, y).
    void signalLibraryCall(const QString& call, int first, int second);

public slots:
    void onTimeout();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void sendScale(int percent);
    void sendRotation(int angle);
    void sendTranslation(int x, int y);
    void updateSourceRect(float scale);

    QTimer* m_timer;
    QPixmap m_pixmap;
    float m_scale = 1.0f;        // widget pixels per picture pixel
    float m_factor = 1.0f;       // the last zoom step's factor
    int m_step = 0;              // animation frame, 0..10
    int m_width = 0;             // picture size
    int m_height = 0;
    float m_panX = 0.0f;         // pending pan, picture pixels
    float m_panY = 0.0f;
    QRect m_sourceRect;          // the part of the picture drawn
    QRect m_targetRect;          // where it is drawn
    int m_viewWidth = 0;         // the scaled picture clipped to the page
    int m_viewHeight = 0;
    float m_centreX = 0.0f;      // view centre in scaled-picture pixels
    float m_centreY = 0.0f;
    float m_offsetX = 0.0f;      // view centre off the picture centre, picture pixels
    float m_offsetY = 0.0f;
    float m_fitScale = 1.0f;
    bool m_animatePan = false;
    int m_angle = 0;             // accumulated, not wrapped
    QPoint m_dragPoint;
    bool m_dragging = false;
};

}  // namespace qorquicomponents
