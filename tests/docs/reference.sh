#!/usr/bin/env bash
# The reference of the headers: doxygen has no warning, and each exported flat name has its text.
set -euo pipefail
source=$1

if ! command -v doxygen >/dev/null; then
    echo "doxygen is not installed: the reference cannot be checked"
    exit 77
fi

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
failed=0
sed -e "s|@PROJECT_SOURCE_DIR@|$source|; s|@KX_REFERENCE_DIRECTORY@|$directory|" \
    -e 's|@KX_REFERENCE_XML@|YES|; s|@PROJECT_VERSION@|0|; s|^GENERATE_HTML .*|GENERATE_HTML = NO|' \
    "$source/docs/reference/Doxyfile.in" >"$directory/Doxyfile"
doxygen "$directory/Doxyfile" >"$directory/messages" 2>&1 || failed=1
if [[ -s $directory/messages ]]; then
    cat "$directory/messages"
    failed=1
fi

# The names of members with a brief or detailed description.
described=$(sed -E 's/<[^>]*description>/\n&\n/g' "$directory"/xml/*_8h.xml | awk '
    /<memberdef kind="(function|variable)"/ { name = "" }
    name == "" && /<name>/ {
        name = $0
        gsub(/.*<name>|<\/name>.*/, "", name)
    }
    /<(brief|detailed)description>/ { inside = 1 }
    /<\/(brief|detailed)description>/ { inside = 0 }
    inside && /[a-z]<|[a-z]\.|[a-z]/ && !/description>/ { print name }
' | sort -u)
while read -r name; do
    if ! grep -qxF -- "$name" <<<"$described"; then
        echo "the reference tells nothing of $name"
        failed=1
    fi
done < <(grep -E '^[A-Za-z]' "$source/src/exports.txt")
exit $failed
