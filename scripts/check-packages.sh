#!/usr/bin/env bash
# Builds the Debian packages, installs them with apt (root) and starts each
# installed program once: the client and the receiver without a display
# (--help, --version), the receiver headless for a moment, the passcode
# service and the CLI. Used by run-tests.sh on CI; ZV_SKIP_PACKAGES=1 leaves it out.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD_DIR=${ZV_BUILD_DIR:-build}
if [ "$(id -u)" -ne 0 ]; then
  echo "check-packages: needs root to install the packages; skipped"
  exit 0
fi
bash scripts/build-packages.sh
DEBIAN_FRONTEND=noninteractive apt-get install -y --reinstall "./$BUILD_DIR"/zelvanor*.deb

HOME_DIR=$(mktemp -d /tmp/zv-packages-XXXXXX)
trap 'rm -rf "$HOME_DIR"' EXIT
run() { echo "+ $*"; env -u DISPLAY HOME="$HOME_DIR" XDG_CONFIG_HOME="$HOME_DIR/.config" "$@"; }

run /usr/bin/zelvanor-receiver --help >/dev/null
run /usr/bin/zelvanor-receiver --version
run /usr/bin/zelvanor-passcode --help >/dev/null
run /usr/bin/zelvanor-cli --help >/dev/null
test -f /usr/lib/zelvanor/translation/orvixupgrade_de.qm
test -f /usr/share/xsessions/zelvanor-kiosk.desktop
test -f /etc/zelvanor/receiver.conf
getent passwd zelvanor-passcode >/dev/null
# Starts a program, waits until its output shows pattern (at most 20 s), then
# stops it with SIGTERM; fails when the pattern never came.
until_line() {
  local pattern=$1; shift
  local out="$HOME_DIR/out.txt"
  echo "+ $* (until $pattern)"
  env -u DISPLAY HOME="$HOME_DIR" XDG_CONFIG_HOME="$HOME_DIR/.config" QT_QPA_PLATFORM=offscreen \
    unshare --net "$@" >"$out" 2>&1 &
  local pid=$! i
  for i in $(seq 200); do
    grep -q "$pattern" "$out" && break
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  kill -TERM "$pid" 2>/dev/null || true
  wait "$pid" || true
  grep -q "$pattern" "$out" || { echo "no '$pattern' from $1:"; cat "$out"; return 1; }
}
until_line '"event":"ready"' /usr/bin/zelvanor-receiver --headless --no-discovery --port 0 \
  --config /etc/zelvanor/receiver.conf
until_line '"event":"ready"' /usr/bin/zelvanor-passcode --port 0 --data "$HOME_DIR/passcode"
# The client has no status lines: it is up once its log names its folder.
until_line 'logging to' sh -c 'exec /usr/bin/zelvanor 2>&1 & pid=$!; \
  while ! grep -qs "logging to" "$HOME/Zelvanor/Zelvanor/Logs/zelvanor.INFO"; do sleep 0.1; done; \
  echo logging to; kill -TERM $pid; wait $pid'
echo "packages: installed and started"
