// Records and enumerations that cross between the client and the casting library.
// Their sizes and byte offsets are part of the library's binary interface: the
// static_asserts at the end of this file pin every offset the client relies on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// ---------------------------------------------------------------------------
// Enumerations
// ---------------------------------------------------------------------------

enum ProjectOrShareReqResult : int {
    SUCCESS = 0,
    FAIL = 1,
    WAIT_AUTHORIZATION = 2,  // the panel is asking its own user; a final result follows
};

enum ClientDeviceType : int {
    CLIENT_DEVICE_UNKNOWN = 0,
    CLIENT_DEVICE_PANEL = 1,
    CLIENT_DEVICE_LINUX = 2,
    CLIENT_DEVICE_WINDOWS = 3,
};

// Transport of one stream (cast video, reverse control, pointer, ...).
enum ProtocolType : int {
    PROTOCOL_UDP = 0,  // RTP over UDP with retransmission
    PROTOCOL_TCP = 1,  // RTP over one TCP connection
    PROTOCOL_BRX = 2,  // SRT carrying RTP, encrypted per session
};

enum CodingMode : int {
    CODING_HARDWARE_PREFERRED = 0,
    CODING_SOFTWARE_PREFERRED = 1,
};

enum ScreenControlType : int {
    SCREEN_CONTROL_NONE = 0,
    SCREEN_CONTROL_TOUCH = 1,  // touches and mouse actions from the panel drive the PC
};

enum VideoStreamSource : int {
    VIDEO_SOURCE_SCREEN = 0,
    VIDEO_SOURCE_WINDOW = 1,
    VIDEO_SOURCE_FILE = 2,
};

enum MOUSESTATUS : int {
    MOUSE_STATUS_NORMAL = 0,
    MOUSE_STATUS_HIDDEN = 1,
};

enum CastFileState : int {
    CAST_FILE_IDLE = 0,
    CAST_FILE_PLAYING = 1,
    CAST_FILE_PAUSED = 2,
    CAST_FILE_ENDED = 3,
    CAST_FILE_ERROR = 4,
};

// ---------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------

// The panel of the current session. Filled by CManageAll::logIn; the client
// clears it by zeroing all of it whenever a connection ends.
struct tagDeviceListUnitInfo_ {
    char szAddress[64];      // panel address as dotted IPv4 text; a discovered panel's address is copied here
    char szName[64];         // panel name
    char szKey[48];          // panel key: stable identifier, also the discovery key
    int32_t nPort;           // control port
    int32_t nDeviceType;     // ClientDeviceType of the panel side
    int32_t nVersion;        // panel protocol version
    uint32_t uCapabilities;  // BusinessCap bits, as last reported
    char szFingerprint[65];  // SHA-256 of the panel certificate, hex, for display
    char szReserved[17];
    char szConnectCode[9];   // code used to reach the panel, at most 8 characters
    char szTail[9];
};
using DEVICE_LISTUNIT_INFO_S = tagDeviceListUnitInfo_;

// Where to resolve a connect code: a passcode server, or zeros to let the
// library resolve the code itself.
struct tagCodeServerInfo_ {
    char szIp[16];
    int32_t nPort;
};

// A device's own description: this PC's (uploadClientDeviceInfo) or the
// panel's (getServerInfo).
struct tagDeviceInfo_ {
    char szModel[32];     // model or product line, shown as a secondary caption
    char szName[64];      // device name, shown large
    char szAddress[16];   // dotted IPv4 text
    char szMac[18];       // aa:bb:cc:dd:ee:ff
    char szOsName[32];
    char szReserved[2];
    int32_t nDeviceType;  // ClientDeviceType
    int32_t nVersion;
    int32_t nScreenWidth;
    int32_t nScreenHeight;
};

// Which X11 window is cast; 0 means the whole screen.
struct tagWindowScreenInfo_ {
    int32_t nWindowId;
    int32_t nFollow;  // non-zero: the capture follows the window when it moves
    uint32_t uReserved;
};

// The panel's answer to the version check.
struct VersionInfo {
    int32_t nProtocolVersion = 0;   // what the panel speaks
    int32_t nMinClientVersion = 0;  // oldest client protocol the panel accepts
    char szSoftwareVersion[32] = {};
};

// What the panel can do, as reported after log-in.
struct BusinessCap {
    enum Bits : uint32_t {
        CAP_SCREEN_CAST = 1u << 0,
        CAP_WINDOW_CAST = 1u << 1,
        CAP_FILE_CAST = 1u << 2,
        CAP_REVERSE_SCREEN = 1u << 3,
        CAP_REVERSE_CONTROL = 1u << 4,
        CAP_AUDIO = 1u << 5,
        CAP_TRANSPORT_UDP = 1u << 8,
        CAP_TRANSPORT_TCP = 1u << 9,
        CAP_TRANSPORT_BRX = 1u << 10,
    };
    uint32_t uBits = 0;
    int32_t nMaxClients = 0;
    int32_t nMaxWidth = 0;
    int32_t nMaxHeight = 0;
    bool has(Bits bit) const { return (uBits & bit) != 0; }
};

// One panel found on the LAN.
struct KLUF_DEVICE_INFO {
    int32_t nRecordVersion;
    int32_t nInterfaceIndex;
    int32_t nFlags;
    char szDeviceKey[48];     // 12
    char szInfo[20];          // 60: protocol version text
    char szConnectCode[16];   // 80
    char szDetail[144];       // 96: panel address, dotted IPv4
    char szDeviceName[384];   // 240
    int32_t nValue;           // 624: control port
    int32_t nReserved[3];
};

// An exception event's parameters.
struct tagNotifyExceptionParams_ {
    int32_t nSubCode;         // 0: network state, missed heartbeat count, ...
    int32_t nReserved0;
    int32_t nResult;          // 8: result of a request, 0 refused
    int32_t nReserved1;
    int32_t nWidth;           // 16
    int32_t nHeight;          // 20
    int64_t llTimestampMs;    // 24
    char szReason[1024];      // 32: reason text from the panel or server
    int32_t nBitRateKbps;     // 1056
    int32_t nFrameRate;       // 1060
    int32_t nDelayMs;         // 1064
    uint8_t ucLoss;           // 1068: non-zero when packets were lost in the last second
    uint8_t ucLossPercent;
    uint8_t ucReserved[2];
};

// A touch or mouse action from the panel, in panel units (0..65535).
struct CtrlMouseInfo_S {
    std::string strType;   // "touchDown", "touchMove", "touchUp", "mouseRightDown", "mouseWheel", ...
    int nX = 0;
    int nY = 0;
    long long llTime = 0;  // milliseconds on the panel's clock

    CtrlMouseInfo_S() = default;
    CtrlMouseInfo_S(std::string type, int x, int y, long long time)
        : strType(std::move(type)), nX(x), nY(y), llTime(time) {}
};

// ---------------------------------------------------------------------------
// Layout checks
// ---------------------------------------------------------------------------

static_assert(sizeof(tagDeviceListUnitInfo_) == 292, "panel record is 292 bytes");
static_assert(offsetof(tagDeviceListUnitInfo_, szConnectCode) == 274, "connect code at byte 274");
static_assert(sizeof(tagDeviceListUnitInfo_::szConnectCode) == 9, "connect code field is 9 bytes");

static_assert(offsetof(tagCodeServerInfo_, szIp) == 0 && sizeof(tagCodeServerInfo_::szIp) == 16,
              "code server address is a 16-byte text at the start");
static_assert(offsetof(tagCodeServerInfo_, nPort) == 16 && sizeof(tagCodeServerInfo_::nPort) == 4,
              "code server port is a 32-bit integer after the address");

static_assert(sizeof(tagWindowScreenInfo_) == 12, "window screen record is 12 bytes");
static_assert(offsetof(tagWindowScreenInfo_, nWindowId) == 0, "window id first");

static_assert(offsetof(tagDeviceInfo_, szModel) == 0, "first device text at 0");
static_assert(offsetof(tagDeviceInfo_, szName) == 32, "device name at 32");

static_assert(offsetof(KLUF_DEVICE_INFO, szDeviceKey) == 12, "key at 12");
static_assert(offsetof(KLUF_DEVICE_INFO, szInfo) == 60, "info at 60");
static_assert(offsetof(KLUF_DEVICE_INFO, szConnectCode) == 80, "connect code at 80");
static_assert(offsetof(KLUF_DEVICE_INFO, szDetail) == 96, "detail at 96");
static_assert(offsetof(KLUF_DEVICE_INFO, szDeviceName) == 240, "name at 240");
static_assert(offsetof(KLUF_DEVICE_INFO, nValue) == 624, "value at 624");

static_assert(sizeof(tagNotifyExceptionParams_) == 1072, "exception parameters are 1072 bytes");
static_assert(offsetof(tagNotifyExceptionParams_, nSubCode) == 0, "sub-code at 0");
static_assert(offsetof(tagNotifyExceptionParams_, nResult) == 8, "result at 8");
static_assert(offsetof(tagNotifyExceptionParams_, nWidth) == 16, "width at 16");
static_assert(offsetof(tagNotifyExceptionParams_, nHeight) == 20, "height at 20");
static_assert(offsetof(tagNotifyExceptionParams_, szReason) == 32, "reason at 32");
static_assert(offsetof(tagNotifyExceptionParams_, nBitRateKbps) == 1056, "first statistic at 1056");
static_assert(offsetof(tagNotifyExceptionParams_, nFrameRate) == 1060, "second statistic at 1060");
static_assert(offsetof(tagNotifyExceptionParams_, nDelayMs) == 1064, "third statistic at 1064");
static_assert(offsetof(tagNotifyExceptionParams_, ucLoss) == 1068, "flag at 1068");
