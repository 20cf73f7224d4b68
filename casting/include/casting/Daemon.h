// The watchdog: takes abnormal events of a running session, decides whether
// to reconnect, and reports 32802 (reconnecting), then 32803 (reconnected) or
// 32801 (given up) through the exception callback it was given.
#pragma once

#include "Callbacks.h"

class CManageAll;

class Daemon {
public:
    static Daemon& getInstance();

    void initDaemon(ExceptionCallback callback, void* user, CManageAll* facade);
    void setReconnect(int enabled);
    void pushAbnormalInfo(tagNotifyExceptionType_ type, tagNotifyExceptionParams_& params);
    void destroyDaemon();

private:
    Daemon() = default;
    CManageAll* facade() const;

    CManageAll* m_facade = nullptr;
};
