# SPDX-License-Identifier: MIT
"""The sizes of a network, read off the shapes of its weights."""

from collections.abc import Mapping
from dataclasses import dataclass

import numpy as np

from ..contract import PLANES
from ..errors import ConversionError

BANDS = 3
PATHS = 2  # of a dual-path block: along bins, along frames

Weights = Mapping[str, np.ndarray]
Shapes = dict[str, tuple[int, ...]]


@dataclass(frozen=True)
class Sizes:
    """What a network is made of. Blocks count from the outside in."""

    channels: tuple[int, ...]  # of the input and after each block that goes down
    kernels: tuple[tuple[int, ...], ...]  # of each block and band, along bins
    depths: tuple[tuple[int, ...], ...]  # residual layers of each block and band
    hidden: tuple[tuple[int, ...], ...]  # channels inside of these
    dual_paths: int
    sources: int

    @property
    def blocks(self) -> int:
        """How many blocks go down, and up again."""
        return len(self.kernels)


def stride(band: int, kernel: int) -> int:
    """How far a band's kernel steps: the lowest band keeps all of its bins."""
    return 1 if band == 0 else kernel


def read_sizes(weights: Weights) -> Sizes:
    """The sizes of the network that these weights belong to.
    Raises ConversionError if they belong to no such network, some are missing or do not fit, or are no numbers."""
    try:
        sizes = _sizes(weights)
    except KeyError as failure:
        raise ConversionError(f"These are not the weights of SCNet: {failure.args[0]} is missing.") from failure
    except IndexError as failure:
        raise ConversionError("These are not the weights of SCNet: some have too few axes.") from failure
    if not sizes.blocks or not sizes.dual_paths or sizes.dual_paths % 2:
        raise ConversionError("These are not the weights of SCNet: it has blocks that go down and pairs of dual paths.")
    if sizes.channels[0] != PLANES:
        raise ConversionError(f"The network takes {sizes.channels[0]} planes; the library has stereo sound, which "
                              f"makes {PLANES}.")
    _check(weights, _shapes(sizes))
    return sizes


def _count(weights: Weights, pattern: str) -> int:
    count = 0
    while pattern.format(count) in weights:
        count += 1
    return count


def _sizes(weights: Weights) -> Sizes:
    blocks = _count(weights, "encoder.{}.globalconv.weight")
    if not blocks:
        raise KeyError("encoder.0.globalconv.weight")
    each = [[(block, band) for band in range(BANDS)] for block in range(blocks)]
    channels = [weights["encoder.0.SDlayer.convs.0.weight"].shape[1]]
    channels += [weights[f"encoder.{block}.globalconv.weight"].shape[0] for block in range(blocks)]
    last = weights[f"decoder.{blocks - 1}.1.convtrs.0.weight"].shape[1]
    return Sizes(
        channels=tuple(channels),
        kernels=tuple(tuple(weights[f"encoder.{block}.SDlayer.convs.{band}.weight"].shape[2] for block, band in row)
                      for row in each),
        depths=tuple(tuple(_count(weights, f"encoder.{block}.conv_modules.{band}.layers.{{}}.0.weight")
                           for block, band in row) for row in each),
        hidden=tuple(tuple(weights[f"encoder.{block}.conv_modules.{band}.layers.0.3.weight"].shape[0]
                           for block, band in row) for row in each),
        dual_paths=_count(weights, "separation_net.dp_modules.{}.norm_layers.0.weight"),
        sources=last // PLANES)


def _shapes(sizes: Sizes) -> Shapes:
    """The shapes of all weights of a network of these sizes."""
    shapes: Shapes = {}

    def layer(name: str, *shape: int, bias: int | None = None) -> None:
        shapes[f"{name}.weight"] = shape
        shapes[f"{name}.bias"] = (shape[0] if bias is None else bias,)

    for block in range(sizes.blocks):
        before, after = sizes.channels[block:block + 2]
        layer(f"encoder.{block}.globalconv", after, after, 3, 3)
        up = sizes.blocks - 1 - block
        layer(f"decoder.{up}.0.conv", 2 * after, 2 * after, 3, 3)
        for band in range(BANDS):
            kernel, inner = sizes.kernels[block][band], sizes.hidden[block][band]
            layer(f"encoder.{block}.SDlayer.convs.{band}", after, before, kernel, 1)
            out = before if block else sizes.sources * before
            layer(f"decoder.{up}.1.convtrs.{band}", after, out, kernel, 1, bias=out)
            for depth in range(sizes.depths[block][band]):
                part = f"encoder.{block}.conv_modules.{band}.layers.{depth}"
                layer(f"{part}.0", after)
                layer(f"{part}.1", 2 * inner, after, 3)
                layer(f"{part}.3", inner, 1, 3)
                layer(f"{part}.4", inner)
                layer(f"{part}.6", after, inner, 1)
    for index in range(sizes.dual_paths):
        width = sizes.channels[-1] * (1 + index % 2)
        for path in range(PATHS):
            part = f"separation_net.dp_modules.{index}"
            layer(f"{part}.norm_layers.{path}", width)
            layer(f"{part}.linear_layers.{path}", width, 2 * width)
            for suffix in ("l0", "l0_reverse"):
                for side in ("ih", "hh"):
                    shapes[f"{part}.lstm_layers.{path}.weight_{side}_{suffix}"] = (4 * width, width)
                    shapes[f"{part}.lstm_layers.{path}.bias_{side}_{suffix}"] = (4 * width,)
    return shapes


def _check(weights: Weights, shapes: Shapes) -> None:
    for name, shape in shapes.items():
        if name not in weights:
            raise ConversionError(f"These are not the weights of SCNet: {name} is missing.")
        if weights[name].shape != shape:
            raise ConversionError(f"The weights do not fit each other: {name} is {list(weights[name].shape)} and "
                                  f"should be {list(shape)}.")
        if weights[name].dtype.kind != "f" or not np.isfinite(weights[name]).all():
            raise ConversionError(f"{name} holds what is no finite number.")
    strange = sorted(set(weights) - set(shapes))
    if strange:
        raise ConversionError(f"This is another network than SCNet: {strange[0]} is unknown.")
