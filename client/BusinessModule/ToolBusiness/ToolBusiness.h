// The tool layer the settings and diagnostics ask about this PC: whether it
// can host the virtual camera and microphone that the panel's camera and
// microphone would appear as.
#pragma once

#include <string>

class ToolBusiness {
public:
    // A v4l2loopback device (the kernel module loaded, a /dev/video* of its
    // own); empty when there is none.
    static std::string virtualCameraDevice(const std::string& sysClass = "/sys/class/video4linux");
    // A PulseAudio (or PipeWire's pulse) server this user can reach.
    static bool virtualMicrophoneHostAvailable();
    // Both of the above: the PC can offer the panel's camera and microphone.
    static bool getVirtualDeviceHostAvailable();
};
