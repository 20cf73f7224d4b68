// What the settings file holds: table "settings", one row, one column per
// setting with its default, and the few SQLite helpers that the store and
// the file's migration share. Internal to the casting library.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <string>

namespace zv::settings {

// Raised when a release adds or changes columns; stored in PRAGMA user_version.
constexpr int kSchemaVersion = 1;
extern const char* const kTable;

enum class ColumnKind { Text, Integer };

struct Column {
    const char* name;
    ColumnKind kind;
    const char* defaultValue;  // nullptr: the machine's host name
};

// Every setting this release knows, in the order of a fresh file's columns.
struct ColumnList {
    const Column* first;
    size_t count;
    const Column* begin() const { return first; }
    const Column* end() const { return first + count; }
};
ColumnList knownColumns();

// Column names compare without regard to case, as SQLite does.
bool sameName(const std::string& a, const char* b);
// Null for a column this release does not know.
const Column* knownColumn(const std::string& name);
// A column's default: empty text / 0 for unknown columns.
std::string defaultText(const Column* column);
int defaultInt(const Column* column);

// Column names become SQL identifiers, so only letters, digits and '_' are
// accepted; anything else is refused and logged.
bool acceptedColumnName(const std::string& name);
// Only for names that passed acceptedColumnName or come from knownColumns().
std::string identifier(const std::string& name);
std::string sqlLiteral(const std::string& text);
std::string columnDefinition(const std::string& name, ColumnKind kind, const std::string& defaultValue);

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

int execute(sqlite3* db, const char* sql);
// Runs a statement that yields one row of one value (PRAGMA integrity_check,
// journal_mode, user_version, count(*)); SQLITE_OK when read.
int singleText(sqlite3* db, const char* sql, std::string* value);
int singleInt(sqlite3* db, const char* sql, sqlite3_int64* value);
// Whether table "settings" has the column; *rc tells whether it could be read.
bool columnExists(sqlite3* db, const std::string& name, int* rc);

}  // namespace zv::settings
