// The casting library's session facade. One per process.
//
// Threads: the library owns an I/O thread on which its sockets, timers and
// discovery live; it never needs the caller's event loop. Blocking operations
// (logIn, checkVersion, miracastResq, shareResq) block only their caller, with
// a time-out. Callbacks arrive on library threads, never on the caller's.
//
// Results: a long of 0 means success; on failure the reason is delivered as an
// error code through the error callback (and MC_Util_GetLastError).
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "Callbacks.h"
#include "SessionRecords.h"

namespace zv {
class LibraryCore;
}

class CManageAll {
public:
    static CManageAll* getInstance();

    // Logging and callbacks.
    long initLogOut(const char* logPath, bool enable);
    long initCallBack(PingDataCallback pingCallback);
    long initDataCallBack(ExceptionCallback exceptionCallback, ErrorCallback errorCallback, void* user);

    // Session.
    long uploadClientDeviceInfo(tagDeviceInfo_& info);
    long logIn(tagCodeServerInfo_ server, tagDeviceListUnitInfo_& device, long& userHandle,
               long& sessionHandle, void* reserved, ClientDeviceType type, const char* hostName);
    long logOut(long userHandle, long sessionHandle);
    // Forgets the pinned key of the panel of that name (known-panels), so
    // the next log-in without a code accepts whatever key it shows; how many
    // entries went. For a panel that was reinstalled.
    int forgetPanel(const char* name);
    // Passcode service instances, "HOST:PORT[#KEYID],HOST:PORT[#KEYID]...",
    // asked in order for 4-character codes instead of logIn's server; empty
    // or null: logIn's server again. -1 (and nothing changed) when malformed.
    long setPasscodeServers(const char* servers);
    long checkVersion(VersionInfo& info, long userHandle);
    long getBusinessCap(BusinessCap& cap);
    tagDeviceInfo_ getServerInfo();
    int getServerDeviceType();
    // 0 idle, 1 logging in, 2 logged in, 3 casting, 4 reverse screen.
    int getStatues();

    // Screen and window casting.
    long initProtocol(ProtocolType stream, ProtocolType reverse, ProtocolType mouse);
    long miracastResq(long userHandle, tagDeviceListUnitInfo_& device, CaptureMouseCallback mouseCallback,
                      void* mouseUser, ReverseControlCallback reverseCallback, void* reverseUser, bool flag,
                      VideoStreamSource source);
    long pauseMiracast(bool pause);
    long stopMiracast();
    long setWindowScreenInfo(tagWindowScreenInfo_ info);
    long voiceOn(int close, bool reserved);
    long reverseCtrlOn(int on, ScreenControlType type);

    // Reverse screen.
    long shareResq(long userHandle, tagDeviceListUnitInfo_& device, StreamDataCallback streamCallback,
                   void* streamUser, StreamDataCallback secondCallback, void* secondUser, bool flag);
    long stopShare();
    long requestShareKeyFrame(bool force);
    long voiceShareOn(int on);
    long reverseCtrlShareOn(int on);
    long pushMouseJSON(const char* json);

    // Discovery.
    void setFoundDeviceCallback(DeviceCallback callback);
    void setExitDeviceCallback(DeviceCallback callback);
    void setUpdateDeviceCallback(DeviceCallback callback);
    void setDevComingCallback(DeviceCallback callback);
    long startDiscovery();
    long endDiscovery();
    long refreshGroupList();

    // File casting.
    long setCastFile(const char* path);
    long pauseCastFile();
    long resumeCastFile();
    long seekCastFile(int seconds);
    long setCastFileVolume(int volume);
    long getCastFilePlayInfo(int& positionSeconds, int& durationSeconds, CastFileState& state, int& volume);
    long rotatePicture(int degrees);
    long scalePicture(int percent);
    long translatePicture(int dx, int dy);

    // Camera and microphone sharing: the logged-in panel's microphone (and
    // camera) become devices of this PC (the source "zelvanor_mic.monitor").
    // 0 when they flow; else -1 and *why says so for the user ("not
    // supported: ..." where this PC cannot host them, or the panel's reason).
    struct DeviceShareResult {
        std::string reason;  // empty on success
        std::string text;
        bool camera = false;
        bool testTone = false;  // the panel lends its test tone
        std::string source;
        std::string cameraDevice;  // the loopback device showing the panel's camera
    };
    long startDeviceShare(bool microphone, bool camera, DeviceShareResult* result);
    long stopDeviceShare();
    // Whether the shared microphone's packets arrive and pass the key check.
    bool deviceShareReceiving();

    // Reports for the panel's log.
    long reportOtherClientInfo(const char* event);
    long reportClientEventInfo(const char* event, bool flag, const char* detail);

    // Ends every session and thread of the library. Safe to call more than once.
    void destroy();
    // Ends the session, discovery and the library's I/O thread. Must run
    // while the QCoreApplication still exists: the I/O thread's last work and
    // the deletion of its objects need Qt. Does nothing when nothing runs, so
    // every exit path may call it; a later operation starts the library again.
    void shutdown();

    zv::LibraryCore& core();

private:
    CManageAll();
    ~CManageAll();
    // The core, marked as in use: shutdown has something to end.
    zv::LibraryCore* live();

    std::unique_ptr<zv::LibraryCore> m_core;
    std::atomic<bool> m_inUse{false};
    std::mutex m_shutdownMutex;
};
