# SPDX-License-Identifier: MIT
"""Weights stored in 8 or 16 bits. All computing stays in float32: the runtime restores the weights when it loads a model.

8 bits are whole numbers from -127 to 127 times a scale of their own for each output channel of a layer, so also for each
gate of a recurrent one. They are restored by a cast and a product, which every runtime folds into a constant;
DequantizeLinear, made for the purpose, is left in place by some and then costs time in every run.
"""

from argparse import ArgumentParser, Namespace
from collections.abc import Mapping
from pathlib import Path

import numpy as np
from numpy.typing import NDArray
from onnx import ModelProto, NodeProto, TensorProto, helper, numpy_helper

from . import calibration, contract
from .command import Command, Converted
from .errors import ConversionError
from .files import read_model
from .graph import TABLE
from .passport import Passport, origin
from .session import find_runtime

SMALLEST = 2048  # numbers; what is smaller saves nothing
FINEST = 34.5  # dB between a layer's weights and their error in 8 bits; layers with less get 16 bits
LARGEST_HALF = 65504.0  # that 16 bits hold
HALF_BITS, BYTE_BITS = "float16", "int8"

Tensor = NDArray[np.float32]


def _add_arguments(parser: ArgumentParser) -> None:
    parser.add_argument("model", type=Path, metavar="MODEL.onnx", help="a model of the library")
    parser.add_argument("--weights", choices=[BYTE_BITS, HALF_BITS], default=BYTE_BITS, help="default: %(default)s")
    parser.add_argument("--sound", type=Path, metavar="SONG.wav", help="16-bit stereo sound at the model's sample rate to "
                        "measure the cost with; default: a sound made for it")
    parser.add_argument("--no-measure", action="store_true", help="do not run the models to measure the cost")


def _convert(options: Namespace) -> Converted:
    model = read_model(options.model)
    contract.require(model, str(options.model))
    passport = Passport.read(model)
    if passport is None:
        passport = Passport(options.model.name, "unknown", "unknown", "unknown", list(contract.STEMS),
                            [origin(options.model)])
    variants = {kind: compacted(model, kind) for kind in
                ((options.weights,) if options.no_measure else (HALF_BITS, BYTE_BITS))}
    if not options.no_measure:
        _report_cost(model, variants, options.sound)
    note = f"Weights are stored as {options.weights}."
    if note not in passport.notes:
        passport.notes = f"{passport.notes} {note}".strip()
    return Converted(variants[options.weights], passport)


def _report_cost(model: ModelProto, variants: Mapping[str, ModelProto], sound: Path | None) -> None:
    """Prints how far each variant's stems are from the model's own."""
    if find_runtime() is None:
        raise ConversionError("There is no ONNX Runtime to measure the cost with; --no-measure leaves that out.")
    spectrum = calibration.spectrum(sound)
    expected = calibration.stems_of(model, spectrum)
    print(f"float32: {model.ByteSize():,} bytes")
    for kind, variant in variants.items():
        results = calibration.stems_of(variant, spectrum)
        errors = ", ".join(f"{stem} {calibration.decibels(expected[stem], results[stem]):.0f}"
                           for stem in expected if expected[stem].any())
        print(f"{kind}: {variant.ByteSize():,} bytes; error in dB below each stem: {errors}")


def compacted(model: ModelProto, kind: str) -> ModelProto:
    """A copy of the model with its weights stored in fewer bits."""
    result = ModelProto()
    result.CopyFrom(model)
    axes = _output_axes(result)
    kept, restoring = [], []
    for tensor in result.graph.initializer:
        if not _is_weight(tensor):
            kept.append(tensor)
            continue
        stored, nodes = _stored(tensor.name, numpy_helper.to_array(tensor), axes.get(tensor.name, (0,)), kind)
        kept.extend(stored or [tensor])
        restoring.extend(nodes)
    nodes = [*restoring, *result.graph.node]
    del result.graph.initializer[:], result.graph.node[:]
    result.graph.initializer.extend(kept)
    result.graph.node.extend(nodes)
    return result


def _is_weight(tensor: TensorProto) -> bool:
    is_table = tensor.name.rsplit("/", 1)[-1].startswith(TABLE)
    return (tensor.data_type == TensorProto.FLOAT and len(tensor.dims) > 1 and not is_table
            and int(np.prod(tensor.dims)) >= SMALLEST)


def _output_axes(model: ModelProto) -> dict[str, tuple[int, ...]]:
    """For the weights of layers, the axes along which scales differ: those of the output channels."""
    axes: dict[str, tuple[int, ...]] = {}
    for node in model.graph.node:
        if node.op_type in ("LSTM", "GRU", "RNN"):
            axes.update({name: (0, 1) for name in node.input[1:3]})  # direction; gate and unit
        elif len(node.input) > 1 and node.op_type in ("Conv", "ConvTranspose", "Gemm", "MatMul"):
            axes[node.input[1]] = _output_axis(node)
    return axes


def _output_axis(node: NodeProto) -> tuple[int, ...]:
    attributes = {entry.name: helper.get_attribute_value(entry) for entry in node.attribute}
    if node.op_type == "MatMul":
        return (-1,)
    is_first = node.op_type == "Conv" or (node.op_type == "Gemm" and attributes.get("transB", 0))
    return (0,) if is_first else (1,)


def _stored(name: str, values: Tensor, axes: tuple[int, ...], kind: str) -> tuple[list[TensorProto], list[NodeProto]]:
    """What stands in the file for a weight, and the nodes that restore it; nothing if it must stay as it is."""
    if kind == BYTE_BITS:
        whole, scale = _in_bytes(values, axes)
        if _decibels(values, whole * scale) >= FINEST:
            wide = f"{name}/wide"
            return ([numpy_helper.from_array(whole, f"{name}/bytes"), numpy_helper.from_array(scale, f"{name}/scale")],
                    [helper.make_node("Cast", [f"{name}/bytes"], [wide], f"widen_{name}", to=TensorProto.FLOAT),
                     helper.make_node("Mul", [wide, f"{name}/scale"], [name], f"restore_{name}")])
    if np.abs(values).max() > LARGEST_HALF:
        return [], []
    half = numpy_helper.from_array(values.astype(np.float16), f"{name}/half")
    return [half], [helper.make_node("Cast", [half.name], [name], f"restore_{name}", to=TensorProto.FLOAT)]


def _in_bytes(values: Tensor, axes: tuple[int, ...]) -> tuple[NDArray[np.int8], Tensor]:
    """Whole numbers and the scale of each output channel."""
    channels = {axis % values.ndim for axis in axes}
    others = tuple(axis for axis in range(values.ndim) if axis not in channels)
    scale = np.abs(values).max(axis=others, keepdims=True) / np.float32(127)
    scale = np.maximum(scale, np.finfo(np.float32).tiny)
    return np.clip(np.rint(values / scale), -127, 127).astype(np.int8), scale


def _decibels(values: Tensor, restored: Tensor) -> float:
    error = np.square((values - restored).astype(np.float64)).sum()
    return float(10 * np.log10((np.square(values.astype(np.float64)).sum() + 1e-300) / (error + 1e-300)))


COMMAND = Command(
    name="compact",
    summary="Stores a model's weights in 8 or 16 bits, and says what each costs.",
    example="compact spleeter2.onnx --weights int8 -o smaller.onnx",
    add_arguments=_add_arguments,
    convert=_convert)
