#!/usr/bin/env bash
# What `cmake --install` puts under a prefix beside the libraries: the user
# units (valid for systemd, ExecStart naming the installed daemon), the man
# pages (readable with `man -l`), the completion (sourced, it completes both
# programs); and the installed programs work together through socket
# activation as docs/getting-started.md shows, and answer --version.
#
#   install_tree.sh BUILD_DIR
set -euo pipefail
build=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/dd-install.XXXXXX")
activator=""
cleanup()
{
    if [ -n "$activator" ]; then
        kill -TERM "$activator" 2>/dev/null || true
        wait "$activator" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT
passed=0 failed=0
ok() { passed=$((passed + 1)); }
fail() { echo "FAIL: $*"; failed=$((failed + 1)); }

prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || { cat "$work/install.log"; exit 1; }

units=$prefix/lib/systemd/user
for f in "$units/devicedetectd.socket" "$units/devicedetectd.service" \
    "$prefix/share/man/man1/devicedetect.1.gz" "$prefix/share/man/man8/devicedetectd.8.gz" \
    "$prefix/share/bash-completion/completions/devicedetect" \
    "$prefix/share/bash-completion/completions/devicedetectd"; do
    if [ -s "$f" ]; then ok; else fail "${f#"$prefix"/} is not installed"; fi
done
[ ! -e "$prefix/share/doc" ] && ok || fail "share/doc belongs to the Debian packages only"

grep -qx "ExecStart=$prefix/bin/devicedetectd" "$units/devicedetectd.service" && ok ||
    fail "ExecStart does not name the installed daemon: $(grep ExecStart "$units/devicedetectd.service")"
grep -qx 'ListenStream=%t/tavik/sa-70635.sock' "$units/devicedetectd.socket" && ok || fail "ListenStream"
if command -v systemd-analyze >/dev/null; then
    mkdir -m 0700 "$work/xdg-verify"
    if XDG_RUNTIME_DIR=$work/xdg-verify systemd-analyze verify --man=no --user \
        "$units/devicedetectd.socket" "$units/devicedetectd.service" >"$work/verify.log" 2>&1; then
        ok
    else
        fail "systemd-analyze verify: $(cat "$work/verify.log")"
    fi
fi

for page in man1/devicedetect.1.gz man8/devicedetectd.8.gz; do
    name=$(basename "$page" .gz)
    MANWIDTH=80 MANPAGER=cat man -l "$prefix/share/man/$page" 2>"$work/man.err" | grep -q "^${name%.*}(${name##*.})" &&
        [ ! -s "$work/man.err" ] && ok || fail "man -l $page: $(cat "$work/man.err")"
done

# GNU --version: the program's name and the version of the installed headers.
version=$(sed -nE 's/^#define SYNTAVO_DEVICEDETECT_VERSION_STRING "(.*)"$/\1/p' \
    "$prefix/include/syntavo_devicedetect/syntavo_devicedetect_version.h")
for program in devicedetect devicedetectd; do
    got=$("$prefix/bin/$program" --version 2>&1) && [ "$got" = "$program $version" ] && ok ||
        fail "$program --version printed '$got', not '$program $version'"
done

# A fresh shell that sources the installed file.
completions=$prefix/share/bash-completion/completions
bash -c "source '$completions/devicedetect'; complete -p devicedetect && complete -p devicedetectd" \
    >"$work/complete.out" 2>&1 && grep -q '_devicedetect_complete devicedetect$' "$work/complete.out" && ok ||
    fail "complete -p after sourcing the installed completion: $(cat "$work/complete.out")"

# The first `devicedetect list` starts the daemon through a socket made for
# it, as the socket unit does; nothing but the socket tells the daemon
# where to serve (systemd-socket-activate passes XDG_RUNTIME_DIR on to
# nobody).
if command -v systemd-socket-activate >/dev/null; then
    export XDG_RUNTIME_DIR=$work/xdg
    mkdir -p -m 0700 "$XDG_RUNTIME_DIR/tavik"
    systemd-socket-activate -l "$XDG_RUNTIME_DIR/tavik/sa-70635.sock" "$prefix/bin/devicedetectd" \
        >"$work/daemon.log" 2>&1 &
    activator=$!
    for _ in $(seq 100); do
        [ -S "$XDG_RUNTIME_DIR/tavik/sa-70635.sock" ] && break
        sleep 0.1
    done
    if env -u LD_LIBRARY_PATH "$prefix/bin/devicedetect" list >"$work/list.out" 2>&1 &&
        grep -q 'udid-tv-0001' "$work/list.out"; then
        ok
    else
        fail "devicedetect list through the activated socket: $(cat "$work/list.out" "$work/daemon.log")"
    fi
fi
echo "install tree: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
