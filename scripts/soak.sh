#!/bin/bash
# Runs faxtrayd as a site would for as many minutes as asked for, while it is attacked: 50 readers, a fax received and a
# delivery asked for each second (to inboxes, by mail, to commands, one of which in twenty hangs for a minute and is ended
# after 10 seconds), the user list edited each minute, and the attacks of attack.sh in turn, by chance.
#
# usage: scripts/soak.sh MINUTES    as root
#
# Prints a line a minute: faxes, what a client that behaves well waited, and the daemon's memory, descriptors, processor time
# and log; then the verdict. Fails unless each fax was delivered once and whole, or its client told why not; memory and
# descriptors are in the last tenth what they were in the first; 99 of 100 questions were answered within 50 ms; and
# nothing is left behind. Takes up to five minutes longer than asked for. SOAK_BUILD: the build to run, by default the release.
# Runs on a private host (namespaces), all of which ends with it, and in a temporary directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

[ $# = 1 ] || { sed -n 's/^# usage: /usage: /p' "$0" >&2; exit 2; }
programs_for soak.sh "${SOAK_BUILD:-}" faxtrayd faxregd faxtray
exec "$build/bin/on_private_host" timeout $(($1 * 60 + 600)) python3 scripts/soak.py "$build/bin" "$1"
