#!/usr/bin/env python3
"""mutate.py [--count N] [--seed TEXT] [--suites A,B] FILE...: breaks a copy of the sources, one small change at a time,
and lists which tests notice. Several files, as the parts of one noun, share the sample.

A test source names a file when it includes its header, itself or by a header of tests/, or says its name in words; the
suites of those sources run, and of --suites. A change that does not compile, or that compiles to the same program, does
not count; nor does more room than is asked for (the argument of reserve), which nothing can show. The choice depends on
the seed and on the text of each line alone, so that it stays while other lines move."""
import argparse
import filecmp
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

TREE = "build/mutate"  # a copy, so that the checkout is never touched
BUILD = f"{TREE}/build/mutate"
ROOMS = ("tova", "lumo", "sdk", "system", "cli", "face")
LEFT_OUT = ("Life",)  # whole runs of hosts: minutes each
MUTANT_LIMIT = 60  # seconds beyond what its tests take without it, for a loop without end
TURNED = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">", "&&": "||", "||": "&&"}
MOVED = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def code_alone(text):
    """The text with comments, strings and directives blanked out: same lines, same columns."""
    tokens = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'|^[ \t]*#(?:\\\n|[^\n])*'
    return re.sub(tokens, lambda token: re.sub(r"[^\n]", " ", token[0]), text, flags=re.S | re.M)


def changes_of(line):
    """Every small change of a line of code as (kind, begin, end, what stands there instead)."""
    for found in re.finditer(r"(?<= )(==|!=|<=|>=|<|>|&&|\|\|)(?= )", line):
        yield "condition turned", *found.span(), TURNED[found[0]]
        if found[0] in MOVED:
            yield "bound moved", *found.span(), MOVED[found[0]]
    for found in re.finditer(r"\b(?:if|while) \((?!const |auto )(.*)\)(?: \{)?$", line):
        yield "condition turned", *found.span(1), f"!({line[found.start(1):found.end(1)]})"
    for found in re.finditer(r"(?<!\breserve\()(?<![\w.'])[\d']+(?![\w.'])", line):
        yield "bound moved", *found.span(), str(int(found[0].replace("'", "")) + 1)
    for found in re.finditer(r"\b(?:true|false)\b", line):
        yield "value turned", *found.span(), "false" if found[0] == "true" else "true"
    for found in re.finditer(r"^\s*(?!return|delete|using|static_assert)((?:static_cast<void>\()?[\w:.>*-]+\(.*\));$", line):
        yield "call left out", *found.span(1), ""
    for found in re.finditer(r"\breturn (?!true|false)([^;]+);", line):
        yield "return replaced", *found.span(1), "{}"
        yield "return replaced", *found.span(1), f"!({found[1]})"


def sample_of(files, seed):
    """Every change of the files, in the order that the seed deals them."""
    dealt = []
    for name in files:
        text = open(os.path.join(TREE, name), encoding="utf-8").read()
        lines, seen = text.split("\n"), {}
        for number, code in enumerate(code_alone(text).split("\n")):
            for kind, begin, end, instead in changes_of(code.rstrip()):
                line = lines[number]
                changed = line[:begin] + instead + line[end:]
                key = f"{seed}\0{line.strip()}\0{changed.strip()}"
                seen[key] = seen.get(key, 0) + 1  # the same line may stand in a file twice
                order = hashlib.sha1(f"{key}\0{seen[key]}".encode()).hexdigest()
                dealt.append((order, name, number, kind, changed))
    return sorted(dealt)


def copy_sources():
    """Brings the copy up to date, touching only what differs: the next build is a short one."""
    wanted = output_of("git", "ls-files", "-co", "--exclude-standard").split("\n")
    for name in filter(os.path.isfile, wanted):
        target = os.path.join(TREE, name)
        if not os.path.exists(target) or not filecmp.cmp(name, target, shallow=False):
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(name, target)
    for folder, _, names in os.walk(TREE):
        if f"{folder}/".startswith(f"{TREE}/build/"):
            continue
        for path in (os.path.join(folder, name) for name in names):
            if os.path.relpath(path, TREE) not in wanted:
                os.remove(path)


def suites_by_program(files, more):
    """Which suites name the files, by the program that holds them."""
    headers = set()
    for name in files:
        stem, end = os.path.splitext(os.path.basename(name))
        first = re.search(r'#include "([^"]+)"', open(name, encoding="utf-8").read())
        headers |= {stem + ".h"} | ({os.path.basename(first[1])} if first and end == ".cpp" else set())
    stems = {os.path.splitext(os.path.basename(name))[0] for name in files}
    words = [stem for stem in stems if "_" in stem or re.search("[a-z][A-Z]", stem)]
    included = re.compile(r'#include "(?:[^"]*/)?(?:' + "|".join(map(re.escape, headers)) + ')"')
    named = re.compile(rf"\b(?:{'|'.join(words)})\b") if words else included
    sources = {name: open(name, encoding="utf-8").read() for name in output_of("git", "ls-files", "-co", "tests").split()
               if name.endswith((".h", ".cpp"))}
    helpers = [os.path.basename(name) for name, text in sources.items() if name.endswith(".h") and included.search(text)]
    by_helper = re.compile(r'#include "(?:[^"]*/)?(?:' + "|".join(map(re.escape, helpers)) + ')"') if helpers else included
    chosen = {}
    for name, text in sources.items():
        room = name.split("/")[1]
        suites = set(re.findall(r"^TEST(?:_F|_P)?\((\w+)", text, flags=re.M))
        wanted = any(pattern.search(text) for pattern in (included, named, by_helper))
        taken = {suite for suite in suites if wanted or suite in more} - set(LEFT_OUT)
        if room in ROOMS and taken:
            chosen.setdefault(room + "_tests", set()).update(taken)
    return chosen


class Programs:
    """The test programs that are built, what they consist of, and a run of them."""

    def __init__(self, suites):
        self.suites = suites
        self.usual_seconds = 600
        self.files = set()  # beside the programs, before any test was killed

    def build(self):
        done = subprocess.run(["ninja", "-C", BUILD, *self.suites], capture_output=True, text=True, check=False)
        return done.returncode == 0, done.stdout

    def fingerprint(self):
        digest = hashlib.sha1()
        for name in [*(f"tests/{name}" for name in self.suites), "libanalytics.so"]:
            if os.path.exists(f"{BUILD}/{name}"):
                digest.update(open(f"{BUILD}/{name}", "rb").read())
        return digest.hexdigest()

    def run_once(self, name, left_out, seconds):
        """(the tests that failed, crashed or did not end, those that began, whether the run came to its end)"""
        suites = ":".join(f"{pattern}{suite}.*" for suite in sorted(self.suites[name]) for pattern in ("", "*/"))
        words = [f"./{name}", f"--gtest_filter={suites}-{':'.join(left_out)}"]
        with tempfile.TemporaryFile("w+", errors="replace") as out:
            ran = subprocess.Popen(words, cwd=f"{BUILD}/tests", stdout=out, stderr=subprocess.DEVNULL,
                                   start_new_session=True)
            try:
                ran.wait(timeout=max(seconds, 1))
            except subprocess.TimeoutExpired:
                pass
            # Servers that a test started have process groups of their own, but all are of this session.
            subprocess.run(["pkill", "-KILL", "-s", str(ran.pid)], check=False)
            ran.wait()
            self.clear_up()
            out.seek(0)
            said = out.read()
        begun = re.findall(r"^\[ RUN      \] (\S+)", said, flags=re.M)
        ended = re.findall(r"\[ +(OK|FAILED|SKIPPED) +\] ([^\s,]+).* \(\d+ ms\)$", said, flags=re.M)
        failed = {test for how, test in ended if how == "FAILED"}
        stuck = set(begun) - {test for _, test in ended}
        return failed | stuck, begun, not stuck

    def clear_up(self):
        """Takes away what a killed test left beside its program, where the next one would find it."""
        for name in set(os.listdir(f"{BUILD}/tests")) - self.files:
            if os.path.isfile(f"{BUILD}/tests/{name}"):
                os.remove(f"{BUILD}/tests/{name}")

    def noticed_by(self, left_out=()):
        """The tests that notice. After a crash or a loop without end the rest runs on without what has run."""
        noticed, until = set(), time.monotonic() + self.usual_seconds + MUTANT_LIMIT
        for name in self.suites:
            seen, whole = set(left_out), False
            while not whole and time.monotonic() < until:
                failed, begun, whole = self.run_once(name, seen, until - time.monotonic())
                noticed |= failed
                whole = whole or not begun
                seen |= set(begun)
        return noticed


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("files", nargs="+", metavar="FILE")
    arguments.add_argument("--count", type=int, default=30)
    arguments.add_argument("--seed", default="1")
    arguments.add_argument("--suites", default="")
    options = arguments.parse_args()
    suites = suites_by_program(options.files, options.suites.split(","))
    if not suites:
        sys.exit(f"no test names {' '.join(options.files)}")
    copy_sources()
    subprocess.run(["cmake", "--preset", "mutate"], cwd=TREE, check=True, stdout=subprocess.DEVNULL)
    programs = Programs(suites)
    built, words = programs.build()
    if not built:
        sys.exit(words)
    begun, programs.files = time.monotonic(), set(os.listdir(f"{BUILD}/tests"))
    broken = programs.noticed_by()
    programs.usual_seconds = time.monotonic() - begun
    if broken:
        print(f"fail as it is, and are left out: {' '.join(sorted(broken))}")
    whole, results = programs.fingerprint(), []
    print(f"{' '.join(options.files)}: " + " ".join(sorted(suite for of in suites.values() for suite in of)), flush=True)
    for _, name, number, kind, changed in sample_of(options.files, options.seed):
        if len(results) == options.count:
            break
        target = os.path.join(TREE, name)
        original = open(target, encoding="utf-8").read()
        lines = original.split("\n")
        told = f"{name}:{number + 1}: {kind}: {(lines[number] if kind == 'call left out' else changed).strip()}"
        lines[number] = changed
        open(target, "w", encoding="utf-8").write("\n".join(lines))
        try:
            if not programs.build()[0] or programs.fingerprint() == whole:
                continue
            noticed = programs.noticed_by(broken)
            if len(noticed) == 1:  # a machine under load fails a test now and then
                noticed &= programs.noticed_by(broken)
        finally:
            open(target, "w", encoding="utf-8").write(original)
        results.append((told, sorted(noticed)))
        print(f"  {len(noticed):3} noticed  {told}", flush=True)
    report(options, results)


def report(options, results):
    unnoticed, alone = [told for told, noticed in results if not noticed], {}
    for told, noticed in results:
        if len(noticed) == 1:
            alone.setdefault(noticed[0], []).append(told)
    print("\nNobody noticed:")
    print("\n".join(f"  {told}" for told in unnoticed))
    print("Noticed by one test alone:")
    for test, changes in sorted(alone.items()):
        print("\n    ".join([f"  {test}", *changes]))
    caught = len(results) - len(unnoticed)
    print(f"score {caught} / {len(results)} = {100 * caught / max(len(results), 1):.0f} %  {' '.join(options.files)}")


if __name__ == "__main__":
    main()
