// The screen page: casting the PC's screen or one window by connect code, and
// the running cast with its pause, sound and reverse-control switches and the
// stop button. It never calls the casting library's session operations; every
// action is a signal for the session controller, which switches the page
// between its before-casting and casting layouts. GUI thread only, except
// setDeviceConnectCode (any thread).
#pragma once

#include <QMap>
#include <QString>
#include <QWidget>

#include <cstdint>
#include <memory>
#include <mutex>

#include "casting/SessionRecords.h"
#include "ui/ContentWidget/DeviceShowInfo.h"
#include "ui/widgets/ModelButton.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace Ui {
class ScreenPage;
}

namespace qorquicomponents {

class CodeEntry;
class SelectScreenWindow_linux;
class SwitchButton;

using CodeStatus = CodeState;

enum CurrentCodeScreenStatus {
    ScreenIdle = 0,
    ScreenCopyCasting = 1,
    ScreenWindowCasting = 3,
};

// The window chosen for window casting; cleared to zero before each use.
struct WindowScreenInfo {
    uint64_t windowId;
    bool flag;
    uint32_t value;
    char reserved[32];
};
static_assert(sizeof(WindowScreenInfo) == 48, "window screen info is a 48-byte block");

class ScreenPage : public QWidget {
    Q_OBJECT

public:
    explicit ScreenPage(QWidget* parent = nullptr);
    ~ScreenPage() override;

    QLineEdit* getScreenCodeEdit() const;
    QPushButton* getStartScreenBtn() const;
    QString getScreenConnectCode() const;

    void setConnectCode(const QString& code);
    void setCodeListHide() {}
    void setDeviceConnectCode(const QString& deviceKey, const QString& second, const QString& code, CodeStatus state);
    void setBigScreenInfo(const tagDeviceInfo_& info);
    int getCurrentScreenStatus() const { return m_currentScreenStatus; }
    void setCurrentScreenStatus(int status) { m_currentScreenStatus = status; }

    // Layouts: idle (code entry) and casting (animation, switches, stop).
    void setBeforeScreenShow();
    void setScreeningShow();
    bool isScreeningShown() const;

    // Switch states: the sound switch is checked while the cast carries the
    // PC's sound, the reverse switch while reverse control is off, the pause
    // switch while paused.
    void setVoiceAndReverseStatus(bool voice, bool reverse);
    void setVoiceIconStatus(bool checked);
    void setReverseIconStatus(bool checked);
    void setPauseScreenIconStatus(bool checked);

    // Mode button.
    void setScreenModle(int mode);
    void setBtnShow(ClientScreenMode mode, bool show);
    void setScreenModeStatus(bool using_);
    bool getExtendedModeScreen() const { return m_screenMode == ExtendedScreenMode; }
    // The mode stored when the last cast was started.
    int getScreenMode() const { return m_screenMode; }
    ModelButton* getModelButton() const;

    // Window casting.
    void resetWindowScreen();
    const WindowScreenInfo& getWindowScreenInfo() const { return m_windowScreenInfo; }
    // Opens the window selection (the page's parent is its anchor).
    void showSelectWindow();
    // Opens the window selection only in window mode.
    void showWindowSelect();
    int selectWindowRequests() const { return m_selectWindowRequests; }

    // Runs "echo $XDG_SESSION_TYPE"; true (and the flag set) in a Wayland
    // session. Throws std::runtime_error("popen() failed!") when the shell
    // cannot be started.
    bool judgeIsWayland();
    bool isWayland() const { return m_isWayland; }
    // The extended mode needs a virtual monitor, which this platform has not.
    bool openOrCloseVirtualMonitor(bool) { return true; }

    SwitchButton* pauseButton() const;
    SwitchButton* voiceButton() const;
    SwitchButton* reverseButton() const;
    SwitchButton* windowButton() const;
    QPushButton* stopButton() const;
    QString pauseStatusText() const;
    QLabel* animationLabel() const;
    bool isAnimationRunning() const;
    int animationStep() const { return m_animationStep; }

    bool eventFilter(QObject* watched, QEvent* event) override;

    static constexpr int kAnimationIntervalMs = 500;

signals:
    void signalStartCodeScreen(const QString& code);
    void signalWindowScreen(QString code);
    void signalWindowInfo(unsigned long window, bool flag, unsigned int value);
    void signalWithoutwindowselected();
    void signalPauseScreen(bool paused);
    void signalStopScreen();
    void signalVoiceScreen(bool close);
    void signalScreenReverse(bool on);
    void signalShowLoading(bool show);
    void signalConnectCode(const QString& code);
    void signalOperateVirtualMonitor(bool open);
    void signalOperateVirtualMonitorFail();
    void signalSelectWindow();

public slots:
    void onTextChanged(const QString& text);
    void onStartCodeScreenBtnClicked(bool skipServerCheck = false);
    void onPauseBtnClicked();
    void onStopScreenBtnClicked();
    void onVoiceBtnClicked();
    void onReverseBtnClicked();
    void onTimerout();
    void onStartWindowScreen(quint64 window);
    void onShowWindowFail();
    void onWindowScreenBtnClicked();

private:
    void startWindowScreen();
    void placeIllustration();

    Ui::ScreenPage* ui;
    QWidget* m_parentWindow;
    QLabel* m_illustrationLab;
    QTimer* m_animationTimer;
    std::unique_ptr<CodeEntry> m_codeEntry;
    std::mutex m_codeMapMutex;
    QMap<QString, QString> m_codeMap;
    int m_screenMode = CopyScreenMode;
    int m_currentScreenStatus = ScreenIdle;
    int m_animationStep = 0;
    int m_selectWindowRequests = 0;
    WindowScreenInfo m_windowScreenInfo{};
    bool m_isWayland = false;
    QString m_panelName;
    // Window casting: the preview grid, created on first use and reused.
    std::unique_ptr<SelectScreenWindow_linux> m_selectWindow;

public:
    SelectScreenWindow_linux* selectWindow() const { return m_selectWindow.get(); }
};

}  // namespace qorquicomponents
