#include "protocol/CastMessages.h"

#include "protocol/MessageFields.h"

namespace zv {

using namespace fields;

bool isCastMessageType(const QString& t) {
    for (const QString* known :
         {&msg::kCastRequest, &msg::kCastPending, &msg::kCastAccepted, &msg::kCastRefused, &msg::kCastPause,
          &msg::kCastStop, &msg::kCastVoice, &msg::kCastVoiceState, &msg::kCastControl, &msg::kCastControlState,
          &msg::kCursor, &msg::kTouch, &msg::kCastStats, &msg::kCastStalled}) {
        if (t == *known) return true;
    }
    return false;
}

QCborMap buildCastRequest(const CastRequestMessage& m) {
    QCborMap map = typed(msg::kCastRequest);
    map.insert(QLatin1String("source"), m.source);
    map.insert(QLatin1String("transport"), m.transport);
    map.insert(QLatin1String("width"), m.width);
    map.insert(QLatin1String("height"), m.height);
    map.insert(QLatin1String("fps"), m.fps);
    map.insert(QLatin1String("audio"), m.audio);
    map.insert(QLatin1String("control"), m.control);
    map.insert(QLatin1String("rtcpPort"), m.rtcpPort);
    return map;
}

std::optional<CastRequestMessage> parseCastRequest(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastRequest, error);
    if (!f) return std::nullopt;
    CastRequestMessage m;
    m.source = f->text("source");
    m.transport = f->text("transport");
    m.width = f->int32("width");
    m.height = f->int32("height");
    m.fps = f->int32("fps");
    m.audio = f->boolean("audio");
    m.control = f->boolean("control");
    m.rtcpPort = f->int32("rtcpPort");
    return finish(*f, m);
}

QCborMap buildCastPending() { return typed(msg::kCastPending); }

QCborMap buildCastAccepted(const CastAcceptedMessage& m) {
    QCborMap map = typed(msg::kCastAccepted);
    map.insert(QLatin1String("transport"), m.transport);
    map.insert(QLatin1String("videoPort"), m.videoPort);
    map.insert(QLatin1String("audioPort"), m.audioPort);
    map.insert(QLatin1String("rtcpPort"), m.rtcpPort);
    map.insert(QLatin1String("srtKey"), m.srtKey);
    map.insert(QLatin1String("latencyMs"), m.latencyMs);
    map.insert(QLatin1String("width"), m.width);
    map.insert(QLatin1String("height"), m.height);
    return map;
}

std::optional<CastAcceptedMessage> parseCastAccepted(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastAccepted, error);
    if (!f) return std::nullopt;
    CastAcceptedMessage m;
    m.transport = f->text("transport");
    m.videoPort = f->int32("videoPort");
    m.audioPort = f->int32("audioPort");
    m.rtcpPort = f->int32("rtcpPort");
    m.srtKey = f->text("srtKey");
    m.latencyMs = f->int32("latencyMs");
    m.width = f->int32("width");
    m.height = f->int32("height");
    return finish(*f, m);
}

QCborMap buildCastRefused(const CastRefusedMessage& m) {
    QCborMap map = typed(msg::kCastRefused);
    map.insert(QLatin1String("reason"), m.reason);
    map.insert(QLatin1String("text"), m.text);
    return map;
}

std::optional<CastRefusedMessage> parseCastRefused(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastRefused, error);
    if (!f) return std::nullopt;
    CastRefusedMessage m;
    m.reason = f->text("reason");
    m.text = f->text("text");
    return finish(*f, m);
}

namespace {
const char* switchKey(const QString& type) { return type == msg::kCastPause ? "paused" : "on"; }
}  // namespace

QCborMap buildCastSwitch(const QString& type, const CastSwitchMessage& m) {
    QCborMap map = typed(type);
    map.insert(QLatin1String(switchKey(type)), m.on);
    return map;
}

std::optional<CastSwitchMessage> parseCastSwitch(const QCborMap& map, const QString& type, QString* error) {
    auto f = open(map, type, error);
    if (!f) return std::nullopt;
    CastSwitchMessage m;
    m.on = f->boolean(switchKey(type));
    return finish(*f, m);
}

QCborMap buildCastStop(const CastStopMessage& m) {
    QCborMap map = typed(msg::kCastStop);
    map.insert(QLatin1String("reason"), m.reason);
    return map;
}

std::optional<CastStopMessage> parseCastStop(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastStop, error);
    if (!f) return std::nullopt;
    CastStopMessage m;
    m.reason = f->text("reason");
    return finish(*f, m);
}

QCborMap buildCastControlState(const CastControlStateMessage& m) {
    QCborMap map = typed(msg::kCastControlState);
    map.insert(QLatin1String("on"), m.on);
    map.insert(QLatin1String("holder"), m.holder);
    return map;
}

std::optional<CastControlStateMessage> parseCastControlState(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastControlState, error);
    if (!f) return std::nullopt;
    CastControlStateMessage m;
    m.on = f->boolean("on");
    m.holder = f->text("holder");
    return finish(*f, m);
}

QCborMap buildCursor(const CursorMessage& m) {
    QCborMap map = typed(msg::kCursor);
    map.insert(QLatin1String("x"), m.x);
    map.insert(QLatin1String("y"), m.y);
    map.insert(QLatin1String("visible"), m.visible);
    return map;
}

std::optional<CursorMessage> parseCursor(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCursor, error);
    if (!f) return std::nullopt;
    CursorMessage m;
    m.x = f->int32("x");
    m.y = f->int32("y");
    m.visible = f->boolean("visible");
    return finish(*f, m);
}

QCborMap buildTouch(const TouchMessage& m) {
    QCborMap map = typed(msg::kTouch);
    map.insert(QLatin1String("type"), m.type);
    map.insert(QLatin1String("x"), m.x);
    map.insert(QLatin1String("y"), m.y);
    map.insert(QLatin1String("time"), m.time);
    return map;
}

std::optional<TouchMessage> parseTouch(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kTouch, error);
    if (!f) return std::nullopt;
    TouchMessage m;
    m.type = f->text("type");
    m.x = f->int32("x");
    m.y = f->int32("y");
    m.time = f->integer("time");
    return finish(*f, m);
}

QCborMap buildCastStats(const CastStatsMessage& m) {
    QCborMap map = typed(msg::kCastStats);
    map.insert(QLatin1String("bitrateKbps"), m.bitrateKbps);
    map.insert(QLatin1String("fps"), m.fps);
    map.insert(QLatin1String("delayMs"), m.delayMs);
    map.insert(QLatin1String("lossPercent"), m.lossPercent);
    return map;
}

std::optional<CastStatsMessage> parseCastStats(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastStats, error);
    if (!f) return std::nullopt;
    CastStatsMessage m;
    m.bitrateKbps = f->int32("bitrateKbps");
    m.fps = f->int32("fps");
    m.delayMs = f->int32("delayMs");
    m.lossPercent = f->int32("lossPercent");
    return finish(*f, m);
}

QCborMap buildCastStalled(const CastStalledMessage& m) {
    QCborMap map = typed(msg::kCastStalled);
    map.insert(QLatin1String("seconds"), m.seconds);
    return map;
}

std::optional<CastStalledMessage> parseCastStalled(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kCastStalled, error);
    if (!f) return std::nullopt;
    CastStalledMessage m;
    m.seconds = f->int32("seconds");
    return finish(*f, m);
}

}  // namespace zv
