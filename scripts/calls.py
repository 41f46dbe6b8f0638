"""Calls to faxtrayd by hand (RFC 5531, RFC 4506), for clients that behave well and for others; and a client that
measures how long it waits."""
import random, resource, socket, struct, time

SERVER = ("127.0.0.1", 7000)  # what FAXTRAY_LISTEN tells the daemon
PROGRAM, VERSION = 351229, 1
NULL, LIST, OLDEST, READ, REMOVE, DELIVER, COUNT, LIST_INCOMING, REMOVE_INCOMING = 0, 2, 4, 5, 6, 7, 9, 13, 18
CHUNK = 256 * 1024
NO_CREDENTIALS = struct.pack(">II", 0, 0)

resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)


# Requests

def text(value):
    return struct.pack(">I", len(value)) + value + b"\0" * (-len(value) % 4)

def identity(user):
    return struct.pack(">I", 1) + text(user.encode()) + text(b"") + text(b"") + struct.pack(">iI", 0, 0)

def message(procedure, body=b"", credentials=NO_CREDENTIALS, rpc=2, program=PROGRAM, version=VERSION):
    return struct.pack(">IIIIII", random.getrandbits(32), 0, rpc, program, version, procedure) + credentials + \
        NO_CREDENTIALS + body

def record(content):
    return struct.pack(">I", 0x80000000 | len(content)) + content

def null_call():
    return record(message(NULL))

def read_call(user, fax, offset=0):
    return record(message(READ, identity(user) + struct.pack(">III", fax, CHUNK, offset)))

def deliver_call(user, inbox, fax, recipient):
    return record(message(DELIVER, identity(user) + text(inbox.encode()) + struct.pack(">I", fax) + text(recipient.encode())))


# Connections

def connect(source="127.0.0.1", room=None, server=None, wait=60):
    link = socket.socket()
    if room:
        link.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, room)
    link.bind((source, 0))
    link.settimeout(wait)
    link.connect(server or SERVER)
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
    return exactly(link, struct.unpack(">I", exactly(link, 4))[0] & 0x7fffffff)

def ask(link, call):
    link.sendall(call)
    return reply(link)


# Results

class Refused(Exception):
    """The daemon has answered with an error record: its message."""

class result:
    """What an accepted reply holds, behind the type of the result."""
    def __init__(self, body):
        self.body, self.at = body, 24
        if struct.unpack_from(">IIIIII", body)[1:] != (1, 0, 0, 0, 0):
            raise ConnectionError("no accepted reply")
        if self.number() == 18:
            self.number(), self.number()
            raise Refused(self.text().decode())

    def number(self):
        self.at += 4
        return struct.unpack_from(">I", self.body, self.at - 4)[0]

    def text(self):
        length = self.number()
        start = self.at
        self.at += length + -length % 4
        return self.body[start:start + length]

    def fax(self):
        """The name, id and size of the fax that comes next, or none."""
        if not self.number():
            return None
        name = self.text().decode()
        self.text(), self.text(), self.text()  # sender, subaddress, password
        self.number(), self.number()           # pages, whether it is a fax
        fax, size = self.number(), self.number()
        self.number()                          # its time
        return name, fax, size

def named(inbox):
    """The handle of an incoming inbox in a request; nothing for the user's own."""
    return text(inbox.encode()) if inbox else b""

def list_faxes(link, user, inbox=None):
    """The oldest 100 faxes of the user's inbox, or of the incoming inbox with that handle, as result.fax() has them."""
    answer = result(ask(link, record(message(LIST_INCOMING if inbox else LIST,
                                             identity(user) + named(inbox) + struct.pack(">iiiI", 0, 1, 100, 0)))))
    if not answer.number():  # no index
        return []
    answer.number()          # its check value
    return list(iter(answer.fax, None))

def read_fax(link, user, fax, size):
    data = b""
    while len(data) < size:
        piece = result(ask(link, read_call(user, fax, len(data)))).text()
        if not piece:
            break
        data += piece
    return data

def remove_fax(link, user, fax, inbox=None):
    result(ask(link, record(message(REMOVE_INCOMING if inbox else REMOVE, identity(user) + named(inbox) + struct.pack(">I", fax)))))

def oldest_fax(user):
    with connect() as link:
        return result(ask(link, record(message(OLDEST, identity(user))))).fax()[1]


# Waiting

def well_behaved(stop, results, user, fax, pause=0.003, every=1e9):
    """Asks all the time, in three ways, until `stop` is set. Puts into `results` how many seconds it waited, lists by kind
    of question, each `every` seconds and at the end; or a text, if it was not served. After a reload of the lists it looks
    for the fax anew."""
    def timed(kind, action):
        start = time.monotonic()
        action()
        waits[kind].append(time.monotonic() - start)
    def newcomer():
        with connect() as newcomer_link:
            ask(newcomer_link, null_call())
    def read():
        nonlocal fax
        try:
            result(ask(link, read_call(user, fax)))
        except Refused:
            fax = oldest_fax(user)
            result(ask(link, read_call(user, fax)))
    try:
        link = connect()
        while not stop.is_set():
            waits, end = {"NULL": [], "connect": [], "read": []}, time.monotonic() + every
            while not stop.is_set() and time.monotonic() < end:
                timed("NULL", lambda: ask(link, null_call()))
                timed("connect", newcomer)
                timed("read", read)
                time.sleep(pause)
            results.put(waits)
    except (OSError, Refused) as error:
        results.put(f"{type(error).__name__}: {error}")

def spread(waits):
    """Median, 99th percentile and worst, in milliseconds."""
    waits = sorted(waits)
    return [1000 * waits[at] for at in (len(waits) // 2, len(waits) * 99 // 100, -1)] if waits else [0, 0, 0]
