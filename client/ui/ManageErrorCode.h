// The error-code table: turns every 32-bit error code the client reports into
// a tip (text, level, tip type), a prompt, or nothing. One instance; GUI
// thread only.
#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include "ui/TipWindows.h"

class QWidget;

namespace qorquicomponents {

class DynamicWindow;

class ManageErrorCode : public QObject {
    Q_OBJECT

public:
    // What the table does for one code.
    enum class Action {
        Tip,            // a TipWindows line
        NoTip,          // nothing shown
        WaitPopup,      // the PopupWindow, reason 3
        MouseNotice,    // a DynamicWindow
    };
    struct Row {
        unsigned int code;
        Action action;
        const char* text;  // translation key in this class's context; null unless Tip
        ErrorLevel level;
        TipWindowType type;
    };

    static ManageErrorCode* getInstance();

    void setMainWidget(QWidget* widget) { m_mainWidget = widget; }
    QWidget* mainWidget() const { return m_mainWidget; }

    // Records the code with the tip window (for its details), then shows the
    // code's tip or prompt.
    void handleErrorCode(unsigned int code);

    // The row for a code; codes outside the table give a NoTip row.
    static Row rowFor(unsigned int code);
    // The notice made for the last 0xF3202002, while it exists.
    DynamicWindow* lastDynamicWindow() const { return m_dynamicWindow; }

    static constexpr int kTipTopOffset = 48;

private:
    ManageErrorCode() = default;

    QWidget* m_mainWidget = nullptr;
    QPointer<DynamicWindow> m_dynamicWindow;
};

}  // namespace qorquicomponents
