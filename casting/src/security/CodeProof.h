// One side of the log-in's key exchange over the code (docs/protocol.md,
// "Log-in"): CPace with sid from the control connection's TLS exporter, CI
// from both certificate keys and the normalised code as password, then the
// key confirmation tags. A relay that terminates TLS on each side has other
// exporters and other keys on each, so it cannot complete the exchange even
// with the right code; a wrong code shows as a tag that does not verify.
//
// Threads: plain data, used by one thread at a time.
#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

#include "security/CPace.h"
#include "security/KeySchedule.h"

namespace zv {

class CodeProof {
public:
    // role Initiator: the PC; Responder: the panel. The key hashes are the
    // raw 32-byte SHA-256 of each side's certificate key as this connection
    // shows them. nullopt when the exporter gives nothing or a hash is not
    // 32 bytes.
    static std::optional<CodeProof> start(CPace::Role role, const QString& code, const keys::Exporter& exporter,
                                          const QByteArray& panelKeyHash, const QByteArray& pcKeyHash);

    QByteArray share() const { return m_cpace.share(); }
    // Takes the peer's share; false when it is no valid share (the peer
    // failed). Works once.
    bool takePeerShare(const QByteArray& peerShare);
    // Our tag, after takePeerShare.
    QByteArray ownTag() const;
    // Whether the peer's tag proves the same code on both ends of this very
    // connection; false before takePeerShare.
    bool verifyPeerTag(const QByteArray& tag) const;
    bool hasKey() const { return !m_isk.isEmpty(); }

private:
    explicit CodeProof(CPace cpace) : m_cpace(std::move(cpace)) {}

    CPace m_cpace;
    QByteArray m_isk;
};

}  // namespace zv
