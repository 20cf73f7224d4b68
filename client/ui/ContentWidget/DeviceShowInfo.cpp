#include "ui/ContentWidget/DeviceShowInfo.h"

#include <cstring>

namespace qorquicomponents {

namespace {
template <size_t N>
QString text(const char (&field)[N]) {
    return QString::fromUtf8(field, static_cast<int>(strnlen(field, N)));
}
}  // namespace

DeviceShowInfo DeviceShowInfo::fromRecord(const KLUF_DEVICE_INFO& record) {
    DeviceShowInfo show;
    show.info = text(record.szInfo);
    show.detail = text(record.szDetail);
    show.value = record.nValue;
    show.deviceName = text(record.szDeviceName);
    show.deviceKey = text(record.szDeviceKey);
    show.connectCode = text(record.szConnectCode);
    return show;
}

}  // namespace qorquicomponents
