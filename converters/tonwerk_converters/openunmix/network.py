# SPDX-License-Identifier: MIT
"""One target's network: its weights out of a checkpoint, and its part of a graph.

Per frame, both channels' magnitudes are standardised and made a short vector, which goes through recurrent layers in both
directions of time; two dense layers make factors of all magnitudes out of their result. Batch norms and the scalings
of input and output are linear, so they are folded into the dense layers, in double precision.
"""

import re
from collections.abc import Mapping
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from .. import contract
from ..errors import ConversionError
from ..graph import Graph

EPSILON = 1e-5  # of the batch norms
OUTPUT_BINS = contract.BINS + 1  # with the Nyquist bin, which the library has not
LARGEST_SIZE = 1 << 16  # units of a layer

Tensor = NDArray[np.float32]
Matrix = NDArray[np.float64]


@dataclass(frozen=True)
class Dense:
    """A dense layer: x @ weight + bias."""

    weight: Matrix
    bias: Matrix


@dataclass(frozen=True)
class Recurrent:
    """A layer of LSTMs in one or both directions, with its numbers in the order that ONNX has: gates i, o, f, c."""

    weight: Tensor  # [directions, 4 * units, inputs]
    recurrence: Tensor  # [directions, 4 * units, units]
    bias: Tensor  # [directions, 8 * units]

    @property
    def size(self) -> int:
        """How many values it gives for a frame."""
        return len(self.weight) * self.recurrence.shape[2]


@dataclass(frozen=True)
class Target:
    """The network of one target. bins: how many of the lowest it sees."""

    bins: int
    first: Dense
    recurrent: list[Recurrent]
    second: Dense
    last: Dense


def target_of(weights: Mapping[str, Tensor], what: str) -> Target:
    """The network of a state dict; its sizes follow from the shapes. what: how sentences name the file.
    Raises ConversionError if these are not such a network's weights."""
    reader = _Reader(weights, what)
    mean = reader.read("input_mean", -1)
    scale = reader.read("input_scale", len(mean))
    if len(mean) > OUTPUT_BINS:
        raise ConversionError(f"{what} sees {len(mean)} bins, and there are {OUTPUT_BINS}.")
    first = reader.read("fc1.weight", -1, contract.CHANNELS * len(mean))
    hidden = len(first)
    scales = np.tile(scale, contract.CHANNELS)
    standardised = Dense((first * scales).T, first @ (scales * np.tile(mean, contract.CHANNELS)))
    recurrent = reader.recurrent(hidden)
    second = reader.read("fc2.weight", -1, hidden + recurrent[-1].size)
    last = reader.read("fc3.weight", contract.CHANNELS * OUTPUT_BINS, len(second))
    result = reader.normalised(Dense(last.T, np.zeros(len(last))), "bn3")
    out_scale, out_mean = (np.tile(reader.read(name, OUTPUT_BINS), contract.CHANNELS)
                           for name in ("output_scale", "output_mean"))
    return Target(len(mean), reader.normalised(standardised, "bn1"), recurrent,
                  reader.normalised(Dense(second.T, np.zeros(len(second))), "bn2"),
                  _without_nyquist(Dense(result.weight * out_scale, result.bias * out_scale + out_mean)))


def _without_nyquist(layer: Dense) -> Dense:
    kept = np.flatnonzero(np.arange(contract.CHANNELS * OUTPUT_BINS) % OUTPUT_BINS < contract.BINS)
    return Dense(layer.weight[:, kept], layer.bias[kept])


class _Reader:
    """Takes tensors out of a state dict and sees that they fit each other."""

    def __init__(self, weights: Mapping[str, Tensor], what: str) -> None:
        self.weights, self.what = weights, what

    def read(self, name: str, *shape: int) -> Matrix:
        """A tensor of the given shape, in which -1 stands for any size, in double precision."""
        if name not in self.weights:
            raise ConversionError(f"{self.what} is no checkpoint of Open-Unmix: it has no {name}.")
        values = self.weights[name]
        fits = len(values.shape) == len(shape) and all(
            0 < size <= LARGEST_SIZE and wanted in (-1, size) for size, wanted in zip(values.shape, shape))
        if not fits:
            text = ", ".join("any" if size == -1 else str(size) for size in shape)
            raise ConversionError(f"{self.what}: {name} has the shape {list(values.shape)} and not [{text}].")
        if not np.isfinite(values).all():
            raise ConversionError(f"{self.what}: {name} holds numbers that are not finite.")
        return values.astype(np.float64)

    def normalised(self, layer: Dense, norm: str) -> Dense:
        """A layer with the batch norm behind it folded in."""
        gamma, beta, mean, variance = (self.read(f"{norm}.{part}", len(layer.bias))
                                       for part in ("weight", "bias", "running_mean", "running_var"))
        if (variance + EPSILON <= 0).any():
            raise ConversionError(f"{self.what}: {norm}.running_var is negative.")
        scale = gamma / np.sqrt(variance + EPSILON)
        return Dense(layer.weight * scale, (layer.bias - mean) * scale + beta)

    def recurrent(self, inputs: int) -> list[Recurrent]:
        """All recurrent layers, of which the first has so many inputs."""
        numbers = [int(found[1]) for name in self.weights if (found := re.fullmatch(r"lstm\.weight_ih_l(\d+)", name))]
        ends = ("", "_reverse") if "lstm.weight_ih_l0_reverse" in self.weights else ("",)
        layers = []
        for number in range(len(numbers) or 1):
            gates = self.read(f"lstm.weight_ih_l{number}", -1, inputs).shape[0]
            if gates % 4:
                raise ConversionError(f"{self.what}: lstm.weight_ih_l{number} has not four gates.")
            layers.append(self._layer([f"l{number}{end}" for end in ends], gates, inputs))
            inputs = len(ends) * gates // 4
        return layers

    def _layer(self, names: list[str], gates: int, inputs: int) -> Recurrent:
        def stacked(*parts: tuple[str, tuple[int, ...]]) -> Tensor:
            return np.stack([np.concatenate([_onnx_gates(self.read(f"lstm.{part}_{name}", *shape))
                                             for part, shape in parts]) for name in names]).astype(np.float32)

        return Recurrent(stacked(("weight_ih", (gates, inputs))), stacked(("weight_hh", (gates, gates // 4))),
                         stacked(("bias_ih", (gates,)), ("bias_hh", (gates,))))


def _onnx_gates(values: Matrix) -> Matrix:
    """PyTorch's order of gates, i, f, c, o, in ONNX's: i, o, f, c."""
    first, forget, cell, output = np.split(values, 4)
    return np.concatenate([first, output, forget, cell])


def build(graph: Graph, target: Target, magnitudes: str, rows: int) -> str:
    """The network's part of a graph: magnitudes [1, 2, rows, 2048] to its estimate of the target's."""
    seen = graph.slice(magnitudes, 3, 0, min(target.bins, contract.BINS))
    if target.bins > contract.BINS:
        seen = graph.pad(seen, [0, 0, 0, 0], [0, 0, 0, target.bins - contract.BINS])
    frames = graph.reshape(graph.transpose(seen, 2, 0, 1, 3), rows, contract.CHANNELS * target.bins)
    short = graph.add("Tanh", _dense(graph, target.first, frames))
    value = graph.reshape(short, rows, 1, len(target.first.bias))
    for layer in target.recurrent:
        heard = graph.add("LSTM", value, layer.weight, layer.recurrence, layer.bias,
                          hidden_size=layer.recurrence.shape[2],
                          direction="bidirectional" if len(layer.weight) == 2 else "forward")
        value = graph.reshape(graph.transpose(heard, 0, 2, 1, 3), rows, 1, layer.size)
    joined = graph.concat(1, short, graph.reshape(value, rows, target.recurrent[-1].size))
    factors = graph.add("Relu", _dense(graph, target.last, graph.add("Relu", _dense(graph, target.second, joined))))
    shaped = graph.reshape(factors, rows, 1, contract.CHANNELS, contract.BINS)
    return graph.add("Mul", magnitudes, graph.transpose(shaped, 1, 2, 0, 3))


def _dense(graph: Graph, layer: Dense, rows: str) -> str:
    return graph.add("Gemm", rows, layer.weight, layer.bias)
