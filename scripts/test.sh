#!/bin/bash
# Builds everything and runs all checks and tests; on a fresh Debian 12 it first installs what is missing (as root).
#
# usage: scripts/test.sh [--packages] [--scale] [--web]
#
# With an option, one long test more: of the Debian packages on a bare system (package-test.sh), of three hosts on one
# replicated volume (scale-test.sh), of the web pages in a real browser (web-test.sh).
#
# Two builds: by clang with the address and undefined-behaviour sanitizers (benchmarks too), and the release by gcc,
# the one that scripts/demo.sh shows. Both treat warnings as errors, and every test runs in both. The service tests
# run a real daemon, rpcbind and clients on private hosts (namespaces): they need root, and are skipped without.
# The last line says how many checks and tests passed and how many failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1
source scripts/deps.sh

long_tests=()
for option in "$@"; do
    case $option in
    --packages) long_tests+=(package) ;;
    --scale) long_tests+=(scale) ;;
    --web) long_tests+=(web) ;;
    *) echo "usage: scripts/test.sh [--packages] [--scale] [--web]" >&2; exit 2 ;;
    esac
done

passed=0
failed=0
verdict() { printf '\nfaxtrayd: %d passed, %d failed (%d s)\n' $passed $failed $SECONDS; }

step() { printf '\n== %s (%d s)\n' "$*" $SECONDS; }

# watched LOG COMMAND...: runs a command whose output goes to a log, and every 20 seconds shows where it is.
watched() {
    local log=$1 pid next=$((SECONDS + 20))
    shift
    "$@" >"$log" 2>&1 </dev/null &
    pid=$!
    while kill -0 $pid 2>/dev/null; do
        sleep 0.2
        [ $SECONDS -lt $next ] || { printf '%5d s  %s\n' $SECONDS "$(tail -n 1 "$log" | cut -c 1-100)"; next=$((SECONDS + 20)); }
    done
    wait $pid
}

# check NAME LOG COMMAND...: one check; its output is shown when it fails.
check() {
    local name=$1 log=$2
    step "$name"
    shift 2
    if watched "$log" "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        grep -E -A 4 'error:|warning:|FAILED|Error' "$log" | tail -n 100 || true
        tail -n 20 "$log"
        echo "$name: failed"
        return 1
    fi
}

packages() {
    need $build_packages $service_packages $check_packages $sample_packages && need_mail_agent
}

layout() {
    git ls-files -z '*.cc' '*.h' | xargs -0 clang-format-14 --dry-run --Werror &&
        python3 scripts/mutate.py --list # each change fits the code
}

build_sanitized() {
    configure_sanitized && cmake --build build/sanitize -j "$(nproc)"
}

build_release() {
    configure_release && cmake --build build -j "$(nproc)"
}

kill_test() {
    scripts/kill-test.sh 5 || [ $? = 77 ] # 77: no private hosts here
}

import_kill_test() {
    FAULT_BUILD=build scripts/import-kill-test.sh 40
}

fault_test() {
    scripts/fault-test.sh 200 || [ $? = 77 ]
}

allocation_test() {
    FAULT_BUILD=build/sanitize scripts/fault-test.sh --sanitized 100 || [ $? = 77 ]
}

attack_test() {
    ATTACK_BUILD=build scripts/attack.sh short || [ $? = 77 ]
}

# Service tests mostly wait, so more of them run at a time than there are processors.
run_tests() { # NAME DIRECTORY
    local log=$2/tests.log summary
    step "$1"
    watched "$log" ctest --test-dir "$2" -j $(($(nproc) * 3)) --output-on-failure || sed -n '/\*\*\*[EFT]/,/Start /p;/^The following/,$p' "$log"
    # "98% tests passed, 3 tests failed out of 187"
    summary=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log") || { failed=$((failed + 1)); return; }
    read -r _ _ _ count _ _ _ _ total <<<"$summary"
    failed=$((failed + count))
    passed=$((passed + total - count))
    grep '(Skipped)' "$log" | sed -n 's/.*- \(.*\) (Skipped)/skipped: \1/p'
    echo "$summary"
}

mkdir -p build/sanitize
check "Packages" build/packages.log packages || { verdict; exit 1; }
check "Layout of the sources" build/layout.log layout
check "Manual pages" build/pages.log mandoc -T lint -W warning man/*.[0-9]
check "Build by clang with the sanitizers" build/sanitize/build.log build_sanitized &&
    run_tests "Tests under the address and undefined-behaviour sanitizers" build/sanitize
check "Static analysis" build/sanitize/tidy.log \
    run-clang-tidy-14 -quiet -j "$(nproc)" -p build/sanitize "$PWD/src/"
check "Build of the release by gcc" build/build.log build_release &&
    run_tests "Tests of the release build" build
check "Kills at every 40th system call of a watching importer" build/import-kill-test.log import_kill_test
if [ "$(id -u)" = 0 ]; then
    check "Kills at every fifth system call of a delivery" build/kill-test.log kill_test
    check "Failures of every 200th system call and allocation" build/fault-test.log fault_test
    check "Failures of every 100th allocation under the sanitizers" build/allocation-test.log allocation_test
    check "Each attack for a moment" build/attack.log attack_test
else
    step "NOTE: the service tests need root and were skipped: run sudo scripts/test.sh"
fi
for name in "${long_tests[@]}"; do
    check "Long test: $name" "build/$name-test.log" "scripts/$name-test.sh"
done

verdict
[ $failed = 0 ]
