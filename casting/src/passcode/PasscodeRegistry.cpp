#include "passcode/PasscodeRegistry.h"

#include <arpa/inet.h>

#include <QElapsedTimer>
#include <algorithm>

#include "protocol/ConnectCode.h"

namespace zv {

PasscodeRegistry::PasscodeRegistry(Clock clock) : clock_(std::move(clock)) {
    if (!clock_) {
        clock_ = [] {
            static QElapsedTimer started = [] {
                QElapsedTimer t;
                t.start();
                return t;
            }();
            return started.elapsed();
        };
    }
}

qint64 PasscodeRegistry::now() const { return clock_(); }

QString PasscodeRegistry::canonicalPasscode(const QString& passcode) {
    if (passcode.size() > 16) return QString();  // not worth normalizing
    const QString code = code::normalize(passcode);
    return code::isValidPasscode(code) ? code : QString();
}

bool PasscodeRegistry::isValidAddress(const QString& address) {
    if (address.isEmpty() || address.size() > 64) return false;
    const QByteArray text = address.toLatin1();
    unsigned char buffer[16];
    return inet_pton(AF_INET, text.constData(), buffer) == 1 ||
           inet_pton(AF_INET6, text.constData(), buffer) == 1;
}

PasscodeRegistry::Result PasscodeRegistry::add(const QString& passcode, const QString& address,
                                               quint16 port, const QString& name, int ttlSeconds) {
    const QString code = canonicalPasscode(passcode);
    if (code.isEmpty() || !isValidAddress(address) || port == 0 || name.size() > kMaxNameLength ||
        ttlSeconds < kMinTtlSeconds || ttlSeconds > kMaxTtlSeconds) {
        return Result::Invalid;
    }
    const qint64 nowMs = now();
    auto it = entries_.find(code);
    const bool held = it != entries_.end() && isLive(*it, nowMs);
    if (held && it->address != address) return Result::Taken;
    if (it != entries_.end() && !held) lapsed_.append(*it);

    Entry entry{code, address, port, name, ttlSeconds, nowMs + qint64(ttlSeconds) * 1000};
    entries_.insert(code, entry);
    return held ? Result::Renewed : Result::Registered;
}

std::optional<PasscodeRegistry::Entry> PasscodeRegistry::resolve(const QString& passcode) {
    const QString code = canonicalPasscode(passcode);
    if (code.isEmpty()) return std::nullopt;
    auto it = entries_.find(code);
    if (it == entries_.end()) return std::nullopt;
    if (!isLive(*it, now())) return std::nullopt;  // expire() reports and drops it
    return *it;
}

bool PasscodeRegistry::remove(const QString& passcode, const QString& address) {
    const QString code = canonicalPasscode(passcode);
    if (code.isEmpty()) return false;
    auto it = entries_.find(code);
    if (it == entries_.end() || it->address != address) return false;
    const bool live = isLive(*it, now());
    if (!live) lapsed_.append(*it);
    entries_.erase(it);
    return live;
}

QList<PasscodeRegistry::Entry> PasscodeRegistry::expire() {
    const qint64 nowMs = now();
    QList<Entry> gone;
    gone.swap(lapsed_);
    for (auto it = entries_.begin(); it != entries_.end();) {
        if (isLive(*it, nowMs)) {
            ++it;
        } else {
            gone.append(*it);
            it = entries_.erase(it);
        }
    }
    std::sort(gone.begin(), gone.end(),
              [](const Entry& a, const Entry& b) { return a.expiresAtMs < b.expiresAtMs; });
    return gone;
}

std::optional<qint64> PasscodeRegistry::nextExpiryMs() const {
    std::optional<qint64> next;
    for (const Entry& entry : entries_) {
        if (!next || entry.expiresAtMs < *next) next = entry.expiresAtMs;
    }
    return next;
}

}  // namespace zv
