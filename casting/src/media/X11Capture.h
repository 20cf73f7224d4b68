// Screen or window capture on X11, driven by what changes on the screen.
//
// One thread of its own (started by start(), joined by stop()) waits on the
// X connection: with the DAMAGE extension it grabs (MIT-SHM) and converts to
// I420 only the rectangles that changed, at most `fps` times a second, and
// as soon as a change arrives instead of on a fixed tick; when nothing
// changes it re-sends the last picture every keepAliveMs so the receiver
// knows the cast is alive. Without DAMAGE, or with damageDriven false, it
// grabs the whole area at every frame tick.
//
// A window is captured from the screen at the window's current place (its
// client area, without the frame the window manager draws), so moving it
// costs nothing special and a window partly off the screen is captured with
// black for the missing part. The window's position and size are checked
// before every grab; ConfigureNotify on the window forces a full grab.
// Other windows covering it are captured too (there is no compositor to ask
// for its own pixels).
//
// Frames are I420, BT.601 limited range, width and height rounded down to
// even numbers.
#pragma once

#include <X11/Xlib.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "media/GstHandles.h"
#include "media/I420Converter.h"

namespace zv::media {

struct CaptureConfig {
    std::string displayName;  // empty: $DISPLAY
    unsigned long window = 0;  // 0: the whole screen; otherwise a window id (its client area)
    int fps = 30;
    bool damageDriven = true;
    int keepAliveMs = 1000;
};

class X11Capture {
public:
    // Called on the capture thread with each new frame (I420, width x height).
    using FrameHandler = std::function<void(BufferPtr frame, int width, int height)>;
    // Called on the capture thread when capture cannot go on as asked (the
    // window was closed, ...); frames of the last picture keep coming.
    using ProblemHandler = std::function<void(const std::string& problem)>;

    struct Counters {
        uint64_t frames = 0;          // frames handed out (grabs and keep-alives)
        uint64_t grabs = 0;           // frames with new pixels from the server
        uint64_t fullGrabs = 0;       // of which the whole area
        uint64_t pixelsConverted = 0;
    };

    X11Capture();
    ~X11Capture();
    X11Capture(const X11Capture&) = delete;
    X11Capture& operator=(const X11Capture&) = delete;

    // Connects to the display and checks what is needed (24/32-bit TrueColor,
    // the window exists and is shown). Caller's thread, before start().
    // Returns an empty string or a readable reason.
    std::string open(const CaptureConfig& config);
    // Size of the frames open() found (even numbers).
    int width() const { return m_width; }
    int height() const { return m_height; }
    bool usesDamage() const { return m_haveDamage && m_config.damageDriven; }

    // Sees every grabbed rectangle's BGRx pixels (x, y in frame coordinates)
    // on the capture thread, before conversion. Set before start().
    using RawTap = std::function<void(const uint8_t* bgrx, int stride, int x, int y, int width, int height)>;
    void setRawTap(RawTap tap) { m_rawTap = std::move(tap); }

    void start(FrameHandler onFrame, ProblemHandler onProblem);
    // Stops and joins the thread, closes the display. Safe to call twice.
    void stop();

    // Any thread.
    void setPaused(bool paused);
    // A frame soon even if nothing changed (a key frame was asked for).
    void requestFrame();
    Counters counters() const;

private:
    struct Rect {
        int x = 0, y = 0, width = 0, height = 0;
    };

    void run();
    void wake();
    void handleEvent(const XEvent& event);
    bool updateArea();  // the captured area in root coordinates; false when the window is gone
    bool ensureBuffers();
    I420Planes planes();
    size_t frameSize() const;
    bool grabRect(const Rect& canvasRect);  // into the canvas
    void grabChanges(bool full);
    void emitFrame();
    void reportProblemOnce(const std::string& problem);
    void closeDisplay();

    CaptureConfig m_config;
    Display* m_display = nullptr;
    Window m_root = 0;
    int m_screenWidth = 0, m_screenHeight = 0;
    Visual* m_visual = nullptr;
    int m_depth = 0;
    bool m_haveDamage = false;
    int m_damageEventBase = 0;
    unsigned long m_damage = 0;   // Damage handle
    unsigned long m_region = 0;   // XserverRegion scratch
    bool m_haveShm = false;
    struct ShmSegment;
    ShmSegment* m_shm = nullptr;

    // Captured area in root coordinates; frames are m_width x m_height.
    Rect m_area;
    int m_width = 0, m_height = 0;
    std::vector<uint8_t> m_canvas;  // I420 of the last picture, GStreamer's layout
    int m_canvasWidth = 0;
    GstBufferPool* m_pool = nullptr;
    bool m_needFull = true;
    bool m_canvasChanged = false;
    bool m_geometryChanged = true;
    bool m_windowGone = false;
    bool m_problemReported = false;
    bool m_connectionLost = false;

    FrameHandler m_onFrame;
    ProblemHandler m_onProblem;
    RawTap m_rawTap;
    std::thread m_thread;
    int m_wakeFd = -1;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_paused{false};
    std::atomic<bool> m_frameRequested{false};
    mutable std::mutex m_countersMutex;
    Counters m_counters;
};

}  // namespace zv::media
