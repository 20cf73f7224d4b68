// The desktop client casting its screen to a real receiver. The receiver runs
// on one test host on its default port (a connect code carries only the
// panel's address); this process starts a private X server with known colour
// blocks on its screen, enters the other test host and drives the real main
// window there: its widgets stay offscreen, while the casting library
// captures the X server named by DISPLAY.
#include <QtTest/QtTest>

#include <QColor>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

#include <X11/Xlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include "StatusLines.h"
#include "NetnsPair.h"
#include "ColourBlocks.h"
#include "Process.h"
#include "XvfbSession.h"
#include "casting/CClientConfig.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/DynamicWindow.h"
#include "ui/OrvixUpgrade.h"
#include "ui/ReverseScreen.h"
#include "ui/TipWindows.h"
#include "ui/widgets/SwitchButton.h"

using namespace std::chrono_literals;
using qorquicomponents::ConnectPage;
using qorquicomponents::DynamicWindow;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::ScreenPage;
using qorquicomponents::TipWindows;
using zvtest::ChildProcess;
using zvtest::jsonLine;
inline std::function<bool(const std::string&)> receiverEvent(const char* name, const char* field = nullptr,
                                                             const QJsonValue& value = QJsonValue()) {
    return zvtest::statusEvent(name, field, value);
}

namespace {

zvtest::NetnsPair* g_net = nullptr;
zvtest::XvfbSession* g_x = nullptr;
std::string g_skipReason;
std::string g_root;

constexpr int kScreenWidth = 1280;
constexpr int kScreenHeight = 720;
using zvtest::kBlocks;
using zvtest::paintBlocks;
constexpr auto near = zvtest::nearColour;

QPoint pointerOnTestScreen() {
    Display* display = g_x->connection();
    Window root = 0, child = 0;
    int rootX = -1, rootY = -1, x = 0, y = 0;
    unsigned int mask = 0;
    XQueryPointer(display, DefaultRootWindow(display), &root, &child, &rootX, &rootY, &x, &y, &mask);
    return QPoint(rootX, rootY);
}

}  // namespace

class TestClientCast : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void castFromIdleIsSteeredAndEndsTheConnection();
    void castWhileConnectedKeepsTheConnection();
    void removedDuringACastTheCastStopsWithATip();
    void aCutLinkReconnectsOrGivesUp();

private:
    void startReceiver();
    std::string nextCode();
    bool typeAndPress(QLineEdit* edit, QPushButton* start, const QString& code);
    // Casts from idle through the screen page and waits until the picture
    // arrives; the receiver's client id, or -1.
    qint64 castFromIdle();
    bool decodedAtLeast(qint64 count, std::chrono::milliseconds timeout);
    QImage snapshot();
    void closeNotice();

    std::unique_ptr<ChildProcess> m_receiver;
    std::unique_ptr<OrvixUpgrade> m_window;
    std::string m_code;
    int m_snapshots = 0;
};

void TestClientCast::initTestCase() {
    if (!g_skipReason.empty()) QSKIP(g_skipReason.c_str());
    startReceiver();
    QVERIFY(!m_code.empty());
    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void TestClientCast::cleanup() {
    if (!m_window) return;
    TipWindows::getInstance()->hide();
    closeNotice();
}

void TestClientCast::closeNotice() {
    if (DynamicWindow* notice = m_window->getDynamicWindow()) notice->close();
}

void TestClientCast::startReceiver() {
    const std::string home = g_root + "/panel";
    std::system(("mkdir -p " + home).c_str());
    m_receiver = std::make_unique<ChildProcess>(
        zvtest::NetnsPair::in(g_net->a, {"env", "HOME=" + home, "XDG_CONFIG_HOME=" + home + "/.config",
                                         zvtest::builtProgram("zelvanor-receiver"), "--headless", "--no-discovery",
                                         "--name", "Room Cast"}),
        ChildProcess::Output::Capture, ChildProcess::Input::Pipe);
    const QJsonObject ready = jsonLine(m_receiver->waitForLine(receiverEvent("ready"), 20s));
    QCOMPARE(ready.value(QLatin1String("port")).toInt(), 47800);
    m_code = ready.value(QLatin1String("code")).toString().toStdString();
}

// A finished session retires the panel's code, once it has been up 20 s; the
// receiver announces the next.
std::string TestClientCast::nextCode() {
    return jsonLine(m_receiver->waitForLine(receiverEvent("code"), 35s))
        .value(QLatin1String("code"))
        .toString()
        .toStdString();
}

bool TestClientCast::typeAndPress(QLineEdit* edit, QPushButton* start, const QString& code) {
    edit->setFocus();
    if (!QTest::qWaitFor([edit] { return edit->hasFocus(); }, 5000)) return false;
    edit->selectAll();
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClicks(edit, code.toLower());
    if (edit->text() != code.toUpper() || !start->isEnabled()) return false;
    start->click();
    return true;
}

bool TestClientCast::decodedAtLeast(qint64 count, std::chrono::milliseconds timeout) {
    return !m_receiver
                ->waitForLine(
                    [count](const std::string& line) {
                        const QJsonObject o = jsonLine(line);
                        return o.value(QLatin1String("event")) == QLatin1String("cast-stats") &&
                               static_cast<qint64>(o.value(QLatin1String("framesDecoded")).toDouble()) >= count;
                    },
                    timeout)
                .empty();
}

QImage TestClientCast::snapshot() {
    const std::string path = g_root + "/snap-" + std::to_string(++m_snapshots) + ".png";
    m_receiver->writeLine("{\"cmd\":\"snapshot\",\"path\":\"" + path + "\"}");
    const QJsonObject answer = jsonLine(m_receiver->waitForLine(receiverEvent("snapshot"), 5s));
    return answer.value(QLatin1String("saved")).toBool() ? QImage(QString::fromStdString(path)) : QImage();
}

qint64 TestClientCast::castFromIdle() {
    if (m_window->getCurrentStatus() != OrvixUpgrade::NormalStatus) return -1;
    m_window->findChild<QPushButton*>(QStringLiteral("screenTitleBtn"))->click();
    ScreenPage* page = m_window->getScreenPage();
    if (!typeAndPress(page->getScreenCodeEdit(), page->getStartScreenBtn(), QString::fromStdString(m_code))) return -1;
    if (!QTest::qWaitFor([this] { return m_window->getCurrentStatus() == OrvixUpgrade::ScreeningStatus; }, 30000)) {
        return -1;
    }
    const QJsonObject started = jsonLine(m_receiver->waitForLine(receiverEvent("cast-started"), 10s));
    if (started.isEmpty() || !decodedAtLeast(1, 20s)) return -1;
    return static_cast<qint64>(started.value(QLatin1String("client")).toDouble());
}

void TestClientCast::castFromIdleIsSteeredAndEndsTheConnection() {
    ScreenPage* page = m_window->getScreenPage();
    QVERIFY(!page->isScreeningShown());
    const qint64 client = castFromIdle();
    QVERIFY2(client > 0, "the cast did not start");

    // The main window makes room for what is cast; the page shows the cast.
    QTRY_VERIFY(m_window->windowState() & Qt::WindowMinimized);
    QVERIFY(page->isScreeningShown());
    QVERIFY(page->isAnimationRunning());
    QVERIFY(!m_window->isLoadingShown());

    // The panel shows this screen.
    const QImage picture = snapshot();
    QVERIFY(!picture.isNull());
    for (int i = 0; i < 4; ++i) {
        const QPoint centre((i % 2) * picture.width() / 2 + picture.width() / 4,
                            (i / 2) * picture.height() / 2 + picture.height() / 4);
        QVERIFY2(near(picture.pixelColor(centre), kBlocks[i]),
                 qPrintable(QStringLiteral("block %1 arrived as %2").arg(i).arg(picture.pixelColor(centre).name())));
    }

    // Pause and continue.
    page->pauseButton()->click();
    QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-paused", "paused", true), 10s).empty());
    QVERIFY(!page->isAnimationRunning());
    page->pauseButton()->click();
    QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-paused", "paused", false), 10s).empty());
    QVERIFY(page->isAnimationRunning());

    // Sound off and on again: the panel confirms, the choice is kept.
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    // The panel's answers, as the window receives them on its own thread.
    QList<bool> voice;
    QObject receiver;
    connect(m_window.get(), &OrvixUpgrade::signalVoiceScreenRequestResult, &receiver,
            [&voice](bool on) { voice << on; }, Qt::QueuedConnection);
    QVERIFY(page->voiceButton()->isChecked());
    page->voiceButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(voice.count() == 1, 10000);
    QCOMPARE(voice.last(), false);
    QCOMPARE(config.getScreenIsMute(), 0);
    QTRY_VERIFY(!page->voiceButton()->isChecked());
    page->voiceButton()->click();
    QTRY_VERIFY_WITH_TIMEOUT(voice.count() == 2, 10000);
    QCOMPARE(voice.last(), true);
    QCOMPARE(config.getScreenIsMute(), 1);

    // Reverse control: granted by the panel, whose touches then move this
    // screen's pointer.
    page->reverseButton()->click();
    QVERIFY(!m_receiver->waitForLine(receiverEvent("control", "granted", true), 10s).empty());
    QCOMPARE(config.getScreenReverse(), 1);
    m_receiver->writeLine("{\"cmd\":\"touch\",\"type\":\"touchMove\",\"x\":16384,\"y\":32768}");
    QTRY_COMPARE_WITH_TIMEOUT(pointerOnTestScreen(), QPoint(kScreenWidth / 4, kScreenHeight / 2), 10000);
    page->reverseButton()->click();
    QVERIFY(!m_receiver->waitForLine(receiverEvent("control", "granted", false), 10s).empty());
    QCOMPARE(config.getScreenReverse(), 0);

    // Stop: the window comes back, the page returns to the code entry, and
    // because the cast began without a connection, the connection ends too.
    page->stopButton()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    QVERIFY(!page->isScreeningShown());
    QVERIFY(page->getScreenCodeEdit()->isVisible());
    QVERIFY(!m_window->isLoadingShown());
    QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-stopped"), 10s).empty());
    const QJsonObject left = jsonLine(m_receiver->waitForLine(receiverEvent("client-left"), 10s));
    QCOMPARE(static_cast<qint64>(left.value(QLatin1String("client")).toDouble()), client);
    m_code = nextCode();
    QVERIFY(!m_code.empty());
}

void TestClientCast::castWhileConnectedKeepsTheConnection() {
    ConnectPage* connectPage = m_window->getConnectPage();
    m_window->findChild<QPushButton*>(QStringLiteral("connectTitleBtn"))->click();
    QVERIFY(typeAndPress(connectPage->getConnectCodeEdit(), connectPage->getStartConnectBtn(),
                         QString::fromStdString(m_code)));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-joined"), 10s).empty());

    // The connect page's "Mirror Screen" entry casts over the connection.
    connectPage->findChild<QToolButton*>(QStringLiteral("mirrorScreenBtn"))->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus),
                              30000);
    QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-started"), 10s).empty());
    QVERIFY(decodedAtLeast(1, 20s));
    QTRY_VERIFY(m_window->windowState() & Qt::WindowMinimized);

    m_window->getScreenPage()->stopButton()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              20000);
    QTRY_VERIFY(!m_window->isLoadingShown());
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-stopped"), 10s).empty());
    QVERIFY2(m_receiver->waitForLine(receiverEvent("client-left"), 3s).empty(), "the connection ended with the cast");

    // Ending the connection is the user's own step.
    connectPage->findChild<QPushButton*>(QStringLiteral("disconnectBtn"))->click();
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-left"), 10s).empty());
    m_code = nextCode();
    QVERIFY(!m_code.empty());
}

void TestClientCast::removedDuringACastTheCastStopsWithATip() {
    const qint64 client = castFromIdle();
    QVERIFY2(client > 0, "the cast did not start");
    // A few seconds of casting first, as a person would see it.
    for (int second = 0; second < 3; ++second) {
        QVERIFY(!m_receiver->waitForLine(receiverEvent("cast-stats"), 10s).empty());
    }
    m_receiver->writeLine("{\"cmd\":\"remove\",\"client\":" + std::to_string(client) + "}");
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("You have been removed from the screen"));
    QVERIFY(!m_window->getScreenPage()->isScreeningShown());
    QVERIFY(!(m_window->windowState() & Qt::WindowMinimized));
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-left"), 10s).empty());
    m_code = nextCode();
    QVERIFY(!m_code.empty());
}

void TestClientCast::aCutLinkReconnectsOrGivesUp() {
    QList<unsigned int> events;
    QObject receiver;
    connect(m_window.get(), &OrvixUpgrade::signalCallbackException, &receiver,
            [&events](unsigned int type) { events << type; }, Qt::QueuedConnection);
    auto noticeText = [this] {
        DynamicWindow* notice = m_window->getDynamicWindow();
        return notice != nullptr && notice->isVisible() ? notice->messageText() : QString();
    };

    // A short cut: the watchdog reconnects and the cast goes on.
    QVERIFY2(castFromIdle() > 0, "the cast did not start");
    QVERIFY(g_net->setLinkUp(false));
    QTRY_COMPARE_WITH_TIMEOUT(noticeText(), QStringLiteral("Reconnecting"), 20000);
    QCOMPARE(m_window->getDynamicWindow()->iconName(), QStringLiteral("warning"));
    QVERIFY(m_window->getReverseScreenWindow()->isReconnecting());
    QVERIFY(g_net->setLinkUp(true));
    QTRY_VERIFY_WITH_TIMEOUT(events.contains(static_cast<unsigned int>(NOTIFY_RECONNECTED)), 20000);
    QVERIFY(!m_window->getReverseScreenWindow()->isReconnecting());
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus));
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-resumed"), 10s).empty());
    closeNotice();
    m_window->getScreenPage()->stopButton()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QVERIFY(!m_receiver->waitForLine(receiverEvent("client-left"), 20s).empty());
    m_code = nextCode();
    QVERIFY(!m_code.empty());

    // A cut that lasts: the watchdog gives up after its 30 s, the cast stops
    // and the connection ends.
    QVERIFY2(castFromIdle() > 0, "the second cast did not start");
    QVERIFY(g_net->setLinkUp(false));
    QTRY_COMPARE_WITH_TIMEOUT(noticeText(), QStringLiteral("Reconnecting"), 20000);
    QTRY_COMPARE_WITH_TIMEOUT(noticeText(), QStringLiteral("Reconnecting failed"), 60000);
    QCOMPARE(m_window->getDynamicWindow()->iconName(), QStringLiteral("error"));
    QCOMPARE(m_window->getDynamicWindow()->titleText(), QStringLiteral("Connection exception with server"));
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 20000);
    QVERIFY(!m_window->getScreenPage()->isScreeningShown());
    QVERIFY(g_net->setLinkUp(true));
}

int main(int argc, char* argv[]) {
    char folder[] = "/tmp/zv-client-cast-XXXXXX";
    if (mkdtemp(folder) != nullptr) g_root = folder;
    const std::string home = g_root + "/pc";
    std::system(("mkdir -p " + home).c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    // No sound server and no system bus: the cast runs without sound and the
    // PC's own sound settings stay untouched.
    setenv("PULSE_SERVER", ("unix:" + g_root + "/no-sound").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + g_root + "/no-bus").c_str(), 1);

    std::unique_ptr<zvtest::XvfbSession> x;
    std::unique_ptr<zvtest::NetnsPair> net;
    if (geteuid() != 0) {
        g_skipReason = "needs root (network namespaces for the test hosts)";
    } else {
        // The X server starts before this process leaves the host's network
        // namespace; its socket file stays reachable from the test host.
        x = std::make_unique<zvtest::XvfbSession>(std::to_string(kScreenWidth) + "x" +
                                                  std::to_string(kScreenHeight) + "x24");
        if (!x->ready()) {
            g_skipReason = "Xvfb did not start";
        } else {
            paintBlocks(x->connection());
            g_x = x.get();
            net = std::make_unique<zvtest::NetnsPair>();
            if (!net->ready()) {
                g_skipReason = "no test hosts: " + net->error();
            } else if (!zvtest::NetnsPair::enter(net->b)) {
                g_skipReason = "cannot enter the client's test host";
            }
            g_net = net.get();
        }
    }
    // The client's own widgets stay offscreen; the library captures DISPLAY.
    setenv("QT_QPA_PLATFORM", "offscreen", 1);

    int result = 0;
    {
        QApplication app(argc, argv);
        TestClientCast test;
        result = QTest::qExec(&test, argc, argv);
    }
    net.reset();
    x.reset();
    if (!g_root.empty()) std::system(("rm -rf " + g_root).c_str());
    return result;
}

#include "test_client_cast.moc"
