#!/bin/bash
# Builds everything and runs all checks and tests; on a fresh Debian 12 it first installs what is
# missing (as root). usage: scripts/test.sh
#
# The service tests run a real daemon, rpcbind and clients on a private host (namespaces): they need
# root, and are skipped without.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

jobs=$(nproc)
started=$SECONDS
step() { printf '\n== %s (%d s)\n' "$*" $((SECONDS - started)); }

configure() { # DIRECTORY OPTION...
    local dir=$1
    shift
    cmake -S . -B "$dir" -DFAXTRAY_WERROR=ON -DFAXTRAY_TESTS=ON "$@" >/dev/null
}

build() { # DIRECTORY: quiet unless it fails
    cmake --build "$1" -j "$jobs" >"$1/build.log" 2>&1 || { tail -n 60 "$1/build.log"; return 1; }
}

run_tests() { # DIRECTORY
    ctest --test-dir "$1" -j "$jobs" --output-on-failure --progress </dev/null
}

need $build_packages $service_packages $bench_packages clang-14 clang-tidy-14 clang-format-14 libclang-rt-14-dev mandoc python3 strace
need_mail_agent

step "Layout of the sources"
git ls-files -z '*.cc' '*.h' | xargs -0 clang-format-14 --dry-run --Werror

step "Manual pages"
mandoc -T lint -W warning man/*.[0-9]

step "Build with clang"
configure build/clang -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_C_COMPILER=clang-14 -DCMAKE_BUILD_TYPE=Debug \
    -DFAXTRAY_BENCH=ON
build build/clang

step "Static analysis"
run-clang-tidy-14 -quiet -j "$jobs" -p build/clang "$PWD/src/" >build/clang/tidy.log 2>&1 ||
    { grep -E 'error:|warning:' -A 4 build/clang/tidy.log; exit 1; }

[ "$(id -u)" = 0 ] || step "NOTE: the service tests need root and are skipped now: run sudo scripts/test.sh"

step "Tests under the address and undefined-behaviour sanitizers"
configure build/sanitize -DFAXTRAY_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
build build/sanitize
run_tests build/sanitize

step "Tests of the release build"
configure build -DCMAKE_BUILD_TYPE=Release
build build
run_tests build

if [ "$(id -u)" = 0 ]; then
    step "Killed at every fifth system call of a delivery"
    scripts/kill-test.sh 5 </dev/null || [ $? = 77 ] # 77: no private hosts here
fi
