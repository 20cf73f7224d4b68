// The PCs this panel knows: each one that proved the code (key exchange) or
// that the panel's user accepted, by its certificate key id. A known PC
// logs in without a code. File `known-devices` in the panel's config folder,
// JSON {key: {host, first, last}} (first/last seen, ms since the epoch),
// mode 0600, rewritten atomically. Threads: the receiver's main thread.
#pragma once

#include <QJsonObject>
#include <QString>

namespace receiver {

class KnownDevices {
public:
    // path empty: nothing is read or written (tests, a panel without a folder).
    explicit KnownDevices(QString path);

    const QString& path() const { return m_path; }
    bool contains(const QString& key) const;
    // Adds or refreshes a PC (host name, last seen); false when the file
    // cannot be written (logged; the PC is known until the panel restarts).
    bool record(const QString& key, const QString& host);
    int size() const { return m_devices.size(); }

private:
    QString m_path;
    QJsonObject m_devices;
};

}  // namespace receiver
