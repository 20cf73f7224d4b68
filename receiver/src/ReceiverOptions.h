// What the receiver runs with: its configuration file, overridden by the
// command line.
#pragma once

#include <QString>
#include <QStringList>

#include "discovery/PanelAccess.h"
#include "passcode/PasscodePins.h"

namespace receiver {

struct ReceiverOptions {
    QString name;                 // shown on the idle screen and announced on the LAN
    QString fixedCode;            // --code: a code that never changes (empty: generated)
    int codeIntervalSeconds = 0;  // a new code every N s while idle (0: only when a session ends)
    quint16 port = 47800;         // control port
    QString passcodeServerHost;   // --passcode-server HOST:PORT[#KEYID]: register a 4-character passcode there
    quint16 passcodeServerPort = 0;
    QString passcodeServerKey;    // the service's key id when given (#KEYID); else pinned on first use
    // Further instances (--passcode-server A,B,...), tried in turn after the first.
    QList<zv::PasscodeServerAddress> morePasscodeServers;
    int passcodeServicePort = -1; // --passcode-service [PORT]: run the passcode service inside (-1: no)
    bool requireApproval = false; // each new cast waits for the panel's user
    // --access: who gets in without the code (a PC the panel knows always does)
    zv::PanelAccess access = zv::PanelAccess::Approve;
    bool publishCode = false;     // --publish-code: the code in the discovery record
    int maxClients = 4;
    bool headless = false;        // no window at all (servers, tests)
    bool windowed = false;        // a normal window instead of full screen
    bool viewOnly = false;        // --view-only: the reverse screen never grants control ("nonsupport")
    bool testDevices = false;     // --test-devices: lend a 440 Hz tone and a test picture
    bool discovery = true;        // announce on the LAN
    bool showVersion = false;     // --version: print it and stop
    // --protocol-version M[.m]: answer as a panel of that version (compatibility tests); -1: current
    int protocolMajor = -1;
    int protocolMinor = -1;
    QString configPath;           // the configuration file read

    // Reads the configuration file (--config PATH, else the per-user one),
    // then the command line (argv[0] included). On a bad command line or
    // --help returns false and puts the text to show in message.
    static bool parse(const QStringList& arguments, ReceiverOptions& options, QString& message);
    static QString defaultConfigPath();
    static QString defaultName();
};

}  // namespace receiver
