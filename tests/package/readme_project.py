"""Makes a project of the code that the pages show, and runs it when it is built:
readme_project.py make ROOT DIRECTORY [SELF_CONTAINED] | run DIRECTORY

With the last word its bundles contain the libraries of the machine.
"""

import pathlib
import re
import sys

from session import Session


def block(root, page, language, begins_with):
    found = re.search(f"```{language}\n({re.escape(begins_with)}.*?)```",
                      (root / page).read_text(), re.DOTALL)
    if found is None:
        sys.exit(f"{page} has no {language} that begins with {begins_with}")
    return found[1]


def make(root, directory, self_contained=None):
    project = block(root, "README.md", "cmake", "cmake_minimum_required")
    if self_contained:
        project = project.replace(" LIBRARIES QBDKR", f" {self_contained} LIBRARIES QBDKR")
        if project.count("SELF_CONTAINED") != 2:
            sys.exit("the README's project does not make two bundles")
    host_plist = block(root, "README.md", "xml", "<?xml")
    directory.mkdir(parents=True, exist_ok=True)
    for name, text in {
        "CMakeLists.txt": project,
        "host.cpp": block(root, "README.md", "cpp", "#include <chrono>"),
        "helper.cpp": block(root, "docs/helper-agents.md", "cpp", "#include <array>"),
        "limits.cpp": block(root, "docs/reference.md", "cpp", "#include <chrono>"),
        "states.cpp": block(root, "docs/reference.md", "cpp", "#include <iostream>"),
        "Host.plist": host_plist,
        "Helper.plist": host_plist.replace("com.Acme.PhotoTool", "com.Acme.Helper").replace(
            ">PhotoTool<", ">AcmeHelper<"),
        "NetworkError.html": "<p>No network</p>\n",
    }.items():
        (directory / name).write_text(text)


def run(directory):
    with Session(directory / "home") as session:
        lines, code, log = session.run([directory / "build/bundles/PhotoTool.app/Contents/Linux/PhotoTool"])
    if lines != [answer(session)] or code != 0:
        sys.exit(f"the README's host ends with {code}, and prints {lines} instead of {answer(session)}:\n{log}")


def answer(session):
    """The line that the host prints when its installed helper agent has answered."""
    return str(session.home / ".local/share/Acme/AcmeHelper.app/Contents/Resources/NetworkError.html")


if __name__ == "__main__":
    {"make": make, "run": run}[sys.argv[1]](*map(pathlib.Path, sys.argv[2:]))
