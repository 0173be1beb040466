# bash completion for kxctl(8), made from kxctl's command table.

# What may follow the words of a command: sets next, slots, repeats, settings and options, or fails
# and leaves them alone.
_kxctl_row() {
    case $1 in
@bash_rows@
    *) return 1 ;;
    esac
}

# The kind of an option's value; fails when the option takes none.
_kxctl_kind_of_option() {
    local option
    for option in $options; do
        if [[ $option == "$1="* ]]; then
            echo "${option#*=}"
            return
        fi
    done
    return 1
}

# A word behind --sim that names a scenario rather than what the command goes on with.
_kxctl_is_scenario() {
    [[ $1 != -* && ($1 != *:* || $1 == */*) ]] && ! _kxctl_row "${place:+$place }$1"
}

# A column of a table that kxctl prints for these words, without the heading and what is not known.
_kxctl_column() {
    "$program" "${sim[@]}" "${@:2}" 2>/dev/null |
        awk -v column="$1" 'NR > 1 && $column != "-" { print $column }'
}

# The functions that a machine can be given, or has.
_kxctl_functions() {
    if [[ $place == 'vf detach' ]]; then
        _kxctl_column 1 vf list "${taken[0]}"
    else
        _kxctl_column 1 vf list
    fi
}

# The bridges of this host (a simulated one has no directory of them), and those of a machine.
_kxctl_bridges() {
    local directory
    if [[ ${#sim[@]} -eq 0 ]]; then
        for directory in /sys/class/net/*/bridge; do
            [[ -d $directory ]] && basename "${directory%/bridge}"
        done
    fi
    _kxctl_column 3 bridge list "${taken[0]}"
}

# The locations of the cards, and the interfaces of their ports.
_kxctl_cards() {
    local location
    for location in $(_kxctl_column 1 card list); do
        echo "$location"
        _kxctl_column 2 port list "$location"
    done
}

# The ports of a card; an interface and LOCATION/PORT need no port, so a setting may follow.
_kxctl_ports() {
    if [[ ${taken[0]} == *:* && ${taken[0]} != */* ]]; then
        _kxctl_column 1 port list "${taken[0]}"
    else
        tr ' ' '\n' <<<"$settings"
    fi
}

# The words of a kind: its choices, or what the host, the simulator or the disk knows.
_kxctl_words_of_kind() {
    case $1 in
    '|'*) tr '|' '\n' <<<"${1#|}" ;;
    LOCATION) _kxctl_cards ;;
    PORT) _kxctl_ports ;;
    MODULE) _kxctl_column 1 module list | grep '^iw_' ;;
    VM) _kxctl_column 1 vm list ;;
    VF) _kxctl_functions ;;
    BRIDGE) _kxctl_bridges | sort -u ;;
    TARGET) _kxctl_column 1 bridge list "${taken[0]}" ;;
    SCENARIO) kxsim list 2>/dev/null | awk '{ print $1 }' ;;
    FILE) compgen -f -- "${current##*=}" ;;
    KEY=VALUE) tr ' ' '\n' <<<"$settings" ;;
    esac
}

# Reads the words before the cursor: sets place, taken, sim, pending and previous.
_kxctl_read() {
    local word
    for word in "$@"; do
        if [[ -n $pending ]]; then
            pending=
        elif [[ $previous == --sim ]] && _kxctl_is_scenario "$word"; then
            sim=("--sim=$word")
        elif [[ $word == --sim || $word == --sim=* ]]; then
            sim=("$word")
        elif [[ $word == -* ]]; then
            pending=$(_kxctl_kind_of_option "$word")
        elif ! _kxctl_row "${place:+$place }$word"; then
            taken+=("$word")
        else
            place+=${place:+ }$word
        fi
        previous=$word
    done
}

# The words that may stand at the cursor.
_kxctl_offers() {
    local kind kinds
    if [[ $previous == --sim ]]; then
        _kxctl_words_of_kind SCENARIO
    fi
    if [[ -n $pending ]]; then
        _kxctl_words_of_kind "$pending"
    elif [[ $current == --*=* ]]; then
        kind=$(_kxctl_kind_of_option "${current%%=*}") &&
            _kxctl_words_of_kind "$kind" | sed "s|^|${current%%=*}=|"
    elif [[ $current == -* ]]; then
        for kind in $options; do
            echo "${kind%%=*}"
        done
    elif [[ -n $next ]]; then
        [[ ${#taken[@]} -eq 0 ]] && tr ' ' '\n' <<<"$next"
    else
        read -ra kinds <<<"$slots"
        kind=${kinds[${#taken[@]}]}
        if [[ -z $kind && $repeats == 1 ]]; then
            kind=${kinds[-1]}
        fi
        _kxctl_words_of_kind "$kind"
    fi
}

_kxctl() {
    local program=$1 place='' pending='' previous='' current='' next slots repeats settings options offer
    local -a given taken=() sim=()
    # The line's own words: those that bash hands over are cut at ":" and "=".
    read -ra given <<<"${COMP_LINE:0:COMP_POINT}"
    if [[ ${COMP_LINE:0:COMP_POINT} != *[[:space:]] ]]; then
        current=${given[-1]}
        unset 'given[-1]'
    fi
    _kxctl_row ''
    _kxctl_read "${given[@]:1}"

    COMPREPLY=()
    while IFS= read -r offer; do
        if [[ -n $offer && $offer == "$current"* ]]; then
            COMPREPLY+=("$offer")
        fi
    done < <(_kxctl_offers)
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then
        compopt -o nospace 2>/dev/null
    fi
    # bash replaces only what stands behind the last of these.
    local breaks=${COMP_WORDBREAKS//[^:=]/}
    if [[ -n $breaks && $current == *["$breaks"]* ]]; then
        local head=${current%"${current##*["$breaks"]}"}
        COMPREPLY=("${COMPREPLY[@]#"$head"}")
    fi
}

complete -F _kxctl kxctl
