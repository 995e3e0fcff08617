#!/usr/bin/env python3
"""SECONDS: collectors over a cluster under load, kills and losses; ends with 1 unless every event is counted once.

Hosts log and deliver for SECONDS while everything is killed and started again at random and connections are cut. Then,
each at work and each followed by a rest until nothing is unchecked: a cut of power for the whole room, a replica's disk
lost for ever, a collector's disk lost for ever. With --small: one shard, one collector, one kill of each, no disks."""
import argparse
import collections
import datetime
import os
import random
import shutil
import signal
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import counting  # noqa: E402 (the path comes first)
import volumes  # noqa: E402
from hosts import Host  # noqa: E402
from nodes import http_get  # noqa: E402
from process import wait_until  # noqa: E402
from rig import DATABASE, Rig  # noqa: E402

LOAD = 25  # seconds of work before a disk is lost, longer than the page cache keeps most of what is new


class Run:
    def __init__(self, options):
        self.options, self.begun = options, time.monotonic()
        self.folder = os.path.abspath(options.folder)
        self.findings, self.skipped, self.faults = [], [], collections.Counter()
        self.clear()
        os.makedirs(self.folder)
        self.no_disks = "not wanted" if options.small else volumes.can_mount(self.folder)
        collectors = {"collector1": []} if options.small else {"collector1": [], "collector2": []}
        self.rig = Rig(os.path.join(options.build, "collector", "analytics-collector"), self.folder,
                       1 if options.small else 2, collectors, options.keep, disks=not self.no_disks)
        self.hosts = [self.host(number) for number in range(1, (4 if options.small else 8) + 1)]

    def clear(self):
        """What an earlier run left when it was killed."""
        with open("/proc/mounts", encoding="utf-8") as mounts:
            left = [row.split()[1] for row in mounts if row.split()[1].startswith(self.folder + "/")]
        for place in left:
            subprocess.run(["umount", place], check=True)
        shutil.rmtree(self.folder, ignore_errors=True)

    def host(self, number):
        """By turns in batches and as whole files; the last two live two days ago, so that closed days get late rows."""
        shift = "-2d" if number > (2 if self.options.small else 6) else ""
        command = os.path.join(self.options.build, "tests", "hosts", "cluster_host")
        way = "batches" if number % 2 else "whole"
        return Host(command, f"{self.folder}/hosts/host-{number}", self.rig.url(), way, self.options.apart, shift)

    def say(self, text):
        print(f"{time.monotonic() - self.begun:5.0f} s  {text}", flush=True)

    def find(self, text):
        self.findings.append(text)
        self.say(f"FINDING: {text}")

    def skip(self, text):
        """Not to be taken for passed: the whole run fails, the small one says that it left something out."""
        if self.options.small:
            self.skipped.append(text)
            print(f"{__file__}: Skipped\n{text}\n[  SKIPPED ] Cluster.Kills", flush=True)
        else:
            self.find(text)

    def restart(self, name):
        one = self.rig.all()[name]
        one.kill()
        time.sleep(random.uniform(0.3, 4))
        one.start()

    def restart_host(self, host):
        host.kill()
        host.start()

    def cut(self, name):
        """The connections of a collector, a node or the front server; its process lives on."""
        ports = {**{key: pair[0] for key, pair in self.rig.ports.items()}, "haproxy": self.rig.front,
                 **{one["name"]: one["ports"][0] for one in self.rig.nodes.plan["nodes"]}}
        self.rig.cut_connections(ports.get(name, self.rig.nodes.plan["zookeeper"]))

    def each_fault(self):
        """One fault of every kind, in any order."""
        faults = [(f"kill {name}", self.restart, name) for name in self.rig.all()]
        faults += [("kill a host", self.restart_host, host) for host in self.hosts]
        faults += [(f"cut {name}", self.cut, name) for name in self.rig.all()] if os.geteuid() == 0 else []
        random.shuffle(faults)
        return faults

    def work(self, seconds, faulty=False):
        """Hosts log and deliver, for so long and until every fault was played as often as any other."""
        end, faults = time.monotonic() + seconds, self.each_fault() if faulty else []
        while time.monotonic() < end or faults:
            if faulty and not faults and not self.options.small:
                faults = self.each_fault()
            if faults:
                what, action, target = faults.pop()
                action(target)
                self.faults[what] += 1
                self.say(what)
            time.sleep(random.uniform(0.3, 2))
            self.look_for_the_dead()

    def look_for_the_dead(self):
        for name, one in [*self.rig.all().items(), *((host.name, host.process) for host in self.hosts)]:
            if one.wanted and not one.alive():
                self.find(f"{name} ended by itself: {one.child.returncode}")
                one.revive()

    def rest(self):
        """Hosts stop logging and deliver what they have; then until `cluster status` shows nothing unchecked."""
        for host in self.hosts:
            host.kill()
        for host in self.hosts:
            host.deliver()
        wait_until(lambda: all(not host.process.alive() for host in self.hosts), "hosts deliver all", 180)
        for host in self.hosts:
            if host.process.child.returncode != 0:
                self.find(f"{host.name} could not deliver: {host.process.child.returncode}")
            host.process.wanted = False
        self.say("all is delivered")
        wait_until(lambda: self.rig.unchecked() == 0, "nothing is unchecked", 10 * self.options.keep + 300)
        self.say("at rest: nothing is unchecked")

    def resume(self):
        for host in self.hosts:
            host.start()

    def lose(self):
        """The three losses, each at work and each healed before the next."""
        steps = [("the power of the room is cut", self.rig.cut_power),
                 ("the disk of s1r2 is lost", lambda: self.rig.lose_disk("s1r2")),
                 ("the disk of collector1 is lost", lambda: self.rig.lose_disk("collector1"))]
        for what, action in steps:
            self.resume()
            self.work(LOAD)
            self.say(what)
            action()
            self.faults[what] += 1
            self.say("all run again")
            self.work(5)
            self.rest()

    def show_status(self):
        """What somebody would have to see to; that a replica fetches for minutes after a loss is no fault."""
        for name in self.rig.collectors:
            for text in self.rig.status(name)["findings"]:
                self.say(f"cluster status of {name}: {text}")

    def count(self):
        today = datetime.datetime.now(datetime.timezone.utc).date()
        tallies = counting.from_nodes(self.rig.nodes, self.hosts, DATABASE)
        for _, page in self.rig.ports.values():
            tallies += counting.from_page(page, self.hosts, tallies[0], today - datetime.timedelta(7),
                                          today + datetime.timedelta(1))
        if not counting.show(tallies):
            self.findings.append("events were lost or doubled")

    def go(self):
        self.rig.start()
        self.say(f"{len(self.rig.all())} programs run")
        if os.geteuid() != 0:
            self.skip("connections cannot be cut: only root may")
        self.resume()
        self.work(self.options.seconds, faulty=True)
        self.rest()
        if not self.options.small and self.no_disks:
            self.find(f"no disk can be lost here, nor power be cut: {self.no_disks}")
        elif not self.options.small:
            self.lose()
        self.show_status()
        self.say(", ".join(f"{what}: {count}" for what, count in sorted(self.faults.items())))
        self.count()

    def stop(self):
        for host in self.hosts:
            if host.process:
                host.kill()
        self.rig.stop()
        for volume in self.rig.volumes.values():
            volume.remove()


def main():
    words = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    words.add_argument("seconds", type=float, metavar="SECONDS")
    words.add_argument("--build", default="build/release", help="where the collector and the hosts were built")
    words.add_argument("--folder", default="build/cluster", help="a scratch folder; what it held is removed")
    words.add_argument("--small", action="store_true")
    words.add_argument("--keep", type=int, help="the collectors' --keep; 60, small: 3")
    words.add_argument("--apart", type=int, default=8000, help="microseconds between a host's events")
    words.add_argument("--seed", type=int, default=int.from_bytes(os.urandom(4), "big"))
    options = words.parse_args()
    options.keep = options.keep or (3 if options.small else 60)
    random.seed(options.seed)
    print(f"seed {options.seed}, folder {options.folder}")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    run = Run(options)
    try:
        run.go()
    except (OSError, RuntimeError, subprocess.SubprocessError) as error:
        run.find(str(error))
    finally:
        run.stop()
    if run.findings:
        print("\n".join(["found:", *run.findings, f"logs are in {options.folder}"]))
    sys.exit(1 if run.findings else 77 if run.skipped else 0)


if __name__ == "__main__":
    main()
