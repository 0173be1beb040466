#!/usr/bin/env bash
# direct_calls.sh LIBRARY EXPORTS COMPILER: the library reaches its exported functions only through
# the linker's table, so that an agent can replace each of them. Compilers and linkers that bind
# them directly (or call a copy of one) are found in the disassembly.
set -euo pipefail
library=$1 exports=$2 compiler=$3
command -v objdump >/dev/null || { echo 'Skipped: objdump (binutils) is not installed.'; exit 77; }

# direct_calls LIBRARY EXPORTS: calls and jumps to the start of an exported function or to a copy of
# it, each as "CALLER: INSTRUCTION".
direct_calls() {
    objdump --disassemble --no-show-raw-insn "$1" | awk -v exports="$2" '
        BEGIN {
            while ((getline name < exports) > 0)
                if (name ~ /^[A-Za-z_]/) exported[name] = 1
        }
        /^[0-9a-f]+ <.*>:$/ { caller = $2; next }
        match($0, /(call|jmp|j[a-z]+|bl|b)[ \t]+[0-9a-f]+ <[^>+@]+>$/) {
            target = $NF
            gsub(/[<>]/, "", target)
            sub(/\.(part|constprop|isra)\..*/, "", target)
            if (target in exported) print caller, substr($0, RSTART)
        }'
}

# The check itself: it finds a function that is bound directly, and no other one.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
printf 'int asked(int);\nint caller(int n) { return asked(n) + 1; }\n' >"$scratch/caller.c"
printf 'int asked(int n) { return n * 3; }\n' >"$scratch/asked.c"
printf 'asked\ncaller\n' >"$scratch/exports.txt"
sources=("$scratch/caller.c" "$scratch/asked.c")
"$compiler" -O2 -fPIC -shared -o "$scratch/bound.so" -Wl,-Bsymbolic "${sources[@]}"
"$compiler" -O2 -fPIC -shared -o "$scratch/free.so" "${sources[@]}"
[[ $(direct_calls "$scratch/bound.so" "$scratch/exports.txt") == *caller*asked* ]] ||
    { echo 'This check does not notice a direct call.'; exit 1; }
[[ -z $(direct_calls "$scratch/free.so" "$scratch/exports.txt") ]] ||
    { echo 'This check takes a call through the table for a direct one.'; exit 1; }

found=$(direct_calls "$library" "$exports")
[[ -z $found ]] || { printf 'Direct calls of exported functions:\n%s\n' "$found"; exit 1; }
