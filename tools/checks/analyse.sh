#!/usr/bin/env bash
# Static analysis beside clang-tidy: cppcheck over the library's sources, shellcheck over all
# scripts, codespell over all texts, the compiler's own analyser over what it understands. Ends with
# 1 when one of them has something to say.
# shellcheck disable=SC2317  # functions are called through check()
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root"
status=0

check() { # NAME COMMAND...
    local name=$1
    shift
    if "$@"; then
        printf '%s: nothing to say\n' "$name"
    else
        printf '%s: see above\n' "$name"
        status=1
    fi
}

suppressions=(
    # Records of the interface hold fields that only agents read.
    --suppress=unusedStructMember
    # A loop that says what it looks for is as good as an algorithm.
    --suppress=useStlAlgorithm
    # System headers are not looked into.
    --suppress=missingIncludeSystem
    # Exported functions keep the types that agents were built with.
    --suppress=constParameterPointer --suppress=constParameter
)

run_cppcheck() {
    cppcheck --quiet --std=c++20 --language=c++ --enable=warning,portability,performance \
        --inline-suppr --error-exitcode=1 -D__x86_64__ -DKXLINHW_PCI_VENDOR_ID=0x4B58 \
        "${suppressions[@]}" -I src -I include src
}

# Version 12 of the analyser knows C only; the one C program is the example agent, if there is one.
run_analyser() {
    local source found=0
    while read -r source; do
        gcc -std=c11 -fanalyzer -Wall -Wextra -Iinclude -c "$source" -o /dev/null || found=1
    done < <(git ls-files 'examples/*.c' 'tests/*.c')
    return "$found"
}

run_shellcheck() {
    local scripts
    mapfile -t scripts < <(git ls-files '*.sh' run .ci/run)
    shellcheck "${scripts[@]}"
}

run_codespell() {
    git ls-files '*.md' '*.c' '*.h' '*.cpp' '*.hpp' '*.toml' '*.sh' '*.txt' run | xargs codespell
}

check cppcheck run_cppcheck
check 'gcc -fanalyzer' run_analyser
check shellcheck run_shellcheck
check codespell run_codespell
exit "$status"
