#!/bin/bash
# Shows the whole at work: a sample site, a real faxtrayd beside a real rpcbind, and the faxtray command
# that lists, fetches and removes faxes, for a user and for a designated forwarder.
#
# usage: scripts/demo.sh    (as root: it runs on a private host and touches nothing of this machine's;
#                            on a fresh Debian 12 it first installs what is missing)
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
source scripts/deps.sh

title() { printf '\n\033[1m== %s\033[0m\n' "$*"; }
show() { printf '\n$ %s\n' "$*" && "$@"; }

build_and_enter() {
    [ "$(id -u)" = 0 ] || { echo "demo.sh: run me as root: the demo makes a private host" >&2; exit 1; }
    need $build_packages $service_packages $sample_packages
    title "Building"
    cmake -G Ninja -S . -B build >/dev/null
    ninja -C build faxtrayd faxtray on_private_host | tail -n 1
    exec build/bin/on_private_host bash "$0" on-private-host
}

make_site() {
    title "A sample site"
    scripts/make-faxes.sh --big "$work/faxes"
    cp examples/site/* "$site"
}

start_daemon() {
    title "faxtrayd and rpcbind"
    mkdir -p "$site/work"
    (cd "$site" && ONDRIXHOME=$site exec "$top/build/bin/faxtrayd" -f) &
    daemon=$!
    for _ in $(seq 200); do
        rpcinfo -t localhost 351229 1 >/dev/null 2>&1 && break
        kill -0 $daemon || { cat "$site/work/trayd_log"; exit 1; }
        sleep 0.05
    done
    show rpcinfo -p | grep -E 'program|\$|351229'
}

[ "${1:-}" = on-private-host ] || build_and_enter
