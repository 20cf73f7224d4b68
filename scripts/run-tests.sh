#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test suite.
# End-to-end suites create network namespaces and need root (CI runs as root);
# as another user they are skipped with a message.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
BUILD_DIR=${ZV_BUILD_DIR:-build}

export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
# Tests get a home of their own: logs and settings never touch the user's.
TEST_HOME=$(mktemp -d /tmp/zv-test-home-XXXXXX)
trap 'rm -rf "$TEST_HOME"' EXIT
export HOME="$TEST_HOME" XDG_CONFIG_HOME="$TEST_HOME/.config"

# Unit, widget and X11 suites two at a time; the end-to-end suites (network
# namespaces, real receivers, media) one at a time, so their timing is not
# at the mercy of whatever else the two cores are doing.
ctest --test-dir "$BUILD_DIR" --output-on-failure --timeout 300 -j 2 -LE e2e "$@"
ctest --test-dir "$BUILD_DIR" --output-on-failure --timeout 300 -j 1 -L e2e "$@"

# The Debian packages: built, installed with apt and each program started once
# (root only; ZV_SKIP_PACKAGES=1 leaves it out). Nothing is ever rerun: a
# failure above already ended the run.
if [ "${ZV_SKIP_PACKAGES:-0}" != 1 ]; then
  bash scripts/check-packages.sh
fi

# The unit suites and fuzz targets again, built with clang under AddressSanitizer
# and UndefinedBehaviorSanitizer (build-asan/). ZV_SKIP_SANITIZED=1 leaves them out.
if [ "${ZV_SKIP_SANITIZED:-0}" != 1 ]; then
  bash scripts/run-sanitized-tests.sh
fi
