#!/bin/bash
# The Debian packages on a bare Debian 12: installed, served by what the units say, upgraded, removed, purged.
#
# usage: scripts/package-test.sh    as root
#
# The services are started twice: by run_unit.sh, which does what their units say, and by systemd itself, where control
# groups allow it to run in namespaces. Everything but the installation runs without a network.
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '\n== %s\n' "$*"; }
fail() { printf 'package-test.sh: %s\n' "$*" >&2; exit 1; }
now() { date +%s.%N; }
since() { awk "BEGIN { printf \"%.1f s\n\", $(now) - $1 }"; }

outside() {
    source scripts/deps.sh
    source scripts/fresh_root.sh
    [ "$(id -u)" = 0 ] || fail "run me as root: I make a root file system"
    need debootstrap iproute2 lintian
    say "Packages"
    scripts/package.sh
    lintian --no-cfg --allow-root --fail-on error,warning build/packages/*.deb

    work=$(mktemp -d "${TMPDIR:-/var/tmp}/packages.XXXXXX")
    trap 'rm -rf --one-file-system "$work"' EXIT
    say "A bare Debian 12"
    make_fresh_root "$work/root"
    mkdir "$work/root/root/scripts"
    cp build/packages/*.deb "$work/root/root"
    cp scripts/{package-test,run_unit}.sh scripts/sample_pages.ps "$work/root/root/scripts"
    in_fresh_root "$work/root" online bash /root/scripts/package-test.sh install
    cp -a "$work/root" "$work/booted"
    for step in serve upgrade remove; do
        in_fresh_root "$work/root" offline bash /root/scripts/package-test.sh $step
    done
    if boot_fresh_root "$work/booted"; then
        trap 'end_booted_root; rm -rf --one-file-system "$work"' EXIT
        sleep 1
        in_booted_root bash /root/scripts/package-test.sh under_systemd
    else
        echo "skipped: systemd cannot run here"
    fi
    say "The packages are sound"
}

# --- What follows runs in the bare system.

install() {
    say "Installation"
    printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d # packages start nothing here
    chmod 755 /usr/sbin/policy-rc.d
    apt-get -qq update
    local started
    started=$(now)
    DEBIAN_FRONTEND=noninteractive apt-get -qq install -y ./*.deb >install.log 2>&1 || { cat install.log; fail "not installed"; }
    echo "apt-get install: $(since "$started")"
    [ -L /etc/systemd/system/multi-user.target.wants/faxtrayd.service ] || fail "faxtrayd is not enabled"
}

start_services() {
    mkdir -p /run/rpcbind
    rpcbind -w
    services=()
    for unit in faxregd.service faxtrayd.service faxtray-import@ttyS0.service; do
        start_unit $unit || { cat /var/log/faxtray/trayd_log || true; fail "$unit does not start"; }
        services+=($MAINPID)
    done
}

stop_services() {
    local pid
    kill "${services[@]}"
    for pid in "${services[@]}"; do
        wait "$pid" || [ $? = 143 ] || fail "a service ended badly" # 143: by the signal, when hardly started
    done
}

# within SECONDS COMMAND...: repeats it until it succeeds.
within() {
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || { "$@" || fail "in vain: $*"; }
        sleep 0.2
    done
}

desk() { faxtray -u desk --password-file desk.password --inbox "General Incoming" "$@"; }
newest() { desk --json list | sed -n 's/.*"faxid": *\([0-9]*\).*/\1/p' | tail -n 1; }
pages() { gs -q -dNODISPLAY --permit-file-read="$1" -c "($1) (r) file runpdfbegin pdfpagecount = quit"; }

# Users are added as an administrator would: in a copy that is renamed.
add_users() {
    (umask 077; echo lantern >desk.password)
    {
        cat /etc/faxtray/USER_LIST.info
        printf '[desk]\n\tforwarder = General Incoming\n\t%s\n' "$(faxtray --password-file desk.password passwd)"
        printf '[anna]\n\tdelivery_file_format = pdf\n[carl]\n\tdelivery_method = mimemail_attach\n\temail_address = root@localhost\n'
    } >/etc/faxtray/USER_LIST.new
    mv /etc/faxtray/USER_LIST.new /etc/faxtray/USER_LIST.info
}

# A receiver's document becomes a fax of the modem, which the front desk fetches and delivers.
receive_and_deliver() { # WHEN-STARTED
    add_users
    gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -skind=letter -dpages=2 -sPAPERSIZE=a4 -sOutputFile=letter.pdf scripts/sample_pages.ps
    cp letter.pdf /var/lib/faxtray/drop/ttyS0
    within 60 test -e /var/lib/faxtray/drop/ttyS0/done/letter.pdf
    touch -d '2 minutes ago' /var/lib/faxtray/incoming/*.fax # older than the delay of listings
    within 10 desk get newest --as pdf -o fetched.pdf
    [ "$(pages fetched.pdf)" = 2 ] || fail "the PDF that was fetched has not two pages"
    echo "from the start of the services to a fax as PDF: $(since "$1")"
    [ "$(stat -c '%a %U:%G' /var/lib/faxtray/incoming/*.fax)" = "640 faxtray:faxtray" ] || fail "$(ls -l /var/lib/faxtray/incoming)"

    # Converters and the mail agent, which is a set-user-id program, are found and can do their work.
    desk deliver "$(newest)" anna
    [ "$(pages "$(echo /var/lib/faxtray/inboxes/anna/*.pdf)")" = 2 ] || fail "Anna has no PDF of two pages"
    desk deliver "$(newest)" carl
    within 10 grep -q 'fax.*\.fax' /var/mail/mail
}

serve() {
    say "Service"
    local status=0 log=/var/lib/faxtray/work/access_log user started
    started=$(now)
    start_services
    (as_unit faxtrayd.service $(unit_values faxtrayd.service ExecStartPre | sed 's/^-//')) || status=$?
    [ $status -le 1 ] || fail "faxtray-check finds an error in a fresh installation"
    for user in admin default anna faxtray; do
        ! faxtray -u $user list >/dev/null 2>&1 || fail "$user gets in without a password"
    done
    receive_and_deliver "$started"

    logrotate -f /etc/logrotate.d/faxtray-server
    desk get newest -o again.fax
    grep -q 'event=fetch .*result=ok' $log && grep -q 'event=deliver .*result=ok' $log.1 || fail "the access log was not rotated"
    stop_services
    tail -n 1 /var/log/faxtray/trayd_log
    [ -s /var/log/faxtray/trayd_log ] && [ "$(stat -c '%a %U' /var/log/faxtray/trayd_log)" = "640 faxtray" ] ||
        fail "$(ls -l /var/log/faxtray)"
}

# What an upgrade, removal and purge must not touch.
faxes() { (cd /var/lib/faxtray && find incoming inboxes drop -type f | sort | xargs md5sum); }

upgrade() {
    say "Upgrade"
    faxes >before
    dpkg -i ./faxtray-*.deb >upgrade.log
    # Another version brings new lists: the one that was changed stays, the other is replaced.
    dpkg-deb -R faxtray-server_*.deb tree
    sed -i 's/^Version: .*/&+1/' tree/DEBIAN/control
    for list in USER_LIST MODEMS; do echo '# new' >>tree/etc/faxtray/$list.info; done
    dpkg-deb --root-owner-group -b tree newer.deb >/dev/null
    dpkg -i --force-confold newer.deb >>upgrade.log
    grep -q '^\[desk\]' /etc/faxtray/USER_LIST.info && ! grep -q '# new' /etc/faxtray/USER_LIST.info || fail "USER_LIST.info was replaced"
    grep -q '# new' /etc/faxtray/MODEMS.info || fail "MODEMS.info is the old one"
    [ "$(stat -c '%a %U:%G' /etc/faxtray/*.info | sort -u)" = "640 root:faxtray" ] || fail "$(ls -l /etc/faxtray)"
    faxes | cmp - before
    start_services
    within 10 desk list
    desk list | grep fax-
    stop_services
}

remove() {
    say "Removal"
    faxes >before
    dpkg -r faxtray-server faxtray-web >remove.log
    [ -e /etc/faxtray/USER_LIST.info ] && [ ! -e /usr/sbin/faxtrayd ] || fail "removed too much or too little"
    dpkg -P faxtray-client faxtray-web >>remove.log
    dpkg -P faxtray-server 2>&1 | tee purge.log | grep /var/lib/faxtray || fail "the purge is silent on the faxes"
    ! grep -E 'warning|not empty' purge.log || fail "the purge left something"
    ls -d /etc/faxtray /var/log/faxtray /etc/logrotate.d/faxtray* /etc/systemd/system/faxtrayd.service.d \
        /etc/systemd/system/multi-user.target.wants/fax* 2>/dev/null && fail "left by the purge"
    faxes | cmp - before
    dpkg -i ./faxtray-*.deb >again.log
    faxes | cmp - before
}

main_pids() { systemctl show -p MainPID --value faxregd faxtrayd faxtray-import@ttyS0; }

under_systemd() {
    say "Under systemd"
    local before started
    started=$(now)
    rm /usr/sbin/policy-rc.d
    within 60 systemctl is-active faxregd faxtrayd
    systemctl enable --now faxtray-import@ttyS0
    receive_and_deliver "$started"

    echo "ended by a kill: started again"
    systemctl kill -s KILL faxtrayd
    within 20 desk list

    echo "upgraded: restarted"
    before=$(main_pids)
    dpkg -i ./faxtray-*.deb >upgrade.log
    ! main_pids | grep -xF -e 0 -e "$before" | grep . || fail "not all were restarted"
    desk list

    echo "removed: stopped"
    dpkg -r faxtray-server faxtray-web >remove.log
    ! grep -l "^fax" /proc/[0-9]*/comm || fail "still running"
    dpkg -P faxtray-server faxtray-web >purge.log
    ! find /etc -name '*fax*' | grep . || fail "left by the purge"
}

case ${1:-} in
'') outside ;;
install | serve | upgrade | remove | under_systemd)
    cd /root
    source scripts/run_unit.sh
    "$1"
    ;;
*) fail "usage: scripts/package-test.sh" ;;
esac
