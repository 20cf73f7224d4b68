#include "passcode/MemoryPasscodeStore.h"

#include <QElapsedTimer>

namespace zv {

namespace {

PasscodeStore::Clock orMonotonic(PasscodeStore::Clock clock) {
    if (clock) return clock;
    return [] {
        static QElapsedTimer started = [] {
            QElapsedTimer t;
            t.start();
            return t;
        }();
        return started.elapsed();
    };
}

}  // namespace

MemoryPasscodeStore::MemoryPasscodeStore(Clock clock, PasscodeRegistry::Picker picker, QObject* parent)
    : PasscodeStore(parent),
      m_registry(orMonotonic(clock), std::move(picker)),
      m_resolveLimiter(orMonotonic(clock)),
      m_panelLimiter(orMonotonic(clock)),
      m_assignBudget(orMonotonic(clock)) {}

void MemoryPasscodeStore::registerPanel(const Registration& registration, RegisterDone done) {
    PasscodeRegistry::Request request = registration.request;
    request.mayAssign = m_assignBudget.available(registration.source);
    RegisterAnswer answer;
    answer.status = Status::Ok;
    answer.outcome = m_registry.registerPanel(request);
    answer.budgetLeft = request.mayAssign;
    if (answer.outcome.result == PasscodeRegistry::Result::Assigned) m_assignBudget.take(registration.source);
    if (answer.outcome.result == PasscodeRegistry::Result::Full) answer.held = m_registry.heldBy(request.keyId);
    done(answer);
}

void MemoryPasscodeStore::resolve(const QString& passcode, const QString& source, ResolveDone done) {
    ResolveAnswer answer;
    if (!m_resolveLimiter.mayAttempt(source, &answer.retryAfterMs)) {
        answer.result = Lookup::RateLimited;
        return done(answer);
    }
    // Failures are never forgiven by a success: a guesser who knows one
    // passcode (their own panel's) must not reset the count with it.
    if (PasscodeRegistry::canonicalPasscode(passcode).isEmpty()) {
        m_resolveLimiter.recordFailure(source);
        answer.result = Lookup::Invalid;
        answer.failures = m_resolveLimiter.failures(source);
        return done(answer);
    }
    const auto entry = m_registry.resolve(passcode);
    if (!entry) {
        m_resolveLimiter.recordFailure(source);
        answer.result = Lookup::Unknown;
        answer.failures = m_resolveLimiter.failures(source);
        return done(answer);
    }
    answer.result = Lookup::Found;
    answer.entry = *entry;
    done(answer);
}

void MemoryPasscodeStore::remove(const QString& passcode, const QString& keyId, qint64 stampMs, RemoveDone done) {
    RemoveAnswer answer;
    answer.status = Status::Ok;
    answer.removal = m_registry.remove(passcode, keyId, stampMs, &answer.removed);
    done(answer);
}

void MemoryPasscodeStore::checkPanelSource(const QString& source, LimitDone done) {
    LimitAnswer answer;
    answer.status = Status::Ok;
    answer.allowed = m_panelLimiter.mayAttempt(source, &answer.retryAfterMs);
    done(answer);
}

void MemoryPasscodeStore::recordPanelFailure(const QString& source) { m_panelLimiter.recordFailure(source); }

}  // namespace zv
