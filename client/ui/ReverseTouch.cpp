#include "ui/ReverseTouch.h"

#include <QDateTime>

namespace qorquicomponents {
namespace reverse_touch {

int toPanelUnits(int globalPos, int windowPos, int frameOffset, int extent) {
    if (extent <= 0) return 0;
    const long long inside = static_cast<long long>(globalPos - windowPos) - frameOffset;
    return static_cast<int>(inside * 65535 / extent);
}

const char* touchTypeFor(QEvent::Type type) {
    switch (type) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        return "touchDown";
    case QEvent::MouseButtonRelease:
        return "touchUp";
    case QEvent::MouseMove:
        return "touchMove";
    default:
        return nullptr;
    }
}

QByteArray touchControlJson(const char* ctrlType, int x, int y, long long timestampMs) {
    QByteArray json;
    json.reserve(128);
    json += "{\n\"touchControl\":\n";
    json += "{\n";
    json += "\t\"id\":" + QByteArray::number(1) + ",\n";
    json += "\t\"timestamp\":" + QByteArray::number(timestampMs) + ",\n";
    json += "\t\"ctrlType\":\"" + QByteArray(ctrlType) + "\",\n";
    json += "\t\"x\":" + QByteArray::number(x) + ",\n";
    json += "\t\"y\":" + QByteArray::number(y) + "\n";
    json += "}\n}\n";
    return json;
}

QByteArray touchControlJsonNow(const char* ctrlType, int x, int y) {
    return touchControlJson(ctrlType, x, y, QDateTime::currentMSecsSinceEpoch());
}

}  // namespace reverse_touch
}  // namespace qorquicomponents
