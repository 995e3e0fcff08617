#!/usr/bin/env python3
"""A cluster to develop and test against: ZooKeeper and shards of replicas, on loopback, from a folder of its own.

    nodes.py start --shards 1 --replicas 2 FOLDER    prints the store's address, without a database's name
    nodes.py kill|stop-node|run|wipe|hang|wake FOLDER NODE    NODE: zookeeper, s1r1, s1r2, s2r1, ...
    nodes.py stop FOLDER

What it started ends with `stop`, after --for seconds, with the process that --with names, and whenever the keeper, the
process behind `start`, ends for another reason. The keeper starts a node again that dies without being told to.
FOLDER/cluster.json says all ports, FOLDER/address the address, FOLDER/password what the user `analytics` needs (`default`
needs none)."""
import argparse
import http.client
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import config  # noqa: E402 (the path comes first)
from process import Process, free_ports, program, wait_until  # noqa: E402


NODE_WORDS = ("kill", "stop-node", "run", "wipe", "hang", "wake")


def serves(port):
    """Whether ZooKeeper takes sessions; it answers "imok" to "ruok" before it does."""
    try:
        with socket.create_connection(("127.0.0.1", port), timeout=2) as stream:
            stream.sendall(b"mntr")
            return b"zk_version" in stream.recv(100)
    except OSError:
        return False


def http_get(port, path):
    """The status and the text, 0 when nobody answers."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=5)
    try:
        connection.request("GET", path)
        answer = connection.getresponse()
        return answer.status, answer.read().decode("utf-8", "replace")
    except (OSError, http.client.HTTPException):
        return 0, ""
    finally:
        connection.close()


def synced(folder):
    """The volume's dirty pages reach the device: a start deletes what a merge left behind, whose result may be in memory
    alone."""
    os.makedirs(folder, exist_ok=True)
    subprocess.run(["sync", "-f", folder], check=True)


class Nodes:
    """ZooKeeper and the nodes of a folder; not running yet."""

    def __init__(self, folder, shards, replicas):
        self.folder = os.path.abspath(folder)
        names = [f"s{s}r{r}" for s in range(1, shards + 1) for r in range(1, replicas + 1)]
        self.plan = self.read_plan() or self.write_plan(names)
        port = self.plan["zookeeper"]
        words = config.zookeeper(self.place("zookeeper"), port)
        words[0] = program(words[0])
        self.all = {"zookeeper": self.process("zookeeper", words, lambda: serves(port))}
        for one in self.plan["nodes"]:
            words = config.node(self.place(one["name"]), one["ports"], port)
            words[0] = program(words[0])
            self.all[one["name"]] = self.process(one["name"], words, lambda p=one["ports"][0]: http_get(p, "/ping")[0] == 200)

    def place(self, name):
        return os.path.join(self.folder, name)

    def process(self, name, words, ready):
        return Process(name, words, self.place(name) + "/out", ready, lambda: synced(self.place(name) + "/data"))

    def read_plan(self):
        try:
            with open(self.place("cluster.json"), encoding="utf-8") as file:
                return json.load(file)
        except FileNotFoundError:
            return None

    def write_plan(self, names):
        ports = free_ports(1 + 3 * len(names))
        nodes = [{"name": name, "shard": int(name[1:].split("r")[0]), "ports": ports[1 + 3 * i:4 + 3 * i]}
                 for i, name in enumerate(names)]
        plan = {"zookeeper": ports[0], "nodes": nodes}
        config.write(self.place("cluster.json"), json.dumps(plan, indent=1))
        config.write(self.place("password"), config.PASSWORD + "\n")
        return plan

    def address(self, user=""):
        shards = {}
        for one in self.plan["nodes"]:
            shards.setdefault(one["shard"], []).append(f"127.0.0.1:{one['ports'][0]}")
        return f"clickhouse://{user}" + "+".join(",".join(nodes) for nodes in shards.values())

    def http_port(self, name):
        return next(one["ports"][0] for one in self.plan["nodes"] if one["name"] == name)

    def start(self):
        """ZooKeeper first: a node that finds none when it starts ends."""
        for one in self.all.values():
            one.start()

    def stop(self):
        for one in reversed(self.all.values()):
            one.wanted = False
            if one.alive():
                one.child.terminate()
        for one in reversed(self.all.values()):
            one.stop()

    def kill(self):
        for one in self.all.values():
            one.kill()

    def wipe(self, name):
        """Its disk is lost for ever: what it held is gone, what the machine is told to be stays."""
        self.all[name].kill()
        shutil.rmtree(self.place(name) + "/data", ignore_errors=True)

    def revive(self):
        """Starts what died without being told to."""
        for one in self.all.values():
            one.revive()


class Keeper:
    """The process behind `start`: all nodes are its children. Takes one command a connection at FOLDER/control."""

    def __init__(self, nodes, seconds, owner):
        self.nodes, self.end = nodes, time.monotonic() + seconds
        self.owner = [os.pidfd_open(owner)] if owner else []  # readable when that process has ended
        self.commands = {"kill": lambda name: nodes.all[name].kill(), "run": lambda name: nodes.all[name].start(),
                         "stop-node": lambda name: nodes.all[name].stop(), "wipe": nodes.wipe,
                         "hang": lambda name: nodes.all[name].hang(), "wake": lambda name: nodes.all[name].wake()}

    def answer(self, stream):
        stream.settimeout(5)
        try:
            word, _, name = stream.recv(200).decode().partition(" ")
            if word in self.commands and name in self.nodes.all:
                self.commands[word](name)
                stream.sendall(b"done")
            else:
                stream.sendall(f"no such command or node: {word} {name}".encode())
        except (OSError, RuntimeError) as error:
            print(error, flush=True)

    def run(self):
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
        with socket.socket(socket.AF_UNIX) as door:
            try:
                os.chdir(self.nodes.folder)  # the name of a socket has 107 bytes at most
                door.bind("control")
                door.listen()
                self.nodes.start()
                config.write(self.nodes.place("address"), self.nodes.address() + "\n")
                while time.monotonic() < self.end:
                    ready = select.select([door, *self.owner], [], [], 0.5)[0]
                    if self.owner and self.owner[0] in ready:
                        break
                    if not ready:
                        self.nodes.revive()
                        continue
                    with door.accept()[0] as stream:
                        self.answer(stream)
            finally:
                self.nodes.stop()
                os.remove("control")


def keeper_pid(folder):
    """The keeper's process while it lives. A number alone could be another's by now: the command line must name the folder."""
    try:
        with open(os.path.join(folder, "keeper"), encoding="ascii") as file:
            pid = int(file.read())
        with open(f"/proc/{pid}/cmdline", "rb") as words:
            return pid if os.path.abspath(folder).encode() in words.read().split(b"\0") else None
    except (OSError, ValueError):
        return None


def start(options):
    folder = os.path.abspath(options.folder)
    stop(options)
    ours = os.path.exists(os.path.join(folder, "cluster.json"))
    if options.fresh and ours:
        shutil.rmtree(folder)
    elif os.path.isdir(folder) and os.listdir(folder) and not ours:
        raise RuntimeError(f"{folder} holds something else")
    os.makedirs(folder, exist_ok=True)
    for name in ("address", "control"):
        if os.path.exists(os.path.join(folder, name)):
            os.remove(os.path.join(folder, name))
    words = [sys.executable, os.path.abspath(__file__), "keep", "--shards", str(options.shards), "--replicas",
             str(options.replicas), "--for", str(options.seconds), "--with", str(options.owner), folder]
    with open(os.path.join(folder, "keeper.log"), "ab") as log:
        keeper = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
    config.write(os.path.join(folder, "keeper"), str(keeper.pid))
    address = os.path.join(folder, "address")
    wait_until(lambda: os.path.exists(address) or keeper.poll() is not None, "the nodes come up", 120)
    if keeper.poll() is not None:
        with open(os.path.join(folder, "keeper.log"), encoding="utf-8") as log:
            raise RuntimeError(log.read().strip().split("\n")[-1])
    with open(address, encoding="ascii") as file:
        print(file.read(), end="")


def stop(options):
    pid = keeper_pid(options.folder)
    if pid:
        os.kill(pid, signal.SIGTERM)
        wait_until(lambda: keeper_pid(options.folder) != pid, "the nodes end", 60)


def keep(options):
    Keeper(Nodes(options.folder, options.shards, options.replicas), options.seconds, options.owner).run()


def command(options):
    os.chdir(options.folder)
    with socket.socket(socket.AF_UNIX) as stream:
        stream.settimeout(120)
        stream.connect("control")
        stream.sendall(f"{options.word} {options.node}".encode())
        answer = stream.recv(1000).decode()
    if answer != "done":
        raise RuntimeError(answer or f"see {options.folder}/keeper.log")


def main():
    words = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parts = words.add_subparsers(dest="word", required=True)
    for word, action in {"start": start, "keep": keep}.items():
        part = parts.add_parser(word)
        part.add_argument("--shards", type=int, default=2)
        part.add_argument("--replicas", type=int, default=2)
        part.add_argument("--fresh", action="store_true", help="forgets what an earlier cluster left in FOLDER")
        part.add_argument("--for", type=float, default=10800, dest="seconds", help="ends by itself after as many seconds")
        part.add_argument("--with", type=int, default=0, dest="owner", metavar="PID", help="ends with this process")
        part.set_defaults(action=action)
    parts.add_parser("stop").set_defaults(action=stop)
    for word in NODE_WORDS:
        parts.add_parser(word).set_defaults(action=command)
    for word, part in parts.choices.items():
        part.add_argument("folder", metavar="FOLDER")
        if word in NODE_WORDS:
            part.add_argument("node", metavar="NODE")
    options = words.parse_args()
    try:
        options.action(options)
    except (OSError, RuntimeError) as error:
        sys.exit(f"nodes.py: {error}")


if __name__ == "__main__":
    main()
