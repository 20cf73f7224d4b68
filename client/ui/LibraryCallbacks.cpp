#include "ui/LibraryCallbacks.h"

#include "ui/OrvixUpgrade.h"
#include "ui/ReverseScreen.h"

using qorquicomponents::OrvixUpgrade;

long pingDataCallback(bool, const char*, int value, void* user) {
    if (user == nullptr) return -1;
    emit static_cast<OrvixUpgrade*>(user)->signalSetDelayWhenUseTCP(value);
    return 0;
}

void errorCallbackFunc(unsigned long code, void* user) {
    if (user == nullptr) return;
    emit static_cast<OrvixUpgrade*>(user)->signalMainErrorCode(static_cast<unsigned int>(code));
}

long exceptionCallBackFun(tagNotifyExceptionType_ type, tagNotifyExceptionParams_* params, void* user) {
    if (user == nullptr) return -1;
    return static_cast<OrvixUpgrade*>(user)->deviceExceptionCallBack(type, params, user);
}

void captureMouseCallback(int& x, int& y, MOUSESTATUS& status, void* user, bool& visible) {
    if (user == nullptr) return;
    static_cast<OrvixUpgrade*>(user)->mouseCapCallback(x, y, status, visible);
}

int reverseControlCallback(CtrlMouseInfo_S* info, bool pressed, int first, int second, void* user) {
    if (user == nullptr) return -1;
    static_cast<OrvixUpgrade*>(user)->screenReverseControl(info, static_cast<char>(pressed), first, second);
    return 0;
}

long reverseScreenStreamCallback(int type, char* data, int length, void* user) {
    if (user == nullptr) return 0;
    static_cast<qorquicomponents::ReverseScreen*>(user)->inputStream(type, data, length);
    return 0;
}

long inputStreamDataCallBack(int type, char* data, int length, void* user) {
    return reverseScreenStreamCallback(type, data, length, user);
}

void* pushMouseCallBack(void* first, int, int, int) { return first; }
