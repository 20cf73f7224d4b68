// The keys of one cast as each side's media pipeline takes them, derived
// from the control connection's TLS exporter and the cast id the panel
// chose (KeySchedule.h): what the PC sends is the panel's receive key and
// the other way round; both derive the same SRT passphrase.
//
// Threads: pure functions (the exporter is called in the caller's thread).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "security/KeySchedule.h"

namespace zv::keys {

enum class CastSide { Pc, Panel };

struct CastKeys {
    std::vector<uint8_t> sendKey;     // kMediaKeyBytes + kMediaSaltBytes
    std::vector<uint8_t> receiveKey;  // likewise
    std::string srtPassphrase;        // base64, 32 characters
};

// nullopt when the exporter gives nothing (its connection has gone).
std::optional<CastKeys> castKeys(const Exporter& exporter, quint32 castId, CastSide side);

}  // namespace zv::keys
