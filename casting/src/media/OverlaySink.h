// Drawing decoded video straight into an X11 window through the
// video-overlay interface, scaled by the sink: the one drawing path of the
// reverse-screen player and the panel's cast view.
//
//   (videoconvert ─▶) xvimagesink              Xv: the X server / GPU scales
//   (videoconvert ─▶) zvxrendersink            no Xv: XRender, the X server scales
//   (videoconvert ─▶) videoscale ─▶ caps ─▶ ximagesink   neither: software, sized to the window
//
// Threads: build() and fit() on the owner's thread (fit() may also run on any
// thread while the pipeline plays: it only changes caps).
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>

#include "media/GstHandles.h"

struct _XDisplay;

namespace zv::media {

// The sink this machine draws with: $ZV_VIDEO_SINK when set, else
// xvimagesink when the X server offers an Xv port, else zvxrendersink when
// it offers RENDER and MIT-SHM, else ximagesink. Found once per process.
std::string chooseVideoSink();

class OverlaySink {
public:
    OverlaySink();
    ~OverlaySink();
    OverlaySink(const OverlaySink&) = delete;
    OverlaySink& operator=(const OverlaySink&) = delete;

    // Adds the sink (and the scaler it needs) to bin, bound to window.
    // "" or why not; afterwards link to first().
    std::string build(GstElement* bin, unsigned long window, const std::string& prefix);
    GstElement* first() const { return m_scale ? m_scale.get() : m_sink.get(); }
    GstElement* sink() const { return m_sink.get(); }
    const std::string& sinkName() const { return m_name; }
    // The window changed size: the software path scales to the new size;
    // every sink redraws.
    void fit();

private:
    void fitScale();

    ElementPtr m_sink, m_scale, m_caps;
    std::string m_name;
    unsigned long m_window = 0;
    _XDisplay* m_display = nullptr;  // for the window's size (software path)
};

}  // namespace zv::media
