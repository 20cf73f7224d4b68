// The Dexo_ entry points: a table of ports, each a DexoPlayer.
#include <array>
#include <atomic>
#include <memory>
#include <mutex>

#include "casting/Dexo.h"
#include "player/DexoPlayer.h"

namespace {

std::mutex g_portsMutex;
std::array<std::shared_ptr<zv::player::DexoPlayer>, DEXO_MAX_PORTS> g_ports;
std::atomic<unsigned int> g_lastError{DEXO_ERR_NONE};  // for calls without a valid port

std::shared_ptr<zv::player::DexoPlayer> player(int port) {
    if (port < 0 || port >= DEXO_MAX_PORTS) {
        g_lastError = DEXO_ERR_PORT;
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(g_portsMutex);
    if (!g_ports[static_cast<size_t>(port)]) g_lastError = DEXO_ERR_PORT;
    return g_ports[static_cast<size_t>(port)];
}

template <typename Fn>
DEXO_BOOL onPort(int port, Fn&& fn) {
    const auto p = player(port);
    if (!p) return DEXO_FALSE;
    return fn(*p) ? DEXO_TRUE : DEXO_FALSE;
}

}  // namespace

extern "C" {

DEXO_BOOL Dexo_GetPort(int* port) {
    if (port == nullptr) {
        g_lastError = DEXO_ERR_PARAMETER;
        return DEXO_FALSE;
    }
    std::lock_guard<std::mutex> lock(g_portsMutex);
    for (size_t i = 0; i < g_ports.size(); ++i) {
        if (g_ports[i]) continue;
        g_ports[i] = std::make_shared<zv::player::DexoPlayer>();
        g_ports[i]->port = static_cast<int>(i);
        *port = static_cast<int>(i);
        return DEXO_TRUE;
    }
    g_lastError = DEXO_ERR_PORT;
    return DEXO_FALSE;
}

DEXO_BOOL Dexo_FreePort(int port) {
    std::shared_ptr<zv::player::DexoPlayer> freed;
    {
        std::lock_guard<std::mutex> lock(g_portsMutex);
        if (port < 0 || port >= DEXO_MAX_PORTS || !g_ports[static_cast<size_t>(port)]) {
            g_lastError = DEXO_ERR_PORT;
            return DEXO_FALSE;
        }
        freed = std::move(g_ports[static_cast<size_t>(port)]);
    }
    freed.reset();  // stops and closes (outside the table's lock), unless a call still runs on it
    return DEXO_TRUE;
}

unsigned int Dexo_GetLastError(int port) {
    const auto p = [&] {
        std::lock_guard<std::mutex> lock(g_portsMutex);
        return port >= 0 && port < DEXO_MAX_PORTS ? g_ports[static_cast<size_t>(port)] : nullptr;
    }();
    return p ? p->lastError() : g_lastError.load();
}

DEXO_BOOL Dexo_SetRunTimeInfoCallBackEx(int port, int module, DexoRunTimeInfoCallback callback, void* user) {
    return onPort(port, [&](auto& p) {
        return module == DEXO_MODULE_DECODER ? p.setCallback(callback, user) : p.fail(DEXO_ERR_PARAMETER);
    });
}

DEXO_BOOL Dexo_SetRunTimeInfoCallbackType(int port, int module, unsigned int typeMask, int enable) {
    return onPort(port, [&](auto& p) {
        return module == DEXO_MODULE_DECODER ? p.setCallbackMask(typeMask, enable != 0) : p.fail(DEXO_ERR_PARAMETER);
    });
}

DEXO_BOOL Dexo_SetStreamOpenMode(int port, int mode) {
    return onPort(port, [&](auto& p) { return p.setOpenMode(mode); });
}

DEXO_BOOL Dexo_OpenStream(int port, const unsigned char* header, unsigned int headerSize, unsigned int bufferSize) {
    return onPort(port, [&](auto& p) { return p.open(header, headerSize, bufferSize); });
}

DEXO_BOOL Dexo_CloseStream(int port) {
    return onPort(port, [&](auto& p) { return p.close(); });
}

DEXO_BOOL Dexo_SetDisplayBuf(int port, unsigned int count) {
    return onPort(port, [&](auto& p) { return p.setDisplayBuffers(count); });
}

DEXO_BOOL Dexo_SyncToAudio(int port, int sync) {
    return onPort(port, [&](auto& p) { return p.syncToAudio(sync != 0); });
}

DEXO_BOOL Dexo_PlaySound(int port) {
    return onPort(port, [&](auto& p) { return p.setSound(true); });
}

DEXO_BOOL Dexo_StopSound(int port) {
    return onPort(port, [&](auto& p) { return p.setSound(false); });
}

DEXO_BOOL Dexo_SetDecodeERC(int port, unsigned int level) {
    return onPort(port, [&](auto& p) { return p.setConcealment(level); });
}

DEXO_BOOL Dexo_Play(int port, unsigned long window) {
    return onPort(port, [&](auto& p) { return p.play(window); });
}

DEXO_BOOL Dexo_Stop(int port) {
    return onPort(port, [&](auto& p) { return p.stop(); });
}

DEXO_BOOL Dexo_InputData(int port, const void* data, unsigned int length) {
    return onPort(port, [&](auto& p) { return p.input(static_cast<const uint8_t*>(data), length); });
}

DEXO_BOOL Dexo_WndResolutionChange(int port) {
    return onPort(port, [&](auto& p) { return p.windowChanged(); });
}

DEXO_BOOL Dexo_GetJPEG(int port, unsigned char* buffer, unsigned int bufferSize, unsigned int* pictureSize) {
    return onPort(port, [&](auto& p) { return p.jpeg(buffer, bufferSize, pictureSize); });
}

DEXO_BOOL Dexo_GetPictureSize(int port, int* width, int* height) {
    return onPort(port, [&](auto& p) { return p.pictureSize(width, height); });
}

}  // extern "C"
