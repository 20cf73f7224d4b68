#include "core/CastingConditions.h"

#include <gst/gst.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "media/GstInit.h"

namespace zv {

namespace {

std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

CastingCondition displayCondition() {
    const std::string session = env("XDG_SESSION_TYPE");
    if (session == "wayland" || !env("WAYLAND_DISPLAY").empty()) {
        return {"display", "Wayland session: only X11 (XWayland) windows can be captured; log in to an X11 session",
                false};
    }
    if (!env("DISPLAY").empty()) return {"display", "X11 (DISPLAY=" + env("DISPLAY") + ")", true};
    return {"display", "no display: nothing to capture", false};
}

CastingCondition encoderCondition() {
    const std::string failure = media::ensureGstInitialized();
    if (!failure.empty()) return {"encoder", failure, false};
    // Hardware first, as the cast itself prefers them.
    const char* const hardware[] = {"vaapih264enc", "nvh264enc", "v4l2h264enc", "qsvh264enc"};
    const char* const software[] = {"x264enc", "openh264enc"};
    std::string found;
    for (const char* name : hardware) {
        if (GstElementFactory* factory = gst_element_factory_find(name)) {
            gst_object_unref(factory);
            found += std::string(found.empty() ? "" : ", ") + name + " (hardware)";
        }
    }
    for (const char* name : software) {
        if (GstElementFactory* factory = gst_element_factory_find(name)) {
            gst_object_unref(factory);
            found += std::string(found.empty() ? "" : ", ") + name + " (software)";
        }
    }
    if (found.empty()) return {"encoder", "no H.264 encoder: install gstreamer1.0-plugins-ugly (x264enc)", false};
    return {"encoder", found, true};
}

bool socketExists(const std::string& path) {
    struct stat info {};
    return !path.empty() && stat(path.c_str(), &info) == 0 && S_ISSOCK(info.st_mode);
}

CastingCondition soundCondition() {
    std::string where;
    if (soundServerPresent(&where)) return {"sound", where, true};
    return {"sound", where + ": casts carry no sound", false};
}

CastingCondition networkCondition() {
    std::string addresses;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) == 0) {
        for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
            if ((entry->ifa_flags & IFF_LOOPBACK) != 0 || (entry->ifa_flags & IFF_UP) == 0) continue;
            char text[INET_ADDRSTRLEN] = {};
            const auto* in = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
            if (inet_ntop(AF_INET, &in->sin_addr, text, sizeof text) == nullptr) continue;
            addresses += std::string(addresses.empty() ? "" : ", ") + entry->ifa_name + " " + text;
        }
        freeifaddrs(list);
    }
    if (addresses.empty()) return {"network", "no IPv4 network: panels cannot be reached", false};
    return {"network", addresses, true};
}

}  // namespace

bool soundServerPresent(std::string* where) {
    std::string server = env("PULSE_SERVER");
    if (server.rfind("unix:", 0) == 0) server = server.substr(5);
    if (!server.empty() && server[0] != '/') {
        *where = "PulseAudio server " + server;
        return true;
    }
    const std::string runtime = env("XDG_RUNTIME_DIR").empty() ? "/run/user/" + std::to_string(getuid())
                                                               : env("XDG_RUNTIME_DIR");
    // A root sound server (system mode) listens here.
    for (const std::string& path : {server, runtime + "/pulse/native", std::string("/var/run/pulse/native")}) {
        if (socketExists(path)) {
            const bool pipewire = socketExists(runtime + "/pipewire-0");
            *where = std::string(pipewire ? "PipeWire (PulseAudio socket) " : "PulseAudio ") + path;
            return true;
        }
    }
    *where = "no sound server" + (server.empty() ? std::string() : " at " + server);
    return false;
}

std::vector<CastingCondition> collectCastingConditions() {
    return {displayCondition(), encoderCondition(), soundCondition(), networkCondition()};
}

}  // namespace zv
