#!/usr/bin/env python3
"""check_forms.py: every header begins with a comment (// in C++, /** in the C interface) and is guarded by #pragma once;
what a C++ source keeps to itself stands in its anonymous namespace instead of being marked static."""
import re
import subprocess
import sys


def files(*patterns):
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "--", *patterns], check=True, capture_output=True)
    return [(name, open(name, encoding="utf-8").read()) for name in listed.stdout.decode().split()]


faults = []
headers, sources = files("*.h", "*.hpp"), files("*.cpp")
for name, text in headers:
    if not re.match(r"// \S|/\*\* ?\n? \*" if name == "inc/analytics.h" else r"///? \S", text):
        faults.append(f"{name} does not begin with a // comment that says what it is for")
    if len(re.findall(r"^#pragma once$", text, re.M)) != 1 or re.search(r"^#ifndef \w+_H(PP)?(_|$)", text, re.M):
        faults.append(f"{name} is not guarded by #pragma once")
for name, text in sources:
    for found in re.finditer(r"^(?:[^\s/].* )?static .*", text, re.M):
        faults.append(f"{name}:{text.count(chr(10), 0, found.start()) + 1} is static instead of anonymous: {found[0]}")
print("\n".join(faults) if faults else f"{len(headers)} headers begin with what they are for and are guarded, "
      f"{len(sources)} sources hide what is their own in anonymous namespaces")
sys.exit(1 if faults else 0)
