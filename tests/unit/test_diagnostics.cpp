// The diagnostic bundle: logs and settings go in, key material next to them
// never does; the casting conditions name every topic.
#include <gtest/gtest.h>

#include <sqlite3.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "core/CastingConditions.h"
#include "core/DiagnosticBundle.h"

namespace {

std::string run(const std::string& command) {
    std::string out;
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    char buffer[512];
    while (pipe && fgets(buffer, sizeof buffer, pipe.get()) != nullptr) out += buffer;
    return out;
}

TEST(DiagnosticBundle, HoldsLogsAndSettingsButNoKeys) {
    char folder[] = "/tmp/zv-diag-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string root = folder;
    std::system(("mkdir -p " + root + "/logs " + root + "/config").c_str());
    std::ofstream(root + "/logs/zelvanor.host.log.INFO.1") << "I1123 12:00:00 1 x.cpp:1] [f] the last line\n";
    std::system(("ln -s zelvanor.host.log.INFO.1 " + root + "/logs/zelvanor.INFO").c_str());
    // Key material beside the settings, as in the user's config folder.
    std::ofstream(root + "/config/client-key.pem") << "PRIVATE-KEY-MATERIAL\n";
    std::ofstream(root + "/config/known-panels") << "KNOWN-PANEL-KEY\n";
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open((root + "/config/settings.db").c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE settings (HostName TEXT, ScreenIsMute INTEGER);"
                               "INSERT INTO settings VALUES ('room-pc', 1);",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);

    std::string error;
    const std::string bundle = root + "/bundle.tar.gz";
    ASSERT_TRUE(zv::saveDiagnosticBundle(bundle, {root + "/logs", root + "/config/settings.db"}, &error)) << error;
    std::set<std::string> entries;
    std::istringstream listing(run("tar tzf " + bundle));
    for (std::string line; std::getline(listing, line);) entries.insert(line);
    EXPECT_TRUE(entries.count("zelvanor-diagnostics/logs/zelvanor.host.log.INFO.1"));
    EXPECT_FALSE(entries.count("zelvanor-diagnostics/logs/zelvanor.INFO")) << "links are not copied twice";
    EXPECT_TRUE(entries.count("zelvanor-diagnostics/settings.txt"));
    EXPECT_TRUE(entries.count("zelvanor-diagnostics/system.txt"));
    const std::string content = run("tar xzf " + bundle + " -O");
    EXPECT_NE(content.find("the last line"), std::string::npos);
    EXPECT_NE(content.find("HostName = room-pc"), std::string::npos);
    EXPECT_NE(content.find("encoder: "), std::string::npos);
    EXPECT_EQ(content.find("PRIVATE-KEY-MATERIAL"), std::string::npos);
    EXPECT_EQ(content.find("KNOWN-PANEL-KEY"), std::string::npos);

    // A folder that cannot be written to is an error, not a crash.
    EXPECT_FALSE(zv::saveDiagnosticBundle("/nonexistent-folder/b.tar.gz", {root + "/logs", ""}, &error));
    EXPECT_FALSE(error.empty());
    std::system(("rm -rf " + root).c_str());
}

TEST(CastingConditions, NameDisplayEncoderSoundAndNetwork) {
    setenv("XDG_SESSION_TYPE", "wayland", 1);
    const auto conditions = zv::collectCastingConditions();
    ASSERT_EQ(conditions.size(), 4u);
    EXPECT_EQ(conditions[0].topic, "display");
    EXPECT_FALSE(conditions[0].ok) << "a Wayland session limits capture";
    EXPECT_NE(conditions[0].value.find("Wayland"), std::string::npos);
    EXPECT_EQ(conditions[1].topic, "encoder");
    EXPECT_EQ(conditions[2].topic, "sound");
    EXPECT_EQ(conditions[3].topic, "network");
    unsetenv("XDG_SESSION_TYPE");
    unsetenv("WAYLAND_DISPLAY");
    setenv("DISPLAY", ":42", 1);
    EXPECT_EQ(zv::collectCastingConditions()[0].value, "X11 (DISPLAY=:42)");
}

}  // namespace
