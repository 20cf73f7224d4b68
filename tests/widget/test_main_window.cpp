// The main window on its own: construction, showing, the command-line entry
// and closing.
#include <QtTest/QtTest>

#include <string>

#include "WidgetTestSupport.h"
#include "ui/OrvixUpgrade.h"

using qorquicomponents::OrvixUpgrade;

namespace {

using zvtest::LogCapture;

const std::string kEmptyIpLine = "[shortcutModeScreen] shortcutModeScreen return, because strIp is empty";
const std::string kConnectFailedCode = "0xF3200001";

}  // namespace

class TestMainWindow : public QObject {
    Q_OBJECT

private slots:
    void startsIdleAndShows();
    void shortcutRestoresWindowAndTracksCommandLineStart();
    void closeHidesWindow();
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

void TestMainWindow::closeHidesWindow() {
    OrvixUpgrade window(nullptr);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QVERIFY(window.close());
    QVERIFY(!window.isVisible());
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
}

QTEST_MAIN(TestMainWindow)
#include "test_main_window.moc"
