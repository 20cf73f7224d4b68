// The messages of docs/protocol.md as structs, each with a builder (struct ->
// QCborMap including "t") and a validating reader. A reader fails, with a
// reason in *error, when "t" is not its type, a required key is missing or a
// value has the wrong CBOR type; unknown keys are ignored. Integers must be
// CBOR integers that fit the field (int fields: 32-bit). Value ranges (ttl,
// passcode alphabet, ...) are the caller's business.
#pragma once

#include <QCborMap>
#include <QString>

#include <optional>

namespace zv {

namespace msg {
// Values of "t".
inline const QString kHello = QStringLiteral("hello");
inline const QString kWelcome = QStringLiteral("welcome");
inline const QString kRefused = QStringLiteral("refused");
inline const QString kHeartbeat = QStringLiteral("hb");
inline const QString kReport = QStringLiteral("report");
inline const QString kBye = QStringLiteral("bye");
inline const QString kRegister = QStringLiteral("register");
inline const QString kRegistered = QStringLiteral("registered");
inline const QString kResolve = QStringLiteral("resolve");
inline const QString kResolved = QStringLiteral("resolved");
inline const QString kUnregister = QStringLiteral("unregister");
inline const QString kUnregistered = QStringLiteral("unregistered");
inline const QString kError = QStringLiteral("error");
}  // namespace msg

namespace reason {
// refused.reason
inline const QString kWrongCode = QStringLiteral("wrongCode");
inline const QString kRateLimited = QStringLiteral("rateLimited");
inline const QString kTooManyClients = QStringLiteral("tooManyClients");
inline const QString kVersionTooOld = QStringLiteral("versionTooOld");
inline const QString kUnknownSession = QStringLiteral("unknownSession");
// bye.reason from a panel whose user removed the client
inline const QString kLogOutByServer = QStringLiteral("logOutByServer");
// error.reason of the passcode service (plus kRateLimited)
inline const QString kTaken = QStringLiteral("taken");
inline const QString kInvalid = QStringLiteral("invalid");
inline const QString kUnknown = QStringLiteral("unknown");
}  // namespace reason

// The "t" of a message, empty when absent or not a text.
QString messageType(const QCborMap& message);
// Whether t is one of the types above.
bool isKnownMessageType(const QString& t);

struct DeviceInfo {
    QString model, name, address, mac, os;
    int width = 0, height = 0;
};

struct HelloMessage {
    int proto = 0;
    int minProto = 0;
    QString code;  // may be empty (panel picked from discovery)
    QString host;
    int deviceType = 0;
    DeviceInfo device;
    std::optional<QString> resume;
};
QCborMap buildHello(const HelloMessage& m);
std::optional<HelloMessage> parseHello(const QCborMap& map, QString* error);

struct PanelInfo {
    QString model, name, key, address;
    int port = 0, width = 0, height = 0, deviceType = 0;
    QString software;
};

struct PanelCaps {
    qint64 bits = 0;
    int maxClients = 0, maxWidth = 0, maxHeight = 0;
};

struct WelcomeMessage {
    int proto = 0;
    int minProto = 0;
    qint64 session = 0;
    QString resume;
    int heartbeatMs = 0;
    PanelInfo panel;
    PanelCaps caps;
    bool resumed = false;
};
QCborMap buildWelcome(const WelcomeMessage& m);
std::optional<WelcomeMessage> parseWelcome(const QCborMap& map, QString* error);

struct RefusedMessage {
    QString reason, text;
};
QCborMap buildRefused(const RefusedMessage& m);
std::optional<RefusedMessage> parseRefused(const QCborMap& map, QString* error);

struct HeartbeatMessage {
    qint64 seq = 0;
};
QCborMap buildHeartbeat(const HeartbeatMessage& m);
std::optional<HeartbeatMessage> parseHeartbeat(const QCborMap& map, QString* error);

struct ReportMessage {
    QString event;
    bool flag = false;
    QString detail;
};
QCborMap buildReport(const ReportMessage& m);
std::optional<ReportMessage> parseReport(const QCborMap& map, QString* error);

struct ByeMessage {
    QString reason;
};
QCborMap buildBye(const ByeMessage& m);
std::optional<ByeMessage> parseBye(const QCborMap& map, QString* error);

struct RegisterMessage {
    QString passcode, address;
    int port = 0;
    QString name;
    int ttl = 0;
};
QCborMap buildRegister(const RegisterMessage& m);
std::optional<RegisterMessage> parseRegister(const QCborMap& map, QString* error);

struct RegisteredMessage {
    QString passcode;
    int ttl = 0;
};
QCborMap buildRegistered(const RegisteredMessage& m);
std::optional<RegisteredMessage> parseRegistered(const QCborMap& map, QString* error);

struct ResolveMessage {
    QString passcode;
};
QCborMap buildResolve(const ResolveMessage& m);
std::optional<ResolveMessage> parseResolve(const QCborMap& map, QString* error);

struct ResolvedMessage {
    QString address;
    int port = 0;
    QString name;
};
QCborMap buildResolved(const ResolvedMessage& m);
std::optional<ResolvedMessage> parseResolved(const QCborMap& map, QString* error);

struct UnregisterMessage {
    QString passcode, address;
};
QCborMap buildUnregister(const UnregisterMessage& m);
std::optional<UnregisterMessage> parseUnregister(const QCborMap& map, QString* error);

struct UnregisteredMessage {};
QCborMap buildUnregistered(const UnregisteredMessage& m = {});
std::optional<UnregisteredMessage> parseUnregistered(const QCborMap& map, QString* error);

struct ErrorMessage {
    QString reason;
};
QCborMap buildError(const ErrorMessage& m);
std::optional<ErrorMessage> parseError(const QCborMap& map, QString* error);

}  // namespace zv
