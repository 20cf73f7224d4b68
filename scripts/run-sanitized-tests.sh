#!/usr/bin/env bash
# Builds the unit suites and the fuzz targets with clang, AddressSanitizer and
# UndefinedBehaviorSanitizer into build-asan/ (or $ZV_ASAN_BUILD_DIR), then
# runs the "unit" label and each libFuzzer target for $ZV_FUZZ_SECONDS
# (default 60) from its samples. Only those targets are built, to keep CI
# time down. Any sanitizer report fails the test that caused it.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${ZV_ASAN_BUILD_DIR:-build-asan}
FUZZ_SECONDS=${ZV_FUZZ_SECONDS:-60}
started=$(date +%s)

if ! command -v clang++ >/dev/null 2>&1; then
  echo "run-sanitized-tests: clang++ is missing (scripts/install-deps.sh installs it)" >&2
  exit 1
fi

# The programs that discovery runs at build time (gtest listing) are
# sanitized too: the options apply from here on.
# Whole allocation stacks (fast_unwind_on_malloc=0): Qt has no frame pointers,
# and the leak suppressions name Qt functions deep in the stack.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:fast_unwind_on_malloc=0:detect_stack_use_after_return=1:check_initialization_order=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/scripts/sanitizer-suppressions/lsan.supp:print_suppressions=0}

cmake -S . -B "$BUILD_DIR" -G Ninja \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DZELVANOR_SANITIZE=ON -DZELVANOR_WERROR=ON -DZELVANOR_BUILD_BENCH=OFF \
  -DZELVANOR_FUZZ_SECONDS="$FUZZ_SECONDS" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)" --target tests/unit/all tests/fuzz/all
built=$(date +%s)

export QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen}
TEST_HOME=$(mktemp -d /tmp/zv-asan-home-XXXXXX)
trap 'rm -rf "$TEST_HOME"' EXIT
export HOME="$TEST_HOME" XDG_CONFIG_HOME="$TEST_HOME/.config"

status=0
echo "== sanitized unit suites"
ctest --test-dir "$BUILD_DIR" --output-on-failure --timeout 300 -j 2 -L unit || status=1
echo "== fuzz targets, ${FUZZ_SECONDS} s each"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j 2 -L fuzz || status=1

finished=$(date +%s)
echo "run-sanitized-tests: build $((built - started)) s, tests $((finished - built)) s"
exit $status
