"""A private session bus and home directory, in which a host is run."""

import os
import pathlib
import select
import signal
import subprocess

DEADLINE = 60  # seconds; only a hang takes as long


class Session:
    def __init__(self, folder):
        self.home = pathlib.Path(folder)
        self.home.mkdir(parents=True)
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"], text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.environment = {"HOME": str(self.home), "PATH": os.environ["PATH"],
                            "DBUS_SESSION_BUS_ADDRESS": self.bus.stdout.readline().strip()}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.bus.terminate()
        self.bus.wait(DEADLINE)
        self.bus.stdout.close()

    def process_of(self, name):
        """The process that owns a name of the bus, or None."""
        done = subprocess.run(
            ["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.GetConnectionUnixProcessID", f"string:{name}"],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        return int(done.stdout.split()[-1]) if done.returncode == 0 else None

    def run(self, command, helper):
        """Runs a host until it has printed a line or ended, and ends it and its helper agent. Returns whether the helper
        agent of that name was on the bus then, and all that the host wrote."""
        log = self.home / "log"
        with open(log, "ab") as errors:
            host = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE, stderr=errors)
        readable, _, _ = select.select([host.stdout], [], [], DEADLINE)
        line = host.stdout.readline().decode() if readable else "(it prints nothing)\n"
        process = self.process_of(helper)
        host.terminate()
        host.wait(DEADLINE)
        host.stdout.close()
        if process:
            end = os.pidfd_open(process)
            os.kill(process, signal.SIGTERM)
            select.select([end], [], [], DEADLINE)
            os.close(end)
        return process is not None, line + log.read_text()
