#include "passcode/RedisConnection.h"

#include <hiredis/async.h>
#include <hiredis/hiredis.h>

#include <QDateTime>
#include <QHostAddress>
#include <QHostInfo>
#include <QSocketNotifier>
#include <QTimer>
#include <QVector>

#include <algorithm>

#include "casting/Log.h"

namespace zv {

struct RedisConnection::Pending {
    RedisConnection* owner;
    Reply done;
};

namespace {

qint64 nowMs() { return QDateTime::currentMSecsSinceEpoch(); }

}  // namespace

RedisConnection::RedisConnection(const QString& host, quint16 port, int database, QObject* parent)
    : QObject(parent),
      m_host(host),
      m_port(port),
      m_database(database),
      m_retryTimer(new QTimer(this)),
      m_watchdog(new QTimer(this)) {
    m_retryTimer->setSingleShot(true);
    connect(m_retryTimer, &QTimer::timeout, this, &RedisConnection::connectNow);
    connect(m_watchdog, &QTimer::timeout, this, &RedisConnection::checkProgress);
}

RedisConnection::~RedisConnection() {
    m_closing = true;
    if (redisAsyncContext* context = m_context) {
        m_context = nullptr;
        redisAsyncFree(context);
    }
}

void RedisConnection::start() {
    if (!m_context && !m_retryTimer->isActive()) connectNow();
}

void RedisConnection::connectNow() {
    // hiredis resolves names with a blocking getaddrinfo(): names are
    // looked up here without blocking, and hiredis gets the address.
    if (QHostAddress(m_host).isNull()) {
        if (m_lookingUp) return;
        m_lookingUp = true;
        QHostInfo::lookupHost(m_host, this, [this](const QHostInfo& info) {
            m_lookingUp = false;
            const QList<QHostAddress> addresses = info.addresses();
            if (addresses.isEmpty()) return lost(QStringLiteral("cannot resolve %1: %2").arg(m_host, info.errorString()));
            // IPv4 first: Redis is often bound to 127.0.0.1 or one IPv4 address only.
            const auto v4 = std::find_if(addresses.cbegin(), addresses.cend(), [](const QHostAddress& a) {
                return a.protocol() == QAbstractSocket::IPv4Protocol;
            });
            connectTo((v4 != addresses.cend() ? *v4 : addresses.first()).toString());
        });
        return;
    }
    connectTo(m_host);
}

void RedisConnection::connectTo(const QString& address) {
    if (m_context || m_closing) return;
    redisAsyncContext* context = redisAsyncConnect(address.toLatin1().constData(), m_port);
    if (!context) return lost(QStringLiteral("out of memory"));
    if (context->err) {
        const QString why = QString::fromLocal8Bit(context->errstr);
        redisAsyncFree(context);
        return lost(why);
    }
    m_context = context;
    context->data = this;
    context->ev.data = this;
    context->ev.addRead = &RedisConnection::addRead;
    context->ev.delRead = &RedisConnection::delRead;
    context->ev.addWrite = &RedisConnection::addWrite;
    context->ev.delWrite = &RedisConnection::delWrite;
    context->ev.cleanup = &RedisConnection::cleanup;
    redisAsyncSetConnectCallback(context, &RedisConnection::onConnect);
    redisAsyncSetDisconnectCallback(context, &RedisConnection::onDisconnect);
    // The connect completes on the first write event; hiredis 0.14 asks for
    // none until a command is queued.
    addWrite(this);
    // Queued before anything else, so every later command runs in the database.
    if (m_database != 0) {
        command({QByteArrayLiteral("SELECT"), QByteArray::number(m_database)}, [this](const redisReply* reply) {
            if (reply && reply->type == REDIS_REPLY_ERROR) {
                ZV_LOG(ERROR) << " redis " << m_host.toStdString() << ":" << m_port << " refuses database "
                              << m_database << ": " << reply->str;
            }
        });
    }
    m_lastProgressMs = nowMs();
    m_watchdog->start(kReplyTimeoutMs / 4);
}

void RedisConnection::command(const QList<QByteArray>& args, Reply done) {
    if (!m_context || m_closing) {
        done(nullptr);
        return;
    }
    QVector<const char*> argv;
    QVector<size_t> lengths;
    for (const QByteArray& arg : args) {
        argv.append(arg.constData());
        lengths.append(size_t(arg.size()));
    }
    auto* pending = new Pending{this, std::move(done)};
    if (m_pending == 0) m_lastProgressMs = nowMs();
    if (redisAsyncCommandArgv(m_context, &RedisConnection::onReply, pending, argv.size(), argv.data(),
                              lengths.data()) != REDIS_OK) {
        Reply answer = std::move(pending->done);
        delete pending;
        answer(nullptr);
        return;
    }
    ++m_pending;
}

void RedisConnection::onReply(redisAsyncContext*, void* reply, void* data) {
    auto* pending = static_cast<Pending*>(data);
    RedisConnection* self = pending->owner;
    --self->m_pending;
    self->m_lastProgressMs = nowMs();
    if (!self->m_closing) pending->done(static_cast<const redisReply*>(reply));
    delete pending;
}

void RedisConnection::onConnect(const redisAsyncContext* context, int status) {
    auto* self = static_cast<RedisConnection*>(context->data);
    if (!self || self->m_context != context) return;
    if (status != REDIS_OK) {
        // hiredis frees the context after this call.
        self->m_context = nullptr;
        return self->lost(QString::fromLocal8Bit(context->errstr));
    }
    ZV_LOG(INFO) << " connected to redis " << self->m_host.toStdString() << ":" << self->m_port << "/"
                 << self->m_database;
    self->m_retryMs = kFirstRetryMs;
    self->setConnected(true);
}

void RedisConnection::onDisconnect(const redisAsyncContext* context, int) {
    auto* self = static_cast<RedisConnection*>(context->data);
    if (!self || self->m_context != context) return;  // dropped on purpose: handled there
    self->m_context = nullptr;
    self->lost(context->err ? QString::fromLocal8Bit(context->errstr) : QStringLiteral("connection closed"));
}

void RedisConnection::lost(const QString& why) {
    if (m_closing) return;
    m_watchdog->stop();
    if (m_connected) {
        ZV_LOG(WARNING) << " lost redis " << m_host.toStdString() << ":" << m_port << ": " << why.toStdString();
    } else {
        ZV_VLOG(1) << " cannot reach redis " << m_host.toStdString() << ":" << m_port << ": " << why.toStdString();
    }
    setConnected(false);
    m_retryTimer->start(m_retryMs);
    m_retryMs = std::min(m_retryMs * 2, kMaxRetryMs);
}

void RedisConnection::setConnected(bool connected) {
    if (connected == m_connected) return;
    m_connected = connected;
    emit connectedChanged(connected);
}

void RedisConnection::checkProgress() {
    if (!m_context) return;
    const bool stalled = m_pending > 0 && nowMs() - m_lastProgressMs > kReplyTimeoutMs;
    const bool stuckConnecting = !m_connected && nowMs() - m_lastProgressMs > kReplyTimeoutMs;
    if (!stalled && !stuckConnecting) return;
    redisAsyncContext* context = m_context;
    m_context = nullptr;  // commands the answers below make fail at once
    redisAsyncFree(context);  // answers every pending command with nullptr
    lost(stalled ? QStringLiteral("no reply within %1 ms").arg(kReplyTimeoutMs)
                 : QStringLiteral("no connection within %1 ms").arg(kReplyTimeoutMs));
}

void RedisConnection::dropNotifier(QSocketNotifier*& notifier) {
    if (!notifier) return;
    // May run inside the notifier's own signal: deleted from the loop.
    notifier->setEnabled(false);
    notifier->deleteLater();
    notifier = nullptr;
}

void RedisConnection::addRead(void* data) {
    auto* self = static_cast<RedisConnection*>(data);
    if (self->m_read || !self->m_context) return;
    self->m_read = new QSocketNotifier(self->m_context->c.fd, QSocketNotifier::Read, self);
    redisAsyncContext* context = self->m_context;
    connect(self->m_read, &QSocketNotifier::activated, self, [self, context] {
        if (self->m_context == context) redisAsyncHandleRead(context);
    });
}

void RedisConnection::delRead(void* data) {
    auto* self = static_cast<RedisConnection*>(data);
    self->dropNotifier(self->m_read);
}

void RedisConnection::addWrite(void* data) {
    auto* self = static_cast<RedisConnection*>(data);
    if (self->m_write || !self->m_context) return;
    self->m_write = new QSocketNotifier(self->m_context->c.fd, QSocketNotifier::Write, self);
    redisAsyncContext* context = self->m_context;
    connect(self->m_write, &QSocketNotifier::activated, self, [self, context] {
        if (self->m_context == context) redisAsyncHandleWrite(context);
    });
}

void RedisConnection::delWrite(void* data) {
    auto* self = static_cast<RedisConnection*>(data);
    self->dropNotifier(self->m_write);
}

void RedisConnection::cleanup(void* data) {
    auto* self = static_cast<RedisConnection*>(data);
    self->dropNotifier(self->m_read);
    self->dropNotifier(self->m_write);
}

}  // namespace zv
