// The PC's side of a file cast inside a session: tells the panel which file
// to play, answers the panel's range reads from the file, carries the
// transport and picture controls, keeps the panel's last play info for the
// caller, and ends the cast with a notice when the file vanishes. Lives on
// the library's I/O thread; info() and waitForInfo() may be called from any
// thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "casting/Callbacks.h"
#include "proto/envelope.pb.h"
#include "session/FileSource.h"

namespace zv {

class ClientSession;

class FileCastSession : public QObject {
    Q_OBJECT
public:
    using Raise = std::function<void(tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&)>;

    // How often the file is checked for deletion while nothing is read.
    static constexpr int kWatchIntervalMs = 500;
    // Largest range one read may ask for.
    static constexpr uint32_t kMaxReadBytes = 512 * 1024;

    struct Info {
        int positionMs = 0;
        int durationMs = 0;
        CastFileState state = CAST_FILE_IDLE;
        int volume = 100;
        uint64_t generation = 0;  // counts answers of the panel
    };

    using ReportError = std::function<void(uint32_t code)>;

    FileCastSession(ClientSession* session, Raise raise, ReportError reportError, QObject* parent = nullptr);
    ~FileCastSession() override;

    // Sends the file to the panel in place of the one it shows; false and
    // *error when the file cannot be opened or there is no session. The
    // panel's refusal arrives later as exception 32797 with its text.
    bool start(const QString& path, QString* error);
    // Ends the file cast (the user stopped); harmless without one.
    void stop(const QString& reason);
    bool isActive() const { return m_fileId != 0; }
    uint32_t fileId() const { return m_fileId; }

    // Controls; false when no file is cast.
    bool pause(bool paused);
    bool seek(int seconds);
    bool setVolume(int volume);
    bool rotate(int degrees);
    bool scale(int percent);
    bool translate(int dx, int dy);
    // Asks the panel for its play info now (answered into info()).
    bool requestInfo();

    // Any thread: the last info; waitForInfo waits until one newer than
    // generation arrives, at most timeout.
    Info info() const;
    Info waitForInfo(uint64_t generation, std::chrono::milliseconds timeout) const;

private:
    void registerHandlers();
    void send(const google::protobuf::Message& body);
    void onAccepted(const wire::FileAccepted& accepted);
    void onRefused(const wire::FileRefused& refused);
    void onPending(const wire::FilePending& pending);
    void onRead(const wire::FileRead& read);
    void onInfo(const wire::FileInfo& info);
    void onEnd(const wire::FileEnd& end);
    void vanished(const QString& why);
    void finish(CastFileState state);
    void setInfo(const std::function<void(Info&)>& edit);

    ClientSession* m_session;
    Raise m_raise;
    ReportError m_reportError;
    bool m_waitingForPanelUser = false;  // the panel asks its user about this PC
    FileSource m_source;
    uint32_t m_fileId = 0;      // the file the panel plays now; 0: none
    uint32_t m_nextFileId = 1;
    QTimer m_watch;
    uint64_t m_bytesServed = 0;

    mutable std::mutex m_infoMutex;
    mutable std::condition_variable m_infoChanged;
    Info m_info;
};

}  // namespace zv
