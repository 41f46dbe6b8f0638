# Sourced by the other scripts: installs the Debian packages they need, and only those that are missing, so that
# nothing is fetched where everything is installed; and configures the builds.

build_packages="g++ cmake make pkg-config libtirpc-dev libcli11-dev nlohmann-json3-dev libtiff-dev libpng-dev libqpdf-dev uuid-dev libcpp-httplib-dev libchafa-dev libglib2.0-dev libgtest-dev rpcsvc-proto"
service_packages="rpcbind netbase"
check_packages="clang-14 clang-tidy-14 clang-format-14 libclang-rt-14-dev lld llvm-14 mandoc python3 strace iproute2 shared-mime-info desktop-file-utils libglib2.0-bin mailcap logrotate systemd zsh"
sample_packages="ghostscript libtiff-tools poppler-utils python3"
package_packages="dpkg-dev fakeroot"

# Installs the mail agent dma, set up for local mailboxes only, unless this machine has an agent.
need_mail_agent() {
    [ "$(id -u)" = 0 ] && [ ! -e /usr/sbin/sendmail ] && [ ! -e /usr/lib/sendmail ] || return 0
    printf 'dma dma/mailname string localhost\ndma dma/relayhost string\n' | debconf-set-selections
    need dma
}

# need PACKAGE...: installs those that are missing or, unless run by root, prints what to install and fails.
need() {
    local package missing=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" != 0 ]; then
        echo "These packages are missing; install them as root: apt-get install ${missing[*]}" >&2
        return 1
    fi
    echo "== Installing ${missing[*]}"
    (
        # A freshly installed rpcbind must not start serving this machine.
        policy=/usr/sbin/policy-rc.d
        if [ ! -e $policy ]; then
            trap 'rm -f $policy' EXIT
            printf '#!/bin/sh\nexit 101\n' >$policy && chmod 755 $policy
        fi
        export DEBIAN_FRONTEND=noninteractive
        apt-get -qq update </dev/null
        apt-get -qq install -y --no-install-recommends "${missing[@]}" </dev/null >/dev/null
    )
}

# configure DIRECTORY OPTION...: a build with its tests, warnings being errors.
configure() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -DFAXTRAY_WERROR=ON -DFAXTRAY_TESTS=ON -DFAXTRAY_PCH=ON "$@" >/dev/null
}

# The build under the address and undefined-behaviour sanitizers, in build/sanitize; the benchmarks are in it so that they
# are compiled at all.
configure_sanitized() {
    configure build/sanitize -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_C_COMPILER=clang-14 -DCMAKE_BUILD_TYPE=Debug \
        -DFAXTRAY_SANITIZE=ON -DFAXTRAY_BENCH=ON -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld
}

# The release build in build/, the same for the tests, the demo and the kill-test.
configure_release() {
    configure build -DCMAKE_BUILD_TYPE=Release
}

# programs_for SCRIPT BUILD TARGET...: sets $build, the directory of a build with these programs, for a test on a private
# host: BUILD or, if that is empty, the release, brought up to date.
programs_for() {
    [ "$(id -u)" = 0 ] || { echo "$1: run me as root: the test makes a private host" >&2; exit 1; }
    if [ -z "$2" ]; then
        need $build_packages $service_packages python3 strace
        configure_release
        cmake --build build -j "$(nproc)" --target on_private_host "${@:3}" | tail -n 1
    fi
    build=$(realpath "${2:-build}")
}
