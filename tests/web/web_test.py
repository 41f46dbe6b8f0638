# faxtray-web without a browser: what it answers to whom, beside a real faxtrayd, faxregd and rpcbind.
#
# usage: web_test.py PROGRAMS    on a private host (on_private_host); PROGRAMS: the directory of the programs
import concurrent.futures
import json
import os
import re
import signal
import socket
import subprocess
import sys
import time
import urllib.parse

from harness import Browser, Site, wait_for

PORT, PROXIED = 8351, 8352
HEADERS = {"Content-Security-Policy": "default-src 'self'", "X-Content-Type-Options": "nosniff",
           "Referrer-Policy": "no-referrer"}
site = Site(sys.argv[1])
failures = 0


def expect(what, got, wanted):
    global failures
    if got != wanted:
        failures += 1
        print(f"{what}: {got!r} instead of {wanted!r}", flush=True)


def logged_in(user, port=PORT):
    browser = Browser(port)
    expect(f"log-in of {user}", browser.login(user).status, 200)
    return browser


def inbox(browser, name="Front"):
    return next(box["inbox"] for box in browser.json("session")["inboxes"] if box["name"] == name)


def faxes(browser, **parameters):
    return browser.json("faxes", **parameters)["faxes"]


def reference(fax):
    return {"id": fax["id"], "tag": fax["tag"]}


def word(reply):
    return json.loads(reply.body).get("error", "") if reply.status >= 400 and reply.body else ""


def table_of_requests():
    users = {user: logged_in(user) for user in ("anna", "bert", "desk")} | {"-": Browser(PORT)}
    front, back = inbox(users["desk"]), inbox(users["desk"], "Back")
    names = {"inbox": front, "port": PORT, "desk_token": users["desk"].token,
             "long": "x" * 257, "large": '{"x":"' + "x" * 65536 + '"}'}
    for name, box in (("anna", {}), ("front", {"inbox": front}), ("back", {"inbox": back})):
        owner = users["desk" if box else "anna"]
        names[name] = urllib.parse.urlencode(reference(faxes(owner, **box)[0]))
    table = f"{os.path.dirname(__file__)}/../data/web/requests.txt"
    for line in open(table):
        if not line.strip() or line.startswith("#"):
            continue
        row = re.sub(r"\{(\w+)\}", lambda name: str(names[name[1]]), line)
        who, method, path, headers, body, status, wanted = re.fullmatch(
            r"(\S+)\s+(\S+)\s+(\S+)\s+((?:[A-Z][\w-]+=\S+\s+)*)([\[{].*?)?\s*(\d{3})(?: (\w+))?\n", row).groups()
        reply = users[who].ask(method, path, body, dict(pair.split("=", 1) for pair in headers.split()))
        expect(line.strip()[:150], (reply.status, word(reply)), (int(status), wanted or ""))
        for name, value in HEADERS.items():
            expect(f"{line.strip()[:150]}: {name}", (reply.headers[name] or "")[: len(value)], value)
        if path.startswith("/api/") and reply.status == 200:
            expect(f"{line.strip()[:150]}: kept", reply.headers["Cache-Control"], "no-store")


def lists():
    anna = logged_in("anna")
    site.put("inboxes/anna/many*.fax", age=590, count=250)  # all newer than the fax that was listed
    site.put("inboxes/anna/strange.fax", age=10, sender=b"<script>\xff\xc3\xe2\x80\xae")
    first = wait_for(lambda: (page := anna.json("faxes"))["count"] == 252 and page)
    expect("bytes that are no UTF-8", first["faxes"][0]["sender"], "<script>\ufffd\ufffd\u202e")
    page, seen = first, first["faxes"]
    while page["more"]:
        page = anna.json("faxes", before=seen[-1]["id"])
        seen = seen + page["faxes"]
    expect("newest first, each once", [fax["name"] for fax in seen],
           ["strange.fax"] + [f"many{n:04}.fax" for n in reversed(range(250))] + ["a.fax"])
    expect("first page", len(first["faxes"]), 100)
    expect("unchanged", anna.json("faxes", check=first["check"]), {"unchanged": True})
    site.put("inboxes/anna/new.fax", age=5)
    changed = anna.json("faxes", check=first["check"])
    expect("a new fax", (changed["count"], changed["faxes"][0]["name"]), (253, "new.fax"))


def views():
    anna = logged_in("anna")
    site.put("inboxes/anna/damaged.fax", age=4)
    with open(f"{site.path}/inboxes/anna/damaged.fax", "r+b") as fax:
        fax.seek(3000)
        fax.write(os.urandom(200))
    os.utime(fax.name, (time.time(), time.time() - 4))
    with open(f"{site.path}/inboxes/anna/no.fax", "wb") as fax:
        fax.write(b"no fax file")
    os.utime(fax.name, (time.time(), time.time() - 3))
    no, damaged = faxes(anna)[:2]
    details = anna.json("fax", **reference(damaged))
    expect("pages of a damaged fax", [page["width"] for page in details["pages"]], [1728])
    expect("damage is told", details["pages"][0]["damaged"] > 0, True)
    picture = anna.get("/api/page.png", page=1, **reference(damaged)).body
    size = [int.from_bytes(picture[at : at + 4], "big") for at in (16, 20)]
    expect("size of its picture", size, [1728, details["pages"][0]["height"]])
    expect("no fax", anna.get("/api/thumbnail.png", **reference(no)).status, 422)
    expect("no fax has no pages", anna.json("fax", **reference(no))["pages"], [])
    download = anna.get("/api/download", **{"as": "fax"}, **reference(no))
    expect("but can be had", (download.body, download.headers["Content-Disposition"]),
           (b"no fax file", "attachment; filename*=UTF-8''no.fax"))


# Two inboxes of one forwarder, with different faxes of the same name, size and time.
def cache():
    site.put("incoming/same.fax", "letter-mh", tail=b"\0" * 4000)
    size = os.path.getsize(f"{site.path}/incoming/same.fax")
    site.put("backroom/same.fax", "letter-mmr")
    os.truncate(f"{site.path}/backroom/same.fax", size)
    received = int(time.time()) - 50
    for directory in ("incoming", "backroom"):
        os.utime(f"{site.path}/{directory}/same.fax", (received, received))
    desk, other = logged_in("desk"), logged_in("desk")

    def look(browser, name):
        box = inbox(browser, name)
        fax = next(fax for fax in faxes(browser, inbox=box) if fax["name"] == "same.fax")
        return fax, browser.get("/api/page.png", inbox=box, page=1, **reference(fax)).body

    (front_fax, front), (back_fax, back) = look(desk, "Front"), look(desk, "Back")
    expect("the faxes have the same tag", front_fax["tag"], back_fax["tag"])
    expect("but are not the same", (front[:4], front != back), (b"\x89PNG", True))
    reads = site.reads()
    expect("seen again", (look(desk, "Front")[1], look(other, "Back")[1], site.reads()), (front, back, reads))
    desk.post("logout", {})
    expect("logged out", desk.get("/api/session").status, 401)
    expect("the other session", (look(other, "Front")[1], site.reads()), (front, reads + 1))
    box = inbox(other)
    site.write_lists(forwarded="Back")
    expect("no longer a forwarder there", word(other.get("/api/page.png", inbox=box, page=1, **reference(front_fax))),
           "refused")
    site.write_lists()


def removal():
    bert, tab = logged_in("bert"), logged_in("bert")
    site.put("inboxes/bert/x*.fax", count=3)
    listed = wait_for(lambda: len(found := faxes(bert)) == 3 and found)
    wrong = {"id": listed[0]["id"], "tag": listed[1]["tag"]}
    reply = bert.post("remove", {"faxes": [wrong, reference(listed[1])]})
    expect("what is removed", [fax["state"] for fax in json.loads(reply.body)["faxes"]], ["changed", "removed"])
    reply = tab.post("remove", {"faxes": [reference(listed[1])]})
    expect("by another tab", [fax["state"] for fax in json.loads(reply.body)["faxes"]], ["changed"])
    expect("what is left", sorted(os.listdir(f"{site.path}/inboxes/bert"))[-2:], ["x0000.fax", "x0002.fax"])
    site.write_lists(bert="12345678")
    expect("the password was changed", word(bert.get("/api/faxes")), "session")
    site.write_lists()
    expect("the session has ended", (word(bert.get("/api/faxes")), tab.get("/api/faxes").status), ("session", 200))


def deliveries():
    desk = logged_in("desk")
    box = inbox(desk)
    site.put("incoming/d*.fax", count=3, age=10)
    listed = wait_for(lambda: (found := [fax for fax in faxes(desk, inbox=box) if fax["name"][0] == "d"])[2:] and found)
    expect("recipients", [(who["label"], who["group"]) for who in desk.json("recipients")["recipients"]][-1],
           ("The <b>Team</b>", True))

    def deliver(recipient, *chosen):
        return desk.post("deliver", {"inbox": box, "recipient": recipient, "faxes": chosen})

    def result(job):
        job = json.loads(job.body)["job"]
        state = wait_for(lambda: (told := desk.json("job", id=job))["done"] and told)
        return [(fax["state"], fax["lines"]) for fax in state["faxes"]]

    changed = {"id": listed[1]["id"], "tag": "x"}
    job = deliver("anna", reference(listed[0]), changed, reference(listed[2]))
    expect("delivered to anna", [state for state, _ in result(job)], ["delivered", "changed", "delivered"])
    there = os.listdir(f"{site.path}/inboxes/anna")
    expect("what she got", [name in there for name in ("d00000_.fax", "d00010_.fax", "d00020_.fax")], [True, False, True])
    [(state, lines)] = result(deliver("team", reference(listed[1])))
    expect("a group whose second member fails", (state, "broken" in " ".join(lines)), ("failed", True))

    # Deliveries that take long keep nobody from looking, and are limited.
    jobs = [deliver("slow", reference(listed[0])) for _ in range(5)]
    expect("at once", [job.status for job in jobs], [202] * 4 + [503])
    begun = time.monotonic()
    expect("meanwhile", desk.get("/api/faxes", inbox=box).status, 200)
    expect("and at once", time.monotonic() - begun < 2, True)
    running = json.loads(jobs[0].body)["job"]
    state = wait_for(lambda: (told := desk.json("job", id=running))["faxes"][0]["state"] == "running" and told)
    expect("is running", state["done"], False)
    expect("whose jobs these are", logged_in("anna").get("/api/job", id=running).status, 404)
    orders = subprocess.run(["ps", "-e", "-o", "args"], capture_output=True).stdout.decode()
    expect("no hash in their arguments", (orders.count("--deliver"), site.hashes["desk"] in orders), (4, False))


def logins():
    def attempt(user, password, headers={}, port=PORT, base=""):
        begun = time.monotonic()
        reply = Browser(port, "https://fax.example" if base else None).login(user, password, headers, base)
        return reply.status, time.monotonic() - begun

    with concurrent.futures.ThreadPoolExecutor(32) as pool:
        tries = [(user, word) for user in ("bert", "nobody", "open", "") for word in ("", "x", "two words", "y" * 60000)]
        results = list(pool.map(lambda pair: attempt(*pair), tries))
        expect("refused", {status for status, _ in results}, {401})
        times = [min(seconds for _, seconds in results[n : n + 4]) for n in range(0, 16, 4)]  # of each user
        expect("in the same time", min(times) >= 1 and max(times) - min(times) < 0.3 or times, True)
        results = pool.map(lambda _: attempt("desk", "wrong")[0], range(15))
        expect("after ten failures", sorted(results), [401] * 10 + [429] * 5)
        expect("even with the password", attempt("desk", "lantern")[0], 429)
        expect("in another spelling", attempt(" Desk", "lantern")[0], 429)
        expect("a name is no address", attempt("desk", "lantern", {"X-Forwarded-For": "192.0.2.7"})[0], 429)
        expect("another user", attempt("anna", "mainsail")[0], 200)

        site.start_web(PROXIED, "--public-url", "https://fax.example/fax", "--trusted-proxy", "127.0.0.1",
                       "--allow-empty-passwords")
        one, two = ({"X-Forwarded-For": f"198.51.100.1, {address}"} for address in ("192.0.2.1", "192.0.2.2"))
        results = pool.map(lambda _: attempt("anna", "wrong", one, PROXIED, "/fax")[0], range(11))
        expect("by way of a proxy", sorted(results), [401] * 10 + [429])
    expect("from elsewhere", attempt("anna", "mainsail", two, PROXIED, "/fax")[0], 200)
    expect("without a password", attempt("open", "", two, PROXIED, "/fax")[0], 200)
    public = Browser(PROXIED, "https://fax.example")
    cookie = public.login("bert", None, two, "/fax").headers["Set-Cookie"]
    expect("the cookie", cookie.split("; ", 1)[1], "Path=/fax/; HttpOnly; SameSite=Strict; Secure")
    expect("128 bits", bool(re.match(r"faxtray_session=[0-9a-f]{32};", cookie)), True)
    expect("below the base path", [public.get(path).status for path in ("/fax/", "/fax", "/", "/api/session")],
           [200, 308, 404, 404])
    expect("from here", public.ask("POST", "/fax/api/logout", "{}", {"Origin": f"http://localhost:{PROXIED}"}).status, 403)


def crowds():
    def half_sent(text):
        link = socket.create_connection(("127.0.0.1", PORT))
        link.sendall(text)
        return link

    begun = time.monotonic()
    crowd = [half_sent(b"POST /api/login HTTP/1.1\r\nHost: localhost\r\nContent-Length: 100\r\n\r\n{"[: 20 + n % 60])
             for n in range(200)]
    logged_in("anna")
    expect("log-in beside 200 half-sent requests", time.monotonic() - begun < 10, True)
    crowd += [half_sent(b"") for _ in range(800)]
    begun = time.monotonic()
    logged_in("anna")
    expect("log-in beside 1,000 connections", time.monotonic() - begun < 20, True)
    endless = half_sent(b"GET / HTTP/1.1\r\n")
    for _ in range(70):
        endless.sendall(b"X-Line: " + b"x" * 1000 + b"\r\n")
    expect("header lines without end", b"200 OK" in endless.recv(1000), False)
    for link in crowd:
        link.close()
    link = half_sent(b"GET / HTTP/1.1\r\nHost: x\r\n")
    begun = time.monotonic()
    link.settimeout(0.05)
    answer = b""
    while not answer and time.monotonic() < begun + 20:  # a byte at a time
        link.sendall(b"x")
        try:
            answer = link.recv(12)
        except TimeoutError:
            pass
    expect("a trickle ends", (answer, 4 < time.monotonic() - begun < 8 or time.monotonic() - begun), (b"HTTP/1.1 400", True))


def away():
    anna = logged_in("anna")
    site.stop("faxtrayd")
    begun = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(20) as pool:
        replies = list(pool.map(lambda _: word(anna.get("/api/faxes")), range(20)))
    expect("without faxtrayd", set(replies), {"unreachable"})
    expect("told at once", time.monotonic() - begun < 3, True)
    expect("and a log-in", word(Browser(PORT).login("anna")), "unreachable")
    site.start("faxtrayd")
    wait_for(lambda: anna.get("/api/faxes").status == 200)


def end_and_options():
    expect("ends with all its deliveries", (site.stop(("--listen", f"127.0.0.1:{PORT}")), 0), (0, 0))
    children = subprocess.run(["ps", "-e", "-o", "args"], capture_output=True).stdout.decode()
    expect("which have ended", children.count("--deliver"), 0)
    for options in (["--listen", "0.0.0.0:8360"], ["--listen", ":8360", "--public-url", "http://fax.example"],
                    ["--listen", "127.0.0.1"], ["--public-url", "fax.example"], ["--base-path", "a b"]):
        command = [f"{site.programs}/faxtray-web", *options]
        try:
            expect(" ".join(options), subprocess.run(command, capture_output=True, timeout=5).returncode, 2)
        except subprocess.TimeoutExpired:
            expect(" ".join(options), "it serves", "it refuses")


for name in ("inboxes/anna/a.fax", "inboxes/bert/b.fax", "incoming/f.fax", "backroom/g.fax"):
    site.put(name)
    if name.endswith("b.fax"):
        os.unlink(f"{site.path}/{name}")
site.start_web(PORT)
for test in (table_of_requests, lists, views, cache, removal, away, deliveries, crowds, logins, end_and_options):
    begun = time.monotonic()
    test()
    print(f"{test.__name__}: {time.monotonic() - begun:.1f} s", flush=True)
if failures:
    print(open(f"{site.path}/faxtray-web.log", errors="replace").read()[-3000:])
sys.exit(failures > 0)
