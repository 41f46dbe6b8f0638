#!/bin/bash
# Shows the main job: a sample site, a real faxtrayd and faxregd beside a real rpcbind, and the faxtray command
# that lists, fetches and removes faxes, first for a user, then for a designated forwarder, who also delivers.
#
# usage: scripts/demo.sh    as root; on a fresh Debian 12 it first installs what is missing
#
# Everything but the build runs on a private host (namespaces) and in a temporary directory, both removed when
# the demo ends; nothing else on this machine is touched. Fails if any step fails.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

title() { printf '\n=== %s\n' "$*"; }
show() { printf '\n$'; printf ' %q' "$@"; echo; "$@"; }

build_and_enter() {
    [ "$(id -u)" = 0 ] || { echo "demo.sh: run me as root: the demo makes a private host" >&2; exit 1; }
    need $build_packages $service_packages $sample_packages
    title "Building"
    configure_release
    cmake --build build -j "$(nproc)" --target faxtrayd faxtray faxregd on_private_host | tail -n 1
    exec build/bin/on_private_host bash scripts/demo.sh on-private-host
}

# Makes new faxes some minutes old: none is listed until it has been unchanged for a minute.
let_settle() { find "$site" -name '*.fax' -mmin -1 -exec touch -d "$1 minutes ago" {} +; }

# The site of examples/site with faxes for Anna and for nobody in particular, still for ten minutes.
make_site() {
    title "A sample site"
    mkdir -p "$site"/{work,incoming,incoming_orders} "$site"/faxtrayes/{anna,orders} faxes
    cp "$top"/examples/site/* "$site"
    "$top"/scripts/make-faxes.sh --big faxes
    cp faxes/{letter-mh,big-mh,form-mr}.fax "$site/faxtrayes/anna"
    cp faxes/{big-mh,letter-mmr,form-mr}.fax "$site/incoming"
    let_settle 10
    (umask 077; echo mainsail >anna.password; echo halyard >bela.password; echo lantern >desk.password)
}

start_daemon() {
    title "faxtrayd beside faxregd and rpcbind"
    export ONDRIXHOME=$site XDG_CACHE_HOME=$work
    faxregd -f &
    registry=$!
    (cd "$site" && exec faxtrayd -f -d 60) &
    daemon=$!
    until rpcinfo -t localhost 351229 1 >/dev/null 2>&1; do
        kill -0 $daemon 2>/dev/null || { cat "$site/work/trayd_log"; return 1; }
        sleep 0.05
    done
    until rpcinfo -t localhost 351165 1 >/dev/null 2>&1; do
        kill -0 $registry
        sleep 0.05
    done
    show rpcinfo -p | grep -e '\$' -e program -e 351229 -e 351165
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
    echo "removed from the server's disk"
    show faxtray "$@" list
    rm original fetched
}

# The id of the fax of that name in an inbox.
id_of() { # NAME ARGUMENT...
    local name=$1
    shift
    faxtray "$@" --json list | python3 -c 'import json, sys
print(next(fax["faxid"] for fax in json.load(sys.stdin) if fax["name"] == sys.argv[1]))' "$name"
}

# Delivers to one user, and to a group: two of its members have inboxes, the third gets mail.
deliver() {
    local desk=(-u desk --inbox "General Incoming")
    show faxtray -u desk recipients
    show faxtray "${desk[@]}" list
    show faxtray "${desk[@]}" deliver "$(id_of letter-mmr.fax "${desk[@]}")" anna
    show faxtray "${desk[@]}" deliver "$(id_of form-mr.fax "${desk[@]}")" sales
    title "A while later: Anna has two more, Bela one, and Carl got his by mail"
    let_settle 5
    FAXTRAY_PASSWORD_FILE=$work/anna.password show faxtray -u anna list
    FAXTRAY_PASSWORD_FILE=$work/bela.password show faxtray -u bela list
    show grep -h -e ^args: -e ^From: -e ^Subject: -e ^Content-Type: -r /run/mail
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
fetch_and_remove "$site/incoming/big-mh.fax" -u desk --inbox "General Incoming"

title "The front desk delivers what it has not taken"
deliver

title "The end"
kill $daemon $registry
wait $daemon
tail -n 2 "$site/work/trayd_log"
