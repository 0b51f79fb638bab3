"""Finding out whether an application runs."""

import time

from desk import need, samples
from table import row


def running(desk, count, reference):
    # A bundle that was just built is read anew for each process in its first two seconds.
    time.sleep(max(0.0, desk.path("ProcessBench").stat().st_mtime + 3 - time.time()))
    return samples(desk.run("ProcessBench", count, reference))


def add_rows(count):
    name = f"applicationIsRunning, {count:,} processes"

    @row(name, "pgrep -x", at_most=0.15)
    def beside_pgrep(desk):
        need("pgrep")
        return running(desk, count, "pgrep")

    @row(name, "walk of readdir and readlink", at_most=1.3)
    def beside_walk(desk):
        return running(desk, count, "walk")


add_rows(300)
add_rows(5000)
