"""Makes small changes to the code, one at a time, and prints which of them a test notices.

A change is a block in tests/data/changes/*.changes; `old` and `new` are lines or a part of one, and `old` occurs
exactly once in the file:

    == what it is, in a few words
    file: src/codec/t4_decoder.cc
    <<<<
    old text
    ====
    new text
    >>>>

The tree is copied to build-mutate/tree and built there once, and the tests must pass on it. Then each change
gets a sandbox: a mount namespace in which the whole machine is read-only, with that tree at /mnt under an overlay
that is discarded with the sandbox; and its own /tmp, /run, /dev/shm, network and processes, so that no change can
remove a file, kill a process or reach a server of this machine.
"""
import argparse
import concurrent.futures
import fcntl
import json
import os
import pathlib
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

TOP = pathlib.Path(__file__).resolve().parent.parent
COPY = TOP / "build-mutate" / "tree"
PLACE = pathlib.Path("/mnt")  # where every sandbox, and the build, sees the copy: paths end up in the programs
BIN = PLACE / "build/bin"
TESTS = ["ctest", "--test-dir", "build", "--stop-on-failure"]
UNIT_TESTS = [*TESTS, "-L", "unit", "-j", "2"]
OTHER_TESTS = [*TESTS, "-LE", "unit", "-j", "4"]  # they mostly wait
CONFIGURE = ["cmake", "-G", "Ninja", "-S", ".", "-B", "build", "-DFAXTRAY_WERROR=ON", "-DFAXTRAY_TESTS=ON",
             "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld",
             "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
KILLED = 128 + signal.SIGKILL
BLOCK = re.compile(r"^== (?P<what>[^\n]*)\nfile: *(?P<file>\S+) *\n<<<<\n(?P<old>.*?\n)====\n(?P<new>.*?)>>>>$",
                   re.DOTALL | re.MULTILINE)


def read_changes(folders):
    """The changes to those folders of src, all when none is named."""
    changes = []
    for path in sorted((TOP / "tests/data/changes").glob("*.changes")):
        text = path.read_text()
        found = [match.groupdict() for match in BLOCK.finditer(text)]
        if len(found) != len(re.findall("^== ", text, re.MULTILINE)):
            sys.exit(f"mutate: {path}: {text.count(chr(10) + '== ') + text.startswith('== ')} blocks begin, "
                     f"{len(found)} are complete")
        changes += found
    for change in changes:
        change["folder"] = pathlib.Path(change["file"]).parent.name
        text = (TOP / change["file"]).read_text()
        if text.count(change["old"]) != 1:  # part of a line, then
            change["old"], change["new"] = change["old"].removesuffix("\n"), change["new"].removesuffix("\n")
        if text.count(change["old"]) != 1:
            sys.exit(f"mutate: {change['file']} does not have the text of \"{change['what']}\" exactly once")
    unknown = set(folders) - {change["folder"] for change in changes}
    if unknown:
        sys.exit(f"mutate: no changes for {', '.join(sorted(unknown))}")
    return [change for change in changes if not folders or change["folder"] in folders]


# In the sandbox

def mount(*arguments):
    subprocess.run(["mount", *map(str, arguments)], check=True)


def is_writable_place(path):
    return re.match(r"/(mnt|tmp|run|proc|dev/shm|dev/pts|dev/mqueue)(/|$)", path)


def enter_sandbox():
    """Leaves nothing of this machine writable but what goes with the sandbox."""
    mount("-t", "tmpfs", "tmpfs", "/run")
    upper, work = pathlib.Path("/run/upper"), pathlib.Path("/run/work")
    upper.mkdir()
    work.mkdir()
    mount("-t", "overlay", "overlay", "-o", f"lowerdir={COPY},upperdir={upper},workdir={work}", PLACE)
    os.chdir(PLACE)
    mount("-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/tmp")
    mount("-t", "tmpfs", "-o", "mode=1777", "tmpfs", "/dev/shm")
    for line in pathlib.Path("/proc/self/mountinfo").read_text().splitlines():
        path = line.split()[4].encode().decode("unicode_escape")
        if not is_writable_place(path):
            mount("-o", "remount,bind,ro", path)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:  # raise the loopback: SIOCSIFFLAGS, IFF_UP
        fcntl.ioctl(sock, 0x8914, struct.pack("16sH14x", b"lo", 1))


def run_tests(command, limit):
    """Runs ctest: the first test that failed, or None."""
    with tempfile.TemporaryFile() as log:
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        try:
            if process.wait(limit) == 0:
                return None
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return "a hang"
        log.seek(0)
        text = log.read().decode(errors="replace")
    failed = re.search(r"Test +#\d+: (\S+) .*\*\*\*", text)
    return failed[1] if failed else f"ctest: {text[-200:]}"


def first_notice(limit):
    """What notices something, or None. The unit tests go first: they are fast."""
    notice = run_tests(UNIT_TESTS, limit)
    if not notice:
        notice = run_tests(OTHER_TESTS, limit)
        if notice and " " not in notice:  # on a busy machine it may fail without a reason: it is asked once more
            notice = run_tests([*OTHER_TESTS, "-R", f"^{re.escape(notice)}$"], limit)
    return notice


def try_change(change, limit):
    """What becomes of one change, and what noticed it or why it could not be tried."""
    if change:
        path = pathlib.Path(change["file"])
        path.write_text(path.read_text().replace(change["old"], change["new"]))
    built = subprocess.run(["ninja", "-C", "build", "-j", "1"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True, env=dict(os.environ, CCACHE_DISABLE="1"))
    if built.returncode != 0:
        error = re.search(r"^.*error: .*$", built.stdout, re.MULTILINE)
        return "does not build", error[0] if error else built.stdout[-500:]
    notice = first_notice(limit)
    return ("noticed" if notice else "SURVIVED"), notice


# Outside

def in_namespace(command, options, text=None):
    """Runs a command of this script in namespaces of its own and returns what it prints."""
    done = subprocess.run(["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", *options,
                           sys.executable, __file__, command], input=text, stdout=subprocess.PIPE, text=True)
    if done.returncode not in (0, KILLED):
        sys.exit(f"mutate: {command}: exit {done.returncode}\n{done.stdout}")
    return done.stdout


def in_sandbox(change, limit):
    result = in_namespace("--in-sandbox", ["--net", "--ipc", "--uts"], json.dumps([change, limit]))
    return json.loads(result) if result else ("noticed", "it killed the whole sandbox")


def copy_tree():
    """Brings the copy in step with the working tree; what is the same keeps its time, and is not built again."""
    listed = subprocess.run(["git", "ls-files", "-zco", "--exclude-standard"], cwd=TOP, check=True,
                            stdout=subprocess.PIPE).stdout.decode().split("\0")
    wanted = {name for name in listed if name and (TOP / name).is_file()}
    for path in list(COPY.rglob("*")):
        name = str(path.relative_to(COPY))
        if path.is_file() and not name.startswith("build/") and name not in wanted:
            path.unlink()
    for name in wanted:
        source, target = TOP / name, COPY / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(source.read_bytes())
            target.chmod(source.stat().st_mode)


def build_copy():
    """Builds the copy at PLACE. Runs in a mount namespace."""
    mount("--bind", COPY, PLACE)
    os.chdir(PLACE)
    for command in (CONFIGURE, ["ninja", "-C", "build"]):
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
        if done.returncode != 0:
            sys.exit(done.stdout[-4000:])


def shown(change):
    return f"{change['file'].removeprefix('src/')}: {change['what']}"


def print_totals(changes, verdicts):
    print()
    for folder in [*sorted({change["folder"] for change in changes}), "all"]:
        mine = [verdict for change, verdict in zip(changes, verdicts) if folder in (change["folder"], "all")]
        noticed, tried = mine.count("noticed"), mine.count("noticed") + mine.count("SURVIVED")
        print(f"{folder:10} {noticed:3} of {tried:3} noticed" + (f", {100 * noticed // tried:3} %" if tried else ""))


def main():
    parser = argparse.ArgumentParser(prog="mutate.sh")
    parser.add_argument("-j", type=int, default=os.cpu_count(), metavar="JOBS", help="changes tried at a time")
    parser.add_argument("--list", action="store_true", help="print the changes only")
    parser.add_argument("folders", nargs="*", metavar="FOLDER", help="of src; default: all")
    arguments = parser.parse_args()
    changes = read_changes(arguments.folders)
    if arguments.list:
        print(*map(shown, changes), sep="\n")
        return

    started = time.monotonic()
    print("building the copy", flush=True)
    copy_tree()
    in_namespace("--build-copy", [])
    print(f"testing it unchanged ({time.monotonic() - started:.0f} s)", flush=True)
    testing = time.monotonic()
    verdict, notice = in_sandbox(None, 600)
    if verdict != "SURVIVED":
        sys.exit(f"mutate: the tests do not pass on the tree as it is: {notice}")
    seconds = time.monotonic() - testing
    limit = 60 + 3 * arguments.j * seconds  # for each part; then it hangs
    print(f"{len(changes)} changes; unchanged, the tests take {seconds:.0f} s", flush=True)

    verdicts = [None] * len(changes)
    with concurrent.futures.ThreadPoolExecutor(arguments.j) as pool:
        tasks = {pool.submit(in_sandbox, change, limit): number for number, change in enumerate(changes)}
        for done, task in enumerate(concurrent.futures.as_completed(tasks), 1):
            number = tasks[task]
            verdict, detail = task.result()
            verdicts[number] = verdict
            print(f"{done:3}/{len(changes)} {verdict:14} {shown(changes[number])}"
                  + (f" [{detail}]" if detail else ""), flush=True)
    print_totals(changes, verdicts)
    print(f"{time.monotonic() - started:.0f} s")
    if any(verdict.startswith("does not") for verdict in verdicts):
        sys.exit(1)


if sys.argv[1:] == ["--in-sandbox"]:
    task = json.load(sys.stdin)
    enter_sandbox()
    print(json.dumps(try_change(*task)))
elif sys.argv[1:] == ["--build-copy"]:
    build_copy()
else:
    main()
