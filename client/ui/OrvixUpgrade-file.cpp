// File casting: the start from the connect page's "File Screen" entry (or
// signalFileScreen), the request on the file-cast thread, the hand-over of a
// granted cast to the viewer and the status page, and their clean-up when
// the cast stops. The answer and the stop share the screen cast's slots
// (onScreenRequestResult, onStopScreen), which call back into this file.
#include "ui/OrvixUpgrade.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QToolButton>

#include <utility>

#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ControlBall.h"
#include "ui/DynamicWindow.h"
#include "ui/FileScreenWidget/FileCastList.h"
#include "ui/FileScreenWidget/FileScreenPage.h"
#include "ui/FileScreenWidget/FileScreenStackWidget.h"
#include "ui/ManageErrorCode.h"
#include "ui/MirkAsync.h"
#include "ui/PopupWindow.h"
#include "ui/RequestThreads.h"
#include "ui/TipWindows.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

namespace {

constexpr int kTipTopOffset = 48;
const char* const kChooseFilter = "(*.png *.jpg *.PNG *.JPG *.mp4 *.MP4 *.mp3 *.wav *.MP3 *.WAV)";

}  // namespace

void OrvixUpgrade::initFileScreen() {
    // The viewer is a window of its own over the main window; the status
    // page lives in the content stack.
    m_fileScreenWidget = new FileScreenStackWidget(this);
    m_fileScreenWidget->hide();
    m_fileScreenPage = new FileScreenPage(this);
    ui->stackedWidget->addWidget(m_fileScreenPage);
    connect(m_fileScreenWidget, &FileScreenStackWidget::signalStopScreen, this, &OrvixUpgrade::onStopScreen);
    connect(m_fileScreenPage, &FileScreenPage::signalStopScreen, this, &OrvixUpgrade::onStopScreen);
    connect(m_connectPage, &ConnectPage::signalFileScreen, this, &OrvixUpgrade::onFileScreen);
    connect(this, &OrvixUpgrade::signalPanelRefusalText, this, [this](const QString& text) {
        m_panelRefusalText = text;
    });
    // The page itself does nothing on its entry's click; the controller
    // asks for the file.
    if (auto* entry = m_connectPage->findChild<QToolButton*>(QStringLiteral("fileScreenBtn"))) {
        connect(entry, &QToolButton::clicked, this, &OrvixUpgrade::onChooseCastFile);
    }
}

void OrvixUpgrade::onChooseCastFile() {
    if (m_screenStatus != ConnectedStatus && m_screenStatus != NormalStatus) return;
    const QString path = QFileDialog::getOpenFileName(this, tr("open a file"), QDir::homePath(),
                                                      tr("Pictures, audio and video") + QLatin1Char(' ') +
                                                          QLatin1String(kChooseFilter));
    if (path.isEmpty()) return;
    onFileScreen(m_connectPage->getConnectCode(), path);
}

void OrvixUpgrade::onFileScreen(const QString& code, const QString& path) {
    ZV_LOG(INFO) << " Start file screen " << path.toStdString();
    if (getLocalNetworkStatus()) {
        ZV_LOG(INFO) << " Start file screen fail, because there is on network.";
        ManageErrorCode::getInstance()->handleErrorCode(zv_error::NO_NETWORK);
        hideLoading();
        return;
    }
    if (m_screenStatus != NormalStatus && m_screenStatus != ConnectedStatus) {
        ZV_LOG(INFO) << " Start file screen fail, because the current state is not NormalStatus.";
        hideLoading();
        return;
    }
    // Only what the viewer can page through is asked for; anything else
    // would be granted by the panel and then refused here.
    if (FileCastList::fileTypeOf(path) == FileTypeOther || !QFileInfo(path).isFile()) {
        ZV_LOG(WARNING) << " Start file screen fail, this file cannot be cast: " << path.toStdString();
        TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, tr("This file cannot be cast"), TipWindowPlain,
                                                  this, kTipTopOffset);
        hideLoading();
        return;
    }
    if (m_screenStatus != ConnectedStatus) {
        m_screenStatus = CodeScreenRequestStatus;
        m_strConnectCode = code;
        m_isConnectPageEnter = true;
    }
    m_isFileScreen = true;
    m_strFilePath = path;
    showLoading();
    m_hostName = Singleton<CClientConfig>::getInstance().getHostName();
    fillClientDeviceInfo();
    m_fileScreenThread->start(QThread::InheritPriority);
}

int OrvixUpgrade::fileScreenThreadFun() {
    CManageAll* library = CManageAll::getInstance();
    library->reportOtherClientInfo("StartFileScreen");
    if (m_screenStatus == ConnectedStatus) {
        m_screenStatus = CodeScreenRequestStatus;
    } else {
        m_isDisconnectAfterStop = true;
        if (connectThreadFun() != 1) {
            // No file cast is pending any more: a later cast request must
            // not take its answer for one.
            m_isFileScreen = false;
            m_strFilePath.clear();
            emit signalStopConnect();
            return 0;
        }
    }
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    library->initProtocol(config.getProType(), config.getMouseProType(), config.getReverseProType());
    ZV_LOG(INFO) << " file cast request start.";
    // A file cast sends no screen and takes no remote input.
    const long result = library->miracastResq(m_loginHandle, m_deviceInfo, nullptr, nullptr, nullptr, nullptr, false,
                                              VIDEO_SOURCE_FILE);
    emit signalScreenResult(static_cast<ProjectOrShareReqResult>(result), m_deviceInfo);
    return 1;
}

bool OrvixUpgrade::showFileScreenPages(const QString& path) {
    if (!m_fileScreenWidget->setFileName(path)) {
        // The panel granted a cast the viewer cannot show: end it at once.
        ZV_LOG(WARNING) << " the file pages cannot show " << path.toStdString();
        mirk_async::ASYNC(trackedWork([] { CManageAll::getInstance()->stopMiracast(); }), nullptr, this);
        return false;
    }
    m_screenStatus = ScreeningStatus;
    m_controlBall->hide();
    m_fileScreenPage->setBigScreenInfo(CManageAll::getInstance()->getServerInfo());
    m_fileScreenPage->setFileScreenShow();
    ui->stackedWidget->setCurrentWidget(m_fileScreenPage);
    // The bottom bar's panel count gives way, as for a screen cast; the
    // stop shows it again.
    ui->deviceIconLab->hide();
    ui->deviceCountLab->hide();
    m_fileScreenWidget->show();
    m_fileScreenWidget->raise();
    m_fileScreenWidget->activateWindow();
    return true;
}

bool OrvixUpgrade::endRefusedFileCast(unsigned int code) {
    const QString text = std::exchange(m_panelRefusalText, QString());
    const bool refusal = code == zv_error::REQUEST_REFUSED || code == zv_error::REQUEST_DENIED;
    if (!refusal || !m_isFileScreen || m_screenStatus != ScreeningStatus) return false;
    ZV_LOG(INFO) << " the panel refused the file: " << text.toStdString();
    PopupWindow::getInstance()->hide();
    TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, text.isEmpty() ? tr("The screen cannot show this file") : text,
                                              TipWindowPlain, this, kTipTopOffset);
    onStopScreen();
    return true;
}

void OrvixUpgrade::clearFileScreenPages() {
    m_fileScreenWidget->clear();
    m_fileScreenWidget->hide();
    // Stops the page's cycling text; the stop is already under way.
    const QSignalBlocker blocker(m_fileScreenPage);
    m_fileScreenPage->onStopScreenBtnClicked();
}

}  // namespace qorquicomponents
