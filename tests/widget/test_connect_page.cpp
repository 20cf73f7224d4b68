// The connect page on its own: the code entry's rules, the start button and
// its passcode-server check, the completion list fed by discovered panels,
// the connected view's caption and badge, and the casting entries.
#include <QtTest/QtTest>

#include <QFontMetrics>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include <cstring>
#include <memory>
#include <thread>

#include "WidgetTestSupport.h"
#include "casting/McUtil.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"

using qorquicomponents::CodeAdd;
using qorquicomponents::CodeDelete;
using qorquicomponents::CodeUpdate;
using qorquicomponents::ConnectPage;
using qorquicomponents::TipWindows;

namespace {

const QString kPale = QStringLiteral("color: rgba(0,0,0,0.20);");
const QString kDark = QStringLiteral("color: rgba(0,0,0,0.90);");

// A window like the main one holding a connect page.
struct PageHost {
    PageHost() : window(new QWidget), page(new ConnectPage(window.get())) {
        auto* layout = new QVBoxLayout(window.get());
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(page);
        window->resize(1008, 544);
        // Like the main window, the host holds the focus at first.
        window->setFocusPolicy(Qt::StrongFocus);
        window->setFocus();
        window->show();
        QVERIFY(QTest::qWaitForWindowExposed(window.get()));
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
    }
    ~PageHost() { page->getCodeList()->hide(); }

    QLineEdit* edit() const { return page->getConnectCodeEdit(); }
    QPushButton* start() const { return page->getStartConnectBtn(); }
    QListWidget* list() const { return page->getCodeList(); }
    QStringList listTexts() const {
        QStringList texts;
        for (int i = 0; i < list()->count(); ++i) texts << list()->item(i)->text();
        return texts;
    }
    bool focusEntry() const {
        edit()->setFocus(Qt::MouseFocusReason);
        return QTest::qWaitFor([this] { return edit()->hasFocus(); }, 5000);
    }
    void focusElsewhere() const { window->setFocus(Qt::TabFocusReason); }

    std::unique_ptr<QWidget> window;
    ConnectPage* page;
};

tagDeviceInfo_ panelInfo(const char* model, const char* name) {
    tagDeviceInfo_ info{};
    std::strncpy(info.szModel, model, sizeof info.szModel - 1);
    std::strncpy(info.szName, name, sizeof info.szName - 1);
    return info;
}

int measured(const QString& family, int pixelSize, const QString& text) {
    QFont font(family);
    font.setPixelSize(pixelSize);
    return QFontMetrics(font).horizontalAdvance(text);
}

}  // namespace

class TestConnectPage : public QObject {
    Q_OBJECT

private slots:
    void cleanup();
    void entryShowsThePalePlaceholderUntilFocused();
    void typingIsUpperCasedLengthLimitedAndValidated();
    void startButtonNeedsFourCharactersAndAPasscodeServerForFour();
    void completionListFollowsTheCodeMapInKeyOrderAndStopsEarly();
    void completionListKeyboardAndMouse();
    void codeMapUpkeepFromAnyThread();
    void connectedViewCaptionAndBadge();
    void castingEntriesAndLayouts();
};

void TestConnectPage::cleanup() {
    g_strLanguage = "English";
    TipWindows::getInstance()->hide();
}

void TestConnectPage::entryShowsThePalePlaceholderUntilFocused() {
    PageHost host;
    QLineEdit* edit = host.edit();
    const QString placeholder = ConnectPage::placeholderText();
    QCOMPARE(placeholder, QStringLiteral("inPut Connected Code"));
    QCOMPARE(edit->text(), placeholder);
    QCOMPARE(host.page->getConnectCode(), placeholder);
    QVERIFY(edit->styleSheet().contains(kPale));
    QCOMPARE(edit->font().pixelSize(), 16);
    QVERIFY(!edit->font().bold());
    QCOMPARE(edit->maxLength(), 32767);
    QVERIFY(!host.start()->isEnabled());
    QCOMPARE(edit->contextMenuPolicy(), Qt::NoContextMenu);

    // Focus clears the placeholder and switches to the input look.
    QVERIFY(host.focusEntry());
    QCOMPARE(edit->text(), QString());
    QVERIFY(edit->styleSheet().contains(kDark));
    QCOMPARE(edit->font().pixelSize(), 18);
    QVERIFY(edit->font().bold());
    QCOMPARE(edit->maxLength(), 8);

    // Leaving it empty puts the placeholder back; leaving a code keeps it.
    host.focusElsewhere();
    QTRY_COMPARE(edit->text(), placeholder);
    QVERIFY(edit->styleSheet().contains(kPale));
    QCOMPARE(edit->maxLength(), 32767);
    QVERIFY(!host.start()->isEnabled());

    QVERIFY(host.focusEntry());
    QTest::keyClicks(edit, QStringLiteral("xy12"));
    host.focusElsewhere();
    QTRY_VERIFY(!edit->hasFocus());
    QCOMPARE(edit->text(), QStringLiteral("XY12"));
    QVERIFY(edit->styleSheet().contains(kDark));
    QCOMPARE(edit->maxLength(), 32767);

    // setConnectCode: a real code in the input look, anything else the placeholder.
    host.page->setConnectCode(QStringLiteral("AB12CD"));
    QCOMPARE(edit->text(), QStringLiteral("AB12CD"));
    QVERIFY(edit->styleSheet().contains(kDark));
    host.page->setConnectCode(QString());
    QCOMPARE(edit->text(), placeholder);
    QVERIFY(edit->styleSheet().contains(kPale));
    host.page->setConnectCode(placeholder);
    QVERIFY(edit->styleSheet().contains(kPale));
}

void TestConnectPage::typingIsUpperCasedLengthLimitedAndValidated() {
    PageHost host;
    QLineEdit* edit = host.edit();
    QVERIFY(host.focusEntry());

    QTest::keyClicks(edit, QStringLiteral("ab1"));
    QCOMPARE(edit->text(), QStringLiteral("AB1"));
    QCOMPARE(edit->cursorPosition(), 3);
    QVERIFY(!host.start()->isEnabled());
    QTest::keyClick(edit, Qt::Key_2);
    QCOMPARE(edit->text(), QStringLiteral("AB12"));
    QVERIFY(host.start()->isEnabled());

    // A letter typed in the middle is capitalised and the cursor stays after it.
    edit->setCursorPosition(1);
    QTest::keyClicks(edit, QStringLiteral("x"));
    QCOMPARE(edit->text(), QStringLiteral("AXB12"));
    QCOMPARE(edit->cursorPosition(), 2);

    // Nothing but ASCII letters and digits.
    edit->setCursorPosition(edit->text().length());
    QTest::keyClicks(edit, QStringLiteral("- _."));
    QTest::sendKeyEvent(QTest::Click, edit, Qt::Key_Eacute, QString(QChar(0xE9)), Qt::NoModifier);
    QTest::sendKeyEvent(QTest::Click, edit, Qt::Key_unknown, QString(QChar(0x0416)), Qt::NoModifier);
    QCOMPARE(edit->text(), QStringLiteral("AXB12"));

    // At most 8 characters while focused.
    QTest::keyClicks(edit, QStringLiteral("cdefg"));
    QCOMPARE(edit->text(), QStringLiteral("AXB12CDE"));

    // Pasted lower case is capitalised too.
    edit->clear();
    edit->insert(QStringLiteral("qq77"));
    QCOMPARE(edit->text(), QStringLiteral("QQ77"));

    // Back to three characters disables the button again; empty hides the list.
    QTest::keyClick(edit, Qt::Key_Backspace);
    QVERIFY(!host.start()->isEnabled());
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClick(edit, Qt::Key_Backspace);
    QTest::keyClick(edit, Qt::Key_Backspace);
    QCOMPARE(edit->text(), QString());
    QVERIFY(!host.list()->isVisible());
    QCOMPARE(host.page->getListRow(), 0);
}

void TestConnectPage::startButtonNeedsFourCharactersAndAPasscodeServerForFour() {
    PageHost host;
    QSignalSpy connects(host.page, &ConnectPage::signalConnect);
    TipWindows* tip = TipWindows::getInstance();
    tip->hide();

    QVERIFY(host.focusEntry());
    QTest::keyClicks(host.edit(), QStringLiteral("abcd"));
    QTest::mouseClick(host.start(), Qt::LeftButton);
    QCOMPARE(connects.count(), 0);
    QVERIFY(tip->isVisible());
    QCOMPARE(tip->displayText(), QStringLiteral("Passcode server not configured,please check and try again"));
    QCOMPARE(tip->displayLevel(), qorquicomponents::ErrorLevelRisk);
    QCOMPARE(tip->displayType(), qorquicomponents::TipWindowPlain);
    QCOMPARE(tip->getCurrentFatherWidget(), host.window.get());

    // A port that is not a number counts as no port.
    {
        zvtest::PasscodeServerScope server("10.1.2.3", "none");
        QTest::keyClick(host.edit(), Qt::Key_Return);
        QCOMPARE(connects.count(), 0);
    }
    {
        zvtest::PasscodeServerScope server("10.1.2.3", "47900");
        QTest::mouseClick(host.start(), Qt::LeftButton);
        QCOMPARE(connects.count(), 1);
        QCOMPARE(connects.takeFirst().at(0).toString(), QStringLiteral("ABCD"));
    }

    // Five to eight characters need no server; Enter starts too.
    tip->hide();
    QTest::keyClicks(host.edit(), QStringLiteral("12"));
    QTest::keyClick(host.edit(), Qt::Key_Enter);
    QCOMPARE(connects.count(), 1);
    QCOMPARE(connects.takeFirst().at(0).toString(), QStringLiteral("ABCD12"));
    QVERIFY(!tip->isVisible());

    // Three characters: Enter does nothing.
    host.edit()->clear();
    QTest::keyClicks(host.edit(), QStringLiteral("abc"));
    QTest::keyClick(host.edit(), Qt::Key_Return);
    QCOMPARE(connects.count(), 0);
}

void TestConnectPage::completionListFollowsTheCodeMapInKeyOrderAndStopsEarly() {
    PageHost host;
    host.page->setDeviceConnectCode(QStringLiteral("C"), QString(), QStringLiteral("1299"), CodeAdd);
    host.page->setDeviceConnectCode(QStringLiteral("A"), QString(), QStringLiteral("1234"), CodeAdd);
    host.page->setDeviceConnectCode(QStringLiteral("B"), QString(), QStringLiteral("12345678"), CodeAdd);
    QVERIFY(host.focusEntry());

    QTest::keyClicks(host.edit(), QStringLiteral("12"));
    QTRY_VERIFY(host.list()->isVisible());
    QCOMPARE(host.listTexts(), QStringList({"1234", "12345678", "1299"}));
    QCOMPARE(host.list()->item(1)->data(Qt::UserRole).toString(), QStringLiteral("B"));
    QCOMPARE(host.list()->item(0)->sizeHint(), QSize(320, 39));
    QCOMPARE(host.list()->height(), 136);
    QCOMPARE(host.list()->pos(), host.edit()->mapToGlobal(QPoint(0, 0)) + QPoint(0, 43));
    QCOMPARE(host.list()->currentRow(), 0);

    // The focus the popup took comes back, and the entry keeps its text.
    QTRY_VERIFY(host.edit()->hasFocus());
    QCOMPARE(host.edit()->text(), QStringLiteral("12"));
    QVERIFY(host.list()->isVisible());

    // Case does not matter; two matches give a 96-pixel list.
    QTest::keyClicks(host.edit(), QStringLiteral("3"));
    QCOMPARE(host.listTexts(), QStringList({"1234", "12345678"}));
    QCOMPARE(host.list()->height(), 96);

    // A code as long as the text stops the walk at key A: nothing is offered,
    // even though B and C come later.
    QTest::keyClicks(host.edit(), QStringLiteral("4"));
    QCOMPARE(host.list()->count(), 0);
    QVERIFY(!host.list()->isVisible());
    QCOMPARE(host.page->getListRow(), 0);

    // Five matches are capped at 136 pixels.
    host.edit()->clear();
    for (const char* key : {"D", "E"}) {
        host.page->setDeviceConnectCode(QString::fromLatin1(key), QString(), QStringLiteral("1") + key + "77",
                                        CodeAdd);
    }
    QTest::keyClicks(host.edit(), QStringLiteral("1"));
    QTRY_VERIFY(host.list()->isVisible());
    QCOMPARE(host.list()->count(), 5);
    QCOMPARE(host.list()->height(), 136);

    // A mouse press elsewhere on the page hides the list.
    QTest::mousePress(host.page, Qt::LeftButton, Qt::NoModifier, QPoint(5, 5));
    QVERIFY(!host.list()->isVisible());
}

void TestConnectPage::completionListKeyboardAndMouse() {
    PageHost host;
    host.page->setDeviceConnectCode(QStringLiteral("A"), QString(), QStringLiteral("5501"), CodeAdd);
    host.page->setDeviceConnectCode(QStringLiteral("B"), QString(), QStringLiteral("5502AB"), CodeAdd);
    host.page->setDeviceConnectCode(QStringLiteral("C"), QString(), QStringLiteral("5503"), CodeAdd);
    QVERIFY(host.focusEntry());
    QTest::keyClicks(host.edit(), QStringLiteral("55"));
    QTRY_VERIFY(host.list()->isVisible());
    QTRY_VERIFY(host.edit()->hasFocus());

    // Down and Up move the row within the list, in the keyboard look.
    QTest::keyClick(host.edit(), Qt::Key_Down);
    QCOMPARE(host.page->getListRow(), 1);
    QCOMPARE(host.list()->currentRow(), 1);
    QVERIFY(host.list()->styleSheet().contains(QStringLiteral("QListWidget::item:hover{background:#FFFFFF;}")));
    QTest::keyClick(host.edit(), Qt::Key_Down);
    QTest::keyClick(host.edit(), Qt::Key_Down);
    QCOMPARE(host.page->getListRow(), 2);
    QTest::keyClick(host.edit(), Qt::Key_Up);
    QCOMPARE(host.page->getListRow(), 1);

    // Enter takes the row's code and closes the list.
    QSignalSpy connects(host.page, &ConnectPage::signalConnect);
    QTest::keyClick(host.edit(), Qt::Key_Return);
    QCOMPARE(host.edit()->text(), QStringLiteral("5502AB"));
    QVERIFY(!host.list()->isVisible());
    QCOMPARE(host.page->getListRow(), 0);
    QCOMPARE(connects.count(), 0);

    // Hovering switches to the mouse look and follows the pointer; leaving
    // the list puts the current row back; a click takes the item.
    host.edit()->clear();
    QTest::keyClicks(host.edit(), QStringLiteral("55"));
    QTRY_VERIFY(host.list()->isVisible());
    host.page->onCodeListItemEntered(host.list()->item(2));
    QCOMPARE(host.page->getListRow(), 2);
    QVERIFY(host.list()->styleSheet().contains(QStringLiteral("QListWidget::item:hover{background:rgba(28,127,255,0.2);}")));
    QVERIFY(host.list()->selectedItems().isEmpty());
    host.list()->setCurrentRow(0);
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(host.list(), &leave);
    QCOMPARE(host.list()->currentRow(), 2);
    host.page->onCodeListItemClicked(host.list()->item(2));
    QCOMPARE(host.edit()->text(), QStringLiteral("5503"));
    QVERIFY(!host.list()->isVisible());
    QCOMPARE(host.page->getListRow(), 0);
}

void TestConnectPage::codeMapUpkeepFromAnyThread() {
    PageHost host;
    ConnectPage* page = host.page;
    QVERIFY(host.focusEntry());

    page->setDeviceConnectCode(QStringLiteral("K1"), QString(), QStringLiteral("7001"), CodeAdd);
    page->setDeviceConnectCode(QStringLiteral("K1"), QString(), QStringLiteral("7999"), CodeAdd);  // key known: kept
    page->setDeviceConnectCode(QStringLiteral("K2"), QString(), QString(), CodeAdd);                // no code: ignored
    page->setDeviceConnectCode(QStringLiteral("K3"), QString(), QStringLiteral("7003"), CodeUpdate);  // unknown: ignored
    QTest::keyClicks(host.edit(), QStringLiteral("7"));
    QTRY_VERIFY(host.list()->isVisible());
    QCOMPARE(host.listTexts(), QStringList({"7001"}));

    // While the list is shown, changes rebuild it, also from another thread.
    std::thread discovery([page] {
        page->setDeviceConnectCode(QStringLiteral("K0"), QString(), QStringLiteral("7000"), CodeAdd);
        page->setDeviceConnectCode(QStringLiteral("K1"), QString(), QStringLiteral("7011"), CodeUpdate);
    });
    discovery.join();
    QTRY_COMPARE(host.listTexts(), QStringList({"7000", "7011"}));

    page->setDeviceConnectCode(QStringLiteral("K1"), QString(), QString(), CodeUpdate);   // no code: kept
    page->setDeviceConnectCode(QStringLiteral("K0"), QString(), QString(), CodeDelete);   // no code: kept
    QCOMPARE(host.listTexts(), QStringList({"7000", "7011"}));
    page->setDeviceConnectCode(QStringLiteral("K0"), QString(), QStringLiteral("7000"), CodeDelete);
    QCOMPARE(host.listTexts(), QStringList({"7011"}));
    page->setDeviceConnectCode(QStringLiteral("K1"), QString(), QStringLiteral("7011"), CodeDelete);
    QVERIFY(!host.list()->isVisible());
}

void TestConnectPage::connectedViewCaptionAndBadge() {
    PageHost host;
    ConnectPage* page = host.page;
    auto* name = page->findChild<QLabel*>(QStringLiteral("screenNameLab"));
    auto* model = page->findChild<QLabel*>(QStringLiteral("screenModelLab"));
    auto* badge = page->findChild<QLabel*>(QStringLiteral("connectedLab"));
    QVERIFY(name && model && badge);
    const QString family = QStringLiteral("Microsoft YaHei UI");
    const int pageWidth = page->width();
    const int badgeWidth = measured(family, 12, QStringLiteral("Connected")) + 16;

    page->setBigScreenInfo(panelInfo("ZV-P86A", "Room A"));
    page->setConnectShow();
    QCOMPARE(name->text(), QStringLiteral("Room A"));
    QCOMPARE(model->text(), QStringLiteral("ZV-P86A"));
    QVERIFY(badge->isVisible());
    QCOMPARE(badge->text(), QStringLiteral("Connected"));
    QCOMPARE(badge->width(), badgeWidth);
    const int shortWidth = measured(family, 26, QStringLiteral("Room A"));
    QCOMPARE(badge->pos(), QPoint((shortWidth + pageWidth) / 2 + 12, 52));

    // A long name is elided to 364 pixels, but the badge is placed from the
    // whole name's width.
    const QString longName = QString(40, QLatin1Char('W'));
    page->setBigScreenInfo(panelInfo("ZV-P86A", longName.toLatin1().constData()));
    const int longWidth = measured(family, 26, longName);
    QVERIFY(longWidth > 364);
    QVERIFY(name->text().endsWith(QChar(0x2026)));
    QVERIFY(measured(family, 26, name->text()) <= 364);
    QCOMPARE(badge->x(), (longWidth + pageWidth) / 2 + 12);

    // Right-to-left languages put the badge before the name.
    g_strLanguage = "Hebrew";
    page->setBigScreenInfo(panelInfo("ZV-P86A", "Room A"));
    QCOMPARE(badge->pos(), QPoint((pageWidth - shortWidth) / 2 - 12 - badgeWidth, 52));
    g_strLanguage = "English";

    // The code-entry layout hides the connected widgets again.
    page->setNormalShow();
    QVERIFY(!badge->isVisible());
    QVERIFY(!name->isVisible());
    QVERIFY(host.edit()->isVisible());
    QVERIFY(page->findChild<QLabel*>(QStringLiteral("titleLab"))->isVisible());
}

void TestConnectPage::castingEntriesAndLayouts() {
    PageHost host;
    ConnectPage* page = host.page;
    page->setConnectShow();
    page->setConnectCode(QStringLiteral("AB12CD34"));
    auto entry = [page](const char* name) { return page->findChild<QToolButton*>(QString::fromLatin1(name)); };

    QSignalSpy screens(page, &ConnectPage::signalStartScreen);
    QSignalSpy reverses(page, &ConnectPage::signalReverseScreen);
    QSignalSpy windows(page, &ConnectPage::signalWindowScreen);
    QSignalSpy expands(page, &ConnectPage::signalExpandScreen);
    QSignalSpy files(page, &ConnectPage::signalFileScreen);
    QSignalSpy stops(page, &ConnectPage::signalStopconnect);
    QTest::mouseClick(entry("mirrorScreenBtn"), Qt::LeftButton);
    QTest::mouseClick(entry("reverseScreenBtn"), Qt::LeftButton);
    QTest::mouseClick(entry("windowScreenBtn"), Qt::LeftButton);
    QTest::mouseClick(entry("fileScreenBtn"), Qt::LeftButton);
    QTest::mouseClick(page->findChild<QPushButton*>(QStringLiteral("disconnectBtn")), Qt::LeftButton);
    QCOMPARE(screens.count(), 1);
    QCOMPARE(screens.at(0).at(0).toString(), QStringLiteral("AB12CD34"));
    QCOMPARE(reverses.count(), 1);
    QCOMPARE(reverses.at(0).at(0).toString(), QStringLiteral("AB12CD34"));
    QCOMPARE(windows.count(), 1);
    QCOMPARE(files.count(), 0);
    QCOMPARE(stops.count(), 1);

    // The expand entry looks disabled on Linux; on a virtual machine a click
    // only explains why.
    QCOMPARE(entry("expandScreenBtn")->property("Status").toString(), QStringLiteral("Disable"));
    TipWindows::getInstance()->hide();
    QTest::mouseClick(entry("expandScreenBtn"), Qt::LeftButton);
    if (MC_Util_IsVirtulPC()) {
        QCOMPARE(expands.count(), 0);
        QVERIFY(TipWindows::getInstance()->isVisible());
        QCOMPARE(TipWindows::getInstance()->displayText(), QStringLiteral("virtual PC do not support Extend screen"));
        QCOMPARE(TipWindows::getInstance()->displayLevel(), qorquicomponents::ErrorLevelWarn);
    } else {
        QCOMPARE(expands.count(), 1);
    }

    // The file entry's look follows enableFileCastBtn through its style.
    QToolButton* file = entry("fileScreenBtn");
    const qint64 enabledIcon = file->icon().cacheKey();
    page->enableFileCastBtn(false);
    QVERIFY(!page->isFileCastEnabled());
    QCOMPARE(file->property("Status").toString(), QStringLiteral("Disable"));
    QVERIFY(file->icon().cacheKey() != enabledIcon);
    page->enableFileCastBtn(true);
    QCOMPARE(file->property("Status").toString(), QStringLiteral("Enable"));

    // Button widths come from their texts, between 240 and 800.
    QFont font(QStringLiteral("Microsoft YaHei"));
    font.setPixelSize(16);
    const int expected = qBound(240, QFontMetrics(font).horizontalAdvance(QStringLiteral("Start Connect")) + 48, 800);
    QCOMPARE(host.start()->width(), expected);

    // Long-text languages get a two-line title area in the code-entry layout.
    g_strLanguage = "German";
    ConnectPage german(host.window.get());
    auto* title = german.findChild<QLabel*>(QStringLiteral("titleLab"));
    auto* titleArea = german.findChild<QWidget*>(QStringLiteral("titleWidget"));
    QCOMPARE(title->height(), 68);
    QCOMPARE(titleArea->layout()->contentsMargins(), QMargins(0, 25, 0, 24));
    german.setConnectShow();
    QCOMPARE(titleArea->layout()->contentsMargins(), QMargins(0, 45, 0, 24));
    QCOMPARE(german.findChild<QLabel*>(QStringLiteral("screenNameLab"))->height(), 48);
    QVERIFY(german.findChild<QLabel*>(QStringLiteral("iconLab"))->styleSheet().contains(QStringLiteral("padding-left:73px")));
    QVERIFY(page->findChild<QLabel*>(QStringLiteral("iconLab"))->styleSheet().contains(QStringLiteral("padding-left:97px")));
}

QTEST_MAIN(TestConnectPage)
#include "test_connect_page.moc"
