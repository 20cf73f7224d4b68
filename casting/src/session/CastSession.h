// The PC's side of one cast inside a session: asks the panel (castRequest),
// starts the media sender on the panel's answer, feeds the PC's pointer to
// the panel at display rate, hands the panel's touches to the client, and
// turns the panel's cast messages into exception events. Lives on the
// library's I/O thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

#include "casting/Callbacks.h"
#include "proto/envelope.pb.h"

namespace zv {

class ClientSession;
namespace media {
class SenderPipeline;
}

struct CastOptions {
    VideoStreamSource source = VIDEO_SOURCE_SCREEN;
    int windowId = 0;                        // with VIDEO_SOURCE_WINDOW
    ProtocolType transport = PROTOCOL_UDP;  // SRTP over UDP: encrypted and the fastest
    bool audio = true;
    bool softwareEncoderPreferred = false;
    int width = 0, height = 0, fps = 30;     // 0: the screen's own size
    CaptureMouseCallback mouseCallback = nullptr;
    void* mouseUser = nullptr;
    ReverseControlCallback reverseCallback = nullptr;
    void* reverseUser = nullptr;
};

class CastSession : public QObject {
    Q_OBJECT
public:
    using Raise = std::function<void(tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&)>;
    using RequestDone = std::function<void(ProjectOrShareReqResult result, uint32_t error)>;

    static constexpr int kAnswerTimeoutMs = 8000;
    static constexpr int kCursorIntervalMs = 16;  // about the display's rate

    using ReportError = std::function<void(uint32_t code)>;

    CastSession(ClientSession* session, Raise raise, ReportError reportError, QObject* parent = nullptr);
    ~CastSession() override;

    // Asks for a cast; done runs once: SUCCESS when media flow, FAIL with an
    // error code (0 when an exception event already told why), or
    // WAIT_AUTHORIZATION when the panel's user is asked (the final answer
    // then arrives as exception 32810 or 32811).
    void request(const CastOptions& options, RequestDone done);
    void pause(bool paused);
    void stop(const QString& reason);
    // The watchdog's part: a cast the user still wants but that broke (its
    // sender failed, or the link was replaced) is asked for again with the
    // same options. done(true) when it runs again or none was wanted.
    void resume(std::function<void(bool)> done);
    bool wantsCast() const { return m_wantsCast; }
    bool setVoice(bool on);
    bool setControl(bool on);
    bool isCasting() const { return m_state == State::Casting; }
    bool isActive() const { return m_state != State::Idle; }

private:
    enum class State { Idle = 1, Asking, Waiting, Casting };

    void ask(const CastOptions& options, RequestDone done);
    void registerHandlers();
    void onPending();
    void onAccepted(const wire::CastAccepted& accepted);
    void onRefused(const wire::CastRefused& refused);
    void onStop(const wire::CastStop& stop);
    void onStats(const wire::CastStats& stats);
    void onControlState(const wire::CastControlState& control);
    void onTouch(const wire::Touch& touch);
    void send(const google::protobuf::Message& body);
    void onSenderError(const QString& error);
    void finishRequest(ProjectOrShareReqResult result, uint32_t error);
    void sendCursor();
    void teardown();

    ClientSession* m_session;
    Raise m_raise;
    ReportError m_reportError;
    State m_state = State::Idle;
    CastOptions m_options;
    RequestDone m_done;
    QTimer m_answerTimeout;
    QTimer m_cursorTimer;
    struct CursorState {
        int x = -1, y = -1;
        bool visible = false;
        bool operator==(const CursorState& o) const { return x == o.x && y == o.y && visible == o.visible; }
    };
    CursorState m_lastCursor;
    bool m_controlRequested = false;  // this PC's user switched touch control on
    bool m_controlGranted = false;
    bool m_wantsCast = false;  // from a granted request until the user, the panel or the session ends it
    bool m_paused = false;
    std::unique_ptr<media::SenderPipeline> m_sender;
};

}  // namespace zv
