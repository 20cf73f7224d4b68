// The passcode service with its clients, over real loopback connections.
// Time for expiry and lock-outs comes from a clock the test moves; waits are
// on conditions, each with a deadline.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>
#include <vector>

#include "passcode/PasscodeClient.h"
#include "passcode/PasscodeService.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "transport/MessageChannel.h"

namespace {

using zv::PasscodeClient;
using zv::PasscodeRegistration;
using zv::PasscodeService;
using Failure = PasscodeClient::Failure;

// Deadline for anything that should happen soon; only reached when broken.
constexpr int kWaitMs = 10000;
const QString kLoopback = QStringLiteral("127.0.0.1");

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_passcode_service";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

bool waitForSignal(QSignalSpy& spy, int count = 1) {
    return QTest::qWaitFor([&] { return spy.count() >= count; }, kWaitMs);
}

struct Outcome {
    int answers = 0;  // signals received
    bool ok = false;
    QString address;
    quint16 port = 0;
    QString name;
    Failure failure = Failure::Unreachable;
    QString detail;
};

Outcome resolveOnce(quint16 servicePort, const QString& passcode, int timeoutMs = kWaitMs) {
    PasscodeClient client;
    Outcome out;
    QObject::connect(&client, &PasscodeClient::resolved, [&](const QString& a, quint16 p, const QString& n) {
        ++out.answers;
        out.ok = true;
        out.address = a;
        out.port = p;
        out.name = n;
    });
    QObject::connect(&client, &PasscodeClient::failed, [&](Failure f, const QString& d) {
        ++out.answers;
        out.failure = f;
        out.detail = d;
    });
    client.resolve(kLoopback, servicePort, passcode, timeoutMs);
    EXPECT_EQ(out.answers, 0) << "resolve() must answer from the event loop";
    EXPECT_TRUE(client.isBusy());
    EXPECT_TRUE(QTest::qWaitFor([&] { return out.answers > 0; }, kWaitMs))
        << "no answer for " << passcode.toStdString();
    EXPECT_FALSE(client.isBusy());
    return out;
}

// A peer speaking the protocol by hand, optionally from another loopback address.
class RawPeer {
public:
    explicit RawPeer(quint16 port, const QString& from = QString()) {
        auto* socket = new QTcpSocket;
        if (!from.isEmpty()) socket->bind(QHostAddress(from));
        socket->connectToHost(QHostAddress(kLoopback), port);
        EXPECT_TRUE(socket->waitForConnected(kWaitMs)) << socket->errorString().toStdString();
        channel = std::make_unique<zv::MessageChannel>(socket);
        QObject::connect(channel.get(), &zv::MessageChannel::messageReceived,
                         [this](const zv::wire::Envelope& m) { answers.push_back(m); });
        QObject::connect(channel.get(), &zv::MessageChannel::closed, [this](const QString& r) {
            closed = true;
            closeReason = r;
        });
    }

    // Sends one request and returns the answer (empty when none came).
    zv::wire::Envelope request(const zv::wire::Envelope& message) {
        const size_t before = answers.size();
        EXPECT_TRUE(channel->send(message));
        (void)QTest::qWaitFor([&] { return answers.size() > before || closed; }, kWaitMs);
        return answers.size() > before ? answers[before] : zv::wire::Envelope();
    }

    zv::wire::Envelope registerPasscode(const std::string& passcode, const std::string& address, int port,
                                        const std::string& name, int ttl) {
        return request(registerRequest(passcode, address, port, name, ttl));
    }

    static zv::wire::Envelope registerRequest(const std::string& passcode, const std::string& address, int port,
                                              const std::string& name, int ttl) {
        zv::wire::Register body;
        body.set_passcode(passcode);
        body.set_address(address);
        body.set_port(port);
        body.set_name(name);
        body.set_ttl(ttl);
        return zv::wrap(body);
    }

    std::unique_ptr<zv::MessageChannel> channel;
    std::vector<zv::wire::Envelope> answers;
    bool closed = false;
    QString closeReason;
};

QString errorReason(const zv::wire::Envelope& answer) {
    return answer.has_passcode_error() ? zv::passcodeErrorName(answer.passcode_error().reason())
                                       : QStringLiteral("<%1>").arg(zv::bodyName(answer));
}

zv::wire::Envelope resolveRequest(const std::string& passcode) {
    zv::wire::Resolve body;
    body.set_passcode(passcode);
    return zv::wrap(body);
}

zv::wire::Envelope unregisterRequest(const std::string& passcode, const std::string& address) {
    zv::wire::Unregister body;
    body.set_passcode(passcode);
    body.set_address(address);
    return zv::wrap(body);
}

const QString kRegistered = QStringLiteral("registered");

class PasscodeServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        ensureApp();
        service = makeService(0);
        ASSERT_TRUE(service);
        port = service->port();
    }

    std::unique_ptr<PasscodeService> makeService(quint16 onPort) {
        auto s = std::make_unique<PasscodeService>([this] { return nowMs.load(); });
        if (!s->listen(QHostAddress(kLoopback), onPort)) {
            ADD_FAILURE() << "cannot listen: " << s->errorString().toStdString();
            return nullptr;
        }
        return s;
    }

    PasscodeRegistration::Settings panel(const QString& passcode, int ttl = 60) const {
        PasscodeRegistration::Settings s;
        s.serviceHost = kLoopback;
        s.servicePort = port;
        s.passcode = passcode;
        s.address = QStringLiteral("192.168.7.20");
        s.port = 47801;
        s.name = QStringLiteral("Room 7");
        s.ttlSeconds = ttl;
        return s;
    }

    std::atomic<qint64> nowMs{5'000'000};
    std::unique_ptr<PasscodeService> service;
    quint16 port = 0;
};

TEST_F(PasscodeServiceTest, RegisteredPanelResolvesUntilItsRegistrationGoes) {
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    auto registration = std::make_unique<PasscodeRegistration>(panel(QStringLiteral("ab-1o")));
    QSignalSpy changedSpy(registration.get(), &PasscodeRegistration::passcodeChanged);
    QSignalSpy stateSpy(registration.get(), &PasscodeRegistration::registeredChanged);
    registration->start();
    // The typed form is made canonical, not replaced.
    EXPECT_EQ(registration->passcode(), "AB10");
    ASSERT_TRUE(waitForSignal(stateSpy));
    EXPECT_TRUE(registration->isRegistered());
    ASSERT_EQ(registeredSpy.count(), 1);
    EXPECT_EQ(registeredSpy[0][0].toString(), "AB10");
    EXPECT_EQ(registeredSpy[0][1].toString(), "192.168.7.20");
    EXPECT_EQ(registeredSpy[0][2].value<quint16>(), 47801);
    EXPECT_EQ(registeredSpy[0][4].toInt(), 60);

    Outcome r = resolveOnce(port, QStringLiteral("ab1o"));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.answers, 1);
    EXPECT_EQ(r.address, "192.168.7.20");
    EXPECT_EQ(r.port, 47801);
    EXPECT_EQ(r.name, "Room 7");

    r = resolveOnce(port, QStringLiteral("ZZZZ"));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.failure, Failure::Unknown);
    for (const char* typed : {"AB!0", "AB1", "AB100", ""}) {
        r = resolveOnce(port, QString::fromLatin1(typed));
        EXPECT_FALSE(r.ok) << typed;
        EXPECT_EQ(r.failure, Failure::Invalid) << typed;
    }

    // Destroying the registration releases the passcode at once.
    QSignalSpy unregisteredSpy(service.get(), &PasscodeService::unregistered);
    registration.reset();
    ASSERT_TRUE(waitForSignal(unregisteredSpy));
    EXPECT_EQ(unregisteredSpy[0][0].toString(), "AB10");
    EXPECT_EQ(unregisteredSpy[0][1].toString(), "192.168.7.20");
    r = resolveOnce(port, QStringLiteral("AB10"));
    EXPECT_EQ(r.failure, Failure::Unknown);
    EXPECT_EQ(changedSpy.count(), 1);
}

TEST_F(PasscodeServiceTest, TakenPasscodeIsReplacedAndAnInvalidPanelGivesUp) {
    RawPeer holder(port);
    ASSERT_EQ(zv::bodyName(holder.registerPasscode("CD34", "10.0.0.9", 47800, "Holder", 60)),
              kRegistered);

    PasscodeRegistration registration(panel(QStringLiteral("CD34")));
    QSignalSpy changedSpy(&registration, &PasscodeRegistration::passcodeChanged);
    QSignalSpy stateSpy(&registration, &PasscodeRegistration::registeredChanged);
    registration.start();
    ASSERT_TRUE(waitForSignal(stateSpy));
    ASSERT_GE(changedSpy.count(), 1);
    const QString picked = changedSpy.last()[0].toString();
    EXPECT_EQ(registration.passcode(), picked);
    EXPECT_NE(picked, "CD34");
    EXPECT_TRUE(zv::code::isValidPasscode(picked)) << picked.toStdString();

    Outcome r = resolveOnce(port, picked);
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.address, "192.168.7.20");
    r = resolveOnce(port, QStringLiteral("CD34"));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.address, "10.0.0.9");

    // A registration the service calls invalid stops instead of retrying.
    auto settings = panel(QStringLiteral("EF56"));
    settings.address = QStringLiteral("panel.example");
    PasscodeRegistration broken(settings);
    QSignalSpy refusedSpy(&broken, &PasscodeRegistration::refused);
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    broken.start();
    ASSERT_TRUE(waitForSignal(refusedSpy));
    EXPECT_EQ(refusedSpy[0][0].toString(), "invalid");
    EXPECT_FALSE(broken.isRegistered());
    EXPECT_EQ(registeredSpy.count(), 0);
    EXPECT_EQ(resolveOnce(port, QStringLiteral("EF56")).failure, Failure::Unknown);
}

TEST_F(PasscodeServiceTest, MissingServiceFailsFastAndSilentServiceTimesOut) {
    quint16 freePort = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress(kLoopback), 0));
        freePort = probe.serverPort();
    }
    // Far longer time-out than the wait: only a refused connection answers in time.
    Outcome r = resolveOnce(freePort, QStringLiteral("AB12"), 60000);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.failure, Failure::Unreachable) << r.detail.toStdString();

    QTcpServer silent;  // accepts, never answers
    ASSERT_TRUE(silent.listen(QHostAddress(kLoopback), 0));
    r = resolveOnce(silent.serverPort(), QStringLiteral("AB12"), 300);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.failure, Failure::Timeout) << r.detail.toStdString();
    EXPECT_EQ(r.answers, 1);

    // Aborting: a cancelled or superseded resolve never reports.
    PasscodeClient client;
    QSignalSpy resolvedSpy(&client, &PasscodeClient::resolved);
    QSignalSpy failedSpy(&client, &PasscodeClient::failed);
    client.resolve(kLoopback, freePort, QStringLiteral("AB12"), kWaitMs);
    client.resolve(kLoopback, silent.serverPort(), QStringLiteral("AB!"), kWaitMs);
    client.resolve(kLoopback, port, QStringLiteral("QQQQ"), kWaitMs);
    ASSERT_TRUE(waitForSignal(failedSpy));
    EXPECT_EQ(failedSpy[0][0].value<Failure>(), Failure::Unknown);
    client.resolve(kLoopback, port, QStringLiteral("QQQQ"), kWaitMs);
    client.cancel();
    EXPECT_FALSE(client.isBusy());
    client.resolve(kLoopback, freePort, QStringLiteral("AB12"), kWaitMs);
    ASSERT_TRUE(waitForSignal(failedSpy, 2));
    EXPECT_EQ(failedSpy[1][0].value<Failure>(), Failure::Unreachable);
    EXPECT_EQ(failedSpy.count(), 2);
    EXPECT_EQ(resolvedSpy.count(), 0);
}

TEST_F(PasscodeServiceTest, RegistrationRenewsAndComesBackAfterServiceRestart) {
    PasscodeRegistration registration(panel(QStringLiteral("GH78"), 10));
    QSignalSpy stateSpy(&registration, &PasscodeRegistration::registeredChanged);
    QSignalSpy renewedSpy(service.get(), &PasscodeService::renewed);
    registration.start();
    ASSERT_TRUE(waitForSignal(stateSpy));
    // Renewal comes within the ttl (every ttl/3), keeping the entry alive.
    ASSERT_TRUE(waitForSignal(renewedSpy));
    EXPECT_EQ(renewedSpy[0][0].toString(), "GH78");

    // The service goes away: the registration notices when it cannot reach it.
    service.reset();
    ASSERT_TRUE(waitForSignal(stateSpy, 2));
    EXPECT_FALSE(registration.isRegistered());
    EXPECT_EQ(resolveOnce(port, QStringLiteral("GH78")).failure, Failure::Unreachable);

    // A new, empty service on the same port gets the registration back by itself.
    service = makeService(port);
    ASSERT_TRUE(service);
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    ASSERT_TRUE(waitForSignal(registeredSpy));
    ASSERT_TRUE(QTest::qWaitFor([&] { return registration.isRegistered(); }, kWaitMs));
    const Outcome r = resolveOnce(port, QStringLiteral("GH78"));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.name, "Room 7");
    EXPECT_EQ(registration.passcode(), "GH78");
}

TEST_F(PasscodeServiceTest, MalformedInputClosesOnlyThatConnection) {
    RawPeer good(port);
    ASSERT_EQ(zv::bodyName(good.registerPasscode("JK90", "10.1.2.3", 47800, "Good", 60)), kRegistered);
    // A value out of range is an answer, not a broken stream.
    EXPECT_EQ(errorReason(good.registerPasscode("JK91", "10.1.2.3", 70000, "Good", 60)), "invalid");
    EXPECT_EQ(errorReason(good.registerPasscode("JK91", "10.1.2.3", 47800, "Good", 5)), "invalid");
    EXPECT_EQ(errorReason(good.request(resolveRequest("JK9"))), "invalid");

    auto rawFrame = [](const QByteArray& payload) {
        QByteArray frame(4, '\0');
        const quint32 n = quint32(payload.size());
        frame[0] = char(n >> 24);
        frame[1] = char(n >> 16);
        frame[2] = char(n >> 8);
        frame[3] = char(n);
        return frame + payload;
    };
    // What protobuf reads as defaults or sets aside is checked by the handler:
    // a register without ttl, or with the port sent as a text, is invalid.
    EXPECT_EQ(errorReason(good.registerPasscode("JK92", "10.1.2.4", 47800, "", 0)), "invalid");
    zv::wire::Envelope textPort = RawPeer::registerRequest("JK92", "10.1.2.4", 0, "", 60);
    zv::wire::Register* body = textPort.mutable_register_passcode();
    body->GetReflection()->MutableUnknownFields(body)->AddLengthDelimited(3, "47800");
    EXPECT_EQ(errorReason(good.request(textPort)), "invalid");
    // Bodies this build does not know (a newer peer's) are skipped, not answered.
    const size_t answersBefore = good.answers.size();
    good.channel->socket()->write(QByteArray::fromHex("00000005 0802 c20c 00") + rawFrame(QByteArray::fromHex("0802")));
    EXPECT_EQ(zv::bodyName(good.request(resolveRequest("JK90"))), QStringLiteral("resolved"));
    EXPECT_EQ(good.answers.size(), answersBefore + 1);

    zv::wire::Envelope hello;
    hello.mutable_hello()->set_major(zv::kProtocolMajor);
    zv::wire::Envelope heartbeat;
    heartbeat.mutable_heartbeat()->set_seq(1);

    const std::vector<std::pair<const char*, QByteArray>> garbage = {
        {"zero length", QByteArray(4, '\0')},
        {"oversized length", QByteArray::fromHex("7fffffff")},
        {"not an envelope", rawFrame("\xff\xfe\xfd")},
        {"a body cut short", rawFrame(QByteArray::fromHex("9205 10 0a"))},
        {"a passcode that is not UTF-8", rawFrame(QByteArray::fromHex("9205 04 0a02fffe"))},
        {"envelope and trailing junk",
         rawFrame(QByteArray::fromStdString(resolveRequest("JK90").SerializeAsString()) + "\x07")},
        {"session message", zv::encodeFrame(hello)},
        {"heartbeat", zv::encodeFrame(heartbeat)},
        {"good request then garbage",
         zv::encodeFrame(resolveRequest("JK90")) + QByteArray(4, '\0')},
    };
    for (const auto& [what, bytes] : garbage) {
        QTcpSocket bad;
        bad.connectToHost(QHostAddress(kLoopback), port);
        ASSERT_TRUE(bad.waitForConnected(kWaitMs)) << what;
        bad.write(bytes);
        EXPECT_TRUE(QTest::qWaitFor([&] { return bad.state() == QAbstractSocket::UnconnectedState; }, kWaitMs))
            << what << ": not disconnected";
    }
    EXPECT_EQ(service->registrationCount(), 1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 1; }, kWaitMs));

    // The other connection carried on, and new clients are served.
    EXPECT_FALSE(good.closed) << good.closeReason.toStdString();
    const zv::wire::Envelope answer = good.request(resolveRequest("JK90"));
    EXPECT_EQ(zv::bodyName(answer), QStringLiteral("resolved"));
    EXPECT_EQ(answer.resolved().name(), "Good");
    const Outcome r = resolveOnce(port, QStringLiteral("JK90"));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.port, 47800);
}

TEST_F(PasscodeServiceTest, WrongPasscodesAreRateLimitedPerSourceAddress) {
    RawPeer holder(port);
    ASSERT_EQ(zv::bodyName(holder.registerPasscode("MN12", "10.3.3.3", 47800, "Held", 600)),
              kRegistered);

    for (int i = 0; i < 5; ++i) {
        const Outcome r = resolveOnce(port, QStringLiteral("XY0%1").arg(i));
        EXPECT_EQ(r.failure, Failure::Unknown) << "attempt " << i + 1;
    }
    // Locked: even the right passcode is refused unchecked.
    EXPECT_EQ(resolveOnce(port, QStringLiteral("MN12")).failure, Failure::RateLimited);
    EXPECT_EQ(resolveOnce(port, QStringLiteral("XY09")).failure, Failure::RateLimited);

    // Another source address is not affected.
    RawPeer other(port, QStringLiteral("127.0.0.2"));
    EXPECT_EQ(zv::bodyName(other.request(resolveRequest("MN12"))), QStringLiteral("resolved"));

    // After the lock-out the right passcode goes through and clears the count.
    nowMs += zv::RateLimiter::kFirstLockMs;
    Outcome r = resolveOnce(port, QStringLiteral("MN12"));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(resolveOnce(port, QStringLiteral("XY1%1").arg(i)).failure, Failure::Unknown) << "attempt " << i + 1;
    }
    EXPECT_EQ(resolveOnce(port, QStringLiteral("MN12")).failure, Failure::RateLimited);
}

TEST_F(PasscodeServiceTest, RegistrationsExpireOnTheServiceClockUnlessRenewed) {
    QSignalSpy expiredSpy(service.get(), &PasscodeService::expired);
    RawPeer panelPeer(port);
    ASSERT_EQ(zv::bodyName(panelPeer.registerPasscode("PQ34", "10.4.4.4", 47800, "Short", 10)),
              kRegistered);
    nowMs += 9000;
    const zv::wire::Envelope renewal = panelPeer.registerPasscode("PQ34", "10.4.4.4", 47800, "Short", 10);
    ASSERT_EQ(zv::bodyName(renewal), kRegistered);
    EXPECT_EQ(renewal.registered().ttl(), 10);
    nowMs += 9000;  // past the first ttl, within the renewed one
    EXPECT_TRUE(resolveOnce(port, QStringLiteral("PQ34")).ok);

    nowMs += 1000;
    ASSERT_TRUE(waitForSignal(expiredSpy));
    EXPECT_EQ(expiredSpy[0][0].toString(), "PQ34");
    EXPECT_EQ(expiredSpy[0][1].toString(), "10.4.4.4");
    EXPECT_EQ(service->registrationCount(), 0);
    EXPECT_EQ(resolveOnce(port, QStringLiteral("PQ34")).failure, Failure::Unknown);

    // Unregistering needs the holding address; the answer is the same either way.
    ASSERT_EQ(zv::bodyName(panelPeer.registerPasscode("PQ35", "10.4.4.4", 47800, "Short", 10)),
              kRegistered);
    const auto unregister = [&](const char* passcode, const char* address) {
        return zv::bodyName(panelPeer.request(unregisterRequest(passcode, address)));
    };
    EXPECT_EQ(unregister("PQ35", "10.4.4.5"), QStringLiteral("unregistered"));
    EXPECT_TRUE(resolveOnce(port, QStringLiteral("PQ35")).ok);
    EXPECT_EQ(unregister("pq35", "10.4.4.4"), QStringLiteral("unregistered"));
    EXPECT_EQ(resolveOnce(port, QStringLiteral("PQ35")).failure, Failure::Unknown);
}

TEST_F(PasscodeServiceTest, ConnectionLimitAndIdleTimeOut) {
    service->setMaxConnections(3);
    std::vector<std::unique_ptr<QTcpSocket>> held;
    for (int i = 0; i < 3; ++i) {
        held.push_back(std::make_unique<QTcpSocket>());
        held.back()->connectToHost(QHostAddress(kLoopback), port);
        ASSERT_TRUE(held.back()->waitForConnected(kWaitMs));
    }
    ASSERT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 3; }, kWaitMs));

    QTcpSocket extra;
    extra.connectToHost(QHostAddress(kLoopback), port);
    EXPECT_TRUE(QTest::qWaitFor([&] { return extra.state() == QAbstractSocket::UnconnectedState; }, kWaitMs));
    EXPECT_EQ(resolveOnce(port, QStringLiteral("RS56")).failure, Failure::Unreachable);
    EXPECT_EQ(service->connectionCount(), 3);
    for (const auto& socket : held) EXPECT_EQ(socket->state(), QAbstractSocket::ConnectedState);

    held.pop_back();
    ASSERT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 2; }, kWaitMs));
    EXPECT_EQ(resolveOnce(port, QStringLiteral("RS56")).failure, Failure::Unknown);

    // Idle connections are closed, also one stuck inside a frame. Each peer
    // is first served once, so its end is the time-out and not the limit.
    service->setMaxConnections(PasscodeService::kMaxConnections);
    service->setIdleTimeoutMs(1000);
    RawPeer silent(port);
    EXPECT_EQ(errorReason(silent.request(resolveRequest("RS57"))), "unknown");
    EXPECT_TRUE(QTest::qWaitFor([&] { return silent.closed; }, kWaitMs));
    EXPECT_EQ(silent.closeReason, "peer closed the connection");
    RawPeer partial(port);
    EXPECT_EQ(errorReason(partial.request(resolveRequest("RS58"))), "unknown");
    partial.channel->socket()->write(QByteArray::fromHex("00000010a1"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return partial.closed; }, kWaitMs));
    EXPECT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 2; }, kWaitMs));
}

TEST_F(PasscodeServiceTest, ClientWorksFromAnotherThread) {
    RawPeer holder(port);
    ASSERT_EQ(zv::bodyName(holder.registerPasscode("TV78", "10.5.5.5", 47802, "Far", 60)), kRegistered);

    QThread worker;
    worker.start();
    auto* client = new PasscodeClient;
    client->moveToThread(&worker);
    QObject receiver;  // lives here: the signals cross threads
    std::vector<QString> results;
    QObject::connect(client, &PasscodeClient::resolved, &receiver,
                     [&](const QString& address, quint16 p, const QString&) {
                         EXPECT_EQ(QThread::currentThread(), receiver.thread());
                         results.push_back(address + ':' + QString::number(p));
                     });
    QObject::connect(client, &PasscodeClient::failed, &receiver, [&](Failure f, const QString&) {
        results.push_back(f == Failure::Unknown ? QStringLiteral("unknown") : QStringLiteral("other"));
    });
    const quint16 servicePort = port;
    QMetaObject::invokeMethod(client, [client, servicePort] { client->resolve(kLoopback, servicePort, "TV78"); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 1; }, kWaitMs));
    QMetaObject::invokeMethod(client, [client, servicePort] { client->resolve(kLoopback, servicePort, "TV79"); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 2; }, kWaitMs));
    EXPECT_EQ(results[0], "10.5.5.5:47802");
    EXPECT_EQ(results[1], "unknown");

    QObject::connect(client, &QObject::destroyed, &worker, &QThread::quit, Qt::DirectConnection);
    client->deleteLater();
    ASSERT_TRUE(worker.wait(kWaitMs));
}

}  // namespace
