// Utility functions of the casting library.
#pragma once

#include <string>

// Fills mac ("aa:bb:cc:dd:ee:ff") and ip (dotted IPv4) of the first interface
// that is up, not loopback and has an IPv4 address. Returns 0 on success,
// -1 when there is none (no usable network) or the buffers are too small.
int MC_Util_GetLocalMACIP(char* mac, int macSize, char* ip, int ipSize);
// The user's home folder, without a trailing slash.
std::string MC_Util_GetHomePath();
// True when this PC is a virtual machine (DMI vendor/product strings, the
// hypervisor CPU flag).
bool MC_Util_IsVirtulPC();
// The last error of a library call on this thread: an error code of
// ErrorCodes.h, or 0.
unsigned long MC_Util_GetLastError();
// Library-internal: records the last error of this thread.
void MC_Util_SetLastError(unsigned long code);
