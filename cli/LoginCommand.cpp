// login: reach a panel by code or address, describe it, optionally hold the
// session and print its events.
#include <QCommandLineParser>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"
#include "casting/CManageAll.h"

namespace cli {

int runLogin(const QStringList& arguments) {
    QCommandLineParser parser;
    PanelSession session;
    session.addOptions(parser);
    QString error;
    if (!parser.parse(arguments) || !session.readOptions(parser, &error)) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), error.isEmpty() ? parser.errorText() : error}});
        return 2;
    }
    if (!session.logIn()) return 1;
    if (session.holdRequested()) session.hold(session.holdSeconds());
    session.logOut();
    return 0;
}

}  // namespace cli

namespace cli {

int runForget(const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption panel(QStringLiteral("panel"), QStringLiteral("The panel's name."), QStringLiteral("NAME"));
    parser.addOption(panel);
    if (!parser.parse(arguments) || !parser.isSet(panel) || parser.value(panel).isEmpty()) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), parser.errorText().isEmpty() ? QStringLiteral("give --panel NAME")
                                                                         : parser.errorText()}});
        return 2;
    }
    const int removed = CManageAll::getInstance()->forgetPanel(parser.value(panel).toUtf8().constData());
    printLine({{QStringLiteral("event"), QStringLiteral("forget")},
               {QStringLiteral("panel"), parser.value(panel)},
               {QStringLiteral("removed"), removed}});
    return 0;
}

}  // namespace cli
