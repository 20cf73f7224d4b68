// The main window on its own: construction, showing, the command-line entry,
// dragging by the title bar, closing and the library's end.
#include <QtTest/QtTest>

#include <QMouseEvent>
#include <QResizeEvent>

#include <string>

#include "WidgetTestSupport.h"
#include "ui/OrvixUpgrade.h"

using qorquicomponents::OrvixUpgrade;

namespace {

using zvtest::LogCapture;

const std::string kEmptyIpLine = "[shortcutModeScreen] shortcutModeScreen return, because strIp is empty";
const std::string kConnectFailedCode = "0xF3200001";
const std::string kLibraryShutDownLine = "[shutdown] casting library shut down";

void sendMouse(QWidget* target, QEvent::Type type, const QPoint& local, Qt::MouseButton button,
               Qt::MouseButtons buttons) {
    QMouseEvent event(type, local, target->mapToGlobal(local), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
}

}  // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private slots:
    void startsIdleAndShows();
    void shortcutRestoresWindowAndTracksCommandLineStart();
    void titleBarDragsTheWindowOnlyWithTheLeftButton();
    void closeHidesWindowAndEveryEndShutsTheLibraryDownOnce();
};

void TestMainWindow::startsIdleAndShows() {
    OrvixUpgrade window(nullptr);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!window.getScreenStatus());
    QVERIFY(!window.getReverseScreenStatus());
    QVERIFY(!window.isCommandLineStart());
    QCOMPARE(window.size(), QSize(1008, 640));

    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(window.isVisible());
}

void TestMainWindow::shortcutRestoresWindowAndTracksCommandLineStart() {
    LogCapture log;
    OrvixUpgrade window(nullptr);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));

    // An empty address without an earlier command-line start: no error code.
    window.shortcutModeScreen(QString(), QString(), 0);
    QVERIFY(!window.isCommandLineStart());
    QCOMPARE(log.count(kEmptyIpLine), 1);
    QCOMPARE(log.countContaining(kConnectFailedCode), 0);

    // A minimised window comes back, the start is marked and a cast to the
    // address begins the way a cast to a listed panel does. Nothing answers
    // on this address, so the log-in fails and the session returns to idle,
    // still marked.
    window.showMinimized();
    QTRY_VERIFY(window.isMinimized());
    window.shortcutModeScreen(QStringLiteral("127.0.0.1"), QString(), 0);
    QVERIFY(window.isCommandLineStart());
    QTRY_VERIFY(!window.isMinimized());
    QVERIFY(window.isVisible());
    QCOMPARE(log.count(kEmptyIpLine), 1);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::KLUFScreenRequestStatus));
    QTRY_COMPARE_WITH_TIMEOUT(log.countContaining("[onStopConnect]"), 1, 30000);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(window.isCommandLineStart());
    const int raised = log.countContaining(kConnectFailedCode);

    // Empty after a command-line start: the error code is raised once and the
    // mark cleared, so a second empty call raises nothing.
    window.shortcutModeScreen(QString(), QStringLiteral("second"), 0);
    QVERIFY(!window.isCommandLineStart());
    QCOMPARE(log.count(kEmptyIpLine), 2);
    QCOMPARE(log.countContaining(kConnectFailedCode), raised + 1);

    window.shortcutModeScreen(QString(), QString(), 0);
    QCOMPARE(log.count(kEmptyIpLine), 3);
    QCOMPARE(log.countContaining(kConnectFailedCode), raised + 1);
}

void TestMainWindow::titleBarDragsTheWindowOnlyWithTheLeftButton() {
    OrvixUpgrade window(nullptr);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QWidget* title = window.findChild<QWidget*>(QStringLiteral("widgetTitle"));
    QVERIFY(title != nullptr);
    const QPoint start = window.pos();

    // The title bar's filter sees every kind of event; none but the mouse
    // button events may be taken for one.
    QResizeEvent resize(title->size(), title->size());
    QApplication::sendEvent(title, &resize);
    QEvent enter(QEvent::Enter);
    QApplication::sendEvent(title, &enter);
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(title, &leave);
    title->repaint();
    QCOMPARE(window.pos(), start);

    // A right-button drag moves nothing.
    const QPoint grab(20, 10);
    sendMouse(title, QEvent::MouseButtonPress, grab, Qt::RightButton, Qt::RightButton);
    sendMouse(title, QEvent::MouseMove, grab + QPoint(40, 40), Qt::NoButton, Qt::RightButton);
    sendMouse(title, QEvent::MouseButtonRelease, grab + QPoint(40, 40), Qt::RightButton, Qt::NoButton);
    QCOMPARE(window.pos(), start);

    // A left-button drag moves the window by the distance dragged ...
    sendMouse(title, QEvent::MouseButtonPress, grab, Qt::LeftButton, Qt::LeftButton);
    const QPoint grabGlobal = title->mapToGlobal(grab);
    QMouseEvent move(QEvent::MouseMove, grab + QPoint(30, 20), grabGlobal + QPoint(30, 20), Qt::NoButton,
                     Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(title, &move);
    QTRY_COMPARE(window.pos(), start + QPoint(30, 20));
    QMouseEvent release(QEvent::MouseButtonRelease, grab, grabGlobal + QPoint(30, 20), Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(title, &release);

    // ... and stops with the release.
    QMouseEvent hover(QEvent::MouseMove, grab, grabGlobal + QPoint(200, 200), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier);
    QApplication::sendEvent(title, &hover);
    QCOMPARE(window.pos(), start + QPoint(30, 20));
}

void TestMainWindow::closeHidesWindowAndEveryEndShutsTheLibraryDownOnce() {
    LogCapture log;
    {
        OrvixUpgrade window(nullptr);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QVERIFY(window.close());
        QVERIFY(!window.isVisible());
        QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
        QCOMPARE(log.count(kLibraryShutDownLine), 1);
    }
    // Closing ended the library already: the destructor finds nothing to end.
    QCOMPARE(log.count(kLibraryShutDownLine), 1);

    // A window that goes without being closed (SIGTERM, quit()) ends the
    // library in its destructor, while QApplication still exists.
    {
        OrvixUpgrade window(nullptr);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
    }
    QCOMPARE(log.count(kLibraryShutDownLine), 2);
    QCOMPARE(log.countContaining("shut down after Qt ended"), 0);
}

QTEST_MAIN(TestMainWindow)
#include "test_main_window.moc"
