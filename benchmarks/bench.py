"""Measures the framework beside its references, and prints one table: see scripts/bench."""

import argparse
import datetime
import importlib
import json
import os
import pathlib
import platform
import re
import signal
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from desk import Desk  # noqa: E402
from growth import GROWTHS  # noqa: E402
from pictures import picture  # noqa: E402
from table import ROWS, as_text, shown  # noqa: E402

GROUPS = ("requests", "start", "processes", "deployment", "launch", "lists", "liveness")
PAGE = HERE.parent / "docs/performance.md"
PICTURES = HERE.parent / "docs/images"


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 platform.machine())
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2**30
    system = platform.freedesktop_os_release().get("PRETTY_NAME", "")
    return f"{os.cpu_count()} × {model}, {memory:.0f} GiB, {system}, Linux {platform.release()}"


def say(words):
    """Shows on a terminal what is measured."""
    if sys.stderr.isatty():
        print(f"\r\033[K{words}", end="", file=sys.stderr, flush=True)


def measured_rows(desk, group):
    for name in GROUPS:
        importlib.import_module(f"rows.{name}")
    rows = [row for name in GROUPS for row in ROWS if row.measure.__module__ == f"rows.{name}" and group in ("", name)]
    for row in rows:
        say(f"  {row.name}")
        row.run(desk)
    say("")
    return rows


def draw_growths(desk):
    for growth in GROWTHS:
        say(f"  {growth.title}, {growth.of}")
        growth.run(desk)
        say("")
        print(f"{growth.title}, {growth.unit}, beside {growth.reference}")
        for size, ours, theirs in zip(growth.sizes, growth.ours, growth.theirs):
            print(f"  {size:6,} {growth.of}: {shown(ours)}, {shown(theirs)}")
        (PICTURES / f"performance-{growth.name}.svg").write_text(picture(growth))


def write_page(table):
    page = PAGE.read_text()
    PAGE.write_text(re.sub(r"(?<=<!-- table -->\n).*(?=<!-- end of the table -->)", lambda _: table, page,
                           flags=re.DOTALL))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--growth", action="store_true")
    parser.add_argument("--page", action="store_true")
    parser.add_argument("--only", default="", choices=("", *GROUPS))
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # ends the processes and removes the scratch
    desk = Desk(options.build)
    try:
        if options.growth:
            return draw_growths(desk)
        rows = measured_rows(desk, options.only)
    finally:
        desk.close()

    date = datetime.date.today().isoformat()
    table = "\n".join([f"{machine()}, {date}", "", as_text(rows), "", *desk.notes, ""])
    if options.json:
        print(json.dumps({"machine": machine(), "date": date, "rows": [row.as_json() for row in rows],
                          "notes": desk.notes}, indent=1, ensure_ascii=False))
    else:
        print(table)
    if options.page:
        write_page(table)
    return any(row.verdict() in ("missed", "failed") for row in rows)


if __name__ == "__main__":
    sys.exit(main())
