"""Does what docs/guide.md says, and then docs/recipes.md, in a home and on a bus of its own:
guide.py ROOT [BUILD].

Without BUILD the library is built from a copy of the tree, as the page says, which takes minutes.
With it the commands for that do nothing, and what was built in BUILD is installed. "sudo" checks
that the packages are installed, and installs nothing. "…" in the output stands for any text.
"""

import os
import pathlib
import re
import selectors
import shutil
import signal
import subprocess
import sys
import tempfile
import time

root = pathlib.Path(sys.argv[1]).resolve()
build = pathlib.Path(sys.argv[2]).resolve() if len(sys.argv) > 2 else None
PATIENCE = 120 if build else 1800  # seconds for one command
DONE = "@@done@@"

SUDO = """#!/bin/sh
[ "$1 $2 $3" = "apt-get install --yes" ] || exit 1
shift 3
for package; do
  dpkg-query -W -f '${db:Status-Status}\\n' "$package" | grep -qx installed || exit 1
done
echo installed
"""
CMAKE = """#!/bin/sh
case "$*" in
  "--preset release" | "--build build/release") echo left out ;;
  "--install build/release --prefix "*) exec %(cmake)s --install %(build)s --prefix "$4" ;;
  *) exec %(cmake)s "$@" ;;
esac
"""


def steps(page):
    """The files and the commands with their output, in order."""
    for name, language, text in re.findall(r"(?:`~/([^`]+)`:\n\n)?^```(\w+)\n(.*?)^```", page,
                                           re.DOTALL | re.MULTILINE):
        if name:
            yield "file", name, text
        elif language == "console":
            for command, output in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", text, re.MULTILINE):
                yield "command", command, output
        else:
            sys.exit(f"neither a file nor commands: {text}")


class Shell:
    def __init__(self, folder, environment):
        self.process = subprocess.Popen(["dbus-run-session", "--", "bash"], cwd=folder,
                                        env=environment, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        os.set_blocking(self.process.stdout.fileno(), False)
        self.output = selectors.DefaultSelector()
        self.output.register(self.process.stdout, selectors.EVENT_READ)

    def run(self, command, expected):
        """Returns the output of a command when it has ended and all that is expected has come."""
        wanted = ".*".join(map(re.escape, expected.split("…")))
        self.process.stdin.write(f"{command}\necho {DONE}\n".encode())
        self.process.stdin.flush()
        text, deadline = "", time.monotonic() + PATIENCE
        while DONE not in text or not re.fullmatch(wanted, text.replace(DONE + "\n", ""), re.DOTALL):
            rest = deadline - time.monotonic()
            if rest < 0 or DONE in text and "&" not in command:
                sys.exit(f"$ {command}\n{text}\nwas expected to print:\n{expected}")
            if self.output.select(rest):
                more = self.process.stdout.read()
                if not more:
                    sys.exit(f"$ {command}\n{text}\nended the shell")
                text += more.decode()
        return text.replace(DONE + "\n", "")

    def end(self):
        self.process.stdin.close()
        self.process.wait(PATIENCE)


def end_processes_of(folder):
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if os.readlink(entry / "exe").startswith(f"{folder}/"):
                os.kill(int(entry.name), signal.SIGKILL)
        except OSError:
            pass  # it has ended, or is another user's


with tempfile.TemporaryDirectory() as home:
    home = pathlib.Path(home).resolve()
    tools, tree = home / "tools", home / "tree"
    tools.mkdir()
    texts = {"sudo": SUDO}
    if build:
        tree.mkdir()
        texts["cmake"] = CMAKE % {"cmake": shutil.which("cmake"), "build": build}
    else:
        shutil.copytree(root, tree, symlinks=True, ignore=shutil.ignore_patterns("build", ".git"))
    for name, text in texts.items():
        (tools / name).write_text(text)
        (tools / name).chmod(0o755)
    environment = {"HOME": str(home), "PATH": f"{tools}:{os.environ['PATH']}", "LANG": "C.UTF-8",
                   "TERM": "dumb"}
    shell = Shell(tree, environment)
    count = 0
    try:
        for kind, name, text in [*steps((root / "docs/guide.md").read_text()),
                                 *steps((root / "docs/recipes.md").read_text())]:
            count += 1
            if kind == "file":
                (home / name).write_text(text)
            else:
                print(f"$ {name}\n{shell.run(name, text)}", end="", flush=True)
        shell.end()
    finally:
        end_processes_of(home)
    if count < 30:
        sys.exit(f"only {count} steps were found")
