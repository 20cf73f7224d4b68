#include "settings/SettingsSchema.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "casting/Log.h"

namespace zv::settings {

const char* const kTable = "settings";

namespace {

// Every setting this release knows. Order is the order of the columns in a
// fresh file; an older file gains the missing ones at the end.
const Column kColumns[] = {
    {"HostName", ColumnKind::Text, nullptr},
    {"ServerIP", ColumnKind::Text, ""},
    {"ServerPort", ColumnKind::Text, ""},
    {"ShortcutIP", ColumnKind::Text, ""},
    // 0: RTP over UDP. A file made while SRT (2) was the default keeps its 2,
    // which it cannot tell from a chosen one.
    {"ProType", ColumnKind::Integer, "0"},
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

}  // namespace

ColumnList knownColumns() { return {kColumns, sizeof kColumns / sizeof kColumns[0]}; }

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
    for (const Column& column : knownColumns()) {
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

bool acceptedColumnName(const std::string& name) {
    bool plain = !name.empty() && name.size() <= 64;
    for (const char c : name) {
        plain = plain && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_');
    }
    if (!plain) ZV_LOG(ERROR) << " refused column name \"" << name << "\": only letters, digits and '_' are allowed";
    return plain;
}

std::string identifier(const std::string& name) { return "\"" + name + "\""; }

std::string sqlLiteral(const std::string& text) {
    char* quoted = sqlite3_mprintf("%Q", text.c_str());
    if (quoted == nullptr) return "''";
    std::string result(quoted);
    sqlite3_free(quoted);
    return result;
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

}  // namespace zv::settings
