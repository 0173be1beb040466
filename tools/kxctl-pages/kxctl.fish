# fish completion for kxctl(8), made from kxctl's command table.

# What may follow the words of a command: sets next, slots, repeats, settings, options and kinds of
# the caller, or fails and leaves them alone.
function __kxctl_row --no-scope-shadowing
    switch "$argv"
@fish_rows@
        case '*'
            return 1
    end
    return 0
end

# A column of a table that kxctl prints for these words, without the heading and what is not known.
function __kxctl_column --no-scope-shadowing
    $program $sim $argv[2..-1] 2>/dev/null |
        awk -v column=$argv[1] 'NR > 1 && $column != "-" { print $column }'
end

# The functions that a machine can be given, or has.
function __kxctl_functions --no-scope-shadowing
    if test "$place" = 'vf detach'
        __kxctl_column 1 vf list $taken[1]
    else
        __kxctl_column 1 vf list
    end
end

# The bridges of this host (a simulated one has no directory of them), and those of a machine.
function __kxctl_bridges --no-scope-shadowing
    if test (count $sim) -eq 0
        set -l directories /sys/class/net/*/bridge
        string replace -rf '.*/([^/]+)/bridge$' '$1' -- $directories
    end
    __kxctl_column 3 bridge list $taken[1]
end

# The locations of the cards, and the interfaces of their ports.
function __kxctl_cards --no-scope-shadowing
    for location in (__kxctl_column 1 card list)
        echo $location
        __kxctl_column 2 port list $location
    end
end

# The words of a kind: its choices, or what the host, the simulator or the disk knows.
function __kxctl_words_of_kind --no-scope-shadowing
    switch "$argv"
        case '|*'
            string split '|' -- (string sub -s 2 -- "$argv")
        case LOCATION
            __kxctl_cards
        case PORT
            # An interface and LOCATION/PORT need no port, so a setting may follow.
            if string match -q '*:*' -- $taken[1]; and not string match -q '*/*' -- $taken[1]
                __kxctl_column 1 port list $taken[1]
            else
                string join \n -- $settings
            end
        case MODULE
            __kxctl_column 1 module list | string match 'iw_*'
        case VM
            __kxctl_column 1 vm list
        case VF
            __kxctl_functions
        case BRIDGE
            __kxctl_bridges | sort -u
        case TARGET
            __kxctl_column 1 bridge list $taken[1]
        case SCENARIO
            kxsim list 2>/dev/null | string replace -r ' +' \t
        case FILE
            __fish_complete_path (string replace -r '.*=' '' -- $current)
        case KEY=VALUE
            string join \n -- $settings
    end
end

function __kxctl_offers
    set -l program (commandline -opc)[1]
    set -l current (commandline -ct)
    set -l next
    set -l slots
    set -l repeats
    set -l settings
    set -l options
    set -l kinds
    set -l place
    set -l taken
    set -l sim
    set -l pending
    set -l previous
    set -l kind
    __kxctl_row ''

    for word in (commandline -opc)[2..-1]
        if test -n "$pending"
            set pending
        else if string match -qr -- '^--sim(=|$)' $word
            set sim $word
        else if string match -q -- '-*' $word
            set pending (string match -r -- "^$word=(.*)" $kinds)[2]
        else if __kxctl_row (string join ' ' -- $place $word)
            set place $place $word
        else if test "$previous" = --sim; and not string match -qr -- '^[^/]*:[^/]*$' $word
            set sim --sim=$word
        else
            set taken $taken $word
        end
        set previous $word
    end

    if test "$previous" = --sim
        __kxctl_words_of_kind SCENARIO
    end
    if test -n "$pending"
        __kxctl_words_of_kind $pending
    else if string match -qr -- '^--.*=' $current
        set -l option (string replace -r '=.*' '' -- $current)
        set kind (string match -r -- "^$option=(.*)" $kinds)[2]
        printf '%s\n' $option=(__kxctl_words_of_kind $kind)
    else if string match -q -- '-*' $current
        string join \n -- $options
    else if test (count $next) -gt 0
        test (count $taken) -eq 0; and string join \n -- $next
    else if test (count $taken) -lt (count $slots)
        __kxctl_words_of_kind $slots[(math (count $taken) + 1)]
    else if test $repeats = 1
        __kxctl_words_of_kind $slots[-1]
    end
end

complete -c kxctl -f -a '(__kxctl_offers)'
