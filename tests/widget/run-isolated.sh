#!/bin/sh
# Runs one widget test. As root, and where unshare(1) can make a network
# namespace, the test runs inside a namespace of its own whose only network
# is a veth pair with a private address: the main window starts LAN
# discovery, which must stay off the host's network in tests, and a test can
# take that interface down to see the client without a network. Elsewhere the
# test runs as it is.
if [ "$(id -u)" = 0 ] && command -v unshare >/dev/null 2>&1 && command -v ip >/dev/null 2>&1 \
    && unshare --net true 2>/dev/null; then
  exec unshare --net sh -c '
    ip link set lo up &&
    ip link add zvtest0 type veth peer name zvtest1 &&
    ip addr add 10.250.0.2/24 dev zvtest0 &&
    ip link set zvtest1 up &&
    ip link set zvtest0 up &&
    ZV_TEST_NETNS_INTERFACE=zvtest0 exec "$@"' sh "$@"
fi
exec "$@"
