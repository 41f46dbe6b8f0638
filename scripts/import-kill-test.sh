#!/bin/bash
# Kills a watching faxtray-import at each of its system calls in turn, starts it again, and checks that every document
# became exactly one whole fax, or was refused with the reason beside it, and that nothing else is left.
#
# usage: scripts/import-kill-test.sh [STEP]    with STEP, at every STEPth call only
#
# Three documents wait: a TIFF file, a PDF file and one that is no image. Between the kill and the next start, every other
# time, the faxes that have been published are taken away, as a client does: they must not come again.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

step=${1:-1}
if [ -z "${FAULT_BUILD:-}" ]; then # the program to test; by default the release build
    need $build_packages ghostscript strace
    configure_release
    cmake --build build -j "$(nproc)" --target faxtray-import | tail -n 1
fi
PATH=$(realpath "${FAULT_BUILD:-build}")/bin:$PATH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work
failures=0
fail() { # WHAT...
    echo "FAILED: $*"
    failures=$((failures + 1))
}

printf '%%!\n100 100 300 500 rectfill showpage\n' >"$work/page.ps"
gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=tiffg4 -r204x196 -sOutputFile="$work/a.tif" "$work/page.ps"
gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile="$work/b.pdf" "$work/page.ps"
echo nothing >"$work/c.txt"
faxtray-import -o "$work/fax" "$work/a.tif" # of the same lines as that of the PDF file
watched=$work/watched incoming=$work/incoming away=$work/away

clear_site() {
    rm -rf "$watched" "$incoming" "$away"
    mkdir "$watched" "$incoming" "$away"
    cp "$work"/{a.tif,b.pdf,c.txt} "$watched"
}

is_settled() { [ -z "$(find "$watched" -maxdepth 1 -type f)$(ls -A "$watched/.import" 2>&1)" ]; }

# Runs it, in $watcher, with what stands before it, until it is killed or nothing is left to do; then ends it.
import() { # COMMAND...
    "$@" faxtray-import --watch "$watched" --into "$incoming" >>"$work/log" 2>&1 &
    watcher=$!
    until is_settled || ! kill -0 $watcher 2>/dev/null; do sleep 0.005; done
    pkill -TERM -P $watcher 2>/dev/null || kill -TERM $watcher 2>/dev/null || true
    wait $watcher
}

check() { # WHERE
    local count
    count=$(ls "$incoming" "$away" | grep -c '^fax-' || true)
    [ "$count" = 2 ] || fail "$1: $count faxes"
    for fax in "$incoming"/* "$away"/*; do
        [ ! -e "$fax" ] || cmp -s "$fax" "$work/fax" || fail "$1: $fax is not the fax"
    done
    [ "$(cd "$watched" && find . -type f | sort | sed 's/\.2//' | uniq | tr '\n' ' ')" = "./done/a.tif ./done/b.pdf ./failed/c.txt ./failed/c.txt.why " ] ||
        fail "$1: there is $(cd "$watched" && find . -type f | tr '\n' ' ')"
    cmp -s "$watched/done/a.tif" "$work/a.tif" || fail "$1: the document is not what it was"
}

# The calls of one run, from the lock on; "NAME COUNT" is the COUNTth call of that NAME. The tests of a build with
# sanitizers run it too, so their own calls are not looked for.
clear_site
import strace -qq -o "$work/calls"
check "not killed"
awk '{ split($0, part, /[(,)]/) }
    /^[a-z_0-9]+\(/ { seen[part[1]]++; if (part[1] == "flock") begun = 1; if (begun) print part[1], seen[part[1]] }
    /^poll\(/ { exit }' "$work/calls" | grep -v -e '^clock_' -e '^wait4' >"$work/places"

number=0 tries=0
while read -r name count; do
    number=$((number + 1))
    [ $(((number - 1) % step)) = 0 ] || continue
    clear_site
    # Waiting for gs may take more or fewer calls this time, so that it is not killed: as good as a run without it.
    import strace -qq -o /dev/null -e "inject=$name:signal=KILL:when=$count" 2>/dev/null || true
    tries=$((tries + 1))
    if [ $((tries % 2)) = 0 ]; then
        find "$incoming" -name 'fax-*' -exec mv {} "$away" \;
    fi
    import
    check "killed at call $number, $name $count"
done <"$work/places"
echo "faxtray-import: $number system calls, killed at $tries of them"
[ $failures = 0 ] || { echo "$failures failures"; exit 1; }
