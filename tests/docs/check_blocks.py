#!/usr/bin/env python3
"""SOURCE_DIR BUILD_DIR: compiles or runs every code block of every document, as a reader would.

c, cpp    compiled; with a main() also linked and run. One that opens with a comment naming a file is written to it.
sh        run by one bash per document, in a folder that looks like a built clone, with a home of its own.
          Of "./dev WORD" only the word is checked: this runs in one of them.
cmake     written to the file that it names, for the shell blocks that use it.
json      lines of an event log file, judged by the analytics command.
text      not code.
Links to files of the repository, and names of files in it, must lead somewhere, and README's tables must tell what the
sources and the bench do.
"""
import os, pathlib, re, subprocess, sys, tempfile

source, build = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
failures, counts = [], {}
compilers = {"c": ["cc", "-std=c99", "-x", "c"], "cpp": ["c++", "-std=c++17", "-x", "c++"]}
fragment = {"c": "#include <analytics.h>\nvoid fragment(analytics_session* session);\n"
                 "void fragment(analytics_session* session)\n{{\n{}\n}}\n",
            "cpp": "#include <analytics.hpp>\nvoid fragment(analytics::session& session);\n"
                   "void fragment(analytics::session& session)\n{{\n{}\n}}\n"}


def run(command, where, folder, **more):
    environment = dict(os.environ, HOME=str(folder / "home"), LD_LIBRARY_PATH=str(build))
    done = subprocess.run(command, cwd=folder, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace", timeout=300, **more)
    if done.returncode != 0:
        failures.append(f"{where}: status {done.returncode}\n{done.stdout}")


def clone_in(folder):
    """A folder that looks like the root of a built clone."""
    for entry in source.iterdir():
        if entry.name not in ("build", ".git"):
            (folder / entry.name).symlink_to(entry)
    (folder / "build").mkdir()
    (folder / "build" / "release").symlink_to(build)
    (folder / "home").mkdir()


def compile_block(language, text, where, folder):
    program = folder / "home" / "program"
    whole = re.search(r"\bmain\(", text)
    code = text if whole else fragment[language].format(text)
    command = compilers[language] + ["-Wall", "-Wextra", "-Werror", f"-I{source}/inc", "-"]
    command += ["-o", str(program), f"-L{build}", "-lanalytics"] if whole else ["-fsyntax-only"]
    run(command, where, folder, input=code)
    if whole and program.exists():
        run([str(program)], where, folder)
        program.unlink()


def shell_lines(text, where):
    words = subprocess.run([str(source / "dev"), "help"], stdout=subprocess.PIPE, text=True).stdout.split()
    for line in text.splitlines():
        if line.startswith("./dev "):
            if line.split()[1] not in words:
                failures.append(f"{where}: ./dev has no word {line.split()[1]}")
        else:
            yield line


def check_document(path):
    text = path.read_text()
    shell = ["set -euo pipefail"]
    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(scratch)
        clone_in(folder)
        for match in re.finditer(r"^```(\w*)\n(.*?)^```$", text, re.M | re.S):
            language, block = match.groups()
            where = f"{path.relative_to(source)}:{text.count(chr(10), 0, match.start()) + 1}"
            counts[language] = counts.get(language, 0) + 1
            named = re.match(r"(?:/\*|//|#) (\S+\.\w+)(?: \*/)?$", block.splitlines()[0])
            if named:
                target = folder / named[1]
                target.unlink(missing_ok=True)
                target.write_text(block)
            if language in compilers:
                compile_block(language, block, where, folder)
            elif language == "sh":
                shell += shell_lines(block, where)
            elif language == "json":
                run([str(build / "cli" / "analytics"), "show", "-"], where, folder, input=block)
            elif language == "cmake" and named or language == "text":
                pass
            else:
                failures.append(f"{where}: a block of a kind that nothing checks: '{language}'")
        if len(shell) > 1:
            run(["bash", "-c", "\n".join(shell)], f"{path.relative_to(source)}: the shell blocks", folder)
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
    for place in ("README.md", "inc/analytics.h", "cli/properties.cpp", "cli/completion.bash"):
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


check_tables()
check_header("analytics.h", "c", " * ")
check_header("analytics.hpp", "cpp", "/// ")
for document in sorted(source.glob("*.md")) + sorted(source.glob("docs/*.md")):
    check_document(document)
print("\n".join(failures) or "every block holds: " + ", ".join(f"{n} {kind}" for kind, n in sorted(counts.items())))
sys.exit(1 if failures else 0)
