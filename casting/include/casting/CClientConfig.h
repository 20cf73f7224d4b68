// The per-user settings store: one SQLite database under the XDG config folder
// ($XDG_CONFIG_HOME/zelvanor/settings.db, else ~/.config/zelvanor/settings.db).
// Every setting is a column of the single row of table "settings"; known
// columns are added on open, so an older file gains new settings with their
// defaults. Safe to call from any thread; every setter writes through at once.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "SessionRecords.h"
#include "Singleton.h"

struct sqlite3;

class CClientConfig {
public:
    // The store at the default per-user path (what Singleton<CClientConfig> uses).
    CClientConfig();
    // The store at an explicit path (tests, tools).
    explicit CClientConfig(const std::string& databasePath);
    ~CClientConfig();
    CClientConfig(const CClientConfig&) = delete;
    CClientConfig& operator=(const CClientConfig&) = delete;

    static std::string defaultDatabasePath();
    const std::string& databasePath() const { return m_path; }
    // False when the file could not be written: settings then live in memory
    // for this run only (logged once at open).
    bool isPersistent() const { return m_persistent; }

    // Basic settings (saved by the settings dialog's OK).
    std::string getHostName();
    std::string getServerIP();
    std::string getServerPort();  // decimal text
    std::string getShortcutIP();
    void updateHostName(const std::string& value);
    void updateServerIP(const std::string& value);
    void updateServerPort(const std::string& value);
    void updateShortcutIP(const std::string& value);

    // Transport of each stream.
    ProtocolType getProType();
    ProtocolType getReverseProType();
    ProtocolType getMouseProType();
    ProtocolType getShareProType();
    ProtocolType getShareReverseProType();
    ProtocolType getShareMouseProType();
    void updataProType(int value);
    void updataReverseProType(int value);
    void updataMouseProType(int value);
    void updataShareProType(int value);
    void updataShareReverseProType(int value);

    CodingMode getCodingMode();
    void updateCodingMode(int value);
    int getHWEEnable();
    void updateHWEEnable(int value);

    int getScreenIsMute();
    void updateScreenIsMute(int value);
    int getScreenReverse();
    void updateScreenReverse(int value);
    int getShareReverse();
    void updateShareReverse(int value);
    int getShareVoice();
    void updateShareVoice(int value);
    int getShowBitRate();
    void updateShowBitRate(int value);
    int getShowDelay();
    void updateShowDelay(int value);
    int getShowFrameRate();
    void updateShowFrameRate(int value);
    int getShowLossFraction();
    void updateShowLossFraction(int value);
    int getIsReminder();
    void updataReminder(int value);

    int getFirstRun();
    std::string getPauseScreenShortcut();        // one letter, default "K"
    std::string getStartOrStopScreenShortcut();  // one letter, default "H"
    int getYUVConvertMode();

    // Extending the store: addColumn adds a text column (with a default for the
    // existing row) unless it exists; findColumn tells whether it exists.
    // Names are letters, digits and '_' only; others are refused (false).
    bool addColumn(const std::string& name, const std::string& defaultValue = std::string());
    bool findColumn(const std::string& name);
    std::string getColumnValue(const std::string& name);
    bool setColumnValue(const std::string& name, const std::string& value);

private:
    void open();
    std::string readText(const char* column);
    int readInt(const char* column);
    bool write(const char* column, const std::string& value);
    bool write(const char* column, int value);

    std::string m_path;
    std::mutex m_mutex;
    sqlite3* m_db = nullptr;
    bool m_persistent = false;
};
