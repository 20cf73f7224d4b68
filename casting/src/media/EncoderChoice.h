// Which H.264 encoder a cast uses: a ranked table of the encoders GStreamer
// can actually make on this machine.
//
// Ranking: hardware first (vaapih264enc, vah264enc; only when a /dev/dri
// render node exists and the element reaches READY, i.e. finds a VA
// display), then x264enc, then openh264enc. With SoftwarePreferred the
// software encoders come first and hardware stays as the last resort.
#pragma once

#include <string>
#include <vector>

#include "media/GstHandles.h"
#include "media/MediaTypes.h"

namespace zv::media {

struct EncoderCandidate {
    std::string element;  // GStreamer factory name
    bool hardware = false;
};

struct EncoderSettings {
    int bitrateKbps = 8000;
    int fps = 30;
    int keyFrameIntervalFrames = 60;  // about 2 s of frames
};

struct EncoderChoice {
    ElementPtr encoder;  // configured for low latency, named as asked; empty on failure
    EncoderCandidate candidate;
    std::string error;   // why none could be made
};

// The encoders in the order they would be tried. `only`, when not empty,
// replaces the built-in table (names not installed are left out); the
// hardware check still applies to the names it knows.
std::vector<EncoderCandidate> rankedEncoders(EncoderPreference preference,
                                             const std::vector<std::string>& only = {});

// Makes the first encoder of the ranking that loads and configures it for a
// screen cast. The error names every encoder that was tried.
EncoderChoice chooseEncoder(EncoderPreference preference, const EncoderSettings& settings,
                            const std::string& elementName, const std::vector<std::string>& only = {});

// Whether a hardware H.264 encoder is usable now (render node present and a
// VA-API encoder loads). Result of the first call is kept; thread-safe.
bool hardwareH264EncoderAvailable();

// The first /dev/dri/renderD* node, or empty.
std::string firstRenderNode();

}  // namespace zv::media
