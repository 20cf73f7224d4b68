// System-wide hot keys Ctrl+Alt+<letter> on X11. Each key is grabbed on the
// root window of a private X connection (so Qt's own connection, and its
// platform plug-in, do not matter); the connection's socket is watched by a
// QSocketNotifier, so key presses arrive in the GUI event loop without a
// thread or polling. A key another client already grabbed gives BadAccess,
// reported as Occupied. GUI thread only.
#pragma once

#include <QObject>

#include <map>

class QSocketNotifier;
struct _XDisplay;

namespace qorquicomponents {

class GlobalHotkey : public QObject {
    Q_OBJECT

public:
    enum class Result {
        Registered,   // the key is ours until unregistered
        Occupied,     // another program holds Ctrl+Alt+<letter>
        Unavailable,  // no X server, or the letter has no key on this keyboard
    };

    explicit GlobalHotkey(QObject* parent = nullptr);
    ~GlobalHotkey() override;

    // Grabs Ctrl+Alt+letter (a Qt key code of A to Z) under the id, first
    // releasing what the id held before.
    Result registerHotkey(int id, int qtKey);
    void unregisterHotkey(int id);
    void unregisterAll();
    bool isRegistered(int id) const { return m_grabs.count(id) != 0; }

signals:
    // A registered hot key was pressed.
    void signalActivated(int id);

private:
    bool ensureConnection();
    void grab(unsigned keycode, bool on);
    void readEvents();

    _XDisplay* m_display = nullptr;
    QSocketNotifier* m_notifier = nullptr;
    std::map<int, unsigned> m_grabs;  // id -> X key code
};

}  // namespace qorquicomponents
