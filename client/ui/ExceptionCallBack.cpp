#include "ui/ExceptionCallBack.h"

#include <cstring>
#include <map>
#include <string>

#include "casting/Daemon.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "ui/OrvixUpgrade.h"
#include "ui/ReverseScreen.h"

using qorquicomponents::OrvixUpgrade;

namespace {

// The reason text at the start of the record's text field, bounded by the field.
std::string reasonText(const tagNotifyExceptionParams_& params) {
    return std::string(params.szReason, strnlen(params.szReason, sizeof params.szReason));
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

}  // namespace

ExceptionCallBack::Handler ExceptionCallBack::handlerFor(tagNotifyExceptionType_ type) {
    static const std::map<int, Handler> table = {
        {NOTIFY_NO_BITSTREAM, &ExceptionCallBack::onForward},
        {NOTIFY_STREAM_SEND_FAILED, &ExceptionCallBack::onWatchdog},
        {NOTIFY_VOICE_ON, &ExceptionCallBack::onVoice},
        {NOTIFY_VOICE_OFF, &ExceptionCallBack::onVoice},
        {NOTIFY_REVERSE_CONTROL_ANSWER, &ExceptionCallBack::onReverseAnswer},
        {NOTIFY_REVERSE_CONTROL_OFF, &ExceptionCallBack::onReverseOff},
        {NOTIFY_CONTROL_LINK_BROKEN, &ExceptionCallBack::onWatchdog},
        {NOTIFY_MEDIA_LINK_BROKEN, &ExceptionCallBack::onWatchdog},
        {NOTIFY_REVERSE_LINK_BROKEN, &ExceptionCallBack::onWatchdog},
        {NOTIFY_SCREEN_CAST_ENDED, &ExceptionCallBack::onCastEnded},
        {NOTIFY_LOGOUT, &ExceptionCallBack::onLogout},
        {NOTIFY_ENCODER_FAILED, &ExceptionCallBack::onWatchdog},
        {NOTIFY_SHARE_REFUSED, &ExceptionCallBack::onShareRefused},
        {NOTIFY_REQUEST_REFUSED, &ExceptionCallBack::onRequestRefused},
        {NOTIFY_RECONNECT_FAILED, &ExceptionCallBack::onReconnectState},
        {NOTIFY_RECONNECTING, &ExceptionCallBack::onReconnectState},
        {NOTIFY_RECONNECTED, &ExceptionCallBack::onReconnectState},
        {NOTIFY_PRESENTATION_FULLSCREEN, &ExceptionCallBack::onPresentation},
        {NOTIFY_PRESENTATION_WINDOWED, &ExceptionCallBack::onPresentation},
        {NOTIFY_STREAM_STATISTICS, &ExceptionCallBack::onStatistics},
        {NOTIFY_SHARE_RESTORE_SETTINGS, &ExceptionCallBack::onForward},
        {NOTIFY_REVERSE_CONTROL_INVALID, &ExceptionCallBack::onForward},
        {NOTIFY_AUTHORIZATION_GRANTED, &ExceptionCallBack::onForward},
        {NOTIFY_AUTHORIZATION_DENIED, &ExceptionCallBack::onAuthorizationDenied},
        {NOTIFY_KICKED, &ExceptionCallBack::onKicked},
        {NOTIFY_PANEL_RESOLUTION, &ExceptionCallBack::onPanelResolution},
        {NOTIFY_CAPTURE_FAILED, &ExceptionCallBack::onWatchdog},
        {NOTIFY_NEXT_PICTURE, &ExceptionCallBack::onPicture},
        {NOTIFY_PREVIOUS_PICTURE, &ExceptionCallBack::onPicture},
        {NOTIFY_PERIPHERAL_SHARE_REQUEST_FAIL, &ExceptionCallBack::onForward},
        {NOTIFY_MICROPHONE_STREAM_ERROR, &ExceptionCallBack::onForward},
        {NOTIFY_PERIPHERAL_STREAM_ERROR, &ExceptionCallBack::onForward},
        {NOTIFY_PERIPHERAL_822, &ExceptionCallBack::onForward},
        {NOTIFY_PERIPHERAL_823, &ExceptionCallBack::onForward},
        {NOTIFY_PERIPHERAL_SHARE_STOPPED, &ExceptionCallBack::onPeripheralStopped},
        {NOTIFY_LIBRARY_FAILED, &ExceptionCallBack::onForward},
        {NOTIFY_MIRRORING_ABNORMAL, &ExceptionCallBack::onWatchdog},
        {NOTIFY_REVERSE_SCREEN_ENDED, &ExceptionCallBack::onReverseScreenEnded},
        {NOTIFY_NETWORK_STATE, &ExceptionCallBack::onNetworkState},
        {NOTIFY_HEARTBEAT_MISSED, &ExceptionCallBack::onHeartbeat},
        {NOTIFY_PERIPHERAL_830, &ExceptionCallBack::onForward},
        {NOTIFY_PERIPHERAL_RESTART, &ExceptionCallBack::onPeripheralRestart},
    };
    const auto row = table.find(static_cast<int>(type));
    return row != table.end() ? row->second : nullptr;
}

long ExceptionCallBack::callBackException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params,
                                          void* user) {
    std::lock_guard<std::mutex> lock(m_mutex);
    tagNotifyExceptionParams_ noParams{};
    tagNotifyExceptionParams_& record = params != nullptr ? *params : noParams;
    auto* window = static_cast<OrvixUpgrade*>(user);
    // Statistics arrive every second; they are not worth a line each.
    if (type != NOTIFY_STREAM_STATISTICS) {
        ZV_LOG(INFO) << " exception type: " << static_cast<int>(type) << ", sub-code: " << record.nSubCode;
    }
    if (const Handler handler = handlerFor(type)) (this->*handler)(type, record, window);
    return 0;
}

bool ExceptionCallBack::isReconnecting() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_isReconnecting;
}

void ExceptionCallBack::onForward(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window != nullptr) emit window->signalCallbackException(static_cast<unsigned int>(type));
}

void ExceptionCallBack::onWatchdog(tagNotifyExceptionType_ type, Params& params, Window*) {
    // The watchdog decides on reconnection; it does not need the window.
    Daemon::getInstance().pushAbnormalInfo(type, params);
}

void ExceptionCallBack::onVoice(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window == nullptr || !window->getScreenStatus()) return;
    emit window->signalVoiceScreenRequestResult(type == NOTIFY_VOICE_ON);
}

void ExceptionCallBack::onReverseAnswer(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    if (window->getReverseScreenStatus()) {
        qorquicomponents::ReverseScreen* view = window->getReverseScreenWindow();
        if (params.nResult != 0) {
            view->setReverseControlStatus(true);
        } else {
            view->setReverseControlStatus(false);
            const std::string reason = reasonText(params);
            if (reason != "nonsupport" && !reason.empty()) {
                // The reason names whoever holds control now.
                view->rejectWindowShow(tr("Failed to turn on reverse control,") + QString::fromStdString(reason) +
                                       tr(" is controlling the screen"));
            }
            if (reason == "nonsupport") {
                view->rejectWindowShow(tr("Failed to turn on reverse control, the screen only for displaying"));
            }
        }
    }
    if (window->getScreenStatus()) emit window->signalScreenReverseRequestResult(true);
}

void ExceptionCallBack::onReverseOff(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    if (window->getReverseScreenStatus()) window->getReverseScreenWindow()->setReverseControlStatus(params.nResult == 0);
    if (window->getScreenStatus()) emit window->signalScreenReverseRequestResult(false);
}

void ExceptionCallBack::onCastEnded(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window == nullptr) return;
    emit window->signalCallbackException(static_cast<unsigned int>(type));
    emit window->signalMainErrorCode(zv_error::SCREEN_MIRRORING_ENDED);
}

void ExceptionCallBack::onLogout(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    emit window->signalLogout();
    const bool removedByPanel = reasonText(params) == "logOutByServer";
    emit window->signalMainErrorCode(removedByPanel ? zv_error::REMOVED_BY_PANEL : zv_error::LOGGED_OUT);
}

void ExceptionCallBack::onShareRefused(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    const std::string reason = reasonText(params);
    unsigned int code = zv_error::REQUEST_REFUSED;
    if (contains(reason, "Shareclients num limit")) {
        code = zv_error::TOO_MANY_REVERSE;
    } else if (contains(reason, "server does not allow screen share.")) {
        code = zv_error::REQUEST_DENIED;
    }
    emit window->signalMainErrorCode(code);
}

void ExceptionCallBack::onRequestRefused(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    const std::string reason = reasonText(params);
    unsigned int code = zv_error::REQUEST_REFUSED;
    if (contains(reason, "auxiliary model, reject request")) {
        code = zv_error::AUXILIARY_REFUSED;
    } else if (contains(reason, "race fail.")) {
        code = zv_error::TOO_MANY_SCREENS;
    } else if (contains(reason, "server does not allow screen projection.")) {
        code = zv_error::REQUEST_DENIED;
    }
    emit window->signalPanelRefusalText(QString::fromStdString(reason));
    emit window->signalMainErrorCode(code);
}

void ExceptionCallBack::onReconnectState(tagNotifyExceptionType_ type, Params&, Window* window) {
    m_isReconnecting = type == NOTIFY_RECONNECTING;
    if (window != nullptr) emit window->signalCallbackException(static_cast<unsigned int>(type));
}

void ExceptionCallBack::onPresentation(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window != nullptr) emit window->signalPPTFullScreen(type == NOTIFY_PRESENTATION_FULLSCREEN);
}

void ExceptionCallBack::onStatistics(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window == nullptr) return;
    emit window->signalSetDynamicDisplayInfo(params.nBitRateKbps, params.nFrameRate, params.nDelayMs,
                                             params.ucLoss != 0);
}

void ExceptionCallBack::onAuthorizationDenied(tagNotifyExceptionType_ type, Params& params, Window* window) {
    if (window == nullptr) return;
    if (contains(reasonText(params), "race fail.")) {
        emit window->signalMainErrorCode(zv_error::TOO_MANY_SCREENS);
        return;
    }
    emit window->signalCallbackException(static_cast<unsigned int>(type));
    emit window->signalMainErrorCode(zv_error::REQUEST_DENIED);
}

void ExceptionCallBack::onKicked(tagNotifyExceptionType_, Params&, Window* window) {
    if (window != nullptr) emit window->signalLogout();
}

void ExceptionCallBack::onPanelResolution(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window != nullptr) emit window->signalRealScreenResolution(params.nWidth, params.nHeight);
}

void ExceptionCallBack::onPicture(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window == nullptr) return;
    if (type == NOTIFY_NEXT_PICTURE) {
        emit window->signalSwitchNextPicture();
    } else {
        emit window->signalSwitchLastPicture();
    }
}

void ExceptionCallBack::onPeripheralStopped(tagNotifyExceptionType_ type, Params& params, Window* window) {
    if (window == nullptr) return;
    emit window->signalPeripheralShareStopCallbackMsg(static_cast<unsigned int>(type),
                                                      QString::fromStdString(reasonText(params)));
}

void ExceptionCallBack::onReverseScreenEnded(tagNotifyExceptionType_ type, Params&, Window* window) {
    if (window == nullptr) return;
    emit window->signalCallbackException(static_cast<unsigned int>(type));
    emit window->signalMainErrorCode(zv_error::REVERSE_MIRRORING_ENDED);
}

void ExceptionCallBack::onNetworkState(tagNotifyExceptionType_ type, Params& params, Window* window) {
    if (window == nullptr) return;
    if (params.nSubCode == kNetworkLost) {
        emit window->signalCallbackException(static_cast<unsigned int>(type));
    } else if (params.nSubCode == kNetworkGivenUp) {
        emit window->signalCallbackException(static_cast<unsigned int>(NOTIFY_RECONNECT_FAILED));
    }
}

void ExceptionCallBack::onHeartbeat(tagNotifyExceptionType_ type, Params& params, Window* window) {
    if (window == nullptr || params.nSubCode < kHeartbeatLostCount) return;
    emit window->signalCallbackException(static_cast<unsigned int>(type));
}

void ExceptionCallBack::onPeripheralRestart(tagNotifyExceptionType_, Params& params, Window* window) {
    if (window != nullptr) emit window->signalPeripheralRestartMsg(QString::fromStdString(reasonText(params)));
}
