"""How cost grows: each picture has the medians of both sides at a few sizes."""

import statistics
from dataclasses import dataclass, field

from rows.deployment import copies, make_tree
from rows.processes import running
from rows.requests import requests


@dataclass
class Growth:
    name: str  # of the picture
    title: str
    of: str  # the number that grows
    unit: str
    reference: str
    sizes: tuple
    measure: object
    ours: list = field(default_factory=list)
    theirs: list = field(default_factory=list)

    def run(self, desk):
        for size in self.sizes:
            found = self.measure(desk, size)
            self.ours.append(statistics.median(found.ours))
            self.theirs.append(statistics.median(found.theirs))


def deployment(desk, files):
    tree = make_tree(desk.scratch / f"tree-{files}", files, 2000)
    return copies(desk, tree, desk.scratch, count=3)


GROWTHS = (
    Growth("arguments", "A waiting request", "arguments", "µs", "sd_bus_call", (1, 3, 10, 30, 100, 300, 1000),
           lambda desk, size: requests(desk, "arguments", size)),
    Growth("processes", "applicationIsRunning", "processes", "µs", "walk of readdir and readlink",
           (100, 300, 1000, 2000, 5000), lambda desk, size: running(desk, size, "walk")),
    Growth("files", "Deployment", "files of 2 kB", "ms", "cp -a, sync -f", (10, 100, 1000, 5000, 20000), deployment),
    Growth("threads", "A request without reply", "sending threads", "µs", "sd_bus_send, a connection per thread",
           (1, 2, 4, 8, 16, 32, 64), lambda desk, size: requests(desk, "senders", size)),
)
