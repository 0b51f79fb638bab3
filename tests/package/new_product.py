"""Makes products with the installed tool, and does to each what a newcomer does: builds it, runs its tests, and runs its
host: new_product.py CMAKE BUILD COMPILER DIRECTORY"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from session import Session

CMAKE, BUILD, COMPILER = sys.argv[1:4]
WORK = pathlib.Path(sys.argv[4]).resolve()
PREFIX = WORK / "prefix"
WARNINGS = "-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror"


def run(*command, **options):
    result = subprocess.run(list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} fails:\n{result.stdout}")
    return result.stdout


def check(name, *options):
    """Makes a product, and runs the commands that the tool names."""
    tree = WORK / name
    output = run(PREFIX / "bin/qbhp", "new-product", name, *options, cwd=WORK)
    files, commands = output.split("\n\nNext:\n")
    made = sorted(str(path.relative_to(WORK)) for path in tree.rglob("*") if path.is_file())
    if files.splitlines() != made:
        sys.exit(f"the files of {name} are {made}, and told are:\n{files}")
    for path in made:
        if re.search(r"\{\{|\}\}", (WORK / path).read_text()):
            sys.exit(f"{path} has a placeholder left")
    configure, build, test, host = commands.splitlines()
    environment = {**os.environ, "CXX": COMPILER, "CXXFLAGS": WARNINGS, "CMAKE_GENERATOR": "Ninja"}
    for command in (configure, build, test):
        run("sh", "-c", command, cwd=WORK, env=environment)
    checked = run(PREFIX / "bin/qbhp", "check-helper", f"{tree}/build/bundles/{name}Helper.app")
    if not re.search(r"\n\d+ ok, 0 failed, 0 skipped\n", checked):
        sys.exit(f"the helper agent of {name} leaves something out:\n{checked}")
    with Session(WORK / f"home of {name}") as session:
        lines, code, log = session.run([host], count=4)
        if not session.installed_processes():
            sys.exit(f"the helper agent of {name} ends with its host")
        run("sh", "-c", test, cwd=WORK, env=environment)  # while a helper agent of an earlier run lives
    page = session.home / f".local/share/{name}/{name}Helper.app/Contents/Resources/NetworkError.html"
    due = ["The helper agent runs.", r"Identifier of this installation: [0-9a-f]{32}",
           f"Page without a network: {re.escape(str(page))}", "Usage data: not collected"]
    if not re.fullmatch("\n".join(due), "\n".join(lines)) or code != 0:
        sys.exit(f"the host of {name} ends with {code}, and prints:\n" + "\n".join([*lines, log]))


def check_without_bus(name):
    """A host that cannot reach its helper agent says so, and why."""
    host = WORK / name / f"build/bundles/{name}.app/Contents/Linux/{name}"
    with Session(WORK / f"home of {name} without a bus") as session:
        del session.environment["DBUS_SESSION_BUS_ADDRESS"]
        lines, code, log = session.run([host], count=2)
    if lines[:1] != ["The helper agent does not answer."] or "DBUS_SESSION_BUS_ADDRESS" not in "".join(lines[1:]):
        sys.exit(f"without a bus the host of {name} ends with {code}, and prints:\n" + "\n".join([*lines, log]))


shutil.rmtree(WORK, ignore_errors=True)
WORK.mkdir(parents=True)
run(CMAKE, "--install", BUILD, "--prefix", PREFIX)
check("Sketch", "--identifier", "com.Acme")
check_without_bus("Sketch")
check("Py-Sketch_2", "--python")
