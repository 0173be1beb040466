#!/usr/bin/env bash
# packaged.sh BUILD SOURCE LIBDIR: every file that is installed belongs to one of the Debian packages,
# and every line of their lists names a file. Building the packages finds the same, minutes later.
set -euo pipefail
build=$1 source=$2 libdir=$3
export LC_ALL=C
shopt -s nullglob globstar

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/debian/tmp/usr" >/dev/null
cd "$work/debian/tmp"

# The first word of each line, as this build places libraries; a list may be a program.
patterns_of() {
    local list=$1
    if [[ -x $list ]]; then
        (cd "$work" && "$list")
    else
        cat "$list"
    fi | sed -e 's/ .*//' -e "s:^usr/lib/\*/:usr/$libdir/:"
}

failed=0
for list in "$source"/packaging/debian/*.install; do
    while read -r pattern; do
        # Words with patterns.
        # shellcheck disable=SC2206
        found=($pattern)
        if ((${#found[@]} == 0)); then
            echo "$(basename "$list"): nothing is installed as $pattern"
            failed=1
        else
            find "${found[@]}" ! -type d >>"$work/named"
        fi
    done < <(patterns_of "$list")
done
if ! comm -13 <(sort -u "$work/named") <(find . ! -type d -printf '%P\n' | sort) >"$work/unnamed" ||
    [[ -s $work/unnamed ]]; then
    echo "In none of packaging/debian/*.install:"
    cat "$work/unnamed"
    failed=1
fi
if sort "$work/named" | uniq -d | grep .; then
    echo "In more than one of packaging/debian/*.install"
    failed=1
fi
exit "$failed"
