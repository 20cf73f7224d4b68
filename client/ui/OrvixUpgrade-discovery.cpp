// Discovery: panels found, changed or gone on the LAN, passed to the pages'
// code maps and counted in the bottom bar.
#include "ui/OrvixUpgrade.h"

#include <QLabel>

#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/RecordText.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

void OrvixUpgrade::notifyDevice(const KLUF_DEVICE_INFO& record, CodeState state, const QString& operation) {
    DeviceShowInfo info = DeviceShowInfo::fromRecord(record);
    const QString key = fieldText(record.szDeviceKey);
    m_screenPage->setDeviceConnectCode(key, info.detail, info.connectCode, state);
    m_connectPage->setDeviceConnectCode(key, info.detail, info.connectCode, state);
    emit signalDealWithKLUFDevice(info, operation);
}

void OrvixUpgrade::afterFindDeviceNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeAdd, QStringLiteral("add"));
}

void OrvixUpgrade::deviceUpdateNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeUpdate, QStringLiteral("update"));
}

void OrvixUpgrade::deviceOfflineNotify(const KLUF_DEVICE_INFO& record) {
    notifyDevice(record, CodeDelete, QStringLiteral("delete"));
}

void OrvixUpgrade::deviceComingNotify(const KLUF_DEVICE_INFO& record) {
    const DeviceShowInfo info = DeviceShowInfo::fromRecord(record);
    std::lock_guard<std::mutex> lock(m_deviceMapMutex);
    m_mapDevice.insert({fieldText(record.szDeviceKey), info});
}

void OrvixUpgrade::onDealWithKLUFDevice(DeviceShowInfo& info, QString operation) {
    if (operation == QLatin1String("add") || operation == QLatin1String("update")) {
        m_listedDevices[info.deviceKey] = info;
    } else {
        m_listedDevices.erase(info.deviceKey);
    }
    ui->deviceCountLab->setText(tr("Nearby screens: %1").arg(m_listedDevices.size()));
}

}  // namespace qorquicomponents
