"""Measures the framework beside its references, and prints one table: see scripts/bench."""

import argparse
import datetime
import importlib
import json
import os
import pathlib
import platform
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from desk import Desk  # noqa: E402
from table import ROWS, as_text  # noqa: E402

GROUPS = ("requests", "start", "processes", "deployment", "launch", "lists", "liveness")


def machine():
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")),
                 platform.machine())
    memory = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") / 2**30
    system = platform.freedesktop_os_release().get("PRETTY_NAME", "")
    return f"{os.cpu_count()} × {model}, {memory:.0f} GiB, {system}, Linux {platform.release()}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--only", default="", choices=("", *GROUPS))
    options = parser.parse_args()

    for group in GROUPS:
        importlib.import_module(f"rows.{group}")
    rows = [row for row in ROWS if options.only in ("", row.measure.__module__.removeprefix("rows."))]
    desk = Desk(options.build)
    try:
        for row in rows:
            print(f"\r\033[K  {row.name}", end="", file=sys.stderr, flush=True) if sys.stderr.isatty() else None
            row.run(desk)
    finally:
        print("\r\033[K", end="", file=sys.stderr) if sys.stderr.isatty() else None
        desk.close()

    date = datetime.date.today().isoformat()
    if options.json:
        print(json.dumps({"machine": machine(), "date": date, "rows": [row.as_json() for row in rows],
                          "notes": desk.notes}, indent=1, ensure_ascii=False))
    else:
        print(f"{machine()}, {date}\n\n{as_text(rows)}\n")
        print(*desk.notes, sep="\n")
    return any(row.verdict() in ("missed", "failed") for row in rows)


if __name__ == "__main__":
    sys.exit(main())
