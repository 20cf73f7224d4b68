// Cast start-up time: from the call to miracastResq until the receiver has
// decoded the first picture, for each transport. A real receiver process on
// loopback, the real library in this process, a private Xvfb screen. Both
// sides read the same monotonic clock (steady_clock), so the receiver's
// "cast-first-frame" time can be compared with ours. Prints a table.
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Process.h"
#include "XvfbSession.h"
#include "casting/CManageAll.h"

namespace {

qint64 steadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

QJsonObject json(const std::string& line) { return QJsonDocument::fromJson(QByteArray::fromStdString(line)).object(); }

double median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main(int argc, char* argv[]) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
    zvtest::XvfbSession x("1920x1080x24");
    if (!x.ready()) {
        std::fprintf(stderr, "Xvfb did not start\n");
        return 1;
    }
    QCoreApplication app(argc, argv);
    char home[] = "/tmp/zv-bench-cast-XXXXXX";
    if (mkdtemp(home) == nullptr) return 1;
    setenv("HOME", home, 1);
    setenv("XDG_CONFIG_HOME", (std::string(home) + "/.config").c_str(), 1);
    setenv("PULSE_SERVER", (std::string("unix:") + home + "/no-sound").c_str(), 1);  // picture only

    zvtest::ChildProcess receiver({zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery", "--port",
                                   "0", "--name", "Bench panel", "--access", "open"},  // by address, no approval
                                  zvtest::ChildProcess::Output::Capture);
    const QJsonObject ready = json(receiver.waitForLineContaining("\"ready\"", std::chrono::seconds(20)));
    if (ready.isEmpty()) {
        std::fprintf(stderr, "the receiver did not start\n");
        return 1;
    }

    CManageAll* library = CManageAll::getInstance();
    library->initLogOut(nullptr, true);
    tagDeviceListUnitInfo_ panel{};
    std::strcpy(panel.szAddress, "127.0.0.1");
    panel.nPort = ready.value("port").toInt();
    long user = -1, session = -1;
    if (library->logIn(tagCodeServerInfo_{}, panel, user, session, nullptr, CLIENT_DEVICE_LINUX, "bench") != 0) {
        std::fprintf(stderr, "log-in failed\n");
        return 1;
    }

    struct Row {
        const char* name;
        ProtocolType protocol;
        std::vector<double> ms;
        int failures = 0;
    };
    std::vector<Row> rows = {{"udp", PROTOCOL_UDP, {}}, {"tcp", PROTOCOL_TCP, {}}, {"brx (srt)", PROTOCOL_BRX, {}}};
    for (int i = 0; i < rounds; ++i) {
        for (Row& row : rows) {
            library->initProtocol(row.protocol, PROTOCOL_TCP, PROTOCOL_TCP);
            const qint64 start = steadyMs();
            const long result = library->miracastResq(user, panel, nullptr, nullptr, nullptr, nullptr, false,
                                                      VIDEO_SOURCE_SCREEN);
            const QJsonObject first =
                result == SUCCESS ? json(receiver.waitForLineContaining("cast-first-frame", std::chrono::seconds(10)))
                                  : QJsonObject();
            if (first.isEmpty()) {
                ++row.failures;
            } else {
                row.ms.push_back(static_cast<double>(first.value("steadyMs").toDouble() - static_cast<double>(start)));
            }
            library->stopMiracast();
            receiver.waitForLineContaining("cast-stopped", std::chrono::seconds(10));
        }
    }
    library->logOut(user, session);
    library->destroy();

    std::printf("\nCast start-up, loopback, 1920x1080 Xvfb, %d rounds\n", rounds);
    std::printf("(ms from the call to miracastResq until the receiver decoded the first picture)\n\n");
    std::printf("| %-12s | %8s | %8s | %8s | %8s |\n", "transport", "median", "min", "max", "failed");
    std::printf("|--------------|----------|----------|----------|----------|\n");
    for (const Row& row : rows) {
        const double min = row.ms.empty() ? 0 : *std::min_element(row.ms.begin(), row.ms.end());
        const double max = row.ms.empty() ? 0 : *std::max_element(row.ms.begin(), row.ms.end());
        std::printf("| %-12s | %8.0f | %8.0f | %8.0f | %8d |\n", row.name, median(row.ms), min, max, row.failures);
    }
    std::printf("\nTarget: under 500 ms.\n");
    return 0;
}
