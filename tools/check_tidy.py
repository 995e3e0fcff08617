#!/usr/bin/env python3
"""check_tidy.py BUILD: clang-tidy over the sources of the library and of the command. A source that
passed is not looked at again until it, a header of ours that it includes, a .clang-tidy or clang-tidy itself changes."""
import hashlib
import json
import os
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

ROOT = os.getcwd()
JUDGED = re.compile(r"\b(analytics_objects|analytics_command)\.dir\b")
# Clang 14 does not know the coroutines of GCC's library, so it cannot read these.
COROUTINES = re.compile(r"\bco_(?:await|return|yield)\b")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def headers_by_source(build):
    """What ninja learned from the compiler while building: source -> the files of ours that it is made of."""
    made_of = {}
    for block in output_of("ninja", "-C", build, "-t", "deps").split("\n\n"):
        paths = [os.path.normpath(os.path.join(ROOT, build, line.strip())) for line in block.split("\n")[1:]]
        ours = [path for path in paths if path.startswith(ROOT + "/")]
        if ours and JUDGED.search(block.split("\n")[0]):
            made_of[ours[0]] = ours
    return made_of


def fingerprint(paths, settings):
    digest = hashlib.sha256(settings)
    for path in sorted(paths):
        with open(path, "rb") as file:
            digest.update(path.encode() + file.read())
    return digest.hexdigest()


def main():
    build = sys.argv[1]
    passed_folder = f"{build}/tidy"
    os.makedirs(passed_folder, exist_ok=True)
    settings = output_of("clang-tidy", "--version").encode()
    ours = output_of("git", "ls-files", "-co", "--exclude-standard").split("\n")
    for name in sorted(name for name in ours if os.path.basename(name) == ".clang-tidy"):
        with open(name, "rb") as file:
            settings += name.encode() + file.read()
    with open(f"{build}/compile_commands.json", encoding="utf-8") as file:
        judged = {entry["file"] for entry in json.load(file) if JUDGED.search(entry["command"])}
    judged = {path for path in judged if os.path.relpath(path, ROOT) in ours}  # not what the build wrote
    listed = {path for path in judged if not COROUTINES.search(open(path, encoding="utf-8").read())}
    made_of = headers_by_source(build)

    def look_at(source):
        stamp = f"{passed_folder}/{fingerprint(made_of.get(source, [source]), settings)}"
        if os.path.exists(stamp):
            return None
        run = subprocess.run(["clang-tidy", "-quiet", "-p", build, source], capture_output=True, text=True)
        if run.returncode == 0:
            open(stamp, "w", encoding="utf-8").close()
            return ""
        # What clang-tidy says about its own work is of no use to anyone.
        return re.sub(r"^\d+ warnings? (generated|treated as errors?).*\n", "", run.stdout, flags=re.M)

    with ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(look_at, sorted(listed)))
    findings = [text for text in results if text]
    looked_at = sum(text is not None for text in results)
    summary = f"{len(results)} sources, {looked_at} of them changed since they last passed"
    print("".join(findings) if findings else f"{summary}; {len(judged - listed)} of coroutines not read")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
