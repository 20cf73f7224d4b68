#include "media/GstInit.h"

#include <gst/gst.h>

#include <mutex>

#include "casting/Log.h"
#include "media/GstHandles.h"

namespace zv::media {

std::string ensureGstInitialized() {
    static std::once_flag once;
    static std::string failure;
    std::call_once(once, [] {
        GError* raw = nullptr;
        if (!gst_init_check(nullptr, nullptr, &raw)) {
            ErrorPtr error(raw);
            failure = "GStreamer could not start: " + std::string(error ? error->message : "unknown reason");
            ZV_LOG(ERROR) << " " << failure;
            return;
        }
        guint major = 0, minor = 0, micro = 0, nano = 0;
        gst_version(&major, &minor, &micro, &nano);
        ZV_LOG(INFO) << " GStreamer " << major << "." << minor << "." << micro << " ready";
    });
    return failure;
}

}  // namespace zv::media
