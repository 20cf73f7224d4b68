#include "casting/BusinessSettings.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "casting/Log.h"

extern char** environ;

namespace {

constexpr int kPactlTimeoutMs = 2000;
constexpr int kInspectTimeoutMs = 3000;
constexpr size_t kMaxToolOutput = 64 * 1024;

struct ToolResult {
    bool started = false;
    bool timedOut = false;
    int exitCode = -1;  // -1: killed by a signal or not known
    int spawnError = 0;
    std::string output;  // standard output only
};

int remainingMs(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Runs a program found on PATH directly (no shell) in the C locale, so its
// answers can be parsed, and kills it when it outlives timeoutMs.
ToolResult runTool(const std::vector<std::string>& args, int timeoutMs) {
    ToolResult result;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        result.spawnError = errno;
        return result;
    }

    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    std::vector<std::string> envStore;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "LC_ALL=", 7) == 0 || std::strncmp(*entry, "LANGUAGE=", 9) == 0) continue;
        envStore.emplace_back(*entry);
    }
    envStore.emplace_back("LC_ALL=C");
    std::vector<char*> envp;
    for (std::string& entry : envStore) envp.push_back(entry.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (rc != 0) {
        close(fds[0]);
        result.spawnError = rc;
        return result;
    }
    result.started = true;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    char buffer[4096];
    for (;;) {
        pollfd readable{fds[0], POLLIN, 0};
        const int ready = poll(&readable, 1, remainingMs(deadline));
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) {
            result.timedOut = true;
            break;
        }
        if (ready < 0) break;
        const ssize_t n = read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // end of output
        if (result.output.size() < kMaxToolOutput) result.output.append(buffer, static_cast<size_t>(n));
    }
    close(fds[0]);

#ifdef SYS_pidfd_open
    // The output is closed; give the program the rest of its time to exit.
    if (!result.timedOut) {
        const int pidfd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        if (pidfd >= 0) {
            pollfd exited{pidfd, POLLIN, 0};
            int ready;
            while ((ready = poll(&exited, 1, remainingMs(deadline))) < 0 && errno == EINTR) {
            }
            if (ready == 0) result.timedOut = true;
            close(pidfd);
        }
    }
#endif
    if (result.timedOut) kill(pid, SIGKILL);
    int status = 0;
    pid_t waited;
    while ((waited = waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
    }
    if (waited == pid && WIFEXITED(status) && !result.timedOut) result.exitCode = WEXITSTATUS(status);
    return result;
}

std::string whyToolFailed(const ToolResult& result) {
    if (!result.started) return std::string("cannot start: ") + std::strerror(result.spawnError);
    if (result.timedOut) return "no answer in time";
    return "exit code " + std::to_string(result.exitCode);
}

// The sound server is optional (a headless PC, a session without one): say so
// once, not on every cast.
void noteNoSoundServer(const std::string& why) {
    static std::once_flag once;
    std::call_once(once, [&] {
        ZV_LOG(INFO) << " no sound server reachable through pactl (" << why << "); the PC's sound is left as it is";
    });
}

// 1 muted, 0 not muted, -1 unknown (no pactl, no server).
int defaultSinkMuted() {
    const ToolResult result = runTool({"pactl", "get-sink-mute", "@DEFAULT_SINK@"}, kPactlTimeoutMs);
    if (result.exitCode != 0) {
        noteNoSoundServer(whyToolFailed(result));
        return -1;
    }
    const size_t label = result.output.find("Mute:");
    if (label != std::string::npos) {
        const size_t value = result.output.find_first_not_of(" \t", label + 5);
        if (value != std::string::npos && result.output.compare(value, 3, "yes") == 0) return 1;
        if (value != std::string::npos && result.output.compare(value, 2, "no") == 0) return 0;
    }
    ZV_LOG(WARNING) << " unexpected answer from pactl get-sink-mute: " << result.output;
    return -1;
}

bool setDefaultSinkMuted(bool mute) {
    const ToolResult result =
        runTool({"pactl", "set-sink-mute", "@DEFAULT_SINK@", mute ? "1" : "0"}, kPactlTimeoutMs);
    if (result.exitCode != 0) {
        ZV_LOG(WARNING) << " pactl set-sink-mute " << (mute ? 1 : 0) << " failed: " << whyToolFailed(result);
        return false;
    }
    return true;
}

std::string findRenderNode() {
    DIR* dir = opendir("/dev/dri");
    if (dir == nullptr) return std::string();
    std::string node;
    while (const dirent* entry = readdir(dir)) {
        if (std::strncmp(entry->d_name, "renderD", 7) == 0) {
            node = std::string("/dev/dri/") + entry->d_name;
            break;
        }
    }
    closedir(dir);
    return node;
}

}  // namespace

BusinessSettings& BusinessSettings::getInstance() {
    static BusinessSettings instance;
    return instance;
}

void BusinessSettings::restoreDefault() {
    setSystemMute(false);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_window = tagWindowScreenInfo_{};
        m_capWidth = 0;
        m_capHeight = 0;
    }
    m_screenMode = 0;
    m_recordTimeLog = false;
    m_writeH264 = false;
    m_writeRgb = false;
    m_writeRgbAfterYuv = false;
    m_writeRtp = false;
    m_writeYuv = false;
    m_printMouse = false;
}

void BusinessSettings::setSystemMute(bool mute) {
    std::lock_guard<std::mutex> lock(m_muteMutex);
    m_systemMute = mute;
    applySystemMute(mute);
}

// Called with m_muteMutex held.
void BusinessSettings::applySystemMute(bool mute) {
    if (mute) {
        if (m_muteApplied) return;
        const int before = defaultSinkMuted();
        if (before < 0) return;
        if (!setDefaultSinkMuted(true)) return;
        m_muteApplied = true;
        m_sinkWasMuted = before == 1;
        ZV_LOG(INFO) << " muted the PC's default sound output" << (m_sinkWasMuted ? " (it was muted already)" : "");
        return;
    }
    if (!m_muteApplied) return;  // we did not mute it, so it is not ours to unmute
    m_muteApplied = false;
    if (m_sinkWasMuted) {
        ZV_LOG(INFO) << " default sound output stays muted, as it was before the cast";
        return;
    }
    if (setDefaultSinkMuted(false)) ZV_LOG(INFO) << " unmuted the PC's default sound output";
}

void BusinessSettings::setScreenMode(int mode) { m_screenMode = mode; }

void BusinessSettings::setScreenWindowInfo(const tagWindowScreenInfo_& info) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_window = info;
}

tagWindowScreenInfo_ BusinessSettings::getScreenWindowInfo() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_window;
}

void BusinessSettings::setRealCapResolution(int width, int height) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_capWidth = width;
    m_capHeight = height;
}

void BusinessSettings::getRealCapResolution(int& width, int& height) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    width = m_capWidth;
    height = m_capHeight;
}

bool BusinessSettings::getHardwareCodingAvailable() {
    probeHardwareCoding();
    return m_hardwareCoding;
}

void BusinessSettings::probeHardwareCoding() {
    std::call_once(m_probeOnce, [this] {
        const std::string node = findRenderNode();
        if (node.empty()) {
            m_hardwareCoding = false;
            ZV_LOG(INFO) << " hardware H.264 encoding: not available (no /dev/dri render node)";
            return;
        }
        for (const char* element : {"vaapih264enc", "vah264enc"}) {
            const ToolResult result = runTool({"gst-inspect-1.0", element}, kInspectTimeoutMs);
            if (result.exitCode == 0) {
                m_hardwareCoding = true;
                ZV_LOG(INFO) << " hardware H.264 encoding: available (" << element << " on " << node << ")";
                return;
            }
            ZV_LOG(INFO) << " gst-inspect-1.0 " << element << ": " << whyToolFailed(result);
        }
        m_hardwareCoding = false;
        ZV_LOG(INFO) << " hardware H.264 encoding: not available (render node " << node
                     << " but no VA-API H.264 encoder)";
    });
}
