// The file-cast viewer: a window with the picture page and the audio/video
// page in a stack, and the picture page's floating control bar. It decides
// which page serves a file, keeps the list of sibling files the user pages
// through, tells the library which file to show, and polls an audio/video
// file's progress once a second on a worker thread.
//
// Threads: everything runs on the GUI thread except the poll, which reads
// the stop flag, the file type and its generation (all atomic) and hands
// its values over only through the queued signalSetCastInfo; pause and
// resume run on a detached thread each. The destructor ends the poll and
// waits for it.
#pragma once

#include <QString>
#include <QWidget>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "casting/SessionRecords.h"
#include "ui/FileScreenWidget/FileCastList.h"

class QCloseEvent;
class QStackedWidget;
class QTimer;

namespace qorquicomponents {

class ControlBtn;
class ImagePage;
class ToolTip;
class VideoPage;

class FileScreenStackWidget : public QWidget {
    Q_OBJECT

public:
    explicit FileScreenStackWidget(QWidget* parent = nullptr);
    ~FileScreenStackWidget() override;

    // Takes a file chosen elsewhere: classifies it, lists its siblings and
    // shows its page. False, with nothing else done, for a file of type 2.
    bool setFileName(const QString& path);

    void initZoomInAndZoomOutBtn();
    void setNewSource();
    void syncShowImage();
    void showImagePage();
    void showVideoPage();
    // One poll's values to the video page (queued) and the play-finished flag.
    void setCastInfo(int& current, int& total, CastFileState& state, int& volume);
    // Empties the list, ends the poll and clears the page in use.
    void clear();

    // Parts and state, for the controller and for checks.
    ImagePage* imagePage() const { return m_imagePage; }
    VideoPage* videoPage() const { return m_videoPage; }
    ControlBtn* controlBar() const { return m_controlBtn; }
    QWidget* currentPage() const;
    const FileCastList& fileList() const { return m_files; }
    QString currentFile() const { return m_files.currentFile(); }
    int fileType() const { return m_fileType; }
    int zoomLevel() const { return m_zoomLevel; }
    bool isPolling() const { return m_runningPolls > 0; }
    bool isPlayFinished() const { return m_isPlayFinished; }
    bool isHideTimerActive() const;
    ToolTip* toolTip() const { return m_toolTip; }

    static constexpr int kPollMs = 1000;
    static constexpr int kHideBarMs = 3000;
    static constexpr int kRestZoomLevel = 6;
    static constexpr int kMaxZoomLevel = 12;
    static constexpr int k4KWidth = 3840;
    static constexpr int k4KHeight = 2160;

signals:
    void signalStopScreen();
    void signalSetCastInfo(int current, int total, int state, int volume);
    // A file handed to the library (setCastFile), on the GUI thread.
    void signalCastFile(const QString& path);

public slots:
    void onOpenFileBtn();
    void onNextPageBtn();
    void onLastPageBtn();
    void onZoomInBtn();
    void onZoomOutBtn();
    void onRotate(bool clockwise);
    void onPauseResume(bool pause);
    void onTimeout();
    void onShowTextTip(QString text, int x, int y);
    void onStopScreen();

protected:
    // Closing the viewer's window stops the cast, as its stop buttons do.
    void closeEvent(QCloseEvent* event) override;

private:
    void initUi();
    void initConnect();
    void castFile(const QString& path);
    void closeToolTip();
    void startPoll();
    void endPoll();
    void pollLoop(int generation);
    void pageTip(const QString& text);

    ImagePage* m_imagePage = nullptr;
    VideoPage* m_videoPage = nullptr;
    ControlBtn* m_controlBtn = nullptr;
    FileCastList m_files;                     // current file, siblings, index, type
    std::atomic<int> m_fileType{FileTypeOther};
    std::atomic<bool> m_isStopPolling{false};
    std::atomic<bool> m_isPlayFinished{false};
    QWidget* m_parentWidget = nullptr;        // tips are shown over it
    QTimer* m_hideTimer = nullptr;
    bool m_isHovering = false;                // the pointer is over the control bar
    ToolTip* m_toolTip = nullptr;
    int m_zoomLevel = kRestZoomLevel;
    QStackedWidget* m_stack = nullptr;

    // The poll: each start gets a new generation, which ends the poll before it.
    std::atomic<int> m_pollGeneration{0};
    std::atomic<int> m_runningPolls{0};
    std::atomic<bool> m_closing{false};
    std::mutex m_pollMutex;
    std::condition_variable m_pollCond;
};

}  // namespace qorquicomponents
