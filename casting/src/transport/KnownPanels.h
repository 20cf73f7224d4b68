// Trust on first use of panel keys, per address and port: the file
// $XDG_CONFIG_HOME/zelvanor/known-panels (else ~/.config/zelvanor/...), one
// "address:port key" line per panel. The file is read on every check, so a
// line the user removed takes effect at once; it is rewritten atomically.
// Thread-safe.
#pragma once

#include <QMutex>
#include <QString>

namespace zv {

class KnownPanels {
public:
    enum class Verdict { Trusted = 1, FirstUse, Changed };
    struct Result {
        Verdict verdict = Verdict::Trusted;
        QString previousKey;  // with Changed: the key on record
    };

    // The default file, for this user.
    static QString defaultPath();

    explicit KnownPanels(QString filePath = defaultPath());

    const QString& path() const { return m_path; }

    // Compares key with the one on record for address:port. FirstUse records
    // the key (a write failure is logged; the verdict stays FirstUse).
    // Keys compare without regard to case. An empty address or key, or one
    // with white space, gives Changed with an empty previousKey.
    Result check(const QString& address, quint16 port, const QString& key);

private:
    QString m_path;
    QMutex m_mutex;
};

}  // namespace zv
