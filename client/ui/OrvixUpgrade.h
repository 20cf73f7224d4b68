// The main window and session controller. It owns the one session with a
// display panel, is the only place that changes the session state, runs the
// blocking library calls on its request threads and gets their results back
// as queued signals on the GUI thread.
//
// Its definitions are split by flow, one file each (OrvixUpgrade.cpp,
// OrvixUpgrade-connect.cpp, -screen, -exceptions, -chrome, -discovery); the
// sections below name the file of each part.
//
// Threads: slots and the init/close/destruction paths run on the GUI thread.
// connectThreadFun and the other *ThreadFun bodies run on the request
// threads; deviceExceptionCallBack, mouseCapCallback, screenReverseControl and
// the discovery notifications run on library threads and only emit signals
// (or touch the pages' locked code maps, or inject input through
// ScreenControl). The session state is atomic because the request threads,
// the stop work and the address watcher read and write it too.
#pragma once

#include <QString>
#include <QWidget>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "casting/Callbacks.h"
#include "casting/SessionRecords.h"
#include "ui/AddressChangeMonitor.h"
#include "ui/ContentWidget/DeviceShowInfo.h"
#include "ui/HardwareEncoderProbe.h"
#include "ui/TitleBarDrag.h"

class ControlBall;
class ExceptionCallBack;
class QAction;
class QCloseEvent;
class QDesktopWidget;
class QSystemTrayIcon;
class QTimer;
class TestExceptionDispatch;
class TestReverseScreen;
class TestFileCast;
class TestScreenCast;
class TestSessionController;

namespace Ui {
class OrvixUpgrade;
}

namespace qorquicomponents {

class BYOMButton;
class BYOMSetting;
class ConnectPage;
class ConnectThread;
class DynamicWindow;
class FileScreenPage;
class FileScreenStackWidget;
class FileScreenThread;
class LoadingWidget;
class NetTestWidget;
class ReverseScreen;
class ScreenChangeWatcher;
class ScreenPage;
class ScreenThread;
class SharePage;
class SettingWidget;
class StartShareThread;

class OrvixUpgrade : public QWidget {
    Q_OBJECT
    friend class ::TestSessionController;
    friend class ::TestScreenCast;
    friend class ::TestExceptionDispatch;
    friend class ::TestReverseScreen;
    friend class ::TestFileCast;

public:
    // Session state values.
    enum SessionStatus : unsigned {
        NormalStatus = 1,              // idle, no panel session
        ScreeningStatus = 2,           // the PC screen (or a window) is being cast
        CodeScreenRequestStatus = 3,   // cast request by connect code in flight
        ReverseScreeningStatus = 4,    // the panel's screen is shown here
        CodeReverseRequestStatus = 5,  // reverse-screen request by connect code in flight
        KLUFScreenRequestStatus = 6,   // cast request to a discovered panel in flight
        KLUFReverseRequestStatus = 7,  // reverse-screen request to a discovered panel in flight
        CodeConnectingStatus = 8,      // log-in by connect code in flight
        KLUFConnectingStatus = 9,      // log-in to a discovered panel in flight
        ConnectedStatus = 10,          // logged in, nothing cast
    };

    // Title-bar page buttons: which page the title bar marks as current.
    enum TitleButtonStatus : int {
        TitleScreenPage = 0,
        TitleSharePage = 1,
        TitleConnectPage = 2,
    };

    // ---- Construction, start-up and close: OrvixUpgrade.cpp -------------
    explicit OrvixUpgrade(QWidget* parent = nullptr);
    // Waits for the asynchronous works, stops the watchers and the request
    // threads, and shuts the casting library down while Qt still runs.
    ~OrvixUpgrade() override;

    unsigned getCurrentStatus() const { return m_screenStatus; }
    bool getScreenStatus() const { return m_screenStatus == ScreeningStatus; }
    bool getReverseScreenStatus() const { return m_screenStatus == ReverseScreeningStatus; }

    // Entry from the command line: restores and activates the window, then
    // casts the screen to the panel at strIp. An empty strIp only clears the
    // started-from-command-line mark.
    void shortcutModeScreen(QString strIp, QString second, int mode);
    bool isCommandLineStart() const { return m_isCommandLineStart; }

    ConnectPage* getConnectPage() const { return m_connectPage; }
    ScreenPage* getScreenPage() const { return m_screenPage; }
    SharePage* getSharePage() const { return m_sharePage; }
    // The reverse-screen view; its setters may be called from any thread.
    ReverseScreen* getReverseScreenWindow() const { return m_reverseScreen; }

    // ---- Connect and log-in: OrvixUpgrade-connect.cpp --------------------
    // True when the PC has no usable network (no interface that is up, not
    // loopback and has an IPv4 address).
    bool getLocalNetworkStatus();
    // Logs out of the library session if logged in; harmless when not.
    void logOut();
    // Connect request-thread body; returns 1 once logged in. The cast
    // workers call it to log in before their own request.
    int connectThreadFun();

    // ---- Screen casting: OrvixUpgrade-screen.cpp -------------------------
    int screenThreadFun();
    // Measures the PC's monitors and tells the casting library.
    void getAllScreenResolution();
    // Applies the stored sound and reverse-control choices to a new cast.
    void screenConfigStatus();
    // Bodies of the two watcher threads that run while a cast runs.
    void checkSysIPAddrChange();
    void cheakCpuAndMemUsage();
    // Library-thread entry points of the remote-input callbacks.
    void mouseCapCallback(int& x, int& y, MOUSESTATUS& status, bool& visible);
    int screenReverseControl(CtrlMouseInfo_S* info, char pressed, int first, int second);

    // ---- Exceptions and tips: OrvixUpgrade-exceptions.cpp ----------------
    // Reports one of the program's own failures through the error-code table.
    void raiseErrorCode(unsigned errorCode);
    // Library-thread entry point of the exception callback.
    long deviceExceptionCallBack(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);
    // The notice last shown by the controller, while it exists.
    DynamicWindow* getDynamicWindow() const { return m_dynamicWindow; }

    // ---- Title bar and window chrome: OrvixUpgrade-chrome.cpp -------------
    // The live statistics as the bottom bar shows them (empty when none).
    QString dynamicDisplayText() const;
    bool isLoadingShown() const;
    int getTitleBtnStatus() const { return m_titleBtnStatus; }

    // ---- Discovery: OrvixUpgrade-discovery.cpp ---------------------------
    // Notifications from the discovery thread.
    void afterFindDeviceNotify(const KLUF_DEVICE_INFO& record);
    void deviceOfflineNotify(const KLUF_DEVICE_INFO& record);
    void deviceUpdateNotify(const KLUF_DEVICE_INFO& record);
    void deviceComingNotify(const KLUF_DEVICE_INFO& record);

    // ---- Reverse screen: OrvixUpgrade-reverse.cpp ------------------------
    // Reverse-screen request-thread body: logs in unless connected, then
    // asks the panel for its screen.
    int reverseScreenThreadFun();
    // ---- File casting: OrvixUpgrade-file.cpp -----------------------------
    // The file-cast request-thread body: logs in when needed, then asks the
    // panel for a file cast; the answer goes to onScreenRequestResult.
    int fileScreenThreadFun();
    FileScreenStackWidget* getFileScreenWidget() const { return m_fileScreenWidget; }
    FileScreenPage* getFileScreenPage() const { return m_fileScreenPage; }

    // ---- Flows to come, one file each ------------------------------------
    // Panel list: OrvixUpgrade-panels.cpp.
    // Window casting: OrvixUpgrade-window.cpp.
    // Settings: OrvixUpgrade-settings.cpp.
    SettingWidget* getSettingWidget() const { return m_settingWidget; }
    NetTestWidget* getNetTestWidget() const { return m_netTestWidget; }
    BYOMButton* getBYOMButton() const { return m_byomButton; }
    BYOMSetting* getBYOMSetting() const { return m_byomSetting; }
    // Opens the settings window beside this one.
    void showSettingWidget();

signals:
    // Connect and log-in.
    void signalConnectResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void signalCheckVersionResult(bool ok, VersionInfo& info);
    void signalLogout();
    void signalStopConnect();
    // Screen casting.
    void signalScreenResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void signalReverseScreenResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void signalVoiceScreenRequestResult(bool on);
    void signalScreenReverseRequestResult(bool on);
    void signalPPTFullScreen(bool fullScreen);
    void signalSetDynamicDisplayInfo(int bitRateKbps, int frameRate, int delayMs, bool loss);
    void signalRealScreenResolution(int width, int height);
    void signalSwitchNextPicture();
    void signalSwitchLastPicture();
    void signalSetDelayWhenUseTCP(int delayMs);
    void signalWindowAbnormal(int status);
    // Exceptions and tips.
    void signalPeripheralShareStopCallbackMsg(unsigned int type, QString reason);
    void signalPeripheralRestartMsg(QString reason);
    void signalMainErrorCode(unsigned int code);
    // The panel's own words for a refused request; just before its error code.
    void signalPanelRefusalText(QString text);
    void signalCallbackException(unsigned int type);
    // Discovery.
    void signalDealWithKLUFDevice(DeviceShowInfo& info, QString operation);

public slots:
    // Connect and log-in.
    void onStartConnect(const QString& code);
    void onConnectResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void onCheckVersion(bool ok, VersionInfo& info);
    void onStopConnect();
    void onLogout();

    // Screen casting.
    void onStartCodeScreen(const QString& code);
    void onScreenRequestResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void onStopScreen();
    void onPauseScreen(bool pause);
    void onScreenVoiceRequest(bool close);
    void onScreenReverseRequest(bool on);
    void onRestartMirroring();
    // Casts to a panel picked by its address (the discovery path).
    void onStartKLUFScreen(const DeviceShowInfo& info);
    // Window casting from the screen page: connect first (from the screen
    // page), then open the window selection.
    void onDealWithWindowScreen(const QString& code);
    // A window chosen on the screen page for window casting.
    void onWindowInfo(unsigned long window, bool flag, unsigned int value);
    void onSetDelayWhenUseTCP(int delayMs);
    void onVoiceScreenRequestResult(bool on);
    void onScreenReverseRequestResult(bool on);
    void onRealScreenResolution(int width, int height);

    // Reverse screen (OrvixUpgrade-reverse.cpp): start by connect code from
    // the share page or the connect page's entry, the request's result, stop.
    void onStartCodeReverseScreen(const QString& code);
    void onReverseScreenRequestResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void onStopReverseScreen();

    // Exceptions and tips.
    void onDealWithCallbackException(unsigned int type);
    void onDealwithError(unsigned int code);

    // Title bar and window chrome.
    // Live statistics of the cast for the bottom bar; all zero clears them.
    void onSetDynamicDisplayInfo(int bitRateKbps, int frameRate, int delayMs, bool loss);
    void onHideControlBallTimeout();
    void onShowLoading(bool show);

    // Discovery.
    void onDealWithKLUFDevice(DeviceShowInfo& info, QString operation);

    // File casting (OrvixUpgrade-file.cpp): casts the file at path, logging
    // in with code first when not connected.
    void onFileScreen(const QString& code, const QString& path);
    // The connect page's "File Screen" entry: asks for a file, then casts it.
    void onChooseCastFile();

protected:
    void closeEvent(QCloseEvent* event) override;            // OrvixUpgrade.cpp
    bool eventFilter(QObject* watched, QEvent* event) override;  // OrvixUpgrade-chrome.cpp

private:
    // Construction, start-up and close.
    void initUi();
    void initData();
    void initConnect();
    void stopRequestThreads(bool all);
    // Wraps work for mirk_async::ASYNC so that the destructor can wait for
    // it: such work uses this window until its last line.
    std::function<void()> trackedWork(std::function<void()> work);

    // Connect and log-in.
    void fillClientDeviceInfo();
    void clearSessionRecords();

    // Screen casting.
    // Hands a file to the file pages; false when they cannot show it.
    bool showFileScreenPages(const QString& path);
    void startWatchers();
    void stopWatchers();

    // Reverse screen.
    void initReverseFlow();

    // Exceptions and tips.
    void showNotice(const QString& icon, const QString& title, const QString& text, bool titleShown = true);

    // Title bar and window chrome.
    void initTray();  // with the about box and diagnostics: OrvixUpgrade-tray.cpp
    void applyStyleSheet();
    void showWindowActive();
    void showLoading();
    void hideLoading();
    void setTitleBtnStatus(int status);

    // Settings (OrvixUpgrade-settings.cpp): the settings window, the title
    // bar's button that opens it and the global shortcuts' actions.
    void initSettings();
    void onShortcutActivated(int which);
    SettingWidget* m_settingWidget = nullptr;
    NetTestWidget* m_netTestWidget = nullptr;  // made on first use
    // Camera and microphone sharing: its floating button and pop-up.
    void showBYOM(int status);
    // The switch: borrows or gives back the panel's devices.
    void switchVirtualDevices(bool on);
    BYOMButton* m_byomButton = nullptr;
    BYOMSetting* m_byomSetting = nullptr;

    // Discovery.
    void notifyDevice(const KLUF_DEVICE_INFO& record, CodeState state, const QString& operation);

    // File casting (OrvixUpgrade-file.cpp): the viewer and the status page,
    // made and wired once from initUi; the end of a file cast closes them.
    void initFileScreen();
    void clearFileScreenPages();
    // A refused file: the panel's words to the user, and the viewer closes.
    // False when the error is not about a file cast.
    bool endRefusedFileCast(unsigned int code);
    QString m_panelRefusalText;  // the last refusal's text, until its error code
    FileScreenStackWidget* m_fileScreenWidget = nullptr;
    FileScreenPage* m_fileScreenPage = nullptr;

    // Widgets.
    Ui::OrvixUpgrade* ui = nullptr;
    ConnectPage* m_connectPage = nullptr;
    ScreenPage* m_screenPage = nullptr;
    SharePage* m_sharePage = nullptr;
    ReverseScreen* m_reverseScreen = nullptr;
    ScreenChangeWatcher* m_screenChangeWatcher = nullptr;
    LoadingWidget* m_loading = nullptr;
    QSystemTrayIcon* m_trayIcon = nullptr;
    ControlBall* m_controlBall = nullptr;
    QTimer* m_hideControlBallTimer = nullptr;
    QDesktopWidget* m_desktop = nullptr;
    DynamicWindow* m_dynamicWindow = nullptr;
    std::unique_ptr<ExceptionCallBack> m_exceptionCallBack;

    // Request threads.
    ScreenThread* m_screenThread = nullptr;
    StartShareThread* m_startShareThread = nullptr;
    ConnectThread* m_connectThread = nullptr;
    FileScreenThread* m_fileScreenThread = nullptr;

    // Session. The request threads read and write these without a lock while
    // a request runs; the GUI thread does not touch them meanwhile.
    std::atomic<unsigned> m_screenStatus{NormalStatus};
    tagDeviceListUnitInfo_ m_deviceInfo{};          // the connected panel
    tagWindowScreenInfo_ m_windowScreenInfo{};      // the window being cast, 0: whole screen
    tagCodeServerInfo_ m_codeServerInfo{};          // passcode server for 4-character codes
    tagDeviceInfo_ m_clientDeviceInfo{};            // this PC, sent before log-in
    BusinessCap m_businessCap;
    long m_loginHandle = -1;
    long m_sessionHandle = -1;
    std::string m_hostName;
    QString m_strConnectCode;      // the code of the current connect, read from its page
    QString m_strDeviceName;       // the connected panel's name as last shown
    bool m_isConnectPageEnter = false;
    bool m_isScreenPageConnect = false;  // the connect was started from the screen page
    bool m_isCommandLineStart = false;
    bool m_isDisconnectAfterStop = false;
    std::atomic<int> m_runningWorks{0};        // asynchronous works that use this window

    // Screen casting.
    bool m_isFileScreen = false;
    bool m_isPauseScreen = false;
    std::atomic<bool> m_isStopAccepted{true};  // clear while a stop is under way
    QString m_strFilePath;                     // the file of a file cast
    ScreenControlType m_screenControlType = SCREEN_CONTROL_TOUCH;
    DeviceShowInfo m_restartDevice;            // the panel a cast restarts to
    int m_tcpDelayMs = 0;
    // The hardware encoder probe, run once at start-up.
    HardwareEncoderProbe m_hwProbe;
    // Watchers that run while a cast runs.
    std::thread m_checkIpThread;
    std::mutex m_checkIpMutex;
    std::condition_variable m_checkIpCond;
    std::atomic<bool> m_isCheckIpRunning{false};
    std::thread m_cpuMemThread;
    std::mutex m_cpuMemMutex;
    std::condition_variable m_cpuMemCond;
    std::atomic<bool> m_isCpuMemRunning{false};
    // Kernel notices of address changes for the address watcher; made per cast.
    std::unique_ptr<AddressChangeMonitor> m_addressMonitor;

    // Tray, about box, mirroring check and diagnostic bundle (OrvixUpgrade-tray.cpp).
public:
    // "Idle", "Connecting", "Connected" or "Casting", as the tray shows it.
    QString trayStateText() const;
    static QString aboutText();
    // Writes the support bundle; false and the reason in *error otherwise.
    bool saveDiagnosticBundleTo(const QString& path, QString* error);
    void showAboutBox();
    void showMirroringCheck();
    void onSaveDiagnosticBundle();

private:
    void updateTrayState();
    QAction* m_trayStateAction = nullptr;
    QAction* m_trayStopAction = nullptr;
    QTimer* m_trayStateTimer = nullptr;

    // Reverse screen: set while a stop is under way, so a second stop
    // (window closed, then the panel's end notice) does nothing.
    bool m_isReverseStopping = false;

    // Exceptions and tips.
    bool m_isMirroringAbnormal = false;  // the first 0xF320200A of a session was seen
    bool m_isNetworkNotice = false;      // switch for the network-lost notice; off in this build

    // Title bar and window chrome.
    int m_titleBtnStatus = TitleConnectPage;
    TitleBarDrag m_titleDrag{this};

    // Discovery.
    std::mutex m_deviceMapMutex;
    std::map<QString, DeviceShowInfo> m_mapDevice;  // first sight of each panel, by key
    std::map<QString, DeviceShowInfo> m_listedDevices;  // what the device list shows, by key
};

}  // namespace qorquicomponents
