#include "transport/MessageChannel.h"

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
    const QByteArray data = m_socket->readAll();
    if (m_state != State::Open || data.isEmpty()) return;  // closing: drained and ignored
    processIncoming(data);
}

void MessageChannel::processIncoming(const QByteArray& data) {
    QPointer<MessageChannel> self(this);
    m_heardSinceTick = true;
    const bool wasMissing = m_missed >= 2;
    m_missed = 0;
    if (wasMissing) {
        emit alive();
        if (!self || m_state != State::Open) return;
    }

    const std::vector<wire::Envelope> envelopes = m_decoder.feed(data);
    for (const wire::Envelope& envelope : envelopes) {
        if (envelope.has_heartbeat()) {
            emit heartbeatReceived(envelope.heartbeat().seq());
        } else {
            emit messageReceived(envelope);
        }
        if (!self || m_state != State::Open) return;
    }
    if (m_decoder.hasError()) failProtocol(m_decoder.errorString());
}

void MessageChannel::onDisconnected() {
    if (m_state == State::Closing) {
        finish(m_closeReason);
        return;
    }
    if (m_state != State::Open) return;
    // A peer may send its last message and close at once: take it first.
    QPointer<MessageChannel> self(this);
    if (m_socket->bytesAvailable() > 0) processIncoming(m_socket->readAll());
    if (!self || m_state != State::Open) return;
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

void TlsServer::incomingConnection(qintptr socketDescriptor) {
    if (m_pendingHandshakes >= kMaxPendingHandshakes) {
        ZV_LOG(WARNING) << " " << m_pendingHandshakes << " TLS handshakes unfinished; refusing another connection";
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

    // Each path cuts the socket's and timer's connections to this server
    // first, so only one of them ever runs.
    connect(socket, &QSslSocket::encrypted, this, [this, socket, timer] { acceptHandshake(socket, timer); });
    connect(socket, &QAbstractSocket::errorOccurred, this,
            [this, socket, timer, peer] { dropHandshake(socket, timer, peer, socket->errorString()); });
    connect(timer, &QTimer::timeout, this, [this, socket, timer, peer] {
        dropHandshake(socket, timer, peer, QStringLiteral("no handshake within %1 ms").arg(m_handshakeTimeoutMs));
    });
    timer->start(m_handshakeTimeoutMs);
    socket->startServerEncryption();
}

void TlsServer::acceptHandshake(QSslSocket* socket, QTimer* timer) {
    --m_pendingHandshakes;
    socket->disconnect(this);
    delete timer;
    auto* channel = new MessageChannel(socket, this);
    ZV_VLOG(1) << " TLS session with " << channel->peerName().toStdString();
    emit newChannel(channel);
}

void TlsServer::dropHandshake(QSslSocket* socket, QTimer* timer, const QString& peer, const QString& reason) {
    --m_pendingHandshakes;
    timer->disconnect(this);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    ZV_LOG(WARNING) << " TLS handshake with " << peer.toStdString() << " failed: " << reason.toStdString();
    emit handshakeFailed(peer, reason);
}

}  // namespace zv
