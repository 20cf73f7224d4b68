// Callback signatures the client registers with the casting library. All of
// them are called on library threads; the user pointer is whatever was given
// at registration.
#pragma once

#include <functional>

#include "ExceptionEvents.h"
#include "SessionRecords.h"

// Delay samples and other numeric reports: (valid, label, value, user).
using PingDataCallback = long (*)(bool, const char*, int, void*);
// Error codes (see ErrorCodes.h).
using ErrorCallback = void (*)(unsigned long, void*);
// Exception events (see ExceptionEvents.h).
using ExceptionCallbackFn = long (*)(tagNotifyExceptionType_, tagNotifyExceptionParams_*, void*);
using ExceptionCallback = std::function<long(tagNotifyExceptionType_, tagNotifyExceptionParams_*, void*)>;
// Pointer position for the panel, in panel units: (x, y, status, user, visible).
using CaptureMouseCallback = void (*)(int&, int&, MOUSESTATUS&, void*, bool&);
// Touches and mouse actions from the panel: (action, pressed, reserved, reserved, user).
using ReverseControlCallback = int (*)(CtrlMouseInfo_S*, bool, int, int, void*);
// Stream data of the panel's screen: (type, data, length, user).
using StreamDataCallback = long (*)(int, char*, int, void*);
// Discovery: one panel found, updated, gone or seen for the first time.
using DeviceCallback = std::function<void(const KLUF_DEVICE_INFO&)>;
