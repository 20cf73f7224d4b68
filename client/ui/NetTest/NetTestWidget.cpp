#include "ui/NetTest/NetTestWidget.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QNetworkInterface>
#include <QPushButton>
#include <QSet>
#include <QTabWidget>
#include <QVBoxLayout>

#include <memory>
#include <mutex>
#include <utility>

#include "casting/CClientConfig.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/MirkAsync.h"
#include "ui/TipWindows.h"

namespace qorquicomponents {
namespace {

constexpr int kLargeDelayMs = 99;
constexpr unsigned kFailedDelayMs = 999;
constexpr int kConnectTimeoutMs = 5000;
constexpr uint16_t kPanelPort = 47800;

// The address signals carry const char* across threads: the texts are kept
// here for the life of the process (a handful of addresses at most).
const char* keptText(const char* text) {
    static std::mutex mutex;
    static QSet<QByteArray> texts;
    std::lock_guard<std::mutex> lock(mutex);
    const QByteArray value(text != nullptr ? text : "");
    auto found = texts.find(value);
    if (found == texts.end()) found = texts.insert(value);
    return found->constData();
}

QString ms(unsigned int delay) { return QString::number(delay) + QStringLiteral("ms"); }

}  // namespace

long pingGatewayCallback(bool ok, const char*, int delayMs, void* user) {
    if (user == nullptr) return -1;
    auto* widget = static_cast<NetTestWidget*>(user);
    if (ok) {
        emit widget->signalUpdateGatewayDelay(static_cast<unsigned>(delayMs));
    } else {
        emit widget->signalReportNetEventInfo(false, keptText("gateway"), kFailedDelayMs);
    }
    return 0;
}

long pingServerIpCallback(bool ok, const char* address, int delayMs, void* user) {
    if (user == nullptr) return -1;
    emit static_cast<NetTestWidget*>(user)->signalUpdateServerDelay(ok, keptText(address), static_cast<unsigned>(delayMs));
    return 0;
}

long parseServerIpFailCallback(bool, const char*, int, void* user) {
    if (user == nullptr) return -1;
    emit static_cast<NetTestWidget*>(user)->signalUpdateFailData();
    return 0;
}

long nullServerDataCallback(bool, const char*, int, void* user) {
    if (user == nullptr) return -1;
    emit static_cast<NetTestWidget*>(user)->signalUpdateNullData();
    return 0;
}

long pingIpFromBackStageCallback(bool ok, const char* address, int delayMs, void* user) {
    if (user == nullptr) return -1;
    emit static_cast<NetTestWidget*>(user)->signalReportNetEventInfo(ok, keptText(address),
                                                                     static_cast<unsigned>(delayMs));
    return 0;
}

NetTestWidget::NetTestWidget(QWidget* parent) : QDialog(parent) {
    initUi();
    initConnect();
}

// The service's thread emits our signals: it ends before we do.
NetTestWidget::~NetTestWidget() { m_ping.stop(); }

void NetTestWidget::initUi() {
    setObjectName(QStringLiteral("NetTestWidget"));
    setWindowTitle(tr("Network test"));
    auto* outer = new QVBoxLayout(this);
    m_tabs = new QTabWidget;
    outer->addWidget(m_tabs);

    auto* delayPage = new QWidget;
    auto* delayColumn = new QVBoxLayout(delayPage);
    auto* addressRow = new QHBoxLayout;
    addressRow->addWidget(new QLabel(tr("Local address:")));
    m_clientIpBox = new QComboBox;
    m_clientIpBox->setObjectName(QStringLiteral("clientIPBox"));
    addressRow->addWidget(m_clientIpBox, 1);
    delayColumn->addLayout(addressRow);
    auto group = [](const QString& title, QLabel** address, QLabel** delay, QLabel** verdict) {
        auto* box = new QGroupBox(title);
        auto* form = new QFormLayout(box);
        *address = new QLabel(QStringLiteral("---"));
        *delay = new QLabel(QStringLiteral("---"));
        *verdict = new QLabel(QStringLiteral("---"));
        form->addRow(tr("Address:"), *address);
        form->addRow(tr("Delay:"), *delay);
        form->addRow(tr("Result:"), *verdict);
        return box;
    };
    m_gatewayGroup = group(tr("Gateway"), &m_gatewayAddress, &m_gatewayDelay, &m_gatewayVerdict);
    m_serverGroup = group(tr("Server"), &m_serverAddress, &m_serverDelay, &m_serverVerdict);
    delayColumn->addWidget(m_gatewayGroup);
    delayColumn->addWidget(m_serverGroup);
    m_tabs->addTab(delayPage, tr("Delay"));

    auto* tcpPage = new QWidget;
    auto* tcpColumn = new QVBoxLayout(tcpPage);
    m_tcpGroup = new QGroupBox(tr("Screen port"));
    auto* form = new QFormLayout(m_tcpGroup);
    m_tcpAddress = new QLineEdit;
    m_tcpPort = new QLineEdit(QString::number(kPanelPort));
    m_tcpPort->setValidator(new QIntValidator(1, 65535, m_tcpPort));
    m_tcpTestBtn = new QPushButton(tr("Test"));
    m_tcpResult = new QLabel(QStringLiteral("---"));
    m_tcpValue = new QLabel(QStringLiteral("---"));
    form->addRow(tr("Screen address:"), m_tcpAddress);
    form->addRow(tr("Port:"), m_tcpPort);
    form->addRow(QString(), m_tcpTestBtn);
    form->addRow(tr("Result:"), m_tcpResult);
    form->addRow(tr("Error:"), m_tcpValue);
    tcpColumn->addWidget(m_tcpGroup);
    tcpColumn->addStretch(1);
    m_tabs->addTab(tcpPage, tr("Screen port"));
}

void NetTestWidget::initConnect() {
    connect(this, &NetTestWidget::signalUpdateGatewayDelay, this, &NetTestWidget::onUpdateGatewayDelay,
            Qt::QueuedConnection);
    connect(this, &NetTestWidget::signalUpdateServerDelay, this, &NetTestWidget::onUpdateServerDelay,
            Qt::QueuedConnection);
    connect(this, &NetTestWidget::signalUpdateFailData, this, [this] {
        m_serverAddress->setText(QStringLiteral("---"));
        m_serverDelay->setText(ms(kFailedDelayMs));
        m_serverVerdict->setText(tr("Error.Ip Parsing exception."));
    }, Qt::QueuedConnection);
    connect(this, &NetTestWidget::signalUpdateNullData, this, [this] {
        m_serverAddress->setText(QStringLiteral("---"));
        m_serverDelay->setText(QStringLiteral("---"));
        m_serverVerdict->setText(tr("No server address is set."));
    }, Qt::QueuedConnection);
    connect(this, &NetTestWidget::signalTcpResult, this, [this](const QString& text, int value) {
        m_tcpResult->setText(text);
        m_tcpValue->setText(QString::number(value));
        m_tcpTestBtn->setEnabled(true);
    }, Qt::QueuedConnection);
    connect(this, &NetTestWidget::signalReportNetEventInfo, this, &NetTestWidget::onReportNetEventInfo,
            Qt::QueuedConnection);
    connect(m_clientIpBox, &QComboBox::textActivated, this, &NetTestWidget::onClientIPBoxActivated);
    connect(m_tcpAddress, &QLineEdit::textChanged, this, &NetTestWidget::onTextChanged);
    connect(m_tabs, &QTabWidget::currentChanged, this, &NetTestWidget::onTabwidgetCurrentChanged);
    connect(m_tcpTestBtn, &QPushButton::clicked, this, &NetTestWidget::onTcpTestClicked);
}

// ---------------------------------------------------------------------------
// Addresses and gateways
// ---------------------------------------------------------------------------

QStringList NetTestWidget::validLocalAddresses() {
    QStringList result;
    for (const QNetworkInterface& nic : QNetworkInterface::allInterfaces()) {
        const auto flags = nic.flags();
        if (!(flags & QNetworkInterface::IsUp) || (flags & QNetworkInterface::IsLoopBack)) continue;
        for (const QNetworkAddressEntry& entry : nic.addressEntries()) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol) continue;
            result << entry.ip().toString() + QStringLiteral("(") + nic.name() + QStringLiteral(")");
        }
    }
    return result;
}

QHash<QString, QString> NetTestWidget::readGateways(const QString& routeFile) {
    QHash<QString, QString> gateways;
    for (const auto& entry : PingService::defaultGateways(routeFile.toStdString())) {
        gateways.insert(QString::fromStdString(entry.first), QString::fromStdString(entry.second));
    }
    return gateways;
}

void NetTestWidget::getGateWayIp(QString& gateway) {
    m_gatewayByAddress.clear();
    const QHash<QString, QString> byInterface = readGateways();
    const QStringList addresses = validLocalAddresses();
    for (const QString& entry : addresses) {
        const int open = entry.indexOf(QLatin1Char('('));
        const QString nic = entry.mid(open + 1, entry.size() - open - 2);
        if (byInterface.contains(nic)) m_gatewayByAddress.insert(entry.left(open), byInterface.value(nic));
    }
    gateway.clear();
    if (addresses.isEmpty()) return;
    const QString first = addresses.first().section(QLatin1Char('('), 0, 0);
    gateway = m_gatewayByAddress.value(first);
}

void NetTestWidget::showResults(bool show) {
    m_gatewayGroup->setVisible(show);
    m_serverGroup->setVisible(show);
    m_tcpGroup->setVisible(show);
}

void NetTestWidget::enterEvent(QEvent* event) {
    if (event != nullptr) QDialog::enterEvent(event);
    const QString kept = m_clientIpBox->currentText();
    QStringList addresses = validLocalAddresses();
    if (addresses.isEmpty()) {
        m_clientIpBox->clear();
        showResults(false);
        m_ping.stop();
        TipWindows::getInstance()->setDisplayText(ErrorLevelRisk,
                                                  tr("There is no network at present, please check and try again"),
                                                  TipWindowPlain, this, 48);
        return;
    }
    showResults(true);
    if (!kept.isEmpty() && addresses.contains(kept)) {
        addresses.removeAll(kept);
        addresses.prepend(kept);
        m_clientIpBox->clear();
        m_clientIpBox->addItems(addresses);
        if (!m_ping.isRunning()) startSampling(kept);
    } else {
        m_clientIpBox->clear();
        m_clientIpBox->addItems(addresses);
        onClientIPBoxActivated(addresses.first());
    }
}

void NetTestWidget::onClientIPBoxActivated(QString text) {
    startSampling(text.section(QLatin1Char('('), 0, 0));
}

void NetTestWidget::startSampling(const QString& localAddress) {
    QString first;
    getGateWayIp(first);
    const QString gateway = m_gatewayByAddress.value(localAddress.section(QLatin1Char('('), 0, 0));
    m_gatewayAddress->setText(gateway.isEmpty() ? QStringLiteral("---") : gateway);
    m_gatewayDelay->setText(QStringLiteral("---"));
    m_gatewayVerdict->setText(gateway.isEmpty() ? tr("No gateway") : QStringLiteral("---"));
    PingService::Callbacks callbacks;
    callbacks.gateway = pingGatewayCallback;
    callbacks.server = pingServerIpCallback;
    callbacks.parseFail = parseServerIpFailCallback;
    callbacks.nullData = nullServerDataCallback;
    callbacks.user = this;
    const std::string server = Singleton<CClientConfig>::getInstance().getServerIP();
    ZV_LOG(INFO) << " network test from " << localAddress.toStdString() << ", gateway " << gateway.toStdString()
                 << ", server " << server;
    m_ping.start(gateway.toStdString(), server, kPanelPort, callbacks);
}

// ---------------------------------------------------------------------------
// Results
// ---------------------------------------------------------------------------

QString NetTestWidget::delayVerdict(unsigned int delayMs) {
    return delayMs > static_cast<unsigned>(kLargeDelayMs) ? tr("Success.There is a large delay") : tr("Success.");
}

void NetTestWidget::onUpdateGatewayDelay(unsigned int delayMs) {
    if (delayMs == 0) delayMs = 1;
    m_gatewayDelay->setText(ms(delayMs));
    m_gatewayVerdict->setText(delayVerdict(delayMs));
}

void NetTestWidget::onUpdateServerDelay(bool ok, const char* address, unsigned int delayMs) {
    m_serverAddress->setText(QString::fromLatin1(address));
    if (ok) {
        m_serverDelay->setText(ms(delayMs));
        m_serverVerdict->setText(delayVerdict(delayMs));
    } else {
        m_serverDelay->setText(ms(kFailedDelayMs));
        m_serverVerdict->setText(tr("Error.Ip pinged failed."));
    }
}

// A sample that got no answer (the gateway's, or one from the background test).
void NetTestWidget::onReportNetEventInfo(bool ok, const char* address, unsigned int delayMs) {
    if (!ok && QByteArray(address) == "gateway") {
        m_gatewayDelay->setText(ms(kFailedDelayMs));
        m_gatewayVerdict->setText(tr("Error.Ip pinged failed."));
        return;
    }
    ZV_LOG(INFO) << " sample " << (address != nullptr ? address : "") << ": " << (ok ? "" : "no answer, ") << delayMs
                 << " ms";
}

void NetTestWidget::onTextChanged(const QString&) {
    m_tcpResult->setText(QStringLiteral("---"));
    m_tcpValue->setText(QStringLiteral("---"));
}

void NetTestWidget::onTabwidgetCurrentChanged(int) {}

void NetTestWidget::onStopNetTestFromBackstage() { m_ping.stop(); }

void NetTestWidget::hideEvent(QHideEvent* event) {
    m_ping.stop();
    QDialog::hideEvent(event);
}

// ---------------------------------------------------------------------------
// TCP reachability
// ---------------------------------------------------------------------------

int NetTestWidget::connectTCP(QString address, unsigned short port, int& error) {
    KtrSocket socket = Ktr_CreateSocket(KTR_SOCK_STREAM);
    if (socket == KTR_INVALID_SOCKET) {
        ZV_LOG(ERROR) << " Ktr Create Invalid Socket";
        Ktr_ShutDown(socket, 2);
        Ktr_CloseSocket(socket);
        error = Ktr_GetLastError();
        return 0;
    }
    KtrSockAddr target;
    if (Ktr_MakeAddrByString(address.toLatin1().constData(), port, &target) != 0 ||
        Ktr_ConnectWithTimeOut(socket, &target, kConnectTimeoutMs) != 0) {
        error = Ktr_GetLastError();
        ZV_LOG(WARNING) << " " << address.toStdString() << ":" << port << " not reachable, error " << error;
        Ktr_ShutDown(socket, 2);
        Ktr_CloseSocket(socket);
        return 0;
    }
    error = 0;
    Ktr_ShutDown(socket, 2);
    Ktr_CloseSocket(socket);
    return 1;
}

void NetTestWidget::onTcpTestClicked() {
    const QString address = m_tcpAddress->text().trimmed();
    const unsigned short port = static_cast<unsigned short>(m_tcpPort->text().toUInt());
    m_tcpTestBtn->setEnabled(false);
    m_tcpResult->setText(tr("Testing..."));
    m_tcpValue->setText(QStringLiteral("---"));
    // The worker touches nothing of the window; the done half (GUI thread,
    // only while the window exists) shows what it found.
    auto outcome = std::make_shared<std::pair<int, int>>(0, 0);
    mirk_async::ASYNC([address, port, outcome] { outcome->first = connectTCP(address, port, outcome->second); },
                      [this, outcome] {
                          emit signalTcpResult(outcome->first == 1 ? tr("Success.The screen port is reachable")
                                                                   : tr("Error.The screen port cannot be reached"),
                                               outcome->second);
                      },
                      this);
}

}  // namespace qorquicomponents
