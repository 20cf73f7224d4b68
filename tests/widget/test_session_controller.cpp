// The main window as session controller: its state rules for connecting,
// the connect result and stopping, log-out, the failures that reach it, the
// exception dispatcher and the library callbacks. Where a test needs the
// library to answer it uses the real one; codes that no panel has make it
// fail the way a wrong code does.
#include <QtTest/QtTest>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "WidgetTestSupport.h"
#include "casting/ErrorCodes.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ControlBall.h"
#include "ui/ExceptionCallBack.h"
#include "ui/LibraryCallbacks.h"
#include "ui/MirroringCheck.h"
#include "ui/OrvixUpgrade.h"
#include "ui/RequestThreads.h"
#include "ui/TipWindows.h"
#include "ui/widgets/LoadingWidget.h"
#include "ui_OrvixUpgrade.h"

using qorquicomponents::ConnectPage;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::ScreenPage;
using qorquicomponents::TipWindows;

namespace {

const std::string kRefusedLine =
    "[onStartConnect] Start code connect fail, because the current state is not NormalStatus.";
const std::string kNoNetworkLine = "[onStartConnect] Start code connect fail, because there is on network.";
const std::string kFailLine = "[onConnectResult] Connect screen fail, ProjectOrShareReqResult::FAIL finish";

bool isZero(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0) return false;
    }
    return true;
}

tagDeviceListUnitInfo_ panelRecord(const char* name) {
    tagDeviceListUnitInfo_ record{};
    std::memset(&record, 'x', sizeof record);
    std::strncpy(record.szName, name, sizeof record.szName - 1);
    record.szName[sizeof record.szName - 1] = '\0';
    std::strcpy(record.szConnectCode, "AB12CD34");
    return record;
}

tagNotifyExceptionParams_ paramsWith(int subCode, const char* reason) {
    tagNotifyExceptionParams_ params{};
    params.nSubCode = subCode;
    std::strncpy(params.szReason, reason, sizeof params.szReason - 1);
    return params;
}

// The network interface the test namespace has, when there is one.
const char* testInterface() { return std::getenv("ZV_TEST_NETNS_INTERFACE"); }

bool setInterfaceUp(bool up) {
    const std::string command =
        std::string("ip link set ") + testInterface() + (up ? " up" : " down") + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

}  // namespace

class TestSessionController : public QObject {
    Q_OBJECT

private slots:
    void cleanup();
    void constructionWiresPagesThreadsAndTypes();
    void connectIsRefusedInEveryBusyState();
    void connectWithoutNetworkRaisesTheNoNetworkTip();
    void failResultClearsThePanelAndReturnsToIdle();
    void successFromTheConnectPageShowsTheConnectedViewUntilStopped();
    void stopAfterAConnectFromTheScreenPageReturnsToTheScreenPage();
    void wrongCodesThroughTheLibraryComeBackAsTips();
    void logOutAndLogoutByTheMainWindowsState();
    void exceptionDispatcherClassifiesEvents();
    void libraryCallbacksIgnoreANullUser();
    void requestThreadsWithoutControllerDoNothing();

private:
    static OrvixUpgrade* shown(OrvixUpgrade& window) {
        window.show();
        if (!QTest::qWaitForWindowExposed(&window)) return nullptr;
        return &window;
    }
    static QWidget* currentPage(OrvixUpgrade& window) { return window.ui->stackedWidget->currentWidget(); }
    static void setState(OrvixUpgrade& window, unsigned state) { window.m_screenStatus = state; }
    static void waitIdle(OrvixUpgrade& window) {
        QTRY_VERIFY_WITH_TIMEOUT(!window.m_connectThread->isRunning(), 30000);
        QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 30000);
    }
};

void TestSessionController::cleanup() {
    TipWindows::getInstance()->hide();
    if (testInterface() != nullptr) setInterfaceUp(true);
}

void TestSessionController::constructionWiresPagesThreadsAndTypes() {
    OrvixUpgrade window(nullptr);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(window.getConnectPage() != nullptr);
    QVERIFY(window.getScreenPage() != nullptr);
    QCOMPARE(currentPage(window), window.getConnectPage());
    QCOMPARE(window.getTitleBtnStatus(), static_cast<int>(OrvixUpgrade::TitleConnectPage));
    QCOMPARE(window.ui->connectTitleBtn->property("select").toString(), QStringLiteral("down"));
    QCOMPARE(window.m_hideControlBallTimer->interval(), 2000);
    QVERIFY(window.m_controlBall->isHidden());
    QVERIFY(window.m_exceptionCallBack != nullptr);
    QVERIFY(window.ui->virtualDeviceWidget->isHidden());
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(window.m_loginHandle, -1L);

    // Each request thread is the controller's child.
    for (QThread* thread : std::vector<QThread*>{window.m_screenThread, window.m_startShareThread,
                                                 window.m_connectThread, window.m_fileScreenThread}) {
        QVERIFY(thread != nullptr);
        QCOMPARE(thread->parent(), &window);
        QVERIFY(!thread->isRunning());
    }
    for (const char* name : {"DEVICE_LISTUNIT_INFO_S", "VersionInfo&", "ProjectOrShareReqResult",
                             "ScreeningWindowStatus", "HighUsageTipType"}) {
        QVERIFY2(QMetaType::type(name) != QMetaType::UnknownType, name);
    }
}

void TestSessionController::connectIsRefusedInEveryBusyState() {
    zvtest::LogCapture log;
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network, so every connect stops earlier");

    int refused = 0;
    for (unsigned state = OrvixUpgrade::ScreeningStatus; state <= OrvixUpgrade::ConnectedStatus; ++state) {
        setState(window, state);
        window.m_loading->showLoading();
        window.onStartConnect(QStringLiteral("AB12CD34"));
        ++refused;
        QCOMPARE(window.getCurrentStatus(), state);
        QVERIFY(!window.isLoadingShown());
        QVERIFY(!window.m_connectThread->isRunning());
        QCOMPARE(log.count(kRefusedLine), refused);
    }
    setState(window, OrvixUpgrade::NormalStatus);
}

void TestSessionController::connectWithoutNetworkRaisesTheNoNetworkTip() {
    if (testInterface() == nullptr) QSKIP("needs the test's own network namespace (run as root through ctest)");
    zvtest::LogCapture log;
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));
    QVERIFY(!window.getLocalNetworkStatus());

    QVERIFY(setInterfaceUp(false));
    QVERIFY(window.getLocalNetworkStatus());
    window.m_loading->showLoading();
    window.onStartConnect(QStringLiteral("AB12CD34"));
    QCOMPARE(log.count(kNoNetworkLine), 1);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!window.isLoadingShown());
    QVERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(),
             QStringLiteral("There is no network at present, please check and try again"));

    QVERIFY(setInterfaceUp(true));
    QVERIFY(!window.getLocalNetworkStatus());
}

void TestSessionController::failResultClearsThePanelAndReturnsToIdle() {
    zvtest::LogCapture log;
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));

    setState(window, OrvixUpgrade::CodeConnectingStatus);
    window.m_deviceInfo = panelRecord("Room A");
    window.m_windowScreenInfo.nWindowId = 77;
    window.m_hostName = "pc-1";
    window.m_isScreenPageConnect = true;
    window.getScreenPage()->setCurrentScreenStatus(3);
    window.m_loading->showLoading();

    // A value other than SUCCESS and FAIL only ends the waiting display.
    const tagDeviceListUnitInfo_ record = window.m_deviceInfo;
    std::thread([&window, record] { emit window.signalConnectResult(WAIT_AUTHORIZATION, record); }).join();
    QTRY_VERIFY(!window.isLoadingShown());
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeConnectingStatus));
    QCOMPARE(window.m_hostName, std::string("pc-1"));

    // FAIL, queued from the worker's thread.
    window.m_loading->showLoading();
    std::thread([&window, record] { emit window.signalConnectResult(FAIL, record); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(isZero(&window.m_deviceInfo, 292));
    QCOMPARE(window.m_deviceInfo.szConnectCode[0], '\0');
    QVERIFY(isZero(&window.m_windowScreenInfo, sizeof window.m_windowScreenInfo));
    QVERIFY(window.m_hostName.empty());
    QVERIFY(!window.m_isScreenPageConnect);
    QCOMPARE(window.getScreenPage()->getCurrentScreenStatus(), 0);
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(log.count(kFailLine), 1);
}

void TestSessionController::successFromTheConnectPageShowsTheConnectedViewUntilStopped() {
    zvtest::LogCapture log;
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));
    ConnectPage* page = window.getConnectPage();
    auto* connectWidget = page->findChild<QWidget*>(QStringLiteral("connectWidget"));

    setState(window, OrvixUpgrade::CodeConnectingStatus);
    window.m_isConnectPageEnter = true;
    window.m_deviceInfo = panelRecord("Room B");
    window.m_loading->showLoading();
    const tagDeviceListUnitInfo_ record = window.m_deviceInfo;
    std::thread([&window, record] { emit window.signalConnectResult(SUCCESS, record); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QCOMPARE(log.count("[onConnectResult] Connect success."), 1);
    QCOMPARE(currentPage(window), page);
    QVERIFY(connectWidget->isVisible());
    QVERIFY(window.ui->titleBtnGroup->isHidden());
    // The "File Screen" entry casts over the connection.
    QVERIFY(page->isFileCastEnabled());
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(std::string(MirroringCheck::displayInfo().szName), std::string("Room B"));

    // Connected: a second connect is refused.
    window.onStartConnect(QStringLiteral("AB12CD34"));
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));

    // "disconnect" ends it and brings the code entry back.
    window.m_loginHandle = -1;
    QTest::mouseClick(page->findChild<QPushButton*>(QStringLiteral("disconnectBtn")), Qt::LeftButton);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QCOMPARE(log.count("[onStopConnect] Stop connect m_isConnectPageEnter: 1"), 1);
    QCOMPARE(currentPage(window), page);
    QCOMPARE(window.getTitleBtnStatus(), static_cast<int>(OrvixUpgrade::TitleConnectPage));
    QVERIFY(!connectWidget->isVisible());
    QVERIFY(page->getConnectCodeEdit()->isVisible());
    QVERIFY(!window.ui->titleBtnGroup->isHidden());
    QVERIFY(isZero(&window.m_deviceInfo, sizeof window.m_deviceInfo));
    QCOMPARE(MirroringCheck::displayInfo().szName[0], '\0');
    QVERIFY(!window.m_isConnectPageEnter);
}

void TestSessionController::stopAfterAConnectFromTheScreenPageReturnsToTheScreenPage() {
    zvtest::LogCapture log;
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));
    ScreenPage* screenPage = window.getScreenPage();

    // As onStartConnect leaves it for a connect from the screen page.
    setState(window, OrvixUpgrade::CodeConnectingStatus);
    window.m_isScreenPageConnect = true;
    window.m_isConnectPageEnter = false;
    window.ui->stackedWidget->setCurrentWidget(screenPage);
    const tagDeviceListUnitInfo_ record = panelRecord("Room C");
    std::thread([&window, record] { emit window.signalConnectResult(SUCCESS, record); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QCOMPARE(screenPage->selectWindowRequests(), 1);
    QCOMPARE(currentPage(window), screenPage);
    QVERIFY(!window.ui->titleBtnGroup->isHidden());

    window.onStopConnect();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QCOMPARE(log.count("[onStopConnect] Stop connect m_isConnectPageEnter: 0"), 1);
    QCOMPARE(currentPage(window), screenPage);
    QCOMPARE(window.getTitleBtnStatus(), static_cast<int>(OrvixUpgrade::TitleScreenPage));
    QCOMPARE(window.ui->screenTitleBtn->property("select").toString(), QStringLiteral("down"));
    QCOMPARE(window.ui->connectTitleBtn->property("select").toString(), QStringLiteral("up"));
    QVERIFY(!window.m_isScreenPageConnect);
}

void TestSessionController::wrongCodesThroughTheLibraryComeBackAsTips() {
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");
    TipWindows* tip = TipWindows::getInstance();

    // A five-character code no panel has, typed on the connect page.
    QLineEdit* edit = window.getConnectPage()->getConnectCodeEdit();
    edit->setFocus();
    QTRY_VERIFY(edit->hasFocus());
    QTest::keyClicks(edit, QStringLiteral("qqqq7"));
    QTest::mouseClick(window.getConnectPage()->getStartConnectBtn(), Qt::LeftButton);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeConnectingStatus));
    QVERIFY(window.isLoadingShown());
    QVERIFY(window.m_isConnectPageEnter);
    waitIdle(window);
    QTRY_VERIFY_WITH_TIMEOUT(tip->isVisible(), 10000);
    QCOMPARE(tip->displayText(), QStringLiteral("Passcode input error"));
    QVERIFY(!window.isLoadingShown());
    QVERIFY(isZero(&window.m_codeServerInfo, sizeof window.m_codeServerInfo));

    // A four-character passcode goes to the configured passcode server; none
    // answers on this port.
    tip->hide();
    {
        zvtest::PasscodeServerScope server("127.0.0.1", "9");
        edit->clear();
        QTest::keyClicks(edit, QStringLiteral("zz99"));
        QTest::keyClick(edit, Qt::Key_Return);
        QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeConnectingStatus));
        waitIdle(window);
    }
    QCOMPARE(std::string(window.m_codeServerInfo.szIp), std::string("127.0.0.1"));
    QCOMPARE(window.m_codeServerInfo.nPort, 9);
    QTRY_VERIFY_WITH_TIMEOUT(tip->isVisible(), 10000);
    QCOMPARE(tip->displayText(), QStringLiteral("Get infomation from passcode server fail, please check and try again"));

    // From the screen page in window mode: the code comes from its entry and
    // the failure clears the screen-page mark.
    tip->hide();
    window.getScreenPage()->setScreenModle(3);
    window.getScreenPage()->getScreenCodeEdit()->setText(QStringLiteral("QQQQ8"));
    QTest::mouseClick(window.getScreenPage()->getStartScreenBtn(), Qt::LeftButton);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeConnectingStatus));
    QVERIFY(!window.m_isConnectPageEnter);
    QVERIFY(window.m_isScreenPageConnect);
    QCOMPARE(window.m_strConnectCode, QStringLiteral("QQQQ8"));
    waitIdle(window);
    QVERIFY(!window.m_isScreenPageConnect);
    QTRY_VERIFY_WITH_TIMEOUT(tip->isVisible(), 10000);
    QCOMPARE(tip->displayText(), QStringLiteral("Passcode input error"));
}

void TestSessionController::logOutAndLogoutByTheMainWindowsState() {
    OrvixUpgrade window(nullptr);
    QVERIFY(shown(window));

    window.m_loginHandle = 12;
    window.m_sessionHandle = 1;
    window.logOut();
    QCOMPARE(window.m_loginHandle, -1L);
    QCOMPARE(window.m_sessionHandle, -1L);
    window.logOut();
    QCOMPARE(window.m_loginHandle, -1L);

    // Idle: nothing happens.
    window.onLogout();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));

    // Connected: the connection ends.
    setState(window, OrvixUpgrade::ConnectedStatus);
    window.onLogout();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));

    // A request in flight ends only when the connect page is shown ...
    setState(window, OrvixUpgrade::CodeReverseRequestStatus);
    window.ui->stackedWidget->setCurrentWidget(window.getConnectPage());
    window.onLogout();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));

    // ... otherwise it is only logged out.
    setState(window, OrvixUpgrade::KLUFScreenRequestStatus);
    window.ui->stackedWidget->setCurrentWidget(window.getScreenPage());
    window.m_loginHandle = 3;
    window.onLogout();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::KLUFScreenRequestStatus));
    QCOMPARE(window.m_loginHandle, -1L);
    setState(window, OrvixUpgrade::NormalStatus);

    // The panel removing the client: 32793 from a library thread ends the
    // connection and explains why.
    setState(window, OrvixUpgrade::ConnectedStatus);
    tagNotifyExceptionParams_ params = paramsWith(0, "logOutByServer");
    std::thread([&window, &params] { exceptionCallBackFun(NOTIFY_LOGOUT, &params, &window); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("You have been removed from the screen"));

    // Missed heartbeats while connected end the connection too.
    setState(window, OrvixUpgrade::ConnectedStatus);
    params = paramsWith(5, "");
    std::thread([&window, &params] { exceptionCallBackFun(NOTIFY_HEARTBEAT_MISSED, &params, &window); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
}

void TestSessionController::exceptionDispatcherClassifiesEvents() {
    OrvixUpgrade window(nullptr);
    ExceptionCallBack dispatcher;
    QStringList events;
    connect(&window, &OrvixUpgrade::signalLogout, this, [&events] { events << QStringLiteral("logout"); },
            Qt::DirectConnection);
    connect(&window, &OrvixUpgrade::signalMainErrorCode, this,
            [&events](unsigned int code) { events << QStringLiteral("code %1").arg(code, 0, 16); },
            Qt::DirectConnection);
    connect(&window, &OrvixUpgrade::signalCallbackException, this,
            [&events](unsigned int type) { events << QStringLiteral("exception %1").arg(type); },
            Qt::DirectConnection);
    // The controller's own handling is not under test here.
    disconnect(&window, &OrvixUpgrade::signalLogout, &window, nullptr);
    disconnect(&window, &OrvixUpgrade::signalMainErrorCode, &window, nullptr);
    disconnect(&window, &OrvixUpgrade::signalCallbackException, &window, nullptr);

    tagNotifyExceptionParams_ removed = paramsWith(0, "logOutByServer");
    QCOMPARE(dispatcher.callBackException(NOTIFY_LOGOUT, &removed, &window), 0L);
    QCOMPARE(events, QStringList({"logout", "code f3202004"}));
    events.clear();
    tagNotifyExceptionParams_ other = paramsWith(0, "sessionReplaced");
    dispatcher.callBackException(NOTIFY_LOGOUT, &other, &window);
    QCOMPARE(events, QStringList({"logout", "code f3200006"}));
    events.clear();

    // Heartbeats: fewer than five missed are ignored.
    tagNotifyExceptionParams_ four = paramsWith(4, "");
    dispatcher.callBackException(NOTIFY_HEARTBEAT_MISSED, &four, &window);
    QVERIFY(events.isEmpty());
    tagNotifyExceptionParams_ five = paramsWith(5, "");
    dispatcher.callBackException(NOTIFY_HEARTBEAT_MISSED, &five, &window);
    QCOMPARE(events, QStringList({"exception 32829"}));
    events.clear();

    // The reconnecting flag follows the watchdog's reports.
    QVERIFY(!dispatcher.isReconnecting());
    dispatcher.callBackException(NOTIFY_RECONNECTING, &four, &window);
    QVERIFY(dispatcher.isReconnecting());
    dispatcher.callBackException(NOTIFY_RECONNECTED, &four, &window);
    QVERIFY(!dispatcher.isReconnecting());
    dispatcher.callBackException(NOTIFY_RECONNECTING, &four, &window);
    dispatcher.callBackException(NOTIFY_RECONNECT_FAILED, &four, &window);
    QVERIFY(!dispatcher.isReconnecting());
    QCOMPARE(events, QStringList({"exception 32802", "exception 32803", "exception 32802", "exception 32801"}));
    events.clear();

    // Other types go on unchanged; a null user or record emits nothing.
    dispatcher.callBackException(NOTIFY_NO_BITSTREAM, nullptr, &window);
    QCOMPARE(events, QStringList({"exception 32770"}));
    events.clear();
    QCOMPARE(dispatcher.callBackException(NOTIFY_LOGOUT, &removed, nullptr), 0L);
    dispatcher.callBackException(NOTIFY_HEARTBEAT_MISSED, &five, nullptr);
    dispatcher.callBackException(NOTIFY_RECONNECTING, &five, nullptr);
    QVERIFY(events.isEmpty());
    QVERIFY(dispatcher.isReconnecting());
}

void TestSessionController::libraryCallbacksIgnoreANullUser() {
    OrvixUpgrade window(nullptr);
    QSignalSpy delays(&window, &OrvixUpgrade::signalSetDelayWhenUseTCP);
    QSignalSpy codes(&window, &OrvixUpgrade::signalMainErrorCode);
    QSignalSpy exceptions(&window, &OrvixUpgrade::signalCallbackException);
    disconnect(&window, &OrvixUpgrade::signalMainErrorCode, &window, nullptr);
    disconnect(&window, &OrvixUpgrade::signalCallbackException, &window, nullptr);

    tagNotifyExceptionParams_ params{};
    int x = 10, y = 20;
    MOUSESTATUS status = MOUSE_STATUS_HIDDEN;
    bool visible = false;
    CtrlMouseInfo_S action("touchDown", 1, 2, 3);
    QCOMPARE(pingDataCallback(true, "tcp", 12, nullptr), -1L);
    errorCallbackFunc(0xF3200001, nullptr);
    QCOMPARE(exceptionCallBackFun(NOTIFY_NO_BITSTREAM, &params, nullptr), -1L);
    captureMouseCallback(x, y, status, nullptr, visible);
    QCOMPARE(reverseControlCallback(&action, true, 0, 0, nullptr), -1);
    QCOMPARE(delays.count(), 0);
    QCOMPARE(codes.count(), 0);
    QCOMPARE(exceptions.count(), 0);
    QCOMPARE(status, MOUSE_STATUS_HIDDEN);
    QVERIFY(!visible);
    int token = 0;
    QCOMPARE(pushMouseCallBack(&token, 1, 2, 3), static_cast<void*>(&token));

    // With the window as user they reach it.
    QCOMPARE(pingDataCallback(true, "tcp", 12, &window), 0L);
    errorCallbackFunc(0xF3201000, &window);
    QCOMPARE(exceptionCallBackFun(NOTIFY_NO_BITSTREAM, &params, &window), 0L);
    captureMouseCallback(x, y, status, &window, visible);
    QCOMPARE(reverseControlCallback(&action, true, 0, 0, &window), 0);
    QCOMPARE(delays.count(), 1);
    QCOMPARE(delays.at(0).at(0).toInt(), 12);
    QCOMPARE(codes.count(), 1);
    QCOMPARE(codes.at(0).at(0).toUInt(), 0xF3201000u);
    QCOMPARE(exceptions.count(), 1);
    QCOMPARE(status, MOUSE_STATUS_NORMAL);
    QCOMPARE(x, 10);
}

void TestSessionController::requestThreadsWithoutControllerDoNothing() {
    qorquicomponents::ConnectThread connectThread(nullptr, nullptr);
    qorquicomponents::ScreenThread screenThread(nullptr, nullptr);
    qorquicomponents::StartShareThread shareThread(nullptr, nullptr);
    qorquicomponents::FileScreenThread fileThread(nullptr, nullptr);
    for (QThread* thread : std::vector<QThread*>{&connectThread, &screenThread, &shareThread, &fileThread}) {
        QSignalSpy finished(thread, &QThread::finished);
        thread->start();
        QVERIFY(thread->wait(10000));
        QTRY_COMPARE(finished.count(), 1);
    }
}

QTEST_MAIN(TestSessionController)
#include "test_session_controller.moc"
