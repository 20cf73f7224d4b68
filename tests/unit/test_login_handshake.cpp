// The log-in handshake over loopback TLS between the real panel service and
// the PC's real session: the key exchange over the code (right, wrong, and
// through a relay that terminates TLS on each side), log-in by a known key,
// the access rules, the PC's pin of the panel key, resume tokens bound to the
// PC key, and the global budget of wrong tries.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QPointer>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <optional>

#include "CodeKeeper.h"
#include "PanelService.h"
#include "TryBudget.h"
#include "casting/ErrorCodes.h"
#include "security/CodeProof.h"
#include "security/KeyId.h"
#include "session/ClientSession.h"
#include "transport/KnownPanels.h"
#include "transport/MessageChannel.h"
#include "transport/TlsEngine.h"
#include "transport/TlsHandshake.h"
#include "transport/TlsIdentity.h"

namespace {

using zv::wire::Refused;

constexpr int kWaitMs = 10000;
constexpr char kCode[] = "7K3M9Q2T";
constexpr char kPanelName[] = "Handshake panel";

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_login_handshake";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

zv::wire::Hello helloOf(const std::string& host) {
    zv::wire::Hello hello;
    hello.set_major(zv::kProtocolMajor);
    hello.set_minor(zv::kProtocolMinor);
    hello.set_host(host);
    return hello;
}

// A PC: its own config folder (identity, known-panels) and session.
struct Pc {
    QTemporaryDir dir;
    std::shared_ptr<zv::KnownPanels> known =
        std::make_shared<zv::KnownPanels>(dir.filePath(QStringLiteral("zelvanor/known-panels")));
    zv::ClientSession session{{[](tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&) {}},
                              zv::CodeResolver::DiscoveryLookup{},
                              known};

    // Logs in to 127.0.0.1:port with code (empty: KNOWN) and, for a KNOWN
    // log-in, the panel's announced name.
    zv::ClientSession::LoginResult login(quint16 port, const QString& code, const QString& name = QString()) {
        zv::LoginTarget target;
        target.code = code;
        target.address = QStringLiteral("127.0.0.1");
        target.port = port;
        target.name = name;
        std::optional<zv::ClientSession::LoginResult> result;
        session.login(target, helloOf("pc"), [&](const zv::ClientSession::LoginResult& r) { result = r; });
        EXPECT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, kWaitMs)) << "no log-in result";
        return result.value_or(zv::ClientSession::LoginResult{});
    }
    zv::TlsCredentials credentials() {
        session.ensureIdentity();
        const auto identity = zv::loadOrCreateTlsIdentity(dir.filePath(QStringLiteral("zelvanor")), QString(),
                                                          zv::kPcIdentity);
        return zv::TlsCredentials::of(identity->privateKey, identity->certificate);
    }
};

// A panel on loopback with its own identity folder.
struct Panel {
    QTemporaryDir dir;
    std::optional<zv::TlsIdentity> identity;
    std::unique_ptr<receiver::CodeKeeper> codes;
    std::unique_ptr<receiver::PanelService> service;
    QStringList refusals;

    explicit Panel(zv::PanelAccess access, const QString& fixedCode = QString::fromLatin1(kCode),
                   const QString& identityFolder = QString()) {
        identity = zv::loadOrCreateTlsIdentity(identityFolder.isEmpty() ? dir.path() : identityFolder,
                                               QString::fromLatin1(kPanelName));
        codes = std::make_unique<receiver::CodeKeeper>(0x7f000001, fixedCode, 0);
        receiver::PanelService::Settings settings;
        settings.name = QString::fromLatin1(kPanelName);
        settings.listenAddress = QHostAddress::AnyIPv4;
        settings.port = 0;
        settings.access = access;
        settings.knownDevicesPath = dir.filePath(QStringLiteral("known-devices"));
        service = std::make_unique<receiver::PanelService>(settings, identity->privateKey, identity->certificate,
                                                           identity->keyId, codes.get());
        QObject::connect(service.get(), &receiver::PanelService::helloRefused,
                         [this](const QString&, const QString& reason) { refusals << reason; });
        QString error;
        EXPECT_TRUE(service->start(&error)) << error.toStdString();
    }
    quint16 port() const { return service->port(); }
};

// Connects from a given loopback source address, showing credentials.
zv::MessageChannel* connectFrom(const QString& source, quint16 port, const zv::TlsCredentials& credentials) {
    auto* socket = new QTcpSocket;
    EXPECT_TRUE(socket->bind(QHostAddress(source)));
    zv::MessageChannel* channel = nullptr;
    bool done = false;
    zv::runTlsHandshake(socket,
                        std::make_unique<zv::TlsEngine>(zv::TlsEngine::Mode::Client, credentials.privateKeyPem,
                                                        credentials.certificatePem),
                        5000, QStringLiteral("time-out"), [&](zv::MessageChannel* c, const QString&) {
                            channel = c;
                            done = true;
                        });
    socket->connectToHost(QHostAddress::LocalHost, port);
    EXPECT_TRUE(QTest::qWaitFor([&] { return done; }, kWaitMs));
    return channel;
}

// The first message the panel sends on channel after it was sent hello.
std::optional<zv::wire::Envelope> answerTo(zv::MessageChannel* channel, const zv::wire::Envelope& sent) {
    std::optional<zv::wire::Envelope> answer;
    QObject::connect(channel, &zv::MessageChannel::messageReceived, channel,
                     [&](const zv::wire::Envelope& e) { answer = e; });
    channel->send(sent);
    EXPECT_TRUE(QTest::qWaitFor([&] { return answer.has_value(); }, kWaitMs)) << "no answer";
    QObject::disconnect(channel, &zv::MessageChannel::messageReceived, channel, nullptr);
    return answer;
}

class LoginHandshake : public ::testing::Test {
protected:
    void SetUp() override { ensureApp(); }
};

TEST_F(LoginHandshake, RightCodeProvesBothEndsWrongCodeCountsOnce) {
    Panel panel(zv::PanelAccess::Code);
    Pc pc;

    // A wrong code: the PC sees the panel's tag fail and reports the wrong code;
    // the panel has counted exactly one failed try.
    const auto wrong = pc.login(panel.port(), QStringLiteral("7K3M9Q2V"));
    EXPECT_EQ(wrong.error, zv_error::WRONG_CODE) << wrong.detail.toStdString();
    EXPECT_TRUE(wrong.detail.contains(QStringLiteral("wrong code"))) << wrong.detail.toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return panel.service->clients().isEmpty(); }, 100));
    EXPECT_EQ(panel.service->tryBudget().failures(), 1);
    EXPECT_TRUE(pc.known->entries().isEmpty()) << "nothing is pinned without proof";

    // The right code, typed sloppily (lower case, O for 0): logged in, approved.
    const auto right = pc.login(panel.port(), QStringLiteral("7k3m9q2t"));
    ASSERT_EQ(right.error, 0u) << right.detail.toStdString();
    EXPECT_TRUE(right.welcome.approved());
    EXPECT_EQ(right.welcome.panel().key(), panel.identity->keyId.toStdString());
    EXPECT_EQ(right.panel.expectedKey, panel.identity->keyId);
    EXPECT_EQ(panel.service->tryBudget().failures(), 1) << "the right try is taken back, the wrong one stays";
    ASSERT_EQ(panel.service->clients().size(), 1);
    const receiver::ClientInfo client = panel.service->clients().front();
    EXPECT_TRUE(client.viaCode);
    EXPECT_EQ(client.key, pc.session.ownKeyId());

    // Both ends now know each other by key...
    EXPECT_TRUE(panel.service->knownDevices().contains(pc.session.ownKeyId()));
    const auto pinned = pc.known->byKey(panel.identity->keyId);
    ASSERT_TRUE(pinned);
    EXPECT_EQ(pinned->name, QString::fromLatin1(kPanelName));
    EXPECT_EQ(pinned->code, QString::fromLatin1(kCode));
    EXPECT_EQ(pinned->port, panel.port());

    // ... and share the connection's exporter, from which media keys come.
    const QByteArray label(zv::keys::kSessionLabel);
    const QByteArray pcSide = pc.session.exporter()(label, QByteArray(), 32);
    EXPECT_EQ(pcSide.size(), 32);
    EXPECT_EQ(panel.service->exporter(client.id)(label, QByteArray(), 32), pcSide);
    EXPECT_TRUE(panel.service->exporter(client.id + 99)(label, QByteArray(), 32).isEmpty());
    pc.session.logout();
}

TEST_F(LoginHandshake, ARelayTerminatingTlsCannotCompleteTheExchangeEvenWithTheRightCode) {
    Panel panel(zv::PanelAccess::Open);
    Pc pc;
    Pc relayIdentity;  // the relay's own key, shown to the panel

    // The relay: its own TLS server for the PC, its own connection to the
    // panel, and every message passed on unchanged both ways.
    QTemporaryDir relayDir;
    const auto relayPanelSide = zv::loadOrCreateTlsIdentity(relayDir.path(), QString::fromLatin1(kPanelName));
    zv::TlsServer relay(relayPanelSide->privateKey, relayPanelSide->certificate);
    ASSERT_TRUE(relay.listen(QHostAddress::LocalHost, 0));
    const zv::TlsCredentials upstreamCredentials = relayIdentity.credentials();
    int relayed = 0;
    QObject::connect(&relay, &zv::TlsServer::newChannel, &relay, [&](zv::MessageChannel* fromPc) {
        // What the PC says before the upstream connection stands waits.
        auto early = std::make_shared<std::vector<zv::wire::Envelope>>();
        auto upstream = std::make_shared<QPointer<zv::MessageChannel>>();
        QObject::connect(fromPc, &zv::MessageChannel::messageReceived, fromPc, [&, early, upstream](const zv::wire::Envelope& e) {
            ++relayed;
            if (*upstream) (*upstream)->send(e); else early->push_back(e);
        });
        zv::MessageChannel::connectTls(
            QStringLiteral("127.0.0.1"), panel.port(), 5000, upstreamCredentials, fromPc,
            [&, fromPc, early, upstream](zv::MessageChannel* toPanel, const QString&) {
                if (toPanel == nullptr) return;
                toPanel->setParent(fromPc);
                *upstream = toPanel;
                for (const zv::wire::Envelope& e : *early) toPanel->send(e);
                QObject::connect(toPanel, &zv::MessageChannel::messageReceived, fromPc,
                                 [&, fromPc](const zv::wire::Envelope& e) { ++relayed, fromPc->send(e); });
                QObject::connect(toPanel, &zv::MessageChannel::closed, fromPc,
                                 [fromPc](const QString&) { fromPc->close(QStringLiteral("upstream closed")); });
            });
    });

    const auto result = pc.login(relay.serverPort(), QString::fromLatin1(kCode));
    EXPECT_EQ(result.error, zv_error::WRONG_CODE) << result.detail.toStdString();
    EXPECT_GE(relayed, 2) << "the relay did carry the hello and the reply";
    EXPECT_TRUE(panel.service->clients().isEmpty());
    EXPECT_EQ(panel.service->tryBudget().failures(), 1) << "the relayed try counts against the code";
    EXPECT_FALSE(panel.service->knownDevices().contains(relayIdentity.session.ownKeyId()));
    EXPECT_TRUE(pc.known->entries().isEmpty());

    // Straight to the panel the same PC and code get in.
    EXPECT_EQ(pc.login(panel.port(), QString::fromLatin1(kCode)).error, 0u);
    pc.session.logout();
}

TEST_F(LoginHandshake, AccessRulesForUnknownPcsAndKnownPcsWithoutCode) {
    struct Case {
        zv::PanelAccess access;
        uint32_t error;
        bool approved;
        Refused::Reason reason;
    };
    for (const Case& c : {Case{zv::PanelAccess::Open, 0, true, Refused::REASON_UNSPECIFIED},
                          Case{zv::PanelAccess::Approve, 0, false, Refused::REASON_UNSPECIFIED},
                          Case{zv::PanelAccess::Code, zv_error::WRONG_CODE, false, Refused::CODE_REQUIRED}}) {
        SCOPED_TRACE(zv::panelAccessText(c.access));
        Panel panel(c.access);
        Pc stranger;
        const auto result = stranger.login(panel.port(), QString());
        EXPECT_EQ(result.error, c.error) << result.detail.toStdString();
        EXPECT_EQ(result.refusedReason, c.reason);
        if (c.error == 0) {
            EXPECT_EQ(result.welcome.approved(), c.approved);
            ASSERT_EQ(panel.service->clients().size(), 1);
            EXPECT_EQ(panel.service->isApproved(panel.service->clients().front().id), c.approved);
        } else {
            EXPECT_TRUE(result.detail.contains(QStringLiteral("code"))) << result.detail.toStdString();
        }
        EXPECT_FALSE(panel.service->knownDevices().contains(stranger.session.ownKeyId()));
        stranger.session.logout();

        // A PC that proved the code once is let in by its key from then on.
        Pc friendly;
        ASSERT_EQ(friendly.login(panel.port(), QString::fromLatin1(kCode)).error, 0u);
        friendly.session.logout();
        EXPECT_TRUE(QTest::qWaitFor([&] { return panel.service->clients().isEmpty(); }, 2000));
        const auto again = friendly.login(panel.port(), QString(), QString::fromLatin1(kPanelName));
        EXPECT_EQ(again.error, 0u) << again.detail.toStdString();
        EXPECT_TRUE(again.welcome.approved());
        friendly.session.logout();
    }

    // Under approve, the panel user's yes makes the PC known.
    Panel panel(zv::PanelAccess::Approve);
    Pc asking;
    ASSERT_EQ(asking.login(panel.port(), QString()).error, 0u);
    const qint64 id = panel.service->clients().front().id;
    panel.service->approve(id);
    EXPECT_TRUE(panel.service->isApproved(id));
    EXPECT_TRUE(panel.service->knownDevices().contains(asking.session.ownKeyId()));
    asking.session.logout();
}

TEST_F(LoginHandshake, APanelWithAnotherKeyUnderAKnownNameIsRefusedUntilTheCodeProvesIt) {
    Pc pc;
    QTemporaryDir firstInstall, secondInstall;
    QString firstKey;
    {
        Panel panel(zv::PanelAccess::Open, QString::fromLatin1(kCode), firstInstall.path());
        firstKey = panel.identity->keyId;
        ASSERT_EQ(pc.login(panel.port(), QString::fromLatin1(kCode)).error, 0u);
        pc.session.logout();
    }
    // Reinstalled: same name, new key. Without a code the pin refuses it.
    Panel panel(zv::PanelAccess::Open, QString::fromLatin1(kCode), secondInstall.path());
    ASSERT_NE(panel.identity->keyId, firstKey);
    const auto refused = pc.login(panel.port(), QString(), QString::fromLatin1(kPanelName));
    EXPECT_EQ(refused.error, zv_error::CONNECT_FAILED);
    EXPECT_TRUE(refused.detail.contains(QStringLiteral("forget --panel"))) << refused.detail.toStdString();
    EXPECT_TRUE(refused.detail.contains(zv::shortKeyId(firstKey))) << refused.detail.toStdString();
    EXPECT_TRUE(refused.detail.contains(zv::shortKeyId(panel.identity->keyId))) << refused.detail.toStdString();
    EXPECT_TRUE(panel.service->clients().isEmpty()) << "refused before the hello";

    // The code proves the new key: the pin is replaced.
    ASSERT_EQ(pc.login(panel.port(), QString::fromLatin1(kCode)).error, 0u);
    pc.session.logout();
    EXPECT_EQ(pc.known->byName(QString::fromLatin1(kPanelName))->key, panel.identity->keyId);
    EXPECT_EQ(pc.login(panel.port(), QString(), QString::fromLatin1(kPanelName)).error, 0u);
    pc.session.logout();
    // Or the user forgets the pin.
    EXPECT_EQ(pc.known->forgetName(QString::fromLatin1(kPanelName)), 1);
}

TEST_F(LoginHandshake, ResumeTokenWorksOnlyWithTheSamePcKeyAndMessagesOutOfOrderClose) {
    Panel panel(zv::PanelAccess::Open);
    Pc owner, thief;
    const auto login = owner.login(panel.port(), QString::fromLatin1(kCode));
    ASSERT_EQ(login.error, 0u);
    const std::string token = login.welcome.resume();

    // Another PC that learned the token gets no session.
    std::unique_ptr<zv::MessageChannel> channel(connectFrom(QStringLiteral("127.0.0.1"), panel.port(), thief.credentials()));
    ASSERT_TRUE(channel);
    zv::wire::Hello hello = helloOf("thief");
    hello.set_auth(zv::wire::Hello::KNOWN);
    hello.set_resume(token);
    const auto answer = answerTo(channel.get(), zv::wrap(hello));
    ASSERT_TRUE(answer && answer->has_refused());
    EXPECT_EQ(answer->refused().reason(), Refused::UNKNOWN_SESSION);
    EXPECT_EQ(panel.service->clients().size(), 1);

    // The owner resumes on a new connection with its own key.
    bool reconnected = false, done = false;
    owner.session.reconnect([&](bool ok) { reconnected = ok, done = true; });
    ASSERT_TRUE(QTest::qWaitFor([&] { return done; }, kWaitMs));
    EXPECT_TRUE(reconnected);
    EXPECT_EQ(panel.service->clients().size(), 1);
    owner.session.logout();

    // Before the welcome only hello and pake_confirm are taken.
    std::unique_ptr<zv::MessageChannel> early(connectFrom(QStringLiteral("127.0.0.1"), panel.port(), thief.credentials()));
    ASSERT_TRUE(early);
    QStringList closed;
    QObject::connect(early.get(), &zv::MessageChannel::closed, [&](const QString& r) { closed << r; });
    zv::wire::PakeConfirm confirm;
    confirm.set_tag(std::string(64, '\0'));
    early->send(zv::wrap(confirm));
    EXPECT_TRUE(QTest::qWaitFor([&] { return !closed.isEmpty(); }, kWaitMs));
    EXPECT_EQ(panel.service->tryBudget().failures(), 0);
}

TEST_F(LoginHandshake, TwentyWrongTriesReplaceAGeneratedCode) {
    Panel panel(zv::PanelAccess::Open, QString());
    Pc guesser;
    const zv::TlsCredentials credentials = guesser.credentials();
    QSignalSpy renewed(panel.codes.get(), &receiver::CodeKeeper::codeChanged);
    const QString first = panel.codes->code();
    // One wrong try from each of 20 addresses: the per-source limit never
    // bites, the panel's budget does.
    for (int i = 0; i < receiver::TryBudget::kBudget; ++i) {
        std::unique_ptr<zv::MessageChannel> channel(
            connectFrom(QStringLiteral("127.0.0.%1").arg(10 + i), panel.port(), credentials));
        ASSERT_TRUE(channel);
        auto proof = zv::CodeProof::start(zv::CPace::Role::Initiator, QStringLiteral("AAAAAAAA"), channel->exporter(),
                                          channel->peerKeyHash(), channel->ownKeyHash());
        ASSERT_TRUE(proof);
        zv::wire::Hello hello = helloOf("guess");
        hello.set_auth(zv::wire::Hello::CODE);
        hello.set_pake_share(proof->share().toStdString());
        const auto reply = answerTo(channel.get(), zv::wrap(hello));
        ASSERT_TRUE(reply && reply->has_pake_reply()) << i;
        ASSERT_TRUE(proof->takePeerShare(QByteArray::fromStdString(reply->pake_reply().share())));
        EXPECT_FALSE(proof->verifyPeerTag(QByteArray::fromStdString(reply->pake_reply().tag())));
        EXPECT_EQ(renewed.count(), i + 1 < receiver::TryBudget::kBudget ? 0 : 1) << i;
    }
    EXPECT_NE(panel.codes->code(), first);
    EXPECT_EQ(panel.service->tryBudget().failures(), 0) << "a new code, a new budget";
}

TEST(TryBudget, AFixedCodeLocksCodeTriesOutDoublingFromThirtySeconds) {
    qint64 now = 0;
    receiver::TryBudget budget(true, [&] { return now; });
    std::vector<qint64> locks;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < receiver::TryBudget::kBudget - 1; ++i) EXPECT_FALSE(budget.recordFailure());
        budget.cancelFailure();  // a right try in between gives one back
        EXPECT_FALSE(budget.recordFailure());
        EXPECT_TRUE(budget.mayTry());
        EXPECT_TRUE(budget.recordFailure());
        qint64 retry = 0;
        EXPECT_FALSE(budget.mayTry(&retry));
        locks.push_back(retry);
        now += retry;
        EXPECT_TRUE(budget.mayTry());
    }
    EXPECT_EQ(locks, (std::vector<qint64>{30000, 60000, 120000}));
}

}  // namespace
