#include "casting/SettingRules.h"

#include <QRegularExpression>
#include <QString>

#include <cstring>

#include "settings/SettingsSchema.h"

namespace zv::settings {
namespace {

constexpr const char* kIpPattern =
    "\\b(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\.){3}(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\b";

// The second pass over an address that matched the pattern: the pattern
// alone lets "01" through.
bool segmentsValid(const std::string& whole) {
    const size_t first = whole.find_first_not_of(' ');
    if (first == std::string::npos) return false;
    const size_t last = whole.find_last_not_of(' ');
    const std::string text = whole.substr(first, last - first + 1);
    int dots = 0;
    size_t start = 0;
    while (true) {
        const size_t dot = text.find('.', start);
        const std::string segment = text.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        if (segment.empty()) return false;  // a dot without a digit on one side
        int value = 0;
        for (char c : segment) {
            if (c < '0' || c > '9') return false;
            value = value * 10 + (c - '0');
            if (value > 255) return false;
        }
        if (value > 0 && segment[0] == '0') return false;
        if (dot == std::string::npos) break;
        if (++dots > 3) return false;
        start = dot + 1;
    }
    return dots == 3;
}

bool isWholeNumber(const std::string& value, long max, long* number) {
    if (value.empty() || value.size() > 9) return false;
    long n = 0;
    for (char c : value) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + (c - '0');
    }
    if (n > max) return false;
    if (number != nullptr) *number = n;
    return true;
}

}  // namespace

bool isIPAddressValid(const char* text) {
    if (text == nullptr || *text == '\0') return true;
    static const QRegularExpression pattern(QRegularExpression::anchoredPattern(QString::fromLatin1(kIpPattern)));
    if (!pattern.match(QString::fromLatin1(text, static_cast<int>(std::strlen(text)))).hasMatch()) return false;
    return segmentsValid(text);
}

bool isHostNameValid(const std::string& name) {
    const QString text = QString::fromUtf8(name.c_str());
    if (text.isEmpty() || text.size() > 20) return false;
    for (QChar c : text) {
        const ushort code = c.unicode();
        if (code >= 128) continue;
        const bool allowed = (code >= '0' && code <= '9') || (code >= 'A' && code <= 'Z') ||
                             (code >= 'a' && code <= 'z') || code == '_';
        if (!allowed) return false;
    }
    return true;
}

std::string checkSetting(const std::string& name, const std::string& value) {
    const Column* column = knownColumn(name);
    if (column == nullptr) return "unknown setting " + name;
    const std::string key = column->name;
    if (key == "HostName") return isHostNameValid(value) ? "" : "a host name has 1 to 20 letters, digits or _";
    if (key == "ServerIP" || key == "ShortcutIP") {
        return isIPAddressValid(value.c_str()) ? "" : "not a dotted IPv4 address";
    }
    if (key == "ServerPort") {
        return value.empty() || isWholeNumber(value, 65535, nullptr) ? "" : "a port is a number from 0 to 65535";
    }
    if (key == "PauseScreenShortcut" || key == "StartOrStopScreenShortcut") {
        const bool letter = value.size() == 1 && ((value[0] >= 'A' && value[0] <= 'Z') || (value[0] >= 'a' && value[0] <= 'z'));
        return letter ? "" : "a shortcut is one English letter";
    }
    long highest = 1;
    if (key == "ProType") highest = 2;
    if (key == "YUVConvertMode") highest = 9;
    if (column->kind == ColumnKind::Integer) {
        return isWholeNumber(value, highest, nullptr) ? "" : key + " takes 0 to " + std::to_string(highest);
    }
    return {};
}

}  // namespace zv::settings
