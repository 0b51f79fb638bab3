"""Counts the instructions of four operations and compares them with the file of counts: see scripts/instructions."""

import pathlib
import platform
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

from desk import Desk  # noqa: E402

COUNTS = HERE / "instructions.txt"
MOST_GROWTH = 0.05
RUNS = 3  # the least of them counts: news from the bus may come in between, 3 % at most as seen
# The function that is counted, and whether events leave the bus.
OPERATIONS = {"send": ("Send", 0), "receive": ("Receive", 0), "send-direct": ("Send", 1),
              "receive-direct": ("Receive", 1), "compare": ("Compare", 0), "parse": ("Parse", 0)}

# The C library chooses its functions for strings and memory by the processor: without these it takes those that every
# processor has. The thresholds are otherwise made from the size of the caches.
BASELINE = ":".join(["glibc.cpu.hwcaps=" + ",".join("-" + name for name in (
    "AVX", "AVX2", "AVX512F", "AVX512VL", "AVX512BW", "BMI1", "BMI2", "LZCNT", "MOVBE", "RTM", "ERMS", "FSRM", "SSE3",
    "SSSE3", "SSE4_1", "SSE4_2", "POPCNT", "XSAVE", "XSAVEC", "FMA", "FMA4", "AVX_Fast_Unaligned_Load",
    "Fast_Unaligned_Copy", "Fast_Unaligned_Load", "Fast_Copy_Backward", "Fast_Rep_String", "Slow_BSF",
    "Prefer_No_AVX512_Probing", "AVX2_Usable")),
    "glibc.cpu.x86_non_temporal_threshold=0xc0000", "glibc.cpu.x86_rep_movsb_threshold=0x800",
    "glibc.cpu.x86_rep_stosb_threshold=0x800", "glibc.cpu.x86_data_cache_size=0x8000",
    "glibc.cpu.x86_shared_cache_size=0x100000"])


def count(desk, operation, direct):
    """Returns the instructions of one round of an operation. The bus runs beside valgrind, not in it."""
    with desk.bus(agents=()) as environment:
        counted = desk.scratch / operation
        run = subprocess.run(
            ["valgrind", "--tool=callgrind", "--quiet", f"--callgrind-out-file={counted}",
             f"--toggle-collect=counted{operation}", desk.path("Instructions")],
            env=environment | {"GLIBC_TUNABLES": BASELINE, "LD_BIND_NOW": "1", "QBDKR_DIRECT": str(direct)}, capture_output=True, text=True,
            timeout=120)
        if run.returncode:
            sys.exit(f"instructions: {run.stderr}")
        total = int(re.search(r"^summary: (\d+)", counted.read_text(), re.MULTILINE)[1])
        return total // int(run.stdout)


def system():
    """Names the system whose compiler and libraries are counted along. A distribution keeps their versions."""
    return f"# {platform.freedesktop_os_release().get('PRETTY_NAME')}, {platform.machine()}"


def main(build, rewrite):
    desk = Desk(build)
    try:
        counts = {name: min(count(desk, *what) for _ in range(RUNS)) for name, what in OPERATIONS.items()}
    finally:
        desk.close()
    if rewrite:
        COUNTS.write_text(f"{system()}\n" + "".join(f"{name} {number}\n" for name, number in counts.items()))
    if not all(counts.values()):
        sys.exit(f"instructions: an operation was not counted: {counts}")
    lines = COUNTS.read_text().splitlines()
    kept = {name: int(number) for name, number in map(str.split, lines[1:])}
    comparable = lines[0] == system()
    grown = False
    for name, number in counts.items():
        growth = number / kept[name] - 1
        grown |= growth > MOST_GROWTH
        print(f"{name:14} {number:8,} instructions, {growth:+.1%}")
    if not comparable:
        print(f"The counts are of another system, and are not judged.\n  kept: {lines[0]}\n  here: {system()}")
    elif grown:
        print("One has grown by more than 5 %. If that is meant: scripts/instructions --rewrite, and say why.")
    return comparable and grown


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], "--rewrite" in sys.argv))
