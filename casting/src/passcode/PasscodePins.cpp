#include "passcode/PasscodePins.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringList>

#include "casting/Log.h"
#include "security/KeyId.h"

namespace zv {

namespace {

QString entryName(const QString& host, quint16 port) { return host + QLatin1Char(':') + QString::number(port); }

QByteArray readAll(const QString& path) {
    QFile file(path);
    if (file.open(QIODevice::ReadOnly)) return file.readAll();
    if (file.exists()) ZV_LOG(WARNING) << " cannot read " << path.toStdString() << ": " << file.errorString().toStdString();
    return {};
}

// The key on the line for name, if the line is one; lines of another shape
// (comments, blanks) are none.
std::optional<QString> keyOnLine(const QByteArray& raw, const QString& name) {
    const QString line = QString::fromUtf8(raw).trimmed();
    if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) return std::nullopt;
    const QStringList parts = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (parts.size() != 2 || parts[0] != name) return std::nullopt;
    return parts[1];
}

}  // namespace

std::optional<PasscodeServerAddress> PasscodeServerAddress::parse(const QString& text) {
    PasscodeServerAddress out;
    QString hostPort = text.trimmed();
    const int hash = hostPort.indexOf(QLatin1Char('#'));
    if (hash >= 0) {
        out.keyId = hostPort.mid(hash + 1);
        hostPort.truncate(hash);
        if (keyHashOfKeyId(out.keyId).isEmpty()) return std::nullopt;
    }
    const int colon = hostPort.lastIndexOf(QLatin1Char(':'));
    if (colon <= 0) return std::nullopt;
    bool ok = false;
    const uint port = hostPort.mid(colon + 1).toUInt(&ok);
    if (!ok || port == 0 || port > 65535) return std::nullopt;
    out.host = hostPort.left(colon);
    if (out.host.startsWith(QLatin1Char('[')) && out.host.endsWith(QLatin1Char(']'))) out.host = out.host.mid(1, out.host.size() - 2);
    if (out.host.isEmpty() || out.host.contains(QLatin1Char(' '))) return std::nullopt;
    out.port = quint16(port);
    return out;
}

std::optional<QList<PasscodeServerAddress>> PasscodeServerAddress::parseList(const QString& text) {
    QList<PasscodeServerAddress> out;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (part.trimmed().isEmpty()) continue;
        const auto server = parse(part);
        if (!server) return std::nullopt;
        out.append(*server);
    }
    if (out.isEmpty()) return std::nullopt;
    return out;
}

QString PasscodeServerAddress::hostPort() const { return entryName(host, port); }

QString PasscodePins::defaultPcPath() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config)) config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/zelvanor/") + QLatin1String(kPasscodePinsFileName);
}

PasscodePins::PasscodePins(QString filePath) : m_path(std::move(filePath)) {}

QString PasscodePins::pinned(const QString& host, quint16 port) const {
    const QString name = entryName(host, port);
    for (const QByteArray& raw : readAll(m_path).split('\n')) {
        if (const auto key = keyOnLine(raw, name)) return *key;
    }
    return {};
}

bool PasscodePins::pin(const QString& host, quint16 port, const QString& key, QString* error) {
    const QString name = entryName(host, port);
    QByteArray updated;
    for (const QByteArray& raw : readAll(m_path).split('\n')) {
        if (raw.isEmpty() || keyOnLine(raw, name)) continue;
        updated.append(raw).append('\n');
    }
    updated.append((name + QLatin1Char(' ') + key + QLatin1Char('\n')).toUtf8());
    QSaveFile out(m_path);
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()) || !out.open(QIODevice::WriteOnly) ||
        out.write(updated) != updated.size() || !out.commit()) {
        const QString why = QStringLiteral("cannot write %1: %2").arg(m_path, out.errorString());
        ZV_LOG(WARNING) << " " << why.toStdString();
        if (error) *error = why;
        return false;
    }
    QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner);
    return true;
}

PasscodePins::Verdict PasscodePins::check(const QString& host, quint16 port, const QString& presentedKey,
                                          const QString& explicitKey) {
    const QString name = entryName(host, port);
    Verdict verdict;
    if (keyHashOfKeyId(presentedKey).isEmpty()) {
        verdict.error = QStringLiteral("the passcode service %1 showed no usable certificate").arg(name);
        return verdict;
    }
    const QString recorded = pinned(host, port);
    if (!explicitKey.isEmpty()) {
        if (presentedKey != explicitKey) {
            verdict.error = QStringLiteral("the passcode service %1 shows key %2, not %3 as given with its address; "
                                           "check the key id the service prints at start-up")
                                .arg(name, shortKeyId(presentedKey), shortKeyId(explicitKey));
            return verdict;
        }
        if (recorded != presentedKey) {
            if (!recorded.isEmpty()) {
                ZV_LOG(INFO) << " passcode service " << name.toStdString() << ": key " << shortKeyId(recorded).toStdString()
                             << " in " << m_path.toStdString() << " replaced by " << shortKeyId(presentedKey).toStdString()
                             << " as given";
            }
            pin(host, port, presentedKey);
        }
        verdict.trusted = true;
        return verdict;
    }
    if (recorded.isEmpty()) {
        verdict.trusted = true;
        verdict.firstUse = true;
        if (pin(host, port, presentedKey)) {
            ZV_LOG(INFO) << " first use of passcode service " << name.toStdString() << ": key "
                         << presentedKey.toStdString() << " pinned in " << m_path.toStdString();
        }
        return verdict;
    }
    if (recorded == presentedKey) {
        verdict.trusted = true;
        return verdict;
    }
    verdict.error = QStringLiteral("the passcode service %1 now shows key %2, but key %3 is pinned for it in %4. "
                                   "If the service was really reinstalled, remove its line from that file, or give "
                                   "the address as %1#KEYID with the key id the service prints at start-up")
                        .arg(name, shortKeyId(presentedKey), shortKeyId(recorded), m_path);
    return verdict;
}

}  // namespace zv
