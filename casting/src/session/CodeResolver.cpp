#include "session/CodeResolver.h"

#include <QHostAddress>
#include <QNetworkInterface>
#include <QTimer>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "passcode/PasscodeClient.h"
#include "protocol/ConnectCode.h"
#include "protocol/ProtocolConstants.h"
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

// The form of a key id the session's check compares with the panel
// certificate (TlsIdentity's panelKeyOf: the first 16 hex digits of the
// same SHA-256), so the log-in refuses any other panel.
QString sessionKeyOf(const QString& keyId) {
    return QString::fromLatin1(keyHashOfKeyId(keyId).toHex().left(16));
}

}  // namespace

CodeResolver::CodeResolver(DiscoveryLookup lookup, QObject* parent)
    : QObject(parent), m_lookup(std::move(lookup)), m_passcodes(new PasscodeClient(this)) {
    connect(m_passcodes, &PasscodeClient::resolved, this,
            [this](const QString& address, quint16 port, const QString& name, const QString& panelKey) {
                ZV_LOG(INFO) << " passcode leads to \"" << name.toStdString() << "\" at " << address.toStdString()
                             << ":" << port << ", panel key " << shortKeyId(panelKey).toStdString();
                // Only the panel that registered the passcode may answer the log-in.
                finish({PanelAddress{address, port, sessionKeyOf(panelKey), panelKey}, 0, QString()});
            });
    connect(m_passcodes, &PasscodeClient::failed, this, [this](PasscodeClient::Failure reason, const QString& detail) {
        switch (reason) {
            case PasscodeClient::Failure::Unknown:
            case PasscodeClient::Failure::Invalid:
                finish({std::nullopt, zv_error::PASSCODE_UNKNOWN, QStringLiteral("passcode unknown: ") + detail});
                break;
            case PasscodeClient::Failure::RateLimited:
                finish({std::nullopt, zv_error::WRONG_CODE, QStringLiteral("passcode service refuses for now: ") + detail});
                break;
            case PasscodeClient::Failure::Unreachable:
            case PasscodeClient::Failure::Timeout:
            case PasscodeClient::Failure::ServiceKeyChanged:
                finish({std::nullopt, zv_error::PASSCODE_SERVER_UNREACHABLE,
                        QStringLiteral("passcode service: ") + detail});
                break;
        }
    });
}

void CodeResolver::resolve(const LoginTarget& target, Done done) {
    ++m_generation;
    m_passcodes->cancel();
    m_done = std::move(done);

    if (target.code.isEmpty()) {
        if (QHostAddress(target.address).protocol() != QAbstractSocket::IPv4Protocol) {
            finish({std::nullopt, zv_error::CONNECT_FAILED,
                    QStringLiteral("no code and no usable panel address \"%1\"").arg(target.address)});
            return;
        }
        const quint16 port = target.port != 0 ? target.port : kDefaultControlPort;
        finish({PanelAddress{target.address, port, target.key, QString()}, 0, QString()});
        return;
    }
    const QString code = code::normalize(target.code);
    if (!code::isValidCode(code)) {
        finish({std::nullopt, zv_error::WRONG_CODE, QStringLiteral("not a connect code: \"%1\"").arg(target.code)});
        return;
    }
    if (code.size() == code::kPasscodeLength) {
        resolvePasscode(code, target.passcodeHost, target.passcodePort);
    } else {
        resolveCode(code);
    }
}

void CodeResolver::resolvePasscode(const QString& passcode, const QString& host, quint16 port) {
    if (host.isEmpty() || port == 0) {
        finish({std::nullopt, zv_error::PASSCODE_SERVER_UNREACHABLE, QStringLiteral("no passcode service configured")});
        return;
    }
    m_passcodes->resolve(host, port, passcode, kPasscodeTimeoutMs);
}

bool CodeResolver::tryDiscovery(const QString& code) {
    if (!m_lookup) return false;
    const std::optional<KLUF_DEVICE_INFO> found = m_lookup(code);
    if (!found) return false;
    ZV_LOG(INFO) << " code found by discovery: \"" << found->szDeviceName << "\" at " << found->szDetail;
    finish({PanelAddress{QString::fromUtf8(found->szDetail),
                         static_cast<quint16>(found->nValue > 0 ? found->nValue : kDefaultControlPort),
                         QString::fromUtf8(found->szDeviceKey), QString()},
            0, QString()});
    return true;
}

void CodeResolver::resolveCode(const QString& code) {
    if (tryDiscovery(code)) return;
    const QList<quint32> candidates = code::addressCandidates(code, localIpv4Addresses());
    if (!candidates.isEmpty()) {
        for (const quint32 candidate : candidates) {
            const QHostAddress address(candidate);
            if (!plausiblePanelAddress(address)) continue;
            finish({PanelAddress{address.toString(), kDefaultControlPort, QString(), QString()}, 0, QString()});
            return;
        }
        finish({std::nullopt, zv_error::WRONG_CODE,
                QStringLiteral("code %1 names %2, which is no panel address of this network")
                    .arg(code, QHostAddress(candidates.first()).toString())});
        return;
    }
    // A short or custom code: only discovery knows it; give it a moment.
    const quint64 generation = m_generation;
    auto* poll = new QTimer(this);
    poll->setInterval(100);
    auto waited = std::make_shared<int>(0);
    connect(poll, &QTimer::timeout, this, [this, poll, waited, code, generation] {
        *waited += poll->interval();
        if (generation != m_generation) {
            poll->deleteLater();
            return;
        }
        if (tryDiscovery(code)) {
            poll->deleteLater();
        } else if (*waited >= kDiscoveryGraceMs) {
            poll->deleteLater();
            finish({std::nullopt, zv_error::WRONG_CODE, QStringLiteral("no panel announces code %1").arg(code)});
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
