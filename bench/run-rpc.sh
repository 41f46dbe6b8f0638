#!/bin/sh
# Runs bench_rpc beside a real rpcbind and faxtrayd in a private namespace, with one user and one fax.
# usage (as root): bench/run-rpc.sh [BUILD]     (default: build, made with -DFAXTRAY_BENCH=ON)
set -eu
bin=$(cd "${1:-build}/bin" && pwd)
site=$(mktemp -d)
trap 'rm -rf "$site"' EXIT
mkdir "$site/work" "$site/root" "$site/root/bench" "$site/incoming"
echo "127.0.0.1 localhost" >"$site/hosts"
printf '[default]\ndelivery_dir_root = %s/root\n[bench]\ndelivery_method = faxtray\ndelivery_dir = bench\n' \
    "$site" >"$site/USER_LIST.info"
printf '[ttyS0]\nincoming_dir = %s/incoming\n' "$site" >"$site/MODEMS.info"
head -c 300000 /dev/urandom >"$site/root/bench/fax"
touch -d '2020-01-01' "$site/root/bench/fax"

export bin site
unshare --net --mount --pid --uts --fork --mount-proc sh -eu -c '
    ip link set lo up
    hostname localhost
    mount --bind "$site/hosts" /etc/hosts
    mount -t tmpfs tmpfs /run
    mkdir /run/rpcbind
    rpcbind -w
    "$bin/faxtrayd" -d 0 -W "$site/work" -U "$site/USER_LIST.info" -M "$site/MODEMS.info"
    for try in 1 2 3 4 5 6 7 8 9; do
        rpcinfo -t localhost 351229 >/dev/null 2>&1 && break
        sleep 0.2
    done
    "$bin/bench_rpc" bench "$site/root/bench/fax" "$(pidof faxtrayd)" || { cat "$site/work/trayd_log"; exit 1; }
    grep VmRSS "/proc/$(pidof faxtrayd)/status"
'
