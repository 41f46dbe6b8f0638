# What the disk holds when the power fails, at whatever moment: the system calls of the real programs, as strace
# sees them, held against these rules.
#
#   bytes   A file gets a fax's name when its bytes are on the disk (fsync), and nobody writes to it there.
#   name    That name is on the disk (fsync of its directory) before the note of the delivery is removed, and before
#           `faxtray get` ends.
#   move    The copy on another file system is on the disk, bytes and name, before the original is removed.
#   note    A delivery writes the name of each working file into its note before it creates the file; before it
#           renames one to another working name, the note is on the disk with that name and the file's identity.
#   record  `faxtray sync` records a message when it is on the disk, bytes and name, and gives it its name in new/ when
#           the record is.
#   faxes   No fax is renamed, and none is removed but on a client's request.
#
# Without any one of the calls of fsync and fdatasync in src/, one of these rules is broken here.
#
# usage: order_test.py PROGRAMS TREE    on a private host (on_private_host); PROGRAMS: the directory of the programs
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

# What a file is, by the first pattern that its whole path matches; the rest are faxes.
KINDS = [
    (r"/(proc|etc|usr|run|var|dev/null|dev/tty).*|.*/(socket|pipe):.*", "none"),
    (r".*/work/(trayd_log|exception_log|access_log)|.*/\.inbox_index", "none"),
    (r".*/work/delivery_note\..*", "note"),
    (r".*/faxtray-delivered", "record"),
    (r".*/mail/tmp/[^/]*", "message"),
    (r".*/(ii_|FDF\.|FDM\.|\.fax)[^/]*|.*\.\d+|/tmp/[^/]+|.*/#\d+|.*/incoming/f0_\.[^/]*", "working"),
    (r".*", "fax"),
]


def kind(path):
    return next(name for pattern, name in KINDS if re.fullmatch(pattern, path, re.DOTALL))


def device(path):
    return os.stat(os.path.dirname(path)).st_dev


# Follows the calls in their order; `faults` is what breaks a rule, `changes` which faxes came and went.
class Disk:
    def __init__(self, work):
        self.work, self.changes, self.faults = work, [], []
        self.made, self.last_name, self.unsynced_bytes, self.unsynced_names = set(), None, set(), set()
        self.noted, self.note, self.synced_note, self.note_has_name, self.delivering = {}, set(), set(), False, False

    def require(self, good, fault):
        self.faults += [] if good else [fault]

    def create(self, path):
        self.delivering |= kind(path) == "note"
        self.require(kind(path) != "working" or not self.delivering or path in self.noted, f"{path} is not noted")
        self.made.add(path)
        self.unsynced_names |= {path} if kind(path) in ("record", "message") else set()
        self.write(path)

    def is_on_disk(self, what):
        return what not in map(kind, self.unsynced_bytes | self.unsynced_names)

    def write(self, path, text=""):
        for identity, named in re.findall(r"\\n[wm] ([0-9a-f:]+) (/\S*) \.\\n", text):
            self.noted[named] = identity
            self.note.add((identity, named))
        self.unsynced_bytes.add(path)
        self.require(kind(path) != "fax", f"{path} is written under its name")
        self.require(kind(path) != "record" or self.is_on_disk("message"), "a message is not on the disk, but recorded")

    def sync(self, path):
        self.unsynced_bytes.discard(path)
        self.unsynced_names = {name for name in self.unsynced_names if os.path.dirname(name) != path}
        self.note_has_name |= path == self.work
        if kind(path) == "note":
            self.synced_note = set(self.note)

    def rename(self, old, new):
        self.require(kind(old) != "fax", f"{old} is renamed")
        self.require(kind(old) != "message" or self.is_on_disk("record"), f"{new} comes before the record of it")
        self.made.add(new)
        self.last_name = new
        self.unsynced_names = self.unsynced_names - {old} | {new}
        self.unsynced_bytes = {new if path == old else path for path in self.unsynced_bytes}
        if kind(new) == "fax":
            self.changes.append("+" + re.sub(r"\..*\.faxtray", ".faxtray", os.path.basename(new)))
            self.require(new not in self.unsynced_bytes, f"{new} gets its name before its bytes are on the disk")
        elif self.delivering:
            self.require(self.note_has_name and (self.noted[old], new) in self.synced_note,
                         f"{old} becomes {new} before the note is on the disk")

    def unlink(self, path):
        self.unsynced_names.discard(path)
        if self.last_name in self.unsynced_names | self.unsynced_bytes:
            self.require(path not in self.made or device(path) == device(self.last_name),
                         f"{path} is removed before {self.last_name} is on the disk")
        if kind(path) == "note":
            self.end()
        elif kind(path) == "fax":
            self.changes.append("-" + os.path.basename(path))

    def end(self):
        for name in self.unsynced_names:
            self.require(kind(name) != "fax", f"the name {name} is not on the disk at the end")

    def take(self, line, directory):
        call = re.fullmatch(r"[\d.]+ (\w+)\((.*)\)\s+= \d+(?:<(.*)>)?", line)
        name, arguments, opened = call.groups() if call else ("signal", "", None)
        paths = [os.path.normpath(os.path.join(directory, text or named))
                 for text, named in re.findall(r'"([^"]*)"|\b\d+<([^>]*)>', arguments)]
        if name == "openat" and "O_CREAT" in arguments:
            self.create(opened)
        elif "sync" in name:
            self.sync(paths[0])
        elif "rename" in name:
            self.rename(*paths)
        elif "unlink" in name:
            self.unlink(paths[0])
        elif name in ("write", "pwrite64", "ftruncate"):
            self.write(paths[0], arguments)


# Runs a command and follows its calls, or meanwhile those of the process `pid`.
def watch(site, command, pid=None):
    calls = pathlib.Path(tempfile.mkdtemp())
    strace = ["strace", "-qq", "-ff", "-ttt", "-y", "-z", "-s", "999", "-o", calls / "calls",
              "-e", "trace=openat,write,pwrite64,ftruncate,fsync,fdatasync,/^rename,/^unlink"]
    if pid:
        tracer = subprocess.Popen([*strace, "-p", str(pid)])
        wait_for(lambda: f"TracerPid:\t{tracer.pid}\n" in pathlib.Path(f"/proc/{pid}/status").read_text())
        subprocess.run(command, check=True, stdin=subprocess.DEVNULL)
        tracer.send_signal(2)
        tracer.wait()
    else:
        subprocess.run([*strace, *command], check=True, stdout=subprocess.DEVNULL)
    disk = Disk(f"{site}/work")
    for line in sorted(line for path in calls.iterdir() for line in path.read_text(errors="replace").splitlines()):
        disk.take(line, str(site))
    shutil.rmtree(calls)
    return disk


def wait_for(condition):  # ctest ends what waits in vain
    while not condition():
        time.sleep(0.01)


def make_site(site, other):
    for directory in ("work", "incoming", "inboxes", "utils"):
        (site / directory).mkdir()
    shutil.copy(TREE / "tests/data/faxes/letter-mmr.fax", site / "incoming/f.fax")
    os.utime(site / "incoming/f.fax", (0, 1_000_000_000))  # long settled
    for name, script in (("tiffconv", '(printf TIFF; cat "$2") >"$3"'), ("rasterps2", '(printf PS; cat "$3") >"$2"'),
                         ("distill", '(printf PDF; cat "$1") >"${1%.ps}.pdf"')):
        (site / "utils" / name).write_text(f"#!/bin/sh\n{script}\n")
        (site / "utils" / name).chmod(0o755)
    (site / "MODEMS.info").write_text(f"[ttyS0]\nincoming_dir = {site}/incoming\nincoming_gui = Desk\n")
    users = [("default", f"delivery_dir_root = {site}/inboxes\ndelivery_file_format = as_received"),
             ("desk", "forwarder = Desk"), ("same", ""), ("other", f"delivery_dir_root = {other}"),
             ("recoded", "delivery_file_format = g3"), ("tiff", "delivery_file_format = tiff_f"),
             ("pdf", "delivery_file_format = pdf"),
             ("mail", "delivery_file_format = tiff_f\nemail_address = m\ndelivery_method = sunmail_attach")]
    (site / "USER_LIST.info").write_text("".join(f"[{user}]\n{lines}\n" for user, lines in users))


def main(site, other):
    assert site.stat().st_dev != os.stat(other).st_dev, "/tmp and /dev/shm should be two file systems"
    make_site(site, other)
    os.chdir(site)
    os.environ.update(ONDRIXHOME=str(site), XDG_CACHE_HOME="/run", PATH=f"{site}/utils:{os.environ['PATH']}",
                      ASAN_OPTIONS="detect_leaks=0")  # the leak checker does not work under strace
    daemon = subprocess.Popen([PROGRAMS / "faxtrayd", "-f", "-d", "0"])
    desk = [PROGRAMS / "faxtray", "-u", "desk", "--inbox", "Desk"]
    wait_for(lambda: subprocess.run([*desk, "rev"], capture_output=True).returncode == 0)
    fax = subprocess.check_output([*desk, "list"], stdin=subprocess.DEVNULL, text=True).splitlines()[1].split()[0]

    faults = []
    for command, pid, changes in (
            ([*desk, "deliver", fax, "same"], daemon.pid, ["+f0_.fax"]),
            ([*desk, "deliver", fax, "other"], daemon.pid, ["+f0_.fax"]),
            ([*desk, "deliver", fax, "recoded"], daemon.pid, ["+f0_.fax"]),
            ([*desk, "deliver", fax, "tiff"], daemon.pid, ["+f0_.tif"]),
            ([*desk, "deliver", fax, "pdf"], daemon.pid, ["+f0_.pdf"]),
            ([*desk, "deliver", fax, "mail"], daemon.pid, []),
            ([*desk, "get", fax, "-o", "mine"], None, ["+mine"]),
            ([*desk, "sync", "--maildir", "mail"], None, ["+1000000000.faxtray"]),
            ([*desk, "rm", fax], daemon.pid, ["-f.fax"]),
            ([PROGRAMS / "faxconv", "--to", "copy", "mine", "mmr"], None, ["+copy"]),
            ([PROGRAMS / "faxconv", "mine", "mr"], None, ["+mine"])):
        disk = watch(site, command, pid)
        if command[0] == desk[0]:
            disk.end()
        disk.require(disk.changes == changes, f"{disk.changes} came or went")
        faults += [f"{' '.join(map(str, command[1:]))}: {fault}" for fault in disk.faults]
    pathlib.Path("/tmp/f0_.fax.ps").unlink(missing_ok=True)  # a delivery as PDF leaves it
    sys.exit("\n".join(faults) or 0)


PROGRAMS, TREE = map(pathlib.Path, sys.argv[1:])
with tempfile.TemporaryDirectory(dir="/dev/shm") as here, tempfile.TemporaryDirectory() as there:
    main(pathlib.Path(here), there)
