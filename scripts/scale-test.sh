#!/bin/bash
# Runs three fax servers on one replicated GlusterFS volume of two bricks, set up by the very commands of
# faxtray-scaling(7): 200 users, four forwarders, readers, removers and a receiver, all through hosts taken at random. On
# the way a brick is killed and comes back, then a host loses its power and comes back.
#
# usage: scripts/scale-test.sh [MINUTES]    as root; 10 by default
#
# Fails unless every fax is in the one state that what was done with it explains, whole; none twice unless a client
# repeated a delivery; every host lists every fax; no line of the shared logs is torn; nothing is left behind; and the volume
# is healed. Prints how long listings took before, while and after something was away. SCALE_BUILD: the build to run, by
# default the release. Runs on private hosts (namespaces), all of which end with it, and in a temporary directory.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

need glusterfs-server iproute2
minutes=${1:-10}
programs_for scale-test.sh "${SCALE_BUILD:-}" faxtrayd faxregd faxtray
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
timeout -k 5 $((minutes * 60 + 600)) "$build/bin/on_private_host" python3 scripts/scale-test.py "$build/bin" "$minutes" "$work"
