// Reading the JSON status lines our programs print (receiver, zelvanor-cli):
// one object per line with an "event" field.
#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLatin1String>

#include <functional>
#include <string>

namespace zvtest {

inline QJsonObject jsonLine(const std::string& line) {
    return QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
}

inline std::string textField(const QJsonObject& object, const char* key) {
    return object.value(QLatin1String(key)).toString().toStdString();
}

// Accepts the line of one event, optionally with one field holding a value.
inline std::function<bool(const std::string&)> statusEvent(const std::string& name, const char* field = nullptr,
                                                           const QJsonValue& value = QJsonValue()) {
    return [name, field, value](const std::string& line) {
        const QJsonObject object = jsonLine(line);
        if (textField(object, "event") != name) return false;
        return field == nullptr || object.value(QLatin1String(field)) == value;
    };
}

}  // namespace zvtest
