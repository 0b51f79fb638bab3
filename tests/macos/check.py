"""Checks the calls of the macOS side: check.py documented|sourced|used|owned ROOT.

documented  every call that is declared stands in backticks in docs/macos.md
sourced     the comment right above every call that is declared names its page
used        everything that is declared is used
owned       the result of a function with "Create" or "Copy" in its name goes straight into a CFRef,
            and no other result of the system does
"""

import pathlib
import re
import sys

mode, root = sys.argv[1], pathlib.Path(sys.argv[2])
declarations = sorted((root / "tests/macos/declarations").rglob("*.h"))
sources = sorted((root / "Platform").rglob("*MacOS.[ch]*"))
sample = root / "examples/AcmeHelper/SHA256CommonCrypto.cpp"
proofs = [root / "tests/macos/Slip.cpp", root / "tests/macos/Layout.cpp"]
fewest = 90  # calls; with fewer the declarations were not understood


def blank(found):
    return re.sub(r"[^\n]", " ", found.group())


def code(path):
    """Returns the text with comments and literals blanked; all offsets stay the same."""
    return re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'', blank,
                  path.read_text(), flags=re.DOTALL)


def statements(text):
    """Yields the declarations that begin at the start of a line, as (place, text)."""
    pattern = r"^(?:static inline [^{]*\{.*?^\}|[A-Za-z_][^;{]*(?:\{[^{}]*\}[^;]*)?;)"
    for found in re.finditer(pattern, text, re.DOTALL | re.MULTILINE):
        yield found.start(), found.group()


def declared():
    """Returns the calls as (name, result, path, place), and the names of all other declarations."""
    calls, others = [], set()
    for path in declarations:
        text = code(path)
        for found in re.finditer(r"^#define +(\w+)(\(?)", text, re.MULTILINE):
            if found[2]:
                calls.append((found[1], "", path, found.start()))
            else:
                others.add(found[1])
        text = re.sub(r"^#(?:[^\n]*\\\n)*[^\n]*|^extern +\{", blank, text, flags=re.MULTILINE)
        for start, statement in statements(text):
            call = re.match(r"(?:__attribute__\(\(\w+\)\) |static inline )?(\w[\w\s*]*?)(\w+)\(",
                            statement)
            if re.match("typedef|struct|enum|extern", statement):
                others.update(re.findall(r"(\w+) *=[^=]", statement))
                others.update(re.findall(
                    r"^(?:struct|enum) (\w+)|^typedef[^;{]*\(\*(\w+)\)|(\w+);$", statement))
            elif call:
                calls.append((call[2], call[1].strip(), path, start))
    names = {name for found in others for name in ([found] if isinstance(found, str) else found)}
    # Names that begin with underscores belong to the system's macros.
    return ([call for call in calls if not call[0].startswith("__")],
            {name for name in names if name and not name.startswith("__")})


def mentions(name, text):
    return len(re.findall(rf"\b{name}\b", text))


def documented(calls):
    page = re.sub(r"^```.*?^```", "", (root / "docs/macos.md").read_text(),
                  flags=re.DOTALL | re.MULTILINE)
    spans = " ".join(re.findall(r"`([^`]+)`", page))
    return [f"docs/macos.md does not name `{call[0]}`" for call in calls
            if not mentions(call[0], spans)]


def sourced(calls):
    for name, _, path, start in calls:
        lines = path.read_text()[:start].splitlines()
        while lines and lines[-1].strip() and not lines[-1].startswith("//"):
            lines.pop()  # declarations in between share the comment
        comment = ""
        while lines and lines[-1].startswith("//"):
            comment = lines.pop() + comment
        page = re.search(r"\w\([23](?:cc)?\)|" + name, comment, re.IGNORECASE)
        if not page:
            yield f"{path.relative_to(root)}: the comment above {name} does not name its page"


def used(calls, others):
    theirs = " ".join(map(code, [*sources, sample, *proofs]))
    ours = " ".join(map(code, declarations))
    for name in [call[0] for call in calls]:
        if not mentions(name, theirs):
            yield f"{name} is declared, and not called"
    for name in sorted(others):
        if not mentions(name, theirs) and mentions(name, ours) < 2:
            yield f"{name} is declared, and not used"


def owned(calls):
    objects = {name for name, result, *_ in calls if re.search(r"Ref$|void\*$", result)}
    given = {name for name in objects if re.search(r"Create|Copy", name)}
    borrowed = "|".join(objects - given | {r"kCF\w+", r"\w[\w.>-]*?(?:\.|->)get(?=\(\)\s*\))"})
    for path in sources:
        text = code(path)
        owners = "|".join([r"CFRef<[^<>;]*>", *re.findall(r"using (\w+) = CFRef<", text)])
        owner = re.compile(rf"\b(?:{owners})(?: +\w+)?$")
        for found in re.finditer(rf"(?<![\w.>])(?:{'|'.join(given)}|{borrowed})(?=\(|\s*\))", text):
            depth, place = 1, found.start()
            while depth and place:
                place -= 1
                depth += {")": 1, "}": 1, "(": -1, "{": -1}.get(text[place], 0)
            if bool(owner.search(text[:place])) != (found.group() in given):
                line = text.count("\n", 0, found.start()) + 1
                what = "is not owned" if found.group() in given else "is owned, and is not ours"
                yield f"{path.relative_to(root)}:{line}: what {found.group()} gives {what}"


calls, others = declared()
wrong = list({"documented": lambda: documented(calls), "sourced": lambda: sourced(calls),
              "used": lambda: used(calls, others), "owned": lambda: owned(calls)}[mode]())
if len(calls) < fewest or len(sources) < 10:
    wrong.append(f"only {len(calls)} calls were found, and {len(sources)} sources")
print("\n".join(wrong) or f"{len(calls)} calls, {len(others)} other names, {len(sources)} sources")
sys.exit(bool(wrong))
