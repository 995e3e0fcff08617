#!/usr/bin/env python3
"""The collector as hosts, browsers and scripts meet it: the real program, real sockets, real files."""
import gzip
import os
import signal
import socket
import sqlite3
import tempfile
import threading
import unittest

from collector import Collector, form, line, run, running, token, wait_until

GOOD = form(line())
BATCH = "019b0000000000000000000000000001"


def head(body, *fields, method="POST", path="/events"):
    kind = "Content-Type: application/x-www-form-urlencoded"
    return "\r\n".join([f"{method} {path} HTTP/1.1", "Host: x", kind, *fields, "", ""]).encode() + body


def status_of(answer):
    return int(answer.split()[1]) if answer else 0


class Uploads(unittest.TestCase):
    def test_answers_each_request_with_its_status(self):
        good = len(GOOD)
        cases = {
            "taken": (head(GOOD, f"Content-Length: {good}", "Connection: close"), 200),
            "empty data": (head(form(""), f"Content-Length: {len(form(''))}", "Connection: close"), 200),
            "chunked": (head(b"%x\r\n%s\r\n0\r\n\r\n" % (good, GOOD), "Transfer-Encoding: chunked", "Connection: close"), 200),
            "another path": (head(GOOD, f"Content-Length: {good}", path="/events/"), 404),
            "a key without keys": (head(GOOD, f"Content-Length: {good}", path="/u/x"), 404),
            "another method": (head(b"", method="PUT"), 405),
            "length and chunked": (head(b"0\r\n\r\n", "Content-Length: 5", "Transfer-Encoding: chunked"), 400),
            "length twice": (head(GOOD, f"Content-Length: {good}", f"Content-Length: {good}"), 400),
            "length with a sign": (head(GOOD, f"Content-Length: +{good}"), 400),
            "another coding": (head(GOOD, "Transfer-Encoding: gzip"), 400),
            "no HTTP": (b"\x16\x03\x01 hello\r\n\r\n", 400),
            "a large header": (head(b"", "X: " + "a" * 17000), 431),
            "a large body": (head(b"", "Content-Length: 20000000"), 413),
        }
        with running("--rate-address", "0") as collector:
            for what, (request, expected) in cases.items():
                with self.subTest(what):
                    self.assertEqual(status_of(collector.raw(request)), expected)

    def test_judges_forms_before_it_stores(self):
        packed = gzip.compress(GOOD)
        cases = {
            "a field missing": (form(line(), v=None), {}, 400),
            "a wrong token": (form(line(), t=token("other")), {}, 403),
            "a short token": (form(line(), t="00"), {}, 403),
            "a broken escape": (b"data=%zz", {}, 400),
            "a batch of 31 digits": (form(line(), b=BATCH[1:]), {}, 400),
            "a place of 2^31": (form(line(), b=BATCH, o=str(2**31)), {}, 400),
            "a long id": (form(line(), "g" * 1025), {}, 400),
            "gzip": (packed, {"Content_Encoding": "gzip"}, 200),
            "gzip cut": (packed[:-4], {"Content_Encoding": "gzip"}, 400),
            "a gzip bomb": (gzip.compress(b"a" * 40_000_000), {"Content_Encoding": "gzip"}, 413),
            "another encoding": (GOOD, {"Content_Encoding": "br"}, 415),
            "another type": (GOOD, {"Content_Type": "text/plain"}, 400),
        }
        with running("--rate-address", "0", "--rate-installation", "0") as collector:
            for what, (body, headers, expected) in cases.items():
                with self.subTest(what):
                    self.assertEqual(collector.upload(body, **headers), expected)
            self.assertEqual(len(collector.export()), 1)

    def test_keys_let_in_the_lines_of_their_application(self):
        with tempfile.TemporaryDirectory() as folder:
            keys = os.path.join(folder, "keys")
            key = run("key", "new", "app", "--keys", keys).stdout.split()[-1]
            with running("--keys", keys) as collector:
                other = form(line() + "\n" + line(application="other"))
                for path, body, expected in [(f"/u/{key}", GOOD, 200), (f"/u/{key}", other, 403), ("/u/x", GOOD, 403),
                                             ("/events", GOOD, 404)]:
                    self.assertEqual(collector.upload(body, path), expected, path)
                self.assertEqual(len(collector.export()), 1)

    def test_stores_a_line_of_a_batch_once(self):
        lines = [line(f"e{i}") for i in range(6)]
        part = lambda first, last: form("\n".join(lines[first:last]) + "\n", b=BATCH, o=str(first), d="0")
        with running() as collector:
            for body in [part(0, 3), part(0, 6), part(3, 6), form("", b=BATCH, o="4", d="4")]:
                self.assertEqual(collector.upload(body), 200)
            self.assertEqual([row["name"] for row in collector.export()], [f"e{i}" for i in range(6)])
            self.assertEqual(collector.ask("/api/health")["dropped"], 2)

    def test_limits_how_often_and_how_slowly_one_may_come(self):
        with running("--rate-address", "1", "--header-seconds", "1", "--connections-address", "3") as collector:
            statuses = [collector.upload(GOOD) for _ in range(7)]
            self.assertEqual(statuses[:5], [200] * 5)
            self.assertEqual(statuses[6], 429)
            self.assertEqual(collector.raw(b"POST /eve"), b"")  # the other end closes when the second is over
            open_ones = [socket.create_connection(("127.0.0.1", collector.port)) for _ in range(4)]
            open_ones[3].settimeout(10)
            self.assertEqual(open_ones[3].recv(1), b"")
            for one in open_ones:
                one.close()


class Life(unittest.TestCase):
    def test_finishes_a_half_sent_upload_when_told_to_end(self):
        with tempfile.TemporaryDirectory() as folder:
            collector = Collector(folder)
            idle = socket.create_connection(("127.0.0.1", collector.port))
            half = socket.create_connection(("127.0.0.1", collector.port))
            request = head(GOOD, f"Content-Length: {len(GOOD)}")
            half.sendall(request[:-20])
            wait_until(lambda: collector.ask("/api/health")["body_bytes"] > 0)
            collector.process.send_signal(signal.SIGTERM)
            self.assertEqual(idle.recv(1), b"")
            half.sendall(request[-20:])
            self.assertEqual(status_of(half.recv(65536)), 200)
            idle.close()
            half.close()
            self.assertEqual(collector.stop(), 0)

    def test_takes_uploads_while_a_balancer_learns_that_it_ends(self):
        with tempfile.TemporaryDirectory() as folder:
            collector = Collector(folder, "--drain-seconds", "60")
            ask = lambda path: collector.request("GET", path)[:2]
            self.assertEqual([ask("/healthz")[0], ask("/readyz")], [200, (200, "writing ok\nreading ok\n")])
            collector.process.send_signal(signal.SIGTERM)
            wait_until(lambda: ask("/healthz")[0] == 503)
            self.assertEqual(collector.upload(GOOD), 200)
            self.assertEqual([ask("/readyz?writing")[0], ask("/readyz?reading")[0]], [503, 200])
            self.assertEqual(collector.stop(), 0)

    def test_keeps_what_it_acknowledged_when_it_is_killed(self):
        with tempfile.TemporaryDirectory() as folder:
            acknowledged, sent = set(), 0
            for _ in range(5):
                collector = Collector(folder, "--rate-address", "0", "--rate-installation", "0")
                killer = threading.Timer(0.3, collector.process.kill)
                killer.start()
                try:
                    while True:
                        sent += 1
                        if collector.upload(form(line(f"e{sent}"), b=f"{sent:032x}")) == 200:
                            acknowledged.add(f"e{sent}")
                except OSError:
                    collector.stop(signal.SIGKILL)
            with running(folder=folder) as collector:
                names = [row["name"] for row in collector.export()]
                self.assertGreater(len(acknowledged), 20)
                self.assertEqual(len(names), len(set(names)))
                self.assertLessEqual(acknowledged, set(names))

    def test_refuses_to_start_where_it_must(self):
        with running() as collector, tempfile.TemporaryDirectory() as folder:
            newer = os.path.join(folder, "newer.db")
            self.assertEqual(run("backup", newer, "--store", collector.store).returncode, 0)
            with sqlite3.connect(newer) as store:
                store.execute("pragma user_version = 999")
            secrets = [os.path.join(folder, name) for name in ["open", "short"]]
            for file, mode, text in [(secrets[0], 0o644, "a" * 32), (secrets[1], 0o600, "a" * 31 + "\n")]:
                with open(os.open(file, os.O_CREAT | os.O_WRONLY, mode), "w", encoding="utf-8") as secret:
                    secret.write(text)
            for options in [["--store", collector.store], ["--store", newer], ["--listen", "0.0.0.0:0"],
                            ["--body-limit", "many"], ["--no-such-option"], ["--tls-cert", "x"],
                            *(["--secret", file] for file in [*secrets, "none"])]:
                with self.subTest(options):
                    refused = run("serve", "--store", os.path.join(folder, "e.db"), "--listen", "127.0.0.1:0", *options) \
                        if "--store" not in options and "--listen" not in options else run("serve", *options)
                    self.assertEqual(refused.returncode, 2)
                    self.assertEqual(len(refused.stderr.splitlines()), 1, refused.stderr)


class Page(unittest.TestCase):
    def test_is_for_its_own_names_and_sites(self):
        with running("--host", "stats.example") as collector:
            port = collector.page_port
            cases = [("GET", "/", {}, 200), ("GET", "/", {"Host": "stats.example"}, 200), ("GET", "/", {"Host": "[::1]:80"}, 200),
                     ("GET", "/", {"Host": "evil.example"}, 421), ("GET", "/healthz", {"Host": "evil.example"}, 200),
                     ("GET", "/", {"X-Forwarded-For": "1.2.3.4"}, 403), ("GET", "/", {"Via": "1.1 x"}, 403),
                     ("DELETE", "/api/installations?installation=i", {"Origin": "http://evil.example"}, 403),
                     ("DELETE", "/api/installations?installation=i", {"Origin": "null"}, 403),
                     ("GET", "/api/names?nonsense=1", {}, 400), ("GET", "/api/nothing", {}, 404)]
            for method, path, headers, expected in cases:
                with self.subTest(path=path, headers=headers):
                    status, _, answer = collector.request(method, path, headers=headers, port=port)
                    self.assertEqual(status, expected)
                    if path != "/healthz":
                        self.assertIn("default-src 'self'", answer.getheader("Content-Security-Policy"))

    def test_lets_in_who_logged_in(self):
        with tempfile.TemporaryDirectory() as folder:
            users, tokens = os.path.join(folder, "users"), os.path.join(folder, "tokens")
            self.assertEqual(run("user", "add", "ann", "--users", users, given="secret\n").returncode, 0)
            self.assertEqual(os.stat(users).st_mode & 0o777, 0o600)
            with open(tokens, "w", encoding="utf-8") as file:
                file.write("let-me-in\n")
            with running("--users", users, "--tokens", tokens, "--page", "127.0.0.1:0") as collector:
                ask = lambda method, path, body=None, **headers: collector.request(
                    method, path, body, {k.replace("_", "-"): v for k, v in headers.items()}, collector.page_port)
                self.assertEqual(ask("GET", "/")[0], 303)
                self.assertEqual(ask("GET", "/api/names")[0], 401)
                self.assertEqual(ask("GET", "/metrics", Authorization="Bearer let-me-in")[0], 200)
                self.assertEqual(ask("GET", "/metrics", Authorization="Bearer let-me")[0], 401)
                self.assertEqual(ask("POST", "/login", "name=ann&password=wrong")[0], 403)
                status, _, answer = ask("POST", "/login", "name=ann&password=secret")
                cookie = answer.getheader("Set-Cookie")
                self.assertEqual(status, 303)
                for word in ["HttpOnly", "SameSite=Strict", "Path=/"]:
                    self.assertIn(word, cookie)
                secret = cookie.split(";")[0]
                self.assertEqual(ask("GET", "/api/names", Cookie=secret)[0], 200)
                self.assertEqual(ask("POST", "/logout", "", Cookie=secret)[0], 303)
                self.assertEqual(ask("GET", "/api/names", Cookie=secret)[0], 401)
                self.assertEqual(collector.request("GET", "/", port=collector.port)[0], 404)
                self.assertEqual(collector.request("POST", "/events", GOOD, port=collector.page_port)[0], 404)

    def test_takes_a_login_made_with_its_secret_until_it_ends(self):
        with tempfile.TemporaryDirectory() as folder:
            users, secret, store = (os.path.join(folder, name) for name in ["users", "secret", "store"])
            os.mkdir(store)
            run("user", "add", "ann", "--users", users, given="secret\n")
            self.assertEqual([run("secret", "new", secret).returncode for _ in range(2)], [0, 1])
            self.assertEqual(os.stat(secret).st_mode & 0o777, 0o600)
            options = ["--users", users, "--secret", secret]
            ask = lambda at, method, path, body=None, cookie="": at.request(method, path, body, {"Cookie": cookie})
            looks = lambda at, cookie: ask(at, "GET", "/api/names", cookie=cookie)[0]
            login = lambda at: ask(at, "POST", "/login", "name=ann&password=secret")[2].getheader("Set-Cookie").split(";")[0]
            with running(*options, folder=store) as first, running(*options) as second, running("--users", users) as stranger:
                ended, kept = login(first), login(first)
                number, until, *rest = kept.split(".")
                self.assertEqual(ask(first, "POST", "/logout", "", ended)[0], 303)
                for what, at, cookie, expected in [
                        ("here", first, kept, 200), ("elsewhere", second, kept, 200), ("without the secret", stranger, kept, 401),
                        ("ended", first, ended, 401), ("longer", first, ".".join([number, "9" + until, *rest]), 401),
                        ("no signature", first, ".".join([number, until, rest[0]]), 401), ("cut", first, kept[:-1], 401)]:
                    with self.subTest(what):
                        self.assertEqual(looks(at, cookie), expected)
            with running(*options, folder=store) as again:
                self.assertEqual((looks(again, kept), looks(again, ended)), (200, 401))
                run("user", "add", "ann", "--users", users, given="another\n")
                wait_until(lambda: looks(again, kept) == 401)


class Commands(unittest.TestCase):
    def test_work_beside_the_server(self):
        with tempfile.TemporaryDirectory() as folder, running() as collector:
            log = os.path.join(folder, "events.log")
            one = "6f1c2a90-3b7e-4d25-9a61-0c4e8b7d2f13"
            first = "\n".join([line("a", installation=one), "no event", ""])
            second = first + line("b", installation=one) + "\n"
            long = second + (line("c", '{ "text": "' + "x" * 1000 + '" }', one) + "\n") * 9000  # read in three parts
            for text, expected in [(first, "1 events, 0 known before, 1 l"), (second, "1 events, 2 known before, 0 l"),
                                   (long[:-9], "8999 events, 3 known before, 1 l"), (long, "1 events, 9002 known before, 0 l"),
                                   (long, "0 events, 9003 known before, 0 l"), (first, "0 events, 2 known before, 0 l")]:
                with open(log, "w", encoding="utf-8") as file:
                    file.write(text)
                self.assertIn(expected, run("import", log, "--store", collector.store).stdout)
            self.assertEqual([row["name"] for row in collector.export("--name", "b")], ["b"])
            self.assertIn("b", run("report", "--from", "2026-11-20", "--to", "2026-11-21", "--store", collector.store).stdout)
            self.assertEqual(run("forget", one, "--store", collector.store).returncode, 0)
            self.assertEqual(collector.export(), [])
            for file in os.listdir(os.path.dirname(collector.store)):
                with open(os.path.join(os.path.dirname(collector.store), file), "rb") as content:
                    self.assertNotIn(one.encode(), content.read(), file)
            copy = os.path.join(folder, "copy.db")
            self.assertEqual(run("backup", copy, "--store", collector.store).returncode, 0)
            self.assertEqual(run("backup", copy, "--store", collector.store).returncode, 1)
            self.assertEqual(run("import", os.path.join(folder, "none"), "--store", collector.store).returncode, 1)
            self.assertEqual(run("export", "--store", os.path.join(folder, "none.db")).returncode, 1)
            for wrong in [["--from", "2026-02-30"], ["--from", "2026-11-22", "--to", "2026-11-21"], ["--format", "xml"]]:
                self.assertEqual(run("export", "--store", collector.store, *wrong).returncode, 2, wrong)


if __name__ == "__main__":
    unittest.main()
