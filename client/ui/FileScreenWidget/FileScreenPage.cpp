#include "ui/FileScreenWidget/FileScreenPage.h"

#include <QFile>
#include <QFont>
#include <QFontMetrics>
#include <QPixmap>
#include <QTimer>

#include "ui/GlobalDefine.h"
#include "ui/RecordText.h"
#include "ui_FileScreenPage.h"

namespace qorquicomponents {

namespace {

const char* const kIconPaddingEnglish =
    "QLabel#iconLab{padding-left:73px; padding-top:117px; padding-right:84px; padding-bottom:56px;};";
const char* const kIconPaddingOther =
    "QLabel#iconLab{padding-left:97px; padding-top:117px; padding-right:101px; padding-bottom:56px;};";

}  // namespace

FileScreenPage::FileScreenPage(QWidget* parent)
    : QWidget(parent), ui(new Ui::FileScreenPage), m_timer(new QTimer(this)) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/ContentWidget/QSS/ContentWidget.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));
    ui->iconLab->setStyleSheet(QLatin1String(g_strLanguage == "English" ? kIconPaddingEnglish : kIconPaddingOther));
    ui->iconLab->setPixmap(QPixmap(QStringLiteral(":/OrvixUpgrade/image/screening_illustration2x.png"))
                               .scaled(160, 100, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    ui->statusLab->setText(tr("FileScreen."));
    m_timer->setInterval(kTextMs);
    connect(ui->stopScreenBtn, &QPushButton::clicked, this, &FileScreenPage::onStopScreenBtnClicked);
    connect(m_timer, &QTimer::timeout, this, &FileScreenPage::onTimerout);
}

FileScreenPage::~FileScreenPage() { delete ui; }

QLabel* FileScreenPage::statusLabel() const { return ui->statusLab; }
QLabel* FileScreenPage::nameLabel() const { return ui->screenNameLab; }
QLabel* FileScreenPage::modelLabel() const { return ui->screenModelLab; }
QPushButton* FileScreenPage::stopButton() const { return ui->stopScreenBtn; }
bool FileScreenPage::isAnimationRunning() const { return m_timer->isActive(); }

void FileScreenPage::setBigScreenInfo(const tagDeviceInfo_& info) {
    ui->screenModelLab->setText(fieldText(info.szModel));
    const QString name = fieldText(info.szName);
    ui->screenNameLab->setToolTip(name);
    QFont font(QStringLiteral("Microsoft YaHei UI"));
    font.setPixelSize(26);
    const QFontMetrics metrics(font);
    ui->screenNameLab->setText(metrics.horizontalAdvance(name) > kNameMaxWidth
                                   ? metrics.elidedText(name, Qt::ElideRight, kNameMaxWidth)
                                   : name);
}

void FileScreenPage::setFileScreenShow() { m_timer->start(); }

void FileScreenPage::onStopScreenBtnClicked() {
    emit signalStopScreen();
    m_timer->stop();
}

void FileScreenPage::onTimerout() {
    ui->statusLab->setContentsMargins(128, 117, 20, 56);
    switch (m_textCount % 3) {
    case 1:
        ui->statusLab->setText(tr("FileScreen.."));
        break;
    case 2:
        ui->statusLab->setText(tr("FileScreen..."));
        break;
    default:
        ui->iconLab->setPixmap(QPixmap(QStringLiteral(":/OrvixUpgrade/image/screening_illustration2x.png"))
                               .scaled(160, 100, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    ui->statusLab->setText(tr("FileScreen."));
        break;
    }
    m_textCount = (m_textCount + 1) % 3;
}

}  // namespace qorquicomponents
