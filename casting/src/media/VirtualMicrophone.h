// The panel's microphone as a microphone of this PC. The PC side
// (VirtualMicrophone) makes a PulseAudio null sink "zelvanor_mic" (its
// monitor, "zelvanor_mic.monitor", described "Zelvanor Microphone", is the
// source meeting programs pick) and plays into it what arrives: SRTP-protected
// Opus over UDP, checked with the panel->PC media key. The panel side
// (MicrophoneSender) sends its microphone (pulsesrc), or a 440 Hz test tone
// where it has none, encrypted with the same key.
//
// Each object owns its pipeline (GStreamer's threads, joined by stop());
// start() and stop() run on the owner's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "media/GstHandles.h"
#include "media/PipelineSupport.h"
#include "media/SrtpKeying.h"

namespace zv::media {

class UdpPortReservation;

class VirtualMicrophone {
public:
    static constexpr const char* kSinkName = "zelvanor_mic";

    VirtualMicrophone() = default;
    ~VirtualMicrophone() { stop(); }
    VirtualMicrophone(const VirtualMicrophone&) = delete;
    VirtualMicrophone& operator=(const VirtualMicrophone&) = delete;

    // Whether a sound server takes a new source here (pactl reaches one).
    static bool hostAvailable();
    // Binds the port the panel will send to before the key is known (the
    // panel picks the key's id when it answers); 0 and *error on failure.
    uint16_t reservePort(std::string* error);
    // Makes the device and listens (on the reserved port, else a new one);
    // "" or why not. port() then tells where the panel sends to.
    std::string start(const std::vector<uint8_t>& receiveKey);
    void stop();
    uint16_t port() const { return m_port; }
    // Packets that passed the SRTP check.
    bool receiving() const { return m_decoder.anyAuthentic(); }

private:
    ElementPtr m_pipeline;
    SrtpDecoder m_decoder;
    BusForwarder m_bus;
    int m_moduleIndex = -1;
    std::shared_ptr<UdpPortReservation> m_reservation;
    uint16_t m_port = 0;
};

class MicrophoneSender {
public:
    MicrophoneSender() = default;
    ~MicrophoneSender() { stop(); }
    MicrophoneSender(const MicrophoneSender&) = delete;
    MicrophoneSender& operator=(const MicrophoneSender&) = delete;

    // testTone: send the 440 Hz tone instead of the microphone.
    std::string start(const std::string& host, uint16_t port, const std::vector<uint8_t>& sendKey, bool testTone);
    void stop();

private:
    ElementPtr m_pipeline;
    BusForwarder m_bus;
};

}  // namespace zv::media
