# SPDX-License-Identifier: MIT
"""The network as a graph, of any size, for a fixed number of frames.

Values are [1, channels, bins, frames] in convolutions and [bins, frames, channels] in dual paths, so that neither LSTMs
along bins nor transforms over time need another order. What can be worked out before is: norms go into the weights
behind them, the repeated channels of blocks that go up into half as many weights.
"""

from typing import NamedTuple

import numpy as np

from ..contract import PLANES
from ..graph import Graph
from ..moments import moments
from .sizes import PATHS, Sizes, Weights, stride

NORM_EPSILON = 1e-5
STANDARD_EPSILON = 1e-5  # what the authors add to the standard deviation of the input


class _Down(NamedTuple):
    """What the way up must know of a block that went down."""

    skip: str
    before: list[int]  # bins of the bands
    after: list[int]


class Network:
    """Adds the network to a graph."""

    def __init__(self, graph: Graph, weights: Weights, sizes: Sizes, frames: int) -> None:
        """The frames must be even. weights must have been checked by read_sizes."""
        self.graph = graph
        self.weights = {name: values.astype(np.float64) for name, values in weights.items()}
        self.sizes = sizes
        self.frames = frames

    def build(self, spectrum: str, bins: int, shares: tuple[float, float]) -> str:
        """[1, 4, bins, frames] -> [1, 4 * sources, bins, frames]; shares: the parts of the bins that make the low and
        the middle band of each block."""
        count = PLANES * bins * self.frames
        mean, centred, square = moments(self.graph, spectrum, (3, 2, 1), count)
        deviation = self.graph.add("Sqrt", self.graph.add("Mul", square, count / (count - 1)))
        value = self.graph.add("Div", centred, self.graph.add("Add", deviation, STANDARD_EPSILON))
        blocks = []
        for block in range(self.sizes.blocks):
            value, down = self._down(block, value, _bands(bins, shares))
            blocks.append(down)
            bins = sum(down.after)
        value = self._dual_paths(value, bins)
        for index, down in enumerate(reversed(blocks)):
            value = self._up(index, value, down)
        return self.graph.add("Add", self.graph.add("Mul", value, deviation), mean)

    def _normed(self, value: str, axes: tuple[int, ...], count: int) -> str:
        """A group norm of one group without its gains and offsets, which go elsewhere."""
        _, centred, square = moments(self.graph, value, axes, count)
        return self.graph.add("Div", centred, self._root(square))

    def _root(self, square: str) -> str:
        return self.graph.add("Sqrt", self.graph.add("Add", square, NORM_EPSILON))

    def _layer(self, name: str) -> tuple[np.ndarray, np.ndarray]:
        return self.weights[f"{name}.weight"], self.weights[f"{name}.bias"]

    def _conv3(self, name: str, value: str) -> str:
        weight, bias = self._layer(name)
        return self.graph.add("Conv", value, weight, bias, kernel_shape=[3, 3], pads=[1, 1, 1, 1])

    def _down(self, block: int, value: str, before: list[int]) -> tuple[str, _Down]:
        """Bands are thinned out along bins, each thought over along frames, and joined."""
        pieces, after = [], []
        for band, piece in enumerate(self.graph.split(value, 2, before)):
            kernel = self.sizes.kernels[block][band]
            step = stride(band, kernel)
            padding = kernel - 1 if step == 1 else -before[band] % step
            thinned = self.graph.add("Conv", piece, *self._layer(f"encoder.{block}.SDlayer.convs.{band}"),
                                     kernel_shape=[kernel, 1], strides=[step, 1],
                                     pads=[padding // 2, 0, padding - padding // 2, 0])
            after.append((before[band] + padding - kernel) // step + 1)
            for depth in range(self.sizes.depths[block][band]):
                thinned = self._residual(f"encoder.{block}.conv_modules.{band}.layers.{depth}", thinned)
            pieces.append(self._gelu(thinned))
        skip = self.graph.concat(2, *pieces)
        return self._conv3(f"encoder.{block}.globalconv", skip), _Down(skip, before, after)

    def _gelu(self, value: str) -> str:
        """Written as the runtime knows it, which makes one pass of it."""
        error = self.graph.add("Add", self.graph.add("Erf", self.graph.add("Div", value, np.sqrt(2))), 1.0)
        return self.graph.add("Mul", self.graph.add("Mul", value, error), 0.5)

    def _residual(self, name: str, value: str) -> str:
        """A layer along frames, each bin by itself: norm, convolution, gate, convolution for each channel, norm,
        Swish, back to all channels; added to its input."""
        graph = self.graph
        channels, inner = self.weights[f"{name}.0.weight"].size, self.weights[f"{name}.4.weight"].size
        gate = self._normed_conv(name, value, channels)
        weight, bias = self._layer(f"{name}.3")
        each = graph.add("Conv", gate, weight[:, :, None], bias, kernel_shape=[1, 3], pads=[0, 1, 0, 1], group=inner)
        gain, offset = (part.reshape(1, -1, 1, 1) for part in self._layer(f"{name}.4"))
        normed = self._normed(each, (3, 1), inner * self.frames)
        active = graph.add("Add", graph.add("Mul", normed, gain), offset)
        swish = graph.add("Mul", active, graph.add("Sigmoid", active))
        weight, bias = self._layer(f"{name}.6")
        return graph.add("Add", value, graph.add("Conv", swish, weight[..., None], bias, kernel_shape=[1, 1]))

    def _normed_conv(self, name: str, value: str, channels: int) -> str:
        """Norm, convolution to twice the inner channels, gate.

        The norm's gains go into the convolution. Its divisor, one number per bin, is applied behind it, where there are
        half as many channels. Its offsets become an offset behind, which at both ends of time, where the convolution
        sees zeros, is another one than between.
        """
        graph = self.graph
        _, centred, square = moments(graph, value, (3, 1), channels * self.frames)
        shrink = graph.add("Reciprocal", self._root(square))
        gain, offset = self._layer(f"{name}.0")
        weight, bias = self._layer(f"{name}.1")
        by_tap = np.einsum("oik,i->ok", weight, offset)
        offsets = np.tile(bias[:, None] + by_tap.sum(axis=1, keepdims=True), (1, self.frames))
        offsets[:, 0] -= by_tap[:, 0]
        offsets[:, -1] -= by_tap[:, 2]
        halves = zip(np.split((weight * gain[:, None])[:, :, None], 2), np.split(offsets[:, None], 2))
        signal, gate = (self._scaled_conv(centred, part, shrink, shift[None]) for part, shift in halves)
        return graph.add("Mul", signal, graph.add("Sigmoid", gate))

    def _scaled_conv(self, value: str, weight: np.ndarray, scale: str, offsets: np.ndarray) -> str:
        """A convolution along frames, then a product, then a sum."""
        conv = self.graph.add("Conv", value, weight, kernel_shape=[1, 3], pads=[0, 1, 0, 1])
        return self.graph.add("Add", self.graph.add("Mul", conv, scale), self.graph.table(offsets))

    def _dual_paths(self, value: str, bins: int) -> str:
        """[1, channels, bins, frames] to the same. Odd blocks see the spectrum over time, real and imaginary parts as
        channels."""
        graph, channels, turns = self.graph, self.sizes.channels[-1], self.frames // 2 + 1
        value = graph.transpose(graph.reshape(value, channels, bins, self.frames), 1, 2, 0)
        to_turns, to_frames = graph.table(_forward(self.frames)), graph.table(_backward(self.frames))
        for index in range(0, self.sizes.dual_paths, 2):
            value = self._dual_path(index, value, bins, self.frames, channels)
            value = graph.reshape(graph.add("MatMul", to_turns, value), bins, turns, 2 * channels)
            value = self._dual_path(index + 1, value, bins, turns, 2 * channels)
            value = graph.add("MatMul", to_frames, graph.reshape(value, bins, 2 * turns, channels))
        return graph.reshape(graph.transpose(value, 2, 0, 1), 1, channels, bins, self.frames)

    def _dual_path(self, index: int, value: str, bins: int, frames: int, channels: int) -> str:
        """LSTMs in both directions along bins, then along frames: [bins, frames, channels]."""
        graph = self.graph
        for path in range(PATHS):
            name = f"separation_net.dp_modules.{index}"
            normed = self._normed(value, (0, 1, 2), bins * frames * channels)
            if path:
                normed = graph.transpose(normed, 1, 0, 2)
            steps, others = (frames, bins) if path else (bins, frames)
            lstm = graph.add("LSTM", normed, *self._lstm_weights(name, path), hidden_size=channels,
                             direction="bidirectional")
            joined = graph.reshape(graph.transpose(lstm, 0, 2, 1, 3), steps, others, 2 * channels)
            weight, bias = self._layer(f"{name}.linear_layers.{path}")
            linear = graph.add("Add", graph.add("MatMul", joined, weight.T), bias)
            value = graph.add("Add", value, graph.transpose(linear, 1, 0, 2) if path else linear)
        return value

    def _lstm_weights(self, name: str, path: int) -> list[np.ndarray]:
        """W, R and B of an LSTM node with the norm before it in them. PyTorch orders gates input, forget, cell, output;
        ONNX input, output, forget, cell."""
        gain, offset = self._layer(f"{name}.norm_layers.{path}")
        inputs, states, biases = [], [], []
        for suffix in ("l0", "l0_reverse"):
            def part(kind: str, suffix: str = suffix) -> np.ndarray:
                return self.weights[f"{name}.lstm_layers.{path}.{kind}_{suffix}"]

            inputs.append(_gates(part("weight_ih") * gain))
            states.append(_gates(part("weight_hh")))
            biases.append(np.concatenate([_gates(part("bias_ih") + part("weight_ih") @ offset),
                                          _gates(part("bias_hh"))]))
        return [np.stack(parts) for parts in (inputs, states, biases)]

    def _up(self, index: int, value: str, down: _Down) -> str:
        """The skip is added, all bands together thought over, and each spread to its former bins."""
        graph = self.graph
        weight, bias = self._layer(f"decoder.{index}.0.conv")
        once = sum(np.split(weight, 2, axis=1))  # its input would be all channels twice
        both = graph.add("Add", value, down.skip)
        signal, gate = (graph.add("Conv", both, part, shift, kernel_shape=[3, 3], pads=[1, 1, 1, 1])
                        for part, shift in zip(np.split(once, 2), np.split(bias, 2)))
        gated = graph.add("Mul", signal, graph.add("Sigmoid", gate))
        pieces = []
        for band, piece in enumerate(graph.split(gated, 2, down.after)):
            weight, bias = self._layer(f"decoder.{index}.1.convtrs.{band}")
            kernel = weight.shape[2]
            step = stride(band, kernel)
            spread = graph.add("ConvTranspose", piece, weight, bias, kernel_shape=[kernel, 1], strides=[step, 1])
            first = ((down.after[band] - 1) * step + kernel - down.before[band]) // 2
            pieces.append(graph.slice(spread, 2, first, first + down.before[band]))
        return graph.concat(2, *pieces)


def _bands(bins: int, shares: tuple[float, float]) -> list[int]:
    """The bins of the low, the middle and the high band."""
    low, middle = int(np.ceil(bins * shares[0])), int(np.ceil(bins * sum(shares)))
    return [low, middle - low, bins - middle]


def _gates(stacked: np.ndarray) -> np.ndarray:
    enter, forget, cell, leave = np.split(stacked, 4)
    return np.concatenate([enter, leave, forget, cell])


def _forward(frames: int) -> np.ndarray:
    """The orthogonal real transform over time: [(turn, part), frame]."""
    turns = np.exp(-2j * np.pi * np.outer(np.arange(frames // 2 + 1), np.arange(frames)) / frames) / np.sqrt(frames)
    return np.stack([turns.real, turns.imag], axis=1).reshape(-1, frames)


def _backward(frames: int) -> np.ndarray:
    """Its inverse, to which the imaginary parts of the first and the last turn do not count: [frame, (turn, part)]."""
    weights = np.full(frames // 2 + 1, 2.0)
    weights[[0, -1]] = 1
    parts = _forward(frames).reshape(-1, 2, frames) * weights[:, None, None]
    return parts.reshape(-1, frames).T
