"""The attacks of attack.sh, run on a private host: attack.py PROGRAMS SECONDS|short [ATTACK...]"""
import glob, multiprocessing, os, random, signal, sys, time
import attacks, calls, live_site

short = sys.argv[2] == "short"
seconds = 0.3 if short else float(sys.argv[2])
wanted = sys.argv[3:]
slack, tries = (5, 3) if short else (1, 1)  # other work on the machine makes clients wait; a fault does each time
P99, WORST = 50 * slack, 250 * slack    # milliseconds that a well-behaved client may wait
LINES, END = 100 * slack, 1500 * slack  # milliseconds until the daemon says that it ends, and does
MEMORY = 1024                           # KiB that may be kept
SETTLING = 60                           # seconds, at most, until everything is given back
command_seconds = 1 if short else 2     # until a program that hangs is ended

def measure(site, attack, fax):
    """Carries the attack out beside a client that behaves well: what that waited, and the daemon's state before the end."""
    stop, finished, results = multiprocessing.Event(), multiprocessing.Event(), multiprocessing.Queue()
    attacker = multiprocessing.Process(target=attacks.carry_out, args=(attack, stop))
    client = multiprocessing.Process(target=calls.well_behaved, args=(finished, results, "reader", fax))
    attacker.start()
    client.start()
    time.sleep(seconds)
    if attack in attacks.COUNTED:
        attacker.join(600)
    during = site.state()
    finished.set()
    waits = results.get(timeout=120)
    stop.set()
    for child in (attacker, client):
        child.join(60)
        child.kill()
        child.join()
    return waits, during

def settle(site, before):
    """The daemon's state once it has given back what it took, and whether it has."""
    end = time.monotonic() + SETTLING
    while True:
        after = site.state()
        is_back = after.memory - before.memory <= MEMORY and after.descriptors <= before.descriptors
        if is_back or time.monotonic() > end:
            return after, is_back
        time.sleep(0.1)

def run(site, attack, fax):
    """One line of the table; false if the attack was not withstood."""
    before, begun = site.state(), time.monotonic()
    waits, during = measure(site, attack, fax)
    took = time.monotonic() - begun
    after, good = settle(site, before)
    line = f"{attack.__name__:17}"
    if isinstance(waits, str):
        print(line, "FAILED: the client is not served:", waits, flush=True)
        return False
    for kind in ("NULL", "connect", "read"):
        median, p99, worst = calls.spread(waits[kind])
        good &= p99 <= P99 and worst <= WORST
        line += f" |{median:6.1f}{p99:7.1f}{worst:7.1f}"
    line += f" |{during.memory - before.memory:+7} {after.memory - before.memory:+6}"
    line += f" |{during.descriptors - before.descriptors:+6} {after.descriptors - before.descriptors:+3}"
    line += f" |{took:6.1f} {during.processor - before.processor:6.1f} |{after.log - before.log:6}"
    print(line + ("" if good else "   FAILED"), flush=True)
    return good

def load(stop, ask):
    """Asks without pause, whether there is a daemon or not."""
    while not stop.is_set():
        try:
            with calls.connect(attacks.ATTACKER) as link:
                while not stop.is_set():
                    ask(link)
        except OSError:
            time.sleep(0.002)

def end_once(site, lines, ends):
    """The daemon is told to end, at any moment. What is wrong then, or nothing."""
    os.truncate(f"{site.path}/work/trayd_log", 0)
    site.start("-d", "0")
    time.sleep(random.uniform(0, 0.3))
    begun = time.monotonic()
    site.daemon.send_signal(signal.SIGTERM)
    while "Shutting down" not in site.read("work/trayd_log") and time.monotonic() < begun + 10:
        time.sleep(0.001)
    lines.append(time.monotonic() - begun)
    status = site.daemon.wait(30)
    ends.append(time.monotonic() - begun)
    if status != 0:
        return f"status {status}"
    delivered = glob.glob(f"{site.path}/inboxes/desk/*")
    if any(os.path.getsize(path) != live_site.LARGE for path in [*delivered, f"{site.path}/incoming/large"]):
        return "a fax is not whole"
    for path in delivered:
        os.unlink(path)
    return ", ".join(site.left_behind())

def ends_in_time(site):
    """SIGTERM at random moments, under load."""
    def deliver(link):
        calls.ask(link, calls.null_call())  # is it there?
        site.desk("--inbox", "Desk", "deliver", str(site.incoming().get("large", 0)), "desk")
    loads = [lambda link: calls.ask(link, attacks.read_call), deliver,
             lambda link: (link.sendall(attacks.read_call * 20), time.sleep(0.1)),
             lambda link: (link.sendall(b"\x80"), time.sleep(0.1))]
    site.stop()
    stop, lines, ends, faults = multiprocessing.Event(), [], [], []
    children = [multiprocessing.Process(target=load, args=(stop, ask)) for ask in loads]
    for child in children:
        child.start()
    rounds = attacks.many(200)
    for _ in range(rounds):
        faults.append(end_once(site, lines, ends))
    stop.set()
    for child in children:
        child.join()
    faults = [fault for fault in faults if fault]
    lines, ends = calls.spread(lines), calls.spread(ends)
    good = not faults and lines[1] <= LINES and ends[2] <= END
    print("SIGTERM under load, {} times, median, p99 and worst: its lines after {:.1f}{:7.1f}{:7.1f} ms, ".format(rounds, *lines) +
          "its end after {:.1f}{:7.1f}{:7.1f} ms".format(*ends) + ("" if good else "   FAILED " + "; ".join(faults[:5])))
    return good

def main():
    site = live_site.live_site(sys.argv[1], {"FAXTRAY_COMMAND_SECONDS": str(command_seconds)}, "/run")  # no disk
    site.fill_inbox(10000)  # as many as an inbox may have for these limits
    try:
        site.start_registry()
        site.start()
        fax = calls.oldest_fax("reader")
        handle, large = site.inbox_handle(), site.incoming()["large"]
        attacks.share = 0.003 if short else 1
        attacks.read_call = calls.read_call("reader", fax)
        attacks.deliver_call = lambda recipient: calls.deliver_call("desk", handle, large, recipient)
        attacks.deliveries = max(1, round(seconds / command_seconds))
        attacks.registry = site.registry.pid
        print(f"{'':17} | NULL: median, p99, | connect and NULL   | read of 256 KiB    | KiB during, | descrip-  | s: all,     | log,\n"
              f"{'':17} |     worst, ms      |                    |                    |       after | tors      |    daemon's | bytes")
        good = [any(run(site, attack, fax) for _ in range(tries))
                for attack in attacks.CONNECTIONS + attacks.COUNTED + attacks.HUNG if not wanted or attack.__name__ in wanted]
        if not wanted or "SIGTERM" in wanted:
            good.append(ends_in_time(site))
    finally:
        site.remove()
    print(f"{sum(good)} of {len(good)} attacks withstood")
    sys.exit(not all(good))

main()
