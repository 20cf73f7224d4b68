// The panel's camera as a camera of this PC. The PC side (VirtualCamera)
// takes SRTP-protected H.264 over UDP, checked with the panel->PC media key,
// and writes the pictures into a v4l2loopback device with v4l2sink (meeting
// programs open that device); without a device path the pictures are only
// counted. The panel side (CameraSender) sends its camera (v4l2src) or, where
// it has none, a test picture (videotestsrc), encrypted with the same key.
//
// Each object owns its pipeline (GStreamer's threads, joined by stop());
// start() and stop() run on the owner's thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/GstHandles.h"
#include "media/PipelineSupport.h"
#include "media/SrtpKeying.h"

namespace zv::media {

class UdpPortReservation;

class VirtualCamera {
public:
    VirtualCamera() = default;
    ~VirtualCamera() { stop(); }
    VirtualCamera(const VirtualCamera&) = delete;
    VirtualCamera& operator=(const VirtualCamera&) = delete;

    // Binds the port the panel will send to; 0 and *error on failure.
    uint16_t reservePort(std::string* error);
    // Listens on the reserved port (else a new one) and feeds device
    // ("/dev/videoN"; empty: nowhere). "" or why not.
    std::string start(const std::vector<uint8_t>& receiveKey, const std::string& device);
    void stop();
    uint16_t port() const { return m_port; }
    bool receiving() const { return m_decoder.anyAuthentic(); }
    // Pictures decoded since start().
    uint64_t pictures() const { return m_pictures->load(); }

private:
    ElementPtr m_pipeline;
    SrtpDecoder m_decoder;
    BusForwarder m_bus;
    std::shared_ptr<UdpPortReservation> m_reservation;
    std::shared_ptr<std::atomic<uint64_t>> m_pictures = std::make_shared<std::atomic<uint64_t>>(0);
    uint16_t m_port = 0;
};

class CameraSender {
public:
    CameraSender() = default;
    ~CameraSender() { stop(); }
    CameraSender(const CameraSender&) = delete;
    CameraSender& operator=(const CameraSender&) = delete;

    // A capture device of this machine ("/dev/videoN", not a loopback one); empty when none.
    static std::string findCamera(const std::string& devFolder = "/dev");
    // device empty: the test picture.
    std::string start(const std::string& host, uint16_t port, const std::vector<uint8_t>& sendKey,
                      const std::string& device);
    void stop();

private:
    ElementPtr m_pipeline;
    BusForwarder m_bus;
};

}  // namespace zv::media
