# SPDX-License-Identifier: MIT
"""The interface of every model of the library: names, orders and shapes, and the two ends of a graph.

A spectrum is [1, 4, 256, 2048]: planes left real, left imaginary, right real, right imaginary; frames oldest first, one
every 1,024 samples of 44.1 kHz sound; bins from 0 Hz up without the Nyquist bin. A frame is the unscaled transform of
4,096 samples under a periodic Blackman window.
"""

from collections.abc import Iterable, Mapping

from onnx import ModelProto, TensorProto, ValueInfoProto
from stream_contract import BINS as BINS
from stream_contract import CHANNELS as CHANNELS
from stream_contract import FFT_SIZE as FFT_SIZE
from stream_contract import FLAGS as FLAGS
from stream_contract import HOP as HOP
from stream_contract import INPUT as INPUT
from stream_contract import PLANES as PLANES
from stream_contract import SEGMENT_FRAMES
from stream_contract import SHAPE as SHAPE
from stream_contract import STEMS as STEMS

from .errors import ConversionError
from .graph import Graph

FRAMES = SEGMENT_FRAMES
SAMPLE_RATE = 44100

# Names that other networks give to stems of ours; what is not here has no place but the residual.
ALIASES = {"drums": "drum", "acoustic guitar": "acoustic_guitar", "electric guitar": "electric_guitar"}


def stem_of(name: str) -> str | None:
    """Our name of a stem that another network calls so, or None if we have no such stem."""
    plain = ALIASES.get(name, name)
    return plain if plain in STEMS else None


def open_graph() -> tuple[Graph, str]:
    """A new graph with all inputs of the interface, and the name of the spectrum."""
    graph = Graph()
    graph.input(INPUT, SHAPE)
    for stem in FLAGS:
        graph.input(f"{stem}_flag", (1,), TensorProto.BOOL)
    return graph, INPUT


def close_graph(graph: Graph, stems: Mapping[str, str]) -> None:
    """Adds the six outputs: stems maps names of ours to values of SHAPE; the stems that it lacks are silent."""
    unknown = set(stems) - set(STEMS)
    if unknown:
        raise ConversionError(f"There is no stem {sorted(unknown)[0]} in the library.")
    for stem in STEMS:
        if stem in stems:
            graph.add("Identity", stems[stem], name=f"{stem}_output")
        else:
            graph.zeros(SHAPE, name=f"{stem}_output")
        graph.output(f"{stem}_output", SHAPE)


def require(model: ModelProto, what: str) -> None:
    """Raises ConversionError if a model does not have the interface. what: how the sentence names the model."""
    spectrum = (TensorProto.FLOAT, list(SHAPE))
    inputs = {INPUT: spectrum, **{f"{stem}_flag": (TensorProto.BOOL, [1]) for stem in FLAGS}}
    given = _types(model.graph.input, {tensor.name for tensor in model.graph.initializer})
    results = _types(model.graph.output)
    for name, wanted in (*inputs.items(), *((f"{stem}_output", spectrum) for stem in STEMS)):
        found = (given if name in inputs else results).get(name)
        if found is None:
            raise ConversionError(f"{what} is no model of the library: it has no {name}.")
        if found != wanted:
            raise ConversionError(f"{what} is no model of the library: {name} is not {wanted[1]} of the right type.")
    if extra := set(given) - set(inputs):
        raise ConversionError(f"{what} is no model of the library: the input {sorted(extra)[0]} is one too many.")


def _types(values: Iterable[ValueInfoProto], left_out: Iterable[str] = ()) -> dict[str, tuple[int, list[int]]]:
    """Element type and shape of each value by name; an open size is 0."""
    return {value.name: (value.type.tensor_type.elem_type,
                         [size.dim_value for size in value.type.tensor_type.shape.dim])
            for value in values if value.name not in set(left_out)}
