#include "ui/OrvixUpgrade.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopWidget>
#include <QFile>
#include <QGuiApplication>
#include <QHostInfo>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QScreen>
#include <QSysInfo>
#include <QSystemTrayIcon>
#include <QTimer>

#include <pthread.h>
#include <sched.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <ios>
#include <thread>

#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "casting/MyLog.h"
#include "casting/Singleton.h"
#include "BusinessModule/ScreenBusiness/ScreenControl.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/ControlBall.h"
#include "ui/DetailsExpansionWindow.h"
#include "ui/DynamicWindow.h"
#include "ui/ExceptionCallBack.h"
#include "ui/GlobalDefine.h"
#include "ui/LibraryCallbacks.h"
#include "ui/ManageErrorCode.h"
#include "ui/MirkAsync.h"
#include "ui/MirroringCheck.h"
#include "ui/PopupWindow.h"
#include "ui/RequestThreads.h"
#include "ui/ReverseScreen.h"
#include "ui/ScreenChangeWatcher.h"
#include "ui/TipWindows.h"
#include "ui/widgets/LoadingWidget.h"
#include "ui/widgets/StyleUtil.h"
#include "ui_OrvixUpgrade.h"

// The client's resources live in a static library, so they have to be
// registered by hand before first use.
static void initClientResources() {
    Q_INIT_RESOURCE(OrvixUpgrade);
    Q_INIT_RESOURCE(OrvixUpgradeImages);
}

namespace qorquicomponents {

namespace {

constexpr int kWindowWidth = 1008;
constexpr int kWindowHeight = 640;
constexpr int kHideControlBallMs = 2000;
constexpr int kTipTopOffset = 48;
constexpr auto kHardwareInitWait = std::chrono::milliseconds(1000);
constexpr int kRestartWaitSeconds = 7;
constexpr int kStopPollMs = 500;
// The Windows version value below which a client announces itself as the
// Linux kind; on Linux there is no such value.
constexpr int kWindowsVersionForWindowsType = 145;
const char* const kLogoPath = ":/OrvixUpgrade/images/logo.svg";
const char* const kStyleSheetPath = ":/OrvixUpgrade/QSS/OrvixUpgrade.qss";

int windowsVersionValue() { return 0; }

template <size_t N>
QString fieldText(const char (&field)[N]) {
    return QString::fromUtf8(field, static_cast<int>(strnlen(field, N)));
}

template <size_t N>
void copyText(char (&field)[N], const QByteArray& text) {
    Ktr_Memset_s(field, N, 0, N);
    Ktr_Memcpy_s(field, N, text.constData(), std::min(static_cast<size_t>(text.size()), N - 1));
}

}  // namespace

OrvixUpgrade::OrvixUpgrade(QWidget* parent) : QWidget(parent), ui(new Ui::OrvixUpgrade) {
    initClientResources();
    ui->setupUi(this);
    initUi();
    initData();
    initConnect();
    MyLog::getInstance()->initMyLog();
}

OrvixUpgrade::~OrvixUpgrade() {
    // Asynchronous works still running use this window: a cast request
    // waiting for a stop gives up, the others end within their library
    // time-outs.
    m_isStopAccepted = true;
    for (int i = 0; i < 200 && m_runningWorks > 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    m_screenChangeWatcher->stop();
    // The address watcher loops while a cast runs; nothing runs once we go.
    m_isCheckIpRunning = false;
    if (m_screenStatus == ScreeningStatus) m_screenStatus = ConnectedStatus;
    stopWatchers();
    if (m_hwProbeThread.joinable()) m_hwProbeThread.join();
    ScreenControl::unInitReverseControl();
    CManageAll* library = CManageAll::getInstance();
    library->endDiscovery();
    Ktr_Fini();
    // Nothing in the library may call back into this window from now on.
    library->setFoundDeviceCallback(nullptr);
    library->setExitDeviceCallback(nullptr);
    library->setUpdateDeviceCallback(nullptr);
    library->setDevComingCallback(nullptr);
    library->initDataCallBack(nullptr, nullptr, nullptr);
    stopRequestThreads(true);
    delete ui;
}

// ---------------------------------------------------------------------------
// Construction
// ---------------------------------------------------------------------------

void OrvixUpgrade::initUi() {
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    setFixedSize(kWindowWidth, kWindowHeight);
    setAttribute(Qt::WA_StyledBackground, true);
    setWindowIcon(QIcon(QString::fromLatin1(kLogoPath)));
    ui->labelTitleLogo->setPixmap(renderSvgPixmap(QString::fromLatin1(kLogoPath), QSize(28, 28), 2.0));

    // Pages. Their parent at construction is this window, the anchor of
    // their tips.
    m_screenPage = new ScreenPage(this);
    m_connectPage = new ConnectPage(this);
    m_sharePage = new SharePage(this);
    ui->stackedWidget->addWidget(m_screenPage);
    ui->stackedWidget->addWidget(m_connectPage);
    ui->stackedWidget->addWidget(m_sharePage);
    ui->stackedWidget->setCurrentWidget(m_connectPage);
    m_reverseScreen = new ReverseScreen(this);

    setTitleBtnStatus(TitleConnectPage);

    // Bottom bar.
    ui->deviceIconLab->setPixmap(
        renderSvgPixmap(QStringLiteral(":/OrvixUpgrade/images/svg/bottom_devices.svg"), QSize(16, 16), 2.0));
    ui->virtualDeviceIconLab->setPixmap(
        renderSvgPixmap(QStringLiteral(":/OrvixUpgrade/images/svg/bottom_virtual.svg"), QSize(16, 16), 2.0));
    ui->deviceCountLab->setText(tr("Nearby screens: %1").arg(0));
    ui->dynamicInfoLab->hide();
    ui->versionLab->setText(QStringLiteral("V") + QStringLiteral(ZV_CLIENT_VERSION));

    // The window itself holds the focus at start, so the code entry shows its
    // pale placeholder until the user clicks it.
    setFocusPolicy(Qt::StrongFocus);
    setFocus();

    m_loading = new LoadingWidget(ui->stackedWidget);
    initTray();
    applyStyleSheet();

    CManageAll* library = CManageAll::getInstance();
    library->initLogOut(nullptr, true);
    library->initCallBack(pingDataCallback);
    connect(this, &OrvixUpgrade::signalDealWithKLUFDevice, this, &OrvixUpgrade::onDealWithKLUFDevice);
    using std::placeholders::_1;
    library->setFoundDeviceCallback(std::bind(&OrvixUpgrade::afterFindDeviceNotify, this, _1));
    library->setExitDeviceCallback(std::bind(&OrvixUpgrade::deviceOfflineNotify, this, _1));
    library->setUpdateDeviceCallback(std::bind(&OrvixUpgrade::deviceUpdateNotify, this, _1));
    if (library->startDiscovery() != 0) ZV_LOG(WARNING) << " discovery did not start";
    library->setDevComingCallback(std::bind(&OrvixUpgrade::deviceComingNotify, this, _1));

    m_controlBall = new ControlBall(QStringLiteral("Chinese"), this);
    m_controlBall->hide();
    m_hideControlBallTimer = new QTimer(this);
    m_hideControlBallTimer->setInterval(kHideControlBallMs);
    TipWindows::getInstance()->setMainWidgetPtr(this);
    DetailsExpansionWindow::getInstance()->setMainWidgetPtr(this);
    m_exceptionCallBack = std::make_unique<ExceptionCallBack>();
    ui->virtualDeviceWidget->hide();
    m_desktop = QApplication::desktop();

    // Remote input, the encoder probe the first cast waits for, and the
    // screen size that a running cast follows.
    ScreenControl::initReverseControl();
    startHardwareProbe();
    m_screenChangeWatcher = new ScreenChangeWatcher(this);
    connect(m_screenChangeWatcher, &ScreenChangeWatcher::signalScreenSizeChanged, this,
            [this](int, int) { onRestartMirroring(); }, Qt::QueuedConnection);
    m_screenChangeWatcher->start();
}

void OrvixUpgrade::startHardwareProbe() {
    m_hwProbeThread = std::thread([this] {
        BusinessSettings& settings = BusinessSettings::getInstance();
        settings.probeHardwareCoding();
        ZV_LOG(INFO) << " hardware encoder probe finished, available: " << settings.getHardwareCodingAvailable();
        {
            std::lock_guard<std::mutex> lock(m_hwInitMutex);
            m_isHWInitFinished = true;
        }
        m_hwInitCond.notify_all();
    });
}

void OrvixUpgrade::initTray() {
    if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
    m_trayIcon = new QSystemTrayIcon(windowIcon(), this);
    m_trayIcon->setToolTip(QStringLiteral("Zelvanor"));
    auto* menu = new QMenu(this);
    menu->addAction(tr("Show main window"), this, &OrvixUpgrade::showWindowActive);
    menu->addAction(tr("Exit"), this, &QWidget::close);
    m_trayIcon->setContextMenu(menu);
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) showWindowActive();
    });
    m_trayIcon->show();
}

void OrvixUpgrade::initData() {
    m_screenThread = new ScreenThread(this, this);
    m_startShareThread = new StartShareThread(this, this);
    m_connectThread = new ConnectThread(this, this);
    m_fileScreenThread = new FileScreenThread(this, this);

    m_screenPage->getScreenCodeEdit()->installEventFilter(this);
    m_screenPage->getStartScreenBtn()->installEventFilter(this);
    m_connectPage->getConnectCodeEdit()->installEventFilter(this);
    m_connectPage->getStartConnectBtn()->installEventFilter(this);
    ui->widgetTitle->installEventFilter(this);
    ui->stackedWidget->installEventFilter(this);
    installEventFilter(this);

    qRegisterMetaType<tagDeviceListUnitInfo_>("DEVICE_LISTUNIT_INFO_S");
    qRegisterMetaType<VersionInfo>("VersionInfo&");
    qRegisterMetaType<ProjectOrShareReqResult>("ProjectOrShareReqResult");
    qRegisterMetaType<ScreeningWindowStatus>("ScreeningWindowStatus");
    qRegisterMetaType<HighUsageTipType>("HighUsageTipType");
    // The discovery signal carries its record across threads as well.
    qRegisterMetaType<DeviceShowInfo>("DeviceShowInfo&");

    m_strDeviceName.clear();
    m_isFileScreen = false;
    PopupWindow::getInstance()->setMainProcessInfo(0, this);
    ManageErrorCode::getInstance()->setMainWidget(this);
}

void OrvixUpgrade::initConnect() {
    connect(m_connectPage, &ConnectPage::signalConnect, this, &OrvixUpgrade::onStartConnect);
    connect(m_connectPage, &ConnectPage::signalStopconnect, this, &OrvixUpgrade::onStopConnect);
    connect(m_connectPage, &ConnectPage::signalShowLoading, this, &OrvixUpgrade::onShowLoading);
    connect(m_connectPage, &ConnectPage::signalStartScreen, this, &OrvixUpgrade::onStartCodeScreen);
    connect(m_screenPage, &ScreenPage::signalWindowScreen, this, &OrvixUpgrade::onDealWithWindowScreen);
    connect(m_screenPage, &ScreenPage::signalShowLoading, this, &OrvixUpgrade::onShowLoading);
    connect(m_screenPage, &ScreenPage::signalStartCodeScreen, this, &OrvixUpgrade::onStartCodeScreen);
    connect(m_screenPage, &ScreenPage::signalStopScreen, this, &OrvixUpgrade::onStopScreen);
    connect(m_screenPage, &ScreenPage::signalPauseScreen, this, &OrvixUpgrade::onPauseScreen);
    connect(m_screenPage, &ScreenPage::signalVoiceScreen, this, &OrvixUpgrade::onScreenVoiceRequest);
    connect(m_screenPage, &ScreenPage::signalScreenReverse, this, &OrvixUpgrade::onScreenReverseRequest);
    connect(m_screenPage, &ScreenPage::signalWindowInfo, this, &OrvixUpgrade::onWindowInfo);

    connect(this, &OrvixUpgrade::signalConnectResult, this, &OrvixUpgrade::onConnectResult);
    connect(this, &OrvixUpgrade::signalScreenResult, this, &OrvixUpgrade::onScreenRequestResult);
    connect(this, &OrvixUpgrade::signalVoiceScreenRequestResult, this, &OrvixUpgrade::onVoiceScreenRequestResult);
    connect(this, &OrvixUpgrade::signalScreenReverseRequestResult, this,
            &OrvixUpgrade::onScreenReverseRequestResult);
    connect(this, &OrvixUpgrade::signalSetDynamicDisplayInfo, this, &OrvixUpgrade::onSetDynamicDisplayInfo);
    connect(this, &OrvixUpgrade::signalRealScreenResolution, this, &OrvixUpgrade::onRealScreenResolution);
    connect(this, &OrvixUpgrade::signalCheckVersionResult, this, &OrvixUpgrade::onCheckVersion);
    connect(this, &OrvixUpgrade::signalMainErrorCode, this, &OrvixUpgrade::onDealwithError);
    connect(this, &OrvixUpgrade::signalCallbackException, this, &OrvixUpgrade::onDealWithCallbackException);
    connect(this, &OrvixUpgrade::signalLogout, this, &OrvixUpgrade::onLogout);
    connect(this, &OrvixUpgrade::signalStopConnect, this, &OrvixUpgrade::onStopConnect);
    connect(this, &OrvixUpgrade::signalSetDelayWhenUseTCP, this, &OrvixUpgrade::onSetDelayWhenUseTCP);
    connect(m_hideControlBallTimer, &QTimer::timeout, this, &OrvixUpgrade::onHideControlBallTimeout);

    connect(ui->connectTitleBtn, &QPushButton::clicked, this, [this] {
        setTitleBtnStatus(TitleConnectPage);
        ui->stackedWidget->setCurrentWidget(m_connectPage);
    });
    connect(ui->screenTitleBtn, &QPushButton::clicked, this, [this] {
        setTitleBtnStatus(TitleScreenPage);
        ui->stackedWidget->setCurrentWidget(m_screenPage);
    });
    connect(ui->minBtn, &QPushButton::clicked, this, &QWidget::showMinimized);
    connect(ui->closeBtn, &QPushButton::clicked, this, &QWidget::close);
}

void OrvixUpgrade::applyStyleSheet() {
    QFile file(QString::fromLatin1(kStyleSheetPath));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return;
    setStyleSheet(QString::fromUtf8(file.readAll()));
}

void OrvixUpgrade::showWindowActive() {
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    show();
    raise();
    activateWindow();
}

void OrvixUpgrade::setTitleBtnStatus(int status) {
    m_titleBtnStatus = status;
    setStyleProperty(ui->screenTitleBtn, "select",
                     status == TitleScreenPage ? QStringLiteral("down") : QStringLiteral("up"));
    setStyleProperty(ui->connectTitleBtn, "select",
                     status == TitleConnectPage ? QStringLiteral("down") : QStringLiteral("up"));
}

void OrvixUpgrade::showLoading() { m_loading->showLoading(); }
void OrvixUpgrade::hideLoading() { m_loading->hideLoading(); }
bool OrvixUpgrade::isLoadingShown() const { return m_loading->isVisible(); }

void OrvixUpgrade::onShowLoading(bool show) {
    if (show) {
        showLoading();
    } else {
        hideLoading();
    }
}

void OrvixUpgrade::showNotice(const QString& icon, const QString& title, const QString& text, bool titleShown) {
    if (m_dynamicWindow != nullptr) m_dynamicWindow->deleteLater();
    m_dynamicWindow = new DynamicWindow(this);
    m_dynamicWindow->setWindowContent(icon, title, text, DynamicWindowConfirm, 0);
    if (!titleShown) m_dynamicWindow->setTitleShow(false);
    m_dynamicWindow->showMessage();
}

// ---------------------------------------------------------------------------
// Command line
// ---------------------------------------------------------------------------

void OrvixUpgrade::shortcutModeScreen(QString strIp, QString second, int mode) {
    showWindowActive();

    if (strIp.isEmpty()) {
        if (m_isCommandLineStart) raiseErrorCode(zv_error::CONNECT_FAILED);
        m_isCommandLineStart = false;
        ZV_LOG(INFO) << " shortcutModeScreen return, because strIp is empty";
        return;
    }

    m_isCommandLineStart = true;
    ZV_LOG(INFO) << " shortcutModeScreen strIp: " << strIp.toStdString() << ", second: " << second.toStdString()
                 << ", mode: " << mode;
    // The address is cast to the way a panel picked from the list is.
    DeviceShowInfo panel;
    panel.detail = strIp;
    onStartKLUFScreen(panel);
}

void OrvixUpgrade::raiseErrorCode(unsigned errorCode) { ManageErrorCode::getInstance()->handleErrorCode(errorCode); }

// ---------------------------------------------------------------------------
// Connect by code
// ---------------------------------------------------------------------------

bool OrvixUpgrade::getLocalNetworkStatus() {
    char mac[18] = {};
    char ip[16] = {};
    return MC_Util_GetLocalMACIP(mac, sizeof mac, ip, sizeof ip) != 0;
}

void OrvixUpgrade::fillClientDeviceInfo() {
    tagDeviceInfo_ info{};
    copyText(info.szModel, QByteArrayLiteral("PC"));
    const QString name = m_hostName.empty() ? QHostInfo::localHostName() : QString::fromStdString(m_hostName);
    copyText(info.szName, name.toUtf8());
    char mac[18] = {};
    char ip[16] = {};
    if (MC_Util_GetLocalMACIP(mac, sizeof mac, ip, sizeof ip) == 0) {
        copyText(info.szAddress, QByteArray(ip));
        copyText(info.szMac, QByteArray(mac));
    }
    copyText(info.szOsName, QSysInfo::prettyProductName().toUtf8());
    info.nDeviceType = CLIENT_DEVICE_LINUX;
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QSize pixels = screen->size() * screen->devicePixelRatio();
        info.nScreenWidth = pixels.width();
        info.nScreenHeight = pixels.height();
    }
    m_clientDeviceInfo = info;
}

void OrvixUpgrade::onStartConnect(const QString& code) {
    ZV_LOG(INFO) << " Start connect.";
    if (getLocalNetworkStatus()) {
        ZV_LOG(INFO) << " Start code connect fail, because there is on network.";
        ManageErrorCode::getInstance()->handleErrorCode(zv_error::NO_NETWORK);
        hideLoading();
        return;
    }
    if (m_screenStatus != NormalStatus) {
        ZV_LOG(INFO) << " Start code connect fail, because the current state is not NormalStatus.";
        hideLoading();
        return;
    }
    m_isConnectPageEnter = !m_isScreenPageConnect;
    m_screenStatus = CodeConnectingStatus;
    showLoading();
    m_hostName = Singleton<CClientConfig>::getInstance().getHostName();
    // The worker reads the code from here: pages are widgets of this thread.
    m_strConnectCode = m_isScreenPageConnect ? m_screenPage->getScreenConnectCode() : m_connectPage->getConnectCode();
    ZV_LOG(INFO) << " connect code: " << code.toStdString();
    fillClientDeviceInfo();
    m_connectThread->start(QThread::InheritPriority);
}

int OrvixUpgrade::connectThreadFun() {
    m_loginHandle = -1;
    m_sessionHandle = -1;
    Ktr_Memset_s(m_codeServerInfo.szIp, sizeof m_codeServerInfo.szIp, 0, sizeof m_codeServerInfo.szIp);
    m_codeServerInfo.nPort = 0;

    const ClientDeviceType deviceType =
        windowsVersionValue() < kWindowsVersionForWindowsType ? CLIENT_DEVICE_LINUX : CLIENT_DEVICE_WINDOWS;

    const unsigned status = m_screenStatus;
    if (status == CodeConnectingStatus || status == CodeReverseRequestStatus || status == CodeScreenRequestStatus) {
        const QByteArray code = m_strConnectCode.toUtf8();
        if (m_strConnectCode.length() == 4) {
            CClientConfig& config = Singleton<CClientConfig>::getInstance();
            const std::string serverIp = config.getServerIP();
            Ktr_Memcpy_s(m_codeServerInfo.szIp, sizeof m_codeServerInfo.szIp, serverIp.c_str(), serverIp.size() + 1);
            m_codeServerInfo.nPort = QString::fromStdString(config.getServerPort()).toInt();
        }
        Ktr_Memcpy_s(m_deviceInfo.szConnectCode, sizeof m_deviceInfo.szConnectCode, code.constData(),
                     static_cast<size_t>(code.size()) + 1);
    }

    CManageAll* library = CManageAll::getInstance();
    library->initDataCallBack(ExceptionCallback(exceptionCallBackFun), errorCallbackFunc, this);
    library->uploadClientDeviceInfo(m_clientDeviceInfo);

    const long login = library->logIn(m_codeServerInfo, m_deviceInfo, m_loginHandle, m_sessionHandle, nullptr,
                                      deviceType, m_hostName.c_str());
    if (login != 0) {
        emit signalConnectResult(FAIL, m_deviceInfo);
        return 0;
    }

    VersionInfo version;
    if (library->checkVersion(version, m_loginHandle) != 0) {
        emit signalCheckVersionResult(false, version);
        return 0;
    }

    library->getBusinessCap(m_businessCap);
    if (m_screenStatus == CodeConnectingStatus || m_screenStatus == KLUFConnectingStatus) {
        emit signalConnectResult(SUCCESS, m_deviceInfo);
    }
    return 1;
}

void OrvixUpgrade::onConnectResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device) {
    if (result == SUCCESS) {
        ZV_LOG(INFO) << " Connect success.";
        m_screenStatus = ConnectedStatus;
        if (m_isConnectPageEnter) {
            const tagDeviceInfo_ server = CManageAll::getInstance()->getServerInfo();
            m_strDeviceName = fieldText(server.szName);
            m_connectPage->setBigScreenInfo(server);
            m_connectPage->setConnectShow();
            ui->stackedWidget->setCurrentWidget(m_connectPage);
            ui->titleBtnGroup->hide();
            m_controlBall->hide();
            MirroringCheck::setDisplayInfo(device);
            m_connectPage->enableFileCastBtn(false);
        } else {
            m_screenPage->setBigScreenInfo(CManageAll::getInstance()->getServerInfo());
            m_screenPage->showSelectWindow();
        }
        hideLoading();
        return;
    }
    if (result == FAIL) {
        m_hostName.clear();
        PopupWindow::getInstance()->hide();
        clearSessionRecords();
        m_screenStatus = NormalStatus;
        m_screenPage->setCurrentScreenStatus(0);
        BusinessSettings::getInstance().restoreDefault();
        m_isScreenPageConnect = false;
        ZV_LOG(INFO) << " Connect screen fail, ProjectOrShareReqResult::FAIL finish";
        hideLoading();
        return;
    }
    hideLoading();
}

void OrvixUpgrade::onCheckVersion(bool ok, VersionInfo& info) {
    ZV_LOG(INFO) << " Check version: " << ok << ", panel protocol " << info.nProtocolVersion << ", accepts from "
                 << info.nMinClientVersion;
    if (ok) return;
    // The panel was logged in to but cannot serve this client: leave it
    // again off the GUI thread, then return to idle. The tip comes through
    // the error callback.
    mirk_async::ASYNC([this] { logOut(); },
                      [this] {
                          if (m_screenStatus == CodeConnectingStatus || m_screenStatus == KLUFConnectingStatus) {
                              m_hostName.clear();
                              clearSessionRecords();
                              m_screenStatus = NormalStatus;
                              m_isScreenPageConnect = false;
                          }
                          hideLoading();
                      },
                      this);
}

void OrvixUpgrade::clearSessionRecords() {
    Ktr_Memset_s(&m_deviceInfo, sizeof m_deviceInfo, 0, sizeof m_deviceInfo);
    Ktr_Memset_s(&m_windowScreenInfo, sizeof m_windowScreenInfo, 0, sizeof m_windowScreenInfo);
}

// ---------------------------------------------------------------------------
// Ending a connection
// ---------------------------------------------------------------------------

void OrvixUpgrade::onStopConnect() {
    ZV_LOG(INFO) << " Stop connect m_isConnectPageEnter: " << m_isConnectPageEnter;
    CManageAll::getInstance()->stopMiracast();
    if (m_isConnectPageEnter) {
        setTitleBtnStatus(TitleConnectPage);
        ui->stackedWidget->setCurrentWidget(m_connectPage);
        m_isConnectPageEnter = false;
    } else {
        setTitleBtnStatus(TitleScreenPage);
        ui->stackedWidget->setCurrentWidget(m_screenPage);
    }
    m_screenStatus = NormalStatus;
    m_connectPage->setNormalShow();
    // A notice that tells why the connection ended stays up.

    clearSessionRecords();
    logOut();
    m_hostName.clear();
    m_strConnectCode.clear();
    Ktr_Memset_s(&m_deviceInfo, sizeof m_deviceInfo, 0, sizeof m_deviceInfo);
    m_strDeviceName.clear();
    m_isDisconnectAfterStop = false;
    ui->titleBtnGroup->show();
    m_isMirroringAbnormal = false;
    m_isPauseScreen = false;
    MirroringCheck::setDisplayInfo(m_deviceInfo);
    ui->virtualDeviceWidget->hide();
    m_isScreenPageConnect = false;
    repaint();
}

void OrvixUpgrade::logOut() {
    if (m_loginHandle >= 0) CManageAll::getInstance()->logOut(m_loginHandle, m_sessionHandle);
    m_loginHandle = -1;
    m_sessionHandle = -1;
}

void OrvixUpgrade::onLogout() {
    switch (m_screenStatus) {
    case NormalStatus:
        break;
    case ReverseScreeningStatus:
        m_isScreenPageConnect = true;
        onStopReverseScreen();
        break;
    case ScreeningStatus:
        ZV_LOG(INFO) << "StopScreen: onLogout.";
        CManageAll::getInstance()->reportOtherClientInfo("ScreenLogOutByServer");
        m_isScreenPageConnect = true;
        onStopScreen();
        break;
    case ConnectedStatus:
        m_isScreenPageConnect = true;
        onStopConnect();
        break;
    default:
        if (ui->stackedWidget->currentWidget() == m_connectPage) {
            m_isScreenPageConnect = true;
            onStopConnect();
        } else {
            logOut();
        }
        break;
    }
}

// ---------------------------------------------------------------------------
// Screen casting
// ---------------------------------------------------------------------------

void OrvixUpgrade::onStartCodeScreen(const QString& code) {
    if (getLocalNetworkStatus()) {
        ZV_LOG(INFO) << " Start code screen fail, because there is on network.";
        ManageErrorCode::getInstance()->handleErrorCode(zv_error::NO_NETWORK);
        hideLoading();
        return;
    }
    if (m_screenStatus != NormalStatus && m_screenStatus != ConnectedStatus) {
        ZV_LOG(INFO) << " Start code screen fail, because the current state is not NormalStatus.";
        hideLoading();
        return;
    }
    if (m_screenStatus != ConnectedStatus) {
        m_screenStatus = CodeScreenRequestStatus;
        // The worker logs in with this code; a stop then returns to the
        // screen page.
        m_strConnectCode = code;
        m_isConnectPageEnter = false;
    }
    showLoading();
    m_hostName = Singleton<CClientConfig>::getInstance().getHostName();
    fillClientDeviceInfo();
    if (m_isFileScreen) {
        CManageAll::getInstance()->stopMiracast();
        m_strFilePath.clear();
        m_isFileScreen = false;
    }
    m_screenThread->start(QThread::InheritPriority);
}

int OrvixUpgrade::screenThreadFun() {
    CManageAll* library = CManageAll::getInstance();
    library->reportOtherClientInfo("StartScreen");
    if (m_screenStatus == ConnectedStatus) {
        m_screenStatus = CodeScreenRequestStatus;
    } else {
        m_isDisconnectAfterStop = true;
        if (connectThreadFun() != 1) {
            emit signalStopConnect();
            return 0;
        }
    }

    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    library->initProtocol(config.getProType(), config.getMouseProType(), config.getReverseProType());
    library->setWindowScreenInfo(m_windowScreenInfo);
    ScreenControl::setScreenWindowHWND(static_cast<unsigned long>(static_cast<uint32_t>(m_windowScreenInfo.nWindowId)));
    getAllScreenResolution();

    {
        std::unique_lock<std::mutex> lock(m_hwInitMutex);
        if (!m_isHWInitFinished) {
            ZV_LOG(INFO) << " wait HWInit finished.";
            m_hwInitCond.wait_for(lock, kHardwareInitWait);
            if (!m_isHWInitFinished) ZV_LOG(INFO) << " HWInit timeout.";
        }
    }

    ZV_LOG(INFO) << " micracst request start.";
    const long result = library->miracastResq(m_loginHandle, m_deviceInfo, captureMouseCallback, this,
                                              reverseControlCallback, this, false, VIDEO_SOURCE_SCREEN);
    emit signalScreenResult(static_cast<ProjectOrShareReqResult>(result), m_deviceInfo);
    return 1;
}

void OrvixUpgrade::getAllScreenResolution() {
    const MonitorLayout layout = ScreenChangeWatcher::readMonitorLayout();
    BusinessSettings& settings = BusinessSettings::getInstance();
    if (layout.screen.isEmpty()) {
        ZV_LOG(WARNING) << " no X display to measure";
        return;
    }
    settings.setScreenMode(layout.monitors);
    settings.setRealCapResolution(layout.screen.width(), layout.screen.height());
    ZV_LOG(INFO) << " monitors: " << layout.monitors << ", screen " << layout.screen.width() << "x"
                 << layout.screen.height();
}

bool OrvixUpgrade::showFileScreenPages(const QString& path) {
    // The file pages take the file from here once they are part of the
    // client; until then a file cast is refused and the session stays.
    ZV_LOG(WARNING) << " no file pages for " << path.toStdString();
    return false;
}

void OrvixUpgrade::onScreenRequestResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S& device) {
    if (result == FAIL) {
        const bool disconnect = m_isDisconnectAfterStop;
        mirk_async::ASYNC(trackedWork([this, disconnect] {
                              Daemon::getInstance().setReconnect(0);
                              Daemon::getInstance().destroyDaemon();
                              CManageAll::getInstance()->stopMiracast();
                              if (disconnect) logOut();
                          }),
                          nullptr, this);
        PopupWindow::getInstance()->hide();
        if (disconnect || m_screenStatus == NormalStatus) {
            m_screenStatus = NormalStatus;
            m_hostName.clear();
            clearSessionRecords();
            if (m_isCommandLineStart) shortcutModeScreen(QString(), QString(), 1);
        } else {
            m_screenStatus = ConnectedStatus;
        }
        m_screenPage->setCurrentScreenStatus(ScreenIdle);
        m_screenPage->openOrCloseVirtualMonitor(false);
        BusinessSettings::getInstance().restoreDefault();
        m_strFilePath.clear();
        m_isFileScreen = false;
        m_isDisconnectAfterStop = false;
        m_screenPage->resetWindowScreen();
        ZV_LOG(INFO) << " Request screen fail, ProjectOrShareReqResult::FAIL finish";
    } else if (result == WAIT_AUTHORIZATION) {
        PopupWindow::getInstance()->setDisplayInfo(PopupReasonWaitAuthorization);
    } else if (result == SUCCESS && m_isFileScreen) {
        ZV_LOG(INFO) << " File cast start " << m_strFilePath.toStdString();
        PopupWindow::getInstance()->hide();
        ui->titleBtnGroup->hide();
        CManageAll::getInstance()->setCastFile(m_strFilePath.toUtf8().constData());
        if (showFileScreenPages(m_strFilePath)) {
            Daemon::getInstance().initDaemon(ExceptionCallback(exceptionCallBackFun), this, CManageAll::getInstance());
            Daemon::getInstance().setReconnect(1);
        } else {
            m_screenStatus = ConnectedStatus;
        }
    } else if (result == SUCCESS) {
        PopupWindow::getInstance()->hide();
        m_screenStatus = ScreeningStatus;
        m_strDeviceName = fieldText(device.szName);
        const tagDeviceInfo_ server = CManageAll::getInstance()->getServerInfo();
        m_screenPage->setBigScreenInfo(server);
        m_screenPage->setScreeningShow();
        ui->stackedWidget->setCurrentWidget(m_screenPage);
        setTitleBtnStatus(TitleScreenPage);

        screenConfigStatus();
        ui->titleBtnGroup->hide();
        showMinimized();

        Daemon::getInstance().initDaemon(ExceptionCallback(exceptionCallBackFun), this, CManageAll::getInstance());
        Daemon::getInstance().setReconnect(1);

        // The bottom bar shows the cast's statistics instead of the panels nearby.
        ui->deviceIconLab->hide();
        ui->deviceCountLab->hide();
        BusinessSettings::getInstance().setSystemMute(true);
        m_isCommandLineStart = false;

        startWatchers();

        m_screenPage->setScreeningShow();
        m_screenPage->setBigScreenInfo(server);
        ui->stackedWidget->setCurrentWidget(m_screenPage);
        repaint();
    }
    hideLoading();
    repaint();
}

void OrvixUpgrade::screenConfigStatus() {
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    const bool reverse = config.getScreenReverse() == 1;
    const bool sound = config.getScreenIsMute() == 1;
    m_screenPage->setVoiceAndReverseStatus(sound, !reverse);
    CManageAll* library = CManageAll::getInstance();
    if (!sound) library->voiceOn(1, false);
    if (reverse) library->reverseCtrlOn(1, m_screenControlType);
}

void OrvixUpgrade::onScreenVoiceRequest(bool close) {
    ZV_LOG(INFO) << " Screen voice(0:open  1:close): " << close;
    if (CManageAll::getInstance()->voiceOn(close ? 1 : 0, false) != 0) {
        ZV_LOG(WARNING) << " Request screen voice fail...";
        raiseErrorCode(zv_error::VOICE_FAILED);
        return;
    }
    Singleton<CClientConfig>::getInstance().updateScreenIsMute((close ? 1 : 0) ^ 1);
}

void OrvixUpgrade::onScreenReverseRequest(bool on) {
    ZV_LOG(INFO) << " Request screen reverse control: " << on;
    if (CManageAll::getInstance()->reverseCtrlOn(on ? 1 : 0, m_screenControlType) != 0) {
        ZV_LOG(WARNING) << " Request screen reverse fail...";
        raiseErrorCode(zv_error::REVERSE_CONTROL_FAILED);
        return;
    }
    Singleton<CClientConfig>::getInstance().updateScreenReverse(on ? 1 : 0);
}

void OrvixUpgrade::onPauseScreen(bool pause) {
    ZV_LOG(INFO) << " Pause screen: " << pause;
    CManageAll::getInstance()->pauseMiracast(pause);
    m_isPauseScreen = !m_isPauseScreen;
}

void OrvixUpgrade::onVoiceScreenRequestResult(bool on) { m_screenPage->setVoiceIconStatus(on); }

void OrvixUpgrade::onScreenReverseRequestResult(bool on) {
    ZV_LOG(INFO) << " screen reverse control answered: " << on;
    // The panel took control back: the switch shows it off.
    if (!on) m_screenPage->setReverseIconStatus(true);
}

void OrvixUpgrade::onRealScreenResolution(int width, int height) {
    ZV_LOG(INFO) << " panel screen " << width << "x" << height;
}

void OrvixUpgrade::onWindowInfo(unsigned long window, bool flag, unsigned int value) {
    m_windowScreenInfo.nWindowId = static_cast<int32_t>(window);
    m_windowScreenInfo.nFollow = flag ? 1 : 0;
    m_windowScreenInfo.uReserved = value;
    ScreenControl::setScreenWindowHWND(window);
    if (getScreenStatus()) CManageAll::getInstance()->setWindowScreenInfo(m_windowScreenInfo);
}

void OrvixUpgrade::onStopScreen() {
    if (!m_isStopAccepted) return;
    showLoading();
    m_isStopAccepted = false;
    showNormal();
    activateWindow();
    m_screenPage->resetWindowScreen();
    BusinessSettings::getInstance().setSystemMute(false);
    Daemon::getInstance().setReconnect(0);
    if (m_screenStatus != ScreeningStatus) {
        ZV_LOG(INFO) << " Stop screen fail, because the current state is not ScreeningStatus.";
        m_isStopAccepted = true;
        hideLoading();
        return;
    }
    mirk_async::ASYNC(
        trackedWork([this] {
            Daemon::getInstance().setReconnect(0);
            Daemon::getInstance().destroyDaemon();
            CManageAll::getInstance()->stopMiracast();
            m_isCheckIpRunning = false;
            Ktr_Memset_s(&m_windowScreenInfo, sizeof m_windowScreenInfo, 0, sizeof m_windowScreenInfo);
            m_screenStatus = ConnectedStatus;
            stopWatchers();
            BusinessSettings::getInstance().restoreDefault();
        }),
        [this] {
            m_controlBall->hide();
            hideLoading();
            m_screenPage->setBeforeScreenShow();
            onSetDynamicDisplayInfo(0, 0, 0, false);
            m_isPauseScreen = false;
            m_isMirroringAbnormal = false;
            ui->titleBtnGroup->show();
            ui->deviceIconLab->show();
            ui->deviceCountLab->show();
            m_screenPage->resetWindowScreen();
            ScreenControl::setScreenWindowHWND(0);
            if (m_isDisconnectAfterStop) {
                onStopConnect();
                m_screenStatus = NormalStatus;
            } else {
                m_connectPage->setBigScreenInfo(CManageAll::getInstance()->getServerInfo());
                m_connectPage->setConnectShow();
                ui->stackedWidget->setCurrentWidget(m_connectPage);
            }
            m_screenPage->setCurrentScreenStatus(ScreenIdle);
            m_strFilePath.clear();
            m_isFileScreen = false;
            m_isStopAccepted = true;
            // The screen page replaces the connect page set just above.
            ui->stackedWidget->setCurrentWidget(m_screenPage);
            setTitleBtnStatus(TitleScreenPage);
        },
        this);
}

std::function<void()> OrvixUpgrade::trackedWork(std::function<void()> work) {
    ++m_runningWorks;
    return [this, work = std::move(work)] {
        work();
        --m_runningWorks;
    };
}

void OrvixUpgrade::startWatchers() {
    // A watcher of an earlier cast has ended with it; collect it first.
    stopWatchers();
    m_checkIpThread = std::thread(&OrvixUpgrade::checkSysIPAddrChange, this);
    m_isCheckIpRunning = true;
    ZV_LOG(INFO) << " Thread start: Check whether the network IP address is changed";
    m_isCpuMemRunning = true;
    m_cpuMemThread = std::thread(&OrvixUpgrade::cheakCpuAndMemUsage, this);
    ZV_LOG(INFO) << " Thread start: Detects native CPU and memory usage";
}

void OrvixUpgrade::stopWatchers() {
    if (m_checkIpThread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_checkIpMutex);
            m_checkIpCond.notify_all();
        }
        m_checkIpThread.join();
    }
    if (m_cpuMemThread.joinable()) {
        {
            std::lock_guard<std::mutex> lock(m_cpuMemMutex);
            m_isCpuMemRunning = false;
            m_cpuMemCond.notify_all();
        }
        m_cpuMemThread.join();
    }
}

void OrvixUpgrade::checkSysIPAddrChange() {
    // This loop polls without sleeping for as long as the cast runs. It runs
    // at idle priority and yields on every turn, so it only takes a core
    // that nothing else wants.
    sched_param idle{};
    if (pthread_setschedparam(pthread_self(), SCHED_IDLE, &idle) != 0) {
        ZV_LOG(WARNING) << " the address watcher keeps its normal priority";
    }
    while (m_screenStatus == ScreeningStatus) std::this_thread::yield();
    ZV_LOG(INFO) << " Thread stop: Check whether the network IP address is changed";
}

void OrvixUpgrade::cheakCpuAndMemUsage() {}

void OrvixUpgrade::onRestartMirroring() {
    if (m_screenStatus != ScreeningStatus) {
        ScreenControl::unInitReverseControl();
        ScreenControl::initReverseControl();
        return;
    }
    m_restartDevice = DeviceShowInfo();
    m_restartDevice.connectCode = fieldText(m_deviceInfo.szConnectCode);
    m_restartDevice.detail = fieldText(m_deviceInfo.szAddress);
    m_restartDevice.value = m_deviceInfo.nPort;
    m_restartDevice.deviceName = fieldText(m_deviceInfo.szName);
    m_restartDevice.deviceKey = fieldText(m_deviceInfo.szKey);
    showNotice(QStringLiteral("warning"), tr("Resolution changes"),
               tr("The client resolution has been modified and will be re displayed"));
    ZV_LOG(INFO) << "StopScreen: Resolution change.";
    CManageAll::getInstance()->reportOtherClientInfo("StopScreenByChangeResolution");
    onStopScreen();
    for (int i = 0; i < kRestartWaitSeconds && m_screenStatus != NormalStatus && m_screenStatus != ConnectedStatus;
         ++i) {
        std::this_thread::sleep_for(std::chrono::seconds(1));
    }
    onStartKLUFScreen(m_restartDevice);
    ScreenControl::unInitReverseControl();
    ScreenControl::initReverseControl();
}

void OrvixUpgrade::onStartKLUFScreen(const DeviceShowInfo& info) {
    if (getLocalNetworkStatus()) {
        ZV_LOG(INFO) << "  Start kluf screen fail, because there is on internet.";
        ManageErrorCode::getInstance()->handleErrorCode(zv_error::NO_NETWORK);
        hideLoading();
        return;
    }
    if (m_screenStatus != NormalStatus && m_screenStatus != ConnectedStatus) {
        ZV_LOG(INFO) << " Start kluf screen fail, because the current state is not NormalStatus.";
        hideLoading();
        return;
    }
    m_isScreenPageConnect = ui->stackedWidget->currentWidget() != m_screenPage;
    m_screenStatus = KLUFScreenRequestStatus;
    showLoading();
    const DeviceShowInfo panel = info;
    mirk_async::ASYNC(
        trackedWork([this] {
            // A cast that is still stopping finishes first.
            while (!m_isStopAccepted) std::this_thread::sleep_for(std::chrono::milliseconds(kStopPollMs));
        }),
        [this, panel] {
            // The panel is reached by its address: no code of an earlier
            // session may stay in the record.
            Ktr_Memset_s(&m_deviceInfo, sizeof m_deviceInfo, 0, sizeof m_deviceInfo);
            const QByteArray address = panel.detail.toUtf8();
            Ktr_Memcpy_s(m_deviceInfo.szAddress, sizeof m_deviceInfo.szAddress, address.constData(),
                         std::min(static_cast<size_t>(address.size()), sizeof m_deviceInfo.szAddress - 1));
            m_deviceInfo.nPort = panel.value;
            m_hostName = Singleton<CClientConfig>::getInstance().getHostName();
            fillClientDeviceInfo();
            m_screenThread->start(QThread::InheritPriority);
        },
        this);
}

void OrvixUpgrade::onSetDynamicDisplayInfo(int bitRateKbps, int frameRate, int delayMs, bool loss) {
    QLabel* label = ui->dynamicInfoLab;
    const bool clear = bitRateKbps == 0 && frameRate == 0 && delayMs == 0 && !loss;
    if (clear || !getScreenStatus()) {
        label->clear();
        label->hide();
        return;
    }
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    QStringList parts;
    if (config.getShowBitRate() == 1) parts << tr("Bit rate: %1 kbps").arg(bitRateKbps);
    if (config.getShowFrameRate() == 1) parts << tr("Frame rate: %1 fps").arg(frameRate);
    if (config.getShowDelay() == 1) parts << tr("Delay: %1 ms").arg(delayMs);
    if (config.getShowLossFraction() == 1) parts << (loss ? tr("Packet loss") : tr("No packet loss"));
    label->setText(parts.join(QStringLiteral("   ")));
    label->setVisible(!parts.isEmpty());
}

QString OrvixUpgrade::dynamicDisplayText() const {
    return ui->dynamicInfoLab->isHidden() ? QString() : ui->dynamicInfoLab->text();
}

void OrvixUpgrade::onStopReverseScreen() {
    if (m_screenStatus != ReverseScreeningStatus) {
        hideLoading();
        return;
    }
    mirk_async::ASYNC(
        [] {
            Daemon::getInstance().setReconnect(0);
            Daemon::getInstance().destroyDaemon();
            CManageAll::getInstance()->stopShare();
        },
        [this] {
            m_screenStatus = ConnectedStatus;
            if (m_isDisconnectAfterStop) onStopConnect();
            hideLoading();
        },
        this);
}

// ---------------------------------------------------------------------------
// Window casting from the screen page
// ---------------------------------------------------------------------------

void OrvixUpgrade::onDealWithWindowScreen(const QString& code) {
    if (m_screenStatus == ConnectedStatus) {
        m_screenPage->showSelectWindow();
        hideLoading();
        return;
    }
    m_isScreenPageConnect = true;
    onStartConnect(code);
    if (m_screenStatus != CodeConnectingStatus) m_isScreenPageConnect = false;
}

// ---------------------------------------------------------------------------
// Failures
// ---------------------------------------------------------------------------

long OrvixUpgrade::deviceExceptionCallBack(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params,
                                           void* user) {
    return m_exceptionCallBack->callBackException(type, params, user);
}

void OrvixUpgrade::onDealWithCallbackException(unsigned int type) {
    CManageAll* library = CManageAll::getInstance();
    switch (type) {
    case NOTIFY_NO_BITSTREAM:
        onSetDynamicDisplayInfo(0, 0, 0, false);
        showNotice(QStringLiteral("error"), tr("Bit stream exception"), tr("No bit stream for a long time"));
        if (getScreenStatus()) {
            ZV_LOG(INFO) << "StopScreen: No bit stream for a long time.";
            onStopScreen();
        }
        if (getReverseScreenStatus()) onStopReverseScreen();
        break;
    case NOTIFY_SCREEN_CAST_ENDED:
        onStopScreen();
        break;
    case NOTIFY_RECONNECT_FAILED:
        m_isDisconnectAfterStop = true;
        m_reverseScreen->setReconnecting(false);
        showNotice(QStringLiteral("error"), tr("Connection exception with server"), tr("Reconnecting failed"));
        if (getReverseScreenStatus()) onStopReverseScreen();
        if (getScreenStatus()) {
            library->reportOtherClientInfo("ScreenReconnectFail");
            ZV_LOG(INFO) << "StopScreen: Screen cast reconnection failed.";
            onStopScreen();
        }
        break;
    case NOTIFY_RECONNECTING:
        m_reverseScreen->setReconnecting(true);
        onSetDynamicDisplayInfo(0, 0, 0, false);
        showNotice(QStringLiteral("warning"), tr("Connection exception with server"), tr("Reconnecting"));
        break;
    case NOTIFY_RECONNECTED: {
        m_reverseScreen->setReconnecting(false);
        library->reportOtherClientInfo("ScreenReconnectSuccess");
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        if (getScreenStatus()) {
            library->voiceOn(config.getScreenIsMute() == 1 ? 0 : 1, false);
            library->reverseCtrlOn(config.getScreenReverse() == 1 ? 1 : 0, m_screenControlType);
        }
        if (getReverseScreenStatus()) {
            library->voiceShareOn(config.getShareVoice() == 1);
            library->reverseCtrlShareOn(config.getShareReverse() == 1);
            library->requestShareKeyFrame(false);
        }
        break;
    }
    case NOTIFY_SHARE_RESTORE_SETTINGS: {
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        library->voiceShareOn(config.getShareVoice() == 1);
        library->reverseCtrlShareOn(config.getShareReverse() == 1);
        break;
    }
    case NOTIFY_REVERSE_CONTROL_INVALID:
        showNotice(QStringLiteral("error"), tr("Reverse Control"), tr("Reverse Control Invaild"));
        break;
    case NOTIFY_AUTHORIZATION_GRANTED:
        // The panel's user accepted: the request ends as a success.
        if (m_screenStatus == CodeScreenRequestStatus || m_screenStatus == KLUFScreenRequestStatus) {
            emit signalScreenResult(SUCCESS, m_deviceInfo);
        } else if (m_screenStatus == CodeReverseRequestStatus || m_screenStatus == KLUFReverseRequestStatus) {
            emit signalReverseScreenResult(SUCCESS, m_deviceInfo);
        }
        break;
    case NOTIFY_AUTHORIZATION_DENIED: {
        const tagDeviceListUnitInfo_ none{};
        if (m_screenStatus == CodeScreenRequestStatus || m_screenStatus == KLUFScreenRequestStatus) {
            emit signalScreenResult(FAIL, none);
        } else if (m_screenStatus == CodeReverseRequestStatus || m_screenStatus == KLUFReverseRequestStatus) {
            emit signalReverseScreenResult(FAIL, none);
        }
        break;
    }
    case NOTIFY_PERIPHERAL_SHARE_REQUEST_FAIL:
        ZV_LOG(INFO) << " PERIPHERAL_SHARE_REQUEST_FAIL_MSG";
        break;
    case NOTIFY_MICROPHONE_STREAM_ERROR:
        ZV_LOG(INFO) << " MICPHONE_SHARE_STREAM_ERR_MSG";
        break;
    case NOTIFY_PERIPHERAL_STREAM_ERROR:
        ZV_LOG(INFO) << " PERIPHERAL_SHARE_STREAM_ERR_MSG";
        break;
    case NOTIFY_LIBRARY_FAILED:
        if (m_screenStatus == ConnectedStatus) onStopConnect();
        ZV_LOG(INFO) << " SDK_FAILED_EXCEPTION_MSG";
        break;
    case NOTIFY_REVERSE_SCREEN_ENDED:
        onStopReverseScreen();
        break;
    case NOTIFY_NETWORK_STATE:
        if (m_isNetworkNotice) {
            showNotice(QStringLiteral("warning"), tr("Net Exception"),
                       tr("There is no network at present, please check and try again"), false);
        }
        break;
    case NOTIFY_HEARTBEAT_MISSED:
        if (m_screenStatus == ConnectedStatus) {
            onStopConnect();
        } else if (getScreenStatus() && !m_isNetworkNotice) {
            library->reportOtherClientInfo("StopScreenByHeartbeat");
            m_isDisconnectAfterStop = true;
            onStopScreen();
        }
        break;
    case NOTIFY_VIRTUAL_NETWORK_ISOLATION:
        TipWindows::getInstance()->setDisplayText(ErrorLevelInfo, tr("virtual PC network isolation "), TipWindowPlain,
                                                  this, kTipTopOffset);
        break;
    default:
        break;
    }
}

void OrvixUpgrade::onDealwithError(unsigned int code) {
    switch (code) {
    case zv_error::WINDOW_SOURCE_ABNORMAL:
        emit signalWindowAbnormal(WindowScreenSourceAbnormal);
        break;
    case zv_error::MIRRORING_ABNORMAL_RETRY: {
        tagNotifyExceptionParams_ params{};
        if (!m_isMirroringAbnormal) {
            // The first time the watchdog tries to reconnect, silently.
            exceptionCallBackFun(NOTIFY_MIRRORING_ABNORMAL, &params, this);
            m_isMirroringAbnormal = true;
            return;
        }
        exceptionCallBackFun(NOTIFY_LOGOUT, &params, this);
        break;
    }
    case zv_error::WINDOW_ABNORMAL_4:
        emit signalWindowAbnormal(WindowScreenMinimized);
        break;
    case zv_error::WINDOW_ABNORMAL_5:
        emit signalWindowAbnormal(WindowScreenClosed);
        break;
    default:
        break;
    }
    ManageErrorCode::getInstance()->handleErrorCode(code);
}

// ---------------------------------------------------------------------------
// Library callbacks
// ---------------------------------------------------------------------------

void OrvixUpgrade::mouseCapCallback(int& x, int& y, MOUSESTATUS& status, bool& visible) {
    status = MOUSE_STATUS_NORMAL;
    visible = true;
    int width = 0, height = 0;
    ScreenControl::getMousePosition(x, y, width, height);
}

int OrvixUpgrade::screenReverseControl(CtrlMouseInfo_S* info, char, int, int) {
    if (info == nullptr) return 0;
    ScreenControl::linuxReverseControl(info->nX, info->nY, info->strType);
    return 0;
}

void OrvixUpgrade::onSetDelayWhenUseTCP(int delayMs) { m_tcpDelayMs = delayMs; }

void OrvixUpgrade::onHideControlBallTimeout() {
    m_hideControlBallTimer->stop();
    m_controlBall->hide();
}

int OrvixUpgrade::reverseScreenThreadFun() {
    ZV_LOG(WARNING) << " reverse screen requests are not wired in this build";
    return 0;
}

int OrvixUpgrade::fileScreenThreadFun() {
    ZV_LOG(WARNING) << " file cast requests are not wired in this build";
    return 0;
}

// ---------------------------------------------------------------------------
// Discovery
// ---------------------------------------------------------------------------

void OrvixUpgrade::notifyDevice(const KLUF_DEVICE_INFO& record, CodeState state, const QString& operation) {
    DeviceShowInfo info = DeviceShowInfo::fromRecord(record);
    const QString key = fieldText(record.szDeviceKey);
    m_screenPage->setDeviceConnectCode(key, info.detail, info.connectCode, state);
    m_connectPage->setDeviceConnectCode(key, info.detail, info.connectCode, state);
    emit signalDealWithKLUFDevice(info, operation);
}

void OrvixUpgrade::afterFindDeviceNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeAdd, QStringLiteral("add"));
}

void OrvixUpgrade::deviceUpdateNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeUpdate, QStringLiteral("update"));
}

void OrvixUpgrade::deviceOfflineNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeDelete, QStringLiteral("delete"));
}

void OrvixUpgrade::deviceComingNotify(const KLUF_DEVICE_INFO& record) {
    const DeviceShowInfo info = DeviceShowInfo::fromRecord(record);
    std::lock_guard<std::mutex> lock(m_deviceMapMutex);
    m_mapDevice.insert({fieldText(record.szDeviceKey), info});
}

void OrvixUpgrade::onDealWithKLUFDevice(DeviceShowInfo& info, QString operation) {
    if (operation == QLatin1String("add") || operation == QLatin1String("update")) {
        m_listedDevices[info.deviceKey] = info;
    } else {
        m_listedDevices.erase(info.deviceKey);
    }
    ui->deviceCountLab->setText(tr("Nearby screens: %1").arg(m_listedDevices.size()));
}

// ---------------------------------------------------------------------------
// Events, closing
// ---------------------------------------------------------------------------

bool OrvixUpgrade::eventFilter(QObject* watched, QEvent* event) {
    if (watched == ui->widgetTitle) {
        auto* mouse = static_cast<QMouseEvent*>(event);
        switch (event->type()) {
        case QEvent::MouseButtonPress:
            if (mouse->button() == Qt::LeftButton) {
                m_dragging = true;
                m_dragOffset = mouse->globalPos() - frameGeometry().topLeft();
            }
            break;
        case QEvent::MouseMove:
            if (m_dragging && (mouse->buttons() & Qt::LeftButton)) move(mouse->globalPos() - m_dragOffset);
            break;
        case QEvent::MouseButtonRelease:
            m_dragging = false;
            break;
        default:
            break;
        }
    } else if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        if (watched == m_connectPage->getConnectCodeEdit()) m_connectPage->setCodeListHide();
        if (watched == m_screenPage->getScreenCodeEdit()) m_screenPage->setCodeListHide();
    }
    return QWidget::eventFilter(watched, event);
}

void OrvixUpgrade::stopRequestThreads(bool all) {
    QThread* threads[] = {m_connectThread, m_screenThread, m_startShareThread, m_fileScreenThread};
    const int count = all ? 4 : 2;
    for (int i = 0; i < count; ++i) {
        QThread* thread = threads[i];
        if (thread == nullptr || !thread->isRunning()) continue;
        thread->terminate();
        thread->wait();
        thread->quit();
    }
}

void OrvixUpgrade::closeEvent(QCloseEvent* event) {
    if (m_screenStatus == ScreeningStatus) {
        ZV_LOG(INFO) << "StopScreen: Client close event.";
        CManageAll::getInstance()->reportOtherClientInfo("StopScreenByCloseEvent");
        onStopScreen();
    }
    if (m_screenStatus == ReverseScreeningStatus) onStopReverseScreen();
    if (m_screenStatus == ConnectedStatus) onStopConnect();
    // The connect and screen threads may be blocked inside the library; they
    // are ended, not waited for.
    stopRequestThreads(false);
    logOut();
    CManageAll::getInstance()->destroy();
    TipWindows::getInstance()->close();
    if (m_trayIcon != nullptr) m_trayIcon->hide();
    QWidget::closeEvent(event);
}

}  // namespace qorquicomponents
