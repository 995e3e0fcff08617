#!/usr/bin/env python3
"""What goes wrong around a collector that runs: its disk, its store, its files, its network; and how it is told of them.

Exit status 77: a part was skipped, for the reason that was printed."""
import contextlib
import errno
import os
import shutil
import signal
import socket
import sqlite3
import ssl
import subprocess
import sys
import tempfile
import unittest
import unittest.mock

from collector import PROGRAM, Collector, form, line, run, running, wait_until

GOOD = form(line())
TYPE = {"Content-Type": "application/x-www-form-urlencoded"}


def post(collector, body=GOOD, **headers):
    """The status, and what Retry-After says."""
    status, _, answer = collector.request("POST", "/events", body, {**TYPE, **headers})
    return status, answer.getheader("Retry-After")


class Disk(unittest.TestCase):
    def test_below_the_reserve_only_uploads_wait(self):
        with tempfile.TemporaryDirectory() as folder:
            with running(folder=folder) as collector:
                for one in ["i1", "i2"]:
                    self.assertEqual(collector.upload(form(line(installation=one, at="2026-01-01 10:00:00"))), 200)
            with running("--disk-reserve", str(2**60), "--retain", "1d", folder=folder) as collector:
                self.assertEqual(post(collector), (503, "60"))
                self.assertIn("--disk-reserve", collector.logged())
                self.assertEqual(collector.request("GET", "/")[0], 200)
                wait_until(lambda: collector.export() == [])  # retention
                self.assertEqual(collector.ask("/api/summary?from=2026-01-01&to=2026-01-02")["events"], 2)
                self.assertEqual(collector.request("DELETE", "/api/installations?installation=i1")[0], 200)

    def test_waits_while_another_process_locks_the_store(self):
        with running() as collector, contextlib.closing(sqlite3.connect(collector.store, isolation_level=None)) as other:
            other.execute("begin immediate")
            self.assertEqual(post(collector), (503, "5"))
            self.assertIn("error uploads are answered 503: ", collector.logged())
            self.assertEqual(collector.request("GET", "/readyz")[0], 503)
            self.assertEqual(collector.request("GET", "/api/names")[0], 200)
            other.execute("rollback")
            self.assertEqual(post(collector)[0], 200)
            self.assertEqual(collector.request("GET", "/readyz")[0], 200)
            self.assertEqual(len(collector.export()), 1)

    def test_ends_with_2_where_it_cannot_write(self):
        ended = run("serve", "--store", "/sys/events.db", "--listen", "127.0.0.1:0")
        self.assertEqual((ended.returncode, len(ended.stderr.splitlines())), (2, 1), ended.stderr)


class FullDisk(unittest.TestCase):
    READ_ONLY = 'mount --bind "$0" "$0" && mount -o remount,ro,bind "$0" && exec "$@"'
    SMALL_DISK = 'mount -t tmpfs -o size=12m none "$0" && head -c 4M /dev/zero > "$0/ballast" && exec "$@"'

    def mount_or_skip(self):
        if subprocess.run(["unshare", "-m", "mount", "-t", "tmpfs", "none", "/mnt"], check=False,
                          capture_output=True).returncode != 0:
            self.skipTest("disks can only be mounted by root")

    def test_ends_with_2_where_it_is_read_only(self):
        self.mount_or_skip()
        with tempfile.TemporaryDirectory() as folder:
            collector = Collector(folder)
            self.assertEqual(collector.stop(), 0)
            ended = subprocess.run(["unshare", "-m", "sh", "-c", self.READ_ONLY, folder, PROGRAM, "serve", "--store", collector.store,
                                    "--listen", "127.0.0.1:0"], capture_output=True, text=True, timeout=60, check=False)
            self.assertEqual((ended.returncode, "Read-only" in ended.stderr), (2, True), ended.stderr)

    def test_goes_on_when_the_disk_does(self):
        with open(PROGRAM, "rb") as program:
            text = program.read()
            if b"__asan_init" in text or b"__tsan_init" in text:
                self.skipTest("libfiu and the sanitizers do not go together")
        if shutil.which("fiu-run") is None:
            self.skipTest("fiu-run is not there (package fiu-utils)")
        for error, wait in [(errno.EROFS, "5"), (errno.EIO, "5"), (errno.ENOSPC, "60")]:
            with self.subTest(os.strerror(error)), tempfile.TemporaryDirectory() as folder:
                wires = os.path.join(folder, "wires")
                collector = Collector(folder, command=["fiu-run", "-x", "-f", wires, PROGRAM])
                tell = lambda words: subprocess.run(["fiu-ctrl", "-f", wires, "-c", words, str(collector.process.pid)], check=True)
                self.assertEqual(post(collector, form(line("before")))[0], 200)
                tell(f"enable name=posix/io/rw/pwrite,failinfo={error}")
                self.assertEqual(post(collector), (503, wait))
                self.assertEqual(collector.request("GET", "/readyz")[0], 503)
                self.assertIn("error uploads are answered 503: ", collector.logged())
                tell("disable name=posix/io/rw/pwrite")
                self.assertEqual(post(collector)[0], 200)
                self.assertEqual(collector.stop(), 0)
                self.assertEqual([row["name"] for row in collector.export()], ["before", "launch"])

    def test_loses_nothing_that_it_acknowledged(self):
        self.mount_or_skip()
        with tempfile.TemporaryDirectory() as folder:
            disk = os.path.join(folder, "disk")
            os.mkdir(disk)
            collector = Collector(disk, "--rate-installation", "0", log=os.path.join(folder, "log"),
                                  command=["unshare", "-m", "sh", "-c", self.SMALL_DISK, disk, PROGRAM])
            text = lambda number: form("\n".join(line(f"e{number}", f'{{ "x": "{os.urandom(500).hex()}" }}') for _ in range(200)))
            taken = 0
            while (answer := post(collector, text(taken)))[0] == 200:
                taken += 1
                self.assertLess(taken, 100)
            self.assertEqual(answer, (503, "60"))
            self.assertEqual(collector.request("GET", "/")[0], 200)
            os.remove(f"/proc/{collector.process.pid}/root{disk}/ballast")
            self.assertEqual(collector.upload(text(taken)), 200)
            names = {row["name"]: row["events"] for row in collector.ask("/api/names?from=2026-11-20&to=2026-11-21")["rows"]}
            self.assertEqual(names, {f"e{number}": 200 for number in range(taken + 1)})
            self.assertEqual(collector.stop(), 0)


class Network(unittest.TestCase):
    @staticmethod
    def certificate(folder, name):
        """Puts a new certificate where the collector reads it; gives one that trusts it."""
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
                        "-subj", f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", os.path.join(folder, "key"),
                        "-out", os.path.join(folder, "cert")], check=True, capture_output=True)
        return ssl.create_default_context(cafile=os.path.join(folder, "cert"))

    def test_shows_a_new_certificate_after_sighup(self):
        def status_by(trust):
            with socket.create_connection(("127.0.0.1", collector.port), timeout=10) as plain:
                try:
                    with trust.wrap_socket(plain, server_hostname="127.0.0.1") as stream:
                        stream.sendall(b"GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
                        return int(stream.recv(100).split()[1])
                except ssl.SSLCertVerificationError:
                    return 0

        with tempfile.TemporaryDirectory() as folder:
            first = self.certificate(folder, "first")
            cert, key = os.path.join(folder, "cert"), os.path.join(folder, "key")
            with running("--tls-cert", cert, "--tls-key", key, folder=folder) as collector:
                self.assertEqual(status_by(first), 200)
                second = self.certificate(folder, "second")
                self.assertEqual(status_by(first), 200)
                collector.process.send_signal(signal.SIGHUP)
                wait_until(lambda: status_by(second) == 200)
                self.assertEqual(status_by(first), 0)
                os.truncate(cert, 10)
                collector.process.send_signal(signal.SIGHUP)
                wait_until(lambda: "no certificate can be read" in collector.logged())
                self.assertEqual(status_by(second), 200)

    def test_believes_named_proxies_alone_who_sent(self):
        senders = ["1.1.1.1", "1.1.1.1", "2.2.2.2", "3.3.3.3, 1.1.1.1", "3.3.3.3, 127.0.0.1"]
        for options, expected in [([], [200, 429, 429, 429, 429]), (["--proxy", "127.0.0.1"], [200, 429, 200, 429, 200]),
                                  (["--proxy", "127.0.0.2"], [200, 429, 429, 429, 429])]:
            with self.subTest(options), running("--rate-address", "0.2", *options) as collector:
                self.assertEqual([post(collector, **{"X-Forwarded-For": sender})[0] for sender in senders], expected)

    def test_ends_live_streams_and_what_never_ends_when_told_to(self):
        with tempfile.TemporaryDirectory() as folder:
            collector = Collector(folder)
            with socket.create_connection(("127.0.0.1", collector.port), timeout=20) as live, \
                    socket.create_connection(("127.0.0.1", collector.port), timeout=20) as half:
                live.sendall(b"GET /api/live HTTP/1.1\r\nHost: localhost\r\n\r\n")
                answer = b""
                while b": open" not in answer:
                    answer += live.recv(1000)
                half.sendall(b"POST /events HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n"
                             b"Content-Length: 100\r\n\r\ndata")
                wait_until(lambda: collector.ask("/api/health")["body_bytes"] > 0)
                collector.process.send_signal(signal.SIGTERM)
                while live.recv(1000):
                    pass
                self.assertIsNone(collector.process.poll())  # the other one may still come to its end
                self.assertEqual(collector.process.wait(12), 0)
            collector.stop()


class Settings(unittest.TestCase):
    def test_takes_options_from_the_environment_and_a_file(self):
        with tempfile.TemporaryDirectory() as folder:
            file = os.path.join(folder, "config")
            with open(file, "w", encoding="utf-8") as text:
                text.write("body-limit=10\n")
            cases = [({"ANALYTICS_COLLECTOR_BODY_LIMIT": "10"}, [], 413), ({"ANALYTICS_COLLECTOR_CONFIG": file}, [], 413),
                     ({}, ["--config", file], 413), ({}, ["--config", file, "--body-limit", "10000"], 200),
                     ({"ANALYTICS_COLLECTOR_BODY_LIMIT": "10000"}, ["--config", file], 200),
                     ({"ANALYTICS_COLLECTOR_BODY_LIMIT": "10"}, ["--body-limit", "10000"], 200)]
            for variables, options, expected in cases:
                with self.subTest((variables, options)), unittest.mock.patch.dict(os.environ, variables):
                    with running(*options) as collector:
                        self.assertEqual(post(collector)[0], expected)
            for wrong in ["body-limitt=10", "body-limit=many", "rate-address=-1", "[serve]\nbody-limit=10"]:
                with open(file, "w", encoding="utf-8") as text:
                    text.write(wrong + "\n")
                ended = run("serve", "--store", os.path.join(folder, "e.db"), "--listen", "127.0.0.1:0", "--config", file)
                self.assertEqual((ended.returncode, len(ended.stderr.splitlines())), (2, 1), (wrong, ended.stderr))

    def test_a_key_that_is_taken_away_lets_nothing_in(self):
        with tempfile.TemporaryDirectory() as folder:
            keys = os.path.join(folder, "keys")
            mine, other = (run("key", "new", "app", "--keys", keys).stdout.split()[-1] for _ in range(2))
            with running("--keys", keys, "--rate-address", "0", "--rate-installation", "0") as collector:
                self.assertEqual(collector.upload(GOOD, f"/u/{mine}"), 200)
                with open(keys, "w", encoding="utf-8") as text:
                    text.write(f"{other} app\n")
                wait_until(lambda: collector.upload(GOOD, f"/u/{mine}") == 403)
                self.assertEqual(collector.upload(GOOD, f"/u/{other}"), 200)

    def test_counts_for_those_who_watch(self):
        with running() as collector:
            self.assertEqual([collector.upload(body) for body in [form(line() + "\nno event"), form(line(), t="00")]], [200, 403])
            status, text, _ = collector.request("GET", "/metrics")
            self.assertEqual(status, 200)
            for row in ["uploads_total 1", "events_total 1", "rejected_lines_total 1", 'refused_total{status="403"} 1',
                        "body_bytes 0"]:
                self.assertIn(f"\nanalytics_collector_{row}\n", text)
            self.assertEqual([collector.request("GET", path)[0] for path in ["/healthz", "/readyz"]], [200, 200])


if __name__ == "__main__":
    ended = unittest.main(exit=False).result
    for test, why in ended.skipped:
        print(f"{__file__}: Skipped\n{why}\n[  SKIPPED ] {test.id()}")
    sys.exit(1 if not ended.wasSuccessful() else 77 if ended.skipped else 0)
