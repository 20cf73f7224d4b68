// The XRender video sink on a private Xvfb: a 1080p picture of four colour
// blocks drawn into windows of other shapes comes out scaled by the X
// server, centred, with black bars, and follows a resized window.
#include <gtest/gtest.h>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/videooverlay.h>

#include <cstring>
#include <vector>

#include "XvfbSession.h"
#include "media/GstHandles.h"
#include "media/XRenderSink.h"

namespace {

// BGRx of the four blocks, clockwise from the top left: red, green, blue, white.
std::vector<uint8_t> blocks(int width, int height) {
    const uint32_t colours[4] = {0x00ff0000, 0x0000ff00, 0x000000ff, 0x00ffffff};
    std::vector<uint8_t> bytes(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int block = (y < height / 2 ? 0 : 2) + (x < width / 2 ? 0 : 1);
            std::memcpy(&bytes[(static_cast<size_t>(y) * width + x) * 4], &colours[block], 4);
        }
    }
    return bytes;
}

unsigned long pixel(Display* display, Window window, int x, int y) {
    XImage* image = XGetImage(display, window, x, y, 1, 1, AllPlanes, ZPixmap);
    if (image == nullptr) return 0xdeadbeef;
    const unsigned long value = XGetPixel(image, 0, 0) & 0xffffff;
    XDestroyImage(image);
    return value;
}

bool waitForPixel(Display* display, Window window, int x, int y, unsigned long expected) {
    for (int i = 0; i < 200; ++i) {
        if (pixel(display, window, x, y) == expected) return true;
        g_usleep(10000);
    }
    return false;
}

}  // namespace

TEST(XRenderSink, ScalesCentresAndFollowsTheWindow) {
    zvtest::XvfbSession x("1920x1080x24", false);
    ASSERT_TRUE(x.ready());
    gst_init(nullptr, nullptr);
    ASSERT_TRUE(zv::media::registerXRenderSink());
    Display* display = x.connection();
    // Twice as wide as the picture's shape: bars left and right.
    const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 0, 0, 800, 200, 0, 0, 0x123456);
    XMapWindow(display, window);
    XSync(display, False);

    zv::media::ElementPtr pipeline = zv::media::adoptFloating(gst_pipeline_new("test"));
    GstElement* source = gst_element_factory_make("appsrc", nullptr);
    GstElement* sink = gst_element_factory_make(zv::media::kXRenderSinkName, nullptr);
    ASSERT_NE(sink, nullptr);
    gst_bin_add_many(GST_BIN(pipeline.get()), source, sink, nullptr);
    ASSERT_TRUE(gst_element_link(source, sink));
    GstCaps* caps = gst_caps_from_string("video/x-raw,format=BGRx,width=320,height=180,framerate=0/1");
    g_object_set(source, "caps", caps, "format", GST_FORMAT_TIME, nullptr);
    gst_caps_unref(caps);
    g_object_set(sink, "sync", FALSE, nullptr);
    gst_video_overlay_set_window_handle(GST_VIDEO_OVERLAY(sink), window);
    ASSERT_NE(gst_element_set_state(pipeline.get(), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    const std::vector<uint8_t> picture = blocks(320, 180);
    auto push = [&] {
        GstBuffer* buffer = gst_buffer_new_memdup(picture.data(), picture.size());
        ASSERT_EQ(gst_app_src_push_buffer(GST_APP_SRC(source), buffer), GST_FLOW_OK);
    };
    push();

    // 320x180 in 800x200: scaled to 355x200, x from 222 to 577.
    EXPECT_TRUE(waitForPixel(display, window, 300, 50, 0xff0000));   // red, top left block
    EXPECT_TRUE(waitForPixel(display, window, 500, 50, 0x00ff00));   // green
    EXPECT_TRUE(waitForPixel(display, window, 300, 150, 0x0000ff));  // blue
    EXPECT_TRUE(waitForPixel(display, window, 500, 150, 0xffffff));  // white
    EXPECT_EQ(pixel(display, window, 100, 100), 0x000000u) << "the bars are black, not the window's colour";
    EXPECT_EQ(pixel(display, window, 700, 100), 0x000000u);

    // A tall window: bars above and below, and an expose redraws at once.
    XResizeWindow(display, window, 200, 600);
    XSync(display, False);
    gst_video_overlay_expose(GST_VIDEO_OVERLAY(sink));
    EXPECT_TRUE(waitForPixel(display, window, 50, 270, 0xff0000));
    EXPECT_TRUE(waitForPixel(display, window, 150, 330, 0xffffff));
    EXPECT_TRUE(waitForPixel(display, window, 100, 50, 0x000000));
    EXPECT_TRUE(waitForPixel(display, window, 100, 560, 0x000000));

    // The window goes away: pictures keep coming and nothing breaks.
    XDestroyWindow(display, window);
    XSync(display, False);
    push();
    push();
    gst_app_src_end_of_stream(GST_APP_SRC(source));
    GstBus* bus = gst_element_get_bus(pipeline.get());
    GstMessage* end = gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND,
                                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    ASSERT_NE(end, nullptr);
    EXPECT_EQ(GST_MESSAGE_TYPE(end), GST_MESSAGE_EOS);
    gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(pipeline.get(), GST_STATE_NULL);
}
