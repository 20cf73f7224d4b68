#include "casting/Log.h"

#include <sys/stat.h>

#include <cerrno>
#include <mutex>
#include <string>

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

}  // namespace

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
        google::InitGoogleLogging(programName ? programName : "zelvanor");
        ZV_LOG(INFO) << " logging to " << (FLAGS_logtostderr ? std::string("stderr") : dir);
    });
}

}  // namespace zv_log
