# Sourced by the scripts that try something on a bare Debian 12.

# make_fresh_root ROOT: a minimal system made by debootstrap, with this machine's package sources. FRESH_ROOT_CACHE, if
# set, is a directory that keeps one for the next time.
make_fresh_root() {
    local root=$1 made=${FRESH_ROOT_CACHE:-$1} mirror
    if [ ! -e "$made/etc/resolv.conf" ]; then
        mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Codename: bookworm' | head -n 1)
        debootstrap --variant=minbase --include=ca-certificates,git bookworm "$made" "$mirror" >"$root.log" ||
            { tail "$root.log" >&2; return 1; }
        rm -f "$made"/etc/apt/sources.list
        cp -r /etc/apt/sources.list.d /etc/apt/apt.conf.d "$made/etc/apt"
        cp /etc/resolv.conf "$made/etc"
    fi
    [ "$made" = "$root" ] || cp -a "$made" "$root"
}

# in_fresh_root ROOT NET COMMAND...: runs a command in it, in namespaces of its own for processes and mounts, and unless
# NET is "online" for the network, which then is loopback alone. The end of the command is the end of all it started.
in_fresh_root() {
    local private=(--mount --pid)
    [ "$2" = online ] || private+=(--net --uts)
    unshare "${private[@]}" --fork --kill-child bash -euc '
        root=$1
        [ "$2" = online ] || { ip link set lo up; hostname localhost; }
        shift 2
        mount --rbind "$root" "$root" && mount --make-rprivate "$root"
        mount -t proc proc "$root/proc"
        mount --rbind /dev "$root/dev"
        mount -t tmpfs tmpfs "$root/dev/shm"
        mount -t sysfs sysfs "$root/sys"
        mount -t tmpfs tmpfs "$root/run"
        exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LANG=C.UTF-8 "$@"
    ' in_namespaces "$@" </dev/null
}

# boot_fresh_root ROOT: starts its systemd in namespaces of its own, with loopback alone for a network, until
# end_booted_root. False where this machine's control groups do not allow it.
boot_fresh_root() {
    booted_group=$(findmnt -n -t cgroup2 -o TARGET | head -n 1)/fresh-root-$$
    mkdir "$booted_group" 2>/dev/null || return 1
    (
        echo "$BASHPID" >"$booted_group/cgroup.procs"
        exec unshare --mount --pid --net --uts --ipc --cgroup --fork --kill-child bash -euc '
            root=$1
            ip link set lo up
            hostname localhost
            mount --make-rprivate /
            mount --bind "$root" "$root"
            mount -t proc proc "$root/proc"
            mount -t sysfs sysfs "$root/sys"
            mount -t tmpfs tmpfs "$root/sys/fs/cgroup"
            mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
            mount -t tmpfs tmpfs "$root/run"
            mount -t tmpfs tmpfs "$root/dev"
            mkdir "$root"/dev/{shm,pts}
            mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
            ln -s pts/ptmx "$root/dev/ptmx"
            for device in null zero full random urandom tty; do
                touch "$root/dev/$device"
                mount --bind /dev/$device "$root/dev/$device"
            done
            exec chroot "$root" env -i container=lxc PATH=/usr/sbin:/usr/bin:/sbin:/bin /lib/systemd/systemd --log-target=null
        ' in_namespaces "$1"
    ) </dev/null >/dev/null 2>&1 &
    booted=$!
}

in_booted_root() { # COMMAND...
    nsenter -a -r -w -t "$(pgrep -P "$booted")" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root TERM=dumb LANG=C.UTF-8 "$@" </dev/null
}

end_booted_root() {
    kill -KILL "$(pgrep -P "$booted")" # with it goes all that it has started
    wait "$booted" || true
    sleep 1
    find "$booted_group" -depth -type d -exec rmdir {} \;
}
