#!/bin/bash
# Makes the Debian packages, build/packages/*.deb.
#
# usage: scripts/package.sh
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

need $build_packages $package_packages
flags() { DEB_BUILD_MAINT_OPTIONS=hardening=+all DEB_CFLAGS_MAINT_STRIP=-g DEB_CXXFLAGS_MAINT_STRIP=-g dpkg-buildflags --get "$1"; }
cmake -S . -B build/packages -DFAXTRAY_TESTS=OFF -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DFAXTRAY_ZSH_FUNCTIONS=share/zsh/vendor-completions \
    -DCMAKE_C_FLAGS="$(flags CFLAGS) $(flags CPPFLAGS)" -DCMAKE_CXX_FLAGS="$(flags CXXFLAGS) $(flags CPPFLAGS)" \
    -DCMAKE_EXE_LINKER_FLAGS="$(flags LDFLAGS)" >/dev/null
cmake --build build/packages -j "$(nproc)" | tail -n 1
rm -f build/packages/*.deb
(cd build/packages && cpack -G DEB >cpack.log 2>&1) || { cat build/packages/cpack.log; exit 1; }
ls -l build/packages/*.deb
