#include "StatusPrinter.h"

#include <QJsonDocument>

#include <cstdio>
#include <mutex>

namespace receiver {

void StatusPrinter::print(const QString& event, QJsonObject fields) {
    static std::mutex mutex;
    fields.insert(QStringLiteral("event"), event);
    const QByteArray line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    std::lock_guard<std::mutex> lock(mutex);
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace receiver
