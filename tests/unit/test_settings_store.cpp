// The per-user settings store and the cast switches: persistence across
// instances and processes, recovery from damaged, old and unwritable files,
// and the PC sound mute.
#include <fcntl.h>
#include <glog/logging.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"

namespace fs = std::filesystem;
extern char** environ;

namespace {

class TempDir {
public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "zv-settings-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        for (auto it = fs::recursive_directory_iterator(m_path, ec); !ec && it != fs::recursive_directory_iterator();
             it.increment(ec)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        }
        fs::remove_all(m_path, ec);
    }
    const fs::path& path() const { return m_path; }
    std::string file(const std::string& name) const { return (m_path / name).string(); }

private:
    fs::path m_path;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::vector<std::string> brokenCopies(const fs::path& dir) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("settings.db.broken-", 0) == 0 && name.find("-wal") == std::string::npos) {
            found.push_back(entry.path().string());
        }
    }
    return found;
}

// Direct access to a file, past the store.
class RawDb {
public:
    explicit RawDb(const std::string& path) { sqlite3_open(path.c_str(), &m_db); }
    ~RawDb() { sqlite3_close(m_db); }
    void exec(const std::string& sql) { ASSERT_EQ(sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK); }
    long long integer(const std::string& sql) {
        sqlite3_stmt* stmt = nullptr;
        long long value = -1;
        if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK && sqlite3_step(stmt) == SQLITE_ROW) {
            value = sqlite3_column_int64(stmt, 0);
        }
        sqlite3_finalize(stmt);
        return value;
    }

private:
    sqlite3* m_db = nullptr;
};

class ScopedEnv {
public:
    ScopedEnv(const char* name, const std::string* value) : m_name(name) {
        const char* old = std::getenv(name);
        if (old != nullptr) m_old = std::make_unique<std::string>(old);
        value != nullptr ? setenv(name, value->c_str(), 1) : unsetenv(name);
    }
    ~ScopedEnv() { m_old ? setenv(m_name.c_str(), m_old->c_str(), 1) : unsetenv(m_name.c_str()); }

private:
    std::string m_name;
    std::unique_ptr<std::string> m_old;
};

// Collects the ERROR lines logged while it exists.
class ErrorLines : public google::LogSink {
public:
    ErrorLines() { google::AddLogSink(this); }
    ~ErrorLines() override { google::RemoveLogSink(this); }
    using google::LogSink::send;
    void send(google::LogSeverity severity, const char*, const char*, int, const google::LogMessageTime&,
              const char* message, size_t length) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (severity == google::GLOG_ERROR) m_lines.emplace_back(message, length);
    }
    bool anyContains(const std::string& a, const std::string& b) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const std::string& line : m_lines) {
            if (line.find(a) != std::string::npos && line.find(b) != std::string::npos) return true;
        }
        return false;
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

// A forked process that runs check() once the parent calls start(), and
// reports what went wrong ("" = nothing). Fork before the parent opens the
// file under test: an open SQLite connection must not cross a fork.
class Child {
public:
    explicit Child(const std::function<std::string()>& check) {
        if (pipe(m_gate) != 0 || pipe(m_report) != 0) return;
        m_pid = fork();
        if (m_pid == 0) {
            close(m_gate[1]);
            close(m_report[0]);
            char go;
            const std::string report = read(m_gate[0], &go, 1) == 1 ? check() : "not started";
            _exit(write(m_report[1], report.data(), report.size()) < 0 ? 2 : 0);
        }
        close(m_gate[0]);
        close(m_report[1]);
    }
    void start() { ASSERT_EQ(write(m_gate[1], "g", 1), 1); }
    std::string finish() {
        close(m_gate[1]);
        std::string report;
        char buffer[512];
        ssize_t n;
        while ((n = read(m_report[0], buffer, sizeof buffer)) > 0) report.append(buffer, static_cast<size_t>(n));
        close(m_report[0]);
        int status = 0;
        if (m_pid <= 0 || waitpid(m_pid, &status, 0) != m_pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            report += " (child failed)";
        }
        return report;
    }

private:
    int m_gate[2] = {-1, -1};
    int m_report[2] = {-1, -1};
    pid_t m_pid = -1;
};

// Runs a program to its end; returns its exit code (-1: did not run or exit).
int runProgram(std::vector<std::string> args, std::string* output = nullptr, std::vector<std::string> env = {}) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return -1;
    for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
    std::vector<char*> argv, envp;
    for (auto& arg : args) argv.push_back(arg.data());
    for (auto& e : env) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    pid_t pid = -1;
    const int rc = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    std::string text;
    char buffer[1024];
    ssize_t n;
    while ((n = read(fds[0], buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    if (rc != 0 || waitpid(pid, &status, 0) != pid) return -1;
    if (output != nullptr) *output = text;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string hostName() {
    char buffer[256] = {};
    gethostname(buffer, sizeof buffer - 1);
    return buffer;
}

// Every setting with its default and a value that differs from it.
struct IntSetting {
    const char* name;
    int (CClientConfig::*get)();
    void (CClientConfig::*set)(int);
    int fallback, other;
};
const IntSetting kIntSettings[] = {
    {"HWEEnable", &CClientConfig::getHWEEnable, &CClientConfig::updateHWEEnable, 1, 0},
    {"ScreenIsMute", &CClientConfig::getScreenIsMute, &CClientConfig::updateScreenIsMute, 1, 0},
    {"ScreenReverse", &CClientConfig::getScreenReverse, &CClientConfig::updateScreenReverse, 0, 1},
    {"ShareReverse", &CClientConfig::getShareReverse, &CClientConfig::updateShareReverse, 0, 1},
    {"ShareVoice", &CClientConfig::getShareVoice, &CClientConfig::updateShareVoice, 1, 0},
    {"ShowBitRate", &CClientConfig::getShowBitRate, &CClientConfig::updateShowBitRate, 0, 1},
    {"ShowDelay", &CClientConfig::getShowDelay, &CClientConfig::updateShowDelay, 0, 1},
    {"ShowFrameRate", &CClientConfig::getShowFrameRate, &CClientConfig::updateShowFrameRate, 0, 1},
    {"ShowLossFraction", &CClientConfig::getShowLossFraction, &CClientConfig::updateShowLossFraction, 0, 1},
    {"IsReminder", &CClientConfig::getIsReminder, &CClientConfig::updataReminder, 1, 0},
};
struct ProtocolSetting {
    const char* name;
    ProtocolType (CClientConfig::*get)();
    void (CClientConfig::*set)(int);
    ProtocolType fallback;
    ProtocolType other;
};
const ProtocolSetting kProtocolSettings[] = {
    {"ProType", &CClientConfig::getProType, &CClientConfig::updataProType, PROTOCOL_UDP, PROTOCOL_BRX},
    {"ReverseProType", &CClientConfig::getReverseProType, &CClientConfig::updataReverseProType, PROTOCOL_TCP,
     PROTOCOL_UDP},
    {"MouseProType", &CClientConfig::getMouseProType, &CClientConfig::updataMouseProType, PROTOCOL_TCP, PROTOCOL_UDP},
    {"ShareProType", &CClientConfig::getShareProType, &CClientConfig::updataShareProType, PROTOCOL_TCP, PROTOCOL_UDP},
    {"ShareReverseProType", &CClientConfig::getShareReverseProType, &CClientConfig::updataShareReverseProType,
     PROTOCOL_TCP, PROTOCOL_UDP},
};
struct TextSetting {
    const char* name;
    std::string (CClientConfig::*get)();
    void (CClientConfig::*set)(const std::string&);
    const char* other;
};
const TextSetting kTextSettings[] = {
    {"HostName", &CClientConfig::getHostName, &CClientConfig::updateHostName, "office-pc_2"},
    {"ServerIP", &CClientConfig::getServerIP, &CClientConfig::updateServerIP, "192.168.10.20"},
    {"ServerPort", &CClientConfig::getServerPort, &CClientConfig::updateServerPort, "8443"},
    {"ShortcutIP", &CClientConfig::getShortcutIP, &CClientConfig::updateShortcutIP, "10.0.0.7"},
};

void expectDefaults(CClientConfig& config) {
    for (const auto& s : kIntSettings) EXPECT_EQ((config.*s.get)(), s.fallback) << s.name;
    for (const auto& s : kProtocolSettings) EXPECT_EQ((config.*s.get)(), s.fallback) << s.name;
    EXPECT_EQ(config.getHostName(), hostName());
    for (const auto& s : kTextSettings) {
        if (std::string(s.name) != "HostName") {
            EXPECT_EQ((config.*s.get)(), "") << s.name;
        }
    }
    EXPECT_EQ(config.getShareMouseProType(), PROTOCOL_TCP);
    EXPECT_EQ(config.getCodingMode(), CODING_HARDWARE_PREFERRED);
    EXPECT_EQ(config.getFirstRun(), 1);
    EXPECT_EQ(config.getPauseScreenShortcut(), "K");
    EXPECT_EQ(config.getStartOrStopScreenShortcut(), "H");
    EXPECT_EQ(config.getYUVConvertMode(), 0);
}

}  // namespace

TEST(SettingsStore, FreshFileHasDefaultsAndEverySettingSurvivesReopen) {
    TempDir dir;
    const std::string path = dir.file("nested/zelvanor/settings.db");
    {
        CClientConfig config(path);
        EXPECT_TRUE(config.isPersistent());
        expectDefaults(config);
        for (const auto& s : kIntSettings) (config.*s.set)(s.other);
        for (const auto& s : kProtocolSettings) (config.*s.set)(s.other);
        for (const auto& s : kTextSettings) (config.*s.set)(s.other);
        config.updateCodingMode(CODING_SOFTWARE_PREFERRED);
        // Settings without a setter are reached through the column access.
        EXPECT_TRUE(config.setColumnValue("FirstRun", "0"));
        EXPECT_TRUE(config.setColumnValue("PauseScreenShortcut", "q"));
        EXPECT_TRUE(config.setColumnValue("StartOrStopScreenShortcut", "Z"));
        EXPECT_TRUE(config.setColumnValue("ShareMouseProType", "0"));
        EXPECT_TRUE(config.setColumnValue("YUVConvertMode", "2"));
    }
    EXPECT_EQ(fs::status(dir.path() / "nested/zelvanor").permissions() & fs::perms::all, fs::perms::owner_all);
    {
        CClientConfig config(path);
        for (const auto& s : kIntSettings) EXPECT_EQ((config.*s.get)(), s.other) << s.name;
        for (const auto& s : kProtocolSettings) EXPECT_EQ((config.*s.get)(), s.other) << s.name;
        for (const auto& s : kTextSettings) EXPECT_EQ((config.*s.get)(), s.other) << s.name;
        EXPECT_EQ(config.getCodingMode(), CODING_SOFTWARE_PREFERRED);
        EXPECT_EQ(config.getFirstRun(), 0);
        EXPECT_EQ(config.getPauseScreenShortcut(), "Q");
        EXPECT_EQ(config.getStartOrStopScreenShortcut(), "Z");
        EXPECT_EQ(config.getShareMouseProType(), PROTOCOL_UDP);
        EXPECT_EQ(config.getYUVConvertMode(), 2);

        // No known transport: the stream's default. BRX exists for the cast video only.
        config.updataProType(3);
        config.updataReverseProType(-1);
        config.updataMouseProType(PROTOCOL_BRX);
        EXPECT_EQ(config.getProType(), PROTOCOL_UDP);
        EXPECT_EQ(config.getReverseProType(), PROTOCOL_TCP);
        EXPECT_EQ(config.getMouseProType(), PROTOCOL_TCP);
        config.updateCodingMode(7);
        EXPECT_EQ(config.getCodingMode(), CODING_HARDWARE_PREFERRED);
        // A shortcut is one letter; a number column holding text reads as its default.
        EXPECT_TRUE(config.setColumnValue("PauseScreenShortcut", ""));
        EXPECT_TRUE(config.setColumnValue("StartOrStopScreenShortcut", "7x"));
        EXPECT_TRUE(config.setColumnValue("ShareVoice", "loud"));
        EXPECT_EQ(config.getPauseScreenShortcut(), "K");
        EXPECT_EQ(config.getStartOrStopScreenShortcut(), "H");
        EXPECT_EQ(config.getShareVoice(), 1);
    }
    RawDb raw(path);
    EXPECT_EQ(raw.integer("SELECT count(*) FROM settings"), 1);
    EXPECT_GE(raw.integer("PRAGMA user_version"), 1);
    EXPECT_EQ(raw.integer("SELECT ProType FROM settings"), 3);  // stored as given
}

TEST(SettingsStore, DefaultPathFollowsXdgConfigHome) {
    TempDir dir;
    const std::string home = "/home/someone", relative = "relative/config", xdgValue = dir.path().string();
    ScopedEnv homeEnv("HOME", &home);
    {
        ScopedEnv xdg("XDG_CONFIG_HOME", nullptr);
        EXPECT_EQ(CClientConfig::defaultDatabasePath(), "/home/someone/.config/zelvanor/settings.db");
    }
    {
        ScopedEnv xdg("XDG_CONFIG_HOME", &relative);  // not absolute: ignored
        EXPECT_EQ(CClientConfig::defaultDatabasePath(), "/home/someone/.config/zelvanor/settings.db");
    }
    ScopedEnv xdg("XDG_CONFIG_HOME", &xdgValue);
    const std::string expected = dir.file("zelvanor/settings.db");
    CClientConfig(expected).updateServerPort("1234");
    CClientConfig config;
    EXPECT_EQ(config.databasePath(), expected);
    EXPECT_EQ(config.getServerPort(), "1234");
}

TEST(SettingsStore, ConcurrentWritersInThreadsAndProcessesLoseNothing) {
    TempDir dir;
    const std::string path = dir.file("settings.db");
    constexpr int kWrites = 150;
    Child other([&]() -> std::string {
        CClientConfig config(path);
        if (!config.isPersistent()) return "not persistent";
        for (int i = 0; i < kWrites; ++i) {
            config.updateShortcutIP("child-" + std::to_string(i));
            config.updateShowLossFraction(i);
            if (config.getShortcutIP() != "child-" + std::to_string(i) || config.getShowLossFraction() != i) {
                return "write " + std::to_string(i) + " not read back";
            }
        }
        return "";
    });

    {
        CClientConfig first(path);
        CClientConfig second(path);
        ASSERT_TRUE(first.isPersistent() && second.isPersistent());
        ASSERT_TRUE(first.addColumn("Extra", "none"));
        // Each writer checks that it reads back what it wrote, with the others busy.
        std::atomic<int> lost{0};
        const std::vector<std::function<bool(int)>> writers = {
            [&](int i) {
                first.updateServerIP("10.0.0." + std::to_string(i));
                return first.getServerIP() == "10.0.0." + std::to_string(i);
            },
            [&](int i) {
                first.updateShowDelay(i);
                return first.getShowDelay() == i;
            },
            [&](int i) {
                second.updateServerPort(std::to_string(1000 + i));
                return second.getServerPort() == std::to_string(1000 + i);
            },
            [&](int i) {  // a column the other instance added after this one opened
                return second.setColumnValue("Extra", "v" + std::to_string(i)) &&
                       second.getColumnValue("Extra") == "v" + std::to_string(i);
            },
        };
        std::vector<std::thread> threads;
        for (const auto& writer : writers) {
            threads.emplace_back([&lost, &writer] {
                for (int i = 0; i < kWrites; ++i) lost += writer(i) ? 0 : 1;
            });
        }
        other.start();
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(lost.load(), 0);
        EXPECT_EQ(other.finish(), "");
    }

    const std::string last = std::to_string(kWrites - 1);
    CClientConfig after(path);
    EXPECT_EQ(after.getServerIP(), "10.0.0." + last);
    EXPECT_EQ(after.getShowDelay(), kWrites - 1);
    EXPECT_EQ(after.getServerPort(), std::to_string(1000 + kWrites - 1));
    EXPECT_EQ(after.getColumnValue("Extra"), "v" + last);
    EXPECT_EQ(after.getShortcutIP(), "child-" + last);
    EXPECT_EQ(after.getShowLossFraction(), kWrites - 1);
    EXPECT_EQ(after.getProType(), PROTOCOL_UDP);  // nobody wrote it
}

TEST(SettingsStore, DamagedFileIsKeptAsideAndReplacedByDefaults) {
    const std::vector<std::pair<const char*, std::function<void(const std::string&)>>> damages = {
        {"not a database",
         [](const std::string& path) {
             std::string garbage;
             for (int i = 0; i < 600; ++i) garbage += "this is no database; ";
             writeFile(path, garbage);
         }},
        {"damaged table page",
         [](const std::string& path) {
             CClientConfig(path).updateServerIP("172.16.0.1");
             std::string bytes = readFile(path);
             const size_t page = (static_cast<unsigned char>(bytes[16]) << 8) | static_cast<unsigned char>(bytes[17]);
             ASSERT_GE(bytes.size(), 2 * page);
             bytes.replace(page, page, page, '\xA5');  // page 2: the settings table
             writeFile(path, bytes);
         }},
        {"settings is a view", [](const std::string& path) { RawDb(path).exec("CREATE VIEW settings AS SELECT 1 AS x"); }},
    };
    for (const auto& [name, damage] : damages) {
        SCOPED_TRACE(name);
        TempDir dir;
        const std::string path = dir.file("settings.db");
        damage(path);
        const std::string original = readFile(path);
        ErrorLines errors;
        {
            CClientConfig config(path);
            EXPECT_TRUE(config.isPersistent());
            expectDefaults(config);
            config.updateServerIP("192.168.7.7");
        }
        const auto copies = brokenCopies(dir.path());
        ASSERT_EQ(copies.size(), 1u);
        EXPECT_EQ(readFile(copies[0]), original);
        EXPECT_TRUE(errors.anyContains(path + " ", copies[0]));
        EXPECT_EQ(CClientConfig(path).getServerIP(), "192.168.7.7");
        EXPECT_EQ(brokenCopies(dir.path()).size(), 1u);
    }
}

TEST(SettingsStore, OlderFileGainsNewColumnsAndKeepsItsValues) {
    TempDir dir;
    const std::string path = dir.file("settings.db");
    {
        RawDb raw(path);
        raw.exec("CREATE TABLE settings (HostName TEXT, ServerIP TEXT, ProType INTEGER, ShowDelay INTEGER)");
        raw.exec("INSERT INTO settings VALUES ('old-host', '10.1.2.3', 1, NULL)");
        raw.exec("INSERT INTO settings VALUES ('second-row', '10.9.9.9', 1, 1)");
    }
    {
        CClientConfig config(path);
        EXPECT_TRUE(config.isPersistent());
        EXPECT_EQ(config.getHostName(), "old-host");
        EXPECT_EQ(config.getServerIP(), "10.1.2.3");
        EXPECT_EQ(config.getProType(), PROTOCOL_TCP);
        EXPECT_EQ(config.getShowDelay(), 0);  // NULL: the default
        for (const auto& s : kIntSettings) {
            if (std::string(s.name) != "ShowDelay") {
                EXPECT_EQ((config.*s.get)(), s.fallback) << s.name;
            }
        }
        EXPECT_EQ(config.getFirstRun(), 1);
        EXPECT_EQ(config.getPauseScreenShortcut(), "K");
        EXPECT_TRUE(config.findColumn("StartOrStopScreenShortcut"));
        config.updateShowBitRate(1);
    }
    EXPECT_TRUE(brokenCopies(dir.path()).empty());
    RawDb raw(path);
    EXPECT_EQ(raw.integer("SELECT count(*) FROM settings"), 1);
    EXPECT_GE(raw.integer("PRAGMA user_version"), 1);
    EXPECT_EQ(raw.integer("SELECT ShowBitRate FROM settings"), 1);
    EXPECT_EQ(raw.integer("SELECT YUVConvertMode FROM settings"), 0);
}

// The cast goes over RTP/UDP unless chosen otherwise. A file made while SRT
// was the default holds a 2 that looks exactly like a chosen SRT, so it stays.
TEST(SettingsStore, CastTransportDefaultsToUdpAndAnEarlierFilesValueStays) {
    TempDir dir;
    {
        CClientConfig fresh(dir.file("fresh.db"));
        EXPECT_EQ(fresh.getProType(), PROTOCOL_UDP);
    }
    EXPECT_EQ(RawDb(dir.file("fresh.db")).integer("SELECT ProType FROM settings"), PROTOCOL_UDP);

    const std::string earlier = dir.file("earlier.db");
    {
        RawDb raw(earlier);
        raw.exec("CREATE TABLE settings (id INTEGER PRIMARY KEY, ProType INTEGER NOT NULL DEFAULT 2)");
        raw.exec("INSERT INTO settings DEFAULT VALUES");
        raw.exec("PRAGMA user_version = 1");
    }
    {
        CClientConfig config(earlier);
        EXPECT_TRUE(config.isPersistent());
        EXPECT_EQ(config.getProType(), PROTOCOL_BRX);
        config.updataProType(PROTOCOL_UDP);
    }
    EXPECT_EQ(CClientConfig(earlier).getProType(), PROTOCOL_UDP);
}

TEST(SettingsStore, ExtraColumnsAcceptOnlyPlainNames) {
    TempDir dir;
    const std::string path = dir.file("settings.db");
    {
        CClientConfig config(path);
        config.updateServerIP("10.2.2.2");
        EXPECT_FALSE(config.findColumn("Camera_Share2"));
        EXPECT_TRUE(config.addColumn("Camera_Share2", "it's \"on\""));
        EXPECT_TRUE(config.findColumn("Camera_Share2"));
        EXPECT_EQ(config.getColumnValue("Camera_Share2"), "it's \"on\"");
        EXPECT_TRUE(config.setColumnValue("Camera_Share2", "off"));
        EXPECT_TRUE(config.addColumn("Camera_Share2", "again"));  // exists: unchanged
        EXPECT_EQ(config.getColumnValue("Camera_Share2"), "off");
        for (const std::string bad : {"x; DROP TABLE settings", "", "two words", "quote\"d", "don't", "n\xC3\xA4me"}) {
            SCOPED_TRACE(bad);
            EXPECT_FALSE(config.addColumn(bad, "v"));
            EXPECT_FALSE(config.findColumn(bad));
            EXPECT_FALSE(config.setColumnValue(bad, "v"));
            EXPECT_EQ(config.getColumnValue(bad), "");
        }
        EXPECT_FALSE(config.setColumnValue("NoSuchColumn", "v"));
    }
    CClientConfig reopened(path);
    EXPECT_EQ(reopened.getColumnValue("Camera_Share2"), "off");
    EXPECT_EQ(reopened.getServerIP(), "10.2.2.2");
}

TEST(SettingsStore, UnwritableLocationKeepsValuesInMemoryForThisRun) {
    TempDir dir;
    // Places that cannot hold a file even for root: below a regular file, and in /proc.
    const std::string blocker = dir.file("blocker");
    writeFile(blocker, "a file");
    for (const std::string& path : {blocker + "/settings.db", std::string("/proc/zelvanor-none/settings.db")}) {
        SCOPED_TRACE(path);
        ErrorLines errors;
        CClientConfig config(path);
        EXPECT_FALSE(config.isPersistent());
        expectDefaults(config);
        config.updateServerIP("10.3.3.3");
        EXPECT_EQ(config.getServerIP(), "10.3.3.3");  // for this run
        EXPECT_TRUE(errors.anyContains(path, "will not be saved"));
    }
    EXPECT_EQ(readFile(blocker), "a file");

    // Read-only folders holding the user's file: a read-only file, and a
    // writable file that cannot get its journal. Root ignores permission
    // bits, so a child process opens them as an ordinary user.
    fs::permissions(dir.path(), fs::perms::owner_all | fs::perms::others_exec | fs::perms::group_exec);
    std::vector<std::string> paths;
    for (const char* name : {"readonly-file", "writable-file"}) {
        fs::create_directory(dir.path() / name);
        paths.push_back(dir.file(std::string(name) + "/settings.db"));
        CClientConfig config(paths.back());
        config.updateServerIP("10.4.4.4");
        config.updataProType(PROTOCOL_TCP);
    }
    const auto rx = fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read | fs::perms::group_exec |
                    fs::perms::others_read | fs::perms::others_exec;
    fs::permissions(paths[0], fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
    fs::permissions(paths[1], fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_read);
    const std::string before[] = {readFile(paths[0]), readFile(paths[1])};
    for (const std::string& path : paths) fs::permissions(fs::path(path).parent_path(), rx);
    const uid_t nobody = 65534;
    if (geteuid() == 0 && chown(paths[1].c_str(), nobody, nobody) != 0) FAIL() << "chown";

    Child child([&]() -> std::string {
        if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)) {
            return "SKIP";
        }
        std::string problems;
        for (const std::string& path : paths) {
            CClientConfig config(path);
            if (config.isPersistent()) problems += path + " persistent; ";
            if (config.getServerIP() != "10.4.4.4" || config.getProType() != PROTOCOL_TCP) {
                problems += path + " lost its values; ";
            }
            config.updateServerIP("10.5.5.5");
            if (config.getServerIP() != "10.5.5.5") problems += path + " no update in memory; ";
        }
        return problems;
    });
    child.start();
    const std::string report = child.finish();
    if (report == "SKIP") GTEST_SKIP() << "cannot switch to an ordinary user";
    EXPECT_EQ(report, "");
    for (size_t i = 0; i < paths.size(); ++i) {
        EXPECT_EQ(readFile(paths[i]), before[i]);
        EXPECT_TRUE(brokenCopies(fs::path(paths[i]).parent_path()).empty());
    }
}

TEST(BusinessSettingsTest, RestoreDefaultUndoesEverySwitch) {
    TempDir dir;
    const std::string noServer = "unix:" + dir.file("no-server");
    ScopedEnv pulse("PULSE_SERVER", &noServer);  // the PC running the tests keeps its sound
    BusinessSettings& settings = BusinessSettings::getInstance();
    settings.setSystemMute(true);
    settings.setScreenMode(2);
    settings.setScreenWindowInfo(tagWindowScreenInfo_{0x3a00007, 1, 0});
    settings.setRealCapResolution(3840, 1080);
    const std::vector<std::pair<void (BusinessSettings::*)(bool), bool (BusinessSettings::*)() const>> dumps = {
        {&BusinessSettings::setIsRecordTimeLog, &BusinessSettings::isRecordTimeLog},
        {&BusinessSettings::setIsWriteH264Flow, &BusinessSettings::isWriteH264Flow},
        {&BusinessSettings::setIsWriteRGBFlow, &BusinessSettings::isWriteRGBFlow},
        {&BusinessSettings::setIsWriteRGBFlowAfterYUV, &BusinessSettings::isWriteRGBFlowAfterYUV},
        {&BusinessSettings::setIsWriteRTPFlow, &BusinessSettings::isWriteRTPFlow},
        {&BusinessSettings::setIsWriteYUVFlow, &BusinessSettings::isWriteYUVFlow},
        {&BusinessSettings::setPrintMouseInfo, &BusinessSettings::isPrintMouseInfo},
    };
    for (const auto& [set, get] : dumps) (settings.*set)(true);
    EXPECT_TRUE(settings.isSystemMuted());
    EXPECT_EQ(settings.getScreenWindowInfo().nWindowId, 0x3a00007);

    settings.restoreDefault();
    EXPECT_FALSE(settings.isSystemMuted());
    EXPECT_EQ(settings.getScreenMode(), 0);
    EXPECT_EQ(settings.getScreenWindowInfo().nWindowId, 0);
    EXPECT_EQ(settings.getScreenWindowInfo().nFollow, 0);
    int width = -1, height = -1;
    settings.getRealCapResolution(width, height);
    EXPECT_EQ(width, 0);
    EXPECT_EQ(height, 0);
    for (const auto& [set, get] : dumps) EXPECT_FALSE((settings.*get)());

    bool renderNode = false;
    std::error_code ec;
    for (auto it = fs::directory_iterator("/dev/dri", ec); !ec && it != fs::directory_iterator(); it.increment(ec)) {
        renderNode = renderNode || it->path().filename().string().rfind("renderD", 0) == 0;
    }
    if (!renderNode) {
        EXPECT_FALSE(settings.getHardwareCodingAvailable());
    }
}

TEST(BusinessSettingsTest, SystemMuteDrivesTheDefaultSinkAndRestoresItsState) {
    TempDir dir;
    BusinessSettings& settings = BusinessSettings::getInstance();
    const std::string noServer = "unix:" + dir.file("no-server");
    {
        ScopedEnv pulse("PULSE_SERVER", &noServer);
        settings.restoreDefault();
    }
    if (runProgram({"pulseaudio", "--version"}) != 0 || runProgram({"pactl", "--version"}) != 0) {
        GTEST_SKIP() << "pulseaudio or pactl not installed";
    }
    // A private sound server with one null sink; --daemonize returns once it is ready.
    fs::create_directory(dir.path() / "run");
    const std::string server = "unix:" + dir.file("pulse.sock");
    if (runProgram({"pulseaudio", "-n", "--daemonize=yes", "--exit-idle-time=-1", "--use-pid-file=yes", "-L",
                    "module-native-protocol-unix auth-anonymous=1 socket=" + dir.file("pulse.sock"), "-L",
                    "module-null-sink sink_name=vsink", "-L", "module-always-sink"},
                   nullptr, {"HOME=" + dir.path().string(), "XDG_RUNTIME_DIR=" + dir.file("run")}) != 0) {
        GTEST_SKIP() << "pulseaudio did not start";
    }
    const pid_t daemon = std::atoi(readFile(dir.file("run/pulse/pid")).c_str());
    ASSERT_GT(daemon, 0);
    const int daemonFd = static_cast<int>(syscall(SYS_pidfd_open, daemon, 0));

    ScopedEnv pulse("PULSE_SERVER", &server);
    auto sinkMuted = [] {
        std::string out;
        EXPECT_EQ(runProgram({"pactl", "get-sink-mute", "@DEFAULT_SINK@"}, &out, {"LC_ALL=C"}), 0);
        return out.find("Mute: yes") != std::string::npos;
    };
    auto muteSink = [](bool mute) { runProgram({"pactl", "set-sink-mute", "@DEFAULT_SINK@", mute ? "1" : "0"}); };

    EXPECT_FALSE(sinkMuted());
    settings.setSystemMute(true);
    EXPECT_TRUE(sinkMuted());
    settings.setSystemMute(true);  // twice: still one mute to undo
    settings.setSystemMute(false);
    EXPECT_FALSE(sinkMuted());

    muteSink(true);  // muted by the user before the cast: stays muted after it
    settings.setSystemMute(true);
    settings.setSystemMute(false);
    EXPECT_TRUE(sinkMuted());
    settings.setSystemMute(false);  // we did not mute it: left alone
    EXPECT_TRUE(sinkMuted());

    muteSink(false);
    settings.setSystemMute(true);
    EXPECT_TRUE(sinkMuted());
    settings.restoreDefault();
    EXPECT_FALSE(settings.isSystemMuted());
    EXPECT_FALSE(sinkMuted());

    kill(daemon, SIGTERM);
    if (daemonFd >= 0) {
        pollfd exited{daemonFd, POLLIN, 0};
        if (poll(&exited, 1, 10000) == 0) kill(daemon, SIGKILL);
        close(daemonFd);
    }
}
