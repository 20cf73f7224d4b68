// What limits casting on this PC, for the mirroring check window, the
// diagnostic bundle and `zelvanor-cli diagnostics`: the display system
// (Wayland or X11), the H.264 encoder GStreamer offers, the sound server and
// the network.
#pragma once

#include <string>
#include <vector>

namespace zv {

struct CastingCondition {
    std::string topic;  // "display", "encoder", "sound", "network"
    std::string value;  // what was found, in words
    bool ok = false;    // false: this limits or prevents casting
};

std::vector<CastingCondition> collectCastingConditions();

// Whether a PulseAudio (or PipeWire) server can be reached: PULSE_SERVER
// names a remote one, or its socket exists. *where says which or why not.
bool soundServerPresent(std::string* where);

}  // namespace zv
