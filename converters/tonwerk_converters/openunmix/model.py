# SPDX-License-Identifier: MIT
"""The whole model: front end, one network per target, masks on the library's own spectrum."""

from collections.abc import Mapping

from onnx import ModelProto

from .. import contract, spectra
from ..graph import Graph
from .network import Target, build

TARGETS = ("vocals", "drums", "bass", "other")  # together they make up the whole sound
MASK_FLOOR = 1e-10


def separation(targets: Mapping[str, Target], mean_magnitude: float | None) -> ModelProto:
    """The model of the library's interface. targets: networks by the names of TARGETS. mean_magnitude: what the sound
    is brought to before the networks see it; None leaves it as it is."""
    graph, spectrum = contract.open_graph()
    sane = spectra.without_nonsense(graph, spectrum)
    magnitudes = spectra.magnitudes(graph, spectra.blackman_to_hann(graph, sane, contract.FRAMES), contract.FRAMES,
                                    contract.BINS)
    if mean_magnitude:
        magnitudes = spectra.at_level(graph, magnitudes, mean_magnitude)
    estimates = {name: build(graph, target, magnitudes, contract.FRAMES) for name, target in targets.items()}
    masks = _masks(graph, magnitudes, estimates)
    stems = {contract.stem_of(name): spectra.apply_mask(graph, sane, mask, contract.FRAMES, contract.BINS)
             for name, mask in masks.items()}
    contract.close_graph(graph, {stem: value for stem, value in stems.items() if stem})
    return graph.model("open-unmix", "Masks by one recurrent network per target, as Open-Unmix has them.")


def _masks(graph: Graph, magnitudes: str, estimates: Mapping[str, str]) -> dict[str, str]:
    """Each target's share of the sum of squares. Where targets are missing, what the others leave over of the input
    stands for them; else the ones that are there would share all sound among each other."""
    squares = {name: graph.add("Mul", estimate, estimate) for name, estimate in estimates.items()}
    parts = list(squares.values())
    if set(estimates) != set(TARGETS):
        rest = magnitudes
        for estimate in estimates.values():
            rest = graph.add("Sub", rest, estimate)
        rest = graph.add("Relu", rest)
        parts.append(graph.add("Mul", rest, rest))
    whole = graph.add("Add", graph.add("Sum", *parts), MASK_FLOOR)
    return {name: graph.add("Div", square, whole) for name, square in squares.items() if contract.stem_of(name)}
