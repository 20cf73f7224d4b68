// Flood limits of the panel's side, over real sockets on loopback (sources
// 127.0.0.x, each its own address): connections waiting for their session,
// sessions per address, the work one connection may take per event-loop
// turn, and the message rate that closes a connection.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QPointer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

#include <memory>
#include <optional>
#include <vector>

#include "CodeKeeper.h"
#include "PanelService.h"
#include "protocol/WireCodec.h"
#include "transport/MessageChannel.h"
#include "transport/TlsEngine.h"
#include "transport/TlsHandshake.h"
#include "transport/TlsIdentity.h"

namespace {

using namespace zv;

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_panel_limits";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

template <typename Pred>
bool waitFor(Pred pred, int timeoutMs = 10000) {
    const QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired()) return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

QHostAddress loopback(int last) { return QHostAddress(QStringLiteral("127.0.0.%1").arg(last)); }

// A plain TCP connection from source, which never starts TLS: it waits in
// the handshake until the server's time-out (or is turned away at once).
std::unique_ptr<QTcpSocket> rawFrom(int source, quint16 port, bool expectHeld = true) {
    auto socket = std::make_unique<QTcpSocket>();
    EXPECT_TRUE(socket->bind(loopback(source), 0));
    socket->connectToHost(QHostAddress::LocalHost, port);
    if (expectHeld) {
        EXPECT_TRUE(waitFor([&] { return socket->state() == QAbstractSocket::ConnectedState; }));
    }
    return socket;
}

// Whether the server closed this connection (it reads end of stream).
bool closedByServer(QTcpSocket& socket, int timeoutMs = 3000) {
    return waitFor([&] { return socket.state() == QAbstractSocket::UnconnectedState; }, timeoutMs);
}

// The PC's identity every test client shows.
const TlsCredentials& pcCredentials() {
    static QTemporaryDir dir;
    static const TlsCredentials credentials = [] {
        const auto pc = loadOrCreateTlsIdentity(dir.path(), QStringLiteral("Limits PC"), kPcIdentity);
        return pc ? TlsCredentials::of(pc->privateKey, pc->certificate) : TlsCredentials{};
    }();
    return credentials;
}

// A TLS channel from source to 127.0.0.1:port; nullptr when the server
// closed the connection instead. With TLS 1.3 the client's handshake ends
// before the server has read its last flight: a turned-away connection may
// show as a channel that closes at once.
std::unique_ptr<MessageChannel> tlsFrom(int source, quint16 port) {
    auto* socket = new QTcpSocket;
    EXPECT_TRUE(socket->bind(loopback(source), 0));
    bool done = false;
    MessageChannel* channel = nullptr;
    runTlsHandshake(socket,
                    std::make_unique<TlsEngine>(TlsEngine::Mode::Client, pcCredentials().privateKeyPem,
                                                pcCredentials().certificatePem),
                    5000, QStringLiteral("no handshake"), [&](MessageChannel* c, const QString&) {
                        done = true;
                        channel = c;
                    });
    socket->connectToHost(QHostAddress::LocalHost, port);
    EXPECT_TRUE(waitFor([&] { return done; }));
    if (channel == nullptr) return nullptr;
    std::unique_ptr<MessageChannel> result(channel);
    bool closed = false;
    QObject::connect(channel, &MessageChannel::closed, [&closed] { closed = true; });
    // The server's first word, if it turned us away: the end of the stream.
    waitFor([&] { return closed; }, 200);
    QObject::disconnect(channel, &MessageChannel::closed, nullptr, nullptr);
    return closed ? nullptr : std::move(result);
}

class PanelLimits : public ::testing::Test {
protected:
    void SetUp() override {
        ensureApp();
        ASSERT_TRUE(dir.isValid());
        identity = loadOrCreateTlsIdentity(dir.path(), QStringLiteral("Limits panel"));
        ASSERT_TRUE(identity);
    }

    QTemporaryDir dir;
    std::optional<TlsIdentity> identity;
};

TEST_F(PanelLimits, ConnectionsWaitingForTheirSessionAreCappedPerSourceAndInAll) {
    TlsServer server(identity->privateKey, identity->certificate);
    ASSERT_TRUE(server.listen(QHostAddress::Any, 0));
    server.setHandshakeTimeoutMs(60000);  // the silent ones stay for the whole test
    std::vector<MessageChannel*> accepted;
    QObject::connect(&server, &TlsServer::newChannel, [&](MessageChannel* c) { accepted.push_back(c); });

    // Four from one address wait in the handshake; the fifth is closed at once.
    std::vector<std::unique_ptr<QTcpSocket>> held;
    for (int i = 0; i < TlsServer::kDefaultMaxWaitingPerSource; ++i) held.push_back(rawFrom(2, server.serverPort()));
    ASSERT_TRUE(waitFor([&] { return server.waitingFrom(loopback(2)) == TlsServer::kDefaultMaxWaitingPerSource; }));
    auto fifth = rawFrom(2, server.serverPort(), false);
    EXPECT_TRUE(closedByServer(*fifth));
    EXPECT_EQ(server.turnedAway(), 1u);
    for (const auto& socket : held) EXPECT_EQ(socket->state(), QAbstractSocket::ConnectedState);

    // Other addresses fill the rest of the overall cap, then nobody gets in.
    for (int source = 3; server.waiting() < TlsServer::kDefaultMaxWaiting; ++source) {
        for (int i = 0; i < TlsServer::kDefaultMaxWaitingPerSource && server.waiting() < TlsServer::kDefaultMaxWaiting; ++i) {
            const int before = server.waiting();
            held.push_back(rawFrom(source, server.serverPort()));
            ASSERT_TRUE(waitFor([&] { return server.waiting() == before + 1; }));
        }
    }
    auto overAll = rawFrom(200, server.serverPort(), false);
    EXPECT_TRUE(closedByServer(*overAll));
    EXPECT_EQ(server.turnedAway(), 2u);

    // A connection that goes away frees its place.
    held.front()->abort();
    ASSERT_TRUE(waitFor([&] { return server.waiting() < TlsServer::kDefaultMaxWaiting; }, 3000));
    held.clear();
    ASSERT_TRUE(waitFor([&] { return server.waiting() == 0; }));

    // Past the handshake a channel waits until settled; closing frees it too.
    std::vector<std::unique_ptr<MessageChannel>> clients;
    for (int i = 0; i < TlsServer::kDefaultMaxWaitingPerSource; ++i) {
        clients.push_back(tlsFrom(7, server.serverPort()));
        ASSERT_TRUE(clients.back());
    }
    ASSERT_TRUE(waitFor([&] { return accepted.size() == 4; }));
    EXPECT_EQ(server.waitingFrom(loopback(7)), 4);
    EXPECT_EQ(server.pendingHandshakes(), 0);
    EXPECT_FALSE(tlsFrom(7, server.serverPort())) << "a fifth TLS connection from one address";
    server.settled(accepted[0]);
    accepted[1]->close(QStringLiteral("done with it"));
    EXPECT_TRUE(waitFor([&] { return server.waitingFrom(loopback(7)) == 2; }));
    server.settled(accepted[0]);  // twice is harmless
    EXPECT_EQ(server.waitingFrom(loopback(7)), 2);
    auto again = tlsFrom(7, server.serverPort());
    EXPECT_TRUE(again);
    ASSERT_TRUE(waitFor([&] { return accepted.size() == 5; }));
    delete accepted[4];  // a destroyed channel frees its place as well
    EXPECT_EQ(server.waitingFrom(loopback(7)), 2);
    for (size_t i = 0; i < 4; ++i) delete accepted[i];
    EXPECT_EQ(server.waiting(), 0);
}

TEST_F(PanelLimits, SessionsPerAddressAreLimitedAndAHelloSettlesItsConnection) {
    receiver::CodeKeeper codes{0x7f000001, QStringLiteral("7K3M9Q2T"), 0};
    receiver::PanelService::Settings settings;
    settings.name = QStringLiteral("Limits panel");
    settings.listenAddress = QHostAddress::Any;
    settings.port = 0;
    settings.maxClients = 8;
    receiver::PanelService panel(settings, identity->privateKey, identity->certificate, identity->panelKey, &codes);
    QString error;
    ASSERT_TRUE(panel.start(&error)) << error.toStdString();

    // Says hello from source; the panel's answer (welcome or refused).
    std::vector<std::unique_ptr<MessageChannel>> links;
    auto hello = [&](int source) {
        links.push_back(tlsFrom(source, panel.port()));
        if (!links.back()) return wire::Envelope();
        std::optional<wire::Envelope> answer;
        QObject::connect(links.back().get(), &MessageChannel::messageReceived,
                         [&answer](const wire::Envelope& e) { answer = e; });
        wire::Hello body;
        body.set_major(kProtocolMajor);
        body.set_minor(kProtocolMinor);
        body.set_host("limits");
        links.back()->send(wrap(body));
        EXPECT_TRUE(waitFor([&] { return answer.has_value(); }));
        return answer.value_or(wire::Envelope());
    };

    EXPECT_TRUE(hello(2).has_welcome());
    EXPECT_TRUE(hello(2).has_welcome());
    const wire::Envelope third = hello(2);
    ASSERT_TRUE(third.has_refused());
    EXPECT_EQ(third.refused().reason(), wire::Refused::TOO_MANY_CLIENTS);
    EXPECT_EQ(third.refused().text(), "this panel takes 2 sessions from one address");
    EXPECT_TRUE(hello(3).has_welcome()) << "another address is not held back";
    EXPECT_EQ(panel.clients().size(), 3);

    // Four connections without hello from one address; a fifth is closed at
    // once; once one of them is in a session, another may come.
    std::vector<std::unique_ptr<MessageChannel>> silent;
    for (int i = 0; i < 3; ++i) silent.push_back(tlsFrom(4, panel.port()));
    for (const auto& link : silent) ASSERT_TRUE(link);
    EXPECT_TRUE(hello(4).has_welcome());
    silent.push_back(tlsFrom(4, panel.port()));
    ASSERT_TRUE(silent.back()) << "a session must not count as waiting";
    EXPECT_FALSE(tlsFrom(4, panel.port()));
}

// A server-side channel and its client over TLS on loopback.
struct ChannelPair {
    std::unique_ptr<TlsServer> server;
    std::unique_ptr<MessageChannel> client;
    QPointer<MessageChannel> accepted;

    explicit ChannelPair(const TlsIdentity& identity) {
        server = std::make_unique<TlsServer>(identity.privateKey, identity.certificate);
        EXPECT_TRUE(server->listen(QHostAddress::LocalHost, 0));
        QObject::connect(server.get(), &TlsServer::newChannel, [this](MessageChannel* c) { accepted = c; });
        client = tlsFrom(1, server->serverPort());
        EXPECT_TRUE(client);
        EXPECT_TRUE(waitFor([this] { return !accepted.isNull(); }));
    }
};

TEST_F(PanelLimits, OneBusyPeerSharesTheThreadAndAFloodingPeerIsClosed) {
    ChannelPair pair(*identity);
    ASSERT_TRUE(pair.client && pair.accepted);
    MessageChannel& server = *pair.accepted;
    int received = 0;
    int receivedWhenOthersRan = -1;
    QStringList closed;
    QObject::connect(&server, &MessageChannel::messageReceived, [&](const wire::Envelope&) {
        // Something else this thread has to do, asked for at the first message.
        if (received++ == 0) QTimer::singleShot(0, [&] { receivedWhenOthersRan = received; });
    });
    QObject::connect(&server, &MessageChannel::closed, [&](const QString& reason) { closed << reason; });

    // 300 messages in one write, under the rate limit: all arrive, in turns.
    constexpr int kBurst = 300;
    static_assert(kBurst < MessageChannel::kDefaultMaxMessagesPerSecond);
    QByteArray burst;
    wire::Report report;
    report.set_event("tick");
    for (int i = 0; i < kBurst; ++i) burst += encodeFrame(wrap(report));
    pair.client->sendRawForTesting(burst);
    ASSERT_TRUE(waitFor([&] { return received == kBurst; }));
    EXPECT_GT(receivedWhenOthersRan, 0);
    EXPECT_LE(receivedWhenOthersRan, MessageChannel::kMaxMessagesPerTurn)
        << "the other work waited for the whole burst";
    EXPECT_TRUE(server.isOpen());
    EXPECT_TRUE(closed.isEmpty());

    // Heartbeats count too: past the limit within a second the peer is closed.
    QByteArray flood;
    for (int i = 0; i < MessageChannel::kDefaultMaxMessagesPerSecond + 50; ++i) {
        wire::Envelope beat;
        beat.mutable_heartbeat()->set_seq(i);
        flood += encodeFrame(beat);
    }
    pair.client->sendRawForTesting(flood);
    ASSERT_TRUE(waitFor([&] { return !closed.isEmpty(); }));
    EXPECT_TRUE(closed[0].startsWith(QStringLiteral("protocol error: flooding: more than 400 messages in a second")))
        << closed[0].toStdString();
    EXPECT_TRUE(waitFor([&] { return !pair.client->isOpen(); }));
}

}  // namespace
