#include "casting/ErrorCodes.h"

namespace zv_error {

const char* describe(uint32_t code) {
    switch (code) {
        case CONNECT_FAILED: return "panel unreachable";
        case REQUEST_DENIED: return "request denied by the panel";
        case WAIT_AUTHORIZATION: return "waiting for the panel's approval";
        case PANEL_VERSION_TOO_LOW: return "panel version too old";
        case MIRRORING_ABNORMAL: return "casting failed";
        case LOGGED_OUT: return "logged out";
        case REQUEST_REFUSED: return "request refused";
        case NO_NETWORK: return "no network";
        case REVERSE_ABNORMAL: return "reverse screen failed";
        case WRONG_CODE: return "wrong connect code";
        case PASSCODE_UNKNOWN: return "passcode unknown to the passcode service";
        case PASSCODE_SERVER_UNREACHABLE: return "passcode service unreachable";
        case AUXILIARY_REFUSED: return "refused by an auxiliary panel";
        case MOUSE_SCREEN_ERROR: return "pointer cannot be shown on the panel";
        case SESSION_ABNORMAL: return "session failed";
        case REMOVED_BY_PANEL: return "removed by the panel";
        case VOICE_FAILED: return "sound could not be switched";
        case REVERSE_CONTROL_FAILED: return "reverse control could not be switched";
        case ONLY_1080P: return "the panel takes 1080p only";
        case MIRRORING_ABNORMAL_RETRY:
        case MIRRORING_ABNORMAL_RETRY2: return "casting interrupted";
        case FAST_MIRRORING_FAILED: return "fast casting failed";
        case TOO_MANY_SCREENS: return "the panel has too many clients";
        case TOO_MANY_REVERSE: return "too many reverse screens";
        case WINDOW_SOURCE_ABNORMAL:
        case WINDOW_ABNORMAL_4:
        case WINDOW_ABNORMAL_5: return "the cast window is gone";
        case SCREEN_MIRRORING_ENDED: return "casting ended";
        case REVERSE_MIRRORING_ENDED: return "reverse screen ended";
        default: return "unknown error";
    }
}

}  // namespace zv_error
