#!/bin/bash
# Does what faxtray sync puts into a Maildir reach people? Dovecot serves it over IMAP, on a private host and as a user
# of its own; doveadm, as any mail program would, searches and fetches there, and Python's email reads what it gets. Then
# flags and deletions are left alone by the next sync.
#
# usage: scripts/maildir-test.sh [BUILD]    as root; with BUILD, of the programs of that build directory
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

failures=0
expect() { # WHAT EXPECTED FOUND
    if [ "$2" = "$3" ]; then echo "ok: $1"; else
        printf 'FAILED: %s: expected\n%s\nand found\n%s\n' "$1" "$2" "$3"
        failures=$((failures + 1))
    fi
}

if [ "${1:-}" != on-private-host ]; then
    programs_for scripts/maildir-test.sh "${1:-}" faxtrayd faxtray
    need $service_packages dovecot-imapd python3
    exec "$build/bin/on_private_host" bash scripts/maildir-test.sh on-private-host "$build"
fi

top=$PWD
export PATH=$2/bin:$PATH LC_ALL=C.UTF-8 TZ=UTC
work=$(mktemp -d)
daemon='' dovecot=''
trap '[ -z "$daemon" ] || kill $daemon; [ -z "$dovecot" ] || kill $dovecot; wait; rm -rf "$work"' EXIT
chmod 755 "$work" && cd "$work"

# Two users' faxes: one of two senders, one damaged, and a file that is none.
make_site() {
    mkdir -p site/{work,incoming} site/inboxes/anna
    printf '[ttyS0]\nincoming_dir = %s\n' "$work/site/incoming" >site/MODEMS.info
    printf '[default]\ndelivery_dir_root = %s\n[anna]\n' "$work/site/inboxes" >site/USER_LIST.info
    cp "$top"/tests/data/faxes/{letter-mh,form-mr}.fax site/inboxes/anna
    head -c 9000 site/inboxes/anna/letter-mh.fax >site/inboxes/anna/cut.fax
    echo 'no fax' >site/inboxes/anna/notes.txt
    sed -i 's/SENDER_FAX#:+99 555 0143/SENDER_FAX#:M\xc3\xbcller, G.1/' site/inboxes/anna/form-mr.fax
    touch -d '2026-03-01 12:00:00' site/inboxes/anna/*
    export ONDRIXHOME=$work/site XDG_CACHE_HOME=$work/cache
    (cd site && exec faxtrayd -f -d 1 2>>log) &
    daemon=$!
    until faxtray rev >revision 2>&1; do kill -0 $daemon; sleep 0.05; done
}

sync_anna() { faxtray -u anna sync --maildir "$work/mail" 2>>sync.log </dev/null; }

# Everything of Dovecot's is in $work: its configuration, sockets, index and log. It serves IMAP on loopback to the user
# "anna" with the password "mainsail", by the system's user "nobody".
start_dovecot() {
    cat >dovecot.conf <<END
protocols = imap
listen = 127.0.0.1
base_dir = $work/run
state_dir = $work/state
log_path = $work/dovecot.log
ssl = no
disable_plaintext_auth = no
default_internal_user = nobody
default_login_user = nobody
default_internal_group = nogroup
first_valid_uid = 1
mail_location = maildir:$work/mail:INDEX=$work/index
mailbox_list_index = no
service imap-login {
  chroot =
  inet_listener imap {
    port = 1143
  }
  inet_listener imaps {
    port = 0
  }
}
service anvil {
  chroot =
}
passdb {
  driver = static
  args = password=mainsail
}
userdb {
  driver = static
  args = uid=nobody gid=nogroup home=$work/home
}
END
    mkdir -p run state index home imapc && chown -R nobody:nogroup mail index home imapc
    dovecot -F -c dovecot.conf &
    dovecot=$!
    until grep -q 'starting up' dovecot.log 2>/dev/null && (exec 3<>/dev/tcp/127.0.0.1/1143) 2>/dev/null; do
        kill -0 $dovecot || { cat dovecot.log; exit 1; }
        sleep 0.05
    done
}

# A command of doveadm over IMAP: its own mail store is the server's, by imapc.
imap() { # "COMMAND" ARGUMENT...
    doveadm -c dovecot.conf -o mail_location="imapc:$work/imapc" -o imapc_host=127.0.0.1 -o imapc_port=1143 \
        -o imapc_password=mainsail -o imapc_user=anna -o ssl=no $1 -u anna "${@:2}" 2>>doveadm.log
}

make_site
expect "the first sync puts four messages" 4 "$(sync_anna | wc -l)"
start_dovecot

expect "the inbox holds them, and nothing else is a mailbox" "INBOX messages=4 unseen=4" \
    "$(imap "mailbox status" 'messages unseen' '*')"
expect "search for a sender's number" 2 "$(imap search mailbox INBOX from '+99 555 0143' | wc -l)"
expect "search for a sender's name" 1 "$(imap search mailbox INBOX from 'Müller, G.1' | wc -l)"
expect "search for a day, sent and received" 4 "$(imap search mailbox INBOX senton 2026-03-01 on 2026-03-01 | wc -l)"
expect "search in the text" 1 "$(imap search mailbox INBOX body 'The fax is damaged' | wc -l)"
expect "headers" "hdr.subject: Fax from +99 555 0143, 1 page
date.sent: 2026-03-01 12:00:00 (+0000)
date.received: 2026-03-01 12:00:00" \
    "$(imap fetch 'hdr.subject.utf8 date.sent date.received' mailbox INBOX body letter-mh.fax | sed 's/hdr.subject.utf8/hdr.subject/' | grep -v -a $'^\f' || true)"

# The bytes of the PDF, of the message as IMAP gives it, are those of `faxtray get`.
imap fetch text mailbox INBOX body letter-mh.fax | sed 1d >message
python3 - message <<'END'
import email, email.policy, sys
message = email.message_from_bytes(open(sys.argv[1], "rb").read(), policy=email.policy.default)
for part in message.walk():
    if part.get_filename():
        open(part.get_filename(), "wb").write(part.get_content())
END
faxtray -u anna get --as pdf -o expected.pdf "$(faxtray -u anna --json list </dev/null |
    python3 -c 'import json, sys; print([f["faxid"] for f in json.load(sys.stdin) if f["name"] == "letter-mh.fax"][0])')" </dev/null >got
expect "the PDF over IMAP is that of faxtray get" "" "$(cmp expected.pdf letter-mh.pdf 2>&1)"
expect "the picture is a PNG" "89504e47" "$(head -c 4 page-1.png | od -An -tx1 | tr -d ' ')"

# What the user does with a message is the user's.
imap "flags add" '\Seen \Flagged' mailbox INBOX body letter-mh.fax
imap expunge mailbox INBOX body notes.txt
imap "mailbox create" Old
imap move Old mailbox INBOX body form-mr.fax
before=$(find mail -type f -name '*.faxtray*' | sort)
expect "the next sync brings nothing" "" "$(sync_anna)"
expect "and changes nothing" "$before" "$(find mail -type f -name '*.faxtray*' | sort)"
expect "flags are as they were" 1 "$(imap search mailbox INBOX seen flagged | wc -l)"
cp site/inboxes/anna/letter-mh.fax site/inboxes/anna/new.fax && touch -d '2026-03-02 12:00' site/inboxes/anna/new.fax
sleep 1.1
expect "a new fax comes alone" "new.fax (sender +99 555 0143)" "$(sync_anna)"
chown -R nobody:nogroup mail
expect "and is seen over IMAP" 1 "$(imap search mailbox INBOX unseen body new.fax | wc -l)"
expect "Dovecot has nothing to complain of" "" "$(grep -E 'Error|Warning|Fatal|Panic' dovecot.log || true)"

[ $failures = 0 ] || { echo "$failures failures"; exit 1; }
echo "faxtray sync and $(dovecot --version | cut -d' ' -f1) of Dovecot: all well"
