# SPDX-License-Identifier: MIT
"""Writes ONNX graphs node by node: the file then holds what is meant and no more, and the same bytes every time."""

from collections.abc import Mapping, Sequence
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

OPSET = 17
IR_VERSION = 8  # the one that belongs to this opset


class Graph:
    """A graph in the making. Values are named by the node that makes them."""

    def __init__(self) -> None:
        self.inputs: list[onnx.ValueInfoProto] = []
        self.outputs: list[onnx.ValueInfoProto] = []
        self.nodes: list[onnx.NodeProto] = []
        self.constants: list[onnx.TensorProto] = []
        self.count = 0

    def input(self, name: str, shape: Sequence[int], element: int = TensorProto.FLOAT) -> str:
        self.inputs.append(helper.make_tensor_value_info(name, element, shape))
        return name

    def output(self, name: str, shape: Sequence[int]) -> None:
        self.outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT, shape))

    def constant(self, values: Any, kind: type = np.float32) -> str:
        """A constant array; float32 unless another kind is given."""
        name = f"constant_{len(self.constants)}"
        self.constants.append(numpy_helper.from_array(np.ascontiguousarray(values, dtype=kind), name))
        return name

    def add(self, operator: str, *inputs: Any, name: str | None = None, **attributes: Any) -> str:
        """Adds a node of one result and returns the result's name. Inputs that are numbers or arrays become
        constants."""
        self.count += 1
        base = name or f"{operator.lower()}_{self.count}"
        self._append(operator, inputs, base, [base], attributes)
        return base

    def split(self, value: str, axis: int, sizes: Sequence[int]) -> list[str]:
        """The parts of these sizes along an axis."""
        self.count += 1
        base = f"split_{self.count}"
        parts = [f"{base}_{index}" for index in range(len(sizes))]
        self._append("Split", (value, self.constant(sizes, np.int64)), base, parts, {"axis": axis})
        return parts

    def _append(self, operator: str, inputs: Sequence[Any], base: str, results: list[str],
                attributes: dict[str, Any]) -> None:
        names = [item if isinstance(item, str) else self.constant(item) for item in inputs]
        self.nodes.append(helper.make_node(operator, names, results, name=f"make_{base}", **attributes))

    def reshape(self, value: str, *shape: int, name: str | None = None) -> str:
        return self.add("Reshape", value, self.constant(shape, np.int64), name=name)

    def sum(self, value: str, axis: int) -> str:
        """The sum over one axis, which goes."""
        return self.add("ReduceSum", value, self.constant([axis], np.int64), keepdims=0)

    def model(self, name: str, description: str, metadata: Mapping[str, str]) -> onnx.ModelProto:
        """The finished model, checked. metadata: what the file says of itself, by key."""
        graph = helper.make_graph(self.nodes, name, self.inputs, self.outputs, self.constants)
        model = helper.make_model(graph, producer_name="tonwerk", ir_version=IR_VERSION, doc_string=description,
                                  opset_imports=[helper.make_opsetid("", OPSET)])
        helper.set_model_props(model, dict(metadata))
        onnx.checker.check_model(model, full_check=True)
        return model
