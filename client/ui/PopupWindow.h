// The waiting prompt shown while the panel's own user decides on a request.
// One instance; GUI thread only.
#pragma once

#include <QString>
#include <QWidget>

namespace Ui {
class PopupWindow;
}

namespace qorquicomponents {

enum PopupWindowReason : int {
    PopupReasonNone = 0,
    PopupReasonWaitAuthorization = 2,       // a request was answered "wait for the panel's authorisation"
    PopupReasonAuthorizationRequired = 3,   // the library reported that the panel must authorise first
};

class PopupWindow : public QWidget {
    Q_OBJECT

public:
    static PopupWindow* getInstance();
    ~PopupWindow() override;

    // The main program's process id (0 for this one) and its main window,
    // over which the prompt is placed.
    void setMainProcessInfo(int processId, QWidget* mainWidget);
    // Shows the prompt for a reason.
    void setDisplayInfo(PopupWindowReason reason);

    PopupWindowReason reason() const { return m_reason; }
    int mainProcessId() const { return m_mainProcessId; }
    QString messageText() const;

signals:
    // The user gave up waiting.
    void signalCancelWaitAuth();

private:
    PopupWindow();

    Ui::PopupWindow* ui;
    PopupWindowReason m_reason = PopupReasonNone;
    int m_mainProcessId = 0;
    QWidget* m_mainWidget = nullptr;
};

}  // namespace qorquicomponents
