"""Compares the symbols that libraries export with the file that lists them: symbols.py FILE VERSION LIBRARY...

The file is the symbols file of the Debian package that has the libraries. It gives each symbol the version that brought
it. With QBDKR_REWRITE_SYMBOLS=1 it is written anew: what it has keeps its version, and what is new gets VERSION.

A symbol of which every program has a copy of its own (a weak or unique one, as a type's information) is optional: which
of them a library exports depends on the compiler and its options. One that the file does not have fails all the same.
"""

import os
import pathlib
import re
import subprocess
import sys

FILE, VERSION = pathlib.Path(sys.argv[1]), sys.argv[2]
LINE = re.compile(r' \((c\+\+|c\+\+\|optional|optional)\)"(.*)@Base" (\S+)$| (\S+)@Base (\S+)$')


def output(*command, given=None):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, input=given, text=True).stdout


def exported(library):
    """The name in its file of each symbol, and whether every program has a copy of its own."""
    rows = [line.split()[:2] for line in output("nm", "-D", "-P", "--defined-only", library).splitlines()]
    names = output("c++filt", given="".join(f"{name}\n" for name, _ in rows)).splitlines()
    return {name: kind in "VWuvw" for name, (_, kind) in zip(names, rows, strict=True)}


def listed():
    """The symbols of each library by its soname: whether each is optional, and its version."""
    libraries = {}
    for line in FILE.read_text().splitlines() if FILE.exists() else ():
        if not line.startswith(" "):
            symbols = libraries.setdefault(line.split()[0], {})
            continue
        found = LINE.match(line)
        if not found:
            sys.exit(f"{FILE}: the line is not understood: {line}")
        tag, name, version, plain, plain_version = found.groups()
        symbols[name or plain] = ("optional" in (tag or ""), version or plain_version)
    return libraries


def written(name, optional, version):
    tags = "|".join(tag for tag, applies in (("c++", "::" in name), ("optional", optional)) if applies)
    return f' ({tags})"{name}@Base" {version}\n' if tags else f" {name}@Base {version}\n"


def heading(soname):
    """The dependency of a program: a library before 1.0 breaks with each minor version."""
    major, minor = map(int, re.search(r"\.so\.(\d+)\.(\d+)$", soname).groups())
    return f"{soname} {FILE.stem} #MINVER#, {FILE.stem} (<< {major}.{minor + 1}~)\n"


known = listed()
problems, text, count = [], "", 0
for library in sys.argv[3:]:
    soname = re.search(r"SONAME.*\[(.*)\]", output("readelf", "-d", library))[1]
    found, before = exported(library), known.pop(soname, {})
    text += heading(soname)
    for name in sorted(found):
        text += written(name, found[name], before.get(name, (None, VERSION))[1])
    problems += [f"{soname} exports, and the file does not have: {name}" for name in sorted(found.keys() - before)]
    problems += [f"{soname} does not export any more: {name}" for name in sorted(before.keys() - found)
                 if not before[name][0]]
    problems += [f"{soname}: not every program has its own any more, or now has: {name}"
                 for name in sorted(found.keys() & before) if found[name] != before[name][0]]
    count += len(found)
problems += [f"the file has a library that is not built: {soname}" for soname in known]

if os.environ.get("QBDKR_REWRITE_SYMBOLS"):
    FILE.write_text(text)
    sys.exit(f"{FILE} is written anew: read its changes, as programs may use what is gone")
if problems:
    sys.exit("\n".join([*problems, f"If this is meant, rewrite {FILE}: QBDKR_REWRITE_SYMBOLS=1 ctest -R ExportedSymbols"]))
print(f"{count} symbols")
