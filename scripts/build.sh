#!/usr/bin/env bash
# Configures and builds Zelvanor into build/ (or $ZV_BUILD_DIR).
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${ZV_BUILD_DIR:-build}
if [ ! -f "$BUILD_DIR/build.ninja" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DZELVANOR_WERROR=ON "$@"
fi
cmake --build "$BUILD_DIR" -j "$(nproc)"
