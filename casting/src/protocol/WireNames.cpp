#include "protocol/WireNames.h"

namespace zv {

namespace {

template <typename Enum>
struct Named {
    Enum value;
    const char* name;
};

template <typename Enum, size_t N>
QString nameIn(const Named<Enum> (&table)[N], Enum value) {
    for (const Named<Enum>& row : table) {
        if (row.value == value) return QLatin1String(row.name);
    }
    return QStringLiteral("#%1").arg(int(value));
}

const Named<wire::Refused::Reason> kRefusedReasons[] = {
    {wire::Refused::WRONG_CODE, "wrongCode"},
    {wire::Refused::RATE_LIMITED, "rateLimited"},
    {wire::Refused::TOO_MANY_CLIENTS, "tooManyClients"},
    {wire::Refused::VERSION_MISMATCH, "versionMismatch"},
    {wire::Refused::UNKNOWN_SESSION, "unknownSession"},
    {wire::Refused::LOG_OUT_BY_SERVER, "logOutByServer"},
};

const Named<wire::PasscodeError::Reason> kPasscodeErrors[] = {
    {wire::PasscodeError::INVALID, "invalid"},
    {wire::PasscodeError::UNKNOWN, "unknown"},
    {wire::PasscodeError::RATE_LIMITED, "rateLimited"},
    {wire::PasscodeError::BAD_PROOF, "badProof"},
    {wire::PasscodeError::STALE, "stale"},
};

const Named<wire::Transport> kTransports[] = {
    {wire::TRANSPORT_UDP, "udp"},
    {wire::TRANSPORT_TCP, "tcp"},
    {wire::TRANSPORT_BRX, "brx"},
};

const Named<wire::CastRequest::Source> kSources[] = {
    {wire::CastRequest::SOURCE_SCREEN, "screen"},
    {wire::CastRequest::SOURCE_WINDOW, "window"},
    {wire::CastRequest::SOURCE_FILE, "file"},
};

const Named<wire::Touch::Type> kTouchTypes[] = {
    {wire::Touch::TOUCH_DOWN, "touchDown"},
    {wire::Touch::TOUCH_MOVE, "touchMove"},
    {wire::Touch::TOUCH_UP, "touchUp"},
    {wire::Touch::MOUSE_LEFT_DOWN, "mouseLeftDown"},
    {wire::Touch::MOUSE_LEFT_DRAG, "mouseLeftDrag"},
    {wire::Touch::MOUSE_LEFT_UP, "mouseLeftUp"},
    {wire::Touch::MOUSE_RIGHT_DOWN, "mouseRightDown"},
    {wire::Touch::MOUSE_RIGHT_DRAG, "mouseRightDrag"},
    {wire::Touch::MOUSE_RIGHT_UP, "mouseRightUp"},
    {wire::Touch::MOUSE_WHEEL, "mouseWheel"},
};

}  // namespace

QString refusedReasonName(wire::Refused::Reason reason) { return nameIn(kRefusedReasons, reason); }
QString passcodeErrorName(wire::PasscodeError::Reason reason) { return nameIn(kPasscodeErrors, reason); }
QString transportName(wire::Transport transport) { return nameIn(kTransports, transport); }
QString castSourceName(wire::CastRequest::Source source) { return nameIn(kSources, source); }
QString touchTypeName(wire::Touch::Type type) { return nameIn(kTouchTypes, type); }

wire::Touch::Type touchTypeFromName(const QString& name) {
    for (const Named<wire::Touch::Type>& row : kTouchTypes) {
        if (name == QLatin1String(row.name)) return row.value;
    }
    return wire::Touch::TYPE_UNSPECIFIED;
}

}  // namespace zv
