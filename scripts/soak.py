"""The soak of soak.sh, run on a private host: soak.py PROGRAMS MINUTES"""
import collections, email, email.policy, json, multiprocessing, os, random, re, statistics, subprocess, sys, threading, time
import attacks, calls, live_site

P99 = 50                       # milliseconds that a well-behaved client may wait
MEMORY, DESCRIPTORS = 1024, 5  # KiB, and number, that the last tenth may have more than the first
USERS, READERS = 10, 5         # and readers of each user's inbox, the first of whom also removes what it has read
COMMAND_SECONDS = 10           # until a hung command is ended
ATTACK, QUIET = 5, 5           # seconds

with open(live_site.LETTER, "rb") as file:
    letter = file.read()
stopping = multiprocessing.Event()  # clients are to end
reports = multiprocessing.Queue()   # of the readers: a kind and a name or text
waits = multiprocessing.Queue()     # of the client that measures
faults = []                         # what should not have happened, as texts
taken = collections.Counter()       # faxes that were removed from inboxes, by name
received = 0                        # faxes, named by their number
told = {}                           # what the forwarder was told in the end, by name of the fax: "" for delivered
samples = []                        # the daemon's state between attacks

def base(name):
    """The name that a fax came with: a delivery has added to it."""
    return re.match(r"f\d{6}", name)[0]


# 50 readers, in processes of five each

def read_inbox(user, takes):
    link = calls.connect()
    while not stopping.wait(random.uniform(0.5, 1.5)):
        try:
            faxes = calls.list_faxes(link, user)
            for name, fax, size in faxes if takes else random.sample(faxes, min(1, len(faxes))):
                if calls.read_fax(link, user, fax, size) != letter:
                    reports.put(("fault", f"{name} was read, and is not whole"))
                if takes:
                    calls.remove_fax(link, user, fax)
                    reports.put(("taken", base(name)))
        except calls.Refused as refused:
            if not re.search("Invalid fax ?id|Can't open", str(refused)):  # gone, or renumbered by a reload
                reports.put(("fault", f"a reader was told: {refused}"))
        except OSError as error:
            reports.put(("fault", f"a reader has lost its connection: {error}"))
            link = calls.connect()

def read_as(user):
    threads = [threading.Thread(target=read_inbox, args=(user, n == 0)) for n in range(READERS)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()

def collect():
    """Takes the readers' reports, for ever."""
    while True:
        kind, text = reports.get()
        if kind == "taken":
            taken[text] += 1
        else:
            faults.append(text)


# A receiver, an administrator and a forwarder

def receive(site):
    """One more fax, whole from the start."""
    global received
    name = f"f{received:06}.fax"
    with open(f"{site.path}/incoming/.{name}", "wb") as out:
        out.write(letter)
    os.rename(f"{site.path}/incoming/.{name}", f"{site.path}/incoming/{name}")
    received += 1

def edit_list(site, edits):
    """Another user, and another order."""
    users = [f"[user {n}]\n" for n in range(USERS)] + [f"[guest {edits % 7}]\n"]
    random.shuffle(users)
    site.write_list("USER_LIST.info", live_site.USERS + "".join(users))

def recipient(name):
    number = int(base(name)[1:])
    if number % 4 == 0:
        return "hung command" if number // 4 % 20 == 5 else "command"
    return "mail" if number % 4 == 1 else f"user {random.randrange(USERS)}"

def deliver(site, name):
    """As a forwarder does: lists, delivers and removes, and lists again when a reload has given the fax another id."""
    to = recipient(name)
    for _ in range(30):
        fax = site.incoming().get(name)
        if fax is None:
            if base(name) in told:
                return
        elif base(name) in told:
            site.desk("--inbox", "Desk", "rm", str(fax))
            continue
        else:
            status, text = site.desk("--inbox", "Desk", "deliver", str(fax), to)
            if status == 0:
                told[base(name)] = ""
                continue
            if status != 6 and not re.search("Invalid fax ?id", text):
                told[base(name)] = text
                if to != "hung command":
                    faults.append(f"{name} to {to}: {text}")
                continue
        time.sleep(0.5)
    faults.append(f"{name}: cannot be delivered and removed")

def forward(site, in_hand):
    """Begins a delivery of the oldest fax that waits for one."""
    for name in sorted(site.incoming()):
        if not re.fullmatch(r"f\d{6}\.fax|large", name):
            faults.append(f"{name} is listed, which a delivery works on")
        elif name not in in_hand and name != "large":
            in_hand[name] = threading.Thread(target=deliver, args=(site, name), daemon=True)
            in_hand[name].start()
            return

def each_second(site, end):
    """Faxes, edits and deliveries until `end`; then until all deliveries are through, or three minutes have passed."""
    in_hand, seconds = {}, 0
    while time.monotonic() < end or len(in_hand) < received and time.monotonic() < end + 180:
        begun = time.monotonic()
        if begun < end:
            receive(site)
        if seconds % 60 == 30:
            edit_list(site, seconds)
        forward(site, in_hand)
        seconds += 1
        time.sleep(max(0, begun + 1 - time.monotonic()))
    for thread in in_hand.values():
        thread.join(max(1, end + 180 - time.monotonic()))


# Attacks, the daemon's state between them, and a line a minute

def attack_once(site, attack, seconds):
    attacks.read_call = calls.read_call("reader", calls.oldest_fax("reader"))
    handle, large = site.inbox_handle(), site.incoming().get("large", 0)
    attacks.deliver_call = lambda to: calls.deliver_call("desk", handle, large, to)
    stop = multiprocessing.Event()
    attacker = multiprocessing.Process(target=attacks.carry_out, args=(attack, stop))
    attacker.start()
    time.sleep(seconds)
    stop.set()
    attacker.join(2)
    attacker.kill()
    attacker.join()

def attack_at_random(site, all_attacks):
    while not stopping.is_set():
        try:
            attack_once(site, random.choice(all_attacks), ATTACK)
        except (OSError, calls.Refused, json.JSONDecodeError, subprocess.TimeoutExpired) as error:
            faults.append(f"before an attack: {error}")
        if not stopping.wait(QUIET):
            samples.append(site.state())

def print_minutes(site, all_waits):
    print("minute | received delivered not | NULL: p99, worst | connect, worst | read, worst, ms |    KiB  descriptors | CPU s |  log KiB")
    minute = 0
    while True:
        answer = waits.get()
        if isinstance(answer, str):
            faults.append(f"the client that measures is not served: {answer}")
            return
        minute += 1
        for kind, values in answer.items():
            all_waits[kind] += values
        spreads = [calls.spread(values)[1:] for values in answer.values()]
        now = site.state()
        print(f"{minute:6} | {received:8} {list(told.values()).count(''):9} {sum(1 for text in told.values() if text):3} |" +
              " |".join("{:7.1f} {:8.1f}".format(*values) for values in spreads) +
              f" | {now.memory:6} {now.descriptors:12} | {now.processor:5.1f} | {now.log / 1024:8.1f}", flush=True)


# The verdict

def delivered(site):
    """How often each fax has arrived, by name; what is in inboxes and mails has to be whole."""
    count = collections.Counter(taken)
    for user in range(USERS):
        directory = f"{site.path}/inboxes/user{user}"
        for name in os.listdir(directory):
            if name.startswith("f"):
                count[base(name)] += 1
                with open(f"{directory}/{name}", "rb") as fax:
                    if fax.read() != letter:
                        faults.append(f"{name} is not whole")
    for name in os.listdir(f"{site.path}/mails"):
        with open(f"{site.path}/mails/{name}", "rb") as mail:
            for part in email.message_from_binary_file(mail, policy=email.policy.default).iter_attachments():
                if part.get_filename().startswith("f"):
                    count[base(part.get_filename())] += 1
                    if part.get_content() != letter:
                        faults.append(f"{part.get_filename()} was mailed, and is not whole")
    for name in site.read("taken").split():
        count[base(name)] += 1
    return count

def tenths(values):
    """The medians of the first and the last tenth."""
    size = max(1, len(values) // 10)
    return statistics.median(values[:size]), statistics.median(values[-size:])

def judge(site, before, all_waits):
    """Prints what is right and what is not; true if all is right."""
    good = True
    def check(right, text):
        nonlocal good
        good &= bool(right)
        print(("       " if right else "FAILED ") + text)
    count = delivered(site)
    names = [f"f{number:06}" for number in range(received)]
    lost = [name for name in names if count[name] == 0 and not told.get(name)]
    twice = [name for name in names if count[name] > 1]
    both = [name for name in names if count[name] == 1 and told.get(name)]
    check(not lost, f"{received} faxes, {sum(count.values())} delivered, {sum(map(bool, told.values()))} reported as failed, "
                    f"{len(lost)} neither {lost[:5]}")
    check(not twice and not both, f"{len(twice)} delivered more than once {twice[:5]}, {len(both)} delivered and reported as failed {both[:5]}")
    for kind, values in all_waits.items():
        median, p99, worst = calls.spread(values)
        check(values and p99 < P99, f"{kind}: {len(values)} times, median {median:.1f}, p99 {p99:.1f}, worst {worst:.1f} ms")
    first, last = tenths([sample.memory for sample in samples])
    check(last - first <= MEMORY, f"memory: {first:.0f} KiB in the first tenth, {last:.0f} in the last")
    first, last = tenths([sample.descriptors for sample in samples])
    check(last - first <= DESCRIPTORS, f"descriptors: {first:.0f} in the first tenth, {last:.0f} in the last")
    after = site.state()
    check(before.descriptors == after.descriptors, f"descriptors without clients: {before.descriptors} at the start, {after.descriptors} at the end; "
                                 f"memory {before.memory} and {after.memory} KiB")
    left = site.left_behind()
    check(not left, f"left behind: {left}")
    status, took = site.stop()
    check(status == 0, f"the daemon has ended with status {status} after {took * 1000:.0f} ms")
    check(not faults, f"faults: {len(faults)} {faults[:5]}")
    return good

def main():
    minutes = float(sys.argv[2])
    site = live_site.live_site(sys.argv[1], {"FAXTRAY_COMMAND_SECONDS": str(COMMAND_SECONDS)})
    all_attacks = attacks.CONNECTIONS + attacks.COUNTED + attacks.PROGRAMS_STOPPED
    try:
        edit_list(site, 0)
        site.fill_inbox(2000)
        site.start_registry()
        site.start("-d", "2")
        attacks.registry = site.registry.pid
        for attack in all_attacks:
            attack_once(site, attack, 0.2)  # so that buffers have grown
        time.sleep(COMMAND_SECONDS)
        for _ in range(60):  # the last crowd may still be leaving
            before = site.state()
            if before.descriptors < 20:
                break
            time.sleep(1)
        threading.Thread(target=collect, daemon=True).start()
        clients = [multiprocessing.Process(target=read_as, args=(f"user {n}",)) for n in range(USERS)]
        clients.append(multiprocessing.Process(target=calls.well_behaved,
                                               args=(stopping, waits, "reader", calls.oldest_fax("reader"), 0.02, 60)))
        for client in clients:
            client.start()
        all_waits = collections.defaultdict(list)
        threading.Thread(target=print_minutes, args=(site, all_waits), daemon=True).start()
        attacker = threading.Thread(target=attack_at_random, args=(site, all_attacks))
        attacker.start()
        each_second(site, time.monotonic() + 60 * minutes)
        stopping.set()
        for client in clients:
            client.join(60)
        attacker.join(60)
        time.sleep(3)
        good = judge(site, before, all_waits)
    finally:
        stopping.set()
        site.remove()
    print("The soak has", "passed" if good else "FAILED")
    sys.exit(not good)

main()
