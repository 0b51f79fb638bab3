"""Tries what the scripts have in common: check.py help|progress ROOT.

help      each script tells its usage, from any folder, and refuses arguments that it does not know
progress  a build shows how far it is on a terminal alone, and its output if it fails
"""

import os
import pathlib
import pty
import subprocess
import sys
import tempfile

mode, root = sys.argv[1], pathlib.Path(sys.argv[2]).resolve()
PASSES_ARGUMENTS_ON = ("test", "soak")


def wrong_help():
    scripts = [path for path in (root / "scripts").iterdir() if os.access(path, os.X_OK)]
    for script in scripts:
        run = subprocess.run([script, "--help"], cwd="/", capture_output=True, text=True, timeout=60)
        if run.returncode or f"Usage: scripts/{script.name}" not in run.stdout or run.stderr:
            yield f"{script.name} --help: {run.returncode}\n{run.stdout}{run.stderr}"
        if script.name in PASSES_ARGUMENTS_ON:
            continue
        run = subprocess.run([script, "--nonsense"], cwd="/", capture_output=True, text=True, timeout=60)
        if run.returncode != 2:
            yield f"{script.name} --nonsense: {run.returncode}\n{run.stdout}{run.stderr}"
    if len(scripts) < 10:
        yield f"only {len(scripts)} scripts were found"


def build(result, on_terminal):
    """Builds with a cmake that prints two lines as Ninja does; returns the exit code and the output."""
    with tempfile.TemporaryDirectory() as tools:
        cmake = pathlib.Path(tools, "cmake")
        cmake.write_text(f"#!/bin/sh\necho '[1/2] Building a.o'\necho '[2/2] Linking a'\nexit {result}\n")
        cmake.chmod(0o755)
        master, terminal = pty.openpty()
        environment = dict(os.environ, PATH=f"{tools}:{os.environ['PATH']}")
        run = subprocess.run(["bash", "-euo", "pipefail", "-c", ". scripts/common.sh; build dev"], cwd=root,
                             env=environment, stdout=subprocess.PIPE, timeout=60,
                             stderr=terminal if on_terminal else subprocess.PIPE)
        os.close(terminal)
        shown = b""
        try:
            while on_terminal and (more := os.read(master, 4096)):
                shown += more
        except OSError:
            pass  # the end of the terminal
        os.close(master)
        return run.returncode, (shown or run.stderr or b"").decode(), run.stdout.decode()


def wrong_progress():
    code, shown, output = build(0, on_terminal=True)
    if code or output or "built [1/2]" not in shown or not shown.endswith("\r\033[K"):
        yield f"on a terminal: {code} {shown!r} {output!r}"
    code, shown, output = build(0, on_terminal=False)
    if code or shown or output:
        yield f"elsewhere: {code} {shown!r} {output!r}"
    code, shown, output = build(1, on_terminal=False)
    if code != 1 or "[1/2] Building a.o\n" not in shown:
        yield f"that fails: {code} {shown!r} {output!r}"


wrong = list({"help": wrong_help, "progress": wrong_progress}[mode]())
print("\n".join(wrong))
sys.exit(bool(wrong))
