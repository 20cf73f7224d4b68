// settings: read and change the per-user settings store, the same store and
// the same input rules as the client's settings windows.
#include "Commands.h"
#include "JsonLines.h"
#include "casting/CClientConfig.h"
#include "casting/SettingRules.h"
#include "casting/Singleton.h"
#include "settings/SettingsSchema.h"

namespace cli {
namespace {

QJsonObject settingLine(const char* name, const std::string& value) {
    return {{QStringLiteral("event"), QStringLiteral("setting")},
            {QStringLiteral("key"), QString::fromLatin1(name)},
            {QStringLiteral("value"), QString::fromStdString(value)}};
}

int usage(const QString& text) {
    printLine({{QStringLiteral("event"), QStringLiteral("usage")}, {QStringLiteral("text"), text}});
    return 2;
}

int failure(const QString& key, const QString& text) {
    printLine({{QStringLiteral("event"), QStringLiteral("error")},
               {QStringLiteral("key"), key},
               {QStringLiteral("text"), text}});
    return 1;
}

}  // namespace

int runSettings(const QStringList& arguments) {
    const QStringList words = arguments.mid(1);  // without the program name
    const QString action = words.value(0);
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    if (action == QLatin1String("get") && words.size() <= 2) {
        if (words.size() == 1) {
            for (const zv::settings::Column& column : zv::settings::knownColumns()) {
                printLine(settingLine(column.name, config.getColumnValue(column.name)));
            }
            return 0;
        }
        const zv::settings::Column* column = zv::settings::knownColumn(words.at(1).toStdString());
        if (column == nullptr) return failure(words.at(1), QStringLiteral("unknown setting"));
        printLine(settingLine(column->name, config.getColumnValue(column->name)));
        return 0;
    }
    if (action == QLatin1String("set") && (words.size() == 3 || words.size() == 2)) {
        const std::string key = words.at(1).toStdString();
        std::string value = words.value(2).toStdString();
        const std::string problem = zv::settings::checkSetting(key, value);
        if (!problem.empty()) return failure(words.at(1), QString::fromStdString(problem));
        const zv::settings::Column* column = zv::settings::knownColumn(key);
        const std::string name = column->name;
        if (name == "PauseScreenShortcut" || name == "StartOrStopScreenShortcut") {
            value[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(value[0])));
        }
        // Read back: a store that could not write says so here.
        if (!config.setColumnValue(name, value) || config.getColumnValue(name) != value) {
            return failure(words.at(1), QStringLiteral("the settings store did not keep the value"));
        }
        QJsonObject line = settingLine(column->name, value);
        line.insert(QStringLiteral("saved"), config.isPersistent());
        printLine(line);
        return 0;
    }
    return usage(QStringLiteral("settings get [KEY] | settings set KEY [VALUE]"));
}

}  // namespace cli
