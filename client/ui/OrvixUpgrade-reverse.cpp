// Reverse screen: the request by connect code (from the share page or the
// connect page's entry), its result, and stopping. The panel's screen is
// shown in the reverse-screen window while the main window is hidden.
#include "ui/OrvixUpgrade.h"

#include <QStackedWidget>

#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/LibraryCallbacks.h"
#include "ui/MirkAsync.h"
#include "ui/PopupWindow.h"
#include "ui/RequestThreads.h"
#include "ui/ReverseScreen.h"
#include "ui/SettingFeedback/HideSetWindow.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

void OrvixUpgrade::initReverseFlow() {
    connect(m_sharePage, &SharePage::signalStartReverseScreen, this, &OrvixUpgrade::onStartCodeReverseScreen);
    connect(m_connectPage, &ConnectPage::signalReverseScreen, this, &OrvixUpgrade::onStartCodeReverseScreen);
    connect(this, &OrvixUpgrade::signalReverseScreenResult, this, &OrvixUpgrade::onReverseScreenRequestResult);
    connect(m_reverseScreen, &ReverseScreen::signalStopShare, this, &OrvixUpgrade::onStopReverseScreen);
    m_reverseScreen->setErrorCallbackFunc(errorCallbackFunc, this);
    // The debug window, opened by the overlay's hidden gesture, drives the
    // reverse screen's own switches.
    connect(m_reverseScreen, &ReverseScreen::signalOpenHiddenSettings, this,
            [this] { HideSetWindow::showFrom(m_reverseScreen); });
    HideSetWindow* hidden = HideSetWindow::getInstance();
    connect(hidden, &HideSetWindow::signalReverseWriteStream, m_reverseScreen, &ReverseScreen::setWriteStream);
    connect(hidden, &HideSetWindow::signalReverseGetJPEG, m_reverseScreen, &ReverseScreen::setTakeMirrorPhoto);
    connect(hidden, &HideSetWindow::signalReverseKeyFrame, m_reverseScreen, &ReverseScreen::onReverseScreenKeyFrame);
    connect(hidden, &HideSetWindow::signalShowDisplayInfo, m_reverseScreen,
            [this] { m_reverseScreen->onShowDisplayInfo(!m_reverseScreen->displayInfoShown()); });
    // The stream's statistics go to the reverse screen's overlay while it runs.
    connect(this, &OrvixUpgrade::signalSetDynamicDisplayInfo, this, [this](int bitRate, int frameRate, int delay, bool) {
        if (!getReverseScreenStatus()) return;
        m_reverseScreen->setReverseScreenBitrateFrameRate(bitRate, frameRate);
        m_reverseScreen->setReverseScreenDelay(delay);
    });
    connect(this, &OrvixUpgrade::signalSetDelayWhenUseTCP, this, [this](int delay) {
        if (getReverseScreenStatus()) m_reverseScreen->setReverseScreenDelay(delay);
    });
}

void OrvixUpgrade::onStartCodeReverseScreen(const QString& code) {
    if (getLocalNetworkStatus()) {
        ZV_LOG(INFO) << "  Start code reverse screen fail, because there is on internet.";
        raiseErrorCode(zv_error::NO_NETWORK);
        hideLoading();
        return;
    }
    if (m_screenStatus != NormalStatus && m_screenStatus != ConnectedStatus) {
        ZV_LOG(INFO) << " Start code reverse screen fail, because the current state is not NormalStatus.";
        hideLoading();
        return;
    }
    if (m_screenStatus != ConnectedStatus) {
        m_screenStatus = CodeReverseRequestStatus;
        // The worker logs in with this code first.
        m_strConnectCode = code;
        m_isConnectPageEnter = false;
    }
    showLoading();
    m_hostName = Singleton<CClientConfig>::getInstance().getHostName();
    fillClientDeviceInfo();
    m_startShareThread->start(QThread::InheritPriority);
}

int OrvixUpgrade::reverseScreenThreadFun() {
    // A failed log-in shows up as the failure of the request below.
    if (m_screenStatus != ConnectedStatus) connectThreadFun();
    m_screenStatus = CodeReverseRequestStatus;

    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    CManageAll* library = CManageAll::getInstance();
    library->initProtocol(config.getShareProType(), config.getShareMouseProType(), config.getShareReverseProType());
    const long result =
        library->shareResq(m_loginHandle, m_deviceInfo, reverseScreenStreamCallback, m_reverseScreen, nullptr, this, false);
    emit signalReverseScreenResult(static_cast<ProjectOrShareReqResult>(result), m_deviceInfo);
    return 1;
}

void OrvixUpgrade::onReverseScreenRequestResult(ProjectOrShareReqResult result, const DEVICE_LISTUNIT_INFO_S&) {
    if (result == FAIL) {
        mirk_async::ASYNC(trackedWork([] {
                              Daemon::getInstance().setReconnect(0);
                              Daemon::getInstance().destroyDaemon();
                              CManageAll::getInstance()->stopShare();
                          }),
                          nullptr, this);
        PopupWindow::getInstance()->hide();
        // The panel record and host name stay: the connection, if any, does.
        // Without a log-in there is no connection to return to.
        if (m_loginHandle < 0) {
            m_screenStatus = NormalStatus;
        } else if (m_screenStatus != NormalStatus) {
            m_screenStatus = ConnectedStatus;
        }
        hideLoading();
        ZV_LOG(INFO) << " Request reverse screen fail, ProjectOrShareReqResult::FAIL finish";
        return;
    }
    if (result == WAIT_AUTHORIZATION) {
        PopupWindow::getInstance()->setDisplayInfo(PopupReasonWaitAuthorization);
        return;
    }
    if (result != SUCCESS) return;

    m_screenStatus = ReverseScreeningStatus;
    m_isReverseStopping = false;
    Daemon::getInstance().initDaemon(ExceptionCallback(exceptionCallBackFun), this, CManageAll::getInstance());
    Daemon::getInstance().setReconnect(1);

    m_reverseScreen->startReverseScreen();
    m_reverseScreen->move(mapToGlobal(QPoint(0, 0)));

    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    if (config.getShareReverse() == 1) m_reverseScreen->onSetReverseControl();
    if (config.getShareVoice() == 1) CManageAll::getInstance()->voiceShareOn(1);

    hide();
    PopupWindow::getInstance()->hide();
    hideLoading();
    ZV_LOG(INFO) << " Request reverse screen success.";
}

void OrvixUpgrade::onStopReverseScreen() {
    // A window the user closed stays closed; a minimised one comes back.
    if (m_reverseScreen->isVisible()) m_reverseScreen->showNormal();
    showNormal();
    move(m_reverseScreen->x(), y());
    Daemon::getInstance().setReconnect(0);

    if (m_screenStatus != ReverseScreeningStatus || m_isReverseStopping) {
        hideLoading();
        return;
    }
    m_isReverseStopping = true;
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    config.updateShareReverse(0);
    config.updateShareVoice(0);
    showLoading();
    mirk_async::ASYNC(trackedWork([this] {
                          CManageAll::getInstance()->stopShare();
                          m_screenStatus = ConnectedStatus;
                          BusinessSettings::getInstance().restoreDefault();
                      }),
                      [this] {
                          m_reverseScreen->stopReverseScreen();
                          m_isReverseStopping = false;
                          hideLoading();
                          if (m_isDisconnectAfterStop) {
                              onStopConnect();
                              m_isDisconnectAfterStop = false;
                              return;
                          }
                          m_connectPage->setBigScreenInfo(CManageAll::getInstance()->getServerInfo());
                          m_connectPage->setConnectShow();
                          ui->stackedWidget->setCurrentWidget(m_connectPage);
                          setTitleBtnStatus(TitleConnectPage);
                          ZV_LOG(INFO) << " Stop reverse screen finish.";
                      },
                      this);
}

}  // namespace qorquicomponents
