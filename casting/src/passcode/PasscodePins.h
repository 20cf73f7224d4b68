// Which key each passcode service must show: the file "passcode-servers" in
// the PC's or the panel's config folder, one "host:port keyid" line per
// service. The first connection to a service records its key (trust on
// first use) unless the key was given with the address (HOST:PORT#KEYID);
// afterwards another key is refused with an error naming both.
// The file is read on every check, so a line removed takes effect at once.
//
// Threads: an instance may be used from any one thread at a time.
#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace zv {

inline constexpr char kPasscodePinsFileName[] = "passcode-servers";

// "HOST:PORT" or "HOST:PORT#KEYID", as --passcode-server takes it.
struct PasscodeServerAddress {
    QString host;
    quint16 port = 0;
    QString keyId;  // empty: learn it on first use

    // nullopt for anything else (no host, a port outside 1..65535, a key id
    // that is not one).
    static std::optional<PasscodeServerAddress> parse(const QString& text);
    // Several instances, "HOST:PORT[#KEYID],HOST:PORT[#KEYID]...", in the
    // order to try them; nullopt when empty or any one is malformed.
    static std::optional<QList<PasscodeServerAddress>> parseList(const QString& text);
    QString hostPort() const;
};

class PasscodePins {
public:
    // $XDG_CONFIG_HOME/zelvanor/passcode-servers (else under ~/.config): the PC's.
    static QString defaultPcPath();

    explicit PasscodePins(QString filePath);
    const QString& path() const { return m_path; }

    struct Verdict {
        bool trusted = false;
        bool firstUse = false;  // trusted, and now recorded
        QString error;          // why not trusted, for the log and the user
    };
    // Whether the service at host:port that showed presentedKey is the one to
    // talk to. explicitKey (from #KEYID) wins over the file and replaces
    // what the file holds when the service shows it.
    Verdict check(const QString& host, quint16 port, const QString& presentedKey, const QString& explicitKey = {});

    // The key recorded for host:port; empty if none.
    QString pinned(const QString& host, quint16 port) const;
    // Records key for host:port, replacing another; false (and the reason
    // in *error) when the file cannot be written.
    bool pin(const QString& host, quint16 port, const QString& key, QString* error = nullptr);

private:
    QString m_path;
};

}  // namespace zv
