#include "session/CodeResolver.h"

#include <QHostAddress>
#include <QNetworkInterface>
#include <QTimer>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "passcode/PasscodeClient.h"
#include "protocol/ConnectCode.h"
#include "protocol/ProtocolConstants.h"
#include "transport/KnownPanels.h"
#include "security/KeyId.h"

namespace zv {

namespace {

// Whether a code's address is one a panel of this LAN can have: a private,
// shared, link-local or loopback address, or one on a network this PC is
// attached to. A mistyped code must not send us knocking on some stranger's
// host on the internet.
bool plausiblePanelAddress(const QHostAddress& address) {
    static const std::pair<const char*, int> kLocalRanges[] = {
        {"10.0.0.0", 8}, {"172.16.0.0", 12}, {"192.168.0.0", 16}, {"100.64.0.0", 10},
        {"169.254.0.0", 16}, {"127.0.0.0", 8},
    };
    for (const auto& [network, prefix] : kLocalRanges) {
        if (address.isInSubnet(QHostAddress(QString::fromLatin1(network)), prefix)) return true;
    }
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces()) {
        if (!(interface.flags() & QNetworkInterface::IsUp)) continue;
        for (const QNetworkAddressEntry& entry : interface.addressEntries()) {
            if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol &&
                address.isInSubnet(entry.ip(), entry.prefixLength())) {
                return true;
            }
        }
    }
    return false;
}

// This PC's IPv4 addresses (host byte order), for codes that carry only the
// low bits of the panel's address; loopback last, as a panel on this very
// machine is the rare case.
QList<quint32> localIpv4Addresses() {
    QList<quint32> out, loopback;
    for (const QHostAddress& address : QNetworkInterface::allAddresses()) {
        if (address.protocol() != QAbstractSocket::IPv4Protocol) continue;
        (address.isLoopback() ? loopback : out).append(address.toIPv4Address());
    }
    return out + loopback;
}

PanelAddress fromRecord(const KLUF_DEVICE_INFO& info) {
    return PanelAddress{QString::fromUtf8(info.szDetail),
                        static_cast<quint16>(info.nValue > 0 && info.nValue <= 65535 ? info.nValue : kDefaultControlPort),
                        QString::fromUtf8(info.szDeviceKey), QString::fromUtf8(info.szDeviceName)};
}

bool listed(const QList<PanelAddress>& list, const PanelAddress& panel) {
    for (const PanelAddress& p : list) {
        if (p.address == panel.address && p.port == panel.port) return true;
        if (!p.expectedKey.isEmpty() && p.expectedKey == panel.expectedKey) return true;
    }
    return false;
}

void append(QList<PanelAddress>& list, const PanelAddress& panel) {
    if (!panel.address.isEmpty() && !listed(list, panel)) list << panel;
}

}  // namespace

CodeResolver::CodeResolver(DiscoveryLookup lookup, std::shared_ptr<KnownPanels> known, QObject* parent)
    : QObject(parent), m_lookup(std::move(lookup)), m_known(std::move(known)), m_passcodes(new PasscodeClient(this)) {
    connect(m_passcodes, &PasscodeClient::resolved, this,
            [this](const QString& address, quint16 port, const QString& name, const QString& panelKey) {
                ZV_LOG(INFO) << " passcode leads to \"" << name.toStdString() << "\" at " << address.toStdString()
                             << ":" << port << ", panel key " << shortKeyId(panelKey).toStdString();
                // Only the panel that registered the passcode may answer the log-in.
                finish({{PanelAddress{address, port, panelKey, name}}, 0, QString()});
            });
    connect(m_passcodes, &PasscodeClient::failed, this, [this](PasscodeClient::Failure reason, const QString& detail) {
        switch (reason) {
            case PasscodeClient::Failure::Unknown:
            case PasscodeClient::Failure::Invalid:
                finish({{}, zv_error::PASSCODE_UNKNOWN, QStringLiteral("passcode unknown: ") + detail});
                break;
            case PasscodeClient::Failure::RateLimited:
                finish({{}, zv_error::WRONG_CODE, QStringLiteral("passcode service refuses for now: ") + detail});
                break;
            case PasscodeClient::Failure::Unreachable:
            case PasscodeClient::Failure::Timeout:
            case PasscodeClient::Failure::ServiceKeyChanged:
                finish({{}, zv_error::PASSCODE_SERVER_UNREACHABLE,
                        QStringLiteral("passcode service: ") + detail});
                break;
        }
    });
}

void CodeResolver::resolve(const LoginTarget& target, Done done) {
    ++m_generation;
    m_passcodes->cancel();
    m_done = std::move(done);

    const quint16 port = target.port != 0 ? target.port : kDefaultControlPort;
    if (target.code.isEmpty()) {
        if (QHostAddress(target.address).protocol() != QAbstractSocket::IPv4Protocol) {
            finish({{}, zv_error::CONNECT_FAILED,
                    QStringLiteral("no code and no usable panel address \"%1\"").arg(target.address)});
            return;
        }
        finish({{PanelAddress{target.address, port, target.key, target.name}}, 0, QString()});
        return;
    }
    const QString code = code::normalize(target.code);
    if (!code::isValidCode(code)) {
        finish({{}, zv_error::WRONG_CODE, QStringLiteral("not a connect code: \"%1\"").arg(target.code)});
        return;
    }
    if (code.size() == code::kPasscodeLength) {
        if (!target.passcodeServers.isEmpty()) {
            m_passcodes->resolve(target.passcodeServers, code, kPasscodeTimeoutMs);
        } else {
            resolvePasscode(code, target.passcodeHost, target.passcodePort);
        }
    } else {
        QList<PanelAddress> first;
        if (!target.address.isEmpty()) first << PanelAddress{target.address, port, target.key, target.name};
        resolveCode(code, first);
    }
}

void CodeResolver::resolvePasscode(const QString& passcode, const QString& host, quint16 port) {
    if (host.isEmpty() || port == 0) {
        finish({{}, zv_error::PASSCODE_SERVER_UNREACHABLE, QStringLiteral("no passcode service configured")});
        return;
    }
    m_passcodes->resolve(host, port, passcode, kPasscodeTimeoutMs);
}

QList<PanelAddress> CodeResolver::knownCandidates(const QString& code, QList<PanelAddress> list) const {
    if (m_lookup.byCode) {
        if (const std::optional<KLUF_DEVICE_INFO> found = m_lookup.byCode(code)) {
            ZV_LOG(INFO) << " \"" << found->szDeviceName << "\" at " << found->szDetail << " publishes this code";
            append(list, fromRecord(*found));
        }
    }
    if (const std::optional<KnownPanels::Entry> known = m_known ? m_known->byCode(code) : std::nullopt) {
        PanelAddress panel{known->address, known->port != 0 ? known->port : kDefaultControlPort, known->key, known->name};
        if (m_lookup.panels) {
            for (const KLUF_DEVICE_INFO& info : m_lookup.panels()) {
                if (QString::fromUtf8(info.szDeviceKey) == known->key) panel = fromRecord(info);
            }
        }
        ZV_LOG(INFO) << " this code worked with \"" << known->name.toStdString() << "\" before; trying "
                     << panel.address.toStdString();
        append(list, panel);
    }
    return list;
}

QList<PanelAddress> CodeResolver::sweep(const QList<PanelAddress>& list) const {
    QList<PanelAddress> out = list;
    if (!m_lookup.panels) return out;
    int added = 0;
    for (const KLUF_DEVICE_INFO& info : m_lookup.panels()) {
        if (added >= kMaxSweep) break;
        const PanelAddress panel = fromRecord(info);
        if (panel.address.isEmpty() || listed(out, panel)) continue;
        out << panel;
        ++added;
    }
    return out;
}

void CodeResolver::resolveCode(const QString& code, const QList<PanelAddress>& first) {
    QList<PanelAddress> list = knownCandidates(code, first);
    QString wrongAddress;
    for (const quint32 candidate : code::addressCandidates(code, localIpv4Addresses())) {
        const QHostAddress address(candidate);
        if (!plausiblePanelAddress(address)) {
            if (wrongAddress.isEmpty()) wrongAddress = address.toString();
            continue;
        }
        append(list, PanelAddress{address.toString(), kDefaultControlPort, QString(), QString()});
        break;
    }
    if (!list.isEmpty()) {
        finish({sweep(list), 0, QString()});
        return;
    }
    // Nothing points at a panel yet: give discovery a moment, then try what it lists.
    const quint64 generation = m_generation;
    auto* poll = new QTimer(this);
    poll->setInterval(100);
    auto waited = std::make_shared<int>(0);
    connect(poll, &QTimer::timeout, this, [this, poll, waited, code, generation, wrongAddress] {
        *waited += poll->interval();
        if (generation != m_generation) {
            poll->deleteLater();
            return;
        }
        const QList<PanelAddress> found = knownCandidates(code, {});
        if (!found.isEmpty()) {
            poll->deleteLater();
            finish({sweep(found), 0, QString()});
        } else if (*waited >= kDiscoveryGraceMs) {
            poll->deleteLater();
            const QList<PanelAddress> swept = sweep({});
            if (!swept.isEmpty()) {
                finish({swept, 0, QString()});
            } else if (!wrongAddress.isEmpty()) {
                finish({{}, zv_error::WRONG_CODE,
                        QStringLiteral("code %1 names %2, which is no panel address of this network, and discovery "
                                       "lists no panel")
                            .arg(code, wrongAddress)});
            } else {
                finish({{}, zv_error::WRONG_CODE, QStringLiteral("no panel found for code %1").arg(code)});
            }
        }
    });
    poll->start();
}

void CodeResolver::finish(ResolveOutcome outcome) {
    if (!m_done) return;
    Done done = std::move(m_done);
    m_done = nullptr;
    const quint64 generation = m_generation;
    // Always from the event loop, so callers never re-enter themselves.
    QTimer::singleShot(0, this, [this, done = std::move(done), outcome = std::move(outcome), generation] {
        if (generation == m_generation) done(outcome);
    });
}

}  // namespace zv
