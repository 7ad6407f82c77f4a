# SPDX-License-Identifier: MIT
"""One stem's U-Net: its weights out of a checkpoint, and its part of a graph.

Convolutions of 5x5 with stride 2 go down; what they give is kept for the way up before it is normalised and activated.
Transposed convolutions go up, are activated and then normalised, and are joined behind what was kept. A convolution of
4x4 with dilation 2 ends it. Axes of kernels are time, frequency, in, out (transposed: time, frequency, out, in).
"""

import re
from collections.abc import Mapping
from dataclasses import dataclass
from enum import Enum

import numpy as np
from numpy.typing import NDArray

from ..errors import ConversionError
from ..graph import Graph

Tensor = NDArray[np.float32]

LEVELS = 6
EPSILON = 1e-3  # of the batch norms
LEAK = 0.2
KERNEL, LAST_KERNEL = 5, 4
LARGEST_CHANNELS = 4096


class Activation(Enum):
    """What follows a convolution on the way down and a transposed one on the way up."""

    LEAKY = "leaky"  # LeakyReLU and ReLU
    ELU = "elu"  # ELU both ways


@dataclass(frozen=True)
class Layer:
    """A convolution's kernel, in the order of axes that ONNX has, and its bias."""

    kernel: Tensor
    bias: Tensor


@dataclass(frozen=True)
class Norm:
    """A batch norm in use: x * scale + shift."""

    scale: Tensor
    shift: Tensor


@dataclass(frozen=True)
class UNet:
    """The weights of one U-Net."""

    down: list[Layer]
    down_norms: list[Norm]  # one less than down: the last convolution's is not used
    up: list[Layer]
    up_norms: list[Norm]
    last: Layer


def unets_of(variables: Mapping[str, Tensor]) -> list[UNet]:
    """The U-Nets of a checkpoint, in its order: their number and sizes follow from the variables.
    Raises ConversionError if these are not such networks' variables."""
    count = _count(variables, "conv2d") - _count(variables, "conv2d_transpose")
    wanted = {"conv2d": count * (LEVELS + 1), "conv2d_transpose": count * LEVELS}
    if count < 1 or any(_count(variables, kind) != number for kind, number in wanted.items()):
        raise ConversionError("The checkpoint does not hold U-Nets of Spleeter: each has seven convolutions (conv2d) and "
                              f"six transposed ones (conv2d_transpose), and here are {_count(variables, 'conv2d')} and "
                              f"{_count(variables, 'conv2d_transpose')}.")
    return [_unet(variables, index) for index in range(count)]


def _count(variables: Mapping[str, Tensor], kind: str) -> int:
    return sum(bool(re.fullmatch(rf"{kind}(_\d+)?/kernel", name)) for name in variables)


def _unet(variables: Mapping[str, Tensor], index: int) -> UNet:
    """The U-Net with a number. Variables count on from U-Net to U-Net."""
    first, first_up, first_norm = index * (LEVELS + 1), index * LEVELS, index * 2 * LEVELS
    down, channels = [], 2
    for level in range(LEVELS):
        down.append(_layer(variables, f"conv2d{_suffix(first + level)}", KERNEL, channels))
        channels = len(down[-1].bias)
    up = []
    for level in range(LEVELS):
        up.append(_layer(variables, f"conv2d_transpose{_suffix(first_up + level)}", KERNEL, channels, transposed=True))
        skipped = len(down[LEVELS - 2 - level].bias) if level < LEVELS - 1 else 0
        channels = len(up[-1].bias) + skipped
    norms = [_norm(variables, f"batch_normalization{_suffix(first_norm + level)}", len(layer.bias))
             for level, layer in enumerate((*down, *up))]
    last = _layer(variables, f"conv2d{_suffix(first + LEVELS)}", LAST_KERNEL, channels)
    if len(last.bias) != 2:
        raise ConversionError(f"The variable conv2d{_suffix(first + LEVELS)}/kernel gives {len(last.bias)} channels and "
                              "not 2.")
    return UNet(down, norms[:LEVELS - 1], up, norms[LEVELS:], last)


def _suffix(number: int) -> str:
    return f"_{number}" if number else ""


def _variable(variables: Mapping[str, Tensor], name: str, shape: tuple[int, ...]) -> Tensor:
    """A variable of the given shape, in which -1 stands for any size."""
    if name not in variables:
        raise ConversionError(f"The checkpoint has no variable {name}.")
    found = variables[name].shape
    fits = len(found) == len(shape) and all(0 < size <= LARGEST_CHANNELS and wanted in (-1, size)
                                            for size, wanted in zip(found, shape, strict=True))
    if not fits:
        text = ", ".join("any" if size == -1 else str(size) for size in shape)
        raise ConversionError(f"The variable {name} has the shape {list(found)} and not [{text}].")
    return variables[name]


def _layer(variables: Mapping[str, Tensor], name: str, size: int, channels: int, transposed: bool = False) -> Layer:
    shape = (size, size, -1, channels) if transposed else (size, size, channels, -1)
    kernel = _variable(variables, f"{name}/kernel", shape)
    bias = _variable(variables, f"{name}/bias", (kernel.shape[2 if transposed else 3],))
    return Layer(np.ascontiguousarray(kernel.transpose(3, 2, 0, 1)), bias)


def _norm(variables: Mapping[str, Tensor], name: str, channels: int) -> Norm:
    gamma, beta, mean, variance = (_variable(variables, f"{name}/{part}", (channels,)).astype(np.float64)
                                   for part in ("gamma", "beta", "moving_mean", "moving_variance"))
    if (variance + EPSILON <= 0).any():
        raise ConversionError(f"The variable {name}/moving_variance is negative.")
    scale = gamma / np.sqrt(variance + EPSILON)
    return Norm(scale.astype(np.float32), (beta - mean * scale).astype(np.float32))


def build(graph: Graph, network: UNet, magnitudes: str, activation: Activation) -> str:
    """The network's part of a graph: magnitudes [1, 2, rows, bins] to logits of the same shape. Rows and bins are
    multiples of 64."""
    skips: list[str] = []
    value = magnitudes
    for level, layer in enumerate(network.down):
        if level:
            value = _activate(graph, _normalise(graph, skips[-1], network.down_norms[level - 1]), activation, LEAK)
        # TensorFlow pads so that the size is halved: one zero before, two after.
        skips.append(graph.add("Conv", value, layer.kernel, layer.bias, kernel_shape=[KERNEL] * 2, strides=[2, 2],
                               pads=[1, 1, 2, 2]))
    value = skips.pop()
    for layer, norm in zip(network.up, network.up_norms, strict=True):
        raised = graph.add("ConvTranspose", value, layer.kernel, layer.bias, kernel_shape=[KERNEL] * 2, strides=[2, 2],
                           pads=[1, 1, 2, 2])
        value = _normalise(graph, _activate(graph, raised, activation, 0.0), norm)
        if skips:
            value = graph.concat(1, skips.pop(), value)
    return graph.add("Conv", value, network.last.kernel, network.last.bias, kernel_shape=[LAST_KERNEL] * 2,
                     dilations=[2, 2], pads=[3, 3, 3, 3])


def _normalise(graph: Graph, value: str, norm: Norm) -> str:
    scaled = graph.add("Mul", value, norm.scale.reshape(1, -1, 1, 1))
    return graph.add("Add", scaled, norm.shift.reshape(1, -1, 1, 1))


def _activate(graph: Graph, value: str, activation: Activation, leak: float) -> str:
    if activation is Activation.ELU:
        return graph.add("Elu", value)
    return graph.add("LeakyRelu", value, alpha=leak) if leak else graph.add("Relu", value)
