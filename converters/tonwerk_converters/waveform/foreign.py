# SPDX-License-Identifier: MIT
"""A network that came as an ONNX file: whether it can be used, and its nodes inside a graph of ours."""

from collections.abc import Sequence
from dataclasses import dataclass

import onnx
from onnx import GraphProto, ModelProto, TensorProto, ValueInfoProto, shape_inference

from ..contract import CHANNELS
from ..errors import ConversionError
from ..graph import Graph
from ..surgery import take_in


@dataclass(frozen=True)
class Waveforms:
    """A network from [1, 2, length] to `sources` of the same, in one output [1, sources, 2, length] or in as many."""

    model: ModelProto
    length: int
    sources: int

    def add(self, graph: Graph, sound: str) -> str:
        """Adds the network: [1, 2, length] -> [sources, 2, length]."""
        (given,) = _inputs(self.model.graph)
        renamed = take_in(graph, self.model.graph, "network/", {given.name: sound})
        outputs = self.model.graph.output
        each = self.sources // len(outputs)
        parts = (graph.reshape(renamed(output.name), each, CHANNELS, self.length) for output in outputs)
        return graph.concat(0, *parts)


def waveforms(model: ModelProto, length: int | None) -> Waveforms:
    """What a model, in our operator set, is. length is for a model that leaves it open.
    Raises ConversionError if the model is no such network."""
    inputs = _inputs(model.graph)
    if len(inputs) != 1:
        raise ConversionError(f"The network has {len(inputs)} inputs and should have one, sound [1, 2, length].")
    fixed = ModelProto()
    fixed.CopyFrom(model)
    shape = _shape(inputs[0])
    if len(shape) != 3 or shape[0] not in (None, 1) or shape[1] not in (None, CHANNELS) or _type(inputs[0]) != "FLOAT":
        raise ConversionError(f"The network's input is {_text(inputs[0])} and should be FLOAT [1, 2, length].")
    if length and shape[2] and length != shape[2]:
        raise ConversionError(f"The network takes {shape[2]} samples; --length is for networks that leave it open.")
    samples = shape[2] or length
    if not samples:
        raise ConversionError("The network leaves the number of samples open: say it with --length.")
    _fix(fixed, (1, CHANNELS, samples))
    return Waveforms(fixed, samples, _sources(fixed, samples))


def _fix(model: ModelProto, shape: Sequence[int]) -> None:
    """Gives the input a fixed shape, and all other values those that follow from it."""
    (given,) = _inputs(model.graph)
    given.CopyFrom(onnx.helper.make_tensor_value_info(given.name, TensorProto.FLOAT, shape))
    del model.graph.value_info[:]
    for output in model.graph.output:
        for size in output.type.tensor_type.shape.dim:
            if not size.HasField("dim_value"):
                size.Clear()
    try:
        model.CopyFrom(shape_inference.infer_shapes(model, strict_mode=True, data_prop=True))
    except (shape_inference.InferenceError, ValueError) as failure:
        reason = (str(failure).strip().splitlines() or [""])[0]
        raise ConversionError(f"The network does not take {shape[2]} samples: {reason}") from failure


def _sources(model: ModelProto, length: int) -> int:
    outputs = model.graph.output
    for output in outputs:
        shape = _shape(output)
        expected = [1, CHANNELS, length] if len(outputs) > 1 or len(shape) == 3 else [1, None, CHANNELS, length]
        fits = len(shape) == len(expected) and all(
            size is None or wanted in (None, size) for size, wanted in zip(shape, expected))
        if not fits or _type(output) != "FLOAT":
            raise ConversionError(f"The network's output {output.name} is {_text(output)} and should be FLOAT [1, "
                                  f"sources, 2, {length}], or one of several [1, 2, {length}].")
    if len(outputs) > 1 or len(_shape(outputs[0])) == 3:
        return len(outputs)
    sources = _shape(outputs[0])[1]
    if not sources:
        raise ConversionError("The network's output does not say how many sources it has: export it with fixed shapes.")
    return sources


def _inputs(graph: GraphProto) -> list[ValueInfoProto]:
    """What must be given from outside: older files list their weights among the inputs too."""
    weights = {tensor.name for tensor in graph.initializer}
    return [value for value in graph.input if value.name not in weights]


def _shape(value: ValueInfoProto) -> list[int | None]:
    """Sizes; None where one is open."""
    return [size.dim_value or None for size in value.type.tensor_type.shape.dim]


def _type(value: ValueInfoProto) -> str:
    return TensorProto.DataType.Name(value.type.tensor_type.elem_type)


def _text(value: ValueInfoProto) -> str:
    return f"{_type(value)} [{', '.join(str(size or '?') for size in _shape(value))}]"
