// The tip window (sizing, icons, placement, hold and the details hand-over)
// and the error-code table with the prompts it opens.
#include <QtTest/QtTest>

#include <QFile>
#include <QFontMetrics>
#include <QImage>
#include <QLabel>
#include <QPointer>
#include <QPushButton>

#include "ui/DetailsExpansionWindow.h"
#include "ui/DynamicWindow.h"
#include "ui/ManageErrorCode.h"
#include "ui/PopupWindow.h"
#include "ui/TipWindows.h"

using namespace qorquicomponents;

namespace {

int textWidth(const QString& text) {
    QFont font = TipWindows::getInstance()->findChild<QLabel*>(QStringLiteral("textLab"))->font();
    font.setPixelSize(14);
    return QFontMetrics(font).boundingRect(text).width();
}

int detailsTextWidth() {
    auto* button = TipWindows::getInstance()->findChild<QPushButton*>(QStringLiteral("detailsBtn"));
    QFont font = button->font();
    font.setPixelSize(14);
    return QFontMetrics(font).boundingRect(button->text()).width();
}

struct TableRow {
    unsigned int code;
    const char* text;
    ErrorLevel level;
    TipWindowType type;
};

const TableRow kTipRows[] = {
    {0xF3200001, "Failed to connect to the screen,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3200002, "Request denied,please check the screen permission settings", ErrorLevelRisk, TipWindowPlain},
    {0xF3200004, "Big screen version is too low, please upgrade and try again", ErrorLevelRisk, TipWindowPlain},
    {0xF3200005, "Mirroring screen abnormal,please quit application and try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3200009, "There is no network at present, please check and try again", ErrorLevelRisk, TipWindowPlain},
    {0xF320000B, "Reverse screen abnormal,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3201000, "Passcode input error", ErrorLevelRisk, TipWindowPlain},
    {0xF3201001, "Failed to connect to the screen,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3201002, "Get infomation from passcode server fail, please check and try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3202003, "Mirroring screen abnormal,please quit application and try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF3202004, "You have been removed from the screen", ErrorLevelRisk, TipWindowPlain},
    {0xF3202005, "Failed to turn on sound mirroring screen,please try again", ErrorLevelRisk, TipWindowPlain},
    {0xF3202006, "Failed to turn on reverse control,please try again", ErrorLevelRisk, TipWindowPlain},
    {0xF3202007, "The current screen can only be mirroring screen at 1080P resolution", ErrorLevelRisk, TipWindowPlain},
    {0xF320200A, "Mirroring screen abnormal,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF320200C, "Mirroring screen abnormal,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF320200D, "Fast screen mirroring fail,please try again", ErrorLevelRisk, TipWindowWithDetails},
    {0xF320200E, "The number of screens exceeds the limit. Please exit other screens first", ErrorLevelRisk, TipWindowPlain},
    {0xF3203002, "The number of reverse screens exceeds the limit. Please exit other reverse screens first", ErrorLevelRisk, TipWindowPlain},
    {0xF3204011, "Screen mirroring ended", ErrorLevelWarn, TipWindowPlain},
    {0xF3204012, "Reverse screen mirroring ended", ErrorLevelWarn, TipWindowPlain},
};

}  // namespace

class TestTipWindows : public QObject {
    Q_OBJECT

private slots:
    void cleanup();
    void plainTipSizesItselfToItsText();
    void tipWithDetailsSizesItselfToTextAndButton();
    void levelIconsAreRenderedImages();
    void tipCentresOnItsAreaHoldsAndLeaves();
    void detailsHandOverTheCodeOnce();
    void errorTableShowsEachRowsTip();
    void errorTableRowsWithoutTip();
};

void TestTipWindows::cleanup() {
    TipWindows::getInstance()->hide();
    PopupWindow::getInstance()->hide();
    DetailsExpansionWindow::getInstance()->hide();
}

void TestTipWindows::plainTipSizesItselfToItsText() {
    TipWindows* tip = TipWindows::getInstance();
    auto* label = tip->findChild<QLabel*>(QStringLiteral("textLab"));
    auto* details = tip->findChild<QPushButton*>(QStringLiteral("detailsBtn"));
    auto* close = tip->findChild<QPushButton*>(QStringLiteral("closeBtn"));

    const QString shortText = QStringLiteral("Passcode input error");
    const int t = textWidth(shortText) + 10;
    tip->setDisplayText(ErrorLevelRisk, shortText, TipWindowPlain, nullptr, 48);
    QCOMPARE(tip->size(), QSize(t + 96, 64));
    QCOMPARE(label->size(), QSize(t, 20));
    QVERIFY(details->isHidden());
    QVERIFY(close->isHidden());
    QCOMPARE(label->font().pixelSize(), 14);

    // Wider than 504 pixels: two lines in a 616 x 84 tip.
    QString longText = QStringLiteral("The number of reverse screens exceeds the limit.");
    while (textWidth(longText) + 10 <= 504) longText += QStringLiteral(" Please exit other reverse screens first");
    tip->setDisplayText(ErrorLevelRisk, longText, TipWindowPlain, nullptr, 48);
    QCOMPARE(tip->size(), QSize(616, 84));
    QCOMPARE(label->size(), QSize(504, 40));
    QVERIFY(label->wordWrap());
    QCOMPARE(tip->displayText(), longText);
}

void TestTipWindows::tipWithDetailsSizesItselfToTextAndButton() {
    TipWindows* tip = TipWindows::getInstance();
    auto* label = tip->findChild<QLabel*>(QStringLiteral("textLab"));
    auto* details = tip->findChild<QPushButton*>(QStringLiteral("detailsBtn"));
    auto* close = tip->findChild<QPushButton*>(QStringLiteral("closeBtn"));
    QCOMPARE(details->text(), QStringLiteral("ShowDetails"));
    const int b = detailsTextWidth();

    const QString text = QStringLiteral("Reverse screen abnormal,please try again");
    const int t = textWidth(text) + 10;
    QVERIFY(b + t <= 444);
    tip->setDisplayText(ErrorLevelRisk, text, TipWindowWithDetails, nullptr, 48);
    QCOMPARE(tip->size(), QSize(b + t + 72 + 86, 64));
    QCOMPARE(label->size(), QSize(t + 2, 20));
    QCOMPARE(details->size(), QSize(b + 2, 20));
    QVERIFY(!details->isHidden());
    QVERIFY(!close->isHidden());
    // Nothing overlaps or sticks out.
    QVERIFY(label->geometry().right() < details->geometry().left());
    QVERIFY(details->geometry().right() < close->geometry().left());
    QVERIFY(close->geometry().right() < tip->width());

    QString longText = text;
    while (b + textWidth(longText) + 10 <= 444) longText += QStringLiteral(" again");
    tip->setDisplayText(ErrorLevelRisk, longText, TipWindowWithDetails, nullptr, 48);
    QCOMPARE(tip->size(), QSize(616, 84));
    QCOMPARE(label->height(), 40);
    QVERIFY(close->geometry().right() < 616);
}

void TestTipWindows::levelIconsAreRenderedImages() {
    TipWindows* tip = TipWindows::getInstance();
    auto* icon = tip->findChild<QLabel*>(QStringLiteral("iconLab"));
    const struct {
        ErrorLevel level;
        const char* file;
    } icons[] = {{ErrorLevelRisk, "icon_risk2x.png"},
                 {ErrorLevelWarn, "icon_warn2x.png"},
                 {ErrorLevelSuccess, "icon_success2x.png"},
                 {ErrorLevelInfo, "icon_info2x.png"},
                 {ErrorLevelRemind, "icon_remind2x.png"}};
    for (const auto& entry : icons) {
        const QString path = QStringLiteral(":/OrvixUpgrade/image/") + QLatin1String(entry.file);
        QCOMPARE(TipWindows::iconPath(entry.level), path);
        tip->setDisplayText(entry.level, QStringLiteral("text"), TipWindowPlain, nullptr, 48);
        QVERIFY2(icon->styleSheet().contains(QStringLiteral("border-image: url(%1)").arg(path)), entry.file);
        // Drawn at build time from the SVG source at twice the shown size,
        // and not blank.
        const QImage image(path);
        QCOMPARE(image.size(), QSize(40, 40));
        QVERIFY(image.pixelColor(20, 20).alpha() > 0);
        QCOMPARE(image.pixelColor(0, 0).alpha(), 0);
    }
}

void TestTipWindows::tipCentresOnItsAreaHoldsAndLeaves() {
    TipWindows* tip = TipWindows::getInstance();
    QCOMPARE(TipWindows::holdDurationMs(TipWindowPlain), 2000);
    QCOMPARE(TipWindows::holdDurationMs(TipWindowWithDetails), 5000);

    QWidget father;
    tip->setStepfatherWidgetInfo(100, 200, 800, 600);
    tip->setDisplayText(ErrorLevelInfo, QStringLiteral("Centred"), TipWindowPlain, &father, 48);
    QVERIFY(tip->isVisible());
    QCOMPARE(tip->getCurrentFatherWidget(), &father);
    const QPoint target(100 + 400 - tip->width() / 2, 248);
    QTRY_COMPARE(tip->pos(), target);

    // A tip without a parent keeps the father widget.
    tip->setStepfatherWidgetInfo(100, 200, 800, 600);
    tip->setDisplayText(ErrorLevelInfo, QStringLiteral("Again"), TipWindowPlain, nullptr, 48);
    QCOMPARE(tip->getCurrentFatherWidget(), &father);

    // After its hold the tip leaves by itself and forgets the area.
    QTRY_VERIFY_WITH_TIMEOUT(!tip->isVisible(), 15000);
    QCOMPARE(tip->stepfatherArea(), QRect(0, 0, 0, 0));

    // The close button hides it at once.
    tip->setDisplayText(ErrorLevelRisk, QStringLiteral("Closable"), TipWindowWithDetails, nullptr, 48);
    QTest::mouseClick(tip->findChild<QPushButton*>(QStringLiteral("closeBtn")), Qt::LeftButton);
    QVERIFY(!tip->isVisible());
}

void TestTipWindows::detailsHandOverTheCodeOnce() {
    TipWindows* tip = TipWindows::getInstance();
    DetailsExpansionWindow* details = DetailsExpansionWindow::getInstance();
    auto* detailsButton = tip->findChild<QPushButton*>(QStringLiteral("detailsBtn"));

    ManageErrorCode::getInstance()->handleErrorCode(0xF3200001);
    QVERIFY(tip->isVisible());
    QTest::mouseClick(detailsButton, Qt::LeftButton);
    QVERIFY(!tip->isVisible());
    QVERIFY(details->isVisible());
    QCOMPARE(details->errorCode(), 0xF3200001u);
    QCOMPARE(details->messageText(), QStringLiteral("Failed to connect to the screen,please try again"));
    QCOMPARE(tip->needShowErrorCode(), 0u);

    // A second tip without a new code hands over 0.
    tip->setDisplayText(ErrorLevelRisk, QStringLiteral("Something else"), TipWindowWithDetails, nullptr, 48);
    tip->onViewDetailsBtnClicked();
    QCOMPARE(details->errorCode(), 0u);
    QCOMPARE(details->messageText(), QStringLiteral("Something else"));
}

void TestTipWindows::errorTableShowsEachRowsTip() {
    TipWindows* tip = TipWindows::getInstance();
    ManageErrorCode* table = ManageErrorCode::getInstance();
    for (const TableRow& row : kTipRows) {
        tip->hide();
        table->handleErrorCode(row.code);
        const QByteArray name = QByteArray::number(row.code, 16);
        QVERIFY2(tip->isVisible(), name.constData());
        QCOMPARE(tip->displayText(), QString::fromLatin1(row.text));
        QCOMPARE(tip->displayLevel(), row.level);
        QCOMPARE(tip->displayType(), row.type);
        QCOMPARE(tip->needShowErrorCode(), row.code);
    }
}

void TestTipWindows::errorTableRowsWithoutTip() {
    TipWindows* tip = TipWindows::getInstance();
    ManageErrorCode* table = ManageErrorCode::getInstance();
    PopupWindow* popup = PopupWindow::getInstance();

    // Explicit silent rows and unknown codes show nothing but are recorded.
    for (unsigned int code : {0xF3200006u, 0xF3200007u, 0xF3202001u, 0xF3203000u, 0xF3203001u, 0xF3204008u, 0xF3209999u,
                              0x12345678u}) {
        tip->hide();
        table->handleErrorCode(code);
        QVERIFY2(!tip->isVisible(), QByteArray::number(code, 16).constData());
        QCOMPARE(tip->needShowErrorCode(), code);
    }
    QVERIFY(!popup->isVisible());

    // Waiting for the panel's authorisation: the popup with reason 3.
    table->handleErrorCode(0xF3200003);
    QVERIFY(!tip->isVisible());
    QVERIFY(popup->isVisible());
    QCOMPARE(popup->reason(), PopupReasonAuthorizationRequired);
    QCOMPARE(static_cast<int>(popup->reason()), 3);

    // The mouse error: a fresh modal notice, never a tip line.
    table->handleErrorCode(0xF3202002);
    QVERIFY(!tip->isVisible());
    QPointer<DynamicWindow> first = table->lastDynamicWindow();
    QVERIFY(first);
    QVERIFY(first->isVisible());
    QVERIFY(first->parentWidget() == nullptr);
    QCOMPARE(first->windowModality(), Qt::ApplicationModal);
    QCOMPARE(first->iconName(), QStringLiteral("error"));
    QCOMPARE(first->titleText(), QStringLiteral("Mouse screen error"));
    QCOMPARE(first->messageText(), QStringLiteral("The mouse cannot be displayed on the large screen,please try again"));
    QCOMPARE(first->windowType(), DynamicWindowConfirm);
    QCOMPARE(first->extraValue(), 0);
    table->handleErrorCode(0xF3202002);
    QTRY_VERIFY(first.isNull());
    QVERIFY(table->lastDynamicWindow() != nullptr);
    table->lastDynamicWindow()->close();
}

QTEST_MAIN(TestTipWindows)
#include "test_tip_windows.moc"
