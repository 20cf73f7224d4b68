// One asynchronous connection to Redis (hiredis's async API) driven by the
// Qt event loop through socket notifiers: commands never block the loop.
// Connects by itself and again after a loss (back-off from kFirstRetryMs to
// kMaxRetryMs). A command answers exactly once: with Redis's reply, or with
// nullptr when there is no connection, the connection is lost, or Redis
// gives no reply within kReplyTimeoutMs (the connection is then dropped and
// made again, so a stopped Redis cannot stall the callers).
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class QSocketNotifier;
class QTimer;
struct redisAsyncContext;
struct redisReply;

namespace zv {

class RedisConnection : public QObject {
    Q_OBJECT
public:
    static constexpr int kFirstRetryMs = 250;
    static constexpr int kMaxRetryMs = 2000;
    static constexpr int kReplyTimeoutMs = 2000;

    using Reply = std::function<void(const redisReply* reply)>;

    RedisConnection(const QString& host, quint16 port, int database, QObject* parent = nullptr);
    // Pending commands are dropped without an answer: their owners are
    // going too.
    ~RedisConnection() override;

    void start();
    bool isConnected() const { return m_connected; }
    // Sends one command (binary-safe arguments).
    void command(const QList<QByteArray>& args, Reply done);

signals:
    void connectedChanged(bool connected);

private:
    struct Pending;
    static void onReply(redisAsyncContext* context, void* reply, void* data);
    static void onConnect(const redisAsyncContext* context, int status);
    static void onDisconnect(const redisAsyncContext* context, int status);
    static void addRead(void* self);
    static void delRead(void* self);
    static void addWrite(void* self);
    static void delWrite(void* self);
    static void cleanup(void* self);

    void connectNow();
    void connectTo(const QString& address);
    void lost(const QString& why);
    void setConnected(bool connected);
    void checkProgress();
    void dropNotifier(QSocketNotifier*& notifier);

    QString m_host;
    quint16 m_port;
    int m_database;
    redisAsyncContext* m_context = nullptr;
    QSocketNotifier* m_read = nullptr;
    QSocketNotifier* m_write = nullptr;
    QTimer* m_retryTimer;
    QTimer* m_watchdog;
    int m_retryMs = kFirstRetryMs;
    int m_pending = 0;
    qint64 m_lastProgressMs = 0;
    bool m_connected = false;
    bool m_closing = false;
    bool m_lookingUp = false;  // a name lookup is under way
};

}  // namespace zv
