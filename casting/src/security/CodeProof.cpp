#include "security/CodeProof.h"

#include "security/KeyConfirmation.h"
#include "security/KeyId.h"

namespace zv {

std::optional<CodeProof> CodeProof::start(CPace::Role role, const QString& code, const keys::Exporter& exporter,
                                          const QByteArray& panelKeyHash, const QByteArray& pcKeyHash) {
    if (panelKeyHash.size() != kKeyHashBytes || pcKeyHash.size() != kKeyHashBytes) return std::nullopt;
    const QByteArray sid = keys::cpaceSid(exporter);
    if (sid.isEmpty()) return std::nullopt;
    return CodeProof(CPace::start(role, keys::cpacePassword(code), keys::cpaceChannelId(panelKeyHash, pcKeyHash), sid,
                                  QByteArray()));
}

bool CodeProof::takePeerShare(const QByteArray& peerShare) {
    if (!m_isk.isEmpty()) return false;
    const std::optional<QByteArray> isk = m_cpace.finish(peerShare, QByteArray());
    if (!isk) return false;
    m_isk = *isk;
    return true;
}

QByteArray CodeProof::ownTag() const {
    if (m_isk.isEmpty()) return {};
    return confirmationTag(m_isk, m_cpace.role(), m_cpace.transcript());
}

bool CodeProof::verifyPeerTag(const QByteArray& tag) const {
    if (m_isk.isEmpty()) return false;
    const CPace::Role peer = m_cpace.role() == CPace::Role::Initiator ? CPace::Role::Responder : CPace::Role::Initiator;
    return verifyConfirmationTag(m_isk, peer, m_cpace.transcript(), tag);
}

}  // namespace zv
