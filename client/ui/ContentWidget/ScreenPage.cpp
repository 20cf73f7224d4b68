#include "ui/ContentWidget/ScreenPage.h"

#include <QEvent>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QRegularExpressionValidator>

#include <cstring>

#include "casting/CClientConfig.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/TipWindows.h"
#include "ui_ScreenPage.h"

namespace qorquicomponents {

namespace {
constexpr int kFocusedMaxLength = 8;
constexpr int kUnfocusedMaxLength = 32767;

QString entryStyle(bool realInput) {
    return QStringLiteral(
               "QLineEdit{background:#FFFFFF; border:1px solid #D5DBE5; border-radius:8px; padding:0px 16px; %1"
               " font-family:\"Microsoft YaHei UI\"; font-size:%2px; font-weight:%3;}"
               " QLineEdit:focus{border:1px solid #1C7FFF;}")
        .arg(QLatin1String(realInput ? "color: rgba(0,0,0,0.90);" : "color: rgba(0,0,0,0.20);"),
             QString::number(realInput ? 18 : 16), QLatin1String(realInput ? "bold" : "normal"));
}
}  // namespace

ScreenPage::ScreenPage(QWidget* parent) : QWidget(parent), ui(new Ui::ScreenPage), m_parentWindow(parent) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/ConnectPage.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    QLineEdit* edit = ui->screenCodeEdit;
    edit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[a-zA-Z0-9]+$")), edit));
    edit->setMaxLength(kUnfocusedMaxLength);
    showPlaceholderLook();
    edit->setText(ConnectPage::placeholderText());
    ui->startScreenBtn->setEnabled(false);
    edit->installEventFilter(this);

    connect(edit, &QLineEdit::textChanged, this, &ScreenPage::onTextChanged);
    connect(ui->startScreenBtn, &QPushButton::clicked, this, [this] { onStartCodeScreenBtnClicked(false); });
}

ScreenPage::~ScreenPage() { delete ui; }

QLineEdit* ScreenPage::getScreenCodeEdit() const { return ui->screenCodeEdit; }
QPushButton* ScreenPage::getStartScreenBtn() const { return ui->startScreenBtn; }
QString ScreenPage::getScreenConnectCode() const { return ui->screenCodeEdit->text(); }

void ScreenPage::showPlaceholderLook() { ui->screenCodeEdit->setStyleSheet(entryStyle(false)); }
void ScreenPage::showInputLook() { ui->screenCodeEdit->setStyleSheet(entryStyle(true)); }

void ScreenPage::setConnectCode(const QString& code) {
    if (!code.isEmpty() && code != ConnectPage::placeholderText()) {
        showInputLook();
        ui->screenCodeEdit->setText(code);
    } else {
        showPlaceholderLook();
        ui->screenCodeEdit->setText(ConnectPage::placeholderText());
    }
}

void ScreenPage::setDeviceConnectCode(const QString& deviceKey, const QString&, const QString& code,
                                      CodeStatus state) {
    std::lock_guard<std::mutex> lock(m_codeMapMutex);
    const bool known = m_codeMap.contains(deviceKey);
    if (state == CodeAdd && !known && !code.isEmpty()) m_codeMap.insert(deviceKey, code);
    if (state == CodeUpdate && known && !code.isEmpty()) m_codeMap.insert(deviceKey, code);
    if (state == CodeDelete && known && !code.isEmpty()) m_codeMap.remove(deviceKey);
}

void ScreenPage::setBigScreenInfo(const tagDeviceInfo_& info) {
    m_panelName = QString::fromUtf8(info.szName, static_cast<int>(strnlen(info.szName, sizeof info.szName)));
}

void ScreenPage::showSelectWindow() {
    ++m_selectWindowRequests;
    ZV_LOG(INFO) << " window selection requested for " << m_panelName.toStdString();
    emit signalShowLoading(false);
    emit signalSelectWindow();
}

void ScreenPage::onTextChanged(const QString& text) {
    if (m_inTextChange) return;
    QLineEdit* edit = ui->screenCodeEdit;
    const QString placeholder = ConnectPage::placeholderText();
    if (text != placeholder && text.toUpper() != text) {
        const int cursor = edit->cursorPosition();
        m_inTextChange = true;
        edit->setText(text.toUpper());
        edit->setCursorPosition(cursor);
        m_inTextChange = false;
    }
    const QString current = edit->text();
    ui->startScreenBtn->setEnabled(current.length() > 3 && current != placeholder);
}

void ScreenPage::onStartCodeScreenBtnClicked(bool skipServerCheck) {
    const QString code = ui->screenCodeEdit->text().trimmed();
    if (!skipServerCheck) {
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        const std::string serverIp = config.getServerIP();
        const int serverPort = QString::fromStdString(config.getServerPort()).toInt();
        if ((serverIp.empty() || serverPort == 0) && code.length() == 4) {
            ZV_LOG(WARNING) << " Start code screen fail, code server IP: " << serverIp << ", port: " << serverPort
                            << ", code: " << code.toStdString();
            TipWindows::getInstance()->setDisplayText(
                ErrorLevelRisk, ConnectPage::tr("Passcode server not configured,please check and try again"),
                TipWindowPlain, m_parentWindow, 48);
            return;
        }
    }
    emit signalShowLoading(true);
    ZV_LOG(INFO) << " Start window mode screen";
    emit signalWindowScreen(ui->screenCodeEdit->text());
}

bool ScreenPage::eventFilter(QObject* watched, QEvent* event) {
    QLineEdit* edit = ui->screenCodeEdit;
    if (watched != edit) return false;
    if (event->type() == QEvent::FocusIn) {
        if (edit->text() == ConnectPage::placeholderText()) edit->clear();
        showInputLook();
        edit->setMaxLength(kFocusedMaxLength);
    } else if (event->type() == QEvent::FocusOut) {
        edit->setMaxLength(kUnfocusedMaxLength);
        if (edit->text().isEmpty()) setConnectCode(QString());
    }
    return false;
}

}  // namespace qorquicomponents
