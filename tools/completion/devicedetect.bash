# bash completion for devicedetect and devicedetectd
#
# Nothing about the commands is written down here. Subcommands, options,
# which options take a value (and their choices), and the names of the
# positional arguments come from the program's own --help, read at
# completion time, so a new subcommand or option completes without an edit
# of this file. Positional arguments named device, devices or network-id
# complete to the device ids of the running service (`devicedetect sim show
# --json`); when no service answers within two seconds, quietly to nothing.
# Installed under both program names, since bash-completion loads a
# command's completion from the file of that name.

# Describes one level of the command line from "$@ --help", one item a line:
#   sub NAME
#   opt NAME TAKES_VALUE [CHOICE...]
#   pos NAME MULTI [CHOICE...]
_devicedetect_spec()
{
    "$@" --help 2>/dev/null | awk '
        /^[A-Za-z][A-Za-z ]*:$/ { section = $0; next }
        /^  [^ ]/ {
            line = substr($0, 3)
            cut = index(line, "  ")
            head = cut ? substr(line, 1, cut - 1) : line
            desc = cut ? substr(line, cut) : ""
            n = split(head, t, " ")
            type = (n >= 2 && t[2] ~ /^[A-Z][A-Z0-9_]*(:|$)/) ? t[2] : ""
            choices = ""
            if (match(type, /\{[^}]*\}/)) {
                choices = substr(type, RSTART + 1, RLENGTH - 2)
                gsub(/,/, " ", choices)
            } else {
                # A list of at least three upper-case names in the text,
                # such as the log levels, is the set of choices.
                m = split(desc, w, /[ ,()]+/)
                found = ""; count = 0
                for (k = 1; k <= m; k++) {
                    if (w[k] ~ /^[A-Z][A-Z]+$/ && w[k] != "JSON") { found = found " " w[k]; count++ }
                }
                if (count >= 3) choices = substr(found, 2)
            }
            if (section == "Subcommands:") {
                print "sub", t[1]
            } else if (section == "Positionals:" && t[1] !~ /^-/) {
                print "pos", t[1], (head ~ / \.\.\./ ? 1 : 0), choices
            } else if (t[1] ~ /^-/) {
                k = split(t[1], names, ",")
                for (j = 1; j <= k; j++) print "opt", names[j], (type != "" ? 1 : 0), choices
            }
        }'
}

# Device ids (udids and network ids) of the running service, one a line.
# Only ids made of plain characters are offered: the service is a peer, and
# what it sends must not reach the terminal unchecked.
_devicedetect_device_ids()
{
    local cli=$1 runtime_dir=$2
    local -a args=(sim show --json)
    [[ -n $runtime_dir ]] && args=(--runtime-dir "$runtime_dir" "${args[@]}")
    # The world file, indented: only the ids under "devices", not the local
    # device's.
    timeout 2 "$cli" "${args[@]}" 2>/dev/null |
        awk '/^  "/ { on = ($0 ~ /^  "devices"/) } on' |
        grep -oE '"(udid|networkId)"[[:space:]]*:[[:space:]]*"[A-Za-z0-9._@+-]+"' |
        sed -E 's/.*"([^"]*)"$/\1/' | sort -u
}

_devicedetect_complete()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=""
    local prog=${COMP_WORDS[0]}
    local level specs word item name takes i positional=0 runtime_dir=""
    local -a path=() subs=()
    level=$(_devicedetect_spec "$prog")
    specs=$level
    COMPREPLY=()
    (( COMP_CWORD > 0 )) && prev=${COMP_WORDS[COMP_CWORD - 1]}

    # Walk the words before the cursor: options (and the values they take),
    # subcommands, positional arguments. Options of the levels above stay
    # valid below, as the programs accept them anywhere.
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -* ]]; then
            takes=$(awk -v o="$word" '$1 == "opt" && $2 == o { print $3; exit }' <<<"$specs")
            if [[ $takes == 1 ]] && (( i + 1 < COMP_CWORD )); then
                [[ $word == --runtime-dir ]] && runtime_dir=${COMP_WORDS[i + 1]}
                ((i++))
            fi
            continue
        fi
        if awk -v s="$word" '$1 == "sub" && $2 == s { found = 1 } END { exit !found }' <<<"$level"; then
            path+=("$word")
            level=$(_devicedetect_spec "$prog" "${path[@]}")
            specs+=$'\n'$level
            positional=0
        else
            ((positional++))
        fi
    done

    # The value of an option.
    if [[ $prev == -* ]]; then
        item=$(awk -v o="$prev" '$1 == "opt" && $2 == o { print; exit }' <<<"$specs")
        if [[ -n $item ]] && [[ $(awk '{ print $3 }' <<<"$item") == 1 ]]; then
            read -r _ name _ choices <<<"$item"
            if [[ -n $choices ]]; then
                mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$cur")
            elif [[ $name == *dir* ]]; then
                mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            else
                mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            fi
            return 0
        fi
    fi

    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(awk '$1 == "opt" { print $2 }' <<<"$specs" | sort -u)" -- "$cur")
        return 0
    fi

    mapfile -t subs < <(awk '$1 == "sub" { print $2 }' <<<"$level")
    if (( ${#subs[@]} > 0 )); then
        mapfile -t COMPREPLY < <(compgen -W "${subs[*]}" -- "$cur")
        return 0
    fi

    # A positional argument: the one at this place, or the last one when it
    # takes several values.
    item=$(awk -v n="$positional" '$1 == "pos" { last = $0; if (i++ == n) { print; found = 1; exit } }
        END { if (!found && last ~ /^pos [^ ]+ 1/) print last }' <<<"$level")
    [[ -z $item ]] && return 0
    read -r _ name _ choices <<<"$item"
    if [[ -n $choices ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$cur")
    elif [[ $name == device || $name == devices || $name == network-id ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_devicedetect_device_ids "$prog" "$runtime_dir")" -- "$cur")
    elif [[ $name == *file* ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
    return 0
}

complete -F _devicedetect_complete devicedetect devicedetectd
