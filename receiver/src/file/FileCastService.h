// The panel's side of file casting: takes a PC's file_start, reads the file
// from that PC by ranges (FileFeed), plays video and sound (FilePlayer) or
// decodes a picture, answers with file_accepted or a refusal that says why,
// follows the PC's transport and picture controls, reports play info, and
// ends the file when the PC, its session or the player does. One file at a
// time. Widgets are not its business: it tells the view through signals and
// the frame sink. Lives on the receiver's main thread.
#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>

#include "proto/envelope.pb.h"

namespace receiver {

class FileFeed;
class FilePlayer;
class PanelService;

class FileCastService : public QObject {
    Q_OBJECT
public:
    static constexpr uint64_t kMaxPictureBytes = 64ull * 1024 * 1024;
    static constexpr int kInfoIntervalMs = 500;
    static constexpr int kStartTimeoutMs = 15000;

    explicit FileCastService(PanelService* panel, QObject* parent = nullptr);
    ~FileCastService() override;

    // Where video frames go, called on a streaming thread. Set before files come.
    using FrameSink = std::function<void(const QImage& frame)>;
    void setFrameSink(FrameSink sink) { m_frameSink = std::move(sink); }

    bool isActive() const { return m_fileId != 0; }
    qint64 client() const { return m_client; }
    // Ends the file from the panel's side.
    void stopFile(const QString& text);

signals:
    void fileStarted(qint64 client, const QString& name, int kind);
    // Playing (or shown): size 0x0 for sound, duration -1 when not known.
    void fileAccepted(qint64 client, const QString& name, int width, int height, qint64 durationMs, int audioStreams);
    void fileRefused(qint64 client, const QString& name, const QString& text);
    void fileStopped(qint64 client, const QString& reason, const QString& text);
    // The first picture of a file, or the first after a seek; steadyMs is
    // std::chrono::steady_clock's time then, for timing.
    void firstFrame(qint64 steadyMs, bool afterSeek);
    void pictureReady(const QImage& picture);
    void videoShown();
    void soundShown(const QString& name);
    void pictureRotated(int degrees);
    void pictureScaled(int percent);
    void pictureMoved(int dx, int dy);
    void playState(const QString& state, qint64 positionMs, qint64 durationMs, int volume);

private:
    void registerHandlers();
    bool fromCaster(qint64 client, uint32_t fileId) const { return isActive() && client == m_client && fileId == m_fileId; }
    void onStart(qint64 client, const zv::wire::FileStart& start);
    void onPictureBytes(const QByteArray& bytes);
    void accept(int width, int height, int64_t durationMs);
    // Tells the PC (and the status line) why its file does not play.
    void refuse(qint64 client, uint32_t fileId, const QString& name, const QString& reason, const QString& text);
    void sendInfo();
    void send(const google::protobuf::Message& body);
    void onPlayerFailed(const QString& text);
    void teardown();

    PanelService* m_panel;
    FrameSink m_frameSink;
    qint64 m_client = 0;
    uint32_t m_fileId = 0;
    QString m_name;
    zv::wire::FileKind m_kind = zv::wire::FILE_KIND_UNSPECIFIED;
    bool m_accepted = false;
    bool m_picture = false;
    int m_volume = 100;
    FileFeed* m_feed = nullptr;
    std::unique_ptr<FilePlayer> m_player;
    QTimer m_infoTimer;
    QTimer m_startTimeout;
    QElapsedTimer m_startClock;
    std::atomic<bool> m_awaitFirstFrame{false};
    std::atomic<bool> m_seeking{false};
};

}  // namespace receiver
