#include "ui/FileScreenWidget/VideoPage.h"

#include <QCursor>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QVBoxLayout>

#include <algorithm>
#include <thread>

#include "casting/CManageAll.h"
#include "casting/SessionRecords.h"
#include "ui/widgets/StyleUtil.h"
#include "ui/widgets/SwitchButton.h"

namespace qorquicomponents {

namespace {

QString iconSheet(const char* name, bool enabled) {
    return QStringLiteral("border-image:url(:/OrvixUpgrade/image/%1%2.png);")
        .arg(QLatin1String(name), enabled ? QStringLiteral("2x") : QStringLiteral("_disable2x"));
}

SwitchButton* makeButton(QWidget* parent, const char* objectName, const char* icon, const QString& tip) {
    auto* button = new SwitchButton(parent);
    button->setObjectName(QLatin1String(objectName));
    button->setCheckable(false);
    button->setToolTip(tip);
    button->iconLabel()->setStyleSheet(iconSheet(icon, true));
    return button;
}

// The value under a point of a slider's groove.
int sliderValueAt(QSlider* slider, const QPoint& pos) {
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    const QRect groove = slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderGroove, slider);
    return QStyle::sliderValueFromPosition(slider->minimum(), slider->maximum(), pos.x() - groove.x(),
                                           std::max(1, groove.width()));
}

bool onHandle(QSlider* slider, const QPoint& pos) {
    QStyleOptionSlider option;
    option.initFrom(slider);
    option.orientation = slider->orientation();
    option.minimum = slider->minimum();
    option.maximum = slider->maximum();
    option.sliderPosition = slider->sliderPosition();
    option.sliderValue = slider->value();
    return slider->style()
        ->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider)
        .contains(pos);
}

}  // namespace

VideoPage::VideoPage(QWidget* parent) : QWidget(parent) {
    initUi();
    initConnect();
    reset();
    clearPage();
}

QString VideoPage::timeText(int seconds) {
    return QStringLiteral("%1:%2")
        .arg(seconds / 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

void VideoPage::initUi() {
    setObjectName(QStringLiteral("videoPage"));
    setAttribute(Qt::WA_StyledBackground, true);

    m_caption = new QLabel(this);
    m_caption->setObjectName(QStringLiteral("videoCaptionLab"));
    m_caption->setAlignment(Qt::AlignCenter);
    m_caption->setWordWrap(true);

    m_currentTime = new QLabel(this);
    m_currentTime->setObjectName(QStringLiteral("currentTimeLab"));
    m_totalTime = new QLabel(this);
    m_totalTime->setObjectName(QStringLiteral("totalTimeLab"));
    m_progress = new QSlider(Qt::Horizontal, this);
    m_progress->setObjectName(QStringLiteral("progressSlider"));
    m_progress->setRange(0, 100);
    m_progress->setCursor(Qt::PointingHandCursor);

    m_volumeBox = new QWidget(this);
    m_volumeBox->setObjectName(QStringLiteral("volumeWidget"));
    m_volumeBox->setAttribute(Qt::WA_StyledBackground, true);
    auto* volumeIcon = new QLabel(m_volumeBox);
    volumeIcon->setObjectName(QStringLiteral("volumeIconLab"));
    volumeIcon->setFixedSize(24, 24);
    volumeIcon->setStyleSheet(iconSheet("file_volume", true));
    m_volume = new QSlider(Qt::Horizontal, m_volumeBox);
    m_volume->setObjectName(QStringLiteral("volumeSlider"));
    m_volume->setRange(0, 100);
    m_volume->setFixedWidth(120);
    m_volume->setCursor(Qt::PointingHandCursor);
    auto* volumeLayout = new QHBoxLayout(m_volumeBox);
    volumeLayout->setContentsMargins(8, 4, 8, 4);
    volumeLayout->addWidget(volumeIcon);
    volumeLayout->addWidget(m_volume);

    m_lastBtn = makeButton(this, "videoLastBtn", "file_last", tr("previous"));
    m_playBtn = makeButton(this, "videoPlayBtn", "file_pause", tr("pause"));
    m_nextBtn = makeButton(this, "videoNextBtn", "file_next", tr("next"));
    m_stopBtn = makeButton(this, "videoStopBtn", "file_stop", tr("stop"));

    auto* timeRow = new QHBoxLayout;
    timeRow->addWidget(m_currentTime);
    timeRow->addWidget(m_progress, 1);
    timeRow->addWidget(m_totalTime);

    auto* buttonRow = new QHBoxLayout;
    buttonRow->addWidget(m_volumeBox);
    buttonRow->addStretch(1);
    buttonRow->addWidget(m_lastBtn);
    buttonRow->addWidget(m_playBtn);
    buttonRow->addWidget(m_nextBtn);
    buttonRow->addStretch(1);
    buttonRow->addWidget(m_stopBtn);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(32, 24, 32, 24);
    layout->addStretch(1);
    layout->addWidget(m_caption);
    layout->addStretch(1);
    layout->addLayout(timeRow);
    layout->addLayout(buttonRow);

    for (QWidget* watched : {static_cast<QWidget*>(m_lastBtn), static_cast<QWidget*>(m_playBtn),
                             static_cast<QWidget*>(m_nextBtn), static_cast<QWidget*>(m_stopBtn), m_volumeBox,
                             static_cast<QWidget*>(m_progress), static_cast<QWidget*>(m_volume)}) {
        watched->installEventFilter(this);
    }
}

void VideoPage::initConnect() {
    connect(m_progress, &QSlider::sliderPressed, this, [this] { m_seeking = true; });
    connect(m_progress, &QSlider::sliderMoved, this, &VideoPage::onChangeTimeText);
    connect(m_progress, &QSlider::sliderReleased, this, &VideoPage::onsProgressSlider);
    connect(m_volume, &QSlider::sliderPressed, this, [this] { m_volumeDragging = true; });
    connect(m_volume, &QSlider::valueChanged, this, [this](int value) { m_volumeValue = value; });
    connect(m_volume, &QSlider::sliderReleased, this, &VideoPage::onVoiceSlider);
    connect(m_playBtn, &QPushButton::clicked, this, &VideoPage::onPlayBtnClicked);
    connect(m_lastBtn, &QPushButton::clicked, this, &VideoPage::signalLastBtnClicked);
    connect(m_nextBtn, &QPushButton::clicked, this, &VideoPage::signalNextBtnClicked);
    connect(m_stopBtn, &QPushButton::clicked, this, &VideoPage::signalStopScreen);
}

void VideoPage::setTextLabel(const QString& path) {
    const QString name = path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
    m_caption->setText(tr("%1 is casting...").arg(name));
}

void VideoPage::styleButton(SwitchButton* button, bool enabled) {
    button->setEnabled(enabled);
    const char* icon = button == m_lastBtn ? "file_last" : "file_next";
    button->iconLabel()->setStyleSheet(iconSheet(icon, enabled));
    setStyleProperty(button, "Status", enabled ? QStringLiteral("Enable") : QStringLiteral("Disable"));
}

void VideoPage::setDisable(int lastIndex, int currentIndex) {
    if (m_lastBtn->isEnabled() && currentIndex == 0) {
        styleButton(m_lastBtn, false);
    } else if (!m_lastBtn->isEnabled() && currentIndex > 0) {
        styleButton(m_lastBtn, true);
    }
    if (m_nextBtn->isEnabled() && currentIndex == lastIndex) {
        styleButton(m_nextBtn, false);
    } else if (!m_nextBtn->isEnabled() && lastIndex > currentIndex) {
        styleButton(m_nextBtn, true);
    }
}

void VideoPage::changePlayBtn(bool paused) {
    m_paused = paused;
    const QString tip = paused ? tr("play") : tr("pause");
    m_playBtn->iconLabel()->setStyleSheet(iconSheet(paused ? "file_play" : "file_pause", true));
    m_playBtn->setToolTip(tip);
    setStyleProperty(m_playBtn, "Play", paused ? QStringLiteral("play") : QStringLiteral("pause"));
    // A tip on show follows the new text at once.
    emit signalBtnLeave();
    emit signalBtnEnter(tip, QCursor::pos().x(), mapToGlobal(QPoint(0, 0)).y());
}

void VideoPage::onSetCastInfo(int current, int total, int state, int volume) {
    if (!m_seeking) {
        m_totalTime->setText(timeText(total));
        m_currentTime->setText(timeText(current));
        m_progressValue = static_cast<int>(current * 100 / (0.1 + total));
        m_progress->setValue(m_progressValue);
        m_total = total;
    }
    if (!m_volumeDragging) m_volume->setValue(volume);
    if (state != m_lastState) {
        m_lastState = state;
        // Only a playing file shows "pause"; idle, paused and ended show "play".
        changePlayBtn(state != CAST_FILE_PLAYING);
    }
}

void VideoPage::onChangeTimeText(int value) { m_currentTime->setText(timeText(static_cast<int>(m_total * value / 100.0))); }

void VideoPage::onsProgressSlider() {
    m_seeking = false;
    seekTo(m_progress->value());
}

void VideoPage::seekTo(int value) {
    const int seconds = static_cast<int>(m_total * value / 100.0);
    emit signalLibraryCall(QStringLiteral("seekCastFile"), seconds);
    std::thread([seconds] { CManageAll::getInstance()->seekCastFile(seconds); }).detach();
}

void VideoPage::onVoiceSlider() {
    m_volumeDragging = false;
    setVolume(m_volumeValue);
}

void VideoPage::setVolume(int value) {
    emit signalLibraryCall(QStringLiteral("setCastFileVolume"), value);
    std::thread([value] { CManageAll::getInstance()->setCastFileVolume(value); }).detach();
}

void VideoPage::onPlayBtnClicked() {
    m_paused = !m_paused;
    changePlayBtn(m_paused);
    emit signalPauseClicked(m_paused);
}

void VideoPage::reset() {
    m_total = 0;
    m_progressValue = 0;
    m_volumeValue = 0;
    m_volumeDragging = false;
    m_seeking = false;
    m_paused = false;
    m_lastState = 0;
    m_playBtn->iconLabel()->setStyleSheet(iconSheet("file_pause", true));
    m_playBtn->setToolTip(tr("pause"));
    setStyleProperty(m_playBtn, "Play", QStringLiteral("pause"));
}

void VideoPage::clearPage() {
    m_currentTime->setText(timeText(0));
    m_totalTime->setText(timeText(0));
    m_progress->setValue(0);
    m_total = 0;
    m_seeking = false;
}

bool VideoPage::eventFilter(QObject* watched, QEvent* event) {
    const QEvent::Type type = event->type();
    if (watched == m_volumeBox && (type == QEvent::Enter || type == QEvent::Leave)) {
        setStyleProperty(m_volumeBox, "Status", type == QEvent::Enter ? QStringLiteral("Show") : QStringLiteral("Hide"));
    } else if ((watched == m_progress || watched == m_volume) && type == QEvent::MouseButtonPress) {
        // A press on the groove, not the handle, jumps there at once.
        auto* slider = static_cast<QSlider*>(watched);
        auto* press = static_cast<QMouseEvent*>(event);
        if (press->button() == Qt::LeftButton && !onHandle(slider, press->pos())) {
            const int value = sliderValueAt(slider, press->pos());
            slider->setValue(value);
            if (slider == m_progress) {
                onChangeTimeText(value);
                seekTo(value);
            } else {
                m_volumeValue = value;
                setVolume(value);
            }
            return true;
        }
    } else if (auto* button = qobject_cast<SwitchButton*>(watched)) {
        if (type == QEvent::Enter) {
            const QPoint below = button->mapToGlobal(QPoint(button->width() / 2, button->height()));
            emit signalBtnEnter(button->toolTip(), below.x(), below.y());
        } else if (type == QEvent::Leave) {
            emit signalBtnLeave();
        }
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace qorquicomponents
