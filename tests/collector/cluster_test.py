#!/usr/bin/env python3
"""Collectors over a cluster of which a part is dead, or wrong: what hosts are answered, and that nothing is lost."""
import json
import os
import re
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.error
import urllib.request
import xml.etree.ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "..", "tools", "cluster"), HERE]
import counting  # noqa: E402 (the path comes first)
from collector import PROGRAM, form, line, wait_until  # noqa: E402
from hosts import clock_words, forget_clock  # noqa: E402
from nodes import http_get  # noqa: E402
from process import program  # noqa: E402
from rig import DATABASE, DEPLOY, Rig  # noqa: E402


class Sender(threading.Thread):
    """A host: sends one event after another, each until it is answered 200; keeps (moment, status, Retry-After)."""

    def __init__(self, rig, collector):
        super().__init__(name=f"of {collector} {time.monotonic()}")
        self.url = f"http://127.0.0.1:{rig.ports[collector][0]}/u/{rig.key}"
        self.answers, self.number, self.stop, self.perhaps = [], 1, False, set()

    def told(self):
        return range(1, self.number)

    def send(self):
        event = line("e", f'{{ "n": {self.number} }}', self.name, "host")
        try:
            with urllib.request.urlopen(self.url, form(event, self.name), timeout=30) as answer:
                return answer.status, None
        except urllib.error.HTTPError as error:
            return error.code, error.headers.get("Retry-After")
        except OSError:
            return 0, None

    def run(self):
        while not self.stop:
            status = 0
            while status != 200:
                begun = time.monotonic()
                status, retry = self.send()
                self.answers.append((begun, status, retry))
                time.sleep(0.05)
            self.number += 1

    def since(self, moment):
        return {answer[1:] for answer in list(self.answers) if answer[0] > moment}


class Faults(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.rig = Rig(PROGRAM, folder.name, 2, {"strict": ["--answer-wait", "1"], "easy": ["--answer", "spool"]}, keep=2)
        cls.small_disk(cls.rig.disk("s1r1"))
        cls.addClassCleanup(cls.rig.stop)
        cls.rig.start()

    @classmethod
    def small_disk(cls, place):
        os.makedirs(place)
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=500m", "none", place], check=False).returncode == 0:
            cls.addClassCleanup(subprocess.run, ["umount", place], check=True)

    def setUp(self):
        self.strict, self.easy = self.senders = [Sender(self.rig, name) for name in self.rig.collectors]
        for one in self.senders:
            one.start()
        wait_until(lambda: all(len(one.answers) > 5 for one in self.senders))

    def tearDown(self):
        """Whatever was answered 200 is counted once, by each replica, when all are back."""
        for one in self.rig.nodes.all.values():
            if not one.alive():
                one.start()
        for one in self.senders:
            one.stop = True
        for one in self.senders:
            one.join()
        wait_until(lambda: self.rig.unchecked() == 0, 90)
        for tally in counting.from_nodes(self.rig.nodes, self.senders, DATABASE):
            self.assertTrue(tally.good(), vars(tally))

    @staticmethod
    def restart(one, words):
        one.kill()
        forget_clock(one.child.pid)
        one.words = words
        one.start()

    def kill(self, *names):
        for name in names:
            self.rig.nodes.all[name].kill()
        return time.monotonic()

    def test_takes_uploads_with_one_replica_of_each_shard_dead(self):
        killed = self.kill("s1r1", "s2r2")
        wait_until(lambda: self.strict.answers[-1][0] > killed + 8)
        for one in self.senders:
            self.assertEqual(one.since(killed + 2), {(200, None)})
        self.assertEqual(len(self.rig.status("strict")["findings"]), 2)

    def test_a_dead_shard_refuses_its_own_uploads_alone(self):
        uploads, page = self.rig.ports["strict"]
        ask = lambda path, port=uploads: (http_get(port, path)[0], "partial" in http_get(port, path)[1])
        self.kill("s2r1", "s2r2")
        wait_until(lambda: ask("/readyz?writing") == (503, False))
        self.assertEqual((ask("/readyz?reading")[0], ask("/healthz")[0], ask("/api/summary", page)), (503, 200, (200, True)))
        statuses = {}
        for number in range(40):
            one = Sender(self.rig, "strict")
            one.name = f"installation {number}"
            statuses.setdefault(one.send()[0], []).append(one)
        self.assertEqual(statuses.keys(), {200, 503})
        self.assertGreater(min(map(len, statuses.values())), 5)

    def test_a_full_disk_is_named_and_loses_nothing(self):
        ballast = self.rig.disk("s1r1") + "/ballast"
        if not os.path.ismount(os.path.dirname(ballast)):
            self.skipTest("disks can only be mounted by root")
        try:
            with open(ballast, "wb", buffering=0) as file, self.assertRaises(OSError):
                while True:
                    file.write(bytes(1 << 16))
            full = time.monotonic()
            wait_until(lambda: self.strict.answers[-1][0] > full + 5)
            self.assertIn("its disk is full", "".join(self.rig.status("strict")["findings"]))
        finally:
            os.remove(ballast)
        for one in self.senders:
            self.assertEqual(one.since(full), {(200, None)})

    def test_without_zookeeper_one_spools_and_one_refuses(self):
        killed = self.kill("zookeeper")
        wait_until(lambda: (503, "5") in self.strict.since(killed))
        refused = time.monotonic()
        wait_until(lambda: self.easy.answers[-1][0] > refused + 5)
        self.assertEqual(self.easy.since(killed), {(200, None)})
        self.assertNotIn((200, None), self.strict.since(refused))
        health = lambda: json.loads(http_get(self.rig.ports["strict"][1], "/api/health")[1])
        wait_until(lambda: health()["cluster"]["upkeep"])
        self.rig.nodes.all["zookeeper"].start()
        back = time.monotonic()
        wait_until(lambda: (200, None) in self.strict.since(back), 15)

    @unittest.skipIf(os.environ.get("SANITIZE"), "a sanitizer's runtime does not bear another clock")
    def test_a_clock_that_is_a_day_off_is_named_and_loses_nothing(self):
        said = subprocess.run([*clock_words("+1d"), PROGRAM, "cluster", "status", "--store", self.rig.store], check=False,
                              capture_output=True, text=True)
        self.assertEqual((said.returncode, len(re.findall("its clock is 86[34].. s behind", said.stdout))), (1, 4), said.stdout)
        collector = self.rig.collectors["strict"]
        right = collector.words
        self.restart(collector, [*clock_words("+1d"), *right])
        self.addCleanup(self.restart, collector, right)
        back = time.monotonic()
        wait_until(lambda: len([at for at, status, _ in self.strict.answers if at > back and status == 200]) > 20)


class Files(unittest.TestCase):
    """Files for front servers and nodes, as they are deployed."""

    def test_front_servers_take_their_files(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=x", "-keyout",
                            folder + "/events.key", "-out", folder + "/events.pem"], check=True, capture_output=True)
            with open(folder + "/events.key", encoding="ascii") as key, open(folder + "/events.pem", "a", encoding="ascii") as pem:
                pem.write(key.read())
            with open(folder + "/main.conf", "w", encoding="utf-8") as file:
                file.write(f"events {{}} error_log stderr; pid {folder}/pid; http {{ include {folder}/nginx-cluster.conf; }}")
            for name, words in [("haproxy-cluster.cfg", [program("haproxy"), "-c", "-f", folder + "/haproxy-cluster.cfg"]),
                                ("nginx-cluster.conf", [program("nginx"), "-t", "-c", folder + "/main.conf"])]:
                with open(os.path.join(DEPLOY, name), encoding="utf-8") as file, \
                        open(os.path.join(folder, name), "w", encoding="utf-8") as copy:
                    copy.write(file.read().replace("/etc/ssl", folder))
                done = subprocess.run(words, capture_output=True, text=True, check=False)
                self.assertEqual(done.returncode, 0, done.stderr)

    def test_files_of_both_versions_say_the_same_where_they_can(self):
        settings = lambda name: {one.tag: one for one in xml.etree.ElementTree.parse(f"{DEPLOY}/clickhouse/{name}").getroot()}
        for kind in ["config", "users"]:
            old, new = settings(f"{kind}-18.16.xml"), settings(f"{kind}.xml")
            self.assertLessEqual(old.keys(), new.keys())


if __name__ == "__main__":
    ended = unittest.main(exit=False).result
    for test, why in ended.skipped:
        print(f"{__file__}: Skipped\n{why}\n[  SKIPPED ] {test.id()}")
    sys.exit(1 if not ended.wasSuccessful() else 77 if ended.skipped else 0)
