#include "core/DiagnosticBundle.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <sqlite3.h>
#include <sys/utsname.h>

#include <fstream>

#include "casting/CClientConfig.h"
#include "casting/Log.h"
#include "core/CastingConditions.h"

namespace zv {

namespace {

// One "column = value" line per setting. The settings hold no secrets; keys
// and pins live in files of their own, which are never read here.
bool writeSettings(const std::string& dbPath, const QString& outPath) {
    std::ofstream out(outPath.toStdString());
    if (!out) return false;
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        out << "settings: cannot open " << dbPath << "\n";
        sqlite3_close(db);
        return true;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT * FROM settings LIMIT 1", -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            const unsigned char* value = sqlite3_column_text(statement, i);
            out << sqlite3_column_name(statement, i) << " = " << (value ? reinterpret_cast<const char*>(value) : "")
                << "\n";
        }
    } else {
        out << "settings: " << sqlite3_errmsg(db) << "\n";
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return true;
}

bool writeSystem(const QString& outPath) {
    std::ofstream out(outPath.toStdString());
    if (!out) return false;
    utsname system{};
    if (uname(&system) == 0)
        out << "system: " << system.sysname << " " << system.release << " " << system.machine << "\n";
    for (const CastingCondition& condition : collectCastingConditions())
        out << condition.topic << ": " << (condition.ok ? "ok" : "LIMITS CASTING") << ": " << condition.value << "\n";
    return true;
}

}  // namespace

DiagnosticSources defaultDiagnosticSources() {
    return {zv_log::defaultLogDir(), CClientConfig::defaultDatabasePath()};
}

bool saveDiagnosticBundle(const std::string& outPath, const DiagnosticSources& sources, std::string* error) {
    zv_log::flushNow();  // the bundle holds the lines up to this moment
    QTemporaryDir staging;
    if (!staging.isValid()) {
        *error = "no temporary folder: " + staging.errorString().toStdString();
        return false;
    }
    const QDir root(staging.path() + QStringLiteral("/zelvanor-diagnostics"));
    if (!root.mkpath(QStringLiteral("logs"))) {
        *error = "cannot write " + root.path().toStdString();
        return false;
    }
    // Regular files only: glog's "latest" links would be followed twice.
    const QDir logs(QString::fromStdString(sources.logDir));
    for (const QFileInfo& file : logs.entryInfoList(QDir::Files | QDir::NoSymLinks)) {
        QFile::copy(file.absoluteFilePath(), root.filePath(QStringLiteral("logs/") + file.fileName()));
    }
    if (!writeSettings(sources.settingsPath, root.filePath(QStringLiteral("settings.txt"))) ||
        !writeSystem(root.filePath(QStringLiteral("system.txt")))) {
        *error = "cannot write " + root.path().toStdString();
        return false;
    }
    QProcess tar;
    tar.start(QStringLiteral("tar"), {QStringLiteral("-czf"), QFileInfo(QString::fromStdString(outPath)).absoluteFilePath(),
                                      QStringLiteral("-C"), staging.path(), QStringLiteral("zelvanor-diagnostics")});
    if (!tar.waitForFinished(60000) || tar.exitStatus() != QProcess::NormalExit || tar.exitCode() != 0) {
        *error = "tar failed: " + QString::fromLocal8Bit(tar.readAllStandardError()).trimmed().toStdString() +
                 tar.errorString().toStdString();
        return false;
    }
    ZV_LOG(INFO) << " diagnostic bundle saved to " << outPath;
    return true;
}

}  // namespace zv
