// The programs start on a real X server with a window manager, show their
// window, and exit cleanly when the window is closed the way a user does; the
// client also when it is stopped by SIGTERM or ends by quit().
#include <gtest/gtest.h>

#include <dirent.h>

#include <fstream>
#include <sstream>

#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;

// A home of its own for the programs started next, so logs and settings stay
// out of the user's and each run's log can be read on its own.
std::string useFreshHome() {
    char home[] = "/tmp/zv-x11-home-XXXXXX";
    if (mkdtemp(home) == nullptr) return {};
    setenv("HOME", home, 1);
    setenv("XDG_CONFIG_HOME", (std::string(home) + "/.config").c_str(), 1);
    return home;
}

// Everything the client logged under home (glog's INFO files hold every level).
std::string clientLog(const std::string& home) {
    const std::string folder = home + "/Zelvanor/Zelvanor/Logs/";
    std::string text;
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return text;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.find(".log.INFO.") == std::string::npos) continue;
        std::ifstream file(folder + name);
        std::ostringstream content;
        content << file.rdbuf();
        text += content.str();
    }
    closedir(dir);
    return text;
}

// The library was shut down while Qt still ran: its own line, and no
// warning that it waited for work that could no longer run.
void expectOrderlyLibraryEnd(const std::string& log) {
    EXPECT_NE(log.find("[main] language: "), std::string::npos) << "the client did not get as far as its window";
    EXPECT_NE(log.find("[shutdown] casting library shut down"), std::string::npos) << log;
    EXPECT_EQ(log.find("shut down after Qt ended"), std::string::npos) << log;
    EXPECT_EQ(log.find("waited"), std::string::npos) << log;
}

void startShowAndClose(zvtest::XvfbSession& x, const std::vector<std::string>& argv,
                       const std::string& titlePart = std::string()) {
    zvtest::ChildProcess program(argv);
    ASSERT_GT(program.pid(), 0);
    Window window = 0;
    ASSERT_TRUE(zvtest::waitFor(
        [&] {
            window = x.windowOfPid(program.pid());
            return window != 0 || program.finished();
        },
        30s))
        << argv[0] << " showed no window";
    ASSERT_NE(window, 0u) << argv[0] << " ended before showing a window, exit " << program.exitCode();

    XWindowAttributes attributes{};
    ASSERT_TRUE(XGetWindowAttributes(x.connection(), window, &attributes));
    EXPECT_EQ(attributes.map_state, IsViewable);
    EXPECT_GT(attributes.width, 100);
    if (!titlePart.empty()) {
        char* title = nullptr;
        ASSERT_TRUE(XFetchName(x.connection(), window, &title) && title != nullptr);
        EXPECT_NE(std::string(title).find(titlePart), std::string::npos) << "title: " << title;
        XFree(title);
    }

    x.requestClose(window);
    ASSERT_TRUE(zvtest::waitFor([&] { return program.finished(); }, 30s)) << argv[0] << " did not exit on close";
    EXPECT_EQ(program.exitCode(), 0);
}

TEST(StartupX11, ClientAndReceiverShowTheirWindowAndExitCleanlyWhenClosed) {
    zvtest::XvfbSession x;
    ASSERT_TRUE(x.ready()) << "Xvfb with openbox did not start";
    const std::string home = useFreshHome();
    ASSERT_FALSE(home.empty());

    startShowAndClose(x, {zvtest::builtProgram("zelvanor")});
    expectOrderlyLibraryEnd(clientLog(home));
    startShowAndClose(x, {zvtest::builtProgram("zelvanor-receiver"), "--windowed", "--name", "Test panel", "--port", "0",
                         "--no-discovery"},
                      "Test panel");  // Qt must not swallow --name, an X11 option of its own
}

// Ways out other than the close button: the window's closeEvent never runs,
// so the library must still be ended before QApplication goes.
TEST(StartupX11, ClientShutsTheLibraryDownInOrderOnSigtermAndQuit) {
    zvtest::XvfbSession x;
    ASSERT_TRUE(x.ready()) << "Xvfb with openbox did not start";

    {
        const std::string home = useFreshHome();
        ASSERT_FALSE(home.empty());
        zvtest::ChildProcess client({zvtest::builtProgram("zelvanor")});
        ASSERT_TRUE(zvtest::waitFor([&] { return x.windowOfPid(client.pid()) != 0 || client.finished(); }, 30s));
        ASSERT_FALSE(client.finished()) << "the client ended before showing its window, exit " << client.exitCode();
        client.signal(SIGTERM);
        ASSERT_TRUE(client.waitFinished(30s)) << "the client did not end on SIGTERM";
        EXPECT_EQ(client.exitCode(), 0);
        expectOrderlyLibraryEnd(clientLog(home));
    }
    {
        // The client's main() that calls quit() once its window shows.
        const std::string home = useFreshHome();
        ASSERT_FALSE(home.empty());
        zvtest::ChildProcess client({zvtest::builtProgram("zelvanor-quit-probe")});
        ASSERT_TRUE(client.waitFinished(60s)) << "the client did not end on quit()";
        EXPECT_EQ(client.exitCode(), 0);
        expectOrderlyLibraryEnd(clientLog(home));
    }
}

}  // namespace
