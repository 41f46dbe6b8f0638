#!/bin/bash
# What one, two and three fax servers do on a GlusterFS volume of two bricks, beside one on the local disk, all on this
# machine: listings, reads and deliveries a second, and what the processors were busy with; and single calls on either.
#
# usage: bench/run-scale.sh [BUILD]    as root; BUILD: by default the release, brought up to date
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

need glusterfs-server iproute2
programs_for run-scale.sh "${1:-}" faxtrayd faxregd faxtray
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for servers in 1 2 3; do
    mkdir "$work/$servers"
    "$build/bin/on_private_host" python3 bench/scale.py "$build/bin" "$work/$servers" $servers
done
