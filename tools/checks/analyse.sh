#!/usr/bin/env bash
# Static analysis in addition to clang-tidy: cppcheck over the library's sources, shellcheck over
# all scripts, codespell over all texts, the compiler's own analyser over what it understands; plain
# English, the folders' includes, the paths that pages name, and headers and sources that compile
# alone. Ends with 1 when one of them reports something.
# shellcheck disable=SC2317 # functions are called through check()
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
    # System headers are not analysed.
    --suppress=missingIncludeSystem
    # The types of exported functions are fixed.
    --suppress=passedByValue:src/host/command_runner.cpp
    --suppress=passedByValue:src/vm/bridge_interfaces.cpp
    # The layout and the members of the class are fixed; agents create one object and never copy it.
    --suppress=noCopyConstructor:src/vm/domains.cpp
    --suppress=noOperatorEq:src/vm/domains.cpp
    # A false report: an element of an array of pointers is not an integer.
    --suppress=CastIntegerToAddressAtReturn:src/inventory/port_discovery.cpp
    # The size of a pointer is intended: the link before the next record.
    --suppress=pointerSize:src/inventory/query.cpp
)

run_cppcheck() {
    cppcheck --quiet --std=c++20 --language=c++ --enable=warning,portability,performance \
        --inline-suppr --error-exitcode=1 -D__x86_64__ -DKXLINHW_PCI_VENDOR_ID=0x4B58 \
        "${suppressions[@]}" -I src -I include src
}

# The analyser of version 12 understands C only.
run_analyser() {
    local source sources found=0
    mapfile -t sources < <(git ls-files '*.c')
    printf 'gcc -fanalyzer: %d C sources\n' "${#sources[@]}"
    for source in "${sources[@]}"; do
        gcc -std=c11 -fanalyzer -Wall -Wextra -Iinclude -c "$source" -o /dev/null || found=1
    done
    return "$found"
}

run_shellcheck() {
    local scripts
    mapfile -t scripts < <(git ls-files --cached --others --exclude-standard '*.sh' run .ci/run)
    shellcheck --external-sources "${scripts[@]}"
}

# Words and turns that plain English avoids; turns.txt says what to write instead.
run_turns() {
    local turn instead found=0
    while IFS=$'\t' read -r turn instead; do
        if [[ $turn != '#'* ]] && git grep --untracked -nIPie "$turn" -- ':!tests/fuzz/corpus' ':!tools/checks/turns.txt'; then
            printf '    instead: %s\n' "$instead"
            found=1
        fi
    done <tools/checks/turns.txt
    return "$found"
}

run_codespell() {
    git ls-files --cached --others --exclude-standard \
        '*.md' '*.c' '*.h' '*.cpp' '*.hpp' '*.toml' '*.sh' '*.txt' run | xargs codespell
}

check cppcheck run_cppcheck
check 'gcc -fanalyzer' run_analyser
check shellcheck run_shellcheck
check codespell run_codespell
check 'plain English' run_turns
check folders tools/checks/folders.py
check 'paths in pages' tools/checks/page_paths.py
check 'compiled alone' tools/checks/alone.py build/release
exit "$status"
