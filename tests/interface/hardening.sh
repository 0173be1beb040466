#!/usr/bin/env bash
# hardening.sh LEVEL LIBRARY PROGRAM...: checks how the shipped files were built, among them the
# private library beside LIBRARY.
#
# LEVEL: "fortified" when buffers are checked too, which takes an optimised build; "plain"
# otherwise; "off" when the project's own hardening is off.
#
# libkxsim.so is not among the files: it replaces functions of the C library, and must define
# exactly those that the checked variants would replace.
# shellcheck disable=SC2317 # functions are called by name
set -euo pipefail
level=$1 library=$2
shift
files=("$@")
if [[ $level == off ]]; then
    echo "KXLINHW_HARDEN is off in this build, or the sanitizers stand in for it"
    exit 77
fi
failed=0

# expect FILE WHAT COMMAND...: the command succeeds.
expect() {
    local file=$1 what=$2
    shift 2
    if ! "$@" >/dev/null; then
        echo "${file##*/}: $what"
        failed=1
    fi
}

# in_output PATTERN COMMAND...: the command prints a line that the pattern matches. (Reads it all: a
# command whose output is cut off would count as failed.)
in_output() {
    local pattern=$1
    shift
    [[ $("$@" | grep -cE -- "$pattern") -gt 0 ]]
}
not() { ! "$@"; }

for file in "${files[@]}" "${library%/*}/libkxlinhw-machines.so.6"; do
    expect "$file" "the linker's tables are not made read-only" \
        in_output 'GNU_RELRO' readelf -lW "$file"
    expect "$file" "symbols are bound lazily, so the linker's tables stay writable" \
        in_output '\(FLAGS(_1)?\).*\bNOW\b' readelf -dW "$file"
    expect "$file" "the stack is executable" \
        in_output 'GNU_STACK.* RW +0x' readelf -lW "$file"
    expect "$file" "the code holds relocations" not in_output 'TEXTREL' readelf -dW "$file"
    expect "$file" "no function guards its stack" \
        in_output '__stack_chk_fail' nm -D --undefined-only "$file"
    if [[ $level == fortified ]]; then
        expect "$file" "no call checks the size of its buffer" \
            in_output '__[a-z]+_chk@' nm -D --undefined-only "$file"
    fi
done
for program in "${files[@]:1}"; do
    expect "$program" "the program is not position-independent" \
        in_output '\(FLAGS_1\).*\bPIE\b' readelf -dW "$program"
done

# Hardening must not bind the library to its own functions: an agent or a simulated host can replace
# every exported function.
expect "$library" "the library is bound to its own symbols" \
    not in_output 'SYMBOLIC' readelf -dW "$library"
for name in q4_read_reg readl lsmod GetErrStr _ZN8KxLogger13KestrixLogMsg 'BridgeUtils4ctrl'; do
    expect "$library" "$name cannot be replaced" \
        in_output "R_X86_64_(JUMP_SLO|GLOB_DAT|64).* .*$name" readelf -rW "$library"
done
exit $failed
