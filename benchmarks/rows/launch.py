"""The launch of a program from hosts of several sizes, and how long it stops another thread of the host."""

import os

from desk import samples
from table import LeftOut, row

SIZES = (("10 MiB", 10), ("1 GiB", 1024), ("4 GiB", 4096))


def launches(desk, what, mebibytes):
    free = os.sysconf("SC_AVPHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") >> 20
    if free < mebibytes + 512:
        raise LeftOut(f"{free} MiB of memory are free")
    return samples(desk.run("LaunchBench", what, mebibytes))


def add_rows(name, mebibytes):
    @row(f"launch from a host of {name}", "posix_spawn", at_most=1.1)
    def time(desk):
        return launches(desk, "time", mebibytes)

    @row("longest stop of another thread in 20 launches", "with posix_spawn")
    def stops(desk):
        return launches(desk, "stops", mebibytes)


for size in SIZES:
    add_rows(*size)
