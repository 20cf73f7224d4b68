// The network test window: the PC's usable local addresses, the delay to the
// gateway of the chosen one and to the passcode server with a verdict for
// each (samples from the library's PingService), and whether a TCP port of a
// panel can be reached (the portable runtime's sockets). The samples arrive
// on the service's thread and reach the widgets only through the queued
// signals below. GUI thread only otherwise.
#pragma once

#include <QDialog>
#include <QHash>
#include <QStringList>

#include "casting/PingService.h"

class QComboBox;
class QEvent;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;

namespace qorquicomponents {

// Library callbacks of the network test; with a null user they return -1.
long pingGatewayCallback(bool ok, const char* address, int delayMs, void* user);
long pingServerIpCallback(bool ok, const char* address, int delayMs, void* user);
long parseServerIpFailCallback(bool ok, const char* address, int delayMs, void* user);
long nullServerDataCallback(bool ok, const char* address, int delayMs, void* user);
long pingIpFromBackStageCallback(bool ok, const char* address, int delayMs, void* user);

class NetTestWidget : public QDialog {
    Q_OBJECT

public:
    explicit NetTestWidget(QWidget* parent = nullptr);
    ~NetTestWidget() override;

    // 1 when address:port accepts a TCP connection within 5 s, else 0 with
    // the system's error number in error. Blocks its caller.
    static int connectTCP(QString address, unsigned short port, int& error);
    // The gateway of the first usable local address (empty when unknown).
    void getGateWayIp(QString& gateway);

    // "address(interface)" for every interface that is up, not loopback and has IPv4.
    static QStringList validLocalAddresses();
    // Interface name -> default gateway, from /proc/net/route.
    static QHash<QString, QString> readGateways(const QString& routeFile = QStringLiteral("/proc/net/route"));
    // The verdict shown for a delay sample.
    static QString delayVerdict(unsigned int delayMs);

    // Widgets, for the tests.
    QComboBox* clientIpBox() const { return m_clientIpBox; }
    QLabel* gatewayAddressLab() const { return m_gatewayAddress; }
    QLabel* gatewayDelayLab() const { return m_gatewayDelay; }
    QLabel* gatewayVerdictLab() const { return m_gatewayVerdict; }
    QLabel* serverAddressLab() const { return m_serverAddress; }
    QLabel* serverDelayLab() const { return m_serverDelay; }
    QLabel* serverVerdictLab() const { return m_serverVerdict; }
    QLineEdit* tcpAddressEdit() const { return m_tcpAddress; }
    QLineEdit* tcpPortEdit() const { return m_tcpPort; }
    QPushButton* tcpTestBtn() const { return m_tcpTestBtn; }
    QLabel* tcpResultLab() const { return m_tcpResult; }
    QLabel* tcpValueLab() const { return m_tcpValue; }
    // Refreshes the address list as the pointer entering the window does.
    void refreshAddresses() { enterEvent(nullptr); }

signals:
    void signalUpdateGatewayDelay(unsigned int delayMs);
    void signalUpdateServerDelay(bool ok, const char* address, unsigned int delayMs);
    void signalUpdateFailData();
    void signalUpdateNullData();
    void signalTcpResult(QString text, int value);
    void signalReportNetEventInfo(bool ok, const char* address, unsigned int delayMs);

public slots:
    void onUpdateGatewayDelay(unsigned int delayMs);
    void onUpdateServerDelay(bool ok, const char* address, unsigned int delayMs);
    void onReportNetEventInfo(bool ok, const char* address, unsigned int delayMs);
    void onTextChanged(const QString& text);
    void onTabwidgetCurrentChanged(int index);
    void onClientIPBoxActivated(QString text);
    void onStopNetTestFromBackstage();
    // Kept empty in this build (the server test runs with the gateway's).
    void onServerTestBtnClicked() {}
    void startNetTestFromWidget() {}
    void pingTargetIpInWidget() {}
    void doOncePing() {}
    void initNetTestFromBackstage() {}
    void onStartNetTestFromBackstage() {}
    void pingTargetIpFromBackstage() {}

protected:
    void enterEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void initUi();
    void initConnect();
    void showResults(bool show);
    void startSampling(const QString& localAddress);
    void onTcpTestClicked();

    QTabWidget* m_tabs = nullptr;
    QComboBox* m_clientIpBox = nullptr;
    QGroupBox* m_gatewayGroup = nullptr;
    QGroupBox* m_serverGroup = nullptr;
    QGroupBox* m_tcpGroup = nullptr;
    QLabel* m_gatewayAddress = nullptr;
    QLabel* m_gatewayDelay = nullptr;
    QLabel* m_gatewayVerdict = nullptr;
    QLabel* m_serverAddress = nullptr;
    QLabel* m_serverDelay = nullptr;
    QLabel* m_serverVerdict = nullptr;
    QLineEdit* m_tcpAddress = nullptr;
    QLineEdit* m_tcpPort = nullptr;
    QPushButton* m_tcpTestBtn = nullptr;
    QLabel* m_tcpResult = nullptr;
    QLabel* m_tcpValue = nullptr;
    QHash<QString, QString> m_gatewayByAddress;  // local address -> gateway
    PingService m_ping;
};

}  // namespace qorquicomponents
