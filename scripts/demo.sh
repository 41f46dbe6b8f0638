#!/bin/bash
# Shows the main job: a fax comes in, the front desk sees it and passes it on, by mail as PDF and into an inbox,
# and the person it is for fetches it as a picture. A sample site, a real faxtrayd and faxregd beside a real rpcbind.
#
# usage: scripts/demo.sh [--web [PORT]]    as root; on a fresh Debian 12 it first installs what is missing
#
# With --web, the sample site stays until it is interrupted, and its front desk can be used with a browser on this machine,
# at the address that is printed (port 8351 unless another is given).
#
# Everything but the build runs on a private host (namespaces) and in a temporary directory, both removed when
# the demo ends. What it leaves is in build/demo: the fax as a picture, the PDF that was mailed, and a page in HTML
# with Anna's faxes. Fails if any step fails.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

title() { printf '\n=== %s\n' "$*"; }
show() { printf '\n$'; printf ' %q' "$@"; echo; "$@"; }

build() { # TARGET...
    [ "$(id -u)" = 0 ] || { echo "demo.sh: run me as root: the demo makes a private host" >&2; exit 1; }
    need $build_packages $service_packages $sample_packages
    title "Building"
    configure_release
    cmake --build build -j "$(nproc)" --target faxtrayd faxtray faxregd faxtray-import \
        tiffconv rasterps2 distill on_private_host "$@" | tail -n 1
}

# A private host has a network of its own: what this machine's browser asks reaches faxtray-web through a socket in a
# directory that both see.
serve_web() { # PORT
    need socat
    build faxtray-web
    meeting=$(mktemp -d)
    chmod 700 "$meeting"
    socat "TCP-LISTEN:$1,bind=127.0.0.1,fork,reuseaddr" "UNIX-CONNECT:$meeting/web" 2>/dev/null &
    relay=$!
    trap 'kill $relay $host 2>/dev/null; wait; rm -rf "$meeting"' EXIT
    trap exit INT TERM HUP
    host=
    sleep 0.2
    kill -0 $relay 2>/dev/null || { echo "demo.sh: port $1 is in use; name another: scripts/demo.sh --web PORT" >&2; exit 1; }
    TMPDIR=$meeting build/bin/on_private_host bash scripts/demo.sh on-private-host "$meeting/web" "$1" &
    host=$!
    wait $host
}

# Makes new faxes some minutes old: none is listed until it has been unchanged for a minute.
let_settle() { find "$site" -name '*.fax' -mmin -1 -exec touch -d "$1 minutes ago" {} +; }

# The site of examples/site, with two faxes that Anna has had for a while, and where the daemon finds the converters.
make_site() {
    title "A sample site"
    mkdir -p "$site"/{work,incoming,incoming_orders} "$site"/faxtrayes/{anna,orders} faxes
    cp "$top"/examples/site/* "$site"
    ln -s "$top/build/bin" "$site/utils"
    "$top"/scripts/make-faxes.sh --big faxes
    cp faxes/{big-mh,form-mr}.fax "$site/faxtrayes/anna"
    let_settle 10
    (umask 077; echo mainsail >anna.password; echo lantern >desk.password)
}

start_daemon() {
    title "faxtrayd beside faxregd and rpcbind"
    export ONDRIXHOME=$site XDG_CACHE_HOME=$work
    faxregd -f &
    registry=$!
    (cd "$site" && exec faxtrayd -f -d 60) &
    daemon=$!
    until rpcinfo -t localhost 351229 1 >/dev/null 2>&1; do
        kill -0 $daemon 2>/dev/null || { cat "$site/work/trayd_log"; return 1; }
        sleep 0.05
    done
    until rpcinfo -t localhost 351165 1 >/dev/null 2>&1; do
        kill -0 $registry
        sleep 0.05
    done
    show rpcinfo -p | grep -e '\$' -e program -e 351229 -e 351165
}

# As a modem's program would bring it: a document becomes a fax file in the modem's directory.
receive() {
    gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -skind=letter -dpages=2 -sPAPERSIZE=a4 \
        -sOutputFile=letter.pdf "$top/scripts/sample_pages.ps"
    show faxtray-import --modem ttyS0 --sender "+99 555 0143" --subaddress 2041 letter.pdf
    let_settle 5
}

# The front desk looks at the fax, and delivers it to Anna's inbox and to Carl, who gets his faxes by mail as PDF.
pass_on() {
    local desk=(-u desk --inbox "General Incoming") id
    show faxtray -u desk inboxes
    show faxtray "${desk[@]}" list
    if [ -t 1 ]; then show faxtray "${desk[@]}" view newest; fi
    show faxtray -u desk recipients
    id=$(faxtray "${desk[@]}" --json list | python3 -c 'import json, sys; print(json.load(sys.stdin)[-1]["faxid"])')
    show faxtray "${desk[@]}" deliver "$id" anna
    show faxtray "${desk[@]}" deliver "$id" carl
    show faxtray "${desk[@]}" rm "$id"
    let_settle 2
}

# What Carl's mail reader would show.
open_mail() {
    local mail
    mail=$(grep -l "^To: *carl" -r /run/mail)
    show grep -e ^args: -e ^From: -e ^Subject: -e ^Content-Type: "$mail"
    # The file of the mail begins with the agent's arguments.
    python3 -c 'import email, sys
mail = email.message_from_bytes(sys.stdin.buffer.read().split(b"\n", 1)[1])
sys.stdout.buffer.write(mail.get_payload()[-1].get_payload(decode=True))' <"$mail" >"$kept/carl.pdf"
    show pdfinfo "$kept/carl.pdf"
}

# Anna takes the fax as a picture, all her faxes as a page in HTML, and the largest as it is, which she removes.
fetch() {
    show faxtray -u anna list
    show faxtray -u anna get newest --as png --page 1 -o "$kept/letter.png"
    show faxtray -u anna list --html "$kept/faxes"
    if [ -t 1 ]; then show faxtray -u anna view newest; fi
    cp "$site/faxtrayes/anna/big-mh.fax" original
    show faxtray -u anna get oldest --rm -o fetched.fax
    show cmp original fetched.fax
    [ ! -e "$site/faxtrayes/anna/big-mh.fax" ]
    show faxtray -u anna list
}

# Faxes that wait at the front desk and in the orders line, and one more each minute, until the demo is interrupted.
keep_desk_busy() { # SOCKET PORT
    local n senders=("+99 555 0143" "Harbour Office" "+99 555 0199" "Northern Ferries") kinds=(prices letter form)
    for n in {1..12}; do
        gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite "-skind=${kinds[n % 3]}" -dpages=$((n % 4 + 1)) -sPAPERSIZE=a4 \
            -sOutputFile=letter.pdf "$top/scripts/sample_pages.ps"
        faxtray-import --modem ttyS0 --sender "${senders[n % 4]}" --subaddress "20$n" letter.pdf &>import.log
        let_settle $((n * 9))
    done
    faxtray-web 2>web.log &
    until (: </dev/tcp/127.0.0.1/8351) 2>/dev/null; do
        kill -0 $! 2>/dev/null || { cat web.log; return 1; }
        sleep 0.05
    done
    socat "UNIX-LISTEN:$1,fork" TCP:127.0.0.1:8351 &
    title "The front desk is at http://127.0.0.1:$2/"
    echo "Users: desk, password lantern, the front desk; anna, password mainsail. A new fax comes in each minute. Ctrl-C ends it all."
    while true; do
        sleep 60
        faxtray-import --modem ttyS0 --sender "${senders[$((n++ % 4))]}" letter.pdf &>import.log
    done
}

case "${1:-}" in
on-private-host) ;;
--web) serve_web "${2:-8351}"; exit ;;
"") build; exec build/bin/on_private_host bash scripts/demo.sh on-private-host ;;
*) sed -n 's/^# usage: /usage: /p' "$0" >&2; exit 2 ;;
esac

top=$PWD
kept=$top/build/demo
rm -rf "$kept" && mkdir -p "$kept"
export PATH=$top/build/bin:$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
site=$work/site

make_site
start_daemon
[ $# = 1 ] || keep_desk_busy "$2" "$3"

title "A fax comes in"
receive

title "The front desk passes it on"
FAXTRAY_PASSWORD_FILE=$work/desk.password pass_on

title "Carl got it by mail"
open_mail

title "Anna has it in her inbox"
FAXTRAY_PASSWORD_FILE=$work/anna.password fetch

title "The end"
kill $daemon $registry
wait $daemon
tail -n 2 "$site/work/trayd_log"
echo "See build/demo: letter.png, carl.pdf and faxes/index.html"
