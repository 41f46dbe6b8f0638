#!/bin/bash
# Kills faxtrayd at each system call of a delivery in turn, and checks that nothing was lost or left behind: the received
# fax is whole, what is in the inbox is whole, no temporary file is left, and the same delivery then succeeds.
#
# usage: scripts/kill-test.sh [STEP]    as root; with STEP, at every STEPth call only
#
# The delivery's child is killed: the client is told, the daemon cleans up at once, logs it and goes on. The daemon is
# killed and started again: a delivery that its child has begun goes on to its end beside the new daemon, which leaves
# alone what that child is working on.
#
# Six deliveries: to an inbox on the file system of the received faxes, to one on another, re-coded, converted to TIFF
# and to PDF on the way, and by mail.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
source scripts/delivery_site.sh

step=${1:-1}
on_private_host_only scripts/kill-test.sh "$step" "${@:2}"

early='Trayd: Send failed: the delivery has ended early.'
log_line='Trayd: A delivery has ended early: wait status 0x9.'

# Delivers to RECIPIENT, killing WHOM at the COUNTth call of that NAME; false when the kill did not take.
kill_at() { # RECIPIENT daemon|child NAME COUNT
    clear_site
    : >"$site/work/trayd_log"
    tamper=(-e "inject=$3:signal=KILL:when=$4")
    traced "$2" desk deliver "$fax" "$1"
    # The client may see the end of the daemon, and end strace, before strace has written it down.
    grep -q '^+++ killed by SIGKILL' "$calls" || { [ "$2" = daemon ] && ! faxtray rev >/dev/null 2>&1; }
}

check_child_killed() { # RECIPIENT WHERE
    [ $status = 1 ] && grep -qF "$early" "$answer" || fail "$2: the client was told: $(cat "$answer")"
    grep -qF "$log_line" "$site/work/trayd_log" || fail "$2: no line in the log"
    faxtray rev >/dev/null 2>&1 || fail "$2: the daemon is gone"
    await_children 1
    check "$1" "$2"
}

check_daemon_killed() { # RECIPIENT WHERE
    start_daemon
    await_children 1
    check "$1" "$2"
}

kill_at_every_call() { # RECIPIENT daemon|child
    start_daemon
    record_delivery "$1" "$2"
    # The last place is where the reply, or the child's report of it, is written: what follows may not be seen by strace.
    places >"$work/all_places"
    head -n "$(grep -n -E '^(write|sendmsg) ' "$work/all_places" | tail -n 1 | cut -d: -f1)" "$work/all_places" >"$work/places"
    local tries=0 number=0 name count attempt where
    while read -r name count; do
        number=$((number + 1))
        [ $(((number - 1) % step)) = 0 ] || continue
        tries=$((tries + 1))
        where="$1, the $2 killed at call $number, $name $count"
        # On a busy machine the calls may come in another number this time (of waiting, say): try again.
        for attempt in {1..10}; do
            kill_at "$1" "$2" "$name" "$count" && break
            [ $attempt != 10 ] || fail "$where: not ended by it, ten times"
        done
        "check_$2_killed" "$1" "$where"
        check_delivers "$1" "$where"
    done <"$work/places"
    stop_daemon TERM
    echo "$1: $number system calls of the $2, killed at $tries of them"
}

make_site
for recipient in same other recoded tiff pdf mail; do
    kill_at_every_call $recipient child
done
for recipient in same pdf; do
    kill_at_every_call $recipient daemon
done
finish
