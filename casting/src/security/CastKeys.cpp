#include "security/CastKeys.h"

namespace zv::keys {

namespace {

std::vector<uint8_t> joined(const MediaKey& key) {
    const QByteArray bytes = key.key + key.salt;
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

}  // namespace

std::optional<CastKeys> castKeys(const Exporter& exporter, quint32 castId, CastSide side) {
    const auto pcToPanel = mediaKey(exporter, castId, MediaDirection::PcToPanel);
    const auto panelToPc = mediaKey(exporter, castId, MediaDirection::PanelToPc);
    const QByteArray srt = srtPassphrase(exporter, castId);
    if (!pcToPanel || !panelToPc || srt.isEmpty()) return std::nullopt;
    CastKeys keys;
    keys.sendKey = joined(side == CastSide::Pc ? *pcToPanel : *panelToPc);
    keys.receiveKey = joined(side == CastSide::Pc ? *panelToPc : *pcToPanel);
    keys.srtPassphrase = srt.toStdString();
    return keys;
}

}  // namespace zv::keys
