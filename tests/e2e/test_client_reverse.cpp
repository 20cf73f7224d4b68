// The desktop client showing a real receiver's screen (reverse screen). The
// receiver runs on one test host with an X server of its own painted with
// known colour blocks; this process enters the other test host with a second
// X server and drives the real main window there: a reverse screen started
// from the share page by the receiver's code, the picture read back from the
// client's display widget, damaged data and the key frame that mends it,
// clicks with control off and on, a snapshot, the stop, the connect page's
// entry, the panel's stop, a panel whose user approves each request and one
// that may only be seen.
#include <QtTest/QtTest>

#include <QColor>
#include <QDir>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ColourBlocks.h"
#include "NetnsPair.h"
#include "Process.h"
#include "StatusLines.h"
#include "XvfbSession.h"
#include "casting/CClientConfig.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/MirrorPhoto.h"
#include "ui/OrvixUpgrade.h"
#include "ui/PopupWindow.h"
#include "ui/ReverseScreen.h"
#include "ui/ReverseScreenSidebar.h"
#include "ui/TipWindows.h"

using namespace std::chrono_literals;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::PopupWindow;
using qorquicomponents::ReverseScreen;
using zvtest::ChildProcess;
using zvtest::jsonLine;
using zvtest::kBlocks;
using zvtest::statusEvent;
constexpr auto near = zvtest::nearColour;

namespace {

zvtest::NetnsPair* g_net = nullptr;
zvtest::XvfbSession* g_panelX = nullptr;
zvtest::XvfbSession* g_pcX = nullptr;
std::string g_skipReason;
std::string g_root;

constexpr int kPanelW = 1920, kPanelH = 1080;

QPoint blockCentre(int i, int w, int h) { return QPoint((i % 2) * w / 2 + w / 4, (i / 2) * h / 2 + h / 4); }

QColor pixelOf(Display* display, unsigned long window, int x, int y) {
    XImage* image = XGetImage(display, window, x, y, 1, 1, AllPlanes, ZPixmap);
    if (image == nullptr) return QColor();
    const unsigned long p = XGetPixel(image, 0, 0);
    XDestroyImage(image);
    return QColor(int((p >> 16) & 0xFF), int((p >> 8) & 0xFF), int(p & 0xFF));
}

QPoint panelPointer() {
    Display* display = g_panelX->connection();
    Window root = 0, child = 0;
    int rootX = -1, rootY = -1, x = 0, y = 0;
    unsigned int mask = 0;
    XQueryPointer(display, DefaultRootWindow(display), &root, &child, &rootX, &rootY, &x, &y, &mask);
    return QPoint(rootX, rootY);
}

void paintColours(Display* display, const QColor* colours) {
    const Window root = DefaultRootWindow(display);
    GC gc = XCreateGC(display, root, 0, nullptr);
    for (int i = 0; i < 4; ++i) {
        XSetForeground(display, gc, colours[i].rgb() & 0xFFFFFF);
        XFillRectangle(display, root, gc, (i % 2) * kPanelW / 2, (i / 2) * kPanelH / 2, kPanelW / 2, kPanelH / 2);
    }
    XFreeGC(display, gc);
    XSync(display, False);
}

void click(QWidget* target, const QPoint& local) {
    const QPointF global = target->mapToGlobal(local);
    QMouseEvent press(QEvent::MouseButtonPress, local, local, global, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &press);
    QMouseEvent release(QEvent::MouseButtonRelease, local, local, global, Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(target, &release);
}

}  // namespace

class TestClientReverse : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void reverseScreenFromTheSharePage();
    void theConnectPagesEntryAndThePanelsStop();
    void thePanelsUserDecides();
    void aViewOnlyPanelRefusesControl();

private:
    void startReceiver(const std::vector<std::string>& extra);
    bool displayShowsBlocks(QWidget* display, const QColor* colours);

    std::unique_ptr<ChildProcess> m_receiver;
    std::unique_ptr<OrvixUpgrade> m_window;
    std::string m_code;
};

void TestClientReverse::initTestCase() {
    if (!g_skipReason.empty()) QSKIP(g_skipReason.c_str());
    startReceiver({});
    QVERIFY(!m_code.empty());
    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestClientReverse::startReceiver(const std::vector<std::string>& extra) {
    if (m_receiver) m_receiver->stop();
    m_code.clear();
    const std::string home = g_root + "/panel";
    std::system(("mkdir -p " + home).c_str());
    std::vector<std::string> argv = {"env",
                                     "HOME=" + home,
                                     "XDG_CONFIG_HOME=" + home + "/.config",
                                     "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + home + "/no-bus",
                                     "PULSE_SERVER=unix:" + home + "/no-sound",
                                     "DISPLAY=" + g_panelX->display(),
                                     "QT_QPA_PLATFORM=xcb",
                                     zvtest::builtProgram("zelvanor-receiver"),
                                     "--headless",
                                     "--no-discovery",
                                     "--access",
                                     "open",
                                     "--name",
                                     "Room Reverse"};
    argv.insert(argv.end(), extra.begin(), extra.end());
    m_receiver = std::make_unique<ChildProcess>(zvtest::NetnsPair::in(g_net->a, argv), ChildProcess::Output::Capture,
                                                ChildProcess::Input::Pipe);
    const QJsonObject ready = jsonLine(m_receiver->waitForLine(statusEvent("ready"), 20s));
    m_code = ready.value(QLatin1String("code")).toString().toStdString();
}

bool TestClientReverse::displayShowsBlocks(QWidget* display, const QColor* colours) {
    for (int i = 0; i < 4; ++i) {
        const QPoint c = blockCentre(i, display->width(), display->height());
        if (!near(pixelOf(g_pcX->connection(), display->winId(), c.x(), c.y()), colours[i])) return false;
    }
    return true;
}

void TestClientReverse::reverseScreenFromTheSharePage() {
    qorquicomponents::SharePage* page = m_window->getSharePage();
    page->getReverseScreenCodeEdit()->setText(QString::fromStdString(m_code));
    QVERIFY(page->getStartReverseScreenBtn()->isEnabled());
    page->getStartReverseScreenBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ReverseScreeningStatus),
                              30000);
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-started"), 10s).empty());

    // The panel's screen replaces the main window, drawn by the player.
    ReverseScreen* view = m_window->getReverseScreenWindow();
    QTRY_VERIFY(!m_window->isVisible());
    QVERIFY(view->isVisible());
    QWidget* display = view->displayWidget();
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(display, kBlocks), 20000);
    QVERIFY(view->playPort() >= 0);
    QVERIFY(view->sidebar()->backButton()->isEnabled());  // a panel has a "back"

    // Damaged stream data: the player refuses it, the client asks the panel
    // for a key frame, and the picture goes on (a new one arrives).
    char garbage[4096];
    std::memset(garbage, 0x5a, sizeof garbage);
    int refused = 0;
    std::thread([&] { refused = view->inputStream(1, garbage, sizeof garbage); }).join();
    QCOMPARE(refused, -1);
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-key-frame"), 10s).empty());
    const QColor turned[4] = {kBlocks[3], kBlocks[2], kBlocks[1], kBlocks[0]};
    paintColours(g_panelX->connection(), turned);
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(display, turned), 20000);
    zvtest::paintBlocks(g_panelX->connection());
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(display, kBlocks), 20000);

    // Control off: a click goes nowhere. Control on (the panel grants it):
    // a click lands on the matching pixel of the panel's screen; the first
    // input the panel reports is that second click.
    const QPoint offClick = blockCentre(0, display->width(), display->height());
    click(display, offClick);
    view->onSetReverseControl();
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-control", "granted", true), 10s).empty());
    QTRY_VERIFY(view->reverseControlStatus());
    const QPoint onClick = blockCentre(3, display->width(), display->height());
    click(display, onClick);
    const QJsonObject input = jsonLine(m_receiver->waitForLine(statusEvent("share-input"), 10s));
    QCOMPARE(input.value(QLatin1String("type")).toString(), QStringLiteral("touchDown"));
    const QPoint expected(kPanelW * 3 / 4, kPanelH * 3 / 4);
    QVERIFY2(std::abs(input.value(QLatin1String("px")).toInt() - expected.x()) <= 3 &&
                 std::abs(input.value(QLatin1String("py")).toInt() - expected.y()) <= 3,
             qPrintable(QStringLiteral("landed at %1,%2").arg(input.value(QLatin1String("px")).toInt())
                            .arg(input.value(QLatin1String("py")).toInt())));
    QTRY_VERIFY((panelPointer() - expected).manhattanLength() <= 6);
    // The sidebar's home key reaches the panel.
    view->onBackToHome();
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-home"), 10s).empty());

    // A snapshot is a JPEG of the panel's picture in the snapshot folder.
    const QDir folder(QString::fromStdString(qorquicomponents::mirror_photo::folder()));
    view->setTakeMirrorPhoto();
    const QStringList photos = folder.entryList({QStringLiteral("MirrorPhoto_*.jpg")}, QDir::Files);
    QCOMPARE(photos.size(), 1);
    QImage photo(folder.filePath(photos.first()), "JPG");
    QVERIFY(!photo.isNull());
    QCOMPARE(photo.size(), QSize(kPanelW, kPanelH));
    for (int i = 0; i < 4; ++i) {
        const QColor colour = photo.pixelColor(blockCentre(i, photo.width(), photo.height()));
        QVERIFY2(near(colour, kBlocks[i]), qPrintable(QStringLiteral("block %1 is %2").arg(i).arg(colour.name())));
    }

    // Closing the window ends the share; the connection stays, the stored
    // control choice is back at 0.
    view->close();
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-stopped"), 15s).empty());
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              15000);
    QTRY_VERIFY(m_window->isVisible());
    QTRY_VERIFY(!view->isReverseRunning());
    QVERIFY(!view->isVisible());
    QCOMPARE(view->playPort(), -1);
    QCOMPARE(Singleton<CClientConfig>::getInstance().getShareReverse(), 0);
}

void TestClientReverse::theConnectPagesEntryAndThePanelsStop() {
    // Still connected: the connect page's entry starts the next one at once.
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QToolButton* entry = m_window->getConnectPage()->findChild<QToolButton*>(QStringLiteral("reverseScreenBtn"));
    QVERIFY(entry != nullptr);
    entry->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ReverseScreeningStatus),
                              30000);
    QVERIFY(!m_receiver->waitForLine(statusEvent("share-started"), 10s).empty());
    ReverseScreen* view = m_window->getReverseScreenWindow();
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(view->displayWidget(), kBlocks), 20000);

    // The panel ends it: the session stops with the "ended" notice.
    QSignalSpy codes(m_window.get(), &OrvixUpgrade::signalMainErrorCode);
    m_receiver->writeLine("{\"cmd\":\"stop-share\"}");
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              15000);
    QTRY_VERIFY(!codes.isEmpty());
    QCOMPARE(codes.first().at(0).toUInt(), 0xF3204012u);
    QTRY_VERIFY(!view->isReverseRunning());
    QVERIFY(!view->isVisible());
    QVERIFY(m_window->isVisible());
}

void TestClientReverse::thePanelsUserDecides() {
    // A panel whose user approves each request, reached from idle by its code.
    m_window->onStopConnect();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 15000);
    startReceiver({"--require-approval"});
    QVERIFY(!m_code.empty());
    qorquicomponents::SharePage* page = m_window->getSharePage();
    auto ask = [&] {
        page->getReverseScreenCodeEdit()->setText(QString::fromStdString(m_code));
        page->getStartReverseScreenBtn()->click();
        return jsonLine(m_receiver->waitForLine(statusEvent("approval-needed", "kind", "share"), 30s))
            .value(QLatin1String("client"))
            .toInt();
    };
    auto answer = [&](int client, bool approved) {
        m_receiver->writeLine("{\"cmd\":\"approve\",\"client\":" + std::to_string(client) +
                              ",\"approved\":" + (approved ? "true" : "false") + "}");
    };

    // Waiting: the popup tells the user; denied: back to connected.
    int client = ask();
    QVERIFY(client > 0);
    QTRY_VERIFY_WITH_TIMEOUT(PopupWindow::getInstance()->isVisible(), 10000);
    QCOMPARE(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeReverseRequestStatus));
    answer(client, false);
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              15000);
    QTRY_VERIFY(!PopupWindow::getInstance()->isVisible());
    QVERIFY(!m_window->getReverseScreenWindow()->isVisible());

    // Allowed: the picture follows, on the connection already there.
    client = ask();
    QTRY_VERIFY_WITH_TIMEOUT(PopupWindow::getInstance()->isVisible(), 10000);
    answer(client, true);
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ReverseScreeningStatus),
                              15000);
    QVERIFY(!PopupWindow::getInstance()->isVisible());
    ReverseScreen* view = m_window->getReverseScreenWindow();
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(view->displayWidget(), kBlocks), 20000);
    view->close();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              15000);
}

void TestClientReverse::aViewOnlyPanelRefusesControl() {
    m_window->onStopConnect();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 15000);
    startReceiver({"--view-only"});
    QVERIFY(!m_code.empty());
    qorquicomponents::SharePage* page = m_window->getSharePage();
    page->getReverseScreenCodeEdit()->setText(QString::fromStdString(m_code));
    page->getStartReverseScreenBtn()->click();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ReverseScreeningStatus),
                              30000);
    ReverseScreen* view = m_window->getReverseScreenWindow();
    QTRY_VERIFY_WITH_TIMEOUT(displayShowsBlocks(view->displayWidget(), kBlocks), 20000);

    // Asking for control: the panel only shows, and the window says so.
    view->onSetReverseControl();
    QTRY_COMPARE_WITH_TIMEOUT(view->lastRejectText(),
                              QStringLiteral("Failed to turn on reverse control, the screen only for displaying"), 10000);
    QVERIFY(!view->reverseControlStatus());
    QTRY_VERIFY(qorquicomponents::TipWindows::getInstance()->isVisible());
    view->close();
    QTRY_COMPARE_WITH_TIMEOUT(m_window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus),
                              15000);
}

int main(int argc, char* argv[]) {
    char folder[] = "/tmp/zv-client-reverse-XXXXXX";
    if (mkdtemp(folder) != nullptr) g_root = folder;
    const std::string home = g_root + "/pc";
    std::system(("mkdir -p " + home).c_str());
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", (home + "/.config").c_str(), 1);
    setenv("PULSE_SERVER", ("unix:" + g_root + "/no-sound").c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + g_root + "/no-bus").c_str(), 1);

    std::unique_ptr<zvtest::XvfbSession> panelX, pcX;
    std::unique_ptr<zvtest::NetnsPair> net;
    if (geteuid() != 0) {
        g_skipReason = "needs root (network namespaces for the test hosts)";
    } else {
        // Both X servers start before this process leaves the host's network
        // namespace. The PC's starts last: DISPLAY (and the xcb platform) stay
        // on it, so the reverse window is a real X window the player draws into.
        panelX = std::make_unique<zvtest::XvfbSession>(std::to_string(kPanelW) + "x" + std::to_string(kPanelH) + "x24");
        pcX = std::make_unique<zvtest::XvfbSession>("1600x900x24");
        if (!panelX->ready() || !pcX->ready()) {
            g_skipReason = "Xvfb did not start";
        } else {
            zvtest::paintBlocks(panelX->connection());
            g_panelX = panelX.get();
            g_pcX = pcX.get();
            net = std::make_unique<zvtest::NetnsPair>();
            if (!net->ready()) {
                g_skipReason = "no test hosts: " + net->error();
            } else if (!zvtest::NetnsPair::enter(net->b)) {
                g_skipReason = "cannot enter the client's test host";
            }
            g_net = net.get();
        }
    }

    int result = 0;
    {
        QApplication app(argc, argv);
        TestClientReverse test;
        result = QTest::qExec(&test, argc, argv);
    }
    net.reset();
    pcX.reset();
    panelX.reset();
    if (!g_root.empty()) std::system(("rm -rf " + g_root).c_str());
    return result;
}

#include "test_client_reverse.moc"
