// Output of the command-line tool: one JSON object per line on stdout.
#pragma once

#include <QJsonObject>

#include "casting/SessionRecords.h"

namespace cli {

void printLine(const QJsonObject& object);
// {"event": "error", "code": "0xF3201000", "text": ...}
void printError(unsigned long code);
QJsonObject panelJson(const KLUF_DEVICE_INFO& info);
QString hexCode(unsigned long code);

}  // namespace cli
