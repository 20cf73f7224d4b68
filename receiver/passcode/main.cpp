// zelvanor-passcode: the passcode service on its own. Its TLS key and
// certificate are made at first start in its data folder. Prints one JSON
// line when it listens (with the key id clients pin) and one per
// registration, release and expiry, for scripts and tests that start it.
// Its table lives in memory, or with --store redis://HOST:PORT/DB in Redis,
// shared by every instance that names the same database.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>
#include <optional>

#include "casting/Log.h"
#include "core/QuitOnSignals.h"
#include "passcode/MemoryPasscodeStore.h"
#include "passcode/PasscodeService.h"
#include "passcode/RedisPasscodeStore.h"
#include "security/KeyId.h"
#include "transport/TlsIdentity.h"

namespace {

void printEvent(const QJsonObject& event) {
    std::printf("%s\n", QJsonDocument(event).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char* argv[]) {
    zv::blockStopSignals();

    QCoreApplication app(argc, argv);
    app.setApplicationName(QStringLiteral("zelvanor-passcode"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Maps 4-character passcodes to Zelvanor panel addresses."));
    const QCommandLineOption helpOption({QStringLiteral("h"), QStringLiteral("help")},
                                        QStringLiteral("Shows this help."));
    parser.addOption(helpOption);
    const QCommandLineOption listenOption(QStringLiteral("listen"),
                                          QStringLiteral("Address to listen on (default 0.0.0.0)."),
                                          QStringLiteral("ADDRESS"), QStringLiteral("0.0.0.0"));
    const QCommandLineOption portOption(QStringLiteral("port"),
                                        QStringLiteral("TCP port, 0 for any free one (default %1).")
                                            .arg(zv::kDefaultPasscodePort),
                                        QStringLiteral("N"), QString::number(zv::kDefaultPasscodePort));
    const QCommandLineOption dataOption(
        QStringLiteral("data"),
        QStringLiteral("Folder of the service's TLS key and certificate (default: zelvanor/passcode-service in the "
                       "user's config folder)."),
        QStringLiteral("DIR"),
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
            QStringLiteral("/zelvanor/passcode-service"));
    const QCommandLineOption storeOption(
        QStringLiteral("store"),
        QStringLiteral("Where passcodes are kept: \"memory\" (default) or redis://HOST[:PORT][/DB], shared by every "
                       "instance naming it. Also the key \"store\" of the config file."),
        QStringLiteral("STORE"));
    const QCommandLineOption configOption(
        QStringLiteral("config"),
        QStringLiteral("Config file (INI; keys store, listen, port; the command line wins). Default: "
                       "zelvanor/passcode.conf in the user's config folder."),
        QStringLiteral("FILE"),
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
            QStringLiteral("/zelvanor/passcode.conf"));
    parser.addOption(listenOption);
    parser.addOption(portOption);
    parser.addOption(dataOption);
    parser.addOption(storeOption);
    parser.addOption(configOption);
    if (!parser.parse(QCoreApplication::arguments())) {
        QTextStream(stderr) << parser.errorText() << '\n';
        return 2;
    }
    if (parser.isSet(helpOption)) parser.showHelp(0);
    if (!parser.positionalArguments().isEmpty()) {
        QTextStream(stderr) << "unexpected argument: " << parser.positionalArguments().first() << '\n';
        return 2;
    }
    const QSettings config(parser.value(configOption), QSettings::IniFormat);
    auto setting = [&](const QCommandLineOption& option, const QString& key) {
        if (parser.isSet(option)) return parser.value(option);
        return config.value(key, parser.value(option)).toString();
    };
    const QString storeText = setting(storeOption, QStringLiteral("store"));
    std::optional<zv::RedisPasscodeStore::Target> redis;
    if (!storeText.isEmpty() && storeText != QLatin1String("memory")) {
        redis = zv::RedisPasscodeStore::parseUrl(storeText);
        if (!redis) {
            QTextStream(stderr) << "--store: not \"memory\" nor redis://HOST[:PORT][/DB]: " << storeText << '\n';
            return 2;
        }
    }
    const QHostAddress listenAddress(setting(listenOption, QStringLiteral("listen")));
    if (listenAddress.isNull()) {
        QTextStream(stderr) << "--listen: not an IP address: " << setting(listenOption, QStringLiteral("listen")) << '\n';
        return 2;
    }
    bool portOk = false;
    const uint port = setting(portOption, QStringLiteral("port")).toUInt(&portOk);
    if (!portOk || port > 65535) {
        QTextStream(stderr) << "--port: not a port number: " << setting(portOption, QStringLiteral("port")) << '\n';
        return 2;
    }

    zv_log::start("zelvanor-passcode", zv_log::defaultLogDir());

    zv::QuitOnSignals quitOnSignals;

    QString identityError;
    const std::optional<zv::TlsIdentity> identity = zv::loadOrCreateTlsIdentity(
        parser.value(dataOption), QString(), zv::kPasscodeServiceIdentity, &identityError);
    if (!identity) {
        QTextStream(stderr) << "no TLS key for the service: " << identityError << '\n';
        return 1;
    }

    zv::PasscodeStore* store = nullptr;
    if (redis) {
        auto* shared = new zv::RedisPasscodeStore(*redis);
        shared->start();
        store = shared;
    } else {
        store = new zv::MemoryPasscodeStore();
    }
    zv::PasscodeService service(identity->privateKey, identity->certificate, store);
    QObject::connect(store, &zv::PasscodeStore::availabilityChanged, [store](bool available) {
        printEvent({{QStringLiteral("event"), QStringLiteral("store")},
                    {QStringLiteral("store"), store->describe()},
                    {QStringLiteral("available"), available}});
    });
    QObject::connect(&service, &zv::PasscodeService::registered,
                     [](const QString& passcode, const QString& address, quint16 panelPort, const QString& name,
                        int ttl, const QString& panelKey) {
                         printEvent({{QStringLiteral("event"), QStringLiteral("register")},
                                     {QStringLiteral("passcode"), passcode},
                                     {QStringLiteral("address"), address},
                                     {QStringLiteral("port"), int(panelPort)},
                                     {QStringLiteral("name"), name},
                                     {QStringLiteral("ttl"), ttl},
                                     {QStringLiteral("panelKey"), panelKey}});
                     });
    QObject::connect(&service, &zv::PasscodeService::unregistered, [](const QString& passcode, const QString& address) {
        printEvent({{QStringLiteral("event"), QStringLiteral("unregister")},
                    {QStringLiteral("passcode"), passcode},
                    {QStringLiteral("address"), address}});
    });
    QObject::connect(&service, &zv::PasscodeService::expired, [](const QString& passcode, const QString& address) {
        printEvent({{QStringLiteral("event"), QStringLiteral("expire")},
                    {QStringLiteral("passcode"), passcode},
                    {QStringLiteral("address"), address}});
    });
    if (!service.listen(listenAddress, quint16(port))) {
        QTextStream(stderr) << "cannot listen on " << listenAddress.toString() << ':' << port << ": "
                            << service.errorString() << '\n';
        return 1;
    }
    printEvent({{QStringLiteral("event"), QStringLiteral("ready")},
                {QStringLiteral("address"), service.address().toString()},
                {QStringLiteral("port"), int(service.port())},
                {QStringLiteral("key"), service.keyId()},
                {QStringLiteral("shortKey"), zv::shortKeyId(service.keyId())},
                {QStringLiteral("store"), store->describe()}});

    const int code = app.exec();
    ZV_LOG(INFO) << " passcode service stopped";
    return code;
}
