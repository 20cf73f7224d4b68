#include "ui/ContentWidget/SharePage.h"

#include <QEvent>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QRegularExpressionValidator>

#include "casting/CClientConfig.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"
#include "ui_SharePage.h"

namespace qorquicomponents {

namespace {
constexpr int kFocusedMaxLength = 8;
constexpr int kUnfocusedMaxLength = 32767;
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

SharePage::SharePage(QWidget* parent) : QWidget(parent), ui(new Ui::SharePage), m_parentWindow(parent) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/ConnectPage.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    QLineEdit* edit = ui->reverseCodeEdit;
    edit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[a-zA-Z0-9]+$")), edit));
    edit->setMaxLength(kUnfocusedMaxLength);
    showPlaceholderLook();
    edit->setText(ConnectPage::placeholderText());
    ui->startReverseScreenBtn->setEnabled(false);
    edit->installEventFilter(this);

    connect(edit, &QLineEdit::textChanged, this, &SharePage::onTextChanged);
    connect(ui->startReverseScreenBtn, &QPushButton::clicked, this, &SharePage::onStartCodeReverseScreen);
}

SharePage::~SharePage() { delete ui; }

QLineEdit* SharePage::getReverseScreenCodeEdit() const { return ui->reverseCodeEdit; }
QPushButton* SharePage::getStartReverseScreenBtn() const { return ui->startReverseScreenBtn; }
QString SharePage::getReverseScreenConnectCode() const { return ui->reverseCodeEdit->text(); }

void SharePage::showPlaceholderLook() { ui->reverseCodeEdit->setStyleSheet(entryStyle(false)); }
void SharePage::showInputLook() { ui->reverseCodeEdit->setStyleSheet(entryStyle(true)); }

void SharePage::onTextChanged(const QString& text) {
    if (m_inTextChange) return;
    QLineEdit* edit = ui->reverseCodeEdit;
    const QString placeholder = ConnectPage::placeholderText();
    // Only these interface languages keep the placeholder as it is written.
    const bool keepsPlaceholder = g_strLanguage == "English" || g_strLanguage == "Croatian";
    if ((!keepsPlaceholder || text != placeholder) && text.toUpper() != text) {
        const int cursor = edit->cursorPosition();
        m_inTextChange = true;
        edit->setText(text.toUpper());
        edit->setCursorPosition(cursor);
        m_inTextChange = false;
    }
    const QString current = edit->text();
    ui->startReverseScreenBtn->setEnabled(current.length() >= 4 && current != placeholder);
}

void SharePage::onStartCodeReverseScreen() {
    const QString code = ui->reverseCodeEdit->text();
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    const std::string serverIp = config.getServerIP();
    const int serverPort = QString::fromStdString(config.getServerPort()).toInt();
    if ((serverIp.empty() || serverPort == 0) && code.toUtf8().size() == 4) {
        ZV_LOG(WARNING) << " Start code reverse screen fail, code server IP: " << serverIp << ", port: " << serverPort
                        << ", code: " << code.toStdString();
        TipWindows::getInstance()->setDisplayText(
            ErrorLevelRisk, ConnectPage::passcodeServerMissingText(),
            TipWindowPlain, m_parentWindow, kTipTopOffset);
        return;
    }
    emit signalStartReverseScreen(code.trimmed());
}

bool SharePage::eventFilter(QObject* watched, QEvent* event) {
    QLineEdit* edit = ui->reverseCodeEdit;
    if (watched != edit) return false;
    if (event->type() == QEvent::FocusIn) {
        if (edit->text() == ConnectPage::placeholderText()) edit->clear();
        showInputLook();
        edit->setMaxLength(kFocusedMaxLength);
    } else if (event->type() == QEvent::FocusOut) {
        edit->setMaxLength(kUnfocusedMaxLength);
        if (edit->text().isEmpty()) {
            showPlaceholderLook();
            edit->setText(ConnectPage::placeholderText());
        }
    }
    return false;
}

}  // namespace qorquicomponents
