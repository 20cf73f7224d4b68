// The desktop client against a real receiver. The receiver runs on one test
// host on its default port (a connect code carries only the panel's
// address); this test process enters the other test host before it makes
// its QApplication, then drives the real main window: it types the code into
// the connect page, presses "Start Connect", and watches both sides.
//
// With ZV_SCREENSHOT_DIR set and an X display (QT_QPA_PLATFORM=xcb), it also
// saves the connect page idle and connected as PNG files there.
#include <QtTest/QtTest>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "NetnsPair.h"
#include "StatusLines.h"
#include "Process.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/OrvixUpgrade.h"
#include "ui/TipWindows.h"

using namespace std::chrono_literals;
using qorquicomponents::ConnectPage;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::TipWindows;
using zvtest::ChildProcess;

namespace {

zvtest::NetnsPair* g_net = nullptr;
std::string g_skipReason;
std::string g_root;

using zvtest::jsonLine;
std::function<bool(const std::string&)> receiverEvent(const char* name) { return zvtest::statusEvent(name); }

void screenshot(QWidget* window, const char* name) {
    const char* folder = std::getenv("ZV_SCREENSHOT_DIR");
    if (folder == nullptr || QGuiApplication::platformName() != QLatin1String("xcb")) return;
    // The pointer rests on the bottom bar, so no entry shows its hover look.
    QTest::mouseMove(window, QPoint(window->width() / 2, window->height() - 8));
    QTest::qWait(300);  // the last paint reaches the X server
    const std::string xwd = g_root + "/" + name + ".xwd";
    const std::string png = std::string(folder) + "/" + name + ".png";
    const std::string command = "xwd -silent -id " + std::to_string(window->winId()) + " -out " + xwd +
                                " && ffmpeg -loglevel error -y -i " + xwd + " " + png;
    if (std::system(command.c_str()) != 0) qWarning("screenshot %s failed", name);
}

}  // namespace

class TestClientConnect : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void typedCodeConnectsAndDisconnectReturnsBothSidesToIdle();
    void removedByThePanelTheClientReturnsToIdleWithATip();
    void aWrongCodeShowsThePasscodeTip();

private:
    void startReceiver();
    std::string nextCode();
    bool typeCodeAndStart(const QString& code);

    std::unique_ptr<ChildProcess> m_receiver;
    std::unique_ptr<OrvixUpgrade> m_window;
    std::string m_code;
};

void TestClientConnect::initTestCase() {
    if (!g_skipReason.empty()) QSKIP(g_skipReason.c_str());
    startReceiver();
    QVERIFY(!m_code.empty());
    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void TestClientConnect::cleanup() {
    if (m_window) TipWindows::getInstance()->hide();
}

void TestClientConnect::startReceiver() {
    const std::string home = g_root + "/panel";
    std::system(("mkdir -p " + home).c_str());
    m_receiver = std::make_unique<ChildProcess>(
        zvtest::NetnsPair::in(g_net->a, {"env", "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config",
                                         zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                         "--name", "Room E2E"}),
        ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    const QJsonObject ready = jsonLine(m_receiver->waitForLine(receiverEvent("ready"), 20s));
    QCOMPARE(ready.value(QLatin1String("port")).toInt(), 47800);
    QCOMPARE(ready.value(QLatin1String("address")).toString().toStdString(), g_net->addressA);
    m_code = ready.value(QLatin1String("code")).toString().toStdString();
}

// A finished session retires the panel's code, once it has been up 20 s; the
// receiver announces the next.
std::string TestClientConnect::nextCode() {
    return jsonLine(m_receiver->waitForLine(receiverEvent("code"), 35s)).value(QLatin1String("code")).toString().toStdString();
}

bool TestClientConnect::typeCodeAndStart(const QString& code) {
    ConnectPage* page = m_window->getConnectPage();
    QLineEdit* edit = page->getConnectCodeEdit();
    QTest::mouseClick(edit, Qt::LeftButton);
    if (!QTest::qWaitFor([edit] { return edit->hasFocus(); }, 5000)) return false;
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Backspace);
    // Typed in lower case: the entry shows capitals.
    QTest::keyClicks(edit, code.toLower());
    if (edit->text() != code.toUpper()) return false;
    QTest::mouseClick(page->getStartConnectBtn(), Qt::LeftButton);
    return true;
}

void TestClientConnect::typedCodeConnectsAndDisconnectReturnsBothSidesToIdle() {
    ConnectPage* page = m_window->getConnectPage();
    QCOMPARE(page->getConnectCode(), ConnectPage::placeholderText());
    screenshot(m_window.get(), "connect-idle");

    QVERIFY(typeCodeAndStart(QString::fromStdString(m_code)));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    QTRY_VERIFY(!m_window->isLoadingShown());
    auto* name = page->findChild<QLabel*>(QStringLiteral("screenNameLab"));
    auto* badge = page->findChild<QLabel*>(QStringLiteral("connectedLab"));
    QCOMPARE(name->text(), QStringLiteral("Room E2E"));
    QVERIFY(name->isVisible());
    QVERIFY(badge->isVisible());
    QVERIFY(badge->x() > name->geometry().center().x());
    const QJsonObject joined = jsonLine(m_receiver->waitForLine(receiverEvent("client-joined"), 10s));
    QVERIFY2(!joined.isEmpty(), "the receiver did not list the client");
    QCOMPARE(joined.value(QLatin1String("address")).toString().toStdString(), g_net->addressB);
    screenshot(m_window.get(), "connect-connected");

    QTest::mouseClick(page->findChild<QPushButton*>(QStringLiteral("disconnectBtn")), Qt::LeftButton);
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(page->getConnectCodeEdit()->isVisible());
    QVERIFY(!badge->isVisible());
    const QJsonObject left = jsonLine(m_receiver->waitForLine(receiverEvent("client-left"), 10s));
    QVERIFY2(!left.isEmpty(), "the receiver still lists the client");
    QCOMPARE(left.value(QLatin1String("client")), joined.value(QLatin1String("client")));
    m_code = nextCode();
    QVERIFY(!m_code.empty());
}

void TestClientConnect::removedByThePanelTheClientReturnsToIdleWithATip() {
    QVERIFY(typeCodeAndStart(QString::fromStdString(m_code)));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    const QJsonObject joined = jsonLine(m_receiver->waitForLine(receiverEvent("client-joined"), 10s));
    QVERIFY(!joined.isEmpty());

    m_receiver->writeLine("{\"cmd\":\"remove\",\"client\":" +
                          std::to_string(joined.value(QLatin1String("client")).toInt()) + "}");
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("You have been removed from the screen"));
    QVERIFY(m_window->getConnectPage()->getConnectCodeEdit()->isVisible());
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-left"), 10s).empty());
    m_code = nextCode();
    QVERIFY(!m_code.empty());
}

void TestClientConnect::aWrongCodeShowsThePasscodeTip() {
    // The panel's address with another secret.
    std::string wrong = m_code;
    wrong.back() = wrong.back() == '7' ? '8' : '7';
    QVERIFY(typeCodeAndStart(QString::fromStdString(wrong)));
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeConnectingStatus));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("Passcode input error"));
    QVERIFY(!m_window->isLoadingShown());
    QVERIFY(!m_receiver->waitForLine(receiverEvent("refused"), 10s).empty());
}

int main(int argc, char* argv[]) {
    char folder[] = "/tmp/zv-client-e2e-XXXXXX";
    if (mkdtemp(folder) != nullptr) g_root = folder;
    const std::string home = g_root + "/pc";
    std::system(("mkdir -p " + home).c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);

    std::unique_ptr<zvtest::NetnsPair> net;
    if (geteuid() != 0) {
        g_skipReason = "needs root (network namespaces for the test hosts)";
    } else {
        net = std::make_unique<zvtest::NetnsPair>();
        if (!net->ready()) {
            g_skipReason = "no test hosts: " + net->error();
        } else if (!zvtest::NetnsPair::enter(net->b)) {
            g_skipReason = "cannot enter the client's test host";
        }
        g_net = net.get();
    }

    int result = 0;
    {
        QApplication app(argc, argv);
        TestClientConnect test;
        result = QTest::qExec(&test, argc, argv);
    }
    net.reset();
    if (!g_root.empty()) std::system(("rm -rf " + g_root).c_str());
    return result;
}

#include "test_client_connect.moc"
