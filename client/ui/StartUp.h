// Start-up helpers called by main() before the event loop runs.
#pragma once

// True when at least one other process whose command line contains the
// application name runs ("pgrep -f" through bash, at most 30 s). A missing
// bash or pgrep, or a time-out, gives false.
bool IsAlreadyRunning();

// Chooses the interface language from LANG, sets g_strLanguage and installs
// the translator for it.
void loadTranslation();

// Does the work of loadTranslation(): loads "orvixupgrade_<code>.qm" from
// <application dir>/../translation/ and installs it, whether or not the file
// could be read (an unread file leaves the source texts in place).
void loadSystemTranslation();

// Hook for local data; the settings store lives in the casting library, so
// there is nothing to open here.
void loadSQLDb();
