// What the panel shows of a cast file: a picture with the PC's view of it
// (zoom in per cent of the fit, accumulated turn, pan kept over the page),
// a video's newest frame fitted with black bars, or for sound the file's
// name. Separate from the screen-cast view on purpose.
#pragma once

#include <QImage>
#include <QMutex>
#include <QPointF>
#include <QWidget>

namespace receiver {

class FileView : public QWidget {
    Q_OBJECT
public:
    explicit FileView(QWidget* parent = nullptr);

    // GUI thread.
    void showPicture(const QImage& picture);
    void showSound(const QString& name);
    void showVideo();
    void clear();
    void setRotation(int degrees);
    void setScalePercent(int percent);
    // A step in 1/2048 of the page.
    void translateBy(int dx, int dy);
    // Any thread: a video frame, painted later on the GUI thread.
    void presentFrame(const QImage& frame);

    // The picture's place on the page now (tests and the status line).
    int rotation() const { return m_rotation; }
    int scalePercent() const { return m_percent; }
    QPointF pan() const { return m_pan; }
    // The page as shown (also when the window is hidden).
    QImage render();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void clampPan();
    QSizeF turnedSize() const;
    double fitScale() const;

    enum class Mode { Empty, Picture, Video, Sound } m_mode = Mode::Empty;
    QImage m_picture;
    QString m_soundName;
    int m_rotation = 0;
    int m_percent = 100;
    QPointF m_pan;  // page pixels from the centre

    QMutex m_frameMutex;
    QImage m_frame;
    bool m_updateQueued = false;
};

}  // namespace receiver
