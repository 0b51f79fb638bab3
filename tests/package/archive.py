"""Tries the archive of a release: archive.py SOURCES VERSION CMAKE CTEST COMPILER DIRECTORY

Makes it of the commit that is checked out, compares it with the files of that commit, and configures it with all tests.
One library is built, and the tests that need no build are run. A git that only leaves a mark stands first on the path.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tarfile

SOURCES, VERSION, CMAKE, CTEST, COMPILER, WORK = sys.argv[1:]
WORK = pathlib.Path(WORK)
NAME = f"qbdkr-product-client-{VERSION}"
SKIPPED = 77


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)
    if done.returncode != 0:
        sys.exit(f"FAILED: {' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def git(*arguments):
    return run("git", "-c", f"safe.directory={SOURCES}", "-C", SOURCES, *arguments)


if not shutil.which("git") or not os.path.exists(f"{SOURCES}/.git"):
    print("skipped: these sources are no clone, so they have no archive")
    sys.exit(SKIPPED)
shutil.rmtree(WORK, ignore_errors=True)
(WORK / "bin").mkdir(parents=True)
archive = WORK / f"{NAME}.tar.gz"
git("archive", f"--prefix={NAME}/", f"--output={archive}", "HEAD")
with tarfile.open(archive) as members:
    files = {member.name.removeprefix(f"{NAME}/") for member in members if not member.isdir()}
    members.extractall(WORK)
missing = set(git("ls-tree", "-r", "-z", "--name-only", "HEAD").split("\0")) - files - {""}
if missing:
    sys.exit(f"FAILED: the archive lacks {sorted(missing)}")

mark = WORK / "git was called"
stub = WORK / "bin/git"
stub.write_text(f'#!/bin/sh\necho "$@" >>"{mark}"\nexit 1\n')
stub.chmod(0o755)
environment = {**os.environ, "PATH": f"{WORK / 'bin'}:{os.environ['PATH']}", "GIT_CEILING_DIRECTORIES": str(WORK)}
build = WORK / "build"
run(CMAKE, "-S", WORK / NAME, "-B", build, "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={COMPILER}", env=environment)
run(CMAKE, "--build", build, "--target", "SampleSupport", env=environment)
run(CTEST, "--test-dir", build, "-R", "^(Pages|LayersAndRooms)", "--no-tests=error", "--output-on-failure",
    env=environment)
if mark.exists():
    sys.exit(f"FAILED: git was called with: {mark.read_text()}")
print(f"{len(files)} files")
