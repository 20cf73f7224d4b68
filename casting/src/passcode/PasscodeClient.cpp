#include "passcode/PasscodeClient.h"

#include <QFileInfo>
#include <QHostInfo>
#include <QMetaEnum>
#include <QTimer>

#include "casting/Log.h"
#include "passcode/PasscodePins.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/KeyId.h"
#include "transport/MessageChannel.h"
#include "transport/TlsIdentity.h"

namespace zv {

namespace {

std::string text(const QString& s) { return s.toStdString(); }

// Lets a channel we no longer listen to finish on its own: an open one is
// closed politely and deleted once closed, a closed one deleted now.
void retire(MessageChannel* channel, QObject* owner, const QString& why) {
    channel->disconnect(owner);
    if (channel->isOpen()) {
        QObject::connect(channel, &MessageChannel::closed, channel, &QObject::deleteLater);
        channel->close(why);
    } else {
        channel->deleteLater();
    }
}

}  // namespace

PasscodeClient::PasscodeClient(QObject* parent, const QString& pinsPath)
    : QObject(parent),
      m_pinsPath(pinsPath.isEmpty() ? PasscodePins::defaultPcPath() : pinsPath),
      m_timer(new QTimer(this)) {
    qRegisterMetaType<zv::PasscodeClient::Failure>();
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, [this] {
        fail(Failure::Timeout, QStringLiteral("no answer from %1 within %2 ms").arg(m_target).arg(m_timer->interval()));
    });
    m_dispatch.on(wire::Envelope::kResolved, [this](const wire::Envelope& e) { onResolved(e.resolved()); });
    m_dispatch.on(wire::Envelope::kPasscodeError, [this](const wire::Envelope& e) { onError(e.passcode_error()); });
}

PasscodeClient::~PasscodeClient() {
    if (m_channel) m_channel->disconnect(this);
}

void PasscodeClient::resolve(const QString& host, quint16 port, const QString& passcode, int timeoutMs) {
    PasscodeServerAddress server;
    server.host = host;
    server.port = port;
    resolve(QList<PasscodeServerAddress>{server}, passcode, timeoutMs);
}

void PasscodeClient::resolve(const QList<PasscodeServerAddress>& servers, const QString& passcode, int timeoutMs) {
    reset();
    const quint64 request = m_request;
    m_busy = true;
    m_servers = servers;
    m_keyChanged.reset();
    m_passcode = code::normalize(passcode.left(64));
    m_timeoutMs = timeoutMs > 0 ? timeoutMs : kDefaultTimeoutMs;
    if (!code::isValidPasscode(m_passcode) || servers.isEmpty()) {
        const bool valid = code::isValidPasscode(m_passcode);
        QTimer::singleShot(0, this, [this, request, valid] {
            if (request != m_request) return;
            if (!valid) return fail(Failure::Invalid, QStringLiteral("not a 4-character passcode"));
            fail(Failure::Unreachable, QStringLiteral("no passcode server given"));
        });
        return;
    }
    // Started from the event loop: no signal can come before resolve() returns.
    QTimer::singleShot(0, this, [this, request] {
        if (request == m_request) tryServer(0);
    });
}

void PasscodeClient::tryServer(int index) {
    if (m_channel) retire(m_channel, this, QStringLiteral("next server"));
    m_channel = nullptr;
    ++m_request;
    const quint64 request = m_request;
    m_index = index;
    m_host = m_servers[index].host;
    m_port = m_servers[index].port;
    m_target = m_host + QLatin1Char(':') + QString::number(m_port);
    const int budgetMs = index + 1 < m_servers.size() ? std::min(kPerServerTimeoutMs, m_timeoutMs) : m_timeoutMs;
    m_timer->start(budgetMs);
    MessageChannel::connectTls(m_host, m_port, budgetMs, pcCredentials(), this,
                               [this, request](MessageChannel* channel, const QString& error) {
                                   if (request != m_request) {
                                       delete channel;
                                       return;
                                   }
                                   if (!channel) {
                                       return fail(Failure::Unreachable, QStringLiteral("%1: %2").arg(m_target, error));
                                   }
                                   onConnected(channel);
                               });
}

void PasscodeClient::cancel() { reset(); }

TlsCredentials PasscodeClient::pcCredentials() {
    // The service asks every client for a certificate: show the PC's own
    // identity, kept beside the pins.
    if (m_credentials.isNull()) {
        QString error;
        const QString folder = QFileInfo(m_pinsPath).absolutePath();
        if (const auto identity = loadOrCreateTlsIdentity(folder, QHostInfo::localHostName(), kPcIdentity, &error)) {
            m_credentials = TlsCredentials::of(identity->privateKey, identity->certificate);
        } else {
            ZV_LOG(ERROR) << " no TLS identity for this PC in " << folder.toStdString() << ": " << error.toStdString();
        }
    }
    return m_credentials;
}

void PasscodeClient::onConnected(MessageChannel* channel) {
    PasscodePins pins(m_pinsPath);
    const PasscodePins::Verdict verdict =
        pins.check(m_host, m_port, channel->peerKeyId(), m_servers.value(m_index).keyId);
    if (!verdict.trusted) {
        delete channel;
        return fail(Failure::ServiceKeyChanged, verdict.error);
    }
    channel->setParent(this);
    m_channel = channel;
    connect(m_channel, &MessageChannel::messageReceived, this, &PasscodeClient::handle);
    connect(m_channel, &MessageChannel::closed, this, [this](const QString& reason) {
        fail(Failure::Unreachable, QStringLiteral("%1 ended the connection: %2").arg(m_target, reason));
    });
    wire::Resolve request;
    request.set_passcode(m_passcode.toStdString());
    if (!m_channel->send(wrap(request))) {
        fail(Failure::Unreachable, QStringLiteral("cannot send to %1").arg(m_target));
    }
}

void PasscodeClient::handle(const wire::Envelope& envelope) {
    if (m_dispatch.dispatch(envelope) == Dispatch::Unexpected) {
        fail(Failure::Unreachable,
             QStringLiteral("bad answer from %1: unexpected message \"%2\"").arg(m_target, bodyName(envelope)));
    }
}

void PasscodeClient::onResolved(const wire::Resolved& answer) {
    if (answer.port() <= 0 || answer.port() > 65535) {
        return fail(Failure::Unreachable,
                    QStringLiteral("bad answer from %1: port %2 out of range").arg(m_target).arg(answer.port()));
    }
    const QString panelKey = QString::fromStdString(answer.key());
    if (keyHashOfKeyId(panelKey).isEmpty()) {
        return fail(Failure::Unreachable, QStringLiteral("bad answer from %1: no panel key").arg(m_target));
    }
    succeed(QString::fromStdString(answer.address()), quint16(answer.port()), QString::fromStdString(answer.name()),
            panelKey);
}

void PasscodeClient::onError(const wire::PasscodeError& answer) {
    switch (answer.reason()) {
    case wire::PasscodeError::UNKNOWN:
        return fail(Failure::Unknown, QStringLiteral("no panel holds passcode %1").arg(m_passcode));
    case wire::PasscodeError::RATE_LIMITED:
        return fail(Failure::RateLimited, QStringLiteral("too many wrong passcodes; try again later"));
    case wire::PasscodeError::INVALID:
        return fail(Failure::Invalid, QStringLiteral("the service calls %1 invalid").arg(m_passcode));
    case wire::PasscodeError::UNAVAILABLE:
        return fail(Failure::Unreachable, QStringLiteral("%1 cannot reach its passcode store now").arg(m_target));
    default:
        return fail(Failure::Unreachable, QStringLiteral("bad answer from %1: error reason %2")
                                              .arg(m_target, passcodeErrorName(answer.reason())));
    }
}

void PasscodeClient::succeed(const QString& address, quint16 port, const QString& name, const QString& panelKey) {
    ZV_LOG(INFO) << " passcode " << text(m_passcode) << " -> " << text(address) << ":" << port << " \"" << text(name)
                 << "\", panel key " << text(shortKeyId(panelKey));
    reset();
    emit resolved(address, port, name, panelKey);
}

void PasscodeClient::fail(Failure reason, const QString& detail) {
    const bool movesOn = reason == Failure::Unreachable || reason == Failure::Timeout ||
                         reason == Failure::ServiceKeyChanged;
    if (movesOn && m_busy && m_index + 1 < m_servers.size()) {
        ZV_LOG(WARNING) << " passcode server " << text(m_target) << " failed ("
                        << QMetaEnum::fromType<Failure>().valueToKey(int(reason)) << ": " << text(detail)
                        << "); asking " << text(m_servers[m_index + 1].hostPort());
        if (reason == Failure::ServiceKeyChanged && !m_keyChanged) {
            m_keyChanged = reason;
            m_keyChangedDetail = detail;
        }
        return tryServer(m_index + 1);
    }
    Failure reported = reason;
    QString why = detail;
    // A key that changed matters more than a later server being down.
    if (m_keyChanged && (reason == Failure::Unreachable || reason == Failure::Timeout)) {
        reported = *m_keyChanged;
        why = m_keyChangedDetail;
    }
    ZV_LOG(WARNING) << " passcode " << text(m_passcode) << " not resolved ("
                    << QMetaEnum::fromType<Failure>().valueToKey(int(reported)) << "): " << text(why);
    reset();
    emit failed(reported, why);
}

void PasscodeClient::reset() {
    ++m_request;
    m_busy = false;
    m_timer->stop();
    if (m_channel) retire(m_channel, this, QStringLiteral("done"));
    m_channel = nullptr;
}

}  // namespace zv
