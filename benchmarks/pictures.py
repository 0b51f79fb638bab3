"""Draws how cost grows, as SVG: two lines in a frame with logarithmic axes."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 640, 360
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 50, 50
OURS, THEIRS, INK, GRID = "#0b62a8", "#b5560f", "#222222", "#dddddd"


class Axis:
    """Maps values to places between two ends of the frame."""

    def __init__(self, values, begin, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = max(math.ceil(math.log10(max(values))), self.low + 1)
        self.begin, self.end = begin, end

    def at(self, value):
        return self.begin + (math.log10(value) - self.low) / (self.high - self.low) * (self.end - self.begin)

    def marks(self):
        return [10.0**exponent for exponent in range(self.low, self.high + 1)]


def text(x, y, words, color=INK, anchor="middle"):
    return f'<text x="{x:.0f}" y="{y:.0f}" fill="{color}" text-anchor="{anchor}">{escape(words)}</text>'


def line(x1, y1, x2, y2):
    return f'<path d="M{x1:.0f} {y1:.0f}L{x2:.0f} {y2:.0f}" stroke="{GRID}"/>'


def curve(points, color):
    path = "L".join(f"{x:.1f} {y:.1f}" for x, y in points)
    dots = "".join(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{color}"/>' for x, y in points)
    return f'<path d="M{path}" fill="none" stroke="{color}" stroke-width="2"/>{dots}'


def picture(growth):
    x = Axis(growth.sizes, LEFT, WIDTH - RIGHT)
    y = Axis(growth.ours + growth.theirs, HEIGHT - BOTTOM, TOP)
    parts = [f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>']
    for mark in x.marks():
        parts += [line(x.at(mark), TOP, x.at(mark), HEIGHT - BOTTOM), text(x.at(mark), HEIGHT - BOTTOM + 18, f"{mark:,g}")]
    for mark in y.marks():
        parts += [line(LEFT, y.at(mark), WIDTH - RIGHT, y.at(mark)), text(LEFT - 8, y.at(mark) + 4, f"{mark:,g}", anchor="end")]
    parts += [text(WIDTH / 2, HEIGHT - 12, growth.of), text(LEFT, 20, f"{growth.title}, {growth.unit}", anchor="start"),
              text(LEFT, 40, "this library", OURS, "start"), text(LEFT + 110, 40, growth.reference, THEIRS, "start")]
    for side, color in ((growth.theirs, THEIRS), (growth.ours, OURS)):
        parts.append(curve([(x.at(size), y.at(value)) for size, value in zip(growth.sizes, side)], color))
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" '
            f'font-size="13">\n' + "\n".join(parts) + "\n</svg>\n")
