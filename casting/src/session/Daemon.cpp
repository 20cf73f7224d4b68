#include "casting/Daemon.h"

#include "casting/CManageAll.h"
#include "casting/Log.h"
#include "session/LibraryCore.h"
#include "session/Watchdog.h"

// The watchdog itself lives on the library's I/O thread; these calls only
// hand over to it and never wait for that thread.

Daemon& Daemon::getInstance() {
    static Daemon instance;
    return instance;
}

CManageAll* Daemon::facade() const { return m_facade != nullptr ? m_facade : CManageAll::getInstance(); }

void Daemon::initDaemon(ExceptionCallback callback, void* user, CManageAll* facade) {
    m_facade = facade;
    this->facade()->core().watchdog().configure(std::move(callback), user);
    ZV_LOG(INFO) << " watchdog armed";
}

void Daemon::setReconnect(int enabled) {
    facade()->core().watchdog().setEnabled(enabled != 0);
    ZV_LOG(INFO) << " reconnect " << (enabled != 0 ? "on" : "off");
}

void Daemon::pushAbnormalInfo(tagNotifyExceptionType_ type, tagNotifyExceptionParams_&) {
    zv::LibraryCore* core = &facade()->core();
    core->io().post([core, type] { core->watchdog().onAbnormal(type); });
}

void Daemon::destroyDaemon() {
    zv::LibraryCore* core = &facade()->core();
    core->io().post([core] { core->watchdog().shutdown(); });
}
