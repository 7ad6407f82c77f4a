# SPDX-License-Identifier: MIT
"""The whole model: front end, one U-Net per stem, masks on the library's own spectrum."""

from collections.abc import Sequence
from dataclasses import dataclass

import numpy as np
from onnx import ModelProto

from .. import contract, spectra
from ..graph import Graph
from .unet import Activation, UNet, build

BINS = 1024  # that the networks see and make masks for
MEAN_MAGNITUDE = 4.0  # of the sound that the networks work best with: their masks depend on the level
MASK_FLOOR = 1e-10


@dataclass(frozen=True)
class Separator:
    """U-Nets and how they are used."""

    unets: Sequence[UNet]
    stems: Sequence[str | None]  # the library's name of each U-Net's stem, or None if it has none
    activation: Activation
    is_softmax: bool  # U-Nets share the input among each other, or each takes its part of it by itself
    extends_masks: bool  # the bins above the networks' get the mean of the row's mask, not zero


def separation(separator: Separator) -> ModelProto:
    """The model of the library's interface."""
    graph, spectrum = contract.open_graph()
    sane = spectra.without_nonsense(graph, spectrum)
    magnitudes = spectra.magnitudes(graph, spectra.blackman_to_hann(graph, sane, contract.FRAMES, BINS),
                                    contract.FRAMES, BINS)
    estimates = stem_magnitudes(graph, separator, spectra.at_level(graph, magnitudes, MEAN_MAGNITUDE))
    squares = [graph.add("Mul", estimate, estimate) for estimate in estimates]
    share = graph.add("Reciprocal", graph.add("Add", graph.add("Sum", *squares), MASK_FLOOR))
    stems = {}
    for stem, square in zip(separator.stems, squares, strict=True):
        if stem:
            mask = graph.add("Mul", graph.add("Add", square, MASK_FLOOR / len(squares)), share)
            whole = _extended(graph, mask, separator.extends_masks)
            stems[stem] = spectra.apply_mask(graph, sane, whole, contract.FRAMES, contract.BINS)
    contract.close_graph(graph, stems)
    return graph.model("spleeter", "Masks by one U-Net per stem, as Spleeter has them.")


def stem_magnitudes(graph: Graph, separator: Separator, magnitudes: str) -> list[str]:
    """What the networks estimate of each stem, in their order: magnitudes of the input's shape."""
    logits = [build(graph, unet, magnitudes, separator.activation) for unet in separator.unets]
    if not separator.is_softmax:
        return [graph.add("Mul", magnitudes, graph.add("Sigmoid", value)) for value in logits]
    shares = graph.add("Softmax", graph.concat(0, *logits), axis=0)
    parts = graph.split(shares, 0, [1] * len(logits)) if len(logits) > 1 else [shares]
    return [graph.add("Mul", magnitudes, part) for part in parts]


def _extended(graph: Graph, mask: str, extends: bool) -> str:
    """A mask of the networks' bins for all bins."""
    above = contract.BINS - BINS
    if not extends:
        return graph.pad(mask, [0, 0, 0, 0], [0, 0, 0, above])
    shape = graph.constant((1, contract.CHANNELS, contract.FRAMES, above), np.int64)
    return graph.concat(3, mask, graph.add("Expand", graph.mean(mask, 3, keep=True), shape))
