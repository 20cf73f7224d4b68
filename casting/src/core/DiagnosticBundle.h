// The diagnostic bundle a user sends to support: a .tar.gz with the logs,
// the settings as text and the casting conditions of this PC. Never key
// material: no private keys or certificates, no known panels, no pinned
// passcode services.
#pragma once

#include <string>

namespace zv {

struct DiagnosticSources {
    std::string logDir;        // every regular file in it goes into logs/
    std::string settingsPath;  // the settings database, written out as settings.txt
};

DiagnosticSources defaultDiagnosticSources();

// Writes the bundle to outPath; false and the reason in *error otherwise.
bool saveDiagnosticBundle(const std::string& outPath, const DiagnosticSources& sources, std::string* error);

}  // namespace zv
