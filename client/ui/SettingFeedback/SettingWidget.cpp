#include "ui/SettingFeedback/SettingWidget.h"

#include <QCheckBox>
#include <QDateTime>
#include <QEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QKeySequence>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "casting/CClientConfig.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/SettingFeedback/BubbleTipWindows.h"
#include "ui/SettingFeedback/HideSetWindow.h"
#include "ui/SettingFeedback/SettingInputRules.h"

namespace qorquicomponents {
namespace {

constexpr int kGestureClicks = 5;
constexpr qint64 kGestureWindowMs = 3001;  // "at most 3000 ms"
constexpr int kTipTopOffset = 48;
const char* const kDarkColour = "color: rgba(0,0,0,0.90);";
const char* const kGreyColour = "color: rgba(0,0,0,0.20);";
// Column that keeps the high-resolution choice (added to the store on first use).
const char* const kHighResolutionColumn = "HighResolutionCast";

CClientConfig& config() { return Singleton<CClientConfig>::getInstance(); }

QString fromStore(const std::string& text) { return QString::fromStdString(text); }

QLabel* addRowLabel(QGridLayout* grid, int row, const QString& text) {
    auto* label = new QLabel(text);
    grid->addWidget(label, row, 0);
    return label;
}

}  // namespace

SettingWidget::SettingWidget(QWidget* parent)
    : QWidget(parent), m_hotkeys(new GlobalHotkey(this)),
      m_nowMs([] { return QDateTime::currentMSecsSinceEpoch(); }) {
    initUi();
    initConnect();
}

SettingWidget::~SettingWidget() = default;

QString SettingWidget::portPromptText() { return tr("Please enter a port number in the range of 0-65535"); }

void SettingWidget::initUi() {
    setObjectName(QStringLiteral("SettingWidget"));
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    setAttribute(Qt::WA_StyledBackground, true);
    setWindowTitle(tr("Setup"));
    setFixedSize(640, 440);

    auto* outer = new QVBoxLayout(this);
    m_titleLab = new QLabel(tr("Setup"));
    m_titleLab->setObjectName(QStringLiteral("titleLab"));
    m_titleLab->setFixedHeight(40);
    outer->addWidget(m_titleLab);

    auto* body = new QHBoxLayout;
    auto* buttons = new QVBoxLayout;
    const QStringList pageNames = {tr("BasicSettings"), tr("DisplaySetting"), tr("Shortcut"),
                                   tr("About"),         tr("Feedback"),       tr("Update")};
    for (const QString& name : pageNames) {
        auto* button = new QPushButton(name);
        button->setFocusPolicy(Qt::NoFocus);
        buttons->addWidget(button);
        m_pageButtons.append(button);
    }
    m_pageButtons[0]->setObjectName(QStringLiteral("basicSetBtn"));
    m_pageButtons[1]->setObjectName(QStringLiteral("displayBtn"));
    m_pageButtons[2]->setObjectName(QStringLiteral("shortcutBtn"));
    m_pageButtons[3]->setObjectName(QStringLiteral("aboutBtn"));
    m_pageButtons[4]->setObjectName(QStringLiteral("feedbackBtn"));
    m_pageButtons[5]->setObjectName(QStringLiteral("updateBtn"));
    buttons->addStretch(1);
    body->addLayout(buttons);

    m_stack = new QStackedWidget;
    m_stack->addWidget(buildBasicPage());
    m_stack->addWidget(buildDisplayPage());
    m_stack->addWidget(buildShortcutPage());
    m_stack->addWidget(new QLabel(QStringLiteral("Zelvanor")));                  // About
    m_stack->addWidget(new QLabel(tr("Send your feedback with the logs")));      // Feedback
    m_stack->addWidget(new QLabel(tr("You are using the latest version")));      // Update
    body->addWidget(m_stack, 1);
    outer->addLayout(body, 1);

    m_bubble = new BubbleTipWindows(this);
}

QWidget* SettingWidget::buildBasicPage() {
    auto* page = new QWidget;
    auto* grid = new QGridLayout(page);
    addRowLabel(grid, 0, tr("MyHostName:"));
    m_hostNameEdit = new QLineEdit;
    m_hostNameEdit->setObjectName(QStringLiteral("hostNameEdit"));
    m_hostNameEdit->setMaxLength(kHostNameMaxLength);
    grid->addWidget(m_hostNameEdit, 0, 1);
    addRowLabel(grid, 1, tr("ServerIP:"));
    m_serverIpEdit = new QLineEdit;
    m_serverIpEdit->setObjectName(QStringLiteral("serverIpEdit"));
    grid->addWidget(m_serverIpEdit, 1, 1);
    addRowLabel(grid, 2, tr("Port:"));
    m_portEdit = new QLineEdit;
    m_portEdit->setObjectName(QStringLiteral("portEdit"));
    // Typing is held to digits; the prompt text is put in by the program.
    m_portEdit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{5}")), m_portEdit));
    grid->addWidget(m_portEdit, 2, 1);
    m_determineBtn = new QPushButton(tr("OK"));
    m_determineBtn->setObjectName(QStringLiteral("determineBtn"));
    grid->addWidget(m_determineBtn, 3, 1, Qt::AlignRight);
    m_netTestBtn = new QPushButton(tr("Network test"));
    m_netTestBtn->setObjectName(QStringLiteral("netTestBtn"));
    grid->addWidget(m_netTestBtn, 4, 1, Qt::AlignRight);
    grid->setRowStretch(5, 1);
    return page;
}

QWidget* SettingWidget::buildDisplayPage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    column->addWidget(new QLabel(tr("Support to display the following information")));
    m_bitRateBox = new QCheckBox(tr("Bitrate"));
    m_delayBox = new QCheckBox(tr("Delay"));
    m_frameRateBox = new QCheckBox(tr("Framerate"));
    m_lossBox = new QCheckBox(tr("Packetlossrate"));
    for (QCheckBox* box : {m_bitRateBox, m_delayBox, m_frameRateBox, m_lossBox}) column->addWidget(box);
    column->addWidget(new QLabel(tr("High-resolution cast")));
    m_highResolutionRow = new QWidget;
    m_highResolutionRow->setObjectName(QStringLiteral("highResolutionRow"));
    auto* row = new QHBoxLayout(m_highResolutionRow);
    row->setContentsMargins(0, 0, 0, 0);
    m_highResolutionBox = new QCheckBox(tr("Turn on high-resolution cast"));
    row->addWidget(m_highResolutionBox);
    column->addWidget(m_highResolutionRow);
    column->addStretch(1);
    return page;
}

QWidget* SettingWidget::buildShortcutPage() {
    auto* page = new QWidget;
    auto* grid = new QGridLayout(page);
    addRowLabel(grid, 0, tr("Shortcut screen IP:"));
    m_shortcutIpEdit = new QLineEdit;
    m_shortcutIpEdit->setObjectName(QStringLiteral("shortcutIpEdit"));
    grid->addWidget(m_shortcutIpEdit, 0, 1);
    m_shortcutIpBtn = new QPushButton(tr("OK"));
    m_shortcutIpBtn->setObjectName(QStringLiteral("shortcutIpBtn"));
    grid->addWidget(m_shortcutIpBtn, 0, 2);

    auto letterField = [](const char* name) {
        auto* edit = new QLineEdit;
        edit->setObjectName(QString::fromLatin1(name));
        edit->setMaxLength(1);
        edit->setValidator(new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[a-zA-Z]+$")), edit));
        edit->setFixedWidth(40);
        return edit;
    };
    addRowLabel(grid, 1, tr("Start/Stop Screen"));
    grid->addWidget(new QLabel(QStringLiteral("Ctrl+Alt+")), 1, 1, Qt::AlignRight);
    m_startOrStopEdit = letterField("startOrStopEdit");
    grid->addWidget(m_startOrStopEdit, 1, 2);
    addRowLabel(grid, 2, tr("Pause/Continue Screen"));
    grid->addWidget(new QLabel(QStringLiteral("Ctrl+Alt+")), 2, 1, Qt::AlignRight);
    m_pauseEdit = letterField("pauseEdit");
    grid->addWidget(m_pauseEdit, 2, 2);

    m_occupiedLab = new QLabel;
    m_occupiedLab->setObjectName(QStringLiteral("shortcutOccupiedLab"));
    m_occupiedLab->setWordWrap(true);
    m_occupiedLab->hide();
    grid->addWidget(m_occupiedLab, 3, 0, 1, 3);
    m_shortcutResetBtn = new QPushButton(tr("reset"));
    m_shortcutResetBtn->setObjectName(QStringLiteral("shortcutResetBtn"));
    grid->addWidget(m_shortcutResetBtn, 4, 2);
    grid->setRowStretch(5, 1);
    return page;
}

void SettingWidget::initConnect() {
    connect(m_determineBtn, &QPushButton::clicked, this, &SettingWidget::onDetermineBtnClicked);
    connect(m_netTestBtn, &QPushButton::clicked, this, &SettingWidget::signalShowNetTest);
    connect(m_portEdit, &QLineEdit::textEdited, this, &SettingWidget::onPortText);
    connect(m_hostNameEdit, &QLineEdit::textChanged, this, &SettingWidget::onLineEditTextChanged);
    connect(m_startOrStopEdit, &QLineEdit::textChanged, this, &SettingWidget::onStartOrStopScreenLineEditTextChanged);
    connect(m_pauseEdit, &QLineEdit::textChanged, this, &SettingWidget::onPauseScreenLineEditTextChanged);
    connect(m_shortcutIpBtn, &QPushButton::clicked, this, &SettingWidget::onShortcutIPBtnClicked);
    connect(m_shortcutResetBtn, &QPushButton::clicked, this, &SettingWidget::onShortcutResetBtnClicked);
    connect(m_pageButtons[0], &QPushButton::clicked, this, &SettingWidget::onBasicSetBtnClicked);
    connect(m_pageButtons[1], &QPushButton::clicked, this, &SettingWidget::onDisplayBtnClicked);
    connect(m_pageButtons[2], &QPushButton::clicked, this, &SettingWidget::onShortcutBtnClicked);
    connect(m_pageButtons[3], &QPushButton::clicked, this, &SettingWidget::onAboutBtnClicked);
    connect(m_pageButtons[4], &QPushButton::clicked, this, &SettingWidget::onFeedbackBtnClicked);
    connect(m_pageButtons[5], &QPushButton::clicked, this, &SettingWidget::onUpdateBtnClicked);
    const QCheckBox* boxes[] = {m_bitRateBox, m_delayBox, m_frameRateBox, m_lossBox};
    for (int i = 0; i < 4; ++i) {
        connect(boxes[i], &QCheckBox::clicked, this, [this, i](bool checked) { onDisplayBoxClicked(i + 1, checked); });
    }
    connect(m_highResolutionBox, &QCheckBox::clicked, this, [](bool checked) {
        config().addColumn(kHighResolutionColumn, "0");
        config().setColumnValue(kHighResolutionColumn, checked ? "1" : "0");
    });
    connect(m_hotkeys, &GlobalHotkey::signalActivated, this, &SettingWidget::signalShortcutActivated);

    m_titleLab->installEventFilter(this);
    m_hostNameEdit->installEventFilter(this);
    m_portEdit->installEventFilter(this);
    m_startOrStopEdit->installEventFilter(this);
    m_pauseEdit->installEventFilter(this);
    m_highResolutionRow->installEventFilter(this);
    installEventFilter(this);
}

void SettingWidget::initData(QWidget* mainWidget) {
    m_mainWidget = mainWidget;
    m_isRegisterHotkey = true;
    const std::string start = config().getStartOrStopScreenShortcut();
    const std::string pause = config().getPauseScreenShortcut();
    registerHotkey(start.empty() ? 'H' : QChar(start[0]).toUpper().unicode(), ShortcutStartOrStop);
    registerHotkey(pause.empty() ? 'K' : QChar(pause[0]).toUpper().unicode(), ShortcutPause);
    setShortcutOccupiedShow();
}

// ---------------------------------------------------------------------------
// Loading and the basic page
// ---------------------------------------------------------------------------

void SettingWidget::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    m_hostNameEdit->setText(fromStore(config().getHostName()));
    m_serverIpEdit->clear();
    m_portEdit->clear();
    m_serverIpEdit->setText(fromStore(config().getServerIP()));
    m_portEdit->setText(fromStore(config().getServerPort()));
    m_shortcutIpEdit->setText(fromStore(config().getShortcutIP()));
    setPortColour(m_portEdit->text() == portPromptText());

    m_bitRateBox->setChecked(config().getShowBitRate() != 0);
    m_delayBox->setChecked(config().getShowDelay() != 0);
    m_frameRateBox->setChecked(config().getShowFrameRate() != 0);
    m_lossBox->setChecked(config().getShowLossFraction() != 0);
    m_highResolutionBox->setChecked(config().findColumn(kHighResolutionColumn) &&
                                    config().getColumnValue(kHighResolutionColumn) == "1");

    // Showing the stored letters is not a change of the shortcut.
    const bool registered = m_isRegisterHotkey;
    m_isRegisterHotkey = false;
    m_startOrStopEdit->setText(fromStore(config().getStartOrStopScreenShortcut()));
    m_pauseEdit->setText(fromStore(config().getPauseScreenShortcut()));
    m_isRegisterHotkey = registered;
    setShortcutOccupiedShow();
}

void SettingWidget::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    m_titleClickCount = 0;
    if (!m_shortcutIpEdit->text().isEmpty()) config().updateShortcutIP(m_shortcutIpEdit->text().toStdString());
    showHighResolutionBubble(false);
    TipWindows* tip = TipWindows::getInstance();
    if (tip->isVisible()) tip->hide();
}

void SettingWidget::showTip(ErrorLevel level, const QString& text) {
    TipWindows::getInstance()->setDisplayText(level, text, TipWindowPlain, this, kTipTopOffset);
}

void SettingWidget::onShowTip(ErrorLevel level, const QString& text) { showTip(level, text); }

void SettingWidget::onDetermineBtnClicked() {
    const std::string serverIp = m_serverIpEdit->text().toStdString();
    if (!isIPAddressValid(serverIp.c_str())) {
        showTip(ErrorLevelRisk, tr("Invalid passcode server IP address. Please enter again"));
        return;
    }
    // The prompt text is no number and reads as 0, which is in range.
    const int port = portTextValue(m_portEdit->text());
    if (port > kMaxPort) {
        showTip(ErrorLevelRisk, portPromptText());
        return;
    }
    const std::string hostName = m_hostNameEdit->text().toStdString();
    if (hostName.empty()) {
        showTip(ErrorLevelRisk, tr("The host name cannot be empty"));
        return;
    }
    const std::string portText = m_portEdit->text() == portPromptText() ? std::string() : m_portEdit->text().toStdString();
    config().updateHostName(hostName);
    config().updateServerIP(serverIp);
    config().updateServerPort(portText);

    // The read-back is how a store that refused the write shows up.
    const QString failed = tr("Saving failed. Please run Zelvanor as an administrator");
    if (config().getServerIP() != serverIp) {
        m_serverIpEdit->setText(fromStore(config().getServerIP()));
        m_portEdit->setText(fromStore(config().getServerPort()));
        m_hostNameEdit->setText(fromStore(config().getHostName()));
        ZV_LOG(WARNING) << " the server address was not saved";
        showTip(ErrorLevelRisk, failed);
        return;
    }
    if (config().getServerPort() != portText) {
        m_portEdit->setText(fromStore(config().getServerPort()));
        m_hostNameEdit->setText(fromStore(config().getHostName()));
        ZV_LOG(WARNING) << " the server port was not saved";
        showTip(ErrorLevelRisk, failed);
        return;
    }
    ZV_LOG(INFO) << " basic settings saved";
    emit signalChangeHostName(fromStore(config().getHostName()));
}

void SettingWidget::setPortColour(bool prompt) {
    m_portEdit->setStyleSheet(QString::fromLatin1(prompt ? kGreyColour : kDarkColour));
}

void SettingWidget::onPortText(const QString& text) {
    int cursor = m_portEdit->cursorPosition();
    const QString stripped = stripPortLeadingZeros(text, &cursor);
    if (stripped != text) {
        m_portEdit->setText(stripped);
        m_portEdit->setCursorPosition(cursor);
    }
}

void SettingWidget::onLineEditTextChanged(const QString&) { m_hostNameEdit->setStyleSheet(QString::fromLatin1(kDarkColour)); }

// ---------------------------------------------------------------------------
// Display page
// ---------------------------------------------------------------------------

QCheckBox* SettingWidget::displayCheckBox(int which) const {
    switch (which) {
        case 1: return m_bitRateBox;
        case 2: return m_delayBox;
        case 3: return m_frameRateBox;
        case 4: return m_lossBox;
        default: return nullptr;
    }
}

void SettingWidget::onDisplayBoxClicked(int which, bool checked) {
    const int value = checked ? 1 : 0;
    switch (which) {
        case 1: config().updateShowBitRate(value); break;
        case 2: config().updateShowDelay(value); break;
        case 3: config().updateShowFrameRate(value); break;
        case 4: config().updateShowLossFraction(value); break;
        default: return;
    }
    emit signalChangeDisplayInfo(which);
}

void SettingWidget::showHighResolutionBubble(bool show) {
    if (!show) {
        m_bubble->label()->hide();
        m_bubble->hide();
        return;
    }
    m_bubble->setText(tr("After it is turned on, the high-resolution screen projection will be used preferentially. "
                         "The resource consumption is large, which may affect the computer performance. When the CPU "
                         "utilization is high, the screen projection effect may not be ideal"));
    m_bubble->label()->show();
    m_bubble->resize(m_bubble->label()->width() + 37, m_bubble->label()->height() + 36);
    m_bubble->setTriangleInfo(10, 5);
    m_bubble->move(156, m_highResolutionRow->height() + 74);
    m_bubble->raise();
    m_bubble->show();
}

// ---------------------------------------------------------------------------
// Shortcut page
// ---------------------------------------------------------------------------

bool SettingWidget::isShortcutOccupied(int which) const {
    return which == ShortcutStartOrStop ? m_isStartOrStopOccupied : m_isPauseOccupied;
}

void SettingWidget::registerHotkey(int key, int which) {
    m_isRegisterHotkey = true;
    const GlobalHotkey::Result result = m_hotkeys->registerHotkey(which, key);
    const bool occupied = result == GlobalHotkey::Result::Occupied;
    if (which == ShortcutStartOrStop) m_isStartOrStopOccupied = occupied;
    if (which == ShortcutPause) m_isPauseOccupied = occupied;
    setShortcutOccupiedShow();
}

void SettingWidget::setShortcutOccupiedShow() {
    if (m_isStartOrStopOccupied && !m_isPauseOccupied) {
        m_occupiedLab->setText(tr("The start shortcut keys may be occupied by other programs, please reconfigure"));
    } else if (m_isPauseOccupied && !m_isStartOrStopOccupied) {
        m_occupiedLab->setText(tr("The pause shortcut keys may be occupied by other programs, please reconfigure"));
    } else if (m_isPauseOccupied && m_isStartOrStopOccupied) {
        m_occupiedLab->setText(tr("The shortcut has been registered, please change the key and try again"));
    }
    m_occupiedLab->setVisible(m_isStartOrStopOccupied || m_isPauseOccupied);
}

void SettingWidget::onLetterChanged(QLineEdit* edit, int which, bool* changing) {
    if (!m_isRegisterHotkey || edit->text().isEmpty()) return;
    *changing = true;
    QChar letter = edit->text().at(0);
    if (letter >= QLatin1Char('a') && letter <= QLatin1Char('z')) letter = letter.toUpper();
    m_isRegisterHotkey = false;
    registerHotkey(letter.unicode(), which);
    // Kept, so that the next start grabs the letter the user chose.
    config().setColumnValue(which == ShortcutStartOrStop ? "StartOrStopScreenShortcut" : "PauseScreenShortcut",
                            QString(letter).toStdString());
    *changing = false;
}

void SettingWidget::onStartOrStopScreenLineEditTextChanged(const QString&) {
    onLetterChanged(m_startOrStopEdit, ShortcutStartOrStop, &m_isChangingStartOrStop);
}

void SettingWidget::onPauseScreenLineEditTextChanged(const QString&) {
    onLetterChanged(m_pauseEdit, ShortcutPause, &m_isChangingPause);
}

void SettingWidget::onShortcutIPBtnClicked() {
    const std::string address = m_shortcutIpEdit->text().toStdString();
    if (isIPAddressValid(address.c_str())) {
        config().updateShortcutIP(address);
        showTip(ErrorLevelSuccess, tr("Successfully modified"));
    } else {
        showTip(ErrorLevelRisk, tr("Invalid passcode server IP address. Please enter again"));
    }
}

void SettingWidget::onShortcutResetBtnClicked() {
    m_shortcutIpEdit->clear();
    config().updateShortcutIP("");
    m_startOrStopEdit->setText(QStringLiteral("H"));
    m_pauseEdit->setText(QStringLiteral("K"));
}

// ---------------------------------------------------------------------------
// Pages
// ---------------------------------------------------------------------------

void SettingWidget::onBasicSetBtnClicked() { m_stack->setCurrentIndex(0); }
void SettingWidget::onDisplayBtnClicked() { m_stack->setCurrentIndex(1); }
void SettingWidget::onShortcutBtnClicked() { m_stack->setCurrentIndex(2); }
void SettingWidget::onAboutBtnClicked() { m_stack->setCurrentIndex(3); }
void SettingWidget::onFeedbackBtnClicked() { m_stack->setCurrentIndex(4); }
void SettingWidget::onUpdateBtnClicked() { m_stack->setCurrentIndex(5); }

// ---------------------------------------------------------------------------
// Events
// ---------------------------------------------------------------------------

bool SettingWidget::filterTitlePress(QEvent* event) {
    if (event->type() != QEvent::MouseButtonPress) {
        m_drag.handleEvent(event);
        return false;
    }
    const qint64 now = m_nowMs();
    if (m_titleClickCount == 0) m_firstClickMs = now;
    if (++m_titleClickCount >= kGestureClicks) {
        m_titleClickCount = 0;
        if (now - m_firstClickMs < kGestureWindowMs) openHideSetWindow();
    }
    return true;
}

void SettingWidget::openHideSetWindow() {
    ZV_LOG(INFO) << " opening the debug window";
    hide();
    HideSetWindow::showFrom(this);
}

bool SettingWidget::filterHostNameEvent(QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->matches(QKeySequence::Paste) || isForbiddenHostNameKey(key->key())) return true;
    } else if (event->type() == QEvent::InputMethod) {
        auto* input = static_cast<QInputMethodEvent*>(event);
        if (containsForbiddenInputMethodText(input->commitString())) return true;
    }
    return false;
}

bool SettingWidget::filterLetterKey(QLineEdit* edit, QEvent* event) {
    if (event->type() != QEvent::KeyPress) return false;
    auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Backspace) {
        edit->clear();
        return true;
    }
    if (!isShortcutLetterKey(key->key())) {
        showTip(ErrorLevelRemind, tr("Shortcut keys only support the configuration of English characters"));
        return true;
    }
    return false;
}

bool SettingWidget::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_titleLab) return filterTitlePress(event);
    if (watched == m_hostNameEdit) return filterHostNameEvent(event);
    if (watched == m_startOrStopEdit || watched == m_pauseEdit) {
        return filterLetterKey(static_cast<QLineEdit*>(watched), event);
    }
    if (watched == m_portEdit) {
        if (event->type() == QEvent::FocusIn) {
            if (m_portEdit->text() == portPromptText()) m_portEdit->clear();
            setPortColour(false);
        } else if (event->type() == QEvent::FocusOut) {
            if (m_portEdit->text().isEmpty()) {
                setPortColour(true);
                m_portEdit->setText(portPromptText());
            } else {
                setPortColour(false);
            }
        }
        return false;
    }
    if (watched == m_highResolutionRow) {
        if (event->type() == QEvent::Enter) showHighResolutionBubble(true);
        if (event->type() == QEvent::Leave) showHighResolutionBubble(false);
        return false;
    }
    if (watched == this && event->type() == QEvent::WindowDeactivate) {
        TipWindows* tip = TipWindows::getInstance();
        if (tip->isVisible()) {
            show();
        } else {
            hide();
        }
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace qorquicomponents
