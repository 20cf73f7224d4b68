// The Dexo_ entry points. Not built yet: every call fails with
// DEXO_ERR_UNAVAILABLE, so a caller takes its failure path.
#include "casting/Dexo.h"

#include <atomic>

namespace {
std::atomic<unsigned int> g_lastError{DEXO_ERR_NONE};

DEXO_BOOL unavailable() {
    g_lastError = DEXO_ERR_UNAVAILABLE;
    return DEXO_FALSE;
}
}  // namespace

extern "C" {
DEXO_BOOL Dexo_GetPort(int*) { return unavailable(); }
DEXO_BOOL Dexo_FreePort(int) { return unavailable(); }
unsigned int Dexo_GetLastError(int) { return g_lastError.load(); }
DEXO_BOOL Dexo_SetRunTimeInfoCallBackEx(int, int, DexoRunTimeInfoCallback, void*) { return unavailable(); }
DEXO_BOOL Dexo_SetRunTimeInfoCallbackType(int, int, unsigned int, int) { return unavailable(); }
DEXO_BOOL Dexo_SetStreamOpenMode(int, int) { return unavailable(); }
DEXO_BOOL Dexo_OpenStream(int, const unsigned char*, unsigned int, unsigned int) { return unavailable(); }
DEXO_BOOL Dexo_CloseStream(int) { return unavailable(); }
DEXO_BOOL Dexo_SetDisplayBuf(int, unsigned int) { return unavailable(); }
DEXO_BOOL Dexo_SyncToAudio(int, int) { return unavailable(); }
DEXO_BOOL Dexo_PlaySound(int) { return unavailable(); }
DEXO_BOOL Dexo_StopSound(int) { return unavailable(); }
DEXO_BOOL Dexo_SetDecodeERC(int, unsigned int) { return unavailable(); }
DEXO_BOOL Dexo_Play(int, unsigned long) { return unavailable(); }
DEXO_BOOL Dexo_Stop(int) { return unavailable(); }
DEXO_BOOL Dexo_InputData(int, const void*, unsigned int) { return unavailable(); }
DEXO_BOOL Dexo_WndResolutionChange(int) { return unavailable(); }
DEXO_BOOL Dexo_GetJPEG(int, unsigned char*, unsigned int, unsigned int*) { return unavailable(); }
DEXO_BOOL Dexo_GetPictureSize(int, int*, int*) { return unavailable(); }
}
