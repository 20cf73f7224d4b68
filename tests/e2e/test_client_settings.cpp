// The settings windows driving real casts: the client on one test host casts
// a private X server's screen to a real receiver on the other. The debug
// window (opened by the settings window's hidden gesture) switches the cast
// video's transport and the H.264 dump; the next cast uses the transport (the
// receiver says which) and leaves a playable dump under the log folder. The
// camera and microphone switch borrows the panel's test tone as a source of a
// private PulseAudio.
#include <QtTest/QtTest>

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

#include <dirent.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/NetTest/NetTestWidget.h"
#include "ui/OrvixUpgrade.h"
#include "ui/SettingFeedback/BYOMSetting.h"
#include "ui/SettingFeedback/HideSetWindow.h"
#include "ui/SettingFeedback/SettingWidget.h"
#include "ui/widgets/SwitchButton.h"

using namespace std::chrono_literals;
using qorquicomponents::ConnectPage;
using qorquicomponents::HideSetWindow;
using qorquicomponents::NetTestWidget;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::SettingWidget;
using zvtest::ChildProcess;
using zvtest::jsonLine;

namespace {

zvtest::NetnsPair* g_net = nullptr;
std::string g_skipReason;
std::string g_root;
std::string g_home;

std::string findDump(const std::string& prefix) {
    const std::string folder = g_home + "/Zelvanor/Zelvanor/Logs/dump";
    std::string found;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            if (std::string(entry->d_name).rfind(prefix, 0) == 0) found = folder + "/" + entry->d_name;
        }
        closedir(dir);
    }
    return found;
}

}  // namespace

class TestClientSettings : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void debugWindowChoosesTheNextCastsTransportAndDump();
    void netTestShowsTheGatewayDelaysAndThePanelPort();
    void byomSwitchBorrowsThePanelsMicrophone();

private:
    // Casts over the open connection and stops again; the transport the
    // receiver reports, empty when the cast did not run.
    QString castOnce();

    std::unique_ptr<ChildProcess> m_receiver;
    std::unique_ptr<OrvixUpgrade> m_window;
};

void TestClientSettings::initTestCase() {
    if (!g_skipReason.empty()) QSKIP(g_skipReason.c_str());
    const std::string home = g_root + "/panel";
    std::system(("mkdir -p " + home).c_str());
    m_receiver = std::make_unique<ChildProcess>(
        zvtest::NetnsPair::in(g_net->a, {"env", "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config",
                                         zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                         "--name", "Room Settings", "--test-devices"}),
        ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    const QJsonObject ready = jsonLine(m_receiver->waitForLine(zvtest::statusEvent("ready"), 20s));
    const QString code = ready.value(QLatin1String("code")).toString();
    QVERIFY(!code.isEmpty());

    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));

    // One connection for both casts (a code is retired when its session ends).
    ConnectPage* connectPage = m_window->getConnectPage();
    m_window->findChild<QPushButton*>(QStringLiteral("connectTitleBtn"))->click();
    QLineEdit* edit = connectPage->getConnectCodeEdit();
    edit->setFocus();
    QTest::keyClicks(edit, code.toLower());
    connectPage->getStartConnectBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
}

QString TestClientSettings::castOnce() {
    m_window->getConnectPage()->findChild<QToolButton*>(QStringLiteral("mirrorScreenBtn"))->click();
    if (!QTest::qWaitFor([this] { return m_window->getCurrentStatus() == OrvixUpgrade::ScreeningStatus; }, 30000)) {
        return QString();
    }
    const QJsonObject started = jsonLine(m_receiver->waitForLine(zvtest::statusEvent("cast-started"), 10s));
    // A few pictures, so that a dump has something in it.
    const bool decoded = !m_receiver
                              ->waitForLine(
                                  [](const std::string& line) {
                                      const QJsonObject o = jsonLine(line);
                                      return o.value(QLatin1String("event")) == QLatin1String("cast-stats") &&
                                             o.value(QLatin1String("framesDecoded")).toDouble() >= 2;
                                  },
                                  20s)
                              .empty();
    m_window->getScreenPage()->stopButton()->click();
    if (!QTest::qWaitFor([this] { return m_window->getCurrentStatus() == OrvixUpgrade::ConnectedStatus; }, 20000) ||
        m_receiver->waitForLine(zvtest::statusEvent("cast-stopped"), 10s).empty() || !decoded) {
        return QString();
    }
    return started.value(QLatin1String("transport")).toString();
}

void TestClientSettings::debugWindowChoosesTheNextCastsTransportAndDump() {
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    QCOMPARE(config.getProType(), PROTOCOL_UDP);
    QCOMPARE(castOnce(), QStringLiteral("udp"));
    QVERIFY(findDump("h264_").empty());

    // Settings window from the title bar, then five quick presses on its title.
    m_window->findChild<QPushButton*>(QStringLiteral("settingBtn"))->click();
    SettingWidget* settings = m_window->getSettingWidget();
    QTRY_VERIFY(settings->isVisible());
    for (int i = 0; i < 5; ++i) QTest::mouseClick(settings->titleLab(), Qt::LeftButton);
    HideSetWindow* debug = HideSetWindow::getInstance();
    QTRY_VERIFY(debug->isVisible());
    QVERIFY(!settings->isVisible());

    debug->protocolGroup(HideSetWindow::CastVideo)->button(PROTOCOL_TCP)->click();
    qobject_cast<QCheckBox*>(debug->control(QStringLiteral("H264 flow")))->click();
    debug->hide();
    QCOMPARE(config.getProType(), PROTOCOL_TCP);

    QCOMPARE(castOnce(), QStringLiteral("tcp"));
    const std::string dump = findDump("h264_");
    QVERIFY2(!dump.empty(), "no H.264 dump under the log folder");
    // Playable: the file decodes to pictures.
    ChildProcess decode({"gst-launch-1.0", "-q", "filesrc", "location=" + dump, "!", "h264parse", "!", "avdec_h264",
                         "!", "fakesink"},
                        ChildProcess::Output::Capture);
    QVERIFY(decode.waitFinished(30s));
    QCOMPARE(decode.exitCode(), 0);

    // And back: the choice holds for the casts after it.
    debug->show();
    QCOMPARE(debug->checkedProtocol(HideSetWindow::CastVideo), static_cast<int>(PROTOCOL_TCP));
    debug->protocolGroup(HideSetWindow::CastVideo)->button(PROTOCOL_UDP)->click();
    debug->hide();
    QCOMPARE(castOnce(), QStringLiteral("udp"));
}

// The client's host routes everything through the panel's host, which then
// is its gateway; the passcode server setting names the panel's host too.
void TestClientSettings::netTestShowsTheGatewayDelaysAndThePanelPort() {
    QCOMPARE(std::system(("ip route replace default via " + g_net->addressA).c_str()), 0);
    const QString panel = QString::fromStdString(g_net->addressA);
    Singleton<CClientConfig>::getInstance().updateServerIP(g_net->addressA);

    m_window->findChild<QPushButton*>(QStringLiteral("settingBtn"))->click();
    m_window->getSettingWidget()->netTestBtn()->click();
    NetTestWidget* test = m_window->getNetTestWidget();
    QVERIFY(test != nullptr);
    QTRY_VERIFY(test->isVisible());
    QVERIFY(test->clientIpBox()->currentText().startsWith(QString::fromStdString(g_net->addressB) + "("));
    QCOMPARE(test->gatewayAddressLab()->text(), panel);
    QTRY_VERIFY_WITH_TIMEOUT(test->gatewayVerdictLab()->text().startsWith(QStringLiteral("Success.")), 10000);
    QVERIFY(test->gatewayDelayLab()->text().endsWith(QStringLiteral("ms")));
    QTRY_COMPARE_WITH_TIMEOUT(test->serverAddressLab()->text(), panel, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(test->serverVerdictLab()->text().startsWith(QStringLiteral("Success.")), 10000);

    // The receiver's port is reachable; a port nobody listens on is not.
    test->tcpAddressEdit()->setText(panel);
    test->tcpPortEdit()->setText(QStringLiteral("47800"));
    test->tcpTestBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(test->tcpResultLab()->text(), QStringLiteral("Success.The screen port is reachable"),
                              10000);
    QCOMPARE(test->tcpValueLab()->text(), QStringLiteral("0"));
    test->tcpPortEdit()->setText(QStringLiteral("47999"));
    test->tcpTestBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(test->tcpResultLab()->text(),
                              QStringLiteral("Error.The screen port cannot be reached"), 10000);
    QCOMPARE(test->tcpValueLab()->text(), QString::number(ECONNREFUSED));
    test->hide();

    // The same from the command line.
    for (const char* port : {"47800", "47999"}) {
        ChildProcess cli({zvtest::builtProgram("zelvanor-cli"), "nettest", "--samples", "1", "--address",
                          g_net->addressA, "--port", port},
                         ChildProcess::Output::Capture);
        const QJsonObject address = jsonLine(cli.waitForLine(zvtest::statusEvent("address"), 10s));
        QCOMPARE(address.value(QLatin1String("gateway")).toString(), panel);
        const QJsonObject gateway =
            jsonLine(cli.waitForLine(zvtest::statusEvent("delay", "target", QStringLiteral("gateway")), 10s));
        QCOMPARE(gateway.value(QLatin1String("verdict")).toString().left(8), QStringLiteral("Success."));
        const QJsonObject tcp = jsonLine(cli.waitForLine(zvtest::statusEvent("tcp"), 10s));
        QCOMPARE(tcp.value(QLatin1String("reachable")).toBool(), std::string(port) == "47800");
        QVERIFY(cli.waitFinished(10s));
        QCOMPARE(cli.exitCode(), 0);
    }
}

void TestClientSettings::byomSwitchBorrowsThePanelsMicrophone() {
    if (geteuid() != 0) QSKIP("needs root (a private PulseAudio)");
    const std::string folder = g_root + "/sound";
    std::system(("mkdir -p " + folder).c_str());
    const std::string server = "unix:" + folder + "/pulse/native";
    setenv("PULSE_SERVER", server.c_str(), 1);
    ChildProcess pulse({"env", "HOME=" + folder, "XDG_RUNTIME_DIR=" + folder, "pulseaudio", "-n", "--daemonize=no",
                        "--exit-idle-time=-1", "--use-pid-file=no", "-L", "module-native-protocol-unix", "-L",
                        "module-null-sink sink_name=vsink", "-L", "module-always-sink"},
                       ChildProcess::Output::Capture);
    auto hasSource = [] {
        ChildProcess list({"pactl", "list", "short", "sources"}, ChildProcess::Output::Capture);
        return !list.waitForLineContaining("zelvanor_mic.monitor", 10s).empty();
    };
    QVERIFY(zvtest::waitFor(
        [] {
            ChildProcess info({"pactl", "info"}, ChildProcess::Output::Capture);
            return info.waitFinished(5s) && info.exitCode() == 0;
        },
        15s));

    qorquicomponents::BYOMSetting* setting = m_window->getBYOMSetting();
    setting->setBYOMStatus(qorquicomponents::BYOMClose);
    setting->switchBtn()->click();
    QVERIFY(!setting->switchBtn()->isEnabled());  // until the library answers
    QTRY_VERIFY_WITH_TIMEOUT(setting->switchBtn()->isEnabled(), 30000);
    QVERIFY(setting->switchState());
    QCOMPARE(setting->switchBtn()->property("status").toString(), QStringLiteral("open"));
    QVERIFY(!m_receiver->waitForLine(zvtest::statusEvent("devices-started", "testTone", true), 5s).empty());
    QVERIFY(hasSource());
    QVERIFY(zvtest::waitFor([] { return CManageAll::getInstance()->deviceShareReceiving(); }, 15s));

    setting->switchBtn()->click();
    QTRY_VERIFY_WITH_TIMEOUT(setting->switchBtn()->isEnabled(), 20000);
    QVERIFY(!setting->switchState());
    QVERIFY(!m_receiver->waitForLine(zvtest::statusEvent("devices-stopped"), 10s).empty());
    QVERIFY(!hasSource());
    unsetenv("PULSE_SERVER");
}

int main(int argc, char* argv[]) {
    char folder[] = "/tmp/zv-client-settings-XXXXXX";
    if (mkdtemp(folder) != nullptr) g_root = folder;
    g_home = g_root + "/pc";
    std::system(("mkdir -p " + g_home).c_str());
    setenv("HOME", g_home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (g_home + "/.config").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + g_root + "/no-sound").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + g_root + "/no-bus").c_str(), 1);

    std::unique_ptr<zvtest::XvfbSession> x;
    std::unique_ptr<zvtest::NetnsPair> net;
    if (geteuid() != 0) {
        g_skipReason = "needs root (network namespaces for the test hosts)";
    } else {
        x = std::make_unique<zvtest::XvfbSession>("1280x720x24");
        if (!x->ready()) {
            g_skipReason = "Xvfb did not start";
        } else {
            zvtest::paintBlocks(x->connection());
            net = std::make_unique<zvtest::NetnsPair>();
            if (!net->ready()) {
                g_skipReason = "no test hosts: " + net->error();
            } else if (!zvtest::NetnsPair::enter(net->b)) {
                g_skipReason = "cannot enter the client's test host";
            }
            g_net = net.get();
        }
    }
    setenv("QT_QPA_PLATFORM", "offscreen", 1);

    int result = 0;
    {
        QApplication app(argc, argv);
        TestClientSettings test;
        result = QTest::qExec(&test, argc, argv);
    }
    net.reset();
    x.reset();
    if (!g_root.empty()) std::system(("rm -rf " + g_root).c_str());
    return result;
}

#include "test_client_settings.moc"
