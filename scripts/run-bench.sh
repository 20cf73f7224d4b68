#!/usr/bin/env bash
# Builds and runs the benchmarks; each prints its table.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
BIN=${ZV_BUILD_DIR:-build}/bin
"$BIN/bench_settings_store" --benchmark_min_time=0.2
"$BIN/bench_login" 30
"$BIN/bench_cast_start" 10
"$BIN/bench_media_latency" --json "${ZV_BUILD_DIR:-build}/bench_media_latency.json"
"$BIN/bench_client_cpu" --seconds 20
