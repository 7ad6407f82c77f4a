# SPDX-License-Identifier: MIT
"""Writes ONNX graphs node by node: the file then holds what is meant and no more, and the same bytes every time."""

import hashlib
from collections.abc import Sequence
from typing import Any

import numpy as np
import onnx
from numpy.typing import ArrayLike, DTypeLike, NDArray
from onnx import ModelProto, TensorProto, helper, numpy_helper

OPSET = 17
IR_VERSION = 8  # the one that belongs to this opset
TABLE = "table_"  # how the names of numbers begin that are no weights

Operand = str | ArrayLike  # a value of the graph by its name, or numbers that become a constant


class Graph:
    """A graph in the making. Values are named by the node that makes them."""

    def __init__(self) -> None:
        self.inputs: list[onnx.ValueInfoProto] = []
        self.outputs: list[onnx.ValueInfoProto] = []
        self.nodes: list[onnx.NodeProto] = []
        self.constants: list[TensorProto] = []
        self.known: dict[tuple[str, str, tuple[int, ...], bytes], str] = {}  # by digest: each array is stored once
        self.count = 0

    def input(self, name: str, shape: Sequence[int], element: int = TensorProto.FLOAT) -> str:
        """Declares an input."""
        self.inputs.append(helper.make_tensor_value_info(name, element, shape))
        return name

    def output(self, name: str, shape: Sequence[int]) -> None:
        """Declares a value of the graph as an output of float32."""
        self.outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT, shape))

    def table(self, values: ArrayLike) -> str:
        """Numbers that mean something by themselves, a transform's matrix or a window: whoever stores weights in fewer
        bits leaves these as they are."""
        return self._stored(np.array(values, np.float32, order="C"), TABLE)

    def constant(self, values: ArrayLike, kind: DTypeLike = np.float32) -> str:
        """A constant array; float32 unless another kind is given."""
        return self._stored(np.array(values, dtype=kind, order="C"), "constant_")

    def _stored(self, array: NDArray[Any], kind: str) -> str:
        key = (kind, array.dtype.str, array.shape, hashlib.sha256(array.tobytes()).digest())
        if key not in self.known:
            self.known[key] = f"{kind}{len(self.constants)}"
            self.constants.append(numpy_helper.from_array(array, self.known[key]))
        return self.known[key]

    def add(self, operator: str, *inputs: Operand, name: str | None = None, **attributes: Any) -> str:
        """Adds a node of one result and returns the result's name."""
        return self.add_many(operator, *inputs, results=1, name=name, **attributes)[0]

    def add_many(self, operator: str, *inputs: Operand, results: int, name: str | None = None,
                 **attributes: Any) -> list[str]:
        """Adds a node and returns the names of its results. Inputs that are numbers or arrays become float32
        constants; an empty string is an input that is left out."""
        operands = [item if isinstance(item, str) else self.constant(item) for item in inputs]
        self.count += 1
        base = name or f"{operator.lower()}_{self.count}"
        names = [base] if results == 1 else [f"{base}_{index}" for index in range(results)]
        self.nodes.append(helper.make_node(operator, operands, names, name=f"make_{base}", **attributes))
        return names

    def reshape(self, value: str, *shape: int) -> str:
        """The same values in another shape; one size may be -1."""
        return self.add("Reshape", value, self.constant(shape, np.int64))

    def transpose(self, value: str, *axes: int) -> str:
        """Axes in another order: result axis i is axis axes[i] of the value."""
        return self.add("Transpose", value, perm=list(axes))

    def sum(self, value: str, *axes: int, keep: bool = False) -> str:
        """The sum over axes, which go unless they are kept with size 1."""
        return self.add("ReduceSum", value, self.constant(axes, np.int64), keepdims=int(keep))

    def mean(self, value: str, *axes: int, keep: bool = False) -> str:
        """The mean over axes. Over millions of values the runtime's sums of float32 lose digits: go axis by axis."""
        return self.add("ReduceMean", value, axes=list(axes), keepdims=int(keep))

    def split(self, value: str, axis: int, sizes: Sequence[int]) -> list[str]:
        """Cuts a value into consecutive pieces along an axis."""
        return self.add_many("Split", value, self.constant(sizes, np.int64), results=len(sizes), axis=axis)

    def slice(self, value: str, axis: int, first: int, last: int) -> str:
        """Entries first to last - 1 of an axis; both count from the end if negative."""
        first_last = (self.constant([bound], np.int64) for bound in (first, last))
        return self.add("Slice", value, *first_last, self.constant([axis], np.int64))

    def concat(self, axis: int, *values: str) -> str:
        """Values one behind the other along an axis."""
        return values[0] if len(values) == 1 else self.add("Concat", *values, axis=axis)

    def pad(self, value: str, before: Sequence[int], after: Sequence[int]) -> str:
        """Zeros around a value: counts for each axis."""
        if not any((*before, *after)):
            return value
        return self.add("Pad", value, self.constant((*before, *after), np.int64))

    def zeros(self, shape: Sequence[int], name: str | None = None) -> str:
        """Zeros of a shape, which the file does not hold but the runtime makes."""
        return self.add("ConstantOfShape", self.constant(shape, np.int64), name=name)

    def model(self, name: str, description: str) -> ModelProto:
        """The finished model, checked: types and shapes fit from node to node."""
        graph = helper.make_graph(self.nodes, name, self.inputs, self.outputs, self.constants)
        model = helper.make_model(graph, producer_name="tonwerk", ir_version=IR_VERSION, doc_string=description,
                                  opset_imports=[helper.make_opsetid("", OPSET)])
        onnx.checker.check_model(model, full_check=True)
        return model
