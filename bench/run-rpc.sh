#!/bin/sh
# Runs the RPC benchmarks beside a real rpcbind and faxtrayd in a private namespace: one user with one fax on the disk,
# and on a tmpfs the work directory, an incoming inbox with one fax, its forwarder, and the user to whom it is delivered.
# usage (as root): bench/run-rpc.sh [BUILD [BENCH...]]     (default: build, made with -DFAXTRAY_BENCH=ON, and all:
# rpc rpc_idle rpc_delivery)
set -eu
bin=$(cd "${1:-build}/bin" && pwd)
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || set -- rpc rpc_idle rpc_delivery
site=$(mktemp -d)
trap 'rm -rf "$site"' EXIT
mkdir "$site/root" "$site/root/bench" "$site/memory"
echo "127.0.0.1 localhost" >"$site/hosts"
cat >"$site/USER_LIST.info" <<END
[default]
delivery_dir_root = $site/root
delivery_file_format = as_received
[bench]
[desk]
forwarder = Desk
[anna]
delivery_dir_root = $site/memory
END
cat >"$site/MODEMS.info" <<END
[ttyS0]
incoming_dir = $site/memory/incoming
incoming_gui = Desk
END
head -c 600000 /dev/urandom >"$site/root/bench/fax"
touch -d '2020-01-01' "$site/root/bench/fax"

export bin site
unshare --net --mount --pid --uts --fork --mount-proc sh -eu -c '
    ip link set lo up
    hostname localhost
    mount --bind "$site/hosts" /etc/hosts
    mount -t tmpfs tmpfs /run
    mkdir /run/rpcbind
    mount -t tmpfs tmpfs "$site/memory"
    mkdir "$site/memory/incoming" "$site/memory/work"
    head -c 100000 /dev/urandom >"$site/memory/incoming/received.fax"
    touch -d 2020-01-01 "$site/memory/incoming/received.fax"
    rpcbind -w
    "$bin/faxtrayd" -d 0 -W "$site/memory/work" -U "$site/USER_LIST.info" -M "$site/MODEMS.info"
    for try in 1 2 3 4 5 6 7 8 9; do
        rpcinfo -t localhost 351229 >/dev/null 2>&1 && break
        sleep 0.2
    done
    daemon=$(pidof faxtrayd)
    for bench; do
        case $bench in
        rpc) "$bin/bench_rpc" bench "$site/root/bench/fax" "$daemon" ;;
        rpc_idle) "$bin/bench_rpc_idle" "$daemon" ;;
        rpc_delivery) "$bin/bench_rpc_delivery" desk anna "$site/memory/anna/received0_.fax" ;;
        esac || { cat "$site/memory/work/trayd_log"; exit 1; }
        echo
    done
    grep VmRSS "/proc/$daemon/status"
' run-rpc "$@"
