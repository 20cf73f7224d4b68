// The main window's screen casting flow without a panel: the start checks,
// the request worker against the real library (which refuses when nothing is
// logged in), the answers of the request (failure, waiting, success) and
// the stop, the sound and reverse-control requests, the live statistics,
// the restart after a change of resolution, and remote input on a private
// X server when one can be started.
#include <QtTest/QtTest>

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>

#include <X11/Xlib.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "BusinessModule/ScreenBusiness/ScreenControl.h"
#include "WidgetTestSupport.h"
#include "XvfbSession.h"
#include <QTemporaryDir>
#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/ErrorCodes.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/DynamicWindow.h"
#include "ui/LibraryCallbacks.h"
#include "ui/OrvixUpgrade.h"
#include "ui/PopupWindow.h"
#include "ui/RequestThreads.h"
#include "ui/ScreenChangeWatcher.h"
#include "ui/TipWindows.h"
#include "ui/widgets/LoadingWidget.h"
#include "ui/widgets/SwitchButton.h"
#include "ui_OrvixUpgrade.h"

using qorquicomponents::OrvixUpgrade;
using qorquicomponents::PopupWindow;
using qorquicomponents::ScreenPage;
using qorquicomponents::TipWindows;

namespace {

const std::string kBusyLine =
    "[onStartCodeScreen] Start code screen fail, because the current state is not NormalStatus.";
const std::string kNoNetworkLine = "[onStartCodeScreen] Start code screen fail, because there is on network.";
const std::string kFailLine = "[onScreenRequestResult] Request screen fail, ProjectOrShareReqResult::FAIL finish";
const std::string kStopRefusedLine =
    "[onStopScreen] Stop screen fail, because the current state is not ScreeningStatus.";

bool isZero(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0) return false;
    }
    return true;
}

const char* testInterface() { return std::getenv("ZV_TEST_NETNS_INTERFACE"); }

const std::string kAddressChangedLine = "[checkSysIPAddrChange] the PC's network address changed during the cast";

// The scheduler state ('R', 'S', ...) of this process's thread called name; 0 without one.
char threadState(const std::string& name) {
    const QDir tasks(QStringLiteral("/proc/self/task"));
    for (const QString& tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile comm(tasks.filePath(tid + QStringLiteral("/comm")));
        if (!comm.open(QIODevice::ReadOnly) || comm.readAll().trimmed().toStdString() != name) continue;
        QFile stat(tasks.filePath(tid + QStringLiteral("/stat")));
        if (!stat.open(QIODevice::ReadOnly)) return 0;
        const QByteArray line = stat.readAll();
        // The state follows the parenthesised name, which may hold spaces.
        const int close = line.lastIndexOf(')');
        return close >= 0 && close + 2 < line.size() ? line.at(close + 2) : 0;
    }
    return 0;
}

bool setInterfaceUp(bool up) {
    const std::string command =
        std::string("ip link set ") + testInterface() + (up ? " up" : " down") + " >/dev/null 2>&1";
    return std::system(command.c_str()) == 0;
}

}  // namespace

class TestScreenCast : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void startIsCheckedByNetworkAndState();
    void theWorkerAsksTheLibraryAndAFailureEndsWhereItBegan();
    void aFailedAnswerCleansUpByHowTheCastBegan();
    void aGrantedRequestCastsAndTheStopRestoresTheWindow();
    void soundReverseAndPauseRequests();
    void statisticsFollowTheShowSettings();
    void aResolutionChangeRestartsTheCast();
    void remoteInputAndMonitorsOnAnXServer();
    void trayStateAboutBoxAndDiagnostics();

private:
    static void setState(OrvixUpgrade& window, unsigned state) { window.m_screenStatus = state; }
    static QWidget* currentPage(OrvixUpgrade& window) { return window.ui->stackedWidget->currentWidget(); }
    // The request worker's answer, queued from another thread.
    static void emitFromWorker(OrvixUpgrade& window, ProjectOrShareReqResult result) {
        const tagDeviceListUnitInfo_ record = window.m_deviceInfo;
        std::thread([&window, result, record] { emit window.signalScreenResult(result, record); }).join();
    }
    std::unique_ptr<OrvixUpgrade> m_window;
};

void TestScreenCast::init() {
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    config.updateScreenIsMute(1);
    config.updateScreenReverse(0);
    m_window = std::make_unique<OrvixUpgrade>(nullptr);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void TestScreenCast::cleanup() {
    if (m_window) {
        QTRY_VERIFY_WITH_TIMEOUT(!m_window->m_screenThread->isRunning(), 30000);
        QTRY_VERIFY_WITH_TIMEOUT(m_window->m_isStopAccepted, 30000);
        if (m_window->getDynamicWindow() != nullptr) m_window->getDynamicWindow()->close();
        setState(*m_window, OrvixUpgrade::NormalStatus);
    }
    m_window.reset();
    PopupWindow::getInstance()->hide();
    TipWindows::getInstance()->hide();
    if (testInterface() != nullptr) setInterfaceUp(true);
}

void TestScreenCast::startIsCheckedByNetworkAndState() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network, so every start stops earlier");
    int refused = 0;
    for (unsigned state = OrvixUpgrade::ScreeningStatus; state < OrvixUpgrade::ConnectedStatus; ++state) {
        setState(window, state);
        window.m_loading->showLoading();
        window.onStartCodeScreen(QStringLiteral("AB12CD34"));
        QCOMPARE(log.count(kBusyLine), ++refused);
        QCOMPARE(window.getCurrentStatus(), state);
        QVERIFY(!window.isLoadingShown());
        QVERIFY(!window.m_screenThread->isRunning());
    }
    setState(window, OrvixUpgrade::NormalStatus);

    if (testInterface() == nullptr) return;
    QVERIFY(setInterfaceUp(false));
    window.m_loading->showLoading();
    window.onStartCodeScreen(QStringLiteral("AB12CD34"));
    QCOMPARE(log.count(kNoNetworkLine), 1);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!window.isLoadingShown());
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(),
             QStringLiteral("There is no network at present, please check and try again"));
    QVERIFY(setInterfaceUp(true));
}

void TestScreenCast::theWorkerAsksTheLibraryAndAFailureEndsWhereItBegan() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");

    // While connected (here only by state: the library has no session) the
    // "Mirror Screen" entry asks at once; the library refuses and the
    // session stays connected.
    setState(window, OrvixUpgrade::ConnectedStatus);
    window.getConnectPage()->setConnectShow();
    window.getConnectPage()->findChild<QToolButton*>(QStringLiteral("mirrorScreenBtn"))->click();
    QVERIFY(window.isLoadingShown());
    QTRY_COMPARE_WITH_TIMEOUT(log.count(kFailLine), 1, 30000);
    QCOMPARE(log.count("[screenThreadFun] micracst request start."), 1);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QVERIFY(!window.isLoadingShown());
    QVERIFY(!window.m_isDisconnectAfterStop);
    // The encoder probe ran at start-up; the worker waits for it at most once.
    QVERIFY(window.m_hwProbe.isFinished());

    // From idle the worker logs in first; a code no panel has ends there.
    setState(window, OrvixUpgrade::NormalStatus);
    ScreenPage* page = window.getScreenPage();
    page->getScreenCodeEdit()->setText(QStringLiteral("QQQQ9"));
    page->getStartScreenBtn()->click();
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeScreenRequestStatus));
    QCOMPARE(page->getCurrentScreenStatus(), 1);
    QCOMPARE(window.m_strConnectCode, QStringLiteral("QQQQ9"));
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 30000);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("Passcode input error"));
    QCOMPARE(log.count("[screenThreadFun] micracst request start."), 1);
    QVERIFY(!window.m_isDisconnectAfterStop);
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(page->getCurrentScreenStatus(), 0);
}

void TestScreenCast::aFailedAnswerCleansUpByHowTheCastBegan() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    auto dirty = [&window] {
        std::memset(&window.m_deviceInfo, 'x', sizeof window.m_deviceInfo);
        window.m_windowScreenInfo.nWindowId = 42;
        window.m_hostName = "pc-1";
        window.m_isFileScreen = true;
        window.m_strFilePath = QStringLiteral("/tmp/a.mp4");
        window.getScreenPage()->setCurrentScreenStatus(1);
        window.m_loading->showLoading();
    };

    // Begun from idle: back to idle, the panel forgotten.
    dirty();
    setState(window, OrvixUpgrade::CodeScreenRequestStatus);
    window.m_isDisconnectAfterStop = true;
    emitFromWorker(window, FAIL);
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(isZero(&window.m_deviceInfo, 292));
    QVERIFY(isZero(&window.m_windowScreenInfo, sizeof window.m_windowScreenInfo));
    QVERIFY(window.m_hostName.empty());
    QVERIFY(!window.m_isDisconnectAfterStop);
    QVERIFY(!window.m_isFileScreen);
    QVERIFY(window.m_strFilePath.isEmpty());
    QCOMPARE(window.getScreenPage()->getCurrentScreenStatus(), 0);
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(log.count(kFailLine), 1);

    // Begun while connected: the connection and its panel stay.
    dirty();
    setState(window, OrvixUpgrade::CodeScreenRequestStatus);
    emitFromWorker(window, FAIL);
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QCOMPARE(window.m_deviceInfo.szName[0], 'x');
    QCOMPARE(window.m_hostName, std::string("pc-1"));
    QVERIFY(!window.m_isFileScreen);
    QCOMPARE(log.count(kFailLine), 2);

    // Begun from the command line: the failure is reported once and the
    // mark cleared.
    setState(window, OrvixUpgrade::KLUFScreenRequestStatus);
    window.m_isDisconnectAfterStop = true;
    window.m_isCommandLineStart = true;
    emitFromWorker(window, FAIL);
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QVERIFY(!window.isCommandLineStart());
    QCOMPARE(log.countContaining(" error code: 0xF3200001"), 1);
    QCOMPARE(log.count("[shortcutModeScreen] shortcutModeScreen return, because strIp is empty"), 1);

    // The panel asks its user: the waiting prompt, nothing else.
    setState(window, OrvixUpgrade::CodeScreenRequestStatus);
    emitFromWorker(window, WAIT_AUTHORIZATION);
    QTRY_VERIFY(PopupWindow::getInstance()->isVisible());
    QCOMPARE(PopupWindow::getInstance()->reason(), qorquicomponents::PopupReasonWaitAuthorization);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeScreenRequestStatus));
    // ... and says no: the same clean-up as a failure.
    tagNotifyExceptionParams_ denied{};
    std::strcpy(denied.szReason, "denied");
    std::thread([&window, &denied] { exceptionCallBackFun(NOTIFY_AUTHORIZATION_DENIED, &denied, &window); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QVERIFY(!PopupWindow::getInstance()->isVisible());
    QCOMPARE(log.count(kFailLine), 4);
    QTRY_COMPARE(TipWindows::getInstance()->displayText(),
                 QStringLiteral("Request denied,please check the screen permission settings"));
}

void TestScreenCast::aGrantedRequestCastsAndTheStopRestoresTheWindow() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    ScreenPage* page = window.getScreenPage();

    // A stop with nothing cast is refused and leaves everything as it was.
    setState(window, OrvixUpgrade::ConnectedStatus);
    window.onStopScreen();
    QCOMPARE(log.count(kStopRefusedLine), 1);
    QVERIFY(window.m_isStopAccepted);
    QVERIFY(!window.isLoadingShown());
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));

    // Waiting for the panel's user, who says yes.
    setState(window, OrvixUpgrade::CodeScreenRequestStatus);
    emitFromWorker(window, WAIT_AUTHORIZATION);
    QTRY_VERIFY(PopupWindow::getInstance()->isVisible());
    tagNotifyExceptionParams_ none{};
    std::thread([&window, &none] { exceptionCallBackFun(NOTIFY_AUTHORIZATION_GRANTED, &none, &window); }).join();
    QTRY_COMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus));
    QVERIFY(!PopupWindow::getInstance()->isVisible());
    QCOMPARE(currentPage(window), page);
    QVERIFY(page->isScreeningShown());
    QVERIFY(page->isAnimationRunning());
    QVERIFY(window.ui->titleBtnGroup->isHidden());
    QVERIFY(window.ui->deviceCountLab->isHidden());
    QTRY_VERIFY(window.windowState() & Qt::WindowMinimized);
    QVERIFY(!window.isCommandLineStart());
    QCOMPARE(log.count("[startWatchers] Thread start: Check whether the network IP address is changed"), 1);
    QCOMPARE(log.count("[startWatchers] Thread start: Detects native CPU and memory usage"), 1);
    QVERIFY(window.m_checkIpThread.joinable());
    // The address watcher sleeps in the kernel instead of turning a core.
    QTRY_COMPARE(threadState("zv-addr-watch"), 'S');
    if (testInterface() != nullptr) {
        // A new address and its removal are each logged once while casting.
        const std::string address = std::string(" 10.250.9.9/24 dev ") + testInterface() + " >/dev/null 2>&1";
        QCOMPARE(std::system(("ip addr add" + address).c_str()), 0);
        QTRY_COMPARE(log.countContaining(kAddressChangedLine), 1);
        QCOMPARE(std::system(("ip addr del" + address).c_str()), 0);
        QTRY_COMPARE(log.countContaining(kAddressChangedLine), 2);
        QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus));
    }
    // The stored choices are on the switches: sound on, reverse control off.
    QVERIFY(page->voiceButton()->isChecked());
    QVERIFY(page->reverseButton()->isChecked());

    // Stop: a second press while the first runs is ignored.
    page->stopButton()->click();
    QVERIFY(!window.m_isStopAccepted);
    QVERIFY(window.isLoadingShown());
    QVERIFY(!(window.windowState() & Qt::WindowMinimized));
    window.onStopScreen();
    QCOMPARE(log.count(kStopRefusedLine), 1);
    QTRY_VERIFY_WITH_TIMEOUT(window.m_isStopAccepted, 20000);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));
    QCOMPARE(log.count("[checkSysIPAddrChange] Thread stop: Check whether the network IP address is changed"), 1);
    QVERIFY(!window.m_checkIpThread.joinable());
    QVERIFY(!window.isLoadingShown());
    QVERIFY(!page->isScreeningShown());
    QVERIFY(!page->isAnimationRunning());
    QCOMPARE(page->getCurrentScreenStatus(), 0);
    QVERIFY(!window.ui->titleBtnGroup->isHidden());
    QVERIFY(!window.ui->deviceCountLab->isHidden());
    // The connect page was shown first and replaced by the screen page.
    QCOMPARE(currentPage(window), page);
    QVERIFY(window.getConnectPage()->findChild<QWidget*>(QStringLiteral("connectWidget"))->isVisibleTo(
        window.getConnectPage()));
    QCOMPARE(log.count("[onStopConnect] Stop connect m_isConnectPageEnter: 0"), 0);
}

void TestScreenCast::soundReverseAndPauseRequests() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    TipWindows* tip = TipWindows::getInstance();

    // Nothing is cast, so the library refuses: the choice stays as stored.
    window.onScreenVoiceRequest(true);
    QCOMPARE(log.count("[onScreenVoiceRequest] Screen voice(0:open  1:close): 1"), 1);
    QCOMPARE(log.count("[onScreenVoiceRequest] Request screen voice fail..."), 1);
    QTRY_VERIFY(tip->isVisible());
    QCOMPARE(tip->displayText(), QStringLiteral("Failed to turn on sound mirroring screen,please try again"));
    QCOMPARE(config.getScreenIsMute(), 1);

    tip->hide();
    window.onScreenReverseRequest(true);
    QCOMPARE(log.count("[onScreenReverseRequest] Request screen reverse control: 1"), 1);
    QCOMPARE(log.count("[onScreenReverseRequest] Request screen reverse fail..."), 1);
    QTRY_VERIFY(tip->isVisible());
    QCOMPARE(tip->displayText(), QStringLiteral("Failed to turn on reverse control,please try again"));
    QCOMPARE(config.getScreenReverse(), 0);

    // Pause toggles the controller's flag whatever the library says.
    window.onPauseScreen(true);
    QVERIFY(window.m_isPauseScreen);
    window.onPauseScreen(false);
    QVERIFY(!window.m_isPauseScreen);
    QCOMPARE(log.count("[onPauseScreen] Pause screen: 1"), 1);

    // Stored choices reach the switches of a new cast: sound off, control on.
    config.updateScreenIsMute(0);
    config.updateScreenReverse(1);
    ScreenPage* page = window.getScreenPage();
    window.screenConfigStatus();
    QVERIFY(!page->voiceButton()->isChecked());
    QVERIFY(!page->reverseButton()->isChecked());

    // The panel's answers move the switches during a cast.
    setState(window, OrvixUpgrade::ScreeningStatus);
    tagNotifyExceptionParams_ none{};
    std::thread([&window, &none] { exceptionCallBackFun(NOTIFY_VOICE_ON, &none, &window); }).join();
    QTRY_VERIFY(page->voiceButton()->isChecked());
    QCOMPARE(page->voiceButton()->iconStyleSheet(),
             qorquicomponents::SwitchButton::imageStyleFor(qorquicomponents::VoiceButtonStyle, true));
    std::thread([&window, &none] { exceptionCallBackFun(NOTIFY_REVERSE_CONTROL_OFF, &none, &window); }).join();
    QTRY_VERIFY(page->reverseButton()->isChecked());
    setState(window, OrvixUpgrade::NormalStatus);
}

void TestScreenCast::statisticsFollowTheShowSettings() {
    OrvixUpgrade& window = *m_window;
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    auto report = [&window](int bitRate, int frameRate, int delay, bool loss) {
        tagNotifyExceptionParams_ stats{};
        stats.nBitRateKbps = bitRate;
        stats.nFrameRate = frameRate;
        stats.nDelayMs = delay;
        stats.ucLoss = loss ? 1 : 0;
        std::thread([&window, &stats] { exceptionCallBackFun(NOTIFY_STREAM_STATISTICS, &stats, &window); }).join();
        QCoreApplication::processEvents();
    };
    auto show = [&config](int bitRate, int frameRate, int delay, int loss) {
        config.updateShowBitRate(bitRate);
        config.updateShowFrameRate(frameRate);
        config.updateShowDelay(delay);
        config.updateShowLossFraction(loss);
    };
    setState(window, OrvixUpgrade::ScreeningStatus);

    // All four switched off: nothing is shown.
    show(0, 0, 0, 0);
    report(2048, 30, 41, true);
    QCOMPARE(window.dynamicDisplayText(), QString());

    show(1, 0, 1, 0);
    report(2048, 30, 41, true);
    QTRY_COMPARE(window.dynamicDisplayText(), QStringLiteral("Bit rate: 2048 kbps   Delay: 41 ms"));

    show(1, 1, 1, 1);
    report(1500, 25, 12, false);
    QTRY_COMPARE(window.dynamicDisplayText(),
                 QStringLiteral("Bit rate: 1500 kbps   Frame rate: 25 fps   Delay: 12 ms   No packet loss"));
    report(1500, 25, 12, true);
    QTRY_VERIFY(window.dynamicDisplayText().endsWith(QStringLiteral("   Packet loss")));

    // Zeros clear the line; so does the end of the cast.
    window.onSetDynamicDisplayInfo(0, 0, 0, false);
    QCOMPARE(window.dynamicDisplayText(), QString());
    report(900, 20, 30, false);
    QTRY_VERIFY(!window.dynamicDisplayText().isEmpty());
    setState(window, OrvixUpgrade::ConnectedStatus);
    report(900, 20, 30, false);
    QTRY_COMPARE(window.dynamicDisplayText(), QString());
    show(0, 0, 0, 0);
    setState(window, OrvixUpgrade::NormalStatus);
}

void TestScreenCast::aResolutionChangeRestartsTheCast() {
    zvtest::LogCapture log;
    OrvixUpgrade& window = *m_window;
    if (window.getLocalNetworkStatus()) QSKIP("this machine has no network");

    // Nothing cast: only remote input is opened again.
    window.onRestartMirroring();
    QVERIFY(window.getDynamicWindow() == nullptr);
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));

    // Casting (as far as the controller knows) to a panel at an address
    // where nothing answers: the cast is stopped, and started again through
    // the panel's address, which then fails.
    setState(window, OrvixUpgrade::ScreeningStatus);
    std::strcpy(window.m_deviceInfo.szAddress, "127.0.0.1");
    std::strcpy(window.m_deviceInfo.szConnectCode, "OLDCODE1");
    window.onRestartMirroring();
    QCOMPARE(log.count("[onRestartMirroring]StopScreen: Resolution change."), 1);
    qorquicomponents::DynamicWindow* notice = window.getDynamicWindow();
    QVERIFY(notice != nullptr);
    QCOMPARE(notice->iconName(), QStringLiteral("warning"));
    QCOMPARE(notice->titleText(), QStringLiteral("Resolution changes"));
    QCOMPARE(notice->messageText(), QStringLiteral("The client resolution has been modified and will be re displayed"));
    QCOMPARE(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::KLUFScreenRequestStatus));
    QCOMPARE(window.m_restartDevice.detail, QStringLiteral("127.0.0.1"));
    QCOMPARE(window.m_restartDevice.connectCode, QStringLiteral("OLDCODE1"));
    // The new request waits for the stop, then goes to the address alone.
    QTRY_VERIFY_WITH_TIMEOUT(window.m_isStopAccepted, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(log.countContaining("[onStopConnect]"), 1, 30000);
    QCOMPARE(log.countContaining("[logIn] log in to 127.0.0.1"), 1);
    QTRY_COMPARE_WITH_TIMEOUT(window.getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus), 30000);
}

void TestScreenCast::remoteInputAndMonitorsOnAnXServer() {
    // The arithmetic first: it needs no X server.
    QCOMPARE(ScreenControl::mapWholeScreen(65535, 65535, 1920, 1080), QPoint(1920, 1080));
    QCOMPARE(ScreenControl::mapWholeScreen(32768, 0, 1920, 1080), QPoint(960, 0));
    QCOMPARE(ScreenControl::windowZoom(1920, 1080, 2500, 1200), 1.0);
    QCOMPARE(ScreenControl::windowZoom(1920, 1080, 640, 360), 3.0);
    QCOMPARE(ScreenControl::windowZoom(1920, 1080, 700, 500), 2.0);
    // A third of the screen, centred: the panel's middle is the window's.
    const QRect third(640, 360, 640, 360);
    QCOMPARE(ScreenControl::mapWindow(32768, 32768, 1920, 1080, third), QPoint(960, 540));
    int x = -7, y = -7;
    QVERIFY(!ScreenControl::windowPointToPanel(10, 10, 1920, 1080, third, x, y));
    QCOMPARE(x, -7);
    QVERIFY(ScreenControl::windowPointToPanel(960, 540, 1920, 1080, third, x, y));
    QCOMPARE(QPoint(x, y), QPoint(32767, 32767));
    // Wheel gestures: one notch per five events, by the direction of travel.
    ScreenControl::resetWheel();
    for (int i = 0; i < 4; ++i) QCOMPARE(ScreenControl::wheelStep(100 + i), 0);
    QCOMPARE(ScreenControl::wheelStep(200), 4);
    for (int i = 0; i < 4; ++i) QCOMPARE(ScreenControl::wheelStep(300 - i), 0);
    QCOMPARE(ScreenControl::wheelStep(100), 5);

    // Without a display the watcher does not start.
    const QByteArray display = qgetenv("DISPLAY");
    qunsetenv("DISPLAY");
    qorquicomponents::ScreenChangeWatcher idle;
    QVERIFY(!idle.start());
    QVERIFY(qorquicomponents::ScreenChangeWatcher::readMonitorLayout().screen.isEmpty());

    if (std::system("command -v Xvfb >/dev/null 2>&1") != 0) QSKIP("no Xvfb");
    zvtest::XvfbSession xvfb("1024x768x24");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QVERIFY(xvfb.ready());
    const qorquicomponents::MonitorLayout layout = qorquicomponents::ScreenChangeWatcher::readMonitorLayout();
    QCOMPARE(layout.monitors, 1);
    QCOMPARE(layout.screen, QSize(1024, 768));
    m_window->getAllScreenResolution();
    int width = 0, height = 0;
    BusinessSettings::getInstance().getRealCapResolution(width, height);
    QCOMPARE(QSize(width, height), QSize(1024, 768));
    QCOMPARE(BusinessSettings::getInstance().getScreenMode(), 1);
    BusinessSettings::getInstance().restoreDefault();

    qorquicomponents::ScreenChangeWatcher watcher;
    QVERIFY(watcher.start());
    QVERIFY(watcher.isRunning());
    watcher.stop();
    QVERIFY(!watcher.isRunning());

    // The panel's touches move and press this screen's pointer.
    QVERIFY(ScreenControl::initReverseControl());
    ScreenControl::setScreenWindowHWND(0);
    Display* x11 = xvfb.connection();
    auto pointer = [x11](unsigned int* mask) {
        Window root = 0, child = 0;
        int rootX = 0, rootY = 0, winX = 0, winY = 0;
        XQueryPointer(x11, DefaultRootWindow(x11), &root, &child, &rootX, &rootY, &winX, &winY, mask);
        return QPoint(rootX, rootY);
    };
    unsigned int mask = 0;
    ScreenControl::linuxReverseControl(32768, 16384, "touchDown");
    QTRY_COMPARE(pointer(&mask), QPoint(512, 192));
    QVERIFY(mask & Button1Mask);
    ScreenControl::linuxReverseControl(16384, 16384, "touchMove");
    QTRY_COMPARE(pointer(&mask), QPoint(256, 192));
    ScreenControl::linuxReverseControl(16384, 16384, "mouseRightDown");
    QTRY_VERIFY((pointer(&mask), mask & Button3Mask));
    QVERIFY(!(mask & Button1Mask));
    ScreenControl::linuxReverseControl(16384, 16384, "mouseRightUp");
    QTRY_VERIFY((pointer(&mask), !(mask & Button3Mask)));
    ScreenControl::linuxReverseControl(0, 0, "touchUp");
    QTRY_COMPARE(pointer(&mask), QPoint(0, 0));
    ScreenControl::unInitReverseControl();
    QVERIFY(!ScreenControl::hasDisplay());
    if (display.isEmpty()) {
        qunsetenv("DISPLAY");
    } else {
        qputenv("DISPLAY", display);
    }
}

QTEST_MAIN(TestScreenCast)
void TestScreenCast::trayStateAboutBoxAndDiagnostics() {
    OrvixUpgrade& window = *m_window;
    // The tray names the session's state.
    setState(window, OrvixUpgrade::NormalStatus);
    QCOMPARE(window.trayStateText(), QStringLiteral("Idle"));
    setState(window, OrvixUpgrade::CodeConnectingStatus);
    QCOMPARE(window.trayStateText(), QStringLiteral("Connecting"));
    setState(window, OrvixUpgrade::ConnectedStatus);
    QCOMPARE(window.trayStateText(), QStringLiteral("Connected"));
    setState(window, OrvixUpgrade::ScreeningStatus);
    QCOMPARE(window.trayStateText(), QStringLiteral("Casting"));
    setState(window, OrvixUpgrade::NormalStatus);

    // The about box: the version and the libraries with their licences.
    const QString about = OrvixUpgrade::aboutText();
    QVERIFY(about.contains(QStringLiteral("Zelvanor 0.1.0")));
    QVERIFY(about.contains(QStringLiteral("libsodium: ISC")));
    QVERIFY(about.contains(QStringLiteral("Qt 5: LGPL-3.0")));
    QVERIFY(about.contains(QString::fromLatin1(qVersion())));

    // The diagnostic bundle for support, and a clear error where it cannot go.
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("bundle.tar.gz"));
    QString error;
    QVERIFY2(window.saveDiagnosticBundleTo(path, &error), qPrintable(error));
    QVERIFY(QFileInfo(path).size() > 0);
    QVERIFY(!window.saveDiagnosticBundleTo(QStringLiteral("/nonexistent-folder/b.tar.gz"), &error));
    QVERIFY(!error.isEmpty());
}

#include "test_screen_cast.moc"
