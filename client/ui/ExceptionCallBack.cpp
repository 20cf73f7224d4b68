#include "ui/ExceptionCallBack.h"

#include <cstring>
#include <map>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "ui/OrvixUpgrade.h"

using qorquicomponents::OrvixUpgrade;

namespace {

// The reason text at the start of the record's text field, bounded by the field.
std::string reasonText(const tagNotifyExceptionParams_& params) {
    return std::string(params.szReason, strnlen(params.szReason, sizeof params.szReason));
}

}  // namespace

ExceptionCallBack::Handler ExceptionCallBack::handlerFor(tagNotifyExceptionType_ type) {
    static const std::map<int, Handler> table = {
        {NOTIFY_LOGOUT, &ExceptionCallBack::onLogout},
        {NOTIFY_HEARTBEAT_MISSED, &ExceptionCallBack::onHeartbeat},
        {NOTIFY_RECONNECT_FAILED, &ExceptionCallBack::onReconnectState},
        {NOTIFY_RECONNECTING, &ExceptionCallBack::onReconnectState},
        {NOTIFY_RECONNECTED, &ExceptionCallBack::onReconnectState},
    };
    const auto row = table.find(static_cast<int>(type));
    return row != table.end() ? row->second : &ExceptionCallBack::onForward;
}

long ExceptionCallBack::callBackException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params,
                                          void* user) {
    std::lock_guard<std::mutex> lock(m_mutex);
    static const tagNotifyExceptionParams_ kNoParams{};
    const tagNotifyExceptionParams_& record = params != nullptr ? *params : kNoParams;
    auto* window = static_cast<OrvixUpgrade*>(user);
    ZV_LOG(INFO) << " exception type: " << static_cast<int>(type) << ", sub-code: " << record.nSubCode;
    (this->*handlerFor(type))(type, record, window);
    return 0;
}

bool ExceptionCallBack::isReconnecting() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_isReconnecting;
}

void ExceptionCallBack::onForward(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_&,
                                  OrvixUpgrade* window) {
    if (window != nullptr) emit window->signalCallbackException(static_cast<unsigned int>(type));
}

void ExceptionCallBack::onLogout(tagNotifyExceptionType_, const tagNotifyExceptionParams_& params,
                                 OrvixUpgrade* window) {
    if (window == nullptr) return;
    emit window->signalLogout();
    const bool removedByPanel = reasonText(params) == "logOutByServer";
    emit window->signalMainErrorCode(removedByPanel ? zv_error::REMOVED_BY_PANEL : zv_error::LOGGED_OUT);
}

void ExceptionCallBack::onHeartbeat(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                                    OrvixUpgrade* window) {
    if (window == nullptr || params.nSubCode < kHeartbeatLostCount) return;
    emit window->signalCallbackException(static_cast<unsigned int>(type));
}

void ExceptionCallBack::onReconnectState(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_&,
                                         OrvixUpgrade* window) {
    m_isReconnecting = type == NOTIFY_RECONNECTING;
    if (window != nullptr) emit window->signalCallbackException(static_cast<unsigned int>(type));
}
