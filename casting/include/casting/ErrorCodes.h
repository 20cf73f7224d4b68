// Error codes delivered through the error callback. 0xF32000xx connection and
// request, 0xF32010xx connect code, 0xF32020xx session, 0xF32030xx limits,
// 0xF32040xx session ended or window.
#pragma once

#include <cstdint>

namespace zv_error {
constexpr uint32_t CONNECT_FAILED = 0xF3200001;
constexpr uint32_t REQUEST_DENIED = 0xF3200002;
constexpr uint32_t WAIT_AUTHORIZATION = 0xF3200003;
constexpr uint32_t PANEL_VERSION_TOO_LOW = 0xF3200004;
constexpr uint32_t MIRRORING_ABNORMAL = 0xF3200005;
constexpr uint32_t LOGGED_OUT = 0xF3200006;
constexpr uint32_t REQUEST_REFUSED = 0xF3200007;
constexpr uint32_t NO_NETWORK = 0xF3200009;
constexpr uint32_t REVERSE_ABNORMAL = 0xF320000B;
constexpr uint32_t WRONG_CODE = 0xF3201000;
constexpr uint32_t PASSCODE_UNKNOWN = 0xF3201001;             // the passcode service knows no panel for it
constexpr uint32_t PASSCODE_SERVER_UNREACHABLE = 0xF3201002;  // no answer from the passcode service
constexpr uint32_t AUXILIARY_REFUSED = 0xF3202001;
constexpr uint32_t MOUSE_SCREEN_ERROR = 0xF3202002;
constexpr uint32_t SESSION_ABNORMAL = 0xF3202003;
constexpr uint32_t REMOVED_BY_PANEL = 0xF3202004;
constexpr uint32_t VOICE_FAILED = 0xF3202005;
constexpr uint32_t REVERSE_CONTROL_FAILED = 0xF3202006;
constexpr uint32_t ONLY_1080P = 0xF3202007;
constexpr uint32_t MIRRORING_ABNORMAL_RETRY = 0xF320200A;
constexpr uint32_t MIRRORING_ABNORMAL_RETRY2 = 0xF320200C;
constexpr uint32_t FAST_MIRRORING_FAILED = 0xF320200D;
constexpr uint32_t TOO_MANY_SCREENS = 0xF320200E;
constexpr uint32_t LIMIT_3000 = 0xF3203000;
constexpr uint32_t LIMIT_3001 = 0xF3203001;
constexpr uint32_t TOO_MANY_REVERSE = 0xF3203002;
constexpr uint32_t WINDOW_SOURCE_ABNORMAL = 0xF3204008;
constexpr uint32_t WINDOW_ABNORMAL_4 = 0xF3204009;
constexpr uint32_t WINDOW_ABNORMAL_5 = 0xF3204010;
constexpr uint32_t SCREEN_MIRRORING_ENDED = 0xF3204011;
constexpr uint32_t REVERSE_MIRRORING_ENDED = 0xF3204012;
}  // namespace zv_error

namespace zv_error {
// A short English description for logs and the command-line tool (the
// client shows its own translated texts).
const char* describe(uint32_t code);
}  // namespace zv_error
