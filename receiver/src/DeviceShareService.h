// The panel's side of camera and microphone sharing: answers a PC's
// DeviceRequest by sending the panel's microphone (or a 440 Hz test tone
// where it has none) and, when asked, its camera (or a test picture) to the
// PC, each encrypted with the panel->PC key of an id of its own. Only a PC the panel already lets in without asking gets
// the devices: one that would need the panel user's approval is refused, as
// is every PC on a view-only panel. One PC at a time. Lives on the
// receiver's main thread.
#pragma once

#include <QObject>

#include <memory>

#include "proto/envelope.pb.h"

namespace zv::media {
class MicrophoneSender;
class CameraSender;
}

namespace receiver {

class PanelService;
struct ClientInfo;

class DeviceShareService : public QObject {
    Q_OBJECT
public:
    struct Settings {
        bool requireApproval = false;
        bool viewOnly = false;  // lends nothing ("nonsupport")
        bool testSources = false;  // the test tone even where a microphone exists
    };
    // Apart from cast ids (low half) and share ids (0x80000001 up).
    static constexpr quint32 kFirstDeviceId = 0xC0000001u;

    DeviceShareService(Settings settings, PanelService* panel, QObject* parent = nullptr);
    ~DeviceShareService() override;

    void stopSharing(const QString& reason);
    bool isSharing() const { return m_microphone != nullptr; }

signals:
    void devicesStarted(qint64 client, bool camera, bool testTone);
    void devicesRefused(qint64 client, const QString& reason, const QString& text);
    void devicesStopped(qint64 client, const QString& reason);

private:
    void onRequest(qint64 client, const zv::wire::DeviceRequest& request);
    // The PC may use the devices: start them.
    void begin(qint64 client, const zv::wire::DeviceRequest& request);
    void refuse(qint64 client, const QString& reason, const QString& text);
    void teardown(const QString& reason, bool tellClient);

    Settings m_settings;
    PanelService* m_panel;
    std::unique_ptr<zv::media::MicrophoneSender> m_microphone;
    std::unique_ptr<zv::media::CameraSender> m_camera;
    qint64 m_client = 0;
    quint32 m_nextId = kFirstDeviceId;
};

}  // namespace receiver
