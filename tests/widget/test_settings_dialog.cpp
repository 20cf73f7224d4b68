// The settings window (input rules, save and read-back, display switches,
// shortcut letters, the hidden gesture) and the debug window it opens.
#include <QtTest/QtTest>

#include <QButtonGroup>
#include <QCheckBox>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

#include <cstdlib>

#include "WidgetTestSupport.h"
#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/Singleton.h"
#include "ui/SettingFeedback/BubbleTipWindows.h"
#include "ui/SettingFeedback/HideSetWindow.h"
#include "ui/SettingFeedback/SettingInputRules.h"
#include "ui/SettingFeedback/SettingWidget.h"
#include "ui/TipWindows.h"

using namespace qorquicomponents;

namespace {

CClientConfig& store() { return Singleton<CClientConfig>::getInstance(); }

QString tipText() { return TipWindows::getInstance()->displayText(); }

void pressTitle(SettingWidget& window, int times) {
    for (int i = 0; i < times; ++i) QTest::mouseClick(window.titleLab(), Qt::LeftButton);
}

}  // namespace

class TestSettingsDialog : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        // Global shortcuts are tried on a real X server (tests/x11); here the
        // grabs report "unavailable" and only the dialog's own rules count.
        unsetenv("DISPLAY");
    }

    void addressRules() {
        QVERIFY(isIPAddressValid("192.168.1.1"));
        QVERIFY(isIPAddressValid("0.0.0.0"));
        QVERIFY(isIPAddressValid("10.00.0.1"));  // "00" is zero, no leading zero before a value
        QVERIFY(isIPAddressValid(""));
        QVERIFY(isIPAddressValid(nullptr));
        for (const char* bad : {"192.168.01.1", "256.1.1.1", "1.2.3", "1.2.3.4.5", "1.2.3.4 ", " 1.2.3.4", "1..2.3",
                                "a.b.c.d", "1.2.3.-4", "999.1.1.1"}) {
            QVERIFY2(!isIPAddressValid(bad), bad);
        }
        int cursor = 4;
        QCOMPARE(stripPortLeadingZeros(QStringLiteral("0080"), &cursor), QStringLiteral("80"));
        QCOMPARE(cursor, 2);
        QCOMPARE(stripPortLeadingZeros(QStringLiteral("0"), nullptr), QStringLiteral("0"));
        QCOMPARE(stripPortLeadingZeros(QStringLiteral("000"), nullptr), QStringLiteral("0"));
        QCOMPARE(portTextValue(SettingWidget::portPromptText()), 0);
    }

    void hostNameTables() {
        int count = 0;
        for (int key = 0; key < 128; ++key) count += isForbiddenHostNameKey(key) ? 1 : 0;
        QCOMPARE(count, kForbiddenKeyCount);
        QVERIFY(isForbiddenHostNameKey('-'));
        QVERIFY(isForbiddenHostNameKey(' '));
        QVERIFY(isForbiddenHostNameKey('~'));
        QVERIFY(!isForbiddenHostNameKey('_'));
        QVERIFY(!isForbiddenHostNameKey('A'));
        QVERIFY(!isForbiddenHostNameKey('5'));
        QVERIFY(containsForbiddenInputMethodText(QString::fromUtf8("ab\xe2\x80\x94\xe2\x80\x94")));  // ——
        QVERIFY(!containsForbiddenInputMethodText(QString::fromUtf8("ab\xe2\x80\x94")));            // one — only
        QVERIFY(containsForbiddenInputMethodText(QString::fromUtf8("\xef\xbc\x81")));              // ！
        QVERIFY(!containsForbiddenInputMethodText(QStringLiteral("room_12")));
    }

    void saveAndReadBack() {
        SettingWidget window;
        window.initData(nullptr);
        window.show();
        QSignalSpy hostNames(&window, &SettingWidget::signalChangeHostName);

        window.hostNameEdit()->setText(QStringLiteral("meeting_pc"));
        window.serverIpEdit()->setText(QStringLiteral("192.168.01.1"));
        window.portEdit()->setText(QStringLiteral("8080"));
        window.determineBtn()->click();
        QCOMPARE(tipText(), QStringLiteral("Invalid passcode server IP address. Please enter again"));
        QCOMPARE(hostNames.count(), 0);

        window.serverIpEdit()->setText(QStringLiteral("192.168.1.1"));
        window.portEdit()->setText(QStringLiteral("65536"));
        window.determineBtn()->click();
        QCOMPARE(tipText(), QStringLiteral("Please enter a port number in the range of 0-65535"));
        QVERIFY(store().getServerIP() != "192.168.1.1");

        window.portEdit()->setText(QStringLiteral("65535"));
        window.hostNameEdit()->clear();
        window.determineBtn()->click();
        QCOMPARE(tipText(), QStringLiteral("The host name cannot be empty"));

        window.hostNameEdit()->setText(QStringLiteral("meeting_pc"));
        window.determineBtn()->click();
        QCOMPARE(store().getServerIP(), std::string("192.168.1.1"));
        QCOMPARE(store().getServerPort(), std::string("65535"));
        QCOMPARE(store().getHostName(), std::string("meeting_pc"));
        QCOMPARE(hostNames.count(), 1);
        QCOMPARE(hostNames.at(0).at(0).toString(), QStringLiteral("meeting_pc"));

        // An empty address is "none" and saved; the prompt in the port field reads as 0.
        window.serverIpEdit()->clear();
        window.portEdit()->setText(SettingWidget::portPromptText());
        window.determineBtn()->click();
        QCOMPARE(store().getServerIP(), std::string());
        QCOMPARE(hostNames.count(), 2);

        // Unsaved edits are gone when the window is shown again.
        window.hostNameEdit()->setText(QStringLiteral("draft"));
        window.hide();
        window.show();
        QCOMPARE(window.hostNameEdit()->text(), QStringLiteral("meeting_pc"));
    }

    void typingRules() {
        SettingWidget window;
        window.initData(nullptr);
        window.show();
        QLineEdit* host = window.hostNameEdit();
        host->clear();
        host->setFocus();
        QTest::keyClicks(host, QStringLiteral("abcdefghij_klmnopqrstu"));  // 22 characters
        QCOMPARE(host->text(), QStringLiteral("abcdefghij_klmnopqrs"));
        host->clear();
        QTest::keyClicks(host, QStringLiteral("a-b c.d_e"));
        QCOMPARE(host->text(), QStringLiteral("abcd_e"));
        QApplication::clipboard()->setText(QStringLiteral("pasted"));
        QTest::keySequence(host, QKeySequence::Paste);
        QCOMPARE(host->text(), QStringLiteral("abcd_e"));
        QInputMethodEvent commit;
        commit.setCommitString(QString::fromUtf8("\xe3\x80\x90x"));  // 【x
        QApplication::sendEvent(host, &commit);
        QCOMPARE(host->text(), QStringLiteral("abcd_e"));

        QLineEdit* port = window.portEdit();
        port->clear();
        port->setFocus();
        QTest::keyClicks(port, QStringLiteral("0080"));
        QCOMPARE(port->text(), QStringLiteral("80"));
        QTest::keyClicks(port, QStringLiteral("1234x"));
        QCOMPARE(port->text(), QStringLiteral("80123"));  // five digits at most
        port->clear();
        QFocusEvent out(QEvent::FocusOut);  // an empty port field shows the prompt, grey
        QApplication::sendEvent(port, &out);
        QCOMPARE(port->text(), SettingWidget::portPromptText());
        QVERIFY(port->styleSheet().contains(QStringLiteral("0.20")));
        QFocusEvent in(QEvent::FocusIn);
        QApplication::sendEvent(port, &in);
        QCOMPARE(port->text(), QString());
        QVERIFY(port->styleSheet().contains(QStringLiteral("0.90")));
    }

    void displaySwitches() {
        SettingWidget window;
        window.show();
        QSignalSpy changes(&window, &SettingWidget::signalChangeDisplayInfo);
        store().updateShowDelay(0);
        window.hide();
        window.show();
        QVERIFY(!window.displayCheckBox(2)->isChecked());
        window.displayCheckBox(2)->click();
        QCOMPARE(store().getShowDelay(), 1);
        window.displayCheckBox(4)->click();
        QCOMPARE(changes.count(), 2);
        QCOMPARE(changes.at(0).at(0).toInt(), 2);
        QCOMPARE(changes.at(1).at(0).toInt(), 4);
        window.displayCheckBox(2)->click();
        QCOMPARE(store().getShowDelay(), 0);

        QEvent enter(QEvent::Enter);
        QApplication::sendEvent(window.highResolutionRow(), &enter);
        QVERIFY(window.bubbleTip()->isVisible());
        QVERIFY(window.bubbleTip()->label()->text().startsWith(QStringLiteral("After it is turned on")));
        QCOMPARE(window.bubbleTip()->pos().x(), 156);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(window.highResolutionRow(), &leave);
        QVERIFY(!window.bubbleTip()->isVisible());
    }

    void shortcutLetters() {
        SettingWidget window;
        window.initData(nullptr);
        window.show();
        QLineEdit* start = window.startOrStopEdit();
        QCOMPARE(start->text(), QStringLiteral("H"));
        start->setFocus();
        QTest::keyClick(start, Qt::Key_Backspace);
        QCOMPARE(start->text(), QString());
        QTest::keyClicks(start, QStringLiteral("1"));
        QCOMPARE(start->text(), QString());
        QCOMPARE(tipText(), QStringLiteral("Shortcut keys only support the configuration of English characters"));
        QTest::keyClicks(start, QStringLiteral("a"));
        QCOMPARE(start->text(), QStringLiteral("a"));
        QVERIFY(window.isHotkeyRegistered());
        QCOMPARE(store().getStartOrStopScreenShortcut(), std::string("A"));  // the upper-cased code

        window.shortcutIpEdit()->setText(QStringLiteral("10.0.0.300"));
        window.shortcutIpBtn()->click();
        QCOMPARE(tipText(), QStringLiteral("Invalid passcode server IP address. Please enter again"));
        window.shortcutIpEdit()->setText(QStringLiteral("10.0.0.3"));
        window.shortcutIpBtn()->click();
        QCOMPARE(tipText(), QStringLiteral("Successfully modified"));
        QCOMPARE(store().getShortcutIP(), std::string("10.0.0.3"));

        window.shortcutResetBtn()->click();
        QCOMPARE(store().getShortcutIP(), std::string());
        QCOMPARE(start->text(), QStringLiteral("H"));
        QCOMPARE(window.pauseEdit()->text(), QStringLiteral("K"));
        QCOMPARE(store().getStartOrStopScreenShortcut(), std::string("H"));
    }

    void hiddenGesture() {
        SettingWidget window;
        qint64 now = 1000000;
        window.setClock([&now] { return now; });
        window.show();
        HideSetWindow::getInstance()->hide();

        // Five presses over 4 s: nothing, and the count starts again.
        for (int i = 0; i < 5; ++i) {
            pressTitle(window, 1);
            now += 1000;
        }
        QVERIFY(!HideSetWindow::getInstance()->isVisible());
        QVERIFY(window.isVisible());
        // Five within 3 s (the last at exactly 3000 ms) open the debug window.
        for (int i = 0; i < 4; ++i) {
            pressTitle(window, 1);
            now += 750;
        }
        pressTitle(window, 1);
        QVERIFY(HideSetWindow::getInstance()->isVisible());
        QVERIFY(!window.isVisible());
        QCOMPARE(HideSetWindow::getInstance()->pos(), window.mapToGlobal(QPoint(0, 0)) + QPoint(32, 0));
        HideSetWindow::getInstance()->hide();
    }

    void debugWindow() {
        store().setColumnValue("ProType", "3");
        store().updataMouseProType(0);
        store().updataReverseProType(1);
        HideSetWindow* debug = HideSetWindow::getInstance();
        debug->hide();
        debug->show();
        QCOMPARE(debug->checkedProtocol(HideSetWindow::CastVideo), -1);
        QCOMPARE(debug->checkedProtocol(HideSetWindow::ScreenMouse), 0);
        QCOMPARE(debug->checkedProtocol(HideSetWindow::ScreenReverseControl), 1);

        debug->protocolGroup(HideSetWindow::CastVideo)->button(1)->click();
        QCOMPARE(store().getProType(), PROTOCOL_TCP);
        QCOMPARE(debug->checkedProtocol(HideSetWindow::CastVideo), 1);
        debug->protocolGroup(HideSetWindow::CastVideo)->button(1)->click();  // a second click keeps it
        QCOMPARE(debug->checkedProtocol(HideSetWindow::CastVideo), 1);

        debug->codingBox()->click();
        QCOMPARE(store().getCodingMode(), CODING_SOFTWARE_PREFERRED);
        QCOMPARE(store().getHWEEnable(), 1);

        BusinessSettings& business = BusinessSettings::getInstance();
        business.setIsWriteRGBFlow(false);
        auto* rgb = qobject_cast<QCheckBox*>(debug->control(QStringLiteral("RGB flow  ")));
        QVERIFY(rgb != nullptr);
        rgb->click();
        rgb->click();
        QVERIFY(business.isWriteRGBFlow());
        business.setIsWriteH264Flow(false);
        qobject_cast<QCheckBox*>(debug->control(QStringLiteral("H264 flow")))->click();
        QVERIFY(business.isWriteH264Flow());
        business.setIsRecordTimeLog(false);
        qobject_cast<QCheckBox*>(debug->control(QStringLiteral("Record Time Log")))->click();
        QVERIFY(business.isRecordTimeLog());

        debug->restoreDefaultBtn()->click();
        QVERIFY(!debug->restoreDefaultBtn()->isChecked());
        QCOMPARE(store().getProType(), PROTOCOL_BRX);
        QCOMPARE(store().getMouseProType(), PROTOCOL_TCP);
        QCOMPARE(store().getReverseProType(), PROTOCOL_TCP);
        QCOMPARE(store().getShareProType(), PROTOCOL_TCP);
        QCOMPARE(store().getShareReverseProType(), PROTOCOL_TCP);
        QCOMPARE(store().getCodingMode(), CODING_HARDWARE_PREFERRED);
        QCOMPARE(debug->checkedProtocol(HideSetWindow::CastVideo), 2);
        for (auto s : {HideSetWindow::ScreenMouse, HideSetWindow::ScreenReverseControl, HideSetWindow::ReverseVideo,
                       HideSetWindow::ReverseScreenControl}) {
            QCOMPARE(debug->checkedProtocol(s), 1);
        }
        QVERIFY(!debug->codingBox()->isChecked());

        QSignalSpy folders(debug, &HideSetWindow::signalOpenFolder);
        debug->openLogBtn()->click();
        QVERIFY(!debug->openLogBtn()->isChecked());
        QCOMPARE(folders.count(), 1);
        QVERIFY(folders.at(0).at(0).toString().endsWith(QStringLiteral("/Zelvanor/Zelvanor/Logs/")));
        HideSetWindow::destory();
    }
};

QTEST_MAIN(TestSettingsDialog)
#include "test_settings_dialog.moc"
