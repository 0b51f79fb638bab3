"""A session bus and a home directory of their own, in which hosts are run."""

import os
import pathlib
import select
import signal
import subprocess
import time

DEADLINE = 60  # seconds; only a hang takes as long


class Session:
    def __init__(self, home):
        self.home = pathlib.Path(home).resolve()
        self.home.mkdir(parents=True)
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"], text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.environment = {"HOME": str(self.home), "PATH": os.environ["PATH"],
                            "DBUS_SESSION_BUS_ADDRESS": self.bus.stdout.readline().strip()}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in self.installed_processes():
            os.kill(process, signal.SIGTERM)
        deadline = time.monotonic() + DEADLINE
        while self.installed_processes() and time.monotonic() < deadline:
            time.sleep(0.01)
        self.bus.terminate()
        self.bus.wait(DEADLINE)
        self.bus.stdout.close()

    def installed_processes(self):
        """The processes whose executable lies in the home directory: helper agents."""
        found = []
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if os.readlink(entry / "exe").startswith(f"{self.home}/"):
                    found.append(int(entry.name))
            except OSError:
                pass  # it has ended, or belongs to another user
        return found

    def run(self, command, count=1):
        """Runs a host until it has printed so many lines or ended, and ends it. Returns these lines, its exit code, and
        what it wrote to its standard error."""
        with open(self.home / "log", "ab") as log:
            host = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE, stderr=log)
        lines = first_lines(host.stdout, count)
        host.terminate()
        code = host.wait(DEADLINE)
        host.stdout.close()
        return lines, code, (self.home / "log").read_text()


def first_lines(stream, count):
    """The first lines that come; fewer at the deadline, or at the end of the stream."""
    deadline = time.monotonic() + DEADLINE
    text = b""
    while text.count(b"\n") < count:
        ready, _, _ = select.select([stream], [], [], max(0, deadline - time.monotonic()))
        part = os.read(stream.fileno(), 4096) if ready else b""
        if not part:
            break
        text += part
    return text.decode().splitlines()
