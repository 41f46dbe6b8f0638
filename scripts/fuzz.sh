#!/bin/bash
# Builds all fuzzers and runs each for that many seconds, two at a time, then prints how each ended.
#
# usage: scripts/fuzz.sh SECONDS [FUZZER...]     e.g. scripts/fuzz.sh 900 fuzz_t4_mr fuzz_fax_file
#
# New inputs are kept in build-fuzz/corpus, so that the next run continues from there. Inputs that crash a fuzzer
# are in build-fuzz/finds; the script fails if there are any.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || { sed -n 's/^# usage: /usage: /p' "$0" >&2; exit 2; }
seconds=$1
shift
need $build_packages clang-14 libclang-rt-14-dev

build=build-fuzz
cmake -S . -B $build -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DFAXTRAY_FUZZ=ON \
    -DFAXTRAY_TESTS=OFF >/dev/null
cmake --build $build -j "$(nproc)" | tail -n 1
[ $# -gt 0 ] || set -- $(cd $build/bin && ls -d fuzz_*)

run() { # FUZZER
    local corpus=${1#fuzz_}
    mkdir -p $build/corpus/"$corpus" $build/finds
    $build/bin/"$1" -close_fd_mask=3 -max_total_time="$seconds" -max_len=8192 -timeout=20 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix=$build/finds/"$1"- \
        $build/corpus/"$corpus" fuzz/corpus/"$corpus" >$build/"$1".log 2>&1
}

status=0
while [ $# -gt 0 ]; do
    run "$1" & first=$!
    [ $# -lt 2 ] || { run "$2" & second=$!; }
    wait $first || status=1
    [ $# -lt 2 ] || wait $second || status=1
    for fuzzer in "${@:1:2}"; do
        echo "== $fuzzer"
        grep -E '^(Done|stat::(number_of_executed|average_exec|peak_rss)|SUMMARY|Test unit)|ERROR' $build/"$fuzzer".log || true
    done
    shift $(($# < 2 ? 1 : 2))
done
[ $status = 0 ] || ls -l $build/finds
exit $status
