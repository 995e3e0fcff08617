#!/usr/bin/env python3
"""SOURCE_DIR BUILD_DIR: walks through every document, block by block, as a newcomer types it.

c, cpp    compiled without a warning. A block that opens with a comment naming a file is saved under that name, in the
          folder where the shell stands by then.
sh        typed as it stands, in one shell per document that begins in a fresh clone in a fresh home. The clone is built
          already: of "./dev WORD" only the word is checked, as this runs in one of them.
cmake     saved to the file that it names.
json      lines of an event log file, judged by the analytics command.
text      not code.
Links to files of the repository, and names of files in it, must lead somewhere, and README's tables must tell what the
sources and the bench do.

SOURCE_DIR DOCUMENT --script: prints the walk through one document instead, "./dev WORD" included, for a shell that stands
in a clone on a bare machine.
"""
import os, pathlib, re, shutil, subprocess, sys, tempfile

source, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
failures, counts = [], {}
compilers = {"c": ["cc", "-std=c99", "-x", "c"], "cpp": ["c++", "-std=c++17", "-x", "c++"]}
fragment = {"c": "#include <analytics.h>\nvoid fragment(analytics_session* session);\n"
                 "void fragment(analytics_session* session)\n{{\n{}\n}}\n",
            "cpp": "#include <analytics.hpp>\nvoid fragment(analytics::session& session);\n"
                   "void fragment(analytics::session& session)\n{{\n{}\n}}\n"}


def run(command, where, folder, **more):
    mine = ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CMAKE_PREFIX_PATH")
    environment = {name: value for name, value in os.environ.items() if name not in mine}
    done = subprocess.run(command, cwd=folder, env=dict(environment, HOME=str(home)), stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, errors="replace", timeout=300, **more)
    if done.returncode != 0:
        failures.append(f"{where}: status {done.returncode}\n{done.stdout}")


def blocks(path):
    text = path.read_text()
    for match in re.finditer(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S):
        yield f"{path.relative_to(source)}:{text.count(chr(10), 0, match.start()) + 1}", *match.groups()


def walk(path):
    """The shell script of a document: its files saved, its commands typed."""
    yield "set -euo pipefail; trap 'kill $(jobs -p) 2>/dev/null || true' EXIT"
    for where, language, block in blocks(path):
        named = re.match(r"(?:/\*|//|#) (\S+\.\w+)(?: \*/)?$", block.splitlines()[0])
        if named:
            yield f"cat >{named[1]} <<'END OF THE BLOCK'\n{block}END OF THE BLOCK"
        elif language == "sh":
            yield f"echo '== {where}'\n{block}"


def without_dev(script):
    words = subprocess.run([str(source / "dev"), "help"], stdout=subprocess.PIPE, text=True).stdout.split()
    failures.extend(f"./dev has no word {word}" for word in re.findall(r"^\./dev (\w+)", script, re.M) if word not in words)
    return re.sub(r"^\./dev .*$", "", script, flags=re.M)


def check_block(where, language, block):
    counts[language] = counts.get(language, 0) + 1
    if language in compilers:
        code = block if re.search(r"\bmain\(", block) else fragment[language].format(block)
        run(compilers[language] + ["-Wall", "-Wextra", "-Werror", f"-I{source}/inc", "-fsyntax-only", "-"], where, home,
            input=code)
    elif language == "json":
        run([str(build / "cli" / "analytics"), "show", "-"], where, home, input=block)
    elif language not in ("sh", "cmake", "text"):
        failures.append(f"{where}: a block of a kind that nothing checks: '{language}'")


def clone():
    """What stands in the clone, but for what was built."""
    files = (path.relative_to(home / "analytics") for path in (home / "analytics").rglob("*") if path.is_file())
    return {name: (home / "analytics" / name).read_bytes() for name in files if name.parts[0] != "build"}


def check_document(path):
    text, before = path.read_text(), clone()
    for block in blocks(path):
        check_block(*block)
    run(["bash", "-c", without_dev("\n".join(walk(path)))], f"{path.relative_to(source)}: the walk", home / "analytics")
    for name in {name for name, _ in before.items() ^ clone().items()}:
        failures.append(f"{path.relative_to(source)}: the walk writes to {name} of the clone")
    for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", text):
        if not (path.parent / link).exists():
            failures.append(f"{path.relative_to(source)}: the link to {link} leads nowhere")
    for named in re.findall(r"`((?:inc|sdk|tests|tools|docs|cli|examples|cmake)/[\w/.-]+\.\w+)`", text):
        if not (source / named).exists():
            failures.append(f"{path.relative_to(source)}: there is no {named}")


def must_name(names, place):
    text = (source / place).read_text()
    # `name_string_add`, `_int32_`: the same with another word for the type.
    for whole, other in re.findall(r"`(\w+_)string_add`(.*)", text):
        text += " ".join(f"{whole[:-1]}{kind}add" for kind in re.findall(r"`(_\w+_)`", other)) + " "
    failures.extend(f"{place} does not tell of {name}" for name in names if not re.search(rf"\b{name}\b", text))


def check_tables():
    header = (source / "inc/analytics.h").read_text()
    must_name(re.findall(r"^ANALYTICS_API .*?(analytics_\w+)\(", header, re.M), "README.md")
    codes = re.findall(r"^    (ANALYTICS_\w+) = (\d+)", header, re.M)
    must_name([number for _, number in codes], "README.md")
    must_name([name for name, _ in codes], "inc/analytics_values.hpp")
    keys = re.findall(r'^ *{"(\w+)"', (source / "sdk/src/Properties.cpp").read_text(), re.M)
    for place in ("README.md", "inc/analytics.h", "cli/completion.bash"):
        must_name(keys, place)
    rows = re.compile(r"^\| ([^|]+) \| ([^|]+) \|(?: [^|]+ \| [^|]+ \|)? ([\d.]+) \|", re.M)
    measured = {row[:2]: float(row[2]) for row in rows.findall((source / "docs/performance.md").read_text())}
    told = rows.findall((source / "README.md").read_text().split("## What it costs")[1])
    for what, against, ratio in told:
        here, there = float(ratio), measured.get((what, against), 0)
        if abs(here - there) > there / 4:
            failures.append(f"README.md: {what} costs {here}; docs/performance.md has {there}")
    if not (len(codes) > 10 and len(keys) > 10 and len(told) > 5):
        failures.append("the tables were not found")


def check_header(name, language, margin):
    """The example in a header's opening comment."""
    lines = (source / "inc" / name).read_text().partition("\n#")[0].splitlines()
    example = "\n".join(line[len(margin):] for line in lines if line.startswith(margin + "    "))
    run(compilers[language] + ["-Wall", "-Wextra", "-Werror", f"-I{source}/inc", "-fsyntax-only", "-"], name, build,
        input=f"#include <string.h>\n#include <{name}>\nint main(void)\n{{\n{example}\nreturn session ? 0 : 1;\n}}\n")


if sys.argv[3:] == ["--script"]:
    print("\n".join(walk(source / sys.argv[2])))
    sys.exit()
with tempfile.TemporaryDirectory() as scratch:
    home = pathlib.Path(scratch)
    shutil.copytree(source, home / "analytics", symlinks=True, ignore=shutil.ignore_patterns("build", ".git", ".cache"))
    (home / "analytics" / "build").mkdir()
    (home / "analytics" / "build" / "release").symlink_to(build)
    check_tables()
    check_header("analytics.h", "c", " * ")
    check_header("analytics.hpp", "cpp", "// ")
    has_cluster = "ANALYTICS_COLLECTOR_CLUSTER:BOOL=OFF" not in (build / "CMakeCache.txt").read_text()
    for document in sorted(source.glob("*.md")) + sorted(source.glob("docs/*.md")):
        if document.name == "cluster.md" and not has_cluster:
            print("docs/cluster.md was not walked through: the collector was built without the cluster")
        else:
            check_document(document)
print("\n".join(failures) or "every block holds: " + ", ".join(f"{n} {kind}" for kind, n in sorted(counts.items())))
sys.exit(1 if failures else 0)
