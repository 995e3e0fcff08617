#!/usr/bin/env python3
"""check_forms.py: every header begins with a comment (// in C++, /** in the C interface) and is guarded by #pragma once."""
import re
import subprocess
import sys

faults = []
names = subprocess.run(
    ["git", "ls-files", "-co", "--exclude-standard", "--", "*.h", "*.hpp"], check=True, capture_output=True, text=True
).stdout.split()
for name in names:
    with open(name, encoding="utf-8") as file:
        text = file.read()
    if not re.match(r"// \S|/\*\* ?\n? \*" if name == "inc/analytics.h" else r"///? \S", text):
        faults.append(f"{name} does not begin with a // comment that says what it is for")
    if len(re.findall(r"^#pragma once$", text, re.M)) != 1 or re.search(r"^#ifndef \w+_H(PP)?(_|$)", text, re.M):
        faults.append(f"{name} is not guarded by #pragma once")
print("\n".join(faults) if faults else f"{len(names)} headers begin with what they are for and are guarded")
sys.exit(1 if faults else 0)
