// CManageAll's file casting: the file goes to the panel through
// FileCastSession on the I/O thread; controls return at once, play info
// waits briefly for the panel's answer.
#include "casting/CManageAll.h"

#include <QString>

#include <optional>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "session/ClientSession.h"
#include "session/FileCastSession.h"
#include "session/LibraryCore.h"

namespace {

constexpr auto kCallTimeout = std::chrono::seconds(5);
// The client polls once a second: an answer later than this is left for the next poll.
constexpr auto kInfoWait = std::chrono::milliseconds(400);

// Runs a control on the I/O thread; 0 when a file was being cast.
template <typename Fn>
long control(CManageAll& facade, const char* operation, Fn fn) {
    zv::LibraryCore& core = facade.core();
    const auto sent = core.io().call([&core, fn] { return fn(core.fileCast()); }, kCallTimeout);
    if (sent && *sent) return 0;
    ZV_LOG(WARNING) << " " << operation << ": no file is being cast";
    MC_Util_SetLastError(zv_error::MIRRORING_ABNORMAL);
    return -1;
}

}  // namespace

namespace zv {

// miracastResq with VIDEO_SOURCE_FILE: no screen media, only the session;
// the file follows with setCastFile.
long fileCastRequest(LibraryCore& core) {
    // Bits of 0: a panel of before the capabilities were announced; it is asked anyway.
    const auto caps = core.io().call(
        [&core]() -> std::optional<int64_t> {
            if (!core.session().isLoggedIn()) return std::nullopt;
            return core.session().welcome().caps().bits();
        },
        kCallTimeout);
    if (caps && *caps) {
        const int64_t bits = **caps;
        if (bits != 0 && (bits & BusinessCap::CAP_FILE_CAST) == 0) {
            ZV_LOG(WARNING) << " the panel does not play files";
            core.reportError(zv_error::REQUEST_REFUSED);
            return FAIL;
        }
        return SUCCESS;
    }
    ZV_LOG(WARNING) << " file cast asked for without a session";
    core.reportError(zv_error::CONNECT_FAILED);
    return FAIL;
}

void stopFileCast(LibraryCore& core, const QString& reason) {
    core.io().call(
        [&core, reason] {
            core.fileCast().stop(reason);
            return true;
        },
        kCallTimeout);
}

}  // namespace zv

long CManageAll::setCastFile(const char* path) {
    const QString file = QString::fromUtf8(path != nullptr ? path : "");
    zv::LibraryCore& library = core();
    const auto error = library.io().call(
        [&library, file] {
            QString why;
            return library.fileCast().start(file, &why) ? QString() : why;
        },
        kCallTimeout);
    if (error && error->isEmpty()) return 0;
    const QString why = error ? *error : QStringLiteral("the library did not answer");
    ZV_LOG(WARNING) << " cannot cast \"" << file.toStdString() << "\": " << why.toStdString();
    library.reportError(zv_error::MIRRORING_ABNORMAL);
    return -1;
}

long CManageAll::pauseCastFile() {
    return control(*this, __FUNCTION__, [](zv::FileCastSession& f) { return f.pause(true); });
}

long CManageAll::resumeCastFile() {
    return control(*this, __FUNCTION__, [](zv::FileCastSession& f) { return f.pause(false); });
}

long CManageAll::seekCastFile(int seconds) {
    return control(*this, __FUNCTION__, [seconds](zv::FileCastSession& f) { return f.seek(seconds); });
}

long CManageAll::setCastFileVolume(int volume) {
    return control(*this, __FUNCTION__, [volume](zv::FileCastSession& f) { return f.setVolume(volume); });
}

long CManageAll::rotatePicture(int degrees) {
    return control(*this, __FUNCTION__, [degrees](zv::FileCastSession& f) { return f.rotate(degrees); });
}

long CManageAll::scalePicture(int percent) {
    return control(*this, __FUNCTION__, [percent](zv::FileCastSession& f) { return f.scale(percent); });
}

long CManageAll::translatePicture(int dx, int dy) {
    return control(*this, __FUNCTION__, [dx, dy](zv::FileCastSession& f) { return f.translate(dx, dy); });
}

long CManageAll::getCastFilePlayInfo(int& positionSeconds, int& durationSeconds, CastFileState& state, int& volume) {
    zv::LibraryCore& library = core();
    const auto asked = library.io().call(
        [&library] {
            zv::FileCastSession& f = library.fileCast();
            const uint64_t before = f.info().generation;
            return f.requestInfo() ? std::optional<uint64_t>(before) : std::nullopt;
        },
        kCallTimeout);
    // Without a file the last state stands (ended, error or idle).
    zv::FileCastSession::Info info;
    if (asked && *asked) {
        info = library.fileCast().waitForInfo(**asked, kInfoWait);
    } else {
        info = library.fileCast().info();
    }
    positionSeconds = info.positionMs / 1000;
    durationSeconds = info.durationMs / 1000;
    state = info.state;
    volume = info.volume;
    return asked && *asked ? 0 : -1;
}
