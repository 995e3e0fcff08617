#!/usr/bin/env python3
"""The layer rule of tools/layers.txt: an include goes down or stays in its room, and never comes round. Also: what a host includes pulls in
no library of a third party, and which operating system it is asked nowhere but in the folders that stand for one."""
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SYSTEM = re.compile(r'^\s*#.*\b(__linux__|__linux|__APPLE__|__MACH__|_WIN32)\b')
NOT_INSTALLED = re.compile(r"/(own|platform)/")
THIRD_PARTY = re.compile(r"^(curl|openssl)/")
SOURCE_ROOTS = ["inc", "sdk/src", "tests", "cli", "collector", "examples", "."]


def noun_of(path):
    """A header and its source are one noun, wherever they stand."""
    return re.sub(r"\.(h|c|cpp)$", "", path).replace("inc/AnalyticsSDK/", "sdk/src/")


class Rooms:
    """The rooms of tools/layers.txt: a rank each, and those of the same rank that it may include."""

    def __init__(self):
        self.lines, self.places, self.halves = [], [], []
        for line in open("tools/layers.txt", encoding="utf-8"):
            if line.startswith("one "):
                self.halves.append(set(line.split()[1:]))
            elif line.strip() and not line.startswith("#"):
                self.add(*(part.split() for part in (line + " >").split(">")[:2]))

    def add(self, words, sideways):
        self.lines.append((int(words[0]), sideways))
        for room in words[1:]:
            self.places.append((room if "/" in room else f"sdk/src/{room}", len(self.lines) - 1))

    def of(self, path):
        """The number of the room's line; a noun or file by its name goes before the folder that it stands in."""
        found = [(len(place), line) for place, line in self.places
                 if place in (path, noun_of(path)) or (place.endswith("/") and path.startswith(place))]
        return max(found)[1] if found else None

    def may_include(self, source, target):
        (own, sideways), (other, _) = self.lines[source], self.lines[target]
        named = {self.of(room + "x") for room in sideways}
        return other < own or source == target or (other == own and target in named)

    def is_one(self, nouns):
        return any(set(nouns) <= halves for halves in self.halves)


def resolve(included, source, files):
    beside = source.rsplit("/", 1)[0] if "/" in source else "."
    for root in [beside] + SOURCE_ROOTS:
        candidate = included if root == "." else f"{root}/{included}"
        if candidate in files:
            return candidate
    return None


def circles(graph, rooms):
    """Nouns that need each other, by way of others too: those that reach each other."""
    reached = {}
    for noun in graph:
        reached[noun], rest = set(), [noun]
        while rest:
            for other in graph.get(rest.pop(), ()):
                if other not in reached[noun]:
                    reached[noun].add(other)
                    rest.append(other)
    rings = {frozenset(other for other in reached[noun] if noun in reached.get(other, ())) for noun in graph}
    return ["an include circle: " + ", ".join(sorted(ring)) for ring in rings if len(ring) > 1 and not rooms.is_one(ring)]


def faults_of(source, rooms, files, graph):
    own = rooms.of(source)
    if own is None:
        yield f"{source}: has no layer; give it one in tools/layers.txt"
        return
    public = source.startswith("inc/") and source.endswith((".h", ".hpp")) and not NOT_INSTALLED.search(source)
    for number, line in enumerate(open(source, encoding="utf-8"), 1):
        where = f"{source}:{number}"
        if SYSTEM.match(line) and source.startswith(("inc/", "sdk/")):
            yield f"{where}: asks which system it is; that belongs into a folder per system"
        included = INCLUDE.match(line)
        if not included:
            continue
        name = included.group(2)
        if public and THIRD_PARTY.match(name):
            yield f"{where}: a host must not need the headers of {name.split('/')[0]}"
        target = resolve(name, source, files)
        if target is None:
            if included.group(1) == '"':
                yield f"{where}: includes {name}, which is not ours; write <{name}>"
            continue
        if source.startswith("inc/") and target.startswith("sdk/"):
            yield f"{where}: nothing under inc/ may know {target}"
        elif public and NOT_INSTALLED.search(target):
            yield f"{where}: {target} is not installed, so no public header may include it"
        elif rooms.of(target) is not None and not rooms.may_include(own, rooms.of(target)):
            yield f"{where}: includes {target}, which is above it or another room of its rank"
        if noun_of(target) != noun_of(source):
            graph.setdefault(noun_of(source), set()).add(noun_of(target))


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], check=True, capture_output=True, text=True)
    files = {name for name in listed.stdout.split("\n") if name.endswith((".h", ".hpp", ".c", ".cpp"))}
    rooms, graph = Rooms(), {}
    faults = [fault for source in sorted(files) for fault in faults_of(source, rooms, files, graph)]
    faults += circles(graph, rooms)
    ranks = len({rank for rank, _ in rooms.lines})
    print("\n".join(faults) if faults else f"{len(files)} files in {len(rooms.lines)} rooms of {ranks} ranks, no circle")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
