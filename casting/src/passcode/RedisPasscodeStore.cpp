#include "passcode/RedisPasscodeStore.h"

#include <hiredis/hiredis.h>

#include <QCryptographicHash>
#include <QDateTime>

#include "casting/Log.h"
#include "passcode/RedisConnection.h"
#include "passcode/RedisPasscodeScripts.h"
#include "passcode/SourceBudget.h"
#include "protocol/ConnectCode.h"
#include "transport/RateLimiter.h"

namespace zv {

struct RedisPasscodeStore::Script {
    QByteArray text;
    QByteArray sha;
    explicit Script(const QByteArray& body)
        : text(body), sha(QCryptographicHash::hash(body, QCryptographicHash::Sha1).toHex()) {}
};

namespace {


QByteArray element(const redisReply* reply, size_t index) {
    if (!reply || reply->type != REDIS_REPLY_ARRAY || index >= reply->elements) return {};
    const redisReply* item = reply->element[index];
    if (item->type == REDIS_REPLY_INTEGER) return QByteArray::number(item->integer);
    if (item->type == REDIS_REPLY_STRING) return QByteArray(item->str, int(item->len));
    return {};
}

qint64 number(const redisReply* reply, size_t index) { return element(reply, index).toLongLong(); }
QString string(const redisReply* reply, size_t index) { return QString::fromUtf8(element(reply, index)); }

QByteArray utf8(const QString& s) { return s.toUtf8(); }

// The limiter's arguments after "now" (see kLimiter).
QList<QByteArray> limiterArgs(qint64 now, const char* kind, const QString& source) {
    return {QByteArray::number(now),
            kind,
            utf8(source),
            QByteArray::number(RateLimiter::kFreeAttempts),
            QByteArray::number(RateLimiter::kFirstLockMs),
            QByteArray::number(RateLimiter::kMaxLockMs),
            QByteArray::number(RateLimiter::kForgetAfterMs)};
}

}  // namespace

std::optional<RedisPasscodeStore::Target> RedisPasscodeStore::parseUrl(const QString& url) {
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme() != QLatin1String("redis") || parsed.host().isEmpty() ||
        !parsed.userInfo().isEmpty() || parsed.hasQuery() || parsed.hasFragment()) {
        return std::nullopt;
    }
    Target target;
    target.host = parsed.host();
    const int port = parsed.port(6379);
    if (port <= 0 || port > 65535) return std::nullopt;
    target.port = quint16(port);
    QString path = parsed.path();
    if (path.startsWith(QLatin1Char('/'))) path.remove(0, 1);
    if (!path.isEmpty()) {
        bool ok = false;
        target.database = path.toInt(&ok);
        if (!ok || target.database < 0 || target.database > 15) return std::nullopt;
    }
    return target;
}

RedisPasscodeStore::RedisPasscodeStore(const Target& target, Clock clock, PasscodeRegistry::Picker picker,
                                       QObject* parent)
    : PasscodeStore(parent),
      m_target(target),
      m_clock(clock ? std::move(clock) : Clock([] { return QDateTime::currentMSecsSinceEpoch(); })),
      m_picker(picker ? std::move(picker) : PasscodeRegistry::Picker([] { return code::generatePasscode(); })),
      m_connection(new RedisConnection(target.host, target.port, target.database, this)) {
    connect(m_connection, &RedisConnection::connectedChanged, this, [this](bool connected) {
        if (connected) {
            ZV_LOG(INFO) << " passcode store " << describe().toStdString() << " available";
        } else {
            ZV_LOG(WARNING) << " passcode store " << describe().toStdString()
                            << " unavailable: answering \"unavailable\" until it is back";
        }
        emit availabilityChanged(connected);
    });
}

RedisPasscodeStore::~RedisPasscodeStore() = default;

void RedisPasscodeStore::start() { m_connection->start(); }

bool RedisPasscodeStore::isAvailable() const { return m_connection->isConnected(); }

QString RedisPasscodeStore::describe() const {
    return QStringLiteral("redis://%1:%2/%3").arg(m_target.host).arg(m_target.port).arg(m_target.database);
}

void RedisPasscodeStore::run(const Script& script, const QList<QByteArray>& args,
                             std::function<void(const redisReply*)> done) {
    QList<QByteArray> command{QByteArrayLiteral("EVALSHA"), script.sha, QByteArrayLiteral("0")};
    command += args;
    m_connection->command(command, [this, script, args, done = std::move(done)](const redisReply* reply) {
        if (reply && reply->type == REDIS_REPLY_ERROR && qstrncmp(reply->str, "NOSCRIPT", 8) == 0) {
            // A Redis restarted or new to us: send the script itself once.
            QList<QByteArray> eval{QByteArrayLiteral("EVAL"), script.text, QByteArrayLiteral("0")};
            eval += args;
            return m_connection->command(eval, [this, done](const redisReply* again) {
                if (again && again->type == REDIS_REPLY_ERROR) {
                    ZV_LOG(ERROR) << " passcode store " << describe().toStdString() << ": " << again->str;
                    return done(nullptr);
                }
                done(again);
            });
        }
        if (reply && reply->type == REDIS_REPLY_ERROR) {
            ZV_LOG(ERROR) << " passcode store " << describe().toStdString() << ": " << reply->str;
            return done(nullptr);
        }
        done(reply);
    });
}

void RedisPasscodeStore::registerPanel(const Registration& registration, RegisterDone done) {
    static const Script script{QByteArray(redis_scripts::kRegister)};
    const PasscodeRegistry::Request& r = registration.request;
    const qint64 now = m_clock();
    QList<QByteArray> args{QByteArray::number(now),
                           utf8(PasscodeRegistry::canonicalPasscode(r.passcode)),
                           utf8(r.address),
                           QByteArray::number(r.port),
                           utf8(r.name),
                           QByteArray::number(r.ttlSeconds),
                           r.rotate ? "1" : "0",
                           utf8(r.keyId),
                           QByteArray::number(r.stampMs),
                           utf8(registration.source),
                           r.certificate,
                           r.signature,
                           QByteArray::number(PasscodeRegistry::kMaxPerKey),
                           QByteArray::number(PasscodeRegistry::kMaxEntries),
                           QByteArray::number(SourceBudget::kBurst),
                           QByteArray::number(SourceBudget::kRefillMs)};
    for (int i = 0; i < kCandidates; ++i) {
        const QString candidate = PasscodeRegistry::canonicalPasscode(m_picker());
        if (!candidate.isEmpty()) args.append(utf8(candidate));
    }
    run(script, args, [r, now, done = std::move(done)](const redisReply* reply) {
        RegisterAnswer answer;
        if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements < 1) return done(answer);
        answer.status = Status::Ok;
        PasscodeRegistry::Entry& entry = answer.outcome.entry;
        entry = PasscodeRegistry::Entry{string(reply, 1), r.address,     r.port,        r.name,
                                        r.ttlSeconds,     now + qint64(r.ttlSeconds) * 1000,
                                        r.keyId,          r.stampMs,     r.certificate, r.signature};
        switch (number(reply, 0)) {
        case 0: {
            answer.outcome.result = PasscodeRegistry::Result::Assigned;
            const QString released = string(reply, 2);
            if (!released.isEmpty()) {
                PasscodeRegistry::Entry gone;
                gone.passcode = released;
                gone.address = string(reply, 3);
                gone.keyId = r.keyId;
                answer.outcome.released = gone;
            }
            break;
        }
        case 1:
            answer.outcome.result = PasscodeRegistry::Result::Renewed;
            break;
        case 2:
            answer.outcome.result = PasscodeRegistry::Result::Replayed;
            answer.outcome.entry = {};
            break;
        default:
            answer.outcome.result = PasscodeRegistry::Result::Full;
            answer.outcome.entry = {};
            answer.budgetLeft = number(reply, 1) != 0;
            answer.held = int(number(reply, 2));
            break;
        }
        done(answer);
    });
}

void RedisPasscodeStore::resolve(const QString& passcode, const QString& source, ResolveDone done) {
    static const Script script{QByteArray(redis_scripts::kLimiter) + redis_scripts::kResolve};
    const QString code = PasscodeRegistry::canonicalPasscode(passcode);
    QList<QByteArray> args = limiterArgs(m_clock(), "r", source);
    args.append(utf8(code));
    run(script, args, [code, done = std::move(done)](const redisReply* reply) {
        ResolveAnswer answer;
        if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements < 2) return done(answer);
        switch (number(reply, 0)) {
        case 0: {
            PasscodeRegistry::Entry& e = answer.entry;
            answer.result = Lookup::Found;
            e.passcode = code;
            e.address = string(reply, 1);
            e.port = quint16(number(reply, 2));
            e.name = string(reply, 3);
            e.keyId = string(reply, 4);
            e.expiresAtMs = number(reply, 5);
            e.ttlSeconds = int(number(reply, 6));
            e.lastStampMs = number(reply, 7);
            e.certificate = element(reply, 8);
            e.signature = element(reply, 9);
            break;
        }
        case 1:
            answer.result = Lookup::Unknown;
            answer.failures = int(number(reply, 1));
            break;
        case 2:
            answer.result = Lookup::RateLimited;
            answer.retryAfterMs = number(reply, 1);
            break;
        default:
            answer.result = Lookup::Invalid;
            answer.failures = int(number(reply, 1));
            break;
        }
        done(answer);
    });
}

void RedisPasscodeStore::remove(const QString& passcode, const QString& keyId, qint64 stampMs, RemoveDone done) {
    static const Script script{QByteArray(redis_scripts::kRemove)};
    const QString code = PasscodeRegistry::canonicalPasscode(passcode);
    if (code.isEmpty() || keyId.isEmpty()) {
        RemoveAnswer answer;
        answer.status = Status::Ok;
        return done(answer);  // NotHeld, as the registry answers
    }
    const QList<QByteArray> args{QByteArray::number(m_clock()), utf8(code), utf8(keyId), QByteArray::number(stampMs)};
    run(script, args, [code, keyId, done = std::move(done)](const redisReply* reply) {
        RemoveAnswer answer;
        if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements < 1) return done(answer);
        answer.status = Status::Ok;
        switch (number(reply, 0)) {
        case 0:
            answer.removal = PasscodeRegistry::Removal::Removed;
            answer.removed.passcode = code;
            answer.removed.keyId = keyId;
            answer.removed.address = string(reply, 1);
            answer.removed.port = quint16(number(reply, 2));
            answer.removed.name = string(reply, 3);
            answer.removed.ttlSeconds = int(number(reply, 4));
            answer.removed.expiresAtMs = number(reply, 5);
            break;
        case 2:
            answer.removal = PasscodeRegistry::Removal::Replayed;
            break;
        default:
            answer.removal = PasscodeRegistry::Removal::NotHeld;
            break;
        }
        done(answer);
    });
}

void RedisPasscodeStore::checkPanelSource(const QString& source, LimitDone done) {
    static const Script script{QByteArray(redis_scripts::kLimiter) + redis_scripts::kPanelLimit};
    QList<QByteArray> args = limiterArgs(m_clock(), "p", source);
    args.append(QByteArrayLiteral("check"));
    run(script, args, [done = std::move(done)](const redisReply* reply) {
        LimitAnswer answer;
        if (!reply || reply->type != REDIS_REPLY_ARRAY || reply->elements < 2) return done(answer);
        answer.status = Status::Ok;
        answer.allowed = number(reply, 0) != 0;
        answer.retryAfterMs = number(reply, 1);
        done(answer);
    });
}

void RedisPasscodeStore::recordPanelFailure(const QString& source) {
    static const Script script{QByteArray(redis_scripts::kLimiter) + redis_scripts::kPanelLimit};
    QList<QByteArray> args = limiterArgs(m_clock(), "p", source);
    args.append(QByteArrayLiteral("fail"));
    run(script, args, [](const redisReply*) {});
}

QList<PasscodeRegistry::Entry> RedisPasscodeStore::takeExpired() {
    static const Script script{QByteArray(redis_scripts::kCount)};
    if (!isAvailable()) return {};
    run(script, {QByteArray::number(m_clock())}, [this](const redisReply* reply) {
        if (reply && reply->type == REDIS_REPLY_INTEGER) m_size = int(reply->integer);
    });
    return {};
}

}  // namespace zv
