// The main window and session controller. It owns the one session with a
// display panel, is the only place that changes the session state, runs the
// blocking library calls on its request threads and gets their results back
// as queued signals on the GUI thread.
//
// Threads: slots and the init/close/destruction paths run on the GUI thread.
// connectThreadFun and the other *ThreadFun bodies run on the request
// threads; deviceExceptionCallBack, mouseCapCallback, screenReverseControl and
// the discovery notifications run on library threads and only emit signals
// (or touch the pages' locked code maps).
#pragma once

#include <QPoint>
#include <QString>
#include <QWidget>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "casting/Callbacks.h"
#include "casting/SessionRecords.h"
#include "ui/ContentWidget/DeviceShowInfo.h"

class ControlBall;
class ExceptionCallBack;
class QCloseEvent;
class QDesktopWidget;
class QSystemTrayIcon;
class QTimer;
class TestSessionController;

namespace Ui {
class OrvixUpgrade;
}

namespace qorquicomponents {

class ConnectPage;
class ConnectThread;
class DynamicWindow;
class FileScreenThread;
class LoadingWidget;
class ScreenPage;
class ScreenThread;
class StartShareThread;

class OrvixUpgrade : public QWidget {
    Q_OBJECT
    friend class ::TestSessionController;

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

    explicit OrvixUpgrade(QWidget* parent = nullptr);
    ~OrvixUpgrade() override;

    unsigned getCurrentStatus() const { return m_screenStatus; }
    bool getScreenStatus() const { return m_screenStatus == ScreeningStatus; }
    bool getReverseScreenStatus() const { return m_screenStatus == ReverseScreeningStatus; }

    // Entry from the command line: restores and activates the window, then
    // casts the screen to the panel at strIp. An empty strIp only clears the
    // started-from-command-line mark.
    void shortcutModeScreen(QString strIp, QString second, int mode);
    bool isCommandLineStart() const { return m_isCommandLineStart; }

    // Reports one of the program's own failures through the error-code table.
    void raiseErrorCode(unsigned errorCode);

    // True when the PC has no usable network (no interface that is up, not
    // loopback and has an IPv4 address).
    bool getLocalNetworkStatus();
    // Logs out of the library session if logged in; harmless when not.
    void logOut();

    ConnectPage* getConnectPage() const { return m_connectPage; }
    ScreenPage* getScreenPage() const { return m_screenPage; }
    bool isLoadingShown() const;
    int getTitleBtnStatus() const { return m_titleBtnStatus; }

    // Request-thread bodies. connectThreadFun returns 1 once logged in.
    int connectThreadFun();
    int screenThreadFun();
    int reverseScreenThreadFun();
    int fileScreenThreadFun();

    // Library-thread entry points of the free callbacks.
    long deviceExceptionCallBack(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);
    void mouseCapCallback(int& x, int& y, MOUSESTATUS& status, bool& visible);
    int screenReverseControl(CtrlMouseInfo_S* info, char pressed, int first, int second);

    // Discovery notifications (discovery thread).
    void afterFindDeviceNotify(const KLUF_DEVICE_INFO& record);
    void deviceOfflineNotify(const KLUF_DEVICE_INFO& record);
    void deviceUpdateNotify(const KLUF_DEVICE_INFO& record);
    void deviceComingNotify(const KLUF_DEVICE_INFO& record);

signals:
    void signalConnectResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void signalCheckVersionResult(bool ok, VersionInfo& info);
    void signalMainErrorCode(unsigned int code);
    void signalCallbackException(unsigned int type);
    void signalLogout();
    void signalStopConnect();
    void signalSetDelayWhenUseTCP(int delayMs);
    void signalDealWithKLUFDevice(DeviceShowInfo& info, QString operation);
    void signalWindowAbnormal(int status);

public slots:
    void onStartConnect(const QString& code);
    void onConnectResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device);
    void onCheckVersion(bool ok, VersionInfo& info);
    void onStopConnect();
    void onLogout();
    void onStopScreen();
    void onStopReverseScreen();
    void onDealWithCallbackException(unsigned int type);
    void onDealwithError(unsigned int code);
    void onDealWithKLUFDevice(DeviceShowInfo& info, QString operation);
    // Window casting from the screen page: connect first (from the screen
    // page), then open the window selection.
    void onDealWithWindowScreen(const QString& code);
    void onSetDelayWhenUseTCP(int delayMs);
    void onHideControlBallTimeout();
    void onShowLoading(bool show);

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void initUi();
    void initData();
    void initConnect();
    void initTray();
    void applyStyleSheet();
    void showWindowActive();
    void showLoading();
    void hideLoading();
    void setTitleBtnStatus(int status);
    void fillClientDeviceInfo();
    void clearSessionRecords();
    void notifyDevice(const KLUF_DEVICE_INFO& record, CodeState state, const QString& operation);
    void stopRequestThreads(bool all);
    void showNotice(const QString& icon, const QString& title, const QString& text);

    Ui::OrvixUpgrade* ui = nullptr;
    ConnectPage* m_connectPage = nullptr;
    ScreenPage* m_screenPage = nullptr;
    LoadingWidget* m_loading = nullptr;
    QSystemTrayIcon* m_trayIcon = nullptr;
    ControlBall* m_controlBall = nullptr;
    QTimer* m_hideControlBallTimer = nullptr;
    QDesktopWidget* m_desktop = nullptr;
    DynamicWindow* m_dynamicWindow = nullptr;
    std::unique_ptr<ExceptionCallBack> m_exceptionCallBack;

    ScreenThread* m_screenThread = nullptr;
    StartShareThread* m_startShareThread = nullptr;
    ConnectThread* m_connectThread = nullptr;
    FileScreenThread* m_fileScreenThread = nullptr;

    // Session. The request threads read and write these without a lock while
    // a request runs; the GUI thread does not touch them meanwhile.
    unsigned m_screenStatus = NormalStatus;
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
    bool m_isFileScreen = false;
    bool m_isPauseScreen = false;
    bool m_isMirroringAbnormal = false;  // the first 0xF320200A of a session was seen
    bool m_isNetworkNotice = false;      // switch for the network-lost notice; off in this build
    int m_titleBtnStatus = TitleConnectPage;
    int m_tcpDelayMs = 0;

    // Discovery.
    std::mutex m_deviceMapMutex;
    std::map<QString, DeviceShowInfo> m_mapDevice;  // first sight of each panel, by key
    std::map<QString, DeviceShowInfo> m_listedDevices;  // what the device list shows, by key

    // Dragging the frameless window by its title bar.
    QPoint m_dragOffset;
    bool m_dragging = false;
};

}  // namespace qorquicomponents
