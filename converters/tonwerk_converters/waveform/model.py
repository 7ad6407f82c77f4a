# SPDX-License-Identifier: MIT
"""The whole model: frames to sound, the network, sound to frames."""

from collections.abc import Sequence
from typing import NamedTuple

from onnx import ModelProto

from .. import contract, spectra, waves
from ..errors import ConversionError
from ..graph import Graph
from ..moments import moments
from .foreign import Waveforms

HOPS = contract.FRAMES + waves.OVERLAP - 1
SAMPLES = HOPS * contract.HOP  # under the 256 frames of a run
FEWEST_ROWS = 8
SMALLEST_DEVIATION = 1e-12


class _Level(NamedTuple):
    """What the sound is normalised by: values of the graph, [1, 1, 1, 1]."""

    mean: str
    deviation: str


def rows_of(length: int) -> int:
    """How many of the newest frames a network of so many samples can fill.
    Raises ConversionError if they are too few."""
    rows = min(contract.FRAMES, length // contract.HOP - waves.OVERLAP + 1)
    if rows < FEWEST_ROWS:
        raise ConversionError(f"The network takes {length} samples; at least "
                              f"{(FEWEST_ROWS + waves.OVERLAP - 1) * contract.HOP} are needed.")
    return rows


def separation(network: Waveforms, stems: Sequence[str | None], is_normalised: bool) -> ModelProto:
    """The model of the library's interface. stems: our name of each source, or None for what stays in the residual;
    is_normalised: the network gets sound of mean 0 and deviation 1, both over the channels' mean."""
    graph, spectrum = contract.open_graph()
    sane = spectra.without_nonsense(graph, spectrum)
    wave = waves.frames_to_wave(graph, sane, contract.FRAMES)
    hops = graph.reshape(graph.transpose(wave, 0, 2, 1), 1, contract.CHANNELS, HOPS, contract.HOP)
    level = _level(graph, hops) if is_normalised else None
    if level:
        hops = graph.add("Div", graph.add("Sub", hops, level.mean), level.deviation)
    sound = _fitted(graph, graph.reshape(hops, 1, contract.CHANNELS, SAMPLES), SAMPLES, network.length)
    sources = graph.split(network.add(graph, sound), 0, [1] * network.sources)
    given = [(stem, source) for stem, source in zip(stems, sources, strict=True) if stem]
    together = graph.concat(0, *(source for _, source in given))
    frames = _frames(graph, together, len(given), network.length, level, _is_sound(graph, sane))
    contract.close_graph(graph, dict(zip((stem for stem, _ in given), frames, strict=True)))
    return graph.model("waveform", "A network from sound to sounds, between two transforms.")


def _level(graph: Graph, hops: str) -> _Level:
    mono = graph.mean(hops, 1, keep=True)
    count = HOPS * contract.HOP
    mean, _, square = moments(graph, mono, (3, 2), count)
    deviation = graph.add("Sqrt", graph.add("Mul", square, count / (count - 1)))
    return _Level(mean, graph.add("Max", deviation, SMALLEST_DEVIATION))


def _is_sound(graph: Graph, spectrum: str) -> str:
    """Whether there is anything but silence: a network may make something of nothing."""
    peak = graph.add("ReduceMax", graph.add("Abs", spectrum), axes=[1, 2, 3], keepdims=1)
    return graph.add("Greater", graph.reshape(peak, 1, 1, 1), 0.0)


def _fitted(graph: Graph, sound: str, length: int, wanted: int) -> str:
    """Sound [.., .., length] of another length: the newest samples of a longer one; a shorter one amid zeros."""
    if wanted <= length:
        return graph.slice(sound, 2, length - wanted, length)
    before = (wanted - length) // 2
    return graph.pad(sound, (0, 0, before), (0, 0, wanted - length - before))


def _frames(graph: Graph, sounds: str, stems: int, length: int, level: _Level | None, is_sound: str) -> list[str]:
    """The frames of sounds [stems, 2, length], a spectrum of the library each; rows that the sounds do not reach are
    zero."""
    rows = rows_of(length)
    newest = (rows + waves.OVERLAP - 1) * contract.HOP
    end = SAMPLES + (length - SAMPLES) // 2 if length > SAMPLES else length
    channels = stems * contract.CHANNELS
    cut = graph.slice(sounds, 2, end - newest, end)
    hops = graph.reshape(cut, 1, channels, newest // contract.HOP, contract.HOP)
    if level:
        hops = graph.add("Add", graph.add("Mul", hops, level.deviation), level.mean)
    wave = graph.transpose(graph.reshape(hops, channels, newest // contract.HOP, contract.HOP), 0, 2, 1)
    heard = graph.add("Where", is_sound, spectra.without_nonsense(graph, wave), 0.0)
    return [graph.pad(frames, (0, 0, contract.FRAMES - rows, 0), (0, 0, 0, 0))
            for frames in waves.wave_to_frames(graph, heard, channels, rows)]
