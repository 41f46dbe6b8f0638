#!/bin/bash
# Builds bench_codec, makes its pages and runs it on one processor; prints the tables of README.md.
# usage: bench/codec/run.sh [BUILD [SECONDS]]     BUILD: a folder for the build (build-bench); SECONDS: of
#                                                 every turn (0.05)
set -euo pipefail
build=${1:-build-bench} seconds=${2:-0.05}
top=$(cd "$(dirname "$0")/../.." && pwd)
source "$top/scripts/deps.sh"
need $build_packages $sample_packages

cmake -S "$top" -B "$build" -DFAXTRAY_BENCH=ON -DFAXTRAY_TESTS=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target bench_codec -j "$(nproc)" >/dev/null
pages=$(mktemp -d)
trap 'rm -rf "$pages"' EXIT
"$top/bench/codec/make_pages.py" "$pages"
echo "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1), $(c++ --version | head -n 1)," \
    "libtiff $(pkg-config --modversion libtiff-4)"
taskset -c $(($(nproc) - 1)) "$build/bin/bench_codec" "$pages" "$seconds"
