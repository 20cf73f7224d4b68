// Numbers of the wire protocol (docs/protocol.md) shared by the library, the
// receiver and the passcode service.
#pragma once

#include <QtGlobal>

namespace zv {

// The protocol version this build speaks, major.minor. Peers of another
// major do not talk (the panel refuses the hello); minors only add fields
// and messages, which older peers skip.
constexpr int kProtocolMajor = 2;
constexpr int kProtocolMinor = 0;
// What discovery announces as "ver": the major.
constexpr int kProtocolVersion = kProtocolMajor;

constexpr quint16 kDefaultControlPort = 47800;   // TLS control channel
constexpr quint16 kDefaultPasscodePort = 47810;  // plain passcode service

// Largest payload of one frame (the Envelope after the 4-byte length).
constexpr quint32 kMaxFrameBytes = 1024 * 1024;

constexpr int kHeartbeatIntervalMs = 1000;

// CastStop reason of a cast the panel ended because nothing came from the PC
// (no media, no heartbeats) for a while: the PC may ask for it again.
constexpr char kCastInterruptedReason[] = "interrupted";

// DNS-SD service type of a panel's control port.
constexpr char kServiceType[] = "_zelvanor._tcp";

}  // namespace zv
