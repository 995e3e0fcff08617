#!/usr/bin/env python3
"""Two collectors over one cluster, and what its commands say. CLUSTER: the folder of running nodes."""
import http.client
import json
import os
import tempfile
import time
import unittest
import urllib.request

from collector import form, line, run, running, wait_until

CLUSTER = os.environ["CLUSTER"]


def text_of(name):
    with open(os.path.join(CLUSTER, name), encoding="utf-8") as file:
        return file.read().strip()


class Cluster(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.database = f"commands_{os.getpid()}_{time.monotonic_ns()}"
        self.store = f"{text_of('address')}/{self.database}"
        self.ports = [node["ports"][0] for node in json.loads(text_of("cluster.json"))["nodes"]]
        self.assertEqual(run("cluster", "init", "--store", self.store).returncode, 0)

    def tearDown(self):
        for port in self.ports:
            self.tell(port, f"DROP DATABASE {self.database}")

    def file(self, name):
        return os.path.join(self.folder, name)

    def tell(self, port, statement):
        urllib.request.urlopen(f"http://127.0.0.1:{port}/?database={self.database}", statement.encode()).close()

    def test_logins_and_live_events_are_those_of_all_collectors(self):
        run("user", "add", "ann", "--users", self.file("users"), given="secret\n")
        run("secret", "new", self.file("secret"))
        options = ["--store", self.store, "--users", self.file("users"), "--secret", self.file("secret")]
        with running(*options, "--spool", self.file("1")) as here, running(*options, "--spool", self.file("2")) as there:
            cookie = here.request("POST", "/login", "name=ann&password=secret")[2].getheader("Set-Cookie").split(";")[0]
            looks = lambda: there.request("GET", "/api/names", headers={"Cookie": cookie})[0]
            self.assertEqual(looks(), 200)
            live = http.client.HTTPConnection("127.0.0.1", there.port, timeout=30)
            live.request("GET", "/api/live", headers={"Cookie": cookie})
            stream = live.getresponse()
            self.assertEqual(stream.readline(), b": open\n")
            self.assertEqual(here.upload(form(line("elsewhere"))), 200)
            wait_until(lambda: b'"elsewhere"' in stream.readline())
            live.close()
            here.request("POST", "/logout", "", {"Cookie": cookie})
            wait_until(lambda: looks() == 401, 5)

    def test_status_names_what_is_wrong(self):
        with open(self.file("password"), "w", encoding="utf-8") as file:
            file.write("wrong\n")
        self.tell(self.ports[0], "DROP TABLE logouts")
        stranger = self.store.replace("//", "//analytics@")
        for what, words, sentence in [("a table", [], "tables are missing (logouts)"), ("the database", ["none"], "the database is missing"),
                                      ("the password", ["--cluster-password", self.file("password")], "the password is wrong"),
                                      ("nothing", [], "nothing is wrong")]:
            with self.subTest(what):
                address = self.store + words.pop() if words == ["none"] else stranger if words else self.store
                said = run("cluster", "status", "--store", address, "--spool", self.file("none"), *words)
                self.assertIn(sentence, said.stdout)
                self.assertEqual(said.returncode, 0 if what == "nothing" else 1)
                self.assertEqual(run("cluster", "init", "--store", self.store).returncode, 0) # mends the first

    def test_check_tells_which_lines_a_replica_lacks(self):
        with open(self.file("log"), "w", encoding="utf-8") as file:
            file.write(line("a", installation="i1") + "\n" + line("b", installation="i1") + "\n")
        run("import", self.file("log"), "--store", self.file("events.db"))
        move = lambda: run("cluster", "move", "--from", self.file("events.db"), "--store", self.store)
        check = lambda: run("cluster", "check", "--store", self.store, "--from", "2026-11-20", "--to", "2026-11-21")
        self.assertEqual((move().returncode, move().stdout[:6], check().returncode), (0, "sent 0", 0))
        for port in self.ports[1::2]:
            self.tell(port, "SYSTEM STOP FETCHES events")
        for port in self.ports[::2]:
            self.tell(port, "INSERT INTO events (application, installation, line, hour, week, logged) SELECT application, "
                            "installation, 7, hour, week, logged FROM events LIMIT 1")
        found = check()
        for port in self.ports[1::2]:
            self.tell(port, "SYSTEM START FETCHES events")
        self.assertIn("lacks 1, the first: installation i1, batch 00000000000000000000000000000000, line 7", found.stdout)
        self.assertEqual(found.returncode, 1)


if __name__ == "__main__":
    unittest.main()
