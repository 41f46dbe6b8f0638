#!/bin/bash
# Makes each system call of a listing, a removal, a reload of the lists and each kind of delivery fail in turn, with
# every error of six that it can return, then each allocation of memory, and checks that the client was told the truth,
# nothing was lost or left behind, what is in the inbox is whole, and the daemon goes on.
#
# usage: scripts/fault-test.sh [--sanitized] [STEP [WHAT...]]    as root; with STEP, at every STEPth fault only
#
# WHAT: list (what has changed), scan (the same, looking at every file), reload, remove, deliver (the daemon's part of a
# delivery), and recipients, for the child's part; by default all.
# Several runs may go on beside each other.
#
# With --sanitized only allocations fail, in programs under the address and undefined-behaviour sanitizers. WHAT may then
# be convert, too: faxconv reads a fax of each coding, and re-codes it to each.
#
# Whatever fails, the daemon must not keep memory for it. At the end it prints how often each answer was given, and when first.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
source scripts/delivery_site.sh

sanitized=
[ "${1:-}" != --sanitized ] || { sanitized=$1; shift; }
step=${1:-1}
if [ $sanitized ] && [ -z "${FAULT_BUILD:-}" ]; then
    need $build_packages $service_packages clang-14 libclang-rt-14-dev lld
    configure_sanitized
    cmake --build build/sanitize -j "$(nproc)" --target faxtrayd faxtray faxconv on_private_host | tail -n 1
    export FAULT_BUILD=build/sanitize
fi
on_private_host_only scripts/fault-test.sh $sanitized "$step" "${@:2}"
everything=(list scan reload remove deliver same other recoded tiff pdf mail mime body command ${sanitized:+convert})
[ $# -gt 2 ] && wanted=("${@:2:$# - 2}") || wanted=("${everything[@]}")

# The errors of a call that are tried: all six where a file system has a say, else those that the call knows. Calls that
# cannot fail in these ways have none; close() would not close.
errors_of() { # NAME
    case $1 in
    openat | read | pread64 | write | writev | pwrite64 | fsync | fdatasync | copy_file_range | sendfile | ftruncate | \
        rename | renameat | renameat2 | link | linkat | mkdir | mkdirat | unlink | unlinkat | rmdir | newfstatat | fstat | \
        statx | readlink | readlinkat | utimensat | fchmod | getdents64 | getcwd | flock)
        echo ENOSPC EIO EMFILE EINTR ENOMEM EDQUOT ;;
    recvfrom | sendmsg | sendto) echo EINTR ENOMEM ;;
    epoll_ctl) echo ENOSPC ENOMEM ;;
    accept4) echo EMFILE EINTR ENOMEM ;;
    socket | pipe2 | epoll_create1 | fcntl) echo EMFILE ENOMEM ;;
    epoll_wait | poll | wait4 | connect | getrandom) echo EINTR ;;
    inotify_init1) echo EMFILE ENOMEM ;;
    inotify_add_watch) echo ENOSPC ENOMEM ;;
    fstatfs) echo EIO ENOMEM ;;
    clone | clone3 | mmap | brk | mremap) echo ENOMEM ;;
    dup2 | dup3) echo EINTR EMFILE ;;
    esac
}

# What the preloaded library is told and tells, in $control: three numbers of four bytes.
arm() { # daemon|child|nobody COUNT: that allocation fails; of faxconv, which has no children, as of the daemon
    local number numbers=("$(case $1 in daemon) echo 1 ;; child) echo 2 ;; *) echo 0 ;; esac)" "$2")
    for number in "${numbers[@]}"; do
        printf "$(printf '\\x%02x' $((number & 255)) $((number >> 8 & 255)) $((number >> 16 & 255)) $((number >> 24)))"
    done 1<>"$control" >&1
}
left() { echo $(od -An -td4 -j4 -N4 "$control"); } # allocations until the one that fails
live() { echo $(od -An -td4 -j8 -N4 "$control"); } # allocations that the daemon has not freed

# Every fault of the calls that strace has seen and of that many allocations, "NAME COUNT ERROR" a line.
faults() { # ALLOCATIONS
    local name count error
    [ $sanitized ] || places | while read -r name count; do
        for error in $(errors_of "$name"); do
            echo "$name $count $error"
        done
    done
    seq -f 'malloc %g ENOMEM' "$1"
}

# What is tried: each prints what the client prints, and fails if the client does.
list() { desk list; }
scan() {
    mkdir "$site/incoming/doubt" && rmdir "$site/incoming/doubt"
    desk list
}
remove() { desk rm "$fax"; }
reload() {
    touch "$site/USER_LIST.info" "$site/MODEMS.info"
    desk inboxes
}
deliver() { desk deliver "$fax" "$1"; } # RECIPIENT

# Brings the site to where each try begins.
begin() {
    if ! cmp -s "$work/original" "$site/incoming/$victim.fax"; then
        # A running daemon would list no fax that is older than its last scan.
        stop_daemon TERM
        rm -f "$site/incoming/.inbox_index"
    fi
    clear_site
    kill -0 $daemon 2>/dev/null || start_daemon
    fax=$(listed_fax)
}

# Shows what a sanitizer has found; WHERE is where it was looking.
check_reports() { # WHERE FILE
    ! grep -a -A 20 -E '(Address|Leak)Sanitizer|runtime error' "$2" || fail "$1: see above"
}

check_answer() { # WHERE COMMAND [RECIPIENT]
    check_reports "$1" "$site/work/trayd_log"
    : >"$site/work/trayd_log"
    sed -E "s|$site||g; s|$victim|victim|g; s|[0-9]{2,}|N|g; s|^|$2: |; s|\$|\t($1)|" "$answer" >>"$work/answers"
    kill -0 $daemon 2>/dev/null || { fail "$1: the daemon is gone"; start_daemon; }
    if [ $status != 0 ]; then
        [ -s "$answer" ] || fail "$1: no answer"
    elif [ "$2" = deliver ]; then
        check_delivered "$3" "$1"
    elif [ "$2" = remove ]; then
        [ ! -e "$site/incoming/$victim.fax" ] || fail "$1: told as removed, and is there"
    else
        cmp -s "$answer" "$work/expected/$2" || fail "$1: answered $(cat "$answer")"
    fi
    [ "$2" = remove ] || check "${3:-none}" "$1"
}

# Tries the same with nothing failing. A fax that could not be looked at, or removed, has another id then.
check_again() { # WHERE COMMAND [RECIPIENT]
    fax=$(listed_fax) || fail "$1: no fax is listed afterwards"
    [ ! -e "$site/incoming/$victim.fax" ] || "${@:2}" >"$answer" 2>&1 || fail "$1, again: $(cat "$answer")"
    status=0
    check_answer "$1, again" "${@:2}"
}

# Runs a command with one fault; false if what should have failed did not come.
run_with_fault() { # daemon|child NAME COUNT ERROR COMMAND...
    if [ "$2" = malloc ]; then
        arm "$1" "$3"
        "${@:5}" >"$answer" 2>&1 && status=0 || status=$?
        [ "$(left)" -le 0 ] && came=yes || came=
        arm nobody 0
        [ $came ]
    else
        tamper=(-e "inject=$2:error=$4:when=$3")
        traced "$1" "${@:5}"
        grep -q INJECTED "$calls"
    fi
}

# Runs a command without a fault, for what it answers and does, and how many calls and allocations it makes.
record() { # daemon|child COMMAND [RECIPIENT]
    begin
    tamper=()
    if [ $sanitized ]; then
        "${@:2}" >"$answer" 2>&1 && status=0 || status=$?
    else
        traced "$@"
    fi
    [ $status = 0 ] || fail "${*:2}: $(cat "$answer")"
    cp "$answer" "$work/expected/$2"
    [ $# = 2 ] || cat "$site/inboxes/$3"/* >"$work/expected/$3" 2>/dev/null || true # a mail leaves none
    begin
    arm "$1" $many
    "${@:2}" >/dev/null
    local allocations=$((many - $(left)))
    arm nobody 0
    faults $allocations >"$work/faults"
}

# One try; $kept is what the daemon has allocated and not freed more than before.
try_fault() { # WHERE daemon|child NAME COUNT ERROR COMMAND [RECIPIENT]
    local where=$1 name=$3 before tries
    begin
    before=$(live)
    run_with_fault "${@:2}" || missed=$((missed + 1))
    # What cannot be removed is left to the next start.
    [ $name != unlink ] || { stop_daemon TERM; start_daemon; before=$many; }
    check_answer "$where" "${@:6}"
    check_again "$where" "${@:6}"
    for tries in {1..20}; do # it may still be about to close the client's connection
        kept=$(($(live) - before))
        [ $kept -gt 0 ] || break
        sleep 0.01
    done
}

fail_in_every_way() { # daemon|child COMMAND [RECIPIENT]
    local whom=$1 tries=0 number=0 name count error where fault
    record "$@"
    shift
    while read -r name count error; do
        number=$((number + 1))
        [ $(((number - 1) % step)) = 0 ] || continue
        tries=$((tries + 1))
        where="$*, $name $count of the $whom fails with $error"
        fault=("$where" "$whom" "$name" "$count" "$error" "$@")
        try_fault "${fault[@]}"
        # A buffer may have grown, once. What is lost is lost each time.
        [ $kept -le 0 ] || try_fault "${fault[@]}"
        [ $kept -le 0 ] || fail "$where: the daemon has kept $kept allocations, again"
    done <"$work/faults"
    echo "$*: $number faults of the $whom, $tries tried"
}

# One run of faxconv, in a directory of its own that holds the fax; an allocation fails if $control says so.
convert() { # ARGUMENT...
    rm -rf "$work/convert" && mkdir "$work/convert"
    cp "$work/coded/$coding.fax" "$work/convert/in.fax"
    (cd "$work/convert" && FAIL_MALLOC=$control faxconv "$@") >"$answer" 2>&1 && status=0 || status=$?
}

convert_failing() { # ARGUMENT...
    local count=0 tries=0 where
    arm daemon $many
    convert "$@"
    [ $status = 0 ] || fail "$coding $*: $(cat "$answer")"
    local allocations=$((many - $(left)))
    rm -rf "$work/expected/convert" && cp -r "$work/convert" "$work/expected/convert"
    for ((count = 1; count <= allocations; count += step)); do
        tries=$((tries + 1))
        where="$coding $*, malloc $count"
        arm daemon $count
        convert "$@"
        check_reports "$where" "$answer"
        if [ $status = 0 ]; then
            diff -r "$work/expected/convert" "$work/convert" || fail "$where: succeeded, but differs"
        else
            [ -s "$answer" ] || fail "$where: no message"
            cmp -s "$work/coded/$coding.fax" "$work/convert/in.fax" || fail "$where: the fax is not what it was"
            [ "$(ls -A "$work/convert")" = in.fax ] || fail "$where: left behind: $(ls -A "$work/convert")"
        fi
    done
    arm nobody 0
    echo "faxconv, $coding $*: $allocations faults, $tries tried"
}

convert_in_every_way() {
    local coding to
    mkdir -p "$work/coded"
    for coding in mh mr mmr; do
        faxconv --to "$work/coded/$coding.fax" "$work/original" $coding
        convert_failing --info in.fax
        convert_failing --pbm page in.fax
        for to in mh mr mmr; do
            convert_failing --to out.fax in.fax $to
            convert_failing in.fax $to
        done
    done
}

many=1000000000 # allocations, more than anything makes
missed=0
make_site
control=$work/control
head -c 12 /dev/zero >"$control"
environment+=(FAIL_MALLOC="$control")
export LSAN_OPTIONS=suppressions=$PWD/tests/support/libtirpc.supp:print_suppressions=0
if [ ! $sanitized ]; then
    cc -O1 -shared -fPIC -o "$work/fail_malloc.so" scripts/fail_malloc.c
    environment+=(LD_PRELOAD="$work/fail_malloc.so")
fi
start_daemon
for what in "${wanted[@]}"; do
    case $what in
    list | scan | reload | remove) fail_in_every_way daemon $what ;;
    deliver) fail_in_every_way daemon deliver same ;;
    convert) convert_in_every_way ;;
    *) fail_in_every_way child deliver "$what" ;;
    esac
done
stop_daemon TERM
check_reports "at the end" "$site/work/trayd_log" # of leaks, too
echo "$missed faults did not come; the answers:"
awk -F'\t' '{ if (!seen[$1]++) first[$1] = $2 } END { for (text in seen) print seen[text], text, first[text] }' "$work/answers" | sort -rn
finish
