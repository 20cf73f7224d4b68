#include "BusinessModule/ToolBusiness/ToolBusiness.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>

#include "casting/Log.h"

std::string ToolBusiness::virtualCameraDevice(const std::string& sysClass) {
    DIR* dir = opendir(sysClass.c_str());
    if (dir == nullptr) return {};
    std::string found;
    while (dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.rfind("video", 0) != 0) continue;
        std::ifstream driver(sysClass + "/" + name + "/name");
        std::string card;
        std::getline(driver, card);
        // v4l2loopback names its cards "Dummy video device (0x0000)" unless given a label.
        struct stat module {};
        const bool loopback = stat("/sys/module/v4l2loopback", &module) == 0;
        if (loopback && (card.find("Dummy video device") != std::string::npos || card.find("loopback") != std::string::npos)) {
            found = "/dev/" + name;
            break;
        }
    }
    closedir(dir);
    return found;
}

// The server the pulse clients would use: $PULSE_SERVER ("unix:PATH"), else
// $XDG_RUNTIME_DIR/pulse/native. It has to accept a connection.
bool ToolBusiness::virtualMicrophoneHostAvailable() {
    std::string path;
    if (const char* server = std::getenv("PULSE_SERVER")) {
        const std::string text = server;
        if (text.rfind("unix:", 0) != 0) return !text.empty();  // a network server: assume it hosts
        path = text.substr(5);
    } else if (const char* runtime = std::getenv("XDG_RUNTIME_DIR")) {
        path = std::string(runtime) + "/pulse/native";
    } else {
        return false;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    const bool reachable = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return reachable;
}

bool ToolBusiness::getVirtualDeviceHostAvailable() {
    const std::string camera = virtualCameraDevice();
    const bool microphone = virtualMicrophoneHostAvailable();
    ZV_LOG(INFO) << " virtual camera: " << (camera.empty() ? "none" : camera)
                 << ", sound server: " << (microphone ? "yes" : "no");
    return !camera.empty() && microphone;
}
