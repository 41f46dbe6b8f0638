#!/bin/bash
# Tries a command as a newcomer would: on a bare Debian 12, made by debootstrap for this run, in a fresh clone of
# what is committed.
#
# usage: scripts/fresh-test.sh [COMMAND...]    as root; default: scripts/demo.sh
#
# The machine's own package sources are used. Everything lies in one directory under $TMPDIR (3 GB; default
# /var/tmp), which is removed in the end. The command runs in namespaces of its own for processes and mounts, but not
# for the network, since it installs packages; it ends with the command's exit status and the time that it took.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

[ "$(id -u)" = 0 ] || { echo "fresh-test.sh: run me as root: it makes a root file system" >&2; exit 1; }
[ $# -gt 0 ] || set -- scripts/demo.sh
need debootstrap

work=$(mktemp -d "${TMPDIR:-/var/tmp}/fresh.XXXXXX")
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root
mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' | head -n 1)

echo "== Making a bare Debian 12"
debootstrap --variant=minbase --include=ca-certificates,git bookworm "$root" "$mirror" >"$work/debootstrap.log" ||
    { tail "$work/debootstrap.log" >&2; exit 1; }
rm -f "$root"/etc/apt/sources.list
cp -r /etc/apt/sources.list.d /etc/apt/apt.conf.d "$root/etc/apt"
cp /etc/resolv.conf "$root/etc"
git clone -q --bare . "$root/root/faxtrayd.git"

# A private copy of the mounts, whose end is the end of all that the command has started.
echo "== $*"
started=$SECONDS
status=0
unshare --mount --pid --fork --kill-child bash -euc '
    root=$1
    shift
    mount --rbind "$root" "$root" && mount --make-rprivate "$root"
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
    mount -t tmpfs tmpfs "$root/dev/shm"
    mount -t sysfs sysfs "$root/sys"
    mount -t tmpfs tmpfs "$root/run"
    exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LANG=C.UTF-8 \
        bash -euc "cd && git clone -q faxtrayd.git && cd faxtrayd && exec \"\$@\"" command "$@"
' in_namespaces "$root" "$@" </dev/null || status=$?
echo "== ended with status $status after $((SECONDS - started)) s, from git clone on"
exit $status
