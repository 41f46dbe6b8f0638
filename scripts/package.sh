#!/bin/bash
# Makes the Debian packages, build/packages/*.deb.
#
# usage: scripts/package.sh
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

need $build_packages $package_packages
eval "$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --export=sh)"
export CXXFLAGS="$CXXFLAGS $CPPFLAGS" # cmake knows no CPPFLAGS
cmake -S . -B build/packages -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_SYSCONFDIR=/etc \
    -DCMAKE_INSTALL_LIBEXECDIR=libexec -DFAXTRAY_TESTS=OFF "$@" >/dev/null
cmake --build build/packages -j "$(nproc)" | tail -n 1
rm -f build/packages/*.deb
(cd build/packages && cpack -G DEB >cpack.log 2>&1) || { cat build/packages/cpack.log; exit 1; }
ls -l build/packages/*.deb
