#include "passcode/PasscodeClient.h"

#include <QMetaEnum>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

#include "casting/Log.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "transport/MessageChannel.h"

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

void retire(QTcpSocket* socket, QObject* owner) {
    socket->disconnect(owner);
    socket->abort();
    socket->deleteLater();
}

}  // namespace

// ---- PasscodeClient

PasscodeClient::PasscodeClient(QObject* parent) : QObject(parent), m_timer(new QTimer(this)) {
    qRegisterMetaType<zv::PasscodeClient::Failure>();
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, [this] {
        fail(Failure::Timeout, QStringLiteral("no answer from %1 within %2 ms").arg(m_target).arg(m_timer->interval()));
    });
    m_dispatch.on(wire::Envelope::kResolved, [this](const wire::Envelope& e) { onResolved(e.resolved()); });
    m_dispatch.on(wire::Envelope::kPasscodeError, [this](const wire::Envelope& e) { onError(e.passcode_error()); });
}

PasscodeClient::~PasscodeClient() {
    if (m_socket) m_socket->disconnect(this);
    if (m_channel) m_channel->disconnect(this);
}

void PasscodeClient::resolve(const QString& host, quint16 port, const QString& passcode, int timeoutMs) {
    reset();
    const quint64 request = m_request;
    m_busy = true;
    m_target = host + QLatin1Char(':') + QString::number(port);
    m_passcode = code::normalize(passcode.left(64));
    if (!code::isValidPasscode(m_passcode)) {
        QTimer::singleShot(0, this, [this, request] {
            if (request == m_request) fail(Failure::Invalid, QStringLiteral("not a 4-character passcode"));
        });
        return;
    }
    m_timer->start(timeoutMs > 0 ? timeoutMs : kDefaultTimeoutMs);
    m_socket = new QTcpSocket(this);
    connect(m_socket, &QAbstractSocket::connected, this, &PasscodeClient::onConnected);
    // Queued: a socket may report some errors inside connectToHost, and
    // signals must not come before resolve() returns.
    connect(
        m_socket, &QAbstractSocket::errorOccurred, this,
        [this, request] {
            if (request != m_request || !m_socket) return;
            fail(Failure::Unreachable, QStringLiteral("%1: %2").arg(m_target, m_socket->errorString()));
        },
        Qt::QueuedConnection);
    m_socket->connectToHost(host, port);
}

void PasscodeClient::cancel() { reset(); }

void PasscodeClient::onConnected() {
    QTcpSocket* socket = m_socket;
    m_socket = nullptr;
    socket->disconnect(this);
    m_channel = new MessageChannel(socket, this);
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
    if (answer.port() > 0 && answer.port() <= 65535) {
        return succeed(QString::fromStdString(answer.address()), quint16(answer.port()),
                       QString::fromStdString(answer.name()));
    }
    fail(Failure::Unreachable, QStringLiteral("bad answer from %1: port %2 out of range").arg(m_target).arg(answer.port()));
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

void PasscodeClient::succeed(const QString& address, quint16 port, const QString& name) {
    ZV_LOG(INFO) << " passcode " << text(m_passcode) << " -> " << text(address) << ":" << port << " \""
                 << text(name) << "\"";
    reset();
    emit resolved(address, port, name);
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
    if (m_socket) retire(m_socket, this);
    m_socket = nullptr;
    if (m_channel) retire(m_channel, this, QStringLiteral("done"));
    m_channel = nullptr;
}

// ---- PasscodeRegistration

PasscodeRegistration::PasscodeRegistration(const Settings& settings, QObject* parent)
    : QObject(parent),
      m_settings(settings),
      m_answerTimer(new QTimer(this)),
      m_renewTimer(new QTimer(this)),
      m_retryTimer(new QTimer(this)) {
    for (QTimer* timer : {m_answerTimer, m_renewTimer, m_retryTimer}) timer->setSingleShot(true);
    connect(m_answerTimer, &QTimer::timeout, this, [this] {
        setRegistered(false);
        onLinkLost(QStringLiteral("no answer within %1 ms").arg(kAnswerTimeoutMs));
    });
    connect(m_renewTimer, &QTimer::timeout, this, &PasscodeRegistration::sendRegister);
    connect(m_retryTimer, &QTimer::timeout, this, &PasscodeRegistration::sendRegister);
    m_dispatch.on(wire::Envelope::kRegistered, [this](const wire::Envelope&) { onRegistered(); });
    m_dispatch.on(wire::Envelope::kUnregistered, [](const wire::Envelope&) {});
    m_dispatch.on(wire::Envelope::kPasscodeError, [this](const wire::Envelope& e) { onError(e.passcode_error()); });
}

PasscodeRegistration::~PasscodeRegistration() {
    if (m_socket) m_socket->disconnect(this);
    if (!m_channel) return;
    m_channel->disconnect(this);
    wire::Unregister release;
    release.set_passcode(m_settings.passcode.toStdString());
    release.set_address(m_settings.address.toStdString());
    if (m_channel->isOpen() && m_channel->send(wrap(release))) {
        // Hand the bytes to the system now; the connection goes with us.
        m_channel->socket()->flush();
        ZV_LOG(INFO) << " released passcode " << text(m_settings.passcode);
    }
}

void PasscodeRegistration::start() {
    if (m_started) return;
    m_started = true;
    const QString canonical = code::normalize(m_settings.passcode.left(64));
    if (!code::isValidPasscode(canonical)) {
        if (!m_settings.passcode.isEmpty()) {
            ZV_LOG(WARNING) << " \"" << text(m_settings.passcode.left(64)) << "\" is no passcode; picking one";
        }
        pickNewPasscode();
    } else if (canonical != m_settings.passcode) {
        m_settings.passcode = canonical;
        emit passcodeChanged(canonical);
    }
    connectToService();
}

void PasscodeRegistration::connectToService() {
    dropLink();
    m_socket = new QTcpSocket(this);
    QTcpSocket* socket = m_socket;
    connect(m_socket, &QAbstractSocket::connected, this, &PasscodeRegistration::onConnected);
    connect(
        m_socket, &QAbstractSocket::errorOccurred, this,
        [this, socket] {
            if (socket != m_socket) return;
            setRegistered(false);
            onLinkLost(QStringLiteral("cannot reach the service: ") + socket->errorString());
        },
        Qt::QueuedConnection);
    m_answerTimer->start(kAnswerTimeoutMs);
    m_socket->connectToHost(m_settings.serviceHost, m_settings.servicePort);
}

void PasscodeRegistration::onConnected() {
    QTcpSocket* socket = m_socket;
    m_socket = nullptr;
    socket->disconnect(this);
    m_channel = new MessageChannel(socket, this);
    connect(m_channel, &MessageChannel::messageReceived, this, &PasscodeRegistration::handle);
    connect(m_channel, &MessageChannel::closed, this, &PasscodeRegistration::onLinkLost);
    sendRegister();
}

void PasscodeRegistration::sendRegister() {
    if (m_stopped) return;
    m_renewTimer->stop();
    m_retryTimer->stop();
    if (!m_channel || !m_channel->isOpen()) {
        connectToService();
        return;
    }
    wire::Register request;
    request.set_passcode(m_settings.passcode.toStdString());
    request.set_address(m_settings.address.toStdString());
    request.set_port(m_settings.port);
    request.set_name(m_settings.name.toStdString());
    request.set_ttl(m_settings.ttlSeconds);
    if (!m_channel->send(wrap(request))) {
        setRegistered(false);
        onLinkLost(QStringLiteral("cannot send"));
        return;
    }
    m_answerTimer->start(kAnswerTimeoutMs);
}

void PasscodeRegistration::handle(const wire::Envelope& envelope) {
    if (m_dispatch.dispatch(envelope) == Dispatch::Unexpected) {
        onLinkLost(QStringLiteral("unexpected message \"%1\"").arg(bodyName(envelope)));
    }
}

void PasscodeRegistration::onRegistered() {
    m_answerTimer->stop();
    m_retryMs = kFirstRetryMs;
    m_takenInARow = 0;
    if (!m_registered) {
        ZV_LOG(INFO) << " passcode " << text(m_settings.passcode) << " registered for " << text(m_settings.address)
                     << ":" << m_settings.port;
    }
    setRegistered(true);
    m_renewTimer->start(std::max(1, m_settings.ttlSeconds) * 1000 / 3);
}

void PasscodeRegistration::onError(const wire::PasscodeError& answer) {
    m_answerTimer->stop();
    if (answer.reason() == wire::PasscodeError::TAKEN) {
        setRegistered(false);
        ZV_LOG(INFO) << " passcode " << text(m_settings.passcode) << " is taken; picking another";
        pickNewPasscode();
        if (++m_takenInARow < kMaxTakenInARow) {
            sendRegister();
        } else {
            m_takenInARow = 0;
            scheduleRetry();
        }
        return;
    }
    if (answer.reason() == wire::PasscodeError::INVALID) {
        ZV_LOG(ERROR) << " the passcode service refuses to register " << text(m_settings.address) << ":"
                      << m_settings.port << " \"" << text(m_settings.name) << "\" for " << m_settings.ttlSeconds
                      << " s as invalid; giving up";
        m_stopped = true;
        m_renewTimer->stop();
        m_retryTimer->stop();
        dropLink();
        setRegistered(false);
        emit refused(passcodeErrorName(answer.reason()));
        return;
    }
    onLinkLost(QStringLiteral("unexpected error reason %1").arg(passcodeErrorName(answer.reason())));
}

void PasscodeRegistration::onLinkLost(const QString& reason) {
    if (m_stopped) return;
    // A link that ends between requests is usually the service's idle
    // time-out (long ttls); reconnecting at once also notices a restart.
    const std::string line = " passcode service " + text(m_settings.serviceHost) + ":" +
                             std::to_string(m_settings.servicePort) + ": " + text(reason) + "; trying again in " +
                             std::to_string(m_retryMs) + " ms";
    if (m_registered && !m_answerTimer->isActive()) {
        ZV_LOG(INFO) << line;
    } else {
        ZV_LOG(WARNING) << line;
    }
    dropLink();
    scheduleRetry();
}

void PasscodeRegistration::scheduleRetry() {
    m_answerTimer->stop();
    m_renewTimer->stop();
    m_retryTimer->start(m_retryMs);
    m_retryMs = std::min(m_retryMs * 2, kMaxRetryMs);
}

void PasscodeRegistration::dropLink() {
    m_answerTimer->stop();
    if (m_socket) retire(m_socket, this);
    m_socket = nullptr;
    if (m_channel) retire(m_channel, this, QStringLiteral("registration link reset"));
    m_channel = nullptr;
}

void PasscodeRegistration::pickNewPasscode() {
    QString next;
    do {
        next = code::generatePasscode();
    } while (next == m_settings.passcode);
    m_settings.passcode = next;
    emit passcodeChanged(next);
}

void PasscodeRegistration::setRegistered(bool registered) {
    if (registered == m_registered) return;
    m_registered = registered;
    emit registeredChanged(registered);
}

}  // namespace zv
