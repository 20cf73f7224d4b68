// zelvanor-cli: discover panels, log in, and (as the library grows) cast.
#include <QCoreApplication>

#include <cstdio>

#include "Commands.h"
#include "casting/CManageAll.h"
#include "core/QuitOnSignals.h"

namespace {

const char* const kHelp =
    "Usage: zelvanor-cli VERB [options]\n"
    "\n"
    "Every verb prints one JSON object per line on standard output.\n"
    "\n"
    "  discover [--seconds N]\n"
    "      Listen N seconds (default 3) for panels on the LAN; one line per panel\n"
    "      found, updated or gone: name, key, code, address, port.\n"
    "\n"
    "  login --code CODE [--address IP[:PORT]] [--passcode-server HOST:PORT[#KEYID][,...]] [--hold SECONDS] [--reconnect]\n"
    "  login --address IP[:PORT] [--key KEY] [--hold SECONDS] [--reconnect]\n"
    "      Log in to a panel by its connect code (4 characters: a passcode resolved\n"
    "      through the passcode service, whose key is pinned on first use or given\n"
    "      as #KEYID; with --address that panel is tried first) or, without a code,\n"
    "      by its address, as picked from the discovery list (the panel then lets\n"
    "      this PC in by its rule: known, approve, open). Prints {\"event\":\"login\",...} describing the panel and\n"
    "      exits 0; on failure prints the error code in hex with its text and exits 1.\n"
    "      --hold keeps the session that long (0: until standard input closes),\n"
    "      printing session events; --reconnect lets the watchdog reconnect a\n"
    "      dropped link.\n"
    "\n"
    "  cast (--code CODE [--address IP[:PORT]] | --address IP[:PORT]) [--window ID] [--seconds N]\n"
    "       [--protocol udp|tcp|brx] [--reconnect] [--dump h264,yuv,rgb,rgb-after-yuv,rtp] [--time-log]\n"
    "       [--cycles N]\n"
    "      Log in and cast this display's screen, or one X11 window, for N seconds\n"
    "      (default 10) over the given transport (default brx: SRT, encrypted).\n"
    "      Prints {\"event\":\"cast\",\"result\":\"started\"|\"waiting\"|\"failed\"},\n"
    "      then the session's events (statistics, touches from the panel, ...).\n"
    "      Lines on standard input steer the cast: pause, resume, voice on,\n"
    "      voice off, control on, control off, stop. --cycles repeats log-in,\n"
    "      cast and log-out N times (a {\"event\":\"cycle\",\"n\":I} line after each).\n"
    "      --dump writes those streams\n"
    "      under <home>/Zelvanor/Zelvanor/Logs/dump/ (H.264 as a playable Annex B\n"
    "      file); --time-log writes each frame's stage times beside the logs.\n"
    "\n"
    "  reverse (--code CODE [--address IP[:PORT]] | --address IP[:PORT]) [--control] [--voice]\n"
    "       [--seconds N] [--snapshot FILE.jpg] [--click X,Y] [--window-size WxH]\n"
    "      Log in and show the panel's screen in a window of this display for N\n"
    "      seconds (default 10). Prints {\"event\":\"reverse\",\"result\":...},\n"
    "      first-picture, the session's events, and at the end the snapshot.\n"
    "      --control asks to operate the panel; --click clicks at that pixel of\n"
    "      the window once the picture shows. Lines on standard input: control on,\n"
    "      control off, voice on, voice off, home, back, key-frame, click X,Y,\n"
    "      snapshot PATH, corrupt, stop.\n"
    "\n"
    "  file (--code CODE [--address IP[:PORT]] | --address IP[:PORT]) PATH [--seconds N] [--info]\n"
    "       [--volume V] [--seek S] [--pause-at S] [--rotate D] [--scale P] [--translate DX,DY]\n"
    "      Log in and let the panel play a picture, video or sound file, read from\n"
    "      this PC as it plays. Prints {\"event\":\"file\",\"result\":\"started\"|\"failed\"},\n"
    "      the session's events (a refusal or the end of the cast with its reason)\n"
    "      and, with --info, the panel's play info every second. The options act\n"
    "      once the file plays; JSON lines on standard input steer it later:\n"
    "      {\"cmd\":\"pause\"|\"resume\"|\"info\"|\"stop\"}, {\"cmd\":\"seek\",\"seconds\":S},\n"
    "      {\"cmd\":\"volume\",\"value\":V}, {\"cmd\":\"rotate\",\"degrees\":D},\n"
    "      {\"cmd\":\"scale\",\"percent\":P}, {\"cmd\":\"translate\",\"dx\":X,\"dy\":Y},\n"
    "      {\"cmd\":\"file\",\"path\":\"...\"}. Ends when stdin closes (or after N seconds).\n"
    "\n"
    "  windows\n"
    "      The windows of this X11 display that can be cast, one line each:\n"
    "      id (for cast --window), name, x, y, width, height, minimized, front.\n"
    "\n"
    "  forget --panel NAME\n"
    "      Forget the key this PC pinned for the panel NAME (after the panel was\n"
    "      reinstalled); the next log-in with its code pins the new key.\n"
    "\n"
    "  settings get [KEY]\n"
    "  settings set KEY [VALUE]\n"
    "      Read one setting (or all) or change one, under the same rules as the\n"
    "      client's settings windows; prints {\"event\":\"setting\",\"key\":...,\"value\":...}\n"
    "      or {\"event\":\"error\",...} and exits 1. Keys: HostName, ServerIP, ServerPort,\n"
    "      ShortcutIP, ProType (cast video: 0 udp, 1 tcp, 2 brx), MouseProType,\n"
    "      ReverseProType, ShareProType, ShareReverseProType (0 udp, 1 tcp), CodingMode\n"
    "      (1: software encoders first), ShowBitRate, ShowDelay, ShowFrameRate,\n"
    "      ShowLossFraction, StartOrStopScreenShortcut, PauseScreenShortcut, ...\n"
    "\n"
    "  nettest [--server HOST] [--address IP] [--port N] [--samples N]\n"
    "      The network test: one {\"event\":\"address\"} line per usable local address\n"
    "      with its gateway, N delay samples (default 3) to the first gateway and to\n"
    "      the server (default: the passcode server setting) with their verdicts,\n"
    "      and with --address whether that panel's TCP port (default 47800) answers.\n"
    "  diagnostics [--out FILE]\n"
    "      What limits casting on this PC: one line per topic (display, encoder,\n"
    "      sound, network) with ok and text. --out saves the diagnostic bundle for\n"
    "      support (.tar.gz: logs, settings, these lines; never keys).\n"
    "\n"
    "  byom (--code CODE [--address IP[:PORT]] | --address IP[:PORT]) [--microphone]\n"
    "       [--camera] [--seconds N]\n"
    "      Borrow the panel's microphone (and camera) as devices of this PC for N\n"
    "      seconds (default 10): {\"event\":\"byom\",\"result\":\"started\",\"microphone\":\n"
    "      \"zelvanor_mic.monitor\",...}, {\"event\":\"byom-receiving\"} once its sound\n"
    "      arrives, then \"stopped\"; or \"failed\" with the reason and text (\"not\n"
    "      supported: ...\" where this PC cannot host them) and exit 1.\n"
    "\n"
    "  --help\n"
    "      This text.\n";

}  // namespace

int main(int argc, char* argv[]) {
    zv::FlushOnSignals flushOnSignals;  // first: no thread exists yet
    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("zelvanor-cli"));
    QStringList arguments = QCoreApplication::arguments();
    const QString verb = arguments.size() > 1 ? arguments.at(1) : QString();
    if (verb.isEmpty() || verb == QLatin1String("--help") || verb == QLatin1String("-h") ||
        verb == QLatin1String("help")) {
        std::fputs(kHelp, verb.isEmpty() ? stderr : stdout);
        return verb.isEmpty() ? 2 : 0;
    }
    arguments.removeAt(1);  // the parsers see "program --options"

    CManageAll* library = CManageAll::getInstance();
    library->initLogOut(nullptr, true);
    int code = 2;
    if (verb == QLatin1String("discover")) {
        code = cli::runDiscover(arguments);
    } else if (verb == QLatin1String("login")) {
        code = cli::runLogin(arguments);
    } else if (verb == QLatin1String("cast")) {
        code = cli::runCast(arguments);
    } else if (verb == QLatin1String("reverse")) {
        code = cli::runReverse(arguments);
    } else if (verb == QLatin1String("file")) {
        code = cli::runFile(arguments);
    } else if (verb == QLatin1String("windows")) {
        code = cli::runWindows(arguments);
    } else if (verb == QLatin1String("forget")) {
        code = cli::runForget(arguments);
    } else if (verb == QLatin1String("settings")) {
        code = cli::runSettings(arguments);
    } else if (verb == QLatin1String("nettest")) {
        code = cli::runNetTest(arguments);
    } else if (verb == QLatin1String("diagnostics")) {
        code = cli::runDiagnostics(arguments);
    } else if (verb == QLatin1String("byom")) {
        code = cli::runByom(arguments);
    } else {
        std::fprintf(stderr, "zelvanor-cli: unknown verb '%s'\n\n%s", qPrintable(verb), kHelp);
    }
    library->destroy();
    return code;
}
