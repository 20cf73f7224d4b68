// diagnostics [--out FILE]: prints what limits casting on this PC, one JSON
// line per topic, and with --out saves the diagnostic bundle for support
// (logs, settings, these conditions; never keys).
#include <QCommandLineParser>

#include "Commands.h"
#include "JsonLines.h"
#include "core/CastingConditions.h"
#include "core/DiagnosticBundle.h"

namespace cli {

int runDiagnostics(const QStringList& arguments) {
    QCommandLineParser parser;
    const QCommandLineOption out(QStringLiteral("out"), QStringLiteral("Save the diagnostic bundle (.tar.gz) here."),
                                 QStringLiteral("FILE"));
    parser.addOption(out);
    if (!parser.parse(arguments) || !parser.positionalArguments().isEmpty()) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), parser.errorText().isEmpty() ? QStringLiteral("diagnostics [--out FILE]")
                                                                         : parser.errorText()}});
        return 2;
    }
    for (const zv::CastingCondition& condition : zv::collectCastingConditions()) {
        printLine({{QStringLiteral("event"), QStringLiteral("condition")},
                   {QStringLiteral("topic"), QString::fromStdString(condition.topic)},
                   {QStringLiteral("ok"), condition.ok},
                   {QStringLiteral("text"), QString::fromStdString(condition.value)}});
    }
    if (!parser.isSet(out)) return 0;
    std::string error;
    const bool saved = zv::saveDiagnosticBundle(parser.value(out).toStdString(), zv::defaultDiagnosticSources(), &error);
    QJsonObject line{{QStringLiteral("event"), QStringLiteral("diagnostics")},
                     {QStringLiteral("saved"), saved},
                     {QStringLiteral("path"), parser.value(out)}};
    if (!saved) line.insert(QStringLiteral("error"), QString::fromStdString(error));
    printLine(line);
    return saved ? 0 : 1;
}

}  // namespace cli
