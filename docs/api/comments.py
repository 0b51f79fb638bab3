"""Prints a header with its comments as Doxygen reads them.

A comment stands for the declarations that follow it, up to an empty line or the next comment. A
heading "--- Title ---" begins a group, and the comment below it is that of the group. Commands and
tags of Doxygen are plain text here. A comparison that has no comment compares contents.
Deleted functions are left out.
"""

import re
import sys


def as_text(comment):
    return re.sub(r"([<>@%#\\])", r"\\\1", comment)


def print_all(lines):
    for line in lines:
        print(line)


comment = []  # the one right above this line
shared = []   # the one of the declarations above this line
ended = False  # the line above ends a declaration
in_group = False

for line in open(sys.argv[1], encoding="utf-8").read().splitlines():
    text = line.strip()
    if text.endswith("= delete;"):
        continue
    heading = re.match(r"// --- (.*?) -+$", text)
    if text.startswith("//") and not heading:
        comment.append(re.sub("//", "///", as_text(line), count=1))
        continue
    if comment and comment[0].startswith("/// @name"):
        print_all(["/**", *(line.replace("///", "", 1) for line in comment), "*/", "///@{"])
        in_group = True
    elif comment and text:
        print_all(comment)
        shared = comment
    elif not text:
        shared = []
    elif ended:
        print_all(shared)
    if in_group and (heading or re.match(r"(private|protected):|};$", text)):
        print("///@}")
        in_group = False
    if "bool operator==(" in text and not comment and not (ended and shared):
        print("/// Compares the contents.")
    comment = [f"/// @name {heading[1]}"] if heading else []
    code, *own = re.split(r"(?<=[;,{}]) +// ", line, maxsplit=1)
    ended = code.endswith((";", "}"))
    if not heading:
        print(" ///< ".join([code, *map(as_text, own)]))
