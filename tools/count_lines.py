#!/usr/bin/env python3
"""Counts the repository's lines of code: neither blank nor comment alone. Refuses tests that are more than a third of
it, and a source file of 600 lines and more: it is about more than one thing. With --files also tells each file's."""
import os
import re
import subprocess
import sys

MOST_TESTS = 33.0  # per cent of all code
LIMIT = 600        # lines of a file that are not blank
ROOMS = ("inc", "sdk", "cli", "collector", "examples", "bench", "fuzz", "soak", "tools", "cmake", "tests")
# What each language calls a comment; only those that begin a line make a line that does not count.
LANGUAGES = {
    r"//.*?$|/\*.*?\*/": (".h", ".hpp", ".c", ".cpp", ".js", ".css"),
    r"#.*?$|\"\"\".*?\"\"\"": (".py", ".sh", ".bash", ".cmake", "CMakeLists.txt", "dev", ".ci/run", "Dockerfile"),
    r"<!--.*?-->": (".html",),
    r"--.*?$|/\*.*?\*/": (".sql",),
}
SOURCES = (".h", ".hpp", ".c", ".cpp", ".js")


def lines_of(name):
    """(lines of code, lines that are comment alone), or nothing when the file holds no code."""
    comment = next((form for form, ends in LANGUAGES.items() if name.endswith(ends)), None)
    if comment is None:
        return None
    text = open(name, encoding="utf-8").read()
    filled = [line for line in text.split("\n") if line.strip()]
    bare = re.sub(rf"^[ \t]*(?:{comment})", lambda found: "\n" * found[0].count("\n"), text, flags=re.M | re.S)
    code = [line for line in bare.split("\n") if line.strip()]
    return len(code), len(filled) - len(code)


def is_test(name):
    return name.startswith("tests/") or "/tests/" in name


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], check=True, capture_output=True, text=True)
    rooms, long_files, comments, shipped = dict.fromkeys(ROOMS, 0), [], 0, 0
    for name in filter(os.path.isfile, listed.stdout.split("\n")):
        counted = lines_of(name)
        if counted is None:
            continue
        room = "tests" if is_test(name) else name.split("/")[0]
        rooms[room] = rooms.get(room, 0) + counted[0]
        if "--files" in sys.argv:
            print(f"{counted[0]:6} {name}")
        if name.endswith(SOURCES) and sum(counted) >= LIMIT:
            long_files.append(f"{name} has {sum(counted)} lines; {LIMIT - 1} are the most a file may have")
        if room in ("inc", "sdk", "cli", "collector", "examples"):
            comments += counted[1]
            shipped += sum(counted)
    code = sum(rooms.values())
    share = 100 * rooms["tests"] / code
    print("\n".join(long_files))
    if share > MOST_TESTS:
        print(f"tests may be {MOST_TESTS:.0f} % of the code at most")
    print(f"{code} lines of code, tests {rooms['tests']} = {share:.1f} % (" +
          ", ".join(f"{room} {count}" for room, count in rooms.items() if count and room != "tests") +
          f"); {100 * comments / shipped:.0f} % of what ships are comments")
    return 1 if long_files or share > MOST_TESTS else 0


if __name__ == "__main__":
    sys.exit(main())
