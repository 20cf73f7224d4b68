// Numbers of the wire protocol (docs/protocol.md) shared by the library, the
// receiver and the passcode service.
#pragma once

#include <QtGlobal>

namespace zv {

// The version this build speaks, and the oldest peer version it accepts.
constexpr int kProtocolVersion = 1;
constexpr int kMinProtocolVersion = 1;

constexpr quint16 kDefaultControlPort = 47800;   // TLS control channel
constexpr quint16 kDefaultPasscodePort = 47810;  // plain passcode service

// Largest payload of one frame (the CBOR map after the 4-byte length).
constexpr quint32 kMaxFrameBytes = 1024 * 1024;

constexpr int kHeartbeatIntervalMs = 1000;

// DNS-SD service type of a panel's control port.
constexpr char kServiceType[] = "_zelvanor._tcp";

}  // namespace zv
