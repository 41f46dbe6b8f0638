"""Hosts on one machine: each with a network address, processes, a name and mounts of its own, joined by a bridge; and the
fax servers on a shared tree that faxtray-scaling(7) describes, set up by its commands. Only for a private host."""
import os, re, signal, subprocess, time, uuid
import calls

PAGE = "man/faxtray-scaling.7"
STORES, SERVERS = ["store1", "store2"], ["fax1", "fax2", "fax3"]
TREE = "/var/fax"
PORT = 7000

def run(*command, check=True):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if check and done.returncode:
        raise RuntimeError(f"{' '.join(command)}: {done.stdout}{done.stderr}")
    return done.stdout

class host:
    """A host of that name; its disk is a directory, which outlives its boots."""
    def __init__(self, name, number, disk):
        self.name, self.address, self.disk = name, f"10.9.0.{number}", f"{disk}/{name}"
        self.link, self.init = f"v{number}", None
        for directory in ("srv", "var", "overlay"):
            os.makedirs(f"{self.disk}/{directory}")

    def boot(self, hosts_file):
        """Another boot id for each boot, as on a machine of its own."""
        with open(f"{self.disk}/boot_id", "w") as out:
            out.write(f"{uuid.uuid4()}\n")
        ready = f"{self.disk}/ready"
        if os.path.exists(ready):
            os.unlink(ready)
        script = f"""set -e
            mount -t proc proc /proc && mount -t tmpfs tmpfs /run && mkdir /run/rpcbind
            mount --bind {self.disk}/boot_id /proc/sys/kernel/random/boot_id && mount --bind {hosts_file} /etc/hosts
            mount --bind {self.disk}/srv /srv
            mount -t overlay overlay -o lowerdir=/var,upperdir={self.disk}/var,workdir={self.disk}/overlay /var
            mkdir -p /var/lib/glusterd /var/log/glusterfs
            hostname {self.name} && ip link set lo up && touch {ready}
            trap : CHLD; while :; do sleep 1000 & wait; done"""
        parent = subprocess.Popen(["unshare", "--net", "--uts", "--mount", "--pid", "--ipc", "--fork", "bash", "-c", script],
                                  stdin=subprocess.DEVNULL)
        while not os.path.exists(ready):
            if parent.poll() is not None:
                raise RuntimeError(f"{self.name} does not boot")
            time.sleep(0.02)
        self.parent, self.init = parent, int(run("pgrep", "-P", str(parent.pid)))
        run("ip", "link", "add", self.link, "type", "veth", "peer", "name", "eth0", "netns", str(self.init))
        run("ip", "link", "set", self.link, "master", "br0", "up")
        self.run(f"ip addr add {self.address}/24 dev eth0 && ip link set eth0 up")

    @property
    def shell(self):
        return ["nsenter", "-t", str(self.init), "-n", "-u", "-m", "-p", "-i", "sh", "-c"]

    def run(self, command, check=True):
        """A shell command there; its output."""
        return run(*self.shell, command, check=check)

    def path(self, name):
        """A file of that host, for this one."""
        return f"/proc/{self.init}/root{name}"

    def lose_power(self):
        """Nobody is told: no connection is closed, no file, no lock."""
        run("ip", "link", "set", self.link, "down")
        os.kill(self.init, signal.SIGKILL)
        self.parent.wait()
        run("ip", "link", "del", self.link, check=False)
        self.init = None

    def connect(self, wait=60):
        return calls.connect(source="", server=(self.address, PORT), wait=wait)

class shared_tree:
    """The stores and the fax servers, `count` of them, with nothing running yet."""
    def __init__(self, disk, programs, count=len(SERVERS)):
        self.hosts_file = f"{disk}/hosts"
        run("ip", "link", "add", "br0", "type", "bridge")
        run("ip", "addr", "add", "10.9.0.254/24", "dev", "br0")
        run("ip", "link", "set", "br0", "up")
        self.stores = [host(name, n + 1, disk) for n, name in enumerate(STORES)]
        self.servers = [host(name, n + 11, disk) for n, name in enumerate(SERVERS[:count])]
        with open(self.hosts_file, "w") as out:
            out.write("127.0.0.1 localhost\n" + "".join(f"{one.address} {one.name}\n" for one in self.stores + self.servers))
        for one in self.stores + self.servers:
            one.boot(self.hosts_file)
        self.environment = f"export PATH={os.path.abspath(programs)}:$PATH FAXTRAY_LISTEN=:{PORT}; "
        with open(PAGE) as page:
            self.commands = re.findall(r"^(stores|store1|hosts|fax1)# (.*)$", page.read(), re.M)
        assert len(self.commands) > 10

    def where(self, word):
        return {"stores": self.stores, "store1": self.stores[:1], "hosts": self.servers, "fax1": self.servers[:1]}[word]

    def set_up(self, before_daemons, options):
        """Gives the commands of the page. `before_daemons` is called once the directories are there; `options` are added to
        faxtrayd's."""
        for word, command in self.commands:
            if command == "rpcbind":
                before_daemons()
                break
            for one in self.where(word):
                self.give(one, command)
        self.options = options
        for one in self.servers:
            self.start_daemons(one)

    def give(self, one, command):
        """Daemons keep their standard error: it is a file, not a pipe whose end would be waited for."""
        for tries in range(50):  # a daemon that the command needs may be about to start
            with open(f"{one.disk}/printed", "w+") as printed:
                done = subprocess.run(one.shell + [self.environment + command], stdin=subprocess.DEVNULL, stdout=printed,
                                      stderr=printed)
                if done.returncode == 0:
                    return
                printed.seek(0)
                why = printed.read()
            time.sleep(0.2)
        raise RuntimeError(f"{one.name}# {command}\n{why}")

    def start_daemons(self, one):
        """The commands for every fax server from rpcbind's on; how long it took until faxtrayd answered."""
        begun = time.monotonic()
        commands = [command for word, command in self.commands if word == "hosts"]
        *others, faxtrayd = commands[commands.index("rpcbind"):]
        for command in others:
            self.give(one, command)
        self.give(one, f"{faxtrayd} {self.options}")
        while time.monotonic() < begun + 120:
            try:
                with one.connect() as link:
                    calls.ask(link, calls.null_call())
                return time.monotonic() - begun
            except OSError:
                time.sleep(0.1)
                if not one.run("pgrep -x faxtrayd", check=False):  # as a service manager
                    self.give(one, f"{faxtrayd} {self.options}")
        raise RuntimeError(f"{one.name}: faxtrayd does not answer: " + one.run("cat /var/log/trayd_log", check=False))

    def reboot(self, one):
        """Boots a fax server, mounts the tree and starts the daemons; see start_daemons()."""
        one.boot(self.hosts_file)
        for word, command in self.commands:
            if word == "hosts" and ("mount" in command or "mkdir" in command):
                self.give(one, command)
        return self.start_daemons(one)

    def kill_brick(self, one):
        one.run("kill -9 $(pgrep -x glusterfsd)")

    def revive_brick(self):
        self.stores[0].run("gluster volume start fax force")

    def unhealed(self):
        """How many entries wait to be healed."""
        return sum(map(int, re.findall(r"Number of entries: (\d+)", self.stores[0].run("gluster volume heal fax info"))))
