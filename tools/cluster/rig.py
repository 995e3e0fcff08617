"""Everything that a cluster of collectors is, in one folder: nodes, collectors, HAProxy, and the disks beneath them."""
import json
import os
import re
import signal
import subprocess
import time

import config
from nodes import Nodes, http_get
from process import Process, free_ports, program
from volumes import Volume

DATABASE = "analytics"
DEPLOY = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "collector", "deploy")
FREE = ["--rate-address", "0", "--rate-installation", "0", "--connections-address", "0", "--disk-reserve", "0"]


class Rig:
    def __init__(self, program_file, folder, shards, collectors, keep, disks=False):
        """`collectors`: the options of each by its name. `disks`: each machine gets one of its own, which can be lost or cut
        off from power."""
        self.folder, self.program, self.keep = folder, program_file, keep
        self.nodes = Nodes(folder, shards, replicas=2)
        self.store = f"{self.nodes.address()}/{DATABASE}"
        self.front, *ports = free_ports(1 + 2 * len(collectors))
        self.ports = {name: (ports[2 * i], ports[2 * i + 1]) for i, name in enumerate(collectors)}
        self.key = self.new_key()
        self.collectors = {name: self.collector(name, options) for name, options in collectors.items()}
        self.haproxy = self.front_server()
        self.volumes = {name: Volume(f"{folder}/{name}.img", self.disk(name)) for name in self.room()} if disks else {}

    def room(self):
        """Whose power goes at once: nodes, ZooKeeper, collectors."""
        return {**self.nodes.all, **self.collectors}

    def all(self):
        return {**self.room(), "haproxy": self.haproxy}

    def place(self, name):
        return os.path.join(self.folder, name)

    def disk(self, name):
        return self.place(name) + "/data"

    def command(self, *words):
        done = subprocess.run([self.program, *words], capture_output=True, text=True, timeout=300, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"analytics-collector {' '.join(words)}: {done.returncode}: {(done.stderr + done.stdout).strip()}")
        return done.stdout

    def new_key(self):
        return self.command("key", "new", "host", "--keys", self.place("keys")).split()[-1]

    def url(self):
        return f"http://127.0.0.1:{self.front}/u/{self.key}"

    def collector(self, name, options):
        uploads, page = self.ports[name]
        os.makedirs(self.place(name), exist_ok=True)
        words = [self.program, "serve", "--store", self.store, "--spool", self.disk(name) + "/spool.db", "--keep", str(self.keep),
                 "--listen", f"127.0.0.1:{uploads}", "--page", f"127.0.0.1:{page}", "--keys", self.place("keys"),
                 "--proxy", "127.0.0.1", *FREE, *options]
        return Process(name, words, self.place(name) + "/out", lambda: http_get(uploads, "/healthz")[0] != 0,
                       lambda: os.makedirs(self.disk(name), exist_ok=True))

    def front_server(self):
        """As deployed, but for addresses and the certificate."""
        with open(os.path.join(DEPLOY, "haproxy-cluster.cfg"), encoding="utf-8") as file:
            text = file.read()
        text = re.sub(r"bind .*", f"bind 127.0.0.1:{self.front}", text)
        text = re.sub(r"\n    server .*", "", text)
        text += "".join(f"    server {name} 127.0.0.1:{ports[0]}\n" for name, ports in self.ports.items())
        words = [program("haproxy"), "-db", "-f", config.write(self.place("haproxy/haproxy.cfg"), text)]
        return Process("haproxy", words, self.place("haproxy") + "/out", lambda: http_get(self.front, "/healthz")[0] != 0)

    def start(self):
        for volume in self.volumes.values():
            volume.make()
        self.nodes.start()
        self.command("cluster", "init", "--store", self.store)
        for one in [*self.collectors.values(), self.haproxy]:
            one.start()

    def stop(self):
        for one in reversed(self.all().values()):
            one.kill()
        for volume in self.volumes.values():
            volume.unmount()

    def status(self, collector):
        """What `cluster status` says about the nodes and the spool of one machine."""
        done = subprocess.run([self.program, "cluster", "status", "--json", "--store", self.store, "--spool",
                               self.disk(collector) + "/spool.db"], capture_output=True, text=True, timeout=60, check=False)
        try:
            return json.loads(done.stdout)
        except ValueError:
            raise RuntimeError(f"cluster status: {done.stderr.strip()}") from None

    def unchecked(self):
        """What is not yet known to be on both replicas' disks, on all collectors' machines."""
        spools = [self.status(name)["spool"] for name in self.collectors]
        return sum(one["blocks_waiting"] + one["groups_unchecked"] + one["lines_aside"] for one in spools)

    def cut_connections(self, port):
        """Ends every connection to a port, on both sides, at once."""
        subprocess.run([program("ss"), "-K", "-t", f"( sport = :{port} or dport = :{port} )"], capture_output=True, check=True)

    def cut_power(self):
        """What the room's disks hold at one moment is all that is left of it; gives how long it was dark."""
        begun = time.monotonic()
        for one in self.room().values():
            os.kill(one.child.pid, signal.SIGSTOP)
        for volume in self.volumes.values():
            volume.photograph()
        for one in self.room().values():
            one.kill()
        for volume in self.volumes.values():
            volume.go_on_from_photograph()
        for one in self.room().values():
            one.start()
        return time.monotonic() - begun

    def lose_disk(self, name):
        """The machine comes back with an empty disk."""
        one = self.room()[name]
        one.kill()
        self.volumes[name].replace()
        one.start()
        if name in self.nodes.all:
            self.command("cluster", "init", "--store", self.store)
