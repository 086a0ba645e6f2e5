#!/bin/sh
# Installs the Debian packages the build needs; does nothing when they are
# already there. Needs root (or sudo) only when something is missing.
set -eu
# libsystemd-dev: socket activation and readiness in devicedetectd; scdoc,
# groff-base, man-db, gzip: the man pages; systemd: systemd-socket-activate
# and systemd-analyze for the tests; dpkg-dev, file, binutils: CPack's
# Debian packages (dpkg-shlibdeps, readelf); tshark: the capture test.
packages="cmake ninja-build g++ clang make pkg-config libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev
libsystemd-dev scdoc groff-base man-db gzip systemd dpkg-dev file binutils tshark"
missing=""
for p in $packages; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done
[ -z "$missing" ] && exit 0
echo "installing:$missing" >&2
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
# tshark (the capture test reads captures with it) would otherwise ask
# whether ordinary users may capture packets; they need not.
echo "wireshark-common wireshark-common/install-setuid boolean false" | $SUDO debconf-set-selections
$SUDO apt-get update -qq
# shellcheck disable=SC2086
$SUDO apt-get install -y -qq $missing >/dev/null
