"""A collector under test: starts the program on free ports with a store of its own, and sends it uploads as hosts do."""
import contextlib
import hashlib
import http.client
import json
import os
import re
import signal
import socket
import subprocess
import tempfile
import time
import urllib.parse

PROGRAM = os.environ["COLLECTOR"]


def token(installation):
    salt = os.urandom(8)
    return (salt + hashlib.pbkdf2_hmac("sha1", installation.encode(), salt, 1000, 48)).hex()


def line(name="launch", members="{ }", installation="i1", application="app", version="1.0", at="2026-11-20 10:00:00"):
    return f'[ 3, "{at}", "{application}", "{version}", "{installation}", "{name}", {members} ]'


def form(text, installation="i1", **fields):
    fields = {"data": text, "g": installation, "t": token(installation), "v": "1.0", **fields}
    return urllib.parse.urlencode({key: value for key, value in fields.items() if value is not None}).encode()


def wait_until(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "this did not come true in time"
        time.sleep(0.01)


class Collector:
    """The running program; `stop` ends it as its service would."""

    def __init__(self, folder, *options, log=None, command=(PROGRAM,)):
        self.store = os.path.join(folder, "events.db")
        self.log = open(log or os.path.join(folder, "log"), "a+", encoding="utf-8")
        words = [*command, "serve"]
        for option, value in [("--store", self.store), ("--listen", "127.0.0.1:0"), ("--disk-reserve", "0")]:
            words += [] if option in options else [option, value]
        self.process = subprocess.Popen(words + list(options), stdout=subprocess.PIPE, stderr=self.log, text=True)
        lines = [self.process.stdout.readline() for _ in range(2)]
        found = [re.match(r"(?:uploads|page) at https?://(?:\S+):(\d+)/", text) for text in lines]
        assert all(found), f"the collector did not start: {lines}"
        self.port, self.page_port = (int(match.group(1)) for match in found)

    def request(self, method, path, body=None, headers=None, port=None):
        """The status, the body, the header fields of one request on a connection of its own."""
        connection = http.client.HTTPConnection("127.0.0.1", port or self.port, timeout=30)
        with contextlib.closing(connection):
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, answer.read().decode("utf-8", "replace"), answer

    def upload(self, body, path="/events", **headers):
        kind = {"Content-Type": "application/x-www-form-urlencoded"}
        return self.request("POST", path, body, {**kind, **{k.replace("_", "-"): v for k, v in headers.items()}})[0]

    def logged(self):
        with open(self.log.name, encoding="utf-8") as log:
            return log.read()

    def ask(self, path):
        status, text, _ = self.request("GET", path, port=self.page_port)
        assert status == 200, (path, status, text)
        return json.loads(text)

    def raw(self, data, port=None):
        """What comes back for these bytes until the other end closes."""
        with socket.create_connection(("127.0.0.1", port or self.port), timeout=30) as stream:
            stream.sendall(data)
            answer = b""
            while piece := stream.recv(65536):
                answer += piece
        return answer

    def export(self, *options):
        return [json.loads(row) for row in run("export", "--store", self.store, *options).stdout.splitlines()]

    def stop(self, with_signal=signal.SIGTERM):
        self.process.send_signal(with_signal)
        status = self.process.wait(15)
        self.process.stdout.close()
        self.log.close()
        return status


def run(*words, given=None):
    return subprocess.run([PROGRAM, *words], input=given, capture_output=True, text=True, timeout=60, check=False)


@contextlib.contextmanager
def running(*options, folder=None):
    with tempfile.TemporaryDirectory() as scratch:
        collector = Collector(folder or scratch, *options)
        try:
            yield collector
        finally:
            if collector.process.poll() is None:
                assert collector.stop() == 0
