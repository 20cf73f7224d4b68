// The exception dispatch: how library and watchdog events become the main
// window's signals (reason texts, session-state gates, the watchdog
// hand-over), the notices the main window shows for them, and the early
// cases of the error-code handling.
#include <QtTest/QtTest>

#include <cstring>
#include <string>
#include <thread>

#include "WidgetTestSupport.h"
#include "casting/ErrorCodes.h"
#include "ui/DynamicWindow.h"
#include "ui/ExceptionCallBack.h"
#include "ui/LibraryCallbacks.h"
#include "ui/OrvixUpgrade.h"
#include "ui/ReverseScreen.h"
#include "ui/TipWindows.h"
#include "ui_OrvixUpgrade.h"

using qorquicomponents::DynamicWindow;
using qorquicomponents::OrvixUpgrade;
using qorquicomponents::TipWindows;

namespace {

tagNotifyExceptionParams_ params(const char* reason, int result = 0, int subCode = 0) {
    tagNotifyExceptionParams_ record{};
    record.nSubCode = subCode;
    record.nResult = result;
    std::strncpy(record.szReason, reason, sizeof record.szReason - 1);
    return record;
}

QString hex(unsigned int code) { return QStringLiteral("code %1").arg(code, 0, 16); }

}  // namespace

class TestExceptionDispatch : public QObject {
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void reasonTextsChooseTheErrorCode();
    void reverseControlAnswersByReasonText();
    void eventsAreGatedByTheSessionState();
    void linkFailuresGoToTheWatchdog();
    void noticesForTheEvents();
    void earlyErrorCodes();

private:
    // Records what the dispatcher emits, without the window acting on it.
    void recordSignals();
    void setState(unsigned state) { m_window->m_screenStatus = state; }
    QStringList dispatch(tagNotifyExceptionType_ type, tagNotifyExceptionParams_ record) {
        m_events.clear();
        m_dispatcher.callBackException(type, &record, m_window.get());
        return m_events;
    }

    std::unique_ptr<OrvixUpgrade> m_window;
    ExceptionCallBack m_dispatcher;
    QStringList m_events;
};

void TestExceptionDispatch::init() { m_window = std::make_unique<OrvixUpgrade>(nullptr); }

void TestExceptionDispatch::cleanup() {
    m_window.reset();
    TipWindows::getInstance()->hide();
}

void TestExceptionDispatch::recordSignals() {
    OrvixUpgrade* window = m_window.get();
    // The window's own handling is not under test here.
    disconnect(window, &OrvixUpgrade::signalLogout, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalMainErrorCode, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalCallbackException, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalVoiceScreenRequestResult, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalScreenReverseRequestResult, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalSetDynamicDisplayInfo, window, nullptr);
    disconnect(window, &OrvixUpgrade::signalRealScreenResolution, window, nullptr);
    auto record = [this](const QString& text) { m_events << text; };
    const auto direct = Qt::DirectConnection;
    connect(window, &OrvixUpgrade::signalLogout, this, [record] { record(QStringLiteral("logout")); }, direct);
    connect(window, &OrvixUpgrade::signalMainErrorCode, this, [record](unsigned int code) { record(hex(code)); },
            direct);
    connect(window, &OrvixUpgrade::signalCallbackException, this,
            [record](unsigned int type) { record(QStringLiteral("exception %1").arg(type)); }, direct);
    connect(window, &OrvixUpgrade::signalVoiceScreenRequestResult, this,
            [record](bool on) { record(QStringLiteral("voice %1").arg(on)); }, direct);
    connect(window, &OrvixUpgrade::signalScreenReverseRequestResult, this,
            [record](bool on) { record(QStringLiteral("reverse %1").arg(on)); }, direct);
    connect(window, &OrvixUpgrade::signalPPTFullScreen, this,
            [record](bool full) { record(QStringLiteral("presentation %1").arg(full)); }, direct);
    connect(window, &OrvixUpgrade::signalSetDynamicDisplayInfo, this,
            [record](int a, int b, int c, bool d) { record(QStringLiteral("stats %1 %2 %3 %4").arg(a).arg(b).arg(c).arg(d)); },
            direct);
    connect(window, &OrvixUpgrade::signalRealScreenResolution, this,
            [record](int w, int h) { record(QStringLiteral("resolution %1x%2").arg(w).arg(h)); }, direct);
    connect(window, &OrvixUpgrade::signalSwitchNextPicture, this, [record] { record(QStringLiteral("next")); },
            direct);
    connect(window, &OrvixUpgrade::signalSwitchLastPicture, this, [record] { record(QStringLiteral("last")); },
            direct);
    connect(window, &OrvixUpgrade::signalPeripheralShareStopCallbackMsg, this,
            [record](unsigned int type, const QString& text) { record(QStringLiteral("peripheral %1 %2").arg(type).arg(text)); },
            direct);
    connect(window, &OrvixUpgrade::signalPeripheralRestartMsg, this,
            [record](const QString& text) { record(QStringLiteral("restart %1").arg(text)); }, direct);
}

void TestExceptionDispatch::reasonTextsChooseTheErrorCode() {
    recordSignals();
    // Reverse-screen refusals: the first matching phrase wins.
    QCOMPARE(dispatch(NOTIFY_SHARE_REFUSED, params("Shareclients num limit reached")), QStringList{hex(0xF3203002)});
    QCOMPARE(dispatch(NOTIFY_SHARE_REFUSED, params("the server does not allow screen share.")),
             QStringList{hex(0xF3200002)});
    QCOMPARE(dispatch(NOTIFY_SHARE_REFUSED,
                      params("server does not allow screen share. Shareclients num limit")),
             QStringList{hex(0xF3203002)});
    QCOMPARE(dispatch(NOTIFY_SHARE_REFUSED, params("")), QStringList{hex(0xF3200007)});
    // Matching is case-sensitive.
    QCOMPARE(dispatch(NOTIFY_SHARE_REFUSED, params("shareclients NUM LIMIT")), QStringList{hex(0xF3200007)});

    // Cast refusals.
    QCOMPARE(dispatch(NOTIFY_REQUEST_REFUSED, params("auxiliary model, reject request")),
             QStringList{hex(0xF3202001)});
    QCOMPARE(dispatch(NOTIFY_REQUEST_REFUSED, params("race fail.")), QStringList{hex(0xF320200E)});
    QCOMPARE(dispatch(NOTIFY_REQUEST_REFUSED, params("server does not allow screen projection.")),
             QStringList{hex(0xF3200002)});
    QCOMPARE(dispatch(NOTIFY_REQUEST_REFUSED, params("race fail. auxiliary model, reject request")),
             QStringList{hex(0xF3202001)});
    QCOMPARE(dispatch(NOTIFY_REQUEST_REFUSED, params("busy")), QStringList{hex(0xF3200007)});

    // The panel's user said no: a full panel is told apart.
    QCOMPARE(dispatch(NOTIFY_AUTHORIZATION_DENIED, params("race fail.")), QStringList{hex(0xF320200E)});
    QCOMPARE(dispatch(NOTIFY_AUTHORIZATION_DENIED, params("denied")),
             QStringList({QStringLiteral("exception 32811"), hex(0xF3200002)}));

    // Removal by the panel against an ordinary log-out.
    QCOMPARE(dispatch(NOTIFY_LOGOUT, params("logOutByServer")),
             QStringList({QStringLiteral("logout"), hex(0xF3202004)}));
    QCOMPARE(dispatch(NOTIFY_LOGOUT, params("logOutByServer ")),
             QStringList({QStringLiteral("logout"), hex(0xF3200006)}));
}

void TestExceptionDispatch::reverseControlAnswersByReasonText() {
    recordSignals();
    qorquicomponents::ReverseScreen* view = m_window->getReverseScreenWindow();

    // Showing the panel's screen: the view is told, refusals are explained.
    setState(OrvixUpgrade::ReverseScreeningStatus);
    QVERIFY(dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("", 1)).isEmpty());
    QVERIFY(view->reverseControlStatus());

    QVERIFY(dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("", 0)).isEmpty());
    QVERIFY(!view->reverseControlStatus());
    QCOMPARE(view->lastRejectText(), QString());

    dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("nonsupport", 0));
    QCOMPARE(view->lastRejectText(),
             QStringLiteral("Failed to turn on reverse control, the screen only for displaying"));

    dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("Meeting Room PC", 0));
    QCOMPARE(view->lastRejectText(),
             QStringLiteral("Failed to turn on reverse control,Meeting Room PC is controlling the screen"));
    QVERIFY(!view->reverseControlStatus());
    // The refusal is shown to the user as a tip.
    QTRY_COMPARE(TipWindows::getInstance()->displayText(), view->lastRejectText());

    // Control taken back by the panel.
    dispatch(NOTIFY_REVERSE_CONTROL_OFF, params("", 0));
    QVERIFY(view->reverseControlStatus());
    dispatch(NOTIFY_REVERSE_CONTROL_OFF, params("", 1));
    QVERIFY(!view->reverseControlStatus());

    // Casting: the view is left alone and the controller hears the answer.
    setState(OrvixUpgrade::ScreeningStatus);
    QCOMPARE(dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("nonsupport", 0)),
             QStringList{QStringLiteral("reverse 1")});
    QCOMPARE(dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("", 1)), QStringList{QStringLiteral("reverse 1")});
    QCOMPARE(dispatch(NOTIFY_REVERSE_CONTROL_OFF, params("", 1)), QStringList{QStringLiteral("reverse 0")});
    QVERIFY(!view->reverseControlStatus());

    // Neither: nothing.
    setState(OrvixUpgrade::ConnectedStatus);
    QVERIFY(dispatch(NOTIFY_REVERSE_CONTROL_ANSWER, params("", 1)).isEmpty());
    QVERIFY(dispatch(NOTIFY_REVERSE_CONTROL_OFF, params("", 1)).isEmpty());
    setState(OrvixUpgrade::NormalStatus);
}

void TestExceptionDispatch::eventsAreGatedByTheSessionState() {
    recordSignals();
    // Sound answers count only while casting.
    setState(OrvixUpgrade::ConnectedStatus);
    QVERIFY(dispatch(NOTIFY_VOICE_ON, params("")).isEmpty());
    setState(OrvixUpgrade::ScreeningStatus);
    QCOMPARE(dispatch(NOTIFY_VOICE_ON, params("")), QStringList{QStringLiteral("voice 1")});
    QCOMPARE(dispatch(NOTIFY_VOICE_OFF, params("")), QStringList{QStringLiteral("voice 0")});

    // Ends of a session carry their own message.
    QCOMPARE(dispatch(NOTIFY_SCREEN_CAST_ENDED, params("")),
             QStringList({QStringLiteral("exception 32792"), hex(0xF3204011)}));
    QCOMPARE(dispatch(NOTIFY_REVERSE_SCREEN_ENDED, params("")),
             QStringList({QStringLiteral("exception 32827"), hex(0xF3204012)}));
    QCOMPARE(dispatch(NOTIFY_KICKED, params("")), QStringList{QStringLiteral("logout")});

    // Network state: lost, given up (handled as a failed reconnection), others.
    QCOMPARE(dispatch(NOTIFY_NETWORK_STATE, params("", 0, 1)), QStringList{QStringLiteral("exception 32828")});
    QCOMPARE(dispatch(NOTIFY_NETWORK_STATE, params("", 0, 5)), QStringList{QStringLiteral("exception 32801")});
    QVERIFY(dispatch(NOTIFY_NETWORK_STATE, params("", 0, 3)).isEmpty());
    // Heartbeats: only five or more missed.
    QVERIFY(dispatch(NOTIFY_HEARTBEAT_MISSED, params("", 0, 4)).isEmpty());
    QCOMPARE(dispatch(NOTIFY_HEARTBEAT_MISSED, params("", 0, 5)), QStringList{QStringLiteral("exception 32829")});

    // Values read from the record at their offsets.
    tagNotifyExceptionParams_ stats = params("");
    stats.nBitRateKbps = 2048;
    stats.nFrameRate = 30;
    stats.nDelayMs = 41;
    stats.ucLoss = 1;
    QCOMPARE(dispatch(NOTIFY_STREAM_STATISTICS, stats), QStringList{QStringLiteral("stats 2048 30 41 1")});
    tagNotifyExceptionParams_ size = params("");
    size.nWidth = 3840;
    size.nHeight = 2160;
    QCOMPARE(dispatch(NOTIFY_PANEL_RESOLUTION, size), QStringList{QStringLiteral("resolution 3840x2160")});
    QCOMPARE(dispatch(NOTIFY_PRESENTATION_FULLSCREEN, params("")), QStringList{QStringLiteral("presentation 1")});
    QCOMPARE(dispatch(NOTIFY_PRESENTATION_WINDOWED, params("")), QStringList{QStringLiteral("presentation 0")});
    QCOMPARE(dispatch(NOTIFY_NEXT_PICTURE, params("")), QStringList{QStringLiteral("next")});
    QCOMPARE(dispatch(NOTIFY_PREVIOUS_PICTURE, params("")), QStringList{QStringLiteral("last")});
    QCOMPARE(dispatch(NOTIFY_PERIPHERAL_SHARE_STOPPED, params("camera unplugged")),
             QStringList{QStringLiteral("peripheral 32824 camera unplugged")});
    QCOMPARE(dispatch(NOTIFY_PERIPHERAL_RESTART, params("microphone")), QStringList{QStringLiteral("restart microphone")});
    for (tagNotifyExceptionType_ type : {NOTIFY_NO_BITSTREAM, NOTIFY_SHARE_RESTORE_SETTINGS,
                                         NOTIFY_REVERSE_CONTROL_INVALID, NOTIFY_AUTHORIZATION_GRANTED,
                                         NOTIFY_PERIPHERAL_SHARE_REQUEST_FAIL, NOTIFY_MICROPHONE_STREAM_ERROR,
                                         NOTIFY_PERIPHERAL_STREAM_ERROR, NOTIFY_PERIPHERAL_822,
                                         NOTIFY_PERIPHERAL_823, NOTIFY_LIBRARY_FAILED, NOTIFY_PERIPHERAL_830}) {
        QCOMPARE(dispatch(type, params("")), QStringList{QStringLiteral("exception %1").arg(type)});
    }
    // Types without a row are dropped.
    QVERIFY(dispatch(NOTIFY_VIRTUAL_NETWORK_ISOLATION, params("")).isEmpty());
    QVERIFY(dispatch(static_cast<tagNotifyExceptionType_>(32781), params("")).isEmpty());
    // Without the window nothing is emitted.
    m_events.clear();
    tagNotifyExceptionParams_ record = params("logOutByServer");
    QCOMPARE(m_dispatcher.callBackException(NOTIFY_LOGOUT, &record, nullptr), 0L);
    QVERIFY(m_events.isEmpty());
    setState(OrvixUpgrade::NormalStatus);
}

void TestExceptionDispatch::linkFailuresGoToTheWatchdog() {
    zvtest::LogCapture log;
    recordSignals();
    // Reconnection is off outside a session: the watchdog says so for each
    // event it was handed, with or without the window.
    const tagNotifyExceptionType_ types[] = {NOTIFY_STREAM_SEND_FAILED,  NOTIFY_CONTROL_LINK_BROKEN,
                                             NOTIFY_MEDIA_LINK_BROKEN,   NOTIFY_REVERSE_LINK_BROKEN,
                                             NOTIFY_ENCODER_FAILED,      NOTIFY_CAPTURE_FAILED,
                                             NOTIFY_MIRRORING_ABNORMAL};
    for (tagNotifyExceptionType_ type : types) {
        QVERIFY(dispatch(type, params("")).isEmpty());
        tagNotifyExceptionParams_ record = params("");
        std::thread([this, type, &record] { m_dispatcher.callBackException(type, &record, nullptr); }).join();
    }
    for (tagNotifyExceptionType_ type : types) {
        const std::string line = " event " + std::to_string(type) + ": reconnection is off";
        QTRY_COMPARE_WITH_TIMEOUT(log.countContaining(line), 2, 10000);
    }

    // The watchdog's own reports set and clear the reconnecting flag.
    QVERIFY(!m_dispatcher.isReconnecting());
    QCOMPARE(dispatch(NOTIFY_RECONNECTING, params("")), QStringList{QStringLiteral("exception 32802")});
    QVERIFY(m_dispatcher.isReconnecting());
    QVERIFY(m_dispatcher.m_isReconnecting);
    dispatch(NOTIFY_RECONNECT_FAILED, params(""));
    QVERIFY(!m_dispatcher.isReconnecting());
}

void TestExceptionDispatch::noticesForTheEvents() {
    OrvixUpgrade* window = m_window.get();
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    auto notice = [window] { return window->getDynamicWindow(); };

    // Each notice replaces the one before.
    window->onDealWithCallbackException(NOTIFY_RECONNECTING);
    DynamicWindow* first = notice();
    QVERIFY(first != nullptr);
    QCOMPARE(first->iconName(), QStringLiteral("warning"));
    QCOMPARE(first->titleText(), QStringLiteral("Connection exception with server"));
    QCOMPARE(first->messageText(), QStringLiteral("Reconnecting"));
    QCOMPARE(first->parentWidget(), window);
    QVERIFY(window->getReverseScreenWindow()->isReconnecting());
    QPointer<DynamicWindow> old(first);
    window->onDealWithCallbackException(NOTIFY_RECONNECTED);
    QVERIFY(!window->getReverseScreenWindow()->isReconnecting());
    QCOMPARE(notice(), first);

    window->onDealWithCallbackException(NOTIFY_RECONNECT_FAILED);
    QVERIFY(notice() != first);
    QTRY_VERIFY(old.isNull());
    QCOMPARE(notice()->iconName(), QStringLiteral("error"));
    QCOMPARE(notice()->titleText(), QStringLiteral("Connection exception with server"));
    QCOMPARE(notice()->messageText(), QStringLiteral("Reconnecting failed"));
    QVERIFY(window->m_isDisconnectAfterStop);
    window->m_isDisconnectAfterStop = false;

    window->onDealWithCallbackException(NOTIFY_NO_BITSTREAM);
    QCOMPARE(notice()->iconName(), QStringLiteral("error"));
    QCOMPARE(notice()->titleText(), QStringLiteral("Bit stream exception"));
    QCOMPARE(notice()->messageText(), QStringLiteral("No bit stream for a long time"));

    window->onDealWithCallbackException(NOTIFY_REVERSE_CONTROL_INVALID);
    QCOMPARE(notice()->titleText(), QStringLiteral("Reverse Control"));
    QCOMPARE(notice()->messageText(), QStringLiteral("Reverse Control Invaild"));

    // The network notice is a switch of the controller, off in this build.
    DynamicWindow* before = notice();
    window->onDealWithCallbackException(NOTIFY_NETWORK_STATE);
    QCOMPARE(notice(), before);
    window->m_isNetworkNotice = true;
    window->onDealWithCallbackException(NOTIFY_NETWORK_STATE);
    QCOMPARE(notice()->iconName(), QStringLiteral("warning"));
    QCOMPARE(notice()->titleText(), QStringLiteral("Net Exception"));
    QCOMPARE(notice()->messageText(), QStringLiteral("There is no network at present, please check and try again"));
    QVERIFY(notice()->findChild<QWidget*>(QStringLiteral("titleWidget"))->isHidden());
    // With the switch on, missed heartbeats leave a cast alone.
    setState(OrvixUpgrade::ScreeningStatus);
    window->onDealWithCallbackException(NOTIFY_HEARTBEAT_MISSED);
    QCOMPARE(window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ScreeningStatus));
    window->m_isNetworkNotice = false;
    setState(OrvixUpgrade::NormalStatus);

    window->onDealWithCallbackException(NOTIFY_VIRTUAL_NETWORK_ISOLATION);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("virtual PC network isolation "));
    QCOMPARE(TipWindows::getInstance()->displayLevel(), qorquicomponents::ErrorLevelInfo);

    // A failed library ends a connection but not a request in flight.
    setState(OrvixUpgrade::CodeScreenRequestStatus);
    window->onDealWithCallbackException(NOTIFY_LIBRARY_FAILED);
    QCOMPARE(window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::CodeScreenRequestStatus));
    setState(OrvixUpgrade::ConnectedStatus);
    window->onDealWithCallbackException(NOTIFY_LIBRARY_FAILED);
    QCOMPARE(window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    notice()->close();
}

void TestExceptionDispatch::earlyErrorCodes() {
    zvtest::LogCapture log;
    OrvixUpgrade* window = m_window.get();
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    TipWindows* tip = TipWindows::getInstance();

    QSignalSpy abnormal(window, &OrvixUpgrade::signalWindowAbnormal);
    window->onDealwithError(0xF3204008);
    window->onDealwithError(0xF3204009);
    window->onDealwithError(0xF3204010);
    QCOMPARE(abnormal.count(), 3);
    QCOMPARE(abnormal.at(0).at(0).toInt(), 1);
    QCOMPARE(abnormal.at(1).at(0).toInt(), 4);
    QCOMPARE(abnormal.at(2).at(0).toInt(), 5);

    // The first abnormal mirroring is handed to the watchdog silently ...
    setState(OrvixUpgrade::ConnectedStatus);
    tip->hide();
    window->onDealwithError(zv_error::MIRRORING_ABNORMAL_RETRY);
    QVERIFY(window->m_isMirroringAbnormal);
    QTRY_COMPARE_WITH_TIMEOUT(log.countContaining(" event 32826: reconnection is off"), 1, 10000);
    QVERIFY(!tip->isVisible());
    QCOMPARE(log.countContaining(" error code: 0xF320200A"), 0);
    QCOMPARE(window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::ConnectedStatus));

    // ... the second logs out and says so.
    window->onDealwithError(zv_error::MIRRORING_ABNORMAL_RETRY);
    QTRY_COMPARE(window->getCurrentStatus(), static_cast<unsigned>(OrvixUpgrade::NormalStatus));
    QTRY_VERIFY(tip->isVisible());
    QCOMPARE(tip->displayText(), QStringLiteral("Mirroring screen abnormal,please try again"));
    QCOMPARE(log.countContaining(" error code: 0xF320200A"), 1);
}

QTEST_MAIN(TestExceptionDispatch)
#include "test_exception_dispatch.moc"
