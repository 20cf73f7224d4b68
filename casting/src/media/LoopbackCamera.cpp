#include "media/LoopbackCamera.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace zv::media {

std::string findLoopbackCamera(const std::string& devFolder) {
    DIR* dir = opendir(devFolder.c_str());
    if (dir == nullptr) return {};
    std::vector<std::string> names;
    while (dirent* entry = readdir(dir)) {
        if (std::strncmp(entry->d_name, "video", 5) == 0) names.emplace_back(entry->d_name);
    }
    closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        const std::string path = devFolder + "/" + name;
        const int fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) continue;
        v4l2_capability caps{};
        const bool asked = ioctl(fd, VIDIOC_QUERYCAP, &caps) == 0;
        close(fd);
        if (asked && std::strncmp(reinterpret_cast<const char*>(caps.driver), "v4l2 loopback", sizeof caps.driver) == 0) {
            return path;
        }
    }
    return {};
}

}  // namespace zv::media
