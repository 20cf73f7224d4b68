// The texts of the wire enums where people, logs, status lines or the
// client's records read them: the value's name in lower camel case, less the
// prefix all values of its enum share (WRONG_CODE "wrongCode", TRANSPORT_UDP
// "udp", MOUSE_LEFT_DOWN "mouseLeftDown"). These are the texts the protocol
// used before it had enums. The zero value reads "unspecified", a value this
// build does not know "#<number>".
#pragma once

#include <QString>

#include "proto/envelope.pb.h"

namespace zv {

QString refusedReasonName(wire::Refused::Reason reason);
QString passcodeErrorName(wire::PasscodeError::Reason reason);
QString transportName(wire::Transport transport);
QString castSourceName(wire::CastRequest::Source source);
QString touchTypeName(wire::Touch::Type type);
// TYPE_UNSPECIFIED for a name that is none of them.
wire::Touch::Type touchTypeFromName(const QString& name);

}  // namespace zv
