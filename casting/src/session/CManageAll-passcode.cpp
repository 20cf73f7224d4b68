// CManageAll: the list of passcode service instances 4-character codes are
// resolved through (a site running several, one directory in Redis).
#include <QMutex>

#include "casting/CManageAll.h"
#include "casting/Log.h"
#include "passcode/PasscodePins.h"
#include "session/CodeResolver.h"

namespace zv {
namespace {

QMutex g_serversMutex;
QList<PasscodeServerAddress> g_servers;

}  // namespace

QList<PasscodeServerAddress> passcodeServerList() {
    QMutexLocker lock(&g_serversMutex);
    return g_servers;
}

}  // namespace zv

long CManageAll::setPasscodeServers(const char* servers) {
    const QString text = servers ? QString::fromUtf8(servers).trimmed() : QString();
    QList<zv::PasscodeServerAddress> list;
    if (!text.isEmpty()) {
        const auto parsed = zv::PasscodeServerAddress::parseList(text);
        if (!parsed) {
            ZV_LOG(WARNING) << " not a list of passcode servers: \"" << text.left(200).toStdString() << "\"";
            return -1;
        }
        list = *parsed;
    }
    QMutexLocker lock(&zv::g_serversMutex);
    zv::g_servers = list;
    return 0;
}
