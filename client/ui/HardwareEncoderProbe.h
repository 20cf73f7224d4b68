// Probes the hardware encoder once, on a thread of its own, because the probe
// can take a second or more and the window must not wait for it. The first
// cast request waits for the answer, for a bounded time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace qorquicomponents {

class HardwareEncoderProbe {
public:
    HardwareEncoderProbe() = default;
    ~HardwareEncoderProbe();  // joins the probe thread
    HardwareEncoderProbe(const HardwareEncoderProbe&) = delete;
    HardwareEncoderProbe& operator=(const HardwareEncoderProbe&) = delete;

    // Starts the probe; the result goes into BusinessSettings. Once only.
    void start();
    // Waits until the probe has finished, at most timeout; true once it has.
    bool waitFinished(std::chrono::milliseconds timeout);
    bool isFinished();
    // Waits for the probe thread to end; the destructor does so as well.
    void join();

private:
    std::mutex m_mutex;
    std::condition_variable m_finishedCond;
    bool m_finished = false;
    std::thread m_thread;
};

}  // namespace qorquicomponents
