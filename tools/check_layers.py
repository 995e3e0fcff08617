#!/usr/bin/env python3
"""The layer rule of tools/layers.txt: an include goes down or sideways, never up. Also: what a host includes pulls in
no library of a third party, and which operating system it is asked nowhere but in the folders that stand for one."""
import re
import subprocess
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SYSTEM = re.compile(r'^\s*#.*\b(__linux__|__linux|__APPLE__|__MACH__|_WIN32)\b')
NOT_INSTALLED = re.compile(r"/(own|platform)/")
THIRD_PARTY = re.compile(r"^(curl|openssl)/")
SOURCE_ROOTS = ["inc", "sdk/src", "tests", "cli", "collector", "examples", "."]


def read_ranks():
    ranks = []
    for line in open("tools/layers.txt", encoding="utf-8"):
        if line.strip() and not line.startswith("#"):
            rank, path = line.split()
            ranks.append((path, int(rank)))
    return sorted(ranks, key=lambda entry: -len(entry[0]))


def rank_of(path, ranks):
    for prefix, rank in ranks:
        if path == prefix or (prefix.endswith("/") and path.startswith(prefix)):
            return rank
    return None


def resolve(included, source, files):
    beside = source.rsplit("/", 1)[0] if "/" in source else "."
    for root in [beside] + SOURCE_ROOTS:
        candidate = included if root == "." else f"{root}/{included}"
        if candidate in files:
            return candidate
    return None


def faults_of(source, ranks, files):
    own = rank_of(source, ranks)
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
        elif (rank_of(target, ranks) or 0) > own:
            yield f"{where}: includes {target}, which is above it"


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], check=True, capture_output=True, text=True)
    files = {name for name in listed.stdout.split("\n") if name.endswith((".h", ".hpp", ".c", ".cpp"))}
    ranks = read_ranks()
    faults = [fault for source in sorted(files) for fault in faults_of(source, ranks, files)]
    print("\n".join(faults) if faults else f"{len(files)} files, {len({rank for _, rank in ranks})} layers")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
