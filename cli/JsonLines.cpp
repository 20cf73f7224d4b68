#include "JsonLines.h"

#include <QJsonDocument>

#include <cstdio>
#include <mutex>

#include "casting/ErrorCodes.h"

namespace cli {

void printLine(const QJsonObject& object) {
    static std::mutex mutex;  // callbacks print from library threads
    const QByteArray line = QJsonDocument(object).toJson(QJsonDocument::Compact);
    std::lock_guard<std::mutex> lock(mutex);
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

QString hexCode(unsigned long code) {
    return QStringLiteral("0x%1").arg(static_cast<qulonglong>(code), 8, 16, QLatin1Char('0')).toUpper().replace(
        QStringLiteral("0X"), QStringLiteral("0x"));
}

void printError(unsigned long code) {
    printLine({{QStringLiteral("event"), QStringLiteral("error")},
               {QStringLiteral("code"), hexCode(code)},
               {QStringLiteral("text"), QString::fromUtf8(zv_error::describe(static_cast<uint32_t>(code)))}});
}

QJsonObject panelJson(const KLUF_DEVICE_INFO& info) {
    return {{QStringLiteral("name"), QString::fromUtf8(info.szDeviceName)},
            {QStringLiteral("key"), QString::fromUtf8(info.szDeviceKey)},
            {QStringLiteral("code"), QString::fromUtf8(info.szConnectCode)},
            {QStringLiteral("address"), QString::fromUtf8(info.szDetail)},
            {QStringLiteral("port"), info.nValue},
            {QStringLiteral("version"), QString::fromUtf8(info.szInfo)}};
}

}  // namespace cli
