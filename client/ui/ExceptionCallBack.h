// Classifies the casting library's and the watchdog's exception events
// (library threads) into the session controller's queued signals, hands link
// failures to the watchdog, and tells the reverse-screen view about reverse
// control. One instance, owned by the main window. Every event is handled
// under one lock, one after the other; types without a row are ignored.
#pragma once

#include <QCoreApplication>
#include <QString>

#include <mutex>

#include "casting/ExceptionEvents.h"
#include "casting/SessionRecords.h"

namespace qorquicomponents {
class OrvixUpgrade;
}

class ExceptionCallBack {
    Q_DECLARE_TR_FUNCTIONS(ExceptionCallBack)

public:
    ExceptionCallBack() = default;
    ExceptionCallBack(const ExceptionCallBack&) = delete;
    ExceptionCallBack& operator=(const ExceptionCallBack&) = delete;

    // Library thread. user is the main window; with a null user nothing is
    // emitted (link failures still go to the watchdog). Always returns 0.
    long callBackException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);

    // True from "reconnecting" (32802) until "reconnected" (32803) or
    // "reconnection failed" (32801).
    bool isReconnecting();

    // Missed heartbeats in a row from which the session counts as lost.
    static constexpr int kHeartbeatLostCount = 5;
    // Network-state sub-codes.
    static constexpr int kNetworkLost = 1;
    static constexpr int kNetworkGivenUp = 5;

    // Kept first: the watchdog's reconnect state as last reported.
    bool m_isReconnecting = false;

private:
    using Window = qorquicomponents::OrvixUpgrade;
    using Params = tagNotifyExceptionParams_;
    using Handler = void (ExceptionCallBack::*)(tagNotifyExceptionType_ type, Params& params, Window* window);
    static Handler handlerFor(tagNotifyExceptionType_ type);

    void onForward(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onWatchdog(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onVoice(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onReverseAnswer(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onReverseOff(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onCastEnded(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onLogout(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onShareRefused(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onRequestRefused(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onReconnectState(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onPresentation(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onStatistics(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onAuthorizationDenied(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onKicked(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onPanelResolution(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onPicture(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onPeripheralStopped(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onReverseScreenEnded(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onNetworkState(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onHeartbeat(tagNotifyExceptionType_ type, Params& params, Window* window);
    void onPeripheralRestart(tagNotifyExceptionType_ type, Params& params, Window* window);

    std::mutex m_mutex;
};
