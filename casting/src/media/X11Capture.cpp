#include "media/X11Capture.h"

#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
#include <gst/video/video.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <set>

#include "casting/Log.h"
#include "media/I420Converter.h"
#include "media/XErrors.h"

namespace zv::media {
namespace {

std::string hexId(unsigned long id) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%lx", id);
    return text;
}

using Clock = std::chrono::steady_clock;

}  // namespace

// GStreamer's own I420 layout (rows padded to 4 bytes), so frames need no copy
// to be mapped downstream.
I420Planes X11Capture::planes() {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, static_cast<guint>(m_width), static_cast<guint>(m_height));
    uint8_t* base = m_canvas.data();
    return {base + GST_VIDEO_INFO_PLANE_OFFSET(&info, 0), base + GST_VIDEO_INFO_PLANE_OFFSET(&info, 1),
            base + GST_VIDEO_INFO_PLANE_OFFSET(&info, 2), GST_VIDEO_INFO_PLANE_STRIDE(&info, 0),
            GST_VIDEO_INFO_PLANE_STRIDE(&info, 1)};
}

size_t X11Capture::frameSize() const {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, static_cast<guint>(m_width), static_cast<guint>(m_height));
    return GST_VIDEO_INFO_SIZE(&info);
}

struct X11Capture::ShmSegment {
    XShmSegmentInfo info{};
    size_t size = 0;
    bool attached = false;
};

X11Capture::X11Capture() = default;

X11Capture::~X11Capture() { stop(); }

std::string X11Capture::open(const CaptureConfig& config) {
    stop();
    m_config = config;
    if (m_config.fps <= 0) m_config.fps = 30;
    if (m_config.keepAliveMs <= 0) m_config.keepAliveMs = 1000;
    const char* name = m_config.displayName.empty() ? nullptr : m_config.displayName.c_str();
    m_display = XOpenDisplay(name);
    if (m_display == nullptr) {
        const char* shown = name != nullptr ? name : std::getenv("DISPLAY");
        return std::string("cannot open X display ") + (shown != nullptr ? shown : "(DISPLAY not set)");
    }
    registerDisplay(m_display);
    // Losing the X server must end the capture, not the process.
    XSetIOErrorExitHandler(m_display, [](Display*, void*) {}, nullptr);
    const int screen = DefaultScreen(m_display);
    m_root = RootWindow(m_display, screen);
    m_visual = DefaultVisual(m_display, screen);
    m_depth = DefaultDepth(m_display, screen);
    m_screenWidth = DisplayWidth(m_display, screen);
    m_screenHeight = DisplayHeight(m_display, screen);
    if (m_visual->c_class != TrueColor || (m_depth != 24 && m_depth != 32) || m_visual->red_mask != 0xff0000 ||
        m_visual->green_mask != 0xff00 || m_visual->blue_mask != 0xff || ImageByteOrder(m_display) != LSBFirst) {
        const std::string why = "unsupported screen format (depth " + std::to_string(m_depth) +
                                "; capture needs 24-bit TrueColor, 8 bits per colour)";
        closeDisplay();
        return why;
    }

    if (m_config.window != 0 && m_config.window != m_root) {
        ErrorTrap trap(m_display);
        XWindowAttributes attributes{};
        const Status ok = XGetWindowAttributes(m_display, m_config.window, &attributes);
        if (trap.check() != 0 || ok == 0) {
            closeDisplay();
            return "window " + hexId(m_config.window) + " does not exist";
        }
        if (attributes.map_state != IsViewable) {
            closeDisplay();
            return "window " + hexId(m_config.window) + " is not shown (minimised or on another desktop)";
        }
        XSelectInput(m_display, m_config.window, StructureNotifyMask);
    } else {
        m_config.window = 0;
    }
    XSelectInput(m_display, m_root, StructureNotifyMask);

    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (XDamageQueryExtension(m_display, &eventBase, &errorBase) && XDamageQueryVersion(m_display, &major, &minor) &&
        XFixesQueryExtension(m_display, &errorBase, &errorBase)) {
        int fixesMajor = 0, fixesMinor = 0;
        XFixesQueryVersion(m_display, &fixesMajor, &fixesMinor);
        m_haveDamage = fixesMajor >= 2;
        m_damageEventBase = eventBase;
    }
    if (m_haveDamage && m_config.damageDriven) {
        m_damage = XDamageCreate(m_display, m_root, XDamageReportNonEmpty);
        m_region = XFixesCreateRegion(m_display, nullptr, 0);
    } else if (m_config.damageDriven) {
        ZV_LOG(INFO) << " no DAMAGE extension: capturing at every frame tick";
    }

    if (!updateArea()) {
        closeDisplay();
        return "window " + hexId(m_config.window) + " disappeared";
    }
    if (m_width < 2 || m_height < 2) {
        closeDisplay();
        return "capture area too small (" + std::to_string(m_area.width) + "x" + std::to_string(m_area.height) + ")";
    }
    if (!ensureBuffers()) {
        closeDisplay();
        return "cannot allocate capture buffers";
    }
    ZV_LOG(INFO) << " capturing " << (m_config.window != 0 ? "window " + hexId(m_config.window) : "the screen") << " "
                 << m_width << "x" << m_height << " at most " << m_config.fps << " fps, "
                 << (usesDamage() ? "when it changes" : "at every tick") << (m_haveShm ? ", MIT-SHM" : ", XGetImage");
    return {};
}

bool X11Capture::updateArea() {
    Rect area;
    if (m_config.window == 0) {
        area = {0, 0, m_screenWidth, m_screenHeight};
    } else {
        if (m_windowGone) return false;
        ErrorTrap trap(m_display);
        XWindowAttributes attributes{};
        int x = 0, y = 0;
        Window child = 0;
        const Status ok = XGetWindowAttributes(m_display, m_config.window, &attributes);
        const Bool translated = ok != 0 && XTranslateCoordinates(m_display, m_config.window, m_root, 0, 0, &x, &y, &child);
        if (trap.check() != 0 || ok == 0 || !translated) {
            m_windowGone = true;
            return false;
        }
        area = {x, y, attributes.width, attributes.height};
    }
    const int width = area.width & ~1;
    const int height = area.height & ~1;
    if (area.x != m_area.x || area.y != m_area.y || width != m_width || height != m_height) m_needFull = true;
    m_area = area;
    m_width = width;
    m_height = height;
    m_geometryChanged = false;
    return true;
}

bool X11Capture::ensureBuffers() {
    const size_t canvasSize = frameSize();
    if (m_canvas.size() != canvasSize || m_canvasWidth != m_width) {
        m_canvas.assign(canvasSize, 0);
        m_canvasWidth = m_width;
        fillI420Black(planes(), 0, 0, m_width, m_height);
        if (m_pool != nullptr) {
            gst_buffer_pool_set_active(m_pool, FALSE);
            gst_object_unref(m_pool);
            m_pool = nullptr;
        }
    }
    if (m_pool == nullptr) {
        m_pool = gst_buffer_pool_new();  // already sunk: one reference, ours
        GstStructure* config = gst_buffer_pool_get_config(m_pool);
        CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, m_width,
                                         "height", G_TYPE_INT, m_height, nullptr));
        gst_buffer_pool_config_set_params(config, caps.get(), static_cast<guint>(canvasSize), 2, 0);
        if (!gst_buffer_pool_set_config(m_pool, config) || !gst_buffer_pool_set_active(m_pool, TRUE)) return false;
    }

    const size_t shmSize = static_cast<size_t>(m_screenWidth) * m_screenHeight * 4;
    if (m_shm != nullptr && m_shm->size >= shmSize) return true;
    if (m_shm != nullptr) {
        XShmDetach(m_display, &m_shm->info);
        XSync(m_display, False);
        shmdt(m_shm->info.shmaddr);
        delete m_shm;
        m_shm = nullptr;
    }
    m_haveShm = false;
    if (!XShmQueryExtension(m_display)) return true;  // XGetImage then
    auto* segment = new ShmSegment;
    segment->size = shmSize;
    segment->info.shmid = shmget(IPC_PRIVATE, shmSize, IPC_CREAT | 0600);
    if (segment->info.shmid < 0) {
        delete segment;
        ZV_LOG(WARNING) << " shared memory not available: capturing with XGetImage (slower)";
        return true;
    }
    segment->info.shmaddr = static_cast<char*>(shmat(segment->info.shmid, nullptr, 0));
    segment->info.readOnly = False;
    ErrorTrap trap(m_display);
    const Bool attached = segment->info.shmaddr != reinterpret_cast<char*>(-1) && XShmAttach(m_display, &segment->info);
    const bool ok = attached && trap.check() == 0;
    shmctl(segment->info.shmid, IPC_RMID, nullptr);  // freed once both sides detach
    if (!ok) {
        if (segment->info.shmaddr != reinterpret_cast<char*>(-1)) shmdt(segment->info.shmaddr);
        delete segment;
        ZV_LOG(WARNING) << " the X server cannot attach our shared memory (remote display?): using XGetImage";
        return true;
    }
    segment->attached = true;
    m_shm = segment;
    m_haveShm = true;
    return true;
}

void X11Capture::start(FrameHandler onFrame, ProblemHandler onProblem) {
    if (m_display == nullptr || m_thread.joinable()) return;
    m_onFrame = std::move(onFrame);
    m_onProblem = std::move(onProblem);
    m_stopping = false;
    m_wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_thread = std::thread([this] { run(); });
}

void X11Capture::stop() {
    m_stopping = true;
    if (m_thread.joinable()) {
        wake();
        m_thread.join();
    }
    if (m_wakeFd >= 0) {
        ::close(m_wakeFd);
        m_wakeFd = -1;
    }
    closeDisplay();
}

void X11Capture::closeDisplay() {
    if (m_pool != nullptr) {
        gst_buffer_pool_set_active(m_pool, FALSE);
        gst_object_unref(m_pool);
        m_pool = nullptr;
    }
    if (m_display == nullptr) return;
    const bool alive = !m_connectionLost;
    if (m_shm != nullptr) {
        if (alive) {
            XShmDetach(m_display, &m_shm->info);
            XSync(m_display, False);
        }
        shmdt(m_shm->info.shmaddr);
        delete m_shm;
        m_shm = nullptr;
    }
    if (alive) {
        if (m_damage != 0) XDamageDestroy(m_display, m_damage);
        if (m_region != 0) XFixesDestroyRegion(m_display, m_region);
        XSync(m_display, False);
    }
    m_damage = 0;
    m_region = 0;
    XCloseDisplay(m_display);  // on a lost connection this too goes through our handlers
    unregisterDisplay(m_display);
    m_connectionLost = false;
    m_display = nullptr;
    m_haveDamage = false;
    m_haveShm = false;
    m_canvas.clear();
    m_canvasWidth = 0;
    m_width = m_height = 0;
    m_area = {};
    m_windowGone = false;
    m_problemReported = false;
    m_needFull = true;
}

void X11Capture::setPaused(bool paused) {
    m_paused = paused;
    wake();
}

void X11Capture::requestFrame() {
    m_frameRequested = true;
    wake();
}

X11Capture::Counters X11Capture::counters() const {
    std::lock_guard<std::mutex> lock(m_countersMutex);
    return m_counters;
}

void X11Capture::wake() {
    if (m_wakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t n = ::write(m_wakeFd, &one, sizeof one);
    }
}

void X11Capture::handleEvent(const XEvent& event) {
    if (m_haveDamage && event.type == m_damageEventBase + XDamageNotify) {
        // Level reports: one event until the damage is taken in grabChanges().
        return;
    }
    switch (event.type) {
        case ConfigureNotify:
            if (event.xconfigure.window == m_root && event.xconfigure.event == m_root) {
                m_screenWidth = event.xconfigure.width;
                m_screenHeight = event.xconfigure.height;
            }
            m_geometryChanged = true;
            m_needFull = true;
            break;
        case MapNotify:
            m_geometryChanged = true;
            m_needFull = true;
            break;
        case DestroyNotify:
            if (event.xdestroywindow.window == m_config.window) m_windowGone = true;
            break;
        default:
            break;
    }
}

void X11Capture::reportProblemOnce(const std::string& problem) {
    if (m_problemReported) return;
    m_problemReported = true;
    ZV_LOG(WARNING) << " " << problem;
    if (m_onProblem) m_onProblem(problem);
}

bool X11Capture::grabRect(const Rect& canvasRect) {
    const int rootX = m_area.x + canvasRect.x;
    const int rootY = m_area.y + canvasRect.y;
    const I420Planes canvas = planes();
    ErrorTrap trap(m_display);
    XImage* image = nullptr;
    bool ok = false;
    if (m_haveShm) {
        image = XShmCreateImage(m_display, m_visual, static_cast<unsigned>(m_depth), ZPixmap, m_shm->info.shmaddr,
                                &m_shm->info, static_cast<unsigned>(canvasRect.width),
                                static_cast<unsigned>(canvasRect.height));
        ok = image != nullptr && XShmGetImage(m_display, m_root, image, rootX, rootY, AllPlanes);
    } else {
        image = XGetImage(m_display, m_root, rootX, rootY, static_cast<unsigned>(canvasRect.width),
                          static_cast<unsigned>(canvasRect.height), AllPlanes, ZPixmap);
        ok = image != nullptr;
    }
    ok = ok && lastXError() == 0 && image->bits_per_pixel == 32;
    if (ok && m_rawTap) {
        m_rawTap(reinterpret_cast<const uint8_t*>(image->data), image->bytes_per_line, canvasRect.x, canvasRect.y,
                 canvasRect.width, canvasRect.height);
    }
    if (ok) {
        convertBgrxToI420(reinterpret_cast<const uint8_t*>(image->data), image->bytes_per_line, canvasRect.width,
                          canvasRect.height, canvas, canvasRect.x, canvasRect.y);
    }
    if (image != nullptr) {
        if (m_haveShm) image->data = nullptr;  // the segment is ours, not the image's
        XDestroyImage(image);
    }
    (void)trap;
    return ok;
}

// Takes the damage, grabs what changed inside the area (everything when a
// full grab is due) and converts it into the canvas; m_canvasChanged tells
// whether anything was grabbed.
void X11Capture::grabChanges(bool full) {
    std::vector<Rect> changed;  // canvas coordinates, unclipped
    if (m_damage != 0) {
        XDamageSubtract(m_display, m_damage, None, m_region);
        int count = 0;
        XRectangle bounds{};
        XRectangle* rects = XFixesFetchRegionAndBounds(m_display, m_region, &count, &bounds);
        if (count > 32) {
            changed.push_back({bounds.x - m_area.x, bounds.y - m_area.y, bounds.width, bounds.height});
        } else {
            for (int i = 0; i < count; ++i) {
                changed.push_back({rects[i].x - m_area.x, rects[i].y - m_area.y, rects[i].width, rects[i].height});
            }
        }
        if (rects != nullptr) XFree(rects);
    }
    if (m_geometryChanged || m_config.window != 0) {
        const int oldWidth = m_width, oldHeight = m_height;
        if (!updateArea()) {
            reportProblemOnce("the captured window " + hexId(m_config.window) +
                              " was closed; the last picture stays on the panel");
            return;
        }
        if (m_width < 2 || m_height < 2) return;
        if (m_width != oldWidth || m_height != oldHeight) {
            if (!ensureBuffers()) return;
        }
    }
    if (full || m_needFull || m_damage == 0) {
        changed.assign(1, {0, 0, m_width, m_height});
        if (m_needFull) fillI420Black(planes(), 0, 0, m_width, m_height);  // parts off the screen stay black
    }
    m_needFull = false;

    // Clip to the area and to the screen; even edges for 4:2:0 chroma,
    // never reaching past the screen.
    const int screenLeft = -m_area.x, screenTop = -m_area.y;  // the screen in canvas coordinates
    const int screenRight = screenLeft + m_screenWidth, screenBottom = screenTop + m_screenHeight;
    uint64_t pixels = 0;
    bool wholeArea = false;
    int grabbed = 0;
    for (const Rect& r : changed) {
        int x0 = std::max({r.x, 0, screenLeft});
        int y0 = std::max({r.y, 0, screenTop});
        int x1 = std::min({r.x + r.width, m_width, screenRight});
        int y1 = std::min({r.y + r.height, m_height, screenBottom});
        if (x1 <= x0 || y1 <= y0) continue;
        x0 &= ~1;
        y0 &= ~1;
        x1 = std::min((x1 + 1) & ~1, m_width);
        y1 = std::min((y1 + 1) & ~1, m_height);
        if (x0 < screenLeft) x0 += 2;
        if (y0 < screenTop) y0 += 2;
        if (x1 > screenRight) x1 -= 2;
        if (y1 > screenBottom) y1 -= 2;
        if (x1 <= x0 || y1 <= y0) continue;
        if (grabRect({x0, y0, x1 - x0, y1 - y0})) {
            pixels += static_cast<uint64_t>(x1 - x0) * (y1 - y0);
            ++grabbed;
            wholeArea = wholeArea || (x1 - x0 == m_width && y1 - y0 == m_height);
        }
    }
    if (grabbed == 0) return;
    std::lock_guard<std::mutex> lock(m_countersMutex);
    ++m_counters.grabs;
    if (wholeArea) ++m_counters.fullGrabs;
    m_counters.pixelsConverted += pixels;
    m_canvasChanged = true;
}

void X11Capture::emitFrame() {
    if (m_pool == nullptr || !m_onFrame) return;
    GstBuffer* raw = nullptr;
    if (gst_buffer_pool_acquire_buffer(m_pool, &raw, nullptr) != GST_FLOW_OK || raw == nullptr) return;
    BufferPtr buffer(raw);
    gst_buffer_fill(buffer.get(), 0, m_canvas.data(), m_canvas.size());
    {
        std::lock_guard<std::mutex> lock(m_countersMutex);
        ++m_counters.frames;
    }
    m_onFrame(std::move(buffer), m_width, m_height);
}

void X11Capture::run() {
    pthread_setname_np(pthread_self(), "zv-capture");  // told apart in top and the CPU bench
    const auto interval = std::chrono::duration_cast<Clock::duration>(std::chrono::seconds(1)) / m_config.fps;
    const auto tolerance = interval / 5;
    const auto keepAlive = std::chrono::milliseconds(m_config.keepAliveMs);
    const bool damageDriven = usesDamage();
    Clock::time_point nextSlot = Clock::now();
    Clock::time_point lastFrame = Clock::now();
    bool pendingDamage = true;  // the first frame
    bool wasPaused = false;
    const int xfd = ConnectionNumber(m_display);

    while (!m_stopping) {
        if (XConnectionNumber(m_display) < 0 || m_connectionLost) break;
        while (XPending(m_display) > 0) {
            XEvent event;
            XNextEvent(m_display, &event);
            if (m_haveDamage && event.type == m_damageEventBase + XDamageNotify) pendingDamage = true;
            handleEvent(event);
        }
        if (m_geometryChanged) pendingDamage = true;
        const bool paused = m_paused;
        if (paused != wasPaused) {
            wasPaused = paused;
            if (!paused) {
                m_needFull = true;  // whatever happened meanwhile
                pendingDamage = true;
            }
        }

        const auto now = Clock::now();
        const bool requested = m_frameRequested;
        const bool due = !damageDriven || pendingDamage || requested;
        if (!paused && due && now + tolerance >= nextSlot) {
            m_frameRequested = false;
            m_canvasChanged = false;
            if (!damageDriven || pendingDamage) {
                pendingDamage = false;
                grabChanges(!damageDriven);
            }
            if (m_canvasChanged || requested || !damageDriven) {
                emitFrame();
                lastFrame = now;
                nextSlot = std::max(now, nextSlot) + interval;
            }
            continue;
        }
        if (!paused && damageDriven && now >= lastFrame + keepAlive) {
            emitFrame();  // nothing changed: the same picture again
            lastFrame = now;
            nextSlot = std::max(now, nextSlot) + interval;
            continue;
        }

        Clock::duration wait = Clock::duration::max();
        if (!paused) {
            wait = due ? nextSlot - tolerance - now : lastFrame + keepAlive - now;
            if (wait < Clock::duration::zero()) wait = Clock::duration::zero();
        }
        pollfd fds[2] = {{xfd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        timespec timeout{};
        timespec* timeoutPointer = nullptr;
        if (wait != Clock::duration::max()) {
            const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(wait).count();
            timeout.tv_sec = static_cast<time_t>(ns / 1000000000);
            timeout.tv_nsec = static_cast<long>(ns % 1000000000);
            timeoutPointer = &timeout;
        }
        ppoll(fds, 2, timeoutPointer, nullptr);
        if ((fds[1].revents & POLLIN) != 0) {
            uint64_t value = 0;
            [[maybe_unused]] const ssize_t n = ::read(m_wakeFd, &value, sizeof value);
        }
        if ((fds[0].revents & (POLLERR | POLLHUP)) != 0) {
            m_connectionLost = true;
            reportProblemOnce("the connection to the X server was lost");
            break;
        }
    }
}

}  // namespace zv::media
