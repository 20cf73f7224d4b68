// Turns what the user typed, or the panel picked from the discovery list,
// into the panels to try, in order:
//   4 characters   a passcode, asked of the passcode service;
//   5 to 8         (1) panels that publish that code, (2) the panel this
//                  code worked with before (known-panels: its key, at its
//                  discovered address, else the pinned one), (3) the
//                  addresses the code carries, (4) other discovered panels,
//                  at most kMaxSweep; with none of (1)-(3) discovery is given
//                  a moment more first;
//   no code        the address (and port, key) taken from the discovery list.
// An address given with a code (--address) comes first. The code never
// leaves the PC: each candidate is tried with the key exchange.
// Lives on the library's I/O thread.
#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

#include <memory>
#include <vector>

#include "casting/SessionRecords.h"
#include "passcode/PasscodePins.h"

namespace zv {

class KnownPanels;
class PasscodeClient;

// The instances CManageAll::setPasscodeServers() set (empty: none); thread-safe.
QList<PasscodeServerAddress> passcodeServerList();

struct LoginTarget {
    QString code;          // as typed; empty when the panel was picked from the list
    QString passcodeHost;  // passcode service, for 4-character codes
    quint16 passcodePort = 0;
    // Several passcode service instances, asked in order; when given, used
    // instead of passcodeHost:passcodePort.
    QList<PasscodeServerAddress> passcodeServers;
    QString address;       // a picked panel's address, or one given with the code
    quint16 port = 0;      // 0: the default control port
    QString key;           // a picked panel's key, checked against its certificate
    QString name;          // a picked panel's announced name (its pin is checked)
};

struct PanelAddress {
    QString address;
    quint16 port = 0;
    QString expectedKey;  // empty: not known in advance
    QString name;         // as announced or remembered; may be empty
};

struct ResolveOutcome {
    QList<PanelAddress> panels;  // to try in this order; empty: error says why
    uint32_t error = 0;
    QString detail;  // for the log
};

class CodeResolver : public QObject {
    Q_OBJECT
public:
    // What discovery knows; either function may be empty (no discovery).
    struct DiscoveryLookup {
        // The panel that publishes this code.
        std::function<std::optional<KLUF_DEVICE_INFO>(const QString& code)> byCode;
        // Every panel listed now.
        std::function<std::vector<KLUF_DEVICE_INFO>()> panels;
    };
    using Done = std::function<void(const ResolveOutcome&)>;

    static constexpr int kPasscodeTimeoutMs = 2000;
    static constexpr int kDiscoveryGraceMs = 1500;
    static constexpr int kMaxSweep = 3;

    CodeResolver(DiscoveryLookup lookup, std::shared_ptr<KnownPanels> known, QObject* parent = nullptr);

    // done runs exactly once, later, from the event loop. A new resolve
    // abandons the one running (its done never runs).
    void resolve(const LoginTarget& target, Done done);

private:
    void resolveCode(const QString& code, const QList<PanelAddress>& first);
    void resolvePasscode(const QString& passcode, const QString& host, quint16 port);
    // (1) and (2) above, after first.
    QList<PanelAddress> knownCandidates(const QString& code, QList<PanelAddress> first) const;
    // (4): discovered panels not in list, at most kMaxSweep.
    QList<PanelAddress> sweep(const QList<PanelAddress>& list) const;
    void finish(ResolveOutcome outcome);

    DiscoveryLookup m_lookup;
    std::shared_ptr<KnownPanels> m_known;
    PasscodeClient* m_passcodes;
    Done m_done;
    quint64 m_generation = 0;
};

}  // namespace zv
