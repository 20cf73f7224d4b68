// The panel's side of a reverse screen: answers a PC's shareRequest (under
// the same access rule and approval as a cast), captures the panel's own
// screen and sound with the library's sender (damage-driven capture,
// encoder ranking, SRTP) and streams them to the PC, answers control
// requests and injects the PC's touches with XTest. One share at a time.
// Lives on the receiver's main thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <memory>

#include "proto/envelope.pb.h"

namespace zv::media {
class SenderPipeline;
}

namespace receiver {

class PanelInput;
class PanelService;
struct ClientInfo;

class ShareService : public QObject {
    Q_OBJECT
public:
    struct Settings {
        bool requireApproval = false;
        int deviceType = 1;
        int bitrateKbps = 8000;
        QString displayName;  // captured and operated; empty: $DISPLAY
        bool viewOnly = false;  // control is never granted ("nonsupport")
    };
    // Share ids come from the upper half of the id space, cast ids from the
    // lower: the two never share keys within one connection.
    static constexpr quint32 kFirstShareId = 0x80000001u;

    ShareService(Settings settings, PanelService* panel, QObject* parent = nullptr);
    ~ShareService() override;

    void stopShare(const QString& reason);
    bool isSharing() const { return m_sender != nullptr; }
    qint64 sharingClient() const { return m_client; }

signals:
    void shareStarted(qint64 client, int width, int height, const QString& encoder);
    void shareStopped(qint64 client, const QString& reason);
    void controlChanged(qint64 client, bool granted, const QString& holder);
    // A touch went to the screen at pixel (px, py).
    void inputInjected(const QString& type, int x, int y, int px, int py);
    void homeRequested();
    void keyFrameRequested(qint64 client);

private:
    void registerHandlers();
    void onRequest(qint64 client, const zv::wire::ShareRequest& request);
    void start(qint64 client, const zv::wire::ShareRequest& request);
    void onControl(qint64 client, bool on);
    void onInput(qint64 client, const zv::wire::ShareInput& input);
    void send(qint64 client, const google::protobuf::Message& body);
    void refuse(qint64 client, const QString& reason, const QString& text);
    QString hostOf(qint64 client) const;
    void teardown(const QString& reason, bool tellClient);

    Settings m_settings;
    PanelService* m_panel;
    std::unique_ptr<PanelInput> m_input;
    std::unique_ptr<zv::media::SenderPipeline> m_sender;
    qint64 m_client = 0;
    qint64 m_controlHolder = 0;  // the PC that operates the panel
    quint32 m_nextShareId = kFirstShareId;
};

}  // namespace receiver
