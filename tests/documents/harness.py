# What the tests of documents have in common.
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

from t4 import Damaged, WIDTH

PROGRAMS = pathlib.Path(sys.argv[1])
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None  # on a disk, each fsync takes its time


# Runs a program; returns its exit status and what it printed. A signal or a sanitizer's report is a failure.
def run(program, *arguments):
    ended = subprocess.run([PROGRAMS / program, *map(str, arguments)], stdin=subprocess.DEVNULL,
                           stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    sound = b"Sanitizer" not in ended.stdout and b"runtime error" not in ended.stdout
    assert sound and ended.returncode in (0, 1), f"{program} ended with {ended.returncode}: {ended.stdout}"
    return ended.returncode, ended.stdout


# The share of black in a page.
def darkness(page, width=WIDTH):
    ends = [(*row, *[width] * (len(row) % 2)) for row in page]
    return sum(right - left for row in ends for left, right in zip(row[::2], row[1::2])) / (width * len(page))


# Runs each test as often as `tests` says, each time with a seed of its own; a failure tells which, and leaves
# the directory.
def main(tests):
    for test, runs in tests.items():
        for seed in range(runs):
            directory = pathlib.Path(tempfile.mkdtemp(prefix="faxtray-documents-", dir=MEMORY))
            try:
                test(random.Random(seed), directory)
            except (AssertionError, Damaged) as failure:
                sys.exit(f"{test.__name__}, seed {seed}, files in {directory}: {failure}")
            shutil.rmtree(directory)
