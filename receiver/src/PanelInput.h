// Injects the reverse-screen touches of a PC into the panel's own X
// session with XTest: a touch is the left button, 0..65535 across the whole
// screen; "back" is Alt+Left to the focused window. Lives on the receiver's
// main thread; its own display connection.
#pragma once

#include <QString>

#include <memory>

struct _XDisplay;

namespace receiver {

class PanelInput {
public:
    // Opens $DISPLAY (or displayName); available() is false without an X
    // server or without XTest, and every call then does nothing.
    explicit PanelInput(const QString& displayName = QString());
    ~PanelInput();
    PanelInput(const PanelInput&) = delete;
    PanelInput& operator=(const PanelInput&) = delete;

    bool available() const { return m_display != nullptr; }
    QString unavailableReason() const { return m_reason; }

    // The screen pixel for 0..65535 units: W * x / 65535, truncating (65535 is W).
    static int toPixel(int units, int size) { return static_cast<int>(static_cast<long long>(size) * units / 65535); }

    enum class Touch { Down, Move, Up };
    // Returns the pixel it went to.
    bool touch(Touch type, int x, int y, int* px = nullptr, int* py = nullptr);
    bool back();

private:
    _XDisplay* m_display = nullptr;
    QString m_reason;
};

}  // namespace receiver
