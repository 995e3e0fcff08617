#!/usr/bin/env python3
"""KILLS PROGRAM HOST [SEED]: hosts of the library, and the collector that they send to, killed at random moments.

Four hosts of two threads deliver in batches from one log, two others upload the whole of logs of their own. Between them
and the collector stands a relay that cuts connections. Then everything comes to rest, and what the hosts know to be safe
must be in the store, each event once. Root runs half of it as itself and half as an ordinary user."""
import collections
import os
import random
import select
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "collector"))
if __name__ == "__main__":
    os.environ["COLLECTOR"] = sys.argv[2]
from collector import Collector, run  # noqa: E402 (the path and the variable come first)

FREE = ["--rate-address", "0", "--rate-installation", "0", "--connections-address", "0"]
IN_BATCHES, WHOLE = 4, 2
NUMBERS = 2_000_000  # of a host: two threads of a million


class Relay:
    """Connections to the collector that end after so many bytes: in the request, before, in or after the answer."""

    def __init__(self, seed):
        self.random, self.cuts, self.behaves, self.port = random.Random(seed), 0, False, 0
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=128)
        self.url = f"http://127.0.0.1:{self.listener.getsockname()[1]}/events"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            client = self.listener.accept()[0]
            threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def budgets(self):
        """Bytes that the client and the collector may send; None for all."""
        fate = 9 if self.behaves else self.random.randrange(10)
        if fate < 2:
            return self.random.randrange(6000), None
        return None, {2: 0, 3: self.random.randrange(1, 60), 4: self.random.randrange(100, 1000)}.get(fate)

    def serve(self, client):
        left = list(self.budgets())
        try:
            with client, socket.create_connection(("127.0.0.1", self.port), timeout=5) as server:
                self.pump((client, server), left)
                # No orderly end: the other side must not mistake it for one.
                client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        except OSError:
            self.cuts += not self.behaves

    def pump(self, ends, left):
        while True:
            for at in (0, 1):
                if ends[at] not in select.select(ends, [], [], 30)[0]:
                    continue
                text = ends[at].recv(65536)
                if left[at] is not None:
                    text, left[at] = text[:left[at]], max(0, left[at] - len(text))
                if text:
                    ends[1 - at].sendall(text)
                if not text or left[at] == 0:
                    self.cuts += left[at] == 0
                    return


class Host:
    """A place among the hosts: each process in it is killed, and another one takes it."""

    def __init__(self, folder, program, url, user, mode):
        self.command, self.words, self.folder = [program, url, folder], [str(user), mode], folder
        self.safe, self.process = collections.Counter(), None

    def start(self, first):
        self.output = tempfile.TemporaryFile()
        self.process = subprocess.Popen([*self.command, str(first), *self.words], stdout=self.output)

    def kill(self):
        if self.process is None:
            return
        self.process.kill()
        assert self.process.wait() == -signal.SIGKILL, "a host ended by itself"
        self.output.seek(0)
        self.safe.update(int(number) for number in self.output.read().split(b"\n")[:-1])
        self.output.close()

    def drain(self):
        subprocess.run([*self.command, "-1", *self.words], check=True, timeout=300)


def start_collector(folder, relay):
    collector = Collector(folder, *FREE)
    relay.port = collector.port
    return collector


def kill_all(folder, relay, hosts, kills, rng):
    """How often hosts and the collector were killed. Goes on past `kills` until hosts of both modes have told of
    something, as on a busy machine the first ones die before they do."""
    collector, collector_kills, started, count = start_collector(folder, relay), 0, 0, 0
    while count < kills or (count < 20 * kills and not all(any(host.safe for host in part) for part in halves(hosts))):
        time.sleep(rng.random() * 0.02)  # the random moment itself
        if rng.randrange(3) == 0:
            collector.stop(signal.SIGKILL)
            collector_kills += 1
            collector = start_collector(folder, relay)
            continue
        host = rng.choice(hosts)
        host.kill()
        host.start(NUMBERS * started)
        started += 1
        count += 1
    for host in hosts:
        host.kill()
    return collector, count, collector_kills


def halves(hosts):
    """Those that send in batches, and those that send whole files."""
    return hosts[:IN_BATCHES], hosts[IN_BATCHES:]


def deliver_while_killing(program, kills, user, seed):
    """The finding, empty when every event is there once."""
    with tempfile.TemporaryDirectory() as store, tempfile.TemporaryDirectory() as logs:
        relay, places = Relay(seed), ["batches"] * IN_BATCHES + [f"whole{at}" for at in range(WHOLE)]
        for folder in set(places):
            os.mkdir(os.path.join(logs, folder))
            if user:
                os.chown(os.path.join(logs, folder), user, user)
        os.chmod(logs, 0o755)
        hosts = [Host(os.path.join(logs, place), program, relay.url, user, place.rstrip("0123456789")) for place in places]
        collector, kills, collector_kills = kill_all(store, relay, hosts, kills, random.Random(seed))
        relay.behaves = True
        for host in hosts[IN_BATCHES - 1:]:
            host.drain()
        stored = collections.Counter(row["event"]["n"] for row in collector.export())
        collector.stop()
    safe = [sum((host.safe for host in part), collections.Counter()) for part in halves(hosts)]
    lost = [sum(number not in stored for number in part) for part in safe]
    doubled = sum(times - 1 for times in stored.values())
    print(f"as user {user}: {kills} kills of hosts, {collector_kills} of the collector, {relay.cuts} connections cut\n"
          f"  in batches: {len(safe[0])} events, {lost[0]} lost; whole files: {len(safe[1])} acknowledged, {lost[1]} lost; "
          f"{len(stored)} in the store, {doubled} doubled", flush=True)
    assert safe[0] and safe[1], "nothing was logged"
    return "" if not any(lost) and doubled == 0 else "events were lost or doubled"


def deliver_as_everybody(program, kills, seed):
    users = [0, 65534] if os.getuid() == 0 else [0]
    findings = [deliver_while_killing(program, kills // len(users), user, seed) for user in users]
    return next(filter(None, findings), "")


if __name__ == "__main__":
    sys.exit(deliver_as_everybody(sys.argv[3], int(sys.argv[1]), int((sys.argv + ["1"])[4])) or 0)
