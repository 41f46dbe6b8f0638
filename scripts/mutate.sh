#!/bin/bash
# Tries the tests: makes small changes to the code, one at a time, and prints which of them a test notices.
#
# usage: scripts/mutate.sh [-j JOBS] [--list] [FOLDER...]    as root; FOLDER: codec, config, ... (default: all)
#
# The changes are the blocks in tests/data/changes/*.changes; scripts/mutate.py documents the format, and works on
# copies only. Not part of CI: a change that survives is a test to write, or a change that cannot be noticed.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

case " $* " in
*' --list '* | *' --help '* | *' -h '*) ;;
*)
    [ "$(id -u)" = 0 ] || { echo "mutate.sh: run me as root: the tests need private hosts" >&2; exit 1; }
    need $build_packages $service_packages ninja-build lld ccache python3
    ;;
esac
exec python3 scripts/mutate.py "$@"
