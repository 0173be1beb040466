#!/usr/bin/env bash
# function_pages.sh SOURCE PAGES: each exported name has a manual page, members of classes too, and the
# pages say what the headers say.
set -euo pipefail
export LC_ALL=C
exec </dev/null
source=$1 pages=$2
failed=0

if [[ ! -d $pages/man3 ]]; then
    echo "the manual pages of the exported names are not built (no scdoc, or no Python 3)"
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

# Names of C, and classes with their members; the page of a class covers its constructor.
exported_names() {
    grep -E '^[A-Za-z]' "$source/src/exports.txt"
    grep -E '^_Z' "$source/src/exports.txt" | c++filt | sed -E 's/\(.*//; p; s/::.*//' |
        grep -vE '^(\w+)::~?\1$'
}
diff <(exported_names | sort -u) <(cd "$pages/man3" && printf '%s\n' *.3 | sed 's/\.3$//' | sort) ||
    complain "the exported names (<) and the manual pages (>) differ"

cd "$pages"
mandoc -T lint -W error man3/*.3 || complain "a page is not well-formed"
for page in man3/*.3; do
    text=$(mandoc -T ascii -O width=500 "$page" | sed 's/.\x08//g')
    for section in NAME SYNOPSIS DESCRIPTION 'SEE ALSO'; do
        grep -qx "$section" <<<"$text" || complain "$page has no section $section"
    done
    grep -q '#include <kxlinhw/' <<<"$text" || complain "$page names no header"
done
expect() {
    # grep reads to the end: with -q the programs before it would fail.
    mandoc -T ascii -O width=500 "man3/$1.3" | sed 's/.\x08//g' | grep -F -- "$2" >/dev/null ||
        complain "the page of $1 lacks: $2"
}
expect GetCardInfo 'uint32_t GetCardInfo(void* buffer, uint32_t* length);'
expect GetCardInfo '555 bytes each'
expect scan_hbas 'Scan all PCI buses'
expect isIscsiQ3Loaded 'Is one module loaded: kxiscsi_q3'
expect mmapd_len 'its length in bytes'
expect VMUtils::attachVFToVM 'int attachVFToVM('
exit $failed
