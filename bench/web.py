# How long do people wait for faxtray-web, and how much memory do its sessions take?
#
# Data: an inbox of 1,000 faxes of one page and one of ten pages, all the letter of the tests, coded by MH. Browsers are
# Python's http.client on the same host, six requests at a time, as browsers have six connections to a host.
#
# usage: build/bin/on_private_host python3 -B bench/web.py build/bin
import concurrent.futures
import os
import sys
import time

sys.path.insert(0, f"{os.path.dirname(os.path.abspath(__file__))}/../tests/web")
from harness import Browser, Site, wait_for

PORT, FAXES, PAGES, SESSIONS = 8351, 1000, 10, 100


def make_long(path):
    """Ten times the page of a fax of one page."""
    with open(path, "r+b") as fax:
        content = fax.read()
        length = int.from_bytes(content[4:8], "big")
        text = content[8 : 8 + length].replace(b"#PAGES:1\n", b"#PAGES:%d\n" % PAGES)
        fax.seek(0)
        fax.write(content[:4] + len(text).to_bytes(4, "big") + text + content[8 + length :] * PAGES)
    now = time.time()
    os.utime(path, (now, now - 5))


def timed(what, work, runs=5):
    """Prints the shortest and the longest time of several runs."""
    times = []
    for _ in range(runs):
        begun = time.monotonic()
        work()
        times.append((time.monotonic() - begun) * 1000)
    print(f"{what}: {min(times):.0f} to {max(times):.0f} ms", flush=True)


def memory(process):
    with open(f"/proc/{process.pid}/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS")) / 1024


def logged_in():
    browser = Browser(PORT)
    assert browser.login("anna").status == 200
    return browser


def all_faxes(browser):
    page = browser.json("faxes")
    faxes = page["faxes"]
    while page["more"]:
        page = browser.json("faxes", before=faxes[-1]["id"])
        faxes = faxes + page["faxes"]
    return [{"id": fax["id"], "tag": fax["tag"]} for fax in faxes]


def look(browser, fax, what):
    reply = browser.get(f"/api/{what}", **fax)
    assert reply.status == 200, reply
    return reply


site = Site(sys.argv[1])
site.put("inboxes/anna/f*.fax", count=FAXES, age=2 * FAXES)
site.put("inboxes/anna/long.fax")
make_long(f"{site.path}/inboxes/anna/long.fax")
process = site.start_web(PORT)
anna = logged_in()
wait_for(lambda: anna.json("faxes")["count"] == FAXES + 1)
idle = memory(process)
timed(f"log in and see the first 100 of {FAXES + 1} faxes", lambda: logged_in().json("faxes"))
timed("the same list again, unchanged", lambda check=anna.json("faxes")["check"]: anna.json("faxes", check=check))
timed(f"all {FAXES + 1} faxes, page by page", lambda: all_faxes(anna))

faxes = all_faxes(anna)
with concurrent.futures.ThreadPoolExecutor(6) as pool:
    for what in ("new", "seen before"):
        begun = time.monotonic()
        list(pool.map(lambda fax: look(anna, fax, "thumbnail.png"), faxes[1:401]))
        print(f"thumbnails, {what}: {400 / (time.monotonic() - begun):.0f} a second", flush=True)

    def read_long(number):
        long = faxes[0]
        look(anna, long, "fax")
        list(pool.map(lambda page: look(anna, long | {"page": page}, "page.png"), range(1, PAGES + 1)))

    begun = time.monotonic()
    read_long(1)
    print(f"all {PAGES} pages of a fax, new: {(time.monotonic() - begun) * 1000:.0f} ms", flush=True)
    timed(f"all {PAGES} pages of a fax, seen before", lambda: read_long(1))
    timed("a PDF of them, seen before", lambda: look(anna, faxes[0] | {"as": "pdf"}, "download"))

    before = memory(process)
    sessions = [logged_in() for _ in range(SESSIONS)]
    list(pool.map(lambda browser: all_faxes(browser), sessions))
    print(f"memory: {idle:.0f} MiB at first, {before:.0f} MiB with what was seen so far, "
          f"{memory(process):.0f} MiB with {SESSIONS} sessions", flush=True)
