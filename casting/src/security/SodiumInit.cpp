#include "security/SodiumInit.h"

#include <sodium.h>

#include "casting/Log.h"

namespace zv {

bool ensureSodium() {
    // sodium_init() is itself thread-safe and returns 1 when already done.
    static const bool ready = [] {
        if (sodium_init() < 0) {
            ZV_LOG(ERROR) << " libsodium cannot start";
            return false;
        }
        return true;
    }();
    return ready;
}

}  // namespace zv
