// Title bar and window chrome: style sheet, title-bar buttons and
// dragging, the loading indicator, the bottom bar's statistics and the
// window's keyboard handling.
#include "ui/OrvixUpgrade.h"

#include <QFile>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>

#include "casting/CClientConfig.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ConnectPage.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/ControlBall.h"
#include "ui/widgets/LoadingWidget.h"
#include "ui/widgets/StyleUtil.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

namespace {
const char* const kStyleSheetPath = ":/OrvixUpgrade/QSS/OrvixUpgrade.qss";
}  // namespace

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

void OrvixUpgrade::setTitleBtnStatus(int status) {
    m_titleBtnStatus = status;
    setStyleProperty(ui->screenTitleBtn, "select",
                     status == TitleScreenPage ? QStringLiteral("down") : QStringLiteral("up"));
    setStyleProperty(ui->connectTitleBtn, "select",
                     status == TitleConnectPage ? QStringLiteral("down") : QStringLiteral("up"));
}

void OrvixUpgrade::showLoading() { m_loading->showLoading(); }
void OrvixUpgrade::hideLoading() { m_loading->hideLoading(); }
bool OrvixUpgrade::isLoadingShown() const { return m_loading->isVisible(); }

void OrvixUpgrade::onShowLoading(bool show) {
    if (show) {
        showLoading();
    } else {
        hideLoading();
    }
}

void OrvixUpgrade::onSetDynamicDisplayInfo(int bitRateKbps, int frameRate, int delayMs, bool loss) {
    QLabel* label = ui->dynamicInfoLab;
    const bool clear = bitRateKbps == 0 && frameRate == 0 && delayMs == 0 && !loss;
    if (clear || !getScreenStatus()) {
        label->clear();
        label->hide();
        return;
    }
    CClientConfig& config = Singleton<CClientConfig>::getInstance();
    QStringList parts;
    if (config.getShowBitRate() == 1) parts << tr("Bit rate: %1 kbps").arg(bitRateKbps);
    if (config.getShowFrameRate() == 1) parts << tr("Frame rate: %1 fps").arg(frameRate);
    if (config.getShowDelay() == 1) parts << tr("Delay: %1 ms").arg(delayMs);
    if (config.getShowLossFraction() == 1) parts << (loss ? tr("Packet loss") : tr("No packet loss"));
    label->setText(parts.join(QStringLiteral("   ")));
    label->setVisible(!parts.isEmpty());
}

QString OrvixUpgrade::dynamicDisplayText() const {
    return ui->dynamicInfoLab->isHidden() ? QString() : ui->dynamicInfoLab->text();
}

void OrvixUpgrade::onHideControlBallTimeout() {
    m_hideControlBallTimer->stop();
    m_controlBall->hide();
}

bool OrvixUpgrade::eventFilter(QObject* watched, QEvent* event) {
    if (watched == ui->widgetTitle) {
        m_titleDrag.handleEvent(event);
    } else if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape) {
        if (watched == m_connectPage->getConnectCodeEdit()) m_connectPage->setCodeListHide();
        if (watched == m_screenPage->getScreenCodeEdit()) m_screenPage->setCodeListHide();
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace qorquicomponents
