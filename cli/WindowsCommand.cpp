// windows: one JSON line per window of this display that can be cast, as the
// client's window selection offers them.
#include <QJsonObject>

#include "Commands.h"
#include "JsonLines.h"
#include "ui/windowcapture/WindowCapture.h"

namespace cli {

int runWindows(const QStringList& /*arguments*/) {
    qorquicomponents::WindowCapture capture;
    if (!capture.hasDisplay()) {
        printLine({{QStringLiteral("event"), QStringLiteral("error")},
                   {QStringLiteral("text"), QStringLiteral("no X display (is DISPLAY set?)")}});
        return 1;
    }
    if (!capture.ewmhIsSupported()) {
        printLine({{QStringLiteral("event"), QStringLiteral("error")},
                   {QStringLiteral("text"), QStringLiteral("no EWMH window manager runs; windows cannot be listed")}});
        return 1;
    }
    for (const qorquicomponents::WindowScreenPreviewInfo& info : capture.getPreviewInfo()) {
        int width = 0, height = 0, x = 0, y = 0;
        capture.getWinPosAndSize(info.windowId, width, height, x, y);
        printLine({{QStringLiteral("event"), QStringLiteral("window")},
                   {QStringLiteral("id"), QString::number(info.windowId)},
                   {QStringLiteral("name"), info.name},
                   {QStringLiteral("x"), x},
                   {QStringLiteral("y"), y},
                   {QStringLiteral("width"), width},
                   {QStringLiteral("height"), height},
                   {QStringLiteral("minimized"), capture.isMinimized(info.windowId)},
                   {QStringLiteral("front"), capture.isFrontWindow(info.windowId)}});
    }
    return 0;
}

}  // namespace cli
