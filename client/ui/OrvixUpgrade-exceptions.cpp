// Exceptions and tips: the library's exception events and error codes turned
// into session actions and notices.
#include "ui/OrvixUpgrade.h"

#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/DynamicWindow.h"
#include "ui/ExceptionCallBack.h"
#include "ui/GlobalDefine.h"
#include "ui/LibraryCallbacks.h"
#include "ui/ManageErrorCode.h"
#include "ui/PopupWindow.h"
#include "ui/ReverseScreen.h"
#include "ui/TipWindows.h"

namespace qorquicomponents {

namespace {
constexpr int kTipTopOffset = 48;
}  // namespace

void OrvixUpgrade::showNotice(const QString& icon, const QString& title, const QString& text, bool titleShown) {
    if (m_dynamicWindow != nullptr) m_dynamicWindow->deleteLater();
    m_dynamicWindow = new DynamicWindow(this);
    m_dynamicWindow->setWindowContent(icon, title, text, DynamicWindowConfirm, 0);
    if (!titleShown) m_dynamicWindow->setTitleShow(false);
    m_dynamicWindow->showMessage();
}

void OrvixUpgrade::raiseErrorCode(unsigned errorCode) { ManageErrorCode::getInstance()->handleErrorCode(errorCode); }

// ---------------------------------------------------------------------------
// Exception events and error codes
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
        } else if (m_isFileScreen) {
            PopupWindow::getInstance()->hide();  // the file plays
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
    if (endRefusedFileCast(code)) return;
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

}  // namespace qorquicomponents
