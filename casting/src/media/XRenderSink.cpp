#include "media/XRenderSink.h"

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xrender.h>
#include <gst/video/gstvideosink.h>
#include <gst/video/video.h>
#include <gst/video/videooverlay.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

#include "casting/Log.h"
#include "media/GstInit.h"
#include "media/XErrors.h"

namespace zv::media {
namespace {

// The X side of the sink: one connection of its own, the picture's pixmap
// and its shared-memory image, and the window's picture. Every call holds
// the mutex: the streaming thread draws, the application's thread sets the
// window and asks for redraws.
class XRenderTarget {
public:
    XRenderTarget() = default;
    ~XRenderTarget() { close(); }
    XRenderTarget(const XRenderTarget&) = delete;
    XRenderTarget& operator=(const XRenderTarget&) = delete;

    static bool available() {
        Display* display = XOpenDisplay(nullptr);
        if (display == nullptr) return false;
        int event = 0, error = 0;
        const bool ok = XRenderQueryExtension(display, &event, &error) && XShmQueryExtension(display);
        XCloseDisplay(display);
        return ok;
    }

    bool open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_display != nullptr) return true;
        m_display = XOpenDisplay(nullptr);
        if (m_display == nullptr) return false;
        registerDisplay(m_display);
        m_format = XRenderFindStandardFormat(m_display, PictStandardRGB24);
        return m_format != nullptr;
    }

    void close() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_display == nullptr) return;
        freePicture();
        freeWindowPicture();
        unregisterDisplay(m_display);
        XCloseDisplay(m_display);
        m_display = nullptr;
    }

    void setWindow(unsigned long window) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (window == m_window) return;
        freeWindowPicture();
        m_window = window;
    }

    // A new picture size: a pixmap and shared memory of that size.
    bool setSize(int width, int height) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_display == nullptr) return false;
        if (width == m_width && height == m_height && m_picture != 0) return true;
        freePicture();
        const int screen = DefaultScreen(m_display);
        m_image = XShmCreateImage(m_display, DefaultVisual(m_display, screen), 24, ZPixmap, nullptr, &m_shm,
                                  static_cast<unsigned>(width), static_cast<unsigned>(height));
        if (m_image == nullptr || m_image->bits_per_pixel != 32) return fail("no 32-bit image for the picture");
        m_shm.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(m_image->bytes_per_line) * height, IPC_CREAT | 0600);
        if (m_shm.shmid < 0) return fail("no shared memory for the picture");
        m_shm.shmaddr = m_image->data = static_cast<char*>(shmat(m_shm.shmid, nullptr, 0));
        m_shm.readOnly = False;
        ErrorTrap trap(m_display);
        const bool attached = m_shm.shmaddr != reinterpret_cast<char*>(-1) && XShmAttach(m_display, &m_shm);
        shmctl(m_shm.shmid, IPC_RMID, nullptr);  // freed once both sides detach
        if (!attached || trap.check() != 0) return fail("the X server cannot attach our shared memory");
        m_attached = true;
        m_pixmap = XCreatePixmap(m_display, RootWindow(m_display, screen), static_cast<unsigned>(width),
                                 static_cast<unsigned>(height), 24);
        m_gc = XCreateGC(m_display, m_pixmap, 0, nullptr);
        m_picture = XRenderCreatePicture(m_display, m_pixmap, m_format, 0, nullptr);
        // Nearest neighbour: exact for whole-number factors (1080p on 2160p).
        XRenderSetPictureFilter(m_display, m_picture, FilterFast, nullptr, 0);
        m_width = width;
        m_height = height;
        return trap.check() == 0 || fail("cannot make the picture's pixmap");
    }

    // Copies the frame into the pixmap and shows it; false when the window
    // is gone (the caller reports it once).
    bool draw(const GstVideoFrame& frame) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_display == nullptr || m_picture == 0) return false;
        const auto* source = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
        const int stride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
        const size_t row = static_cast<size_t>(m_width) * 4;
        for (int y = 0; y < m_height; ++y) {
            std::memcpy(m_image->data + static_cast<ptrdiff_t>(y) * m_image->bytes_per_line,
                        source + static_cast<ptrdiff_t>(y) * stride, row);
        }
        XShmPutImage(m_display, m_pixmap, m_gc, m_image, 0, 0, 0, 0, static_cast<unsigned>(m_width),
                     static_cast<unsigned>(m_height), False);
        const bool shown = composite();
        XSync(m_display, False);  // the shared memory is ours again
        return shown;
    }

    // The last picture again (the window was exposed or resized).
    void redraw() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_display == nullptr || m_picture == 0) return;
        composite();
        XFlush(m_display);
    }

private:
    // Scales the pixmap into the window, centred with black bars.
    bool composite() {
        if (m_window == 0) return true;
        ErrorTrap trap(m_display);
        XWindowAttributes window{};
        if (XGetWindowAttributes(m_display, m_window, &window) == 0 || trap.check() != 0) {
            freeWindowPicture();
            return false;
        }
        if (m_windowPicture == 0) {
            XRenderPictFormat* format = XRenderFindVisualFormat(m_display, window.visual);
            if (format == nullptr) return false;
            m_windowPicture = XRenderCreatePicture(m_display, m_window, format, 0, nullptr);
        }
        const double scale = std::min(static_cast<double>(window.width) / m_width,
                                      static_cast<double>(window.height) / m_height);
        const int width = std::max(1, static_cast<int>(m_width * scale));
        const int height = std::max(1, static_cast<int>(m_height * scale));
        const int x = (window.width - width) / 2;
        const int y = (window.height - height) / 2;
        XTransform transform{};
        transform.matrix[0][0] = XDoubleToFixed(static_cast<double>(m_width) / width);
        transform.matrix[1][1] = XDoubleToFixed(static_cast<double>(m_height) / height);
        transform.matrix[2][2] = XDoubleToFixed(1.0);
        XRenderSetPictureTransform(m_display, m_picture, &transform);
        XRenderComposite(m_display, PictOpSrc, m_picture, 0, m_windowPicture, 0, 0, 0, 0, x, y,
                         static_cast<unsigned>(width), static_cast<unsigned>(height));
        const XRenderColor black{0, 0, 0, 0xffff};
        if (x > 0) {
            XRenderFillRectangle(m_display, PictOpSrc, m_windowPicture, &black, 0, 0, static_cast<unsigned>(x),
                                 static_cast<unsigned>(window.height));
            XRenderFillRectangle(m_display, PictOpSrc, m_windowPicture, &black, x + width, 0,
                                 static_cast<unsigned>(window.width - x - width), static_cast<unsigned>(window.height));
        }
        if (y > 0) {
            XRenderFillRectangle(m_display, PictOpSrc, m_windowPicture, &black, 0, 0, static_cast<unsigned>(window.width),
                                 static_cast<unsigned>(y));
            XRenderFillRectangle(m_display, PictOpSrc, m_windowPicture, &black, 0, y + height,
                                 static_cast<unsigned>(window.width), static_cast<unsigned>(window.height - y - height));
        }
        return true;
    }

    bool fail(const char* why) {
        ZV_LOG(WARNING) << " " << why;
        freePicture();
        return false;
    }

    void freePicture() {
        if (m_picture != 0) XRenderFreePicture(m_display, m_picture);
        if (m_gc != nullptr) XFreeGC(m_display, m_gc);
        if (m_pixmap != 0) XFreePixmap(m_display, m_pixmap);
        if (m_attached) {
            XShmDetach(m_display, &m_shm);
            XSync(m_display, False);
        }
        if (m_image != nullptr) {
            if (m_image->data != nullptr && m_image->data != reinterpret_cast<char*>(-1)) shmdt(m_image->data);
            m_image->data = nullptr;
            XDestroyImage(m_image);
        }
        m_picture = 0;
        m_gc = nullptr;
        m_pixmap = 0;
        m_attached = false;
        m_image = nullptr;
        m_shm = XShmSegmentInfo{};
        m_width = m_height = 0;
    }

    void freeWindowPicture() {
        if (m_windowPicture != 0 && m_display != nullptr) XRenderFreePicture(m_display, m_windowPicture);
        m_windowPicture = 0;
    }

    std::mutex m_mutex;
    Display* m_display = nullptr;
    XRenderPictFormat* m_format = nullptr;
    unsigned long m_window = 0;
    Picture m_windowPicture = 0;
    XShmSegmentInfo m_shm{};
    bool m_attached = false;
    XImage* m_image = nullptr;
    Pixmap m_pixmap = 0;
    GC m_gc = nullptr;
    Picture m_picture = 0;
    int m_width = 0;
    int m_height = 0;
};

}  // namespace
}  // namespace zv::media

// ---- The GStreamer element ------------------------------------------------

G_BEGIN_DECLS
#define ZV_TYPE_XRENDER_SINK (zv_xrender_sink_get_type())
G_DECLARE_FINAL_TYPE(ZvXRenderSink, zv_xrender_sink, ZV, XRENDER_SINK, GstVideoSink)
G_END_DECLS

struct _ZvXRenderSink {
    GstVideoSink parent;
    zv::media::XRenderTarget* target;
    GstVideoInfo info;
    gboolean windowLost;
};

namespace {

void zvSetWindowHandle(GstVideoOverlay* overlay, guintptr handle) {
    ZvXRenderSink* self = ZV_XRENDER_SINK(overlay);
    self->target->setWindow(static_cast<unsigned long>(handle));
    self->windowLost = FALSE;
}

void zvExpose(GstVideoOverlay* overlay) { ZV_XRENDER_SINK(overlay)->target->redraw(); }

void zvOverlayInit(GstVideoOverlayInterface* iface) {
    iface->set_window_handle = zvSetWindowHandle;
    iface->expose = zvExpose;
}

}  // namespace

G_DEFINE_TYPE_WITH_CODE(ZvXRenderSink, zv_xrender_sink, GST_TYPE_VIDEO_SINK,
                        G_IMPLEMENT_INTERFACE(GST_TYPE_VIDEO_OVERLAY, zvOverlayInit))

namespace {

gboolean zvStart(GstBaseSink* sink) {
    ZvXRenderSink* self = ZV_XRENDER_SINK(sink);
    if (self->target->open()) return TRUE;
    GST_ELEMENT_ERROR(sink, RESOURCE, OPEN_WRITE, ("cannot open the X display with XRender"), (nullptr));
    return FALSE;
}

gboolean zvStop(GstBaseSink* sink) {
    ZV_XRENDER_SINK(sink)->target->close();
    return TRUE;
}

gboolean zvSetCaps(GstBaseSink* sink, GstCaps* caps) {
    ZvXRenderSink* self = ZV_XRENDER_SINK(sink);
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, caps)) return FALSE;
    if (!self->target->setSize(GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info))) {
        GST_ELEMENT_ERROR(sink, RESOURCE, WRITE, ("cannot make a picture of %dx%d", GST_VIDEO_INFO_WIDTH(&info),
                                                 GST_VIDEO_INFO_HEIGHT(&info)),
                          (nullptr));
        return FALSE;
    }
    self->info = info;
    return TRUE;
}

GstFlowReturn zvShowFrame(GstVideoSink* sink, GstBuffer* buffer) {
    ZvXRenderSink* self = ZV_XRENDER_SINK(sink);
    GstVideoFrame frame;
    if (!gst_video_frame_map(&frame, &self->info, buffer, GST_MAP_READ)) return GST_FLOW_ERROR;
    const bool shown = self->target->draw(frame);
    gst_video_frame_unmap(&frame);
    if (!shown && !self->windowLost) {
        self->windowLost = TRUE;  // said once; pictures go on being decoded
        GST_ELEMENT_WARNING(sink, RESOURCE, WRITE, ("the video window is gone"), (nullptr));
    }
    return GST_FLOW_OK;
}

void zvFinalize(GObject* object) {
    delete ZV_XRENDER_SINK(object)->target;
    G_OBJECT_CLASS(zv_xrender_sink_parent_class)->finalize(object);
}

}  // namespace

static void zv_xrender_sink_class_init(ZvXRenderSinkClass* klass) {
    G_OBJECT_CLASS(klass)->finalize = zvFinalize;
    GstElementClass* element = GST_ELEMENT_CLASS(klass);
    gst_element_class_set_static_metadata(element, "Zelvanor XRender sink", "Sink/Video",
                                          "Shows BGRx pictures in an X window, scaled by the X server (XRender)",
                                          "Zelvanor");
    static GstStaticPadTemplate sinkTemplate = GST_STATIC_PAD_TEMPLATE(
        "sink", GST_PAD_SINK, GST_PAD_ALWAYS,
        GST_STATIC_CAPS("video/x-raw, format=(string)BGRx, width=(int)[1, 8192], height=(int)[1, 8192], "
                        "framerate=(fraction)[0/1, MAX]"));
    gst_element_class_add_static_pad_template(element, &sinkTemplate);
    GstBaseSinkClass* base = GST_BASE_SINK_CLASS(klass);
    base->start = zvStart;
    base->stop = zvStop;
    base->set_caps = zvSetCaps;
    GST_VIDEO_SINK_CLASS(klass)->show_frame = zvShowFrame;
}

static void zv_xrender_sink_init(ZvXRenderSink* self) {
    self->target = new zv::media::XRenderTarget();
    gst_video_info_init(&self->info);
    self->windowLost = FALSE;
}

namespace zv::media {

bool registerXRenderSink() {
    static const bool registered = [] {
        if (!ensureGstInitialized().empty() || !XRenderTarget::available()) return false;
        return gst_element_register(nullptr, kXRenderSinkName, GST_RANK_NONE, ZV_TYPE_XRENDER_SINK) == TRUE;
    }();
    return registered;
}

}  // namespace zv::media
