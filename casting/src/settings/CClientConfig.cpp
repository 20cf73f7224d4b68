#include "casting/CClientConfig.h"

#include <sqlite3.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "casting/Log.h"
#include "casting/McUtil.h"
#include "settings/SettingsMigration.h"
#include "settings/SettingsSchema.h"

using namespace zv::settings;

namespace {

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

void CClientConfig::open() {
    std::lock_guard<std::mutex> lock(m_mutex);
    const OpenedStore store = openStore(m_path);
    m_db = store.db;
    m_persistent = store.persistent;
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
    return protocolOrDefault(readInt("ProType"), kHighestVideoProtocol, PROTOCOL_UDP);
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
