# SPDX-License-Identifier: MIT
"""Mean and variance of many values in a graph."""

from typing import NamedTuple

from .graph import Graph


class Moments(NamedTuple):
    """Values of the graph; mean and mean_square keep the axes that they were taken over, with size 1."""

    mean: str
    centred: str  # what was given less its mean
    mean_square: str  # of that: the variance


def moments(graph: Graph, value: str, axes: tuple[int, ...], count: int) -> Moments:
    """The moments over some axes, which hold count values altogether.

    It goes axis by axis: a single sum of float32 over millions of values loses half of its digits in the runtime. The
    variance is that of the centred values, because the difference of two mean squares would lose them too.
    """
    mean = value
    for axis in axes:
        mean = graph.mean(mean, axis, keep=True)
    centred = graph.add("Sub", value, mean)
    square = graph.add("ReduceSumSquare", centred, axes=[axes[0]], keepdims=1)
    for axis in axes[1:]:
        square = graph.sum(square, axis, keep=True)
    return Moments(mean, centred, graph.add("Mul", square, 1 / count))
