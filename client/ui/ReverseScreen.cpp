#include "ui/ReverseScreen.h"

#include <QCloseEvent>
#include <QDir>
#include <QMetaObject>
#include <QMouseEvent>
#include <QPalette>
#include <QThread>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Daemon.h"
#include "casting/Dexo.h"
#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/DisplayWidget.h"
#include "ui/MirrorPhoto.h"
#include "ui/ReverseScreenSidebar.h"
#include "ui/ReverseTouch.h"
#include "ui/TipWindows.h"

namespace qorquicomponents {

namespace {

constexpr unsigned kStreamBufferSize = 0x500000;
constexpr unsigned kAllDisplayBuffers = 0xFFFFFFFFu;
constexpr int kHiddenClicks = 10;
constexpr int kOverlayX = 16;
constexpr int kOverlayY = 18;

// The stream dump: one per process, off unless switched on.
std::mutex g_dumpMutex;
FILE* g_streamDump = nullptr;

void closeStreamDump() {
    std::lock_guard<std::mutex> lock(g_dumpMutex);
    if (g_streamDump != nullptr) std::fclose(g_streamDump);
    g_streamDump = nullptr;
}

void writeStreamDump(const char* data, int length) {
    std::lock_guard<std::mutex> lock(g_dumpMutex);
    if (g_streamDump == nullptr) return;
    const uint32_t size = static_cast<uint32_t>(length);
    std::fwrite(&size, sizeof size, 1, g_streamDump);
    std::fwrite(data, 1, size, g_streamDump);
}

}  // namespace

ReverseScreen::ReverseScreen(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName(QStringLiteral("reverseScreen"));
    setWindowTitle(tr("Reverse Screen"));
    setMinimumSize(320, 180);
    resize(1280, 720);

    // The player draws into this widget's own X window.
    m_displayWidget = new QWidget(this);
    m_displayWidget->setObjectName(QStringLiteral("displayWidget"));
    m_displayWidget->setAttribute(Qt::WA_NativeWindow, true);
    m_displayWidget->setAutoFillBackground(true);
    QPalette black = m_displayWidget->palette();
    black.setColor(QPalette::Window, Qt::black);
    m_displayWidget->setPalette(black);
    m_displayWidget->installEventFilter(this);

    m_sidebar = new ReverseScreenSidebar(this);
    m_sidebar->installEventFilter(this);
    m_overlay = new DisplayWidget(this);

    connect(m_sidebar, &ReverseScreenSidebar::signalSetControl, this, &ReverseScreen::onSetReverseControl);
    connect(m_sidebar, &ReverseScreenSidebar::signalBackToHome, this, &ReverseScreen::onBackToHome);
    connect(m_sidebar, &ReverseScreenSidebar::signalBackToPrevious, this, &ReverseScreen::onBackToPrevious);
    connect(m_sidebar, &ReverseScreenSidebar::signalTakePhoto, this, &ReverseScreen::setTakeMirrorPhoto);
    connect(m_sidebar, &ReverseScreenSidebar::signalKeyFrame, this, &ReverseScreen::onReverseScreenKeyFrame);
    connect(m_sidebar, &ReverseScreenSidebar::signalDragStart, this, [this] { m_sidebarDragging = true; });
    connect(m_sidebar, &ReverseScreenSidebar::signalDragEnd, this, [this] { m_sidebarDragging = false; });
    connect(m_overlay, &DisplayWidget::signalClicked, this, &ReverseScreen::onDisplayClicked);
    connect(this, &ReverseScreen::signalSetPlayHandle, this, &ReverseScreen::onSetPlayHandle,
            Qt::BlockingQueuedConnection);
    connect(this, &ReverseScreen::signalInitPlayPortFail, this, &ReverseScreen::onInitPlayPortFail,
            Qt::QueuedConnection);
    hide();
}

ReverseScreen::~ReverseScreen() {
    // The player must not outlive the window it draws into.
    std::lock_guard<std::mutex> lock(m_portMutex);
    const int port = m_lPlayPort.exchange(-1);
    if (port >= 0) {
        Dexo_Stop(port);
        Dexo_CloseStream(port);
        Dexo_FreePort(port);
    }
}

// ---------------------------------------------------------------------------
// Start and stop
// ---------------------------------------------------------------------------

void ReverseScreen::startReverseScreen() {
    m_reverseRunning = 1;
    showNormal();
    // Not persisted: the stored choice decides whether control is asked for.
    m_reverseControl = false;
    m_sidebar->setControlStatus(false);
    const int deviceType = CManageAll::getInstance()->getServerDeviceType();
    m_sidebar->setBackEnabled(deviceType != 0 && deviceType != 6);
    m_sidebar->setToolsEnabled(!m_reconnecting);
    centreSidebar();
    m_overlay->setInfoShown(m_overlayShown);
    m_overlay->show();
    placeFloaters();
    ZV_LOG(INFO) << " Start ReverseScreen.";
}

void ReverseScreen::stopReverseScreen() {
    m_displayWidget->setUpdatesEnabled(true);
    m_reverseRunning = 0;
    Daemon::getInstance().setReconnect(0);
    Daemon::getInstance().destroyDaemon();
    {
        std::lock_guard<std::mutex> lock(m_portMutex);
        const int port = m_lPlayPort.exchange(-1);
        if (port >= 0) {
            Dexo_Stop(port);
            Dexo_CloseStream(port);
            Dexo_FreePort(port);
            ZV_LOG(INFO) << " Stop Dexo finish.";
        }
    }
    m_isFirstData = true;
    m_overlay->hide();
    closeStreamDump();
    TipWindows* tip = TipWindows::getInstance();
    if (tip->getCurrentFatherWidget() == this && tip->isVisible()) tip->hide();
    hide();
    ZV_LOG(INFO) << " Stop ReverseScreen finish.";
}

// ---------------------------------------------------------------------------
// The player
// ---------------------------------------------------------------------------

int ReverseScreen::initPlayPort() {
    int port = -1;
    if (!Dexo_GetPort(&port)) {
        ZV_LOG(WARNING) << " Dexo_GetPort fail. m_lPlayPort: " << m_lPlayPort;
        return -1;
    }
    m_lPlayPort = port;
    auto fail = [port](const char* call) {
        ZV_LOG(WARNING) << " " << call << " fail. ErrorCode: " << Dexo_GetLastError(port) << "  port: " << port;
    };

    Dexo_SetRunTimeInfoCallBackEx(port, DEXO_MODULE_DECODER, &ReverseScreen::callbackDecode, this);
    Dexo_SetRunTimeInfoCallbackType(port, DEXO_MODULE_DECODER, DEXO_INFO_DECODE_ERROR | DEXO_INFO_STREAM_ERROR, 1);

    if (!Dexo_SetStreamOpenMode(port, DEXO_STREAM_REALTIME)) {
        fail("Dexo_SetStreamOpenMode");
        Dexo_FreePort(port);
        return -1;
    }
    unsigned char header[DEXO_HEADER_SIZE];
    DexoHeader_Default(header);
    if (!Dexo_OpenStream(port, header, DEXO_HEADER_SIZE, kStreamBufferSize)) {
        fail("Dexo_OpenStream");
        Dexo_FreePort(port);
        return -1;
    }
    if (!Dexo_SetDisplayBuf(port, kAllDisplayBuffers)) {
        fail("Dexo_SetDisplayBuf");
        Dexo_CloseStream(port);
        Dexo_FreePort(port);
        return -1;
    }
    if (!Dexo_SyncToAudio(port, 0)) fail("Dexo_SyncToAudio");
    if (!Dexo_PlaySound(port)) fail("Dexo_PlaySound");
    if (!Dexo_SetDecodeERC(port, 1)) fail("Dexo_SetDecodeERC");

    if (!setPlayHandle()) return -1;
    ZV_LOG(INFO) << " finish init PlayPort: " << port;
    return 0;
}

bool ReverseScreen::setPlayHandle() {
    bool result = false;
    // A blocking queued call from the GUI thread itself would never return.
    if (QThread::currentThread() == thread()) {
        onSetPlayHandle(result);
    } else {
        emit signalSetPlayHandle(result);
    }
    return result;
}

void ReverseScreen::onSetPlayHandle(bool& result) {
    result = true;
    const int port = m_lPlayPort;
    if (!Dexo_Play(port, static_cast<unsigned long>(m_displayWidget->winId()))) {
        ZV_LOG(WARNING) << "Dexo_Play fail. ErrorCode: " << Dexo_GetLastError(port);
        Dexo_CloseStream(port);
        Dexo_FreePort(port);
        result = false;
        return;
    }
    // The player paints this widget from now on.
    m_displayWidget->setUpdatesEnabled(false);
}

void ReverseScreen::callbackDecode(int port, RunTimeInfo* info, void*) {
    if (info == nullptr || info->nErrorCode == 0) return;
    ZV_LOG(WARNING) << " decode error, port: " << port << ", errorCode: " << info->nErrorCode;
    CManageAll::getInstance()->requestShareKeyFrame(false);
}

int ReverseScreen::inputStream(int, char* data, int length) {
    if (m_isFirstData.exchange(false)) {
        if (initPlayPort() != 0) {
            m_lPlayPort = -1;
            if (initPlayPort() != 0) {
                m_lPlayPort = -1;
                emit signalInitPlayPortFail();
                return -1;
            }
        }
    }
    if (m_lPlayPort < 0) return -1;
    if (data == nullptr || length <= 0) return 0;
    writeStreamDump(data, length);

    std::lock_guard<std::mutex> lock(m_portMutex);
    const int port = m_lPlayPort;
    if (port < 0) return -1;
    if (!Dexo_InputData(port, data, static_cast<unsigned>(length))) {
        CManageAll::getInstance()->requestShareKeyFrame(false);
        ZV_LOG(WARNING) << "  Dexo_InputData fail. ErrorCode: " << Dexo_GetLastError(port);
        return -1;
    }
    return 0;
}

void ReverseScreen::onInitPlayPortFail() {
    emit signalStopShare();
    const ErrorCallbackFunc callback = m_errorCallback;
    if (callback != nullptr) callback(zv_error::REVERSE_ABNORMAL, m_errorUser);
}

void ReverseScreen::setErrorCallbackFunc(ErrorCallbackFunc callback, void* user) {
    m_errorUser = user;
    m_errorCallback = callback;
}

void ReverseScreen::setWriteStream(bool on) {
    closeStreamDump();
    if (!on) return;
    const std::string dir = mirror_photo::folder();
    if (!QDir().mkpath(QString::fromStdString(dir))) return;
    const std::string path = dir + "ReverseStream_" + std::to_string(std::time(nullptr)) + ".stream";
    std::lock_guard<std::mutex> lock(g_dumpMutex);
    g_streamDump = std::fopen(path.c_str(), "wb");
    if (g_streamDump == nullptr) ZV_LOG(WARNING) << " cannot open the stream dump " << path;
}

// ---------------------------------------------------------------------------
// Control, keys and snapshots
// ---------------------------------------------------------------------------

void ReverseScreen::setReverseControlStatus(int on) {
    m_reverseControl = on != 0;
    Singleton<CClientConfig>::getInstance().updateShareReverse(on != 0 ? 1 : 0);
    QMetaObject::invokeMethod(this, [this, on] { showControlStatus(on != 0); }, Qt::QueuedConnection);
    ZV_LOG(INFO) << " ReverseScreen reverseCtrlShareOn: " << (on != 0);
}

void ReverseScreen::showControlStatus(bool on) {
    m_sidebar->setControlStatus(on);
    // Home and back make the column taller: keep it inside the window.
    if (m_sidebarOffset + m_sidebar->height() > height()) m_sidebarOffset = std::max(0, height() - m_sidebar->height());
    placeFloaters();
}

void ReverseScreen::setReconnecting(bool reconnecting) {
    m_reconnecting = reconnecting;
    QMetaObject::invokeMethod(this, [this, reconnecting] { m_sidebar->setToolsEnabled(!reconnecting); },
                              Qt::QueuedConnection);
}

QString ReverseScreen::lastRejectText() const {
    std::lock_guard<std::mutex> lock(m_textMutex);
    return m_lastRejectText;
}

void ReverseScreen::rejectWindowShow(const QString& text) {
    {
        std::lock_guard<std::mutex> lock(m_textMutex);
        m_lastRejectText = text;
    }
    ZV_LOG(INFO) << " reverse control refused: " << text.toStdString();
    QMetaObject::invokeMethod(
        this,
        [this, text] {
            TipWindows* tip = TipWindows::getInstance();
            const QRect area = geometry();
            tip->setStepfatherWidgetInfo(area.x(), area.y(), area.width(), area.height());
            QWidget* anchor = isVisible() ? this : parentWidget();
            tip->setDisplayText(ErrorLevelRisk, text, TipWindowPlain, anchor, 48);
        },
        Qt::QueuedConnection);
}

void ReverseScreen::onSetReverseControl() {
    CManageAll::getInstance()->reverseCtrlShareOn(m_reverseControl ? 0 : 1);
}

void ReverseScreen::onReverseScreenKeyFrame() {
    CManageAll::getInstance()->requestShareKeyFrame(false);
    ZV_LOG(INFO) << " ReverseScreen requestShareKeyFrame.";
}

void ReverseScreen::sendTouch(const char* ctrlType, int x, int y) {
    const QByteArray json = reverse_touch::touchControlJsonNow(ctrlType, x, y);
    CManageAll::getInstance()->pushMouseJSON(json.constData());
    emit signalTouchSent(json);
}

void ReverseScreen::onBackToHome() { sendTouch("home", 0, 0); }
void ReverseScreen::onBackToPrevious() { sendTouch("back", 0, 0); }

void ReverseScreen::setTakeMirrorPhoto() {
    if (m_reverseRunning != 1) return;
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kMirrorPhotoBufferSize + 1]());
    if (!buffer) return;
    unsigned pictureSize = 0;
    const int port = m_lPlayPort;
    if (!Dexo_GetJPEG(port, buffer.get(), kMirrorPhotoBufferSize, &pictureSize)) {
        ZV_LOG(WARNING) << " Dexo_GetJPEG fail. ErrorCode: " << Dexo_GetLastError(port) << "  port: " << port;
        return;
    }
    std::string path;
    // The whole buffer is written: readers stop at the picture's end marker.
    switch (mirror_photo::save(mirror_photo::folder(), static_cast<long long>(std::time(nullptr)), buffer.get(),
                               kMirrorPhotoBufferSize, path)) {
    case mirror_photo::Result::AlreadyExists:
        ZV_LOG(INFO) << " MirrorPhoto Already exists. Dexo_GetJPEG path: " << path;
        break;
    case mirror_photo::Result::Written:
        ZV_LOG(INFO) << " Dexo_GetJPEG path: " << path;
        break;
    case mirror_photo::Result::Failed:
        break;
    }
}

// ---------------------------------------------------------------------------
// Overlay
// ---------------------------------------------------------------------------

void ReverseScreen::setReverseScreenDelay(int delayMs) { m_overlay->setDelayValue(delayMs); }

void ReverseScreen::setReverseScreenBitrateFrameRate(int bitRateKbps, int frameRate) {
    m_overlay->setBitrateAndFrameRate(bitRateKbps, frameRate);
}

void ReverseScreen::onShowDisplayInfo(bool shown) {
    m_overlayShown = shown;
    m_overlay->setInfoShown(shown);
}

void ReverseScreen::onDisplayClicked() {
    if (++m_hiddenClicks < kHiddenClicks) return;
    m_hiddenClicks = 0;
    ZV_LOG(INFO) << " open the hidden settings window";
    emit signalOpenHiddenSettings();
}

// ---------------------------------------------------------------------------
// Window events
// ---------------------------------------------------------------------------

bool ReverseScreen::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_displayWidget) {
        const char* type = reverse_touch::touchTypeFor(event->type());
        if (type != nullptr && m_reverseControl) {
            // The window manager adds its frame after the show: read it now.
            refreshFrameOffsets();
            const auto* mouse = static_cast<QMouseEvent*>(event);
            const int x = reverse_touch::toPanelUnits(mouse->globalX(), this->x(), m_frameOffsetX,
                                                      m_displayWidget->width());
            const int y = reverse_touch::toPanelUnits(mouse->globalY(), this->y(), m_frameOffsetY,
                                                      m_displayWidget->height());
            sendTouch(type, x, y);
        }
    } else if (watched == m_sidebar && event->type() == QEvent::Move && m_sidebarDragging) {
        m_sidebarOffset = m_sidebar->y() - y();
    }
    return QWidget::eventFilter(watched, event);
}

void ReverseScreen::refreshFrameOffsets() {
    m_frameOffsetX = geometry().x() - x();
    m_frameOffsetY = geometry().y() - y();
}

void ReverseScreen::showEvent(QShowEvent* event) {
    refreshFrameOffsets();
    QWidget::showEvent(event);
    m_sidebar->show();
    placeFloaters();
}

void ReverseScreen::hideEvent(QHideEvent* event) {
    m_sidebar->hide();
    QWidget::hideEvent(event);
}

void ReverseScreen::closeEvent(QCloseEvent* event) {
    m_sidebar->hide();
    emit signalStopShare();
    QWidget::closeEvent(event);
}

void ReverseScreen::moveEvent(QMoveEvent* event) {
    QWidget::moveEvent(event);
    placeFloaters();
    TipWindows* tip = TipWindows::getInstance();
    if (tip->isVisible()) tip->hide();
}

void ReverseScreen::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    m_displayWidget->setGeometry(rect());
    const int port = m_lPlayPort;
    if (port >= 0) Dexo_WndResolutionChange(port);
    centreSidebar();
    placeFloaters();
}

void ReverseScreen::centreSidebar() { m_sidebarOffset = height() / 2 - m_sidebar->height() / 2; }

void ReverseScreen::placeFloaters() {
    m_overlay->move(x() + kOverlayX, y() + kOverlayY);
    m_sidebar->move(x() + width() - ReverseScreenSidebar::kWidth, y() + m_sidebarOffset);
}

}  // namespace qorquicomponents
