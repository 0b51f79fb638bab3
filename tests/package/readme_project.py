"""Makes a project of the code that the pages show: readme_project.py ROOT DIRECTORY"""

import pathlib
import re
import sys

root, directory = map(pathlib.Path, sys.argv[1:3])


def block(page, language, begins_with):
    found = re.search(f"```{language}\n({re.escape(begins_with)}.*?)```",
                      (root / page).read_text(), re.DOTALL)
    if found is None:
        sys.exit(f"{page} has no {language} that begins with {begins_with}")
    return found[1]


host_plist = block("README.md", "xml", "<?xml")
directory.mkdir(parents=True, exist_ok=True)
for name, text in {
    "CMakeLists.txt": block("README.md", "cmake", "cmake_minimum_required"),
    "host.cpp": block("README.md", "cpp", "#include <chrono>"),
    "helper.cpp": block("docs/helper-agents.md", "cpp", "#include <array>"),
    "limits.cpp": block("docs/reference.md", "cpp", "#include <chrono>"),
    "states.cpp": block("docs/reference.md", "cpp", "#include <iostream>"),
    "Host.plist": host_plist,
    "Helper.plist": host_plist.replace("com.Acme.PhotoTool", "com.Acme.Helper").replace(
        ">PhotoTool<", ">AcmeHelper<"),
}.items():
    (directory / name).write_text(text)
