"""The attacks of attack.sh, run on a private host: attack.py FAXTRAYD SECONDS [ATTACK...]"""
import multiprocessing, os, random, resource, shutil, signal, socket, struct, subprocess, sys, tempfile, time

PROGRAM, VERSION = 351229, 1
NULL, COUNT, READ = 0, 9, 5
CHUNK = 256 * 1024
P99, WORST = 0.050, 0.250  # seconds that a well-behaved client may wait
HOST = "127.0.0.1"

resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)


# Calls (RFC 5531) by hand

def text(value):
    return struct.pack(">I", len(value)) + value + b"\0" * (-len(value) % 4)

def identity():
    return struct.pack(">I", 1) + text(b"reader") + text(b"") + text(b"") + struct.pack(">iI", 0, 0)

def message(procedure, body=b"", credentials=struct.pack(">II", 0, 0)):
    return struct.pack(">IIIIII", random.getrandbits(32), 0, 2, PROGRAM, VERSION, procedure) + credentials + \
        struct.pack(">II", 0, 0) + body

def record(content):
    return struct.pack(">I", 0x80000000 | len(content)) + content

def read_call(fax, offset=0):
    return record(message(READ, identity() + struct.pack(">III", fax, CHUNK, offset)))

def connect(source="127.0.0.2", room=None):
    link = socket.socket()
    if room:
        link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, room)
    link.bind((source, 0))
    link.settimeout(60)
    link.connect((HOST, port))
    return link

def exactly(link, n):
    parts = []
    while n:
        part = link.recv(min(n, 1 << 20))
        if not part:
            raise ConnectionError("closed")
        parts.append(part)
        n -= len(part)
    return b"".join(parts)

def reply(link):
    mark = struct.unpack(">I", exactly(link, 4))[0]
    return exactly(link, mark & 0x7fffffff)

def ask(link, call):
    link.sendall(call)
    return reply(link)


# The well-behaved client: three kinds of waiting, all the time

def well_behaved(stop, results):
    waits = {"NULL": [], "connect": [], "read": []}
    def timed(kind, action):
        start = time.monotonic()
        action()
        waits[kind].append(time.monotonic() - start)
    def newcomer():
        with connect(HOST) as link:
            ask(link, record(message(NULL)))
    try:
        link = connect(HOST)
        while not stop.is_set():
            timed("NULL", lambda: ask(link, record(message(NULL))))
            timed("connect", newcomer)
            timed("read", lambda: ask(link, read_call(fax)))
            time.sleep(0.003)
        results.put(waits)
    except OSError as error:
        results.put(str(error))


# The attacks: each runs until `stop` is set. What the daemon does to them is no error of theirs.

def wait(stop):
    stop.wait()

def hold(stop, n, first, **options):
    links = []
    for _ in range(n):
        links.append(connect(**options))
        links[-1].sendall(first)
    wait(stop)

def half_mark(stop):
    hold(stop, 700, b"\x80\0")

def half_record(stop):
    hold(stop, 700, record(message(NULL))[:20])

def claims_2_gb(stop):
    hold(stop, 20, b"\xff\xff\xff\xff" + b"x" * 1000)

def idle(stop):
    hold(stop, 10000, b"")

def slow_bytes(stop):
    links = [connect() for _ in range(20)]
    for byte in record(message(NULL, b"x" * 1000)):
        for link in links:
            link.sendall(bytes([byte]))
        if stop.wait(0.2):
            return

def empty_fragments(stop):
    while not stop.is_set():
        link = connect()
        try:
            while not stop.is_set():
                link.sendall(b"\0\0\0\0" * 10000)
        except OSError:
            pass

def pipelining(stop):
    links = [connect() for _ in range(4)]
    burst = record(message(NULL)) * 500
    while not stop.is_set():
        for link in links:
            link.sendall(burst)
        for link in links:
            for _ in range(500):
                reply(link)

def pipelined_counts(stop):
    link = connect()
    link.settimeout(1)
    while not stop.is_set():
        try:
            link.sendall(record(message(COUNT, identity())) * 100)
        except socket.timeout:
            pass

def never_read(stop):
    links = [connect(room=4096) for _ in range(300)]
    for link in links:
        link.sendall(read_call(fax) * 10)
    wait(stop)

def slow_readers(stop):
    links = [connect(room=4096) for _ in range(8)]
    for link in links:
        link.sendall(read_call(fax) * 20)
    while not stop.wait(0.1):
        for link in links:
            link.recv(4096)

def reset_flood(stop):
    while not stop.is_set():
        link = connect()
        link.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if random.random() < 0.5:
            link.sendall(read_call(fax))
        link.close()

def with_reconnects(stop, next_bytes):
    while not stop.is_set():
        link = connect()
        try:
            while not stop.is_set():
                link.sendall(next_bytes())
                link.setblocking(False)
                try:
                    while link.recv(65536):
                        pass
                    break
                except BlockingIOError:
                    link.settimeout(60)
        except OSError:
            pass
        link.close()

def random_bytes(stop):
    with_reconnects(stop, lambda: random.randbytes(random.randint(1, 2000)))

def other_protocols(stop):
    greetings = [b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", b"\x16\x03\x01\x02\0\x01\0\x01\xfc\x03\x03" + b"r" * 500,
                 b"SSH-2.0-OpenSSH_9.2\r\n", b"\r\n" * 100]
    with_reconnects(stop, lambda: random.choice(greetings))

def cut_records(stop):
    call = read_call(fax)
    with_reconnects(stop, lambda: record(call[4:random.randint(4, len(call))]))

def malformed(stop):
    def flipped():
        call = bytearray(read_call(fax))
        for _ in range(random.randint(1, 4)):
            call[random.randrange(4, len(call))] = random.getrandbits(8)
        return bytes(call) * 20
    with_reconnects(stop, flipped)

def gss_credentials(stop):
    token = struct.pack(">II", 6, 20) + struct.pack(">IIIII", 1, 1, 0, 1, 0)
    with_reconnects(stop, lambda: record(message(NULL, b"", token)) * 100)

def many_groups(stop):
    body = struct.pack(">I", 0) + text(b"x") + struct.pack(">III", 0, 0, 60) + b"\0" * 240
    with_reconnects(stop, lambda: record(message(NULL, b"", struct.pack(">II", 1, len(body)) + body)) * 100)

ATTACKS = [half_mark, half_record, claims_2_gb, slow_bytes, empty_fragments, pipelining, pipelined_counts, never_read,
           slow_readers, idle, reset_flood, random_bytes, other_protocols, cut_records, malformed, gss_credentials,
           many_groups]


# The daemon

def make_site():
    site = tempfile.mkdtemp()
    for directory in ("work", "incoming", "inboxes/reader"):
        os.makedirs(f"{site}/{directory}")
    with open(f"{site}/USER_LIST.info", "w") as out:
        out.write(f"[default]\ndelivery_dir_root = {site}/inboxes\n[reader]\ndelivery_method = faxtray\ndelivery_dir = reader\n")
    with open(f"{site}/MODEMS.info", "w") as out:
        out.write(f"[ttyS0]\nincoming_dir = {site}/incoming\n")
    for n in range(10000):  # as many as an inbox may have
        path = f"{site}/inboxes/reader/f{n:05}"
        with open(path, "wb") as out:
            out.write(b"x" * (CHUNK if n == 0 else 10))
        os.utime(path, (1700000000 + n, 1700000000 + n))
    return site

def start_daemon(program):
    daemon = subprocess.Popen([program, "-f", "-W", f"{site}/work", "-U", f"{site}/USER_LIST.info", "-M", f"{site}/MODEMS.info"],
                              cwd=site, stderr=subprocess.DEVNULL)
    for _ in range(100):
        found = subprocess.run(["rpcinfo", "-p"], capture_output=True, text=True).stdout
        ports = [line.split()[3] for line in found.splitlines() if line.split()[:1] == [str(PROGRAM)]]
        if ports:
            return daemon, int(ports[0])
        time.sleep(0.1)
    sys.exit("the daemon does not start: " + open(f"{site}/work/trayd_log").read())

def oldest_fax():
    with connect(HOST) as link:
        body = ask(link, record(message(4, identity())))
    # An accepted reply, the type of the result, a record that is there, four strings, pages, kind, id.
    at = 24 + 8
    for _ in range(4):
        length = struct.unpack_from(">I", body, at)[0]
        at += 4 + length + -length % 4
    return struct.unpack_from(">I", body, at + 8)[0]

def state():
    with open(f"/proc/{daemon.pid}/status") as lines:
        memory = next(int(line.split()[1]) for line in lines if line.startswith("VmRSS"))
    log = sum(os.path.getsize(f"{site}/work/{name}") for name in os.listdir(f"{site}/work"))
    with open(f"/proc/{daemon.pid}/stat") as stat:
        ticks = sum(map(int, stat.read().split()[13:15]))
    return memory, len(os.listdir(f"/proc/{daemon.pid}/fd")), log, ticks / os.sysconf("SC_CLK_TCK")

def quiet(attack, stop):
    try:
        attack(stop)
    except OSError:
        pass

def run(attack):
    stop, finished, results = multiprocessing.Event(), multiprocessing.Event(), multiprocessing.Queue()
    before = state()
    attacker = multiprocessing.Process(target=quiet, args=(attack, stop))
    client = multiprocessing.Process(target=well_behaved, args=(finished, results))
    attacker.start()
    client.start()
    time.sleep(seconds)
    during = state()
    finished.set()
    waits = results.get(timeout=120)
    stop.set()
    attacker.join(60)
    for child in (attacker, client):
        if child.is_alive():
            child.kill()
        child.join()
    time.sleep(1.5)  # memory is given back once a second
    after = state()

    line, good = f"{attack.__name__:17}", True
    if isinstance(waits, str):
        print(line, "THE CLIENT FAILED:", waits)
        return False
    for kind, all_of_it in waits.items():
        all_of_it.sort()
        p99 = all_of_it[len(all_of_it) * 99 // 100]
        line += f" |{all_of_it[len(all_of_it) // 2] * 1000:7.1f}{p99 * 1000:7.1f}{all_of_it[-1] * 1000:7.1f}"
        good &= p99 <= P99 and all_of_it[-1] <= WORST
    memory_back = after[0] - before[0] <= 1024
    good &= memory_back and after[1] == before[1]
    print(f"{line} | {during[0] - before[0]:+7} {after[0] - before[0]:+6} {during[1] - before[1]:+6} {after[1] - before[1]:+3}"
          f" {after[3] - before[3]:5.1f} {after[2] - before[2]:6}{'' if good else '   TOO MUCH'}", flush=True)
    return good

def ends_in_time():
    """SIGTERM is heeded although somebody holds half a record."""
    with connect() as link:
        link.sendall(b"\x80")
        time.sleep(0.2)
        start = time.monotonic()
        daemon.send_signal(signal.SIGTERM)
        status = daemon.wait(60)
        took = time.monotonic() - start
    print(f"SIGTERM beside half a record: status {status} after {took * 1000:.0f} ms")
    return status == 0 and took < 1.5

seconds = float(sys.argv[2])
wanted = sys.argv[3:]
site = make_site()
try:
    daemon, port = start_daemon(sys.argv[1])
    fax = oldest_fax()
    print(f"{'attack':17} |   NULL: median, p99, worst | new connection       | read 256 KiB, ms     | KiB during, after; fds; CPU s, log")
    good = [run(attack) for attack in ATTACKS if not wanted or attack.__name__ in wanted]
    good.append(ends_in_time())
finally:
    daemon.kill()
    shutil.rmtree(site)
print(f"{sum(good)} of {len(good)} attacks withstood")
sys.exit(not all(good))
