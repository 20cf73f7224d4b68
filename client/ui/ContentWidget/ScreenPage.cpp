#include "ui/ContentWidget/ScreenPage.h"

#include <QEvent>
#include <QFile>
#include <QFontMetrics>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/CodeEntry.h"
#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"
#include "ui/widgets/StyleUtil.h"
#include "ui/widgets/SwitchButton.h"
#include "ui/windowcapture/SelectScreenWindow.h"
#include "ui_ScreenPage.h"

namespace qorquicomponents {

namespace {

constexpr int kTipTopOffset = 48;
constexpr int kNameMaxWidth = 364;
constexpr int kAnimationTextMaxWidth = 109;
const QSize kIllustrationSize(160, 100);

bool languageIn(const QStringList& names) { return names.contains(QString::fromStdString(g_strLanguage)); }

// Languages whose animation line sits a little higher.
const QStringList& compactAnimationLanguages() {
    static const QStringList names = {QStringLiteral("Japanese"), QStringLiteral("Bulgarian"),
                                      QStringLiteral("Ukrainian"), QStringLiteral("Greek"),
                                      QStringLiteral("Spanish"), QStringLiteral("Russian"),
                                      QStringLiteral("Vietnamese"), QStringLiteral("Slovak")};
    return names;
}

// Languages whose casting layout needs a taller title and control area.
const QStringList& longTextLanguages() {
    static const QStringList names = {QStringLiteral("Bulgarian"), QStringLiteral("German"),
                                      QStringLiteral("Greek"),     QStringLiteral("Spanish"),
                                      QStringLiteral("French"),    QStringLiteral("Italian"),
                                      QStringLiteral("Dutch"),     QStringLiteral("Romanian"),
                                      QStringLiteral("Russian"),   QStringLiteral("Ukrainian"),
                                      QStringLiteral("Japanese")};
    return names;
}

}  // namespace

ScreenPage::ScreenPage(QWidget* parent)
    : QWidget(parent),
      ui(new Ui::ScreenPage),
      m_parentWindow(parent),
      m_illustrationLab(nullptr),
      m_animationTimer(new QTimer(this)) {
    ui->setupUi(this);
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/ConnectPage.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    QLineEdit* edit = ui->screenCodeEdit;
    m_codeEntry = std::make_unique<CodeEntry>(edit, ui->startScreenBtn, CodeEntry::PlaceholderCase::Kept);
    edit->installEventFilter(this);

    // The switches: their pictures, and the captions beside them.
    ui->pauseBtn->setCaption(tr("Pause"));
    ui->voiceBtn->setCaption(tr("Sound"));
    ui->reverseBtn->setCaption(tr("Touch Control"));
    ui->windowBtn->setCaption(tr("Switch Window"));
    ui->windowBtn->setCheckable(false);
    ui->pauseBtn->setBackgroundImage(PauseButtonStyle, false);
    ui->voiceBtn->setBackgroundImage(VoiceButtonStyle, true);
    ui->reverseBtn->setBackgroundImage(ReverseButtonStyle, true);
    ui->windowBtn->setBackgroundImage(WindowButtonStyle, false);

    m_illustrationLab = new QLabel(ui->animationLab);
    m_illustrationLab->setObjectName(QStringLiteral("screeningIllustrationLab"));
    m_illustrationLab->setFixedSize(kIllustrationSize);
    QPixmap illustration(QStringLiteral(":/OrvixUpgrade/image/screening_illustration2x.png"));
    illustration.setDevicePixelRatio(2.0);
    m_illustrationLab->setPixmap(illustration);
    ui->animationLab->installEventFilter(this);
    placeIllustration();

    m_animationTimer->setInterval(kAnimationIntervalMs);

    // This platform has no virtual monitor for the extended mode.
    setBtnShow(ExtendedScreenMode, false);
    try {
        if (judgeIsWayland()) {
            ui->modelBtn->selectItem()->setWaylandMode();
            setScreenModle(WindowScreenMode);
        }
    } catch (const std::runtime_error& error) {
        ZV_LOG(WARNING) << " session type unknown: " << error.what();
    }

    connect(edit, &QLineEdit::textChanged, this, &ScreenPage::onTextChanged);
    connect(ui->startScreenBtn, &QPushButton::clicked, this, [this] { onStartCodeScreenBtnClicked(false); });
    connect(ui->pauseBtn, &QPushButton::clicked, this, &ScreenPage::onPauseBtnClicked);
    connect(ui->voiceBtn, &QPushButton::clicked, this, &ScreenPage::onVoiceBtnClicked);
    connect(ui->reverseBtn, &QPushButton::clicked, this, &ScreenPage::onReverseBtnClicked);
    connect(ui->windowBtn, &QPushButton::clicked, this, &ScreenPage::onWindowScreenBtnClicked);
    connect(ui->stopScreenBtn, &QPushButton::clicked, this, &ScreenPage::onStopScreenBtnClicked);
    connect(m_animationTimer, &QTimer::timeout, this, &ScreenPage::onTimerout);

    setBeforeScreenShow();
    // The entry starts with its placeholder, which is no code.
    ui->startScreenBtn->setEnabled(false);
}

ScreenPage::~ScreenPage() { delete ui; }

QLineEdit* ScreenPage::getScreenCodeEdit() const { return ui->screenCodeEdit; }
QPushButton* ScreenPage::getStartScreenBtn() const { return ui->startScreenBtn; }
QString ScreenPage::getScreenConnectCode() const { return ui->screenCodeEdit->text(); }
ModelButton* ScreenPage::getModelButton() const { return ui->modelBtn; }
SwitchButton* ScreenPage::pauseButton() const { return ui->pauseBtn; }
SwitchButton* ScreenPage::voiceButton() const { return ui->voiceBtn; }
SwitchButton* ScreenPage::reverseButton() const { return ui->reverseBtn; }
SwitchButton* ScreenPage::windowButton() const { return ui->windowBtn; }
QPushButton* ScreenPage::stopButton() const { return ui->stopScreenBtn; }
QString ScreenPage::pauseStatusText() const { return ui->pauseBtn->caption(); }
QLabel* ScreenPage::animationLabel() const { return ui->animationLab; }
bool ScreenPage::isAnimationRunning() const { return m_animationTimer->isActive(); }
bool ScreenPage::isScreeningShown() const { return !ui->screeningWidget->isHidden(); }

void ScreenPage::placeIllustration() {
    m_illustrationLab->move((ui->animationLab->width() - kIllustrationSize.width()) / 2, 8);
}

// ---------------------------------------------------------------------------
// Code entry
// ---------------------------------------------------------------------------

void ScreenPage::setConnectCode(const QString& code) { m_codeEntry->setCode(code); }

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
    const QFontMetrics metrics(ui->screenNameLab->font());
    ui->screenNameLab->setText(metrics.elidedText(m_panelName, Qt::ElideRight, kNameMaxWidth));
    ui->screenNameLab->setToolTip(m_panelName);
}

void ScreenPage::onTextChanged(const QString& text) {
    if (!m_codeEntry->onTextChanged(text)) return;
    const QString current = ui->screenCodeEdit->text();
    if (!current.isEmpty()) emit signalConnectCode(current);
}

void ScreenPage::onStartCodeScreenBtnClicked(bool skipServerCheck) {
    const QString code = ui->screenCodeEdit->text().trimmed();
    if (!skipServerCheck) {
        const PasscodeServerSetting server = PasscodeServerSetting::read();
        if (!server.isConfigured() && code.length() == 4) {
            ZV_LOG(WARNING) << " Start code screen fail, code server IP: " << server.ip << ", port: " << server.port
                            << ", code: " << code.toStdString();
            showPasscodeServerMissingTip(m_parentWindow);
            return;
        }
    }
    emit signalShowLoading(true);
    m_screenMode = ui->modelBtn->getScreenMode();
    if (m_screenMode == CopyScreenMode) {
        ZV_LOG(INFO) << " Start copy mode screen";
        m_currentScreenStatus = ScreenCopyCasting;
        emit signalStartCodeScreen(code);
    } else if (m_screenMode == WindowScreenMode) {
        ZV_LOG(INFO) << " Start window mode screen";
        emit signalWindowScreen(ui->screenCodeEdit->text());
    }
}

bool ScreenPage::eventFilter(QObject* watched, QEvent* event) {
    if (watched == ui->animationLab) {
        if (event->type() == QEvent::Resize) placeIllustration();
        return false;
    }
    if (watched == ui->screenCodeEdit) m_codeEntry->onFocusEvent(event);
    return false;
}

// ---------------------------------------------------------------------------
// Layouts
// ---------------------------------------------------------------------------

void ScreenPage::setBeforeScreenShow() {
    if (m_animationTimer->isActive()) m_animationTimer->stop();
    setStyleProperty(ui->modelBtn, "Status", QStringLiteral("Unuse"));
    ui->titleLayout->setContentsMargins(0, 45, 0, 0);
    ui->screenTitleLab->setText(tr("Please enter the connection code to cast screen"));
    ui->startScreenBtn->setEnabled(true);
    ui->pauseBtn->setChecked(false);
    ui->pauseBtn->setCaption(tr("Pause"));
    ui->pauseBtn->setBackgroundImage(PauseButtonStyle, false);
    ui->screenNameLab->hide();
    ui->screeningWidget->hide();
    ui->screenTitleLab->show();
    ui->beforeScreenWidget->show();
}

void ScreenPage::setScreeningShow() {
    const bool longText = languageIn(longTextLanguages());
    ui->screenNameLab->setFixedHeight(longText ? 48 : 36);
    ui->titleLayout->setContentsMargins(0, longText ? 40 : 45, 0, longText ? 12 : 16);
    ui->controlWidget->setFixedHeight(longText ? 89 : 81);
    ui->controlLayout->setContentsMargins(0, longText ? 29 : 37, 0, 0);
    // Long captions start from a fixed indent instead of being centred.
    ui->controlLeftSpacer->changeSize(longText ? 340 : 0, 20,
                                      longText ? QSizePolicy::Fixed : QSizePolicy::Expanding);
    ui->controlLayout->invalidate();

    ui->pauseBtn->setChecked(false);
    ui->pauseBtn->setBackgroundImage(PauseButtonStyle, false);
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    ui->voiceBtn->setBackgroundImage(VoiceButtonStyle, config.getScreenIsMute() == 1);
    ui->reverseBtn->setBackgroundImage(ReverseButtonStyle, config.getScreenReverse() != 1);
    setStyleProperty(ui->modelBtn, "Status", QStringLiteral("Using"));
    ui->animationLab->clear();
    ui->screenTitleLab->hide();
    ui->beforeScreenWidget->hide();
    ui->screenNameLab->show();
    ui->screeningWidget->show();
    ui->stopScreenBtn->setFocus();
    ui->windowBtn->setVisible(m_currentScreenStatus == ScreenWindowCasting);
    m_animationStep = 0;
    m_animationTimer->start();
}

void ScreenPage::onTimerout() {
    if (languageIn(compactAnimationLanguages())) {
        ui->animationLab->setContentsMargins(0, 113, 0, 48);
    } else {
        ui->animationLab->setContentsMargins(0, 117, 0, 56);
    }
    const QString text = tr("SCreening .");
    QFont font(QStringLiteral("Microsoft YaHei UI"));
    font.setPixelSize(14);
    if (QFontMetrics(font).horizontalAdvance(text) > kAnimationTextMaxWidth) font.setPixelSize(12);
    ui->animationLab->setFont(font);
    ui->animationLab->setText(text + QString(m_animationStep, QLatin1Char('.')));
    m_animationStep = (m_animationStep + 1) % 3;
}

// ---------------------------------------------------------------------------
// Switches
// ---------------------------------------------------------------------------

void ScreenPage::setVoiceAndReverseStatus(bool voice, bool reverse) {
    ui->voiceBtn->setChecked(voice);
    ui->reverseBtn->setChecked(reverse);
}

void ScreenPage::setVoiceIconStatus(bool checked) {
    ui->voiceBtn->setChecked(checked);
    ui->voiceBtn->setBackgroundImage(VoiceButtonStyle, checked);
}

void ScreenPage::setReverseIconStatus(bool checked) {
    ui->reverseBtn->setChecked(checked);
    ui->reverseBtn->setBackgroundImage(ReverseButtonStyle, checked);
}

void ScreenPage::setPauseScreenIconStatus(bool checked) {
    ui->pauseBtn->setChecked(checked);
    ui->pauseBtn->setBackgroundImage(PauseButtonStyle, checked);
}

void ScreenPage::onPauseBtnClicked() {
    const bool paused = ui->pauseBtn->isChecked();
    emit signalPauseScreen(paused);
    if (!paused) {
        m_animationTimer->start();
        ui->pauseBtn->setCaption(tr("Pause"));
    } else {
        ui->pauseBtn->setCaption(tr("Continue"));
        m_animationTimer->stop();
    }
    ui->pauseBtn->setBackgroundImage(PauseButtonStyle, paused);
    ZV_LOG(INFO) << " Pause screen : " << paused << " [1:" << "pause  0:" << "continue]";
}

void ScreenPage::onVoiceBtnClicked() {
    const bool checked = ui->voiceBtn->isChecked();
    emit signalVoiceScreen(!checked);
    ui->voiceBtn->setBackgroundImage(VoiceButtonStyle, checked);
}

void ScreenPage::onReverseBtnClicked() {
    const bool checked = ui->reverseBtn->isChecked();
    emit signalScreenReverse(!checked);
    ui->reverseBtn->setBackgroundImage(ReverseButtonStyle, checked);
}

void ScreenPage::onStopScreenBtnClicked() {
    ZV_LOG(INFO) << "StopScreen: Click the button to end screen casting.";
    emit signalStopScreen();
    m_animationTimer->stop();
    ui->animationLab->clear();
    m_currentScreenStatus = ScreenIdle;
    CManageAll::getInstance()->reportOtherClientInfo("StopScreenByClick");
}

// ---------------------------------------------------------------------------
// Mode button
// ---------------------------------------------------------------------------

void ScreenPage::setScreenModle(int mode) { ui->modelBtn->setScreenMode(mode); }

void ScreenPage::setBtnShow(ClientScreenMode mode, bool show) { ui->modelBtn->selectItem()->setButtonShow(mode, show); }

void ScreenPage::setScreenModeStatus(bool using_) {
    setStyleProperty(ui->modelBtn, "Status", using_ ? QStringLiteral("Using") : QStringLiteral("Unuse"));
}

bool ScreenPage::judgeIsWayland() {
    std::string type = execShell("echo $XDG_SESSION_TYPE");
    type.erase(std::remove(type.begin(), type.end(), '\n'), type.end());
    m_isWayland = type == "wayland";
    return m_isWayland;
}

// ---------------------------------------------------------------------------
// Window casting
// ---------------------------------------------------------------------------

void ScreenPage::resetWindowScreen() {
    std::memset(&m_windowScreenInfo, 0, sizeof m_windowScreenInfo);
    if (m_selectWindow) m_selectWindow->resetScreenWindowState();
}

void ScreenPage::showSelectWindow() {
    ++m_selectWindowRequests;
    ZV_LOG(INFO) << " window selection requested for " << m_panelName.toStdString();
    emit signalShowLoading(false);
    if (!m_selectWindow) {
        m_selectWindow = std::make_unique<SelectScreenWindow_linux>(m_parentWindow);
        connect(m_selectWindow.get(), &SelectScreenWindow_linux::signalStartWindowScreen, this,
                &ScreenPage::onStartWindowScreen);
    }
    m_selectWindow->show();
    m_selectWindow->raise();
    m_selectWindow->activateWindow();
    emit signalSelectWindow();
}

void ScreenPage::showWindowSelect() {
    if (m_screenMode != WindowScreenMode) return;
    showSelectWindow();
}

void ScreenPage::onWindowScreenBtnClicked() { showSelectWindow(); }

void ScreenPage::onStartWindowScreen(quint64 window) {
    std::memset(&m_windowScreenInfo, 0, sizeof m_windowScreenInfo);
    m_windowScreenInfo.windowId = window;
    m_windowScreenInfo.flag = false;
    m_windowScreenInfo.value = 0;
    startWindowScreen();
}

void ScreenPage::startWindowScreen() {
    if (m_windowScreenInfo.windowId != 0) {
        emit signalWindowInfo(static_cast<unsigned long>(m_windowScreenInfo.windowId), m_windowScreenInfo.flag,
                              m_windowScreenInfo.value);
        if (m_currentScreenStatus == ScreenIdle) {
            emit signalStartCodeScreen(ui->screenCodeEdit->text().trimmed());
        } else if (m_parentWindow != nullptr) {
            // Another window while casting: only the source changes.
            m_parentWindow->showMinimized();
        }
        m_currentScreenStatus = ScreenWindowCasting;
        return;
    }
    if (m_currentScreenStatus == ScreenIdle) emit signalWithoutwindowselected();
    emit signalShowLoading(false);
}

void ScreenPage::onShowWindowFail() {
    TipWindows::getInstance()->setDisplayText(
        ErrorLevelRisk, tr("Window is protected by authority, so can not be casted when it is minimized"),
        TipWindowPlain, m_parentWindow, kTipTopOffset);
}

}  // namespace qorquicomponents
