#include "protocol/WireNames.h"

namespace zv {

namespace {

using google::protobuf::EnumDescriptor;

// What every value of an enum starts with, when its zero value is
// "<PREFIX>_UNSPECIFIED" and all share that prefix (TRANSPORT_, SOURCE_).
std::string sharedPrefix(const EnumDescriptor* type) {
    const std::string zero = type->FindValueByNumber(0) ? type->FindValueByNumber(0)->name() : std::string();
    const size_t cut = zero.find('_');
    if (cut == std::string::npos) return {};
    const std::string prefix = zero.substr(0, cut + 1);
    for (int i = 0; i < type->value_count(); ++i) {
        if (type->value(i)->name().compare(0, prefix.size(), prefix) != 0) return {};
    }
    return prefix;
}

// WRONG_CODE -> wrongCode, TRANSPORT_UDP -> udp; 0 -> unspecified; unknown -> #n.
QString nameOf(const EnumDescriptor* type, int number) {
    const google::protobuf::EnumValueDescriptor* value = type->FindValueByNumber(number);
    if (value == nullptr) return QStringLiteral("#%1").arg(number);
    if (number == 0) return QStringLiteral("unspecified");
    const std::string full = value->name();
    QString name;
    bool upper = false;
    for (size_t i = sharedPrefix(type).size(); i < full.size(); ++i) {
        if (full[i] == '_') {
            upper = !name.isEmpty();
            continue;
        }
        const QChar c = QLatin1Char(full[i]);
        name += upper ? c.toUpper() : c.toLower();
        upper = false;
    }
    return name;
}

}  // namespace

QString refusedReasonName(wire::Refused::Reason reason) { return nameOf(wire::Refused::Reason_descriptor(), reason); }

QString passcodeErrorName(wire::PasscodeError::Reason reason) {
    return nameOf(wire::PasscodeError::Reason_descriptor(), reason);
}

QString transportName(wire::Transport transport) { return nameOf(wire::Transport_descriptor(), transport); }

QString castSourceName(wire::CastRequest::Source source) {
    return nameOf(wire::CastRequest::Source_descriptor(), source);
}

QString touchTypeName(wire::Touch::Type type) { return nameOf(wire::Touch::Type_descriptor(), type); }

wire::Touch::Type touchTypeFromName(const QString& name) {
    const EnumDescriptor* type = wire::Touch::Type_descriptor();
    for (int i = 0; i < type->value_count(); ++i) {
        const int number = type->value(i)->number();
        if (number != 0 && nameOf(type, number) == name) return wire::Touch::Type(number);
    }
    return wire::Touch::TYPE_UNSPECIFIED;
}

}  // namespace zv
