"""The measurements of run-scale.sh on that many hosts: scale.py PROGRAMS DIRECTORY HOSTS"""
import json, os, sys, threading, time
sys.path.insert(0, "scripts")
import calls, live_site, shared_tree

SECONDS, CLIENTS, FAXES = 5, 3, 50  # of each measurement, of each host, in each inbox

with open(live_site.LETTER, "rb") as file:
    letter = file.read()

def processors():
    """Seconds that the processors have worked, and each program."""
    with open("/proc/stat") as stat:
        busy = sum(int(word) for at, word in enumerate(stat.readline().split()[1:8]) if at not in (3, 4))
    used = {"all": busy}
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{pid}/stat") as stat:
                name, rest = stat.read().split("(")[1].rsplit(")", 1)
        except OSError:
            continue
        used[name] = used.get(name, 0) + sum(map(int, rest.split()[11:13]))
    return used

def measure(kind, servers, action):
    """`action(connection, client)`, by the clients of all hosts at once."""
    counts = []
    end = time.monotonic() + SECONDS
    def ask(server, client):
        count = 0
        with server.connect() as link:
            while time.monotonic() < end:
                action(link, client)
                count += 1
        counts.append(count)
    before = processors()
    threads = [threading.Thread(target=ask, args=(server, f"{n} {m}")) for n, server in enumerate(servers) for m in range(CLIENTS)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    after = processors()
    spent = {name: (after[name] - before.get(name, 0)) / SECONDS for name in after}
    parts = ", ".join(f"{name} {spent.get(name, 0):.0f}" for name in ("faxtrayd", "glusterfs", "glusterfsd", "python3"))
    print(f"  {kind:10} {sum(counts) / SECONDS:8.0f} a second    processors: {spent['all']:.0f} % ({parts})", flush=True)

def serve(what, tree, servers, directory):
    """Fills the inboxes in `directory`, which the servers' daemons serve, and measures."""
    root = servers[0].path(directory)
    users = [f"{n} {m}" for n in range(len(servers)) for m in range(CLIENTS)]
    for user in users:
        inbox = f"{root}/inboxes/user{user.replace(' ', '')}"
        os.makedirs(inbox, exist_ok=True)
        for n in range(FAXES):
            with open(f"{inbox}/f{n}", "wb") as out:
                out.write(letter)
    with open(f"{root}/incoming/f.fax", "wb") as out:
        out.write(letter)
    time.sleep(3)
    handle = json.loads(servers[0].run(f"{tree.environment}faxtray -u desk --json inboxes"))[0]["handle"]
    print(what)
    first, fax = {}, {}
    for n, server in enumerate(servers):
        with server.connect() as link:
            fax[n] = calls.list_faxes(link, "desk", handle)[0][1]
            for m in range(CLIENTS):
                first[f"{n} {m}"] = calls.list_faxes(link, f"user {n} {m}")[0][1:]
    measure("listing", servers, lambda link, client: calls.list_faxes(link, f"user {client}"))
    measure("read", servers, lambda link, client: calls.read_fax(link, f"user {client}", *first[client]))
    measure("delivery", servers, lambda link, client: calls.result(
        calls.ask(link, calls.deliver_call("desk", handle, fax[int(client[0])], f"user {client}"))))

def single_calls(what, directory):
    """Microseconds of a look at a file, of opening and reading it, and of a new file, flushed and renamed."""
    def each(action, times):
        begun = time.monotonic()
        for n in range(times):
            action(n)
        return (time.monotonic() - begun) / times * 1e6
    path = f"{directory}/single"
    def make(n):
        with open(path, "wb") as out:
            out.write(letter)
            out.flush()
            os.fsync(out.fileno())
        os.rename(path, f"{path}{n}")
    def read(n):
        with open(f"{path}{n}", "rb") as fax:
            fax.read()
    made = each(make, 200)
    print(f"{what}: stat {each(lambda n: os.stat(f'{path}{n % 200}'), 2000):.0f} us, open and read {each(read, 200):.0f} us, "
          f"write, flush and rename {made:.0f} us", flush=True)
    for n in range(200):
        os.unlink(f"{path}{n}")

def write_lists(servers, directory):
    root = servers[0].path(directory)
    users = "".join(f"[user {n} {m}]\n" for n in range(len(servers)) for m in range(CLIENTS))
    with open(f"{root}/USER_LIST.info", "w") as out:
        out.write(f"[default]\ndelivery_dir_root = {directory}/inboxes\ndelivery_file_format = as_received\n"
                  f"[desk]\nforwarder = Desk\n{users}")
    with open(f"{root}/MODEMS.info", "w") as out:
        out.write(f"[ttyS0]\nincoming_dir = {directory}/incoming\nincoming_gui = Desk\n")

def main():
    programs, disk, count = sys.argv[1], sys.argv[2], int(sys.argv[3])
    tree = shared_tree.shared_tree(disk, programs, count)
    tree.set_up(lambda: write_lists(tree.servers, shared_tree.TREE), "-d 1")
    serve(f"{count} hosts on the volume, {CLIENTS} clients each", tree, tree.servers, shared_tree.TREE)
    if count > 1:
        return
    one = tree.servers[0]
    single_calls("the volume", one.path(shared_tree.TREE))
    one.run("umount /var/fax; mount -t glusterfs store1:/fax /var/fax", check=False)
    single_calls("the volume with the mount's own caches", one.path(shared_tree.TREE))
    single_calls("the local disk", one.path("/srv"))
    one.run("kill $(cat /var/fax/work/trayd_lock.fax1); rm -rf /srv/fax; mkdir -p /srv/fax/work /srv/fax/incoming /srv/fax/inboxes")
    write_lists([one], "/srv/fax")
    time.sleep(1)
    tree.give(one, "cd /srv/fax && env ONDRIXHOME=/srv/fax faxtrayd -d 1")
    time.sleep(1)
    serve(f"1 host on the local disk, {CLIENTS} clients", tree, [one], "/srv/fax")

main()
