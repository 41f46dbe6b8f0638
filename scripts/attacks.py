"""What clients and hung programs do to a daemon. Each attack is a function that returns when `stop` is set or, if it is one
of COUNTED, when it is through. What the daemon does to them is no error of theirs."""
import itertools, multiprocessing, os, random, select, signal, socket, struct
import calls, live_site
from calls import connect, message, record, text

ATTACKER, ACCOMPLICE = "127.0.0.2", "127.0.0.3"  # other hosts than the client that behaves well

# What an attack has to know; set before it begins.
share = 1.0          # of the numbers below: less in a short run
read_call = b""      # of 256 KiB
deliver_call = None  # makes one, of half a megabyte, to the recipient of that name
deliveries = 1       # how many of those
registry = 0         # its process id

count_call = record(message(calls.COUNT, calls.identity("reader")))

def many(n):
    return max(1, int(n * share))


# Connections that hold something

def hold(stop, n, first, **options):
    links = []
    for _ in range(n):
        links.append(connect(ATTACKER, **options))
        links[-1].sendall(first)
    stop.wait()

def half_marks(stop):
    hold(stop, 700, b"\x80\0")

def half_records(stop):
    hold(stop, 700, calls.null_call()[:20])

def claims_2_gb(stop):
    hold(stop, 20, b"\xff\xff\xff\xff" + b"x" * 1000)

def never_read(stop):
    hold(stop, 300, read_call * 10, room=4096)

def slow_bytes(stop):
    links = [connect(ATTACKER) for _ in range(20)]
    for byte in record(message(calls.NULL, b"x" * 1000)):
        for link in links:
            link.sendall(bytes([byte]))
        if stop.wait(0.2):
            return

def slow_readers(stop):
    links = [connect(ATTACKER, room=4096) for _ in range(8)]
    for link in links:
        link.sendall(read_call * 20)
    while not stop.wait(0.1):
        for link in links:
            link.recv(4096)  # 40 KB a second

def idle(stop):
    """10,000 connections, asked in turn whether they are served."""
    links = [connect(ATTACKER) for _ in range(many(10000))]
    for link in itertools.cycle(links):
        calls.ask(link, calls.null_call())
        if stop.wait(0.001):
            return

def crowds(stop):
    """10,000 come, and leave at once."""
    while not stop.is_set():
        crowd = multiprocessing.Process(target=lambda: [connect(ATTACKER) for _ in range(many(10000))])
        crowd.start()
        crowd.join()

def more_than_places(stop):
    """Two hosts knock until none is let in any more, and keep what they get."""
    def knock(source):
        links = []
        for _ in range(many(15000)):
            try:
                links.append(connect(source))
            except OSError:
                break
        stop.wait()
    accomplice = multiprocessing.Process(target=knock, args=(ACCOMPLICE,))
    accomplice.start()
    knock(ATTACKER)
    accomplice.join()


# Floods

def empty_fragments(stop):
    with_reconnects(stop, lambda: b"\0\0\0\0" * 10000)

def pipelining(stop):
    links = [connect(ATTACKER) for _ in range(4)]
    burst = calls.null_call() * 500
    while not stop.is_set():
        for link in links:
            link.sendall(burst)
        for link in links:
            for _ in range(500):
                calls.reply(link)

def pipelined_counts(stop):
    """700 at once, and more as they are answered; nothing is read."""
    link = connect(ATTACKER)
    link.setblocking(False)
    unsent = count_call * 700
    while not stop.wait(0.01):
        if select.select([], [link], [], 0)[1]:
            unsent = unsent[link.send(unsent):] + count_call * 10

def reset_flood(stop):
    while not stop.is_set():
        link = connect(ATTACKER)
        link.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        if random.random() < 0.5:
            link.sendall(read_call)
        link.close()

def with_reconnects(stop, next_bytes):
    while not stop.is_set():
        link = connect(ATTACKER)
        try:
            while not stop.is_set():
                link.sendall(next_bytes())
                while select.select([link], [], [], 0)[0] and link.recv(65536):
                    pass
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
    """At every length: a record that is shorter than its content, and one that its client does not finish."""
    for n in itertools.cycle(range(4, len(read_call))):
        for first in (record(read_call[4:n]), read_call[:n]):
            with connect(ATTACKER) as link:
                link.sendall(first)
        if stop.is_set():
            return


# Malformed records, counted

def answered(make):
    """A flood of records that the daemon answers, whatever is wrong with them."""
    def attack(stop):
        link = connect(ATTACKER)
        for _ in range(many(5000)):
            link.sendall(b"".join(make() for _ in range(200)))
            for _ in range(200):
                calls.reply(link)
    return attack

def closing(make):
    """A flood of records for which the daemon closes the connection; what comes before that is read."""
    def attack(stop):
        for _ in range(many(20000)):
            links = [connect(ATTACKER) for _ in range(50)]
            for link in links:
                link.sendall(make())
            for link in links:
                try:
                    while link.recv(65536):
                        pass
                except ConnectionResetError:
                    pass
                link.close()
    return attack

def credentials(flavor, body):
    return struct.pack(">II", flavor, len(body)) + body

def flipped():
    """A call with up to four bytes changed, and its client's end."""
    call = bytearray(read_call[4:])
    for _ in range(random.randint(1, 4)):
        call[random.randrange(len(call))] = random.getrandbits(8)
    return record(bytes(call)) + b"\xff\xff\xff\xff"

def false_arguments():
    """Any procedure with arguments, with garbage as its arguments."""
    procedure = random.choice([procedure for procedure in range(2, 19)])
    return record(message(procedure, b"\0\0\0\1\xff\xff\xff\xff" + random.randbytes(4 * random.randint(0, 20))))

gss = credentials(6, struct.pack(">IIIII", 1, 1, 0, 1, 0))
groups = credentials(1, struct.pack(">I", 0) + text(b"x") + struct.pack(">III", 0, 0, 60) + b"\0" * 240)
oversized = credentials(1, b"\0" * 404)

MALFORMED = {
    "gss_credentials": answered(lambda: record(message(calls.NULL, b"", gss))),
    "many_groups": answered(lambda: record(message(calls.NULL, b"", groups))),
    "long_credentials": answered(lambda: record(message(calls.NULL, b"", oversized))),
    "false_arguments": answered(false_arguments),
    "rpc_version": answered(lambda: record(message(calls.NULL, rpc=3))),
    "other_program": answered(lambda: record(message(calls.NULL, program=100003))),
    "other_version": answered(lambda: record(message(calls.NULL, version=2))),
    "other_procedure": answered(lambda: record(message(random.randint(19, 1 << 31)))),
    "short_record": closing(lambda: record(random.randbytes(random.randint(0, 11)))),
    "reply_record": closing(lambda: record(struct.pack(">IIIIII", 1, 1, 0, 0, 0, 0))),
    "long_record": closing(lambda: struct.pack(">I", 0x80040001)),
    "flipped_bytes": closing(flipped),
}
for name, attack in MALFORMED.items():
    attack.__name__ = name


# Programs that hang, while the daemon delivers

def deliver(recipient):
    def attack(stop):
        link = connect(ATTACKER)
        link.sendall(deliver_call(recipient) * deliveries)
        stop.wait()
    attack.__name__ = recipient.replace(" ", "_")
    return attack

def stopped(name, process):
    """Mail is delivered while a program does nothing that the daemon asks for it."""
    def attack(stop):
        pid = process()
        os.kill(pid, signal.SIGSTOP)
        try:
            deliver("mail")(stop)
        finally:
            os.kill(pid, signal.SIGCONT)
    attack.__name__ = name
    return attack


CONNECTIONS = [half_marks, half_records, claims_2_gb, slow_bytes, empty_fragments, pipelining, pipelined_counts, never_read,
               slow_readers, idle, crowds, more_than_places, reset_flood, random_bytes, other_protocols, cut_records]
COUNTED = list(MALFORMED.values())
PROGRAMS_STOPPED = [stopped("hung_registry", lambda: registry), stopped("hung_port_mapper", live_site.port_mapper)]
HUNG = [deliver("slow mail"), deliver("hung mail"), deliver("hung command"), deliver("hung converter")] + PROGRAMS_STOPPED

def carry_out(attack, stop):
    try:
        attack(stop)
    except OSError:
        pass
