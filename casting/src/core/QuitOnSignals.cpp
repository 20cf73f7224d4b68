#include "core/QuitOnSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "casting/Log.h"

namespace zv {

namespace {
sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}
}  // namespace

void blockStopSignals() {
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

QuitOnSignals::QuitOnSignals(QObject* parent) : QObject(parent) {
    const sigset_t set = stopSignals();
    m_fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_fd < 0) {
        ZV_LOG(ERROR) << " signalfd failed: " << std::strerror(errno) << "; SIGTERM will not stop cleanly";
        return;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo info{};
        while (read(m_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
            ZV_LOG(INFO) << " signal " << info.ssi_signo << ": stopping";
            QCoreApplication::quit();
        }
    });
}

QuitOnSignals::~QuitOnSignals() {
    if (m_notifier != nullptr) m_notifier->setEnabled(false);
    if (m_fd >= 0) close(m_fd);
}

}  // namespace zv
