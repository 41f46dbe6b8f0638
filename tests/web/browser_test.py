# The front desk in Chromium, against faxtray-web, faxtrayd, faxregd and rpcbind: carries out the steps of
# tests/data/web/desk.steps. What a step waits for has to come within 25 seconds.
#
# usage: browser_test.py PROGRAMS PICTURES    on a private host; pictures are left in that directory
#
#   browser [width= height= language= dark=]   a new browser, in the place of the last one
#   login USER PASSWORD, find NAME             fills in the form; filters the list by a name, and opens that fax
#   click CSS, type CSS | TEXT, keys TEXT      {Enter} and other names in braces are keys
#   see CSS | TEXT, none CSS, true SCRIPT      waits until the first such element holds the text; until none is seen; until so
#   put PATH [sender= subaddress= copy= pages= damage= missing= count= age= text=]    a fax; \xHH is a byte
#   files PATTERN | N                          waits until there are that many
#   stop PROGRAM, start PROGRAM, tab new|N|close, back, reload, block PATTERN, shot NAME
#   pixels PATH DPI, paper N, contrast, tabs, download FORM | PATH, login-by-script USER PASSWORD: below
import base64
import codecs
import glob
import os
import pathlib
import re
import subprocess
import sys
import time

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import harness

PORT = 8351
DATA = pathlib.Path(__file__).parent / "../data"
LANGUAGES = {"en": "en-US", "de": "de-DE"}
KEYS = {"Enter": Keys.ENTER, "Escape": Keys.ESCAPE, "Delete": Keys.DELETE, "Down": Keys.ARROW_DOWN}
harness.USERS, harness.MODEMS = ((DATA / "web" / name).read_text() for name in ("USER_LIST.info", "MODEMS.info"))
site = harness.Site(sys.argv[1])
pictures = pathlib.Path(sys.argv[2])
driver = None


def wait(what, condition):
    def tried():
        try:
            return condition()
        except WebDriverException:  # the page has changed between two questions
            return None
    try:
        return harness.wait_for(tried, 25)
    except TimeoutError:
        raise AssertionError(what() if callable(what) else what) from None

def script(text, *arguments):
    return driver.execute_script(text, *arguments)

def command(name, **parameters):
    return driver.execute_cdp_cmd(name, parameters)

# The first such element that is seen.
def one(css):
    seen = lambda: [element for element in driver.find_elements(By.CSS_SELECTOR, css) if element.is_displayed()]
    return wait(f"{css} is not seen", seen)[0]

# A text without the marks that isolate what comes from outside.
def text(css):
    found = script("return document.querySelector(arguments[0])?.textContent ?? ''", css)
    return found.replace("\u2068", "").replace("\u2069", "")

def typed(words):
    return [KEYS[part[1:-1]] if part[0] == "{" and len(part) > 1 else part for part in re.findall(r"\{\w+\}|[^{]+", words)]


# Steps: the functions of their names

def browser(width=1280, height=800, language="en", dark=0):
    global driver
    if driver:
        complaints = [entry["message"] for entry in driver.get_log("browser") if "Failed to load" not in entry["message"]]
        assert not complaints, complaints
        driver.quit()
    options = webdriver.ChromeOptions()
    for argument in ("headless=new", "no-sandbox", "disable-gpu", "disable-dev-shm-usage", "hide-scrollbars", f"lang={LANGUAGES[language]}"):
        options.add_argument("--" + argument)
    options.add_experimental_option("prefs", {"intl.accept_languages": LANGUAGES[language]})
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    command("Emulation.setDeviceMetricsOverride", width=int(width), height=int(height), deviceScaleFactor=1, mobile=int(width) < 500)
    command("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}])
    driver.get(f"http://127.0.0.1:{PORT}/")

def click(css):
    one(css).click()

def type_(css, words):
    one(css).clear()
    one(css).send_keys(*typed(words))

def keys(words):
    ActionChains(driver).send_keys(*typed(words)).perform()

def see(css, words):
    wait(lambda: f"{words!r} is not in {css}, but {text(css)!r}", lambda: words in text(css))

def none(css):
    wait(f"{css} is seen", lambda: not any(e.is_displayed() for e in driver.find_elements(By.CSS_SELECTOR, css)))

def true(condition):
    wait(lambda: f"not so: {script('return ' + condition)}", lambda: script("return " + condition))

def login(user, password):
    type_("#user", user)
    type_("#password", password + "{Enter}")

# A log-in of which the page does not know, as in another tab.
def login_by_script(user, password):
    script("""return fetch("api/login", { method: "POST", headers: { "Content-Type": "application/json" },
        body: JSON.stringify({ user: arguments[0], password: arguments[1] }) })""", user, password)

def find(name):
    one("#rows li")
    type_("#filter", name)
    wait(f"{name} is not found", lambda: text("#rows .name") == name and "…" not in text("#count"))
    click("#rows a")
    wait(f"{name} is not shown", lambda: driver.find_elements(By.CSS_SELECTOR, "#pages figure, #pages .nothing p"))

# A fax whose pages are those of a sample, the last one perhaps with zeros in its middle, or without so many bytes at its end.
def fax(copy="letter-mh", sender=b"", subaddress=b"", pages=1, damage=0, missing=0):
    content = (DATA / f"faxes/{copy}.fax").read_bytes()
    end = 8 + int.from_bytes(content[4:8], "big")
    kept = [line for line in content[8:end - 1].split(b"\n") if re.match(b"RES|COMP", line)]
    header = b"\n".join([b"#PAGES:%d" % int(pages), b"SENDER_FAX#:" + sender, b"T30_SUB_FRAME:" + subaddress, *kept, b"\x1d"])
    page, hole = content[end:], 40 * int(damage)
    last = page[:len(page) // 2] + bytes(hole) + page[len(page) // 2 + hole:]
    made = content[:4] + len(header).to_bytes(4, "big") + header + page * (int(pages) - 1) + last
    return made[:len(made) - int(missing)]

def put(path, age=600, count=1, text=None, **more):
    known = {name: codecs.escape_decode(value)[0] if name in ("sender", "subaddress") else value for name, value in more.items()}
    content = fax(**known) if text is None else codecs.escape_decode(text)[0]
    for n in range(int(count)):
        file = pathlib.Path(site.path, path.replace("*", f"{n:03}"))
        file.write_bytes(content)
        then = int(time.time()) - int(age) - 60 * n
        os.utime(file, (then, then))

def files(pattern, count):
    wait(f"not {count} of {pattern}", lambda: len(glob.glob(f"{site.path}/{pattern}")) == int(count))

def stop(program):
    site.stop(("--listen", f"127.0.0.1:{PORT}") if program == "faxtray-web" else program)  # as harness names them

def start(program):
    site.start_web(PORT) if program == "faxtray-web" else site.start(program)

def tab(which):
    if which == "new":
        driver.switch_to.new_window("tab")
        driver.get(f"http://127.0.0.1:{PORT}/")
    elif which == "close":
        driver.close()
    driver.switch_to.window(driver.window_handles[-1 if which == "new" else 0 if which == "close" else int(which) - 1])

def back():
    driver.back()

def reload():
    driver.refresh()

def block(pattern):
    command("Network.enable")
    command("Network.setBlockedURLs", urls=[pattern])

def shot(name):
    true("[...document.images].every(i => !i.getAttribute('src') || i.complete)")
    (pictures / f"{name}.png").write_bytes(base64.b64decode(command("Page.captureScreenshot")["data"]))

# What the browser has decoded, against the page as faxconv decodes it.
def pixels(path, dpi):
    true("document.querySelector('.sheet img').naturalWidth === 1728")
    height, bits = script((DATA / "web/pixels.js").read_text())
    subprocess.run([f"{sys.argv[1]}/faxconv", "--pbm", f"{site.path}/page", f"{site.path}/{path}"], check=True, capture_output=True)
    _, size, rows = pathlib.Path(site.path, "page-001.pbm").read_bytes().split(b"\n", 2)
    sent = int(size.split()[1])
    assert height == round(sent * 204 / int(dpi)), (height, sent)
    assert base64.b64decode(bits) == b"".join(rows[216 * (y * sent // height):][:216] for y in range(height))

# How many sheets the page takes when it is printed.
def paper(sheets):
    script("document.querySelectorAll('.sheet img').forEach(i => i.loading = 'eager')")
    true("[...document.querySelectorAll('.sheet img')].every(i => i.naturalWidth)")
    printed = base64.b64decode(command("Page.printToPDF")["data"])
    assert len(re.findall(rb"/Type\s*/Page\b", printed)) == int(sheets)

def contrast():
    weak = script((DATA / "web/contrast.js").read_text())
    assert not weak, weak

# The Tab key reaches every control there is, and each shows that it has the focus.
def tabs():
    label = "(e => e.id || e.outerHTML.slice(0, 60))"
    wanted = script("return [...document.querySelectorAll('#desk :is(a, button, input, select, summary, [tabindex=\"0\"])')]"
                    f".filter(e => e.checkVisibility() && !e.disabled).map{label}")
    reached = {}
    for _ in range(len(wanted) + 5):
        keys(Keys.TAB)
        reached.update([script(f"return [{label}(document.activeElement), document.activeElement.matches(':focus-visible')]")])
    assert all(reached.get(control) for control in wanted), [control for control in wanted if not reached.get(control)]

def download(form, path):
    one("#actions a")
    got = script("return fetch(document.querySelector(`#actions a[data-as=${arguments[0]}]`).href)"
                 ".then(r => r.arrayBuffer()).then(b => [...new Uint8Array(b)])", form)
    assert bytes(got) == pathlib.Path(site.path, path).read_bytes()


def carry_out(line):
    verb, _, rest = line.partition(" ")
    if verb in ("put", "browser"):
        given = [word.partition("=") for word in rest.split()]
        globals()[verb](*[name for name, equals, _ in given if not equals], **{name: value for name, equals, value in given if equals})
    else:
        splits = rest.split() if verb in ("login", "login-by-script", "pixels") else rest.split(" | ") if rest else []
        globals()[{"type": "type_"}.get(verb, verb.replace("-", "_"))](*splits)

def main():
    site.start_web(PORT)
    for number, line in enumerate((DATA / "web/desk.steps").read_text().splitlines(), 1):
        try:
            if line.startswith("== "):
                print(line[3:], flush=True)
            elif line and not line.startswith("# "):
                carry_out(line)
        except BaseException as error:
            if driver:
                driver.save_screenshot(f"{pictures}/failed.png")
            sys.exit(f"desk.steps:{number}: {line}: {error}")
    driver.quit()


try:
    main()
finally:
    for program in list(site.running):
        site.stop(program)
