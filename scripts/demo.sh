#!/bin/bash
# Shows the main job: a sample site, a real faxtrayd beside a real rpcbind, and the faxtray command that
# lists, fetches and removes faxes, first for a user, then for a designated forwarder.
#
# usage: scripts/demo.sh    as root; on a fresh Debian 12 it first installs what is missing
#
# All but building runs on a private host (namespaces) and in a temporary directory: nothing of this
# machine's is touched, and all of it goes when the demo ends. Fails when any step does.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

title() { printf '\n=== %s\n' "$*"; }
show() { printf '\n$'; printf ' %q' "$@"; echo; "$@"; }

build_and_enter() {
    [ "$(id -u)" = 0 ] || { echo "demo.sh: run me as root: the demo makes a private host" >&2; exit 1; }
    need $build_packages $service_packages $sample_packages
    title "Building"
    cmake -S . -B build -DFAXTRAY_TESTS=ON >/dev/null
    cmake --build build -j "$(nproc)" --target faxtrayd faxtray on_private_host | tail -n 1
    exec build/bin/on_private_host bash scripts/demo.sh on-private-host
}

# The site of examples/site with faxes for Anna and for nobody in particular, still for ten minutes.
make_site() {
    title "A sample site"
    mkdir -p "$site"/{work,incoming,incoming_orders} "$site"/faxtrayes/{anna,orders} faxes
    cp "$top"/examples/site/* "$site"
    "$top"/scripts/make-faxes.sh --big faxes
    cp faxes/{letter-mh,big-mh,form-mr}.fax "$site/faxtrayes/anna"
    cp faxes/{big-mh,letter-mmr}.fax "$site/incoming"
    find "$site" -name '*.fax' -exec touch -d '10 minutes ago' {} +
    (umask 077; echo mainsail >anna.password; echo lantern >desk.password)
}

start_daemon() {
    title "faxtrayd beside rpcbind"
    export ONDRIXHOME=$site
    (cd "$site" && exec faxtrayd -f -d 60) &
    daemon=$!
    until rpcinfo -t localhost 351229 1 >/dev/null 2>&1; do
        kill -0 $daemon 2>/dev/null || { cat "$site/work/trayd_log"; return 1; }
        sleep 0.05
    done
    show rpcinfo -p | grep -e '\$' -e program -e 351229
}

# fetch_and_remove ON-DISK ARGUMENT...: lists an inbox, fetches its 1 MB fax, compares, removes, lists.
fetch_and_remove() {
    local on_disk=$1 id
    shift
    show faxtray "$@" list
    id=$(faxtray "$@" --json list | python3 -c 'import json, sys
faxes = json.load(sys.stdin)
print(max(faxes, key=lambda fax: fax["size"])["faxid"])')
    cp "$on_disk" original
    show faxtray "$@" get "$id" -o fetched
    show cmp original fetched
    echo "byte-identical: $(stat -c %s fetched) bytes"
    show faxtray "$@" rm "$id"
    [ ! -e "$on_disk" ]
    echo "gone from the server's disk"
    show faxtray "$@" list
    rm original fetched
}

[ "${1:-}" = on-private-host ] || build_and_enter

top=$PWD
export PATH=$top/build/bin:$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
site=$work/site

make_site
start_daemon

title "Anna fetches her faxes"
export FAXTRAY_PASSWORD_FILE=$work/anna.password
fetch_and_remove "$site/faxtrayes/anna/big-mh.fax" -u anna

title "The front desk, forwarder for the general incoming inbox"
export FAXTRAY_PASSWORD_FILE=$work/desk.password
show faxtray -u desk inboxes
show faxtray -u desk recipients
fetch_and_remove "$site/incoming/big-mh.fax" -u desk --inbox "General Incoming"

title "The end"
kill $daemon
wait $daemon
tail -n 2 "$site/work/trayd_log"
