// The connect-code entry of the screen and share pages: a line edit that
// shows a pale placeholder until it has the focus, takes up to 8 letters and
// digits while focused, upper-cases what is typed, and enables its start
// button once a code of 4 or more characters is in. The page keeps the
// widgets and forwards the entry's text changes and focus events here.
// GUI thread only.
#pragma once

#include <QString>

#include <string>

class QEvent;
class QLineEdit;
class QPushButton;
class QWidget;

namespace qorquicomponents {

class CodeEntry {
public:
    // Whether the placeholder keeps its spelling when the text changes to it.
    enum class PlaceholderCase {
        Kept,                        // always
        KeptInEnglishAndCroatian,    // only in these interface languages; others upper-case it too
    };

    CodeEntry(QLineEdit* edit, QPushButton* start, PlaceholderCase placeholderCase);

    // A real code in the input look; an empty text or the placeholder as the
    // placeholder in its pale look.
    void setCode(const QString& code);
    // Upper-cases the entry's new text where the placeholder rule allows and
    // enables the start button for a code. False for the change this makes
    // itself while upper-casing, which the page ignores.
    bool onTextChanged(const QString& text);
    // Focus in clears the placeholder; focus out puts it back on an empty entry.
    void onFocusEvent(const QEvent* event);

private:
    void showPlaceholderLook();
    void showInputLook();

    QLineEdit* m_edit;
    QPushButton* m_start;
    PlaceholderCase m_placeholderCase;
    bool m_inTextChange = false;
};

// The passcode server that 4-character codes are resolved through, as the
// settings store has it: ServerIP and ServerPort, or several instances in
// ServerIP as "HOST:PORT[#KEYID],HOST:PORT..." (ServerPort then unused).
struct PasscodeServerSetting {
    std::string ip;    // the (first) instance's host
    int port = 0;
    std::string list;  // the instances when ServerIP holds a list; else empty

    static PasscodeServerSetting read();
    bool isConfigured() const { return !ip.empty() && port != 0; }
};

// The tip that a passcode cannot be used without a passcode server, shown
// over anchor.
void showPasscodeServerMissingTip(QWidget* anchor);

}  // namespace qorquicomponents
