// Hands each received envelope to the handler registered for its body.
// Every part that reads messages (session, cast, panel, passcode service and
// its clients) keeps one and registers a handler per message it takes; what
// a handler gets is already a typed message, so its job is only the
// message's meaning (range checks included).
//
// An envelope whose body this build does not know (a newer peer) is logged
// and skipped. A known body without a handler here is the caller's to
// judge (usually a protocol error: the message does not belong on this
// channel, or not now). Context is what the owner passes along with each
// envelope, e.g. the client it came from.
#pragma once

#include <QString>

#include <functional>
#include <unordered_map>

#include "proto/envelope.pb.h"

namespace zv {

using BodyCase = wire::Envelope::BodyCase;

enum class Dispatch {
    Handled,     // a handler ran
    Skipped,     // a body unknown to this build; logged
    Unexpected,  // a body we know, but nothing here takes it
};

namespace detail {
void logSkippedBody(const QString& owner, const wire::Envelope& envelope);
}

template <typename... Context>
class MessageDispatcher {
public:
    using Handler = std::function<void(const wire::Envelope& envelope, Context... context)>;

    // owner names the reader in the log line of a skipped body.
    explicit MessageDispatcher(QString owner) : m_owner(std::move(owner)) {}

    // Registers (or replaces) the handler of one body.
    void on(BodyCase body, Handler handler) { m_handlers[body] = std::move(handler); }
    bool handles(BodyCase body) const { return m_handlers.count(body) != 0; }

    Dispatch dispatch(const wire::Envelope& envelope, Context... context) const {
        if (envelope.body_case() == wire::Envelope::BODY_NOT_SET) {
            detail::logSkippedBody(m_owner, envelope);
            return Dispatch::Skipped;
        }
        const auto it = m_handlers.find(envelope.body_case());
        if (it == m_handlers.end()) return Dispatch::Unexpected;
        // A copy: the handler may replace itself or end its owner's state.
        const Handler handler = it->second;
        handler(envelope, context...);
        return Dispatch::Handled;
    }

private:
    QString m_owner;
    std::unordered_map<BodyCase, Handler> m_handlers;
};

}  // namespace zv
