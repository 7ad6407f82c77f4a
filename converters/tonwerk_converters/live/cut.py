# SPDX-License-Identifier: MIT
"""Cuts a model down to the newest rows of its window."""

from typing import Any

import numpy as np
import onnx
from numpy.typing import NDArray
from onnx import AttributeProto, ModelProto, NodeProto, helper, numpy_helper

from .. import contract
from ..errors import ConversionError
from ..surgery import prune, subgraphs
from .layout import Rows, Shape, Uncuttable
from .rules import Place, rule_for

TIME_AXIS = 2  # of the interface's spectra


def cut(model: ModelProto, kept: int) -> ModelProto:
    """A model of the same interface that computes the newest rows as if the older ones did not exist, and gives zeros
    for these. Raises ConversionError, with the first obstacle, if the network does not work with fewer rows."""
    cutter = _Cutter(model, kept)
    for node in model.graph.node:
        try:
            cutter.take(node)
        except Uncuttable as reason:
            raise ConversionError(f"The network cannot be cut to its newest {kept} rows: at {node.name or 'a node'} "
                                  f"({node.op_type}), {reason}.") from reason
    return cutter.finish(model)


class _Cutter:
    """The cut graph in the making. Values keep their names, so what has no time is simply copied."""

    def __init__(self, model: ModelProto, kept: int) -> None:
        self.kept = kept
        self.shapes = _shapes(model)
        self.numbers = {tensor.name: tensor for tensor in model.graph.initializer}
        self.graph, spectrum = contract.open_graph()
        self.graph.constants.extend(model.graph.initializer)
        self.newest = self.graph.add("Slice", spectrum, self._constant(np.array([contract.FRAMES - kept])),
                                     self._constant(np.array([contract.FRAMES])), self._constant(np.array([TIME_AXIS])),
                                     name="cut/newest_rows")
        self.rows = {self.newest: Rows(TIME_AXIS, 1, contract.FRAMES, 1, kept)}
        self.shapes[self.newest] = contract.SHAPE

    def take(self, original: NodeProto) -> None:
        """Adds a node of the model, changed where time goes through it."""
        node = NodeProto()
        node.CopyFrom(original)
        node.input[:] = [self.newest if name == contract.INPUT else name for name in node.input]
        if node.op_type == "Constant":
            self._keep_numbers(node)
        inputs = [self.rows.get(name) for name in node.input]
        if any(inner.node for inner in subgraphs(node)):
            raise Uncuttable("it has graphs inside")
        if any(inputs):
            shapes = [self._shape(name) if name else () for name in node.input]
            results = [self._shape(name) for name in node.output if name]
            place = Place(node, inputs, shapes, results, self._value_of, self._constant)
            for name, rows in zip(node.output, rule_for(node.op_type)(place), strict=False):
                if rows:
                    self.rows[name] = rows
        self.graph.nodes.append(node)

    def finish(self, model: ModelProto) -> ModelProto:
        """The whole model: zeros stand for the rows that are not computed."""
        for stem in contract.STEMS:
            name = f"{stem}_output"
            if name in self.rows:
                self._add_older_rows(name)
            self.graph.output(name, contract.SHAPE)
        prune(self.graph)
        result = self.graph.model(model.graph.name, model.doc_string)
        result.metadata_props.extend(model.metadata_props)
        return result

    def _add_older_rows(self, name: str) -> None:
        if self.rows[name] != self.rows[self.newest]:
            raise ConversionError(f"The network cannot be cut to its newest {self.kept} rows: it gives "
                                  f"{self.rows[name].kept} for them.")
        short = f"{name}/newest"
        for node in self.graph.nodes:
            node.input[:] = [short if value == name else value for value in node.input]
            node.output[:] = [short if value == name else value for value in node.output]
        older = self._constant(np.array([0, 0, contract.FRAMES - self.kept, 0, 0, 0, 0, 0]))
        self.graph.nodes.append(helper.make_node("Pad", [short, older], [name], name=f"cut/{name}"))

    def _shape(self, name: str) -> Shape:
        if name not in self.shapes:
            raise Uncuttable("the shapes around it are not fixed")
        return self.shapes[name]

    def _keep_numbers(self, node: NodeProto) -> None:
        tensors = [entry.t for entry in node.attribute if entry.type == AttributeProto.TENSOR]
        if tensors:
            self.numbers[node.output[0]] = tensors[0]

    def _value_of(self, name: str) -> NDArray[Any] | None:
        return numpy_helper.to_array(self.numbers[name]) if name in self.numbers else None

    def _constant(self, values: NDArray[Any]) -> str:
        name = f"cut/constant_{len(self.graph.constants)}"
        self.graph.constants.append(numpy_helper.from_array(np.ascontiguousarray(values), name))
        return name


def _shapes(model: ModelProto) -> dict[str, Shape]:
    """The shapes of all values for which they are fixed."""
    inferred = onnx.shape_inference.infer_shapes(model, strict_mode=True).graph
    shapes = {}
    for value in (*inferred.input, *inferred.output, *inferred.value_info):
        tensor = value.type.tensor_type
        sizes = tuple(size.dim_value for size in tensor.shape.dim)
        if tensor.HasField("shape") and all(sizes):
            shapes[value.name] = sizes
    shapes.update({tensor.name: tuple(tensor.dims) for tensor in model.graph.initializer})
    return shapes
