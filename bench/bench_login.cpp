// Log-in latency on one machine: a real receiver process on loopback, the
// real library, N log-ins each way (by address as from the discovery list,
// by connect code, by passcode through the passcode service), each timed
// from the call to logIn until it returns. Prints a table.
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
#include "casting/CManageAll.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Row {
    const char* name;
    std::vector<double> ms;
    int failures = 0;
};

double percentile(std::vector<double> values, double p) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const size_t index = std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size() - 1) + 0.5));
    return values[index];
}

void logInOnce(Row& row, const tagCodeServerInfo_& server, const tagDeviceListUnitInfo_& target) {
    CManageAll* library = CManageAll::getInstance();
    tagDeviceListUnitInfo_ panel = target;
    long user = -1, session = -1;
    const auto start = Clock::now();
    const long result = library->logIn(server, panel, user, session, nullptr, CLIENT_DEVICE_LINUX, "bench");
    const double elapsed = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    if (result != 0) {
        ++row.failures;
        return;
    }
    row.ms.push_back(elapsed);
    library->logOut(user, session);
}

}  // namespace

int main(int argc, char* argv[]) {
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 30;
    char home[] = "/tmp/zv-bench-login-XXXXXX";
    if (mkdtemp(home) == nullptr) return 1;
    setenv("HOME", home, 1);
    setenv("XDG_CONFIG_HOME", (std::string(home) + "/.config").c_str(), 1);

    zvtest::ChildProcess receiver({zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                   "--passcode-service", "0", "--name", "Bench panel"},
                                  zvtest::ChildProcess::Output::Capture);
    const std::string readyLine = receiver.waitForLineContaining("\"ready\"", std::chrono::seconds(20));
    if (readyLine.empty()) {
        std::fprintf(stderr, "the receiver did not start (is port 47800 free?)\n");
        return 1;
    }
    const QJsonObject ready = QJsonDocument::fromJson(QByteArray::fromStdString(readyLine)).object();
    // Codes and passcodes change after sessions end (each stays up a while
    // first); the receiver says which ones it shows next.
    std::string code = ready.value("code").toString().toStdString();
    std::string passcode = ready.value("passcode").toString().toStdString();
    auto follow = [&](std::chrono::milliseconds wait) {
        for (;;) {
            const std::string line = receiver.waitForLine(
                [](const std::string& l) {
                    return l.find("\"event\":\"code\"") != std::string::npos ||
                           l.find("\"event\":\"passcode\"") != std::string::npos;
                },
                wait);
            if (line.empty()) return;
            const QJsonObject o = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
            if (o.contains("code")) code = o.value("code").toString().toStdString();
            if (o.contains("passcode")) passcode = o.value("passcode").toString().toStdString();
            wait = std::chrono::milliseconds(0);
        }
    };
    if (passcode.empty()) follow(std::chrono::milliseconds(10000));

    CManageAll::getInstance()->initLogOut(nullptr, true);
    Row byAddress{"by address (discovery list)", {}};
    Row byCode{"by 8-character code", {}};
    Row byPasscode{"by passcode (passcode service)", {}};
    const tagCodeServerInfo_ noServer{};
    tagCodeServerInfo_ passcodeServer{};
    std::strcpy(passcodeServer.szIp, "127.0.0.1");
    passcodeServer.nPort = ready.value("passcodeServicePort").toInt();

    for (int i = 0; i < rounds; ++i) {
        tagDeviceListUnitInfo_ target{};
        std::strcpy(target.szAddress, "127.0.0.1");
        target.nPort = ready.value("port").toInt();
        logInOnce(byAddress, noServer, target);

        follow(std::chrono::milliseconds(0));
        tagDeviceListUnitInfo_ coded{};
        std::strncpy(coded.szConnectCode, code.c_str(), 8);
        logInOnce(byCode, noServer, coded);

        follow(std::chrono::milliseconds(0));
        tagDeviceListUnitInfo_ byPass{};
        std::strncpy(byPass.szConnectCode, passcode.c_str(), 8);
        logInOnce(byPasscode, passcodeServer, byPass);
    }
    CManageAll::getInstance()->destroy();

    std::printf("\nLog-in latency, loopback, %d rounds (ms from the call to logIn until it returns)\n\n", rounds);
    std::printf("| %-32s | %8s | %8s | %8s | %8s |\n", "log-in", "median", "p90", "min", "failed");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(34, '-').c_str(), std::string(10, '-').c_str(),
                std::string(10, '-').c_str(), std::string(10, '-').c_str(), std::string(10, '-').c_str());
    for (const Row* row : {&byAddress, &byCode, &byPasscode}) {
        std::printf("| %-32s | %8.1f | %8.1f | %8.1f | %8d |\n", row->name, percentile(row->ms, 0.5),
                    percentile(row->ms, 0.9), row->ms.empty() ? 0.0 : *std::min_element(row->ms.begin(), row->ms.end()),
                    row->failures);
    }
    std::printf("\nTargets: under 300 ms on the same LAN; by code (key exchange included) under 100 ms on loopback.\n");
    return 0;
}
