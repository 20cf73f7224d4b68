#include "transport/KnownPanels.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringList>

#include <algorithm>

#include "casting/Log.h"

namespace zv {

namespace {

QString entryName(const QString& address, quint16 port) { return address + QLatin1Char(':') + QString::number(port); }

}  // namespace

QString KnownPanels::defaultPath() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config)) config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/zelvanor/known-panels");
}

KnownPanels::KnownPanels(QString filePath) : m_path(std::move(filePath)) {}

KnownPanels::Result KnownPanels::check(const QString& address, quint16 port, const QString& key) {
    QMutexLocker lock(&m_mutex);
    const QString name = entryName(address, port);
    // No key (no certificate) or text that would break the line format is
    // never trusted, nor written.
    auto unfit = [](const QString& s) {
        return s.isEmpty() || std::any_of(s.begin(), s.end(), [](QChar c) { return c.isSpace(); });
    };
    if (unfit(address) || unfit(key)) {
        ZV_LOG(ERROR) << " refusing panel \"" << name.toStdString() << "\" with key \"" << key.toStdString()
                      << "\": empty or containing white space";
        return {Verdict::Changed, {}};
    }

    QByteArray contents;
    QFile file(m_path);
    if (file.open(QIODevice::ReadOnly)) {
        contents = file.readAll();
        file.close();
    } else if (file.exists()) {
        ZV_LOG(WARNING) << " cannot read " << m_path.toStdString() << ": " << file.errorString().toStdString();
    }

    // "address:port key"; blank lines, comments and lines of another shape
    // are kept as they are.
    const QList<QByteArray> lines = contents.split('\n');
    for (const QByteArray& raw : lines) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#'))) continue;
        const QStringList parts = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (parts.size() != 2 || parts[0] != name) continue;
        if (parts[1].compare(key, Qt::CaseInsensitive) == 0) return {Verdict::Trusted, {}};
        return {Verdict::Changed, parts[1]};
    }

    QByteArray updated = contents;
    if (!updated.isEmpty() && !updated.endsWith('\n')) updated.append('\n');
    updated.append((name + QLatin1Char(' ') + key.toLower() + QLatin1Char('\n')).toUtf8());

    QSaveFile out(m_path);
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()) || !out.open(QIODevice::WriteOnly) || out.write(updated) != updated.size() ||
        !out.commit()) {
        ZV_LOG(WARNING) << " cannot record panel " << name.toStdString() << " in " << m_path.toStdString() << ": "
                        << out.errorString().toStdString();
    } else {
        ZV_LOG(INFO) << " first connection to " << name.toStdString() << ": key " << key.toStdString() << " recorded in "
                     << m_path.toStdString();
    }
    return {Verdict::FirstUse, {}};
}

}  // namespace zv
