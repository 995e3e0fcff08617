"""Hosts of ours, C programs with the library, that log numbered events and deliver them while they are killed."""
import array
import glob
import os

from process import Process, program

CLOCK = "/usr/lib/*/faketime/libfaketime.so.1"


def clock_words(shift):
    """What a program starts with whose clock is off, such as "-2d": nothing for ""."""
    if not shift:
        return []
    found = glob.glob(CLOCK)
    if not found:
        raise RuntimeError("faketime is not installed; './dev cluster' installs what it needs")
    return [program("env"), "LD_PRELOAD=" + found[0], "FAKETIME=" + shift, "FAKETIME_DONT_FAKE_MONOTONIC=1"]


def forget_clock(pid):
    """A program with another clock leaves memory behind when it is killed."""
    for name in (f"/dev/shm/faketime_shm_{pid}", f"/dev/shm/sem.faketime_sem_{pid}"):
        if os.path.exists(name):
            os.remove(name)


class Host:
    """One host: its events are 1, 2, 3, ...; `told` are those that its library took."""

    def __init__(self, command, folder, url, way, apart, shift=""):
        self.name, self.folder, self.way = os.path.basename(folder), folder, way
        os.makedirs(folder, exist_ok=True)
        self.words = [*clock_words(shift), command, url, folder, "FIRST", way, str(apart)]
        self.first = 1
        # Each kill may fall between an event's line and its being told: it is counted once, or not at all.
        self.perhaps = set()
        self.process = None

    def told(self):
        numbers = array.array("q")
        if os.path.exists(self.folder + "/told"):
            with open(self.folder + "/told", "rb") as file:
                numbers.frombytes(file.read())
        return numbers

    def run(self, first):
        words = [str(first) if word == "FIRST" else word for word in self.words]
        self.process = Process(self.name, words, self.folder + "/out", lambda: True)
        self.process.launch()

    def start(self):
        self.run(self.first)

    def kill(self):
        self.process.kill()
        forget_clock(self.process.child.pid)
        told = self.told()
        last = told[-1] if told and told[-1] >= self.first else self.first - 1
        self.perhaps.add(last + 1)
        self.first = last + 2

    def deliver(self):
        """Begins to send what waits; `process` ends with 0 once all of it is delivered."""
        self.run(-1)
