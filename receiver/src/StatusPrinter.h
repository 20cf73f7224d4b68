// The receiver's machine-readable status: one JSON object per line on
// standard output, each with an "event" field; the first is "ready".
#pragma once

#include <QJsonObject>
#include <QString>

namespace receiver {

class StatusPrinter {
public:
    // Writes {"event": event, ...fields} and flushes, so a reader sees it at once.
    static void print(const QString& event, QJsonObject fields = {});
};

}  // namespace receiver
