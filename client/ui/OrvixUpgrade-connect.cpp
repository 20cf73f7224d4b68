// Connect and log-in: connect by code, the connect worker and its result,
// the version answer, stopping a connection and log-out.
#include "ui/OrvixUpgrade.h"

#include <QGuiApplication>
#include <QHostInfo>
#include <QScreen>
#include <QStackedWidget>
#include <QSysInfo>

#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/CodeEntry.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ControlBall.h"
#include "ui/DynamicWindow.h"
#include "ui/LibraryCallbacks.h"
#include "ui/ManageErrorCode.h"
#include "ui/MirkAsync.h"
#include "ui/MirroringCheck.h"
#include "ui/PopupWindow.h"
#include "ui/RecordText.h"
#include "ui/RequestThreads.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

namespace {

// The Windows version value below which a client announces itself as the
// Linux kind; on Linux there is no such value.
constexpr int kWindowsVersionForWindowsType = 145;

int windowsVersionValue() { return 0; }

}  // namespace

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
            const PasscodeServerSetting server = PasscodeServerSetting::read();
            if (server.ip.size() < sizeof m_codeServerInfo.szIp) {
                Ktr_Memcpy_s(m_codeServerInfo.szIp, sizeof m_codeServerInfo.szIp, server.ip.c_str(), server.ip.size() + 1);
            }
            m_codeServerInfo.nPort = server.port;
            // Several instances: the library asks them in order (empty: just the one above).
            CManageAll::getInstance()->setPasscodeServers(server.list.c_str());
        }
        Ktr_Memcpy_s(m_deviceInfo.szConnectCode, sizeof m_deviceInfo.szConnectCode, code.constData(),
                     static_cast<size_t>(code.size()) + 1);
        // An address beside a code is tried first: an earlier panel's must not be.
        Ktr_Memset_s(m_deviceInfo.szAddress, sizeof m_deviceInfo.szAddress, 0, sizeof m_deviceInfo.szAddress);
        m_deviceInfo.nPort = 0;
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
            // The "File Screen" entry casts a file over this connection.
            m_connectPage->enableFileCastBtn(true);
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

}  // namespace qorquicomponents
