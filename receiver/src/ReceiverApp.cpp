#include "ReceiverApp.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

#include <gst/gst.h>
#include <unistd.h>

#include "CastService.h"
#include "CodeKeeper.h"
#include "IdleScreen.h"
#include "KioskScreen.h"
#include "PanelService.h"
#include "ShareService.h"
#include "DeviceShareService.h"
#include "StatusPrinter.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "casting/SessionRecords.h"
#include "discovery/AvahiRuntime.h"
#include "file/FileCastService.h"
#include "file/FileView.h"
#include "discovery/PanelAnnouncer.h"
#include "media/GstInit.h"
#include "media/VideoView.h"
#include "passcode/PasscodePins.h"
#include "passcode/PasscodeRegistration.h"
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
            {QStringLiteral("viaCode"), client.viaCode},
            {QStringLiteral("key"), client.key},
            {QStringLiteral("approved"), client.approved}};
}

}  // namespace

ReceiverApp::ReceiverApp(ReceiverOptions options, QObject* parent)
    : QObject(parent), m_options(std::move(options)) {}

ReceiverApp::~ReceiverApp() {
    m_announcer.reset();  // goodbye to browsers first
    delete m_share;        // its capture and sender stop
    delete m_devices;      // the microphone stops; the PC hears so
    delete m_fileCast;     // the file player stops before its view goes
    m_fileView.reset();
    delete m_cast;         // the pipeline stops before the view goes
    m_view.reset();
    delete m_service;      // tells connected clients
}

bool ReceiverApp::start(QString* error) {
    // GStreamer's first start scans its plug-ins; done now, "ready" means
    // ready to receive, and no cast stalls the main thread (and heartbeats).
    const std::string mediaError = zv::media::ensureGstInitialized();
    if (!mediaError.empty()) ZV_LOG(ERROR) << " no media engine, casts will be refused: " << mediaError;

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

    // The panel's own screen, told to PCs so they scale to it.
    QSize screenSize(1920, 1080);
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr && QGuiApplication::primaryScreen()) {
        screenSize = QGuiApplication::primaryScreen()->size() * QGuiApplication::primaryScreen()->devicePixelRatio();
    }

    PanelService::Settings settings;
    settings.name = m_options.name;
    settings.screenWidth = screenSize.width();
    settings.screenHeight = screenSize.height();
    settings.software = QCoreApplication::applicationVersion();
    settings.port = m_options.port;
    settings.maxClients = m_options.maxClients;
    settings.access = m_options.access;
    settings.knownDevicesPath = identityFolder + QStringLiteral("/known-devices");
    settings.protocolMajor = m_options.protocolMajor;
    settings.protocolMinor = m_options.protocolMinor;
    settings.capabilities = capabilities();
    m_service = new PanelService(settings, identity->privateKey, identity->certificate, identity->keyId, m_codes);
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
    connect(m_service, &PanelService::clientReport, this, [](const ClientInfo& client, const zv::wire::Report& report) {
        QJsonObject fields = clientJson(client);
        fields.insert(QStringLiteral("report"), QString::fromStdString(report.event()));
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

    CastService::Settings castSettings;
    castSettings.requireApproval = m_options.requireApproval;
    castSettings.screenWidth = screenSize.width();
    castSettings.screenHeight = screenSize.height();
    m_cast = new CastService(castSettings, m_service);
    startCasting();
    startSharing();
    startFileCasting();
    startDeviceSharing();

    if (!startPasscodes(*identity, identityFolder, error)) return false;
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
                          {QStringLiteral("access"), QString::fromLatin1(zv::panelAccessText(m_options.access))},
                          {QStringLiteral("publishCode"), m_options.publishCode},
                          {QStringLiteral("passcodeServicePort"),
                           m_passcodeService != nullptr ? m_passcodeService->port() : 0},
                          {QStringLiteral("passcodeServiceKey"),
                           m_passcodeService != nullptr ? m_passcodeService->keyId() : QString()},
                          {QStringLiteral("protocol"), zv::kProtocolVersion}});
    // After "ready", which must be the first status line.
    connect(m_codes, &CodeKeeper::passcodeChanged, this, [this](const QString& passcode) {
        StatusPrinter::print(QStringLiteral("passcode"), {{QStringLiteral("passcode"), passcode}});
        if (m_screen) m_screen->setPasscode(passcode);
    });
    ZV_LOG(INFO) << " panel \"" << m_options.name.toStdString() << "\" ready at " << m_address.toStdString() << ":"
                 << m_service->port() << ", key " << m_service->panelKey().toStdString() << ", access "
                 << zv::panelAccessText(m_options.access);
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
    announcement.accessMode = m_options.access;
    announcement.publishCode = m_options.publishCode;
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

bool ReceiverApp::startPasscodes(const zv::TlsIdentity& identity, const QString& configFolder, QString* error) {
    QString serviceHost = m_options.passcodeServerHost;
    quint16 servicePort = m_options.passcodeServerPort;
    QString serviceKey = m_options.passcodeServerKey;
    if (m_options.passcodeServicePort >= 0) {
        QString identityError;
        const std::optional<zv::TlsIdentity> serviceIdentity = zv::loadOrCreateTlsIdentity(
            configFolder + QStringLiteral("/passcode-service"), QString(), zv::kPasscodeServiceIdentity, &identityError);
        if (!serviceIdentity) {
            *error = QStringLiteral("passcode service: no TLS identity: ") + identityError;
            return false;
        }
        m_passcodeService = new zv::PasscodeService(serviceIdentity->privateKey, serviceIdentity->certificate, this);
        if (!m_passcodeService->listen(QHostAddress::AnyIPv4, static_cast<quint16>(m_options.passcodeServicePort))) {
            *error = QStringLiteral("passcode service: ") + m_passcodeService->errorString();
            return false;
        }
        if (serviceHost.isEmpty()) {
            // Our own service: its key is known, nothing to learn.
            serviceHost = QStringLiteral("127.0.0.1");
            servicePort = m_passcodeService->port();
            serviceKey = m_passcodeService->keyId();
        }
    }
    if (serviceHost.isEmpty()) return true;

    zv::PasscodeRegistration::Settings settings;
    settings.serviceHost = serviceHost;
    settings.servicePort = servicePort;
    settings.serviceKey = serviceKey;
    if (serviceHost == m_options.passcodeServerHost) settings.moreServices = m_options.morePasscodeServers;
    settings.pinsPath = configFolder + QLatin1Char('/') + QLatin1String(zv::kPasscodePinsFileName);
    settings.address = m_address;
    settings.port = m_service->port();
    settings.name = m_options.name;
    settings.panelKey = identity.privateKey;
    settings.panelCertificate = identity.certificate;
    m_passcodeRegistration = new zv::PasscodeRegistration(settings, this);
    connect(m_passcodeRegistration, &zv::PasscodeRegistration::passcodeChanged, m_codes, &CodeKeeper::setPasscode);
    connect(m_codes, &CodeKeeper::passcodeRotationWanted, m_passcodeRegistration, &zv::PasscodeRegistration::rotate);
    connect(m_passcodeRegistration, &zv::PasscodeRegistration::registeredChanged, this, [this](bool registered) {
        StatusPrinter::print(QStringLiteral("passcode-registration"),
                             {{QStringLiteral("registered"), registered},
                              {QStringLiteral("passcode"), m_passcodeRegistration->passcode()},
                              {QStringLiteral("serviceKey"), m_passcodeRegistration->serviceKey()}});
    });
    connect(m_passcodeRegistration, &zv::PasscodeRegistration::refused, this, [](const QString& reason) {
        StatusPrinter::print(QStringLiteral("passcode-refused"), {{QStringLiteral("reason"), reason}});
    });
    m_passcodeRegistration->start();
    return true;
}

void ReceiverApp::showScreen() {
    m_screen = std::make_unique<IdleScreen>(m_options.name);
    m_screen->setAddress(m_address);
    m_screen->setCode(m_codes->code());
    m_screen->setPasscode(m_codes->passcode());
    m_screen->setAccess(m_options.access);
    connect(m_screen.get(), &IdleScreen::removeRequested, m_service, &PanelService::removeClient);
    if (m_options.windowed) {
        m_screen->show();
    } else {
        showWholeScreen(m_screen.get());
    }
}

void ReceiverApp::startCasting() {
    connect(m_cast, &CastService::castStarted, this, [this](const CastStatus& status) {
        StatusPrinter::print(QStringLiteral("cast-started"),
                             {{QStringLiteral("client"), status.client}, {QStringLiteral("transport"), status.transport}});
        if (m_screen) m_screen->setNotice(QString());
        if (m_view) {
            // Not cleared here: the new cast's first picture may already have
            // arrived; the view was cleared when the last cast stopped.
            if (m_options.windowed) {
                m_view->resize(m_screen ? m_screen->size() : QSize(1280, 720));
                m_view->show();
            } else {
                showWholeScreen(m_view.get());
            }
            m_view->raise();
        }
    });
    connect(m_cast, &CastService::castInterrupted, this, [this](qint64 client, int quietSeconds) {
        QString host;
        for (const ClientInfo& info : m_service->clients()) {
            if (info.id == client) host = info.host;
        }
        StatusPrinter::print(QStringLiteral("cast-interrupted"), {{QStringLiteral("client"), client},
                                                                  {QStringLiteral("host"), host},
                                                                  {QStringLiteral("quietSeconds"), quietSeconds}});
        if (m_screen) {
            m_screen->setNotice(tr("The cast from %1 was interrupted: nothing arrived from it for %2 s.")
                                    .arg(host.isEmpty() ? tr("a PC") : host)
                                    .arg(quietSeconds));
        }
    });
    connect(m_cast, &CastService::castStopped, this, [this](qint64 client, const QString& reason) {
        StatusPrinter::print(QStringLiteral("cast-stopped"),
                             {{QStringLiteral("client"), client}, {QStringLiteral("reason"), reason}});
        if (m_view) {
            m_view->clear();  // black until the next cast's first picture
            m_view->hide();
        }
    });
    connect(m_cast, &CastService::statistics, this, [](const CastStatus& status) {
        StatusPrinter::print(QStringLiteral("cast-stats"),
                             {{QStringLiteral("client"), status.client},
                              {QStringLiteral("framesDecoded"), static_cast<qint64>(status.framesDecoded)},
                              {QStringLiteral("fps"), status.fps},
                              {QStringLiteral("bitrateKbps"), status.bitrateKbps},
                              {QStringLiteral("delayMs"), status.delayMs},
                              {QStringLiteral("lossPercent"), status.lossPercent},
                              {QStringLiteral("paused"), status.paused},
                              {QStringLiteral("packetsRejected"), static_cast<qint64>(status.packetsRejected)},
                              {QStringLiteral("packetsFromOthers"), static_cast<qint64>(status.packetsFromOthers)}});
    });
    connect(m_cast, &CastService::firstFrame, this, [](qint64 client, qint64 steadyMs) {
        StatusPrinter::print(QStringLiteral("cast-first-frame"),
                             {{QStringLiteral("client"), client}, {QStringLiteral("steadyMs"), steadyMs}});
    });
    connect(m_cast, &CastService::pausedChanged, this, [](bool paused) {
        StatusPrinter::print(QStringLiteral("cast-paused"), {{QStringLiteral("paused"), paused}});
    });
    connect(m_cast, &CastService::controlChanged, this, [](bool granted) {
        StatusPrinter::print(QStringLiteral("control"), {{QStringLiteral("granted"), granted}});
    });
    connect(&m_service->approvals(), &ApprovalGate::approvalNeeded, this, &ReceiverApp::askApproval);
    if (m_options.headless) return;

    m_view = std::make_unique<zv::media::VideoView>();
    m_view->setWindowTitle(QStringLiteral("Zelvanor Receiver - %1").arg(m_options.name));
    zv::media::VideoView* view = m_view.get();
    m_cast->setFrameSink([view](const QImage& frame) { view->presentFrame(frame); });
    // On X11 the sink draws and scales into the view's own window (a kiosk's
    // too); Qt only draws the pointer. Elsewhere (offscreen) Qt paints the pictures.
    if (QGuiApplication::platformName() == QLatin1String("xcb")) {
        m_cast->setVideoWindow(view->useVideoWindow(),
                               [view](int width, int height) { view->setPictureSize(width, height); });
        connect(view, &zv::media::VideoView::surfaceResized, m_cast, &CastService::windowResized);
    }
    connect(m_cast, &CastService::cursorMoved, view, &zv::media::VideoView::setCursorPosition);
    connect(view, &zv::media::VideoView::pointerAction, m_cast, &CastService::touch);
}

// What this panel offers to PCs, announced when they log in: everything it
// has the parts for.
uint32_t ReceiverApp::capabilities() const {
    using Cap = BusinessCap;
    uint32_t bits = Cap::CAP_SCREEN_CAST | Cap::CAP_WINDOW_CAST | Cap::CAP_FILE_CAST | Cap::CAP_REVERSE_SCREEN |
                    Cap::CAP_AUDIO | Cap::CAP_TRANSPORT_UDP | Cap::CAP_TRANSPORT_TCP;
    if (!m_options.viewOnly) bits |= Cap::CAP_REVERSE_CONTROL;
    if (zv::media::ensureGstInitialized().empty()) {
        if (GstElementFactory* srt = gst_element_factory_find("srtsrc")) {
            bits |= Cap::CAP_TRANSPORT_BRX;
            gst_object_unref(srt);
        }
    }
    return bits;
}

void ReceiverApp::askApproval(qint64 client, const QString& host, ApprovalGate::Kind kind) {
    StatusPrinter::print(QStringLiteral("approval-needed"), {{QStringLiteral("client"), client},
                                                             {QStringLiteral("host"), host},
                                                             {QStringLiteral("kind"), ApprovalGate::kindName(kind)}});
    if (m_options.headless) return;  // answered by the "approve" command
    QString question;
    switch (kind) {
        case ApprovalGate::Kind::Cast: question = tr("%1 wants to show its screen here.").arg(host); break;
        case ApprovalGate::Kind::Share: question = tr("%1 wants to see this screen.").arg(host); break;
        case ApprovalGate::Kind::File: question = tr("%1 wants to show a file here.").arg(host); break;
        case ApprovalGate::Kind::Devices:
            question = tr("%1 wants to use this panel's camera and microphone.").arg(host);
            break;
    }
    auto* box = new QMessageBox(QMessageBox::Question, QStringLiteral("Zelvanor"), question, QMessageBox::NoButton,
                                m_screen.get());
    QPushButton* allow = box->addButton(tr("Allow"), QMessageBox::AcceptRole);
    box->addButton(tr("Deny"), QMessageBox::RejectRole);
    box->setAttribute(Qt::WA_DeleteOnClose);
    connect(box, &QMessageBox::finished, this, [this, box, allow, client] {
        m_service->approvals().answer(client, box->clickedButton() == static_cast<QAbstractButton*>(allow));
    });
    box->open();
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
    if (onShareCommand(name)) return;
    if (name == QLatin1String("remove")) {
        const qint64 id = command.value(QStringLiteral("client")).toVariant().toLongLong();
        if (!m_service->removeClient(id)) {
            StatusPrinter::print(QStringLiteral("command-failed"),
                                 {{QStringLiteral("cmd"), name}, {QStringLiteral("reason"), QStringLiteral("no such client")}});
        }
    } else if (name == QLatin1String("approve")) {
        const qint64 id = command.value(QStringLiteral("client")).toVariant().toLongLong();
        if (!m_service->approvals().answer(id, command.value(QStringLiteral("approved")).toBool(true))) {
            StatusPrinter::print(QStringLiteral("command-failed"),
                                 {{QStringLiteral("cmd"), name}, {QStringLiteral("reason"), QStringLiteral("nothing to approve")}});
        }
    } else if (name == QLatin1String("touch")) {
        // As a touch on the view: for kiosks and tests without a screen.
        m_cast->touch(command.value(QStringLiteral("type")).toString(), command.value(QStringLiteral("x")).toInt(),
                      command.value(QStringLiteral("y")).toInt());
    } else if (name == QLatin1String("snapshot")) {
        const QString path = command.value(QStringLiteral("path")).toString();
        const QImage frame = m_cast->latestFrame();
        const bool saved = !frame.isNull() && !path.isEmpty() && frame.save(path, "PNG");
        StatusPrinter::print(QStringLiteral("snapshot"), {{QStringLiteral("path"), path},
                                                          {QStringLiteral("saved"), saved},
                                                          {QStringLiteral("width"), frame.width()},
                                                          {QStringLiteral("height"), frame.height()}});
    } else if (name == QLatin1String("stop-cast")) {
        m_cast->stopCast(QStringLiteral("stopped on the panel"));
    } else if (onFileCommand(name, command)) {
        // a file-cast command, done
    } else if (name == QLatin1String("quit")) {
        QCoreApplication::quit();
    } else {
        StatusPrinter::print(QStringLiteral("command-failed"),
                             {{QStringLiteral("line"), QString::fromUtf8(line)},
                              {QStringLiteral("reason"), QStringLiteral("unknown command")}});
    }
}

}  // namespace receiver
