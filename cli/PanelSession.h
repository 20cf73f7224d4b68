// What the login and cast verbs share: the options that name a panel, the
// log-in through the library, and the session's events printed as JSON lines
// (with the watchdog's events handed to it, as the desktop client does).
#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>

#include <atomic>

#include "casting/ExceptionEvents.h"
#include "casting/SessionRecords.h"

class CManageAll;

namespace cli {

class PanelSession {
public:
    PanelSession();
    ~PanelSession();  // logs out; the library forgets our callbacks

    // --code, --passcode-server, --address, --key, --hold, --reconnect
    void addOptions(QCommandLineParser& parser);
    // Reads the options; false (and the reason in *error) on a bad command line.
    bool readOptions(const QCommandLineParser& parser, QString* error);

    // Logs in and prints {"event":"login",...}; on failure prints the error
    // line and returns false.
    bool logIn();
    // Runs the event loop for --hold seconds (0: until stdin closes) or the
    // given seconds, arming the watchdog with --reconnect. Ends early when the
    // panel ends the session.
    void hold(int seconds);
    int holdSeconds() const { return m_holdSeconds; }
    // With --reconnect: the watchdog takes dropped links (and broken casts) over.
    void armWatchdog();
    bool holdRequested() const { return m_holdSeconds >= 0; }
    void logOut();

    tagDeviceListUnitInfo_& panel() { return m_panel; }
    long userHandle() const { return m_userHandle; }

private:
    static long onException(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);
    static void onError(unsigned long code, void* user);

    CManageAll* m_library;
    QCommandLineOption m_code, m_passcodeServer, m_address, m_key, m_hold, m_reconnectOption;
    tagCodeServerInfo_ m_server{};
    tagDeviceListUnitInfo_ m_panel{};
    long m_userHandle = -1;
    long m_sessionHandle = -1;
    int m_holdSeconds = -1;
    bool m_reconnect = false;
    bool m_loggedIn = false;
    std::atomic<bool> m_errorPrinted{false};
};

}  // namespace cli
