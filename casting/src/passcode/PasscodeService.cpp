#include "passcode/PasscodeService.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>

#include <cstdlib>

#include "casting/Log.h"
#include "passcode/MemoryPasscodeStore.h"
#include "passcode/PanelProof.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/KeyId.h"
#include "transport/MessageChannel.h"

namespace zv {

namespace {

std::string text(const QString& s) { return s.toStdString(); }
QString qtext(const std::string& s) { return QString::fromStdString(s); }

PasscodeService::Clock orMonotonic(PasscodeService::Clock clock) {
    if (clock) return clock;
    return [] {
        static QElapsedTimer started = [] {
            QElapsedTimer t;
            t.start();
            return t;
        }();
        return started.elapsed();
    };
}

}  // namespace

PasscodeService::PasscodeService(const QSslKey& key, const QSslCertificate& certificate, QObject* parent)
    : PasscodeService(key, certificate, Clock{}, {}, parent) {}

PasscodeService::PasscodeService(const QSslKey& key, const QSslCertificate& certificate, Clock clock,
                                 PasscodeRegistry::Picker picker, QObject* parent)
    : PasscodeService(key, certificate, new MemoryPasscodeStore(orMonotonic(clock), std::move(picker)), parent) {}

PasscodeService::PasscodeService(const QSslKey& key, const QSslCertificate& certificate, PasscodeStore* store,
                                 QObject* parent)
    : QObject(parent),
      m_server(new TlsServer(key, certificate, this)),
      m_expiryTimer(new QTimer(this)),
      m_keyId(keyIdOf(certificate)),
      m_hasIdentity(!key.isNull() && !m_keyId.isEmpty()),
      m_wallClock([] { return QDateTime::currentMSecsSinceEpoch(); }),
      m_store(store) {
    m_store->setParent(this);
    m_server->setClientCertificateRequired(false);  // panels sign their requests; PCs stay anonymous
    connect(m_server, &TlsServer::newChannel, this, &PasscodeService::onNewChannel);
    connect(m_expiryTimer, &QTimer::timeout, this, &PasscodeService::expireRegistrations);
    using E = wire::Envelope;
    m_dispatch.on(E::kRegisterPasscode,
                  [this](const E& e, MessageChannel* channel) { handleRegister(channel, e.register_passcode()); });
    m_dispatch.on(E::kResolve, [this](const E& e, MessageChannel* channel) { handleResolve(channel, e.resolve()); });
    m_dispatch.on(E::kUnregister,
                  [this](const E& e, MessageChannel* channel) { handleUnregister(channel, e.unregister()); });
}

PasscodeService::~PasscodeService() {
    // Channels are children; closing the server first stops new arrivals
    // while they go.
    m_server->close();
    for (auto it = m_idleTimers.constBegin(); it != m_idleTimers.constEnd(); ++it) it.key()->disconnect(this);
}

bool PasscodeService::listen(const QHostAddress& address, quint16 port) {
    if (!m_hasIdentity) {
        ZV_LOG(ERROR) << " no TLS key for the passcode service";
        return false;
    }
    if (!m_server->listen(address, port)) {
        ZV_LOG(ERROR) << " cannot listen on " << text(address.toString()) << ":" << port << ": "
                      << text(m_server->errorString());
        return false;
    }
    m_expiryTimer->start(kExpiryCheckMs);
    ZV_LOG(INFO) << " passcode service listening on " << text(m_server->serverAddress().toString()) << ":"
                 << m_server->serverPort() << ", key " << text(m_keyId);
    return true;
}

bool PasscodeService::isListening() const { return m_server->isListening(); }
QHostAddress PasscodeService::address() const { return m_server->serverAddress(); }
quint16 PasscodeService::port() const { return m_server->serverPort(); }
QString PasscodeService::errorString() const {
    return m_hasIdentity ? m_server->errorString() : QStringLiteral("no TLS key and certificate");
}

void PasscodeService::onNewChannel(MessageChannel* channel) {
    channel->setParent(this);
    if (m_idleTimers.size() >= m_maxConnections) {
        ZV_LOG(WARNING) << " " << m_idleTimers.size() << " connections open; refusing " << text(channel->peerName());
        delete channel;
        return;
    }
    auto* idle = new QTimer(channel);
    idle->setSingleShot(true);
    m_idleTimers.insert(channel, idle);

    connect(idle, &QTimer::timeout, channel, [this, channel] {
        ZV_LOG(INFO) << " " << text(channel->peerName()) << " idle for " << m_idleTimeoutMs << " ms";
        channel->close(QStringLiteral("idle time-out"));
    });
    connect(channel, &MessageChannel::messageReceived, this,
            [this, channel](const wire::Envelope& envelope) { handle(channel, envelope); });
    connect(channel, &MessageChannel::heartbeatReceived, this,
            [this, channel] { reject(channel, QStringLiteral("unexpected message \"hb\"")); });
    connect(channel, &MessageChannel::closed, this, [this, channel](const QString& reason) {
        ZV_VLOG(1) << " " << text(channel->peerName()) << " gone: " << text(reason);
        m_idleTimers.remove(channel);
        channel->deleteLater();
    });
    idle->start(m_idleTimeoutMs);
}

void PasscodeService::handle(MessageChannel* channel, const wire::Envelope& envelope) {
    if (!channel->isOpen()) return;
    if (QTimer* idle = m_idleTimers.value(channel)) idle->start(m_idleTimeoutMs);
    if (m_dispatch.dispatch(envelope, channel) == Dispatch::Unexpected) {
        reject(channel, QStringLiteral("unexpected message \"%1\"").arg(bodyName(envelope)));
    }
}

QString PasscodeService::checkProof(MessageChannel* channel, const wire::PanelProof& proof, const QByteArray& bytes,
                                    const char* what) {
    QString why;
    const QString panelKey = passcode::verifyProof(proof, bytes, &why);
    if (panelKey.isEmpty()) {
        ZV_LOG(WARNING) << " " << what << " from " << text(channel->peerName()) << " refused: " << text(why);
        refuseCounted(channel, wire::PasscodeError::BAD_PROOF);
        return {};
    }
    const qint64 skew = m_wallClock() - proof.timestamp_ms();
    if (std::llabs(skew) > passcode::kMaxClockSkewMs) {
        ZV_LOG(WARNING) << " " << what << " from " << text(channel->peerName()) << " by panel key "
                        << text(shortKeyId(panelKey)) << " refused: its timestamp is " << skew / 1000
                        << " s off this service's clock";
        refuseCounted(channel, wire::PasscodeError::STALE);
        return {};
    }
    return panelKey;
}

void PasscodeService::handleRegister(MessageChannel* channel, const wire::Register& request) {
    const QString source = channel->peerAddress().toString();
    // Checked in the store first (shared with other instances), then the proof.
    m_store->checkPanelSource(source, [this, channel = QPointer<MessageChannel>(channel), request,
                                       source](const PasscodeStore::LimitAnswer& limit) {
        if (!channel || !channel->isOpen()) return;
        if (limit.status != PasscodeStore::Status::Ok) return refuse(channel, wire::PasscodeError::UNAVAILABLE);
        if (!limit.allowed) {
            ZV_LOG(INFO) << " register from " << text(channel->peerName()) << " refused unchecked, locked for "
                         << limit.retryAfterMs << " ms more";
            return refuse(channel, wire::PasscodeError::RATE_LIMITED);
        }
        const QString panelKey =
            checkProof(channel, request.proof(), passcode::signedBytes(request, m_keyId), "register");
        if (panelKey.isEmpty()) return;

        PasscodeStore::Registration registration;
        PasscodeRegistry::Request& entry = registration.request;
        registration.source = source;
        entry.passcode = qtext(request.passcode());
        entry.address = qtext(request.address());
        entry.port = request.port() >= 1 && request.port() <= 65535 ? quint16(request.port()) : 0;
        entry.name = qtext(request.name());
        entry.ttlSeconds = request.ttl();
        entry.rotate = request.rotate();
        entry.keyId = panelKey;
        entry.stampMs = request.proof().timestamp_ms();
        entry.certificate = QByteArray::fromStdString(request.proof().certificate());
        entry.signature = QByteArray::fromStdString(request.proof().signature());
        if (!PasscodeRegistry::isValidRequest(entry)) {
            ZV_LOG(INFO) << " invalid register from " << text(channel->peerName()) << ": passcode \""
                         << text(entry.passcode.left(16)) << "\" address \"" << text(entry.address.left(64))
                         << "\" port " << request.port() << " ttl " << request.ttl();
            return refuseCounted(channel, wire::PasscodeError::INVALID);
        }
        m_store->registerPanel(registration, [this, channel, panelKey](const PasscodeStore::RegisterAnswer& answer) {
            if (channel && channel->isOpen()) answerRegister(channel, panelKey, answer);
        });
    });
}

void PasscodeService::answerRegister(MessageChannel* channel, const QString& panelKey,
                                     const PasscodeStore::RegisterAnswer& answer) {
    if (answer.status != PasscodeStore::Status::Ok) {
        ZV_LOG(WARNING) << " register from " << text(channel->peerName()) << " not done: the store "
                        << text(m_store->describe()) << " is unavailable";
        return refuse(channel, wire::PasscodeError::UNAVAILABLE);
    }
    const PasscodeRegistry::Outcome& outcome = answer.outcome;
    switch (outcome.result) {
    case PasscodeRegistry::Result::Invalid:
        return refuseCounted(channel, wire::PasscodeError::INVALID);
    case PasscodeRegistry::Result::Replayed:
        ZV_LOG(WARNING) << " register from " << text(channel->peerName()) << " by panel key "
                        << text(shortKeyId(panelKey)) << " is no newer than its last one: refused as a replay";
        return refuseCounted(channel, wire::PasscodeError::STALE);
    case PasscodeRegistry::Result::Full:
        ZV_LOG(WARNING) << " no new passcode for " << text(channel->peerName()) << " (panel key "
                        << text(shortKeyId(panelKey)) << " holds " << answer.held << ", table "
                        << m_store->size() << ", source budget " << (answer.budgetLeft ? "left" : "spent") << ")";
        return refuse(channel, wire::PasscodeError::RATE_LIMITED);
    case PasscodeRegistry::Result::Assigned:
    case PasscodeRegistry::Result::Renewed:
        break;
    }
    const PasscodeRegistry::Entry& held = outcome.entry;
    wire::Registered reply;
    reply.set_passcode(held.passcode.toStdString());
    reply.set_ttl(held.ttlSeconds);
    channel->send(wrap(reply));
    if (outcome.result == PasscodeRegistry::Result::Renewed) {
        ZV_VLOG(1) << " passcode " << text(held.passcode) << " renewed by " << text(held.address);
        emit renewed(held.passcode, held.address);
        return;
    }
    expireRegistrations();  // a lapsed holder this one replaced is reported first
    if (outcome.released) {
        ZV_LOG(INFO) << " passcode " << text(outcome.released->passcode) << " of " << text(outcome.released->address)
                     << " released for a new one";
        emit unregistered(outcome.released->passcode, outcome.released->address);
    }
    ZV_LOG(INFO) << " passcode " << text(held.passcode) << " -> " << text(held.address) << ":" << held.port << " \""
                 << text(held.name) << "\", panel key " << text(shortKeyId(panelKey)) << ", for " << held.ttlSeconds
                 << " s (from " << text(channel->peerName()) << ")";
    emit registered(held.passcode, held.address, held.port, held.name, held.ttlSeconds, panelKey);
}

void PasscodeService::handleResolve(MessageChannel* channel, const wire::Resolve& request) {
    const QString passcode = qtext(request.passcode());
    const QString source = channel->peerAddress().toString();
    m_store->resolve(passcode, source, [this, channel = QPointer<MessageChannel>(channel),
                                        passcode](const PasscodeStore::ResolveAnswer& answer) {
        if (!channel || !channel->isOpen()) return;
        switch (answer.result) {
        case PasscodeStore::Lookup::Unavailable:
            ZV_LOG(WARNING) << " resolve from " << text(channel->peerName()) << " not done: the store "
                            << text(m_store->describe()) << " is unavailable";
            return refuse(channel, wire::PasscodeError::UNAVAILABLE);
        case PasscodeStore::Lookup::RateLimited:
            ZV_LOG(INFO) << " resolve from " << text(channel->peerName()) << " refused unchecked, locked for "
                         << answer.retryAfterMs << " ms more";
            return refuse(channel, wire::PasscodeError::RATE_LIMITED);
        case PasscodeStore::Lookup::Invalid:
            return refuse(channel, wire::PasscodeError::INVALID);
        case PasscodeStore::Lookup::Unknown:
            ZV_LOG(INFO) << " unknown passcode " << text(passcode.left(16)) << " from " << text(channel->peerName())
                         << " (" << answer.failures << " wrong)";
            return refuse(channel, wire::PasscodeError::UNKNOWN);
        case PasscodeStore::Lookup::Found:
            break;
        }
        const PasscodeRegistry::Entry& entry = answer.entry;
        ZV_VLOG(1) << " " << text(channel->peerName()) << " resolved " << text(entry.passcode);
        wire::Resolved resolved;
        resolved.set_address(entry.address.toStdString());
        resolved.set_port(entry.port);
        resolved.set_name(entry.name.toStdString());
        resolved.set_key(entry.keyId.toStdString());
        channel->send(wrap(resolved));
    });
}

void PasscodeService::handleUnregister(MessageChannel* channel, const wire::Unregister& request) {
    const QString source = channel->peerAddress().toString();
    m_store->checkPanelSource(source, [this, channel = QPointer<MessageChannel>(channel), request,
                                       source](const PasscodeStore::LimitAnswer& limit) {
        if (!channel || !channel->isOpen()) return;
        if (limit.status != PasscodeStore::Status::Ok) return refuse(channel, wire::PasscodeError::UNAVAILABLE);
        if (!limit.allowed) {
            ZV_LOG(INFO) << " unregister from " << text(channel->peerName()) << " refused unchecked, locked for "
                         << limit.retryAfterMs << " ms more";
            return refuse(channel, wire::PasscodeError::RATE_LIMITED);
        }
        const QString panelKey =
            checkProof(channel, request.proof(), passcode::signedBytes(request, m_keyId), "unregister");
        if (panelKey.isEmpty()) return;
        const QString passcode = qtext(request.passcode());
        m_store->remove(passcode, panelKey, request.proof().timestamp_ms(),
                        [this, channel, panelKey, passcode, source](const PasscodeStore::RemoveAnswer& answer) {
                            if (!channel || !channel->isOpen()) return;
                            if (answer.status != PasscodeStore::Status::Ok) {
                                return refuse(channel, wire::PasscodeError::UNAVAILABLE);
                            }
                            if (answer.removal == PasscodeRegistry::Removal::Removed) {
                                ZV_LOG(INFO) << " passcode " << text(answer.removed.passcode) << " released by "
                                             << text(answer.removed.address);
                                emit unregistered(answer.removed.passcode, answer.removed.address);
                            } else {
                                // Answered as if done: whether someone else holds it is not told.
                                ZV_LOG(INFO) << " " << text(channel->peerName()) << " (panel key "
                                             << text(shortKeyId(panelKey)) << ") tried to release passcode "
                                             << text(passcode.left(16)) << ", which that key does not hold";
                                m_store->recordPanelFailure(source);
                            }
                            channel->send(wrap(wire::Unregistered()));
                        });
    });
}

void PasscodeService::refuseCounted(MessageChannel* channel, wire::PasscodeError::Reason reason) {
    m_store->recordPanelFailure(channel->peerAddress().toString());
    refuse(channel, reason);
}

void PasscodeService::refuse(MessageChannel* channel, wire::PasscodeError::Reason reason) {
    wire::PasscodeError error;
    error.set_reason(reason);
    channel->send(wrap(error));
}

void PasscodeService::reject(MessageChannel* channel, const QString& reason) {
    const QString full = QStringLiteral("protocol error: ") + reason;
    ZV_LOG(WARNING) << " closing the connection with " << text(channel->peerName()) << ": " << text(full);
    channel->close(full);
}

void PasscodeService::expireRegistrations() {
    for (const PasscodeRegistry::Entry& entry : m_store->takeExpired()) {
        ZV_LOG(INFO) << " passcode " << text(entry.passcode) << " of " << text(entry.address) << " expired";
        emit expired(entry.passcode, entry.address);
    }
}

}  // namespace zv
