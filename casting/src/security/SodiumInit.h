// libsodium must be initialised once before use (it picks its code paths and
// opens the random source). Callable from any thread, any number of times.
#pragma once

namespace zv {

// True once libsodium is ready; false (logged) if it cannot start.
bool ensureSodium();

}  // namespace zv
