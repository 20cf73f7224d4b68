#include "session/ClientSession.h"

#include <QFileInfo>
#include <QHostInfo>

#include <cstring>

#include "casting/ErrorCodes.h"
#include "casting/Log.h"
#include "protocol/ConnectCode.h"
#include "protocol/ProtocolConstants.h"
#include "protocol/WireNames.h"
#include "security/CodeProof.h"
#include "security/KeyId.h"
#include "transport/KnownPanels.h"
#include "transport/MessageChannel.h"
#include "transport/TlsIdentity.h"

namespace zv {

namespace {

// The reason text of a panel's removal, passed on to the client as it is.
const QString kLogOutByServer = QStringLiteral("logOutByServer");

uint32_t errorForRefusal(wire::Refused::Reason reason) {
    switch (reason) {
    case wire::Refused::WRONG_CODE:
    case wire::Refused::RATE_LIMITED:
    case wire::Refused::CODE_REQUIRED: return zv_error::WRONG_CODE;
    case wire::Refused::TOO_MANY_CLIENTS: return zv_error::TOO_MANY_SCREENS;
    case wire::Refused::VERSION_MISMATCH: return zv_error::PANEL_VERSION_TOO_LOW;
    default: return zv_error::REQUEST_REFUSED;
    }
}

void copyReason(tagNotifyExceptionParams_& params, const QString& text) {
    const QByteArray bytes = text.toUtf8().left(sizeof params.szReason - 1);
    std::memcpy(params.szReason, bytes.constData(), static_cast<size_t>(bytes.size()));
    params.szReason[bytes.size()] = '\0';
}

// Whether a failed candidate leaves room to try the next one: it did not
// answer, is not the panel we looked for, or the code is not its code.
bool tryNextAfter(const ClientSession::LoginResult& result) {
    switch (result.refusedReason) {
    case wire::Refused::REASON_UNSPECIFIED:
    case wire::Refused::WRONG_CODE:
    case wire::Refused::CODE_REQUIRED: return true;
    default: return false;
    }
}

wire::Hello::Auth authFor(const QString& code) {
    if (code.isEmpty()) return wire::Hello::KNOWN;
    return code.size() == code::kPasscodeLength ? wire::Hello::PASSCODE : wire::Hello::CODE;
}

}  // namespace

// One connection attempt waiting for the panel's answers to hello.
struct ClientSession::Attempt {
    MessageChannel* channel = nullptr;
    std::function<void(const LoginResult&)> done;
    PanelAddress panel;
    QTimer timeout;
    bool finished = false;
    QString code;                    // the password of the key exchange; empty: KNOWN
    std::optional<CodeProof> proof;  // CODE/PASSCODE, until the welcome
    bool confirmed = false;          // the panel's tag verified, ours sent

    void finish(const LoginResult& result) {
        if (finished) return;
        finished = true;
        timeout.stop();
        done(result);
    }
    // Ends the attempt without a session: the channel goes.
    void fail(LoginResult result) {
        channel->deleteLater();
        result.panel = panel;
        finish(result);
    }
};

ClientSession::ClientSession(Events events, CodeResolver::DiscoveryLookup lookup,
                             std::shared_ptr<KnownPanels> knownPanels, QObject* parent)
    : QObject(parent),
      m_events(std::move(events)),
      m_knownPanels(std::move(knownPanels)),
      m_resolver(new CodeResolver(std::move(lookup), m_knownPanels, this)) {
    m_deadLinkTimer.setInterval(kHeartbeatIntervalMs);
    connect(&m_deadLinkTimer, &QTimer::timeout, this, [this] { onMissedBeats(m_missed + 1); });
    m_answers.on(wire::Envelope::kWelcome,
                 [this](const wire::Envelope& e, Attempt& attempt) { onWelcome(attempt, e.welcome()); });
    m_answers.on(wire::Envelope::kPakeReply,
                 [this](const wire::Envelope& e, Attempt& attempt) { onPakeReply(attempt, e.pake_reply()); });
    m_answers.on(wire::Envelope::kRefused,
                 [this](const wire::Envelope& e, Attempt& attempt) { onRefused(attempt, e.refused()); });
    m_dispatch.on(wire::Envelope::kBye, [this](const wire::Envelope& e) { onBye(e.bye()); });
}

ClientSession::~ClientSession() { dropChannel(); }

void ClientSession::login(const LoginTarget& target, const wire::Hello& hello, LoginDone done) {
    if (m_loggedIn) logout();
    const quint64 generation = ++m_generation;
    m_hello = hello;
    m_hello.clear_resume();
    const QString code = code::normalize(target.code);
    m_resolver->resolve(target, [this, generation, code, done = std::move(done)](const ResolveOutcome& outcome) {
        if (generation != m_generation) return;
        if (outcome.panels.isEmpty()) {
            ZV_LOG(WARNING) << " cannot find the panel: " << outcome.detail.toStdString();
            LoginResult result;
            result.error = outcome.error;
            result.detail = outcome.detail;
            done(result);
            return;
        }
        tryPanels(outcome.panels, 0, code, std::nullopt, [this, generation, code, done](const LoginResult& answer) {
            if (generation != m_generation) return;
            LoginResult result = answer;
            result.code = code;
            done(result);
        });
    });
}

void ClientSession::tryPanels(QList<PanelAddress> panels, int index, const QString& code,
                              std::optional<LoginResult> first, std::function<void(const LoginResult&)> done) {
    const quint64 generation = m_generation;
    connectTo(panels[index], m_hello, code,
              [this, generation, panels, index, code, first, done](const LoginResult& result) {
                  if (generation != m_generation) return;
                  // The first candidate's failure is the one to report: the
                  // others are guesses.
                  const LoginResult& primary = first ? *first : result;
                  if (result.error == 0 || !tryNextAfter(result) || index + 1 >= panels.size()) {
                      done(result.error == 0 || !tryNextAfter(result) ? result : primary);
                      return;
                  }
                  ZV_LOG(INFO) << " trying the next candidate (" << index + 2 << " of " << panels.size() << ")";
                  tryPanels(panels, index + 1, code, primary, done);
              });
}

void ClientSession::connectTo(const PanelAddress& panel, const wire::Hello& hello, const QString& code,
                              std::function<void(const LoginResult&)> done) {
    ZV_LOG(INFO) << " connecting to " << panel.address.toStdString() << ":" << panel.port;
    if (!ensureIdentity()) {
        LoginResult result;
        result.error = zv_error::CONNECT_FAILED;
        result.detail = QStringLiteral("this PC has no TLS identity (see the log)");
        result.panel = panel;
        QTimer::singleShot(0, this, [done, result] { done(result); });
        return;
    }
    MessageChannel::connectTls(
        panel.address, panel.port, kConnectTimeoutMs, m_credentials, this,
        [this, panel, hello, code, done = std::move(done)](MessageChannel* channel, const QString& error) {
            auto fail = [&](const QString& why) {
                ZV_LOG(WARNING) << " " << panel.address.toStdString() << ":" << panel.port << ": " << why.toStdString();
                LoginResult result;
                result.error = zv_error::CONNECT_FAILED;
                result.detail = why;
                result.panel = panel;
                done(result);
            };
            if (channel == nullptr) {
                fail(error);
                return;
            }
            const QString key = channel->peerKeyId();
            if (!panel.expectedKey.isEmpty() && key != panel.expectedKey) {
                delete channel;
                fail(QStringLiteral("the panel answers with key %1, but %2 was expected")
                         .arg(shortKeyId(key), shortKeyId(panel.expectedKey)));
                return;
            }
            if (code.isEmpty()) {
                // Without a code only the pin speaks for the panel. A caller
                // that named none (a script giving an address) is checked
                // against the name the certificate gives, before hello.
                const QString name = panel.name.isEmpty() ? channel->peerCommonName() : panel.name;
                if (const std::optional<QString> conflict = pinConflict(name, key)) {
                    delete channel;
                    fail(*conflict);
                    return;
                }
            }

            auto attempt = std::make_shared<Attempt>();
            attempt->channel = channel;
            attempt->done = done;
            attempt->panel = panel;
            attempt->panel.expectedKey = key;  // reconnections must meet the same panel
            attempt->code = code;
            wire::Hello sent = hello;
            sent.set_auth(authFor(code));
            if (!code.isEmpty()) {
                attempt->proof = CodeProof::start(CPace::Role::Initiator, code, channel->exporter(),
                                                  channel->peerKeyHash(), channel->ownKeyHash());
                if (!attempt->proof) {
                    delete channel;
                    fail(QStringLiteral("no key exchange possible on this connection"));
                    return;
                }
                sent.set_pake_share(attempt->proof->share().toStdString());
            }

            channel->setParent(this);
            attempt->timeout.setSingleShot(true);
            connect(&attempt->timeout, &QTimer::timeout, this, [attempt] {
                attempt->channel->deleteLater();
                LoginResult result;
                result.error = zv_error::CONNECT_FAILED;
                result.detail = QStringLiteral("no answer to hello");
                result.panel = attempt->panel;
                attempt->finish(result);
            });
            connect(channel, &MessageChannel::messageReceived, this, [this, attempt](const wire::Envelope& envelope) {
                if (attempt->finished) return;
                if (m_answers.dispatch(envelope, *attempt) == Dispatch::Unexpected) {
                    LoginResult result;
                    result.error = zv_error::CONNECT_FAILED;
                    result.detail = QStringLiteral("protocol error: the panel answered hello with ") + bodyName(envelope);
                    ZV_LOG(WARNING) << " " << result.detail.toStdString();
                    attempt->fail(result);
                }
            });
            connect(channel, &MessageChannel::closed, this, [attempt](const QString& reason) {
                if (attempt->finished) return;
                attempt->channel->deleteLater();
                LoginResult result;
                result.error = zv_error::CONNECT_FAILED;
                result.detail = QStringLiteral("closed before answering: ") + reason;
                result.panel = attempt->panel;
                attempt->finish(result);
            });
            attempt->timeout.start(kAnswerTimeoutMs);
            channel->send(wrap(sent));
        });
}

Dispatch ClientSession::takeAnswer(MessageChannel* channel, const PanelAddress& panel, const wire::Envelope& envelope,
                                    LoginDone done) {
    Attempt attempt;
    attempt.channel = channel;
    attempt.panel = panel;
    attempt.done = std::move(done);
    return m_answers.dispatch(envelope, attempt);
}

void ClientSession::onPakeReply(Attempt& attempt, const wire::PakeReply& reply) {
    LoginResult result;
    if (!attempt.proof || attempt.confirmed) {
        result.error = zv_error::CONNECT_FAILED;
        result.detail = QStringLiteral("protocol error: a key exchange reply the PC did not ask for");
        ZV_LOG(WARNING) << " " << result.detail.toStdString();
        attempt.fail(result);
        return;
    }
    // The panel's tag first: nothing more goes out to a peer that has not
    // proved the code on this very connection.
    if (!attempt.proof->takePeerShare(QByteArray::fromStdString(reply.share())) ||
        !attempt.proof->verifyPeerTag(QByteArray::fromStdString(reply.tag()))) {
        result.error = zv_error::WRONG_CODE;
        result.refusedReason = wire::Refused::WRONG_CODE;
        result.detail = QStringLiteral("wrong code: the panel's proof does not match the code typed (or something "
                                       "between this PC and the panel is not the panel)");
        ZV_LOG(WARNING) << " " << result.detail.toStdString();
        attempt.channel->close(QStringLiteral("wrong code"));
        attempt.fail(result);
        return;
    }
    attempt.confirmed = true;
    wire::PakeConfirm confirm;
    confirm.set_tag(attempt.proof->ownTag().toStdString());
    attempt.channel->send(wrap(confirm));
}

std::optional<QString> ClientSession::pinConflict(const QString& name, const QString& key) const {
    if (name.isEmpty()) return std::nullopt;
    const std::optional<KnownPanels::Entry> pinned = m_knownPanels->byName(name);
    if (!pinned || pinned->key == key) return std::nullopt;
    return QStringLiteral("panel \"%1\" shows key %2, but this PC knows it with key %3. If it was "
                          "reinstalled, log in with the code it shows, or run "
                          "\"zelvanor-cli forget --panel '%1'\"")
        .arg(name, shortKeyId(key), shortKeyId(pinned->key));
}

void ClientSession::onWelcome(Attempt& attempt, const wire::Welcome& welcome) {
    if (attempt.proof && !attempt.confirmed) {
        LoginResult result;
        result.error = zv_error::CONNECT_FAILED;
        result.detail = QStringLiteral("protocol error: a welcome before the key exchange");
        ZV_LOG(WARNING) << " " << result.detail.toStdString();
        attempt.fail(result);
        return;
    }
    if (welcome.major() != uint32_t(kProtocolMajor)) {
        LoginResult result;
        result.error = zv_error::PANEL_VERSION_TOO_LOW;
        result.detail = QStringLiteral("panel speaks protocol %1.%2, this PC %3.%4")
                            .arg(welcome.major())
                            .arg(welcome.minor())
                            .arg(kProtocolMajor)
                            .arg(kProtocolMinor);
        ZV_LOG(WARNING) << " " << result.detail.toStdString();
        attempt.fail(result);
        return;
    }
    if (!attempt.proof) {
        // No code: the name the panel gives itself must not belong to a
        // panel this PC knows with another key (also when the caller named
        // no panel, as a script that gives only an address).
        const QString name = QString::fromStdString(welcome.panel().name());
        if (const std::optional<QString> conflict = pinConflict(name, attempt.panel.expectedKey)) {
            LoginResult result;
            result.error = zv_error::CONNECT_FAILED;
            result.detail = *conflict;
            ZV_LOG(WARNING) << " " << result.detail.toStdString();
            attempt.fail(result);
            return;
        }
    }
    disconnect(attempt.channel, nullptr, this, nullptr);
    m_panel = attempt.panel;
    if (m_panel.name.isEmpty()) m_panel.name = QString::fromStdString(welcome.panel().name());
    if (attempt.confirmed) {
        // The key exchange proved this key: pin it, with the code that worked.
        KnownPanels::Entry entry;
        entry.key = attempt.panel.expectedKey;
        entry.name = QString::fromStdString(welcome.panel().name());
        entry.address = attempt.panel.address;
        entry.port = attempt.panel.port;
        entry.code = attempt.code;
        m_knownPanels->remember(entry);
    }
    adopt(attempt.channel, welcome);
    LoginResult result;
    result.panel = m_panel;
    result.welcome = welcome;
    attempt.finish(result);
}

void ClientSession::onRefused(Attempt& attempt, const wire::Refused& refused) {
    LoginResult result;
    result.refusedReason = refused.reason();
    result.error = errorForRefusal(refused.reason());
    result.detail = QStringLiteral("refused: %1 %2")
                        .arg(refusedReasonName(refused.reason()), QString::fromStdString(refused.text()));
    ZV_LOG(WARNING) << " " << result.detail.toStdString();
    attempt.fail(result);
}

void ClientSession::adopt(MessageChannel* channel, const wire::Welcome& welcome) {
    dropChannel();
    m_channel = channel;
    m_welcome = welcome;
    m_hello.set_resume(welcome.resume());
    m_loggedIn = true;
    m_missed = 0;
    m_linkBrokenReported = false;
    m_deadLinkTimer.stop();
    connect(channel, &MessageChannel::messageReceived, this, &ClientSession::handle);
    connect(channel, &MessageChannel::heartbeatMissed, this, &ClientSession::onMissedBeats);
    connect(channel, &MessageChannel::alive, this, [this] {
        ZV_LOG(INFO) << " the panel answers again after " << m_missed << " missed heartbeats";
        m_missed = 0;
        m_linkBrokenReported = false;
    });
    connect(channel, &MessageChannel::closed, this, &ClientSession::onChannelClosed);
    // A heartbeat interval out of reason falls back to ours (the timer takes ms as int).
    const int beatMs = welcome.heartbeat_ms() >= 100 && welcome.heartbeat_ms() <= 60000 ? welcome.heartbeat_ms()
                                                                                        : kHeartbeatIntervalMs;
    channel->startHeartbeat(beatMs);
    ZV_LOG(INFO) << " logged in to \"" << welcome.panel().name() << "\", session " << welcome.session()
                 << (welcome.resumed() ? " (resumed)" : "");
}

Dispatch ClientSession::handle(const wire::Envelope& envelope) {
    const Dispatch result = m_dispatch.dispatch(envelope);
    if (result == Dispatch::Unexpected) {
        ZV_LOG(WARNING) << " the panel sent an unexpected " << bodyName(envelope).toStdString();
    }
    return result;
}

void ClientSession::onBye(const wire::Bye& bye) {
    const QString reason = bye.reason().empty() ? QStringLiteral("bye") : QString::fromStdString(bye.reason());
    ZV_LOG(INFO) << " the panel ended the session: " << reason.toStdString();
    endSession(reason);
    m_events.exception(NOTIFY_LOGOUT, [&](tagNotifyExceptionParams_& p) { copyReason(p, reason); });
}

void ClientSession::onMissedBeats(int count) {
    if (!m_loggedIn || m_reconnecting) return;
    m_missed = count;
    m_events.exception(NOTIFY_HEARTBEAT_MISSED, [count](tagNotifyExceptionParams_& p) { p.nSubCode = count; });
    if (count >= kLinkBrokenAfterMisses && !m_linkBrokenReported) {
        m_linkBrokenReported = true;
        ZV_LOG(WARNING) << " control link broken: " << count << " heartbeats missed";
        m_events.exception(NOTIFY_CONTROL_LINK_BROKEN, [count](tagNotifyExceptionParams_& p) { p.nSubCode = count; });
    }
    if (count >= kGiveUpAfterMisses) {
        ZV_LOG(WARNING) << " no sign of the panel for " << count << " s: session over";
        endSession(QStringLiteral("linkLost"));
        m_events.exception(NOTIFY_LOGOUT, [](tagNotifyExceptionParams_& p) { copyReason(p, QStringLiteral("linkLost")); });
    }
}

void ClientSession::onChannelClosed(const QString& reason) {
    ZV_LOG(WARNING) << " control channel closed: " << reason.toStdString();
    if (m_channel != nullptr) m_channel->deleteLater();
    m_channel = nullptr;
    if (!m_loggedIn) return;
    // No channel, no heartbeats: count the silence ourselves.
    if (!m_linkBrokenReported && !m_reconnecting) {
        m_linkBrokenReported = true;
        m_events.exception(NOTIFY_CONTROL_LINK_BROKEN, [this](tagNotifyExceptionParams_& p) { p.nSubCode = m_missed; });
    }
    m_deadLinkTimer.start();
}

void ClientSession::reconnect(ReconnectDone done) {
    if (!m_loggedIn) {
        done(false);
        return;
    }
    dropChannel();
    const quint64 generation = m_generation;
    connectTo(m_panel, m_hello, QString(), [this, generation, done](const LoginResult& result) {
        if (generation != m_generation || !m_loggedIn) return done(false);
        if (result.error == 0) return done(true);
        if (result.refusedReason == wire::Refused::LOG_OUT_BY_SERVER) {
            // Removed while the link was down: the session is over, as if the bye had come.
            endSession(kLogOutByServer);
            m_events.exception(NOTIFY_LOGOUT, [](tagNotifyExceptionParams_& p) { copyReason(p, kLogOutByServer); });
            return done(false);
        }
        if (result.refusedReason != wire::Refused::UNKNOWN_SESSION) return done(false);
        // The panel no longer keeps our session: a fresh hello, same panel.
        wire::Hello fresh = m_hello;
        fresh.clear_resume();
        connectTo(m_panel, fresh, QString(), [this, generation, done](const LoginResult& second) {
            done(generation == m_generation && m_loggedIn && second.error == 0);
        });
    });
}

bool ClientSession::ensureIdentity() {
    if (!m_credentials.isNull()) return true;
    const QString folder = QFileInfo(m_knownPanels->path()).absolutePath();
    QString error;
    const std::optional<TlsIdentity> identity =
        loadOrCreateTlsIdentity(folder, QHostInfo::localHostName(), kPcIdentity, &error);
    if (!identity) {
        ZV_LOG(ERROR) << " no TLS identity for this PC in " << folder.toStdString() << ": " << error.toStdString();
        return false;
    }
    m_credentials = TlsCredentials::of(identity->privateKey, identity->certificate);
    m_ownKeyId = identity->keyId;
    ZV_LOG(INFO) << " this PC's key: " << m_ownKeyId.toStdString();
    return true;
}

keys::Exporter ClientSession::exporter() const {
    if (m_channel != nullptr) return m_channel->exporter();
    return [](const QByteArray&, const QByteArray&, int) { return QByteArray(); };
}

void ClientSession::send(const wire::Envelope& envelope) {
    if (m_channel != nullptr) m_channel->send(envelope);
}

void ClientSession::logout() {
    ++m_generation;
    if (m_channel != nullptr) {
        MessageChannel* channel = m_channel;
        m_channel = nullptr;
        disconnect(channel, nullptr, this, nullptr);
        wire::Bye bye;
        bye.set_reason("logOut");
        channel->send(wrap(bye));
        channel->flush();  // the bye goes out even if the thread ends next
        connect(channel, &MessageChannel::closed, channel, &QObject::deleteLater);
        channel->close(QStringLiteral("logged out"));
    }
    const bool wasLoggedIn = m_loggedIn;
    if (wasLoggedIn) ZV_LOG(INFO) << " logged out";
    m_loggedIn = false;
    m_deadLinkTimer.stop();
    if (wasLoggedIn) emit ended();
}

void ClientSession::dropChannel() {
    if (m_channel == nullptr) return;
    MessageChannel* channel = m_channel;
    m_channel = nullptr;
    disconnect(channel, nullptr, this, nullptr);
    channel->deleteLater();
}

void ClientSession::endSession(const QString& reason) {
    ZV_LOG(INFO) << " session over: " << reason.toStdString();
    ++m_generation;
    m_loggedIn = false;
    m_deadLinkTimer.stop();
    dropChannel();
    emit ended();
}

}  // namespace zv
