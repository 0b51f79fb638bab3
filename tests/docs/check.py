"""Compares the pages with the tree: check.py links|contract|calls|python|versions|reference ROOT.

links     every link between pages leads to a file, and to a heading in it
contract  docs/rpc-events.md and the headers of ClientComm name the same methods of the same classes,
          and the page gives each as many arguments as its name has colons; it has the names that
          stand on the bus
calls     docs/calls.md names the calls of the two classes of a host, each in the right column
python    docs/helper-agents.md and the template of a product have the same helper agent in Python
versions  the changelogs, the release notes and the README are of the version in VERSION
reference Doxygen finds each public symbol documented
"""

import pathlib
import re
import subprocess
import sys
import tempfile

mode, root = sys.argv[1], pathlib.Path(sys.argv[2])


def prose(page):
    return re.sub(r"^```.*?^```", "", page.read_text(), flags=re.DOTALL | re.MULTILINE)


def anchors(page):
    """The headings of a page, as links name them."""
    for heading in re.findall(r"^#+ (.*)$", prose(page), re.MULTILINE):
        yield re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def links():
    pages = [root / "README.md", root / "CONTRIBUTING.md", root / "CHANGELOG.md",
             root / "SECURITY.md", root / "Platform/README.md", *(root / "docs").glob("*.md")]
    count = 0
    for page in pages:
        text = prose(page)
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if re.match(r"\w+:", target):
                continue
            count += 1
            name, _, anchor = target.partition("#")
            other = page.parent / name if name else page
            if not other.exists() or anchor and anchor not in anchors(other):
                yield f"{page.relative_to(root)}: {target} leads nowhere"
        defined = set(re.findall(r"^\[(\w+)\]: ", text, re.MULTILINE))
        for name in defined ^ set(re.findall(r"\]\[(\w+)\]", text)):
            yield f"{page.relative_to(root)}: [{name}] is not both defined and used"
    if count < 40:
        yield f"only {count} links were found"


def methods_of_headers():
    for header in (root / "include/ClientComm").glob("*.h"):
        text = header.read_text()
        names = re.findall(r'kClassName = "(\w+)"', text)
        # The methods of a delegate do not travel.
        for method in re.findall(r'selector<(?!&\w+Delegate::)[^>]*>\(\s*"([^"]+)"\)', text):
            yield names[0], method


def methods_of_page():
    """Class, method and arguments of each row that names a method."""
    page = prose(root / "docs/rpc-events.md")
    for section in re.split(r"^### ", page, flags=re.MULTILINE)[1:]:
        heading = re.match(r"`(\w+)`\n", section)
        for row in re.findall(r"^\| `([^`]+)` \| ([^|]*) \|", section, re.MULTILINE):
            if heading:
                yield heading[1], *row
    yield from re.findall(r"^\| `(QBHP\w+)` \| `([^`]+)` \| ([^|]*) \|", page, re.MULTILINE)


def contract():
    page = list(methods_of_page())
    ours, theirs = set(methods_of_headers()), {row[:2] for row in page}
    for name, method in sorted(ours ^ theirs):
        yield f"{name} {method} stands {'in a header' if (name, method) in ours else 'on the page'} alone"
    for name, method, arguments in page:
        count = 0 if arguments == "none" else arguments.count(",") + 1
        if arguments != "the same" and count != method.count(":"):
            yield f"{name} {method} does not take {arguments}"
    if len(ours) < 20:
        yield f"only {len(ours)} methods were found in headers"
    source = (root / "Platform/Events/DBus/SdBus.h").read_text()
    source = source.split("namespace rpc")[1].split("namespace bus")[0]
    names = re.findall(r'constexpr const char\* \w+ = "([^"]+)"', source)
    text = (root / "docs/rpc-events.md").read_text()
    for name in names:
        if f"`{name}`" not in text:
            yield f"{name} of the bus does not stand on the page"
    if len(names) < 5:
        yield f"only {len(names)} names of the bus were found"


def calls_of_header(name):
    text = (root / f"include/QBDKRProductClient/{name}.h").read_text()
    public = text.split(" public:")[1].split(" protected:")[0]
    public = re.sub(r"//.*|static constexpr[^;]*;|operator\b.*", "", public)
    return set(re.findall(r"[ &*](\w+)\([^;]*\)", public)) - {name, "className"}


def calls():
    page = prose(root / "docs/calls.md")
    columns = {"QBHPHelper": set(), "QBHPHelperCommunicate": set()}
    for names, *marks in re.findall(r"^\|[^|]*\|([^|]*)\| *(F?) *\| *(C?) *\|", page, re.MULTILINE):
        for name, mark in zip(columns, marks):
            if mark:
                columns[name] |= set(re.findall(r"(\w+)\(\)", names))
    columns["QBHPHelperCommunicate"] |= {"share", "getProductUpgradeDelegate"}  # in the text
    for name, named in columns.items():
        for call in sorted(named ^ calls_of_header(name)):
            yield f"{name}::{call}() stands {'on the page' if call in named else 'in the header'} alone"


def versions():
    version = (root / "VERSION").read_text().strip()
    for page, pattern in (("CHANGELOG.md", r"^## (\S+)"), ("docs/release-notes.md", r"^## (\S+)"),
                          ("packaging/debian/changelog", r"^qbdkr-client \((\S+)-\d+\)")):
        newest = re.search(pattern, (root / page).read_text(), re.MULTILINE)
        if not newest or newest[1] != version:
            yield f"{page} begins with another version than {version}"
    asked = re.search(r"find_package\(QBDKRProductClient (\S+) ", (root / "README.md").read_text())[1]
    if version.rpartition(".")[0] != asked:
        yield f"README.md asks for version {asked}"


def reference():
    settings = (root / "docs/api/Doxyfile").read_text()
    with tempfile.TemporaryDirectory() as output:
        run = subprocess.run(["doxygen", "-"], cwd=root, text=True, capture_output=True, check=True,
                             input=f"{settings}\nOUTPUT_DIRECTORY = {output}\n")
        pages = list(pathlib.Path(output, "html").glob("*.html"))
    yield from run.stderr.splitlines()
    if len(pages) < 100:
        yield f"only {len(pages)} pages were made"


def python():
    page = (root / "docs/helper-agents.md").read_text()
    for language, name in (("python", "helper.py"), ("sh", "program.sh")):
        shown = re.search(f"```{language}\n(.*?)```", page, re.DOTALL)[1]
        if shown != (root / "tools/qbhp/template/python/helper" / name).read_text():
            yield f"docs/helper-agents.md shows another {name} than the template has"


wrong = list({"links": links, "contract": contract, "calls": calls, "python": python, "versions": versions,
              "reference": reference}[mode]())
print("\n".join(wrong))
sys.exit(bool(wrong))
