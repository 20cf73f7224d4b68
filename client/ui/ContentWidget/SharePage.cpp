#include "ui/ContentWidget/SharePage.h"

#include <QFile>
#include <QLineEdit>
#include <QPushButton>

#include "casting/Log.h"
#include "ui/ContentWidget/CodeEntry.h"
#include "ui_SharePage.h"

namespace qorquicomponents {

SharePage::SharePage(QWidget* parent) : QWidget(parent), ui(new Ui::SharePage), m_parentWindow(parent) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/ConnectPage.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    QLineEdit* edit = ui->reverseCodeEdit;
    m_codeEntry = std::make_unique<CodeEntry>(edit, ui->startReverseScreenBtn,
                                              CodeEntry::PlaceholderCase::KeptInEnglishAndCroatian);
    edit->installEventFilter(this);

    connect(edit, &QLineEdit::textChanged, this, &SharePage::onTextChanged);
    connect(ui->startReverseScreenBtn, &QPushButton::clicked, this, &SharePage::onStartCodeReverseScreen);
}

SharePage::~SharePage() { delete ui; }

QLineEdit* SharePage::getReverseScreenCodeEdit() const { return ui->reverseCodeEdit; }
QPushButton* SharePage::getStartReverseScreenBtn() const { return ui->startReverseScreenBtn; }
QString SharePage::getReverseScreenConnectCode() const { return ui->reverseCodeEdit->text(); }

void SharePage::onTextChanged(const QString& text) { m_codeEntry->onTextChanged(text); }

void SharePage::onStartCodeReverseScreen() {
    const QString code = ui->reverseCodeEdit->text();
    const PasscodeServerSetting server = PasscodeServerSetting::read();
    if (!server.isConfigured() && code.toUtf8().size() == 4) {
        ZV_LOG(WARNING) << " Start code reverse screen fail, code server IP: " << server.ip << ", port: " << server.port
                        << ", code: " << code.toStdString();
        showPasscodeServerMissingTip(m_parentWindow);
        return;
    }
    emit signalStartReverseScreen(code.trimmed());
}

bool SharePage::eventFilter(QObject* watched, QEvent* event) {
    if (watched == ui->reverseCodeEdit) m_codeEntry->onFocusEvent(event);
    return false;
}

}  // namespace qorquicomponents
