"""The place where the benchmarks run: their programs, a bus of their own, a home, and scratch directories."""

import contextlib
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time

from table import LeftOut, Samples

HELPER = "EchoAgent"
PATIENCE = 20  # seconds


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise RuntimeError(f"{what}: not within {PATIENCE} s")
        time.sleep(0.01)
    return result


def parsed(output):
    """Returns the samples that a program printed, by their side."""
    sides = {}
    for line in output.splitlines():
        side, _, number = line.partition(" ")
        sides.setdefault(side, []).append(float(number))
    return sides


def samples(output):
    sides = parsed(output)
    return Samples(sides.get("ours", []), sides.get("theirs", []))


def time_of(*command):
    """Returns the microseconds that a command takes."""
    start = time.perf_counter_ns()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    return (time.perf_counter_ns() - start) / 1000


def need(tool):
    if not shutil.which(tool):
        raise LeftOut(f"{tool} is missing")


class Desk:
    def __init__(self, build):
        self.build = pathlib.Path(build).resolve()
        self.programs = self.build / "benchmarks"
        self.scratch = pathlib.Path(tempfile.mkdtemp(prefix="bench-", dir=self.build))  # on a disk
        self.kept = {}
        self.homes = 0
        self.notes = []  # what belongs below the table

    def close(self):
        shutil.rmtree(self.scratch, ignore_errors=True)

    def once(self, name, make):
        """Returns something that several rows use, and that is made for the first of them."""
        if name not in self.kept:
            self.kept[name] = make()
        return self.kept[name]

    def path(self, program):
        bundle = self.programs / f"{program}.app/Contents/Linux/{program}"
        return bundle if bundle.exists() else self.programs / program

    def home(self):
        """Makes a home directory with a folder for settings, and returns an environment with it."""
        self.homes += 1
        home = self.scratch / f"home-{self.homes}"
        (home / ".config").mkdir(parents=True)
        environment = {key: value for key, value in os.environ.items() if not key.startswith(("XDG_", "DBUS_"))}
        return environment | {"HOME": str(home), "XDG_RUNTIME_DIR": str(home)}

    def run(self, program, *arguments, environment=None, pinned=False):
        """Runs a program to its end, and returns what it printed."""
        command = [*pin(pinned), self.path(program), *map(str, arguments)]
        run = subprocess.run(command, env=environment or self.home(), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             text=True, timeout=600)
        if run.returncode:
            raise RuntimeError(f"{program} {' '.join(map(str, arguments))}: {run.stderr.strip()}")
        return run.stdout

    @contextlib.contextmanager
    def bus(self, agents=(HELPER,), pinned=False):
        """Runs a session bus and agents on it; gives the environment of programs that use it."""
        environment = self.home()
        environment["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=" + environment["HOME"] + "/bus"
        with contextlib.ExitStack() as processes:
            processes.enter_context(process([*pin(pinned), "dbus-daemon", "--session", "--nofork", "--address",
                                             environment["DBUS_SESSION_BUS_ADDRESS"]], environment))
            wait_until(pathlib.Path(environment["HOME"], "bus").exists, "the bus")
            for agent in agents:
                processes.enter_context(process([*pin(pinned), self.path(agent)], environment))
            for agent in agents:
                wait_until(lambda agent=agent: owns_name(f"com.Acme.{agent}", environment), agent)
            try:
                yield environment
            finally:
                end_processes_of(environment["HOME"])

    def host(self, size=0):
        """Returns a host whose helper agent carries so many bytes of data."""

        def make():
            host = self.scratch / f"host-{size}" / "Host.app"
            shutil.copytree(self.programs / "Host.app", host, symlinks=True)
            helper = host / f"Contents/Resources/{HELPER}.app"
            shutil.copytree(self.programs / f"{HELPER}.app", helper, symlinks=True)
            if size:
                with open(helper / "Contents/data", "wb") as data:
                    block = os.urandom(1 << 20)
                    for _ in range(size >> 20):
                        data.write(block)
                    data.flush()
                    os.fsync(data.fileno())  # or its flush goes on beside a measurement
            return host / "Contents/Linux/Host"

        return self.once(f"host {size}", make)

    @contextlib.contextmanager
    def settled_host(self, what):
        """Runs a host until it has launched its helper agent and has nothing more to do; gives its process."""
        with self.bus(agents=()) as environment:
            with process([self.host(), what], environment) as host:
                wait_until(lambda: owns_name(f"com.Acme.{HELPER}", environment), "the helper agent")
                wait_until(lambda: threads_of(host.pid) == 1, "the end of the host's start")
                yield host.pid, environment


def pin(pinned):
    return ["taskset", "--cpu-list", "0"] if pinned else []


@contextlib.contextmanager
def process(command, environment):
    """Runs a process in the background, and ends it."""
    running = subprocess.Popen(list(map(str, command)), env=environment, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    try:
        yield running
    finally:
        running.kill()
        running.wait()


def end_processes_of(home):
    """Ends the helper agents that hosts have installed below a home directory and launched."""
    for entry in pathlib.Path("/proc").iterdir():
        with contextlib.suppress(OSError):
            if entry.name.isdigit() and os.readlink(entry / "exe").startswith(home + "/"):
                os.kill(int(entry.name), signal.SIGKILL)


def owns_name(name, environment):
    answer = subprocess.run(["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
                             "org.freedesktop.DBus.NameHasOwner", f"string:{name}"],
                            env=environment, capture_output=True, text=True)
    return "true" in answer.stdout


def threads_of(pid):
    return len(os.listdir(f"/proc/{pid}/task"))
