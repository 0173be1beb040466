#!/usr/bin/env bash
# The library exports the names of src/exports.txt and no other, and each flat name is declared in
# a public header.
set -euo pipefail
export LC_ALL=C
library=$1
source=$2

listed=$(grep -E '^[A-Za-z_]' "$source/src/exports.txt" | sort)
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | sort -u)
failed=0

if ! diff <(printf '%s\n' "$listed") <(printf '%s\n' "$exported"); then
    echo "src/exports.txt (<) and the dynamic symbols (>) differ"
    failed=1
fi

if [[ -n $(uniq -d <<<"$listed") ]]; then
    echo "src/exports.txt names twice: $(uniq -d <<<"$listed")"
    failed=1
fi

while read -r name; do
    if [[ $name != _Z* ]] && ! grep -rqw -- "$name" "$source/include/kxlinhw"; then
        echo "$name is exported, but no public header declares it"
        failed=1
    fi
done <<<"$listed"

exit $failed
