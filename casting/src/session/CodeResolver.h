// Turns what the user typed, or the panel picked from the discovery list,
// into the address of a panel:
//   4 characters   a passcode, asked of the passcode service;
//   5 to 8         a panel discovery has found with that code, else the
//                  address an 8-character code carries, else discovery is
//                  given a moment more;
//   no code        the address (and port, key) taken from the discovery list.
// Lives on the library's I/O thread.
#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

#include "casting/SessionRecords.h"

namespace zv {

class PasscodeClient;

struct LoginTarget {
    QString code;          // as typed; empty when the panel was picked from the list
    QString passcodeHost;  // passcode service, for 4-character codes
    quint16 passcodePort = 0;
    QString address;       // a picked panel's address
    quint16 port = 0;      // 0: the default control port
    QString key;           // a picked panel's key, checked against its certificate
};

struct PanelAddress {
    QString address;
    quint16 port = 0;
    QString expectedKey;  // empty: not known in advance; else the log-in refuses a panel with another key
    // The full key id (security/KeyId.h) when the panel key is known that
    // way (a passcode: the key that registered it); expectedKey then holds
    // the same key as the session compares it.
    QString keyId;
};

struct ResolveOutcome {
    std::optional<PanelAddress> panel;
    uint32_t error = 0;  // an error code when panel is empty
    QString detail;      // for the log
};

class CodeResolver : public QObject {
    Q_OBJECT
public:
    // The panels discovery knows, by connect code; may be empty (no discovery).
    using DiscoveryLookup = std::function<std::optional<KLUF_DEVICE_INFO>(const QString& code)>;
    using Done = std::function<void(const ResolveOutcome&)>;

    static constexpr int kPasscodeTimeoutMs = 2000;
    static constexpr int kDiscoveryGraceMs = 1500;

    explicit CodeResolver(DiscoveryLookup lookup, QObject* parent = nullptr);

    // done runs exactly once, later, from the event loop. A new resolve
    // abandons the one running (its done never runs).
    void resolve(const LoginTarget& target, Done done);

private:
    void resolveCode(const QString& code);
    void resolvePasscode(const QString& passcode, const QString& host, quint16 port);
    bool tryDiscovery(const QString& code);
    void finish(ResolveOutcome outcome);

    DiscoveryLookup m_lookup;
    PasscodeClient* m_passcodes;
    Done m_done;
    quint64 m_generation = 0;
};

}  // namespace zv
