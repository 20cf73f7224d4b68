// Everything behind the facade: registered callbacks, the library's I/O
// thread with the session and its watchdog, and discovery.
#pragma once

#include <memory>
#include <mutex>
#include <thread>

#include "casting/Callbacks.h"
#include "core/IoThread.h"

namespace zv {

class AvahiRuntime;
class CastSession;
class ClientSession;
class FileCastSession;
class KnownPanels;
class PanelBrowser;
class ShareSession;
class DeviceShareSession;
class Watchdog;

class LibraryCore {
public:
    struct Callbacks {
        PingDataCallback ping = nullptr;
        ExceptionCallback exception;
        ErrorCallback error = nullptr;
        void* user = nullptr;
        DeviceCallback found, exit, update, coming;
    };

    LibraryCore();
    ~LibraryCore();

    // A copy, so a callback is never called under the lock.
    Callbacks callbacks() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_callbacks;
    }
    template <typename Fn>
    void editCallbacks(Fn&& edit) {
        std::lock_guard<std::mutex> lock(m_mutex);
        edit(m_callbacks);
    }

    // Reports an error code to the error callback and this thread's last error.
    void reportError(unsigned long code) const;
    // Raises an exception event through the exception callback; any thread.
    void raiseException(tagNotifyExceptionType_ type, const std::function<void(tagNotifyExceptionParams_&)>& fill) const;

    // The I/O thread with the session objects, started on first use.
    IoThread& io();
    ClientSession& session();   // I/O thread only
    CastSession& cast();        // I/O thread only
    Watchdog& watchdog();       // I/O thread only
    ShareSession& share();      // I/O thread only: the reverse screen
    FileCastSession& fileCast();  // I/O thread only; its info() from any thread
    // I/O thread only: camera and microphone sharing, made on first use.
    DeviceShareSession& devices();

    // What the next cast uses (initProtocol, setWindowScreenInfo).
    struct CastChoices {
        ProtocolType stream = PROTOCOL_UDP;  // SRTP over UDP: encrypted and the fastest
        ProtocolType reverse = PROTOCOL_TCP;
        ProtocolType mouse = PROTOCOL_TCP;
        tagWindowScreenInfo_ window{};
    };
    CastChoices castChoices() const;
    template <typename Fn>
    void editCastChoices(Fn&& edit) {
        std::lock_guard<std::mutex> lock(m_mutex);
        edit(m_castChoices);
    }

    void setClientDevice(const tagDeviceInfo_& device);
    tagDeviceInfo_ clientDevice() const;

    // Discovery: started once, stopped by endDiscovery or shutdown.
    bool startDiscovery();
    void stopDiscovery();
    void refreshDiscovery();
    std::optional<KLUF_DEVICE_INFO> lookupCode(const QString& code) const;
    std::vector<KLUF_DEVICE_INFO> discoveredPanels() const;

    // Ends the session, discovery and the I/O thread; a later call starts afresh.
    void shutdown();

private:
    void startIoLocked();

    mutable std::mutex m_mutex;
    Callbacks m_callbacks;
    tagDeviceInfo_ m_clientDevice{};
    CastChoices m_castChoices;

    std::mutex m_ioMutex;
    std::unique_ptr<IoThread> m_io;
    ClientSession* m_session = nullptr;  // owned by the I/O thread's context
    CastSession* m_cast = nullptr;       // likewise
    Watchdog* m_watchdog = nullptr;      // likewise
    ShareSession* m_share = nullptr;     // likewise
    FileCastSession* m_fileCast = nullptr;  // likewise
    DeviceShareSession* m_devices = nullptr;  // likewise; touched on the I/O thread only
    std::shared_ptr<KnownPanels> m_knownPanels;
    // Loads GStreamer (its first start scans every plug-in, seconds on a cold
    // machine) while the user is still choosing a panel, so a cast request
    // does not stall the I/O thread and its heartbeats.
    std::thread m_mediaWarmUp;

    mutable std::mutex m_discoveryMutex;
    std::shared_ptr<AvahiRuntime> m_avahi;
    std::unique_ptr<PanelBrowser> m_browser;
};

}  // namespace zv
