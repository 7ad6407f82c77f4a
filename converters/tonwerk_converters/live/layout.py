# SPDX-License-Identifier: MIT
"""Where the rows of time are in a value of a graph, and where they go when the value is reshaped or moved."""

import math
from collections.abc import Sequence
from dataclasses import dataclass, replace

Shape = tuple[int, ...]


class Uncuttable(Exception):
    """A value or node that a window of fewer rows cannot go through; the message says why."""


@dataclass(frozen=True)
class Rows:
    """Time within an axis, which may hold other things too: its size is outer * length * inner.

    length is how many rows there are in the whole window, kept how many of the newest remain.
    """

    axis: int
    outer: int
    length: int
    inner: int
    kept: int

    @property
    def new_size(self) -> int:
        """The size of the axis with fewer rows."""
        return self.outer * self.kept * self.inner

    @property
    def is_alone(self) -> bool:
        """Whether the axis holds nothing but time."""
        return self.outer == self.inner == 1

    def cut(self, shape: Shape) -> Shape:
        """The shape of the value with fewer rows."""
        return (*shape[:self.axis], self.new_size, *shape[self.axis + 1:])

    def at(self, axis: int) -> "Rows":
        """The same on another axis."""
        return replace(self, axis=axis)


def reshaped(rows: Rows, before: Shape, after: Shape) -> Rows:
    """Where time is after a change of shape that leaves the order of numbers as it is."""
    stride = rows.inner * math.prod(before[rows.axis + 1:])  # between a number and the one a row later
    inner_stride = 1
    for axis in range(len(after) - 1, -1, -1):
        span = inner_stride * after[axis]
        if inner_stride <= stride and span >= stride * rows.length:
            inner, odd = divmod(stride, inner_stride)
            outer, rest = divmod(after[axis], inner * rows.length)
            if odd or rest:
                break
            return Rows(axis, outer, rows.length, inner, rows.kept)
        inner_stride = span
    raise Uncuttable(f"it takes time apart ({_text(before)} to {_text(after)})")


def transposed(rows: Rows, axes: Sequence[int]) -> Rows:
    """Where time is after the axes changed places."""
    return rows.at(list(axes).index(rows.axis))


def broadcast(rows: Rows, own: Shape, result: Shape) -> Rows:
    """Where an operand's time is in the result of an operation that spreads its operands over each other."""
    return rows.at(rows.axis + len(result) - len(own))


def _text(shape: Shape) -> str:
    return "x".join(map(str, shape))
