"""The start of a process, and what a host keeps."""

import contextlib
import os
import pathlib
import socket
import subprocess
import time

from desk import HELPER, parsed, process, threads_of, wait_until
from table import Samples, row


def time_to_first_event(command, environment):
    start = time.perf_counter_ns()
    run = subprocess.Popen(command, env=environment, stdout=subprocess.PIPE)
    said = os.read(run.stdout.fileno(), 1)
    took = (time.perf_counter_ns() - start) / 1000
    run.stdout.close()
    if run.wait() or said != b"x":
        raise RuntimeError(f"{command[0]} sent no event")
    return took


def starts_beside(desk, reference):
    """Starts the host in turns with the bare program, which gets these variables."""
    found = Samples([])
    with desk.bus() as environment:
        for _ in range(40):
            for program, side, more in (("Host", found.ours, {}), ("BareHost", found.theirs, reference)):
                side.append(time_to_first_event([desk.path(program), "first-event"], environment | more))
    return found


@row("process start to the first event sent", "sd-bus program that sends one", at_most=1.5)
def first_event(desk):
    return starts_beside(desk, {})


@row("the same, beside one that loads the C++ library too", "sd-bus program that sends one")
def first_event_beside_cxx(desk):
    return starts_beside(desk, {"LD_PRELOAD": "libstdc++.so.6"})


@contextlib.contextmanager
def silent_bus(desk):
    """Gives the environment of a bus that takes connections and says nothing."""
    environment = desk.home()
    address = environment["HOME"] + "/bus"
    with socket.socket(socket.AF_UNIX) as bus:
        bus.bind(address)
        bus.listen(1000)
        yield environment | {"DBUS_SESSION_BUS_ADDRESS": "unix:path=" + address}


@row("share() on a cold process, 1 GiB to deploy, silent bus", unit="µs", figure="alone", at_most=1000)
def share(desk):
    host = desk.host(size=1 << 30)
    found = Samples([])
    for _ in range(20):
        with silent_bus(desk) as environment:
            run = subprocess.run([host, "start"], env=environment, capture_output=True, text=True, check=True)
        found.ours += parsed(run.stdout)["ours"]
    return found


def private_memory(pid, kind):
    lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    return sum(int(line.split()[1]) for line in lines if line.startswith(kind))


def idle_memory(desk):
    """Returns the private kilobytes of a host and of a bare program: what they wrote, and all of them."""
    written, all_pages = Samples([]), Samples([])
    for _ in range(5):
        with desk.settled_host("idle") as (host, environment), process([desk.path("BareHost")], environment) as bare:
            # In its loop, the process has one descriptor more than the standard ones.
            wait_until(lambda: any(os.readlink(f"/proc/{bare.pid}/fd/{fd}") == "anon_inode:[eventpoll]"
                                   for fd in os.listdir(f"/proc/{bare.pid}/fd")), "the bare program")
            for found, kind in ((written, "Private_Dirty"), (all_pages, "Private_")):
                found.ours.append(private_memory(host, kind))
                found.theirs.append(private_memory(bare.pid, kind))
    return written, all_pages


@row("private memory of an idle host", "sd-event loop alone", unit="kB", figure="more", at_most=500)
def memory(desk):
    return desk.once("memory", lambda: idle_memory(desk))[0]


@row("the same, with file pages that no other process maps", "sd-event loop alone", unit="kB", figure="more")
def memory_with_files(desk):
    return desk.once("memory", lambda: idle_memory(desk))[1]


def libraries(desk):
    return [desk.build / f"lib/lib{name}.so" for name in ("ClientComm", "QBDKRProductClient")]


@row("both libraries, stripped", unit="kB", figure="alone", at_most=500)
def size(desk):
    total = 0
    for library in libraries(desk):
        stripped = desk.scratch / library.name
        subprocess.run(["strip", "-o", stripped, library], check=True)
        total += stripped.stat().st_size / 1000
    return Samples([total])


def pulled_in(desk):
    """Returns the libraries that a host loads because of these two, those of their own included."""
    names = set()
    for library in libraries(desk):
        listed = subprocess.run(["ldd", library], capture_output=True, text=True, check=True).stdout
        names |= {pathlib.Path(line.split()[0]).name for line in listed.splitlines()}
    return sorted(name for name in names if not name.startswith(("libClientComm", "linux-vdso")))


@row("libraries that they pull in", unit="", figure="alone")
def dependencies(desk):
    names = pulled_in(desk)
    desk.notes.append("Pulled in: " + ", ".join(names) + ".")
    return Samples([len(names)])
