// The facade's camera and microphone sharing: DeviceShareSession on the I/O thread.
#include <chrono>
#include <future>
#include <memory>

#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "session/DeviceShareSession.h"
#include "session/LibraryCore.h"

long CManageAll::startDeviceShare(bool microphone, bool camera, DeviceShareResult* result) {
    using Outcome = zv::DeviceShareSession::Outcome;
    auto promise = std::make_shared<std::promise<Outcome>>();
    std::future<Outcome> future = promise->get_future();
    zv::LibraryCore* core = live();
    core->io().post([core, microphone, camera, promise] {
        core->devices().request(microphone, camera, [promise](const Outcome& outcome) { promise->set_value(outcome); });
    });
    Outcome outcome;
    outcome.reason = QStringLiteral("timeout");
    outcome.text = QStringLiteral("the panel did not answer");
    // The device's start (a sound server module, a pipeline) and the answer.
    if (future.wait_for(std::chrono::seconds(20)) == std::future_status::ready) {
        outcome = future.get();
    } else {
        core->io().post([core] { core->devices().stop(QStringLiteral("timeout")); });
    }
    if (result != nullptr) {
        result->reason = outcome.ok ? std::string() : outcome.reason.toStdString();
        result->text = outcome.text.toStdString();
        result->camera = outcome.camera;
        result->testTone = outcome.testTone;
        result->source = outcome.source.toStdString();
        result->cameraDevice = outcome.cameraDevice.toStdString();
    }
    if (!outcome.ok) {
        ZV_LOG(WARNING) << " camera and microphone sharing failed: " << outcome.text.toStdString();
        MC_Util_SetLastError(zv_error::CONNECT_FAILED);
        return -1;
    }
    return 0;
}

long CManageAll::stopDeviceShare() {
    zv::LibraryCore* core = live();
    core->io().call(
        [core] {
            core->devices().stop(QStringLiteral("stopped by the user"));
            return true;
        },
        std::chrono::seconds(10));
    return 0;
}

bool CManageAll::deviceShareReceiving() {
    zv::LibraryCore* core = live();
    const auto receiving = core->io().call([core] { return core->devices().receiving(); }, std::chrono::seconds(5));
    return receiving && *receiving;
}
