#!/usr/bin/env python3
"""check_exports.py LIBRARY [--write]: the names that the shared library shows are those of tools/exports.txt, which a
reviewer has seen, and all of them are ours. --write makes the list anew, to be looked at before it is committed."""
import re
import subprocess
import sys

LIST = "tools/exports.txt"
OURS = re.compile(r"^(analytics_|tova_|(vtable for |typeinfo (name )?for |non-virtual thunk to )?(AnalyticsSDK|lumo)::)")
# A template's instance is shown with its result first.
OUR_TEMPLATE = re.compile(r"^\S.* (AnalyticsSDK|lumo)::\w+<")


def exported(library):
    shown = subprocess.run(["nm", "-D", "-C", "--defined-only", library], check=True, capture_output=True, text=True)
    # A constructor or destructor has several bodies under one name.
    return sorted({line.split(" ", 2)[2] for line in shown.stdout.splitlines()})


def main():
    names = exported(sys.argv[1])
    faults = [f"not ours: {name}" for name in names if not OURS.match(name) and not OUR_TEMPLATE.match(name)]
    if "--write" in sys.argv and not faults:
        open(LIST, "w", encoding="utf-8").write("\n".join(names) + "\n")
    reviewed = open(LIST, encoding="utf-8").read().splitlines()
    faults += [f"not in {LIST}: {name}" for name in names if name not in reviewed]
    faults += [f"no longer there: {name}" for name in reviewed if name not in names]
    if faults:
        faults.append(f"if that is meant: tools/check_exports.py {sys.argv[1]} --write, and look at the difference")
    print("\n".join(faults) if faults else f"{len(names)} names, all ours and reviewed")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
