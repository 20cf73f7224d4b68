// The settings flow of the main window: the settings window, the title bar's
// button that opens it, the display choices it changes, and what the global
// shortcuts Ctrl+Alt+<letter> do.

#include <QApplication>
#include <QHBoxLayout>
#include <QPushButton>

#include <memory>

#include "BusinessModule/ToolBusiness/ToolBusiness.h"
#include "casting/CClientConfig.h"
#include "casting/CManageAll.h"
#include "casting/Log.h"
#include "casting/Singleton.h"
#include "ui/ContentWidget/ScreenPage.h"
#include "ui/NetTest/NetTestWidget.h"
#include "ui/MirkAsync.h"
#include "ui/OrvixUpgrade.h"
#include "ui/SettingFeedback/BYOMSetting.h"
#include "ui/SettingFeedback/HideSetWindow.h"
#include "ui/SettingFeedback/SettingWidget.h"
#include "ui/TipWindows.h"
#include "ui/widgets/SwitchButton.h"
#include "ui_OrvixUpgrade.h"

namespace qorquicomponents {

void OrvixUpgrade::initSettings() {
    m_settingWidget = new SettingWidget(this);
    m_settingWidget->initData(this);

    // The title bar's settings button sits left of the minimise button.
    auto* settingBtn = new QPushButton(ui->widgetTitle);
    settingBtn->setObjectName(QStringLiteral("settingBtn"));
    settingBtn->setFixedSize(32, 32);
    settingBtn->setFocusPolicy(Qt::NoFocus);
    settingBtn->setCursor(Qt::PointingHandCursor);
    settingBtn->setText(QStringLiteral("⚙"));
    settingBtn->setToolTip(tr("Setup"));
    const int minIndex = ui->horizontalLayoutTitle->indexOf(ui->minBtn);
    ui->horizontalLayoutTitle->insertWidget(minIndex, settingBtn);
    connect(settingBtn, &QPushButton::clicked, this, &OrvixUpgrade::showSettingWidget);

    connect(m_settingWidget, &SettingWidget::signalChangeHostName, this, [this](const QString& name) {
        m_hostName = name.toStdString();
        ZV_LOG(INFO) << " host name now " << m_hostName;
    });
    // The bottom bar reads the display choices on its next update; hide it
    // at once when nothing is to be shown any more.
    connect(m_settingWidget, &SettingWidget::signalChangeDisplayInfo, this, [this](int) {
        CClientConfig& config = Singleton<CClientConfig>::getInstance();
        if (config.getShowBitRate() == 0 && config.getShowDelay() == 0 && config.getShowFrameRate() == 0 &&
            config.getShowLossFraction() == 0) {
            ui->dynamicInfoLab->hide();
        }
    });
    connect(m_settingWidget, &SettingWidget::signalShortcutActivated, this, &OrvixUpgrade::onShortcutActivated);
    connect(m_settingWidget, &SettingWidget::signalShowNetTest, this, [this] {
        if (m_netTestWidget == nullptr) m_netTestWidget = new NetTestWidget(this);
        m_netTestWidget->show();
        m_netTestWidget->refreshAddresses();
        m_netTestWidget->raise();
    });

    HideSetWindow* debug = HideSetWindow::getInstance();
    connect(debug, &HideSetWindow::signalShowDisplaySetting, this, [this] {
        showSettingWidget();
        m_settingWidget->onDisplayBtnClicked();
    });
    // Camera and microphone sharing: the debug window shows a state on demand.
    m_byomButton = new BYOMButton(this);
    m_byomButton->hide();
    m_byomSetting = new BYOMSetting(this);
    m_byomSetting->hide();
    connect(debug, &HideSetWindow::signalChangeBYOMModel, this, &OrvixUpgrade::showBYOM);
    connect(m_byomButton, &BYOMButton::signalClicked, this, [this] {
        m_byomSetting->move(m_byomButton->mapToGlobal(QPoint(0, -m_byomSetting->sizeHint().height() - 8)));
        m_byomSetting->show();
    });
    connect(m_byomSetting, &BYOMSetting::signalVirtualDeviceClicked, this, &OrvixUpgrade::switchVirtualDevices);

    // The debug window is process-wide; it goes with the main window.
    connect(this, &QObject::destroyed, [] { HideSetWindow::destory(); });
}

// The switch asks the logged-in panel for its microphone (and its camera
// where this PC has a loopback device) off the GUI thread; the answer sets
// the state. This PC unable to host them, or the panel not offering them,
// reads "not supported"; any other refusal leaves the switch off with the
// panel's reason.
void OrvixUpgrade::switchVirtualDevices(bool on) {
    ZV_LOG(INFO) << " virtual devices asked " << (on ? "on" : "off");
    if (!on) {
        mirk_async::ASYNC(trackedWork([] { CManageAll::getInstance()->stopDeviceShare(); }),
                          [this] {
                              m_byomSetting->setVirtualDeviceBtnEnableClicked(true);
                              showBYOM(BYOMClose);
                          },
                          this);
        return;
    }
    auto result = std::make_shared<CManageAll::DeviceShareResult>();
    auto started = std::make_shared<long>(-1);
    const bool camera = !ToolBusiness::virtualCameraDevice().empty();
    mirk_async::ASYNC(
        trackedWork([result, started, camera] {
            *started = CManageAll::getInstance()->startDeviceShare(true, camera, result.get());
        }),
        [this, result, started] {
            m_byomSetting->setVirtualDeviceBtnEnableClicked(true);
            if (*started == 0) {
                showBYOM(BYOMOpen);
                return;
            }
            ZV_LOG(WARNING) << " virtual devices not started: " << result->text;
            const bool unsupported = result->reason == "notsupported" || result->reason == "nonsupport";
            showBYOM(unsupported ? BYOMNotSupport : BYOMClose);
            if (!unsupported) {
                TipWindows::getInstance()->setDisplayText(ErrorLevelWarn, QString::fromStdString(result->text),
                                                          TipWindowPlain, this, 48);  // below the title bar
            }
        },
        this);
}

void OrvixUpgrade::showBYOM(int status) {
    auto state = static_cast<BYOMButtonStatus>(status);
    // The microphone needs a sound server here; the camera comes along only
    // where a loopback device exists, so it alone does not decide.
    const bool host = ToolBusiness::virtualMicrophoneHostAvailable();
    if (!host) state = BYOMNotSupport;
    m_byomSetting->setHostAvailable(host);
    m_byomSetting->setBYOMStatus(state);
    m_byomButton->setIconStatus(state);
    m_byomButton->setLabText(state == BYOMNotSupport ? tr("BYOM Not Supported") : tr("Camera and microphone"));
    m_byomButton->adjustSize();
    m_byomButton->setBtnPoint(QPoint(width() - m_byomButton->width() - 16, height() - m_byomButton->height() - 56));
    m_byomButton->show();
    m_byomButton->raise();
    m_byomButton->startTimer();
}

void OrvixUpgrade::showSettingWidget() {
    const QPoint corner = mapToGlobal(QPoint(0, 0));
    m_settingWidget->move(corner + QPoint((width() - m_settingWidget->width()) / 2,
                                          (height() - m_settingWidget->height()) / 2));
    m_settingWidget->show();
    m_settingWidget->raise();
    m_settingWidget->activateWindow();
}

// Ctrl+Alt+<start/stop letter> casts the screen to the shortcut address, or
// stops the cast; Ctrl+Alt+<pause letter> pauses or resumes a running cast.
void OrvixUpgrade::onShortcutActivated(int which) {
    const unsigned status = m_screenStatus;
    ZV_LOG(INFO) << " shortcut " << which << " pressed in state " << status;
    if (which == SettingWidget::ShortcutPause) {
        // The page's own switch, so that it shows the state and asks for it.
        if (status == ScreeningStatus) m_screenPage->pauseButton()->click();
        return;
    }
    if (which != SettingWidget::ShortcutStartOrStop) return;
    if (status == ScreeningStatus) {
        onStopScreen();
        return;
    }
    if (status != NormalStatus && status != ConnectedStatus) return;  // a request is under way
    const QString address = QString::fromStdString(Singleton<CClientConfig>::getInstance().getShortcutIP());
    if (address.isEmpty()) {
        ZV_LOG(INFO) << " no shortcut screen address set";
        return;
    }
    shortcutModeScreen(address, QString(), 0);
}

}  // namespace qorquicomponents
