#!/bin/bash
# Kills faxtrayd at each system call of a delivery in turn, starts it again, and checks that nothing was lost or left
# behind: the received fax is whole, what is in the inbox is whole, no temporary file is left, and the same delivery
# then succeeds.
#
# usage: scripts/kill-test.sh [STEP]    as root; with STEP, at every STEPth call only
#
# Six deliveries: to an inbox on the file system of the received faxes, to one on another, re-coded, converted to TIFF
# and to PDF on the way, and by mail. The daemon should be a release build: sanitizers make calls of their own.
# Runs on a private host (namespaces) and in a temporary directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

step=${1:-1}
if [ "${2:-}" != on-private-host ]; then
    [ "$(id -u)" = 0 ] || { echo "kill-test.sh: run me as root: the test makes a private host" >&2; exit 1; }
    need $build_packages $service_packages strace
    configure_release
    cmake --build build -j "$(nproc)" --target faxtrayd faxtray on_private_host | tail -n 1
    exec build/bin/on_private_host bash scripts/kill-test.sh "$step" on-private-host
fi

top=$PWD
export PATH=$top/build/bin:$PATH
work=$(mktemp -d)
export XDG_CACHE_HOME=$work
site=$work/site
victim=victim${work##*.} # the fax; what is made of it in /tmp must not be another run's
log=$work/log # what the daemon, strace and the client print
trap 'umount "$site/inboxes/other"; rm -rf "$work" /tmp/$victim*' EXIT
failures=0

fail() { # WHAT...
    echo "FAILED: $*"
    failures=$((failures + 1))
}

add_converter() { # NAME SCRIPT
    printf '#!/bin/sh\n%s\n' "$2" >"$site/utils/$1"
    chmod 755 "$site/utils/$1"
}

make_site() {
    mkdir -p "$site"/{work,incoming,utils,inboxes/{same,other,recoded,tiff,pdf,mail}} "$work/expected"
    mount -t tmpfs tmpfs "$site/inboxes/other"
    cp tests/data/faxes/letter-mmr.fax "$work/original"
    add_converter tiffconv '(printf TIFF; cat "$2") >"$3"'
    add_converter rasterps2 '(printf PS; cat "$3") >"$2"'
    add_converter distill '(printf PDF; cat "$1") >"${1%.ps}.pdf"'
    cat >"$site/USER_LIST.info" <<END
[default]
delivery_dir_root = $site/inboxes
delivery_file_format = as_received
[desk]
forwarder = Desk
[same]
[other]
[recoded]
delivery_file_format = g3
[tiff]
delivery_file_format = tiff_f
[pdf]
delivery_file_format = pdf
[mail]
email_address = mail
delivery_method = sunmail_attach
delivery_file_format = tiff_f
END
    printf '[ttyS0]\nincoming_dir = %s\nincoming_gui = Desk\n' "$site/incoming" >"$site/MODEMS.info"
}

# Removes everything delivered. The received fax stays if it is there, since only the file that was listed is delivered.
clear_site() {
    rm -rf "$site"/inboxes/*/[!.]* "$site"/incoming/$victim[!.]* /tmp/$victim*
    cmp -s "$work/original" "$site/incoming/$victim.fax" && return
    cp "$work/original" "$site/incoming/$victim.fax"
    touch -d '10 minutes ago' "$site/incoming/$victim.fax"
}

desk() { setsid -w faxtray -u desk --inbox Desk "$@" </dev/null; }

start_daemon() {
    # In a subshell: this shell would report how each of its own jobs ends.
    daemon=$(
        cd "$site"
        ONDRIXHOME=$site PATH=$site/utils:$PATH faxtrayd -f -d 0 >>"$log" 2>&1 &
        echo $!
    )
    until faxtray status >/dev/null 2>&1; do
        kill -0 $daemon 2>/dev/null || { cat "$log" "$site/work/trayd_log"; exit 1; }
    done
    fax=$(desk list | awk 'NR == 2 { print $1 }')
}

stop_daemon() { # SIGNAL
    kill "-$1" $daemon 2>/dev/null || true
    while kill -0 $daemon 2>/dev/null; do :; done
}

# Delivers to RECIPIENT while strace watches the daemon.
deliver_traced() { # RECIPIENT STRACE-OPTION...
    local recipient=$1 tracer
    shift
    strace -qq -p $daemon "$@" 2>>"$log" &
    tracer=$!
    until grep -q "TracerPid:.$tracer" /proc/$daemon/status 2>/dev/null; do
        kill -0 $tracer 2>/dev/null || break
    done
    desk deliver "$fax" "$recipient" >>"$log" 2>&1 || true
    kill -INT $tracer 2>/dev/null || true
    wait $tracer 2>/dev/null || true
}

# Checks that the site is as it should be, however far a delivery to RECIPIENT got.
check() { # RECIPIENT WHERE
    cmp -s "$work/original" "$site/incoming/$victim.fax" || fail "$2: the received fax is not what it was"
    local file
    for file in "$site"/inboxes/*/* "$site"/incoming/*; do
        case $file in
        */inboxes/$1/ii_*) fail "$2: left behind: $file" ;;
        */inboxes/$1/*) cmp -s "$file" "$work/expected/$1" || fail "$2: not whole: $file" ;;
        */incoming/$victim.fax | *'*') ;;
        *) fail "$2: left behind: $file" ;;
        esac
    done
    file=$(cd "$site/work" && ls | grep -v -x -e trayd_log -e exception_log -e access_log -e 'fax_ids\..*' -e 'trayd_lock\..*') &&
        fail "$2: left behind: work/$file"
    file=$(ls /tmp | grep "^$victim.*[^s]$") && fail "$2: left behind: /tmp/$file"
    return 0
}

# Delivers to RECIPIENT, killing the daemon at the COUNTth call of that NAME; false when the kill did not take.
kill_at() { # RECIPIENT NAME COUNT
    clear_site
    deliver_traced "$1" -o /dev/null -e "inject=$2:signal=KILL:when=$3"
    ! kill -0 $daemon 2>/dev/null
}

kill_at_every_call_of() { # RECIPIENT
    clear_site
    start_daemon
    deliver_traced "$1" -o "$work/calls"
    cat "$site/inboxes/$1"/* >"$work/expected/$1" 2>/dev/null || true # a mail leaves none
    [ "$1" != recoded ] || grep -qa ^COMPRESSION:0 "$work/expected/$1" || fail "$1: is not re-coded"

    # Where to kill: "NAME COUNT" for the COUNTth call of that NAME, up to the reply, which is the last write to a socket
    # or file; strace may be gone before what follows it.
    awk -F'(' '/^[a-z_0-9]+\(/ { print $1, ++seen[$1] }' "$work/calls" >"$work/all_places"
    head -n "$(grep -n '^write ' "$work/all_places" | tail -n 1 | cut -d: -f1)" "$work/all_places" >"$work/places"
    local tries=0 number=0 name count
    while read -r name count; do
        number=$((number + 1))
        [ $(((number - 1) % step)) = 0 ] || continue
        tries=$((tries + 1))
        # On a busy machine the calls may come in another number this time (of waiting, say): try again.
        local attempt=1
        until kill_at "$1" "$name" "$count"; do
            attempt=$((attempt + 1))
            [ $attempt -le 10 ] || { fail "$1: the daemon outlived call $number, $name $count, ten times"; break; }
            stop_daemon KILL
            start_daemon
        done
        stop_daemon KILL
        # Children of the daemon may outlive it: wait for them.
        while pgrep -f 'tiffconv|rasterps2|distill|sendmail' >/dev/null; do :; done
        start_daemon
        check "$1" "$1, killed at call $number, $name $count"
        desk deliver "$fax" "$1" >>"$log" 2>&1 || fail "$1, after call $number: cannot be delivered again"
        { cat "$site/inboxes/$1"/* 2>/dev/null || true; } | cmp -s - "$work/expected/$1" ||
            fail "$1, after call $number: delivered again, the inbox holds $(ls "$site/inboxes/$1")"
        check "$1" "$1, delivered again after call $number"
    done <"$work/places"
    stop_daemon TERM
    echo "$1: $number system calls, killed at $tries of them"
}

make_site
for recipient in same other recoded tiff pdf mail; do
    kill_at_every_call_of $recipient
done
[ $failures = 0 ] || { echo "$failures failures"; exit 1; }
