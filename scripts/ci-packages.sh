#!/usr/bin/env bash
# The Debian packages, end to end: builds them with CPack from a release
# build, checks them with lintian (no errors allowed) and their contents,
# installs them with `apt-get install ./*.deb`, runs `devicedetect demo` and
# the installed man pages, builds and runs examples/app against the
# installed -dev package (scripts/ci-example.sh --installed /usr), and
# removes the packages again.
#
#   scripts/ci-packages.sh [BUILD_DIR]     (default: build/release)
#
# It installs into the system: run it as root on a machine of its own (CI).
# The build folder is configured with the release preset when it is missing,
# and only what the packages hold is built.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build/release}
case $build in /*) ;; *) build=$root/$build ;; esac
[ "$(id -u)" -eq 0 ] || { echo "ci-packages: installs packages into the system; run as root" >&2; exit 1; }
export DEBIAN_FRONTEND=noninteractive

packages=(libtavik-platform0 libsyntavo-devicedetect-client0 libsyntavo-devicedetect-testing0
    libsyntavo-devicedetect-dev devicedetect)
installed=0
cleanup()
{
    if [ "$installed" -eq 1 ]; then
        apt-get purge -y -qq "${packages[@]}" >/dev/null || true
    fi
}
trap cleanup EXIT
fail() { echo "ci-packages: FAILED: $*" >&2; exit 1; }

if ! command -v lintian >/dev/null; then
    echo "== installing lintian"
    apt-get install -y -qq lintian >/dev/null || { apt-get update -qq && apt-get install -y -qq lintian >/dev/null; }
fi

echo "== build (release, packaged targets only)"
if [ ! -f "$build/CMakeCache.txt" ]; then
    (cd "$root" && cmake --preset release >/dev/null)
fi
cmake --build "$build" --target tavik_platform syntavo_devicedetect_client syntavo_devicedetect_testing \
    devicedetectd devicedetect dd_man dd_debian_changelog

echo "== cpack -G DEB"
out=$build/packages
rm -rf "$out"
(cd "$build" && cpack -G DEB -B "$out" >"$build/cpack.log") || { cat "$build/cpack.log"; fail "cpack"; }
debs=("$out"/*.deb)
[ "${#debs[@]}" -eq "${#packages[@]}" ] || fail "expected ${#packages[@]} packages, got: ${debs[*]##*/}"
for deb in "${debs[@]}"; do
    echo "$(dpkg-deb -f "$deb" Package) $(dpkg-deb -f "$deb" Version): $(dpkg-deb -f "$deb" Depends)"
done

# What must be where: the SONAME'd library alone in its package, the link
# and the headers in -dev, units, man pages and completion with the tools.
contains() # PACKAGE PATH...
{
    local deb=("$out/$1"_*.deb) path listing
    shift
    listing=$(dpkg-deb -c "${deb[0]}")
    for path in "$@"; do
        grep -qE " \./usr/$path\$" <<<"$listing" || fail "${deb[0]##*/} lacks /usr/$path"
    done
}
contains libtavik-platform0 'lib/libtavik_platform\.so\.0\.[0-9.]+' 'lib/libtavik_platform\.so\.0 -> .*'
contains libsyntavo-devicedetect-client0 'lib/libsyntavo_devicedetect_client\.so\.0 -> .*'
contains libsyntavo-devicedetect-dev 'lib/libsyntavo_devicedetect_client\.so -> .*' \
    'include/syntavo_devicedetect/device_detect_proxy\.h' 'lib/cmake/SyntavoDeviceDetect/SyntavoDeviceDetectConfig\.cmake' \
    'lib/pkgconfig/syntavo_devicedetect_client\.pc'
contains devicedetect 'bin/devicedetectd' 'bin/devicedetect' 'lib/systemd/user/devicedetectd\.socket' \
    'lib/systemd/user/devicedetectd\.service' 'share/man/man1/devicedetect\.1\.gz' 'share/man/man8/devicedetectd\.8\.gz' \
    'share/bash-completion/completions/devicedetect'

echo "== lintian"
# Errors fail; warnings and the rest are shown.
lintian --fail-on error --tag-display-limit 0 "${debs[@]}" | tee "$build/lintian.log" || fail "lintian reports errors"

echo "== apt-get install ./*.deb"
apt-get purge -y -qq "${packages[@]}" >/dev/null 2>&1 || true
installed=1
(cd "$out" && apt-get install -y -qq ./*.deb >"$build/apt.log" 2>&1) || { cat "$build/apt.log"; fail "apt-get install"; }
[ "$(command -v devicedetect)" = /usr/bin/devicedetect ] || fail "devicedetect is not /usr/bin/devicedetect"
devicedetect --version
devicedetectd --version
grep -q "^ExecStart=/usr/bin/devicedetectd$" /usr/lib/systemd/user/devicedetectd.service || fail "ExecStart"
if readelf -d /usr/bin/devicedetect | grep -qE 'RPATH|RUNPATH'; then fail "/usr/bin/devicedetect has a RUNPATH"; fi
man_text=$(MANPAGER=cat MANWIDTH=80 man devicedetectd 2>/dev/null || true)
grep -q '^devicedetectd(8)' <<<"$man_text" || fail "man devicedetectd"

echo "== devicedetect demo"
devicedetect demo >"$build/demo.log" 2>&1 || { cat "$build/demo.log"; fail "devicedetect demo"; }
tail -n 1 "$build/demo.log"

echo "== examples/app against the installed -dev package"
"$root/scripts/ci-example.sh" --installed /usr
echo "ci-packages: OK"
