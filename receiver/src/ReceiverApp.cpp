#include "ReceiverApp.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <unistd.h>

#include "CodeKeeper.h"
#include "IdleScreen.h"
#include "PanelService.h"
#include "StatusPrinter.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "discovery/AvahiRuntime.h"
#include "discovery/PanelAnnouncer.h"
#include "passcode/PasscodeClient.h"
#include "passcode/PasscodeService.h"
#include "protocol/ProtocolConstants.h"
#include "transport/TlsIdentity.h"

namespace receiver {

namespace {

// The address PCs reach this panel at: the first usable IPv4 of this host.
QString primaryAddress() {
    char mac[32] = {};
    char ip[64] = {};
    if (MC_Util_GetLocalMACIP(mac, sizeof mac, ip, sizeof ip) == 0) return QString::fromLatin1(ip);
    return QStringLiteral("127.0.0.1");
}

QJsonObject clientJson(const ClientInfo& client) {
    return {{QStringLiteral("client"), client.id},
            {QStringLiteral("host"), client.host},
            {QStringLiteral("address"), client.address},
            {QStringLiteral("viaCode"), client.viaCode}};
}

}  // namespace

ReceiverApp::ReceiverApp(ReceiverOptions options, QObject* parent)
    : QObject(parent), m_options(std::move(options)) {}

ReceiverApp::~ReceiverApp() {
    m_announcer.reset();  // goodbye to browsers first
    delete m_service;      // tells connected clients
}

bool ReceiverApp::start(QString* error) {
    const QString identityFolder =
        QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/zelvanor/receiver");
    QString identityError;
    const std::optional<zv::TlsIdentity> identity =
        zv::loadOrCreateTlsIdentity(identityFolder, m_options.name, &identityError);
    if (!identity) {
        *error = QStringLiteral("no TLS identity: ") + identityError;
        return false;
    }

    m_address = primaryAddress();
    m_codes = new CodeKeeper(QHostAddress(m_address).toIPv4Address(), m_options.fixedCode,
                             m_options.codeIntervalSeconds, this);

    PanelService::Settings settings;
    settings.name = m_options.name;
    settings.software = QCoreApplication::applicationVersion();
    settings.port = m_options.port;
    settings.maxClients = m_options.maxClients;
    settings.requireCode = m_options.requireCode;
    settings.protocolVersion = m_options.protocolVersion;
    m_service = new PanelService(settings, identity->privateKey, identity->certificate, identity->panelKey, m_codes);
    if (!m_service->start(error)) {
        *error = QStringLiteral("cannot listen on port %1: %2").arg(m_options.port).arg(*error);
        return false;
    }

    connect(m_service, &PanelService::clientJoined, this, [this](const ClientInfo& client) {
        StatusPrinter::print(QStringLiteral("client-joined"), clientJson(client));
        if (m_screen) m_screen->addClient(client);
    });
    connect(m_service, &PanelService::clientResumed, this, [](const ClientInfo& client) {
        StatusPrinter::print(QStringLiteral("client-resumed"), clientJson(client));
    });
    connect(m_service, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString& reason) {
        QJsonObject fields = clientJson(client);
        fields.insert(QStringLiteral("reason"), reason);
        StatusPrinter::print(QStringLiteral("client-left"), fields);
        if (m_screen) m_screen->removeClient(client.id);
    });
    connect(m_service, &PanelService::clientReport, this, [](const ClientInfo& client, const zv::ReportMessage& report) {
        QJsonObject fields = clientJson(client);
        fields.insert(QStringLiteral("report"), report.event);
        StatusPrinter::print(QStringLiteral("client-report"), fields);
    });
    connect(m_service, &PanelService::helloRefused, this, [](const QString& from, const QString& reason) {
        StatusPrinter::print(QStringLiteral("refused"), {{QStringLiteral("from"), from}, {QStringLiteral("reason"), reason}});
    });
    connect(m_codes, &CodeKeeper::codeChanged, this, [this](const QString& code) {
        StatusPrinter::print(QStringLiteral("code"), {{QStringLiteral("code"), code}});
        if (m_announcer) m_announcer->updateCode(code);
        if (m_screen) m_screen->setCode(code);
    });

    if (!startPasscodes(error)) return false;
    if (m_options.discovery) startDiscovery();
    if (!m_options.headless) showScreen();
    watchCommands();

    StatusPrinter::print(QStringLiteral("ready"),
                         {{QStringLiteral("name"), m_options.name},
                          {QStringLiteral("code"), m_codes->code()},
                          {QStringLiteral("passcode"), m_codes->passcode()},
                          {QStringLiteral("address"), m_address},
                          {QStringLiteral("port"), m_service->port()},
                          {QStringLiteral("key"), m_service->panelKey()},
                          {QStringLiteral("passcodeServicePort"),
                           m_passcodeService != nullptr ? m_passcodeService->port() : 0},
                          {QStringLiteral("protocol"), zv::kProtocolVersion}});
    // After "ready", which must be the first status line.
    connect(m_codes, &CodeKeeper::passcodeChanged, this, [this](const QString& passcode) {
        StatusPrinter::print(QStringLiteral("passcode"), {{QStringLiteral("passcode"), passcode}});
        if (m_screen) m_screen->setPasscode(passcode);
    });
    ZV_LOG(INFO) << " panel \"" << m_options.name.toStdString() << "\" ready at " << m_address.toStdString() << ":"
                 << m_service->port() << ", key " << m_service->panelKey().toStdString();
    return true;
}

void ReceiverApp::startDiscovery() {
    std::string avahiError;
    m_avahi = zv::AvahiRuntime::start(zv::AvahiRuntime::Options{}, &avahiError);
    if (!m_avahi) {
        ZV_LOG(WARNING) << " not announced on the LAN: " << avahiError;
        StatusPrinter::print(QStringLiteral("discovery"), {{QStringLiteral("announced"), false},
                                                           {QStringLiteral("error"), QString::fromStdString(avahiError)}});
        return;
    }
    zv::PanelAnnouncement announcement;
    announcement.name = m_options.name;
    announcement.port = m_service->port();
    announcement.key = m_service->panelKey();
    announcement.code = m_codes->code();
    m_announcer = std::make_unique<zv::PanelAnnouncer>(
        m_avahi, announcement, [](zv::PanelAnnouncer::Event event, const QString& serviceName) {
            // Called on the discovery thread: only print.
            const char* what = event == zv::PanelAnnouncer::Event::Established ? "announced"
                               : event == zv::PanelAnnouncer::Event::Renamed   ? "renamed"
                                                                               : "failed";
            StatusPrinter::print(QStringLiteral("discovery"),
                                 {{QStringLiteral("state"), QString::fromLatin1(what)},
                                  {QStringLiteral("service"), serviceName}});
        });
}

bool ReceiverApp::startPasscodes(QString* error) {
    QString serviceHost = m_options.passcodeServerHost;
    quint16 servicePort = m_options.passcodeServerPort;
    if (m_options.passcodeServicePort >= 0) {
        m_passcodeService = new zv::PasscodeService(this);
        if (!m_passcodeService->listen(QHostAddress::AnyIPv4, static_cast<quint16>(m_options.passcodeServicePort))) {
            *error = QStringLiteral("passcode service: ") + m_passcodeService->errorString();
            return false;
        }
        if (serviceHost.isEmpty()) {
            serviceHost = QStringLiteral("127.0.0.1");
            servicePort = m_passcodeService->port();
        }
    }
    if (serviceHost.isEmpty()) return true;

    zv::PasscodeRegistration::Settings settings;
    settings.serviceHost = serviceHost;
    settings.servicePort = servicePort;
    settings.address = m_address;
    settings.port = m_service->port();
    settings.name = m_options.name;
    m_passcodeRegistration = new zv::PasscodeRegistration(settings, this);
    connect(m_passcodeRegistration, &zv::PasscodeRegistration::passcodeChanged, m_codes, &CodeKeeper::setPasscode);
    connect(m_passcodeRegistration, &zv::PasscodeRegistration::registeredChanged, this, [this](bool registered) {
        StatusPrinter::print(QStringLiteral("passcode-registration"),
                             {{QStringLiteral("registered"), registered},
                              {QStringLiteral("passcode"), m_passcodeRegistration->passcode()}});
    });
    m_passcodeRegistration->start();
    m_codes->setPasscode(m_passcodeRegistration->passcode());
    return true;
}

void ReceiverApp::showScreen() {
    m_screen = std::make_unique<IdleScreen>(m_options.name);
    m_screen->setAddress(m_address);
    m_screen->setCode(m_codes->code());
    m_screen->setPasscode(m_codes->passcode());
    connect(m_screen.get(), &IdleScreen::removeRequested, m_service, &PanelService::removeClient);
    if (m_options.windowed) {
        m_screen->show();
    } else {
        m_screen->showFullScreen();
    }
}

void ReceiverApp::watchCommands() {
    // Commands on standard input, one JSON object per line, for kiosks and tests.
    if (isatty(STDIN_FILENO)) return;
    m_commands = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_commands, &QSocketNotifier::activated, this, [this] {
        char buffer[1024];
        const ssize_t n = read(STDIN_FILENO, buffer, sizeof buffer);
        if (n <= 0) {
            m_commands->setEnabled(false);  // no more commands; the panel goes on
            return;
        }
        m_commandBuffer.append(buffer, static_cast<int>(n));
        if (m_commandBuffer.size() > 64 * 1024) m_commandBuffer.clear();  // nobody sends that much on purpose
        int newline;
        while ((newline = m_commandBuffer.indexOf('\n')) >= 0) {
            const QByteArray line = m_commandBuffer.left(newline).trimmed();
            m_commandBuffer.remove(0, newline + 1);
            if (!line.isEmpty()) onCommand(line);
        }
    });
}

void ReceiverApp::onCommand(const QByteArray& line) {
    QJsonParseError parseError{};
    const QJsonObject command = QJsonDocument::fromJson(line, &parseError).object();
    const QString name = command.value(QStringLiteral("cmd")).toString();
    if (name == QLatin1String("remove")) {
        const qint64 id = command.value(QStringLiteral("client")).toVariant().toLongLong();
        if (!m_service->removeClient(id)) {
            StatusPrinter::print(QStringLiteral("command-failed"),
                                 {{QStringLiteral("cmd"), name}, {QStringLiteral("reason"), QStringLiteral("no such client")}});
        }
    } else if (name == QLatin1String("quit")) {
        QCoreApplication::quit();
    } else {
        StatusPrinter::print(QStringLiteral("command-failed"),
                             {{QStringLiteral("line"), QString::fromUtf8(line)},
                              {QStringLiteral("reason"), QStringLiteral("unknown command")}});
    }
}

}  // namespace receiver
