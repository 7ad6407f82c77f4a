# SPDX-License-Identifier: MIT
"""How time goes through each operator. A rule may change the node, and says where time is in the results.

Only operators stand here whose results for the newest rows mean the same when the older rows are not there: a sum over
time is not among them, because what it is divided by later is the number of all rows.
"""

from collections.abc import Callable, Sequence
from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray
from onnx import NodeProto, helper

from .layout import Rows, Shape, Uncuttable, broadcast, reshaped, transposed

UNARY = ("Abs Cast Ceil Clip Dropout Elu Erf Exp Floor HardSigmoid HardSwish Identity IsNaN LeakyRelu Log Neg Not "
         "Reciprocal Relu Selu Sigmoid Sign Sin Cos Softplus Softsign Sqrt Tanh").split()
SPREADING = ("Add And Div Equal Greater GreaterOrEqual Less LessOrEqual Max Mean Min Mul Or PRelu Pow Sub Sum Where "
             "Xor").split()
NORMS = ("BatchNormalization", "InstanceNormalization")
REDUCTIONS = ("ReduceMax", "ReduceMean", "ReduceMin")
SUMS = ("ReduceSum", "ReduceL1", "ReduceL2", "ReduceSumSquare", "ReduceProd", "ReduceLogSum", "ReduceLogSumExp")


@dataclass
class Place:
    """A node and what is known about the values around it."""

    node: NodeProto
    inputs: list[Rows | None]
    shapes: list[Shape]  # of the inputs, with all rows; () for one that is left out
    results: list[Shape]  # of the results, with all rows
    value_of: Callable[[str], NDArray[Any] | None]  # a constant's numbers
    constant: Callable[[NDArray[Any]], str]  # makes a constant

    @property
    def rows(self) -> Rows:
        """Time in the first input that has it."""
        return next(rows for rows in self.inputs if rows is not None)

    def attribute(self, name: str, default: Any = None) -> Any:
        """An attribute of the node."""
        return next((helper.get_attribute_value(entry) for entry in self.node.attribute if entry.name == name), default)

    def only_first(self) -> None:
        """Time may be in the first input and nowhere else."""
        if self.inputs[0] is None or any(rows is not None for rows in self.inputs[1:]):
            raise Uncuttable("time reaches it where only weights are expected")

    def axes(self, place: int, default: Sequence[int] = ()) -> list[int]:
        """The axes that the node is told by an attribute or, in later operator sets, by an input."""
        given = self.attribute("axes")
        if given is None and place < len(self.node.input) and self.node.input[place]:
            given = self.value_of(self.node.input[place])
            if given is None:
                raise Uncuttable("its axes are computed")
        return [int(axis) % len(self.shapes[0]) for axis in (default if given is None else given)]


Rule = Callable[[Place], list[Rows | None]]


def rule_for(operator: str) -> Rule:
    """The rule of an operator. Raises Uncuttable if there is none."""
    if operator not in RULES:
        raise Uncuttable("nothing is known of what this operator does to time")
    return RULES[operator]


def _same(place: Place) -> list[Rows | None]:
    place.only_first()
    return [place.inputs[0]] * len(place.results)


def _spreading(place: Place) -> list[Rows | None]:
    result = place.results[0]
    found = {broadcast(rows, shape, result) for rows, shape in zip(place.inputs, place.shapes, strict=True) if rows}
    if len(found) != 1:
        raise Uncuttable("its operands have time at different places")
    rows = found.pop()
    for index, (own, shape) in enumerate(zip(place.inputs, place.shapes, strict=True)):
        axis = rows.axis - len(result) + len(shape)
        if own is None and axis >= 0 and shape[axis] > 1:
            values = place.value_of(place.node.input[index])
            if values is None:
                raise Uncuttable("what is computed without time has rows of its own here")
            place.node.input[index] = place.constant(_newest(values, rows.at(axis)))
    return [rows]


def _newest(values: NDArray[Any], rows: Rows) -> NDArray[Any]:
    """The newest rows of a constant."""
    before, after = values.shape[:rows.axis], values.shape[rows.axis + 1:]
    parts = values.reshape(*before, rows.outer, rows.length, rows.inner, *after)
    newest = np.take(parts, range(rows.length - rows.kept, rows.length), axis=rows.axis + 1)
    return newest.reshape(*before, rows.new_size, *after)


def _reshape(place: Place) -> list[Rows | None]:
    """Reshape, and what else leaves the order of numbers as it is."""
    place.only_first()
    rows = reshaped(place.rows, place.shapes[0], place.results[0])
    if place.node.op_type == "Reshape":
        place.node.input[1] = place.constant(np.array(rows.cut(place.results[0]), np.int64))
    return [rows]


def _expand(place: Place) -> list[Rows | None]:
    place.only_first()
    rows = broadcast(place.rows, place.shapes[0], place.results[0])
    place.node.input[1] = place.constant(np.array(rows.cut(place.results[0]), np.int64))
    return [rows]


def _transpose(place: Place) -> list[Rows | None]:
    order = place.attribute("perm", list(range(len(place.shapes[0])))[::-1])
    return [transposed(place.rows, order)]


def _convolution(place: Place) -> list[Rows | None]:
    """Convolutions, transposed ones and pooling: time is the batch, or one of the image's axes by itself."""
    place.only_first()
    rows = place.rows
    if rows.axis == 0:
        return [rows] * len(place.results)
    if rows.axis == 1 or not rows.is_alone:
        raise Uncuttable("time is among its channels")
    if place.attribute("auto_pad", b"NOTSET") != b"NOTSET" or place.attribute("output_shape"):
        raise Uncuttable("its padding depends on the size")
    after = place.results[0][rows.axis]
    kept = _convolved(place, rows.axis - 2, rows.kept)
    if _convolved(place, rows.axis - 2, rows.length) != after or kept < 1:
        raise Uncuttable("there are too few rows for it")
    return [Rows(rows.axis, 1, after, 1, kept)]


def _convolved(place: Place, image_axis: int, size: int) -> int:
    """The length of an axis behind a convolution."""

    def own(name: str, default: int, at: int = image_axis) -> int:
        values = place.attribute(name)
        return int(values[at]) if values else default

    count = len(place.shapes[0]) - 2
    kernel = own("kernel_shape", place.shapes[1][2 + image_axis] if len(place.shapes) > 1 else 1)
    reach = own("dilations", 1) * (kernel - 1) + 1
    pads, stride = own("pads", 0) + own("pads", 0, image_axis + count), own("strides", 1)
    if place.node.op_type == "ConvTranspose":
        return stride * (size - 1) + own("output_padding", 0) + reach - pads
    up = stride - 1 if place.attribute("ceil_mode", 0) else 0
    return (size + pads - reach + up) // stride + 1


def _resize(place: Place) -> list[Rows | None]:
    place.only_first()
    rows = place.rows
    scales = place.value_of(place.node.input[2]) if len(place.node.input) > 2 and place.node.input[2] else None
    if scales is None or scales.size != len(place.shapes[0]) or not rows.is_alone:
        raise Uncuttable("it is told sizes and not scales")
    return [Rows(rows.axis, 1, place.results[0][rows.axis], 1, int(rows.kept * scales[rows.axis]))]


def _depth_to_space(place: Place) -> list[Rows | None]:
    rows, size = place.rows, place.attribute("blocksize")
    if rows.axis < 2:
        return _only_batch(place)
    return [Rows(rows.axis, 1, rows.length * size, 1, rows.kept * size)]


def _only_batch(place: Place) -> list[Rows | None]:
    if place.rows.axis != 0:
        raise Uncuttable("time is among its channels")
    return [place.rows]


def _norm(place: Place) -> list[Rows | None]:
    place.only_first()
    if place.rows.axis == 1:
        raise Uncuttable("time is among its channels")
    return [place.rows]


def _reduction(place: Place) -> list[Rows | None]:
    place.only_first()
    rows, count = place.rows, len(place.shapes[0])
    gone = place.axes(1, range(count)) or list(range(count))
    if rows.axis in gone:
        if place.node.op_type in SUMS:
            raise Uncuttable("it sums over time")
        return [None]
    return [rows if place.attribute("keepdims", 1) else rows.at(rows.axis - sum(axis < rows.axis for axis in gone))]


def _along_another_axis(place: Place) -> list[Rows | None]:
    """Split, Concat and Gather, of which all parts have time at the same place."""
    rows = place.rows
    axis = place.attribute("axis", 0) % len(place.shapes[0])
    if place.node.op_type == "Concat" and any(other != rows for other in place.inputs):
        raise Uncuttable("it joins parts with time and without")
    if place.node.op_type != "Concat":
        place.only_first()
    if axis == rows.axis:
        raise Uncuttable("it takes some of the rows or joins them")
    if place.node.op_type == "Gather" and axis < rows.axis:
        rows = rows.at(rows.axis + len(place.shapes[1]) - 1)
    return [rows] * len(place.results)


def _slice(place: Place) -> list[Rows | None]:
    place.only_first()
    if place.rows.axis in place.axes(3, range(len(place.shapes[0]))):
        raise Uncuttable("it takes some of the rows")
    return [place.rows]


def _pad(place: Place) -> list[Rows | None]:
    place.only_first()
    pads = place.value_of(place.node.input[1])
    count = len(place.shapes[0])
    if pads is None or pads[place.rows.axis] or pads[place.rows.axis + count]:
        raise Uncuttable("it adds rows")
    return [place.rows]


def _softmax(place: Place) -> list[Rows | None]:
    place.only_first()
    axis = place.attribute("axis", -1) % len(place.shapes[0])
    if axis == place.rows.axis and not place.rows.is_alone:
        raise Uncuttable("it joins time with what is not time")
    return [place.rows]


def _product(place: Place) -> list[Rows | None]:
    """MatMul: time in the rows of the first factor or in the batch, never in what is summed over."""
    place.only_first()
    rows, count = place.rows, len(place.shapes[0])
    if count < 2 or rows.axis == count - 1:
        raise Uncuttable("it sums over time")
    batch = len(place.shapes[1]) - 2
    if rows.axis < count - 2 and batch - (count - 2 - rows.axis) >= 0 and \
            place.shapes[1][batch - (count - 2 - rows.axis)] > 1:
        raise Uncuttable("it has weights for each row")
    return [broadcast(rows, place.shapes[0], place.results[0])]


def _gemm(place: Place) -> list[Rows | None]:
    place.only_first()
    if place.rows.axis != (1 if place.attribute("transA", 0) else 0):
        raise Uncuttable("it sums over time")
    if len(place.shapes) > 2 and len(place.shapes[2]) == 2 and place.shapes[2][0] > 1:
        raise Uncuttable("it has weights for each row")
    return [place.rows.at(0)]


def _recurrent(place: Place) -> list[Rows | None]:
    """LSTM and GRU: time is what they run along, or in the batch."""
    place.only_first()
    rows = place.rows
    if any(place.node.input[4:]) or place.attribute("layout", 0):
        raise Uncuttable("it starts from given states")
    if rows.axis == 2 or (rows.axis == 0 and not rows.is_alone):
        raise Uncuttable("time is among its features")
    states = None if rows.axis == 0 else rows.at(1)
    return [rows.at(0 if rows.axis == 0 else 2), states, states][:len(place.results)]


RULES: dict[str, Rule] = {
    **dict.fromkeys(UNARY, _same), **dict.fromkeys(SPREADING, _spreading), **dict.fromkeys(NORMS, _norm),
    **dict.fromkeys((*REDUCTIONS, *SUMS), _reduction),
    **dict.fromkeys(("Conv", "ConvTranspose", "MaxPool", "AveragePool"), _convolution),
    **dict.fromkeys(("Reshape", "Squeeze", "Unsqueeze", "Flatten"), _reshape),
    **dict.fromkeys(("Concat", "Split", "Gather"), _along_another_axis),
    **dict.fromkeys(("LSTM", "GRU"), _recurrent), **dict.fromkeys(("Softmax", "LogSoftmax"), _softmax),
    "Transpose": _transpose, "Expand": _expand, "Resize": _resize, "DepthToSpace": _depth_to_space, "Slice": _slice,
    "Pad": _pad, "MatMul": _product, "Gemm": _gemm}
