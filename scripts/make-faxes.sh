#!/bin/bash
# usage: scripts/make-faxes.sh [-n PAGES] [--big] DIR
#
# Makes sample faxes in DIR, with real pages as a fax machine would send them:
#   letter-mh.fax   a letter, 98 lines an inch, T.4 one-dimensional
#   form-mr.fax     a delivery note, 196 lines an inch, T.4 two-dimensional
#   letter-mmr.fax  a letter, 196 lines an inch, T.6
#   big-mh.fax      with --big: a price list of many pages, about 1 MB
# PAGES is the number of pages of each of the first three (1). The same call gives the same bytes.
# Ghostscript draws and codes the pages; wrap_fax.py puts them into fax files and checks that libtiff decodes
# from these what was drawn.
set -euo pipefail

usage() { sed -n 's/^# usage: /usage: /p' "$0" >&2; exit 2; }

pages=1 big=no dir=
while [ $# -gt 0 ]; do
    case $1 in
    -n) [ $# -gt 1 ] || usage; pages=$2; shift ;;
    --big) big=yes ;;
    -*) usage ;;
    *) [ -z "$dir" ] || usage; dir=$1 ;;
    esac
    shift
done
[ -n "$dir" ] && [[ $pages =~ ^[1-9][0-9]{0,2}$ ]] || usage

for tool in gs tiffcp python3; do
    command -v $tool >/dev/null || { echo "make-faxes.sh: $tool is missing (apt install ghostscript libtiff-tools python3)" >&2; exit 1; }
done
here=$(cd "$(dirname "$0")" && pwd)
mkdir -p "$dir"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# make NAME KIND PAGES LINES-AN-INCH DEVICE ATTRIBUTE...
make() {
    local name=$1 kind=$2 count=$3 lpi=$4 device=$5
    shift 5
    local lines=$((lpi * 1143 / 98))      # of an A4 page
    local draw=(gs -q -dSAFER -dBATCH -dNOPAUSE "-r204x$lpi" "-g1728x$lines" "-skind=$kind" "-dpages=$count")
    rm -f "$work"/page-*
    "${draw[@]}" "-sDEVICE=$device" "-sOutputFile=$work/page-%03d.fax" "$here/sample_pages.ps"
    "${draw[@]}" -sDEVICE=pbmraw "-sOutputFile=$work/page-%03d.pbm" "$here/sample_pages.ps"
    python3 "$here/wrap_fax.py" "$device" "$lines" "$work" "$work/made" "#PAGES:$count" "$@"
    mv "$work/made" "$dir/$name"
    echo "$dir/$name: $count pages, $(stat -c %s "$dir/$name") bytes"
}

make letter-mh.fax letter "$pages" 98 faxg3 "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2041" "T30_PWD_FRAME:" \
    "RESOLUTION:0" "COMPRESSION:0"
make form-mr.fax form "$pages" 196 faxg32d "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2042" "T30_PWD_FRAME:7781" \
    "RESOLUTION:1" "COMPRESSION:1"
make letter-mmr.fax letter "$pages" 196 faxg4 "SENDER_FAX#:+99 555 0199" "T30_SUB_FRAME:" "T30_PWD_FRAME:" \
    "RESOLUTION:1" "COMPRESSION:3"
if [ $big = yes ]; then
    make big-mh.fax prices 10 196 faxg3 "SENDER_FAX#:+99 555 0143" "T30_SUB_FRAME:2041" "T30_PWD_FRAME:" \
        "RESOLUTION:1" "COMPRESSION:0"
fi
