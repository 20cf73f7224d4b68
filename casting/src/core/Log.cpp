#include "casting/Log.h"

#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "casting/McUtil.h"

namespace zv_log {
namespace {

bool makeDirs(const std::string& path) {
    std::string partial;
    for (size_t i = 0; i < path.size(); ++i) {
        partial += path[i];
        if ((path[i] == '/' || i + 1 == path.size()) && partial.size() > 1) {
            if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
        }
    }
    return true;
}

// glog writes buffered lines only when a later line comes; a process that
// then idles (or is killed) would keep them. This thread writes them out
// once a second; it is joined at exit.
class PeriodicFlush {
public:
    void start() {
        m_thread = std::thread([this] { run(); });
    }
    ~PeriodicFlush() {
        if (!m_thread.joinable()) return;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
        }
        m_wake.notify_all();
        m_thread.join();
    }

private:
    void run() {
        pthread_setname_np(pthread_self(), "zv-log-flush");
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_stopping; })) {
            lock.unlock();
            google::FlushLogFiles(google::GLOG_INFO);
            lock.lock();
        }
    }

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
};

PeriodicFlush& periodicFlush() {
    static PeriodicFlush flush;
    return flush;
}

}  // namespace

void flushNow() {
    if (google::IsGoogleLoggingInitialized()) google::FlushLogFiles(google::GLOG_INFO);
}

std::string defaultLogDir() { return MC_Util_GetHomePath() + "/Zelvanor/Zelvanor/Logs/"; }

void start(const char* programName, const std::string& logDir) {
    static std::once_flag once;
    std::call_once(once, [&] {
        if (google::IsGoogleLoggingInitialized()) return;
        const std::string dir = logDir.empty() ? defaultLogDir() : logDir;
        if (makeDirs(dir)) {
            FLAGS_log_dir = dir;
        } else {
            FLAGS_logtostderr = true;  // nowhere to write: stderr keeps the lines
        }
        FLAGS_stderrthreshold = google::GLOG_WARNING;
        FLAGS_max_log_size = 20;  // MiB per file
        // INFO lines are buffered; a warning or an error is written at once,
        // together with everything buffered before it.
        FLAGS_logbuflevel = google::GLOG_INFO;
        FLAGS_logbufsecs = 1;
        google::InitGoogleLogging(programName ? programName : "zelvanor");
        periodicFlush().start();
        ZV_LOG(INFO) << " logging to " << (FLAGS_logtostderr ? std::string("stderr") : dir);
    });
}

}  // namespace zv_log
