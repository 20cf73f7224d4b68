#include "ui/FileScreenWidget/ControlBtn.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QTimer>
#include <QVariant>

#include "ui/widgets/StyleUtil.h"
#include "ui/widgets/SwitchButton.h"

namespace qorquicomponents {

namespace {

QString iconSheet(const QString& icon, bool enabled) {
    return QStringLiteral("border-image:url(:/OrvixUpgrade/image/%1%2.png);")
        .arg(icon, enabled ? QStringLiteral("2x") : QStringLiteral("_disable2x"));
}

// The icon of a bar button is kept in its "icon" property.
void setIconLook(SwitchButton* button, bool enabled) {
    button->iconLabel()->setStyleSheet(iconSheet(button->property("icon").toString(), enabled));
}

}  // namespace

ControlBtn::ControlBtn(QWidget* parent) : QWidget(parent), m_lockTimer(new QTimer(this)) {
    setObjectName(QStringLiteral("controlBtn"));
    setAttribute(Qt::WA_StyledBackground, true);
    auto make = [this](const char* name, const char* icon, const QString& tip) {
        auto* button = new SwitchButton(this);
        button->setObjectName(QLatin1String(name));
        button->setCheckable(false);
        button->setToolTip(tip);
        button->setProperty("icon", QString::fromLatin1(icon));
        setIconLook(button, true);
        button->installEventFilter(this);
        return button;
    };
    m_lastBtn = make("controlLastBtn", "file_last", tr("previous"));
    m_nextBtn = make("controlNextBtn", "file_next", tr("next"));
    m_rotateLeftBtn = make("rotateLeftBtn", "file_rotate_left", tr("rotate left"));
    m_rotateRightBtn = make("rotateRightBtn", "file_rotate_right", tr("rotate right"));
    m_zoomInBtn = make("zoomInBtn", "file_zoom_in", tr("zoom in"));
    m_zoomOutBtn = make("zoomOutBtn", "file_zoom_out", tr("zoom out"));
    m_stopBtn = make("controlStopBtn", "file_stop", tr("stop"));

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 4, 12, 4);
    layout->setSpacing(4);
    for (SwitchButton* button : {m_lastBtn, m_nextBtn, m_rotateLeftBtn, m_rotateRightBtn, m_zoomInBtn, m_zoomOutBtn,
                                 m_stopBtn}) {
        layout->addWidget(button);
    }
    adjustSize();

    m_lockTimer->setInterval(kLockMs);
    connect(m_lockTimer, &QTimer::timeout, this, &ControlBtn::onLockTimeout);
    connect(m_zoomInBtn, &QPushButton::clicked, this, &ControlBtn::signalZoomInBtnClicked);
    connect(m_zoomOutBtn, &QPushButton::clicked, this, &ControlBtn::signalZoomOutBtnClicked);
    connect(m_rotateRightBtn, &QPushButton::clicked, this, [this] { emit signalRotate(true); });
    connect(m_rotateLeftBtn, &QPushButton::clicked, this, [this] { emit signalRotate(false); });
    connect(m_stopBtn, &QPushButton::clicked, this, &ControlBtn::signalStopScreen);
    connect(m_nextBtn, &QPushButton::clicked, this, [this] {
        emit signalNextBtnClicked();
        lockPageButtons();
    });
    connect(m_lastBtn, &QPushButton::clicked, this, [this] {
        emit signalLastBtnClicked();
        lockPageButtons();
    });
}

bool ControlBtn::isPageLocked() const { return m_lockTimer->isActive(); }

void ControlBtn::restyle(SwitchButton* button) {
    // While locked, setButtonShow only records the state; the timer's end
    // applies it.
    if (isPageLocked()) return;
    button->setEnabled(button->isButtonShow());
    setIconLook(button, button->isButtonShow());
}

void ControlBtn::setDisable(int lastIndex, int currentIndex) {
    if (m_lastBtn->isButtonShow() && currentIndex == 0) {
        m_lastBtn->setButtonShow(false);
    } else if (!m_lastBtn->isButtonShow() && currentIndex > 0) {
        m_lastBtn->setButtonShow(true);
    }
    if (m_nextBtn->isButtonShow() && currentIndex == lastIndex) {
        m_nextBtn->setButtonShow(false);
    } else if (!m_nextBtn->isButtonShow() && lastIndex > currentIndex) {
        m_nextBtn->setButtonShow(true);
    }
    restyle(m_lastBtn);
    restyle(m_nextBtn);
    if (isPageLocked()) {
        m_lastBtn->setEnabled(false);
        m_nextBtn->setEnabled(false);
    }
}

void ControlBtn::setZoomInBtnEnabled(bool enabled) {
    m_zoomInBtn->setEnabled(enabled);
    setIconLook(m_zoomInBtn, enabled);
    setStyleProperty(m_zoomInBtn, "Status", enabled ? QStringLiteral("Enable") : QStringLiteral("Disable"));
}

void ControlBtn::setZoomOutBtnEnabled(bool enabled) {
    m_zoomOutBtn->setEnabled(enabled);
    setIconLook(m_zoomOutBtn, enabled);
    setStyleProperty(m_zoomOutBtn, "Status", enabled ? QStringLiteral("Enable") : QStringLiteral("Disable"));
}

void ControlBtn::lockPageButtons() {
    m_lockTimer->start();
    for (SwitchButton* button : {m_lastBtn, m_nextBtn}) {
        button->setEnabled(false);
        setIconLook(button, false);
        setStyleProperty(button, "Status", QStringLiteral("Disable"));
    }
}

void ControlBtn::onLockTimeout() {
    m_lockTimer->stop();
    for (SwitchButton* button : {m_lastBtn, m_nextBtn}) {
        setStyleProperty(button, "Status", button->isButtonShow() ? QStringLiteral("Show") : QStringLiteral("Hide"));
        restyle(button);
    }
}

void ControlBtn::enterEvent(QEvent* event) {
    emit signalControlEnter();
    QWidget::enterEvent(event);
}

void ControlBtn::leaveEvent(QEvent* event) {
    emit signalControlLeave();
    QWidget::leaveEvent(event);
}

bool ControlBtn::eventFilter(QObject* watched, QEvent* event) {
    if (auto* button = qobject_cast<SwitchButton*>(watched)) {
        if (event->type() == QEvent::Enter) {
            const QPoint below = button->mapToGlobal(QPoint(button->width() / 2, button->height()));
            emit signalBtnEnter(button->toolTip(), below.x(), below.y());
        } else if (event->type() == QEvent::Leave) {
            emit signalBtnLeave();
        }
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace qorquicomponents
