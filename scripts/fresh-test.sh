#!/bin/bash
# Tries a command as a newcomer would: on a bare Debian 12, made by debootstrap for this run, in a fresh clone of
# what is committed.
#
# usage: scripts/fresh-test.sh [COMMAND...]    as root; default: scripts/demo.sh
#
# The machine's own package sources are used. Everything lies in one directory under $TMPDIR (3 GB; default
# /var/tmp), which is removed in the end. The command has the network, since it installs packages. The script ends with
# the command's exit status and the time that it took.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh
source scripts/fresh_root.sh

[ "$(id -u)" = 0 ] || { echo "fresh-test.sh: run me as root: it makes a root file system" >&2; exit 1; }
[ $# -gt 0 ] || set -- scripts/demo.sh
need debootstrap

work=$(mktemp -d "${TMPDIR:-/var/tmp}/fresh.XXXXXX")
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root

echo "== Making a bare Debian 12"
make_fresh_root "$root"
git clone -q --bare . "$root/root/faxtrayd.git"

echo "== $*"
started=$SECONDS
status=0
in_fresh_root "$root" online bash -euc "cd && git clone -q faxtrayd.git && cd faxtrayd && exec \"\$@\"" command "$@" || status=$?
echo "== ended with status $status after $((SECONDS - started)) s, from git clone on"
exit $status
