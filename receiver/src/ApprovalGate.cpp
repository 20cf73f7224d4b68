#include "ApprovalGate.h"

#include <algorithm>

#include "PanelService.h"
#include "casting/Log.h"

namespace receiver {

QString ApprovalGate::kindName(Kind kind) {
    switch (kind) {
        case Kind::Cast: return QStringLiteral("cast");
        case Kind::Share: return QStringLiteral("share");
        case Kind::File: return QStringLiteral("file");
        case Kind::Devices: return QStringLiteral("devices");
    }
    return QString();
}

ApprovalGate::ApprovalGate(PanelService* panel, QObject* parent) : QObject(parent), m_panel(panel) {
    connect(m_panel, &PanelService::clientLeft, this, [this](const ClientInfo& client, const QString&) {
        m_waiting.erase(std::remove_if(m_waiting.begin(), m_waiting.end(),
                                       [&](const Waiting& w) { return w.client == client.id; }),
                        m_waiting.end());
    });
}

bool ApprovalGate::admit(qint64 client, Kind kind, bool alwaysAsk, Decision decide) {
    if (!alwaysAsk && m_panel->isApproved(client)) return true;
    // A repeated request replaces the one already waiting: one question per PC and kind.
    withdraw(client, kind);
    m_waiting.push_back({client, kind, std::move(decide)});
    QString host;
    for (const ClientInfo& info : m_panel->clients()) {
        if (info.id == client) host = info.host;
    }
    ZV_LOG(INFO) << " client " << client << " (" << host.toStdString() << ") waits for the panel's user: "
                 << kindName(kind).toStdString();
    emit approvalNeeded(client, host, kind);
    return false;
}

bool ApprovalGate::answer(qint64 client, bool approved) {
    const auto first = std::find_if(m_waiting.begin(), m_waiting.end(), [&](const Waiting& w) { return w.client == client; });
    if (client == 0 || first == m_waiting.end()) return false;
    ZV_LOG(INFO) << " the panel's user " << (approved ? "allowed" : "refused") << " client " << client;
    std::vector<Waiting> decided;
    if (approved) {
        m_panel->approve(client);
        for (auto it = m_waiting.begin(); it != m_waiting.end();) {
            if (it->client == client) {
                decided.push_back(std::move(*it));
                it = m_waiting.erase(it);
            } else {
                ++it;
            }
        }
    } else {
        decided.push_back(std::move(*first));
        m_waiting.erase(first);
    }
    // Decisions may admit again (a new request): run them after the list is settled.
    for (Waiting& w : decided) w.decide(approved);
    return true;
}

void ApprovalGate::withdraw(qint64 client, Kind kind) {
    m_waiting.erase(std::remove_if(m_waiting.begin(), m_waiting.end(),
                                   [&](const Waiting& w) { return w.client == client && w.kind == kind; }),
                    m_waiting.end());
}

bool ApprovalGate::isWaiting(qint64 client, Kind kind) const {
    return std::any_of(m_waiting.begin(), m_waiting.end(),
                       [&](const Waiting& w) { return w.client == client && w.kind == kind; });
}

}  // namespace receiver
