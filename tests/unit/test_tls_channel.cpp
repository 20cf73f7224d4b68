// Transport over real sockets on loopback: the panel identity on disk, trust
// on first use, TLS channels with heartbeats and orderly ends, hostile
// clients, connect failures, and the wrong-code limiter.
#include <gtest/gtest.h>

#include <glog/logging.h>
#include <sys/stat.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "protocol/WireCodec.h"
#include "security/KeyId.h"
#include "transport/KnownPanels.h"
#include "transport/MessageChannel.h"
#include "transport/RateLimiter.h"
#include "transport/TlsIdentity.h"

namespace {

using namespace zv;

// ---- shared scaffolding

class QtEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        static int argc = 1;
        static char name[] = "test_tls_channel";
        static char* argv[] = {name, nullptr};
        if (!QCoreApplication::instance()) app_ = std::make_unique<QCoreApplication>(argc, argv);
    }
    void TearDown() override { app_.reset(); }

private:
    std::unique_ptr<QCoreApplication> app_;
};
[[maybe_unused]] auto* const g_qtEnvironment = ::testing::AddGlobalTestEnvironment(new QtEnvironment);

// Keeps the warning lines glog is given, to check that reasons are logged.
class WarningSink : public google::LogSink {
public:
    using google::LogSink::send;
    void send(google::LogSeverity severity, const char*, const char*, int, const google::LogMessageTime&,
              const char* message, size_t length) override {
        if (severity < google::GLOG_WARNING) return;
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.emplace_back(message, length);
    }
    bool contains(const std::string& a, const std::string& b = {}) {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& line : lines_)
            if (line.find(a) != std::string::npos && line.find(b) != std::string::npos) return true;
        return false;
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;
};

// Runs the event loop until pred holds or the deadline passes.
template <typename Pred>
bool waitFor(Pred pred, int timeoutMs = 15000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired()) return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

// Everything one channel reported.
struct ChannelLog {
    QPointer<MessageChannel> channel;
    std::vector<wire::Envelope> messages;
    QVector<qint64> heartbeats;
    QVector<int> missed;
    int alive = 0;
    QStringList closed;

    explicit ChannelLog(MessageChannel* c) : channel(c) {
        QObject::connect(c, &MessageChannel::messageReceived, c, [this](const wire::Envelope& m) { messages.push_back(m); });
        QObject::connect(c, &MessageChannel::heartbeatReceived, c, [this](qint64 seq) { heartbeats.append(seq); });
        QObject::connect(c, &MessageChannel::heartbeatMissed, c, [this](int n) { missed.append(n); });
        QObject::connect(c, &MessageChannel::alive, c, [this] { ++alive; });
        QObject::connect(c, &MessageChannel::closed, c, [this](const QString& r) { closed.append(r); });
    }
    ~ChannelLog() { delete channel.data(); }
};

struct TlsFixture {
    QTemporaryDir dir;
    TlsIdentity identity;
    std::unique_ptr<TlsServer> server;
    std::vector<std::unique_ptr<ChannelLog>> accepted;
    QStringList handshakeFailures;

    TlsFixture() {
        identity = *loadOrCreateTlsIdentity(dir.path(), QStringLiteral("Test panel"));
        server = std::make_unique<TlsServer>(identity.privateKey, identity.certificate);
        QObject::connect(server.get(), &TlsServer::newChannel, server.get(),
                         [this](MessageChannel* c) { accepted.push_back(std::make_unique<ChannelLog>(c)); });
        QObject::connect(server.get(), &TlsServer::handshakeFailed, server.get(),
                         [this](const QString& peer, const QString& reason) { handshakeFailures << peer + " " + reason; });
        EXPECT_TRUE(server->listen(QHostAddress::LocalHost, 0));
    }
    ~TlsFixture() {
        accepted.clear();
        server.reset();
    }
    quint16 port() const { return server->serverPort(); }
};

// The PC's identity every test client shows.
const TlsCredentials& pcCredentials() {
    static QTemporaryDir dir;
    static const TlsCredentials credentials = [] {
        const auto pc = loadOrCreateTlsIdentity(dir.path(), QStringLiteral("Test PC"), kPcIdentity);
        return pc ? TlsCredentials::of(pc->privateKey, pc->certificate) : TlsCredentials{};
    }();
    return credentials;
}

struct ConnectOutcome {
    bool done = false;
    MessageChannel* channel = nullptr;
    QString error;
};

std::shared_ptr<ConnectOutcome> startConnect(quint16 port, int timeoutMs, QObject* context) {
    auto outcome = std::make_shared<ConnectOutcome>();
    MessageChannel::connectTls(QStringLiteral("127.0.0.1"), port, timeoutMs, pcCredentials(), context,
                               [outcome](MessageChannel* c, const QString& e) {
                                   outcome->done = true;
                                   outcome->channel = c;
                                   outcome->error = e;
                               });
    return outcome;
}

std::unique_ptr<ChannelLog> connectClient(quint16 port, QObject* context) {
    auto outcome = startConnect(port, 5000, context);
    EXPECT_TRUE(waitFor([&] { return outcome->done; }));
    EXPECT_TRUE(outcome->channel) << outcome->error.toStdString();
    return outcome->channel ? std::make_unique<ChannelLog>(outcome->channel) : nullptr;
}

wire::Envelope sampleHello() {
    wire::Hello hello;
    hello.set_major(kProtocolMajor);
    hello.set_auth(wire::Hello::KNOWN);
    hello.set_host("desk");
    return wrap(hello);
}

wire::Envelope report(const std::string& event, const std::string& detail = std::string()) {
    wire::Report body;
    body.set_event(event);
    body.set_detail(detail);
    return wrap(body);
}

wire::Envelope resolve(const std::string& passcode) {
    wire::Resolve body;
    body.set_passcode(passcode);
    return wrap(body);
}

wire::Envelope resolved(const std::string& address, int port, const std::string& name) {
    wire::Resolved body;
    body.set_address(address);
    body.set_port(port);
    body.set_name(name);
    return wrap(body);
}

// ---- identity

TEST(TlsIdentity, IsCreatedOnceAndReloadedTheSame) {
    QTemporaryDir dir;
    const QString folder = dir.filePath(QStringLiteral("config/zelvanor"));
    QString error;
    const auto first = loadOrCreateTlsIdentity(folder, QStringLiteral("Room 4 — Ünïcode"), &error);
    ASSERT_TRUE(first) << error.toStdString();

    const QString keyPath = folder + QStringLiteral("/panel-key.pem");
    struct stat st {};
    ASSERT_EQ(::stat(QFile::encodeName(keyPath).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    EXPECT_TRUE(QFile::exists(folder + QStringLiteral("/panel-cert.pem")));

    EXPECT_EQ(first->certificate.subjectInfo(QSslCertificate::CommonName).value(0), QStringLiteral("Room 4 — Ünïcode"));
    EXPECT_EQ(first->privateKey.algorithm(), QSsl::Ec);
    EXPECT_EQ(first->privateKey.length(), 256);
    EXPECT_TRUE(first->certificate.isSelfSigned());
    const int validDays = int(first->certificate.effectiveDate().daysTo(first->certificate.expiryDate()));
    EXPECT_GE(validDays, 20 * 365);
    EXPECT_LE(validDays, 20 * 366);

    // The panel key: 16 lowercase hex digits of SHA-256 over the DER public key.
    ASSERT_EQ(first->panelKey.size(), 16);
    EXPECT_EQ(first->panelKey, first->panelKey.toLower());
    const QByteArray spki = first->certificate.publicKey().toDer();
    EXPECT_EQ(first->panelKey,
              QString::fromLatin1(QCryptographicHash::hash(spki, QCryptographicHash::Sha256).toHex().left(16)));
    EXPECT_EQ(panelKeyOf(first->certificate), first->panelKey);
    EXPECT_TRUE(panelKeyOf(QSslCertificate()).isEmpty());

    const auto again = loadOrCreateTlsIdentity(folder, QStringLiteral("Room 4 — Ünïcode"));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->panelKey, first->panelKey);
    EXPECT_EQ(again->certificate, first->certificate);
    EXPECT_EQ(again->privateKey.toPem(), first->privateKey.toPem());

    // A new name re-issues the certificate; the key, and so the panel key, stay.
    const auto renamed = loadOrCreateTlsIdentity(folder, QStringLiteral("Room 5"));
    ASSERT_TRUE(renamed);
    EXPECT_EQ(renamed->panelKey, first->panelKey);
    EXPECT_EQ(renamed->certificate.subjectInfo(QSslCertificate::CommonName).value(0), QStringLiteral("Room 5"));
    EXPECT_NE(renamed->certificate.serialNumber(), first->certificate.serialNumber());

    // Names longer than a CN may be are cut, not refused.
    const auto longName = loadOrCreateTlsIdentity(folder, QString(100, QLatin1Char('n')));
    ASSERT_TRUE(longName);
    EXPECT_EQ(longName->certificate.subjectInfo(QSslCertificate::CommonName).value(0).size(), 64);
}

TEST(TlsIdentity, BrokenFilesAreKeptAsideAndReplaced) {
    QTemporaryDir dir;
    const QString folder = dir.path();
    const QString keyPath = folder + QStringLiteral("/panel-key.pem");
    const QString certPath = folder + QStringLiteral("/panel-cert.pem");
    auto asideFiles = [&](const char* prefix) {
        return QDir(folder).entryList({QLatin1String(prefix) + QStringLiteral(".broken-*")}, QDir::AllEntries | QDir::System);
    };
    const auto original = loadOrCreateTlsIdentity(folder, QStringLiteral("P"));
    ASSERT_TRUE(original);

    // A key file cut in half: kept aside as it was, a new identity made.
    QFile keyFile(keyPath);
    ASSERT_TRUE(keyFile.open(QIODevice::ReadOnly));
    const QByteArray truncated = keyFile.readAll().left(60);
    keyFile.close();
    ASSERT_TRUE(keyFile.open(QIODevice::WriteOnly | QIODevice::Truncate));
    keyFile.write(truncated);
    keyFile.close();

    const auto fresh = loadOrCreateTlsIdentity(folder, QStringLiteral("P"));
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh->panelKey, original->panelKey);
    const QStringList aside = asideFiles("panel-key.pem");
    ASSERT_EQ(aside.size(), 1);
    QFile kept(QDir(folder).filePath(aside[0]));
    ASSERT_TRUE(kept.open(QIODevice::ReadOnly));
    EXPECT_EQ(kept.readAll(), truncated);
    EXPECT_EQ(loadOrCreateTlsIdentity(folder, QStringLiteral("P"))->panelKey, fresh->panelKey);

    // A certificate that belongs to another key: kept aside, re-issued for
    // our key, so the panel key does not change.
    QTemporaryDir other;
    ASSERT_TRUE(loadOrCreateTlsIdentity(other.path(), QStringLiteral("P")));
    ASSERT_TRUE(QFile::remove(certPath));
    ASSERT_TRUE(QFile::copy(other.filePath(QStringLiteral("panel-cert.pem")), certPath));
    const auto recertified = loadOrCreateTlsIdentity(folder, QStringLiteral("P"));
    ASSERT_TRUE(recertified);
    EXPECT_EQ(recertified->panelKey, fresh->panelKey);
    EXPECT_EQ(asideFiles("panel-cert.pem").size(), 1);

    // A key "file" that cannot be read at all (here a folder; the tests may
    // run as root, for whom modes do not stop reading).
    ASSERT_TRUE(QFile::remove(keyPath));
    ASSERT_TRUE(QDir().mkpath(keyPath));
    const auto replaced = loadOrCreateTlsIdentity(folder, QStringLiteral("P"));
    ASSERT_TRUE(replaced);
    EXPECT_TRUE(QFileInfo(keyPath).isFile());
    EXPECT_EQ(asideFiles("panel-key.pem").size(), 2);
}

// ---- known panels

QString keyIdFor(char fill) { return keyIdOfHash(QByteArray(kKeyHashBytes, fill)); }

TEST(KnownPanels, PinsByKeyReplacesAPinTheCodeProvedAndForgets) {
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("nested/zelvanor/known-panels"));
    KnownPanels known(path);
    const QString keyA = keyIdFor('a'), keyB = keyIdFor('b'), keyC = keyIdFor('c');
    EXPECT_FALSE(known.byName(QStringLiteral("Room 4")));

    // An older "address:port key" file pins nothing and is replaced at the first write.
    ASSERT_TRUE(QDir().mkpath(QFileInfo(path).absolutePath()));
    QFile old(path);
    ASSERT_TRUE(old.open(QIODevice::WriteOnly));
    old.write("10.0.0.9:47800 0123456789abcdef\n");
    old.close();
    EXPECT_TRUE(known.entries().isEmpty());

    ASSERT_TRUE(known.remember({keyA, QStringLiteral("Room 4"), QStringLiteral("10.0.0.9"), 47800, QStringLiteral("7K3M9Q2T"), 1000}));
    ASSERT_TRUE(known.remember({keyC, QStringLiteral("Hall"), QStringLiteral("10.0.0.7"), 47801, QStringLiteral("7K3M9Q2T"), 2000}));
    struct stat st {};
    ASSERT_EQ(::stat(QFile::encodeName(path).constData(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u) << "the file holds codes";

    // Another instance (another process) sees the same pins.
    KnownPanels reread(path);
    ASSERT_TRUE(reread.byName(QStringLiteral("Room 4")));
    EXPECT_EQ(reread.byName(QStringLiteral("Room 4"))->key, keyA);
    EXPECT_EQ(reread.byKey(keyC)->port, 47801);
    // The same code worked on two panels: the one seen last wins.
    EXPECT_EQ(reread.byCode(QStringLiteral("7K3M9Q2T"))->key, keyC);
    EXPECT_FALSE(reread.byCode(QStringLiteral("AAAAAAAA")));

    // A key exchange proved a new key for "Room 4": the pin is replaced, not added.
    ASSERT_TRUE(known.remember({keyB, QStringLiteral("Room 4"), QStringLiteral("10.0.0.10"), 47800, QStringLiteral("Q2T7K3M9"), 0}));
    EXPECT_EQ(known.byName(QStringLiteral("Room 4"))->key, keyB);
    EXPECT_FALSE(known.byKey(keyA));
    EXPECT_EQ(known.entries().size(), 2);
    EXPECT_GT(known.byKey(keyB)->seenMs, 0) << "a zero time is stamped now";

    // Lines that are no key id are ignored; forget removes by name.
    EXPECT_EQ(known.forgetName(QStringLiteral("Room 4")), 1);
    EXPECT_EQ(known.forgetName(QStringLiteral("Room 4")), 0);
    EXPECT_FALSE(known.byName(QStringLiteral("Room 4")));
    EXPECT_TRUE(known.byName(QStringLiteral("Hall")));

    const QByteArray savedXdg = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/tmp/xdg-test");
    EXPECT_EQ(KnownPanels::defaultPath(), QStringLiteral("/tmp/xdg-test/zelvanor/known-panels"));
    qunsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(KnownPanels::defaultPath(), QDir::homePath() + QStringLiteral("/.config/zelvanor/known-panels"));
    if (!savedXdg.isNull()) qputenv("XDG_CONFIG_HOME", savedXdg);
}

TEST(KnownPanels, ConcurrentRemembersAreAllRecorded) {
    QTemporaryDir dir;
    KnownPanels known(dir.filePath(QStringLiteral("known-panels")));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&known, t] {
            for (int i = 0; i < 8; ++i)
                known.remember({keyIdFor(char('A' + t * 8 + i)), QStringLiteral("p%1-%2").arg(t).arg(i),
                                QStringLiteral("10.0.%1.%2").arg(t).arg(i), 47800, QString(), 0});
        });
    }
    for (auto& thread : threads) thread.join();
    KnownPanels reread(known.path());
    EXPECT_EQ(reread.entries().size(), 32);
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 8; ++i) EXPECT_TRUE(reread.byKey(keyIdFor(char('A' + t * 8 + i)))) << t << "/" << i;
}

// ---- TLS channels

TEST(TlsChannel, ExchangesMessagesAndHeartbeatsOverLoopback) {
    TlsFixture f;
    QObject context;
    auto client = connectClient(f.port(), &context);
    ASSERT_TRUE(client);
    ASSERT_TRUE(waitFor([&] { return f.accepted.size() == 1; }));
    ChannelLog& server = *f.accepted[0];

    // What each side pins: the key of the certificate the other showed.
    EXPECT_TRUE(client->channel->isEncrypted());
    EXPECT_EQ(client->channel->peerKeyId(), f.identity.keyId);
    EXPECT_EQ(server.channel->peerKeyHash(), client->channel->ownKeyHash());
    EXPECT_EQ(server.channel->peerKeyId().size(), 43);
    EXPECT_EQ(server.channel->peerAddress(), QHostAddress(QHostAddress::LocalHost));
    // Both ends export the same bytes; another connection, other bytes; a
    // channel that is gone, none.
    const QByteArray label("EXPORTER-zelvanor-session");
    const QByteArray exported = client->channel->exporter()(label, QByteArray(), 32);
    EXPECT_EQ(exported.size(), 32);
    EXPECT_EQ(server.channel->exporter()(label, QByteArray(), 32), exported);
    {
        auto other = connectClient(f.port(), &context);
        ASSERT_TRUE(other);
        EXPECT_NE(other->channel->exporter()(label, QByteArray(), 32), exported);
        const keys::Exporter stale = other->channel->exporter();
        other.reset();
        EXPECT_TRUE(stale(label, QByteArray(), 32).isEmpty());
    }

    ASSERT_TRUE(client->channel->send(sampleHello()));
    ASSERT_TRUE(waitFor([&] { return server.messages.size() == 1; }));
    ASSERT_TRUE(server.messages[0].has_hello());
    EXPECT_EQ(server.messages[0].hello().auth(), wire::Hello::KNOWN);
    EXPECT_EQ(server.messages[0].version(), uint32_t(kProtocolMajor)) << "the channel stamps its major";

    // A panel pretending to be another major stamps that one.
    server.channel->setProtocolMajor(3);
    wire::Welcome welcome;
    welcome.set_session(77);
    welcome.mutable_panel()->set_key(f.identity.keyId.toStdString());
    ASSERT_TRUE(server.channel->send(wrap(welcome)));
    ASSERT_TRUE(waitFor([&] { return client->messages.size() == 1; }));
    EXPECT_EQ(client->messages[0].welcome().session(), 77);
    EXPECT_EQ(client->messages[0].version(), 3u);

    // Heartbeats both ways, in order, not delivered as messages.
    client->channel->startHeartbeat(20);
    server.channel->startHeartbeat(20);
    ASSERT_TRUE(waitFor([&] { return client->heartbeats.size() >= 3 && server.heartbeats.size() >= 3; }));
    EXPECT_EQ(client->heartbeats.mid(0, 3), (QVector<qint64>{0, 1, 2}));
    EXPECT_EQ(server.heartbeats.mid(0, 3), (QVector<qint64>{0, 1, 2}));
    EXPECT_EQ(client->messages.size(), 1u);

    // The panel falls silent: the client counts missed beats from 2 on, one
    // report per interval...
    server.channel->stopHeartbeat();
    client->missed.clear();
    ASSERT_TRUE(waitFor([&] { return client->missed.size() >= 2 && client->missed.back() >= 3; }));
    EXPECT_GE(*std::min_element(client->missed.begin(), client->missed.end()), 2);
    EXPECT_EQ(client->missed.back() - client->missed[client->missed.size() - 2], 1);
    EXPECT_TRUE(client->closed.isEmpty());
    // ... and hears it is alive when anything arrives.
    const int aliveBefore = client->alive;
    server.channel->send(report("StartScreen"));
    ASSERT_TRUE(waitFor([&] { return client->alive == aliveBefore + 1; }));
    EXPECT_EQ(client->channel->missedHeartbeats(), 0);
    EXPECT_EQ(client->messages.size(), 2u);

    // The panel removes the client: bye, then an orderly close on both sides.
    wire::Bye bye;
    bye.set_reason("logOutByServer");
    server.channel->send(wrap(bye));
    server.channel->close(QStringLiteral("removed by the panel's user"));
    ASSERT_TRUE(waitFor([&] { return !client->closed.isEmpty() && !server.closed.isEmpty(); }));
    EXPECT_EQ(client->messages.back().bye().reason(), "logOutByServer");
    EXPECT_EQ(client->closed, QStringList{QStringLiteral("peer closed the connection")});
    EXPECT_EQ(server.closed, QStringList{QStringLiteral("removed by the panel's user")});
    EXPECT_FALSE(client->channel->isOpen());
    EXPECT_FALSE(client->channel->send(wrap(wire::Heartbeat())));
    client->channel->close(QStringLiteral("again"));
    server.channel->close(QStringLiteral("again"));
    EXPECT_EQ(client->closed.size(), 1);
    EXPECT_EQ(server.closed.size(), 1);
    EXPECT_EQ(f.server->pendingHandshakes(), 0);
}

TEST(TlsChannel, HostileClientsAreDroppedAndTheServerKeepsServing) {
    WarningSink sink;
    google::AddLogSink(&sink);
    TlsFixture f;
    QObject context;

    // Not TLS at all: the handshake fails, is reported and the socket closed.
    QTcpSocket raw;
    raw.connectToHost(QHostAddress::LocalHost, f.port());
    ASSERT_TRUE(waitFor([&] { return raw.state() == QAbstractSocket::ConnectedState; }));
    raw.write("GET / HTTP/1.1\r\nHost: panel\r\n\r\n");
    ASSERT_TRUE(waitFor([&] { return f.handshakeFailures.size() == 1; }));
    EXPECT_TRUE(waitFor([&] { return raw.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_TRUE(f.handshakeFailures[0].startsWith(QStringLiteral("127.0.0.1:"))) << f.handshakeFailures[0].toStdString();
    EXPECT_TRUE(sink.contains("TLS handshake with 127.0.0.1:"));

    // Connected but silent: dropped when the handshake time-out ends.
    f.server->setHandshakeTimeoutMs(100);
    QTcpSocket silent;
    silent.connectToHost(QHostAddress::LocalHost, f.port());
    ASSERT_TRUE(waitFor([&] { return f.handshakeFailures.size() == 2; }));
    EXPECT_TRUE(f.handshakeFailures[1].contains(QStringLiteral("no handshake within 100 ms")));
    f.server->setHandshakeTimeoutMs(TlsServer::kDefaultHandshakeTimeoutMs);

    // TLS 1.2 is not enough.
    QSslSocket old;
    old.setProtocol(QSsl::TlsV1_2);
    old.setPeerVerifyMode(QSslSocket::VerifyNone);
    old.connectToHostEncrypted(QStringLiteral("127.0.0.1"), f.port());
    ASSERT_TRUE(waitFor([&] { return f.handshakeFailures.size() == 3; }));
    EXPECT_FALSE(old.isEncrypted());

    // TLS 1.3 without a client certificate: the panel must know who calls.
    QSslSocket anonymous;
    anonymous.setProtocol(QSsl::TlsV1_3);
    anonymous.setPeerVerifyMode(QSslSocket::VerifyNone);
    anonymous.connectToHostEncrypted(QStringLiteral("127.0.0.1"), f.port());
    ASSERT_TRUE(waitFor([&] { return f.handshakeFailures.size() == 4; }));
    EXPECT_TRUE(waitFor([&] { return anonymous.state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_TRUE(f.accepted.empty());

    // Inside TLS, bytes that are no valid stream of frames.
    struct Case {
        const char* name;
        QByteArray bytes;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {"text instead of frames", QByteArray("hello panel, let me in\n"), "exceeds the limit"},
        {"a frame announcing 2 MiB", QByteArray::fromHex("00200000") + QByteArray(1000, 'x'), "frame length 2097152"},
        {"a frame that is no envelope", QByteArray::fromHex("00000003616263"), "no envelope"},
        {"a field of wire type 7", QByteArray::fromHex("000000010f"), "no envelope"},
        {"a hello whose host is not UTF-8", QByteArray::fromHex("00000007820104" "2202fffe"), "no envelope"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto client = connectClient(f.port(), &context);
        ASSERT_TRUE(client);
        ASSERT_TRUE(waitFor([&] { return f.accepted.size() && f.accepted.back()->channel && f.accepted.back()->channel->peerPort() == client->channel->localPort(); }));
        ChannelLog& server = *f.accepted.back();
        // A valid message first: delivered before the bad bytes end the channel.
        client->channel->send(report("before"));
        client->channel->sendRawForTesting(c.bytes);
        ASSERT_TRUE(waitFor([&] { return !server.closed.isEmpty() && !client->closed.isEmpty(); }));
        EXPECT_EQ(server.messages.size(), 1u);
        EXPECT_TRUE(server.closed[0].startsWith(QStringLiteral("protocol error: ")));
        EXPECT_TRUE(server.closed[0].contains(QLatin1String(c.reason))) << server.closed[0].toStdString();
        EXPECT_EQ(client->closed[0], QStringLiteral("peer closed the connection"));
        EXPECT_TRUE(sink.contains(server.closed[0].toStdString(), "closing the connection with 127.0.0.1:"));
    }

    // After all that, a well-behaved client is served as usual.
    auto good = connectClient(f.port(), &context);
    ASSERT_TRUE(good);
    ASSERT_TRUE(waitFor([&] { return f.accepted.size() == cases.size() + 1; }));
    ChannelLog& server = *f.accepted.back();
    // A body from a later protocol version is no error: it is handed on
    // (for the reader's dispatcher to skip) and the channel stays open.
    good->channel->sendRawForTesting(QByteArray::fromHex("000000060802c20c0100"));
    good->channel->send(sampleHello());
    ASSERT_TRUE(waitFor([&] { return server.messages.size() == 2; }));
    EXPECT_EQ(server.messages[0].body_case(), wire::Envelope::BODY_NOT_SET);
    EXPECT_TRUE(server.messages[1].has_hello());
    EXPECT_TRUE(server.channel->isOpen());
    wire::Refused refused;
    refused.set_reason(wire::Refused::WRONG_CODE);
    refused.set_text("no");
    server.channel->send(wrap(refused));
    ASSERT_TRUE(waitFor([&] { return good->messages.size() == 1; }));
    EXPECT_EQ(good->messages[0].refused().reason(), wire::Refused::WRONG_CODE);
    EXPECT_EQ(f.server->pendingHandshakes(), 0);
    google::RemoveLogSink(&sink);
}

TEST(TlsChannel, ConnectFailuresAreReported) {
    // Nothing listens.
    quint16 closedPort = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
        closedPort = probe.serverPort();
    }
    QObject context;
    auto refused = startConnect(closedPort, 5000, &context);
    ASSERT_TRUE(waitFor([&] { return refused->done; }));
    EXPECT_EQ(refused->channel, nullptr);
    EXPECT_FALSE(refused->error.isEmpty());

    // Something accepts but never answers the handshake.
    QTcpServer mute;
    ASSERT_TRUE(mute.listen(QHostAddress::LocalHost, 0));
    std::vector<QTcpSocket*> farEnds;  // children of mute
    QObject::connect(&mute, &QTcpServer::newConnection, &mute, [&] {
        while (QTcpSocket* s = mute.nextPendingConnection()) farEnds.push_back(s);
    });
    auto timedOut = startConnect(mute.serverPort(), 150, &context);
    ASSERT_TRUE(waitFor([&] { return timedOut->done && farEnds.size() == 1; }));
    EXPECT_EQ(timedOut->channel, nullptr);
    EXPECT_EQ(timedOut->error, QStringLiteral("no answer within 150 ms"));

    // The context goes away mid-connect: the attempt ends without a call.
    auto* shortLived = new QObject;
    auto abandoned = startConnect(mute.serverPort(), 60000, shortLived);
    ASSERT_TRUE(waitFor([&] { return farEnds.size() == 2; }));
    delete shortLived;
    ASSERT_TRUE(waitFor([&] { return farEnds[1]->state() == QAbstractSocket::UnconnectedState; }));
    EXPECT_FALSE(abandoned->done);

    // The blocking form, failing and, against a server on another thread, working.
    QString error;
    EXPECT_EQ(MessageChannel::connectTlsBlocking(QStringLiteral("127.0.0.1"), closedPort, 2000, pcCredentials(), &error),
              nullptr);
    EXPECT_FALSE(error.isEmpty());

    QTemporaryDir dir;
    const auto identity = loadOrCreateTlsIdentity(dir.path(), QStringLiteral("threaded"));
    ASSERT_TRUE(identity);
    QThread thread;
    auto* server = new TlsServer(identity->privateKey, identity->certificate);
    server->moveToThread(&thread);
    QObject::connect(server, &TlsServer::newChannel, server, [](MessageChannel* c) {
        QObject::connect(c, &MessageChannel::messageReceived, c, [c](const wire::Envelope& m) {
            if (m.has_resolve()) c->send(resolved("10.0.0.9", 47800, "x"));
        });
    });
    thread.start();
    quint16 port = 0;
    QMetaObject::invokeMethod(
        server, [server, &port] { port = server->listen(QHostAddress::LocalHost, 0) ? server->serverPort() : 0; },
        Qt::BlockingQueuedConnection);
    ASSERT_NE(port, 0);
    std::unique_ptr<MessageChannel> channel(
        MessageChannel::connectTlsBlocking(QStringLiteral("127.0.0.1"), port, 5000, pcCredentials(), &error));
    ASSERT_TRUE(channel) << error.toStdString();
    ChannelLog log(channel.release());
    log.channel->send(resolve("AB12"));
    EXPECT_TRUE(waitFor([&] { return log.messages.size() == 1; }));
    EXPECT_EQ(log.channel->peerKeyId(), identity->keyId);
    server->deleteLater();  // runs in its thread, at the latest as the thread ends
    thread.quit();
    thread.wait();
}

// ---- plain channels (passcode service)

TEST(PlainChannel, DeliversEverythingTheSocketHadAndTheLastMessageBeforeAClose) {
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    auto* socket = new QTcpSocket;
    socket->connectToHost(QHostAddress::LocalHost, listener.serverPort());
    QTcpSocket* far = nullptr;
    ASSERT_TRUE(waitFor([&] {
        if (!far) far = listener.nextPendingConnection();
        return far && socket->state() == QAbstractSocket::ConnectedState;
    }));

    // Data that arrives before the channel exists, split over writes.
    wire::Registered registered;
    registered.set_passcode("AB12");
    registered.set_ttl(60);
    const QByteArray frames = encodeFrame(wrap(registered)) + encodeFrame(resolved("10.0.0.9", 47800, "Room"));
    far->write(frames.left(7));
    far->flush();
    ASSERT_TRUE(waitFor([&] { return socket->bytesAvailable() >= 7; }));
    ChannelLog client(new MessageChannel(socket));
    EXPECT_FALSE(client.channel->isEncrypted());
    EXPECT_TRUE(client.channel->peerKeyId().isEmpty());
    EXPECT_TRUE(client.channel->exporter()("EXPORTER-zelvanor-session", QByteArray(), 32).isEmpty());
    far->write(frames.mid(7));
    ASSERT_TRUE(waitFor([&] { return client.messages.size() == 2; }));
    EXPECT_EQ(client.messages[1].resolved().name(), "Room");

    // Too big to send: refused locally, the channel stays usable.
    EXPECT_FALSE(client.channel->send(report("x", std::string(kMaxFrameBytes, 'x'))));
    EXPECT_TRUE(client.channel->isOpen());
    EXPECT_TRUE(client.channel->send(resolve("AB12")));
    ASSERT_TRUE(waitFor([&] { return far->bytesAvailable() >= encodeFrame(resolve("AB12")).size(); }));

    // The service answers and hangs up at once: the answer still arrives first.
    wire::PasscodeError unknown;
    unknown.set_reason(wire::PasscodeError::UNKNOWN);
    far->write(encodeFrame(wrap(unknown)));
    far->disconnectFromHost();
    ASSERT_TRUE(waitFor([&] { return !client.closed.isEmpty(); }));
    ASSERT_EQ(client.messages.size(), 3u);
    EXPECT_EQ(client.messages[2].passcode_error().reason(), wire::PasscodeError::UNKNOWN);
    EXPECT_EQ(client.closed, QStringList{QStringLiteral("peer closed the connection")});
    delete far;
}

// ---- rate limiter

TEST(RateLimiter, LocksOutAfterFiveWrongAttemptsAndDoublesUpToFiveMinutes) {
    qint64 now = 1'000'000;
    RateLimiter limiter([&now] { return now; });
    const QString pc = QStringLiteral("10.0.0.5");
    const QString other = QStringLiteral("10.0.0.6");
    qint64 retry = -1;

    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(limiter.mayAttempt(pc, &retry));
        limiter.recordFailure(pc);
    }
    EXPECT_TRUE(limiter.mayAttempt(pc, &retry));
    EXPECT_EQ(retry, 0);
    limiter.recordFailure(pc);  // the fifth
    EXPECT_FALSE(limiter.mayAttempt(pc, &retry));
    EXPECT_EQ(retry, 2000);
    EXPECT_TRUE(limiter.mayAttempt(other));

    // Refused attempts are not counted and do not stretch the lock-out.
    limiter.recordFailure(pc);
    EXPECT_EQ(limiter.failures(pc), 5);
    now += 1999;
    EXPECT_FALSE(limiter.mayAttempt(pc, &retry));
    EXPECT_EQ(retry, 1);
    now += 1;
    EXPECT_TRUE(limiter.mayAttempt(pc));

    // Each further wrong attempt doubles the lock-out, up to 5 minutes.
    std::vector<qint64> locks;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(limiter.mayAttempt(pc));
        limiter.recordFailure(pc);
        limiter.mayAttempt(pc, &retry);
        locks.push_back(retry);
        now += retry - 1;
        ASSERT_FALSE(limiter.mayAttempt(pc));
        now += 1;
    }
    EXPECT_EQ(locks, (std::vector<qint64>{4000, 8000, 16000, 32000, 64000, 128000, 256000, 300000, 300000, 300000}));

    // A right code starts over.
    limiter.recordSuccess(pc);
    EXPECT_EQ(limiter.failures(pc), 0);
    for (int i = 0; i < 4; ++i) limiter.recordFailure(pc);
    EXPECT_TRUE(limiter.mayAttempt(pc));
    limiter.recordFailure(pc);
    EXPECT_FALSE(limiter.mayAttempt(pc, &retry));
    EXPECT_EQ(retry, 2000);

    // A source quiet for over an hour is forgotten.
    limiter.recordFailure(other);
    now += 2 * 60 * 60 * 1000;
    EXPECT_TRUE(limiter.mayAttempt(other));
    EXPECT_EQ(limiter.failures(other), 0);
}

}  // namespace
