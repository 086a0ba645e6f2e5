#!/usr/bin/env bash
# The man pages render without a warning, and document every subcommand the
# CLI lists in its --help (and those of its subcommands, recursively) and
# every option of each command and of the daemon. A subcommand or option
# added without documentation fails here.
#
#   man_pages.sh DEVICEDETECT DEVICEDETECTD MAN_DIR
set -euo pipefail
cli=$1 daemon=$2 mandir=$3
failures=0 checked=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

for page in "$mandir/devicedetect.1" "$mandir/devicedetectd.8"; do
    [ -s "$page" ] || { echo "FAIL: $page was not built"; exit 1; }
    warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
    [ -z "$warnings" ] || fail "groff warns on $page: $warnings"
    MANWIDTH=80 MANPAGER=cat man -l "$page" >/dev/null 2>&1 || fail "man -l $page"
done

# Plain text, wide and without hyphenation, so that every entry is one line
# and every option one word.
render() { groff -man -Tutf8 -rHY=0 -rLL=250n -P-cbou "$1"; }
cli_text=$(render "$mandir/devicedetect.1")
daemon_text=$(render "$mandir/devicedetectd.8")

section() { awk -v s="$1:" '$0 == s { f = 1; next } /^[^ ]/ { f = 0 } f && /^  [^ ]/' ; }
long_options() { section Options | awk '{ n = split($1, names, ","); for (i = 1; i <= n; i++) if (names[i] ~ /^--/) print names[i] }'; }

check_options() # TEXT HELP WHOSE
{
    local option
    for option in $(long_options <<<"$2"); do
        checked=$((checked + 1))
        grep -qE -- "(^|[^[:alnum:]-])${option}([^[:alnum:]-]|$)" <<<"$1" ||
            fail "option $option of '$3' is not in the man page"
    done
}

check_command() # SUBCOMMAND...
{
    local sub path help
    help=$("$cli" "$@" --help)
    check_options "$cli_text" "$help" "devicedetect $*"
    for sub in $(section Subcommands <<<"$help" | awk '{ print $1 }'); do
        path="$* $sub"
        path=${path# }
        checked=$((checked + 1))
        grep -qE "^ +${path}( |$)" <<<"$cli_text" || fail "subcommand '$path' has no entry in devicedetect(1)"
        check_command "$@" "$sub"
    done
}

check_command
check_options "$daemon_text" "$("$daemon" --help)" devicedetectd
[ "$checked" -gt 40 ] || fail "only $checked subcommands and options found in --help: did its layout change?"
echo "man pages: $checked subcommands and options checked, $failures missing"
[ "$failures" -eq 0 ]
