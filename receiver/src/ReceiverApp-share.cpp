// The receiver's reverse screen: ShareService's status lines, approval,
// the "home" action and the share commands on standard input.
#include <QGuiApplication>
#include <QScreen>

#include "IdleScreen.h"
#include "ReceiverApp.h"
#include "ShareService.h"
#include "StatusPrinter.h"
#include "media/VideoView.h"

namespace receiver {

void ReceiverApp::startSharing() {
    ShareService::Settings settings;
    settings.requireApproval = m_options.requireApproval;
    settings.viewOnly = m_options.viewOnly;
    m_share = new ShareService(settings, m_service);
    connect(m_share, &ShareService::shareStarted, this,
            [](qint64 client, int width, int height, const QString& encoder) {
                StatusPrinter::print(QStringLiteral("share-started"), {{QStringLiteral("client"), client},
                                                                       {QStringLiteral("width"), width},
                                                                       {QStringLiteral("height"), height},
                                                                       {QStringLiteral("encoder"), encoder}});
            });
    connect(m_share, &ShareService::shareStopped, this, [](qint64 client, const QString& reason) {
        StatusPrinter::print(QStringLiteral("share-stopped"),
                             {{QStringLiteral("client"), client}, {QStringLiteral("reason"), reason}});
    });
    connect(m_share, &ShareService::controlChanged, this, [](qint64 client, bool granted, const QString& holder) {
        StatusPrinter::print(QStringLiteral("share-control"), {{QStringLiteral("client"), client},
                                                               {QStringLiteral("granted"), granted},
                                                               {QStringLiteral("holder"), holder}});
    });
    connect(m_share, &ShareService::inputInjected, this, [](const QString& type, int x, int y, int px, int py) {
        StatusPrinter::print(QStringLiteral("share-input"), {{QStringLiteral("type"), type},
                                                             {QStringLiteral("x"), x},
                                                             {QStringLiteral("y"), y},
                                                             {QStringLiteral("px"), px},
                                                             {QStringLiteral("py"), py}});
    });
    connect(m_share, &ShareService::keyFrameRequested, this, [](qint64 client) {
        StatusPrinter::print(QStringLiteral("share-key-frame"), {{QStringLiteral("client"), client}});
    });
    connect(m_share, &ShareService::homeRequested, this, &ReceiverApp::showHome);
}

// "home" from a PC: the receiver's own home, the idle screen, comes to the
// front (a cast picture, if one is shown, goes behind it).
void ReceiverApp::showHome() {
    StatusPrinter::print(QStringLiteral("share-home"), {{QStringLiteral("shown"), m_screen != nullptr}});
    if (!m_screen) return;
    if (m_view) m_view->lower();
    m_screen->show();
    m_screen->raise();
    m_screen->activateWindow();
}

bool ReceiverApp::onShareCommand(const QString& name) {
    if (name == QLatin1String("stop-share")) {
        m_share->stopShare(QStringLiteral("stopped on the panel"));
        return true;
    }
    return false;
}

}  // namespace receiver
