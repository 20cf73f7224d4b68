// The reverse screen: the window's touch forwarding in panel units and the
// control switch, snapshots and their same-second rule, the sidebar and
// overlay placement, the hidden gesture, the player set-up retry, and the
// session controller's reverse-screen states. The player is the library's
// own; a set-up it refuses is the failure under test.
#include <QtTest/QtTest>

#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QMessageBox>
#include <QStackedWidget>
#include <QToolButton>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <X11/Xlib.h>

#include "BusinessModule/ScreenBusiness/SimulatedTouch.h"
#include "WidgetTestSupport.h"
#include "XvfbSession.h"
#include "casting/CClientConfig.h"
#include "casting/Dexo.h"
#include "casting/ErrorCodes.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/DisplayWidget.h"
#include "ui/LibraryCallbacks.h"
#include "ui/MirrorPhoto.h"
#include "ui/OrvixUpgrade.h"
#include "ui/RequestThreads.h"
#include "ui/ReverseScreen.h"
#include "ui/ReverseScreenSidebar.h"
#include "ui/ReverseTouch.h"
#include "ui/TipWindows.h"
#include "ui_OrvixUpgrade.h"

using qorquicomponents::OrvixUpgrade;
using qorquicomponents::ReverseScreen;
using qorquicomponents::TipWindows;
namespace touch = qorquicomponents::reverse_touch;
namespace photo = qorquicomponents::mirror_photo;

namespace {

// Error codes that reach the view's error callback.
std::vector<unsigned long> g_errors;
void recordError(unsigned long code, void*) { g_errors.push_back(code); }

void sendMouse(QWidget* target, QEvent::Type type, const QPoint& local) {
    const QPointF global = target->mapToGlobal(local);
    QMouseEvent event(type, local, local, global, Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
}

// Runs the view's stream input on a thread of its own, as the library does.
int inputFromLibraryThread(ReverseScreen& view, char* data, int length) {
    int result = 0;
    std::atomic<bool> done{false};
    std::thread thread([&] {
        result = view.inputStream(1, data, length);
        done = true;
    });
    // The set-up's blocking call needs this thread's event loop.
    while (!done) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    thread.join();
    return result;
}

int fatalSetUpFailures(zvtest::LogCapture& log) {
    int n = 0;
    for (const char* call : {"Dexo_GetPort fail", "Dexo_SetStreamOpenMode fail", "Dexo_OpenStream fail",
                             "Dexo_SetDisplayBuf fail", "Dexo_Play fail"}) {
        n += log.countContaining(call);
    }
    return n;
}

}  // namespace

class TestReverseScreen : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void touchTextAndPanelUnits();
    void mouseIsForwardedOnlyWhileControlIsOn();
    void snapshotsKeepTheFirstOfEachSecond();
    void sidebarAndOverlayFollowTheWindow();
    void tenClicksOnTheOverlayOpenTheHiddenSettings();
    void playerSetUpIsRetriedOnceThenTheSessionEnds();
    void streamCallbacksIgnoreANullUser();
    void startIsRefusedInBusyStates();
    void resultsSetTheStatesAndStopResetsTheChoices();
    void aWrongCodeFromTheSharePageEndsWhereItBegan();
    // Last: it points DISPLAY at a private X server.
    void simulatedTouchHoldsThePointerWhileSending();

private:
    static void setState(OrvixUpgrade& window, unsigned state) { window.m_screenStatus = state; }
    static void setLoginHandle(OrvixUpgrade& window, long handle) { window.m_loginHandle = handle; }
    static QWidget* currentPage(OrvixUpgrade& window) { return window.ui->stackedWidget->currentWidget(); }
    static QThread* shareThread(OrvixUpgrade& window) { return window.m_startShareThread; }
};

void TestReverseScreen::initTestCase() {
    // The windows are offscreen: the player must not find an X server to
    // draw on, so that binding it to a window fails the way it is tested.
    qunsetenv("DISPLAY");
}

void TestReverseScreen::cleanup() {
    TipWindows::getInstance()->hide();
    g_errors.clear();
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    config.updateShareReverse(0);
    config.updateShareVoice(0);
}

void TestReverseScreen::touchTextAndPanelUnits() {
    QCOMPARE(touch::touchControlJson("touchDown", 32767, 5, 1700000000123LL),
             QByteArray("{\n\"touchControl\":\n{\n\t\"id\":1,\n\t\"timestamp\":1700000000123,\n"
                        "\t\"ctrlType\":\"touchDown\",\n\t\"x\":32767,\n\t\"y\":5\n}\n}\n"));
    QCOMPARE(touch::touchControlJson("home", 0, 0, 7),
             QByteArray("{\n\"touchControl\":\n{\n\t\"id\":1,\n\t\"timestamp\":7,\n"
                        "\t\"ctrlType\":\"home\",\n\t\"x\":0,\n\t\"y\":0\n}\n}\n"));

    // Window frame at 100, client area 8 further in, 1000 pixels shown.
    QCOMPARE(touch::toPanelUnits(108, 100, 8, 1000), 0);
    QCOMPARE(touch::toPanelUnits(608, 100, 8, 1000), 32767);
    QCOMPARE(touch::toPanelUnits(1108, 100, 8, 1000), 65535);
    QCOMPARE(touch::toPanelUnits(109, 100, 8, 1000), 65);  // 65.535 truncated
    // Large screens do not overflow; an empty widget gives 0.
    QCOMPARE(touch::toPanelUnits(40000, 0, 0, 40000), 65535);
    QCOMPARE(touch::toPanelUnits(50, 0, 0, 0), 0);

    QCOMPARE(touch::touchTypeFor(QEvent::MouseButtonPress), "touchDown");
    QCOMPARE(touch::touchTypeFor(QEvent::MouseButtonDblClick), "touchDown");
    QCOMPARE(touch::touchTypeFor(QEvent::MouseButtonRelease), "touchUp");
    QCOMPARE(touch::touchTypeFor(QEvent::MouseMove), "touchMove");
    QVERIFY(touch::touchTypeFor(QEvent::Wheel) == nullptr);
}

void TestReverseScreen::mouseIsForwardedOnlyWhileControlIsOn() {
    ReverseScreen view;
    view.setGeometry(50, 60, 1000, 500);
    view.startReverseScreen();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    QSignalSpy sent(&view, &ReverseScreen::signalTouchSent);
    QWidget* display = view.displayWidget();
    QCOMPARE(display->size(), QSize(1000, 500));

    // Control starts off: nothing goes to the panel.
    QVERIFY(!view.reverseControlStatus());
    sendMouse(display, QEvent::MouseButtonPress, QPoint(500, 250));
    sendMouse(display, QEvent::MouseButtonRelease, QPoint(500, 250));
    QCOMPARE(sent.count(), 0);

    view.setReverseControlStatus(1);
    QCOMPARE(Singleton<CClientConfig>::getInstance().getShareReverse(), 1);
    sendMouse(display, QEvent::MouseButtonPress, QPoint(500, 250));
    sendMouse(display, QEvent::MouseMove, QPoint(999, 0));
    sendMouse(display, QEvent::MouseButtonRelease, QPoint(250, 499));
    sendMouse(display, QEvent::MouseButtonDblClick, QPoint(0, 0));
    QCOMPARE(sent.count(), 4);
    auto text = [&](int i) { return sent.at(i).at(0).toByteArray(); };
    QVERIFY(text(0).contains("\"ctrlType\":\"touchDown\",\n\t\"x\":32767,\n\t\"y\":32767\n"));
    QVERIFY(text(1).contains("\"ctrlType\":\"touchMove\",\n\t\"x\":65469,\n\t\"y\":0\n"));
    QVERIFY(text(2).contains("\"ctrlType\":\"touchUp\",\n\t\"x\":16383,\n\t\"y\":65403\n"));
    QVERIFY(text(3).contains("\"ctrlType\":\"touchDown\",\n\t\"x\":0,\n\t\"y\":0\n"));

    // The keys go whatever the pointer does.
    view.onBackToHome();
    view.onBackToPrevious();
    QCOMPARE(sent.count(), 6);
    QVERIFY(text(4).contains("\"ctrlType\":\"home\",\n\t\"x\":0,\n\t\"y\":0\n"));
    QVERIFY(text(5).contains("\"ctrlType\":\"back\""));

    // The panel takes control back: silence again.
    view.setReverseControlStatus(0);
    sendMouse(display, QEvent::MouseButtonPress, QPoint(10, 10));
    QCOMPARE(sent.count(), 6);
    QCOMPARE(Singleton<CClientConfig>::getInstance().getShareReverse(), 0);
    view.stopReverseScreen();
}

void TestReverseScreen::snapshotsKeepTheFirstOfEachSecond() {
    // The folder is under the home, with "/" separators, made on demand.
    const QString home = QDir::homePath();
    const std::string folder = photo::folder();
    QCOMPARE(QString::fromStdString(folder), home + QStringLiteral("/Zelvanor/Logs/Streaming File/"));
    QVERIFY(folder.find('\\') == std::string::npos);
    QCOMPARE(photo::fileName(1700000000), std::string("MirrorPhoto_1700000000.jpg"));

    QDir(QString::fromStdString(folder)).removeRecursively();
    const std::string first(4096, 'A');
    const std::string second(10, 'B');
    std::string path;
    QCOMPARE(photo::save(folder, 1700000001, reinterpret_cast<const unsigned char*>(first.data()), first.size(), path),
             photo::Result::Written);
    QCOMPARE(QString::fromStdString(path), QString::fromStdString(folder) + "MirrorPhoto_1700000001.jpg");
    // Same second: the file stays as the first snapshot wrote it.
    QCOMPARE(photo::save(folder, 1700000001, reinterpret_cast<const unsigned char*>(second.data()), second.size(), path),
             photo::Result::AlreadyExists);
    QFile file(QString::fromStdString(path));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray::fromStdString(first));
    // The next second is a new file.
    QCOMPARE(photo::save(folder, 1700000002, reinterpret_cast<const unsigned char*>(second.data()), second.size(), path),
             photo::Result::Written);
    QCOMPARE(QFileInfo(QString::fromStdString(path)).size(), 10);

    // A folder that cannot be made: a plain failure, nothing written.
    QFile blocker(home + QStringLiteral("/not-a-folder"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QCOMPARE(photo::save(home.toStdString() + "/not-a-folder/x/", 1, nullptr, 0, path), photo::Result::Failed);

    // The view takes snapshots only while it runs, and only of a picture.
    zvtest::LogCapture log;
    ReverseScreen view;
    view.setTakeMirrorPhoto();
    QCOMPARE(log.countContaining("Dexo_GetJPEG"), 0);
    view.startReverseScreen();
    view.setTakeMirrorPhoto();
    QCOMPARE(log.countContaining("Dexo_GetJPEG fail. ErrorCode: "), 1);
    view.stopReverseScreen();
}

void TestReverseScreen::sidebarAndOverlayFollowTheWindow() {
    ReverseScreen view;
    view.setGeometry(100, 100, 800, 600);
    view.startReverseScreen();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    qorquicomponents::ReverseScreenSidebar* bar = view.sidebar();
    QVERIFY(bar->isVisible());
    QVERIFY(view.overlay()->isVisible());
    // No panel (device type 0): there is no "back" to go to.
    QVERIFY(!bar->backButton()->isEnabled());
    QVERIFY(bar->photoButton()->isEnabled());
    QCOMPARE(view.sidebarOffset(), 300 - bar->height() / 2);
    // Placed from the window's frame position (x(), y()), not its client area.
    auto barAt = [&](int offset) { return QPoint(view.x() + view.width() - 44, view.y() + offset); };
    QTRY_COMPARE(bar->pos(), barAt(view.sidebarOffset()));
    QCOMPARE(view.overlay()->pos(), QPoint(view.x() + 16, view.y() + 18));

    view.move(200, 150);
    QTRY_COMPARE(view.x(), 200);
    QTRY_COMPARE(bar->pos(), barAt(view.sidebarOffset()));
    QTRY_COMPARE(view.overlay()->pos(), QPoint(216, 168));

    // Dragged low and left there, then control comes on: home and back make
    // the column taller, and it is pulled back inside the window.
    const int shortHeight = bar->height();
    emit bar->signalDragStart();
    bar->move(bar->x(), view.y() + 600 - shortHeight);
    emit bar->signalDragEnd();
    QCOMPARE(view.sidebarOffset(), 600 - shortHeight);
    view.move(210, 150);
    QTRY_COMPARE(view.x(), 210);
    QTRY_COMPARE(bar->pos(), barAt(600 - shortHeight));
    view.setReverseControlStatus(1);
    QTRY_VERIFY(bar->homeButton()->isVisibleTo(bar));
    QVERIFY(bar->height() > shortHeight);
    QCOMPARE(view.sidebarOffset() + bar->height(), 600);
    QTRY_COMPARE(bar->pos(), barAt(600 - bar->height()));

    // A resize centres it again; reconnecting disables the tools.
    view.resize(800, 400);
    QTRY_COMPARE(view.sidebarOffset(), 200 - bar->height() / 2);
    view.setReconnecting(true);
    QTRY_VERIFY(!bar->photoButton()->isEnabled());
    view.setReconnecting(false);
    QTRY_VERIFY(bar->photoButton()->isEnabled());

    // Hiding the window hides the column; stopping hides the overlay.
    view.hide();
    QVERIFY(!bar->isVisible());
    view.stopReverseScreen();
    QVERIFY(!view.overlay()->isVisible());
}

void TestReverseScreen::tenClicksOnTheOverlayOpenTheHiddenSettings() {
    ReverseScreen view;
    view.startReverseScreen();
    QVERIFY(QTest::qWaitForWindowExposed(view.overlay()));
    QSignalSpy asked(&view, &ReverseScreen::signalOpenHiddenSettings);
    for (int i = 0; i < 9; ++i) QTest::mouseClick(view.overlay(), Qt::LeftButton);
    QCOMPARE(view.hiddenClickCount(), 9);
    QCOMPARE(asked.count(), 0);
    QTest::mouseClick(view.overlay(), Qt::LeftButton);
    QCOMPARE(view.hiddenClickCount(), 0);
    QCOMPARE(asked.count(), 1);
    for (int i = 0; i < 10; ++i) QTest::mouseClick(view.overlay(), Qt::LeftButton);
    QCOMPARE(asked.count(), 2);

    // Its switch shows the figures.
    QVERIFY(view.overlay()->text().isEmpty());
    view.onShowDisplayInfo(true);
    view.setReverseScreenDelay(42);
    view.setReverseScreenBitrateFrameRate(3500, 30);
    QVERIFY(view.overlay()->text().contains(QStringLiteral("42")));
    QVERIFY(view.overlay()->text().contains(QStringLiteral("3500")));
    QVERIFY(view.overlay()->text().contains(QStringLiteral("30")));
    view.stopReverseScreen();
}

void TestReverseScreen::playerSetUpIsRetriedOnceThenTheSessionEnds() {
    zvtest::LogCapture log;
    ReverseScreen view;
    view.setErrorCallbackFunc(recordError, &view);
    QSignalSpy stops(&view, &ReverseScreen::signalStopShare);
    view.startReverseScreen();

    // Not a stream the player can show in this window: set-up fails twice,
    // the second time ends the session with the reverse-screen error.
    char garbage[64];
    std::memset(garbage, 0x5a, sizeof garbage);
    QCOMPARE(inputFromLibraryThread(view, garbage, sizeof garbage), -1);
    QCOMPARE(fatalSetUpFailures(log), 2);
    QTRY_COMPARE(stops.count(), 1);
    QCOMPARE(g_errors, std::vector<unsigned long>{zv_error::REVERSE_ABNORMAL});
    QCOMPARE(view.playPort(), -1);

    // Later pieces are refused without another attempt; null data too.
    QCOMPARE(inputFromLibraryThread(view, garbage, sizeof garbage), -1);
    QCOMPARE(inputFromLibraryThread(view, nullptr, 0), -1);
    QCOMPARE(fatalSetUpFailures(log), 2);
    QCOMPARE(g_errors.size(), size_t(1));

    // The player's errors are logged (and a key frame is asked for); other
    // run-time reports are not errors. (The failed set-ups above may have
    // reported their display error already.)
    const int before = log.countContaining("[callbackDecode]");
    RunTimeInfo info{};
    info.nModule = DEXO_MODULE_DECODER;
    info.nType = DEXO_INFO_DECODE_ERROR;
    ReverseScreen::callbackDecode(3, &info, &view);
    ReverseScreen::callbackDecode(3, nullptr, &view);
    QCOMPARE(log.countContaining("[callbackDecode]"), before);
    info.nErrorCode = DEXO_ERR_DECODE;
    ReverseScreen::callbackDecode(3, &info, &view);
    QCOMPARE(log.count("[callbackDecode] decode error, port: 3, errorCode: 7"), 1);

    // A stop makes the next stream set the player up afresh.
    view.stopReverseScreen();
    QCOMPARE(inputFromLibraryThread(view, garbage, sizeof garbage), -1);
    QCOMPARE(fatalSetUpFailures(log), 4);
    QTRY_COMPARE(g_errors.size(), size_t(2));
}

void TestReverseScreen::streamCallbacksIgnoreANullUser() {
    char data[4] = {1, 2, 3, 4};
    QCOMPARE(reverseScreenStreamCallback(1, data, 4, nullptr), 0L);
    QCOMPARE(inputStreamDataCallBack(1, data, 4, nullptr), 0L);
}

void TestReverseScreen::startIsRefusedInBusyStates() {
    OrvixUpgrade window(nullptr);
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");
    zvtest::LogCapture log;
    const std::string refused =
        "[onStartCodeReverseScreen] Start code reverse screen fail, because the current state is not NormalStatus.";
    int expected = 0;
    for (unsigned state : {2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u}) {
        setState(window, state);
        window.onStartCodeReverseScreen(QStringLiteral("AB12CD"));
        QCOMPARE(window.getCurrentStatus(), state);
        QCOMPARE(log.count(refused), ++expected);
        QVERIFY(!shareThread(window)->isRunning());
        QVERIFY(!window.isLoadingShown());
    }
}

void TestReverseScreen::resultsSetTheStatesAndStopResetsTheChoices() {
    OrvixUpgrade window(nullptr);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    ReverseScreen* view = window.getReverseScreenWindow();
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    tagDeviceListUnitInfo_ record{};

    // Refused: back to connected when logged in, to idle when not.
    setLoginHandle(window, 3);
    setState(window, OrvixUpgrade::CodeReverseRequestStatus);
    window.onReverseScreenRequestResult(FAIL, record);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    setLoginHandle(window, -1);
    setState(window, OrvixUpgrade::CodeReverseRequestStatus);
    window.onReverseScreenRequestResult(FAIL, record);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!view->isVisible());

    // Waiting for the panel's approval changes nothing yet.
    setLoginHandle(window, 3);
    setState(window, OrvixUpgrade::CodeReverseRequestStatus);
    window.onReverseScreenRequestResult(WAIT_AUTHORIZATION, record);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeReverseRequestStatus));

    // Accepted: the panel's screen replaces the main window.
    config.updateShareReverse(1);
    config.updateShareVoice(1);
    window.onReverseScreenRequestResult(SUCCESS, record);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ReverseScreeningStatus));
    QVERIFY(window.getReverseScreenStatus());
    QVERIFY(!window.isVisible());
    QVERIFY(view->isVisible());
    QVERIFY(view->isReverseRunning());
    QVERIFY(!view->reverseControlStatus());  // until the panel answers

    // Closing the reverse window stops the session; the stored choices go
    // back to 0 and the connect page shows the connection.
    view->close();
    QCOMPARE(config.getShareReverse(), 0);
    QCOMPARE(config.getShareVoice(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus), 15000);
    QTRY_VERIFY(!view->isReverseRunning());
    QTRY_VERIFY(!window.isLoadingShown());
    QVERIFY(window.isVisible());
    QVERIFY(!view->isVisible());
    QCOMPARE(currentPage(window), static_cast<QWidget*>(window.getConnectPage()));

    // A stop with no reverse screen only shows the main window again.
    window.hide();
    window.onStopReverseScreen();
    QVERIFY(window.isVisible());
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QVERIFY(!view->isVisible());

    // A player that cannot be set up ends the session with its notice.
    QSignalSpy codes(&window, &OrvixUpgrade::signalMainErrorCode);
    setState(window, OrvixUpgrade::CodeReverseRequestStatus);
    window.onReverseScreenRequestResult(SUCCESS, record);
    char garbage[32] = {0};
    QCOMPARE(inputFromLibraryThread(*view, garbage, sizeof garbage), -1);
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus), 15000);
    QTRY_VERIFY(!codes.isEmpty());
    QCOMPARE(codes.first().at(0).toUInt(), static_cast<unsigned>(zv_error::REVERSE_ABNORMAL));
    QTRY_VERIFY(window.isVisible());
    setLoginHandle(window, -1);
}

void TestReverseScreen::aWrongCodeFromTheSharePageEndsWhereItBegan() {
    OrvixUpgrade window(nullptr);
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");
    qorquicomponents::SharePage* page = window.getSharePage();
    page->getReverseScreenCodeEdit()->setText(QStringLiteral("ZQ7XK2"));
    QVERIFY(page->getStartReverseScreenBtn()->isEnabled());
    QTest::mouseClick(page->getStartReverseScreenBtn(), Qt::LeftButton);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeReverseRequestStatus));
    QTRY_VERIFY_WITH_TIMEOUT(!shareThread(window)->isRunning(), 30000);
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 30000);
    QTRY_VERIFY(!window.isLoadingShown());
    QVERIFY(!window.getReverseScreenWindow()->isVisible());
}

void TestReverseScreen::simulatedTouchHoldsThePointerWhileSending() {
    {
        // No X server: the thread never starts.
        qunsetenv("DISPLAY");
        SimulatedTouch touch;
        QVERIFY(!touch.start());
        QVERIFY(!touch.isRunning());
        touch.exitPushMouseThread();
    }
    if (std::system("command -v Xvfb >/dev/null 2>&1") != 0) QSKIP("no Xvfb");
    zvtest::XvfbSession xvfb("800x600x24");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QVERIFY(xvfb.ready());
    Display* x11 = xvfb.connection();
    auto pointer = [x11] {
        Window root = 0, child = 0;
        int rootX = 0, rootY = 0, winX = 0, winY = 0;
        unsigned int mask = 0;
        XQueryPointer(x11, DefaultRootWindow(x11), &root, &child, &rootX, &rootY, &winX, &winY, &mask);
        return QPoint(rootX, rootY);
    };

    SimulatedTouch touch;
    QVERIFY(touch.start());
    QVERIFY(touch.isRunning());
    touch.setTouchPoint(123, 456);
    QCOMPARE(touch.moves(), 0L);  // nothing until sending is switched on
    touch.setSending(true);
    QTRY_COMPARE(pointer(), QPoint(123, 456));
    // Held there: something else moving the pointer is undone.
    XWarpPointer(x11, None, DefaultRootWindow(x11), 0, 0, 0, 0, 10, 10);
    XFlush(x11);
    QTRY_COMPARE(pointer(), QPoint(123, 456));
    QTRY_VERIFY(touch.moves() >= 3);

    touch.setSending(false);
    touch.setTouchPoint(300, 200);
    touch.setSending(true);
    QTRY_COMPARE(pointer(), QPoint(300, 200));
    touch.exitPushMouseThread();
    QVERIFY(!touch.isRunning());
    const long moves = touch.moves();
    XWarpPointer(x11, None, DefaultRootWindow(x11), 0, 0, 0, 0, 10, 10);
    XSync(x11, False);
    QCOMPARE(pointer(), QPoint(10, 10));
    QCOMPARE(touch.moves(), moves);
}

QTEST_MAIN(TestReverseScreen)
#include "test_reverse_screen.moc"
