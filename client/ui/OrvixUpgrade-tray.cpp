// The tray icon (session state, stop, quit), the about box, the mirroring
// check window and saving the diagnostic bundle for support.
#include "ui/OrvixUpgrade.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QMenu>
#include <QMessageBox>
#include <QSystemTrayIcon>
#include <QTimer>

#include "casting/Log.h"
#include "core/CastingConditions.h"
#include "core/DiagnosticBundle.h"

namespace qorquicomponents {

namespace {

// The libraries the client and its casting library use, with their licences.
struct Library {
    const char* name;
    const char* licence;
};
const Library kLibraries[] = {
    {"Qt 5", "LGPL-3.0"},
    {"GStreamer and its base, good, bad and ugly plug-ins", "LGPL-2.1-or-later"},
    {"x264 (through gstreamer1.0-plugins-ugly)", "GPL-2.0-or-later"},
    {"FFmpeg/libav (through gstreamer1.0-libav)", "LGPL-2.1-or-later"},
    {"Avahi", "LGPL-2.1-or-later"},
    {"libsodium", "ISC"},
    {"OpenSSL 3", "Apache-2.0"},
    {"libsrtp2", "BSD-3-Clause"},
    {"Protocol Buffers", "BSD-3-Clause"},
    {"glog", "BSD-3-Clause"},
    {"SQLite", "public domain"},
    {"Xlib and its extensions", "MIT/X11"},
};

}  // namespace

void OrvixUpgrade::initTray() {
    if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
    m_trayIcon = new QSystemTrayIcon(windowIcon(), this);
    auto* menu = new QMenu(this);
    m_trayStateAction = menu->addAction(QString());
    m_trayStateAction->setEnabled(false);  // a label, not a command
    menu->addSeparator();
    menu->addAction(tr("Show main window"), this, &OrvixUpgrade::showWindowActive);
    m_trayStopAction = menu->addAction(tr("Stop casting"), this, &OrvixUpgrade::onStopScreen);
    menu->addAction(tr("Mirroring check"), this, &OrvixUpgrade::showMirroringCheck);
    menu->addAction(tr("Save diagnostic bundle..."), this, &OrvixUpgrade::onSaveDiagnosticBundle);
    menu->addAction(tr("About Zelvanor"), this, &OrvixUpgrade::showAboutBox);
    menu->addSeparator();
    menu->addAction(tr("Exit"), this, &QWidget::close);
    connect(menu, &QMenu::aboutToShow, this, &OrvixUpgrade::updateTrayState);
    m_trayIcon->setContextMenu(menu);
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick) showWindowActive();
    });
    // The state changes on many paths and threads; the tooltip follows it
    // within a second (only while a tray exists).
    m_trayStateTimer = new QTimer(this);
    connect(m_trayStateTimer, &QTimer::timeout, this, &OrvixUpgrade::updateTrayState);
    m_trayStateTimer->start(1000);
    updateTrayState();
    m_trayIcon->show();
}

QString OrvixUpgrade::trayStateText() const {
    switch (m_screenStatus.load()) {
    case NormalStatus: return tr("Idle");
    case ConnectedStatus: return tr("Connected");
    case ScreeningStatus: return tr("Casting");
    case ReverseScreeningStatus: return tr("Showing the panel's screen");
    default: return tr("Connecting");
    }
}

void OrvixUpgrade::updateTrayState() {
    if (m_trayIcon == nullptr) return;
    const QString state = trayStateText();
    const QString panel = m_strDeviceName;
    const bool casting = m_screenStatus == ScreeningStatus;
    m_trayIcon->setToolTip(casting && !panel.isEmpty() ? QStringLiteral("Zelvanor: %1 (%2)").arg(state, panel)
                                                      : QStringLiteral("Zelvanor: %1").arg(state));
    m_trayStateAction->setText(state);
    m_trayStopAction->setEnabled(casting);
}

QString OrvixUpgrade::aboutText() {
    QString text = QStringLiteral("<h3>Zelvanor %1</h3><p>%2</p><p>%3</p><ul>")
                       .arg(QStringLiteral(ZV_CLIENT_VERSION),
                            tr("Open screen casting for meeting rooms."),
                            tr("Built on these libraries, under their own licences:"));
    for (const Library& library : kLibraries) {
        text += QStringLiteral("<li>%1: %2</li>")
                    .arg(QString::fromUtf8(library.name).toHtmlEscaped(), QString::fromUtf8(library.licence));
    }
    text += QStringLiteral("</ul><p>Qt %1</p>").arg(QString::fromLatin1(qVersion()));
    return text;
}

void OrvixUpgrade::showAboutBox() { QMessageBox::about(this, tr("About Zelvanor"), aboutText()); }

void OrvixUpgrade::showMirroringCheck() {
    QString text = QStringLiteral("<table>");
    for (const zv::CastingCondition& condition : zv::collectCastingConditions()) {
        const QString topic = condition.topic == "display"   ? tr("Display system")
                              : condition.topic == "encoder" ? tr("Video encoder")
                              : condition.topic == "sound"   ? tr("Sound server")
                                                             : tr("Network");
        text += QStringLiteral("<tr><td><b>%1</b></td><td>%2</td><td>%3</td></tr>")
                    .arg(topic, condition.ok ? tr("OK") : tr("Limits casting"),
                         QString::fromStdString(condition.value).toHtmlEscaped());
    }
    text += QStringLiteral("</table>");
    QMessageBox box(QMessageBox::Information, tr("Mirroring check"), text, QMessageBox::Close, this);
    box.setTextFormat(Qt::RichText);
    box.exec();
}

bool OrvixUpgrade::saveDiagnosticBundleTo(const QString& path, QString* error) {
    std::string reason;
    if (zv::saveDiagnosticBundle(path.toStdString(), zv::defaultDiagnosticSources(), &reason)) return true;
    ZV_LOG(WARNING) << " diagnostic bundle not saved: " << reason;
    *error = QString::fromStdString(reason);
    return false;
}

void OrvixUpgrade::onSaveDiagnosticBundle() {
    const QString suggested = QDir::homePath() + QStringLiteral("/zelvanor-diagnostics-") +
                              QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")) +
                              QStringLiteral(".tar.gz");
    const QString path = QFileDialog::getSaveFileName(this, tr("Save diagnostic bundle"), suggested,
                                                      tr("Diagnostic bundle (*.tar.gz)"));
    if (path.isEmpty()) return;
    QString error;
    if (saveDiagnosticBundleTo(path, &error)) {
        showNotice(QStringLiteral("success"), tr("Diagnostic bundle saved"),
                   tr("Send %1 to your support team. It holds logs and settings, no keys.").arg(path));
    } else {
        showNotice(QStringLiteral("error"), tr("Diagnostic bundle not saved"), error);
    }
}

}  // namespace qorquicomponents
