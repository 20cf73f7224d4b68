// Construction, start-up and close of the main window and session
// controller: the window's parts, the library's start-up, the wiring of the
// pages, the command-line entry, the request threads, closing and
// destruction. The flows live in OrvixUpgrade-*.cpp.
#include "ui/OrvixUpgrade.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopWidget>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTimer>

#include <chrono>
#include <functional>
#include <thread>

#include "BusinessModule/ScreenBusiness/ScreenControl.h"
#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/MyLog.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/ControlBall.h"
#include "ui/DynamicWindow.h"
#include "ui/DetailsExpansionWindow.h"
#include "ui/ExceptionCallBack.h"
#include "ui/GlobalDefine.h"
#include "ui/LibraryCallbacks.h"
#include "ui/ManageErrorCode.h"
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
const char* const kLogoPath = ":/OrvixUpgrade/images/logo.svg";

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
    m_hwProbe.join();
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
    // Every way out of the program (close button, SIGTERM, quit(), the
    // command-line cast) passes here while QApplication still exists, which
    // the library's I/O thread needs for an orderly end.
    library->shutdown();
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
    m_hwProbe.start();
    m_screenChangeWatcher = new ScreenChangeWatcher(this);
    connect(m_screenChangeWatcher, &ScreenChangeWatcher::signalScreenSizeChanged, this,
            [this](int, int) { onRestartMirroring(); }, Qt::QueuedConnection);
    m_screenChangeWatcher->start();
    initSettings();
    initFileScreen();
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
    initReverseFlow();
    connect(ui->closeBtn, &QPushButton::clicked, this, &QWidget::close);
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

// ---------------------------------------------------------------------------
// Request threads and asynchronous works
// ---------------------------------------------------------------------------

std::function<void()> OrvixUpgrade::trackedWork(std::function<void()> work) {
    ++m_runningWorks;
    return [this, work = std::move(work)] {
        work();
        --m_runningWorks;
    };
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

// ---------------------------------------------------------------------------
// Closing
// ---------------------------------------------------------------------------

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
