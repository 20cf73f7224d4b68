// The passcode service's table: 4-character passcode -> the panel that holds
// it, and the panel key that registered it. The registry picks passcodes
// (a panel cannot ask for a particular one, so registering tells nothing
// about which passcodes are in use); only the holding key renews, rotates or
// releases one. Plain data and rules, no sockets and no timers: time comes
// from a clock the owner passes in, and expired entries are dropped when
// asked (expire()) or when looked up.
#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QtGlobal>

#include <functional>
#include <optional>

namespace zv {

class PasscodeRegistry {
public:
    // Milliseconds on a monotonic scale; only differences matter.
    using Clock = std::function<qint64()>;
    // Candidates for a new passcode (random ones unless a test says otherwise).
    using Picker = std::function<QString()>;

    static constexpr int kMinTtlSeconds = 10;
    static constexpr int kMaxTtlSeconds = 600;
    // Longest panel name kept; longer ones are refused as invalid so one
    // caller cannot make the table arbitrarily large.
    static constexpr int kMaxNameLength = 256;
    // Live passcodes one panel key may hold (a few panels may share a key,
    // e.g. two receivers of one user).
    static constexpr int kMaxPerKey = 8;
    // Entries in all, about a tenth of the passcode space: random picks keep
    // finding free ones quickly.
    static constexpr int kMaxEntries = 100000;
    static constexpr int kPickAttempts = 64;

    struct Entry {
        QString passcode;
        QString address;
        quint16 port = 0;
        QString name;
        int ttlSeconds = 0;
        qint64 expiresAtMs = 0;
        QString keyId;        // the panel key that holds it
        qint64 lastStampMs = 0;  // newest request timestamp seen from the holder
        // The holder's newest signed register: its certificate (DER) and
        // signature, kept so any instance can show what the panel proved.
        QByteArray certificate;
        QByteArray signature;
    };

    struct Request {
        QString passcode;  // the one the panel holds, or empty
        QString address;
        quint16 port = 0;
        QString name;
        int ttlSeconds = 0;
        bool rotate = false;
        QString keyId;        // checked by the caller (a verified signature)
        qint64 stampMs = 0;   // the request's timestamp
        bool mayAssign = true;  // false: renew only (the caller's budget for new passcodes is spent)
        QByteArray certificate;  // kept with the entry (see Entry)
        QByteArray signature;
    };

    enum class Result {
        Assigned,  // a new passcode for this key (entry), maybe after releasing one (released)
        Renewed,   // the key held the passcode: expiry, address, port and name updated
        Invalid,   // malformed passcode, address, port, name, ttl or key
        Replayed,  // not newer than the last request the holder made
        Full,      // a new passcode was needed but mayAssign is false, this key holds
                   // kMaxPerKey already, or the table is full
    };
    struct Outcome {
        Result result = Result::Invalid;
        Entry entry;                    // Assigned / Renewed: what the key holds now
        std::optional<Entry> released;  // Assigned by rotation: what it gave up
    };

    enum class Removal { Removed, NotHeld, Replayed };

    // Without a clock the registry uses a monotonic system clock; without a
    // picker, code::generatePasscode().
    explicit PasscodeRegistry(Clock clock = {}, Picker picker = {});

    // Renews what request.keyId holds (the named passcode, else the one it
    // holds for the same address and port), or gives it a new random free
    // passcode; with rotate a held one is released for a new one.
    Outcome registerPanel(const Request& request);
    // The live entry for passcode, or nothing (unknown, expired or malformed).
    std::optional<Entry> resolve(const QString& passcode) const;
    // Removes the entry only when keyId holds it and stampMs is newer than
    // its last request; *removed gets the entry.
    Removal remove(const QString& passcode, const QString& keyId, qint64 stampMs, Entry* removed = nullptr);
    // Drops every entry whose time is up and returns them, oldest expiry
    // first, together with expired entries that registerPanel() or remove()
    // replaced or dropped since the last call (each expiry is reported once).
    QList<Entry> expire();

    int size() const { return static_cast<int>(entries_.size()); }
    // Live passcodes keyId holds.
    int heldBy(const QString& keyId) const;
    // The earliest expiry among the entries, if any (for scheduling expire()).
    std::optional<qint64> nextExpiryMs() const;

    // The passcode as code::normalize() reads what was typed, when that is a
    // valid 4-character passcode; empty otherwise.
    static QString canonicalPasscode(const QString& passcode);
    // The checks registerPanel() answers Invalid for (passcode, address,
    // port, name, ttl, key), shared with the other stores.
    static bool isValidRequest(const Request& request);
    // A numeric IPv4 or IPv6 address.
    static bool isValidAddress(const QString& address);

private:
    qint64 now() const;
    bool isLive(const Entry& entry, qint64 nowMs) const { return entry.expiresAtMs > nowMs; }
    // The live entry the request's key holds, if any.
    QHash<QString, Entry>::iterator heldEntry(const Request& request, const QString& passcode, qint64 nowMs);
    std::optional<QString> pickFree(const QString& avoid, qint64 nowMs);
    void insert(const Entry& entry);
    void erase(QHash<QString, Entry>::iterator it);

    Clock clock_;
    Picker picker_;
    QHash<QString, Entry> entries_;
    QHash<QString, QSet<QString>> byKey_;  // key id -> its passcodes in entries_
    QList<Entry> lapsed_;  // expired entries already gone from entries_
};

}  // namespace zv
