#!/usr/bin/env bash
# The main job on one machine: builds as needed, starts a receiver in a
# window, then the client pointed at it. Without a display it starts a
# virtual one (Xvfb) and says so.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
BIN=${ZV_BUILD_DIR:-build}/bin

pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT

if [ -z "${DISPLAY:-}" ]; then
  Xvfb :57 -screen 0 1920x1080x24 -nolisten tcp & pids+=($!)
  export DISPLAY=:57
  sleep 1
  openbox --sm-disable & pids+=($!)
  echo "No display: running on the virtual display :57 (take a look with: xwd -root -display :57)"
fi

"$BIN/zelvanor-receiver" --windowed --name "Demo panel" & pids+=($!)
sleep 1
"$BIN/zelvanor" 127.0.0.1
