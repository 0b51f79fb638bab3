"""Runs a host for the first time: in a new home, on a bus of its own."""

import os
import pathlib
import select
import signal
import subprocess
import time

PATIENCE = 60  # seconds


def processes_in(directory):
    """The processes whose executable lies in a directory."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and os.readlink(entry / "exe").startswith(f"{directory}/"):
                found.append(int(entry.name))
        except OSError:
            pass  # it has ended, or belongs to another user
    return found


def lines_of(descriptor, count):
    """The first lines that come, fewer at the deadline or at the end of the output."""
    deadline = time.monotonic() + PATIENCE
    text = b""
    while text.count(b"\n") < count:
        ready, _, _ = select.select([descriptor], [], [], max(0, deadline - time.monotonic()))
        part = os.read(descriptor, 4096) if ready else b""
        if not part:
            break
        text += part
    return text.decode().splitlines()


def end(process):
    process.terminate()
    try:
        return process.wait(PATIENCE)
    except subprocess.TimeoutExpired:
        process.kill()
        return process.wait()


def first_run(bundle, home, count):
    """The first lines that the host of a bundle prints, and its exit code after SIGTERM."""
    home = pathlib.Path(home).resolve()
    home.mkdir(parents=True)
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("XDG_", "DBUS_"))}
    environment["HOME"] = str(home)
    bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"], stdout=subprocess.PIPE,
                           env=environment)
    try:
        environment["DBUS_SESSION_BUS_ADDRESS"] = lines_of(bus.stdout.fileno(), 1)[0]
        bundle = pathlib.Path(bundle)
        host = subprocess.Popen([bundle / "Contents/Linux" / bundle.stem], stdout=subprocess.PIPE, env=environment)
        try:
            lines = lines_of(host.stdout.fileno(), count)
        finally:
            code = end(host)
        return lines, code
    finally:
        helpers = processes_in(home)
        for process in helpers:
            os.kill(process, signal.SIGTERM)
        deadline = time.monotonic() + PATIENCE
        while processes_in(home) and time.monotonic() < deadline:
            time.sleep(0.01)
        end(bus)
