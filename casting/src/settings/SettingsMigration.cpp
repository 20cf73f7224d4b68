#include "settings/SettingsMigration.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "casting/Log.h"
#include "settings/SettingsSchema.h"

namespace zv::settings {
namespace {

// How long a statement waits for another connection's write lock.
constexpr int kBusyTimeoutMs = 5000;
// Attempts at preparing the file when another instance holds it locked.
constexpr int kOpenAttempts = 3;

// What went wrong while opening a settings file decides what happens to it.
enum class Outcome {
    Ok,
    Damaged,     // not a database, fails the integrity check, or its table cannot be used
    Busy,        // another instance held the lock longer than the busy time-out
    Unwritable,  // cannot be created or written here
};

Outcome classify(int rc) {
    switch (rc & 0xff) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return Outcome::Ok;
        case SQLITE_NOTADB:
        case SQLITE_CORRUPT:
        case SQLITE_FORMAT:
        case SQLITE_ERROR:  // the table is a view, a column cannot be added, ...
        case SQLITE_CONSTRAINT:
        case SQLITE_MISMATCH:
        case SQLITE_RANGE:
            return Outcome::Damaged;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return Outcome::Busy;
        default:
            return Outcome::Unwritable;
    }
}

std::string describe(sqlite3* db, int rc, const char* step) {
    std::string text = std::string(step) + ": " + sqlite3_errstr(rc);
    if (db != nullptr) {
        const char* message = sqlite3_errmsg(db);
        if (message != nullptr && std::strcmp(message, sqlite3_errstr(rc)) != 0) text += std::string(" (") + message + ")";
    }
    return text;
}

// Brings an open database to this release's layout: the table, every known
// column, exactly one row and the schema version. The version write also
// proves that the file can be written.
Outcome prepareDatabase(sqlite3* db, bool onDisk, std::string* detail) {
    int rc = SQLITE_OK;
    if (onDisk) {
        sqlite3_busy_timeout(db, kBusyTimeoutMs);
        if (sqlite3_db_readonly(db, "main") == 1) {
            *detail = "the file is read-only";
            return Outcome::Unwritable;
        }
    }

    std::string integrity;
    if ((rc = singleText(db, "PRAGMA integrity_check", &integrity)) != SQLITE_OK) {
        *detail = describe(db, rc, "integrity check");
        return classify(rc);
    }
    if (integrity != "ok") {
        for (char& c : integrity) {
            if (c == '\n') c = ' ';
        }
        *detail = "integrity check: " + integrity;
        return Outcome::Damaged;
    }

    if ((rc = execute(db, "BEGIN IMMEDIATE")) != SQLITE_OK) {
        *detail = describe(db, rc, "begin");
        return classify(rc);
    }
    auto fail = [&](int code, const std::string& step) {
        *detail = describe(db, code, step.c_str());
        execute(db, "ROLLBACK");
        return classify(code);
    };

    const std::string create = std::string("CREATE TABLE IF NOT EXISTS ") + kTable + " (id INTEGER PRIMARY KEY)";
    if ((rc = execute(db, create.c_str())) != SQLITE_OK) return fail(rc, "create table");

    for (const Column& column : knownColumns()) {
        const bool exists = columnExists(db, column.name, &rc);
        if (rc != SQLITE_OK) return fail(rc, "read columns");
        if (exists) continue;
        const std::string alter = std::string("ALTER TABLE ") + kTable + " ADD COLUMN " +
                                  columnDefinition(column.name, column.kind, defaultText(&column));
        if ((rc = execute(db, alter.c_str())) != SQLITE_OK) return fail(rc, std::string("add column ") + column.name);
    }

    sqlite3_int64 rows = 0;
    if ((rc = singleInt(db, (std::string("SELECT count(*) FROM ") + kTable).c_str(), &rows)) != SQLITE_OK) {
        return fail(rc, "count rows");
    }
    if (rows == 0) {
        if ((rc = execute(db, (std::string("INSERT INTO ") + kTable + " DEFAULT VALUES").c_str())) != SQLITE_OK) {
            return fail(rc, "insert row");
        }
    } else if (rows > 1) {
        ZV_LOG(WARNING) << " settings table holds " << rows << " rows; keeping the first";
        const std::string trim = std::string("DELETE FROM ") + kTable + " WHERE rowid <> (SELECT min(rowid) FROM " +
                                 kTable + ")";
        if ((rc = execute(db, trim.c_str())) != SQLITE_OK) return fail(rc, "remove extra rows");
    }

    sqlite3_int64 version = 0;
    if ((rc = singleInt(db, "PRAGMA user_version", &version)) != SQLITE_OK) return fail(rc, "read version");
    // A newer release's file keeps its version; its extra columns are left alone.
    const std::string setVersion =
        "PRAGMA user_version = " + std::to_string(version > kSchemaVersion ? version : kSchemaVersion);
    if ((rc = execute(db, setVersion.c_str())) != SQLITE_OK) return fail(rc, "write version");

    if ((rc = execute(db, "COMMIT")) != SQLITE_OK) return fail(rc, "commit");

    // Only a file that proved usable is switched to write-ahead logging, so a
    // damaged one is kept exactly as it was found. WAL lets another instance
    // read while this one writes.
    if (onDisk) {
        std::string mode;
        if ((rc = singleText(db, "PRAGMA journal_mode=WAL", &mode)) != SQLITE_OK) {
            *detail = describe(db, rc, "journal mode");
            return classify(rc) == Outcome::Damaged ? Outcome::Unwritable : classify(rc);
        }
        if (mode != "wal") ZV_LOG(WARNING) << " settings file stays in journal mode " << mode;
        execute(db, "PRAGMA synchronous=NORMAL");
    }
    return Outcome::Ok;
}

std::string parentOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return std::string();
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

bool makeDirs(const std::string& path) {
    if (path.empty()) return true;
    std::string partial;
    for (size_t i = 0; i < path.size(); ++i) {
        partial += path[i];
        if ((path[i] == '/' || i + 1 == path.size()) && partial.size() > 1) {
            if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
        }
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return false;
    if (!S_ISDIR(info.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    return true;
}

bool pathExists(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

std::string localTimestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm parts {};
    localtime_r(&now, &parts);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &parts);
    return text;
}

// Keeps a damaged file (and the write-ahead log that belongs to it) under a
// new name next to it; the shared-memory index is only a cache and goes.
bool moveAside(const std::string& path, std::string* aside) {
    const std::string base = path + ".broken-" + localTimestamp();
    std::string target = base;
    for (int n = 2; pathExists(target) || pathExists(target + "-wal"); ++n) target = base + "-" + std::to_string(n);
    if (std::rename(path.c_str(), target.c_str()) != 0) {
        *aside = target + " (" + std::strerror(errno) + ")";
        return false;
    }
    for (const char* suffix : {"-wal", "-journal"}) {
        const std::string companion = path + suffix;
        if (pathExists(companion) && std::rename(companion.c_str(), (target + suffix).c_str()) != 0) {
            ZV_LOG(WARNING) << " could not move " << companion << " aside: " << std::strerror(errno);
        }
    }
    unlink((path + "-shm").c_str());
    *aside = target;
    return true;
}

// A URI for sqlite3_open_v2 that survives any character of a path.
std::string fileUri(const std::string& path, const char* query) {
    static const char* const hex = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char c : path) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (std::isalnum(u) || c == '/' || c == '-' || c == '_' || c == '.' || c == '~') {
            uri += c;
        } else {
            uri += '%';
            uri += hex[u >> 4];
            uri += hex[u & 0x0f];
        }
    }
    return uri + "?" + query;
}

// Copies the file's contents into the in-memory database. A file in write-ahead
// mode in a folder we cannot write needs "immutable" to be read at all.
bool copyFileInto(sqlite3* memory, const std::string& path, std::string* detail) {
    for (const char* query : {"mode=ro", "immutable=1"}) {
        sqlite3* source = nullptr;
        int rc = sqlite3_open_v2(fileUri(path, query).c_str(), &source, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
        if (rc == SQLITE_OK) {
            sqlite3_backup* backup = sqlite3_backup_init(memory, "main", source, "main");
            if (backup == nullptr) {
                rc = sqlite3_errcode(memory);
            } else {
                rc = sqlite3_backup_step(backup, -1);
                sqlite3_backup_finish(backup);
                if (rc == SQLITE_DONE) rc = SQLITE_OK;
            }
        }
        if (rc != SQLITE_OK) *detail = describe(source, rc, query);
        sqlite3_close_v2(source);
        if (rc == SQLITE_OK) return true;
    }
    return false;
}

// Opens and prepares the file itself; on success *db holds the connection.
Outcome openOnDisk(const std::string& path, sqlite3** db, std::string* detail) {
    Outcome outcome = Outcome::Busy;
    for (int attempt = 0; attempt < kOpenAttempts && outcome == Outcome::Busy; ++attempt) {
        sqlite3* handle = nullptr;
        const int rc = sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        if (rc != SQLITE_OK) {
            *detail = describe(handle, rc, "open");
            sqlite3_close_v2(handle);
            // A path that cannot be opened at all is never treated as damaged.
            return Outcome::Unwritable;
        }
        outcome = prepareDatabase(handle, true, detail);
        if (outcome == Outcome::Ok) {
            *db = handle;
            return outcome;
        }
        sqlite3_close_v2(handle);
    }
    return outcome == Outcome::Busy ? Outcome::Unwritable : outcome;
}

}  // namespace

OpenedStore openStore(const std::string& path) {
    OpenedStore store;
    std::string detail;
    Outcome outcome = Outcome::Unwritable;
    const std::string folder = parentOf(path);
    if (!makeDirs(folder)) {
        detail = "cannot create folder " + folder + ": " + std::strerror(errno);
    } else {
        outcome = openOnDisk(path, &store.db, &detail);
    }

    if (outcome == Outcome::Damaged) {
        std::string aside;
        if (moveAside(path, &aside)) {
            ZV_LOG(ERROR) << " settings file " << path << " is damaged (" << detail << "); kept it as " << aside
                          << " and starting again with default settings";
            outcome = openOnDisk(path, &store.db, &detail);
            if (outcome == Outcome::Damaged) outcome = Outcome::Unwritable;
        } else {
            ZV_LOG(ERROR) << " settings file " << path << " is damaged (" << detail << ") and could not be moved to "
                          << aside;
            outcome = Outcome::Unwritable;
        }
    }
    if (outcome == Outcome::Ok) {
        store.persistent = true;
        ZV_LOG(INFO) << " settings stored in " << path;
        return store;
    }

    // Cannot write here: use the stored values if they can be read, in memory.
    store.persistent = false;
    if (sqlite3_open_v2(":memory:", &store.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        ZV_LOG(ERROR) << " settings file " << path << " unusable (" << detail
                      << ") and no memory for a temporary store; defaults are used and nothing is saved this run";
        sqlite3_close_v2(store.db);
        store.db = nullptr;
        return store;
    }
    std::string copyDetail;
    bool loaded = false;
    if (access(path.c_str(), R_OK) == 0 && copyFileInto(store.db, path, &copyDetail)) {
        std::string memoryDetail;
        loaded = prepareDatabase(store.db, false, &memoryDetail) == Outcome::Ok;
        if (!loaded) {
            copyDetail = memoryDetail;
            sqlite3_close_v2(store.db);
            store.db = nullptr;
            sqlite3_open_v2(":memory:", &store.db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        }
    }
    if (!loaded) {
        std::string memoryDetail;
        if (store.db == nullptr || prepareDatabase(store.db, false, &memoryDetail) != Outcome::Ok) {
            ZV_LOG(ERROR) << " temporary settings store failed: " << memoryDetail;
            sqlite3_close_v2(store.db);
            store.db = nullptr;
        }
    }
    ZV_LOG(ERROR) << " cannot write settings file " << path << " (" << detail << "); "
                  << (loaded ? "using its stored values" : "using default settings")
                  << (loaded || copyDetail.empty() ? std::string() : " (" + copyDetail + ")")
                  << "; settings will not be saved this run";
    return store;
}

}  // namespace zv::settings
