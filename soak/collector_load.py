#!/usr/bin/env python3
"""SECONDS PROGRAM HOST: the collector under load, hostile input and kills; prints figures, ends with 1 at a finding.

Part after part: ten thousand idle connections, a thousand clients that send a byte a second, uploads that are meant to
hurt, and kills of it and of the library's hosts until the time is over and at least 500 hosts were killed (with less than
a minute: 10)."""
import gzip
import os
import socket
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "collector"))
os.environ["COLLECTOR"] = sys.argv[2]
from collector import Collector, form, line  # noqa: E402 (the path and the variable come first)
from kills import FREE, deliver_as_everybody  # noqa: E402

SECONDS = int(sys.argv[1])
findings = []


def check(what, good):
    if not good:
        findings.append(what)
        print(f"FINDING: {what}")


def memory(collector, field="VmRSS"):
    """Megabytes of the running program."""
    with open(f"/proc/{collector.process.pid}/status", encoding="ascii") as status:
        return next(int(row.split()[1]) / 1024 for row in status if row.startswith(field))


class Good:
    """A well-behaved client that sends on and on while others do not behave; remembers the slowest answer."""

    def __init__(self, collector):
        self.collector, self.answered, self.refused, self.worst, self.stop = collector, 0, 0, 0.0, False
        self.thread = threading.Thread(target=self.run)

    def run(self):
        while not self.stop:
            begun = time.monotonic()
            status = self.collector.upload(form(line()))
            self.worst = max(self.worst, time.monotonic() - begun)
            self.answered += status == 200
            self.refused += status != 200
            time.sleep(0.02)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.stop = True
        self.thread.join()


def idle_connections(folder):
    collector = Collector(folder, *FREE)
    collector.upload(form(line()))
    before, open_ones = memory(collector), []
    for _ in range(10000):
        open_ones.append(socket.create_connection(("127.0.0.1", collector.port)))
    added = memory(collector) - before
    open_ones.pop().close()
    time.sleep(0.2)
    status = collector.upload(form(line()))
    print(f"10,000 idle connections: {added:.0f} MB added, a good upload beside them: {status}")
    check("idle connections take more than 200 MB", added < 200)
    check("nobody is served beside idle connections", status == 200)
    for one in open_ones:
        one.close()
    check("it did not leave", collector.stop() == 0)


def slow_clients(folder):
    collector = Collector(folder, *FREE)
    slow = [socket.create_connection(("127.0.0.1", collector.port)) for _ in range(1000)]
    with Good(collector) as good:
        for at in range(13):
            for one in slow:
                try:
                    one.send(b"POST /events HTTP/1.1"[at:at + 1])
                except OSError:
                    pass
            time.sleep(1)
    gone = 0
    for one in slow:
        one.settimeout(1)
        try:
            gone += one.recv(100) == b""
        except OSError:
            gone += 1
        one.close()
    print(f"1,000 clients of a byte a second: {gone} dropped; {good.answered} good uploads answered, {good.refused} not, "
          f"worst {good.worst * 1000:.0f} ms")
    check("good clients were refused", good.refused == 0)
    check("slow clients stayed", gone == 1000)
    collector.stop()


def raw_upload(collector, body, declared=None, pause=0.0, encoding="identity"):
    header = ("POST /events HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n"
              f"Content-Encoding: {encoding}\r\nContent-Length: {declared or len(body)}\r\nConnection: close\r\n\r\n").encode()
    try:
        with socket.create_connection(("127.0.0.1", collector.port), timeout=90) as stream:
            stream.sendall(header)
            for at in range(0, len(body), 1 << 16):
                stream.sendall(body[at:at + (1 << 16)])
                time.sleep(pause)
            return stream.recv(64)[9:12].decode()
    except OSError as error:
        return type(error).__name__


def hostile_uploads(folder):
    many = "{ " + ", ".join(f'"k{i}": {i}' for i in range(700_000)) + " }"
    bodies = {
        "a body of 200 MB": b"a" * 200_000_000,
        "a gzip bomb": gzip.compress(b"a" * 500_000_000),
        "a depth of a million": form(line(members="[" * 1_000_000)),
        "a name of 1 MB": form(line("n" * 1_000_000)),
        "700,000 properties": form(line(members=many)),
        "100,000 names": form("\n".join(line(f"name {i}", at=f"2026-11-{1 + i % 20:02d} 10:00:00") for i in range(100_000))),
        "wrong tokens": form(line(), t="00" * 56),
    }
    collector = Collector(folder, *FREE, "--line-limit", "0")
    with Good(collector) as good:
        for what, body in bodies.items():
            encoding = "gzip" if "gzip" in what else "identity"
            print(f"  {what}: {raw_upload(collector, body, encoding=encoding)}")
        threads = [threading.Thread(target=raw_upload, args=(collector, b"a" * 15_000_000, 16_000_000, 0.02)) for _ in range(16)]
        threads += [threading.Thread(target=lambda: [raw_upload(collector, bodies["wrong tokens"]) for _ in range(300)])
                    for _ in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    most = memory(collector, "VmHWM")
    print(f"hostile uploads: {most:.0f} MB at most; {good.answered} good uploads answered, {good.refused} not, "
          f"worst {good.worst * 1000:.0f} ms")
    check("hostile uploads took more than 600 MB", most < 600)
    check("good clients were refused beside hostile ones", good.refused == 0)
    collector.stop()


def kills(host, until, wanted):
    seed = 0
    while seed == 0 or time.monotonic() < until:
        seed += 1
        finding = deliver_as_everybody(host, wanted, seed)
        check(finding, finding == "")


def main():
    begun = time.monotonic()
    for part in [idle_connections, slow_clients, hostile_uploads]:
        with tempfile.TemporaryDirectory() as folder:
            part(folder)
    kills(sys.argv[3], begun + SECONDS, 500 if SECONDS >= 60 else 10)
    sys.exit(1 if findings else 0)


main()
