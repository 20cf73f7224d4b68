// zelvanor-passcode: the passcode service on its own. Its TLS key and
// certificate are made at first start in its data folder. Prints one JSON
// line when it listens (with the key id clients pin) and one per
// registration, release and expiry, for scripts and tests that start it.
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>
#include <QTextStream>

#include <cstdio>
#include <optional>

#include "casting/Log.h"
#include "core/QuitOnSignals.h"
#include "passcode/PasscodeService.h"
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
    parser.addOption(listenOption);
    parser.addOption(portOption);
    parser.addOption(dataOption);
    if (!parser.parse(QCoreApplication::arguments())) {
        QTextStream(stderr) << parser.errorText() << '\n';
        return 2;
    }
    if (parser.isSet(helpOption)) parser.showHelp(0);
    if (!parser.positionalArguments().isEmpty()) {
        QTextStream(stderr) << "unexpected argument: " << parser.positionalArguments().first() << '\n';
        return 2;
    }
    const QHostAddress listenAddress(parser.value(listenOption));
    if (listenAddress.isNull()) {
        QTextStream(stderr) << "--listen: not an IP address: " << parser.value(listenOption) << '\n';
        return 2;
    }
    bool portOk = false;
    const uint port = parser.value(portOption).toUInt(&portOk);
    if (!portOk || port > 65535) {
        QTextStream(stderr) << "--port: not a port number: " << parser.value(portOption) << '\n';
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

    zv::PasscodeService service(identity->privateKey, identity->certificate);
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
                {QStringLiteral("shortKey"), zv::shortKeyId(service.keyId())}});

    const int code = app.exec();
    ZV_LOG(INFO) << " passcode service stopped";
    return code;
}
