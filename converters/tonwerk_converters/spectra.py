# SPDX-License-Identifier: MIT
"""What networks do to spectra before and after they think, as parts of graphs.

Relations between windows are convolutions along bins. With theta one bin, Blackman = .42 - .5 cos + .08 cos 2 and
Hann = .5 - .5 cos (both periodic), so Hann / Blackman = 1 / (.68 - .32 cos) = (5/3) (1 + 2 sum over k of 4^-k cos k):
a Blackman spectrum becomes a Hann spectrum by the taps (5/3) 4^-|k|.
"""

import numpy as np
from onnx import TensorProto

from .contract import BINS, CHANNELS, FRAMES, PLANES
from .graph import Graph

LARGEST_INPUT = 1e30  # no sound comes near; beyond, and NaN, counts as silence
QUIET_ROW = 1e-4  # rows below this part of the loudest are left out of means: the silence before a song
SMALLEST_LEVEL = 1e-30  # quieter sound is not brought to a level
REACH = 12  # taps to each side: the first that is left out is 4^-13, -156 dB


def without_nonsense(graph: Graph, spectrum: str) -> str:
    """The spectrum with zeros in place of NaN, infinity and numbers that no sound has."""
    sane = graph.add("Less", graph.add("Abs", spectrum), LARGEST_INPUT)
    return graph.add("Where", sane, spectrum, 0.0)


def blackman_to_hann(graph: Graph, spectrum: str, rows: int, bins: int = BINS) -> str:
    """The lowest bins of the Hann spectrum of the same frames: [1, 4, rows, 2048] -> [1, 4, rows, bins].

    Bins below 0 Hz mirror the ones above: real parts are even, imaginary parts odd. Beyond the last bin zeros stand in,
    because the Nyquist bin is unknown; that is seen in the topmost bins only.
    """
    last = min(bins + REACH, BINS)
    low = graph.slice(spectrum, 3, 0, last)
    mirror = graph.add("Gather", spectrum, graph.constant(np.arange(REACH, 0, -1), np.int64), axis=3)
    signs = np.tile(np.array([1.0, -1.0]), CHANNELS).reshape(1, PLANES, 1, 1)
    padded = graph.concat(3, graph.add("Mul", mirror, signs), low)
    taps = 5 / 3 * 4.0 ** -np.abs(np.arange(-REACH, REACH + 1))
    images = graph.reshape(padded, PLANES, 1, rows, last + REACH)
    smooth = graph.add("Conv", images, graph.table(taps.reshape(1, 1, 1, -1)), kernel_shape=[1, 2 * REACH + 1],
                       pads=[0, 0, 0, bins + REACH - last])
    return graph.reshape(smooth, 1, PLANES, rows, bins)


def magnitudes(graph: Graph, spectrum: str, rows: int, bins: int) -> str:
    """Magnitudes of both channels: [1, 4, rows, bins] -> [1, 2, rows, bins]."""
    parts = graph.reshape(spectrum, CHANNELS, 2, rows, bins)
    power = graph.sum(graph.add("Mul", parts, parts), 1)
    return graph.reshape(graph.add("Sqrt", power), 1, CHANNELS, rows, bins)


def at_level(graph: Graph, magnitudes: str, wanted: float) -> str:
    """Magnitudes [1, 2, rows, bins] scaled so that the mean of those rows that are not silent is as wanted.

    It goes axis by axis, by the loudest row, so that neither very quiet nor very loud sound leaves the numbers' range.
    """
    rows = graph.mean(graph.mean(magnitudes, 3, keep=True), 1, keep=True)  # [1, 1, rows, 1]
    loudest = graph.add("Max", graph.add("ReduceMax", rows, axes=[2], keepdims=1), SMALLEST_LEVEL)
    relative = graph.add("Div", rows, loudest)
    is_loud = graph.add("Cast", graph.add("Greater", relative, QUIET_ROW), to=TensorProto.FLOAT)
    share = graph.add("Max", graph.mean(is_loud, 2, keep=True), 0.5 / FRAMES)
    mean = graph.add("Div", graph.mean(graph.add("Mul", relative, is_loud), 2, keep=True), share)
    level = graph.add("Max", graph.add("Mul", mean, loudest), SMALLEST_LEVEL)
    return graph.add("Mul", magnitudes, graph.add("Div", wanted, level))


def apply_mask(graph: Graph, spectrum: str, mask: str, rows: int, bins: int) -> str:
    """A mask of both channels times real and imaginary parts: [1, 4, rows, bins] and [1, 2, rows, bins]."""
    parts = graph.reshape(spectrum, CHANNELS, 2, rows, bins)
    product = graph.add("Mul", parts, graph.reshape(mask, CHANNELS, 1, rows, bins))
    return graph.reshape(product, 1, PLANES, rows, bins)


def geometric_mean(graph: Graph, spectrum: str, other: str, share: float) -> str:
    """The spectrum [1, 4, 256, 2048] with the magnitudes |spectrum|^(1 - share) |other|^share, and its own phases.

    |re| + |im| stands for the magnitude: of two real masks on one sound it has the same ratio, and it cannot overflow.
    """
    sizes = (graph.add("Add", _absolute_sum(graph, value), SMALLEST_LEVEL) for value in (other, spectrum))
    ratio = graph.add("Div", *sizes)
    factor = graph.add("Exp", graph.add("Mul", graph.add("Log", ratio), share))
    return apply_mask(graph, spectrum, factor, FRAMES, BINS)


def _absolute_sum(graph: Graph, spectrum: str) -> str:
    """|re| + |im| of both channels: [1, 4, 256, 2048] -> [2, 1, 256, 2048]."""
    return graph.sum(graph.add("Abs", graph.reshape(spectrum, CHANNELS, 2, FRAMES, BINS)), 1, keep=True)
