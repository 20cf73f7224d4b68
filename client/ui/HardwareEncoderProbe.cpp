#include "ui/HardwareEncoderProbe.h"

#include "casting/BusinessSettings.h"
#include "casting/Log.h"

namespace qorquicomponents {

HardwareEncoderProbe::~HardwareEncoderProbe() { join(); }

void HardwareEncoderProbe::join() {
    if (m_thread.joinable()) m_thread.join();
}

void HardwareEncoderProbe::start() {
    if (m_thread.joinable()) return;
    m_thread = std::thread([this] {
        BusinessSettings& settings = BusinessSettings::getInstance();
        settings.probeHardwareCoding();
        ZV_LOG(INFO) << " hardware encoder probe finished, available: " << settings.getHardwareCodingAvailable();
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_finished = true;
        }
        m_finishedCond.notify_all();
    });
}

bool HardwareEncoderProbe::waitFinished(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_finishedCond.wait_for(lock, timeout, [this] { return m_finished; });
}

bool HardwareEncoderProbe::isFinished() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished;
}

}  // namespace qorquicomponents
