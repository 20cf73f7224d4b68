#include "session/DeviceShareSession.h"

#include "casting/Log.h"
#include "media/LoopbackCamera.h"
#include "media/VirtualCamera.h"
#include "media/VirtualMicrophone.h"
#include "protocol/WireCodec.h"
#include "security/KeySchedule.h"
#include "session/ClientSession.h"

namespace zv {

namespace {

wire::Envelope deviceStop(const QString& reason) {
    wire::DeviceStop stop;
    stop.set_reason(reason.toStdString());
    return wrap(stop);
}

}  // namespace

DeviceShareSession::DeviceShareSession(ClientSession* session, QObject* parent)
    : QObject(parent), m_session(session) {
    m_answerTimeout.setSingleShot(true);
    connect(&m_answerTimeout, &QTimer::timeout, this, [this] {
        m_session->send(deviceStop(QStringLiteral("timeout")));
        fail(QStringLiteral("timeout"), QStringLiteral("the panel did not answer"));
    });
    using E = wire::Envelope;
    MessageDispatcher<>& d = m_session->dispatcher();
    d.on(E::kDeviceAccepted, [this](const E& e) { onAccepted(e.device_accepted()); });
    d.on(E::kDevicePending, [this](const E&) {
        if (m_state != State::Asking) return;
        ZV_LOG(INFO) << " the panel asks its user about our device request";
        m_answerTimeout.start(kPanelUserTimeoutMs);
    });
    d.on(E::kDeviceRefused, [this](const E& e) {
        if (m_state != State::Asking) return;
        fail(QString::fromStdString(e.device_refused().reason()), QString::fromStdString(e.device_refused().text()));
    });
    d.on(E::kDeviceStop, [this](const E& e) {
        if (m_state == State::Idle) return;
        ZV_LOG(INFO) << " the panel ended the sharing: " << e.device_stop().reason();
        if (m_state == State::Asking) {
            fail(QStringLiteral("busy"), QString::fromStdString(e.device_stop().reason()));
        } else {
            teardown();
        }
    });
    connect(m_session, &ClientSession::ended, this, [this] {
        if (m_state == State::Asking) fail(QStringLiteral("offline"), QStringLiteral("the session ended"));
        teardown();
    });
}

// The session may be gone already: the panel learns of the end from it.
DeviceShareSession::~DeviceShareSession() { teardown(); }

bool DeviceShareSession::receiving() const { return m_microphone && m_microphone->receiving(); }

void DeviceShareSession::request(bool microphone, bool camera, Done done) {
    if (m_state != State::Idle) stop(QStringLiteral("replaced"));
    m_done = std::move(done);
    if (!m_session->isLoggedIn()) {
        fail(QStringLiteral("offline"), QStringLiteral("not logged in to a panel"));
        return;
    }
    if (!microphone && !camera) {
        fail(QStringLiteral("nonsupport"), QStringLiteral("neither the microphone nor the camera was asked for"));
        return;
    }
    // The panel's camera needs a loopback device here, its microphone a sound server.
    m_cameraDevice = camera ? media::findLoopbackCamera() : std::string();
    if (camera && m_cameraDevice.empty()) {
        fail(QStringLiteral("notsupported"),
             QStringLiteral("not supported: this PC cannot host a virtual camera (the v4l2loopback module is not loaded)"));
        return;
    }
    if (!media::VirtualMicrophone::hostAvailable()) {
        fail(QStringLiteral("notsupported"),
             QStringLiteral("not supported: this PC cannot host a virtual microphone (no PulseAudio or PipeWire server)"));
        return;
    }
    m_microphone = std::make_unique<media::VirtualMicrophone>();
    std::string error;
    const uint16_t port = m_microphone->reservePort(&error);
    if (port == 0) {
        fail(QStringLiteral("busy"), QString::fromStdString(error));
        return;
    }
    wire::DeviceRequest ask;
    ask.set_microphone_port(port);
    if (camera) {
        m_camera = std::make_unique<media::VirtualCamera>();
        const uint16_t cameraPort = m_camera->reservePort(&error);
        if (cameraPort == 0) {
            fail(QStringLiteral("busy"), QString::fromStdString(error));
            return;
        }
        ask.set_camera_port(cameraPort);
    }
    m_state = State::Asking;
    m_session->send(wrap(ask));
    m_answerTimeout.start(kAnswerTimeoutMs);
    ZV_LOG(INFO) << " asked the panel for its " << (camera ? "camera and microphone" : "microphone") << ", port "
                 << port;
}

void DeviceShareSession::onAccepted(const wire::DeviceAccepted& accepted) {
    if (m_state != State::Asking) return;
    m_answerTimeout.stop();
    const auto key =
        keys::mediaKey(m_session->exporter(), accepted.device_id(), keys::MediaDirection::PanelToPc);
    if (!key || !accepted.microphone()) {
        m_session->send(deviceStop(QStringLiteral("no microphone")));
        fail(QStringLiteral("busy"), !key ? QStringLiteral("no keys for the devices")
                                          : QStringLiteral("the panel sends no microphone"));
        return;
    }
    std::vector<uint8_t> receiveKey(key->key.begin(), key->key.end());
    receiveKey.insert(receiveKey.end(), key->salt.begin(), key->salt.end());
    std::string error = m_microphone->start(receiveKey);
    if (error.empty() && m_camera && accepted.camera()) {
        const auto cameraKey =
            keys::mediaKey(m_session->exporter(), accepted.camera_id(), keys::MediaDirection::PanelToPc);
        std::vector<uint8_t> bytes;
        if (cameraKey && accepted.camera_id() != accepted.device_id()) {
            bytes.assign(cameraKey->key.begin(), cameraKey->key.end());
            bytes.insert(bytes.end(), cameraKey->salt.begin(), cameraKey->salt.end());
        }
        error = m_camera->start(bytes, m_cameraDevice);
    } else if (m_camera) {
        m_camera.reset();  // the panel lends no camera
    }
    if (!error.empty()) {
        m_session->send(deviceStop(QStringLiteral("virtual microphone failed")));
        fail(QStringLiteral("notsupported"), QStringLiteral("not supported: ") + QString::fromStdString(error));
        return;
    }
    m_state = State::Sharing;
    Outcome outcome;
    outcome.ok = true;
    outcome.microphone = true;
    outcome.camera = m_camera != nullptr;
    if (m_camera) outcome.cameraDevice = QString::fromStdString(m_cameraDevice);
    outcome.testTone = accepted.microphone_test_source();
    outcome.source = QLatin1String(media::VirtualMicrophone::kSinkName) + QStringLiteral(".monitor");
    ZV_LOG(INFO) << " the panel's microphone is " << outcome.source.toStdString();
    finish(outcome);
}

void DeviceShareSession::fail(const QString& reason, const QString& text) {
    ZV_LOG(WARNING) << " no camera or microphone sharing: " << text.toStdString();
    teardown();
    Outcome outcome;
    outcome.reason = reason;
    outcome.text = text;
    finish(outcome);
}

void DeviceShareSession::finish(const Outcome& outcome) {
    Done done = std::move(m_done);
    m_done = nullptr;
    if (done) done(outcome);
}

void DeviceShareSession::stop(const QString& reason) {
    if (m_state == State::Idle) return;
    if (m_session->hasLink()) m_session->send(deviceStop(reason));
    if (m_state == State::Asking) {
        fail(QStringLiteral("stopped"), reason);
        return;
    }
    teardown();
}

void DeviceShareSession::teardown() {
    m_answerTimeout.stop();
    m_state = State::Idle;
    if (m_microphone) m_microphone->stop();
    m_microphone.reset();
    if (m_camera) m_camera->stop();
    m_camera.reset();
}

}  // namespace zv
