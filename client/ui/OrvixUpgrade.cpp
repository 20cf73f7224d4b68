#include "ui/OrvixUpgrade.h"

#include <QCloseEvent>
#include <QFile>
#include <QIcon>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include <ios>

#include "casting/CManageAll.h"
#include "casting/ErrorCodes.h"
#include "casting/KtrRuntime.h"
#include "casting/Log.h"
#include "casting/MyLog.h"
#include "ui_OrvixUpgrade.h"

// The client's resources live in a static library, so they have to be
// registered by hand before first use.
static void initClientResources() { Q_INIT_RESOURCE(OrvixUpgrade); }

namespace qorquicomponents {

namespace {

constexpr int kWindowWidth = 1008;
constexpr int kWindowHeight = 640;
const char* const kLogoPath = ":/OrvixUpgrade/images/logo.svg";
const char* const kStyleSheetPath = ":/OrvixUpgrade/QSS/OrvixUpgrade.qss";

// Renders an SVG at the label's size, sharp on high-density screens.
void setSvgPixmap(QLabel* label, const QString& path) {
    QSvgRenderer renderer(path);
    const qreal ratio = label->devicePixelRatioF();
    QPixmap pixmap(label->minimumSize() * ratio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    renderer.render(&painter);
    painter.end();
    pixmap.setDevicePixelRatio(ratio);
    label->setPixmap(pixmap);
}

}  // namespace

OrvixUpgrade::OrvixUpgrade(QWidget* parent) : QWidget(parent), ui(new Ui::OrvixUpgrade) {
    initClientResources();
    ui->setupUi(this);
    initUi();
    initData();
    initConnect();
    MyLog::getInstance()->initMyLog();
}

OrvixUpgrade::~OrvixUpgrade() {
    CManageAll::getInstance()->endDiscovery();
    Ktr_Fini();
    delete ui;
}

void OrvixUpgrade::initUi() {
    setFixedSize(kWindowWidth, kWindowHeight);
    setAttribute(Qt::WA_StyledBackground, true);
    setWindowIcon(QIcon(QString::fromLatin1(kLogoPath)));
    setSvgPixmap(ui->labelTitleLogo, QString::fromLatin1(kLogoPath));
    setSvgPixmap(ui->labelHomeLogo, QString::fromLatin1(kLogoPath));
    ui->stackedWidget->setCurrentWidget(ui->pageHome);
    applyStyleSheet();

    CManageAll::getInstance()->initLogOut(nullptr, true);
}

void OrvixUpgrade::initData() {
    m_screenStatus = NormalStatus;
    m_isCommandLineStart = false;
}

void OrvixUpgrade::initConnect() {}

void OrvixUpgrade::applyStyleSheet() {
    QFile file(QString::fromLatin1(kStyleSheetPath));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return;
    setStyleSheet(QString::fromUtf8(file.readAll()));
}

void OrvixUpgrade::showWindowActive() {
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    show();
    raise();
    activateWindow();
}

void OrvixUpgrade::shortcutModeScreen(QString strIp, QString second, int mode) {
    showWindowActive();

    if (strIp.isEmpty()) {
        if (m_isCommandLineStart) raiseErrorCode(zv_error::CONNECT_FAILED);
        m_isCommandLineStart = false;
        ZV_LOG(INFO) << " shortcutModeScreen return, because strIp is empty";
        return;
    }

    m_isCommandLineStart = true;
    ZV_LOG(INFO) << " shortcutModeScreen strIp: " << strIp.toStdString() << ", second: " << second.toStdString()
                 << ", mode: " << mode;
    ZV_LOG(WARNING) << " shortcutModeScreen: screen casting is not available in this build yet";
}

void OrvixUpgrade::raiseErrorCode(unsigned errorCode) {
    ZV_LOG(ERROR) << " error code 0x" << std::hex << std::uppercase << errorCode;
}

void OrvixUpgrade::closeEvent(QCloseEvent* event) {
    CManageAll::getInstance()->destroy();
    QWidget::closeEvent(event);
}

}  // namespace qorquicomponents
