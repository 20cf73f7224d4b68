// A UDP port held open before a pipeline exists: the client names its RTCP
// port in castRequest, before the panel's answer tells it where to send the
// media. The bound socket is handed to the pipeline later, so no other
// program can take the port in between.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/GstHandles.h"

namespace zv::media {

class UdpPortReservation {
public:
    // Binds on all IPv4 addresses; port 0 picks a free one. Null and a
    // reason in *error when binding fails.
    static std::shared_ptr<UdpPortReservation> bind(uint16_t port, std::string* error = nullptr);

    uint16_t port() const { return m_port; }
    GSocket* socket() const { return m_socket.get(); }

private:
    UdpPortReservation() = default;
    SocketPtr m_socket;
    uint16_t m_port = 0;
};

// A UDP port that is free at the moment of asking (bound, read, released).
// For elements that bind themselves (srtsrc): another program may take it
// in between, which start() then reports.
uint16_t pickFreeUdpPort(std::string* error = nullptr);

}  // namespace zv::media
