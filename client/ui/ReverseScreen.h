// The reverse-screen window: shows the panel's own screen on this PC and,
// while the panel grants control, sends the user's mouse actions back to it
// as touch messages in panel units (0..65535 across the shown area).
//
// The casting library hands the panel's stream in pieces to inputStream on
// its receive thread; the first piece sets up the stream player (the Dexo_
// functions), which decodes and draws straight into the child display
// widget. Beside the window float two small tool windows: the sidebar
// (control, home, back, snapshot, refresh) at the right edge and the status
// overlay (delay, bit rate, frame rate) at the top-left corner.
//
// Threads: inputStream runs on the library's receive thread and
// callbackDecode on a player thread; they touch no widget (the player is
// bound to the display widget through a blocking queued signal). The three
// setters of the failure path (setReverseControlStatus, setReconnecting,
// rejectWindowShow) may be called from any thread. Everything else runs on
// the GUI thread.
#pragma once

#include <QByteArray>
#include <QString>
#include <QWidget>

#include <atomic>
#include <mutex>

struct RunTimeInfo;

namespace qorquicomponents {

class DisplayWidget;
class ReverseScreenSidebar;

class ReverseScreen : public QWidget {
    Q_OBJECT

public:
    using ErrorCallbackFunc = void (*)(unsigned long, void*);

    // Snapshot buffer: room for the JPEG of a 1080p picture.
    static constexpr unsigned kMirrorPhotoBufferSize = 4147200;

    explicit ReverseScreen(QWidget* parent = nullptr);
    ~ReverseScreen() override;

    // Session start and end (GUI thread).
    void startReverseScreen();
    void stopReverseScreen();

    // A piece of the panel's stream (library receive thread). 0 when taken,
    // -1 when no player runs or the player refused it.
    int inputStream(int type, char* data, int length);

    // Failure path, any thread.
    void setReverseControlStatus(int on);
    void rejectWindowShow(const QString& text);
    void setReconnecting(bool reconnecting);

    void setErrorCallbackFunc(ErrorCallbackFunc callback, void* user);
    void setReverseScreenDelay(int delayMs);
    void setReverseScreenBitrateFrameRate(int bitRateKbps, int frameRate);
    // Dumps every stream piece (4-byte length, then the bytes) to a file in
    // the snapshot folder while on.
    void setWriteStream(bool on);

    bool reverseControlStatus() const { return m_reverseControl; }
    bool isReconnecting() const { return m_reconnecting; }
    bool isReverseRunning() const { return m_reverseRunning == 1; }
    int playPort() const { return m_lPlayPort; }
    // The last refusal shown, empty when none was.
    QString lastRejectText() const;
    QWidget* displayWidget() const { return m_displayWidget; }
    ReverseScreenSidebar* sidebar() const { return m_sidebar; }
    DisplayWidget* overlay() const { return m_overlay; }
    int sidebarOffset() const { return m_sidebarOffset; }
    int hiddenClickCount() const { return m_hiddenClicks; }
    bool displayInfoShown() const { return m_overlayShown; }

    // Player run-time information (player thread): a decode error asks the
    // panel for a key frame.
    static void callbackDecode(int port, RunTimeInfo* info, void* user);

signals:
    // Asks the session controller to end the reverse session.
    void signalStopShare();
    // Binds the player to the display widget on the GUI thread.
    void signalSetPlayHandle(bool& result);
    void signalInitPlayPortFail();
    // Ten clicks on the overlay: the hidden settings window is wanted.
    void signalOpenHiddenSettings();
    // Every touch message as it goes to the panel.
    void signalTouchSent(const QByteArray& json);

public slots:
    void onSetReverseControl();
    void onReverseScreenKeyFrame();
    void onBackToHome();
    void onBackToPrevious();
    void setTakeMirrorPhoto();
    // Shows or hides the overlay's figures (the hidden settings window's switch).
    void onShowDisplayInfo(bool shown);

private slots:
    void onSetPlayHandle(bool& result);
    void onInitPlayPortFail();
    void onDisplayClicked();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    int initPlayPort();
    bool setPlayHandle();
    void sendTouch(const char* ctrlType, int x, int y);
    void placeFloaters();
    // Frame border width and title bar height, from the window's geometry.
    void refreshFrameOffsets();
    void centreSidebar();
    void showControlStatus(bool on);

    QWidget* m_displayWidget = nullptr;
    ReverseScreenSidebar* m_sidebar = nullptr;
    DisplayWidget* m_overlay = nullptr;

    std::atomic<bool> m_isFirstData{true};
    std::atomic<bool> m_reverseControl{false};
    std::atomic<bool> m_reconnecting{false};
    std::atomic<int> m_lPlayPort{-1};
    std::atomic<int> m_reverseRunning{0};
    // Held while the port is fed, and while it is torn down.
    std::mutex m_portMutex;

    int m_frameOffsetX = 0;
    int m_frameOffsetY = 0;
    int m_sidebarOffset = 0;
    bool m_sidebarDragging = false;
    bool m_overlayShown = false;
    int m_hiddenClicks = 0;

    std::atomic<ErrorCallbackFunc> m_errorCallback{nullptr};
    std::atomic<void*> m_errorUser{nullptr};

    mutable std::mutex m_textMutex;
    QString m_lastRejectText;
};

}  // namespace qorquicomponents
