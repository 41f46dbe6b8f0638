"""Fax files on a desktop: their type is known by name and by content, and their viewer is faxtray.

usage: desktop_test.py BINARIES SOURCES
"""
import os
import pathlib
import shlex
import shutil
import subprocess
import sys
import tempfile

binaries, sources = map(pathlib.Path, sys.argv[1:])
fax = sources / "tests/data/faxes/letter-mh.fax"
fax_type = "application/x-faxtray"
home = pathlib.Path(tempfile.mkdtemp(prefix="faxtray-desktop-"))
data = home / ".local/share"
environment = {"HOME": str(home), "PATH": f"{home}:{binaries}:{os.environ['PATH']}", "LC_ALL": "C.UTF-8", "TMPDIR": str(home),
               "XDG_DATA_HOME": str(data), "FAXTRAY_VIEWER": "viewer", "DISPLAY": ":99"}


def output(*command):
    return subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, check=True, text=True).stdout


def expect(what, found, wanted):
    if wanted not in found:
        sys.exit(f"{what}: [{wanted}] is not in [{found}]; see {home}")


# As cmake --install places them, but for one user.
for folder, name in (("mime/packages", "faxtray.xml"), ("applications", "faxtray.desktop")):
    (data / folder).mkdir(parents=True)
    shutil.copy(sources / "desktop" / name, data / folder)
shutil.copy(sources / "desktop/faxtray.mailcap", home / ".mailcap")
output("update-mime-database", data / "mime")
output("desktop-file-validate", data / "applications/faxtray.desktop")
output("update-desktop-database", data / "applications")

# The type, of whatever has the name, and of a fax under any name.
(home / "any.fax").write_text("no fax")
shutil.copy(fax, home / "a fax's name")
for path in (home / "any.fax", home / "a fax's name"):
    expect(path, output("gio", "info", "-a", "standard::content-type", path), "content-type: " + fax_type)
expect("default application", output("gio", "mime", fax_type), f"Default application for “{fax_type}”: faxtray.desktop")

# The viewer gets a PDF, by the desktop's command line and by mailcap's.
viewer = home / "viewer"
viewer.write_text('#!/bin/sh\necho "$1"; head -c 5 "$1"\n')
viewer.chmod(0o755)
line = next(line[5:] for line in (data / "applications/faxtray.desktop").read_text().splitlines() if line.startswith("Exec="))
expect("Exec", output(*[str(home / "a fax's name") if word == "%f" else word for word in shlex.split(line)]), "a fax's name.pdf\n%PDF-")
expect("mailcap", output("run-mailcap", f"{fax_type}:{fax}"), "letter-mh.pdf\n%PDF-")
shutil.rmtree(home)
