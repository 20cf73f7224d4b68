// The passcode store in this process's memory: the default, for one-box
// set-ups and the tests. Lost when the process ends; panels' next
// heartbeats fill it again.
//
// Threads: a QObject used from the thread it lives in.
#pragma once

#include "passcode/PasscodeStore.h"
#include "passcode/SourceBudget.h"
#include "transport/RateLimiter.h"

namespace zv {

class MemoryPasscodeStore : public PasscodeStore {
    Q_OBJECT
public:
    // clock: monotonic milliseconds for expiry and the limiters (empty: the
    // system's); picker: candidates for new passcodes (tests).
    explicit MemoryPasscodeStore(Clock clock = {}, PasscodeRegistry::Picker picker = {}, QObject* parent = nullptr);

    void registerPanel(const Registration& registration, RegisterDone done) override;
    void resolve(const QString& passcode, const QString& source, ResolveDone done) override;
    void remove(const QString& passcode, const QString& keyId, qint64 stampMs, RemoveDone done) override;
    void checkPanelSource(const QString& source, LimitDone done) override;
    void recordPanelFailure(const QString& source) override;
    QList<PasscodeRegistry::Entry> takeExpired() override { return m_registry.expire(); }
    int size() const override { return m_registry.size(); }
    bool isAvailable() const override { return true; }
    QString describe() const override { return QStringLiteral("memory"); }

private:
    PasscodeRegistry m_registry;
    RateLimiter m_resolveLimiter;
    RateLimiter m_panelLimiter;
    SourceBudget m_assignBudget;
};

}  // namespace zv
