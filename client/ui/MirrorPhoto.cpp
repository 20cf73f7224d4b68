#include "ui/MirrorPhoto.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFileInfo>
#include <QString>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "casting/Log.h"
#include "casting/McUtil.h"

namespace qorquicomponents {
namespace mirror_photo {

std::string folder() { return MC_Util_GetHomePath() + "/Zelvanor/Logs/Streaming File/"; }

std::string fileName(long long seconds) {
    char name[32] = {0};
    std::snprintf(name, sizeof name, "MirrorPhoto_%lld.jpg", seconds);
    return name;
}

Result save(const std::string& dir, long long seconds, const unsigned char* data, size_t size, std::string& path) {
    path = dir + fileName(seconds);
    if (QFileInfo::exists(QString::fromStdString(path))) return Result::AlreadyExists;
    if (!QDir().mkpath(QString::fromStdString(dir))) {
        ZV_LOG(WARNING) << " cannot create the snapshot folder " << dir;
        return Result::Failed;
    }
    // O_EXCL: two snapshots racing for one second write one file.
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_EXCL, 0644);
    if (fd < 0) {
        if (errno == EEXIST) return Result::AlreadyExists;
        ZV_LOG(WARNING) << " cannot open " << path << ": " << std::strerror(errno);
        return Result::Failed;
    }
    size_t written = 0;
    while (written < size) {
        const ssize_t n = ::write(fd, data + written, size - written);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        written += static_cast<size_t>(n);
    }
    ::close(fd);
    if (written != size) {
        ZV_LOG(WARNING) << " short write of " << path << ": " << written << " of " << size;
        return Result::Failed;
    }
    return Result::Written;
}

}  // namespace mirror_photo
}  // namespace qorquicomponents
