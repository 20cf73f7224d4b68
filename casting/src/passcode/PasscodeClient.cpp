#include "passcode/PasscodeClient.h"

#include <QCborMap>
#include <QMetaEnum>
#include <QTcpSocket>
#include <QTimer>

#include <algorithm>

#include "casting/Log.h"
#include "protocol/ConnectCode.h"
#include "protocol/Messages.h"
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
    connect(m_channel, &MessageChannel::messageReceived, this, &PasscodeClient::onAnswer);
    connect(m_channel, &MessageChannel::closed, this, [this](const QString& reason) {
        fail(Failure::Unreachable, QStringLiteral("%1 ended the connection: %2").arg(m_target, reason));
    });
    if (!m_channel->send(buildResolve({m_passcode}))) {
        fail(Failure::Unreachable, QStringLiteral("cannot send to %1").arg(m_target));
    }
}

void PasscodeClient::onAnswer(const QCborMap& message) {
    const QString type = messageType(message);
    QString error;
    if (type == msg::kResolved) {
        const auto answer = parseResolved(message, &error);
        if (answer && answer->port > 0 && answer->port <= 65535) {
            return succeed(answer->address, quint16(answer->port), answer->name);
        }
        if (answer) error = QStringLiteral("port %1 out of range").arg(answer->port);
    } else if (type == msg::kError) {
        if (const auto answer = parseError(message, &error)) {
            if (answer->reason == reason::kUnknown) {
                return fail(Failure::Unknown, QStringLiteral("no panel holds passcode %1").arg(m_passcode));
            }
            if (answer->reason == reason::kRateLimited) {
                return fail(Failure::RateLimited, QStringLiteral("too many wrong passcodes; try again later"));
            }
            if (answer->reason == reason::kInvalid) {
                return fail(Failure::Invalid, QStringLiteral("the service calls %1 invalid").arg(m_passcode));
            }
            error = QStringLiteral("error reason \"%1\"").arg(answer->reason.left(64));
        }
    } else {
        error = QStringLiteral("unexpected message \"%1\"").arg(type.left(64));
    }
    fail(Failure::Unreachable, QStringLiteral("bad answer from %1: %2").arg(m_target, error));
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
}

PasscodeRegistration::~PasscodeRegistration() {
    if (m_socket) m_socket->disconnect(this);
    if (!m_channel) return;
    m_channel->disconnect(this);
    if (m_channel->isOpen() && m_channel->send(buildUnregister({m_settings.passcode, m_settings.address}))) {
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
    connect(m_channel, &MessageChannel::messageReceived, this, &PasscodeRegistration::onAnswer);
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
    const RegisterMessage request{m_settings.passcode, m_settings.address, int(m_settings.port), m_settings.name,
                                  m_settings.ttlSeconds};
    if (!m_channel->send(buildRegister(request))) {
        setRegistered(false);
        onLinkLost(QStringLiteral("cannot send"));
        return;
    }
    m_answerTimer->start(kAnswerTimeoutMs);
}

void PasscodeRegistration::onAnswer(const QCborMap& message) {
    const QString type = messageType(message);
    QString error;
    if (type == msg::kUnregistered) return;
    if (type == msg::kRegistered) {
        if (!parseRegistered(message, &error)) return onLinkLost(QStringLiteral("bad answer: ") + error);
        m_answerTimer->stop();
        m_retryMs = kFirstRetryMs;
        m_takenInARow = 0;
        if (!m_registered) {
            ZV_LOG(INFO) << " passcode " << text(m_settings.passcode) << " registered for "
                         << text(m_settings.address) << ":" << m_settings.port;
        }
        setRegistered(true);
        m_renewTimer->start(std::max(1, m_settings.ttlSeconds) * 1000 / 3);
        return;
    }
    if (type == msg::kError) {
        const auto answer = parseError(message, &error);
        if (!answer) return onLinkLost(QStringLiteral("bad answer: ") + error);
        m_answerTimer->stop();
        if (answer->reason == reason::kTaken) {
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
        if (answer->reason == reason::kInvalid) {
            ZV_LOG(ERROR) << " the passcode service refuses to register " << text(m_settings.address) << ":"
                          << m_settings.port << " \"" << text(m_settings.name) << "\" for " << m_settings.ttlSeconds
                          << " s as invalid; giving up";
            m_stopped = true;
            m_renewTimer->stop();
            m_retryTimer->stop();
            dropLink();
            setRegistered(false);
            emit refused(answer->reason);
            return;
        }
        return onLinkLost(QStringLiteral("unexpected error reason \"%1\"").arg(answer->reason.left(64)));
    }
    onLinkLost(QStringLiteral("unexpected message \"%1\"").arg(type.left(64)));
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
