#include "ReceiverOptions.h"

#include <QCommandLineParser>
#include <QFileInfo>
#include <QHostInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QStandardPaths>

#include <optional>

#include "passcode/PasscodePins.h"

namespace receiver {
namespace {

// HOST:PORT or HOST:PORT#KEYID (the service's key id, pinned explicitly),
// or several of them separated by commas (instances of one directory).
bool readPasscodeServer(const QString& text, ReceiverOptions& o) {
    const auto servers = zv::PasscodeServerAddress::parseList(text);
    if (!servers) return false;
    o.passcodeServerHost = servers->first().host;
    o.passcodeServerPort = servers->first().port;
    o.passcodeServerKey = servers->first().keyId;
    o.morePasscodeServers = servers->mid(1);
    return true;
}

bool validCode(const QString& code) {
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z0-9]{4,8}$"));
    return pattern.match(code).hasMatch();
}

void readConfigFile(const QString& path, ReceiverOptions& o) {
    if (!QFileInfo::exists(path)) return;
    QSettings file(path, QSettings::IniFormat);
    o.name = file.value(QStringLiteral("name"), o.name).toString();
    o.fixedCode = file.value(QStringLiteral("code"), o.fixedCode).toString();
    o.codeIntervalSeconds = file.value(QStringLiteral("codeIntervalSeconds"), o.codeIntervalSeconds).toInt();
    o.port = static_cast<quint16>(file.value(QStringLiteral("port"), o.port).toUInt());
    o.requireApproval = file.value(QStringLiteral("requireApproval"), o.requireApproval).toBool();
    if (const auto access = zv::panelAccessFromText(file.value(QStringLiteral("access")).toString().toStdString()))
        o.access = *access;
    o.publishCode = file.value(QStringLiteral("publishCode"), o.publishCode).toBool();
    o.maxClients = file.value(QStringLiteral("maxClients"), o.maxClients).toInt();
    // A list with commas comes back from the INI file as a string list.
    const QString passcodeServer = file.value(QStringLiteral("passcodeServer")).toStringList().join(QLatin1Char(','));
    if (!passcodeServer.isEmpty()) readPasscodeServer(passcodeServer, o);
}

}  // namespace

QString ReceiverOptions::defaultName() { return QHostInfo::localHostName() + QStringLiteral(" panel"); }

QString ReceiverOptions::defaultConfigPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/zelvanor/receiver.conf");
}

bool ReceiverOptions::parse(const QStringList& arguments, ReceiverOptions& options, QString& message) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Zelvanor receiver: shows screens cast from PCs. Settings are read from the configuration file "
        "(keys: name, code, codeIntervalSeconds, port, requireApproval, access, publishCode, maxClients, passcodeServer) "
        "and overridden by these options. In --headless mode, JSON commands on standard input control it: "
        "{\"cmd\":\"remove\",\"client\":ID}, {\"cmd\":\"quit\"}."));
    parser.addHelpOption();
    const QCommandLineOption version(QStringLiteral("version"), QStringLiteral("Print the version and stop."));
    parser.addOption(version);
    const QCommandLineOption config(QStringLiteral("config"), QStringLiteral("Configuration file."),
                                    QStringLiteral("PATH"), defaultConfigPath());
    const QCommandLineOption name(QStringLiteral("name"), QStringLiteral("Panel name shown and announced."),
                                  QStringLiteral("NAME"));
    const QCommandLineOption code(QStringLiteral("code"), QStringLiteral("A fixed connect code (4 to 8 letters/digits)."),
                                  QStringLiteral("CODE"));
    const QCommandLineOption codeInterval(QStringLiteral("code-interval"),
                                          QStringLiteral("Make a new code every SECONDS while idle."),
                                          QStringLiteral("SECONDS"));
    const QCommandLineOption port(QStringLiteral("port"), QStringLiteral("Control port (default 47800; 0: any free port)."),
                                  QStringLiteral("PORT"));
    const QCommandLineOption passcodeServer(QStringLiteral("passcode-server"),
                                            QStringLiteral("Register a 4-character passcode with this service; its key is "
                                                           "pinned on first use, or given as #KEYID. Several instances: "
                                                           "a comma-separated list, tried in order."),
                                            QStringLiteral("HOST:PORT[#KEYID][,...]"));
    const QCommandLineOption passcodeService(QStringLiteral("passcode-service"),
                                             QStringLiteral("Also run the passcode service on PORT (0: any)."),
                                             QStringLiteral("PORT"));
    const QCommandLineOption approval(QStringLiteral("require-approval"),
                                      QStringLiteral("Each new cast waits for approval on the panel."));
    const QCommandLineOption access(QStringLiteral("access"),
                                    QStringLiteral("Who gets in without the code: open (anyone), approve (each cast "
                                                   "asked here until accepted once; default) or code (no one). PCs "
                                                   "that logged in with the code before always do."),
                                    QStringLiteral("open|approve|code"));
    const QCommandLineOption publishCode(QStringLiteral("publish-code"),
                                         QStringLiteral("Publish the connect code in the LAN discovery record."));
    const QCommandLineOption maxClients(QStringLiteral("max-clients"), QStringLiteral("Sessions at once (default 4)."),
                                        QStringLiteral("N"));
    const QCommandLineOption noDiscovery(QStringLiteral("no-discovery"), QStringLiteral("Do not announce on the LAN."));
    const QCommandLineOption protocolVersion(QStringLiteral("protocol-version"),
                                             QStringLiteral("Answer as a panel of this protocol version (tests)."),
                                             QStringLiteral("MAJOR[.MINOR]"));
    const QCommandLineOption headless(QStringLiteral("headless"), QStringLiteral("Run without a window."));
    const QCommandLineOption windowed(QStringLiteral("windowed"), QStringLiteral("A window instead of full screen."));
    const QCommandLineOption viewOnly(QStringLiteral("view-only"),
                                      QStringLiteral("PCs may see this screen but not operate it."));
    parser.addOptions({config, name, code, codeInterval, port, passcodeServer, passcodeService, approval, access,
                       publishCode, maxClients, noDiscovery, protocolVersion, headless, windowed});
    parser.addOption(viewOnly);
    const QCommandLineOption testDevices(QStringLiteral("test-devices"),
                                         QStringLiteral("Lend PCs a 440 Hz tone and a test picture instead of the microphone and camera."));
    parser.addOption(testDevices);
    if (!parser.parse(arguments)) {
        message = parser.errorText();
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        message = parser.helpText();
        return false;
    }

    options.name = defaultName();
    options.showVersion = parser.isSet(version);
    options.configPath = parser.value(config);
    readConfigFile(options.configPath, options);

    if (parser.isSet(name)) options.name = parser.value(name).trimmed();
    if (parser.isSet(code)) options.fixedCode = parser.value(code).trimmed();
    if (parser.isSet(codeInterval)) options.codeIntervalSeconds = parser.value(codeInterval).toInt();
    if (parser.isSet(port)) {
        bool ok = false;
        const uint value = parser.value(port).toUInt(&ok);
        if (!ok || value > 65535) {
            message = QStringLiteral("--port must be 0..65535 (0: any free port)");
            return false;
        }
        options.port = static_cast<quint16>(value);
    }
    if (parser.isSet(passcodeServer) && !readPasscodeServer(parser.value(passcodeServer), options)) {
        message = QStringLiteral("--passcode-server must be HOST:PORT or HOST:PORT#KEYID (the key id the service prints), or several separated by commas");
        return false;
    }
    if (parser.isSet(passcodeService)) {
        bool ok = false;
        const int value = parser.value(passcodeService).toInt(&ok);
        if (!ok || value < 0 || value > 65535) {
            message = QStringLiteral("--passcode-service must be a port number");
            return false;
        }
        options.passcodeServicePort = value;
    }
    if (parser.isSet(approval)) options.requireApproval = true;
    if (parser.isSet(access)) {
        const auto mode = zv::panelAccessFromText(parser.value(access).trimmed().toStdString());
        if (!mode) {
            message = QStringLiteral("--access must be open, approve or code");
            return false;
        }
        options.access = *mode;
    }
    if (parser.isSet(publishCode)) options.publishCode = true;
    if (parser.isSet(maxClients)) options.maxClients = parser.value(maxClients).toInt();
    options.discovery = !parser.isSet(noDiscovery);
    if (parser.isSet(protocolVersion)) {
        const QStringList parts = parser.value(protocolVersion).split(QLatin1Char('.'));
        options.protocolMajor = parts.value(0).toInt();
        options.protocolMinor = parts.value(1).toInt();
    }
    options.headless = parser.isSet(headless);
    options.windowed = parser.isSet(windowed);
    options.viewOnly = parser.isSet(viewOnly);
    options.testDevices = parser.isSet(testDevices);

    if (options.name.isEmpty()) {
        message = QStringLiteral("the panel name must not be empty");
        return false;
    }
    if (!options.fixedCode.isEmpty() && !validCode(options.fixedCode)) {
        message = QStringLiteral("--code must be 4 to 8 letters and digits");
        return false;
    }
    if (options.maxClients < 1 || options.maxClients > 64) {
        message = QStringLiteral("--max-clients must be 1..64");
        return false;
    }
    if (options.codeIntervalSeconds < 0) {
        message = QStringLiteral("--code-interval must not be negative");
        return false;
    }
    return true;
}

}  // namespace receiver
