// Plays one video or sound file with GStreamer's playbin: the bytes come
// from a FileFeed through an appsrc in random-access mode (the demuxer
// reads where it likes, so a seek far ahead does not wait for the bytes
// before it), decoding is whatever playbin picks (hardware decoders rank
// first where installed), pictures go to a frame callback at the file's own
// size, sound to the default audio output. Lives on the main thread; the
// frame callback runs on a streaming thread, prerolled/ended/failed are
// posted to the main thread.
#pragma once

#include <QImage>
#include <QObject>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

#include "media/GstHandles.h"
#include "media/PipelineSupport.h"

typedef struct _GstAppSrc GstAppSrc;
typedef struct _GstAppSink GstAppSink;

namespace receiver {

class FileFeed;

class FilePlayer : public QObject {
    Q_OBJECT
public:
    enum class State { Starting, Playing, Paused, Ended, Failed };
    using FrameSink = std::function<void(const QImage& frame)>;

    // Neither is owned; the feed must outlive the player.
    FilePlayer(FileFeed* feed, FrameSink frames, QObject* parent = nullptr);
    ~FilePlayer() override;

    // Builds the pipeline and prerolls; prerolled() or failed() follows.
    void start();
    void setPaused(bool paused);
    void seek(int64_t positionMs);
    void setVolume(int volume);  // 0..100

    State state() const { return m_state; }
    int volume() const { return m_volume; }
    int64_t positionMs() const;
    int64_t durationMs() const;
    QSize videoSize() const;
    int audioStreams() const;
    int videoStreams() const;

signals:
    void prerolled();
    void ended();
    // Emitted last by the player; the receiver may delete it.
    void failed(const QString& text);
    void stateChanged();

private:
    static void onSourceSetup(GstElement* playbin, GstElement* source, gpointer self);
    static void onNeedData(GstAppSrc* src, guint length, gpointer self);
    static gboolean onSeekData(GstAppSrc* src, guint64 offset, gpointer self);
    static GstFlowReturn onNewSample(GstAppSink* sink, gpointer self);
    void onMessage(GstMessage* message);
    void fail(const QString& text);

    FileFeed* m_feed;
    FrameSink m_frames;
    zv::media::ElementPtr m_playbin;
    zv::media::ElementPtr m_videoSink;
    zv::media::BusForwarder m_bus;
    zv::media::WarningLimiter m_warnings;
    std::atomic<uint64_t> m_offset{0};  // where the appsrc reads next
    State m_state = State::Starting;
    bool m_wantPaused = false;
    int m_volume = 100;
    std::atomic<int> m_frameWidth{0}, m_frameHeight{0};
};

}  // namespace receiver
