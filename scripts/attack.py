"""The attacks of attack.sh, run on a private host: attack.py PROGRAMS SECONDS|short [ATTACK...]"""
import glob, multiprocessing, os, random, signal, sys, time
import attacks, calls
from live_site import live_site

short = sys.argv[2] == "short"
seconds = 0.4 if short else float(sys.argv[2])
wanted = sys.argv[3:]
slack = 5 if short else 1  # on a machine that does other work, with few questions asked
P99, WORST = 50 * slack, 250 * slack  # milliseconds that a well-behaved client may wait
MEMORY = 1024                         # KiB that may be kept
LINES, END = 100 * slack, 1500 * slack   # milliseconds until the daemon says that it ends, and does
command_seconds = 1 if short else 2
settling = 60  # seconds, at most, until everything is given back

def is_back(before, after):
    return after[0] - before[0] <= MEMORY and after[1] == before[1]

def run(site, attack, fax):
    """One line of the table; false if the attack was not withstood."""
    stop, finished, results = multiprocessing.Event(), multiprocessing.Event(), multiprocessing.Queue()
    before, begun = site.state(), time.monotonic()
    attacker = multiprocessing.Process(target=attacks.carry_out, args=(attack, stop))
    client = multiprocessing.Process(target=calls.well_behaved, args=(finished, results, "reader", fax))
    attacker.start()
    client.start()
    time.sleep(seconds)
    if attack in attacks.COUNTED:
        attacker.join(600)
    during, took = site.state(), time.monotonic() - begun
    finished.set()
    waits = results.get(timeout=120)
    stop.set()
    for child in (attacker, client):
        child.join(60)
        child.kill()
        child.join()
    after = site.state()
    for _ in range(settling * 10):
        if is_back(before, after):
            break
        time.sleep(0.1)
        after = site.state()
    if isinstance(waits, str):
        print(f"{attack.__name__:17} THE CLIENT IS NOT SERVED: {waits}", flush=True)
        return False
    spreads = [calls.spread(waits[kind]) for kind in ("NULL", "connect", "read")]
    good = is_back(before, after) and all(p99 <= P99 and worst <= WORST for _, p99, worst in spreads)
    print(f"{attack.__name__:17}" + "".join(" |{:6.1f}{:7.1f}{:7.1f}".format(*values) for values in spreads) +
          f" |{during[0] - before[0]:+7} {after[0] - before[0]:+6} |{during[1] - before[1]:+6} {after[1] - before[1]:+3}"
          f" |{took:6.1f} {during[2] - before[2]:6.1f} |{after[3] - before[3]:6}{'' if good else '   TOO MUCH'}", flush=True)
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
    log = f"{site.path}/work/trayd_log"
    os.truncate(log, 0)
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
    if any(os.path.getsize(path) != 500000 for path in glob.glob(f"{site.path}/inboxes/desk/*") + [f"{site.path}/incoming/large"]):
        return "a fax is not whole"
    return ", ".join(site.left_behind())

def ends_in_time(site):
    """SIGTERM at random moments, under load."""
    def deliver(link):
        calls.ask(link, calls.null_call())  # is it there?
        site.desk("--inbox", "Desk", "deliver", str(site.incoming().get("large", 0)), "desk")
        for path in glob.glob(f"{site.path}/inboxes/desk/*"):
            os.unlink(path)
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
    print("SIGTERM under load, {} times: its lines after {:.1f}{:7.1f}{:7.1f} ms (median, p99, worst), its end after {:.1f}{:7.1f}{:7.1f} ms{}"
          .format(rounds, *lines, *ends, "" if good else "   TOO MUCH " + "; ".join(faults[:5])))
    return good

def main():
    site = live_site(sys.argv[1], {"FAXTRAY_COMMAND_SECONDS": str(command_seconds)}, "/run")  # in memory: disks are not attacked
    site.fill_inbox(10000)  # as many as an inbox may have for these limits
    try:
        site.start_registry()
        site.start()
        fax = calls.oldest_fax("reader")
        handle, large = site.inbox_handle(), site.incoming()["large"]
        attacks.share = 0.005 if short else 1
        attacks.read_call = calls.read_call("reader", fax)
        attacks.deliver_call = lambda recipient: calls.deliver_call("desk", handle, large, recipient)
        attacks.deliveries = max(1, round(seconds / command_seconds))
        attacks.registry = site.registry.pid
        print(f"{'':17} | NULL: median, p99, | connect and NULL   | read of 256 KiB    | KiB during, | descriptors, | s: all,  | log,\n"
              f"{'':17} |     worst, ms      |                    |                    |      after  | the same     | daemon's | bytes")
        good = [run(site, attack, fax) for attack in attacks.CONNECTIONS + attacks.COUNTED + attacks.HUNG
                if not wanted or attack.__name__ in wanted]
        if not wanted or "SIGTERM" in wanted:
            good.append(ends_in_time(site))
    finally:
        site.remove()
    print(f"{sum(good)} of {len(good)} attacks withstood")
    sys.exit(not all(good))

main()
