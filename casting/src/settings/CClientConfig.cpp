#include "casting/CClientConfig.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "casting/Log.h"
#include "casting/McUtil.h"

namespace {

// Raised when a release adds or changes columns; stored in PRAGMA user_version.
constexpr int kSchemaVersion = 1;
// How long a statement waits for another connection's write lock.
constexpr int kBusyTimeoutMs = 5000;
// Attempts at preparing the file when another instance holds it locked.
constexpr int kOpenAttempts = 3;

const char* const kTable = "settings";

enum class ColumnKind { Text, Integer };

struct Column {
    const char* name;
    ColumnKind kind;
    const char* defaultValue;  // nullptr: the machine's host name
};

// Every setting this release knows. Order is the order of the columns in a
// fresh file; an older file gains the missing ones at the end.
const Column kColumns[] = {
    {"HostName", ColumnKind::Text, nullptr},
    {"ServerIP", ColumnKind::Text, ""},
    {"ServerPort", ColumnKind::Text, ""},
    {"ShortcutIP", ColumnKind::Text, ""},
    {"ProType", ColumnKind::Integer, "2"},
    {"ReverseProType", ColumnKind::Integer, "1"},
    {"MouseProType", ColumnKind::Integer, "1"},
    {"ShareProType", ColumnKind::Integer, "1"},
    {"ShareReverseProType", ColumnKind::Integer, "1"},
    {"ShareMouseProType", ColumnKind::Integer, "1"},
    {"CodingMode", ColumnKind::Integer, "0"},
    {"HWEEnable", ColumnKind::Integer, "1"},
    {"ScreenIsMute", ColumnKind::Integer, "1"},  // 1: the cast carries the PC's sound
    {"ScreenReverse", ColumnKind::Integer, "0"},
    {"ShareReverse", ColumnKind::Integer, "0"},
    {"ShareVoice", ColumnKind::Integer, "1"},
    {"ShowBitRate", ColumnKind::Integer, "0"},
    {"ShowDelay", ColumnKind::Integer, "0"},
    {"ShowFrameRate", ColumnKind::Integer, "0"},
    {"ShowLossFraction", ColumnKind::Integer, "0"},
    {"IsReminder", ColumnKind::Integer, "1"},
    {"FirstRun", ColumnKind::Integer, "1"},
    {"PauseScreenShortcut", ColumnKind::Text, "K"},
    {"StartOrStopScreenShortcut", ColumnKind::Text, "H"},
    {"YUVConvertMode", ColumnKind::Integer, "0"},
};

const std::string& machineHostName() {
    static const std::string name = [] {
        char buffer[256] = {};
        if (gethostname(buffer, sizeof buffer - 1) != 0 || buffer[0] == '\0') return std::string("localhost");
        return std::string(buffer);
    }();
    return name;
}

bool sameName(const std::string& a, const char* b) {
    const size_t length = std::strlen(b);
    if (a.size() != length) return false;
    for (size_t i = 0; i < length; ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

const Column* knownColumn(const std::string& name) {
    for (const Column& column : kColumns) {
        if (sameName(name, column.name)) return &column;
    }
    return nullptr;
}

std::string defaultText(const Column* column) {
    if (column == nullptr) return std::string();
    return column->defaultValue != nullptr ? std::string(column->defaultValue) : machineHostName();
}

int defaultInt(const Column* column) {
    return column != nullptr && column->defaultValue != nullptr ? std::atoi(column->defaultValue) : 0;
}

// Column names become SQL identifiers, so only a plain alphabet is accepted;
// anything else is refused and logged.
bool acceptedColumnName(const std::string& name) {
    bool plain = !name.empty() && name.size() <= 64;
    for (const char c : name) {
        plain = plain && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_');
    }
    if (!plain) ZV_LOG(ERROR) << " refused column name \"" << name << "\": only letters, digits and '_' are allowed";
    return plain;
}

// Only for names that passed acceptedColumnName or come from kColumns.
std::string identifier(const std::string& name) { return "\"" + name + "\""; }

std::string sqlLiteral(const std::string& text) {
    char* quoted = sqlite3_mprintf("%Q", text.c_str());
    if (quoted == nullptr) return "''";
    std::string result(quoted);
    sqlite3_free(quoted);
    return result;
}

class Statement {
public:
    Statement(sqlite3* db, const std::string& sql) {
        m_rc = sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size()), &m_stmt, nullptr);
    }
    ~Statement() { sqlite3_finalize(m_stmt); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return m_rc == SQLITE_OK && m_stmt != nullptr; }
    int prepareResult() const { return m_rc; }
    sqlite3_stmt* get() const { return m_stmt; }
    int step() { return sqlite3_step(m_stmt); }

private:
    sqlite3_stmt* m_stmt = nullptr;
    int m_rc = SQLITE_OK;
};

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

int execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

// Runs a statement that yields one text row (PRAGMA integrity_check, journal_mode).
int singleText(sqlite3* db, const char* sql, std::string* value) {
    Statement statement(db, sql);
    if (!statement.ok()) return statement.prepareResult();
    const int rc = statement.step();
    if (rc == SQLITE_ROW) {
        const unsigned char* text = sqlite3_column_text(statement.get(), 0);
        *value = text != nullptr ? reinterpret_cast<const char*>(text) : "";
        return SQLITE_OK;
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

int singleInt(sqlite3* db, const char* sql, sqlite3_int64* value) {
    Statement statement(db, sql);
    if (!statement.ok()) return statement.prepareResult();
    const int rc = statement.step();
    if (rc == SQLITE_ROW) {
        *value = sqlite3_column_int64(statement.get(), 0);
        return SQLITE_OK;
    }
    return rc == SQLITE_DONE ? SQLITE_OK : rc;
}

bool columnExists(sqlite3* db, const std::string& name, int* rc) {
    Statement statement(db, std::string("PRAGMA table_info(") + kTable + ")");
    if (!statement.ok()) {
        *rc = statement.prepareResult();
        return false;
    }
    int step;
    while ((step = statement.step()) == SQLITE_ROW) {
        const unsigned char* column = sqlite3_column_text(statement.get(), 1);
        if (column != nullptr && sameName(name, reinterpret_cast<const char*>(column))) {
            *rc = SQLITE_OK;
            return true;
        }
    }
    *rc = step == SQLITE_DONE ? SQLITE_OK : step;
    return false;
}

std::string columnDefinition(const std::string& name, ColumnKind kind, const std::string& defaultValue) {
    if (kind == ColumnKind::Integer) {
        return identifier(name) + " INTEGER NOT NULL DEFAULT " + std::to_string(std::atoi(defaultValue.c_str()));
    }
    return identifier(name) + " TEXT NOT NULL DEFAULT " + sqlLiteral(defaultValue);
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

    for (const Column& column : kColumns) {
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

bool parseInt(const char* text, int* value) {
    if (text == nullptr || *text == '\0') return false;
    errno = 0;
    char* end = nullptr;
    const long parsed = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || parsed < INT_MIN || parsed > INT_MAX) return false;
    *value = static_cast<int>(parsed);
    return true;
}

ProtocolType protocolOrDefault(int value, int highest, ProtocolType fallback) {
    return value >= PROTOCOL_UDP && value <= highest ? static_cast<ProtocolType>(value) : fallback;
}

// The cast video may also travel over BRX; the other streams only over UDP or TCP.
constexpr int kHighestVideoProtocol = PROTOCOL_BRX;
constexpr int kHighestOtherProtocol = PROTOCOL_TCP;

void warnIfBadProtocol(const char* column, int value, int highest) {
    if (value < PROTOCOL_UDP || value > highest) {
        ZV_LOG(WARNING) << " " << column << " = " << value << " is no known transport; it reads back as the default";
    }
}

std::string letterOrDefault(const std::string& stored, char fallback) {
    if (!stored.empty() && std::isalpha(static_cast<unsigned char>(stored[0])) &&
        static_cast<unsigned char>(stored[0]) < 0x80) {
        return std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(stored[0]))));
    }
    return std::string(1, fallback);
}

}  // namespace

// ---------------------------------------------------------------------------
// Opening
// ---------------------------------------------------------------------------

CClientConfig::CClientConfig() : m_path(defaultDatabasePath()) { open(); }

CClientConfig::CClientConfig(const std::string& databasePath) : m_path(databasePath) { open(); }

CClientConfig::~CClientConfig() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_db != nullptr) sqlite3_close_v2(m_db);
    m_db = nullptr;
}

std::string CClientConfig::defaultDatabasePath() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    std::string base;
    if (xdg != nullptr && xdg[0] == '/') {  // relative values are to be ignored
        base = xdg;
        while (base.size() > 1 && base.back() == '/') base.pop_back();
    } else {
        base = MC_Util_GetHomePath() + "/.config";
    }
    return base + "/zelvanor/settings.db";
}

namespace {

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

void CClientConfig::open() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::string detail;
    Outcome outcome = Outcome::Unwritable;
    const std::string folder = parentOf(m_path);
    if (!makeDirs(folder)) {
        detail = "cannot create folder " + folder + ": " + std::strerror(errno);
    } else {
        outcome = openOnDisk(m_path, &m_db, &detail);
    }

    if (outcome == Outcome::Damaged) {
        std::string aside;
        if (moveAside(m_path, &aside)) {
            ZV_LOG(ERROR) << " settings file " << m_path << " is damaged (" << detail << "); kept it as " << aside
                          << " and starting again with default settings";
            outcome = openOnDisk(m_path, &m_db, &detail);
            if (outcome == Outcome::Damaged) outcome = Outcome::Unwritable;
        } else {
            ZV_LOG(ERROR) << " settings file " << m_path << " is damaged (" << detail << ") and could not be moved to "
                          << aside;
            outcome = Outcome::Unwritable;
        }
    }
    if (outcome == Outcome::Ok) {
        m_persistent = true;
        ZV_LOG(INFO) << " settings stored in " << m_path;
        return;
    }

    // Cannot write here: use the stored values if they can be read, in memory.
    m_persistent = false;
    if (sqlite3_open_v2(":memory:", &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) != SQLITE_OK) {
        ZV_LOG(ERROR) << " settings file " << m_path << " unusable (" << detail
                      << ") and no memory for a temporary store; defaults are used and nothing is saved this run";
        sqlite3_close_v2(m_db);
        m_db = nullptr;
        return;
    }
    std::string copyDetail;
    bool loaded = false;
    if (access(m_path.c_str(), R_OK) == 0 && copyFileInto(m_db, m_path, &copyDetail)) {
        std::string memoryDetail;
        loaded = prepareDatabase(m_db, false, &memoryDetail) == Outcome::Ok;
        if (!loaded) {
            copyDetail = memoryDetail;
            sqlite3_close_v2(m_db);
            m_db = nullptr;
            sqlite3_open_v2(":memory:", &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        }
    }
    if (!loaded) {
        std::string memoryDetail;
        if (m_db == nullptr || prepareDatabase(m_db, false, &memoryDetail) != Outcome::Ok) {
            ZV_LOG(ERROR) << " temporary settings store failed: " << memoryDetail;
            sqlite3_close_v2(m_db);
            m_db = nullptr;
        }
    }
    ZV_LOG(ERROR) << " cannot write settings file " << m_path << " (" << detail << "); "
                  << (loaded ? "using its stored values" : "using default settings")
                  << (loaded || copyDetail.empty() ? std::string() : " (" + copyDetail + ")")
                  << "; settings will not be saved this run";
}

// ---------------------------------------------------------------------------
// Reading and writing one cell
// ---------------------------------------------------------------------------

namespace {

// Steps "SELECT column" over the single row and hands the value to use();
// false (logged) when the cell cannot be read.
template <typename Use>
bool selectCell(sqlite3* db, const char* column, Use use) {
    if (db == nullptr) return false;
    Statement statement(db, "SELECT " + identifier(column) + " FROM " + kTable + " LIMIT 1");
    const int rc = statement.ok() ? statement.step() : statement.prepareResult();
    if (rc == SQLITE_ROW) return use(statement.get());
    if (rc != SQLITE_DONE) ZV_LOG(ERROR) << " cannot read " << column << ": " << sqlite3_errmsg(db);
    return false;
}

template <typename Bind>
bool updateCell(sqlite3* db, const std::string& path, const char* column, Bind bind) {
    if (db == nullptr) {
        ZV_LOG(ERROR) << " no settings store; " << column << " not saved";
        return false;
    }
    Statement statement(db, std::string("UPDATE ") + kTable + " SET " + identifier(column) + " = ?1");
    const int rc = statement.ok() ? (bind(statement.get()), statement.step()) : statement.prepareResult();
    if (rc != SQLITE_DONE) {
        ZV_LOG(ERROR) << " cannot save " << column << " to " << path << ": " << sqlite3_errmsg(db);
        return false;
    }
    if (sqlite3_changes(db) != 1) {
        ZV_LOG(ERROR) << " settings row missing in " << path << "; " << column << " not saved";
        return false;
    }
    return true;
}

}  // namespace

std::string CClientConfig::readText(const char* column) {
    std::string value;
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool found = selectCell(m_db, column, [&](sqlite3_stmt* s) {
        const unsigned char* text = sqlite3_column_text(s, 0);
        if (text != nullptr) value.assign(reinterpret_cast<const char*>(text), sqlite3_column_bytes(s, 0));
        return text != nullptr;
    });
    return found ? value : defaultText(knownColumn(column));
}

// NULL, text that is no number and numbers beyond int read as the default.
int CClientConfig::readInt(const char* column) {
    int value = 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    const bool found = selectCell(m_db, column, [&](sqlite3_stmt* s) {
        if (sqlite3_column_type(s, 0) == SQLITE_INTEGER) {
            const sqlite3_int64 stored = sqlite3_column_int64(s, 0);
            value = static_cast<int>(stored);
            return stored >= INT_MIN && stored <= INT_MAX;
        }
        return sqlite3_column_type(s, 0) == SQLITE_TEXT &&
               parseInt(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)), &value);
    });
    return found ? value : defaultInt(knownColumn(column));
}

bool CClientConfig::write(const char* column, const std::string& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return updateCell(m_db, m_path, column, [&](sqlite3_stmt* s) {
        sqlite3_bind_text(s, 1, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
    });
}

bool CClientConfig::write(const char* column, int value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return updateCell(m_db, m_path, column, [&](sqlite3_stmt* s) { sqlite3_bind_int(s, 1, value); });
}

// ---------------------------------------------------------------------------
// Settings
// ---------------------------------------------------------------------------

std::string CClientConfig::getHostName() { return readText("HostName"); }
std::string CClientConfig::getServerIP() { return readText("ServerIP"); }
std::string CClientConfig::getServerPort() { return readText("ServerPort"); }
std::string CClientConfig::getShortcutIP() { return readText("ShortcutIP"); }
void CClientConfig::updateHostName(const std::string& value) { write("HostName", value); }
void CClientConfig::updateServerIP(const std::string& value) { write("ServerIP", value); }
void CClientConfig::updateServerPort(const std::string& value) { write("ServerPort", value); }
void CClientConfig::updateShortcutIP(const std::string& value) { write("ShortcutIP", value); }

ProtocolType CClientConfig::getProType() {
    return protocolOrDefault(readInt("ProType"), kHighestVideoProtocol, PROTOCOL_BRX);
}
ProtocolType CClientConfig::getReverseProType() {
    return protocolOrDefault(readInt("ReverseProType"), kHighestOtherProtocol, PROTOCOL_TCP);
}
ProtocolType CClientConfig::getMouseProType() {
    return protocolOrDefault(readInt("MouseProType"), kHighestOtherProtocol, PROTOCOL_TCP);
}
ProtocolType CClientConfig::getShareProType() {
    return protocolOrDefault(readInt("ShareProType"), kHighestOtherProtocol, PROTOCOL_TCP);
}
ProtocolType CClientConfig::getShareReverseProType() {
    return protocolOrDefault(readInt("ShareReverseProType"), kHighestOtherProtocol, PROTOCOL_TCP);
}
ProtocolType CClientConfig::getShareMouseProType() {
    return protocolOrDefault(readInt("ShareMouseProType"), kHighestOtherProtocol, PROTOCOL_TCP);
}

void CClientConfig::updataProType(int value) {
    warnIfBadProtocol("ProType", value, kHighestVideoProtocol);
    write("ProType", value);
}
void CClientConfig::updataReverseProType(int value) {
    warnIfBadProtocol("ReverseProType", value, kHighestOtherProtocol);
    write("ReverseProType", value);
}
void CClientConfig::updataMouseProType(int value) {
    warnIfBadProtocol("MouseProType", value, kHighestOtherProtocol);
    write("MouseProType", value);
}
void CClientConfig::updataShareProType(int value) {
    warnIfBadProtocol("ShareProType", value, kHighestOtherProtocol);
    write("ShareProType", value);
}
void CClientConfig::updataShareReverseProType(int value) {
    warnIfBadProtocol("ShareReverseProType", value, kHighestOtherProtocol);
    write("ShareReverseProType", value);
}

CodingMode CClientConfig::getCodingMode() {
    return readInt("CodingMode") == CODING_SOFTWARE_PREFERRED ? CODING_SOFTWARE_PREFERRED
                                                               : CODING_HARDWARE_PREFERRED;
}
void CClientConfig::updateCodingMode(int value) { write("CodingMode", value); }
int CClientConfig::getHWEEnable() { return readInt("HWEEnable"); }
void CClientConfig::updateHWEEnable(int value) { write("HWEEnable", value); }

int CClientConfig::getScreenIsMute() { return readInt("ScreenIsMute"); }
void CClientConfig::updateScreenIsMute(int value) { write("ScreenIsMute", value); }
int CClientConfig::getScreenReverse() { return readInt("ScreenReverse"); }
void CClientConfig::updateScreenReverse(int value) { write("ScreenReverse", value); }
int CClientConfig::getShareReverse() { return readInt("ShareReverse"); }
void CClientConfig::updateShareReverse(int value) { write("ShareReverse", value); }
int CClientConfig::getShareVoice() { return readInt("ShareVoice"); }
void CClientConfig::updateShareVoice(int value) { write("ShareVoice", value); }
int CClientConfig::getShowBitRate() { return readInt("ShowBitRate"); }
void CClientConfig::updateShowBitRate(int value) { write("ShowBitRate", value); }
int CClientConfig::getShowDelay() { return readInt("ShowDelay"); }
void CClientConfig::updateShowDelay(int value) { write("ShowDelay", value); }
int CClientConfig::getShowFrameRate() { return readInt("ShowFrameRate"); }
void CClientConfig::updateShowFrameRate(int value) { write("ShowFrameRate", value); }
int CClientConfig::getShowLossFraction() { return readInt("ShowLossFraction"); }
void CClientConfig::updateShowLossFraction(int value) { write("ShowLossFraction", value); }
int CClientConfig::getIsReminder() { return readInt("IsReminder"); }
void CClientConfig::updataReminder(int value) { write("IsReminder", value); }

int CClientConfig::getFirstRun() { return readInt("FirstRun"); }
std::string CClientConfig::getPauseScreenShortcut() { return letterOrDefault(readText("PauseScreenShortcut"), 'K'); }
std::string CClientConfig::getStartOrStopScreenShortcut() {
    return letterOrDefault(readText("StartOrStopScreenShortcut"), 'H');
}
int CClientConfig::getYUVConvertMode() { return readInt("YUVConvertMode"); }

// ---------------------------------------------------------------------------
// Extra columns
// ---------------------------------------------------------------------------

bool CClientConfig::addColumn(const std::string& name, const std::string& defaultValue) {
    if (!acceptedColumnName(name)) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_db == nullptr) return false;
    // The check and the change run in one write transaction, so two instances
    // adding the same column do not trip over each other.
    int rc = execute(m_db, "BEGIN IMMEDIATE");
    if (rc != SQLITE_OK) {
        ZV_LOG(ERROR) << " cannot add column " << name << ": " << sqlite3_errmsg(m_db);
        return false;
    }
    const bool exists = columnExists(m_db, name, &rc);
    if (rc == SQLITE_OK && !exists) {
        const std::string alter =
            std::string("ALTER TABLE ") + kTable + " ADD COLUMN " + columnDefinition(name, ColumnKind::Text, defaultValue);
        rc = execute(m_db, alter.c_str());
    }
    if (rc == SQLITE_OK) rc = execute(m_db, "COMMIT");
    if (rc != SQLITE_OK) {
        ZV_LOG(ERROR) << " cannot add column " << name << ": " << sqlite3_errmsg(m_db);
        execute(m_db, "ROLLBACK");
        return false;
    }
    if (!exists) ZV_LOG(INFO) << " added settings column " << name;
    return true;
}

bool CClientConfig::findColumn(const std::string& name) {
    if (!acceptedColumnName(name)) return false;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_db == nullptr) return false;
    int rc = SQLITE_OK;
    const bool exists = columnExists(m_db, name, &rc);
    if (rc != SQLITE_OK) ZV_LOG(ERROR) << " cannot list columns: " << sqlite3_errmsg(m_db);
    return exists;
}

std::string CClientConfig::getColumnValue(const std::string& name) {
    if (!findColumn(name)) return std::string();
    return readText(name.c_str());
}

bool CClientConfig::setColumnValue(const std::string& name, const std::string& value) {
    if (!findColumn(name)) {
        ZV_LOG(ERROR) << " no settings column \"" << name << "\"; value not saved";
        return false;
    }
    return write(name.c_str(), value);
}
