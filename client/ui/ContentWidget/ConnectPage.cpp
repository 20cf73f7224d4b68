#include "ui/ContentWidget/ConnectPage.h"

#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QFontMetrics>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMetaObject>
#include <QPushButton>
#include <QRegularExpression>
#include <QRegularExpressionValidator>
#include <QStringList>
#include <QSysInfo>
#include <QThread>

#include <algorithm>

#include "casting/CClientConfig.h"
#include "ui/ContentWidget/CodeEntry.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "casting/Singleton.h"
#include "ui/GlobalDefine.h"
#include "ui/RecordText.h"
#include "ui/TipWindows.h"
#include "ui/widgets/StyleUtil.h"
#include "ui_ConnectPage.h"

namespace qorquicomponents {

namespace {

constexpr int kFocusedMaxLength = 8;
constexpr int kUnfocusedMaxLength = 32767;
constexpr int kTipTopOffset = 48;
constexpr int kListItemHeight = 40;
constexpr int kListMaxHeight = 136;
constexpr int kListTopOffset = 43;
constexpr int kIllustrationSize = 280;

const char* const kCodePattern = "[a-zA-Z0-9]+$";
const char* const kPaleColour = "color: rgba(0,0,0,0.20);";
const char* const kDarkColour = "color: rgba(0,0,0,0.90);";
const char* const kEntryFont = "Microsoft YaHei UI";
const char* const kIconPaddingEnglish =
    "QLabel#iconLab{padding-left:97px; padding-top:117px; padding-right:101px; padding-bottom:56px;};";
const char* const kIconPaddingOther =
    "QLabel#iconLab{padding-left:73px; padding-top:117px; padding-right:84px; padding-bottom:56px;};";
const char* const kListBaseStyle =
    "QListWidget{background:#FFFFFF; border:1px solid #E1E5EC; border-radius:8px; padding:8px 0px; outline:none;"
    " font-family:\"Microsoft YaHei UI\"; font-size:16px; color:rgba(0,0,0,0.90);}"
    " QListWidget::item{height:39px; border:none;}";
const char* const kListKeyboardStyle =
    " QListWidget::item:hover{background:#FFFFFF;} QListWidget::item:selected{background:rgba(28,127,255,0.2);"
    " color:rgba(0,0,0,0.90);}";
const char* const kListMouseStyle =
    " QListWidget::item:hover{background:rgba(28,127,255,0.2);} QListWidget::item:selected{"
    "background:rgba(28,127,255,0.2); color:rgba(0,0,0,0.90);}";

// Interface languages whose translations need two title lines.
const QStringList& longTextLanguages() {
    static const QStringList names = {
        QStringLiteral("Bulgarian"), QStringLiteral("German"),   QStringLiteral("Greek"),
        QStringLiteral("Spanish"),   QStringLiteral("French"),   QStringLiteral("Italian"),
        QStringLiteral("Dutch"),     QStringLiteral("Romanian"), QStringLiteral("Russian"),
        QStringLiteral("Ukrainian"), QStringLiteral("Polish")};
    return names;
}

// The entry's own sheet: its box, then the colour and font of the look.
QString entryStyle(bool realInput) {
    return QStringLiteral(
               "QLineEdit{background:#FFFFFF; border:1px solid #D5DBE5; border-radius:8px; padding:0px 16px; %1"
               " font-family:\"%2\"; font-size:%3px; font-weight:%4;} QLineEdit:focus{border:1px solid #1C7FFF;}")
        .arg(QLatin1String(realInput ? kDarkColour : kPaleColour), QLatin1String(kEntryFont),
             QString::number(realInput ? 18 : 16), QLatin1String(realInput ? "bold" : "normal"));
}

// Width for a button from its translated text: text in 16 px plus 48,
// between 240 and 800.
int buttonWidthFor(const QString& text) {
    QFont font(QStringLiteral("Microsoft YaHei"));
    font.setPixelSize(16);
    return std::clamp(QFontMetrics(font).horizontalAdvance(text) + 48, 240, 800);
}

// Windows 10 or later, 64-bit, release 1607 or later: the only systems the
// extended screen driver supports.
bool systemSupportsExtendedScreen() {
    if (QSysInfo::productType() != QLatin1String("windows")) return false;
    const bool windows10 = QSysInfo::productVersion().section(QLatin1Char('.'), 0, 0).toInt() >= 10;
    const bool is64Bit = QSysInfo::currentCpuArchitecture().contains(QLatin1String("64"));
    const int releaseId = QSysInfo::kernelVersion().section(QLatin1Char('.'), 2, 2).toInt();
    return windows10 && is64Bit && releaseId >= 1607;
}

}  // namespace

ConnectPage::ConnectPage(QWidget* parent)
    : QWidget(parent),
      ui(new Ui::ConnectPage),
      m_parentWindow(parent),
      m_connectedLab(nullptr),
      m_codeList(nullptr) {
    ui->setupUi(this);
    initUi();
    initConnect();
}

ConnectPage::~ConnectPage() { delete ui; }

QString ConnectPage::placeholderText() { return tr("inPut Connected Code"); }

QString ConnectPage::passcodeServerMissingText() {
    return tr("Passcode server not configured,please check and try again");
}

QLineEdit* ConnectPage::getConnectCodeEdit() const { return ui->codeEdit; }
QPushButton* ConnectPage::getStartConnectBtn() const { return ui->startConnectBtn; }
QString ConnectPage::getConnectCode() const { return ui->codeEdit->text(); }

void ConnectPage::initUi() {
    setAttribute(Qt::WA_StyledBackground, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/ConnectPage.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    QLineEdit* edit = ui->codeEdit;
    edit->setValidator(new QRegularExpressionValidator(QRegularExpression(QLatin1String(kCodePattern)), edit));
    edit->setContextMenuPolicy(Qt::NoContextMenu);
    edit->setMaxLength(kUnfocusedMaxLength);
    showPlaceholderLook();
    edit->setText(placeholderText());
    ui->startConnectBtn->setEnabled(false);

    ui->iconLab->setStyleSheet(QLatin1String(g_strLanguage == "English" ? kIconPaddingEnglish : kIconPaddingOther));
    ui->iconLab->setPixmap(renderSvgPixmap(QStringLiteral(":/OrvixUpgrade/images/svg/connect_illustration.svg"),
                                           QSize(kIllustrationSize, kIllustrationSize), 2.0));

    ui->startConnectBtn->setFixedWidth(buttonWidthFor(ui->startConnectBtn->text()));
    ui->disconnectBtn->setFixedWidth(buttonWidthFor(ui->disconnectBtn->text()));

    m_connectedLab = new QLabel(tr("Connected"), this);
    m_connectedLab->setObjectName(QStringLiteral("connectedLab"));
    m_connectedLab->setAlignment(Qt::AlignCenter);
    m_connectedLab->setFixedHeight(22);
    m_connectedLab->hide();

    // A separate top-level list under the entry, owned by the page.
    m_codeList = new QListWidget(this);
    m_codeList->setObjectName(QStringLiteral("codeList"));
    m_codeList->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    m_codeList->setMouseTracking(true);
    m_codeList->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_codeList->setSelectionMode(QAbstractItemView::SingleSelection);
    m_codeList->setFixedWidth(ui->codeEdit->maximumWidth());
    setListMouseStyle();
    m_codeList->hide();

    const bool virtualPc = MC_Util_IsVirtulPC();
    const bool extendedScreen = !virtualPc && systemSupportsExtendedScreen();
    setStyleProperty(ui->expandScreenBtn, "Status",
                     extendedScreen ? QStringLiteral("Enable") : QStringLiteral("Disable"));
    enableFileCastBtn(true);

    setNormalShow();
}

void ConnectPage::initConnect() {
    ui->codeEdit->installEventFilter(this);
    m_codeList->installEventFilter(this);
    installEventFilter(this);

    connect(ui->codeEdit, &QLineEdit::textChanged, this, &ConnectPage::onTextChanged);
    connect(this, &ConnectPage::signalConnectCode, this, &ConnectPage::onCompleteConnectCode);
    connect(ui->startConnectBtn, &QPushButton::clicked, this, &ConnectPage::onStartConnectBtnClicked);
    connect(ui->disconnectBtn, &QPushButton::clicked, this, &ConnectPage::onDisconnectBtnClicked);
    connect(ui->mirrorScreenBtn, &QToolButton::clicked, this, &ConnectPage::onStartScreenBtnClicked);
    connect(ui->reverseScreenBtn, &QToolButton::clicked, this, &ConnectPage::onReserveShareBtnClicked);
    connect(ui->fileScreenBtn, &QToolButton::clicked, this, &ConnectPage::onFileScreenBtnClicked);
    connect(ui->windowScreenBtn, &QToolButton::clicked, this, &ConnectPage::signalWindowScreen);
    connect(ui->expandScreenBtn, &QToolButton::clicked, this, &ConnectPage::onExpandScreenClicked);
    connect(m_codeList, &QListWidget::itemClicked, this, &ConnectPage::onCodeListItemClicked);
    connect(m_codeList, &QListWidget::itemEntered, this, &ConnectPage::onCodeListItemEntered);
}

void ConnectPage::showPlaceholderLook() { ui->codeEdit->setStyleSheet(entryStyle(false)); }

void ConnectPage::showInputLook() { ui->codeEdit->setStyleSheet(entryStyle(true)); }

void ConnectPage::setListKeyboardStyle() {
    m_codeList->setStyleSheet(QLatin1String(kListBaseStyle) + QLatin1String(kListKeyboardStyle));
}

void ConnectPage::setListMouseStyle() {
    m_codeList->setStyleSheet(QLatin1String(kListBaseStyle) + QLatin1String(kListMouseStyle));
}

void ConnectPage::hideCodeList() {
    m_codeList->hide();
    m_listRow = 0;
}

void ConnectPage::setConnectCode(const QString& code) {
    if (!code.isEmpty() && code != placeholderText()) {
        showInputLook();
        ui->codeEdit->setText(code);
        hideCodeList();
    } else {
        showPlaceholderLook();
        ui->codeEdit->setText(placeholderText());
    }
}

void ConnectPage::setCodeListHide() { m_codeList->hide(); }

void ConnectPage::onTextChanged(const QString& text) {
    if (m_inTextChange) return;
    QLineEdit* edit = ui->codeEdit;
    const QString placeholder = placeholderText();
    if (text != placeholder) {
        const QString upper = text.toUpper();
        if (upper != text) {
            const int cursor = edit->cursorPosition();
            m_inTextChange = true;
            edit->setText(upper);
            edit->setCursorPosition(cursor);
            m_inTextChange = false;
        }
    }
    const QString current = edit->text();
    ui->startConnectBtn->setEnabled(current.length() > 3 && current != placeholder);
    if (current.isEmpty()) {
        hideCodeList();
    } else {
        emit signalConnectCode(current);
    }
}

void ConnectPage::onStartConnectBtnClicked() {
    const QString code = ui->codeEdit->text().trimmed();
    const PasscodeServerSetting server = PasscodeServerSetting::read();
    if (code.length() == 4 && !server.isConfigured()) {
        ZV_LOG(WARNING) << " Start connect fail, code server IP: " << server.ip << ", port: " << server.port
                        << ", code: " << code.toStdString();
        TipWindows::getInstance()->setDisplayText(ErrorLevelRisk, passcodeServerMissingText(), TipWindowPlain,
                                                  m_parentWindow, kTipTopOffset);
        return;
    }
    emit signalConnect(code);
}

void ConnectPage::onDisconnectBtnClicked() { emit signalStopconnect(); }

void ConnectPage::onStartScreenBtnClicked() { emit signalStartScreen(ui->codeEdit->text()); }

void ConnectPage::onReserveShareBtnClicked() { emit signalReverseScreen(ui->codeEdit->text()); }

void ConnectPage::onFileScreenBtnClicked() {
    // The file cast starts from its own window; this entry only shows the state.
}

void ConnectPage::onExpandScreenClicked() {
    if (MC_Util_IsVirtulPC()) {
        TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, tr("virtual PC do not support Extend screen"),
                                                  TipWindowPlain, m_parentWindow, kTipTopOffset);
        return;
    }
    emit signalExpandScreen();
}

void ConnectPage::onCompleteConnectCode(const QString& text) {
    m_codeList->clear();
    std::lock_guard<std::mutex> lock(m_codeMapMutex);
    for (auto it = m_codeMap.cbegin(); it != m_codeMap.cend(); ++it) {
        const QString& code = it.value();
        // A code as long as the typed text ends the walk: the text is then
        // either complete or wrong, and later keys are not offered.
        if (code.length() == text.length()) break;
        if (code.left(text.length()).compare(text, Qt::CaseInsensitive) == 0) {
            auto* item = new QListWidgetItem(code);
            item->setSizeHint(QSize(320, 39));
            item->setTextAlignment(Qt::AlignCenter);
            item->setData(Qt::UserRole, it.key());
            m_codeList->addItem(item);
            item->setSelected(true);
        }
    }
    const int count = m_codeList->count();
    if (count > 0) {
        m_codeList->move(ui->codeEdit->mapToGlobal(QPoint(0, 0)) + QPoint(0, kListTopOffset));
        m_codeList->setFixedHeight(std::min(count * kListItemHeight + 16, kListMaxHeight));
        if (m_listRow >= count) m_listRow = 0;
        m_codeList->setCurrentRow(m_listRow);
        if (!m_codeList->isVisible()) {
            // Showing the list takes the activation once; that focus-out of the
            // entry is not a real one.
            m_listJustShown = true;
            m_codeList->show();
        }
        // The popup must not keep the keyboard focus.
        window()->activateWindow();
    } else {
        hideCodeList();
    }
}

void ConnectPage::onCodeListItemClicked(QListWidgetItem* item) {
    if (item == nullptr) return;
    ui->codeEdit->setText(item->text());
    hideCodeList();
}

void ConnectPage::onCodeListItemEntered(QListWidgetItem* item) {
    if (item == nullptr) return;
    setListMouseStyle();
    m_listRow = m_codeList->row(item);
    m_codeList->clearSelection();
}

void ConnectPage::setDeviceConnectCode(const QString& deviceKey, const QString&, const QString& code,
                                       CodeState state) {
    {
        std::lock_guard<std::mutex> lock(m_codeMapMutex);
        const bool known = m_codeMap.contains(deviceKey);
        switch (state) {
        case CodeAdd:
            if (!known && !code.isEmpty()) m_codeMap.insert(deviceKey, code);
            break;
        case CodeUpdate:
            if (known && !code.isEmpty()) m_codeMap.insert(deviceKey, code);
            break;
        case CodeDelete:
            if (known && !code.isEmpty()) m_codeMap.remove(deviceKey);
            break;
        }
    }
    // The list is rebuilt on the GUI thread, where its widgets live.
    auto rebuild = [this] {
        if (m_codeList->isVisible()) emit signalConnectCode(ui->codeEdit->text());
    };
    if (QThread::currentThread() == thread()) {
        rebuild();
    } else {
        QMetaObject::invokeMethod(this, rebuild, Qt::QueuedConnection);
    }
}

void ConnectPage::setBigScreenInfo(const tagDeviceInfo_& info) {
    const QString model = fieldText(info.szModel);
    const QString name = fieldText(info.szName);
    ui->screenModelLab->setText(model);

    QFont nameFont(QStringLiteral("Microsoft YaHei UI"));
    nameFont.setPixelSize(26);
    const QFontMetrics nameMetrics(nameFont);
    const int nameWidth = nameMetrics.horizontalAdvance(name);
    ui->screenNameLab->setText(nameWidth > kNameMaxWidth ? nameMetrics.elidedText(name, Qt::ElideRight, kNameMaxWidth)
                                                         : name);

    QFont badgeFont(QStringLiteral("Microsoft YaHei UI"));
    badgeFont.setPixelSize(12);
    const int badgeWidth = QFontMetrics(badgeFont).horizontalAdvance(m_connectedLab->text()) + 16;
    m_connectedLab->setFixedWidth(badgeWidth);
    // Placed from the unelided width, so a long name pushes the badge out
    // as far as the whole name would reach.
    const int pageWidth = width();
    const int x = isRightToLeftLanguage() ? (pageWidth - nameWidth) / 2 - kBadgeGap - badgeWidth
                                          : (nameWidth + pageWidth) / 2 + kBadgeGap;
    m_connectedLab->move(x, kBadgeTop);
    m_connectedLab->show();
    m_connectedLab->raise();
}

void ConnectPage::applyLanguageLayout(bool connected) {
    const bool longText = longTextLanguages().contains(QString::fromStdString(g_strLanguage));
    const int height = !connected && longText ? 68 : 48;
    const int top = !connected && longText ? 25 : 45;
    ui->titleLayout->setContentsMargins(0, top, 0, 24);
    ui->titleLab->setFixedHeight(height);
    ui->screenNameLab->setFixedHeight(height);
}

void ConnectPage::setConnectShow() {
    applyLanguageLayout(true);
    hideCodeList();
    ui->titleLab->hide();
    ui->iconLab->hide();
    ui->inputWidget->hide();
    ui->screenNameLab->show();
    ui->connectWidget->show();
    m_connectedLab->setVisible(!ui->screenNameLab->text().isEmpty());
    m_connectedLab->raise();
}

void ConnectPage::setNormalShow() {
    applyLanguageLayout(false);
    ui->screenNameLab->hide();
    ui->connectWidget->hide();
    m_connectedLab->hide();
    ui->titleLab->show();
    ui->iconLab->show();
    ui->inputWidget->show();
}

void ConnectPage::enableFileCastBtn(bool enable) {
    setStyleProperty(ui->fileScreenBtn, "Status", enable ? QStringLiteral("Enable") : QStringLiteral("Disable"));
    m_fileCastEnabled = enable;
}

bool ConnectPage::eventFilter(QObject* watched, QEvent* event) {
    QLineEdit* edit = ui->codeEdit;
    switch (event->type()) {
    case QEvent::KeyPress:
        if (watched == edit) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Return || key == Qt::Key_Enter) {
                if (m_codeList->isVisible()) {
                    onCodeListItemClicked(m_codeList->item(m_listRow));
                } else if (edit->text().length() > 3) {
                    onStartConnectBtnClicked();
                }
            } else if (key == Qt::Key_Down && m_codeList->isVisible()) {
                m_codeList->clearSelection();
                setListKeyboardStyle();
                m_listRow = std::min(m_listRow + 1, m_codeList->count() - 1);
                m_codeList->setCurrentRow(m_listRow);
            } else if (key == Qt::Key_Up && m_codeList->isVisible()) {
                m_codeList->clearSelection();
                setListKeyboardStyle();
                if (m_listRow > 0) --m_listRow;
                m_codeList->setCurrentRow(m_listRow);
            }
        }
        break;
    case QEvent::FocusIn:
        if (watched == edit) {
            if (edit->text() == placeholderText()) edit->clear();
            showInputLook();
            edit->setMaxLength(kFocusedMaxLength);
        }
        break;
    case QEvent::FocusOut:
        if (watched == edit) {
            if (m_listJustShown) {
                m_listJustShown = false;
                break;
            }
            edit->setMaxLength(kUnfocusedMaxLength);
            if (!edit->text().isEmpty() && edit->text() != placeholderText()) {
                showInputLook();
            } else {
                showPlaceholderLook();
                edit->setText(placeholderText());
            }
            if (!edit->hasFocus()) hideCodeList();
        }
        break;
    case QEvent::Leave:
        if (watched == m_codeList && m_codeList->isVisible()) m_codeList->setCurrentRow(m_listRow);
        break;
    case QEvent::MouseButtonPress:
        if (watched != edit) hideCodeList();
        break;
    default:
        break;
    }
    return false;
}

}  // namespace qorquicomponents
