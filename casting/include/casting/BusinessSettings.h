// Switches that shape the next cast (screen layout, mute, window) and the
// diagnostic dumps. Read by the media pipeline when a cast starts; safe from
// any thread.
#pragma once

#include <atomic>
#include <mutex>

#include "SessionRecords.h"

class BusinessSettings {
public:
    static BusinessSettings& getInstance();

    // Back to the state of a fresh start (after a session failed or ended):
    // unmute, whole screen, layout unknown, no dumps.
    void restoreDefault();

    // Mutes the PC's own sound output while a cast runs (the panel plays it).
    void setSystemMute(bool mute);
    bool isSystemMuted() const { return m_systemMute; }

    // Number of monitors found (1 = single, 2+ = extended layout).
    void setScreenMode(int mode);
    int getScreenMode() const { return m_screenMode; }
    void setScreenWindowInfo(const tagWindowScreenInfo_& info);
    tagWindowScreenInfo_ getScreenWindowInfo() const;
    void setRealCapResolution(int width, int height);
    void getRealCapResolution(int& width, int& height) const;

    // True once a usable hardware H.264 encoder was found by the run-time probe.
    bool getHardwareCodingAvailable();
    // Runs the encoder probe (blocking, a few hundred ms at most); done once.
    void probeHardwareCoding();

    void setIsRecordTimeLog(bool on) { m_recordTimeLog = on; }
    void setIsWriteH264Flow(bool on) { m_writeH264 = on; }
    void setIsWriteRGBFlow(bool on) { m_writeRgb = on; }
    void setIsWriteRGBFlowAfterYUV(bool on) { m_writeRgbAfterYuv = on; }
    void setIsWriteRTPFlow(bool on) { m_writeRtp = on; }
    void setIsWriteYUVFlow(bool on) { m_writeYuv = on; }
    void setPrintMouseInfo(bool on) { m_printMouse = on; }
    bool isRecordTimeLog() const { return m_recordTimeLog; }
    bool isWriteH264Flow() const { return m_writeH264; }
    bool isWriteRGBFlow() const { return m_writeRgb; }
    bool isWriteRGBFlowAfterYUV() const { return m_writeRgbAfterYuv; }
    bool isWriteRTPFlow() const { return m_writeRtp; }
    bool isWriteYUVFlow() const { return m_writeYuv; }
    bool isPrintMouseInfo() const { return m_printMouse; }

private:
    BusinessSettings() = default;
    void applySystemMute(bool mute);

    std::atomic<bool> m_systemMute{false};
    std::atomic<int> m_screenMode{0};
    mutable std::mutex m_mutex;
    tagWindowScreenInfo_ m_window{};
    int m_capWidth = 0;
    int m_capHeight = 0;
    // Sound-server calls run one at a time; m_muteApplied says that we muted the
    // default sink ourselves, m_sinkWasMuted what it was before, so unmuting
    // puts back the user's own state.
    std::mutex m_muteMutex;
    bool m_muteApplied = false;
    bool m_sinkWasMuted = false;
    std::once_flag m_probeOnce;
    std::atomic<bool> m_hardwareCoding{false};
    std::atomic<bool> m_recordTimeLog{false}, m_writeH264{false}, m_writeRgb{false},
        m_writeRgbAfterYuv{false}, m_writeRtp{false}, m_writeYuv{false}, m_printMouse{false};
};
