// The PC's side of camera and microphone sharing inside a session: makes the
// virtual microphone (a PulseAudio source), asks the panel for its devices
// with the microphone's port (DeviceRequest), and keys the microphone with
// the panel->PC key of the id the panel answers with. A camera is asked for
// only where a v4l2loopback device can host it (VirtualCamera feeds it). Lives on the library's
// I/O thread.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

#include "proto/envelope.pb.h"

namespace zv {

class ClientSession;
namespace media {
class VirtualMicrophone;
class VirtualCamera;
}

class DeviceShareSession : public QObject {
    Q_OBJECT
public:
    struct Outcome {
        bool ok = false;
        QString reason;  // on failure: "notsupported", "denied", "busy", "nonsupport", "timeout", "offline"
        QString text;    // for the user
        bool microphone = false;
        bool camera = false;
        bool testTone = false;  // the panel sends its test tone
        QString source;         // the PC's new source
        QString cameraDevice;   // the loopback device the panel's camera feeds
    };
    using Done = std::function<void(const Outcome&)>;

    static constexpr int kAnswerTimeoutMs = 8000;
    // Once the panel asks its user: a person decides.
    static constexpr int kPanelUserTimeoutMs = 120000;

    explicit DeviceShareSession(ClientSession* session, QObject* parent = nullptr);
    ~DeviceShareSession() override;

    // done runs once, on the I/O thread.
    void request(bool microphone, bool camera, Done done);
    void stop(const QString& reason);
    bool isSharing() const { return m_state == State::Sharing; }
    // Authentic packets came from the panel.
    bool receiving() const;

private:
    enum class State { Idle, Asking, Sharing };

    void onAccepted(const wire::DeviceAccepted& accepted);
    void fail(const QString& reason, const QString& text);
    void finish(const Outcome& outcome);
    void teardown();

    ClientSession* m_session;
    State m_state = State::Idle;
    Done m_done;
    QTimer m_answerTimeout;
    std::unique_ptr<media::VirtualMicrophone> m_microphone;
    std::unique_ptr<media::VirtualCamera> m_camera;
    std::string m_cameraDevice;
};

}  // namespace zv
