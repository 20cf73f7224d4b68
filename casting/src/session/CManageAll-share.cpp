// The facade's reverse-screen operations: ShareSession on the I/O thread.
#include <QByteArray>

#include <chrono>
#include <future>
#include <memory>

#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "session/LibraryCore.h"
#include "session/ShareSession.h"

namespace {

constexpr auto kCallTimeout = std::chrono::seconds(5);

}  // namespace

long CManageAll::shareResq(long, tagDeviceListUnitInfo_&, StreamDataCallback streamCallback, void* streamUser,
                           StreamDataCallback, void*, bool flag) {
    using Answer = std::pair<ProjectOrShareReqResult, uint32_t>;
    auto promise = std::make_shared<std::promise<Answer>>();
    std::future<Answer> future = promise->get_future();
    zv::LibraryCore* core = live();
    core->io().post([core, streamCallback, streamUser, flag, promise] {
        core->share().request(streamCallback, streamUser, flag,
                              [promise](ProjectOrShareReqResult result, uint32_t error) {
                                  promise->set_value({result, error});
                              });
    });
    Answer answer{FAIL, zv_error::CONNECT_FAILED};
    if (future.wait_for(std::chrono::seconds(15)) == std::future_status::ready) {
        answer = future.get();
    } else {
        ZV_LOG(WARNING) << " no answer to the reverse-screen request in time";
        core->io().post([core] { core->share().stop(QStringLiteral("timeout")); });
    }
    if (answer.first == FAIL && answer.second != 0) m_core->reportError(answer.second);
    ZV_LOG(INFO) << " reverse-screen request answered " << answer.first;
    return answer.first;
}

long CManageAll::stopShare() {
    zv::LibraryCore* core = live();
    // Returns once the stream has stopped: no stream callback comes after it.
    core->io().call(
        [core] {
            core->share().stop(QStringLiteral("stopped by the user"));
            return true;
        },
        kCallTimeout);
    return 0;
}

long CManageAll::requestShareKeyFrame(bool) {
    zv::LibraryCore* core = live();
    // Often called from the stream thread after a bad piece: never wait there.
    core->io().post([core] { core->share().requestKeyFrame(); });
    return 0;
}

long CManageAll::voiceShareOn(int on) {
    zv::LibraryCore* core = live();
    const auto sent = core->io().call([core, on] { return core->share().setVoice(on != 0); }, kCallTimeout);
    return sent && *sent ? 0 : -1;
}

long CManageAll::reverseCtrlShareOn(int on) {
    zv::LibraryCore* core = live();
    const auto sent = core->io().call([core, on] { return core->share().setControl(on != 0); }, kCallTimeout);
    return sent && *sent ? 0 : -1;
}

long CManageAll::pushMouseJSON(const char* json) {
    if (json == nullptr) return -1;
    zv::wire::ShareInput input;
    QString error;
    if (!zv::ShareSession::parseInput(QByteArray(json), &input, &error)) {
        ZV_LOG(WARNING) << " not sent: " << error.toStdString();
        return -1;
    }
    zv::LibraryCore* core = live();
    core->io().post([core, input] { core->share().sendInput(input); });
    return 0;
}
