#include "ui/SettingFeedback/HideSetWindow.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QRadioButton>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "casting/BusinessSettings.h"
#include "casting/CClientConfig.h"
#include "casting/Log.h"
#include "casting/McUtil.h"
#include "casting/Singleton.h"
#include "ui/GlobalDefine.h"

bool g_DebugLogEnable = false;

namespace qorquicomponents {
namespace {

CClientConfig& config() { return Singleton<CClientConfig>::getInstance(); }

struct StreamRow {
    const char* label;
    const char* column;  // the store's column, read raw so that unknown values check nothing
    bool hasBrx;
};

const StreamRow kRows[HideSetWindow::StreamCount] = {
    {QT_TRANSLATE_NOOP("qorquicomponents::HideSetWindow", "Cast video stream"), "ProType", true},
    {QT_TRANSLATE_NOOP("qorquicomponents::HideSetWindow", "Screen mouse flow"), "MouseProType", false},
    {QT_TRANSLATE_NOOP("qorquicomponents::HideSetWindow", "Screen casting reverse control flow"), "ReverseProType",
     false},
    {QT_TRANSLATE_NOOP("qorquicomponents::HideSetWindow", "Reverse video streaming"), "ShareProType", false},
    {QT_TRANSLATE_NOOP("qorquicomponents::HideSetWindow", "Reverse screen transmission and reverse current control"),
     "ShareReverseProType", false},
};

}  // namespace

std::atomic<HideSetWindow*> HideSetWindow::s_instance{nullptr};

HideSetWindow* HideSetWindow::getInstance() {
    HideSetWindow* window = s_instance.load();
    if (window == nullptr) {
        window = new HideSetWindow;
        s_instance.store(window);
    }
    return window;
}

void HideSetWindow::destory() {
    delete s_instance.exchange(nullptr);
}

void HideSetWindow::showFrom(QWidget* anchor) {
    HideSetWindow* window = getInstance();
    if (anchor != nullptr) {
        const int right = g_strLanguage == "Croatian" ? 22 : 32;
        window->move(anchor->mapToGlobal(QPoint(0, 0)) + QPoint(right, 0));
    }
    window->show();
    window->raise();
    window->activateWindow();
}

QString HideSetWindow::logFolder() {
    return QString::fromStdString(MC_Util_GetHomePath()) + QStringLiteral("/Zelvanor/Zelvanor/Logs/");
}

HideSetWindow::HideSetWindow() : QWidget(nullptr, Qt::Window | Qt::FramelessWindowHint) {
    setObjectName(QStringLiteral("HideSetWindow"));
    setAttribute(Qt::WA_StyledBackground, true);
    setWindowTitle(tr("Debug window"));
    setMinimumSize(620, 380);
    auto* outer = new QVBoxLayout(this);
    m_titleLab = new QLabel(tr("Debug window"));
    m_titleLab->setObjectName(QStringLiteral("titleLab"));
    m_titleLab->setFixedHeight(36);
    auto* close = new QPushButton(QStringLiteral("×"));
    close->setObjectName(QStringLiteral("closeBtn"));
    close->setFixedSize(28, 28);
    auto* title = new QHBoxLayout;
    title->addWidget(m_titleLab, 1);
    title->addWidget(close);
    outer->addLayout(title);
    connect(close, &QPushButton::clicked, this, &QWidget::hide);

    auto* body = new QHBoxLayout;
    auto* buttons = new QVBoxLayout;
    m_stack = new QStackedWidget;
    const QStringList pages = {tr("Changes to the agreement"), tr("Record the screen casting code stream"),
                               tr("Coding scheme"),            tr("Realtime data"),
                               tr("ReverseScreen"),            tr("DebugLog")};
    m_stack->addWidget(buildProtocolPage());
    m_stack->addWidget(buildDumpPage());
    m_stack->addWidget(buildCodingPage());
    m_stack->addWidget(buildRealtimePage());
    m_stack->addWidget(buildReversePage());
    m_stack->addWidget(buildDebugLogPage());
    for (int i = 0; i < pages.size(); ++i) {
        auto* button = new QPushButton(pages[i]);
        button->setFocusPolicy(Qt::NoFocus);
        connect(button, &QPushButton::clicked, this, [this, i] { m_stack->setCurrentIndex(i); });
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    body->addLayout(buttons);
    body->addWidget(m_stack, 1);
    outer->addLayout(body, 1);
    m_titleLab->installEventFilter(this);
}

HideSetWindow::~HideSetWindow() = default;

QCheckBox* HideSetWindow::addSwitch(QLayout* layout, const QString& text) {
    auto* box = new QCheckBox(text);
    layout->addWidget(box);
    return box;
}

QPushButton* HideSetWindow::addButton(QLayout* layout, const QString& text) {
    auto* button = new QPushButton(text);
    layout->addWidget(button);
    return button;
}

QWidget* HideSetWindow::control(const QString& text) const {
    for (QAbstractButton* button : findChildren<QAbstractButton*>()) {
        if (button->text() == text) return button;
    }
    return nullptr;
}

QWidget* HideSetWindow::buildProtocolPage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    for (int s = 0; s < StreamCount; ++s) {
        auto* row = new QHBoxLayout;
        row->addWidget(new QLabel(tr(kRows[s].label)), 1);
        m_groups[s] = new QButtonGroup(page);
        // Exclusive groups cannot show "none checked"; the show event needs it.
        m_groups[s]->setExclusive(false);
        const int choices = kRows[s].hasBrx ? 3 : 2;
        const char* names[] = {"UDP", "TCP", "BRX"};
        for (int value = 0; value < choices; ++value) {
            auto* radio = new QRadioButton(QString::fromLatin1(names[value]));
            radio->setObjectName(QStringLiteral("protocol%1_%2").arg(s).arg(value));
            m_groups[s]->addButton(radio, value);
            row->addWidget(radio);
        }
        connect(m_groups[s], &QButtonGroup::idClicked, this,
                [this, s](int value) { writeProtocol(static_cast<Stream>(s), value); });
        column->addLayout(row);
    }
    m_restoreBtn = addButton(column, tr("Restore default "));
    m_restoreBtn->setCheckable(true);
    connect(m_restoreBtn, &QPushButton::clicked, this, &HideSetWindow::onRestoreDefaultClicked);
    column->addStretch(1);
    return page;
}

void HideSetWindow::writeProtocol(Stream stream, int value) {
    QButtonGroup* group = m_groups[stream];
    for (QAbstractButton* button : group->buttons()) button->setChecked(group->id(button) == value);
    switch (stream) {
        case CastVideo: config().updataProType(value); break;
        case ScreenMouse: config().updataMouseProType(value); break;
        case ScreenReverseControl: config().updataReverseProType(value); break;
        case ReverseVideo: config().updataShareProType(value); break;
        case ReverseScreenControl: config().updataShareReverseProType(value); break;
        case StreamCount: return;
    }
    ZV_LOG(INFO) << " " << kRows[stream].column << " := " << value << " (from the next session)";
}

int HideSetWindow::checkedProtocol(Stream stream) const {
    for (QAbstractButton* button : m_groups[stream]->buttons()) {
        if (button->isChecked()) return m_groups[stream]->id(button);
    }
    return -1;
}

QWidget* HideSetWindow::buildDumpPage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    BusinessSettings* business = &BusinessSettings::getInstance();
    // The switches pass the button's enabled state: a click turns a dump on
    // and nothing here turns it off (a session's end does, or the CLI).
    struct Dump {
        QString text;
        void (BusinessSettings::*set)(bool);
    };
    const Dump dumps[] = {
        {tr("RGB flow  "), &BusinessSettings::setIsWriteRGBFlow},
        {tr("YUV flow"), &BusinessSettings::setIsWriteYUVFlow},
        {tr("H264 flow"), &BusinessSettings::setIsWriteH264Flow},
        {tr("RGB stream after LIBYUV conversion  "), &BusinessSettings::setIsWriteRGBFlowAfterYUV},
        {tr("RTP flow"), &BusinessSettings::setIsWriteRTPFlow},
    };
    for (const Dump& dump : dumps) {
        QCheckBox* box = addSwitch(column, dump.text);
        auto set = dump.set;
        connect(box, &QCheckBox::clicked, this, [business, box, set] { (business->*set)(box->isEnabled()); });
    }
    column->addStretch(1);
    return page;
}

QWidget* HideSetWindow::buildCodingPage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    m_codingBox = addSwitch(column, tr("Soft plaits are preferred"));
    connect(m_codingBox, &QCheckBox::clicked, this, [](bool checked) {
        config().updateCodingMode(checked ? 1 : 0);
        config().updateHWEEnable(1);
        ZV_LOG(INFO) << " software encoders " << (checked ? "first" : "after hardware ones") << " from the next cast";
    });
    column->addStretch(1);
    return page;
}

QWidget* HideSetWindow::buildRealtimePage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    QCheckBox* timeLog = addSwitch(column, tr("Record Time Log"));
    connect(timeLog, &QCheckBox::clicked, this,
            [](bool checked) { BusinessSettings::getInstance().setIsRecordTimeLog(checked); });
    connect(addButton(column, tr("ShowDisplayInfo")), &QPushButton::clicked, this,
            &HideSetWindow::signalShowDisplayInfo);
    connect(addButton(column, tr("Show DisplaySetting")), &QPushButton::clicked, this,
            &HideSetWindow::signalShowDisplaySetting);
    auto* byom = new QHBoxLayout;
    m_byomModel = new QComboBox;
    m_byomModel->addItems({tr("Not supported"), tr("Closed"), tr("Open")});
    byom->addWidget(m_byomModel);
    QPushButton* byomBtn = addButton(byom, tr("BYOMShowModel"));
    connect(byomBtn, &QPushButton::clicked, this, [this] { emit signalChangeBYOMModel(m_byomModel->currentIndex()); });
    column->addLayout(byom);
    column->addStretch(1);
    return page;
}

QWidget* HideSetWindow::buildReversePage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    QCheckBox* record = addSwitch(column, tr("Record ReverseScreen Stream"));
    connect(record, &QCheckBox::clicked, this, &HideSetWindow::signalReverseWriteStream);
    connect(addButton(column, tr("GetJPEG")), &QPushButton::clicked, this, &HideSetWindow::signalReverseGetJPEG);
    connect(addButton(column, tr("RequestKeyFrame")), &QPushButton::clicked, this,
            &HideSetWindow::signalReverseKeyFrame);
    connect(addButton(column, tr("PrintReverseControlProcessLogs")), &QPushButton::clicked, this,
            &HideSetWindow::signalPrintProcessLogs);
    QCheckBox* mouse = addSwitch(column, tr("PrintMouseInfomation"));
    connect(mouse, &QCheckBox::clicked, this, [] { BusinessSettings::getInstance().setPrintMouseInfo(true); });
    column->addStretch(1);
    return page;
}

QWidget* HideSetWindow::buildDebugLogPage() {
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    auto* debugLog = new QCheckBox(tr("show debug log"));
    debugLog->setObjectName(QStringLiteral("debugLogBox"));
    column->addWidget(debugLog);
    connect(debugLog, &QCheckBox::clicked, this, [debugLog](bool checked) {
        g_DebugLogEnable = !checked;
        debugLog->setText(checked ? tr("hide debug log") : tr("show debug log"));
        FLAGS_v = checked ? 1 : 0;
        ZV_LOG(INFO) << " debug log " << (checked ? "shown" : "hidden");
    });
    m_openLogBtn = addButton(column, tr("Open the log"));
    m_openLogBtn->setCheckable(true);
    connect(m_openLogBtn, &QPushButton::clicked, this, &HideSetWindow::onOpenLogClicked);
    column->addStretch(1);
    return page;
}

void HideSetWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    for (int s = 0; s < StreamCount; ++s) {
        bool isNumber = false;
        int stored = QString::fromStdString(config().getColumnValue(kRows[s].column)).toInt(&isNumber);
        if (!isNumber) stored = -1;
        // Cast video: only 0, 1 and 2 check a choice; the others: 1 is TCP, all else UDP.
        if (s != CastVideo) stored = stored == 1 ? 1 : 0;
        for (QAbstractButton* button : m_groups[s]->buttons()) button->setChecked(m_groups[s]->id(button) == stored);
    }
    m_codingBox->setChecked(config().getCodingMode() == 1);
}

void HideSetWindow::onRestoreDefaultClicked() {
    m_restoreBtn->setChecked(false);
    writeProtocol(CastVideo, 2);
    for (Stream s : {ScreenMouse, ScreenReverseControl, ReverseVideo, ReverseScreenControl}) writeProtocol(s, 1);
    m_codingBox->setChecked(false);
    config().updateCodingMode(0);
}

void HideSetWindow::onOpenLogClicked() {
    m_openLogBtn->setChecked(false);
    const QString folder = logFolder();
    ZV_LOG(INFO) << " opening " << folder.toStdString();
    emit signalOpenFolder(folder);
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(folder))) {
        ZV_LOG(WARNING) << " no file handler opened " << folder.toStdString();
    }
}

// The window is frameless: its title moves it.
bool HideSetWindow::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_titleLab) {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (event->type() == QEvent::MouseButtonPress && mouse->button() == Qt::LeftButton) {
            m_dragOffset = mouse->globalPos() - frameGeometry().topLeft();
            m_dragging = true;
        } else if (event->type() == QEvent::MouseMove && m_dragging) {
            move(mouse->globalPos() - m_dragOffset);
        } else if (event->type() == QEvent::MouseButtonRelease) {
            m_dragging = false;
        }
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace qorquicomponents
