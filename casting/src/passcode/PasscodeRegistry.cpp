#include "passcode/PasscodeRegistry.h"

#include <arpa/inet.h>

#include <QElapsedTimer>
#include <QStringList>
#include <algorithm>

#include "protocol/ConnectCode.h"

namespace zv {

PasscodeRegistry::PasscodeRegistry(Clock clock, Picker picker) : clock_(std::move(clock)), picker_(std::move(picker)) {
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
    if (!picker_) picker_ = [] { return code::generatePasscode(); };
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

void PasscodeRegistry::insert(const Entry& entry) {
    entries_.insert(entry.passcode, entry);
    byKey_[entry.keyId].insert(entry.passcode);
}

void PasscodeRegistry::erase(QHash<QString, Entry>::iterator it) {
    auto owned = byKey_.find(it->keyId);
    if (owned != byKey_.end()) {
        owned->remove(it->passcode);
        if (owned->isEmpty()) byKey_.erase(owned);
    }
    entries_.erase(it);
}

int PasscodeRegistry::heldBy(const QString& keyId) const {
    const qint64 nowMs = now();
    int count = 0;
    for (const QString& passcode : byKey_.value(keyId)) {
        const auto it = entries_.constFind(passcode);
        if (it != entries_.cend() && isLive(*it, nowMs)) ++count;
    }
    return count;
}

QHash<QString, PasscodeRegistry::Entry>::iterator PasscodeRegistry::heldEntry(const Request& request,
                                                                              const QString& passcode, qint64 nowMs) {
    auto holds = [&](QHash<QString, Entry>::iterator it) {
        return it != entries_.end() && it->keyId == request.keyId && isLive(*it, nowMs);
    };
    if (!passcode.isEmpty()) {
        auto it = entries_.find(passcode);
        if (holds(it)) return it;
    }
    // A panel that restarted, or lost the answer, asks again for its address.
    for (const QString& owned : byKey_.value(request.keyId)) {
        auto it = entries_.find(owned);
        if (holds(it) && it->address == request.address && it->port == request.port) return it;
    }
    return entries_.end();
}

std::optional<QString> PasscodeRegistry::pickFree(const QString& avoid, qint64 nowMs) {
    for (int attempt = 0; attempt < kPickAttempts; ++attempt) {
        const QString candidate = canonicalPasscode(picker_());
        if (candidate.isEmpty() || candidate == avoid) continue;
        auto it = entries_.find(candidate);
        if (it == entries_.end()) return candidate;
        if (isLive(*it, nowMs)) continue;
        lapsed_.append(*it);  // expired, not yet reported: reported by expire()
        erase(it);
        return candidate;
    }
    return std::nullopt;
}

bool PasscodeRegistry::isValidRequest(const Request& request) {
    const QString passcode = canonicalPasscode(request.passcode);
    return !(passcode.isEmpty() && !request.passcode.isEmpty()) && isValidAddress(request.address) &&
           request.port != 0 && request.name.size() <= kMaxNameLength && request.ttlSeconds >= kMinTtlSeconds &&
           request.ttlSeconds <= kMaxTtlSeconds && !request.keyId.isEmpty();
}

PasscodeRegistry::Outcome PasscodeRegistry::registerPanel(const Request& request) {
    Outcome out;
    if (!isValidRequest(request)) return out;  // Invalid
    const QString passcode = canonicalPasscode(request.passcode);
    const qint64 nowMs = now();
    const qint64 expiresAtMs = nowMs + qint64(request.ttlSeconds) * 1000;
    auto held = heldEntry(request, passcode, nowMs);
    QString avoid;
    if (held != entries_.end()) {
        if (request.stampMs <= held->lastStampMs) {
            out.result = Result::Replayed;
            return out;
        }
        if (!request.rotate) {
            held->address = request.address;
            held->port = request.port;
            held->name = request.name;
            held->ttlSeconds = request.ttlSeconds;
            held->expiresAtMs = expiresAtMs;
            held->lastStampMs = request.stampMs;
            held->certificate = request.certificate;
            held->signature = request.signature;
            out.result = Result::Renewed;
            out.entry = *held;
            return out;
        }
        out.released = *held;
        avoid = held->passcode;
        erase(held);
    }
    std::optional<QString> picked;
    if (request.mayAssign && heldBy(request.keyId) < kMaxPerKey && entries_.size() < kMaxEntries) picked = pickFree(avoid, nowMs);
    if (!picked) {
        if (out.released) insert(*out.released);  // a rotation that cannot happen keeps the old one
        out.released.reset();
        out.result = Result::Full;
        return out;
    }
    out.entry = Entry{*picked,     request.address, request.port,    request.name,        request.ttlSeconds,
                      expiresAtMs, request.keyId,   request.stampMs, request.certificate, request.signature};
    insert(out.entry);
    out.result = Result::Assigned;
    return out;
}

std::optional<PasscodeRegistry::Entry> PasscodeRegistry::resolve(const QString& passcode) const {
    const QString code = canonicalPasscode(passcode);
    if (code.isEmpty()) return std::nullopt;
    const auto it = entries_.constFind(code);
    if (it == entries_.cend()) return std::nullopt;
    if (!isLive(*it, now())) return std::nullopt;  // expire() reports and drops it
    return *it;
}

PasscodeRegistry::Removal PasscodeRegistry::remove(const QString& passcode, const QString& keyId, qint64 stampMs,
                                                   Entry* removed) {
    const QString code = canonicalPasscode(passcode);
    if (code.isEmpty() || keyId.isEmpty()) return Removal::NotHeld;
    auto it = entries_.find(code);
    if (it == entries_.end() || it->keyId != keyId || !isLive(*it, now())) return Removal::NotHeld;
    if (stampMs <= it->lastStampMs) return Removal::Replayed;
    if (removed) *removed = *it;
    erase(it);
    return Removal::Removed;
}

QList<PasscodeRegistry::Entry> PasscodeRegistry::expire() {
    const qint64 nowMs = now();
    QList<Entry> gone;
    gone.swap(lapsed_);
    QStringList dead;
    for (auto it = entries_.cbegin(); it != entries_.cend(); ++it) {
        if (!isLive(*it, nowMs)) dead.append(it.key());
    }
    for (const QString& passcode : dead) {
        auto it = entries_.find(passcode);
        gone.append(*it);
        erase(it);
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
