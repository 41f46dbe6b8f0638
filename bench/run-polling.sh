#!/bin/bash
# Runs bench_polling beside a real rpcbind and faxtrayd in a private namespace; Dovecot's imap process is run without its
# master. usage (as root): bench/run-polling.sh [BUILD [DIRECTORY]]
#
# BUILD was made with -DFAXTRAY_BENCH=ON (default: build); the data, 222,000 files, are made in a new directory of DIRECTORY
# (default: /tmp) and removed at the end.
set -euo pipefail
bin=$(cd "${1:-build}/bin" && pwd)
(cd "$(dirname "$0")/.." && source scripts/deps.sh && need rpcbind netbase dovecot-imapd)
site=$(mktemp -d "${2:-/tmp}/polling.XXXXXX")
trap 'rm -rf "$site"' EXIT
chmod 755 "$site"
mkdir "$site/work"
echo "127.0.0.1 localhost" >"$site/hosts"
for size in 1000 10000 100000; do echo "[fax$size]"; done >"$site/users"
{ printf '[default]\ndelivery_dir_root = %s\n' "$site" && cat "$site/users"; } >"$site/USER_LIST.info"
printf '[ttyS0]\nincoming_dir = %s\n' "$site/work" >"$site/MODEMS.info"
cat >"$site/dovecot.conf" <<END
ssl = no
first_valid_uid = 1
first_valid_gid = 1
base_dir = $site/work
log_path = /dev/stderr
info_log_path = /dev/null
END

export bin site
unshare --net --mount --pid --uts --fork --mount-proc bash -euc '
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
    "$bin/bench_polling" "$(pidof faxtrayd)" "$site" "$site/dovecot.conf" || { cat "$site/work/trayd_log"; exit 1; }
'
