# SPDX-License-Identifier: MIT
"""Curves of what was measured: points of a table in docs/presets.md, drawn as SVG."""

import math
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

TABLE = Path(__file__).resolve().parents[1] / "docs/presets.md"
PRESETS = {"6, 0, 0": "instant", "10, 0, 0": "live", "249, 1, 0": "normal", "156, 25, 72": "smooth",
           "128, 64, 61": "best"}


@dataclass(frozen=True)
class Point:
    """A line of the table; jump and ratio may be missing."""

    model: str
    geometry: str
    latency: float
    runs: float
    jump: float
    ratio: float
    multitrack: float
    stem_file: float

    @property
    def label(self) -> str:
        return PRESETS.get(self.geometry, f"({self.geometry})")


def measured() -> list[Point]:
    """The lines of the table that begin with a model's name."""
    points = []
    for line in TABLE.read_text(encoding="utf-8").splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if len(cells) == 9 and cells[0].startswith("tonwerk-"):
            numbers = [math.nan if cell == "-" else float(cell) for cell in cells[2:]]
            latency, runs, jump, _, ratio, multitrack, stem_file = numbers
            points.append(Point(cells[0], cells[1], latency, runs, jump, ratio, multitrack, stem_file))
    return points


def logarithmic(low: float, high: float, start: float, end: float) -> Callable[[float], float]:
    """From values to places of an axis."""
    return lambda value: start + (end - start) * math.log(value / low) / math.log(high / low)


def linear(low: float, high: float, start: float, end: float) -> Callable[[float], float]:
    return lambda value: start + (end - start) * (value - low) / (high - low)
