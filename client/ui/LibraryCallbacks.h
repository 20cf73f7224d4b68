// The plain functions the client registers with the casting library. They are
// called on library threads; the user pointer is the main window (or null,
// in which case they return at once and emit nothing).
#pragma once

#include "casting/ExceptionEvents.h"
#include "casting/SessionRecords.h"

// Delay samples: emits signalSetDelayWhenUseTCP(value). -1 with a null user.
long pingDataCallback(bool valid, const char* label, int value, void* user);

// Error codes: emits signalMainErrorCode(code).
void errorCallbackFunc(unsigned long code, void* user);

// Exception events: forwarded to the main window's deviceExceptionCallBack.
// -1 with a null user.
long exceptionCallBackFun(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user);

// Pointer position for the panel: the main window's mouseCapCallback fills it.
void captureMouseCallback(int& x, int& y, MOUSESTATUS& status, void* user, bool& visible);

// Touch and mouse actions from the panel: the main window's
// screenReverseControl. Returns 0; -1 with a null user.
int reverseControlCallback(CtrlMouseInfo_S* info, bool pressed, int first, int second, void* user);

// Pieces of the panel's stream (reverse screen): handed to the reverse-screen
// view given as user (a qorquicomponents::ReverseScreen) for its player.
// Always 0; nothing happens with a null user.
long reverseScreenStreamCallback(int type, char* data, int length, void* user);
long inputStreamDataCallBack(int type, char* data, int length, void* user);

// Registered nowhere; returns its first argument.
void* pushMouseCallBack(void* first, int, int, int);
