// Process-wide values shared by the client's widgets.
#pragma once

#include <QString>

#include <string>

// English name of the interface language, set once at start-up (see
// loadSystemTranslation). Widgets compare it with literal names; "Arabic" and
// "Hebrew" mean right-to-left placement.
extern std::string g_strLanguage;

// A second language word, "English" from start-up on.
extern QString wordtype;

// Panel platform names. Each source file including this header gets its own
// copy of the constants.
namespace platname {
const std::string plat_p65a = "ZV-P65A";
const std::string plat_p75a = "ZV-P75A";
const std::string plat_p86a = "ZV-P86A";
const std::string plat_p98a = "ZV-P98A";
const std::string plat_t65b = "ZV-T65B";
const std::string plat_t86b = "ZV-T86B";
const std::string plat_m110c = "ZV-M110C";
const std::string plat_common_ops = "COMMON_OPS";
const std::string plat_special_ops = "SPECIAL_OPS";
}  // namespace platname
