// A small discovery peer for tests and manual checks: announces one panel, or
// browses and prints one JSON line per event on stdout.
//
//   zv-discovery-probe announce --name N --port P --key K [--code C] [--access open|approve|code]
//       [--publish-code 0|1] [--new-code C2 --change-code-after-ms M] [--ttl S] [--ver V]
//       [--backend auto|daemon|embedded]
//   zv-discovery-probe browse [--seconds S] [--backend auto|daemon|embedded]
//
// Standard input takes commands, one a line: "code C" (announce: switch to
// code C), "access MODE 0|1" (announce: access mode and whether the code is
// published), "refresh" and "lookup C" (browse). SIGTERM and SIGINT end it
// cleanly; the announcer then withdraws its service.
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "casting/Log.h"
#include "discovery/AvahiRuntime.h"
#include "discovery/PanelAnnouncer.h"
#include "discovery/PanelBrowser.h"

namespace {

using Clock = std::chrono::steady_clock;

std::mutex g_outputMutex;

std::string jsonText(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        default:
            if (c < 0x20) {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    return out + "\"";
}

// Fields in order; values are JSON already.
void emit(const std::string& event, const std::vector<std::pair<std::string, std::string>>& fields = {}) {
    std::string line = "{\"event\":" + jsonText(event);
    for (const auto& field : fields) line += "," + jsonText(field.first) + ":" + field.second;
    line += "}\n";
    std::lock_guard<std::mutex> lock(g_outputMutex);
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
}

// access: the browser's access mode for the panel, "" when unknown.
void emitPanel(const std::string& event, const KLUF_DEVICE_INFO& info, const std::string& access = {}) {
    emit(event, {{"name", jsonText(info.szDeviceName)},
                 {"key", jsonText(info.szDeviceKey)},
                 {"code", jsonText(info.szConnectCode)},
                 {"address", jsonText(info.szDetail)},
                 {"port", std::to_string(info.nValue)},
                 {"ver", jsonText(info.szInfo)},
                 {"access", jsonText(access)}});
}

std::optional<zv::PanelAccess> accessArgument(const std::string& text) {
    return zv::panelAccessFromText(text);
}

int usage(const char* why) {
    std::fprintf(stderr,
                 "%s\nusage: zv-discovery-probe announce --name N --port P --key K [--code C] "
                 "[--access open|approve|code] [--publish-code 0|1] [--new-code C2 --change-code-after-ms M] "
                 "[--ttl S] [--ver V] [--backend auto|daemon|embedded]\n"
                 "       zv-discovery-probe browse [--seconds S] [--backend auto|daemon|embedded]\n",
                 why);
    return 2;
}

// Waits for the next line on stdin or a termination signal, up to deadline.
class Input {
public:
    Input() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGHUP);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread starts: all inherit it
        m_signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
    }
    ~Input() { close(m_signalFd); }

    enum class What { Line = 1, Timeout = 2, Stop = 3 };
    // deadline: Clock::time_point::max() for none.
    What next(Clock::time_point deadline, std::string& line) {
        for (;;) {
            const auto newline = m_buffer.find('\n');
            if (newline != std::string::npos) {
                line = m_buffer.substr(0, newline);
                m_buffer.erase(0, newline + 1);
                return What::Line;
            }
            int timeoutMs = -1;
            if (deadline != Clock::time_point::max()) {
                const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
                if (left.count() <= 0) return What::Timeout;
                timeoutMs = static_cast<int>(left.count());
            }
            pollfd fds[2] = {{m_signalFd, POLLIN, 0}, {m_stdinOpen ? STDIN_FILENO : -1, POLLIN, 0}};
            if (poll(fds, 2, timeoutMs) < 0) continue;
            if (fds[0].revents & POLLIN) return What::Stop;
            if (fds[1].revents & (POLLIN | POLLHUP)) {
                char chunk[512];
                const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
                if (got <= 0)
                    m_stdinOpen = false;  // no more commands; signals and time still count
                else
                    m_buffer.append(chunk, static_cast<size_t>(got));
            }
        }
    }

private:
    int m_signalFd = -1;
    bool m_stdinOpen = true;
    std::string m_buffer;
};

std::shared_ptr<zv::AvahiRuntime> startRuntime(const std::string& backend, bool publishAddresses) {
    zv::AvahiRuntime::Options options;
    options.publishAddresses = publishAddresses;
    if (backend == "daemon") options.backend = zv::AvahiRuntime::BackendChoice::DaemonOnly;
    if (backend == "embedded") options.backend = zv::AvahiRuntime::BackendChoice::EmbeddedOnly;
    std::string error;
    auto runtime = zv::AvahiRuntime::start(options, &error);
    if (!runtime) {
        emit("failed", {{"reason", jsonText(error)}});
        return nullptr;
    }
    emit("started", {{"backend", jsonText(zv::AvahiRuntime::backendName(runtime->backend()))}});
    return runtime;
}

int announce(const std::map<std::string, std::string>& args, Input& input) {
    for (const char* required : {"--name", "--port", "--key"})
        if (!args.count(required)) return usage("announce needs --name, --port and --key");
    zv::PanelAnnouncement announcement;
    announcement.name = QString::fromStdString(args.at("--name"));
    announcement.port = static_cast<quint16>(std::atoi(args.at("--port").c_str()));
    announcement.key = QString::fromStdString(args.at("--key"));
    if (args.count("--code")) announcement.code = QString::fromStdString(args.at("--code"));
    if (args.count("--access")) {
        const auto access = accessArgument(args.at("--access"));
        if (!access) return usage("--access is open, approve or code");
        announcement.accessMode = *access;
    }
    if (args.count("--publish-code")) announcement.publishCode = args.at("--publish-code") == "1";
    if (args.count("--ver")) announcement.protocolVersion = std::atoi(args.at("--ver").c_str());
    if (args.count("--ttl")) announcement.recordTtl = std::chrono::seconds(std::atoi(args.at("--ttl").c_str()));

    Clock::time_point changeAt = Clock::time_point::max();
    if (args.count("--change-code-after-ms")) {
        if (!args.count("--new-code")) return usage("--change-code-after-ms needs --new-code");
        changeAt = Clock::now() + std::chrono::milliseconds(std::atoi(args.at("--change-code-after-ms").c_str()));
    }

    auto runtime = startRuntime(args.count("--backend") ? args.at("--backend") : "auto", true);
    if (!runtime) return 1;
    zv::PanelAnnouncer announcer(runtime, announcement, [](zv::PanelAnnouncer::Event event, const QString& name) {
        const char* what = event == zv::PanelAnnouncer::Event::Established ? "established"
                           : event == zv::PanelAnnouncer::Event::Renamed   ? "renamed"
                                                                           : "failed";
        emit(what, {{"name", jsonText(name.toStdString())}});
    });

    auto switchCode = [&](const std::string& code) {
        announcer.updateCode(QString::fromStdString(code));
        emit("code", {{"code", jsonText(code)}});
    };
    std::string line;
    for (;;) {
        switch (input.next(changeAt, line)) {
        case Input::What::Stop: return 0;
        case Input::What::Timeout:
            switchCode(args.at("--new-code"));
            changeAt = Clock::time_point::max();
            break;
        case Input::What::Line:
            if (line.rfind("code ", 0) == 0) {
                switchCode(line.substr(5));
            } else if (line.rfind("access ", 0) == 0) {
                const auto space = line.find(' ', 7);
                const auto access = accessArgument(line.substr(7, space == std::string::npos ? space : space - 7));
                const bool publish = space != std::string::npos && line.substr(space + 1) == "1";
                if (access) {
                    announcer.updateAccess(*access, publish);
                    emit("access", {{"access", jsonText(zv::panelAccessText(*access))},
                                    {"publishCode", publish ? "true" : "false"}});
                }
            }
            break;
        }
    }
}

int browse(const std::map<std::string, std::string>& args, Input& input) {
    Clock::time_point endAt = Clock::time_point::max();
    if (args.count("--seconds") && std::atoi(args.at("--seconds").c_str()) > 0)
        endAt = Clock::now() + std::chrono::seconds(std::atoi(args.at("--seconds").c_str()));

    auto runtime = startRuntime(args.count("--backend") ? args.at("--backend") : "auto", false);
    if (!runtime) return 1;
    // The callbacks run on the discovery thread and read the browser's table,
    // which already holds the panel they report. Nothing is found within the
    // moment between the constructor and the store below.
    std::atomic<zv::PanelBrowser*> self{nullptr};
    auto withAccess = [&self](const char* event) {
        return [&self, event](const KLUF_DEVICE_INFO& info) {
            zv::PanelBrowser* browser = self.load();
            const auto access = browser ? browser->accessModeOf(QString::fromUtf8(info.szDeviceKey)) : std::nullopt;
            emitPanel(event, info, access ? zv::panelAccessText(*access) : "");
        };
    };
    zv::PanelBrowser::Callbacks callbacks;
    callbacks.found = withAccess("found");
    callbacks.updated = withAccess("updated");
    callbacks.gone = [](const KLUF_DEVICE_INFO& info) { emitPanel("gone", info); };
    callbacks.coming = withAccess("coming");
    zv::PanelBrowser browser(runtime, callbacks);
    self = &browser;

    std::string line;
    for (;;) {
        switch (input.next(endAt, line)) {
        case Input::What::Stop:
        case Input::What::Timeout: return 0;
        case Input::What::Line:
            if (line == "refresh") {
                browser.refresh();
            } else if (line.rfind("lookup ", 0) == 0) {
                const std::string code = line.substr(7);
                if (auto info = browser.lookupCode(QString::fromStdString(code)))
                    emitPanel("lookup", *info);
                else
                    emit("lookup", {{"code", jsonText(code)}, {"missing", "true"}});
            }
            break;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    google::InitGoogleLogging(argv[0]);
    FLAGS_logtostderr = true;
    if (argc < 2) return usage("no mode given");
    const std::string mode = argv[1];
    std::map<std::string, std::string> args;
    for (int i = 2; i < argc; i += 2) {
        if (std::strncmp(argv[i], "--", 2) != 0 || i + 1 >= argc) return usage("options take one value each");
        args[argv[i]] = argv[i + 1];
    }
    Input input;  // blocks the termination signals before the discovery thread exists
    if (mode == "announce") return announce(args, input);
    if (mode == "browse") return browse(args, input);
    return usage("mode is announce or browse");
}
