#include "ui/FileScreenWidget/FileScreenStackWidget.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QCursor>
#include <QFile>
#include <QFileDialog>
#include <QStackedWidget>
#include <QTimer>

#include <chrono>
#include <thread>

#include "casting/CManageAll.h"
#include "casting/Log.h"
#include "ui/FileScreenWidget/ControlBtn.h"
#include "ui/FileScreenWidget/ImagePage.h"
#include "ui/FileScreenWidget/VideoPage.h"
#include "ui/MirkAsync.h"
#include "ui/TipWindows.h"
#include "ui/widgets/ToolTip.h"

namespace qorquicomponents {

namespace {

constexpr int kViewerWidth = 1008;
constexpr int kViewerHeight = 600;
constexpr int kBarX = 220;
constexpr int kBarY = 450;
constexpr int kTipTopOffset = 48;
constexpr float kZoomInFactor = 1.25f;
constexpr float kZoomOutFactor = 0.8f;
const char* const kOpenFilter = "*.png *.jpg *.wav *.mp4 *.wmv *.mp3 *.ppt *.pdf *.xlsx *.doc *.txt";

}  // namespace

FileScreenStackWidget::FileScreenStackWidget(QWidget* parent) : QWidget(parent), m_parentWidget(parent) {
    initUi();
    initConnect();
}

FileScreenStackWidget::~FileScreenStackWidget() {
    // The poll uses this widget until its last line.
    std::unique_lock<std::mutex> lock(m_pollMutex);
    m_closing = true;
    m_pollCond.notify_all();
    // Bounded: a poll blocked in the library ends within its time-out.
    if (!m_pollCond.wait_for(lock, std::chrono::seconds(20), [this] { return m_runningPolls == 0; })) {
        ZV_LOG(WARNING) << " the progress poll did not end in time";
    }
}

void FileScreenStackWidget::initUi() {
    setObjectName(QStringLiteral("fileScreenStackWidget"));
    setWindowFlags(Qt::Window);
    setWindowTitle(tr("File Screen"));
    setAttribute(Qt::WA_StyledBackground, true);
    setFixedSize(kViewerWidth, kViewerHeight);
    QFile sheet(QStringLiteral(":/OrvixUpgrade/ContentWidget/QSS/FileScreen.qss"));
    if (sheet.open(QIODevice::ReadOnly)) setStyleSheet(QString::fromUtf8(sheet.readAll()));

    // The pages get their size now: a picture is fitted to its page before
    // the viewer is first shown.
    m_stack = new QStackedWidget(this);
    m_stack->setGeometry(rect());
    m_imagePage = new ImagePage(m_stack);
    m_videoPage = new VideoPage(m_stack);
    m_stack->addWidget(m_imagePage);
    m_stack->addWidget(m_videoPage);
    m_imagePage->resize(size());
    m_videoPage->resize(size());
    m_controlBtn = new ControlBtn(this);
    m_controlBtn->hide();

    m_hideTimer = new QTimer(this);
    m_hideTimer->setInterval(kHideBarMs);
}

void FileScreenStackWidget::initConnect() {
    connect(m_controlBtn, &ControlBtn::signalZoomInBtnClicked, this, &FileScreenStackWidget::onZoomInBtn);
    connect(m_controlBtn, &ControlBtn::signalZoomOutBtnClicked, this, &FileScreenStackWidget::onZoomOutBtn);
    connect(m_controlBtn, &ControlBtn::signalRotate, this, &FileScreenStackWidget::onRotate);
    connect(m_controlBtn, &ControlBtn::signalNextBtnClicked, this, &FileScreenStackWidget::onNextPageBtn);
    connect(m_controlBtn, &ControlBtn::signalLastBtnClicked, this, &FileScreenStackWidget::onLastPageBtn);
    connect(m_controlBtn, &ControlBtn::signalStopScreen, this, &FileScreenStackWidget::onStopScreen);
    connect(m_videoPage, &VideoPage::signalPauseClicked, this, &FileScreenStackWidget::onPauseResume);
    connect(m_videoPage, &VideoPage::signalNextBtnClicked, this, &FileScreenStackWidget::onNextPageBtn);
    connect(m_videoPage, &VideoPage::signalLastBtnClicked, this, &FileScreenStackWidget::onLastPageBtn);
    connect(m_videoPage, &VideoPage::signalStopScreen, this, &FileScreenStackWidget::onStopScreen);
    connect(m_controlBtn, &ControlBtn::signalBtnEnter, this, &FileScreenStackWidget::onShowTextTip);
    connect(m_videoPage, &VideoPage::signalBtnEnter, this, &FileScreenStackWidget::onShowTextTip);
    connect(m_controlBtn, &ControlBtn::signalBtnLeave, this, &FileScreenStackWidget::closeToolTip);
    connect(m_videoPage, &VideoPage::signalBtnLeave, this, &FileScreenStackWidget::closeToolTip);
    connect(m_imagePage, &ImagePage::signalImageMousePress, this, [this] {
        m_hideTimer->start();
        if (m_controlBtn->isHidden()) m_controlBtn->show();
    });
    connect(m_controlBtn, &ControlBtn::signalControlEnter, this, [this] { m_isHovering = true; });
    connect(m_controlBtn, &ControlBtn::signalControlLeave, this, [this] {
        m_isHovering = false;
        m_hideTimer->start();
    });
    connect(m_hideTimer, &QTimer::timeout, this, &FileScreenStackWidget::onTimeout);
    // The poll emits from its worker; the page takes the values on its own thread.
    connect(this, &FileScreenStackWidget::signalSetCastInfo, m_videoPage, &VideoPage::onSetCastInfo,
            Qt::QueuedConnection);
}

QWidget* FileScreenStackWidget::currentPage() const { return m_stack->currentWidget(); }

bool FileScreenStackWidget::isHideTimerActive() const { return m_hideTimer->isActive(); }

// ---------------------------------------------------------------------------
// Files
// ---------------------------------------------------------------------------

bool FileScreenStackWidget::setFileName(const QString& path) {
    const int type = m_files.load(path);
    m_fileType = type;
    if (type == FileTypeOther) return false;
    if (type == FileTypeAudioVideo) {
        m_videoPage->setTextLabel(m_files.currentFile());
        m_videoPage->setDisable(m_files.lastIndex(), m_files.currentIndex());
        showVideoPage();
    } else {
        m_controlBtn->setDisable(m_files.lastIndex(), m_files.currentIndex());
        initZoomInAndZoomOutBtn();
        showImagePage();
    }
    return true;
}

void FileScreenStackWidget::castFile(const QString& path) {
    emit signalCastFile(path);
    CManageAll::getInstance()->setCastFile(path.toUtf8().constData());
}

void FileScreenStackWidget::onOpenFileBtn() {
    m_files.clear();
    const QString path = QFileDialog::getOpenFileName(this, tr("open a file"), QStringLiteral("C:/"),
                                                      QLatin1String(kOpenFilter));
    // An audio/video choice starts a poll of its own, which ends the one of
    // the file before.
    setFileName(path);
    m_videoPage->reset();
    castFile(path);
}

void FileScreenStackWidget::pageTip(const QString& text) {
    TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, text, TipWindowWithDetails, m_parentWidget,
                                              kTipTopOffset);
}

void FileScreenStackWidget::onNextPageBtn() {
    m_videoPage->reset();
    m_imagePage->reset();
    initZoomInAndZoomOutBtn();
    const FileCastList::Step step = m_files.next();
    if (step.endReached) pageTip(tr("The picture is renamed or deleted"));
    if (!step.moved) return;
    castFile(m_files.currentFile());
    ZV_LOG(INFO) << " next picture:" << m_files.currentFile().toStdString() << "fileCount: " << m_files.currentIndex()
                 << "Totoal Num: " << m_files.files().size();
    setNewSource();
}

void FileScreenStackWidget::onLastPageBtn() {
    m_videoPage->reset();
    m_imagePage->reset();
    initZoomInAndZoomOutBtn();
    const FileCastList::Step step = m_files.previous();
    if (step.endReached) pageTip(tr("The picture is renamed or deleted"));
    if (!step.moved) return;
    castFile(m_files.currentFile());
    ZV_LOG(INFO) << " last picture:" << m_files.currentFile().toStdString() << "fileCount: " << m_files.currentIndex()
                 << "Totoal Num: " << m_files.files().size();
    setNewSource();
}

void FileScreenStackWidget::setNewSource() {
    if (m_fileType == FileTypeAudioVideo) {
        m_videoPage->setTextLabel(m_files.currentFile());
        m_videoPage->setDisable(m_files.lastIndex(), m_files.currentIndex());
    } else if (m_fileType == FileTypePicture) {
        m_controlBtn->setDisable(m_files.lastIndex(), m_files.currentIndex());
        syncShowImage();
    }
}

// ---------------------------------------------------------------------------
// Pages
// ---------------------------------------------------------------------------

void FileScreenStackWidget::showImagePage() {
    // No audio or video plays any more.
    endPoll();
    m_hideTimer->start();
    m_controlBtn->move(kBarX, kBarY);
    m_stack->setCurrentWidget(m_imagePage);
    syncShowImage();
    m_controlBtn->show();
    m_controlBtn->raise();
}

void FileScreenStackWidget::syncShowImage() {
    const QString path = m_files.currentFile();
    m_imagePage->readPixmap(path);
    ZV_LOG(INFO) << " setPixmap " << path.toStdString();
    m_imagePage->setPixmap();
    int width = 0;
    int height = 0;
    m_imagePage->getImageSize(width, height);
    // Cast all the same; the panel may show it slowly or scaled down.
    if (width > k4KWidth && height > k4KHeight) pageTip(tr("Selesct image is lager than 4K"));
}

void FileScreenStackWidget::showVideoPage() {
    m_controlBtn->hide();
    m_stack->setCurrentWidget(m_videoPage);
    m_isStopPolling = false;
    startPoll();
}

// ---------------------------------------------------------------------------
// The poll of an audio/video file's progress
// ---------------------------------------------------------------------------

void FileScreenStackWidget::startPoll() {
    int generation = 0;
    {
        std::lock_guard<std::mutex> lock(m_pollMutex);
        generation = ++m_pollGeneration;
        ++m_runningPolls;
        m_pollCond.notify_all();
    }
    // The thread object is collected on the application's thread, so the
    // poll may outlive a clear() without a dangling context.
    mirk_async::ASYNC(
        [this, generation] {
            pollLoop(generation);
            std::lock_guard<std::mutex> lock(m_pollMutex);
            --m_runningPolls;
            m_pollCond.notify_all();
        },
        nullptr, QCoreApplication::instance());
}

void FileScreenStackWidget::endPoll() {
    std::lock_guard<std::mutex> lock(m_pollMutex);
    ++m_pollGeneration;
    m_pollCond.notify_all();
}

void FileScreenStackWidget::pollLoop(int generation) {
    auto ended = [this, generation] {
        return m_closing || generation != m_pollGeneration || (m_isStopPolling && m_fileType == FileTypeAudioVideo);
    };
    while (!ended()) {
        {
            std::unique_lock<std::mutex> lock(m_pollMutex);
            if (m_pollCond.wait_for(lock, std::chrono::milliseconds(kPollMs), ended)) break;
        }
        int current = 0;
        int total = 0;
        int volume = 0;
        CastFileState state = CAST_FILE_IDLE;
        CManageAll::getInstance()->getCastFilePlayInfo(current, total, state, volume);
        setCastInfo(current, total, state, volume);
    }
}

void FileScreenStackWidget::setCastInfo(int& current, int& total, CastFileState& state, int& volume) {
    emit signalSetCastInfo(current, total, state, volume);
    m_isPlayFinished = state == CAST_FILE_IDLE;
}

void FileScreenStackWidget::onPauseResume(bool pause) {
    if (m_fileType != FileTypeAudioVideo) return;
    std::thread([pause] {
        CManageAll* library = CManageAll::getInstance();
        if (pause) {
            library->pauseCastFile();
        } else {
            library->resumeCastFile();
        }
    }).detach();
}

// ---------------------------------------------------------------------------
// Picture zoom and rotation
// ---------------------------------------------------------------------------

void FileScreenStackWidget::initZoomInAndZoomOutBtn() {
    m_controlBtn->setZoomInBtnEnabled(true);
    m_controlBtn->setZoomOutBtnEnabled(true);
    m_zoomLevel = kRestZoomLevel;
}

void FileScreenStackWidget::onZoomInBtn() {
    if (m_zoomLevel != 0) m_controlBtn->setZoomOutBtnEnabled(true);
    m_imagePage->scale(kZoomInFactor);
    ++m_zoomLevel;
    if (m_zoomLevel == kMaxZoomLevel) m_controlBtn->setZoomInBtnEnabled(false);
}

void FileScreenStackWidget::onZoomOutBtn() {
    if (m_zoomLevel <= kMaxZoomLevel) m_controlBtn->setZoomInBtnEnabled(true);
    m_imagePage->scale(kZoomOutFactor);
    --m_zoomLevel;
    if (m_zoomLevel == 0) m_controlBtn->setZoomOutBtnEnabled(false);
}

void FileScreenStackWidget::onRotate(bool clockwise) {
    m_imagePage->rotate(clockwise);
    initZoomInAndZoomOutBtn();
}

// ---------------------------------------------------------------------------
// Control bar, tips and stop
// ---------------------------------------------------------------------------

void FileScreenStackWidget::onTimeout() {
    if (m_isHovering) return;
    m_hideTimer->stop();
    m_controlBtn->hide();
}

void FileScreenStackWidget::onShowTextTip(QString text, int, int) {
    if (text.isEmpty()) return;
    if (m_toolTip == nullptr) m_toolTip = new ToolTip(this);
    m_toolTip->setText(text);
    m_toolTip->showAt(QCursor::pos());
}

void FileScreenStackWidget::closeToolTip() {
    if (m_toolTip == nullptr) return;
    m_toolTip->close();
    delete m_toolTip;
    m_toolTip = nullptr;
}

void FileScreenStackWidget::clear() {
    m_files.clear();
    if (m_fileType == FileTypeAudioVideo) {
        {
            std::lock_guard<std::mutex> lock(m_pollMutex);
            m_isStopPolling = true;
            m_pollCond.notify_all();
        }
        m_videoPage->clearPage();
    } else {
        m_imagePage->clearPage();
    }
    closeToolTip();
}

void FileScreenStackWidget::closeEvent(QCloseEvent* event) {
    onStopScreen();
    QWidget::closeEvent(event);
}

void FileScreenStackWidget::onStopScreen() {
    clear();
    emit signalStopScreen();
}

}  // namespace qorquicomponents
