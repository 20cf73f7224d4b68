#!/usr/bin/env bash
# Installs everything Zelvanor needs to build, run and test on Debian 12.
# Idempotent: packages already present are left alone. Needs root (or sudo).
set -euo pipefail

PACKAGES=(
  # toolchain
  build-essential cmake ninja-build pkg-config git clang
  # Qt 5 (widgets client, receiver, translations, SVG icons, TLS through OpenSSL)
  qtbase5-dev qtbase5-dev-tools qttools5-dev qttools5-dev-tools libqt5svg5-dev
  libqt5opengl5-dev
  # logging, settings store, TLS key generation, tests, benchmarks
  libgoogle-glog-dev libsqlite3-dev libssl-dev libgtest-dev libgmock-dev libbenchmark-dev
  # wire schema, key exchange over the connect code, media encryption (srtpenc/srtpdec)
  libprotobuf-dev protobuf-compiler libsodium-dev libsrtp2-dev
  # passcode service shared by several instances: Redis and its C client
  redis-server libhiredis-dev
  # e2e attack tests: telling Opus in a packet capture
  libopus-dev
  # X11: capture, input injection, monitors
  libx11-dev libxext-dev libxtst-dev libxfixes-dev libxrandr-dev libxdamage-dev libxrender-dev
  # GStreamer: capture, encoding, transports, decoding
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstreamer-plugins-bad1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good
  gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav gstreamer1.0-x
  gstreamer1.0-pulseaudio
  # DNS-SD
  libavahi-client-dev libavahi-core-dev libavahi-common-dev avahi-daemon avahi-utils dbus
  # test and benchmark helpers: virtual display, window manager, sound server, network
  xvfb openbox x11-utils x11-apps x11-xserver-utils xdotool wmctrl pulseaudio iproute2 iputils-ping
  ffmpeg procps python3
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

echo "install-deps: installing ${#missing[@]} packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -q
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
