#!/bin/bash
# Attacks a running faxtrayd in many ways while a well-behaved client asks all the time, and prints how long that
# client waits, and what each attack leaves behind in memory, descriptors and log.
#
# usage: scripts/attack.sh [SECONDS [ATTACK...]]    as root; SECONDS for each attack, 5 by default
#
# Fails if the client ever waits longer than it should, or if memory or descriptors do not come back. The daemon
# should be a release build: sanitizers keep memory. Runs on a private host (namespaces) and in a temporary directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

[ "$(id -u)" = 0 ] || { echo "attack.sh: run me as root: the test makes a private host" >&2; exit 1; }
if [ -z "${ATTACK_BUILD:-}" ]; then # the programs to attack; by default the release build
    need $build_packages $service_packages python3
    configure_release
    cmake --build build -j "$(nproc)" --target faxtrayd on_private_host | tail -n 1
fi
build=$(realpath "${ATTACK_BUILD:-build}")
exec "$build/bin/on_private_host" python3 scripts/attack.py "$build/bin/faxtrayd" "${@:-5}"
