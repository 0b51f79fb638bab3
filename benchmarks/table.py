"""The table of the benchmarks: its rows, their figures, and how they are shown."""

import statistics
import subprocess
from dataclasses import dataclass, field

ROWS = []


class LeftOut(Exception):
    """Says why a row cannot be measured here."""


@dataclass
class Samples:
    """The samples of one row on both sides; without a reference, theirs is empty."""

    ours: list
    theirs: list = field(default_factory=list)


@dataclass
class Row:
    """A row. `figure` says what the limit is for: the ratio of the medians, their difference ("more"), ours
    alone, or the largest of ours ("most")."""

    name: str
    reference: str
    unit: str
    figure: str
    limit: float | None
    measure: object
    samples: Samples | None = None
    reason: str = ""  # that there are no samples
    failed: bool = False

    def run(self, desk):
        try:
            self.samples = self.measure(desk)
        except LeftOut as reason:
            self.reason = f"left out: {reason}"
        except (RuntimeError, OSError, subprocess.SubprocessError) as error:
            self.reason, self.failed = f"failed: {error}", True

    def value(self):
        if self.figure == "most":
            return max(self.samples.ours)
        ours = statistics.median(self.samples.ours)
        if self.figure == "alone":
            return ours
        theirs = statistics.median(self.samples.theirs)
        return ours / theirs if self.figure == "ratio" else ours - theirs

    def verdict(self):
        if self.reason:
            return "failed" if self.failed else "left out"
        if self.limit is None:
            return "reported"
        return "met" if self.value() <= self.limit else "missed"

    def cells(self):
        if self.reason:
            return [self.name, self.reason, self.reference, "", "", "", ""]
        sign = {"ratio": " ×", "more": f" {self.unit} more"}.get(self.figure, f" {self.unit}").rstrip()
        value = "" if self.figure == "alone" else shown(self.value()) + sign
        value = f"{value} at most" if self.figure == "most" else value
        limit = "" if self.limit is None else f"{shown(self.limit)}{sign}"
        theirs = spread(self.samples.theirs, self.unit) if self.samples.theirs else ""
        return [self.name, spread(self.samples.ours, self.unit), self.reference, theirs, value, limit, self.verdict()]

    def as_json(self):
        row = {"name": self.name, "reference": self.reference, "unit": self.unit, "figure": self.figure,
               "limit": self.limit, "verdict": self.verdict()}
        if self.reason:
            return row | {"reason": self.reason}
        return row | {"ours": quartiles(self.samples.ours), "theirs": quartiles(self.samples.theirs),
                      "value": self.value()}


def row(name, reference="", *, unit="µs", figure="ratio", at_most=None):
    """Adds a row, whose function measures it and returns its samples."""

    def add(measure):
        ROWS.append(Row(name, reference, unit, figure, at_most, measure))
        return measure

    return add


def quartiles(samples):
    """Returns the lower quartile, the median and the upper one."""
    if not samples:
        return []
    if len(samples) == 1:
        return samples * 3
    return statistics.quantiles(samples, n=4, method="inclusive")


def shown(number):
    return f"{number:,.0f}" if abs(number) >= 1000 or number == int(number) else f"{number:.3g}"


def spread(samples, unit):
    low, median, high = quartiles(samples)
    text = f"{shown(median)} {unit}".strip()
    return text if low == high else f"{text} ({shown(low)}–{shown(high)})"


HEADINGS = ["measured", "median (quartiles)", "reference", "median (quartiles)", "figure", "at most", ""]


def as_text(rows):
    """Returns the table for a terminal, which is a table of a page as well."""
    cells = [HEADINGS] + [row.cells() for row in rows]
    widths = [max(len(line[column]) for line in cells) for column in range(len(HEADINGS))]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |" for line in cells]
    return "\n".join([lines[0], "|" + "|".join("-" * (width + 2) for width in widths) + "|"] + lines[1:])
