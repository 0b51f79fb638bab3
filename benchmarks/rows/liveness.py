"""A liveness tick with everything well, and a burst of requests that ask for checks."""

import re
import subprocess
import time

from desk import need, parsed
from table import LeftOut, Samples, row

INTERVAL = 12  # seconds, as the host's timer in Host.cpp
TICKS = 4


def watched_ticks(desk):
    """Returns the system calls of some ticks, as lines of strace, and the messages on the bus."""
    need("strace")
    trace = desk.scratch / "trace"
    with desk.settled_host("tick") as (host, environment):
        strace = subprocess.Popen(["strace", "-f", "-s", "0", "-o", trace, "-p", str(host)], env=environment,
                                  stderr=subprocess.PIPE, text=True)
        said = strace.stderr.readline()
        if "attached" not in said:
            raise LeftOut("strace may not watch a process: " + said.strip())
        monitor = subprocess.Popen(["dbus-monitor", "--profile"], env=environment, stdout=subprocess.PIPE, text=True,
                                   stderr=subprocess.DEVNULL)
        time.sleep(INTERVAL * (TICKS + 1))
        strace.terminate()
        monitor.terminate()
        seen = monitor.communicate()[0]
        strace.communicate()
    calls = [line.split(None, 1)[1] for line in trace.read_text().splitlines()]
    return [call for call in calls if re.match(r"[a-z_0-9]+\(", call)], seen.splitlines()


# strace prints the flags of clone3 in its argument.
THREAD = re.compile(r"clone3?\(.*CLONE_THREAD")


def per_tick(desk, pattern):
    """Returns how many system calls of a pattern each tick made: from one new thread to the next.

    Leaves out the first one, which records the first start in the settings, so that the second one reads them anew.
    """
    calls = desk.once("ticks", lambda: watched_ticks(desk))[0]
    starts = [number for number, call in enumerate(calls) if THREAD.match(call)]
    if len(starts) < 3:
        raise RuntimeError("too few ticks were seen")
    spans = zip(starts[1:], starts[2:])
    return Samples([sum(bool(re.match(pattern, call)) for call in calls[begin:end]) for begin, end in spans])


@row("liveness tick, all well: system calls", unit="", figure="most")
def system_calls(desk):
    return per_tick(desk, "")


@row("liveness tick: threads made", unit="", figure="most")
def threads(desk):
    return per_tick(desk, THREAD)


@row("liveness tick: processes forked", unit="", figure="most", at_most=0)
def forks(desk):
    return per_tick(desk, r"fork|vfork|clone3?\((?!.*CLONE_THREAD)")


@row("liveness tick: files opened", unit="", figure="most", at_most=0)
def files(desk):
    return per_tick(desk, r"open(at|at2)?\(")


@row("liveness tick: messages on the bus", unit="", figure="most", at_most=3)
def messages(desk):
    seen = [line.split("\t") for line in desk.once("ticks", lambda: watched_ticks(desk))[1]]
    stamps = [float(line[1]) for line in seen if line[0] in ("mc", "mr", "sig", "err")]
    ticks = []  # the times of their messages; the first ones are the monitor's own
    for stamp in stamps:
        if not ticks or stamp - ticks[-1][-1] > INTERVAL / 4:
            ticks.append([])
        ticks[-1].append(stamp)
    if not ticks:
        raise RuntimeError("the monitor saw nothing")
    counts = [len(tick) for tick in ticks[1:]]
    # A tick whose request takes a direct connection has none.
    return Samples(counts + [0] * (TICKS - len(counts)))


def bursts(desk):
    with desk.bus(agents=()) as environment:
        run = subprocess.run([desk.host(), "burst"], env=environment, capture_output=True, text=True, timeout=120)
        if run.returncode:
            raise RuntimeError(run.stderr)
        return parsed(run.stdout)


@row("1,000 guarded requests in a burst", "unguarded ones", unit="ms")
def burst(desk):
    sides = desk.once("bursts", lambda: bursts(desk))
    return Samples([one / 1000 for one in sides["ours"]], [one / 1000 for one in sides["theirs"]])


@row("threads made for that at a time", unit="", figure="most", at_most=16)
def burst_threads(desk):
    return Samples(desk.once("bursts", lambda: bursts(desk))["threads"])
