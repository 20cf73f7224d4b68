// The passcode service with its clients, over real loopback TLS connections.
// Time for expiry and lock-outs comes from a clock the test moves; waits are
// on conditions, each with a deadline.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QSignalSpy>
#include <QSslSocket>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>
#include <vector>

#include "passcode/PanelProof.h"
#include "passcode/PasscodeClient.h"
#include "passcode/PasscodePins.h"
#include "passcode/PasscodeRegistration.h"
#include "passcode/PasscodeService.h"
#include "passcode/SourceBudget.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/KeyId.h"
#include "transport/MessageChannel.h"
#include "transport/RateLimiter.h"
#include "transport/TlsIdentity.h"

namespace {

using zv::PasscodeClient;
using zv::PasscodeRegistration;
using zv::PasscodeService;
using zv::passcode::PanelSigner;
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

// Wall-clock timestamps that never repeat: the service refuses a request no
// newer than the holder's last one.
qint64 freshStamp() {
    static qint64 last = 0;
    last = std::max(QDateTime::currentMSecsSinceEpoch(), last + 1);
    return last;
}

// A TLS identity in a folder of its own.
zv::TlsIdentity makeIdentity(const QTemporaryDir& dir, const QString& name, const zv::TlsIdentityKind& kind) {
    const auto identity = zv::loadOrCreateTlsIdentity(dir.filePath(name), name, kind);
    EXPECT_TRUE(identity) << name.toStdString();
    return identity.value_or(zv::TlsIdentity());
}

struct Outcome {
    int answers = 0;  // signals received
    bool ok = false;
    QString address;
    quint16 port = 0;
    QString name;
    QString panelKey;
    Failure failure = Failure::Unreachable;
    QString detail;
};

Outcome resolveOnce(quint16 servicePort, const QString& passcode, const QString& pinsPath, int timeoutMs = kWaitMs) {
    PasscodeClient client(nullptr, pinsPath);
    Outcome out;
    QObject::connect(&client, &PasscodeClient::resolved,
                     [&](const QString& a, quint16 p, const QString& n, const QString& k) {
                         ++out.answers;
                         out.ok = true;
                         out.address = a;
                         out.port = p;
                         out.name = n;
                         out.panelKey = k;
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

// A peer speaking the protocol by hand over TLS, optionally from another
// loopback address.
class RawPeer {
public:
    explicit RawPeer(quint16 port, const QString& from = QString()) {
        // The service asks for a client certificate: show a PC's.
        static QTemporaryDir pcDir;
        static const zv::TlsIdentity pc = makeIdentity(pcDir, QStringLiteral("pc"), zv::kPcIdentity);
        auto* socket = new QSslSocket;
        socket->setProtocol(QSsl::TlsV1_3OrLater);
        socket->setPeerVerifyMode(QSslSocket::VerifyNone);
        socket->setPrivateKey(pc.privateKey);
        socket->setLocalCertificate(pc.certificate);
        if (!from.isEmpty()) socket->bind(QHostAddress(from));
        socket->connectToHostEncrypted(kLoopback, port);
        EXPECT_TRUE(QTest::qWaitFor([&] { return socket->isEncrypted(); }, kWaitMs)) << socket->errorString().toStdString();
        serviceKey = zv::keyIdOf(socket->peerCertificate());
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
    void writeRaw(const QByteArray& bytes) { channel->socket()->write(bytes); }

    std::unique_ptr<zv::MessageChannel> channel;
    std::vector<zv::wire::Envelope> answers;
    QString serviceKey;
    bool closed = false;
    QString closeReason;
};

zv::wire::Register registerBody(const std::string& passcode, const std::string& address, int port = 47800,
                                const std::string& name = "Room", int ttl = 60, bool rotate = false) {
    zv::wire::Register body;
    body.set_passcode(passcode);
    body.set_address(address);
    body.set_port(port);
    body.set_name(name);
    body.set_ttl(ttl);
    body.set_rotate(rotate);
    return body;
}

zv::wire::Envelope signedRegister(const PanelSigner& signer, const QString& serviceKey, zv::wire::Register body,
                                  qint64 stamp = freshStamp()) {
    EXPECT_TRUE(signer.sign(body, serviceKey, stamp));
    return zv::wrap(body);
}

zv::wire::Envelope signedUnregister(const PanelSigner& signer, const QString& serviceKey, const std::string& passcode,
                                    qint64 stamp = freshStamp()) {
    zv::wire::Unregister body;
    body.set_passcode(passcode);
    EXPECT_TRUE(signer.sign(body, serviceKey, stamp));
    return zv::wrap(body);
}

QString errorReason(const zv::wire::Envelope& answer) {
    return answer.has_passcode_error() ? zv::passcodeErrorName(answer.passcode_error().reason())
                                       : QStringLiteral("<%1>").arg(zv::bodyName(answer));
}

zv::wire::Envelope resolveRequest(const std::string& passcode) {
    zv::wire::Resolve body;
    body.set_passcode(passcode);
    return zv::wrap(body);
}

const QString kRegistered = QStringLiteral("registered");

class PasscodeServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        ensureApp();
        ASSERT_TRUE(dir.isValid());
        serviceIdentity = makeIdentity(dir, QStringLiteral("service"), zv::kPasscodeServiceIdentity);
        panelA = makeIdentity(dir, QStringLiteral("panel-a"), zv::kPanelIdentity);
        panelB = makeIdentity(dir, QStringLiteral("panel-b"), zv::kPanelIdentity);
        signerA = std::make_unique<PanelSigner>(panelA.privateKey, panelA.certificate);
        signerB = std::make_unique<PanelSigner>(panelB.privateKey, panelB.certificate);
        ASSERT_TRUE(signerA->isValid() && signerB->isValid());
        pcPins = dir.filePath(QStringLiteral("pc/passcode-servers"));
        panelPins = dir.filePath(QStringLiteral("panel/passcode-servers"));
        service = makeService(0);
        ASSERT_TRUE(service);
        port = service->port();
    }

    std::unique_ptr<PasscodeService> makeService(quint16 onPort, const zv::TlsIdentity* identity = nullptr) {
        const zv::TlsIdentity& id = identity ? *identity : serviceIdentity;
        auto s = std::make_unique<PasscodeService>(id.privateKey, id.certificate, [this] { return nowMs.load(); });
        if (!s->listen(QHostAddress(kLoopback), onPort)) {
            ADD_FAILURE() << "cannot listen: " << s->errorString().toStdString();
            return nullptr;
        }
        return s;
    }

    PasscodeRegistration::Settings panel(int ttl = 60) const {
        PasscodeRegistration::Settings s;
        s.serviceHost = kLoopback;
        s.servicePort = port;
        s.pinsPath = panelPins;
        s.address = QStringLiteral("192.168.7.20");
        s.port = 47801;
        s.name = QStringLiteral("Room 7");
        s.ttlSeconds = ttl;
        s.panelKey = panelA.privateKey;
        s.panelCertificate = panelA.certificate;
        return s;
    }

    Outcome resolve(const QString& passcode, int timeoutMs = kWaitMs) {
        return resolveOnce(port, passcode, pcPins, timeoutMs);
    }

    QTemporaryDir dir;
    zv::TlsIdentity serviceIdentity, panelA, panelB;
    std::unique_ptr<PanelSigner> signerA, signerB;
    QString pcPins, panelPins;
    std::atomic<qint64> nowMs{5'000'000};
    std::unique_ptr<PasscodeService> service;
    quint16 port = 0;
};

TEST_F(PasscodeServiceTest, RegisteredPanelResolvesWithItsKeyUntilItsRegistrationGoes) {
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    auto registration = std::make_unique<PasscodeRegistration>(panel());
    QSignalSpy changedSpy(registration.get(), &PasscodeRegistration::passcodeChanged);
    QSignalSpy stateSpy(registration.get(), &PasscodeRegistration::registeredChanged);
    registration->start();
    EXPECT_TRUE(registration->passcode().isEmpty());  // the service picks it
    ASSERT_TRUE(waitForSignal(stateSpy));
    ASSERT_TRUE(registration->isRegistered());
    ASSERT_EQ(changedSpy.count(), 1);
    const QString passcode = registration->passcode();
    EXPECT_TRUE(zv::code::isValidPasscode(passcode)) << passcode.toStdString();
    ASSERT_EQ(registeredSpy.count(), 1);
    EXPECT_EQ(registeredSpy[0][0].toString(), passcode);
    EXPECT_EQ(registeredSpy[0][1].toString(), "192.168.7.20");
    EXPECT_EQ(registeredSpy[0][2].value<quint16>(), 47801);
    EXPECT_EQ(registeredSpy[0][4].toInt(), 60);
    EXPECT_EQ(registeredSpy[0][5].toString(), panelA.keyId);
    // Both sides pinned the service's key on first use.
    EXPECT_EQ(zv::PasscodePins(panelPins).pinned(kLoopback, port), service->keyId());
    EXPECT_EQ(registration->serviceKey(), service->keyId());

    Outcome r = resolve(passcode.toLower());
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.answers, 1);
    EXPECT_EQ(r.address, "192.168.7.20");
    EXPECT_EQ(r.port, 47801);
    EXPECT_EQ(r.name, "Room 7");
    EXPECT_EQ(r.panelKey, panelA.keyId);
    EXPECT_EQ(zv::PasscodePins(pcPins).pinned(kLoopback, port), service->keyId());

    for (const char* typed : {"AB!0", "AB1", "AB100", ""}) {
        r = resolve(QString::fromLatin1(typed));
        EXPECT_FALSE(r.ok) << typed;
        EXPECT_EQ(r.failure, Failure::Invalid) << typed;
    }

    // Destroying the registration releases the passcode at once.
    QSignalSpy unregisteredSpy(service.get(), &PasscodeService::unregistered);
    registration.reset();
    ASSERT_TRUE(waitForSignal(unregisteredSpy));
    EXPECT_EQ(unregisteredSpy[0][0].toString(), passcode);
    EXPECT_EQ(unregisteredSpy[0][1].toString(), "192.168.7.20");
    EXPECT_EQ(service->registrationCount(), 0);
}

TEST_F(PasscodeServiceTest, RegistrationsNeedAProofMadeForThisServiceAndNow) {
    RawPeer peer(port);
    ASSERT_EQ(peer.serviceKey, service->keyId());
    const zv::wire::Envelope good = signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9"));
    ASSERT_EQ(zv::bodyName(peer.request(good)), kRegistered);

    // Panel A's certificate with panel B's signature.
    zv::wire::Envelope wrongKey = signedRegister(*signerB, peer.serviceKey, registerBody("", "10.0.0.9"));
    wrongKey.mutable_register_passcode()->mutable_proof()->set_certificate(
        good.register_passcode().proof().certificate());
    EXPECT_EQ(errorReason(peer.request(wrongKey)), "badProof");
    // A field changed after signing.
    zv::wire::Envelope tampered = signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9"));
    tampered.mutable_register_passcode()->set_port(47999);
    EXPECT_EQ(errorReason(peer.request(tampered)), "badProof");
    // Made for another service (its key id is in the signed bytes).
    EXPECT_EQ(errorReason(peer.request(signedRegister(*signerA, panelB.keyId, registerBody("", "10.0.0.9")))),
              "badProof");
    // Over a minute old, or from over a minute ahead.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    EXPECT_EQ(errorReason(peer.request(signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9"),
                                                      now - zv::passcode::kMaxClockSkewMs - 5000))),
              "stale");
    EXPECT_EQ(errorReason(peer.request(signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9"),
                                                      now + zv::passcode::kMaxClockSkewMs + 5000))),
              "stale");
    // Five wrong requests in a row: the source is locked, good requests too.
    EXPECT_EQ(errorReason(peer.request(good)), "rateLimited");
    EXPECT_EQ(errorReason(peer.request(signedUnregister(*signerA, peer.serviceKey, "AAAA"))), "rateLimited");

    // Another source is not affected; the proof checks hold there as well.
    RawPeer other(port, QStringLiteral("127.0.0.2"));
    zv::wire::Envelope noProof = zv::wrap(registerBody("", "10.0.0.9"));
    EXPECT_EQ(errorReason(other.request(noProof)), "badProof");
    zv::wire::Envelope junkCertificate = signedRegister(*signerA, other.serviceKey, registerBody("", "10.0.0.9"));
    junkCertificate.mutable_register_passcode()->mutable_proof()->set_certificate("\x30\x03\x02\x01\x01");
    EXPECT_EQ(errorReason(other.request(junkCertificate)), "badProof");
    // An exact replay of an accepted request is refused as stale.
    EXPECT_EQ(errorReason(other.request(good)), "stale");

    // After the lock-out the good request goes through; the count was not
    // forgiven, so the next wrong one locks again at once.
    nowMs += zv::RateLimiter::kFirstLockMs;
    EXPECT_EQ(zv::bodyName(peer.request(signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9")))),
              kRegistered);
    EXPECT_EQ(errorReason(peer.request(tampered)), "badProof");
    EXPECT_EQ(errorReason(peer.request(signedRegister(*signerA, peer.serviceKey, registerBody("", "10.0.0.9")))),
              "rateLimited");
}

TEST_F(PasscodeServiceTest, OnlyTheHoldingKeyRenewsRotatesOrReleases) {
    QSignalSpy unregisteredSpy(service.get(), &PasscodeService::unregistered);
    RawPeer holder(port);
    const zv::wire::Envelope first = holder.request(signedRegister(*signerA, holder.serviceKey, registerBody("", "10.2.2.2")));
    ASSERT_EQ(zv::bodyName(first), kRegistered);
    const std::string passcode = first.registered().passcode();

    // Another key naming that passcode is given a different one; the
    // holder's entry is untouched.
    RawPeer intruder(port, QStringLiteral("127.0.0.3"));
    const zv::wire::Envelope takeOver =
        intruder.request(signedRegister(*signerB, intruder.serviceKey, registerBody(passcode, "10.6.6.6")));
    ASSERT_EQ(zv::bodyName(takeOver), kRegistered);
    EXPECT_NE(takeOver.registered().passcode(), passcode);
    // Its release of the holder's passcode is answered like any other, and does nothing.
    EXPECT_EQ(zv::bodyName(intruder.request(signedUnregister(*signerB, intruder.serviceKey, passcode))),
              QStringLiteral("unregistered"));
    Outcome r = resolve(QString::fromStdString(passcode));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.address, "10.2.2.2");
    EXPECT_EQ(r.panelKey, panelA.keyId);
    EXPECT_EQ(unregisteredSpy.count(), 0);

    // The holder renews (same passcode), then rotates (a new one, the old gone).
    const zv::wire::Envelope renewed =
        holder.request(signedRegister(*signerA, holder.serviceKey, registerBody(passcode, "10.2.2.2")));
    EXPECT_EQ(renewed.registered().passcode(), passcode);
    const zv::wire::Envelope rotated = holder.request(
        signedRegister(*signerA, holder.serviceKey, registerBody(passcode, "10.2.2.2", 47800, "Room", 60, true)));
    ASSERT_EQ(zv::bodyName(rotated), kRegistered);
    const std::string next = rotated.registered().passcode();
    EXPECT_NE(next, passcode);
    ASSERT_TRUE(waitForSignal(unregisteredSpy));
    EXPECT_EQ(unregisteredSpy[0][0].toString(), QString::fromStdString(passcode));
    EXPECT_EQ(resolve(QString::fromStdString(passcode)).failure, Failure::Unknown);
    EXPECT_EQ(resolve(QString::fromStdString(next)).panelKey, panelA.keyId);

    // New passcodes per source are budgeted; renewals are not.
    std::string current = next;
    int rotations = 0;
    for (; rotations < 100; ++rotations) {
        const zv::wire::Envelope answer = holder.request(
            signedRegister(*signerA, holder.serviceKey, registerBody(current, "10.2.2.2", 47800, "Room", 60, true)));
        if (!answer.has_registered()) {
            EXPECT_EQ(errorReason(answer), "rateLimited");
            break;
        }
        current = answer.registered().passcode();
    }
    EXPECT_GE(rotations, 20);
    EXPECT_LT(rotations, 100);
    EXPECT_EQ(holder.request(signedRegister(*signerA, holder.serviceKey, registerBody(current, "10.2.2.2")))
                  .registered()
                  .passcode(),
              current);
    nowMs += zv::SourceBudget::kRefillMs;
    EXPECT_TRUE(holder
                    .request(signedRegister(*signerA, holder.serviceKey,
                                            registerBody(current, "10.2.2.2", 47800, "Room", 60, true)))
                    .has_registered());

    // Only the holder's own, fresh release removes it.
    const std::string last = holder.answers.back().registered().passcode();
    EXPECT_EQ(zv::bodyName(holder.request(signedUnregister(*signerA, holder.serviceKey, last))),
              QStringLiteral("unregistered"));
    EXPECT_EQ(resolve(QString::fromStdString(last)).failure, Failure::Unknown);
}

TEST_F(PasscodeServiceTest, AChangedServiceKeyIsRefusedByPcsAndPanels) {
    // First use pins the key, for the PC and for the panel.
    RawPeer holder(port);
    const zv::wire::Envelope held =
        holder.request(signedRegister(*signerA, holder.serviceKey, registerBody("", "10.4.4.4")));
    ASSERT_EQ(zv::bodyName(held), kRegistered);
    const QString passcode = QString::fromStdString(held.registered().passcode());
    ASSERT_TRUE(resolve(passcode).ok);
    PasscodeRegistration registration(panel());
    QSignalSpy stateSpy(&registration, &PasscodeRegistration::registeredChanged);
    registration.start();
    ASSERT_TRUE(waitForSignal(stateSpy));

    // The service comes back on the same port with another key.
    QSignalSpy refusedSpy(&registration, &PasscodeRegistration::refused);
    const zv::TlsIdentity otherIdentity = makeIdentity(dir, QStringLiteral("impostor"), zv::kPasscodeServiceIdentity);
    service.reset();
    service = makeService(port, &otherIdentity);
    ASSERT_TRUE(service);
    const Outcome r = resolve(passcode);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.failure, Failure::ServiceKeyChanged);
    EXPECT_TRUE(r.detail.contains(zv::shortKeyId(serviceIdentity.keyId))) << r.detail.toStdString();
    EXPECT_TRUE(r.detail.contains(zv::shortKeyId(otherIdentity.keyId))) << r.detail.toStdString();
    EXPECT_TRUE(r.detail.contains(pcPins)) << r.detail.toStdString();
    // The panel stops rather than sign for the other service.
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    ASSERT_TRUE(waitForSignal(refusedSpy));
    EXPECT_TRUE(refusedSpy[0][0].toString().contains(zv::shortKeyId(otherIdentity.keyId)));
    EXPECT_FALSE(registration.isRegistered());
    EXPECT_EQ(registeredSpy.count(), 0);

    // A key given explicitly wins over the file, both ways.
    zv::PasscodePins pins(pcPins);
    ASSERT_TRUE(pins.check(kLoopback, port, otherIdentity.keyId, otherIdentity.keyId).trusted);
    EXPECT_EQ(pins.pinned(kLoopback, port), otherIdentity.keyId);
    EXPECT_EQ(resolve(QStringLiteral("ZZZZ")).failure, Failure::Unknown);
    auto settings = panel();
    settings.serviceKey = serviceIdentity.keyId;  // the old one: refused
    PasscodeRegistration pinnedWrong(settings);
    QSignalSpy wrongSpy(&pinnedWrong, &PasscodeRegistration::refused);
    pinnedWrong.start();
    ASSERT_TRUE(waitForSignal(wrongSpy));
    EXPECT_EQ(registeredSpy.count(), 0);
    settings.serviceKey = otherIdentity.keyId;
    PasscodeRegistration pinnedRight(settings);
    QSignalSpy rightSpy(&pinnedRight, &PasscodeRegistration::registeredChanged);
    pinnedRight.start();
    ASSERT_TRUE(waitForSignal(rightSpy));
    EXPECT_EQ(zv::PasscodePins(panelPins).pinned(kLoopback, port), otherIdentity.keyId);

    // Addresses with a key parse; malformed ones do not.
    const auto parsed = zv::PasscodeServerAddress::parse(QStringLiteral("10.1.2.3:47810#") + otherIdentity.keyId);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->host, "10.1.2.3");
    EXPECT_EQ(parsed->port, 47810);
    EXPECT_EQ(parsed->keyId, otherIdentity.keyId);
    for (const char* bad : {"10.1.2.3", "10.1.2.3:0", ":47810", "10.1.2.3:47810#", "10.1.2.3:47810#short"}) {
        EXPECT_FALSE(zv::PasscodeServerAddress::parse(QString::fromLatin1(bad))) << bad;
    }
    // Lists of instances keep their order and each one's key; one bad item spoils the list.
    const auto list = zv::PasscodeServerAddress::parseList(QStringLiteral("10.1.2.3:47810#") + otherIdentity.keyId +
                                                           QStringLiteral(", passcode-b:47811"));
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 2);
    EXPECT_EQ(list->at(0).keyId, otherIdentity.keyId);
    EXPECT_EQ(list->at(1).hostPort(), QStringLiteral("passcode-b:47811"));
    EXPECT_TRUE(list->at(1).keyId.isEmpty());
    for (const char* bad : {"", ",", "10.1.2.3:47810,10.1.2.4", "10.1.2.3:47810,,x:0"}) {
        EXPECT_FALSE(zv::PasscodeServerAddress::parseList(QString::fromLatin1(bad))) << bad;
    }
}

TEST_F(PasscodeServiceTest, MissingServiceFailsFastAndSilentServiceTimesOut) {
    quint16 freePort = 0;
    {
        QTcpServer probe;
        ASSERT_TRUE(probe.listen(QHostAddress(kLoopback), 0));
        freePort = probe.serverPort();
    }
    // Far longer time-out than the wait: only a refused connection answers in time.
    Outcome r = resolveOnce(freePort, QStringLiteral("AB12"), pcPins, 60000);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.failure, Failure::Unreachable) << r.detail.toStdString();

    QTcpServer silent;  // accepts, never answers (no TLS handshake)
    ASSERT_TRUE(silent.listen(QHostAddress(kLoopback), 0));
    r = resolveOnce(silent.serverPort(), QStringLiteral("AB12"), pcPins, 300);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.failure == Failure::Timeout || r.failure == Failure::Unreachable) << r.detail.toStdString();
    EXPECT_EQ(r.answers, 1);

    // Aborting: a cancelled or superseded resolve never reports.
    PasscodeClient client(nullptr, pcPins);
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

TEST_F(PasscodeServiceTest, RegistrationRenewsRotatesAndComesBackAfterServiceRestart) {
    PasscodeRegistration registration(panel(10));
    QSignalSpy stateSpy(&registration, &PasscodeRegistration::registeredChanged);
    QSignalSpy changedSpy(&registration, &PasscodeRegistration::passcodeChanged);
    QSignalSpy renewedSpy(service.get(), &PasscodeService::renewed);
    registration.start();
    ASSERT_TRUE(waitForSignal(stateSpy));
    const QString first = registration.passcode();
    // Renewal comes within the ttl (every ttl/3), keeping the passcode.
    ASSERT_TRUE(waitForSignal(renewedSpy));
    EXPECT_EQ(renewedSpy[0][0].toString(), first);

    // Rotating gives a new passcode; the old one no longer resolves.
    registration.rotate();
    ASSERT_TRUE(waitForSignal(changedSpy, 2));
    const QString second = registration.passcode();
    EXPECT_NE(second, first);
    EXPECT_EQ(resolve(first).failure, Failure::Unknown);
    EXPECT_TRUE(resolve(second).ok);

    // The service goes away: the registration notices when it cannot reach it.
    service.reset();
    ASSERT_TRUE(waitForSignal(stateSpy, 2));
    EXPECT_FALSE(registration.isRegistered());
    EXPECT_EQ(resolve(second).failure, Failure::Unreachable);

    // A new, empty service (same key) on the same port gets the panel back by
    // itself, under whatever passcode it now picks.
    service = makeService(port);
    ASSERT_TRUE(service);
    QSignalSpy registeredSpy(service.get(), &PasscodeService::registered);
    ASSERT_TRUE(waitForSignal(registeredSpy));
    ASSERT_TRUE(QTest::qWaitFor([&] { return registration.isRegistered(); }, kWaitMs));
    const Outcome r = resolve(registration.passcode());
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.name, "Room 7");
    EXPECT_EQ(r.panelKey, panelA.keyId);
}

TEST_F(PasscodeServiceTest, MalformedInputClosesOnlyThatConnection) {
    RawPeer good(port);
    const zv::wire::Envelope held = good.request(signedRegister(*signerA, good.serviceKey, registerBody("", "10.1.2.3")));
    ASSERT_EQ(zv::bodyName(held), kRegistered);
    const std::string passcode = held.registered().passcode();
    // A value out of range is an answer, not a broken stream.
    EXPECT_EQ(errorReason(good.request(signedRegister(*signerA, good.serviceKey, registerBody("", "10.1.2.3", 70000)))),
              "invalid");
    EXPECT_EQ(errorReason(good.request(
                  signedRegister(*signerA, good.serviceKey, registerBody("", "10.1.2.3", 47800, "Good", 5)))),
              "invalid");
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
    // Bodies this build does not know (a newer peer's) are skipped, not answered.
    const size_t answersBefore = good.answers.size();
    good.writeRaw(QByteArray::fromHex("00000005 0802 c20c 00") + rawFrame(QByteArray::fromHex("0802")));
    EXPECT_EQ(zv::bodyName(good.request(resolveRequest(passcode))), QStringLiteral("resolved"));
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
        {"session message", zv::encodeFrame(hello)},
        {"heartbeat", zv::encodeFrame(heartbeat)},
        {"good request then garbage", zv::encodeFrame(resolveRequest(passcode)) + QByteArray(4, '\0')},
    };
    for (const auto& [what, bytes] : garbage) {
        RawPeer bad(port);
        bad.writeRaw(bytes);
        EXPECT_TRUE(QTest::qWaitFor([&] { return bad.closed; }, kWaitMs)) << what << ": not disconnected";
    }
    // Plain TCP (no TLS) is dropped in the handshake.
    QTcpSocket plain;
    plain.connectToHost(QHostAddress(kLoopback), port);
    ASSERT_TRUE(plain.waitForConnected(kWaitMs));
    plain.write(zv::encodeFrame(resolveRequest(passcode)));
    EXPECT_TRUE(QTest::qWaitFor([&] { return plain.state() == QAbstractSocket::UnconnectedState; }, kWaitMs));

    EXPECT_EQ(service->registrationCount(), 1);
    EXPECT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 1; }, kWaitMs));
    // The other connection carried on, and new clients are served.
    EXPECT_FALSE(good.closed) << good.closeReason.toStdString();
    const zv::wire::Envelope answer = good.request(resolveRequest(passcode));
    EXPECT_EQ(zv::bodyName(answer), QStringLiteral("resolved"));
    EXPECT_EQ(answer.resolved().key(), panelA.keyId.toStdString());
    const Outcome r = resolve(QString::fromStdString(passcode));
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(r.port, 47800);
}

TEST_F(PasscodeServiceTest, WrongPasscodesAreRateLimitedPerSourceAndNeverForgivenBySuccess) {
    RawPeer holder(port);
    const zv::wire::Envelope held =
        holder.request(signedRegister(*signerA, holder.serviceKey, registerBody("", "10.3.3.3", 47800, "Held", 600)));
    ASSERT_EQ(zv::bodyName(held), kRegistered);
    const QString passcode = QString::fromStdString(held.registered().passcode());
    auto wrong = [&](int i) { return passcode == QStringLiteral("XY0%1").arg(i) ? QStringLiteral("XY1%1").arg(i) : QStringLiteral("XY0%1").arg(i); };

    for (int i = 0; i < 5; ++i) {
        const Outcome r = resolve(wrong(i));
        EXPECT_EQ(r.failure, Failure::Unknown) << "attempt " << i + 1;
    }
    // Locked: even the right passcode is refused unchecked.
    EXPECT_EQ(resolve(passcode).failure, Failure::RateLimited);
    EXPECT_EQ(resolve(wrong(9)).failure, Failure::RateLimited);

    // Another source address is not affected.
    RawPeer other(port, QStringLiteral("127.0.0.2"));
    EXPECT_EQ(zv::bodyName(other.request(resolveRequest(passcode.toStdString()))), QStringLiteral("resolved"));

    // After the lock-out the right passcode goes through but clears nothing:
    // one more wrong one locks again.
    nowMs += zv::RateLimiter::kFirstLockMs;
    const Outcome r = resolve(passcode);
    ASSERT_TRUE(r.ok) << r.detail.toStdString();
    EXPECT_EQ(resolve(wrong(7)).failure, Failure::Unknown);
    EXPECT_EQ(resolve(passcode).failure, Failure::RateLimited);
}

TEST_F(PasscodeServiceTest, RegistrationsExpireOnTheServiceClockUnlessRenewed) {
    QSignalSpy expiredSpy(service.get(), &PasscodeService::expired);
    RawPeer peer(port);
    const auto registerShort = [&](const std::string& passcode) {
        return peer.request(signedRegister(*signerA, peer.serviceKey, registerBody(passcode, "10.4.4.4", 47800, "Short", 10)));
    };
    const zv::wire::Envelope held = registerShort("");
    ASSERT_EQ(zv::bodyName(held), kRegistered);
    const std::string passcode = held.registered().passcode();
    nowMs += 9000;
    const zv::wire::Envelope renewal = registerShort(passcode);
    ASSERT_EQ(renewal.registered().passcode(), passcode);
    EXPECT_EQ(renewal.registered().ttl(), 10);
    nowMs += 9000;  // past the first ttl, within the renewed one
    EXPECT_TRUE(resolve(QString::fromStdString(passcode)).ok);

    nowMs += 1000;
    ASSERT_TRUE(waitForSignal(expiredSpy));
    EXPECT_EQ(expiredSpy[0][0].toString(), QString::fromStdString(passcode));
    EXPECT_EQ(expiredSpy[0][1].toString(), "10.4.4.4");
    EXPECT_EQ(service->registrationCount(), 0);
    EXPECT_EQ(resolve(QString::fromStdString(passcode)).failure, Failure::Unknown);
}

TEST_F(PasscodeServiceTest, ConnectionLimitAndIdleTimeOut) {
    service->setMaxConnections(3);
    std::vector<std::unique_ptr<RawPeer>> held;
    for (int i = 0; i < 3; ++i) held.push_back(std::make_unique<RawPeer>(port));
    ASSERT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 3; }, kWaitMs));

    EXPECT_EQ(resolve(QStringLiteral("RS56")).failure, Failure::Unreachable);
    EXPECT_EQ(service->connectionCount(), 3);
    for (const auto& peer : held) EXPECT_FALSE(peer->closed);

    held.pop_back();
    ASSERT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 2; }, kWaitMs));
    EXPECT_EQ(resolve(QStringLiteral("RS56")).failure, Failure::Unknown);

    // Idle connections are closed, also one stuck inside a frame. Each peer
    // is first served once, so its end is the time-out and not the limit.
    service->setMaxConnections(PasscodeService::kMaxConnections);
    service->setIdleTimeoutMs(1000);
    RawPeer silent(port);
    EXPECT_EQ(errorReason(silent.request(resolveRequest("RS57"))), "unknown");
    EXPECT_TRUE(QTest::qWaitFor([&] { return silent.closed; }, kWaitMs));
    RawPeer partial(port);
    EXPECT_EQ(errorReason(partial.request(resolveRequest("RS58"))), "unknown");
    partial.writeRaw(QByteArray::fromHex("00000010a1"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return partial.closed; }, kWaitMs));
    EXPECT_TRUE(QTest::qWaitFor([&] { return service->connectionCount() == 2; }, kWaitMs));
}

TEST_F(PasscodeServiceTest, ClientWorksFromAnotherThread) {
    RawPeer holder(port);
    const zv::wire::Envelope held =
        holder.request(signedRegister(*signerA, holder.serviceKey, registerBody("", "10.5.5.5", 47802, "Far", 60)));
    ASSERT_EQ(zv::bodyName(held), kRegistered);
    const QString passcode = QString::fromStdString(held.registered().passcode());
    const QString unknown = passcode == QStringLiteral("TV79") ? QStringLiteral("TV78") : QStringLiteral("TV79");

    QThread worker;
    worker.start();
    auto* client = new PasscodeClient(nullptr, pcPins);
    client->moveToThread(&worker);
    QObject receiver;  // lives here: the signals cross threads
    std::vector<QString> results;
    QObject::connect(client, &PasscodeClient::resolved, &receiver,
                     [&](const QString& address, quint16 p, const QString&, const QString&) {
                         EXPECT_EQ(QThread::currentThread(), receiver.thread());
                         results.push_back(address + ':' + QString::number(p));
                     });
    QObject::connect(client, &PasscodeClient::failed, &receiver, [&](Failure f, const QString&) {
        results.push_back(f == Failure::Unknown ? QStringLiteral("unknown") : QStringLiteral("other"));
    });
    const quint16 servicePort = port;
    QMetaObject::invokeMethod(client, [client, servicePort, passcode] { client->resolve(kLoopback, servicePort, passcode); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 1; }, kWaitMs));
    QMetaObject::invokeMethod(client, [client, servicePort, unknown] { client->resolve(kLoopback, servicePort, unknown); });
    ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == 2; }, kWaitMs));
    EXPECT_EQ(results[0], "10.5.5.5:47802");
    EXPECT_EQ(results[1], "unknown");

    QObject::connect(client, &QObject::destroyed, &worker, &QThread::quit, Qt::DirectConnection);
    client->deleteLater();
    ASSERT_TRUE(worker.wait(kWaitMs));
}

}  // namespace
