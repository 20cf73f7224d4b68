// The panels this PC has logged in to with their code: the file
// $XDG_CONFIG_HOME/zelvanor/known-panels (else ~/.config/zelvanor/...), a
// JSON list of {key, name, address, port, code, seen}. An entry is written
// after every successful key exchange: the exchange proved the panel's key,
// so a new key for a known name replaces the old pin (and is logged). A
// log-in without a code (KNOWN) to a name pinned to another key is refused.
// The codes that worked let a typed code find its panel again.
// The file is read on every call, so an entry the user removed (or
// `zelvanor-cli forget`) takes effect at once; it is rewritten atomically
// with mode 0600 (it holds codes). Thread-safe.
#pragma once

#include <QList>
#include <QMutex>
#include <QString>

#include <optional>

namespace zv {

class KnownPanels {
public:
    struct Entry {
        QString key;  // the panel's key id (43 characters)
        QString name;
        QString address;
        quint16 port = 0;
        QString code;  // the code (or passcode) that worked last, normalised
        qint64 seenMs = 0;
    };

    // The default file, for this user.
    static QString defaultPath();

    explicit KnownPanels(QString filePath = defaultPath());

    const QString& path() const { return m_path; }

    QList<Entry> entries() const;
    std::optional<Entry> byKey(const QString& key) const;
    std::optional<Entry> byName(const QString& name) const;
    // The most recently seen panel this code worked with.
    std::optional<Entry> byCode(const QString& code) const;

    // Records a proven panel; replaces the entry of the same key and any
    // other entry of the same name (a reinstalled panel). False when the
    // file cannot be written (logged).
    bool remember(const Entry& entry);
    // Forgets every entry of that name; how many there were.
    int forgetName(const QString& name);

private:
    QList<Entry> readLocked() const;
    bool writeLocked(const QList<Entry>& entries) const;

    QString m_path;
    mutable QMutex m_mutex;
};

}  // namespace zv
