// The verbs of zelvanor-cli. Each returns the process exit code.
#pragma once

#include <QStringList>

namespace cli {

int runDiscover(const QStringList& arguments);
int runLogin(const QStringList& arguments);
int runCast(const QStringList& arguments);
int runForget(const QStringList& arguments);
int runDiagnostics(const QStringList& arguments);

}  // namespace cli
