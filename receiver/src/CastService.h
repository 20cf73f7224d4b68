// The panel's side of casting: answers a client's castRequest (asking the
// panel's user first when approval is required), runs the receiving media
// pipeline on the ports it announces, reports the stream's statistics back
// every second, carries the PC's pointer to the view and the panel's touches
// to the PC. One cast at a time. Lives on the receiver's main thread.
#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

#include "proto/envelope.pb.h"

namespace zv::media {
class ReceiverPipeline;
}

namespace receiver {

class PanelService;
struct ClientInfo;

struct CastStatus {
    qint64 client = 0;
    QString transport;
    quint64 framesDecoded = 0;
    int fps = 0;
    int bitrateKbps = 0;
    int delayMs = 0;
    int lossPercent = 0;
    bool paused = false;
    quint64 packetsRejected = 0;    // failed authentication: not this cast's key
    quint64 packetsFromOthers = 0;  // came from another address than the PC's
};

class CastService : public QObject {
    Q_OBJECT
public:
    struct Settings {
        bool requireApproval = false;
        int latencyMs = 30;
        int screenWidth = 1920;
        int screenHeight = 1080;
    };

    static constexpr int kStallSeconds = 5;
    // A cast whose PC sent neither media nor anything on its control link
    // (heartbeats included) for this long is ended as interrupted: a PC that
    // vanished must not hold the panel. Its session stays resumable.
    static constexpr int kInterruptAfterMs = 5000;

    CastService(Settings settings, PanelService* panel, QObject* parent = nullptr);
    ~CastService() override;

    // A touch or mouse action on the picture, in 0..65535 units; sent only
    // while the caster has been granted control.
    void touch(const QString& type, int x, int y);
    // Ends the running cast from the panel's side.
    void stopCast(const QString& reason);

    // Where decoded pictures go, called on the pipeline's streaming thread
    // (the view's presentFrame is made for that). Set before casts start.
    using FrameSink = std::function<void(const QImage& frame)>;
    void setFrameSink(FrameSink sink) { m_frameSink = std::move(sink); }

    // Draw casts into this X window instead (the view's native surface; the
    // sink scales): pictureSize gets the stream's size on a pipeline thread.
    // Set before casts start. windowResized(): the window changed size.
    void setVideoWindow(unsigned long window, std::function<void(int width, int height)> pictureSize) {
        m_videoWindow = window;
        m_pictureSize = std::move(pictureSize);
    }
    void windowResized();

    bool isCasting() const { return m_pipeline != nullptr; }
    const CastStatus& status() const { return m_status; }
    QImage latestFrame() const;

signals:
    void castStarted(const receiver::CastStatus& status);
    void castStopped(qint64 client, const QString& reason);
    // Before castStopped, when the cast ended because its PC went silent.
    void castInterrupted(qint64 client, int quietSeconds);
    // The first picture of a cast is decoded; steadyMs is the monotonic
    // clock (std::chrono::steady_clock) at that moment, for start-up timing.
    void firstFrame(qint64 client, qint64 steadyMs);
    void statistics(const receiver::CastStatus& status);
    void cursorMoved(int x, int y, bool visible);
    void pausedChanged(bool paused);
    void controlChanged(bool granted);

private:
    void registerHandlers();
    void onRequest(qint64 client, const zv::wire::CastRequest& request);
    void onPause(qint64 client, bool paused);
    void onVoice(qint64 client, bool on);
    void onControl(qint64 client, bool on);
    void onCursor(qint64 client, const zv::wire::Cursor& cursor);
    void start(qint64 client, const zv::wire::CastRequest& request);
    bool fromCaster(qint64 client) const { return isCasting() && client == m_status.client; }
    void send(qint64 client, const google::protobuf::Message& body);
    void refuse(qint64 client, const QString& reason, const QString& text);
    void checkCasterHeard();
    void teardown(const QString& reason, bool tellClient);

    Settings m_settings;
    PanelService* m_panel;
    FrameSink m_frameSink;
    unsigned long m_videoWindow = 0;
    std::function<void(int width, int height)> m_pictureSize;
    std::atomic<bool> m_awaitingFirstFrame{false};
    std::unique_ptr<zv::media::ReceiverPipeline> m_pipeline;
    CastStatus m_status;
    bool m_controlGranted = false;
    quint32 m_nextCastId = 1;
    QTimer m_casterCheck;           // every second while casting
    QElapsedTimer m_mediaHeard;     // since media last arrived (or the cast began)
    quint64 m_bytesAtLastStats = 0;
};

}  // namespace receiver
