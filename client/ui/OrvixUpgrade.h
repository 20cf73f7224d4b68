// The main window. It owns the one session with a display panel and is the
// only place that changes the session state.
#pragma once

#include <QString>
#include <QWidget>

class QCloseEvent;

namespace Ui {
class OrvixUpgrade;
}

namespace qorquicomponents {

class OrvixUpgrade : public QWidget {
    Q_OBJECT

public:
    // Session state values.
    enum SessionStatus : unsigned {
        NormalStatus = 1,              // idle, no panel session
        ScreeningStatus = 2,           // the PC screen (or a window) is being cast
        CodeScreenRequestStatus = 3,   // cast request by connect code in flight
        ReverseScreeningStatus = 4,    // the panel's screen is shown here
        CodeReverseRequestStatus = 5,  // reverse-screen request by connect code in flight
        KLUFScreenRequestStatus = 6,   // cast request to a discovered panel in flight
        KLUFReverseRequestStatus = 7,  // reverse-screen request to a discovered panel in flight
        CodeConnectingStatus = 8,      // log-in by connect code in flight
        KLUFConnectingStatus = 9,      // log-in to a discovered panel in flight
        ConnectedStatus = 10,          // logged in, nothing cast
    };

    explicit OrvixUpgrade(QWidget* parent = nullptr);
    ~OrvixUpgrade() override;

    unsigned getCurrentStatus() const { return m_screenStatus; }
    bool getScreenStatus() const { return m_screenStatus == ScreeningStatus; }
    bool getReverseScreenStatus() const { return m_screenStatus == ReverseScreeningStatus; }

    // Entry from the command line: restores and activates the window, then
    // casts the screen to the panel at strIp. An empty strIp only clears the
    // started-from-command-line mark.
    void shortcutModeScreen(QString strIp, QString second, int mode);
    bool isCommandLineStart() const { return m_isCommandLineStart; }

    // Reports one of the program's own failures by its error code.
    void raiseErrorCode(unsigned errorCode);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void initUi();
    void initData();
    void initConnect();
    void applyStyleSheet();
    void showWindowActive();

    Ui::OrvixUpgrade* ui = nullptr;
    unsigned m_screenStatus = NormalStatus;
    bool m_isCommandLineStart = false;
};

}  // namespace qorquicomponents
