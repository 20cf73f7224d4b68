// Exception events raised by the casting library and its watchdog.
#pragma once

enum tagNotifyExceptionType_ : int {
    NOTIFY_NO_BITSTREAM = 32770,               // no media received for 5 s
    NOTIFY_STREAM_SEND_FAILED = 32780,         // handed to the watchdog
    NOTIFY_VOICE_ON = 32782,                   // the panel plays the PC's sound
    NOTIFY_VOICE_OFF = 32783,
    NOTIFY_REVERSE_CONTROL_ANSWER = 32784,     // result field: granted or not; reason: holder or "nonsupport"
    NOTIFY_REVERSE_CONTROL_OFF = 32785,
    NOTIFY_CONTROL_LINK_BROKEN = 32789,        // handed to the watchdog
    NOTIFY_MEDIA_LINK_BROKEN = 32790,          // handed to the watchdog
    NOTIFY_REVERSE_LINK_BROKEN = 32791,        // handed to the watchdog
    NOTIFY_SCREEN_CAST_ENDED = 32792,          // the panel ended the cast
    NOTIFY_LOGOUT = 32793,                     // reason "logOutByServer" when the panel removed the client
    NOTIFY_ENCODER_FAILED = 32794,             // handed to the watchdog
    NOTIFY_SHARE_REFUSED = 32796,
    NOTIFY_REQUEST_REFUSED = 32797,
    NOTIFY_RECONNECT_FAILED = 32801,
    NOTIFY_RECONNECTING = 32802,
    NOTIFY_RECONNECTED = 32803,
    NOTIFY_PRESENTATION_FULLSCREEN = 32804,
    NOTIFY_PRESENTATION_WINDOWED = 32805,
    NOTIFY_STREAM_STATISTICS = 32806,          // bit rate, frame rate, delay, loss at 1056..1068
    NOTIFY_SHARE_RESTORE_SETTINGS = 32807,
    NOTIFY_REVERSE_CONTROL_INVALID = 32808,
    NOTIFY_AUTHORIZATION_GRANTED = 32810,      // the panel's user accepted a request that was answered 2
    NOTIFY_AUTHORIZATION_DENIED = 32811,       // refused; reason "race fail." when the panel is full
    NOTIFY_KICKED = 32812,
    NOTIFY_PANEL_RESOLUTION = 32815,           // width and height at 16 and 20
    NOTIFY_CAPTURE_FAILED = 32816,             // handed to the watchdog
    NOTIFY_NEXT_PICTURE = 32817,
    NOTIFY_PREVIOUS_PICTURE = 32818,
    NOTIFY_PERIPHERAL_SHARE_REQUEST_FAIL = 32819,
    NOTIFY_MICROPHONE_STREAM_ERROR = 32820,
    NOTIFY_PERIPHERAL_STREAM_ERROR = 32821,
    NOTIFY_PERIPHERAL_822 = 32822,
    NOTIFY_PERIPHERAL_823 = 32823,
    NOTIFY_PERIPHERAL_SHARE_STOPPED = 32824,
    NOTIFY_LIBRARY_FAILED = 32825,
    NOTIFY_MIRRORING_ABNORMAL = 32826,         // handed to the watchdog
    NOTIFY_REVERSE_SCREEN_ENDED = 32827,
    NOTIFY_NETWORK_STATE = 32828,              // sub-code 1 lost, 5 reconnection given up
    NOTIFY_HEARTBEAT_MISSED = 32829,           // sub-code: missed heartbeats in a row
    NOTIFY_PERIPHERAL_830 = 32830,
    NOTIFY_PERIPHERAL_RESTART = 32831,
    NOTIFY_VIRTUAL_NETWORK_ISOLATION = 32832,
};
