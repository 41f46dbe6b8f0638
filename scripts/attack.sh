#!/bin/bash
# Attacks a running faxtrayd in many ways while a client that behaves well asks all the time. Prints for each attack how
# long that client waited, and the daemon's memory, descriptors, processor time and log, during the attack and after it.
#
# usage: scripts/attack.sh [SECONDS|short [ATTACK...]]
#     as root; SECONDS for each attack, 5 by default; malformed records come a million of each kind, however long it takes
#
# Fails if 1 question in 100 takes longer than 50 ms, or one longer than 250 ms; if more than 1 MB of memory or any
# descriptor is not given back; or if the daemon does not end in time and clean up behind itself. "short" tries every attack
# within half a minute. It allows five times as long, and what fails is tried twice more, since other work on the machine
# makes clients wait, too.
# The daemon should be a release build: sanitizers keep memory. Runs on a private host (namespaces) and in a temporary
# directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

programs_for attack.sh "${ATTACK_BUILD:-}" faxtrayd faxregd faxtray
exec "$build/bin/on_private_host" python3 scripts/attack.py "$build/bin" "${@:-5}"
