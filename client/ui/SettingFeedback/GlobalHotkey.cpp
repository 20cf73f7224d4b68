#include "ui/SettingFeedback/GlobalHotkey.h"

#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <QSocketNotifier>

#include <atomic>
#include <mutex>

#include "casting/Log.h"

namespace qorquicomponents {
namespace {

// Xlib reports a refused grab through the process-wide error handler, after
// the request reached the server. Ours is installed once and never swapped
// out: errors of other connections (the screen capture's, which installs a
// chaining handler the same way) go on to the handler installed before it.
std::atomic<Display*> g_hotkeyDisplay{nullptr};
std::atomic<bool> g_grabRefused{false};
XErrorHandler g_previousHandler = nullptr;

int onGrabError(Display* display, XErrorEvent* error) {
    if (display == g_hotkeyDisplay.load()) {
        if (error->error_code == BadAccess) g_grabRefused = true;
        return 0;
    }
    return g_previousHandler != nullptr ? g_previousHandler(display, error) : 0;
}

constexpr unsigned kModifiers = ControlMask | Mod1Mask;
// The grab must hold whatever Caps Lock (LockMask) and Num Lock (Mod2Mask) are.
constexpr unsigned kLockCombos[] = {0, LockMask, Mod2Mask, LockMask | Mod2Mask};

}  // namespace

GlobalHotkey::GlobalHotkey(QObject* parent) : QObject(parent) {}

GlobalHotkey::~GlobalHotkey() {
    unregisterAll();
    delete m_notifier;
    if (m_display != nullptr) {
        Display* expected = m_display;
        g_hotkeyDisplay.compare_exchange_strong(expected, nullptr);
        XCloseDisplay(m_display);
    }
}

bool GlobalHotkey::ensureConnection() {
    if (m_display != nullptr) return true;
    m_display = XOpenDisplay(nullptr);
    if (m_display == nullptr) {
        ZV_LOG(WARNING) << " no X display: global shortcuts are not available";
        return false;
    }
    static std::once_flag once;
    std::call_once(once, [] { g_previousHandler = XSetErrorHandler(onGrabError); });
    m_notifier = new QSocketNotifier(ConnectionNumber(m_display), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { readEvents(); });
    return true;
}

void GlobalHotkey::grab(unsigned keycode, bool on) {
    const Window root = DefaultRootWindow(m_display);
    for (unsigned locks : kLockCombos) {
        if (on) {
            XGrabKey(m_display, static_cast<int>(keycode), kModifiers | locks, root, False, GrabModeAsync,
                     GrabModeAsync);
        } else {
            XUngrabKey(m_display, static_cast<int>(keycode), kModifiers | locks, root);
        }
    }
}

GlobalHotkey::Result GlobalHotkey::registerHotkey(int id, int qtKey) {
    unregisterHotkey(id);
    if (qtKey < 'A' || qtKey > 'Z') return Result::Unavailable;
    if (!ensureConnection()) return Result::Unavailable;
    const KeySym symbol = XK_a + static_cast<KeySym>(qtKey - 'A');
    const KeyCode keycode = XKeysymToKeycode(m_display, symbol);
    if (keycode == 0) {
        ZV_LOG(WARNING) << " no key for the letter " << static_cast<char>(qtKey);
        return Result::Unavailable;
    }
    for (const auto& other : m_grabs) {
        if (other.second == keycode) return Result::Occupied;  // our other shortcut has this letter
    }
    XSync(m_display, False);
    // One hot-key connection reports at a time (GUI thread only).
    g_hotkeyDisplay = m_display;
    g_grabRefused = false;
    grab(keycode, true);
    XSync(m_display, False);
    if (g_grabRefused.exchange(false)) {
        // Part of the combinations may have been granted: give them back.
        grab(keycode, false);
        XSync(m_display, False);
        ZV_LOG(WARNING) << " Ctrl+Alt+" << static_cast<char>(qtKey) << " is held by another program";
        return Result::Occupied;
    }
    m_grabs[id] = keycode;
    ZV_LOG(INFO) << " registered Ctrl+Alt+" << static_cast<char>(qtKey) << " as shortcut " << id;
    return Result::Registered;
}

void GlobalHotkey::unregisterHotkey(int id) {
    const auto found = m_grabs.find(id);
    if (found == m_grabs.end()) return;
    const unsigned keycode = found->second;
    m_grabs.erase(found);
    grab(keycode, false);
    // Wait until the server has the release: a flush alone lets another
    // connection's grab of the same key arrive first and be refused.
    XSync(m_display, False);
}

void GlobalHotkey::unregisterAll() {
    while (!m_grabs.empty()) unregisterHotkey(m_grabs.begin()->first);
}

void GlobalHotkey::readEvents() {
    while (XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (event.type != KeyPress) continue;
        const unsigned modifiers = event.xkey.state & (ControlMask | Mod1Mask | ShiftMask | Mod4Mask);
        if (modifiers != kModifiers) continue;
        for (const auto& entry : m_grabs) {
            if (entry.second == event.xkey.keycode) emit signalActivated(entry.first);
        }
    }
}

}  // namespace qorquicomponents
