#include "transport/MessageChannel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QPointer>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTimer>

#include <memory>

#include "casting/Log.h"

namespace zv {

namespace {

QString endpoint(const QHostAddress& address, quint16 port) {
    return address.toString() + QLatin1Char(':') + QString::number(port);
}

void logConnectFailure(const QString& target, const QString& reason) {
    ZV_LOG(WARNING) << " TLS connection to " << target.toStdString() << " failed: " << reason.toStdString();
}

void configureTls(QSslSocket* socket) {
    socket->setProtocol(QSsl::TlsV1_3OrLater);
    // No certificate authorities: the panel key is pinned by the caller.
    socket->setPeerVerifyMode(QSslSocket::VerifyNone);
}

}  // namespace

// ---- MessageChannel

MessageChannel::MessageChannel(QTcpSocket* socket, QObject* parent)
    : QObject(parent),
      m_socket(socket),
      m_heartbeatTimer(new QTimer(this)),
      m_closeTimer(new QTimer(this)),
      m_peerAddress(socket->peerAddress()),
      m_peerPort(socket->peerPort()) {
    m_socket->setParent(this);
    m_closeTimer->setSingleShot(true);
    connect(m_socket, &QIODevice::readyRead, this, &MessageChannel::onReadyRead);
    connect(m_socket, &QAbstractSocket::disconnected, this, &MessageChannel::onDisconnected);
    connect(m_socket, &QAbstractSocket::errorOccurred, this, &MessageChannel::onSocketError);
    connect(m_heartbeatTimer, &QTimer::timeout, this, &MessageChannel::onHeartbeatTick);
    connect(m_closeTimer, &QTimer::timeout, this, &MessageChannel::onCloseTimeout);
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_state != State::Open) return;
            if (m_socket->bytesAvailable() > 0) onReadyRead();
            if (m_state == State::Open && m_socket->state() != QAbstractSocket::ConnectedState) onDisconnected();
        },
        Qt::QueuedConnection);
}

MessageChannel::~MessageChannel() {
    m_socket->disconnect(this);
    if (m_state != State::Closed) m_socket->abort();
}

QString MessageChannel::peerName() const { return endpoint(m_peerAddress, m_peerPort); }

QSslCertificate MessageChannel::peerCertificate() const {
    const auto* ssl = qobject_cast<const QSslSocket*>(m_socket);
    return ssl ? ssl->peerCertificate() : QSslCertificate();
}

bool MessageChannel::send(wire::Envelope envelope) {
    if (m_state != State::Open) return false;
    envelope.set_version(static_cast<uint32_t>(m_protocolMajor));
    const QByteArray frame = encodeFrame(envelope);
    if (frame.size() - 4 > qsizetype(kMaxFrameBytes)) {
        ZV_LOG(ERROR) << " not sending a " << frame.size() << "-byte \"" << bodyName(envelope).toStdString()
                      << "\" message to " << peerName().toStdString() << ": above the frame limit";
        return false;
    }
    return m_socket->write(frame) == frame.size();
}

void MessageChannel::close(const QString& reason) {
    if (m_state != State::Open) return;
    m_state = State::Closing;
    m_closeReason = reason;
    m_heartbeatTimer->stop();
    ZV_LOG(INFO) << " closing the connection with " << peerName().toStdString() << ": " << reason.toStdString();
    m_closeTimer->start(kCloseFlushMs);
    // Emits disconnected at once when nothing is left to write.
    m_socket->disconnectFromHost();
    if (m_state == State::Closing && m_socket->state() == QAbstractSocket::UnconnectedState) finish(reason);
}

void MessageChannel::onCloseTimeout() {
    ZV_LOG(WARNING) << " " << peerName().toStdString() << " did not take the last data within " << kCloseFlushMs
                    << " ms; dropping the connection";
    finish(m_closeReason);
}

void MessageChannel::startHeartbeat(int intervalMs) {
    if (m_state != State::Open) return;
    m_missed = 0;
    m_heardSinceTick = false;
    m_heartbeatTimer->start(intervalMs);
}

void MessageChannel::stopHeartbeat() {
    m_heartbeatTimer->stop();
    m_missed = 0;
}

void MessageChannel::onHeartbeatTick() {
    if (m_state != State::Open) return;
    wire::Envelope beat;
    beat.mutable_heartbeat()->set_seq(m_heartbeatSeq++);
    send(std::move(beat));
    if (m_heardSinceTick) {
        m_heardSinceTick = false;
        return;
    }
    ++m_missed;
    if (m_missed >= 2) emit heartbeatMissed(m_missed);
}

void MessageChannel::onReadyRead() {
    if (m_state != State::Open) {
        m_socket->readAll();  // closing: drained and ignored
        return;
    }
    if (!m_drainScheduled) drain();
}

void MessageChannel::scheduleDrain() {
    if (m_drainScheduled) return;
    m_drainScheduled = true;
    QMetaObject::invokeMethod(this, &MessageChannel::drain, Qt::QueuedConnection);
}

// One turn's share: read a bounded slice, hand out a bounded number of
// messages, and come back in the next turn while anything is left.
void MessageChannel::drain() {
    m_drainScheduled = false;
    if (m_state != State::Open) return;
    if (m_pending.empty() && !m_peerGone && m_socket->bytesAvailable() > 0) {
        const QByteArray data = m_socket->read(kMaxReadBytesPerTurn);
        if (!noteHeard()) return;
        decode(data);
    }
    if (!deliverPending(kMaxMessagesPerTurn)) return;
    if (!m_pending.empty() || (!m_peerGone && m_socket->bytesAvailable() > 0)) {
        scheduleDrain();
        return;
    }
    if (m_decoder.hasError()) {
        failProtocol(m_decoder.errorString());
        return;
    }
    if (m_peerGone) peerClosed();
}

void MessageChannel::decode(const QByteArray& data) {
    for (wire::Envelope& envelope : m_decoder.feed(data)) m_pending.push_back(std::move(envelope));
}

// Heartbeat bookkeeping for data that arrived; false when a handler of
// alive() closed or deleted the channel.
bool MessageChannel::noteHeard() {
    m_heardSinceTick = true;
    const bool wasMissing = m_missed >= 2;
    m_missed = 0;
    if (!wasMissing) return true;
    QPointer<MessageChannel> self(this);
    emit alive();
    return self && m_state == State::Open;
}

// False when the channel was closed (flooding, or by a handler) or deleted.
bool MessageChannel::deliverPending(int budget) {
    QPointer<MessageChannel> self(this);
    for (; budget > 0 && !m_pending.empty(); --budget) {
        const wire::Envelope envelope = std::move(m_pending.front());
        m_pending.pop_front();
        if (!countMessage()) return false;
        if (envelope.has_heartbeat()) {
            emit heartbeatReceived(envelope.heartbeat().seq());
        } else {
            emit messageReceived(envelope);
        }
        if (!self || m_state != State::Open) return false;
    }
    return true;
}

bool MessageChannel::countMessage() {
    if (m_maxMessagesPerSecond <= 0) return true;
    if (!m_rateWindow.isValid() || m_rateWindow.elapsed() >= 1000) {
        m_rateWindow.start();
        m_messagesInWindow = 0;
    }
    if (++m_messagesInWindow <= m_maxMessagesPerSecond) return true;
    m_pending.clear();
    failProtocol(QStringLiteral("flooding: more than %1 messages in a second").arg(m_maxMessagesPerSecond));
    return false;
}

void MessageChannel::onDisconnected() {
    if (m_state == State::Closing) {
        finish(m_closeReason);
        return;
    }
    if (m_state != State::Open || m_peerGone) return;
    m_peerGone = true;
    // A peer may send its last messages and close at once: they are taken
    // now and handed out before closed.
    if (m_socket->bytesAvailable() > 0) {
        const QByteArray data = m_socket->readAll();
        if (!noteHeard()) return;
        decode(data);
    }
    if (!m_drainScheduled) drain();
}

void MessageChannel::peerClosed() {
    QString reason = QStringLiteral("peer closed the connection");
    if (m_decoder.pendingBytes() > 0)
        reason += QStringLiteral(" (inside a frame, %1 bytes pending)").arg(m_decoder.pendingBytes());
    ZV_LOG(INFO) << " " << peerName().toStdString() << ": " << reason.toStdString();
    finish(reason);
}

void MessageChannel::onSocketError() {
    if (m_socket->error() == QAbstractSocket::RemoteHostClosedError) {
        onDisconnected();
        return;
    }
    if (m_state == State::Closing) {
        finish(m_closeReason);
        return;
    }
    if (m_state != State::Open) return;
    const QString reason = QStringLiteral("socket error: ") + m_socket->errorString();
    ZV_LOG(WARNING) << " " << peerName().toStdString() << ": " << reason.toStdString();
    finish(reason);
}

void MessageChannel::failProtocol(const QString& reason) {
    if (m_state != State::Open) return;
    const QString full = QStringLiteral("protocol error: ") + reason;
    ZV_LOG(WARNING) << " closing the connection with " << peerName().toStdString() << ": " << full.toStdString();
    finish(full);
}

void MessageChannel::finish(const QString& reason) {
    if (m_state == State::Closed) return;
    m_state = State::Closed;
    m_heartbeatTimer->stop();
    m_closeTimer->stop();
    m_socket->disconnect(this);
    m_socket->abort();
    emit closed(reason);
}

// ---- client helpers

void MessageChannel::connectTls(const QString& host, quint16 port, int timeoutMs, QObject* context, ConnectDone done) {
    // The socket is the context's child: gone with it, and no callback then.
    auto* socket = new QSslSocket(context);
    configureTls(socket);
    auto* timer = new QTimer(socket);
    timer->setSingleShot(true);
    const QString target = host + QLatin1Char(':') + QString::number(port);
    // Cleared as soon as the context starts dying, before its children go.
    const QPointer<QObject> guard(context);
    const bool hasContext = context != nullptr;
    auto report = [guard, hasContext, done](MessageChannel* channel, const QString& error) {
        if (hasContext && !guard) {
            delete channel;
            return;
        }
        done(channel, error);
    };

    // Runs at most once: every path first cuts the socket's connections.
    auto fail = [socket, timer, report, target](const QString& reason) {
        timer->stop();
        socket->disconnect();
        socket->abort();
        socket->deleteLater();
        logConnectFailure(target, reason);
        report(nullptr, reason);
    };
    QObject::connect(socket, &QSslSocket::encrypted, socket, [socket, timer, report] {
        timer->stop();
        socket->disconnect();
        delete timer;
        socket->setParent(nullptr);
        report(new MessageChannel(socket), QString());
    });
    QObject::connect(socket, &QAbstractSocket::errorOccurred, socket, [socket, fail] { fail(socket->errorString()); });
    QObject::connect(timer, &QTimer::timeout, socket, [fail, timeoutMs] {
        fail(QStringLiteral("no answer within %1 ms").arg(timeoutMs));
    });
    timer->start(timeoutMs);
    socket->connectToHostEncrypted(host, port);
}

MessageChannel* MessageChannel::connectTlsBlocking(const QString& host, quint16 port, int timeoutMs, QString* error) {
    auto socket = std::make_unique<QSslSocket>();
    configureTls(socket.get());
    socket->connectToHostEncrypted(host, port);
    if (!socket->waitForEncrypted(timeoutMs)) {
        const QString reason = socket->error() == QAbstractSocket::SocketTimeoutError
                                   ? QStringLiteral("no answer within %1 ms").arg(timeoutMs)
                                   : socket->errorString();
        logConnectFailure(host + QLatin1Char(':') + QString::number(port), reason);
        if (error) *error = reason;
        return nullptr;
    }
    return new MessageChannel(socket.release());
}

// ---- TlsServer

TlsServer::TlsServer(const QSslKey& key, const QSslCertificate& certificate, QObject* parent)
    : QTcpServer(parent), m_key(key), m_certificate(certificate) {}

namespace {

// The peer of an accepted descriptor as one key per host (an IPv4 peer on a
// dual-stack socket counts as its IPv4 address).
QString sourceOf(qintptr socketDescriptor) {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (::getpeername(int(socketDescriptor), reinterpret_cast<sockaddr*>(&storage), &length) != 0) return QString();
    QHostAddress address(reinterpret_cast<const sockaddr*>(&storage));
    bool mapped = false;
    const quint32 ipv4 = address.toIPv4Address(&mapped);
    if (mapped) address = QHostAddress(ipv4);
    return address.toString();
}

}  // namespace

int TlsServer::waitingFrom(const QHostAddress& address) const {
    bool mapped = false;
    const quint32 ipv4 = address.toIPv4Address(&mapped);
    return m_waitingBySource.value(mapped ? QHostAddress(ipv4).toString() : address.toString());
}

void TlsServer::incomingConnection(qintptr socketDescriptor) {
    const QString source = sourceOf(socketDescriptor);
    const int fromSource = m_waitingBySource.value(source);
    if (m_waitingTotal >= m_maxWaiting || fromSource >= m_maxWaitingPerSource) {
        ++m_turnedAway;
        // A flood must not flood the log too: one line a second at most.
        if (!m_lastTurnAwayLog.isValid() || m_lastTurnAwayLog.elapsed() >= 1000) {
            m_lastTurnAwayLog.start();
            ZV_LOG(WARNING) << " closing a connection from " << source.toStdString() << " at once: " << fromSource
                            << " from there and " << m_waitingTotal << " in all wait for their session ("
                            << m_turnedAway << " turned away so far)";
        }
        ::close(int(socketDescriptor));
        return;
    }
    auto* socket = new QSslSocket(this);
    if (!socket->setSocketDescriptor(socketDescriptor)) {
        ZV_LOG(WARNING) << " cannot take an accepted connection: " << socket->errorString().toStdString();
        delete socket;
        return;
    }
    configureTls(socket);
    socket->setLocalCertificate(m_certificate);
    socket->setPrivateKey(m_key);
    const QString peer = endpoint(socket->peerAddress(), socket->peerPort());
    auto* timer = new QTimer(socket);
    timer->setSingleShot(true);
    ++m_pendingHandshakes;
    ++m_waitingTotal;
    ++m_waitingBySource[source];

    // Each path cuts the socket's and timer's connections to this server
    // first, so only one of them ever runs.
    connect(socket, &QSslSocket::encrypted, this,
            [this, socket, timer, source] { acceptHandshake(socket, timer, source); });
    connect(socket, &QAbstractSocket::errorOccurred, this, [this, socket, timer, peer, source] {
        dropHandshake(socket, timer, peer, source, socket->errorString());
    });
    connect(timer, &QTimer::timeout, this, [this, socket, timer, peer, source] {
        dropHandshake(socket, timer, peer, source,
                      QStringLiteral("no handshake within %1 ms").arg(m_handshakeTimeoutMs));
    });
    timer->start(m_handshakeTimeoutMs);
    socket->startServerEncryption();
}

void TlsServer::acceptHandshake(QSslSocket* socket, QTimer* timer, const QString& source) {
    --m_pendingHandshakes;
    socket->disconnect(this);
    delete timer;
    auto* channel = new MessageChannel(socket, this);
    m_waitingChannels.insert(channel, source);
    connect(channel, &MessageChannel::closed, this, [this, channel] { stopWaiting(channel); });
    connect(channel, &QObject::destroyed, this, [this](QObject* gone) { stopWaiting(gone); });
    ZV_VLOG(1) << " TLS session with " << channel->peerName().toStdString();
    emit newChannel(channel);
}

void TlsServer::dropHandshake(QSslSocket* socket, QTimer* timer, const QString& peer, const QString& source,
                              const QString& reason) {
    --m_pendingHandshakes;
    stopWaiting(source);
    timer->disconnect(this);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    ZV_LOG(WARNING) << " TLS handshake with " << peer.toStdString() << " failed: " << reason.toStdString();
    emit handshakeFailed(peer, reason);
}

void TlsServer::settled(MessageChannel* channel) { stopWaiting(static_cast<QObject*>(channel)); }

void TlsServer::stopWaiting(QObject* channel) {
    const auto it = m_waitingChannels.find(channel);
    if (it == m_waitingChannels.end()) return;
    const QString source = it.value();
    m_waitingChannels.erase(it);
    stopWaiting(source);
}

void TlsServer::stopWaiting(const QString& source) {
    --m_waitingTotal;
    const auto it = m_waitingBySource.find(source);
    if (it != m_waitingBySource.end() && --it.value() <= 0) m_waitingBySource.erase(it);
}

}  // namespace zv
