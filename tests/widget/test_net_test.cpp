// The network test window's display rules and helpers, and the ping service
// and TCP test over loopback.
#include <QtTest/QtTest>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTcpServer>
#include <QTemporaryFile>

#include "casting/PingService.h"
#include "ui/NetTest/NetTestWidget.h"

using namespace qorquicomponents;

class TestNetTest : public QObject {
    Q_OBJECT

private slots:
    void delayVerdicts() {
        NetTestWidget window;
        window.onUpdateGatewayDelay(0);
        QCOMPARE(window.gatewayDelayLab()->text(), QStringLiteral("1ms"));
        QCOMPARE(window.gatewayVerdictLab()->text(), QStringLiteral("Success."));
        window.onUpdateGatewayDelay(99);
        QCOMPARE(window.gatewayVerdictLab()->text(), QStringLiteral("Success."));
        window.onUpdateGatewayDelay(100);
        QCOMPARE(window.gatewayDelayLab()->text(), QStringLiteral("100ms"));
        QCOMPARE(window.gatewayVerdictLab()->text(), QStringLiteral("Success.There is a large delay"));

        window.onUpdateServerDelay(true, "10.0.0.9", 12);
        QCOMPARE(window.serverAddressLab()->text(), QStringLiteral("10.0.0.9"));
        QCOMPARE(window.serverDelayLab()->text(), QStringLiteral("12ms"));
        QCOMPARE(window.serverVerdictLab()->text(), QStringLiteral("Success."));
        window.onUpdateServerDelay(false, "10.0.0.9", 12);
        QCOMPARE(window.serverDelayLab()->text(), QStringLiteral("999ms"));
        QCOMPARE(window.serverVerdictLab()->text(), QStringLiteral("Error.Ip pinged failed."));

        // Callbacks reach the window queued, and refuse a null user.
        QCOMPARE(parseServerIpFailCallback(false, "nowhere", 0, nullptr), -1L);
        QCOMPARE(nullServerDataCallback(false, "", 0, nullptr), -1L);
        QCOMPARE(pingGatewayCallback(true, "10.0.0.1", 5, nullptr), -1L);
        QCOMPARE(pingServerIpCallback(true, "10.0.0.1", 5, nullptr), -1L);
        QCOMPARE(pingIpFromBackStageCallback(true, "10.0.0.1", 5, nullptr), -1L);
        QCOMPARE(parseServerIpFailCallback(false, "nowhere", 0, &window), 0L);
        QTRY_COMPARE(window.serverVerdictLab()->text(), QStringLiteral("Error.Ip Parsing exception."));
        QCOMPARE(window.serverAddressLab()->text(), QStringLiteral("---"));
        QCOMPARE(window.serverDelayLab()->text(), QStringLiteral("999ms"));
        nullServerDataCallback(false, "", 0, &window);
        QTRY_COMPARE(window.serverVerdictLab()->text(), QStringLiteral("No server address is set."));
        pingGatewayCallback(false, "10.0.0.1", 0, &window);
        QTRY_COMPARE(window.gatewayVerdictLab()->text(), QStringLiteral("Error.Ip pinged failed."));
    }

    void gatewaysFromTheRouteTable() {
        QTemporaryFile routes;
        QVERIFY(routes.open());
        routes.write("Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
                     "eth0\t00000000\t0101A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
                     "eth0\t0001A8C0\t00000000\t0001\t0\t0\t100\t00FFFFFF\t0\t0\t0\n"
                     "wlan0\t00000000\t01E7E70A\t0003\t0\t0\t600\t00000000\t0\t0\t0\n"
                     "wlan0\t00000000\t02E7E70A\t0003\t0\t0\t700\t00000000\t0\t0\t0\n");
        routes.flush();
        const QHash<QString, QString> gateways = NetTestWidget::readGateways(routes.fileName());
        QCOMPARE(gateways.size(), 2);
        QCOMPARE(gateways.value(QStringLiteral("eth0")), QStringLiteral("192.168.1.1"));
        QCOMPARE(gateways.value(QStringLiteral("wlan0")), QStringLiteral("10.231.231.1"));  // the first route
        QVERIFY(NetTestWidget::readGateways(QStringLiteral("/nonexistent")).isEmpty());
    }

    void loopbackSamplesAndPorts() {
        // A listening port answers; a closed one answers with a refusal: both
        // are delay samples. A name that does not resolve gives none.
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        PingService::Method method = PingService::Method::NotMeasured;
        const int delay = PingService::measureDelayMs("127.0.0.1", server.serverPort(), 1000, &method);
        QVERIFY(delay >= 0 && delay < 1000);
        QVERIFY(method != PingService::Method::NotMeasured);
        QVERIFY(PingService::resolve("no-such-host.invalid").empty());
        QCOMPARE(PingService::resolve("127.0.0.1"), std::string("127.0.0.1"));

        int error = -1;
        QCOMPARE(NetTestWidget::connectTCP(QStringLiteral("127.0.0.1"), server.serverPort(), error), 1);
        QCOMPARE(error, 0);
        const quint16 closed = server.serverPort();
        server.close();
        QCOMPARE(NetTestWidget::connectTCP(QStringLiteral("127.0.0.1"), closed, error), 0);
        QCOMPARE(error, ECONNREFUSED);
        QCOMPARE(NetTestWidget::connectTCP(QStringLiteral("not an address"), closed, error), 0);

        // The window's button runs the test off the GUI thread.
        QTcpServer again;
        QVERIFY(again.listen(QHostAddress::LocalHost));
        NetTestWidget window;
        window.tcpAddressEdit()->setText(QStringLiteral("127.0.0.1"));
        window.tcpPortEdit()->setText(QString::number(again.serverPort()));
        window.tcpTestBtn()->click();
        QTRY_COMPARE(window.tcpResultLab()->text(), QStringLiteral("Success.The screen port is reachable"));
        QCOMPARE(window.tcpValueLab()->text(), QStringLiteral("0"));
        QVERIFY(window.tcpTestBtn()->isEnabled());
    }
};

QTEST_MAIN(TestNetTest)
#include "test_net_test.moc"
