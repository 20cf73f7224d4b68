#include "protocol/Messages.h"

#include <QCborValue>

#include "protocol/CastMessages.h"
#include "protocol/MessageFields.h"

namespace zv {

using namespace fields;

QString messageType(const QCborMap& message) {
    const QCborValue t = message.value(QLatin1String("t"));
    return t.isString() ? t.toString() : QString();
}

bool isKnownMessageType(const QString& t) {
    for (const QString* known : {&msg::kHello, &msg::kWelcome, &msg::kRefused, &msg::kHeartbeat, &msg::kReport,
                                 &msg::kBye, &msg::kRegister, &msg::kRegistered, &msg::kResolve, &msg::kResolved,
                                 &msg::kUnregister, &msg::kUnregistered, &msg::kError}) {
        if (t == *known) return true;
    }
    return isCastMessageType(t);
}

// ---- hello

QCborMap buildHello(const HelloMessage& m) {
    QCborMap device;
    device.insert(QLatin1String("model"), m.device.model);
    device.insert(QLatin1String("name"), m.device.name);
    device.insert(QLatin1String("address"), m.device.address);
    device.insert(QLatin1String("mac"), m.device.mac);
    device.insert(QLatin1String("os"), m.device.os);
    device.insert(QLatin1String("width"), m.device.width);
    device.insert(QLatin1String("height"), m.device.height);

    QCborMap map = typed(msg::kHello);
    map.insert(QLatin1String("proto"), m.proto);
    map.insert(QLatin1String("minProto"), m.minProto);
    map.insert(QLatin1String("code"), m.code);
    map.insert(QLatin1String("host"), m.host);
    map.insert(QLatin1String("deviceType"), m.deviceType);
    map.insert(QLatin1String("device"), device);
    if (m.resume) map.insert(QLatin1String("resume"), *m.resume);
    return map;
}

std::optional<HelloMessage> parseHello(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kHello, error);
    if (!f) return std::nullopt;
    HelloMessage m;
    m.proto = f->int32("proto");
    m.minProto = f->int32("minProto");
    m.code = f->text("code");
    m.host = f->text("host");
    m.deviceType = f->int32("deviceType");
    Fields d = f->map("device");
    m.device.model = d.text("model");
    m.device.name = d.text("name");
    m.device.address = d.text("address");
    m.device.mac = d.text("mac");
    m.device.os = d.text("os");
    m.device.width = d.int32("width");
    m.device.height = d.int32("height");
    f->merge(d);
    m.resume = f->optionalText("resume");
    return finish(*f, m);
}

// ---- welcome

QCborMap buildWelcome(const WelcomeMessage& m) {
    QCborMap panel;
    panel.insert(QLatin1String("model"), m.panel.model);
    panel.insert(QLatin1String("name"), m.panel.name);
    panel.insert(QLatin1String("key"), m.panel.key);
    panel.insert(QLatin1String("address"), m.panel.address);
    panel.insert(QLatin1String("port"), m.panel.port);
    panel.insert(QLatin1String("width"), m.panel.width);
    panel.insert(QLatin1String("height"), m.panel.height);
    panel.insert(QLatin1String("deviceType"), m.panel.deviceType);
    panel.insert(QLatin1String("software"), m.panel.software);

    QCborMap caps;
    caps.insert(QLatin1String("bits"), m.caps.bits);
    caps.insert(QLatin1String("maxClients"), m.caps.maxClients);
    caps.insert(QLatin1String("maxWidth"), m.caps.maxWidth);
    caps.insert(QLatin1String("maxHeight"), m.caps.maxHeight);

    QCborMap map = typed(msg::kWelcome);
    map.insert(QLatin1String("proto"), m.proto);
    map.insert(QLatin1String("minProto"), m.minProto);
    map.insert(QLatin1String("session"), m.session);
    map.insert(QLatin1String("resume"), m.resume);
    map.insert(QLatin1String("heartbeatMs"), m.heartbeatMs);
    map.insert(QLatin1String("panel"), panel);
    map.insert(QLatin1String("caps"), caps);
    map.insert(QLatin1String("resumed"), m.resumed);
    return map;
}

std::optional<WelcomeMessage> parseWelcome(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kWelcome, error);
    if (!f) return std::nullopt;
    WelcomeMessage m;
    m.proto = f->int32("proto");
    m.minProto = f->int32("minProto");
    m.session = f->integer("session");
    m.resume = f->text("resume");
    m.heartbeatMs = f->int32("heartbeatMs");
    Fields p = f->map("panel");
    m.panel.model = p.text("model");
    m.panel.name = p.text("name");
    m.panel.key = p.text("key");
    m.panel.address = p.text("address");
    m.panel.port = p.int32("port");
    m.panel.width = p.int32("width");
    m.panel.height = p.int32("height");
    m.panel.deviceType = p.int32("deviceType");
    m.panel.software = p.text("software");
    f->merge(p);
    Fields c = f->map("caps");
    m.caps.bits = c.integer("bits");
    m.caps.maxClients = c.int32("maxClients");
    m.caps.maxWidth = c.int32("maxWidth");
    m.caps.maxHeight = c.int32("maxHeight");
    f->merge(c);
    m.resumed = f->boolean("resumed");
    return finish(*f, m);
}

// ---- refused, hb, report, bye

QCborMap buildRefused(const RefusedMessage& m) {
    QCborMap map = typed(msg::kRefused);
    map.insert(QLatin1String("reason"), m.reason);
    map.insert(QLatin1String("text"), m.text);
    return map;
}

std::optional<RefusedMessage> parseRefused(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kRefused, error);
    if (!f) return std::nullopt;
    RefusedMessage m;
    m.reason = f->text("reason");
    m.text = f->text("text");
    return finish(*f, m);
}

QCborMap buildHeartbeat(const HeartbeatMessage& m) {
    QCborMap map = typed(msg::kHeartbeat);
    map.insert(QLatin1String("seq"), m.seq);
    return map;
}

std::optional<HeartbeatMessage> parseHeartbeat(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kHeartbeat, error);
    if (!f) return std::nullopt;
    HeartbeatMessage m;
    m.seq = f->integer("seq");
    return finish(*f, m);
}

QCborMap buildReport(const ReportMessage& m) {
    QCborMap map = typed(msg::kReport);
    map.insert(QLatin1String("event"), m.event);
    map.insert(QLatin1String("flag"), m.flag);
    map.insert(QLatin1String("detail"), m.detail);
    return map;
}

std::optional<ReportMessage> parseReport(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kReport, error);
    if (!f) return std::nullopt;
    ReportMessage m;
    m.event = f->text("event");
    m.flag = f->boolean("flag");
    m.detail = f->text("detail");
    return finish(*f, m);
}

QCborMap buildBye(const ByeMessage& m) {
    QCborMap map = typed(msg::kBye);
    map.insert(QLatin1String("reason"), m.reason);
    return map;
}

std::optional<ByeMessage> parseBye(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kBye, error);
    if (!f) return std::nullopt;
    ByeMessage m;
    m.reason = f->text("reason");
    return finish(*f, m);
}

// ---- passcode service

QCborMap buildRegister(const RegisterMessage& m) {
    QCborMap map = typed(msg::kRegister);
    map.insert(QLatin1String("passcode"), m.passcode);
    map.insert(QLatin1String("address"), m.address);
    map.insert(QLatin1String("port"), m.port);
    map.insert(QLatin1String("name"), m.name);
    map.insert(QLatin1String("ttl"), m.ttl);
    return map;
}

std::optional<RegisterMessage> parseRegister(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kRegister, error);
    if (!f) return std::nullopt;
    RegisterMessage m;
    m.passcode = f->text("passcode");
    m.address = f->text("address");
    m.port = f->int32("port");
    m.name = f->text("name");
    m.ttl = f->int32("ttl");
    return finish(*f, m);
}

QCborMap buildRegistered(const RegisteredMessage& m) {
    QCborMap map = typed(msg::kRegistered);
    map.insert(QLatin1String("passcode"), m.passcode);
    map.insert(QLatin1String("ttl"), m.ttl);
    return map;
}

std::optional<RegisteredMessage> parseRegistered(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kRegistered, error);
    if (!f) return std::nullopt;
    RegisteredMessage m;
    m.passcode = f->text("passcode");
    m.ttl = f->int32("ttl");
    return finish(*f, m);
}

QCborMap buildResolve(const ResolveMessage& m) {
    QCborMap map = typed(msg::kResolve);
    map.insert(QLatin1String("passcode"), m.passcode);
    return map;
}

std::optional<ResolveMessage> parseResolve(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kResolve, error);
    if (!f) return std::nullopt;
    ResolveMessage m;
    m.passcode = f->text("passcode");
    return finish(*f, m);
}

QCborMap buildResolved(const ResolvedMessage& m) {
    QCborMap map = typed(msg::kResolved);
    map.insert(QLatin1String("address"), m.address);
    map.insert(QLatin1String("port"), m.port);
    map.insert(QLatin1String("name"), m.name);
    return map;
}

std::optional<ResolvedMessage> parseResolved(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kResolved, error);
    if (!f) return std::nullopt;
    ResolvedMessage m;
    m.address = f->text("address");
    m.port = f->int32("port");
    m.name = f->text("name");
    return finish(*f, m);
}

QCborMap buildUnregister(const UnregisterMessage& m) {
    QCborMap map = typed(msg::kUnregister);
    map.insert(QLatin1String("passcode"), m.passcode);
    map.insert(QLatin1String("address"), m.address);
    return map;
}

std::optional<UnregisterMessage> parseUnregister(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kUnregister, error);
    if (!f) return std::nullopt;
    UnregisterMessage m;
    m.passcode = f->text("passcode");
    m.address = f->text("address");
    return finish(*f, m);
}

QCborMap buildUnregistered(const UnregisteredMessage&) { return typed(msg::kUnregistered); }

std::optional<UnregisteredMessage> parseUnregistered(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kUnregistered, error);
    if (!f) return std::nullopt;
    return UnregisteredMessage{};
}

QCborMap buildError(const ErrorMessage& m) {
    QCborMap map = typed(msg::kError);
    map.insert(QLatin1String("reason"), m.reason);
    return map;
}

std::optional<ErrorMessage> parseError(const QCborMap& map, QString* error) {
    auto f = open(map, msg::kError, error);
    if (!f) return std::nullopt;
    ErrorMessage m;
    m.reason = f->text("reason");
    return finish(*f, m);
}

}  // namespace zv
