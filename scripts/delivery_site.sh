# Sourced by kill-test.sh and fault-test.sh: a site in a temporary directory with a running faxtrayd, a received fax
# and recipients of every kind; system calls of the daemon, or of the child that carries out a delivery, that are
# tampered with by strace; and what has to be true afterwards.

# on_private_host_only SCRIPT ARGUMENT...: runs the script again on a private host, unless it is on one already. The
# daemon should be a release build: sanitizers make calls of their own.
on_private_host_only() {
    [ "${!#}" != on-private-host ] || return 0
    local build
    programs_for "$1" "${FAULT_BUILD:-}" faxtrayd faxtray
    PATH=$build/bin:$PATH exec on_private_host bash "$@" on-private-host
}

failures=0

fail() { # WHAT...
    echo "FAILED: $*"
    failures=$((failures + 1))
}

finish() {
    [ $failures = 0 ] || { echo "$failures failures"; exit 1; }
}

add_converter() { # NAME SCRIPT
    printf '#!/bin/sh\n%s\n' "$2" >"$site/utils/$1"
    chmod 755 "$site/utils/$1"
}

# Sets $site, and $log: what the daemon, strace and the client print.
make_site() {
    work=$(mktemp -d)
    export XDG_CACHE_HOME=$work
    site=$work/site
    victim=victim${work##*.} # the fax; what is made of it in /tmp must not be another run's
    log=$work/log
    calls=$work/calls   # what strace has seen
    answer=$work/answer # what the client of a delivery has printed
    trap 'umount "$site/inboxes/other"; rm -rf "$work" /tmp/$victim*' EXIT
    mkdir -p "$site"/{work,incoming,utils,inboxes/{same,other,recoded,tiff,pdf,mail,mime,body,command}} "$work/expected"
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
[mime]
email_address = mime
delivery_method = mimemail_attach
[body]
email_address = body
delivery_method = email_body
[command]
email_address = command
when_to_notify = fax_incoming
how_to_notify = email
delivery_method = exec:cp
delivery_dir_root = $site/inboxes/command
END
    printf '[ttyS0]\nincoming_dir = %s\nincoming_gui = Desk\n' "$site/incoming" >"$site/MODEMS.info"
    clear_site
}

# Removes everything delivered. The received fax stays if it is there, since only the file that was listed is delivered.
clear_site() {
    rm -rf "$site"/inboxes/*/[!.]* "$site"/incoming/$victim[!.]* /tmp/$victim* "$site"/work/{FD[FM].*,delivery_note.*}
    cmp -s "$work/original" "$site/incoming/$victim.fax" && return
    cp "$work/original" "$site/incoming/$victim.fax"
    touch -d '10 minutes ago' "$site/incoming/$victim.fax"
}

desk() { setsid -w faxtray -u desk --inbox Desk "$@" </dev/null; }

environment=(env) # of the daemon; what else is to be in it can be added
listed_fax() { desk list | awk 'NR == 2 { print $1 }'; } # its id

start_daemon() {
    # In a subshell: this shell would report how each of its own jobs ends.
    daemon=$(
        cd "$site"
        ONDRIXHOME=$site PATH=$site/utils:$PATH "${environment[@]}" faxtrayd -f -d 0 >>"$log" 2>&1 &
        echo $!
    )
    until faxtray rev >/dev/null 2>&1; do
        kill -0 $daemon 2>/dev/null || { cat "$log" "$site/work/trayd_log"; exit 1; }
    done
    fax=$(listed_fax)
}

stop_daemon() { # SIGNAL
    kill "-$1" $daemon 2>/dev/null || true
    while kill -0 $daemon 2>/dev/null; do :; done
}

# Starts strace on that process, in $tracer, and returns when it watches.
trace() { # PID STRACE-OPTION...
    local pid=$1
    shift
    strace -qq -p "$pid" "$@" 2>>"$log" &
    tracer=$!
    until grep -q "TracerPid:.$tracer" "/proc/$pid/status" 2>/dev/null; do
        kill -0 $tracer 2>/dev/null || break
    done
}

end_trace() {
    kill -INT $tracer 2>/dev/null || true
    wait $tracer 2>/dev/null || true
}

# Runs a command of the client while strace watches the daemon, or the child that carries out the delivery that the
# command asks for, with the options in $tamper; $calls gets the calls, $status the exit status and $answer the output.
tamper=()
traced() { # daemon|child COMMAND...
    local whom=$1 client child
    shift
    : >"$calls"
    if [ "$whom" = daemon ]; then
        trace $daemon -o "$calls" "${tamper[@]}"
        "$@" >"$answer" 2>&1 && status=0 || status=$?
    else
        # Of the two, only the child makes this call, its first: it stops there until strace watches it alone.
        trace $daemon -f -o "$work/stop" -e inject=set_robust_list:signal=STOP
        "$@" >"$answer" 2>&1 &
        client=$!
        until grep -q 'stopped by SIGSTOP' "$work/stop"; do
            kill -0 $client 2>/dev/null || break
        done
        end_trace
        child=$(pgrep -P $daemon) && trace "$child" -o "$calls" "${tamper[@]}" && kill -CONT "$child"
        wait $client && status=0 || status=$?
    fi
    end_trace
}

# Writes where the process that strace has watched may be tampered with, "NAME COUNT" for the COUNTth call of that NAME.
# Files in memory are left out: nothing happens to them.
places() {
    awk '{ split($0, part, /[(,)]/) }
        /^[a-z_0-9]+\(/ { seen[part[1]]++; if (!(part[2] in memory)) print part[1], seen[part[1]] }
        /^memfd_create\(/ { memory[$NF] }
        /^close\(/ { delete memory[part[2]] }' "$calls"
}

# Children of the daemon, and theirs, may outlive it: waits for them.
await_children() {
    while pgrep -f 'tiffconv|rasterps2|distill|sendmail' >/dev/null || [ "$(pgrep -c -x faxtrayd)" -gt "${1:-0}" ]; do :; done
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

# Checks that the inbox of RECIPIENT holds the fax, whole and once.
check_delivered() { # RECIPIENT WHERE
    { cat "$site/inboxes/$1"/* 2>/dev/null || true; } | cmp -s - "$work/expected/$1" ||
        fail "$2: delivered, but the inbox holds $(ls "$site/inboxes/$1")"
}

# Delivers to RECIPIENT with nothing tampered with.
check_delivers() { # RECIPIENT WHERE
    desk deliver "$fax" "$1" >>"$log" 2>&1 || fail "$2: cannot be delivered again"
    check_delivered "$1" "$2, delivered again"
    check "$1" "$2, delivered again"
}

# Delivers to RECIPIENT while strace watches WHOM; $calls and $work/expected/RECIPIENT then say what happens without a
# fault.
record_delivery() { # RECIPIENT daemon|child
    clear_site
    tamper=()
    traced "$2" desk deliver "$fax" "$1"
    [ $status = 0 ] || fail "$1: cannot be delivered: $(cat "$answer")"
    cat "$site/inboxes/$1"/* >"$work/expected/$1" 2>/dev/null || true # a mail leaves none
    [ "$1" != recoded ] || grep -qa ^COMPRESSION:0 "$work/expected/$1" || fail "$1: is not re-coded"
}
