# Sourced where no systemd runs: starts a service by what its unit says.

# unit_values UNIT KEY: the values of KEY, a line each, in the unit and its drop-ins.
unit_values() {
    local file=$1 instance=
    case $1 in *@*) instance=${1#*@} instance=${instance%.service} file=${1%%@*}@.service ;; esac
    cat "/lib/systemd/system/$file" "/etc/systemd/system/$file.d/"*.conf 2>/dev/null |
        sed -n "s/^$2=//p" | sed "s/%[iI]/$instance/g"
}

# as_unit UNIT COMMAND...: becomes the command, with the unit's user, environment, directory and view of the files.
as_unit() {
    local unit=$1 environment enclosed='' limits=()
    shift
    mapfile -t environment < <(unit_values "$unit" Environment)
    case $(unit_values "$unit" ProtectSystem) in
    full | strict) enclosed='for d in /usr /etc; do mount --bind $d $d && mount -o remount,bind,ro $d; done;' ;;
    esac
    [ "$(unit_values "$unit" PrivateTmp)" != yes ] || enclosed+='mount -t tmpfs -o mode=1777 tmpfs /tmp;'
    [ "$(unit_values "$unit" NoNewPrivileges)" != yes ] || limits+=(--no-new-privs)
    cd "$(unit_values "$unit" WorkingDirectory)"
    umask "$(unit_values "$unit" UMask)"
    exec unshare --mount sh -euc "$enclosed"'exec "$@"' as_unit \
        setpriv --reuid="$(unit_values "$unit" User)" --regid="$(unit_values "$unit" Group)" --init-groups "${limits[@]}" \
        env -i "${environment[@]}" ${MAINPID:+"MAINPID=$MAINPID"} "$@"
}

# start_unit UNIT: starts it, waits as the unit says, and sets $MAINPID, the process id. Fails if it does not come up.
start_unit() {
    local line words
    MAINPID=
    while read -r line; do
        words=${line#-}
        (as_unit "$1" $words) || [ "$words" != "$line" ] || return 1
    done < <(unit_values "$1" ExecStartPre)
    as_unit "$1" $(unit_values "$1" ExecStart) &
    MAINPID=$!
    while read -r line; do
        (as_unit "$1" ${line//\$MAINPID/$MAINPID}) || return 1
    done < <(unit_values "$1" ExecStartPost)
}
