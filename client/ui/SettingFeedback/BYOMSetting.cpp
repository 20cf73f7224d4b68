#include "ui/SettingFeedback/BYOMSetting.h"

#include <QCloseEvent>
#include <QEasingCurve>
#include <QEvent>
#include <QFile>
#include <QHBoxLayout>
#include <QLabel>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "ui/GlobalDefine.h"
#include "ui/TipWindows.h"
#include "ui/widgets/StyleUtil.h"

namespace qorquicomponents {

BYOMSetting::BYOMSetting(QWidget* parent)
    : QWidget(parent, Qt::Popup | Qt::FramelessWindowHint), m_title(new QLabel), m_description(new QLabel),
      m_switch(new QPushButton), m_close(new QPushButton(QStringLiteral("×"))) {
    setObjectName(QStringLiteral("BYOMSetting"));
    m_title->setObjectName(QStringLiteral("titleLab"));
    m_description->setObjectName(QStringLiteral("descriptionLab"));
    m_description->setWordWrap(true);
    m_switch->setObjectName(QStringLiteral("switchBtn"));
    m_switch->setFixedSize(40, 22);
    m_close->setObjectName(QStringLiteral("closeBtn"));
    auto* column = new QVBoxLayout(this);
    auto* top = new QHBoxLayout;
    top->addWidget(m_title, 1);
    top->addWidget(m_close);
    column->addLayout(top);
    auto* row = new QHBoxLayout;
    row->addWidget(m_description, 1);
    row->addWidget(m_switch);
    column->addLayout(row);
    connect(m_close, &QPushButton::clicked, this, &QWidget::close);
    connect(m_switch, &QPushButton::clicked, this, &BYOMSetting::onVirtualDeviceEnabled);
    setBYOMStatus(BYOMClose);
}

void BYOMSetting::setBYOMStatus(BYOMButtonStatus status) {
    m_title->setText(tr("BYOM Function Enable"));
    m_description->setText(tr("Enable the virtual microphone and camera"));
    m_switch->show();
    switch (status) {
        case BYOMClose:
            m_switchOn = false;
            m_switch->setProperty("status", QStringLiteral("close"));
            break;
        case BYOMOpen:
            m_switchOn = true;
            m_switch->setProperty("status", QStringLiteral("open"));
            break;
        case BYOMNotSupport:
            m_switchOn = false;
            m_switch->setProperty("status", QStringLiteral("close"));
            m_title->setText(tr("BYOM Not Supported"));
            // This PC is the reason when it cannot host the devices (no
            // v4l2loopback camera or no sound server); else the panel is.
            m_description->setText(m_hostAvailable
                                       ? tr("BYOM is not supported on the current Display.")
                                       : tr("This computer cannot host a virtual camera and microphone "
                                            "(v4l2loopback and a PulseAudio server are needed)."));
            m_switch->hide();
            break;
    }
    reapplyStyleSheet(m_switch);
}

void BYOMSetting::setVirtualDeviceBtnEnableClicked(bool enabled) { m_switch->setEnabled(enabled); }

void BYOMSetting::onVirtualDeviceEnabled() {
    // Disabled until the controller has the library's answer: a second quick
    // click sends nothing.
    if (!m_switch->isEnabled()) return;
    m_switch->setEnabled(false);
    setStyleProperty(m_switch, "status", QStringLiteral("loading"));
    m_switchOn = !m_switchOn;
    emit signalVirtualDeviceClicked(m_switchOn);
}

bool BYOMSetting::event(QEvent* event) {
    if (event->type() == QEvent::WindowDeactivate) {
        if (TipWindows::getInstance()->hasFocus()) {
            activateWindow();
        } else {
            close();
        }
    }
    return QWidget::event(event);
}

void BYOMSetting::closeEvent(QCloseEvent* event) {
    emit signalClose();
    QWidget::closeEvent(event);
}

BYOMButton::BYOMButton(QWidget* parent)
    : QWidget(parent), m_icon(new QLabel), m_text(new QLabel), m_foldTimer(new QTimer(this)),
      m_fold(new QPropertyAnimation(this, "pos", this)), m_unfold(new QPropertyAnimation(this, "pos", this)) {
    setObjectName(QStringLiteral("BYOMButton"));
    m_icon->setObjectName(QStringLiteral("iconLab"));
    m_icon->setFixedSize(24, 24);
    m_text->setObjectName(QStringLiteral("textLab"));
    auto* row = new QHBoxLayout(this);
    if (isRightToLeftLanguage()) {
        row->addWidget(m_text);
        row->addWidget(m_icon);
    } else {
        row->addWidget(m_icon);
        row->addWidget(m_text);
    }
    QFile style(QStringLiteral(":/OrvixUpgrade/QSS/BYOMWidget.qss"));
    if (style.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(style.readAll()));
    m_foldTimer->setInterval(kFoldIntervalMs);
    connect(m_foldTimer, &QTimer::timeout, this, [this] {
        m_foldTimer->stop();
        startCollapseAnimation();
    });
    for (QPropertyAnimation* animation : {m_fold, m_unfold}) {
        animation->setDuration(kAnimationMs);
        animation->setEasingCurve(QEasingCurve::OutCubic);
    }
}

void BYOMButton::setIconStatus(BYOMButtonStatus status) {
    const char* icon = status == BYOMOpen ? "Open" : status == BYOMClose ? "Close" : "NotSupport";
    const char* text = status == BYOMNotSupport ? "NotSupport" : "Normal";
    setStyleProperty(m_icon, "Status", QString::fromLatin1(icon));
    setStyleProperty(m_text, "Status", QString::fromLatin1(text));
}

void BYOMButton::setLabText(const QString& text) {
    m_text->setText(text);
    adjustFontSize();
}

void BYOMButton::startTimer() {
    move(m_anchor);
    m_foldTimer->start();
}

// Folded, only the icon stays out at the anchor's edge.
void BYOMButton::startCollapseAnimation() {
    const int hidden = width() - m_icon->width() - 16;
    m_fold->setStartValue(pos());
    m_fold->setEndValue(m_anchor + QPoint(isRightToLeftLanguage() ? -hidden : hidden, 0));
    m_fold->start();
}

void BYOMButton::startExpandAnimation() {
    m_unfold->setStartValue(pos());
    m_unfold->setEndValue(m_anchor);
    m_unfold->start();
}

void BYOMButton::adjustFontSize() {
    QFont font = m_text->font();
    for (int size = 14; size >= 10; size -= 2) {
        font.setPixelSize(size);
        if (QFontMetrics(font).horizontalAdvance(m_text->text()) <= 160) break;
    }
    m_text->setFont(font);
}

void BYOMButton::mousePressEvent(QMouseEvent*) {
    startExpandAnimation();
    m_foldTimer->start();
    emit signalClicked();
}

BYOMUsageGuidance::BYOMUsageGuidance(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(QStringLiteral("BYOMUsageGuidance"));
    auto* column = new QVBoxLayout(this);
    auto* text = new QLabel(tr("While the screen is cast, pick \"Zelvanor Camera\" and \"Zelvanor Microphone\" "
                               "in your meeting program to use the display's camera and microphone."));
    text->setWordWrap(true);
    column->addWidget(text);
    auto* close = new QPushButton(tr("OK"));
    column->addWidget(close);
    connect(close, &QPushButton::clicked, this, [this] {
        hide();
        emit signalCloseWindow();
    });
}

}  // namespace qorquicomponents
