#include "ui/ManageErrorCode.h"

#include <QCoreApplication>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "ui/DynamicWindow.h"
#include "ui/PopupWindow.h"

namespace qorquicomponents {

namespace {

using Action = ManageErrorCode::Action;

constexpr ManageErrorCode::Row tip(unsigned int code, const char* text, ErrorLevel level, TipWindowType type) {
    return {code, Action::Tip, text, level, type};
}
constexpr ManageErrorCode::Row silent(unsigned int code, Action action = Action::NoTip) {
    return {code, action, nullptr, ErrorLevelRisk, TipWindowPlain};
}

const ManageErrorCode::Row kTable[] = {
    tip(0xF3200001, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Failed to connect to the screen,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF3200002, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Request denied,please check the screen permission settings"),
        ErrorLevelRisk, TipWindowPlain),
    silent(0xF3200003, Action::WaitPopup),
    tip(0xF3200004, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Big screen version is too low, please upgrade and try again"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3200005, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Mirroring screen abnormal,please quit application and try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    silent(0xF3200006),  // an ordinary log-out
    silent(0xF3200007),  // a refusal without a reason
    tip(0xF3200009, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "There is no network at present, please check and try again"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF320000B, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Reverse screen abnormal,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF3201000, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Passcode input error"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3201001, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Failed to connect to the screen,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF3201002, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Get infomation from passcode server fail, please check and try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    silent(0xF3202001),  // refused by an auxiliary panel
    silent(0xF3202002, Action::MouseNotice),
    tip(0xF3202003, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Mirroring screen abnormal,please quit application and try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF3202004, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "You have been removed from the screen"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3202005, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Failed to turn on sound mirroring screen,please try again"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3202006, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Failed to turn on reverse control,please try again"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3202007, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "The current screen can only be mirroring screen at 1080P resolution"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF320200A, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Mirroring screen abnormal,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF320200C, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Mirroring screen abnormal,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF320200D, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Fast screen mirroring fail,please try again"),
        ErrorLevelRisk, TipWindowWithDetails),
    tip(0xF320200E, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "The number of screens exceeds the limit. Please exit other screens first"),
        ErrorLevelRisk, TipWindowPlain),
    silent(0xF3203000),
    silent(0xF3203001),
    tip(0xF3203002, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "The number of reverse screens exceeds the limit. Please exit other reverse screens first"),
        ErrorLevelRisk, TipWindowPlain),
    tip(0xF3204011, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Screen mirroring ended"),
        ErrorLevelWarn, TipWindowPlain),
    tip(0xF3204012, QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode",
                                      "Reverse screen mirroring ended"),
        ErrorLevelWarn, TipWindowPlain),
};

const char* const kMouseNoticeTitle = QT_TRANSLATE_NOOP("qorquicomponents::ManageErrorCode", "Mouse screen error");
const char* const kMouseNoticeText = QT_TRANSLATE_NOOP(
    "qorquicomponents::ManageErrorCode", "The mouse cannot be displayed on the large screen,please try again");

}  // namespace

ManageErrorCode* ManageErrorCode::getInstance() {
    static ManageErrorCode* instance = new ManageErrorCode();
    return instance;
}

ManageErrorCode::Row ManageErrorCode::rowFor(unsigned int code) {
    for (const Row& row : kTable) {
        if (row.code == code) return row;
    }
    return silent(code);
}

void ManageErrorCode::handleErrorCode(unsigned int code) {
    TipWindows* tipWindow = TipWindows::getInstance();
    tipWindow->setNeedShowErrorCode(code);
    const Row row = rowFor(code);
    ZV_LOG(INFO) << " error code: 0x" << std::hex << std::uppercase << code;
    switch (row.action) {
    case Action::Tip:
        tipWindow->setDisplayText(row.level, tr(row.text), row.type, nullptr, kTipTopOffset);
        break;
    case Action::WaitPopup:
        PopupWindow::getInstance()->setDisplayInfo(PopupReasonAuthorizationRequired);
        break;
    case Action::MouseNotice:
        if (m_dynamicWindow != nullptr) m_dynamicWindow->deleteLater();
        m_dynamicWindow = new DynamicWindow(nullptr);
        m_dynamicWindow->setAttribute(Qt::WA_DeleteOnClose, true);
        m_dynamicWindow->setWindowContent(QStringLiteral("error"), tr(kMouseNoticeTitle), tr(kMouseNoticeText),
                                          DynamicWindowConfirm, 0);
        m_dynamicWindow->showMessage();
        break;
    case Action::NoTip:
        break;
    }
}

}  // namespace qorquicomponents
