"""Tries bundles without the libraries of the machine: contained.py SOURCES PROJECT CMAKE DIRECTORY

PROJECT is the README's project, which was built. Runs its host where the files of libsystemd, expat and utf8proc, and
of all that these load, are covered by an empty file. That fails. Then makes both bundles SELF_CONTAINED, which only
links them anew: the host runs, and so does the helper agent that it installs. The bus keeps its libraries.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from readme_project import answer
from session import Session

SOURCES, PROJECT, CMAKE, WORK = sys.argv[1:]
PROJECT, WORK = pathlib.Path(PROJECT), pathlib.Path(WORK)
CONTENTS = PROJECT / "build/bundles/PhotoTool.app/Contents"
HOST = CONTENTS / "Linux/PhotoTool"
SKIPPED = 77

# Covers each file, and goes on as the user that it was before.
COVER = """for file in $FILES; do mount --bind /dev/null "$file" || exit 77; done
exec unshare --user --map-user="$USER_ID" --map-group="$GROUP_ID" "$@" """


def fail(text):
    sys.exit(f"FAILED: {text}")


def run(*command):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode != 0:
        fail(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def build(*words):
    run(sys.executable, "-B", pathlib.Path(__file__).with_name("readme_project.py"), "make", SOURCES, PROJECT, *words)
    run(CMAKE, "--build", PROJECT / "build")


def without(files, *command):
    return ["env", f"FILES={' '.join(files)}", f"USER_ID={os.getuid()}", f"GROUP_ID={os.getgid()}",
            "unshare", "--user", "--map-root-user", "--mount", "sh", "-c", COVER, "sh", *map(str, command)]


build()
loaded = dict(re.findall(r"(\S+) => (/\S+)", run("ldd", CONTENTS / "Frameworks/libClientComm.so.0.1")))
kept = re.compile(r"lib(c|m|stdc\+\+|gcc_s)\.so")
hidden = {name: path for name, path in loaded.items() if not kept.match(name)}
for name in ("libsystemd", "libexpat", "libutf8proc", "libcap"):
    if not any(library.startswith(f"{name}.so") for library in hidden):
        fail(f"{name} is not loaded from the machine: {loaded}")
files = [os.path.realpath(path) for path in hidden.values()]
if subprocess.run(without(files, "true"), stderr=subprocess.DEVNULL).returncode != 0:
    print("skipped: this user may have no mount namespace, so no library can be hidden")
    sys.exit(SKIPPED)

shutil.rmtree(WORK, ignore_errors=True)
with Session(WORK) as session:
    lines, _, log = session.run(without(files, HOST))
    if lines or "file too short" not in log:
        fail(f"a bundle that is not self-contained runs without its libraries:\n{lines}\n{log}")
    build("SELF_CONTAINED")
    try:
        shutil.move(PROJECT / "build/bundles/PhotoTool.app", WORK)  # so that nothing is found beside it
        lines, _, log = session.run(without(files, WORK / "PhotoTool.app/Contents/Linux/PhotoTool"))
    finally:
        shutil.move(WORK / "PhotoTool.app", PROJECT / "build/bundles")
        build()
    if lines != [answer(session)]:
        fail(f"a self-contained bundle does not run without the machine's libraries:\n{lines}\n{log}")
print(f"hidden: {' '.join(hidden)}")
