"""Makes a project of what the README shows: readme_project.py README DIRECTORY"""

import pathlib
import re
import sys

readme = pathlib.Path(sys.argv[1]).read_text()
directory = pathlib.Path(sys.argv[2])


def block(language, begins_with):
    found = re.search(f"```{language}\n({re.escape(begins_with)}.*?)```", readme, re.DOTALL)
    if found is None:
        sys.exit(f"the README has no {language} that begins with {begins_with}")
    return found[1]


host_plist = block("xml", "<?xml")
directory.mkdir(parents=True, exist_ok=True)
for name, text in {
    "CMakeLists.txt": block("cmake", "cmake_minimum_required"),
    "host.cpp": block("cpp", "#include <csignal>"),
    "helper.cpp": block("cpp", "#include <array>"),
    "Host.plist": host_plist,
    "Helper.plist": host_plist.replace("com.Acme.PhotoTool", "com.Acme.Helper").replace(
        ">PhotoTool<", ">AcmeHelper<"),
}.items():
    (directory / name).write_text(text)
