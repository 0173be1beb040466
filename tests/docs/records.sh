#!/usr/bin/env bash
# docs/records.md has every record of the public headers, without a gap, and every offset and size
# agrees with the compiler.
set -euo pipefail
compiler=$1
source=$2
page=$source/docs/records.md
directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
failed=0

# Each row becomes an assertion; rows must follow one another without a gap, up to the record's
# size. Rows with a dot are parts of the row before them.
awk -F '|' '
    function close_record() {
        if (record != "") {
            printf "static_assert(sizeof(%s) == %d, \"%s: rows end at %d\");\n", record, end, record, end
        }
    }
    /^## / {
        close_record()
        record = substr($0, 4)
        end = 0
    }
    record != "" && /^[0-9]+ bytes/ {
        printf "static_assert(sizeof(%s) == %d, \"%s: its size\");\n", record, $1, record
    }
    record != "" && /^\| `/ {
        gsub(/[` ]/, "", $2)
        if ($5 ~ /^ *$/) {
            printf "static_assert(false, \"%s.%s has no meaning\");\n", record, $2
        }
        printf "static_assert(offsetof(%s, %s) == %d && sizeof(decltype(%s::%s)) == %d, \"%s.%s\");\n",
            record, $2, $3, record, $2, $4, record, $2
        if ($2 !~ /\./) {
            if ($3 + 0 != end) {
                printf "static_assert(false, \"%s.%s: the row before ends at %d\");\n", record, $2, end
            }
            end = $3 + $4
        }
    }
    END { close_record() }
' "$page" | sed -E 's/decltype\((\w+)::([a-z_0-9]+)\.([a-z_0-9.]+)\)/decltype(\1().\2.\3)/' >"$directory/rows"

{
    printf '#include <%s>\n' cstddef kxlinhw/kxlinhw.h kxlinhw/vmutils.h
    cat "$directory/rows"
} >"$directory/records.cpp"
"$compiler" -std=c++20 -fsyntax-only -Wno-invalid-offsetof -I"$source/include" \
    "$directory/records.cpp" || failed=1

# Every structure of the headers has a table, except those that only other headers define.
while read -r record; do
    if ! grep -qxF "## $record" "$page"; then
        echo "docs/records.md lacks $record"
        failed=1
    fi
done < <(sed -nE 's/^(typedef )?struct (\w+) \{.*/\2/p' "$source"/include/kxlinhw/*.h)

[[ $(grep -c static_assert "$directory/rows") -gt 200 ]] || failed=1
exit $failed
