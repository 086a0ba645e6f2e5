#!/usr/bin/env bash
# The bash completion of both programs, driven the way bash drives it
# (COMP_WORDS, COMP_CWORD, the function `complete -p` names): subcommands,
# options, option values, and device ids from a running devicedetectd.
#
#   completion.sh COMPLETION_SCRIPT BIN_DIR
set -euo pipefail
script=$1 bin=$2
export PATH="$bin:$PATH"
unset TAVIK_RUNTIME_DIR XDG_RUNTIME_DIR
work=$(mktemp -d "${TMPDIR:-/tmp}/dd-completion.XXXXXX")
daemon=""
cleanup()
{
    if [ -n "$daemon" ]; then
        kill -TERM "$daemon" 2>/dev/null || true
        wait "$daemon" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

# shellcheck source=/dev/null
source "$script"
passed=0 failed=0
for program in devicedetect devicedetectd; do
    function=$(complete -p "$program" 2>/dev/null | sed -nE 's/.*-F ([^ ]+) .*/\1/p')
    if [ -n "$function" ]; then passed=$((passed + 1)); else echo "FAIL: complete -p $program"; failed=$((failed + 1)); fi
done

# Completes the last of the words; prints the candidates sorted, on one line.
candidates()
{
    local program=$1
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMP_LINE="$*"
    COMP_POINT=${#COMP_LINE}
    COMPREPLY=()
    "$function" "$program" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    local -a sorted
    mapfile -t sorted < <(printf '%s\n' "${COMPREPLY[@]}" | sort | grep -v '^$')
    echo "${sorted[*]}"
}

run=$work/run
# Each case: the expected candidates, then the command line up to the cursor.
check()
{
    local expected=$1 got
    shift
    got=$(candidates "$@")
    if [ "$got" = "$expected" ]; then
        passed=$((passed + 1))
    else
        echo "FAIL: completing '$*': expected '$expected', got '$got'"
        failed=$((failed + 1))
    fi
}

check "list list-by-ability list-by-device list-by-service" devicedetect li
check "online" devicedetect sim on
check "off on" devicedetect --json key-mouse edge ""
check "--log-level" devicedetect --log
check "WARN" devicedetect --log-level W
check "--json" devicedetect sim online --js
check "--scenario" devicedetectd --sc
check "--version" devicedetectd --vers
# No service: no device ids, and no complaint.
check "" devicedetect --runtime-dir "$run" sim online udid-c

devicedetectd --runtime-dir "$run" >"$work/daemon.log" 2>&1 &
daemon=$!
for _ in $(seq 100); do
    grep -q '^devicedetectd: ready' "$work/daemon.log" && break
    sleep 0.1
done
check "udid-camera-0001 udid-car-0001" devicedetect --runtime-dir "$run" sim online udid-c
check "net-tv-0001" devicedetect --runtime-dir "$run" config net-t
check "udid-pad-0001 udid-pc-0001" devicedetect --runtime-dir "$run" sim service-change udid-tv-0001 udid-p
TAVIK_RUNTIME_DIR=$run check "udid-watch-0001" devicedetect switch udid-w
echo "completion: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
