// Global shortcuts Ctrl+Alt+<letter> on a private Xvfb: a key another X
// client holds is reported occupied (and shown by the settings window), and a
// pressed shortcut reaches its owner through the event loop.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDeadlineTimer>
#include <QLabel>
#include <QLineEdit>

#include <cstdlib>

#include "ui/SettingFeedback/GlobalHotkey.h"
#include "ui/SettingFeedback/SettingWidget.h"

// Xlib's macros (Bool, Status, None...) clash with Qt's headers: last.
#include "XvfbSession.h"
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

using qorquicomponents::GlobalHotkey;
using qorquicomponents::SettingWidget;

namespace {

QApplication* ensureApp() {
    static int argc = 1;
    static char name[] = "test_global_hotkey";
    static char* argv[] = {name, nullptr};
    static QApplication* app = new QApplication(argc, argv);
    return app;
}

template <typename Pred>
bool waitFor(Pred pred, int timeoutMs = 10000) {
    QDeadlineTimer deadline(timeoutMs);
    while (!pred()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

void pressShortcut(Display* display, KeySym letter) {
    const KeyCode control = XKeysymToKeycode(display, XK_Control_L);
    const KeyCode alt = XKeysymToKeycode(display, XK_Alt_L);
    const KeyCode key = XKeysymToKeycode(display, letter);
    XTestFakeKeyEvent(display, control, True, CurrentTime);
    XTestFakeKeyEvent(display, alt, True, CurrentTime);
    XTestFakeKeyEvent(display, key, True, CurrentTime);
    XTestFakeKeyEvent(display, key, False, CurrentTime);
    XTestFakeKeyEvent(display, alt, False, CurrentTime);
    XTestFakeKeyEvent(display, control, False, CurrentTime);
    XFlush(display);
}

}  // namespace

TEST(GlobalHotkey, ConflictsAndDelivery) {
    char home[] = "/tmp/zv-hotkey-XXXXXX";
    ASSERT_NE(mkdtemp(home), nullptr);
    setenv("HOME", home, 1);
    setenv("XDG_CONFIG_HOME", (std::string(home) + "/.config").c_str(), 1);
    zvtest::XvfbSession x;
    ASSERT_TRUE(x.ready());
    setenv("QT_QPA_PLATFORM", "offscreen", 1);  // the grabs use their own connection to DISPLAY
    ensureApp();

    // Two clients, one key: the second is refused, another letter is fine.
    GlobalHotkey first;
    GlobalHotkey second;
    EXPECT_EQ(first.registerHotkey(1, 'H'), GlobalHotkey::Result::Registered);
    EXPECT_EQ(second.registerHotkey(1, 'H'), GlobalHotkey::Result::Occupied);
    EXPECT_FALSE(second.isRegistered(1));
    EXPECT_EQ(second.registerHotkey(1, 'J'), GlobalHotkey::Result::Registered);
    // One client cannot give one letter to both of its shortcuts.
    EXPECT_EQ(second.registerHotkey(2, 'J'), GlobalHotkey::Result::Occupied);
    EXPECT_EQ(first.registerHotkey(3, '1'), GlobalHotkey::Result::Unavailable);

    // A press reaches the holder, with Num Lock's modifier or without.
    int fired = 0;
    QObject::connect(&second, &GlobalHotkey::signalActivated, [&fired](int id) { fired = id; });
    pressShortcut(x.connection(), XK_j);
    ASSERT_TRUE(waitFor([&] { return fired == 1; }));

    // Released keys are free for the other client again.
    first.unregisterHotkey(1);
    EXPECT_EQ(second.registerHotkey(2, 'H'), GlobalHotkey::Result::Registered);
    second.unregisterAll();

    // The settings window shows which of its shortcuts another program holds.
    GlobalHotkey blocker;
    ASSERT_EQ(blocker.registerHotkey(1, 'K'), GlobalHotkey::Result::Registered);
    {
        SettingWidget window;
        window.initData(nullptr);
        EXPECT_FALSE(window.isShortcutOccupied(SettingWidget::ShortcutStartOrStop));
        EXPECT_TRUE(window.isShortcutOccupied(SettingWidget::ShortcutPause));
        EXPECT_EQ(window.shortcutOccupiedLab()->text().toStdString(),
                  "The pause shortcut keys may be occupied by other programs, please reconfigure");

        // Its own Ctrl+Alt+H works and says which shortcut it is.
        int which = 0;
        QObject::connect(&window, &SettingWidget::signalShortcutActivated, [&which](int id) { which = id; });
        pressShortcut(x.connection(), XK_h);
        ASSERT_TRUE(waitFor([&] { return which == SettingWidget::ShortcutStartOrStop; }));

        // Both taken: the shared message.
        ASSERT_EQ(blocker.registerHotkey(2, 'M'), GlobalHotkey::Result::Registered);
        window.show();
        window.startOrStopEdit()->setText(QStringLiteral("m"));
        EXPECT_TRUE(window.isShortcutOccupied(SettingWidget::ShortcutStartOrStop));
        EXPECT_EQ(window.shortcutOccupiedLab()->text().toStdString(),
                  "The shortcut has been registered, please change the key and try again");
        // A free letter clears the start/stop mark.
        window.startOrStopEdit()->setText(QStringLiteral("q"));
        EXPECT_FALSE(window.isShortcutOccupied(SettingWidget::ShortcutStartOrStop));
    }
}
