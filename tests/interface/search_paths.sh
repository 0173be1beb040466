#!/usr/bin/env bash
# search_paths.sh DIRECTORY...: where the ELF files below the directories look for their libraries.
# The loader takes an empty or relative element of a run path for the working directory, so whoever can
# write there would run code in the program. The same holds for a directory that anybody can write to.
set -euo pipefail
export LC_ALL=C

# The dynamic sections of all ELF files, each behind the name of its file.
dynamic_sections() {
    realpath -z "$@" | xargs -0 -I{} find {} -type f \( -perm /111 -o -name '*.so*' \) -print0 |
        xargs -0 -r readelf -dW /dev/null 2>/dev/null || : # what is no ELF file
}

# others_can_write DIRECTORY: anybody can put files into it or make it, or replace one of the directories
# that lead to it. (A sticky directory protects what it holds.)
others_can_write() {
    local directory mode
    directory=$(realpath -m "$1")
    until [[ -d $directory ]]; do
        directory=$(dirname "$directory")
    done
    mode=$(stat -L -c %a "$directory")
    (((8#$mode & 8#0002) == 0)) || return 0
    while [[ $directory != / ]]; do
        directory=$(dirname "$directory")
        mode=$(stat -L -c %a "$directory")
        (((8#$mode & 8#1002) != 8#0002)) || return 0
    done
    return 1
}

failed=0
complain() {
    echo "$1: $2"
    failed=1
}

# shellcheck disable=SC2016  # the loader expands $ORIGIN
check_element() {
    local file=$1 element=$2 directory
    directory=${element//'$ORIGIN'/$(dirname "$file")}
    directory=${directory//'${ORIGIN}'/$(dirname "$file")}
    if [[ $directory != /* ]]; then
        complain "$file" "looks for libraries in the working directory: run path element \"$element\""
    elif others_can_write "$directory"; then
        complain "$file" "looks for libraries in $element, which anybody can write to"
    fi
}

file='' files=0
while IFS= read -r line; do
    case $line in
    'File: '*)
        file=${line#File: }
        ;;
    *'Dynamic section at'*)
        files=$((files + 1))
        ;;
    *'(RPATH)'* | *'(RUNPATH)'*)
        line=${line#*[} line=${line%]}
        # A last element of its own, so that an empty one at the end counts.
        IFS=: read -ra elements <<<"$line:end"
        for element in "${elements[@]:0:${#elements[@]}-1}"; do
            check_element "$file" "$element"
        done
        ;;
    *'(NEEDED)'*'['*/*']')
        line=${line#*[} line=${line%]}
        [[ $line == /* ]] || complain "$file" "needs $line of the working directory"
        ;;
    esac
done < <(dynamic_sections "$@")
if ((files == 0)); then
    complain "$*" "there is no ELF file with a dynamic section"
fi
exit "$failed"
