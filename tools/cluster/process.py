"""A program that runs from a scratch folder: started, watched, killed; it never outlives the one who started it."""
import os
import shutil
import signal
import socket
import subprocess
import time

# An ordinary user's PATH lacks where servers stand.
PATH = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"


def program(name):
    found = shutil.which(name, path=PATH)
    if not found:
        raise RuntimeError(f"{name} is not installed; './dev cluster' installs what it needs")
    return found


def free_ports(count):
    """Ports of loopback below those that the system hands out, so that no connection takes one while its owner is dead."""
    with open("/proc/sys/net/ipv4/ip_local_port_range", encoding="ascii") as system:
        most = int(system.read().split()[0])
    found, at = [], int.from_bytes(os.urandom(4), "big")
    for step in range(most):
        port = 10000 + (at + step * 7) % (most - 10000) if most > 20000 else 0
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                continue
            found.append(probe.getsockname()[1])
        if len(found) == count:
            return found
    raise RuntimeError("there are no free ports")


def wait_until(condition, what, seconds=30):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"{what}: not within {seconds} seconds")
        time.sleep(0.02)


class Process:
    """One program. `ready()` asks whether it serves; `before()` is called before every start.

    To be started by a thread that lives as long as the program is to live: the system ends it with that thread."""

    def __init__(self, name, words, log, ready, before=lambda: None):
        self.name, self.words, self.log, self.ready, self.before = name, words, log, ready, before
        self.wanted, self.child = False, None

    def alive(self):
        return self.child is not None and self.child.poll() is None

    def launch(self):
        """Starts it without waiting until it serves."""
        self.before()
        with open(self.log, "ab") as log:
            words = [program("setpriv"), "--pdeathsig", "KILL", "--", *self.words]
            self.child = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        self.wanted = True

    def start(self, seconds=60):
        """Starts it until it serves: a node that dies while it starts is started again, as a service would be."""
        end = time.monotonic() + seconds
        self.launch()
        while not self.ready():
            if time.monotonic() > end:
                self.kill()
                raise RuntimeError(f"{self.name} did not come up in {seconds} seconds; see {self.log}")
            if not self.alive():
                time.sleep(0.5)
                self.launch()
            time.sleep(0.02)

    def kill(self, number=signal.SIGKILL):
        """Ends it at once, or as its service would by SIGTERM, and waits until it is gone."""
        self.wanted = False
        if self.alive():
            self.child.send_signal(number)
            try:
                self.child.wait(30)
            except subprocess.TimeoutExpired:
                self.child.kill()
                self.child.wait()

    def stop(self):
        self.kill(signal.SIGTERM)

    def hang(self):
        """It lives and answers nothing, until wake()."""
        self.child.send_signal(signal.SIGSTOP)

    def wake(self):
        self.child.send_signal(signal.SIGCONT)

    def revive(self):
        """Starts it again when it died without being told to; without waiting for it."""
        if self.wanted and not self.alive():
            self.launch()
            return True
        return False
