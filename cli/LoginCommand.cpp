// login: reach a panel by code or address, describe it, optionally hold the
// session and print its events.
#include <QCommandLineParser>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"

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
