"""Checks the order of the layers and rooms, and the names of files: check.py ROOT."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
layers = ["tools", "ObjectiveC", "ProductClient", "ClientComm", "Platform"]
door = {"ClientComm": "ClientComm", "QBDKRProductClient": "ProductClient", "QBDKRProductClientObjC": "ObjectiveC"}  # folder of include/: layer
of_one_system = re.compile(r"(Linux|MacOS)$")
problems = []

# The rooms in their order, and the public headers that belong to each.
rooms = []
home = {}
for row in re.findall(r"^\| `(\w+)/` \|(.*)\|$", (root / "Platform/README.md").read_text(), re.MULTILINE):
    rooms.append(row[0])
    for header in re.findall(r"`(\w+\.h)`", row[1].split("|")[-1]):
        home[f"include/ClientComm/{header}"] = ("Platform", row[0])

files = sorted(path.relative_to(root) for layer in [*layers, "include"]
               for path in (root / layer).rglob("*") if path.suffix in (".h", ".cpp", ".mm"))


def place(path):
    """The layer of a file, and its room in the platform."""
    if path.parts[0] == "include":
        return home.get(str(path), (door[path.parts[1]], None))
    return path.parts[0], path.parts[1] if path.parts[0] == "Platform" else None


def included(path):
    for mark, found in re.findall(r'^#(?:include|import) (["<])([^">]+)[">]', (root / path).read_text(), re.MULTILINE):
        if mark == '"':
            yield pathlib.PurePosixPath(found)
        elif found.split("/")[0] in door or found.split("/")[0] in layers:
            yield pathlib.PurePosixPath("include") / found


def is_native(path):
    return path.stem.startswith("Native") or of_one_system.search(path.stem)


def is_of(system, path):
    return path.stem.endswith(system) or (system == "Linux" and "DBus" in path.parts)


for path in files:
    layer, room = place(path)
    for other in included(path):
        if not (root / other).exists():
            problems.append(f"{path} includes {other}, which does not exist")
            continue
        other_layer, other_room = place(other)
        if path.parts[0] == "include" and other.parts[0] != "include":
            problems.append(f"{path} is public and includes {other}, which is not")
        elif layers.index(other_layer) < layers.index(layer):
            problems.append(f"{path} includes {other}, of a layer above it")
        elif layer != "Platform":
            if is_native(other):
                problems.append(f"{path} includes {other}, which is for the platform alone")
        elif rooms.index(other_room) > rooms.index(room):
            problems.append(f"{path} includes {other}, of a room below it")
        for system, elsewhere in (("Linux", "MacOS"), ("MacOS", "Linux")):
            if is_of(system, other) and not is_of(system, path):
                problems.append(f"{path} includes {other}, which only {system} has")

# The face in Objective-C bears the names of what it is the face of, and is judged by itself.
names = {}
for path in files:
    if place(path)[0] == "ObjectiveC":
        if path.suffix == ".mm" and not any((root / folder / path.name).with_suffix(".h").exists()
                                            for folder in ("ObjectiveC", "include/QBDKRProductClientObjC")):
            problems.append(f"{path} has no header of its name")
        continue
    same = names.setdefault((path.name), path)
    if same != path:
        problems.append(f"{path} bears the name of {same}")
for path in files:
    if path.suffix != ".cpp" or path.parts[0] == "tools":  # a command of a tool is one file
        continue
    header = names.get(path.stem + ".h") or names.get(of_one_system.sub("", path.stem) + ".h")
    if header is None or place(header) != place(path) or \
            header.parts[0] != "include" and header.parent != path.parent:
        problems.append(f"{path} has no header of its name")
    if path.stem.startswith("Native") and not of_one_system.search(path.stem):
        problems.append(f"{path} does not say for which system it is")

for header in home:
    if not (root / header).exists():
        problems.append(f"Platform/README.md names {header}, which does not exist")
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
