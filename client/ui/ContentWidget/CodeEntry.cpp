#include "ui/ContentWidget/CodeEntry.h"

#include <QEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QRegularExpressionValidator>

#include "casting/CClientConfig.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"

namespace qorquicomponents {

namespace {

constexpr int kFocusedMaxLength = 8;
constexpr int kUnfocusedMaxLength = 32767;  // the placeholder is longer than a code
constexpr int kMinCodeLength = 4;
constexpr int kTipTopOffset = 48;

QString entryStyle(bool realInput) {
    return QStringLiteral(
               "QLineEdit{background:#FFFFFF; border:1px solid #D5DBE5; border-radius:8px; padding:0px 16px; %1"
               " font-family:\"Microsoft YaHei UI\"; font-size:%2px; font-weight:%3;}"
               " QLineEdit:focus{border:1px solid #1C7FFF;}")
        .arg(QLatin1String(realInput ? "color: rgba(0,0,0,0.90);" : "color: rgba(0,0,0,0.20);"),
             QString::number(realInput ? 18 : 16), QLatin1String(realInput ? "bold" : "normal"));
}

}  // namespace

CodeEntry::CodeEntry(QLineEdit* edit, QPushButton* start, PlaceholderCase placeholderCase)
    : m_edit(edit), m_start(start), m_placeholderCase(placeholderCase) {
    m_edit->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[a-zA-Z0-9]+$")), m_edit));
    m_edit->setMaxLength(kUnfocusedMaxLength);
    setCode(QString());
    m_start->setEnabled(false);
}

void CodeEntry::showPlaceholderLook() { m_edit->setStyleSheet(entryStyle(false)); }
void CodeEntry::showInputLook() { m_edit->setStyleSheet(entryStyle(true)); }

void CodeEntry::setCode(const QString& code) {
    if (!code.isEmpty() && code != ConnectPage::placeholderText()) {
        showInputLook();
        m_edit->setText(code);
    } else {
        showPlaceholderLook();
        m_edit->setText(ConnectPage::placeholderText());
    }
}

bool CodeEntry::onTextChanged(const QString& text) {
    if (m_inTextChange) return false;
    const QString placeholder = ConnectPage::placeholderText();
    const bool keepsPlaceholder = m_placeholderCase == PlaceholderCase::Kept || g_strLanguage == "English" ||
                                  g_strLanguage == "Croatian";
    if ((!keepsPlaceholder || text != placeholder) && text.toUpper() != text) {
        const int cursor = m_edit->cursorPosition();
        m_inTextChange = true;
        m_edit->setText(text.toUpper());
        m_edit->setCursorPosition(cursor);
        m_inTextChange = false;
    }
    const QString current = m_edit->text();
    m_start->setEnabled(current.length() >= kMinCodeLength && current != placeholder);
    return true;
}

void CodeEntry::onFocusEvent(const QEvent* event) {
    if (event->type() == QEvent::FocusIn) {
        if (m_edit->text() == ConnectPage::placeholderText()) m_edit->clear();
        showInputLook();
        m_edit->setMaxLength(kFocusedMaxLength);
    } else if (event->type() == QEvent::FocusOut) {
        m_edit->setMaxLength(kUnfocusedMaxLength);
        if (m_edit->text().isEmpty()) setCode(QString());
    }
}

PasscodeServerSetting PasscodeServerSetting::read() {
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    PasscodeServerSetting setting;
    const QString ip = QString::fromStdString(config.getServerIP()).trimmed();
    if (!ip.contains(QLatin1Char(':'))) {
        setting.ip = ip.toStdString();
        setting.port = QString::fromStdString(config.getServerPort()).toInt();
        return setting;
    }
    // A list: the first instance stands for it where one address is shown or checked.
    const QString first = ip.section(QLatin1Char(','), 0, 0).section(QLatin1Char('#'), 0, 0).trimmed();
    const int colon = first.lastIndexOf(QLatin1Char(':'));
    setting.ip = first.left(colon).toStdString();
    setting.port = first.mid(colon + 1).toInt();
    setting.list = ip.toStdString();
    return setting;
}

void showPasscodeServerMissingTip(QWidget* anchor) {
    TipWindows::getInstance()->setDisplayText(ErrorLevelRisk, ConnectPage::passcodeServerMissingText(),
                                              TipWindowPlain, anchor, kTipTopOffset);
}

}  // namespace qorquicomponents
