"""Checks what a linked darwin library still needs: darwin_symbols.py LIBRARY NAME

The linker noted for each undefined symbol which library supplies it. Those it found nowhere ("dynamic lookup") must be
libcurl's or the TLS library's, as the Linux builds of those export them, or the compiler's.
"""
import glob
import struct
import subprocess
import sys

LC_SYMTAB, LC_LOAD_DYLIB = 0x2, 0xC
N_STAB, N_TYPE, N_EXT = 0xE0, 0x0E, 0x01
DYNAMIC_LOOKUP = 0xFE

# What __builtin_cpu_supports reads. The runtime library that the system's own compiler links has it; the cross
# compiler's does not.
COMPILER_RUNTIME = {"__cpu_model"}


def undefined_symbols(path):
    """Names with the library that supplies each, None for those found nowhere; and the names defined."""
    data = open(path, "rb").read()
    magic, _, _, _, commands, _, _, _ = struct.unpack_from("<8I", data)
    assert magic == 0xFEEDFACF, "no 64-bit Mach-O file"
    at, libraries, table = 32, [], None
    for _ in range(commands):
        command, size = struct.unpack_from("<2I", data, at)
        if command & 0x7FFFFFFF == LC_LOAD_DYLIB:
            name = at + struct.unpack_from("<I", data, at + 8)[0]
            libraries.append(data[name : data.index(b"\0", name)].decode())
        if command == LC_SYMTAB:
            table = struct.unpack_from("<4I", data, at + 8)
        at += size
    first, count, strings, _ = table
    undefined, defined = {}, set()
    for i in range(count):
        text, kind, _, description, _ = struct.unpack_from("<IBBHQ", data, first + 16 * i)
        name = data[strings + text : data.index(b"\0", strings + text)].decode()
        if kind & N_STAB or not kind & N_EXT:
            continue
        if kind & N_TYPE:
            defined.add(name)
            continue
        ordinal = description >> 8
        undefined[name] = None if ordinal == DYNAMIC_LOOKUP else libraries[ordinal - 1]
    return undefined, defined


def exported(pattern):
    names = set()
    for library in glob.glob(pattern):
        listing = subprocess.run(["nm", "-D", "--defined-only", library], capture_output=True, text=True, check=True)
        names.update(line.split()[-1].split("@")[0] for line in listing.stdout.splitlines())
    assert names, pattern
    return names


def main(path, name):
    undefined, defined = undefined_symbols(path)
    folder = "/usr/lib/*-linux-gnu/"
    sources = {"libcurl": exported(folder + "libcurl.so"), "libssl": exported(folder + "libssl.so"),
               "libcrypto": exported(folder + "libcrypto.so"), "zlib": exported(folder + "libz.so"),
               "the compiler": COMPILER_RUNTIME}
    counts, strangers = {}, []
    for symbol, library in sorted(undefined.items()):
        owner = library or next((lib for lib, names in sources.items() if symbol[1:] in names), None)
        counts[owner] = counts.get(owner, 0) + 1
        if owner is None:
            strangers.append(symbol)
    needed = ", ".join(f"{counts[owner]} from {owner}" for owner in sorted(filter(None, counts)))
    ours = sum(symbol.startswith(("_tova_", "_analytics_")) for symbol in defined)
    print(f"{name}: compiled and linked; {ours} C functions exported; needs {needed} symbols")
    if strangers:
        sys.exit(f"{name}: nobody supplies: " + " ".join(strangers))
    if not {"_tova_initialize", "_analytics_initialize"} <= defined:
        sys.exit(f"{name}: the library does not export its functions")


main(*sys.argv[1:])
