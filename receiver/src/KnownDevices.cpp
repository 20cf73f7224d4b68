#include "KnownDevices.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

#include "casting/Log.h"
#include "security/KeyId.h"

namespace receiver {

KnownDevices::KnownDevices(QString path) : m_path(std::move(path)) {
    if (m_path.isEmpty()) return;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly)) return;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isObject()) {
        ZV_LOG(WARNING) << " " << m_path.toStdString() << " is no list of devices; starting with none";
        return;
    }
    m_devices = document.object();
}

bool KnownDevices::contains(const QString& key) const { return !key.isEmpty() && m_devices.contains(key); }

bool KnownDevices::record(const QString& key, const QString& host) {
    if (zv::keyHashOfKeyId(key).isEmpty()) return false;
    const double now = double(QDateTime::currentMSecsSinceEpoch());
    QJsonObject device = m_devices.value(key).toObject();
    if (!device.contains(QStringLiteral("first"))) {
        device.insert(QStringLiteral("first"), now);
        ZV_LOG(INFO) << " PC \"" << host.toStdString() << "\" (" << zv::shortKeyId(key).toStdString()
                     << ") is known from now on";
    }
    device.insert(QStringLiteral("host"), host);
    device.insert(QStringLiteral("last"), now);
    m_devices.insert(key, device);
    if (m_path.isEmpty()) return true;  // kept in memory only

    const QByteArray bytes = QJsonDocument(m_devices).toJson();
    QSaveFile out(m_path);
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()) || !out.open(QIODevice::WriteOnly) ||
        !out.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) || out.write(bytes) != bytes.size() ||
        !out.commit()) {
        ZV_LOG(WARNING) << " cannot write " << m_path.toStdString() << ": " << out.errorString().toStdString();
        return false;
    }
    return true;
}

}  // namespace receiver
