"""Changing one key of a large property list. Both sides write it durably."""

import os
import plistlib
import time

from desk import parsed
from table import Samples, row


def make_list(path, size):
    """Writes a property list of about so many bytes, as a bundle's Info.plist could be."""
    entry = {"Name": "An entry of the list", "Number": 7, "Flag": True, "Texts": ["one", "two", "three"] * 4}
    count = size // len(plistlib.dumps(entry, sort_keys=False)) + 1
    content = {"TipsEnable": True} | {f"Key {number}": entry for number in range(count)}
    while len(plistlib.dumps(content)) < size:
        content[f"Key {len(content)}"] = entry
    path.write_bytes(plistlib.dumps(content))


def change_key(path, value):
    with open(path, "rb+") as file:
        content = plistlib.load(file)
        content["TipsEnable"] = value
        file.seek(0)
        plistlib.dump(content, file)
        file.truncate()
        file.flush()
        os.fsync(file.fileno())


def put_comment(path):
    """Gives the list a form that the library does not write: it has to read all of it."""
    text = path.read_bytes()
    path.write_bytes(text.replace(b"<dict>\n", b"<dict><!-- another form -->\n", 1))


def put_key_first(path):
    """Puts the key where a change of it moves all the rest."""
    content = plistlib.loads(path.read_bytes())
    path.write_bytes(plistlib.dumps({"TipsEnable": content.pop("TipsEnable")} | content, sort_keys=False))


def changes(desk, prepare=lambda path: None):
    path = desk.scratch / "Info.plist"
    make_list(path, 1_500_000)
    found = Samples([])
    for turn in range(12):
        prepare(path)
        found.ours.append(parsed(desk.run("FileBench", "change-key", path, turn % 2))["ours"][0] / 1000)
        if plistlib.loads(path.read_bytes())["TipsEnable"] != bool(turn % 2):
            raise RuntimeError("the key was not changed")
        start = time.perf_counter_ns()
        change_key(path, not turn % 2)
        found.theirs.append((time.perf_counter_ns() - start) / 1e6)
    return found


@row("one key of a property list of 1.5 MB", "Python's plistlib", unit="ms", at_most=0.1)
def last_key(desk):
    return changes(desk)


@row("the same, the first key", "Python's plistlib", unit="ms", at_most=0.1)
def first_key(desk):
    return changes(desk, put_key_first)


@row("the same, a list in a form not ours", "Python's plistlib", unit="ms")
def other_form(desk):
    return changes(desk, put_comment)
