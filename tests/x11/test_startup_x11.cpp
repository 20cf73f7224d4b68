// The programs start on a real X server with a window manager, show their
// window, and exit cleanly when the window is closed the way a user does.
#include <gtest/gtest.h>

#include "XvfbSession.h"

namespace {

using namespace std::chrono_literals;

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
    // Each run gets its own home so logs and settings stay out of the user's.
    char home[] = "/tmp/zv-x11-home-XXXXXX";
    ASSERT_NE(mkdtemp(home), nullptr);
    setenv("HOME", home, 1);
    setenv("XDG_CONFIG_HOME", (std::string(home) + "/.config").c_str(), 1);

    startShowAndClose(x, {zvtest::builtProgram("zelvanor")});
    startShowAndClose(x, {zvtest::builtProgram("zelvanor-receiver"), "--windowed", "--name", "Test panel", "--port", "0",
                         "--no-discovery"},
                      "Test panel");  // Qt must not swallow --name, an X11 option of its own
}

}  // namespace
