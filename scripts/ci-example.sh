#!/usr/bin/env bash
# Installs the project from a configured build folder into a temporary
# prefix, builds examples/app against that install through CMake and through
# pkg-config, and runs both against a devicedetectd of the same install:
# each must list the devices and see the event a `devicedetect sim` command
# causes. Then builds examples/restart the same way and checks that it
# survives a `kill -9` and restart of the daemon: it must say the service
# went, register again, and see the next event. Exits non-zero on any
# failure.
#
#   scripts/ci-example.sh [BUILD_DIR]      (default: build/debug)
#   scripts/ci-example.sh --installed PREFIX
#
# The second form uses what is already installed under PREFIX (/usr for the
# Debian packages, scripts/ci-packages.sh) instead of installing a build.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
installed=""
if [ "${1:-}" = "--installed" ]; then
    installed=${2:?"ci-example: --installed needs a prefix"}
else
    build=${1:-build/debug}
    case $build in /*) ;; *) build=$root/$build ;; esac
    [ -f "$build/CMakeCache.txt" ] || { echo "ci-example: $build is not a configured build folder" >&2; exit 1; }
fi

for tool in pkg-config make readelf; do
    command -v "$tool" >/dev/null || { echo "ci-example: $tool is not installed" >&2; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/dd-example.XXXXXX")
daemon=""
cleanup()
{
    if [ -n "$daemon" ] && kill -0 "$daemon" 2>/dev/null; then
        kill -TERM "$daemon" 2>/dev/null || true
        wait "$daemon" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

fail()
{
    echo "ci-example: FAILED: $*" >&2
    for f in "$work"/*.out "$work"/*.log; do
        [ -s "$f" ] && { echo "--- $f" >&2; tail -n 30 "$f" >&2; }
    done
    exit 1
}

# Waits up to $3 seconds for a line matching $2 in file $1.
wait_for()
{
    local deadline=$((SECONDS + $3))
    until grep -qE "$2" "$1" 2>/dev/null; do
        [ $SECONDS -lt $deadline ] || return 1
        sleep 0.1
    done
}

if [ -n "$installed" ]; then
    prefix=$installed
    echo "== the installation under $prefix"
else
    prefix=$work/prefix
    echo "== build and install into $prefix"
    cmake --build "$build" --target devicedetectd devicedetect
    cmake --install "$build" --prefix "$prefix" >"$work/install.log"
fi
for f in bin/devicedetectd bin/devicedetect include/syntavo_devicedetect/device_detect_proxy.h \
    include/syntavo_devicedetect/syntavo_devicedetect_version.h \
    lib/cmake/SyntavoDeviceDetect/SyntavoDeviceDetectConfig.cmake \
    lib/pkgconfig/syntavo_devicedetect_client.pc lib/pkgconfig/tavik_platform.pc; do
    [ -e "$prefix/$f" ] || fail "$f is not installed"
done
for lib in syntavo_devicedetect_client tavik_platform; do
    readelf -d "$prefix/lib/lib$lib.so" | grep -q "SONAME.*\[lib$lib\.so\.[0-9]*\]" || fail "lib$lib.so has no SONAME"
done

echo "== example through CMake (find_package)"
cmake -S "$root/examples/app" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
    >"$work/cmake-configure.log" || fail "configuring the example"
cmake --build "$work/cmake-build" >"$work/cmake-build.log" || fail "building the example with CMake"
by_cmake=$work/cmake-build/syntavo_devicedetect_example

echo "== example through pkg-config (Makefile)"
mkdir -p "$work/pc-build"
# -B: with VPATH, make would otherwise take an `example` left in
# examples/app by an earlier `make -C examples/app` as already built.
make -B -s -C "$work/pc-build" -f "$root/examples/app/Makefile" VPATH="$root/examples/app" \
    PKG_CONFIG_PATH="$prefix/lib/pkgconfig" >"$work/pc-build.log" 2>&1 || fail "building the example with pkg-config"
by_pkgconfig=$work/pc-build/example

echo "== restart example through CMake (find_package)"
cmake -S "$root/examples/restart" -B "$work/restart-build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
    >"$work/restart-configure.log" || fail "configuring the restart example"
cmake --build "$work/restart-build" >"$work/restart-build.log" || fail "building the restart example"
restart_example=$work/restart-build/syntavo_devicedetect_restart_example

echo "== devicedetectd"
run=$work/run
mkdir -p "$run"
start_daemon()
{
    "$prefix/bin/devicedetectd" --runtime-dir "$run" --log-level INFO >"$work/daemon.out" 2>"$work/daemon.log" &
    daemon=$!
    wait_for "$work/daemon.out" '^devicedetectd: ready' 10 || fail "devicedetectd did not become ready"
}
start_daemon
# Log lines: local time to the microsecond, level, domain/tag, message.
grep -qE '^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6} INFO 0x[0-9A-F]+/[A-Za-z]+: ' \
    "$work/daemon.log" || fail "devicedetectd log lines lack timestamp, level, domain or tag"

# Runs example $1, makes the world change with `devicedetect sim $2 DEVICE`
# once it watches, and expects the event line $3.
run_example()
{
    local name=$1 change=$2 expected=$3 out=$work/$(basename "$1").out pid rc=0
    env -u LD_LIBRARY_PATH TAVIK_RUNTIME_DIR="$run" "$name" 1 20 >"$out" 2>&1 &
    pid=$!
    wait_for "$out" '^watching' 10 || { kill "$pid" 2>/dev/null || true; fail "$name did not start watching"; }
    grep -q '^  Living Room TV (udid-tv-0001' "$out" || { kill "$pid" 2>/dev/null || true; fail "$name did not list the devices"; }
    "$prefix/bin/devicedetect" --runtime-dir "$run" sim "$change" udid-car-0001 >>"$work/sim.out" ||
        { kill "$pid" 2>/dev/null || true; fail "devicedetect sim $change"; }
    wait "$pid" || rc=$?
    [ "$rc" -eq 0 ] || fail "$name exited with $rc"
    grep -qF "$expected" "$out" || fail "$name did not print: $expected"
    echo "$name: saw \"$expected\""
}
run_example "$by_cmake" online "event online: Family Car (udid-car-0001, type 131)"
run_example "$by_pkgconfig" offline "event offline: Family Car (udid-car-0001, type 131)"

echo "== restart example: devicedetectd killed and started again"
out=$work/restart-example.out
env -u LD_LIBRARY_PATH TAVIK_RUNTIME_DIR="$run" "$restart_example" 1 30 >"$out" 2>&1 &
pid=$!
stop_example() { kill "$pid" 2>/dev/null || true; }
wait_for "$out" '^registered \(listener' 10 || { stop_example; fail "the restart example did not register"; }
kill -KILL "$daemon"
wait "$daemon" 2>/dev/null || true
wait_for "$out" '^service gone' 10 || { stop_example; fail "the restart example did not see the service go"; }
start_daemon
wait_for "$out" '^registered again' 10 || { stop_example; fail "the restart example did not register again"; }
"$prefix/bin/devicedetect" --runtime-dir "$run" sim online udid-car-0001 >>"$work/sim.out" ||
    { stop_example; fail "devicedetect sim online after the restart"; }
rc=0
wait "$pid" || rc=$?
[ "$rc" -eq 0 ] || fail "the restart example exited with $rc"
grep -qF "event online: Family Car (udid-car-0001)" "$out" || fail "the restart example did not see the event"
echo "$(basename "$restart_example"): gone, registered again, saw the event"

echo "== stop devicedetectd"
kill -TERM "$daemon"
rc=0
wait "$daemon" || rc=$?
daemon=""
[ "$rc" -eq 0 ] || fail "devicedetectd exited with $rc after SIGTERM"
grep -q '^devicedetectd: stopped (SIGTERM)' "$work/daemon.out" || fail "devicedetectd did not report its stop"
[ ! -e "$run/sa-70635.sock" ] || fail "devicedetectd left its socket behind"
echo "ci-example: OK"
