// Classifies the casting library's exception events (library threads) into
// the session controller's queued signals. One instance, owned by the main
// window. Every event is handled under one lock, one after the other.
//
// Each event type the client reacts to has a row in the handler table
// (ExceptionCallBack.cpp); a type without a row is forwarded unchanged as
// signalCallbackException.
#pragma once

#include <mutex>

#include "casting/ExceptionEvents.h"
#include "casting/SessionRecords.h"

namespace qorquicomponents {
class OrvixUpgrade;
}

class ExceptionCallBack {
public:
    ExceptionCallBack() = default;
    ExceptionCallBack(const ExceptionCallBack&) = delete;
    ExceptionCallBack& operator=(const ExceptionCallBack&) = delete;

    // Library thread. user is the main window; with a null user nothing is
    // emitted. Always returns 0.
    long callBackException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);

    // True from "reconnecting" (32802) until "reconnected" (32803) or
    // "reconnection failed" (32801).
    bool isReconnecting();

    // Missed heartbeats in a row from which the session counts as lost.
    static constexpr int kHeartbeatLostCount = 5;

    // Kept first: the watchdog's reconnect state as last reported.
    bool m_isReconnecting = false;

private:
    using Handler = void (ExceptionCallBack::*)(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                                                qorquicomponents::OrvixUpgrade* window);
    static Handler handlerFor(tagNotifyExceptionType_ type);

    void onForward(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                   qorquicomponents::OrvixUpgrade* window);
    void onLogout(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                  qorquicomponents::OrvixUpgrade* window);
    void onHeartbeat(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                     qorquicomponents::OrvixUpgrade* window);
    void onReconnectState(tagNotifyExceptionType_ type, const tagNotifyExceptionParams_& params,
                          qorquicomponents::OrvixUpgrade* window);

    std::mutex m_mutex;
};
