#!/usr/bin/env python3
"""Counts the lines of the repository that are not blank: code and tests with their share, comments with theirs. Refuses
a source file of 600 lines and more: it is about more than one thing."""
import subprocess
import sys

CODE = ("inc/", "sdk/", "cli/", "collector/", "examples/")
TESTS = ("tests/",)
OTHER = ("bench/", "fuzz/", "soak/", "tools/", "cmake/", "dev")
SOURCES = (".h", ".hpp", ".c", ".cpp")
COUNTED = SOURCES + (".py", ".sh", ".cmake", "CMakeLists.txt", "dev")
LIMIT = 600


def lines_of(name):
    """The lines that are not blank, and how many of them are comment alone."""
    text = [line.strip() for line in open(name, encoding="utf-8") if line.strip()]
    comments, inside = 0, False
    for line in text:
        begins = line.startswith("/*")
        if inside or begins or line.startswith("//"):
            comments += 1
        if inside or begins:
            inside = "*/" not in line
    return len(text), comments


def main():
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], check=True, capture_output=True, text=True)
    sums = {CODE: [0, 0], TESTS: [0, 0], OTHER: [0, 0]}
    headers, sources, long_files = [0, 0], [0, 0], []
    for name in filter(lambda name: name.endswith(COUNTED), listed.stdout.split("\n")):
        count, comments = lines_of(name)
        if name.endswith(SOURCES) and count >= LIMIT:
            long_files.append(f"{name} has {count} lines; {LIMIT - 1} are the most a file may have")
        for where, total in sums.items():
            if name.startswith(where):
                total[0] += count
                total[1] += comments
        if name.startswith(CODE) and name.endswith(SOURCES):
            kind = headers if name.startswith("inc/") and name.endswith((".h", ".hpp")) else sources
            kind[0] += count
            kind[1] += comments
    code, tests, other = (sums[where][0] for where in (CODE, TESTS, OTHER))
    print("\n".join(long_files))
    share = [f"{100 * part[1] / max(part[0], 1):.0f} %" for part in (sources, headers)]
    print(f"code {code} lines (comments: sources {share[0]}, public headers {share[1]}), "
          f"tests {tests} = {100 * tests / max(code + tests, 1):.1f} % of both; tools, bench, fuzz, soak {other}")
    return 1 if long_files else 0


if __name__ == "__main__":
    sys.exit(main())
