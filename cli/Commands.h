// The verbs of zelvanor-cli. Each returns the process exit code.
#pragma once

#include <QStringList>

namespace cli {

int runDiscover(const QStringList& arguments);
int runLogin(const QStringList& arguments);
int runCast(const QStringList& arguments);
int runForget(const QStringList& arguments);
int runReverse(const QStringList& arguments);
int runSettings(const QStringList& arguments);
int runNetTest(const QStringList& arguments);
int runFile(const QStringList& arguments);
int runWindows(const QStringList& arguments);
int runDiagnostics(const QStringList& arguments);
int runByom(const QStringList& arguments);

}  // namespace cli
