# SPDX-License-Identifier: MIT
"""Writes ONNX graphs node by node: the file then holds what is meant and no more, and the same bytes every time."""

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

OPSET = 17
IR_VERSION = 8  # the one that belongs to this opset


class Graph:
    """A graph in the making. Values are named by the node that makes them."""

    def __init__(self):
        self.inputs, self.outputs, self.nodes, self.constants = [], [], [], []
        self.count = 0

    def input(self, name, shape, element=TensorProto.FLOAT):
        self.inputs.append(helper.make_tensor_value_info(name, element, shape))
        return name

    def output(self, name, shape):
        self.outputs.append(helper.make_tensor_value_info(name, TensorProto.FLOAT, shape))

    def constant(self, values, kind=np.float32):
        """A constant array; float32 unless another kind is given."""
        name = f"constant_{len(self.constants)}"
        self.constants.append(numpy_helper.from_array(np.ascontiguousarray(values, dtype=kind), name))
        return name

    def add(self, operator, *inputs, name=None, results=1, **attributes):
        """Adds a node and returns the name of its result, or the names if it has several. Inputs that are numbers or
        arrays become constants."""
        inputs = [item if isinstance(item, str) else self.constant(item) for item in inputs]
        self.count += 1
        base = name or f"{operator.lower()}_{self.count}"
        names = [base] if results == 1 else [f"{base}_{index}" for index in range(results)]
        self.nodes.append(helper.make_node(operator, inputs, names, name=f"make_{base}", **attributes))
        return names[0] if results == 1 else names

    def reshape(self, value, *shape, name=None):
        return self.add("Reshape", value, self.constant(shape, np.int64), name=name)

    def sum(self, value, axis):
        """The sum over one axis, which goes."""
        return self.add("ReduceSum", value, self.constant([axis], np.int64), keepdims=0)

    def split(self, value, axis, sizes):
        return self.add("Split", value, self.constant(sizes, np.int64), results=len(sizes), axis=axis)

    def model(self, name, description):
        """The finished model, checked."""
        graph = helper.make_graph(self.nodes, name, self.inputs, self.outputs, self.constants)
        model = helper.make_model(graph, producer_name="tonwerk", ir_version=IR_VERSION, doc_string=description,
                                  opset_imports=[helper.make_opsetid("", OPSET)])
        onnx.checker.check_model(model, full_check=True)
        return model
