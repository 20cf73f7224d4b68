#include "transport/MessageChannel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

#include <memory>

#include "casting/Log.h"
#include "transport/TlsEngine.h"
#include "transport/TlsHandshake.h"

namespace zv {

namespace {

QString endpoint(const QHostAddress& address, quint16 port) {
    return address.toString() + QLatin1Char(':') + QString::number(port);
}

void logConnectFailure(const QString& target, const QString& reason) {
    ZV_LOG(WARNING) << " TLS connection to " << target.toStdString() << " failed: " << reason.toStdString();
}

}  // namespace

// ---- MessageChannel

MessageChannel::MessageChannel(QTcpSocket* socket, QObject* parent) : MessageChannel(socket, nullptr, parent) {}

MessageChannel::MessageChannel(QTcpSocket* socket, std::unique_ptr<TlsEngine> tls, QObject* parent)
    : QObject(parent),
      m_socket(socket),
      m_tls(std::move(tls)),
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
            // What came with the handshake's last flight, then what waits in the socket.
            if (m_tls && !takeIncoming(QByteArray())) return;
            if (!m_drainScheduled) drain();
            if (m_state == State::Open && m_socket->state() != QAbstractSocket::ConnectedState) onDisconnected();
        },
        Qt::QueuedConnection);
}

MessageChannel::~MessageChannel() {
    m_socket->disconnect(this);
    if (m_state != State::Closed) m_socket->abort();
    // A channel may be deleted from inside one of its socket's signals (an
    // owner that refuses the peer as soon as it is told of it): the socket
    // goes from the event loop, once that signal has returned.
    m_socket->setParent(nullptr);
    m_socket->deleteLater();
}

QString MessageChannel::peerName() const { return endpoint(m_peerAddress, m_peerPort); }
QHostAddress MessageChannel::localAddress() const { return m_socket->localAddress(); }
quint16 MessageChannel::localPort() const { return m_socket->localPort(); }
QByteArray MessageChannel::peerKeyHash() const { return m_tls ? m_tls->peerKeyHash() : QByteArray(); }
QString MessageChannel::peerKeyId() const { return m_tls ? m_tls->peerKeyId() : QString(); }
QString MessageChannel::peerCommonName() const { return m_tls ? m_tls->peerCommonName() : QString(); }
QByteArray MessageChannel::ownKeyHash() const { return m_tls ? m_tls->ownKeyHash() : QByteArray(); }

keys::Exporter MessageChannel::exporter() const {
    // Called in the channel's thread; the guard makes a late call harmless.
    const QPointer<const MessageChannel> guard(this);
    return [guard](const QByteArray& label, const QByteArray& context, int length) -> QByteArray {
        if (!guard || !guard->m_tls) return {};
        return guard->m_tls->exportKeyingMaterial(label, context, length);
    };
}

void MessageChannel::flush() { m_socket->flush(); }

void MessageChannel::writeOut(const QByteArray& plain) {
    if (!m_tls) {
        m_socket->write(plain);
        return;
    }
    if (!plain.isEmpty()) m_tls->writePlaintext(plain);
    const QByteArray out = m_tls->takeCiphertext();
    if (!out.isEmpty()) m_socket->write(out);
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
    writeOut(frame);
    return m_socket->state() == QAbstractSocket::ConnectedState;
}

bool MessageChannel::sendRawForTesting(const QByteArray& bytes) {
    if (m_state != State::Open) return false;
    writeOut(bytes);
    return true;
}

void MessageChannel::close(const QString& reason) {
    if (m_state != State::Open) return;
    m_state = State::Closing;
    m_closeReason = reason;
    m_heartbeatTimer->stop();
    ZV_LOG(INFO) << " closing the connection with " << peerName().toStdString() << ": " << reason.toStdString();
    if (m_tls) {
        m_tls->close();  // close_notify: the peer tells an orderly end from a cut
        writeOut(QByteArray());
    }
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
    const bool mayRead = !m_peerGone && !m_decoder.hasError();
    if (m_pending.empty() && mayRead && m_socket->bytesAvailable() > 0) {
        if (!takeIncoming(m_socket->read(kMaxReadBytesPerTurn))) return;
    }
    if (!deliverPending(kMaxMessagesPerTurn)) return;
    if (!m_pending.empty() || (!m_peerGone && !m_decoder.hasError() && m_socket->bytesAvailable() > 0)) {
        scheduleDrain();
        return;
    }
    if (m_decoder.hasError()) {
        failProtocol(m_decoder.errorString());
    } else if (!m_inputError.isEmpty()) {
        failProtocol(m_inputError);
    } else if (m_peerGone) {
        peerClosed();
    }
}

bool MessageChannel::takeIncoming(const QByteArray& data) {
    if (!m_tls) return takePlain(data);
    m_tls->feedCiphertext(data);
    writeOut(QByteArray());  // alerts, our answer to close_notify
    const QByteArray plain = m_tls->readPlaintext();
    if (!plain.isEmpty() && !takePlain(plain)) return false;
    if (m_tls->state() == TlsEngine::State::Failed) {
        m_inputError = QStringLiteral("TLS: ") + m_tls->errorString();
        m_peerGone = true;
    } else if (m_tls->peerClosed()) {
        m_peerGone = true;  // close_notify
    }
    return true;
}

// Heartbeat bookkeeping for data that arrived, then its frames; false when
// a handler of alive() closed or deleted the channel.
bool MessageChannel::takePlain(const QByteArray& plain) {
    if (plain.isEmpty()) return true;
    m_heardSinceTick = true;
    const bool wasMissing = m_missed >= 2;
    m_missed = 0;
    if (wasMissing) {
        QPointer<MessageChannel> self(this);
        emit alive();
        if (!self || m_state != State::Open) return false;
    }
    for (wire::Envelope& envelope : m_decoder.feed(plain)) m_pending.push_back(std::move(envelope));
    return true;
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
    if (m_state != State::Open) return;
    // A peer may send its last messages and close at once: they are taken
    // now and handed out before closed.
    if (!m_peerGone && m_socket->bytesAvailable() > 0 && !takeIncoming(m_socket->readAll())) return;
    m_peerGone = true;
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
    m_socket->flush();  // an alert or close_notify still queued
    m_socket->abort();
    emit closed(reason);
}

// ---- client helpers

void MessageChannel::connectTls(const QString& host, quint16 port, int timeoutMs, const TlsCredentials& credentials,
                                QObject* context, ConnectDone done) {
    // The socket is the context's child: gone with it, and no callback then.
    auto* socket = new QTcpSocket(context);
    const QString target = host + QLatin1Char(':') + QString::number(port);
    // Cleared as soon as the context starts dying, before its children go.
    const QPointer<QObject> guard(context);
    const bool hasContext = context != nullptr;
    runTlsHandshake(socket,
                    std::make_unique<TlsEngine>(TlsEngine::Mode::Client, credentials.privateKeyPem,
                                                credentials.certificatePem),
                    timeoutMs, QStringLiteral("no answer within %1 ms").arg(timeoutMs),
                    [guard, hasContext, done, target](MessageChannel* channel, const QString& error) {
                        if (hasContext && !guard) {
                            delete channel;
                            return;
                        }
                        if (channel == nullptr) logConnectFailure(target, error);
                        done(channel, error);
                    });
    socket->connectToHost(host, port);
}

MessageChannel* MessageChannel::connectTlsBlocking(const QString& host, quint16 port, int timeoutMs,
                                                   const TlsCredentials& credentials, QString* error) {
    const QString target = host + QLatin1Char(':') + QString::number(port);
    auto fail = [&](const QString& reason) -> MessageChannel* {
        logConnectFailure(target, reason);
        if (error) *error = reason;
        return nullptr;
    };
    QElapsedTimer clock;
    clock.start();
    auto socket = std::make_unique<QTcpSocket>();
    socket->connectToHost(host, port);
    if (!socket->waitForConnected(timeoutMs)) {
        return fail(socket->error() == QAbstractSocket::SocketTimeoutError
                        ? QStringLiteral("no answer within %1 ms").arg(timeoutMs)
                        : socket->errorString());
    }
    auto engine = std::make_unique<TlsEngine>(TlsEngine::Mode::Client, credentials.privateKeyPem,
                                              credentials.certificatePem);
    for (;;) {
        const QByteArray out = engine->takeCiphertext();
        if (!out.isEmpty()) socket->write(out);
        socket->flush();
        if (engine->state() == TlsEngine::State::Failed) return fail(engine->errorString());
        if (engine->isEstablished()) break;
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0 || !socket->waitForReadyRead(int(left))) {
            return fail(socket->error() == QAbstractSocket::SocketTimeoutError || left <= 0
                            ? QStringLiteral("no answer within %1 ms").arg(timeoutMs)
                            : socket->errorString());
        }
        engine->feedCiphertext(socket->readAll());
    }
    return new MessageChannel(socket.release(), std::move(engine));
}

// ---- TlsServer

TlsServer::TlsServer(const QSslKey& key, const QSslCertificate& certificate, QObject* parent)
    : TlsServer(TlsCredentials::of(key, certificate), parent) {}

TlsServer::TlsServer(TlsCredentials credentials, QObject* parent)
    : QTcpServer(parent), m_credentials(std::move(credentials)) {}

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
    if (m_pendingHandshakes >= kMaxPendingHandshakes) {
        ZV_LOG(WARNING) << " " << m_pendingHandshakes << " TLS handshakes unfinished; refusing another connection";
        ::close(int(socketDescriptor));
        return;
    }
    auto* socket = new QTcpSocket(this);
    if (!socket->setSocketDescriptor(socketDescriptor)) {
        ZV_LOG(WARNING) << " cannot take an accepted connection: " << socket->errorString().toStdString();
        delete socket;
        return;
    }
    const QString peer = endpoint(socket->peerAddress(), socket->peerPort());
    ++m_pendingHandshakes;
    ++m_waitingTotal;
    ++m_waitingBySource[source];
    const QPointer<TlsServer> self(this);
    runTlsHandshake(socket,
                    std::make_unique<TlsEngine>(TlsEngine::Mode::Server, m_credentials.privateKeyPem,
                                                m_credentials.certificatePem, m_requireClientCertificate),
                    m_handshakeTimeoutMs, QStringLiteral("no handshake within %1 ms").arg(m_handshakeTimeoutMs),
                    [self, peer, source](MessageChannel* channel, const QString& error) {
                        if (!self) {
                            delete channel;
                            return;
                        }
                        --self->m_pendingHandshakes;
                        if (channel == nullptr) {
                            self->stopWaiting(source);
                            ZV_LOG(WARNING) << " TLS handshake with " << peer.toStdString()
                                            << " failed: " << error.toStdString();
                            emit self->handshakeFailed(peer, error);
                            return;
                        }
                        channel->setParent(self);
                        self->waitingChannel(channel, source);
                        ZV_VLOG(1) << " TLS session with " << channel->peerName().toStdString() << ", client key "
                                   << channel->peerKeyId().toStdString();
                        emit self->newChannel(channel);
                    });
}

void TlsServer::waitingChannel(MessageChannel* channel, const QString& source) {
    m_waitingChannels.insert(channel, source);
    connect(channel, &MessageChannel::closed, this, [this, channel] { stopWaiting(static_cast<QObject*>(channel)); });
    connect(channel, &QObject::destroyed, this, [this](QObject* gone) { stopWaiting(gone); });
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
