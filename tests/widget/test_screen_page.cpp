// The screen page and the share page on their own, and the widget kit they
// use: the mode selector, the switch, refresh and count buttons, and the
// shell helper behind the Wayland test.
#include <QtTest/QtTest>

#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPixmap>
#include <QPushButton>

#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "WidgetTestSupport.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ContentWidget/SharePage.h"
#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"
#include "ui/widgets/ModelButton.h"
#include "ui/widgets/RefreshButton.h"
#include "ui/widgets/SwitchButton.h"
#include "ui/widgets/TextButton.h"

using namespace qorquicomponents;

namespace {

const QString kPasscodeTip = QStringLiteral("Passcode server not configured,please check and try again");

// A page inside a shown top-level window, as in the main window.
template <typename Page>
struct Host {
    QWidget window;
    Page* page;
    Host() : page(new Page(&window)) {
        window.resize(1008, 544);
        page->resize(1008, 544);
        // The window keeps the focus, so code entries show their placeholder.
        window.setFocusPolicy(Qt::StrongFocus);
        window.setFocus();
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
    }
};

QString imageOf(const QString& styleSheet) {
    const int start = styleSheet.indexOf(QLatin1String("url(")) + 4;
    return styleSheet.mid(start, styleSheet.indexOf(QLatin1Char(')')) - start);
}

}  // namespace

class TestScreenPage : public QObject {
    Q_OBJECT

private slots:
    void cleanup();
    void switchButtonPicturesAndStyles();
    void refreshButtonTurnsExactlyOnce();
    void textButtonFontFitsTheTitle();
    void modeSelectorPopupAndEntries();
    void startFollowsTheModeAndThePasscodeRule();
    void castingLayoutAnimationAndPause();
    void switchesCarryTheirState();
    void windowCastingStartAndSwitch();
    void waylandTestAndShellHelper();
    void sharePageCodeRules();
};

void TestScreenPage::cleanup() {
    g_strLanguage = "English";
    TipWindows::getInstance()->hide();
    qunsetenv("XDG_SESSION_TYPE");
}

void TestScreenPage::switchButtonPicturesAndStyles() {
    SwitchButton button;
    const struct {
        ButtonStyle style;
        const char* on;
        const char* off;
    } table[] = {
        {PauseButtonStyle, "icon_cast_start2x", "icon_cast_pulse2x"},
        {VoiceButtonStyle, "icon_cast_volume_off2x", "icon_cast_volume_on2x"},
        {ReverseButtonStyle, "icon_reverse_control_off2x", "icon_reverse_control_on2x"},
        {WindowButtonStyle, "icon_cast_window_off2x", "icon_cast_window_off2x"},
        {SnapshotButtonStyle, "icon_cast_save_dis2x", "icon_cast_save2x"},
    };
    for (const auto& row : table) {
        for (const bool on : {true, false}) {
            const QString expected = QStringLiteral("border-image:url(:/OrvixUpgrade/image/%1.png);")
                                         .arg(QLatin1String(on ? row.on : row.off));
            button.iconLabel()->move(0, 0);
            button.setBackgroundImage(row.style, on);
            QCOMPARE(button.iconStyleSheet(), expected);
            QCOMPARE(button.iconLabel()->pos(), QPoint(16, 4));
            // Every picture named is one the client carries.
            QVERIFY2(!QPixmap(imageOf(expected)).isNull(), qPrintable(expected));
        }
    }
    // An unknown style changes nothing.
    const QString before = button.iconStyleSheet();
    button.setBackgroundImage(static_cast<ButtonStyle>(5), true);
    QCOMPARE(button.iconStyleSheet(), before);

    // Kept looks per status; an unknown status is ignored.
    button.registStyle(ButtonHover, {QStringLiteral("background:#EEF5FF;"), QStringLiteral("Sound")});
    button.setStyle(ButtonHover);
    QCOMPARE(button.styleSheet(), QStringLiteral("background:#EEF5FF;"));
    QCOMPARE(button.toolTip(), QStringLiteral("Sound"));
    button.setStyle(ButtonDisabled);
    QCOMPARE(button.currentStyle(), ButtonHover);

    // The caption widens the button; entering it asks for the tool tip.
    const int bare = button.width();
    button.setCaption(QStringLiteral("Touch Control"));
    QVERIFY(button.width() > bare + 40);
    QVERIFY(button.captionLabel()->x() >= 16 + 32);
    button.setCaption(QString());
    QCOMPARE(button.width(), bare);
    QSignalSpy entered(&button, &SwitchButton::signalEnterBtn);
    QEvent enter(QEvent::Enter);
    QCoreApplication::sendEvent(&button, &enter);
    QCOMPARE(entered.count(), 1);
    QCOMPARE(entered.at(0).at(0).toString(), QStringLiteral("Sound"));
}

void TestScreenPage::refreshButtonTurnsExactlyOnce() {
    RefreshButton button;
    QCOMPARE(button.tickIntervalMs(), 60);
    QCOMPARE(button.angle(), 0.0);
    QVERIFY(!button.isSpinning());
    // A tick without a click does not move it.
    button.updateIndex();
    QCOMPARE(button.angle(), 0.0);

    // Driven tick by tick (the event loop does not run in between).
    button.setIsClicked(true);
    QVERIFY(button.isSpinning());
    for (int tick = 1; tick < 18; ++tick) {
        button.updateIndex();
        QCOMPARE(button.angle(), -20.0 * tick);
        // Another click during the turn neither resets nor lengthens it.
        if (tick == 9) button.setIsClicked(true);
        QVERIFY(button.isSpinning());
    }
    button.updateIndex();
    QCOMPARE(button.angle(), 0.0);
    QVERIFY(!button.isClicked());
    QVERIFY(!button.isSpinning());

    // And by its own timer: one click, one turn, then it rests.
    button.show();
    QVERIFY(QTest::qWaitForWindowExposed(&button));
    QTest::mouseClick(&button, Qt::LeftButton);
    QVERIFY(button.isSpinning());
    QTRY_VERIFY(button.angle() < 0.0);
    QTRY_VERIFY_WITH_TIMEOUT(!button.isSpinning(), 10000);
    QCOMPARE(button.angle(), 0.0);
}

void TestScreenPage::textButtonFontFitsTheTitle() {
    TextButton button;
    auto fits = [](const QString& title, int size) {
        QFont font(QStringLiteral("Microsoft YaHei"));
        font.setBold(true);
        font.setPixelSize(size);
        return QFontMetrics(font).horizontalAdvance(QStringLiteral("99 ") + title) + 64 <= 256;
    };

    button.setTitleText(QStringLiteral("Screens"));
    QVERIFY(fits(QStringLiteral("Screens"), 16));
    QCOMPARE(button.fontPixelSize(), 16);

    // A title that needs exactly one step down.
    QString title = QStringLiteral("Screens");
    while (fits(title, 16)) title += QLatin1Char('n');
    if (fits(title, 14)) {
        button.setTitleText(title);
        QCOMPARE(button.fontPixelSize(), 14);
    }

    // Too long even at 12 px: 10 px, and no smaller.
    const QString longTitle = QStringLiteral("Screens found nearby on this network");
    QVERIFY(!fits(longTitle, 12));
    button.setTitleText(longTitle);
    QCOMPARE(button.fontPixelSize(), 10);
    // Back to a short title: back to 16 px.
    button.setTitleText(QStringLiteral("Screens"));
    QCOMPARE(button.fontPixelSize(), 16);

    button.setListDeviceCount(7);
    QCOMPARE(button.countText(), QStringLiteral("7"));
    button.setListDeviceCount(123);
    QCOMPARE(button.countText(), QStringLiteral("123"));
}

void TestScreenPage::modeSelectorPopupAndEntries() {
    QWidget host;
    auto* button = new ModelButton(&host);
    host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&host));
    SelectItem* popup = button->selectItem();
    QCOMPARE(button->getScreenMode(), 1);
    QCOMPARE(button->text(), QStringLiteral("CopyMode"));
    QCOMPARE(ModelButton::modeName(2), QStringLiteral("ExtendedMode"));
    QCOMPARE(ModelButton::modeName(3), QStringLiteral("WindowMode"));
    QCOMPARE(ModelButton::modeName(9), QStringLiteral("CopyMode"));

    // Opening: "up", the popup at the button with the current mode checked.
    QSignalSpy closed(popup, &SelectItem::signalFocusOutIndex);
    button->click();
    QCOMPARE(button->property("state").toString(), QStringLiteral("up"));
    QVERIFY(popup->isVisible());
    QCOMPARE(popup->pos(), button->mapToGlobal(QPoint(0, 0)));
    QVERIFY(popup->entry(1)->isChecked());
    // Choosing an entry closes it and the button shows the choice.
    popup->entry(3)->click();
    QVERIFY(!popup->isVisible());
    QCOMPARE(closed.count(), 1);
    QCOMPARE(closed.at(0).at(0).toInt(), 3);
    QCOMPARE(button->property("state").toString(), QStringLiteral("down"));
    QCOMPARE(button->getScreenMode(), 3);
    QCOMPARE(button->text(), QStringLiteral("WindowMode"));

    // Losing the focus closes it with the checked entry.
    button->click();
    QVERIFY(popup->isVisible());
    QFocusEvent focusOut(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QCoreApplication::sendEvent(popup, &focusOut);
    QVERIFY(!popup->isVisible());
    QCOMPARE(closed.count(), 2);
    QCOMPARE(closed.at(1).at(0).toInt(), 3);

    // While a cast runs the button only shows the mode.
    button->setProperty("Status", QStringLiteral("Using"));
    button->click();
    QVERIFY(!popup->isVisible());
    button->setProperty("Status", QStringLiteral("Unuse"));

    // Entries come and go by one entry height each.
    const int full = popup->height();
    QCOMPARE(full % SelectItem::kEntryHeight, 8);
    popup->setButtonShow(2, false);
    QCOMPARE(popup->height(), full - 40);
    QVERIFY(popup->entry(2)->isHidden());
    popup->setButtonShow(2, true);
    QCOMPARE(popup->height(), full);
    QVERIFY(!popup->entry(2)->isHidden());
    popup->setButtonShow(7, false);
    QCOMPARE(popup->height(), full - 40);
    popup->setButtonShow(7, true);
    popup->setCurrentIndex(1);
    popup->setWaylandMode();
    QCOMPARE(popup->height(), full - 40);
    QVERIFY(popup->entry(1)->isHidden());
    QVERIFY(!popup->entry(1)->isChecked());
}

void TestScreenPage::startFollowsTheModeAndThePasscodeRule() {
    zvtest::LogCapture log;
    Host<ScreenPage> host;
    ScreenPage* page = host.page;
    QSignalSpy loading(page, &ScreenPage::signalShowLoading);
    QSignalSpy copies(page, &ScreenPage::signalStartCodeScreen);
    QSignalSpy windows(page, &ScreenPage::signalWindowScreen);

    // The entry holds its placeholder: nothing to start yet.
    QCOMPARE(page->getScreenCodeEdit()->text(), ConnectPage::placeholderText());
    QVERIFY(!page->getStartScreenBtn()->isEnabled());

    // This platform offers copy and window mode only.
    QVERIFY(page->getModelButton()->selectItem()->entry(2)->isHidden());
    QVERIFY(!page->getModelButton()->selectItem()->entry(1)->isHidden());

    // A passcode without a passcode server is refused ...
    page->getScreenCodeEdit()->setText(QStringLiteral("AB12"));
    page->onStartCodeScreenBtnClicked(false);
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), kPasscodeTip);
    QCOMPARE(TipWindows::getInstance()->getCurrentFatherWidget(), &host.window);
    QCOMPARE(loading.count(), 0);
    QCOMPARE(log.countContaining("[onStartCodeScreenBtnClicked] Start code screen fail, code server IP: "), 1);
    // ... unless the check is skipped.
    page->onStartCodeScreenBtnClicked(true);
    QCOMPARE(copies.count(), 1);
    QCOMPARE(copies.at(0).at(0).toString(), QStringLiteral("AB12"));

    // Copy mode: loading, status 1 and the trimmed code.
    {
        zvtest::PasscodeServerScope server("10.250.0.9", "8088");
        page->getScreenCodeEdit()->setText(QStringLiteral("AB12"));
        QTest::mouseClick(page->getStartScreenBtn(), Qt::LeftButton);
    }
    QCOMPARE(copies.count(), 2);
    QCOMPARE(loading.last().at(0).toBool(), true);
    QCOMPARE(page->getCurrentScreenStatus(), 1);
    QCOMPARE(page->getScreenMode(), 1);
    QCOMPARE(log.count("[onStartCodeScreenBtnClicked] Start copy mode screen"), 2);

    // Window mode: the entry text goes to the window selection instead.
    page->setCurrentScreenStatus(0);
    page->setScreenModle(3);
    page->getScreenCodeEdit()->setText(QStringLiteral("QW12ER34"));
    page->onStartCodeScreenBtnClicked(false);
    QCOMPARE(windows.count(), 1);
    QCOMPARE(windows.at(0).at(0).toString(), QStringLiteral("QW12ER34"));
    QCOMPARE(copies.count(), 2);
    QCOMPARE(page->getCurrentScreenStatus(), 0);
    QCOMPARE(log.count("[onStartCodeScreenBtnClicked] Start window mode screen"), 1);

    // The extended mode starts nothing here.
    page->setScreenModle(2);
    page->onStartCodeScreenBtnClicked(false);
    QVERIFY(page->getExtendedModeScreen());
    QCOMPARE(windows.count(), 1);
    QCOMPARE(copies.count(), 2);
    QVERIFY(page->openOrCloseVirtualMonitor(true));
}

void TestScreenPage::castingLayoutAnimationAndPause() {
    zvtest::LogCapture log;
    Host<ScreenPage> host;
    ScreenPage* page = host.page;
    QLabel* animation = page->animationLabel();
    QVERIFY(!page->isScreeningShown());
    QVERIFY(!page->isAnimationRunning());
    QCOMPARE(page->getModelButton()->property("Status").toString(), QStringLiteral("Unuse"));

    page->setScreeningShow();
    QVERIFY(page->isScreeningShown());
    QVERIFY(!page->getScreenCodeEdit()->isVisible());
    QVERIFY(page->isAnimationRunning());
    QCOMPARE(page->animationStep(), 0);
    QCOMPARE(animation->text(), QString());
    QCOMPARE(page->getModelButton()->property("Status").toString(), QStringLiteral("Using"));
    QVERIFY(page->stopButton()->hasFocus());
    QVERIFY(!page->windowButton()->isVisible());
    QCOMPARE(page->pauseStatusText(), QStringLiteral("Pause"));

    // The dots, one step per tick, round and round.
    const QStringList dots = {QStringLiteral("SCreening ."), QStringLiteral("SCreening .."),
                              QStringLiteral("SCreening ..."), QStringLiteral("SCreening .")};
    for (const QString& text : dots) {
        page->onTimerout();
        QCOMPARE(animation->text(), text);
    }
    QCOMPARE(animation->contentsMargins(), QMargins(0, 117, 0, 56));
    QCOMPARE(animation->font().pixelSize(), 14);
    g_strLanguage = "Japanese";
    page->onTimerout();
    QCOMPARE(animation->contentsMargins(), QMargins(0, 113, 0, 48));
    g_strLanguage = "English";
    // And by the page's own timer.
    QTRY_COMPARE(animation->text(), QStringLiteral("SCreening ..."));

    // Pause stops the dots, continue starts them again.
    QSignalSpy paused(page, &ScreenPage::signalPauseScreen);
    page->pauseButton()->click();
    QCOMPARE(paused.count(), 1);
    QCOMPARE(paused.at(0).at(0).toBool(), true);
    QVERIFY(!page->isAnimationRunning());
    QCOMPARE(page->pauseStatusText(), QStringLiteral("Continue"));
    QCOMPARE(page->pauseButton()->iconStyleSheet(), SwitchButton::imageStyleFor(PauseButtonStyle, true));
    QCOMPARE(log.count("[onPauseBtnClicked] Pause screen : 1 [1:pause  0:continue]"), 1);
    page->pauseButton()->click();
    QCOMPARE(paused.at(1).at(0).toBool(), false);
    QVERIFY(page->isAnimationRunning());
    QCOMPARE(page->pauseStatusText(), QStringLiteral("Pause"));
    QCOMPARE(page->pauseButton()->iconStyleSheet(), SwitchButton::imageStyleFor(PauseButtonStyle, false));

    // Stop: the signal, no more dots, idle status.
    page->pauseButton()->click();
    page->setCurrentScreenStatus(1);
    QSignalSpy stops(page, &ScreenPage::signalStopScreen);
    page->stopButton()->click();
    QCOMPARE(stops.count(), 1);
    QVERIFY(!page->isAnimationRunning());
    QCOMPARE(animation->text(), QString());
    QCOMPARE(page->getCurrentScreenStatus(), 0);
    QCOMPARE(log.count("[onStopScreenBtnClicked]StopScreen: Click the button to end screen casting."), 1);

    // Back to the code entry, the pause switch reset.
    page->setBeforeScreenShow();
    QVERIFY(!page->isScreeningShown());
    QVERIFY(page->getScreenCodeEdit()->isVisible());
    QVERIFY(page->getStartScreenBtn()->isEnabled());
    QVERIFY(!page->pauseButton()->isChecked());
    QCOMPARE(page->pauseStatusText(), QStringLiteral("Pause"));
    QCOMPARE(page->getModelButton()->property("Status").toString(), QStringLiteral("Unuse"));

    // Long captions: a taller control area from a fixed indent.
    g_strLanguage = "German";
    page->setScreeningShow();
    QWidget* control = page->findChild<QWidget*>(QStringLiteral("controlWidget"));
    QCOMPARE(control->height(), 89);
    QCOMPARE(control->layout()->contentsMargins().top(), 29);
    QTRY_COMPARE(page->pauseButton()->x(), 340);
    page->setBeforeScreenShow();
}

void TestScreenPage::switchesCarryTheirState() {
    Host<ScreenPage> host;
    ScreenPage* page = host.page;
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    QSignalSpy voice(page, &ScreenPage::signalVoiceScreen);
    QSignalSpy reverse(page, &ScreenPage::signalScreenReverse);

    // The casting layout shows the stored choices: sound off, control on.
    config.updateScreenIsMute(0);
    config.updateScreenReverse(1);
    page->setScreeningShow();
    QCOMPARE(page->voiceButton()->iconStyleSheet(), SwitchButton::imageStyleFor(VoiceButtonStyle, false));
    QCOMPARE(page->reverseButton()->iconStyleSheet(), SwitchButton::imageStyleFor(ReverseButtonStyle, false));
    config.updateScreenIsMute(1);
    config.updateScreenReverse(0);

    // Checked sound switch: the sound is on; a click asks to close it.
    page->setVoiceAndReverseStatus(true, true);
    page->voiceButton()->click();
    QCOMPARE(voice.count(), 1);
    QCOMPARE(voice.at(0).at(0).toBool(), true);
    QCOMPARE(page->voiceButton()->iconStyleSheet(), SwitchButton::imageStyleFor(VoiceButtonStyle, false));
    // Checked reverse switch: control is off; a click asks for it.
    page->reverseButton()->click();
    QCOMPARE(reverse.count(), 1);
    QCOMPARE(reverse.at(0).at(0).toBool(), true);
    QCOMPARE(page->reverseButton()->iconStyleSheet(), SwitchButton::imageStyleFor(ReverseButtonStyle, false));

    // The controller's setters move state and picture together.
    page->setVoiceIconStatus(true);
    QVERIFY(page->voiceButton()->isChecked());
    QCOMPARE(page->voiceButton()->iconStyleSheet(), SwitchButton::imageStyleFor(VoiceButtonStyle, true));
    page->setReverseIconStatus(true);
    QVERIFY(page->reverseButton()->isChecked());
    page->setPauseScreenIconStatus(true);
    QVERIFY(page->pauseButton()->isChecked());
    QCOMPARE(page->pauseButton()->iconStyleSheet(), SwitchButton::imageStyleFor(PauseButtonStyle, true));
    page->setBeforeScreenShow();
}

void TestScreenPage::windowCastingStartAndSwitch() {
    Host<ScreenPage> host;
    ScreenPage* page = host.page;
    page->getScreenCodeEdit()->setText(QStringLiteral("WIN12345"));
    QSignalSpy without(page, &ScreenPage::signalWithoutwindowselected);
    QSignalSpy loading(page, &ScreenPage::signalShowLoading);
    QSignalSpy info(page, &ScreenPage::signalWindowInfo);
    QSignalSpy starts(page, &ScreenPage::signalStartCodeScreen);
    QSignalSpy selections(page, &ScreenPage::signalSelectWindow);

    // No window chosen while idle.
    page->onStartWindowScreen(0);
    QCOMPARE(without.count(), 1);
    QCOMPARE(loading.count(), 1);
    QCOMPARE(loading.at(0).at(0).toBool(), false);
    QCOMPARE(info.count(), 0);

    // A window chosen while idle starts the cast.
    page->onStartWindowScreen(0x2a00007);
    QCOMPARE(info.count(), 1);
    QCOMPARE(info.at(0).at(0).value<unsigned long>(), 0x2a00007ul);
    QCOMPARE(info.at(0).at(1).toBool(), false);
    QCOMPARE(info.at(0).at(2).toUInt(), 0u);
    QCOMPARE(starts.count(), 1);
    QCOMPARE(starts.at(0).at(0).toString(), QStringLiteral("WIN12345"));
    QCOMPARE(page->getCurrentScreenStatus(), 3);
    QCOMPARE(page->getWindowScreenInfo().windowId, 0x2a00007ull);

    // Another window during the cast: no second start, the main window goes.
    page->onStartWindowScreen(0x2a00009);
    QCOMPARE(info.count(), 2);
    QCOMPARE(starts.count(), 1);
    QTRY_VERIFY(host.window.isMinimized());
    page->setScreeningShow();
    QVERIFY(page->windowButton()->isVisible());
    page->windowButton()->click();
    QCOMPARE(selections.count(), 1);

    page->resetWindowScreen();
    QCOMPARE(page->getWindowScreenInfo().windowId, 0ull);
    // The selection opens from the start path only in window mode.
    page->setBeforeScreenShow();
    page->showWindowSelect();
    QCOMPARE(selections.count(), 1);

    page->onShowWindowFail();
    QTRY_COMPARE(TipWindows::getInstance()->displayText(),
                 QStringLiteral("Window is protected by authority, so can not be casted when it is minimized"));
}

void TestScreenPage::waylandTestAndShellHelper() {
    Host<ScreenPage> host;
    ScreenPage* page = host.page;
    QCOMPARE(execShell("printf 'a\\nb\\n'"), std::string("a\nb\n"));

    qputenv("XDG_SESSION_TYPE", "wayland");
    QVERIFY(page->judgeIsWayland());
    QVERIFY(page->isWayland());
    qputenv("XDG_SESSION_TYPE", "x11");
    QVERIFY(!page->judgeIsWayland());
    QVERIFY(!page->isWayland());

    // A page made in a Wayland session offers window mode only.
    qputenv("XDG_SESSION_TYPE", "wayland");
    Host<ScreenPage> wayland;
    QVERIFY(wayland.page->getModelButton()->selectItem()->entry(1)->isHidden());
    QCOMPARE(wayland.page->getModelButton()->getScreenMode(), 3);

    // No descriptors left for the pipe: popen fails, and says so.
    rlimit limit{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const int next = dup(0);
    QVERIFY(next >= 0);
    close(next);
    rlimit tight = limit;
    tight.rlim_cur = static_cast<rlim_t>(next);
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &tight), 0);
    QString message;
    try {
        page->judgeIsWayland();
    } catch (const std::runtime_error& error) {
        message = QString::fromLatin1(error.what());
    }
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &limit), 0);
    QCOMPARE(message, QStringLiteral("popen() failed!"));
}

void TestScreenPage::sharePageCodeRules() {
    Host<SharePage> host;
    SharePage* page = host.page;
    QLineEdit* edit = page->getReverseScreenCodeEdit();
    QPushButton* start = page->getStartReverseScreenBtn();
    QSignalSpy starts(page, &SharePage::signalStartReverseScreen);
    QCOMPARE(edit->text(), ConnectPage::placeholderText());
    QVERIFY(!start->isEnabled());

    edit->setText(QStringLiteral("ab1"));
    QCOMPARE(edit->text(), QStringLiteral("AB1"));
    QVERIFY(!start->isEnabled());
    edit->setText(QStringLiteral("ab12"));
    QVERIFY(start->isEnabled());

    // Four characters need the passcode server.
    start->click();
    QTRY_VERIFY(TipWindows::getInstance()->isVisible());
    QCOMPARE(TipWindows::getInstance()->displayText(), kPasscodeTip);
    QCOMPARE(starts.count(), 0);
    {
        zvtest::PasscodeServerScope server("10.250.0.9", "8088");
        start->click();
    }
    QCOMPARE(starts.count(), 1);
    QCOMPARE(starts.at(0).at(0).toString(), QStringLiteral("AB12"));
    edit->setText(QStringLiteral("ab12cd"));
    start->click();
    QCOMPARE(starts.count(), 2);
    QCOMPARE(starts.at(1).at(0).toString(), QStringLiteral("AB12CD"));

    // The placeholder keeps its spelling only in English and Croatian.
    edit->setText(ConnectPage::placeholderText());
    QCOMPARE(edit->text(), ConnectPage::placeholderText());
    QVERIFY(!start->isEnabled());
    g_strLanguage = "Croatian";
    edit->setText(QString());
    edit->setText(ConnectPage::placeholderText());
    QCOMPARE(edit->text(), ConnectPage::placeholderText());
    g_strLanguage = "German";
    edit->setText(QString());
    edit->setText(ConnectPage::placeholderText());
    QCOMPARE(edit->text(), ConnectPage::placeholderText().toUpper());
    QVERIFY(start->isEnabled());
}

QTEST_MAIN(TestScreenPage)
#include "test_screen_page.moc"
