#!/usr/bin/env bash
# Builds the Debian packages into build/ (or $ZV_BUILD_DIR): zelvanor (client
# and CLI), zelvanor-receiver, zelvanor-passcode and zelvanor-common (the
# casting library they share). Install them with: apt-get install ./build/*.deb
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${ZV_BUILD_DIR:-build}
bash scripts/build.sh
rm -f "$BUILD_DIR"/zelvanor*.deb
(cd "$BUILD_DIR" && cpack -G DEB)
ls -l "$BUILD_DIR"/zelvanor*.deb
