"""The test of scale-test.sh, run on a private host: scale-test.py PROGRAMS MINUTES DIRECTORY"""
import collections, json, os, random, re, sys, threading, time
import calls, live_site, shared_tree

USERS, FORWARDERS, READERS = 200, 4, 8
DELAY = 3          # seconds until a fax is listed
PER_SECOND = 2     # faxes received
ACCESS_LINE = re.compile(r"time=\S+ event=\w+ peer=\S+( \w+=\S*)*")
EXCEPTION_LINE = re.compile(r"\d\d-\w{3}-\d{4} \d\d:\d\d:\d\d +\w+:  .*//faxtrayd \[.*\] .*")

with open(live_site.LETTER, "rb") as file:
    letter = file.read()
lock = threading.Lock()
stopping = threading.Event()
received = 0
oks, unknown, told = collections.Counter(), collections.Counter(), collections.Counter()  # deliveries, by fax and user
taken, maybe_taken = collections.Counter(), collections.Counter()                         # removed from inboxes, likewise
removed, maybe_removed = set(), set()                                                     # from the incoming directory
words = collections.Counter()                                                             # that clients were told
unanswered = collections.Counter()                                                        # listings, by host
listings = []                                                                             # when, how long, of which host
faults = []                                                                               # what should not have happened
away = []                                                                                 # what, from when until when

def content(number):
    """A fax of its own: none is taken for another."""
    return letter + f"{number:06}".encode()

def number_of(data):
    return int(data[-6:]) if data[-6:].isdigit() and data == content(int(data[-6:])) else None

def user_list(extra=""):
    return f"[default]\ndelivery_dir_root = {shared_tree.TREE}/inboxes\ndelivery_file_format = as_received\n" + \
        "[desk]\nforwarder = Desk\n" + \
        "".join(f"[user {n}]\n" + ("delivery_naming = 8.3\n" if n % 10 == 0 else "") for n in range(USERS)) + extra

def replace(path, data):
    with open(f"{path}.new", "wb") as out:
        out.write(data)
    os.rename(f"{path}.new", path)


# Clients

class client:
    """One that keeps a connection to each host, and takes one at random that answers."""
    def __init__(self, tree):
        self.tree, self.links = tree, {}

    def link(self):
        """A host and a connection to it; none while no host answers."""
        for one in random.sample(self.tree.servers, len(self.tree.servers)):
            if one.name not in self.links:
                try:
                    link = one.connect(wait=5)
                    link.settimeout(30)
                    self.links[one.name] = link
                except OSError:
                    continue
            return one.name, self.links[one.name]
        return None, None

    def lost(self, name):
        """The host did not answer: it is asked anew by the next request."""
        self.links.pop(name).close()

    def listed(self, ask, *arguments):
        """A host, a connection and the faxes that it lists; none listed if it does not answer."""
        name, link = self.link()
        if not name:
            time.sleep(0.5)
            return None, None, []
        begun = time.time()
        try:
            faxes = ask(link, *arguments)
            listings.append((begun, time.time() - begun, name))
            return name, link, faxes
        except OSError:
            unanswered[name] += 1
            self.lost(name)
        except calls.Refused as refused:
            faults.append(f"{name} refuses a listing: {refused}")
            time.sleep(0.5)
        return None, None, []

def note_words(refused):
    with lock:
        words[re.sub(r"\d+|/\S+|\"[^\"]*\"", "*", str(refused))] += 1

def forward(tree, handle):
    """Delivers faxes at random, also those that others deliver at the same time; removes most of what has arrived."""
    me = client(tree)
    while not stopping.is_set():
        name, link, faxes = me.listed(calls.list_faxes, "desk", handle)
        if not faxes:
            time.sleep(0.3)
            continue
        # The oldest first, and some of them by several forwarders.
        fax_name, fax, _ = random.choice(faxes[:6])
        key = int(fax_name[1:7]), f"user {random.randrange(USERS)}"
        try:
            calls.result(calls.ask(link, calls.deliver_call("desk", handle, fax, key[1])))
            with lock:
                oks[key] += 1
            if random.random() < 0.8:
                calls.remove_fax(link, "desk", fax, handle)
                with lock:
                    removed.add(key[0])
        except calls.Refused as refused:
            note_words(refused)
            with lock:
                told[key] += 1
            if not re.search("Invalid fax|unreadable|Stale|No such file|Can't (open|remove|unlink)", str(refused)):
                faults.append(f"forwarder, {fax_name} to {key[1]} by {name}: {refused}")
        except OSError:
            me.lost(name)
            with lock:  # whichever of the two it was
                unknown[key] += 1
                maybe_removed.add(key[0])

def read(tree):
    """Lists any inbox, reads a fax of it, and removes it or not."""
    me = client(tree)
    while not stopping.is_set():
        user = f"user {random.randrange(USERS)}"
        name, link, faxes = me.listed(calls.list_faxes, user)
        if not faxes:
            time.sleep(0.02)
            continue
        fax_name, fax, size = random.choice(faxes)
        key = None
        try:
            number = number_of(calls.read_fax(link, user, fax, size))
            if number is None:
                faults.append(f"{fax_name} of {user} was read by {name}, and is not whole")
                continue
            if random.random() < 0.3:
                key = number, user
                calls.remove_fax(link, user, fax)
                with lock:
                    taken[key] += 1
        except calls.Refused as refused:
            note_words(refused)
        except OSError:
            me.lost(name)
            if key:
                with lock:
                    maybe_taken[key] += 1

def receive(tree):
    """Writes faxes by way of a host at random; by another if that one is away."""
    global received
    while not stopping.wait(1 / PER_SECOND):
        while True:
            one = random.choice(tree.servers)
            try:
                path = one.path(f"{shared_tree.TREE}/incoming/")
                with open(f"{path}.f{received:06}.fax", "wb") as out:
                    out.write(content(received))
                    out.flush()
                    os.fsync(out.fileno())
                os.rename(out.name, f"{path}f{received:06}.fax")
                break
            except OSError:
                if os.path.exists(one.path(f"{shared_tree.TREE}/incoming/f{received:06}.fax")):
                    break
                time.sleep(0.2)
        received += 1


# Faults

def sleep_until(when):
    time.sleep(max(0, when - time.time()))

def disturb(tree, begun, seconds):
    """A brick is away for a while, later a host."""
    sleep_until(begun + 0.2 * seconds)
    away.append(["brick", time.time(), 0])
    tree.kill_brick(tree.stores[1])
    sleep_until(begun + 0.35 * seconds)
    tree.revive_brick()
    away[-1][2] = time.time()
    sleep_until(begun + 0.55 * seconds)
    victim = tree.servers[1]
    away.append(["host", time.time(), 0])
    victim.lose_power()
    sleep_until(begun + 0.7 * seconds)
    took = tree.reboot(victim)
    away[-1][2] = time.time()
    print(f"       {victim.name} serves again {took:.1f} s after its daemons were started", flush=True)


# The verdict

good = True

def check(right, text):
    global good
    good &= bool(right)
    print(("       " if right else "FAILED ") + text, flush=True)

def present(tree):
    """The faxes in inboxes, by number and user; those received, by number. All have to be whole."""
    root = tree.servers[0].path(shared_tree.TREE)
    inboxes, incoming = collections.Counter(), set()
    for user in os.listdir(f"{root}/inboxes"):
        for name in os.listdir(f"{root}/inboxes/{user}"):
            if name.startswith("."):
                continue
            with open(f"{root}/inboxes/{user}/{name}", "rb") as fax:
                number = number_of(fax.read())
            if number is None:
                faults.append(f"{user}/{name} is not whole")
            inboxes[number, user.replace("user", "user ")] += 1
    for name in set(os.listdir(f"{root}/incoming")) - {".inbox_index"}:
        with open(f"{root}/incoming/{name}", "rb") as fax:
            number = number_of(fax.read())
        if number is None or name != f"f{number:06}.fax":
            faults.append(f"incoming/{name} is not whole, or left behind")
        incoming.add(number)
    return inboxes, incoming

def judge_faxes(tree):
    inboxes, incoming = present(tree)
    lost = [key for key in oks if inboxes[key] + taken[key] + maybe_taken[key] == 0]
    twice = [key for key in inboxes.keys() | taken.keys() if inboxes[key] + taken[key] > oks[key] + unknown[key]]
    gone = [number for number in range(received) if number not in incoming | removed | maybe_removed]
    back = [number for number in removed if number in incoming]
    undelivered = [number for number in removed if not any(key[0] == number for key in oks)]
    check(not lost, f"{received} faxes received, {sum(oks.values())} deliveries of {len({key[0] for key in oks})} of them, "
                    f"{sum(unknown.values())} of unknown end, {sum(told.values())} refused; {len(lost)} lost {lost[:5]}")
    check(not twice, f"{sum(taken.values())} taken by their users; {len(twice)} there more often than delivered {twice[:5]}")
    check(not gone and not back and not undelivered,
          f"{len(removed)} removed after delivery, {len(incoming)} still there; {len(gone)} gone {gone[:5]}, "
          f"{len(back)} back again {back[:5]}, {len(undelivered)} removed without a delivery {undelivered[:5]}")
    return inboxes

def judge_listings(tree, inboxes):
    """Each host lists what is there, for every user."""
    missing = []
    for one in tree.servers:
        with one.connect() as link:
            for n in range(USERS):
                user = f"user {n}"
                there = sum(count for key, count in inboxes.items() if key[1] == user)
                listed = len(calls.list_faxes(link, user))
                for _ in range(5):  # one vanished fax leaves the list at each request
                    listed = len(calls.list_faxes(link, user)) if listed != min(there, 100) else listed
                if listed != min(there, 100):
                    missing.append((one.name, user, listed, there))
    check(not missing, f"every host lists every fax: {len(missing)} inboxes not {missing[:5]}")

def print_times():
    def during(start, end):
        return [seconds for when, seconds, _ in listings if start <= when < end]
    quiet = [seconds for when, seconds, _ in listings if not any(start <= when < end + 20 for _, start, end in away)]
    for name, waits in [("nothing away", quiet)] + [(f"{what} away", during(start, end)) for what, start, end in away] + \
            [(f"20 s after the {what} was back", during(end, end + 20)) for what, _, end in away]:
        median, p99, worst = calls.spread(waits)
        print(f"       listing, {name}: {len(waits)} times, median {median:.1f}, p99 {p99:.1f}, worst {worst:.1f} ms")

def judge_logs(tree):
    root = tree.servers[0].path(f"{shared_tree.TREE}/work")
    for name, pattern in (("access_log", ACCESS_LINE), ("exception_log", EXCEPTION_LINE)):
        lines = []
        if os.path.exists(f"{root}/{name}"):  # without exceptions there is no log of them
            with open(f"{root}/{name}", errors="replace") as log:
                lines = log.read().splitlines()
        torn = [line for line in lines if not pattern.fullmatch(line)]
        check(not torn, f"{name}: {len(lines)} lines, {len(torn)} torn {torn[:3]}")
        if name == "access_log":
            delivered = sum(" event=deliver " in line and " result=ok" in line for line in lines)
            check(delivered >= sum(oks.values()), f"{name}: {delivered} deliveries, of {sum(oks.values())} that were told")
    left = [name for name in os.listdir(root) if re.match("delivery_note|FDF|FDM", name)]
    check(not left, f"left behind in the work directory: {left}")

def judge_change(tree):
    """A change of the user list on one host is seen by each at its next request."""
    late = 0
    for n in range(10):
        one = random.choice(tree.servers)
        replace(one.path(f"{shared_tree.TREE}/USER_LIST.info"), user_list(f"[new {n}]\n").encode())
        for other in tree.servers:
            with other.connect() as link:
                try:
                    calls.list_faxes(link, f"new {n}")
                except calls.Refused:
                    late += 1
    check(late == 0, f"10 changes of the user list: {late} requests did not see them")

def judge_healing(tree):
    begun = time.time()
    while tree.unhealed() and time.time() < begun + 120:
        time.sleep(1)
    check(tree.unhealed() == 0, f"{tree.unhealed()} entries of the volume not healed, {time.time() - begun:.0f} s after the end")

def main():
    minutes = float(sys.argv[2])
    tree = shared_tree.shared_tree(sys.argv[3], sys.argv[1])
    def write_lists():
        replace(tree.servers[0].path(f"{shared_tree.TREE}/USER_LIST.info"), user_list().encode())
        replace(tree.servers[0].path(f"{shared_tree.TREE}/MODEMS.info"),
                f"[ttyS0]\nincoming_dir = {shared_tree.TREE}/incoming\nincoming_gui = Desk\n".encode())
    tree.set_up(write_lists, f"-d {DELAY}")
    print(f"       the volume and {len(tree.servers)} hosts are up, by the commands of {shared_tree.PAGE}", flush=True)
    handle = json.loads(tree.servers[0].run(f"{tree.environment}faxtray -u desk --json inboxes"))[0]["handle"]
    begun = time.time()
    threads = [threading.Thread(target=forward, args=(tree, handle)) for _ in range(FORWARDERS)] + \
        [threading.Thread(target=read, args=(tree,)) for _ in range(READERS)] + [threading.Thread(target=receive, args=(tree,))]
    for thread in threads:
        thread.start()
    disturb(tree, begun, 60 * minutes)
    sleep_until(begun + 60 * minutes)
    stopping.set()
    for thread in threads:
        thread.join()
    time.sleep(DELAY + 2)
    judge_healing(tree)
    inboxes = judge_faxes(tree)
    judge_listings(tree, inboxes)
    print_times()
    judge_logs(tree)
    judge_change(tree)
    print(f"       listings that a host did not answer: {dict(unanswered)}")
    for text, count in words.most_common(8):
        print(f"       a client was told {count} times: {text}")
    for one in tree.servers:
        complaints = collections.Counter(re.sub(r"\d+", "*", line) for line in one.run("cat /var/log/trayd_log", check=False).splitlines())
        print(f"       the log of {one.name}: {complaints.most_common(6)}")
    check(not faults, f"faults: {len(faults)} {faults[:5]}")
    print("The test has", "passed" if good else "FAILED")
    os._exit(not good)

main()
