"""A site with a running faxregd, faxtrayd and faxtray-web, and browsers that talk to it. Only for a private host."""
import collections
import http.client
import json
import os
import subprocess
import sys
import tempfile
import time
import urllib.parse

PASSWORDS = {"anna": "mainsail", "bert": "halyard", "desk": "lantern"}
HASHES = {"anna": "af72367d", "bert": "2fc7b405"}
USERS = """[default]
delivery_dir_root = {site}/inboxes
delivery_file_format = as_received
[anna]
password = {anna}
[bert]
password = {bert}
{bert_more}
[desk]
password = {desk}
forwarder = {forwarded}
[open]
human_name = Nobody's secret
[slow]
delivery_method = exec:{site}/hang
[broken]
delivery_method = exec:/bin/false
[team]
group = anna,broken
group_gui = The <b>Team</b>
"""
MODEMS = """[one]
incoming_dir = {site}/incoming
incoming_gui = Front
[two]
incoming_dir = {site}/backroom
incoming_gui = Back
"""

Reply = collections.namedtuple("Reply", "status headers body")


class Site:
    def __init__(self, programs):
        if not os.path.isdir("/run/mail"):
            sys.exit("Run this on a private host.")
        self.programs, self.path, self.running = os.path.abspath(programs), tempfile.mkdtemp(), {}
        for directory in ("work", "incoming", "backroom", "inboxes/anna", "inboxes/bert"):
            os.makedirs(f"{self.path}/{directory}")
        with open(os.open(f"{self.path}/hang", os.O_CREAT | os.O_WRONLY, 0o755), "w") as out:
            out.write("#!/bin/sh\nexec sleep 60\n")
        self.hashes = HASHES | {"desk": self.hash("lantern")}
        self.write_lists()
        self.environment = os.environ | {"ONDRIXHOME": self.path}
        for program in ("faxregd", "faxtrayd"):
            self.start(program)

    def hash(self, password):
        with open(f"{self.path}/password", "w") as out:
            out.write(password)
        line = subprocess.run([f"{self.programs}/faxtray", "passwd", "--password-file", out.name], capture_output=True)
        return line.stdout.decode().split()[-1]

    def write_lists(self, forwarded="Front,Back", **more):
        values = {"site": self.path, "forwarded": forwarded, "bert_more": ""} | self.hashes | more
        for name, text in (("USER_LIST.info", USERS), ("MODEMS.info", MODEMS)):
            with open(f"{self.path}/new", "w") as out:
                out.write(text.format(**values))
            os.rename(out.name, f"{self.path}/{name}")

    def put(self, name, copy="letter-mh", age=600, count=1, tail=b"", sender=None):
        """Puts a sample fax there, older than the settling delay; of several, the later ones are the newer."""
        with open(f"{os.path.dirname(__file__)}/../data/faxes/{copy}.fax", "rb") as fax:
            content = fax.read() + tail
        if sender is not None:
            content = with_sender(content, sender)
        now = int(time.time())
        for n in range(count):
            path = f"{self.path}/{name}".replace("*", f"{n:04}")
            with open(path, "wb") as out:
                out.write(content)
            os.utime(path, (now, now - age + n))

    def start(self, program, *options):
        arguments = {"faxregd": ["-f"], "faxtrayd": ["-f", "-d", "1"]}.get(program, options)
        log = open(f"{self.path}/{program}.log", "ab")
        process = subprocess.Popen([f"{self.programs}/{program}", *arguments], cwd=self.path, env=self.environment,
                                   stdout=log, stderr=log)
        self.running[options or program] = process
        if program == "faxtrayd":
            wait_for(lambda: subprocess.run(["rpcinfo", "-t", "localhost", "351229", "1"], capture_output=True).returncode == 0)
        return process

    def start_web(self, port, *options):
        process = self.start("faxtray-web", "--listen", f"127.0.0.1:{port}", *options)
        wait_for(lambda: Browser(port).get("/nothing"))
        return process

    def stop(self, program):
        process = self.running.pop(program)
        process.terminate()
        return process.wait(30)

    def reads(self):
        """How many times a fax has been fetched."""
        with open(f"{self.path}/work/access_log") as log:
            return sum(" event=fetch " in line for line in log)


def wait_for(ready, seconds=20):
    end = time.monotonic() + seconds
    while True:
        try:
            if result := ready():
                return result
        except OSError:
            pass
        if time.monotonic() > end:
            raise TimeoutError("waited in vain")
        time.sleep(0.02)


def with_sender(content, sender):
    length = int.from_bytes(content[4:8], "big")
    lines = [b"SENDER_FAX#:" + sender if line.startswith(b"SENDER_FAX#:") else line
             for line in content[8 : 8 + length].split(b"\n")]
    text = b"\n".join(lines)
    return content[:4] + len(text).to_bytes(4, "big") + text + content[8 + length :]


class Browser:
    def __init__(self, port, origin=None):
        self.port, self.origin, self.cookie, self.token = port, origin or f"http://localhost:{port}", "", ""

    def ask(self, method, path, body=None, headers={}):
        sent = {"Host": f"localhost:{self.port}", "Cookie": self.cookie}
        if method == "POST":
            sent |= {"Origin": self.origin, "Content-Type": "application/json", "X-Faxtray-Token": self.token}
        link = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        link.request(method, path, body, {name: value for name, value in (sent | headers).items() if value != "-"})
        answer = link.getresponse()
        reply = Reply(answer.status, answer.headers, answer.read())
        link.close()
        return reply

    def get(self, path, **parameters):
        query = "?" + urllib.parse.urlencode(parameters) if parameters else ""
        return self.ask("GET", path + query)

    def json(self, path, **parameters):
        return json.loads(self.get("/api/" + path, **parameters).body)

    def post(self, path, value):
        return self.ask("POST", "/api/" + path, json.dumps(value))

    def login(self, user, password=None, headers={}, base=""):
        body = json.dumps({"user": user, "password": PASSWORDS[user] if password is None else password})
        reply = self.ask("POST", base + "/api/login", body, headers)
        if reply.status == 200:
            self.cookie = reply.headers["Set-Cookie"].split(";")[0]
            self.token = json.loads(reply.body)["token"]
        return reply
