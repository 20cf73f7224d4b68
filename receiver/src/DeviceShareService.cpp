#include "DeviceShareService.h"

#include <QPointer>

#include "ApprovalGate.h"
#include "PanelService.h"
#include "casting/Log.h"
#include "media/VirtualCamera.h"
#include "media/VirtualMicrophone.h"
#include "protocol/WireCodec.h"
#include "security/KeySchedule.h"

namespace receiver {

DeviceShareService::DeviceShareService(Settings settings, PanelService* panel, QObject* parent)
    : QObject(parent), m_settings(settings), m_panel(panel) {
    using E = zv::wire::Envelope;
    zv::MessageDispatcher<qint64>& d = m_panel->dispatcher();
    d.on(E::kDeviceRequest, [this](const E& e, qint64 client) { onRequest(client, e.device_request()); });
    d.on(E::kDeviceStop, [this](const E&, qint64 client) {
        m_panel->approvals().withdraw(client, ApprovalGate::Kind::Devices);
        if (client == m_client) teardown(QStringLiteral("stopped by the PC"), false);
    });
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        if (client.id == m_client) teardown(QStringLiteral("the PC left"), false);
    });
}

DeviceShareService::~DeviceShareService() { teardown(QStringLiteral("panel closing"), true); }

void DeviceShareService::refuse(qint64 client, const QString& reason, const QString& text) {
    zv::wire::DeviceRefused refused;
    refused.set_reason(reason.toStdString());
    refused.set_text(text.toStdString());
    m_panel->sendToClient(client, zv::wrap(refused));
    ZV_LOG(INFO) << " devices refused to client " << client << ": " << text.toStdString();
    emit devicesRefused(client, reason, text);
}

void DeviceShareService::onRequest(qint64 client, const zv::wire::DeviceRequest& request) {
    if (m_settings.viewOnly) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("this panel does not share its camera or microphone"));
        return;
    }
    const QPointer<DeviceShareService> self(this);
    const bool known = m_panel->approvals().admit(
        client, ApprovalGate::Kind::Devices, m_settings.requireApproval, [self, client, request](bool approved) {
            if (self.isNull()) return;
            if (approved) {
                self->begin(client, request);
            } else {
                self->refuse(client, QStringLiteral("denied"), QStringLiteral("the panel's user did not allow it"));
            }
        });
    if (!known) {
        m_panel->sendToClient(client, zv::wrap(zv::wire::DevicePending()));
        return;
    }
    begin(client, request);
}

void DeviceShareService::begin(qint64 client, const zv::wire::DeviceRequest& request) {
    if (isSharing() && m_client != client) {
        refuse(client, QStringLiteral("busy"), QStringLiteral("another PC is using this panel's microphone"));
        return;
    }
    if (isSharing()) teardown(QStringLiteral("the PC starts anew"), false);
    auto inRange = [](int port) { return port > 0 && port <= 65535; };
    // The camera travels only beside the microphone.
    if (!inRange(request.microphone_port()) || (request.camera_port() != 0 && !inRange(request.camera_port()))) {
        refuse(client, QStringLiteral("nonsupport"), QStringLiteral("no valid port for the microphone or camera"));
        return;
    }
    const std::string host = m_panel->clientAddress(client).toString().toStdString();
    auto sendKeyOf = [this, client](quint32 id) {
        std::vector<uint8_t> bytes;
        const auto key = zv::keys::mediaKey(m_panel->exporter(client), id, zv::keys::MediaDirection::PanelToPc);
        if (!key) return bytes;
        bytes.assign(key->key.begin(), key->key.end());
        bytes.insert(bytes.end(), key->salt.begin(), key->salt.end());
        return bytes;
    };
    const quint32 id = m_nextId++;
    const bool testTone = m_settings.testSources || !zv::media::VirtualMicrophone::hostAvailable();
    auto microphone = std::make_unique<zv::media::MicrophoneSender>();
    std::string error = microphone->start(host, static_cast<uint16_t>(request.microphone_port()), sendKeyOf(id), testTone);
    std::unique_ptr<zv::media::CameraSender> camera;
    quint32 cameraId = 0;
    std::string cameraDevice;
    if (error.empty() && request.camera_port() != 0) {
        cameraId = m_nextId++;
        cameraDevice = m_settings.testSources ? std::string() : zv::media::CameraSender::findCamera();
        camera = std::make_unique<zv::media::CameraSender>();
        error = camera->start(host, static_cast<uint16_t>(request.camera_port()), sendKeyOf(cameraId), cameraDevice);
    }
    if (!error.empty()) {
        ZV_LOG(ERROR) << " cannot send the devices: " << error;
        refuse(client, QStringLiteral("busy"), QString::fromStdString(error));
        return;
    }
    m_microphone = std::move(microphone);
    m_camera = std::move(camera);
    m_client = client;
    zv::wire::DeviceAccepted accepted;
    accepted.set_device_id(id);
    accepted.set_microphone(true);
    accepted.set_camera(m_camera != nullptr);
    accepted.set_camera_id(cameraId);
    accepted.set_microphone_test_source(testTone);
    accepted.set_camera_test_source(m_camera != nullptr && cameraDevice.empty());
    m_panel->sendToClient(client, zv::wrap(accepted));
    ZV_LOG(INFO) << " client " << client << " gets this panel's " << (testTone ? "test tone" : "microphone")
                 << (m_camera ? (cameraDevice.empty() ? " and test picture" : " and camera") : "");
    emit devicesStarted(client, m_camera != nullptr, testTone);
}

void DeviceShareService::stopSharing(const QString& reason) { teardown(reason, true); }

void DeviceShareService::teardown(const QString& reason, bool tellClient) {
    if (!m_microphone) return;
    const qint64 client = m_client;
    if (tellClient) {
        zv::wire::DeviceStop stop;
        stop.set_reason(reason.toStdString());
        m_panel->sendToClient(client, zv::wrap(stop));
    }
    m_microphone->stop();
    m_microphone.reset();
    if (m_camera) m_camera->stop();
    m_camera.reset();
    m_client = 0;
    ZV_LOG(INFO) << " devices of client " << client << " ended: " << reason.toStdString();
    emit devicesStopped(client, reason);
}

}  // namespace receiver
