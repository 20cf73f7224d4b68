// Where the passcode service keeps its table and its per-source counters:
// in this process (MemoryPasscodeStore) or in Redis shared by several
// service instances (RedisPasscodeStore). One small asynchronous interface:
// every call answers exactly once through its callback, from the event loop
// of the store's thread (the memory store at once, Redis when the reply
// comes). Unavailable means the answer could not be had (Redis down or too
// slow); nothing was changed that the caller needs to know about.
//
// Rules are the registry's (passcode/PasscodeRegistry.h) and the limiters'
// (transport/RateLimiter.h, passcode/SourceBudget.h) in both backends; the
// contract test runs one suite against both.
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include <QObject>
#include <QString>

#include <functional>

#include "passcode/PasscodeRegistry.h"

namespace zv {

class PasscodeStore : public QObject {
    Q_OBJECT
public:
    using Clock = std::function<qint64()>;  // milliseconds

    enum class Status { Ok, Unavailable };

    struct Registration {
        PasscodeRegistry::Request request;  // checked with PasscodeRegistry::isValidRequest() by the caller
        QString source;                     // the sender's address, for the new-passcode budget
    };
    struct RegisterAnswer {
        Status status = Status::Unavailable;
        PasscodeRegistry::Outcome outcome;  // Assigned, Renewed, Replayed or Full
        bool budgetLeft = true;             // Full: whether the source's new-passcode budget was left
        int held = 0;                       // Full: live passcodes the key holds
    };

    enum class Lookup { Found, Unknown, Invalid, RateLimited, Unavailable };
    struct ResolveAnswer {
        Lookup result = Lookup::Unavailable;
        PasscodeRegistry::Entry entry;  // Found
        qint64 retryAfterMs = 0;        // RateLimited
        int failures = 0;               // Unknown / Invalid: wrong tries counted for the source
    };

    struct RemoveAnswer {
        Status status = Status::Unavailable;
        PasscodeRegistry::Removal removal = PasscodeRegistry::Removal::NotHeld;
        PasscodeRegistry::Entry removed;  // Removed
    };

    struct LimitAnswer {
        Status status = Status::Unavailable;
        bool allowed = false;
        qint64 retryAfterMs = 0;
    };

    using RegisterDone = std::function<void(const RegisterAnswer&)>;
    using ResolveDone = std::function<void(const ResolveAnswer&)>;
    using RemoveDone = std::function<void(const RemoveAnswer&)>;
    using LimitDone = std::function<void(const LimitAnswer&)>;

    using QObject::QObject;
    ~PasscodeStore() override = default;

    // Renews, rotates or assigns as PasscodeRegistry::registerPanel() does,
    // taking one from registration.source's new-passcode budget when it
    // assigns (request.mayAssign is ignored: the budget is the store's).
    virtual void registerPanel(const Registration& registration, RegisterDone done) = 0;
    // The live entry for passcode; a wrong (unknown or malformed) passcode
    // counts against source's wrong-try limiter, and a locked source is
    // refused unchecked.
    virtual void resolve(const QString& passcode, const QString& source, ResolveDone done) = 0;
    virtual void remove(const QString& passcode, const QString& keyId, qint64 stampMs, RemoveDone done) = 0;
    // The panel-request limiter (bad proofs, replays, releases of nothing held).
    virtual void checkPanelSource(const QString& source, LimitDone done) = 0;
    virtual void recordPanelFailure(const QString& source) = 0;

    // Entries whose time ran out since the last call, for the log (the
    // memory store; Redis lets them lapse on its own and reports none).
    virtual QList<PasscodeRegistry::Entry> takeExpired() { return {}; }
    // Live entries as last known (-1: unknown).
    virtual int size() const = 0;
    // Whether the store answers now (the memory store always does).
    virtual bool isAvailable() const = 0;
    // For the log: "memory" or "redis://HOST:PORT/DB".
    virtual QString describe() const = 0;

signals:
    // The store became reachable or unreachable.
    void availabilityChanged(bool available);
};

}  // namespace zv
