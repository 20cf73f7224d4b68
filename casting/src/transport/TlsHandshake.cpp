#include "transport/TlsHandshake.h"

#include <QTcpSocket>
#include <QTimer>

#include "transport/MessageChannel.h"
#include "transport/TlsEngine.h"

namespace zv {

namespace {

// Lives as long as the connections made on the socket: gone with it.
struct Handshake {
    QTcpSocket* socket = nullptr;
    QTimer* timer = nullptr;
    std::unique_ptr<TlsEngine> engine;
    HandshakeDone done;
    bool over = false;

    void sendPending() {
        const QByteArray out = engine->takeCiphertext();
        if (!out.isEmpty() && socket->state() == QAbstractSocket::ConnectedState) socket->write(out);
    }

    void pump() {
        if (over) return;
        if (socket->state() != QAbstractSocket::ConnectedState) return;
        sendPending();
        const QByteArray in = socket->readAll();
        if (!in.isEmpty()) engine->feedCiphertext(in);
        sendPending();  // the next flight, or an alert for the peer
        if (engine->state() == TlsEngine::State::Failed) {
            socket->flush();
            fail(engine->errorString());
        } else if (engine->isEstablished()) {
            succeed();
        } else if (engine->state() == TlsEngine::State::Closed) {
            fail(QStringLiteral("the peer closed during the handshake"));
        }
    }

    void end() {
        over = true;
        timer->stop();
        // Our connections all have the socket as context; the running slot
        // keeps its copy of the state until it returns.
        QObject::disconnect(timer, nullptr, socket, nullptr);
        QObject::disconnect(socket, nullptr, socket, nullptr);
        timer->deleteLater();
    }

    void fail(const QString& reason) {
        if (over) return;
        HandshakeDone report = std::move(done);
        QTcpSocket* s = socket;
        end();  // may destroy this object: only locals from here on
        s->abort();
        s->deleteLater();
        report(nullptr, reason);
    }

    void succeed() {
        HandshakeDone report = std::move(done);
        QTcpSocket* s = socket;
        std::unique_ptr<TlsEngine> tls = std::move(engine);
        end();
        s->setParent(nullptr);
        report(new MessageChannel(s, std::move(tls)), QString());
    }
};

}  // namespace

void runTlsHandshake(QTcpSocket* socket, std::unique_ptr<TlsEngine> engine, int timeoutMs, const QString& timeoutText,
                     HandshakeDone done) {
    auto state = std::make_shared<Handshake>();
    state->socket = socket;
    state->timer = new QTimer(socket);
    state->timer->setSingleShot(true);
    state->engine = std::move(engine);
    state->done = std::move(done);
    if (state->engine->state() == TlsEngine::State::Failed) {
        const QString reason = state->engine->errorString();
        QTimer::singleShot(0, socket, [state, reason] { state->fail(reason); });
        return;
    }
    // Each lambda holds the state; disconnecting all of them frees it.
    QObject::connect(socket, &QAbstractSocket::connected, socket, [state] { state->pump(); });
    QObject::connect(socket, &QIODevice::readyRead, socket, [state] { state->pump(); });
    QObject::connect(socket, &QAbstractSocket::errorOccurred, socket, [state] {
        if (!state->over) state->fail(state->socket->errorString());
    });
    QObject::connect(state->timer, &QTimer::timeout, socket, [state, timeoutText] { state->fail(timeoutText); });
    state->timer->start(timeoutMs);
    if (socket->state() == QAbstractSocket::ConnectedState) QTimer::singleShot(0, socket, [state] { state->pump(); });
}

}  // namespace zv
