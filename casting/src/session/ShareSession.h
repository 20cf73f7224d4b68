// The PC's side of a reverse screen inside a session: asks the panel for its
// screen (shareRequest), receives the panel's encrypted stream and hands it
// to the client's stream callback as player packets (casting/Dexo.h), sends
// key-frame, voice, control and input requests, and turns the panel's share
// messages into exception events. Lives on the library's I/O thread.
#pragma once

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <mutex>

#include "casting/Callbacks.h"
#include "proto/envelope.pb.h"

namespace zv {

class ClientSession;
namespace media {
class ShareReceiver;
}

class ShareSession : public QObject {
    Q_OBJECT
public:
    using Raise = std::function<void(tagNotifyExceptionType_, const std::function<void(tagNotifyExceptionParams_&)>&)>;
    using RequestDone = std::function<void(ProjectOrShareReqResult result, uint32_t error)>;

    static constexpr int kAnswerTimeoutMs = 8000;
    static constexpr int kStallSeconds = 5;
    static constexpr int kKeyFrameGapMs = 200;  // repeated requests within this are one

    ShareSession(ClientSession* session, Raise raise, QObject* parent = nullptr);
    ~ShareSession() override;

    // Asks for the panel's screen; done runs once (SUCCESS, FAIL with an
    // error code or 0 when an exception event told why, WAIT_AUTHORIZATION
    // with 32810/32811 to follow). The stream callback is called on a
    // receiving thread with one packet per call until stop().
    void request(StreamDataCallback callback, void* user, bool voice, RequestDone done);
    void stop(const QString& reason);
    bool requestKeyFrame();
    bool setVoice(bool on);
    bool setControl(bool on);
    // A touch or key as the client's JSON text (checked by parseInput).
    bool sendInput(const wire::ShareInput& input);
    bool isSharing() const { return m_state == State::Sharing; }

    // The client's pushMouseJSON text:
    //   {"touchControl":{"id":1,"timestamp":T,"ctrlType":"touchDown","x":X,"y":Y}}
    // with ctrlType touchDown/touchMove/touchUp/home/back and x, y in 0..65535.
    // False (and *error) for anything else.
    static bool parseInput(const QByteArray& json, wire::ShareInput* input, QString* error);

private:
    enum class State { Idle, Asking, Waiting, Sharing };

    void registerHandlers();
    void onAccepted(const wire::ShareAccepted& accepted);
    void onRefused(const wire::ShareRefused& refused);
    void onPanelStop(const wire::ShareStop& stop);
    void onControlState(const wire::ShareControlState& state);
    void checkStalled();
    void send(const google::protobuf::Message& body);
    void finishRequest(ProjectOrShareReqResult result, uint32_t error);
    void teardown();

    ClientSession* m_session;
    Raise m_raise;
    State m_state = State::Idle;
    RequestDone m_done;
    QTimer m_answerTimeout;
    QTimer m_stallCheck;
    quint64 m_lastBytes = 0;
    int m_quietSeconds = 0;
    qint64 m_lastKeyFrameMs = 0;
    bool m_voice = false;
    std::unique_ptr<media::ShareReceiver> m_receiver;

    struct Delivery {
        std::mutex mutex;
        StreamDataCallback callback = nullptr;
        void* user = nullptr;
    };
    std::shared_ptr<Delivery> m_delivery = std::make_shared<Delivery>();
};

}  // namespace zv
