"""Checks the order of the layers and rooms, and the names of files: check.py ROOT."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
layers = ["ProductClient", "ClientComm", "Platform"]
rooms = re.findall(r"^\| `(\w+)/` \|", (root / "Platform/README.md").read_text(), re.MULTILINE)
files = sorted(path.relative_to(root) for layer in layers for path in (root / layer).rglob("*")
               if path.suffix in (".h", ".cpp"))
of_one_system = re.compile(r"(Linux|MacOS)$")
problems = []


def included(path):
    for found in re.findall(r'^#include "([^"]+)"', (root / path).read_text(), re.MULTILINE):
        yield pathlib.PurePosixPath(found)


def is_native(path):
    return path.stem.startswith("Native") or of_one_system.search(path.stem)


def is_of(system, path):
    return path.stem.endswith(system) or (system == "Linux" and "DBus" in path.parts)


for path in files:
    for other in included(path):
        if not (root / other).exists():
            problems.append(f"{path} includes {other}, which is none of our files")
        elif other.parts[0] not in layers or layers.index(other.parts[0]) < layers.index(path.parts[0]):
            problems.append(f"{path} includes {other}, of a layer above it")
        elif path.parts[0] != "Platform":
            if is_native(other):
                problems.append(f"{path} includes {other}, which is for the platform alone")
        elif rooms.index(other.parts[1]) > rooms.index(path.parts[1]):
            problems.append(f"{path} includes {other}, of a room below it")
        for system, elsewhere in (("Linux", "MacOS"), ("MacOS", "Linux")):
            if is_of(system, other) and not is_of(system, path):
                problems.append(f"{path} includes {other}, which only {system} has")

names = {}
for path in files:
    same = names.setdefault((path.name), path)
    if same != path:
        problems.append(f"{path} bears the name of {same}")
    if path.suffix != ".cpp":
        continue
    headers = {path.with_suffix(".h"), path.with_name(of_one_system.sub("", path.stem) + ".h")}
    if not any((root / header).exists() for header in headers):
        problems.append(f"{path} has no header of its name")
    if path.stem.startswith("Native") and not of_one_system.search(path.stem):
        problems.append(f"{path} does not say for which system it is")

for path in files:
    if path.parts[0] == "Platform" and path.stem.startswith("Native") and path.suffix == ".h" \
            and not of_one_system.search(path.stem):
        for system in ("Linux", "MacOS"):
            if not (root / path.with_name(path.stem + system + ".cpp")).exists():
                problems.append(f"nothing provides {path} on {system}")

if len(files) < 100 or len(rooms) < 10:
    problems.append(f"{len(files)} files and {len(rooms)} rooms are not all of them")
print("\n".join(problems))
sys.exit(1 if problems else 0)
