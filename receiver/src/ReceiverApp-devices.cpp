// The receiver's camera and microphone sharing: DeviceShareService and its
// status lines.
#include "DeviceShareService.h"
#include "ReceiverApp.h"
#include "StatusPrinter.h"

namespace receiver {

void ReceiverApp::startDeviceSharing() {
    DeviceShareService::Settings settings;
    settings.requireApproval = m_options.requireApproval;
    settings.viewOnly = m_options.viewOnly;
    settings.testSources = m_options.testDevices;
    m_devices = new DeviceShareService(settings, m_service);
    connect(m_devices, &DeviceShareService::devicesStarted, this, [](qint64 client, bool camera, bool testTone) {
        StatusPrinter::print(QStringLiteral("devices-started"), {{QStringLiteral("client"), client},
                                                                 {QStringLiteral("camera"), camera},
                                                                 {QStringLiteral("testTone"), testTone}});
    });
    connect(m_devices, &DeviceShareService::devicesRefused, this,
            [](qint64 client, const QString& reason, const QString& text) {
                StatusPrinter::print(QStringLiteral("devices-refused"), {{QStringLiteral("client"), client},
                                                                         {QStringLiteral("reason"), reason},
                                                                         {QStringLiteral("text"), text}});
            });
    connect(m_devices, &DeviceShareService::devicesStopped, this, [](qint64 client, const QString& reason) {
        StatusPrinter::print(QStringLiteral("devices-stopped"),
                             {{QStringLiteral("client"), client}, {QStringLiteral("reason"), reason}});
    });
}

}  // namespace receiver
