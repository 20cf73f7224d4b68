#include "passcode/PasscodeRegistration.h"

#include <QDateTime>
#include <QTimer>

#include <algorithm>

#include "casting/Log.h"
#include "passcode/PasscodePins.h"
#include "protocol/ConnectCode.h"
#include "protocol/WireCodec.h"
#include "protocol/WireNames.h"
#include "security/KeyId.h"
#include "transport/MessageChannel.h"
#include "transport/TlsIdentity.h"

namespace zv {

namespace {

std::string text(const QString& s) { return s.toStdString(); }

void retire(MessageChannel* channel, QObject* owner, const QString& why) {
    channel->disconnect(owner);
    if (channel->isOpen()) {
        QObject::connect(channel, &MessageChannel::closed, channel, &QObject::deleteLater);
        channel->close(why);
    } else {
        channel->deleteLater();
    }
}

}  // namespace

PasscodeRegistration::PasscodeRegistration(const Settings& settings, QObject* parent)
    : QObject(parent),
      m_settings(settings),
      m_signer(settings.panelKey, settings.panelCertificate),
      m_answerTimer(new QTimer(this)),
      m_renewTimer(new QTimer(this)),
      m_retryTimer(new QTimer(this)) {
    m_services.append(PasscodeServerAddress{settings.serviceHost, settings.servicePort, settings.serviceKey});
    m_services += settings.moreServices;
    if (m_services.size() > 1) m_answerTimeoutMs = kListAnswerTimeoutMs;
    for (QTimer* timer : {m_answerTimer, m_renewTimer, m_retryTimer}) timer->setSingleShot(true);
    connect(m_answerTimer, &QTimer::timeout, this, [this] {
        setRegistered(false);
        onLinkLost(QStringLiteral("no answer within %1 ms").arg(m_answerTimeoutMs));
    });
    connect(m_renewTimer, &QTimer::timeout, this, &PasscodeRegistration::sendRegister);
    connect(m_retryTimer, &QTimer::timeout, this, &PasscodeRegistration::sendRegister);
    m_dispatch.on(wire::Envelope::kRegistered, [this](const wire::Envelope& e) { onRegistered(e.registered()); });
    m_dispatch.on(wire::Envelope::kUnregistered, [](const wire::Envelope&) {});
    m_dispatch.on(wire::Envelope::kPasscodeError, [this](const wire::Envelope& e) { onError(e.passcode_error()); });
}

PasscodeRegistration::~PasscodeRegistration() {
    if (!m_channel) return;
    m_channel->disconnect(this);
    if (!m_registered || !m_channel->isOpen()) return;
    wire::Unregister release;
    release.set_passcode(m_passcode.toStdString());
    if (m_signer.sign(release, m_serviceKey, nextStampMs()) && m_channel->send(wrap(release))) {
        // Hand the bytes to TLS and the system now; the connection goes with us.
        m_channel->flush();
        ZV_LOG(INFO) << " released passcode " << text(m_passcode);
    }
}

void PasscodeRegistration::start() {
    if (m_started) return;
    m_started = true;
    if (!m_signer.isValid()) {
        giveUp(QStringLiteral("the panel's TLS key cannot sign (no EC P-256 key, or the certificate is for another)"));
        return;
    }
    connectToService();
}

void PasscodeRegistration::rotate() {
    if (m_stopped || !m_started) return;
    m_rotateWanted = true;
    if (m_channel && m_channel->isOpen() && !m_inFlight) sendRegister();
    // Otherwise the next register (after the answer, or the reconnection) asks.
}

void PasscodeRegistration::connectToService() {
    dropLink();
    const quint64 link = ++m_link;
    m_answerTimer->start(m_answerTimeoutMs);
    const PasscodeServerAddress& service = m_services[m_current];
    MessageChannel::connectTls(service.host, service.port, m_answerTimeoutMs,
                               TlsCredentials::of(m_settings.panelKey, m_settings.panelCertificate), this,
                               [this, link](MessageChannel* channel, const QString& error) {
                                   if (link != m_link || m_stopped) {
                                       delete channel;
                                       return;
                                   }
                                   if (!channel) {
                                       setRegistered(false);
                                       onLinkLost(QStringLiteral("cannot reach the service: ") + error);
                                       return;
                                   }
                                   onConnected(channel);
                               });
}

void PasscodeRegistration::onConnected(MessageChannel* channel) {
    PasscodePins pins(m_settings.pinsPath);
    const QString shown = channel->peerKeyId();
    const PasscodeServerAddress& service = m_services[m_current];
    const PasscodePins::Verdict verdict = pins.check(service.host, service.port, shown, service.keyId);
    if (!verdict.trusted) {
        delete channel;
        if (m_services.size() == 1) return giveUp(verdict.error);
        // Another instance may be genuine: this one is skipped, loudly.
        ZV_LOG(ERROR) << " passcode service " << text(service.hostPort()) << " refused: " << text(verdict.error);
        return onLinkLost(verdict.error);
    }
    m_serviceKey = shown;
    channel->setParent(this);
    m_channel = channel;
    connect(m_channel, &MessageChannel::messageReceived, this, &PasscodeRegistration::handle);
    connect(m_channel, &MessageChannel::closed, this, &PasscodeRegistration::onLinkLost);
    sendRegister();
}

qint64 PasscodeRegistration::nextStampMs() {
    // Strictly increasing: the service refuses a request no newer than the last.
    m_lastStampMs = std::max(QDateTime::currentMSecsSinceEpoch(), m_lastStampMs + 1);
    return m_lastStampMs;
}

void PasscodeRegistration::sendRegister() {
    if (m_stopped) return;
    m_renewTimer->stop();
    m_retryTimer->stop();
    if (!m_channel || !m_channel->isOpen()) {
        connectToService();
        return;
    }
    wire::Register request;
    request.set_passcode(m_passcode.toStdString());
    request.set_address(m_settings.address.toStdString());
    request.set_port(m_settings.port);
    request.set_name(m_settings.name.toStdString());
    request.set_ttl(m_settings.ttlSeconds);
    request.set_rotate(m_rotateWanted && !m_passcode.isEmpty());
    if (!m_signer.sign(request, m_serviceKey, nextStampMs())) {
        giveUp(QStringLiteral("cannot sign with the panel's TLS key"));
        return;
    }
    if (!m_channel->send(wrap(request))) {
        setRegistered(false);
        onLinkLost(QStringLiteral("cannot send"));
        return;
    }
    m_inFlight = true;
    m_rotateInFlight = request.rotate();
    m_rotateWanted = false;
    m_answerTimer->start(kAnswerTimeoutMs);
}

void PasscodeRegistration::handle(const wire::Envelope& envelope) {
    if (m_dispatch.dispatch(envelope) == Dispatch::Unexpected) {
        onLinkLost(QStringLiteral("unexpected message \"%1\"").arg(bodyName(envelope)));
    }
}

void PasscodeRegistration::onRegistered(const wire::Registered& answer) {
    const QString given = QString::fromStdString(answer.passcode());
    if (!m_inFlight || !code::isValidPasscode(given)) {
        onLinkLost(QStringLiteral("unasked or malformed \"registered\" (passcode \"%1\")").arg(given.left(16)));
        return;
    }
    m_answerTimer->stop();
    m_inFlight = false;
    m_rotateInFlight = false;
    m_retryMs = kFirstRetryMs;
    if (given != m_passcode) {
        m_passcode = given;
        ZV_LOG(INFO) << " passcode " << text(m_passcode) << " given for " << text(m_settings.address) << ":"
                     << m_settings.port;
        emit passcodeChanged(m_passcode);
    }
    setRegistered(true);
    if (m_rotateWanted) {
        sendRegister();  // asked for while this one was on its way
        return;
    }
    m_renewTimer->start(std::max(1, m_settings.ttlSeconds) * 1000 / 3);
}

void PasscodeRegistration::onError(const wire::PasscodeError& answer) {
    m_answerTimer->stop();
    m_inFlight = false;
    if (m_rotateInFlight) m_rotateWanted = true;  // asked again with the next register
    m_rotateInFlight = false;
    const QString reason = passcodeErrorName(answer.reason());
    switch (answer.reason()) {
    case wire::PasscodeError::INVALID:
        return giveUp(QStringLiteral("the service calls the registration of %1:%2 \"%3\" for %4 s invalid")
                          .arg(m_settings.address)
                          .arg(m_settings.port)
                          .arg(m_settings.name)
                          .arg(m_settings.ttlSeconds));
    case wire::PasscodeError::BAD_PROOF:
        return giveUp(QStringLiteral("the service refuses this panel's signature"));
    case wire::PasscodeError::STALE:
        ZV_LOG(ERROR) << " the passcode service refuses the request's time: is this panel's clock more than "
                      << passcode::kMaxClockSkewMs / 1000 << " s off?";
        break;
    case wire::PasscodeError::RATE_LIMITED:
        ZV_LOG(WARNING) << " the passcode service has no passcode for this panel now (rate limited)";
        break;
    default:
        return onLinkLost(QStringLiteral("unexpected error reason %1").arg(reason));
    }
    // Kept as it is (the passcode held stays held until it expires); asked again later.
    scheduleRetry();
}

void PasscodeRegistration::onLinkLost(const QString& reason) {
    if (m_stopped) return;
    m_inFlight = false;
    if (m_rotateInFlight) m_rotateWanted = true;
    m_rotateInFlight = false;
    // A link that ends between requests is usually the service's idle
    // time-out (long ttls); reconnecting at once also notices a restart.
    const QString lost = m_services[m_current].hostPort();
    // With several instances the next one is asked, soon; the back-off
    // grows only once every instance has failed in turn.
    if (m_services.size() > 1) {
        m_current = (m_current + 1) % m_services.size();
        if (m_current != 0) m_nextSoon = true;
    }
    const bool soon = m_nextSoon;
    const std::string line = " passcode service " + text(lost) + ": " + text(reason) + "; trying " +
                             text(m_services[m_current].hostPort()) + " in " +
                             std::to_string(soon ? kFirstRetryMs : m_retryMs) + " ms";
    if (m_registered && !m_answerTimer->isActive()) {
        ZV_LOG(INFO) << line;
    } else {
        ZV_LOG(WARNING) << line;
    }
    dropLink();
    scheduleRetry();
}

void PasscodeRegistration::giveUp(const QString& reason) {
    ZV_LOG(ERROR) << " passcode registration with " << text(m_services[m_current].hostPort())
                  << " stopped: " << text(reason);
    m_stopped = true;
    m_renewTimer->stop();
    m_retryTimer->stop();
    dropLink();
    setRegistered(false);
    emit refused(reason);
}

void PasscodeRegistration::scheduleRetry() {
    m_answerTimer->stop();
    m_renewTimer->stop();
    if (m_nextSoon) {
        m_nextSoon = false;
        m_retryTimer->start(kFirstRetryMs);
        return;
    }
    m_retryTimer->start(m_retryMs);
    m_retryMs = std::min(m_retryMs * 2, kMaxRetryMs);
}

void PasscodeRegistration::dropLink() {
    ++m_link;
    m_answerTimer->stop();
    if (m_channel) retire(m_channel, this, QStringLiteral("registration link reset"));
    m_channel = nullptr;
}

void PasscodeRegistration::setRegistered(bool registered) {
    if (registered == m_registered) return;
    m_registered = registered;
    emit registeredChanged(registered);
}

}  // namespace zv
