// The audio/video page of the file-cast viewer: the caption, a progress
// slider with the current and total time, a volume slider, and previous,
// play/pause, next and stop. It shows what the viewer's once-a-second poll
// reports and sends seeks and volume changes to the library, each on a
// detached thread. GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

class QEvent;
class QLabel;
class QSlider;

namespace qorquicomponents {

class SwitchButton;

class VideoPage : public QWidget {
    Q_OBJECT

public:
    explicit VideoPage(QWidget* parent = nullptr);

    // "mm:ss", each part at least two digits (75 -> 01:15, 6000 -> 100:00).
    static QString timeText(int seconds);

    void setTextLabel(const QString& path);
    // Enables previous/next by the list's last index and the current one.
    void setDisable(int lastIndex, int currentIndex);
    // true: the button shows "play" (nothing plays); false: "pause".
    void changePlayBtn(bool paused);
    void reset();
    void clearPage();

    // Parts and state, for the viewer and for checks.
    QLabel* captionLabel() const { return m_caption; }
    QLabel* currentTimeLabel() const { return m_currentTime; }
    QLabel* totalTimeLabel() const { return m_totalTime; }
    QSlider* progressSlider() const { return m_progress; }
    QSlider* volumeSlider() const { return m_volume; }
    SwitchButton* lastButton() const { return m_lastBtn; }
    SwitchButton* playButton() const { return m_playBtn; }
    SwitchButton* nextButton() const { return m_nextBtn; }
    SwitchButton* stopButton() const { return m_stopBtn; }
    bool isPaused() const { return m_paused; }
    bool isSeeking() const { return m_seeking; }
    bool isVolumeDragging() const { return m_volumeDragging; }
    int totalSeconds() const { return m_total; }

signals:
    void signalPauseClicked(bool pause);
    void signalLastBtnClicked();
    void signalNextBtnClicked();
    void signalStopScreen();
    void signalBtnEnter(QString text, int x, int y);
    void signalBtnLeave();
    // What was just handed to the library: "seekCastFile" (seconds) or
    // "setCastFileVolume" (0..100), before the call's thread starts.
    void signalLibraryCall(const QString& call, int value);

public slots:
    // One poll: position and duration in seconds, the play state, volume.
    void onSetCastInfo(int current, int total, int state, int volume);
    void onChangeTimeText(int value);
    void onsProgressSlider();
    void onVoiceSlider();
    void onPlayBtnClicked();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void initUi();
    void initConnect();
    void seekTo(int value);
    void setVolume(int value);
    void styleButton(SwitchButton* button, bool enabled);

    QLabel* m_caption = nullptr;
    QLabel* m_currentTime = nullptr;
    QLabel* m_totalTime = nullptr;
    QSlider* m_progress = nullptr;
    QWidget* m_volumeBox = nullptr;
    QSlider* m_volume = nullptr;
    SwitchButton* m_lastBtn = nullptr;
    SwitchButton* m_playBtn = nullptr;
    SwitchButton* m_nextBtn = nullptr;
    SwitchButton* m_stopBtn = nullptr;

    int m_total = 0;         // duration, seconds
    int m_progressValue = 0; // 0..100
    int m_volumeValue = 0;   // 0..100
    bool m_volumeDragging = false;
    bool m_seeking = false;
    bool m_paused = false;
    int m_lastState = 0;
};

}  // namespace qorquicomponents
