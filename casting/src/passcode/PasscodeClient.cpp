#include "passcode/PasscodeClient.h"

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
    reset();
    const quint64 request = m_request;
    m_busy = true;
    m_host = host;
    m_port = port;
    m_target = host + QLatin1Char(':') + QString::number(port);
    m_passcode = code::normalize(passcode.left(64));
    if (!code::isValidPasscode(m_passcode)) {
        QTimer::singleShot(0, this, [this, request] {
            if (request == m_request) fail(Failure::Invalid, QStringLiteral("not a 4-character passcode"));
        });
        return;
    }
    const int budgetMs = timeoutMs > 0 ? timeoutMs : kDefaultTimeoutMs;
    m_timer->start(budgetMs);
    // Started from the event loop: no signal can come before resolve() returns.
    QTimer::singleShot(0, this, [this, request, budgetMs] {
        if (request != m_request) return;
        MessageChannel::connectTls(m_host, m_port, budgetMs, this,
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
    });
}

void PasscodeClient::cancel() { reset(); }

void PasscodeClient::onConnected(MessageChannel* channel) {
    PasscodePins pins(m_pinsPath);
    const PasscodePins::Verdict verdict = pins.check(m_host, m_port, channel->peerKeyId());
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
    ZV_LOG(WARNING) << " passcode " << text(m_passcode) << " not resolved ("
                    << QMetaEnum::fromType<Failure>().valueToKey(int(reason)) << "): " << text(detail);
    reset();
    emit failed(reason, detail);
}

void PasscodeClient::reset() {
    ++m_request;
    m_busy = false;
    m_timer->stop();
    if (m_channel) retire(m_channel, this, QStringLiteral("done"));
    m_channel = nullptr;
}

}  // namespace zv
