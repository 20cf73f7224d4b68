#include "core/QuitOnSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <signal.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
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
    sigaddset(&set, SIGHUP);  // the terminal or the session went away
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
            // The stop may still hang or be cut short by a SIGKILL; what was
            // logged up to here is on disk.
            zv_log::flushNow();
            QCoreApplication::quit();
        }
    });
}

QuitOnSignals::~QuitOnSignals() {
    if (m_notifier != nullptr) m_notifier->setEnabled(false);
    if (m_fd >= 0) close(m_fd);
}

FlushOnSignals::FlushOnSignals() {
    blockStopSignals();
    const sigset_t set = stopSignals();
    m_signals = signalfd(-1, &set, SFD_CLOEXEC);
    m_stop = eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_stop < 0) {
        // Without the watcher the signals must not stay blocked.
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
        return;
    }
    m_thread = std::thread([this] { run(); });
}

FlushOnSignals::~FlushOnSignals() {
    if (m_thread.joinable()) {
        const uint64_t one = 1;
        if (write(m_stop, &one, sizeof one) == static_cast<ssize_t>(sizeof one)) m_thread.join();
        else m_thread.detach();  // cannot happen with a fresh eventfd; never block the exit on it
    }
    if (m_signals >= 0) close(m_signals);
    if (m_stop >= 0) close(m_stop);
}

void FlushOnSignals::run() {
    pthread_setname_np(pthread_self(), "zv-signals");
    pollfd fds[2] = {{m_signals, POLLIN, 0}, {m_stop, POLLIN, 0}};
    for (;;) {
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        signalfd_siginfo info{};
        if (read(m_signals, &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
        const int signo = static_cast<int>(info.ssi_signo);
        ZV_LOG(INFO) << " signal " << signo << ": stopping";
        zv_log::flushNow();
        // End as the default action would: by that very signal.
        ::signal(signo, SIG_DFL);
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, signo);
        pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
        kill(getpid(), signo);
        return;
    }
}

}  // namespace zv
