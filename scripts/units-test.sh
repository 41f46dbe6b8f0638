#!/bin/bash
# What packaging/ installs beside the programs, held against the programs that read it: systemd, sysusers, tmpfiles,
# logrotate and faxtray-check.
#
# usage: scripts/units-test.sh [BUILD]    as root (it makes a root directory with owners of its own); a test of ctest
set -euo pipefail
cd "$(dirname "$0")/.."

[ "$(id -u)" = 0 ] || exit 77
build=$(realpath "${1:-build}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
fail() { printf 'units-test.sh: %s\n' "$*" >&2; exit 1; }
install_all() {
    for component in server web; do
        DESTDIR=$root cmake --install "$build" --component $component >"$work/log" || { cat "$work/log"; exit 1; }
    done
}

install_all
units=$(dirname "$(find "$root" -name faxtrayd.service)")

# A second installation keeps what the administrator has changed.
echo '# ours' >>"$root/etc/faxtray/USER_LIST.info"
install_all
grep -q '^# ours' "$root/etc/faxtray/USER_LIST.info" || fail "USER_LIST.info was replaced"

# The units, beside those of this machine.
mkdir -p "$root/lib/systemd" "$root/bin"
cp -r /lib/systemd/system "$root/lib/systemd"
cp /bin/mkdir "$root/bin"
cd "$units"
for unit in *; do
    # What is wrong with an option is only printed.
    systemd-analyze verify --man=no --root="$root" "${unit/@./@ttyS0.}" >"$work/log" 2>&1 && [ ! -s "$work/log" ] ||
        { cat "$work/log"; fail "$unit is wrong"; }
done
# These imply NoNewPrivileges where there is User=, and then no mail agent could do its work.
! grep -nE '^(NoNewPrivileges|SystemCall[A-Z]|Restrict(AddressF|FileS|Names|Real|SUID)|Private(Dev|Net|Us)|Protect(Kernel|Clock|Hostname|Proc)|MemoryDeny|LockPers|DynamicUser)' \
    faxtrayd.service || fail "faxtrayd.service would keep mail agents from their work"

# User and directories; the lists are the group's to read, and nobody else's.
touch "$root"/etc/{passwd,group}
systemd-sysusers --root="$root" faxtray-server.conf 2>/dev/null
systemd-tmpfiles --root="$root" --create faxtray-server.conf
cd "$root"
gid=$(sed -n 's/^faxtray:[^:]*:\([0-9]*\):.*/\1/p' etc/group)
[ "$(stat -c '%a %u %g' etc/faxtray etc/faxtray/*.info | sort -u)" = "$(printf '2750 0 %s\n640 0 %s' "$gid" "$gid")" ] || fail "$(ls -lan etc/faxtray)"
[ -x "$root$(readlink etc/faxtray/utils)/tiffconv" ] || fail "utils leads nowhere"
[ "$(stat -c '%a %g' var/lib/faxtray/inboxes var/lib/faxtray/work | sort -u)" = "750 $gid" ] || fail "$(ls -lan var/lib/faxtray)"
# What the administrator has set stays.
chmod 2775 var/lib/faxtray/drop
systemd-tmpfiles --root="$root" --create faxtray-server.conf
[ "$(stat -c %a var/lib/faxtray/drop)" = 2775 ] || fail "the permissions of drop were reset"

# The lists: no error, and nobody gets in.
status=0
ONDRIXHOME=$root/etc/faxtray "$build/bin/faxtray-check" --lists >"$work/log" || status=$?
[ $status -le 1 ] || { cat "$work/log"; fail "faxtray-check finds an error in the lists"; }

# Rotation: a log that is kept open stays the same file, the others are renamed.
sed "s#/var/#$root&#g; s/su faxtray faxtray/su root root/" etc/logrotate.d/faxtray-server >"$work/rotate"
cd var
(umask 027; for log in log/faxtray/trayd_log lib/faxtray/work/{trace_faxtrayd,exception_log,access_log}; do echo line >"$log"; done)
kept=$(stat -c %i log/faxtray/trayd_log lib/faxtray/work/trace_faxtrayd)
logrotate -f -s "$work/state" "$work/rotate"
[ "$kept" = "$(stat -c %i log/faxtray/trayd_log lib/faxtray/work/trace_faxtrayd)" ] || fail "a log that is open was moved"
[ ! -s log/faxtray/trayd_log ] && [ ! -e lib/faxtray/work/access_log ] && [ -s lib/faxtray/work/access_log.1 ] &&
    [ -s lib/faxtray/work/exception_log.1 ] && [ "$(zcat log/faxtray/trayd_log.1.gz)" = line ] || fail "$(ls -lR log/faxtray lib/faxtray/work)"
