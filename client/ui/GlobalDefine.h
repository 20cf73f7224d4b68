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

// How the window that is being cast is doing; carried by queued signals.
enum ScreeningWindowStatus : int {
    WindowScreenNormal = 0,
    WindowScreenSourceAbnormal = 1,  // its capture source failed
    WindowScreenMinimized = 4,
    WindowScreenClosed = 5,
};

// Which resource of the PC is under high load while a cast runs.
enum HighUsageTipType : int {
    HighCpuUsage = 1,
    HighMemoryUsage = 2,
    HighCpuAndMemoryUsage = 3,
};

// True for the interface languages laid out right to left.
inline bool isRightToLeftLanguage() { return g_strLanguage == "Arabic" || g_strLanguage == "Hebrew"; }

