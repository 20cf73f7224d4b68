// The version check of the hello exchange, with the real panel service and
// the PC's real session over TLS on loopback: peers of one major talk, a
// panel of another major refuses with a text naming both versions, and a PC
// meeting a panel that answers with another major gives up by itself. Both
// end in the "version" error code the client shows.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

#include "CodeKeeper.h"
#include "PanelService.h"
#include "casting/ErrorCodes.h"
#include "protocol/WireCodec.h"
#include "session/ClientSession.h"
#include "transport/KnownPanels.h"
#include "transport/MessageChannel.h"
#include "transport/TlsIdentity.h"

namespace {

constexpr int kWaitMs = 10000;

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_protocol_version";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

class ProtocolVersion : public ::testing::Test {
protected:
    void SetUp() override {
        ensureApp();
        ASSERT_TRUE(dir.isValid());
        identity = zv::loadOrCreateTlsIdentity(dir.path(), QStringLiteral("Version panel"));
        ASSERT_TRUE(identity);
    }

    // Starts a panel that speaks major.minor (-1: this build's version).
    std::unique_ptr<receiver::PanelService> startPanel(int major, int minor) {
        receiver::PanelService::Settings settings;
        settings.name = QStringLiteral("Version panel");
        settings.listenAddress = QHostAddress::LocalHost;
        settings.port = 0;
        settings.protocolMajor = major;
        settings.protocolMinor = minor;
        auto panel = std::make_unique<receiver::PanelService>(settings, identity->privateKey, identity->certificate,
                                                              identity->keyId, &codes);
        QObject::connect(panel.get(), &receiver::PanelService::helloRefused,
                         [this](const QString&, const QString& reason) { refusals << reason; });
        QString error;
        EXPECT_TRUE(panel->start(&error)) << error.toStdString();
        return panel;
    }

    // Logs in to 127.0.0.1:port as this build's PC and returns the outcome.
    zv::ClientSession::LoginResult login(quint16 port) {
        zv::ClientSession session(
            {[](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&) {}},
            zv::CodeResolver::DiscoveryLookup{},
            std::make_shared<zv::KnownPanels>(dir.filePath(QStringLiteral("known-panels"))));
        zv::LoginTarget target;
        target.address = QStringLiteral("127.0.0.1");
        target.port = port;
        zv::wire::Hello hello;
        hello.set_major(zv::kProtocolMajor);
        hello.set_minor(zv::kProtocolMinor);
        hello.set_host("version-test");
        std::optional<zv::ClientSession::LoginResult> result;
        session.login(target, hello, [&](const zv::ClientSession::LoginResult& r) { result = r; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, kWaitMs)) << "no log-in result";
        session.logout();
        return result.value_or(zv::ClientSession::LoginResult{});
    }

    QTemporaryDir dir;
    std::optional<zv::TlsIdentity> identity;
    receiver::CodeKeeper codes{0x7f000001, QStringLiteral("7K3M9Q2T"), 0};
    QStringList refusals;
};

TEST_F(ProtocolVersion, SameMajorLogsInAnotherMinorToo) {
    for (int minor : {-1, 7}) {
        SCOPED_TRACE(minor);
        auto panel = startPanel(-1, minor);
        const auto result = login(panel->port());
        EXPECT_EQ(result.error, 0u) << result.detail.toStdString();
        EXPECT_EQ(result.welcome.major(), uint32_t(zv::kProtocolMajor));
        EXPECT_EQ(result.welcome.minor(), uint32_t(minor < 0 ? zv::kProtocolMinor : minor));
    }
    EXPECT_TRUE(refusals.isEmpty()) << refusals.join(QLatin1Char(' ')).toStdString();
}

TEST_F(ProtocolVersion, PanelOfAnotherMajorRefusesNamingBothVersions) {
    for (int major : {zv::kProtocolMajor + 1, zv::kProtocolMajor - 1}) {
        SCOPED_TRACE(major);
        refusals.clear();
        auto panel = startPanel(major, 1);
        const auto result = login(panel->port());
        EXPECT_EQ(result.error, zv_error::PANEL_VERSION_TOO_LOW);
        EXPECT_EQ(result.refusedReason, zv::wire::Refused::VERSION_MISMATCH);
        const QString expected = QStringLiteral("panel speaks protocol %1.1, this PC %2.%3")
                                     .arg(major)
                                     .arg(zv::kProtocolMajor)
                                     .arg(zv::kProtocolMinor);
        EXPECT_TRUE(result.detail.contains(expected)) << result.detail.toStdString();
        EXPECT_EQ(refusals, QStringList{QStringLiteral("versionMismatch")});
        EXPECT_TRUE(panel->clients().isEmpty());
    }
}

TEST_F(ProtocolVersion, PcGivesUpOnAWelcomeOfAnotherMajor) {
    // A panel that does not check, answering every hello with a welcome of major 9.
    zv::TlsServer server(identity->privateKey, identity->certificate);
    ASSERT_TRUE(server.listen(QHostAddress::LocalHost, 0));
    QObject::connect(&server, &zv::TlsServer::newChannel, [](zv::MessageChannel* channel) {
        QObject::connect(channel, &zv::MessageChannel::messageReceived, channel, [channel](const zv::wire::Envelope& e) {
            if (!e.has_hello()) return;
            zv::wire::Welcome welcome;
            welcome.set_major(9);
            welcome.set_minor(4);
            welcome.set_session(1);
            channel->setProtocolMajor(9);
            channel->send(zv::wrap(welcome));
        });
    });
    const auto result = login(server.serverPort());
    EXPECT_EQ(result.error, zv_error::PANEL_VERSION_TOO_LOW);
    EXPECT_TRUE(result.detail.contains(QStringLiteral("panel speaks protocol 9.4, this PC %1.%2")
                                           .arg(zv::kProtocolMajor)
                                           .arg(zv::kProtocolMinor)))
        << result.detail.toStdString();
}

}  // namespace
