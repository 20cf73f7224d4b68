// How a panel lets PCs in, as its discovery record says (TXT "access"):
// anyone, after its user approves, or with the connect code.
#pragma once

#include <optional>
#include <string>

namespace zv {

enum class PanelAccess {
    Open = 1,     // "open": any PC on the LAN may connect
    Approve = 2,  // "approve": the panel's user accepts each PC
    Code = 3,     // "code": the PC must know the connect code
};

inline const char* panelAccessText(PanelAccess access) {
    switch (access) {
    case PanelAccess::Open: return "open";
    case PanelAccess::Approve: return "approve";
    case PanelAccess::Code: return "code";
    }
    return "code";
}

// Nullopt for anything else (a newer panel's mode, or none announced).
inline std::optional<PanelAccess> panelAccessFromText(const std::string& text) {
    if (text == "open") return PanelAccess::Open;
    if (text == "approve") return PanelAccess::Approve;
    if (text == "code") return PanelAccess::Code;
    return std::nullopt;
}

}  // namespace zv
