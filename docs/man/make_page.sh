#!/bin/sh
# make_page.sh SCDOC SOURCE PAGE: makes a manual page.
set -eu
scdoc=$1
source=$2
page=$3

trap 'rm -f "$page.roff"' EXIT
"$scdoc" <"$source" >"$page.roff"
awk -f "$(dirname "$0")/tidy.awk" "$page.roff" >"$page"
