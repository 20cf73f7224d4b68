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
    std::string passcode = ready.value("passcode").toString().toStdString();
    if (passcode.empty()) {
        const std::string line = receiver.waitForLineContaining("\"passcode\"", std::chrono::seconds(10));
        passcode = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object().value("passcode").toString().toStdString();
    }

    CManageAll::getInstance()->initLogOut(nullptr, true);
    Row byAddress{"by address (discovery list)", {}};
    Row byCode{"by 8-character code", {}};
    Row byPasscode{"by passcode (passcode service)", {}};
    const tagCodeServerInfo_ noServer{};
    tagCodeServerInfo_ passcodeServer{};
    std::strcpy(passcodeServer.szIp, "127.0.0.1");
    passcodeServer.nPort = ready.value("passcodeServicePort").toInt();

    // Every finished session retires the code; the receiver says which one it shows next.
    std::string code = ready.value("code").toString().toStdString();
    auto followCode = [&] {
        const std::string line = receiver.waitForLineContaining("\"event\":\"code\"", std::chrono::seconds(5));
        const QJsonObject o = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
        if (!o.isEmpty()) code = o.value("code").toString().toStdString();
    };
    for (int i = 0; i < rounds; ++i) {
        tagDeviceListUnitInfo_ target{};
        std::strcpy(target.szAddress, "127.0.0.1");
        target.nPort = ready.value("port").toInt();
        logInOnce(byAddress, noServer, target);
        followCode();

        tagDeviceListUnitInfo_ coded{};
        std::strncpy(coded.szConnectCode, code.c_str(), 8);
        logInOnce(byCode, noServer, coded);
        followCode();

        tagDeviceListUnitInfo_ byPass{};
        std::strncpy(byPass.szConnectCode, passcode.c_str(), 8);
        logInOnce(byPasscode, passcodeServer, byPass);
        followCode();
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
    std::printf("\nTarget: under 300 ms on the same LAN.\n");
    return 0;
}
