// Opening the settings file and bringing it to this release's layout:
// missing columns are added with their defaults, extra rows dropped, the
// schema version raised. A damaged file is kept aside under a new name and
// replaced by a fresh one; a file that cannot be written is read into memory
// so its values still apply for this run. Internal to the casting library.
#pragma once

#include <sqlite3.h>

#include <string>

namespace zv::settings {

struct OpenedStore {
    sqlite3* db = nullptr;    // null only when not even a memory database could be made
    bool persistent = false;  // false: db is in memory, nothing is saved this run
};

// Opens (creating its folder and the file as needed) and prepares the store
// at path; logs what it had to do. The caller owns the connection.
OpenedStore openStore(const std::string& path);

}  // namespace zv::settings
