// file: log in and cast a local picture, video or sound file; the panel
// plays it. Options steer it once it plays (--volume, --seek, --rotate,
// --scale, --translate, --pause-at); JSON lines on standard input steer it
// afterwards, one command per line:
//   {"cmd":"pause"} {"cmd":"resume"} {"cmd":"seek","seconds":S}
//   {"cmd":"volume","value":V} {"cmd":"rotate","degrees":D}
//   {"cmd":"scale","percent":P} {"cmd":"translate","dx":X,"dy":Y}
//   {"cmd":"info"} {"cmd":"file","path":"..."} {"cmd":"stop"}
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSocketNotifier>
#include <QTimer>

#include <unistd.h>

#include <chrono>
#include <optional>

#include "Commands.h"
#include "JsonLines.h"
#include "PanelSession.h"
#include "casting/CManageAll.h"

namespace cli {
namespace {

const char* stateName(CastFileState state) {
    switch (state) {
        case CAST_FILE_PLAYING: return "playing";
        case CAST_FILE_PAUSED: return "paused";
        case CAST_FILE_ENDED: return "ended";
        case CAST_FILE_ERROR: return "error";
        case CAST_FILE_IDLE: break;
    }
    return "idle";
}

QJsonObject infoLine() {
    int position = 0, duration = 0, volume = 0;
    CastFileState state = CAST_FILE_IDLE;
    const long result = CManageAll::getInstance()->getCastFilePlayInfo(position, duration, state, volume);
    return {{QStringLiteral("event"), QStringLiteral("file-info")},
            {QStringLiteral("result"), static_cast<int>(result)},
            {QStringLiteral("position"), position},
            {QStringLiteral("duration"), duration},
            {QStringLiteral("state"), QString::fromLatin1(stateName(state))},
            {QStringLiteral("volume"), volume}};
}

qint64 steadyMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// sentAt: steady_clock's time when the call began, for timing against the panel.
void printResult(const QString& command, long result, qint64 sentAt = steadyMs()) {
    printLine({{QStringLiteral("event"), QStringLiteral("command")},
               {QStringLiteral("command"), command},
               {QStringLiteral("result"), static_cast<int>(result)},
               {QStringLiteral("steadyMs"), sentAt}});
}

void runCommand(const QByteArray& line) {
    const QJsonObject command = QJsonDocument::fromJson(line).object();
    const QString name = command.value(QStringLiteral("cmd")).toString();
    CManageAll* library = CManageAll::getInstance();
    const qint64 sentAt = steadyMs();
    long result = -2;
    if (name == QLatin1String("pause")) result = library->pauseCastFile();
    else if (name == QLatin1String("resume")) result = library->resumeCastFile();
    else if (name == QLatin1String("seek")) result = library->seekCastFile(command.value(QStringLiteral("seconds")).toInt());
    else if (name == QLatin1String("volume")) result = library->setCastFileVolume(command.value(QStringLiteral("value")).toInt());
    else if (name == QLatin1String("rotate")) result = library->rotatePicture(command.value(QStringLiteral("degrees")).toInt());
    else if (name == QLatin1String("scale")) result = library->scalePicture(command.value(QStringLiteral("percent")).toInt());
    else if (name == QLatin1String("translate")) {
        result = library->translatePicture(command.value(QStringLiteral("dx")).toInt(), command.value(QStringLiteral("dy")).toInt());
    } else if (name == QLatin1String("file")) {
        const QString path = QFileInfo(command.value(QStringLiteral("path")).toString()).absoluteFilePath();
        result = library->setCastFile(path.toUtf8().constData());
    } else if (name == QLatin1String("info")) {
        printLine(infoLine());
        return;
    } else if (name == QLatin1String("stop")) {
        QCoreApplication::quit();
        result = 0;
    }
    printResult(name.isEmpty() ? QString::fromUtf8(line) : name, result, sentAt);
}

}  // namespace

int runFile(const QStringList& arguments) {
    QCommandLineParser parser;
    PanelSession session;
    session.addOptions(parser);
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long to cast (default: until stdin closes or the file ends)."),
                                     QStringLiteral("N"), QStringLiteral("0"));
    const QCommandLineOption pauseAt(QStringLiteral("pause-at"), QStringLiteral("Pause when the panel reaches S seconds."), QStringLiteral("S"));
    const QCommandLineOption seek(QStringLiteral("seek"), QStringLiteral("Seek to S seconds once it plays."), QStringLiteral("S"));
    const QCommandLineOption volume(QStringLiteral("volume"), QStringLiteral("Volume 0..100 once it plays."), QStringLiteral("V"));
    const QCommandLineOption rotate(QStringLiteral("rotate"), QStringLiteral("Picture turn in degrees (accumulated)."), QStringLiteral("D"));
    const QCommandLineOption scale(QStringLiteral("scale"), QStringLiteral("Picture zoom in per cent of the fit."), QStringLiteral("P"));
    const QCommandLineOption translate(QStringLiteral("translate"), QStringLiteral("Picture pan step DX,DY in 1/2048 of the page."),
                                       QStringLiteral("DX,DY"));
    const QCommandLineOption info(QStringLiteral("info"), QStringLiteral("Print the panel's play info every second."));
    parser.addOptions({seconds, pauseAt, seek, volume, rotate, scale, translate, info});
    parser.addPositionalArgument(QStringLiteral("PATH"), QStringLiteral("The file to cast."));
    QString error;
    bool ok = parser.parse(arguments) && session.readOptions(parser, &error);
    if (ok && parser.positionalArguments().size() != 1) {
        error = QStringLiteral("give exactly one file");
        ok = false;
    }
    QStringList pan;
    if (ok && parser.isSet(translate)) {
        pan = parser.value(translate).split(QLatin1Char(','));
        if (pan.size() != 2) {
            error = QStringLiteral("--translate wants DX,DY");
            ok = false;
        }
    }
    if (!ok) {
        printLine({{QStringLiteral("event"), QStringLiteral("usage")},
                   {QStringLiteral("text"), error.isEmpty() ? parser.errorText() : error}});
        return 2;
    }
    const QString path = QFileInfo(parser.positionalArguments().constFirst()).absoluteFilePath();
    if (!session.logIn()) return 1;

    CManageAll* library = CManageAll::getInstance();
    long result = library->miracastResq(session.userHandle(), session.panel(), nullptr, nullptr, nullptr, nullptr,
                                        false, VIDEO_SOURCE_FILE);
    const qint64 castAt = steadyMs();
    if (result == SUCCESS) result = library->setCastFile(path.toUtf8().constData());
    printLine({{QStringLiteral("event"), QStringLiteral("file")},
               {QStringLiteral("path"), path},
               {QStringLiteral("steadyMs"), castAt},
               {QStringLiteral("result"), result == SUCCESS ? QStringLiteral("started") : QStringLiteral("failed")}});
    if (result != SUCCESS) {
        session.logOut();
        return 1;
    }

    // Options act once the panel plays the file; the state is polled.
    int exitCode = 0;
    bool optionsApplied = false;
    bool paused = false;
    QTimer poll;
    int tick = 0;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        int position = 0, duration = 0, vol = 0;
        CastFileState state = CAST_FILE_IDLE;
        const long active = library->getCastFilePlayInfo(position, duration, state, vol);
        if (active != 0 && state == CAST_FILE_ERROR) {
            printLine({{QStringLiteral("event"), QStringLiteral("file-ended")}, {QStringLiteral("state"), QStringLiteral("error")}});
            exitCode = 1;
            QCoreApplication::quit();
            return;
        }
        const bool playing = state == CAST_FILE_PLAYING || state == CAST_FILE_PAUSED;
        if (playing && !optionsApplied) {
            optionsApplied = true;
            if (parser.isSet(volume)) printResult(QStringLiteral("volume"), library->setCastFileVolume(parser.value(volume).toInt()));
            if (parser.isSet(seek)) printResult(QStringLiteral("seek"), library->seekCastFile(parser.value(seek).toInt()));
            if (parser.isSet(rotate)) printResult(QStringLiteral("rotate"), library->rotatePicture(parser.value(rotate).toInt()));
            if (parser.isSet(scale)) printResult(QStringLiteral("scale"), library->scalePicture(parser.value(scale).toInt()));
            if (!pan.isEmpty()) {
                printResult(QStringLiteral("translate"), library->translatePicture(pan[0].toInt(), pan[1].toInt()));
            }
        }
        if (parser.isSet(pauseAt) && !paused && state == CAST_FILE_PLAYING && position >= parser.value(pauseAt).toInt()) {
            paused = true;
            printResult(QStringLiteral("pause"), library->pauseCastFile());
        }
        if (parser.isSet(info) && ++tick % 4 == 0) printLine(infoLine());
    });
    poll.start(250);

    QSocketNotifier commands(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    QObject::connect(&commands, &QSocketNotifier::activated, [&] {
        char buffer[512];
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            commands.setEnabled(false);
            if (parser.value(seconds).toInt() <= 0) QCoreApplication::quit();
            return;
        }
        pending.append(buffer, static_cast<int>(n));
        int newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(newline).trimmed();
            pending.remove(0, newline + 1);
            if (!line.isEmpty()) runCommand(line);
        }
    });
    if (parser.value(seconds).toInt() > 0) {
        QTimer::singleShot(parser.value(seconds).toInt() * 1000, QCoreApplication::instance(), &QCoreApplication::quit);
    }
    QCoreApplication::exec();
    poll.stop();
    library->stopMiracast();
    printLine({{QStringLiteral("event"), QStringLiteral("file-stopped")}});
    session.logOut();
    return exitCode;
}

}  // namespace cli
