#!/usr/bin/env bash
# The main job on one machine: builds as needed, starts a receiver in a
# window, casts this screen to it, and opens the desktop client. Without a
# display it starts a virtual one (Xvfb) and says how to look at it.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
bash scripts/build.sh
BIN=$(cd "${ZV_BUILD_DIR:-build}/bin" && pwd)
STATE=$(mktemp -d /tmp/zv-demo-XXXXXX)

pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; }
trap cleanup EXIT

if [ -z "${DISPLAY:-}" ]; then
  Xvfb :57 -screen 0 1920x1080x24 -nolisten tcp & pids+=($!)
  export DISPLAY=:57
  for _ in $(seq 50); do xdpyinfo >/dev/null 2>&1 && break; sleep 0.1; done
  openbox --sm-disable & pids+=($!)
  echo "No display: running on the virtual display :57"
  echo "  look at it: xwd -root -silent -display :57 | ffmpeg -loglevel error -f xwd_pipe -i - /tmp/zelvanor-demo.png"
fi

# The receiver prints JSON status lines; the first says it is ready.
"$BIN/zelvanor-receiver" --windowed --name "Demo panel" --no-discovery > "$STATE/receiver.out" & pids+=($!)
for _ in $(seq 100); do grep -q '"ready"' "$STATE/receiver.out" 2>/dev/null && break; sleep 0.1; done
grep '"ready"' "$STATE/receiver.out" || { echo "the receiver did not start"; exit 1; }
port=$(sed -n 's/.*"port":\([0-9]*\).*/\1/p' "$STATE/receiver.out" | head -1)
# The code the panel shows proves both ends to each other (key exchange).
code=$(sed -n 's/.*"code":"\([0-9A-Z]*\)".*/\1/p' "$STATE/receiver.out" | head -1)

echo "Casting this screen to the receiver for 10 minutes (zelvanor-cli cast)..."
"$BIN/zelvanor-cli" cast --address "127.0.0.1:$port" --code "$code" --protocol udp --seconds 600 < /dev/null & pids+=($!)

echo "Opening the client; close its window to end the demo."
"$BIN/zelvanor"
