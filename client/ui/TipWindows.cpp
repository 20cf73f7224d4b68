#include "ui/TipWindows.h"

#include <QApplication>
#include <QFile>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QHideEvent>
#include <QParallelAnimationGroup>
#include <QPauseAnimation>
#include <QPropertyAnimation>
#include <QScreen>
#include <QSequentialAnimationGroup>

#include "ui/DetailsExpansionWindow.h"
#include "ui_TipWindows.h"

namespace qorquicomponents {

namespace {

constexpr int kSideMargin = 24;
constexpr int kIconSize = 20;
constexpr int kIconGap = 8;
constexpr int kButtonGap = 16;
constexpr int kCloseSize = 16;
constexpr int kSlideDistance = 16;

const char* const kIconFiles[] = {"icon_risk2x.png", "icon_warn2x.png", "icon_success2x.png", "icon_info2x.png",
                                  "icon_remind2x.png"};

QFont tipFont(const QFont& base) {
    QFont font = base;
    font.setPixelSize(TipWindows::kFontPixelSize);
    return font;
}

}  // namespace

TipWindows* TipWindows::getInstance() {
    // Lives until the process ends; top-level, so it needs no owner.
    static TipWindows* instance = new TipWindows();
    return instance;
}

TipWindows::TipWindows()
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), ui(new Ui::TipWindows) {
    ui->setupUi(this);
    setObjectName(QStringLiteral("TipWindows"));
    setAttribute(Qt::WA_StyledBackground, true);
    setAttribute(Qt::WA_ShowWithoutActivating, true);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/QSS/TipWindows.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));
    ui->textLab->setFont(tipFont(ui->textLab->font()));
    ui->detailsBtn->setFont(tipFont(ui->detailsBtn->font()));
    ui->textLab->setAlignment(Qt::AlignLeft | Qt::AlignVCenter);

    m_fadeAnimation = new QPropertyAnimation(this, "windowOpacity", this);
    m_fadeAnimation->setDuration(kFadeDurationMs);
    m_fadeAnimation->setKeyValueAt(0.0, 0.0);
    m_fadeAnimation->setKeyValueAt(0.9, 0.1);
    m_fadeAnimation->setKeyValueAt(1.0, 1.0);
    m_slideInAnimation = new QPropertyAnimation(this, "pos", this);
    m_slideInAnimation->setDuration(kSlideDurationMs);
    m_slideOutAnimation = new QPropertyAnimation(this, "pos", this);
    m_slideOutAnimation->setDuration(kSlideDurationMs);
    m_holdAnimation = new QPauseAnimation(holdDurationMs(TipWindowPlain), this);

    m_enterGroup = new QParallelAnimationGroup(this);
    m_enterGroup->addAnimation(m_fadeAnimation);
    m_enterGroup->addAnimation(m_slideInAnimation);
    m_animationGroup = new QSequentialAnimationGroup(this);
    m_animationGroup->addAnimation(m_enterGroup);
    m_animationGroup->addAnimation(m_holdAnimation);
    m_animationGroup->addAnimation(m_slideOutAnimation);
    connect(m_animationGroup, &QAbstractAnimation::finished, this, &QWidget::hide);

    connect(ui->closeBtn, &QPushButton::clicked, this, &TipWindows::onCloseBtnClicked);
    connect(ui->detailsBtn, &QPushButton::clicked, this, &TipWindows::onViewDetailsBtnClicked);
}

TipWindows::~TipWindows() { delete ui; }

int TipWindows::holdDurationMs(TipWindowType type) { return type == TipWindowWithDetails ? 5000 : 2000; }

QString TipWindows::iconPath(ErrorLevel level) {
    const int index = level >= ErrorLevelRisk && level <= ErrorLevelRemind ? static_cast<int>(level) : ErrorLevelInfo;
    return QStringLiteral(":/OrvixUpgrade/image/") + QLatin1String(kIconFiles[index]);
}

QString TipWindows::displayText() const { return ui->textLab->text(); }

void TipWindows::setStepfatherWidgetInfo(int x, int y, int width, int height) {
    m_stepfatherX = x;
    m_stepfatherY = y;
    m_stepfatherWidth = width;
    m_stepfatherHeight = height;
}

void TipWindows::layoutForText(const QString& text, TipWindowType type) {
    const QFontMetrics metrics(tipFont(ui->textLab->font()));
    const int t = metrics.boundingRect(text).width() + 10;

    int tipWidth = 0;
    int tipHeight = 0;
    int labelWidth = 0;
    int labelHeight = 20;
    if (type == TipWindowWithDetails) {
        const int b = QFontMetrics(tipFont(ui->detailsBtn->font())).boundingRect(ui->detailsBtn->text()).width();
        ui->detailsBtn->show();
        ui->closeBtn->show();
        ui->detailsBtn->setFixedSize(b + 2, 20);
        if (b + t > 444) {
            tipWidth = 616;
            tipHeight = 84;
            labelHeight = 40;
            labelWidth = tipWidth - 2 * kSideMargin - kIconSize - kIconGap - kButtonGap - (b + 2) - kButtonGap - kCloseSize;
        } else {
            labelWidth = t + 2;
            tipWidth = b + t + 72 + 86;
            tipHeight = 64;
        }
    } else {
        ui->detailsBtn->hide();
        ui->closeBtn->hide();
        if (t > 504) {
            labelWidth = 504;
            labelHeight = 40;
            tipWidth = 616;
            tipHeight = 84;
        } else {
            labelWidth = t;
            tipWidth = t + 96;
            tipHeight = 64;
        }
    }
    setFixedSize(tipWidth, tipHeight);
    ui->textLab->setFixedSize(labelWidth, labelHeight);

    // Icon, text and buttons form one group centred in the tip.
    int groupWidth = kIconSize + kIconGap + labelWidth;
    if (type == TipWindowWithDetails) groupWidth += kButtonGap + ui->detailsBtn->width() + kButtonGap + kCloseSize;
    int x = qMax(kSideMargin, (tipWidth - groupWidth) / 2);
    ui->iconLab->setGeometry(x, (tipHeight - kIconSize) / 2, kIconSize, kIconSize);
    x += kIconSize + kIconGap;
    ui->textLab->move(x, (tipHeight - labelHeight) / 2);
    x += labelWidth + kButtonGap;
    if (type == TipWindowWithDetails) {
        ui->detailsBtn->move(x, (tipHeight - 20) / 2);
        x += ui->detailsBtn->width() + kButtonGap;
        ui->closeBtn->setGeometry(x, (tipHeight - kCloseSize) / 2, kCloseSize, kCloseSize);
    }
}

QRect TipWindows::anchorArea(QWidget* parent) const {
    if (m_stepfatherWidth > 0 && m_stepfatherHeight > 0) return stepfatherArea();
    for (QWidget* widget : {parent, m_mainWidget}) {
        if (widget != nullptr && widget->isVisible()) {
            QWidget* window = widget->window();
            return QRect(window->mapToGlobal(QPoint(0, 0)), window->size());
        }
    }
    const QScreen* screen = QGuiApplication::primaryScreen();
    return screen != nullptr ? screen->availableGeometry() : QRect(0, 0, 1024, 768);
}

void TipWindows::setDisplayText(ErrorLevel level, const QString& text, TipWindowType type, QWidget* parent,
                                int topOffset) {
    m_animationGroup->stop();
    m_level = level;
    m_type = type;
    layoutForText(text, type);

    if (parent != nullptr) m_currentFatherWidget = parent;
    const QRect area = anchorArea(parent);
    const QPoint target(area.x() + area.width() / 2 - width() / 2, area.y() + topOffset);
    m_slideInAnimation->setStartValue(target - QPoint(0, kSlideDistance));
    m_slideInAnimation->setEndValue(target);
    m_slideOutAnimation->setStartValue(target);
    m_slideOutAnimation->setEndValue(target - QPoint(0, kSlideDistance));
    m_holdAnimation->setDuration(holdDurationMs(type));

    ui->iconLab->setStyleSheet(QStringLiteral("border-image: url(%1);").arg(iconPath(level)));
    ui->textLab->setText(text);
    move(m_slideInAnimation->startValue().toPoint());
    show();
    raise();
    m_animationGroup->start();
}

void TipWindows::onCloseBtnClicked() { hide(); }

void TipWindows::onViewDetailsBtnClicked() {
    DetailsExpansionWindow::getInstance()->setWindowContent(m_needShowErrorCode, ui->textLab->text());
    m_needShowErrorCode = 0;
    onCloseBtnClicked();
}

void TipWindows::hideEvent(QHideEvent* event) {
    m_animationGroup->stop();
    setStepfatherWidgetInfo(0, 0, 0, 0);
    QWidget::hideEvent(event);
}

}  // namespace qorquicomponents
