// The passcode service's table: 4-character passcode -> the panel that holds
// it. Plain data and rules, no sockets and no timers: time comes from a clock
// the owner passes in, and expired entries are dropped when asked (expire())
// or when looked up.
#pragma once

#include <QHash>
#include <QList>
#include <QString>
#include <QtGlobal>

#include <functional>
#include <optional>

namespace zv {

class PasscodeRegistry {
public:
    // Milliseconds on a monotonic scale; only differences matter.
    using Clock = std::function<qint64()>;

    static constexpr int kMinTtlSeconds = 10;
    static constexpr int kMaxTtlSeconds = 600;
    // Longest panel name kept; longer ones are refused as invalid so one
    // caller cannot make the table arbitrarily large.
    static constexpr int kMaxNameLength = 256;

    struct Entry {
        QString passcode;
        QString address;
        quint16 port = 0;
        QString name;
        int ttlSeconds = 0;
        qint64 expiresAtMs = 0;
    };

    enum class Result {
        Registered,  // the passcode was free (or its holder had expired)
        Renewed,     // the same address already held it: expiry, port and name updated
        Taken,       // another address holds it
        Invalid,     // malformed passcode, address, port, name or ttl
    };

    // Without a clock the registry uses a monotonic system clock.
    explicit PasscodeRegistry(Clock clock = {});

    Result add(const QString& passcode, const QString& address, quint16 port, const QString& name,
               int ttlSeconds);
    // The live entry for passcode, or nothing (unknown, expired or malformed).
    std::optional<Entry> resolve(const QString& passcode);
    // Removes the entry only when address is the one that holds it; true when
    // something was removed.
    bool remove(const QString& passcode, const QString& address);
    // Drops every entry whose time is up and returns them, oldest expiry
    // first, together with expired entries that add() or remove() replaced
    // or dropped since the last call (so each expiry is reported once).
    QList<Entry> expire();

    int size() const { return static_cast<int>(entries_.size()); }
    // The earliest expiry among the entries, if any (for scheduling expire()).
    std::optional<qint64> nextExpiryMs() const;

    // The passcode as code::normalize() reads what was typed, when that is a
    // valid 4-character passcode; empty otherwise.
    static QString canonicalPasscode(const QString& passcode);
    // A numeric IPv4 or IPv6 address.
    static bool isValidAddress(const QString& address);

private:
    qint64 now() const;
    bool isLive(const Entry& entry, qint64 nowMs) const { return entry.expiresAtMs > nowMs; }

    Clock clock_;
    QHash<QString, Entry> entries_;
    QList<Entry> lapsed_;  // expired entries already gone from entries_
};

}  // namespace zv
