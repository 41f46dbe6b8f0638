"""A site in a temporary directory with a running registry daemon and faxtrayd, and recipients of every kind, among them
programs that hang; and what the daemon holds. Only for a private host, since it puts a mail agent into /usr/lib."""
import collections, json, os, shutil, signal, subprocess, sys, tempfile, time
import calls

LETTER = "tests/data/faxes/letter-mmr.fax"
LARGE = 500000  # bytes of the fax of that name
USERS = """[default]
delivery_dir_root = {site}/inboxes
delivery_file_format = as_received
[reader]
[desk]
forwarder = Desk
[mail]
delivery_method = mimemail_attach
email_address = mail
[slow mail]
delivery_method = mimemail_attach
email_address = slow
[hung mail]
delivery_method = mimemail_attach
email_address = hung
[command]
delivery_method = exec:{site}/utils/take
[hung command]
delivery_method = exec:{site}/utils/hang
[hung converter]
delivery_file_format = tiff_f
"""
PROGRAMS = {
    "/usr/lib/sendmail": """case "$*" in
*slow*) exec python3 -c 'import sys, time
while sys.stdin.buffer.raw.read(6400): time.sleep(0.1)' ;;
*hung*) exec sleep 60 ;;
*) exec cat >{site}/mails/$(date +%s%N) ;;
esac""",
    "{site}/utils/take": 'cmp -s "$1" {letter} && echo "${{1##*/}}" >>{site}/taken',
    "{site}/utils/hang": "exec sleep 60",
    "{site}/utils/tiffconv": "exec sleep 60",
}

# Memory in KiB, descriptors, processor time in seconds, and bytes of the logs but that of accesses.
state = collections.namedtuple("state", "memory descriptors processor log")

class live_site:
    def __init__(self, programs, environment={}, where=None):
        """`programs` is the directory of faxtrayd, faxregd and faxtray; `where` that of the site, by default for temporary
        files."""
        if not os.path.isdir("/run/mail"):
            sys.exit("Run this on a private host.")
        self.programs = programs
        self.path = tempfile.mkdtemp(dir=where)
        self.environment = os.environ | {"ONDRIXHOME": self.path, "XDG_CACHE_HOME": self.path,
                                         "FAXTRAY_LISTEN": f"127.0.0.1:{calls.SERVER[1]}"} | environment
        self.daemon = self.registry = None
        for directory in ("work", "incoming", "inboxes/reader", "utils", "mails"):
            os.makedirs(f"{self.path}/{directory}")
        for name, script in PROGRAMS.items():
            self.add_program(name.format(site=self.path), script.format(site=self.path, letter=os.path.abspath(LETTER)))
        self.write_list("USER_LIST.info", USERS)
        self.write_list("MODEMS.info", "[ttyS0]\nincoming_dir = {site}/incoming\nincoming_gui = Desk\n")

    def fill_inbox(self, faxes):
        """Puts as many into the inbox of "reader", the oldest of which is worth reading, and a large one into the incoming
        directory."""
        for n in range(faxes):
            self.add_fax(f"inboxes/reader/f{n:05}", calls.CHUNK if n == 0 else 10, 1700000000 + n)
        self.add_fax("incoming/large", LARGE, 1700000000)

    def add_fax(self, name, size, time):
        with open(f"{self.path}/{name}", "wb") as out:
            out.write(b"x" * size)
        os.utime(out.name, (time, time))

    def add_program(self, path, script):
        if os.path.lexists(path):
            os.unlink(path)  # it may be a link to the machine's own
        with open(path, "w") as out:
            out.write(f"#!/bin/sh\n{script}\n")
        os.chmod(path, 0o755)

    def write_list(self, name, lines):
        """As administrators should: a new file, renamed."""
        with open(f"{self.path}/new", "w") as out:
            out.write(lines.format(site=self.path))
        os.rename(f"{self.path}/new", f"{self.path}/{name}")

    def start(self, *options):
        self.daemon = self.spawn("faxtrayd", "-f", *options)
        for _ in range(1000):
            try:
                with calls.connect() as link:
                    calls.ask(link, calls.null_call())
                return
            except OSError:
                if self.daemon.poll() is not None:
                    break
                time.sleep(0.01)
        sys.exit("The daemon does not start: " + self.read("work/trayd_log"))

    def start_registry(self):
        self.registry = self.spawn("faxregd", "-f")

    def spawn(self, program, *options):
        return subprocess.Popen([f"{self.programs}/{program}", *options], cwd=self.path, env=self.environment,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def stop(self):
        """Ends the daemon; its exit status, and how many seconds that took."""
        begun = time.monotonic()
        self.daemon.send_signal(signal.SIGTERM)
        return self.daemon.wait(30), time.monotonic() - begun

    def remove(self):
        for process in (self.daemon, self.registry):
            if process and process.poll() is None:
                process.kill()
                process.wait()
        shutil.rmtree(self.path)

    def desk(self, *arguments):
        """Runs the client as the forwarder: its exit status, and what it prints."""
        done = subprocess.run([f"{self.programs}/faxtray", "-u", "desk", "--json", *arguments], env=self.environment,
                              capture_output=True, text=True, stdin=subprocess.DEVNULL, start_new_session=True, timeout=300)
        return done.returncode, done.stdout or done.stderr

    def incoming(self):
        """The faxes that the forwarder is shown, id by name."""
        status, printed = self.desk("--inbox", "Desk", "list")
        return {fax["name"]: fax["faxid"] for fax in json.loads(printed)} if status == 0 else {}

    def inbox_handle(self):
        return json.loads(self.desk("inboxes")[1])[0]["handle"]

    def read(self, name):
        with open(f"{self.path}/{name}", errors="replace") as file:
            return file.read()

    def left_behind(self):
        """What deliveries should have removed, or have not finished."""
        def has(directory, *marks):
            return [f"{directory}/{name}" for name in os.listdir(f"{self.path}/{directory}") if any(m in name for m in marks)]
        return has("work", "delivery_note", "FDF.", "FDM.") + has("incoming", "_.") + \
            sum((has(f"inboxes/{user}", "ii_") for user in os.listdir(f"{self.path}/inboxes")), [])

    def state(self):
        """What the daemon holds now, and has used."""
        process = f"/proc/{self.daemon.pid}"
        with open(f"{process}/status") as lines:
            memory = next(int(line.split()[1]) for line in lines if line.startswith("VmRSS"))
        with open(f"{process}/stat") as stat:
            ticks = sum(map(int, stat.read().split()[13:15]))
        log = sum(os.path.getsize(f"{self.path}/work/{name}") for name in ("trayd_log", "exception_log")
                  if os.path.exists(f"{self.path}/work/{name}"))
        return state(memory, len(os.listdir(f"{process}/fd")), ticks / os.sysconf("SC_CLK_TCK"), log)


def port_mapper():
    """The process id of this host's rpcbind."""
    return int(subprocess.run(["pgrep", "-x", "rpcbind"], capture_output=True, text=True).stdout)
