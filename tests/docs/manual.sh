#!/usr/bin/env bash
# The manual pages: well-formed, and nothing is missing from them.
#
# Style messages of mandoc are passed over: the title stands in lower case, as the names of the
# programs do, and lines are long because scdoc writes a paragraph into one.
set -euo pipefail
export LC_ALL=C
exec </dev/null
source=$1
pages=$2
build=$3
compiler=$4
failed=0
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT

if [[ ! -d $pages ]]; then
    echo "the manual pages are not built (no scdoc)"
    exit 77
fi
if ! command -v mandoc >/dev/null; then
    echo "mandoc is not installed: the manual pages cannot be checked"
    exit 77
fi

complain() {
    echo "$@"
    failed=1
}

# The page as text, without the marks of bold and underlined.
text_of() {
    mandoc -T ascii -O width=500 "$1" | sed 's/.\x08//g'
}

for page in "$pages"/*.[1-8]; do
    mandoc -T lint -W warning "$page" || complain "$(basename "$page") is not clean"
    [[ -s $page ]] || complain "$(basename "$page") is empty"
done

# kxctl(8): each command, argument, setting and exit code.
if [[ -e $pages/kxctl.8 ]]; then
    page=$(text_of "$pages/kxctl.8")
    help=$("$build/kxctl" --help)
    while read -r command; do
        read -r -a words <<<"$command"
        grep -qE "^ +kxctl $command( |$)" <<<"$page" || complain "kxctl(8) lacks $command"
        for option in $("$build/kxctl" "${words[@]}" --help | grep -oE -- '--[a-z][a-z-]*'); do
            grep -qE -- "$option([^a-z-]|$)" <<<"$page" || complain "kxctl(8) lacks $option"
        done
        while read -r setting; do
            grep -qE "^ +o +$setting: " <<<"$page" || complain "kxctl(8) lacks $setting of $command"
        done < <("$build/kxctl" "${words[@]}" --help |
            sed -nE '/^Settings:/,/^$/s/^  ([a-z][a-z_0-9]*) .*/\1/p')
    done < <(sed -nE '/^Commands:/,/^$/s/^  ([a-z]+( [a-z-]+)?).*/\1/p' <<<"$help")
    # Codes and meanings, each as a line: those of the help and no others.
    diff <(sed -nE '/^Exit codes:/,/^$/s/^ +([0-9]+) +(.*)/\1 \2/p' <<<"$help") \
        <(sed -nE '/^EXIT STATUS/,/^FILES/{s/^ +([0-9]+)$/\1/; T; N; s/\n +/ /; s/\.$//p}' <<<"$page") ||
        complain "kxctl(8) tells other exit codes (>) than the help (<)"
fi

# The declarations of the headers, without their comments.
for header in "$source"/include/kxlinhw/*.h; do
    "$compiler" -w -fpreprocessed -E -P "$header" >"$directory/$(basename "$header")"
done

# libkxlinhw(3): each exported name under the header that declares it, and no other name.
names_of_page() {
    sed -nE 's/^## ([a-z_0-9]+\.h):.*/\1/; t header; s/^- \*([^*]+)\*:.*/\1/; t name; b
             :header; h; b
             :name; G; s/\n/ /; p' "$source/docs/man/libkxlinhw.3.scd" | sort
}
names_of_library() {
    grep -E '^[A-Za-z]' "$source/src/exports.txt" | while read -r name; do
        header=$(cd "$directory" && grep -lE "(^|[ *])$name(\(|\[|;)" ./*.h | head -1)
        echo "$name $(basename "$header")"
    done
    # Members, without their arguments; a constructor has two symbols.
    grep -E '^_Z' "$source/src/exports.txt" | c++filt | sed -E 's/\(.*//' | sort -u |
        while read -r name; do
            [[ $name == VMUtils* ]] && echo "$name vmutils.h" || echo "$name host.h"
        done
}
diff <(names_of_page) <(names_of_library | sort) ||
    complain "libkxlinhw(3) (<) and the exported names (>) differ"

# kxsim(1): each command and option that the program knows.
if [[ -e $pages/kxsim.1 ]]; then
    page=$(text_of "$pages/kxsim.1")
    for word in $("$build/kxsim" --help | sed -nE '/^Subcommands:/,$s/^  ([a-z]+) .*/\1/p') \
        $("$build/kxsim" --help "" | grep -oE -- '--[a-z]+') \
        $("$build/kxsim" run --help | grep -oE -- '--[a-z]+'); do
        grep -qE -- "^ +.*$word" <<<"$page" || complain "kxsim(1) lacks $word"
    done
fi

# kxportparams.conf(5): the keys that the library writes when every setting is made.
if [[ -e $pages/kxportparams.conf.5 ]]; then
    on_host() { "$build/kxsim" run --keep "$directory/host" -- "$build/kxctl" "$@"; }
    "$build/kxsim" run --scenario lab --keep "$directory/host" -- true
    mkdir -p "$directory/host/tree/etc/kestrix-plexo"
    # Every setting to what it is; one that cannot be read to 1.
    shown=$(on_host port show 03:00.4 1 --json)
    all=()
    for key in $(on_host port set --help --json | sed -nE 's/^ +"key": "(.*)",$/\1/p'); do
        value=$(sed -nE "s/^ +\"$key\": ([0-9]+),?$/\1/p" <<<"$shown")
        case $key in autoneg | speed | duplex) ;; *) all+=("$key=${value:-1}") ;; esac
    done
    on_host port set 03:00.4 1 "${all[@]}" >/dev/null || true
    on_host port set 03:00.4 1 autoneg=off speed=10000 duplex=full >/dev/null || true
    diff <(sed -nE '/^# KEYS/,/^# EXAMPLES/s/^\*([^ ]+)\*$/\1/p' \
        "$pages/kxportparams.conf.5.scd" | sed 's/[\]//g' | sort) \
        <(sed -E 's/^[^.]+\.([^ ]+) = .*/\1/' \
            "$directory/host/tree/etc/kestrix-plexo/kxportparams.conf" | sort -u) ||
        complain "the keys of kxportparams.conf(5) (<) and those that are written (>) differ"
fi

# kxctl-state(5): each key that "state show" prints.
if [[ -e $pages/kxctl-state.5 ]]; then
    page=$(text_of "$pages/kxctl-state.5")
    for key in $("$build/kxctl" --sim state show | sed -nE 's/^([a-z_]+) = .*/\1/p' | sort -u); do
        grep -qE "^ +$key$" <<<"$page" || complain "kxctl-state(5) lacks $key"
    done
fi
exit $failed
