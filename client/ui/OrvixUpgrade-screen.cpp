// Screen casting: the cast request and its result, the switches of a
// running cast, stopping, restarting after a resolution change, the
// watchers that run during a cast and the remote-input callbacks.
#include "ui/OrvixUpgrade.h"

#include <QStackedWidget>

#include <pthread.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>

#include "BusinessModule/ScreenBusiness/ScreenControl.h"
#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ControlBall.h"
#include "ui/DynamicWindow.h"
#include "ui/LibraryCallbacks.h"
#include "ui/ManageErrorCode.h"
#include "ui/MirkAsync.h"
#include "ui/PopupWindow.h"
#include "ui/RecordText.h"
#include "ui/RequestThreads.h"
#include "ui/ScreenChangeWatcher.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

namespace {

constexpr auto kHardwareInitWait = std::chrono::milliseconds(1000);
constexpr int kAddressRecheckMs = 1000;
constexpr int kRestartWaitSeconds = 7;
constexpr int kStopPollMs = 500;

}  // namespace

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

    if (!m_hwProbe.isFinished()) {
        ZV_LOG(INFO) << " wait HWInit finished.";
        if (!m_hwProbe.waitFinished(kHardwareInitWait)) ZV_LOG(INFO) << " HWInit timeout.";
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
            clearFileScreenPages();
            m_isFileScreen = false;
            m_isStopAccepted = true;
            // The screen page replaces the connect page set just above.
            ui->stackedWidget->setCurrentWidget(m_screenPage);
            setTitleBtnStatus(TitleScreenPage);
        },
        this);
}

// ---------------------------------------------------------------------------
// Watchers while a cast runs
// ---------------------------------------------------------------------------

void OrvixUpgrade::startWatchers() {
    // A watcher of an earlier cast has ended with it; collect it first.
    stopWatchers();
    m_addressMonitor = std::make_unique<AddressChangeMonitor>();
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
        if (m_addressMonitor) m_addressMonitor->stop();
        m_checkIpThread.join();
    }
    m_addressMonitor.reset();
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
    // Sleeps until the kernel announces an address change or the cast stops.
    // A change is only logged: the cast's connection breaks with the old
    // address and the watchdog's reconnect brings the cast back on the new one.
    pthread_setname_np(pthread_self(), "zv-addr-watch");
    AddressChangeMonitor& monitor = *m_addressMonitor;
    if (!monitor.valid()) ZV_LOG(WARNING) << " address changes are not watched: " << monitor.error();
    std::set<std::string> addresses = AddressChangeMonitor::localAddresses();
    while (m_screenStatus == ScreeningStatus) {
        // The time-out only re-reads the state for ends of a cast that do
        // not pass stopWatchers(); no work is done on it.
        const AddressChangeMonitor::Wake wake = monitor.wait(kAddressRecheckMs);
        if (wake == AddressChangeMonitor::Wake::Stopped) break;
        if (wake == AddressChangeMonitor::Wake::Failed) {
            std::unique_lock<std::mutex> lock(m_checkIpMutex);
            m_checkIpCond.wait_for(lock, std::chrono::milliseconds(kAddressRecheckMs),
                                   [this] { return m_screenStatus != ScreeningStatus; });
            continue;
        }
        if (wake != AddressChangeMonitor::Wake::AddressNotice) continue;
        std::set<std::string> now = AddressChangeMonitor::localAddresses();
        if (now == addresses) continue;  // a lifetime refresh, not a new address
        ZV_LOG(WARNING) << " the PC's network address changed during the cast: "
                        << AddressChangeMonitor::describe(addresses) << " -> " << AddressChangeMonitor::describe(now)
                        << "; the watchdog reconnects the cast";
        addresses = std::move(now);
    }
    ZV_LOG(INFO) << " Thread stop: Check whether the network IP address is changed";
}

void OrvixUpgrade::cheakCpuAndMemUsage() {}

// ---------------------------------------------------------------------------
// Restarting a cast; casting to a panel picked by its address
// ---------------------------------------------------------------------------

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

// ---------------------------------------------------------------------------
// Window casting from the screen page
// ---------------------------------------------------------------------------

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
// Remote input (library threads)
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

}  // namespace qorquicomponents
