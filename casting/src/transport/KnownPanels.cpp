#include "transport/KnownPanels.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include "casting/Log.h"
#include "security/KeyId.h"

namespace zv {

QString KnownPanels::defaultPath() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config)) config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/zelvanor/known-panels");
}

KnownPanels::KnownPanels(QString filePath) : m_path(std::move(filePath)) {}

QList<KnownPanels::Entry> KnownPanels::readLocked() const {
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (file.exists()) ZV_LOG(WARNING) << " cannot read " << m_path.toStdString() << ": " << file.errorString().toStdString();
        return {};
    }
    const QByteArray contents = file.readAll();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(contents, &error);
    if (!document.isArray()) {
        // An older "address:port key" file, or a damaged one: nothing is pinned.
        if (!contents.trimmed().isEmpty())
            ZV_LOG(WARNING) << " " << m_path.toStdString() << " is no list of panels; it is read as empty";
        return {};
    }
    QList<Entry> out;
    for (const QJsonValue& value : document.array()) {
        const QJsonObject o = value.toObject();
        Entry entry;
        entry.key = o.value(QStringLiteral("key")).toString();
        if (keyHashOfKeyId(entry.key).isEmpty()) continue;  // not a key id: ignored
        entry.name = o.value(QStringLiteral("name")).toString();
        entry.address = o.value(QStringLiteral("address")).toString();
        const int port = o.value(QStringLiteral("port")).toInt();
        entry.port = quint16(port > 0 && port <= 65535 ? port : 0);
        entry.code = o.value(QStringLiteral("code")).toString();
        entry.seenMs = qint64(o.value(QStringLiteral("seen")).toDouble());
        out << entry;
    }
    return out;
}

bool KnownPanels::writeLocked(const QList<Entry>& entries) const {
    QJsonArray array;
    for (const Entry& e : entries) {
        array.append(QJsonObject{{QStringLiteral("key"), e.key},
                                 {QStringLiteral("name"), e.name},
                                 {QStringLiteral("address"), e.address},
                                 {QStringLiteral("port"), int(e.port)},
                                 {QStringLiteral("code"), e.code},
                                 {QStringLiteral("seen"), double(e.seenMs)}});
    }
    const QByteArray bytes = QJsonDocument(array).toJson();
    QSaveFile out(m_path);
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()) || !out.open(QIODevice::WriteOnly) ||
        !out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || out.write(bytes) != bytes.size() ||
        !out.commit()) {
        ZV_LOG(WARNING) << " cannot write " << m_path.toStdString() << ": " << out.errorString().toStdString();
        return false;
    }
    return true;
}

QList<KnownPanels::Entry> KnownPanels::entries() const {
    QMutexLocker lock(&m_mutex);
    return readLocked();
}

std::optional<KnownPanels::Entry> KnownPanels::byKey(const QString& key) const {
    for (const Entry& e : entries())
        if (e.key == key) return e;
    return std::nullopt;
}

std::optional<KnownPanels::Entry> KnownPanels::byName(const QString& name) const {
    for (const Entry& e : entries())
        if (!name.isEmpty() && e.name == name) return e;
    return std::nullopt;
}

std::optional<KnownPanels::Entry> KnownPanels::byCode(const QString& code) const {
    std::optional<Entry> best;
    for (const Entry& e : entries()) {
        if (!code.isEmpty() && e.code == code && (!best || e.seenMs > best->seenMs)) best = e;
    }
    return best;
}

bool KnownPanels::remember(const Entry& entry) {
    QMutexLocker lock(&m_mutex);
    QList<Entry> all = readLocked();
    Entry stored = entry;
    if (stored.seenMs == 0) stored.seenMs = QDateTime::currentMSecsSinceEpoch();
    for (auto it = all.begin(); it != all.end();) {
        if (it->key == entry.key) {
            it = all.erase(it);
        } else if (!entry.name.isEmpty() && it->name == entry.name) {
            ZV_LOG(WARNING) << " panel \"" << entry.name.toStdString() << "\" has a new key "
                            << shortKeyId(entry.key).toStdString() << " (was " << shortKeyId(it->key).toStdString()
                            << "); the code proved it, the pin is replaced";
            it = all.erase(it);
        } else {
            ++it;
        }
    }
    all.prepend(stored);
    return writeLocked(all);
}

int KnownPanels::forgetName(const QString& name) {
    QMutexLocker lock(&m_mutex);
    QList<Entry> all = readLocked();
    const int before = all.size();
    all.erase(std::remove_if(all.begin(), all.end(), [&](const Entry& e) { return e.name == name; }), all.end());
    const int removed = before - all.size();
    if (removed > 0) writeLocked(all);
    return removed;
}

}  // namespace zv
