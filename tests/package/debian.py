"""Tries the Debian packages of a build: debian.py CPACK BUILD SOURCES CMAKE COMPILER OBJECTIVE_C DIRECTORY

Makes them, installs them into a root of its own, judges their dependencies and contents, builds and runs the README's
project against that root, checks the packaged sample with the packaged tool, and purges them: no file is left.

The machine's database of packages is copied into the root, so dpkg judges the dependencies as on this machine. A user
who is not root becomes root of a namespace that contains nobody else.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from readme_project import answer
from session import Session

CPACK, BUILD, SOURCES, CMAKE, COMPILER = sys.argv[1:6]
OBJECTIVE_C = sys.argv[6] == "ON"
WORK = pathlib.Path(sys.argv[7])
ROOT = WORK / "root"
SKIPPED = 77
AS_ROOT = [] if os.geteuid() == 0 else ["unshare", "--user", "--map-root-user"]

# Each package, patterns of its dependencies, and some of its files, from /usr. LIB is the folder of libraries.
PACKAGES = {
    "libqbdkr-client0": (
        ["libc6 .*", r"libexpat1 .*", r"libgcc-s1 .*", r"libstdc\+\+6 .*", r"libsystemd0 .*", r"libutf8proc\d+ .*"],
        ["LIB/libClientComm.so.0.1", "LIB/libQBDKRProductClient.so.0.1"]),
    "libqbdkr-client-dev": (
        ["libqbdkr-client0 (= VERSION)", "libsystemd-dev", "libexpat1-dev", "libutf8proc-dev"],
        ["include/ClientComm/RunLoop.h", "include/QBDKRProductClient/QBHPHelper.h", "LIB/libClientComm.so",
         "LIB/pkgconfig/QBDKRProductClient.pc", "LIB/cmake/QBDKRProductClient/QBDKRBundle.cmake"]),
    "libqbdkr-client-objc0": (
        ["libqbdkr-client0 (= VERSION)", r"libgnustep-base\S+ .*", r"libobjc4 .*"],
        ["LIB/libQBDKRProductClientObjC.so.0.1"]),
    "libqbdkr-client-objc-dev": (
        ["libqbdkr-client-objc0 (= VERSION)", "libqbdkr-client-dev (= VERSION)", "libgnustep-base-dev",
         r"gobjc \| gobjc\+\+"],
        ["include/QBDKRProductClientObjC/QBHPHelper.h", "LIB/libQBDKRProductClientObjC.so"]),
    "qbhp": (
        ["libc6 .*", r"libexpat1 .*", r"libstdc\+\+6 .*", r"libsystemd0 .*", r"libutf8proc\d+ .*"],
        ["bin/qbhp", "libexec/qbhp.app/Contents/Info.plist", "share/man/man1/qbhp.1.gz",
         "share/bash-completion/completions/qbhp"]),
    "qbdkr-client-examples": (
        [r"libsystemd0 .*", r"libsqlite3-0 .*", r"libssl3\S* .*"],
        ["libexec/qbdkr-client-examples/PhotoTool.app/Contents/Linux/PhotoTool",
         "share/doc/qbdkr-client-examples/examples/PhotoTool/main.cpp"]),
}
WITHOUT_OBJECTIVE_C = {"libqbdkr-client-objc0", "libqbdkr-client-objc-dev"}


def fail(text):
    sys.exit(f"FAILED: {text}")


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **options)
    if done.returncode != 0:
        fail(f"{' '.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def dpkg(*arguments):
    return run(*AS_ROOT, "dpkg", f"--root={ROOT}", *arguments)


def field(package, name):
    return run("dpkg-deb", "--field", package, name).strip()


def give(program):
    """Copies a program of the machine into the root, with the libraries that it loads."""
    listed = subprocess.run(["ldd", program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    for path in [program, *re.findall(r"(/\S+) \(0x", listed)]:
        copy = ROOT / path[1:]
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, copy)


def make_root():
    """A root with the machine's database, and what the scripts of the packages call."""
    database = ROOT / "var/lib/dpkg"
    for folder in ("info", "updates", "triggers", "parts"):
        (database / folder).mkdir(parents=True)
    status = pathlib.Path("/var/lib/dpkg/status").read_text()
    # The machine may have the packages as well.
    known = [text for text in status.split("\n\n") if not re.match(rf"Package: ({'|'.join(PACKAGES)})\n", text)]
    (database / "status").write_text("\n\n".join(known))
    for program in filter(os.path.exists, ("/bin/sh", "/sbin/ldconfig", "/sbin/ldconfig.real")):
        give(program)
    for folder in ("etc", "var/cache/ldconfig", "var/log", "tmp"):
        (ROOT / folder).mkdir(parents=True, exist_ok=True)


def contents():
    """All entries of the root but those that are dpkg's own, and the loader's cache."""
    own = ("var/lib/dpkg", "var/log", "var/cache/ldconfig", "etc/ld.so.cache")
    return {name for path in ROOT.rglob("*") if not (name := str(path.relative_to(ROOT))).startswith(own)}


def check_metadata(packages):
    """Returns the folder of the libraries, from /usr."""
    listing = run("dpkg-deb", "--contents", packages["libqbdkr-client0"])
    library_folder = re.search(r"\./usr/(lib\S*)/libClientComm\.so\.", listing)[1]
    for name, package in packages.items():
        depends = field(package, "Depends").split(", ")
        version = field(package, "Version")
        for pattern in PACKAGES[name][0]:
            if "VERSION" in pattern:
                found = pattern.replace("VERSION", version) in depends
            else:
                found = any(re.fullmatch(pattern.replace(" .*", r"( \(.*\))?"), given) for given in depends)
            if not found:
                fail(f"{name} does not depend on {pattern}: {depends}")
        for wanted in ("Maintainer", "Section", "Description", "Installed-Size"):
            if not field(package, wanted):
                fail(f"{name} has no {wanted}")
        listing = run("dpkg-deb", "--contents", package)
        for file in [*PACKAGES[name][1], f"share/doc/{name}/copyright", f"share/doc/{name}/changelog.Debian.gz"]:
            if f" ./usr/{file.replace('LIB', library_folder)}" not in listing:
                fail(f"{name} has no {file}:\n{listing}")
    if "libgnustep" in field(packages["libqbdkr-client0"], "Depends"):
        fail("the plain library depends on GNUstep")
    if ".so" in run("dpkg-deb", "--contents", packages["qbhp"]):
        fail("the package of the tool has libraries of its own")
    symbols = run("dpkg-deb", "--info", packages["libqbdkr-client0"], "symbols")
    for mangled in ("_ZN5qbdkr7RunLoop4mainEv@Base", "_ZN5qbdkr10QBHPHelper5shareEv@Base"):
        if mangled not in symbols:
            fail(f"the symbols of the package lack {mangled}:\n{symbols}")
    return library_folder


def run_readme_project(library_folder):
    """Builds it against the root, and runs its host, which installs and launches its helper agent."""
    project = WORK / "readme"
    run(sys.executable, "-B", pathlib.Path(__file__).with_name("readme_project.py"), "make", SOURCES, project)
    run(CMAKE, "-S", project, "-B", project / "build", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={ROOT}/usr",
        f"-DCMAKE_CXX_COMPILER={COMPILER}")
    if f"QBDKRProductClient_DIR:PATH={ROOT}/usr/{library_folder}/cmake" not in \
            (project / "build/CMakeCache.txt").read_text():
        fail("another installation was found")
    run(CMAKE, "--build", project / "build")
    host = project / "build/bundles/PhotoTool.app/Contents/Linux/PhotoTool"
    with Session(WORK / "home") as session:
        lines, _, log = session.run([host])
        if lines != [answer(session)]:
            fail(f"the README's host has no answer:\n{lines}\n{log}")


def run_installed(library_folder):
    """Runs what was installed: the tool, over the sample helper agent."""
    cache = run(*AS_ROOT, "chroot", ROOT, "/sbin/ldconfig", "-p")
    if "libQBDKRProductClient.so.0.1 " not in cache:
        fail(f"the loader's cache lacks the library:\n{cache}")
    helper = ROOT / "usr/libexec/qbdkr-client-examples/PhotoTool.app/Contents/Resources/AcmeHelper.app"
    environment = {**os.environ, "LD_LIBRARY_PATH": str(ROOT / "usr" / library_folder)}
    checked = run(ROOT / "usr/bin/qbhp", "check-helper", helper, env=environment)
    if not re.search(r"\d\d ok, 0 failed", checked):
        fail(f"the sample helper agent is not what its contract says:\n{checked}")


if not shutil.which("dpkg-deb") or not shutil.which("dpkg-gensymbols") or not shutil.which("file"):
    print("skipped: dpkg-dev or file is missing, so no packages are made")
    sys.exit(SKIPPED)
if AS_ROOT and subprocess.run([*AS_ROOT, "true"], stderr=subprocess.DEVNULL).returncode != 0:
    print("skipped: this user may neither install packages nor have a user namespace")
    sys.exit(SKIPPED)
shutil.rmtree(WORK, ignore_errors=True)
WORK.mkdir(parents=True)
run(CPACK, "--config", f"{BUILD}/CPackConfig.cmake", "-B", WORK / "packages")
packages = {field(path, "Package"): path for path in (WORK / "packages").glob("*.deb")}
if packages.keys() != PACKAGES.keys() - (set() if OBJECTIVE_C else WITHOUT_OBJECTIVE_C):
    fail(f"these packages were made: {', '.join(packages)}")
folder = check_metadata(packages)
make_root()
before = contents()
dpkg("--install", *packages.values())
installed = contents() - before
if len(installed) < 100:
    fail(f"only this was installed: {installed}")
run_readme_project(folder)
run_installed(folder)
dpkg("--purge", *packages)
if contents() != before:
    fail(f"the packages leave behind, or take along: {sorted(contents() ^ before)}")
print(f"{len(packages)} packages, {len(installed)} files and folders")
