// Several zelvanor-passcode instances sharing one real redis-server, end to
// end over loopback: a panel (the library's PasscodeRegistration with a list
// of instances) registers through instance 1 and a PC (PasscodeClient)
// resolves through instance 2; instance 1 killed, the heartbeats move on;
// Redis restarted with its append-only file keeps every entry; wrong
// passcodes over both instances meet one budget.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>
#include <memory>
#include <optional>

#include "Process.h"
#include "RedisServer.h"
#include "StatusLines.h"
#include "passcode/PasscodeClient.h"
#include "passcode/PasscodeRegistration.h"
#include "transport/TlsIdentity.h"

namespace {

using namespace std::chrono_literals;
using zv::PasscodeClient;
using zvtest::ChildProcess;

constexpr int kWaitMs = 15000;

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_passcode_campus";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

struct Resolution {
    bool found = false;
    PasscodeClient::Failure failure = PasscodeClient::Failure::Unreachable;
    QString panelKey;
};

class PasscodeCampus : public ::testing::Test {
protected:
    void SetUp() override {
        ensureApp();
        ASSERT_TRUE(redis.start()) << "redis-server did not start";
        for (int i = 0; i < 2; ++i) ports[i] = zvtest::RedisServer::freePort();
        for (int i = 0; i < 2; ++i) ASSERT_TRUE(startInstance(i));
        const auto panel = zv::loadOrCreateTlsIdentity(dir.filePath("panel"), "panel", zv::kPanelIdentity);
        ASSERT_TRUE(panel);
        panelIdentity = *panel;
    }

    // Instance i (0 or 1) on its fixed port, all with one TLS key folder.
    bool startInstance(int i) {
        instances[i] = std::make_unique<ChildProcess>(
            std::vector<std::string>{"env", "HOME=" + dir.path().toStdString(),
                                     zvtest::builtProgram("zelvanor-passcode"), "--listen", "127.0.0.1", "--port",
                                     std::to_string(ports[i]), "--data", dir.filePath("service").toStdString(),
                                     "--store", redis.url(1)},
            ChildProcess::Output::Capture);
        return !instances[i]->waitForLine(zvtest::statusEvent("ready"), 20s).empty();
    }
    zv::PasscodeServerAddress server(int i) const {
        return zv::PasscodeServerAddress{QStringLiteral("127.0.0.1"), quint16(ports[i]), QString()};
    }

    std::unique_ptr<zv::PasscodeRegistration> startPanel() {
        zv::PasscodeRegistration::Settings settings;
        settings.serviceHost = QStringLiteral("127.0.0.1");
        settings.servicePort = quint16(ports[0]);
        settings.moreServices = {server(1)};
        settings.pinsPath = dir.filePath("panel-pins");
        settings.address = QStringLiteral("192.0.2.10");
        settings.port = 47800;
        settings.name = QStringLiteral("Room C");
        settings.ttlSeconds = 10;  // renewed every ~3 s
        settings.panelKey = panelIdentity.privateKey;
        settings.panelCertificate = panelIdentity.certificate;
        auto registration = std::make_unique<zv::PasscodeRegistration>(settings);
        registration->start();
        return registration;
    }

    Resolution resolve(const QList<zv::PasscodeServerAddress>& servers, const QString& passcode) {
        PasscodeClient client(nullptr, dir.filePath("pc/passcode-servers"));
        std::optional<Resolution> out;
        QObject::connect(&client, &PasscodeClient::resolved,
                         [&](const QString&, quint16, const QString&, const QString& key) {
                             out = Resolution{true, PasscodeClient::Failure::Unreachable, key};
                         });
        QObject::connect(&client, &PasscodeClient::failed,
                         [&](PasscodeClient::Failure failure, const QString&) { out = Resolution{false, failure, {}}; });
        client.resolve(servers, passcode);
        EXPECT_TRUE(QTest::qWaitFor([&] { return out.has_value(); }, kWaitMs));
        return out.value_or(Resolution{});
    }

    QTemporaryDir dir;
    zvtest::RedisServer redis{zvtest::RedisServer::Persistence::AppendOnly};
    int ports[2] = {0, 0};
    std::unique_ptr<ChildProcess> instances[2];
    zv::TlsIdentity panelIdentity;
};

TEST_F(PasscodeCampus, RegisteredThroughOneInstanceResolvedThroughTheOtherAndSurvivesLosingEither) {
    auto panel = startPanel();
    QSignalSpy passcodes(panel.get(), &zv::PasscodeRegistration::passcodeChanged);
    ASSERT_TRUE(QTest::qWaitFor([&] { return panel->isRegistered(); }, kWaitMs));
    EXPECT_EQ(panel->serviceInUse(), server(0).hostPort());
    const QString passcode = panel->passcode();

    // Through instance 2, which never saw the panel.
    Resolution found = resolve({server(1)}, passcode);
    ASSERT_TRUE(found.found);
    EXPECT_EQ(found.panelKey, zv::keyIdOf(panelIdentity.certificate));

    // Instance 1 killed: the heartbeats move to instance 2 within a few
    // seconds, and the panel keeps its passcode; PCs listing both still resolve.
    instances[0]->signal(SIGKILL);
    ASSERT_TRUE(instances[0]->waitFinished(5s));
    const auto killedAt = std::chrono::steady_clock::now();
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel->serviceInUse() == server(1).hostPort(); }, kWaitMs));
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel->isRegistered(); }, kWaitMs));
    EXPECT_LT(std::chrono::steady_clock::now() - killedAt, 8s);
    EXPECT_TRUE(resolve({server(0), server(1)}, passcode).found);
    EXPECT_EQ(panel->passcode(), passcode);
    EXPECT_EQ(passcodes.count(), 1);  // never a second passcode

    // Redis restarted (append-only file on): the entry is still there, and
    // the instances reconnect by themselves.
    ASSERT_TRUE(redis.restart());
    EXPECT_TRUE(QTest::qWaitFor([&] { return resolve({server(1)}, passcode).found; }, kWaitMs));
    EXPECT_EQ(panel->passcode(), passcode);
}

TEST_F(PasscodeCampus, WrongPasscodesOverBothInstancesMeetOneBudgetAndALostRedisIsReportedUnreachable) {
    // 5 wrong tries lock the source, however they are spread.
    for (int i = 0; i < 5; ++i) EXPECT_EQ(resolve({server(i % 2)}, QStringLiteral("QQQQ")).failure,
                                          PasscodeClient::Failure::Unknown);
    EXPECT_EQ(resolve({server(0)}, QStringLiteral("QQQQ")).failure, PasscodeClient::Failure::RateLimited);
    EXPECT_EQ(resolve({server(1)}, QStringLiteral("QQQQ")).failure, PasscodeClient::Failure::RateLimited);

    // Redis gone: instances answer UNAVAILABLE, which the PC reports as an
    // unreachable server, promptly.
    redis.kill();
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(resolve({server(0), server(1)}, QStringLiteral("RRRR")).failure, PasscodeClient::Failure::Unreachable);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 5s);
}

}  // namespace
