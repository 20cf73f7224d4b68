// The casting messages of docs/protocol.md ("Casting"), in the same form as
// Messages.h: a struct, a builder and a validating reader each.
#pragma once

#include <QCborMap>
#include <QString>

#include <optional>

namespace zv {

namespace msg {
inline const QString kCastRequest = QStringLiteral("castRequest");
inline const QString kCastPending = QStringLiteral("castPending");
inline const QString kCastAccepted = QStringLiteral("castAccepted");
inline const QString kCastRefused = QStringLiteral("castRefused");
inline const QString kCastPause = QStringLiteral("castPause");
inline const QString kCastStop = QStringLiteral("castStop");
inline const QString kCastVoice = QStringLiteral("castVoice");
inline const QString kCastVoiceState = QStringLiteral("castVoiceState");
inline const QString kCastControl = QStringLiteral("castControl");
inline const QString kCastControlState = QStringLiteral("castControlState");
inline const QString kCursor = QStringLiteral("cursor");
inline const QString kTouch = QStringLiteral("touch");
inline const QString kCastStats = QStringLiteral("castStats");
inline const QString kCastStalled = QStringLiteral("castStalled");
}  // namespace msg

bool isCastMessageType(const QString& t);

struct CastRequestMessage {
    QString source;     // "screen", "window", "file"
    QString transport;  // "udp", "tcp", "brx"
    int width = 0, height = 0, fps = 0;
    bool audio = false;
    bool control = false;
    int rtcpPort = 0;
};
QCborMap buildCastRequest(const CastRequestMessage& m);
std::optional<CastRequestMessage> parseCastRequest(const QCborMap& map, QString* error);

QCborMap buildCastPending();

struct CastAcceptedMessage {
    QString transport;
    int videoPort = 0, audioPort = 0, rtcpPort = 0;
    QString srtKey;
    int latencyMs = 0;
    int width = 0, height = 0;
};
QCborMap buildCastAccepted(const CastAcceptedMessage& m);
std::optional<CastAcceptedMessage> parseCastAccepted(const QCborMap& map, QString* error);

struct CastRefusedMessage {
    QString reason, text;
};
QCborMap buildCastRefused(const CastRefusedMessage& m);
std::optional<CastRefusedMessage> parseCastRefused(const QCborMap& map, QString* error);

// castPause {paused}, castVoice / castVoiceState / castControl {on}
struct CastSwitchMessage {
    bool on = false;
};
QCborMap buildCastSwitch(const QString& type, const CastSwitchMessage& m);
std::optional<CastSwitchMessage> parseCastSwitch(const QCborMap& map, const QString& type, QString* error);

struct CastStopMessage {
    QString reason;
};
QCborMap buildCastStop(const CastStopMessage& m);
std::optional<CastStopMessage> parseCastStop(const QCborMap& map, QString* error);

struct CastControlStateMessage {
    bool on = false;
    QString holder;  // who holds control instead, "nonsupport", or empty
};
QCborMap buildCastControlState(const CastControlStateMessage& m);
std::optional<CastControlStateMessage> parseCastControlState(const QCborMap& map, QString* error);

struct CursorMessage {
    int x = 0, y = 0;
    bool visible = true;
};
QCborMap buildCursor(const CursorMessage& m);
std::optional<CursorMessage> parseCursor(const QCborMap& map, QString* error);

struct TouchMessage {
    QString type;
    int x = 0, y = 0;
    qint64 time = 0;
};
QCborMap buildTouch(const TouchMessage& m);
std::optional<TouchMessage> parseTouch(const QCborMap& map, QString* error);

struct CastStatsMessage {
    int bitrateKbps = 0, fps = 0, delayMs = 0, lossPercent = 0;
};
QCborMap buildCastStats(const CastStatsMessage& m);
std::optional<CastStatsMessage> parseCastStats(const QCborMap& map, QString* error);

struct CastStalledMessage {
    int seconds = 0;
};
QCborMap buildCastStalled(const CastStalledMessage& m);
std::optional<CastStalledMessage> parseCastStalled(const QCborMap& map, QString* error);

}  // namespace zv
