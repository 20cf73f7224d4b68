// PanelService, before the welcome: the hello, the key exchange over the code,
// the access rule and resuming (docs/protocol.md, "Log-in").
#include <QHostAddress>
#include <QRandomGenerator>

#include "CodeKeeper.h"
#include "PanelService.h"
#include "casting/Log.h"
#include "protocol/WireNames.h"
#include "security/CodeProof.h"
#include "security/KeyId.h"
#include "transport/MessageChannel.h"

namespace receiver {

namespace {

QString randomToken() {
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(words), sizeof words).toHex());
}

}  // namespace

zv::Dispatch PanelService::greet(zv::MessageChannel* channel, const zv::wire::Envelope& envelope) {
    const zv::Dispatch result = m_greeting.dispatch(envelope, channel);
    if (result == zv::Dispatch::Unexpected) {
        m_pending.erase(channel);
        channel->close(QStringLiteral("protocol error: expected hello or pake_confirm, got ") + zv::bodyName(envelope));
    }
    return result;
}

void PanelService::refuse(zv::MessageChannel* channel, zv::wire::Refused::Reason reason, const QString& text) {
    m_pending.erase(channel);
    const QString name = zv::refusedReasonName(reason);
    ZV_LOG(WARNING) << " refused " << channel->peerName().toStdString() << ": " << name.toStdString() << " ("
                    << text.toStdString() << ")";
    emit helloRefused(channel->peerName(), name);
    zv::wire::Refused refused;
    refused.set_reason(reason);
    refused.set_text(text.toStdString());
    channel->send(zv::wrap(refused));
    channel->close(QStringLiteral("refused: ") + name);
}

void PanelService::onHello(zv::MessageChannel* channel, const zv::wire::Hello& hello) {
    if (m_pending.count(channel) != 0) {
        m_pending.erase(channel);
        channel->close(QStringLiteral("protocol error: second hello"));
        return;
    }
    if (hello.major() != uint32_t(m_settings.protocolMajor)) {
        refuse(channel, zv::wire::Refused::VERSION_MISMATCH,
               QStringLiteral("panel speaks protocol %1.%2, this PC %3.%4")
                   .arg(m_settings.protocolMajor)
                   .arg(m_settings.protocolMinor)
                   .arg(hello.major())
                   .arg(hello.minor()));
        return;
    }
    switch (hello.auth()) {
    case zv::wire::Hello::CODE:
    case zv::wire::Hello::PASSCODE: startProof(channel, hello); return;
    default:
        if (!hello.pake_share().empty()) {
            channel->close(QStringLiteral("protocol error: a key exchange share in a hello without a code"));
            return;
        }
        admit(channel, hello, false);
    }
}

void PanelService::startProof(zv::MessageChannel* channel, const zv::wire::Hello& hello) {
    const QString source = channel->peerAddress().toString();
    qint64 retryAfterMs = 0;
    if (!m_limiter.mayAttempt(source, &retryAfterMs)) {
        refuse(channel, zv::wire::Refused::RATE_LIMITED,
               QStringLiteral("too many wrong codes; try again in %1 s").arg((retryAfterMs + 999) / 1000));
        return;
    }
    if (!m_budget.mayTry(&retryAfterMs)) {
        refuse(channel, zv::wire::Refused::RATE_LIMITED,
               QStringLiteral("too many wrong codes on this panel; try again in %1 s").arg((retryAfterMs + 999) / 1000));
        return;
    }
    const bool passcode = hello.auth() == zv::wire::Hello::PASSCODE;
    // A panel without a passcode may have a fixed 4-character code.
    const QString secret = passcode && !m_codes->passcode().isEmpty() ? m_codes->passcode() : m_codes->code();
    std::optional<zv::CodeProof> proof = zv::CodeProof::start(zv::CPace::Role::Responder, secret, channel->exporter(),
                                                              channel->ownKeyHash(), channel->peerKeyHash());
    if (!proof || !proof->takePeerShare(QByteArray::fromStdString(hello.pake_share()))) {
        channel->close(QStringLiteral("protocol error: no valid key exchange share"));
        return;
    }
    zv::wire::PakeReply reply;
    reply.set_share(proof->share().toStdString());
    reply.set_tag(proof->ownTag().toStdString());
    channel->send(zv::wrap(reply));
    // From here the PC could learn whether its guess was right: the try
    // counts now, and is taken back by a valid confirmation.
    m_limiter.recordFailure(source);
    if (m_budget.recordFailure()) m_codes->replaceAfterGuessing();
    m_pending[channel] = PendingProof{std::make_shared<zv::CodeProof>(std::move(*proof)), hello, source};
    connect(channel, &QObject::destroyed, this, [this, channel] { m_pending.erase(channel); });
    // A PC whose code was wrong sees it in our tag and hangs up: that is the
    // wrong code's trace here.
    connect(channel, &zv::MessageChannel::closed, this, [this, channel](const QString& reason) {
        if (m_pending.erase(channel) == 0) return;
        ZV_LOG(WARNING) << " " << channel->peerName().toStdString() << " left during the key exchange (" << reason.toStdString()
                        << "): a wrong code, counted";
        emit helloRefused(channel->peerName(), zv::refusedReasonName(zv::wire::Refused::WRONG_CODE));
    });
}

void PanelService::onPakeConfirm(zv::MessageChannel* channel, const zv::wire::PakeConfirm& confirm) {
    const auto it = m_pending.find(channel);
    if (it == m_pending.end()) {
        channel->close(QStringLiteral("protocol error: pake_confirm without a key exchange"));
        return;
    }
    const PendingProof pending = it->second;
    m_pending.erase(it);
    if (!pending.proof->verifyPeerTag(QByteArray::fromStdString(confirm.tag()))) {
        refuse(channel, zv::wire::Refused::WRONG_CODE, QStringLiteral("wrong connect code"));
        return;
    }
    m_limiter.recordSuccess(pending.source);
    m_budget.cancelFailure();
    admit(channel, pending.hello, true);
}

void PanelService::admit(zv::MessageChannel* channel, const zv::wire::Hello& hello, bool proven) {
    const QString key = channel->peerKeyId();
    const QString host = QString::fromStdString(hello.host());
    if (hello.has_resume()) {
        if (!resume(channel, hello.resume())) {
            refuse(channel, zv::wire::Refused::UNKNOWN_SESSION, QStringLiteral("no such session any more"));
        }
        return;
    }

    bool approved = true;
    if (proven || m_known.contains(key)) {
        m_known.record(key, host);
    } else if (m_settings.access == zv::PanelAccess::Code) {
        refuse(channel, zv::wire::Refused::CODE_REQUIRED,
               QStringLiteral("this panel lets in only PCs that know its code: type the code it shows"));
        return;
    } else {
        approved = m_settings.access == zv::PanelAccess::Open;
    }
    if (m_sessions.size() >= m_settings.maxClients) {
        refuse(channel, zv::wire::Refused::TOO_MANY_CLIENTS,
               QStringLiteral("this panel takes %1 clients at once").arg(m_settings.maxClients));
        return;
    }

    Session session;
    session.info.id = m_nextId++;
    session.info.host = host;
    session.info.address = channel->peerAddress().toString();
    session.info.viaCode = proven;
    session.info.key = key;
    session.info.approved = approved;
    session.resumeToken = randomToken();
    Session& stored = m_sessions[session.info.id] = session;
    attach(stored, channel);
    channel->send(welcomeFor(stored, channel, false));
    m_codes->setBusy(true);
    ZV_LOG(INFO) << " client " << stored.info.id << " \"" << host.toStdString() << "\" ("
                 << zv::shortKeyId(key).toStdString() << ") joined from " << stored.info.address.toStdString()
                 << (proven ? " with the code" : approved ? " by its key" : ", its casts wait for approval");
    emit clientJoined(stored.info);
}

// A hello with a resume token: the session back if the panel keeps it for
// this very PC (or the news that its user removed it); false when the token
// names nothing.
bool PanelService::resume(zv::MessageChannel* channel, const std::string& token) {
    const QString resumeToken = QString::fromStdString(token);
    if (m_removedTokens.contains(resumeToken)) {
        refuse(channel, zv::wire::Refused::LOG_OUT_BY_SERVER, QStringLiteral("removed by the panel"));
        return true;
    }
    for (Session& session : m_sessions) {
        if (session.resumeToken != resumeToken) continue;
        if (session.info.key != channel->peerKeyId()) {
            // A token is no credential alone: it works only with the PC's key.
            ZV_LOG(WARNING) << " " << channel->peerName().toStdString() << " (key "
                            << zv::shortKeyId(channel->peerKeyId()).toStdString() << ") shows the resume token of client "
                            << session.info.id << " (key " << zv::shortKeyId(session.info.key).toStdString() << ")";
            return false;
        }
        ZV_LOG(INFO) << " client " << session.info.id << " resumes from " << channel->peerName().toStdString();
        attach(session, channel);
        channel->send(welcomeFor(session, channel, true));
        emit clientResumed(session.info);
        return true;
    }
    return false;
}

}  // namespace receiver
