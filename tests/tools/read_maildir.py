# Prints the messages that faxtray put into a Maildir, oldest first, and puts their files into a directory.
#
# usage: read_maildir.py MAILDIR DIRECTORY
import email
import email.policy
import pathlib
import sys

maildir, directory = map(pathlib.Path, sys.argv[1:])
directory.mkdir(exist_ok=True)
for path in sorted(maildir.glob("*/*.faxtray*"), key=lambda path: path.name):
    content = path.read_bytes()
    message = email.message_from_bytes(content, policy=email.policy.default)
    print(f"{path.parent.name} {path.name}")
    assert message["date"].datetime.timestamp() == path.stat().st_mtime == int(path.name.split(".")[0])
    assert max(map(len, content.split(b"\n"))) < 998 and b"\r" not in content, "RFC 5322, as files have it"
    for name, value in message.items():
        print(f"  {name}: {value!r}" if name != "Date" else "  Date")
    for part in message.walk():
        print(f"  -- {part.get_content_type()} {part.get_content_disposition()} {part.get_filename()!r}", *part.defects)
        if part.get_content_type() == "text/plain":
            print(*("  " + line for line in part.get_content().splitlines()), sep="\n")
        elif not part.is_multipart():
            (directory / part.get_filename()).write_bytes(part.get_content())
            print("  ", part.get_content()[:24])
