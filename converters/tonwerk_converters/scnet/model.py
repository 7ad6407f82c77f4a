# SPDX-License-Identifier: MIT
"""The whole model: from the library's frames to those that the network was trained on, and back."""

from collections.abc import Callable, Mapping, Sequence

from onnx import ModelProto

from .. import contract, spectra, waves
from ..graph import Graph
from ..moments import moments
from .network import Network
from .sizes import Sizes, Weights

BINS = contract.BINS + 1
USUAL_DEVIATION = 0.12  # of the network's input when the music is mastered: about -15 dB rms
SMALLEST_PEAK = 1e-30  # a spectrum that does not exceed it is silence
SMALLEST_DEVIATION = 1e-12  # of a spectrum whose peak is 1


def separation(weights: Weights, sizes: Sizes, stems: Sequence[str | None], shares: tuple[float, float],
               rows: int = contract.FRAMES) -> ModelProto:
    """The model of the library's interface. stems: our name of each source, or None for what stays in the residual;
    shares: see Network.build; rows: an even number of the newest rows, which alone are computed."""
    graph, spectrum = contract.open_graph()
    newest = graph.slice(spectrum, 2, contract.FRAMES - rows, contract.FRAMES) if rows < contract.FRAMES else spectrum
    network = Network(graph, weights, sizes, rows)
    separated = on_its_own_frames(graph, newest, stems, rows,
                                  lambda rectangular: network.build(rectangular, BINS, shares))
    contract.close_graph(graph, {stem: graph.pad(value, (0, 0, contract.FRAMES - rows, 0), (0, 0, 0, 0))
                                 for stem, value in separated.items()})
    return graph.model("scnet", "SCNet on rectangular frames, which are rebuilt from those of the library.")


def on_its_own_frames(graph: Graph, spectrum: str, stems: Sequence[str | None], frames: int,
                      network: Callable[[str], str]) -> Mapping[str, str]:
    """The stems of a spectrum [1, 4, frames, 2048], in the same shape.

    network adds nodes from [1, 4, 2049, frames] to [1, 4 * sources, 2049, frames], both of rectangular frames. Its
    sources become sound again, as its authors do it, and sound becomes frames of the library.
    """
    sane = spectra.without_nonsense(graph, spectrum)
    peak = graph.add("Max", graph.add("ReduceMax", graph.add("Abs", sane), axes=[1, 2, 3], keepdims=1), SMALLEST_PEAK)
    wave = waves.frames_to_wave(graph, graph.add("Div", sane, peak), frames)
    rectangular = waves.transform(graph, wave, contract.CHANNELS, frames, waves.RECTANGLE, BINS)
    planes = graph.reshape(rectangular, 1, contract.PLANES, BINS, frames)
    level = _level(graph, planes, frames)
    sources = graph.split(network(graph.add("Div", planes, level)), 1, [contract.PLANES] * len(stems))
    given = [(stem, source) for stem, source in zip(stems, sources, strict=True) if stem]
    channels = len(given) * contract.CHANNELS
    parts = graph.reshape(graph.concat(1, *(source for _, source in given)), channels, 2, BINS, frames)
    samples = waves.inverse_transform(graph, parts, channels, BINS, frames)
    sound = waves.overlap_add(graph, samples, channels, frames, waves.RECTANGLE)
    loud = graph.add("Mul", graph.add("Mul", sound, graph.reshape(level, 1, 1, 1)), graph.reshape(peak, 1, 1, 1))
    return dict(zip((stem for stem, _ in given), waves.wave_to_frames(graph, loud, channels, frames), strict=True))


def _level(graph: Graph, planes: str, frames: int) -> str:
    """What divides a spectrum so that its deviation is usual: the network was not trained on quiet sound, and what its
    authors add to the deviation would count there."""
    square = moments(graph, planes, (3, 2, 1), contract.PLANES * BINS * frames).mean_square
    deviation = graph.add("Max", graph.add("Sqrt", square), SMALLEST_DEVIATION)
    return graph.add("Mul", deviation, 1 / USUAL_DEVIATION)
