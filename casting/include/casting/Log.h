// One logging form for the whole system: "[" + function + "]" + message, with
// glog adding file and line. Use as  ZV_LOG(INFO) << " Start connect.";
#pragma once

#include <glog/logging.h>

#define ZV_LOG(severity) LOG(severity) << "[" << __FUNCTION__ << "]"
#define ZV_VLOG(level) VLOG(level) << "[" << __FUNCTION__ << "]"

namespace zv_log {
// Starts glog once per process, writing under logDir (created if missing) and,
// for warnings and worse, to stderr. Later calls only add nothing. Thread-safe.
void start(const char* programName, const std::string& logDir);
// The folder the system's logs go to: <home>/Zelvanor/Zelvanor/Logs/
std::string defaultLogDir();
// Writes out whatever glog still buffers (at most a second's INFO lines).
void flushNow();
}  // namespace zv_log
