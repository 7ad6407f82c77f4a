#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A network that is cut to its newest rows is the network that is built for so many rows."""

import unittest
from collections.abc import Callable

import numpy as np
import onnx
from onnx import TensorProto
from support import ConverterTest, contract, error, noise, stems_of
from tonwerk_converters.graph import Graph

KEPT = 64
BANDS = 32


class Network:
    """A graph in the making for a number of rows, with its input reduced to few bands."""

    def __init__(self, rows: int) -> None:
        self.rows = rows
        self.random = np.random.default_rng(4)
        self.graph = Graph()
        self.graph.input(contract.INPUT, (1, contract.PLANES, rows, contract.BINS))
        for stem in contract.FLAGS:
            self.graph.input(f"{stem}_flag", (1,), TensorProto.BOOL)
        self.bands = self.graph.add("Conv", contract.INPUT, self.weights(4, 4, 1, 64), kernel_shape=[1, 64],
                                    strides=[1, 64])  # [1, 4, rows, 32]

    def weights(self, *shape: int) -> np.ndarray:
        return self.random.standard_normal(shape) * 0.3

    def finish(self, bands: str) -> onnx.ModelProto:
        """Ends the graph: four planes of bands become a mask."""
        shape = (1, contract.PLANES, self.rows, contract.BINS)
        mask = self.graph.add("ConvTranspose", self.graph.add("Sigmoid", bands), np.ones((4, 1, 1, 64)), group=4,
                              kernel_shape=[1, 64], strides=[1, 64])
        for stem in contract.STEMS:
            self.graph.add("Mul", contract.INPUT, mask, name=f"{stem}_output")
            self.graph.output(f"{stem}_output", shape)
        return self.graph.model("network", "")


def strides(network: Network) -> str:
    """Down by a stride, up by a transposed convolution, by repeating, and by channels that become rows."""
    graph = network.graph
    half = graph.add("Conv", network.bands, network.weights(4, 4, 3, 3), kernel_shape=[3, 3], strides=[2, 1],
                     pads=[0, 1, 1, 1])
    quarter = graph.add("MaxPool", half, kernel_shape=[2, 1], strides=[2, 1])
    repeated = graph.add("Resize", quarter, "", graph.constant([1, 1, 4, 1]), mode="nearest",
                         coordinate_transformation_mode="asymmetric", nearest_mode="floor")
    raised = graph.add("ConvTranspose", half, network.weights(4, 4, 5, 3), kernel_shape=[5, 3], strides=[2, 1],
                       pads=[1, 1, 2, 1])
    shuffled = graph.add("DepthToSpace", graph.add("Conv", quarter, network.weights(16, 4, 1, 2), kernel_shape=[1, 2],
                                                   strides=[1, 2]), blocksize=2)
    again = graph.add("Resize", shuffled, "", graph.constant([1, 1, 2, 1]), mode="nearest",
                      coordinate_transformation_mode="asymmetric", nearest_mode="floor")
    return graph.add("Sum", repeated, raised, again)


def recurrent(network: Network) -> str:
    """Recurrent layers along time and along bands, rows of matrices that are times and channels at once."""
    graph, rows = network.graph, network.rows
    along = graph.reshape(graph.transpose(network.bands, 2, 0, 1, 3), rows, 1, 4 * BANDS)
    heard = graph.add("LSTM", along, network.weights(2, 64, 4 * BANDS), network.weights(2, 64, 16),
                      direction="bidirectional", hidden_size=16)
    matrix = graph.reshape(graph.transpose(heard, 0, 2, 1, 3), rows, BANDS)
    dense = graph.add("Gemm", matrix, network.weights(BANDS, 4 * BANDS), network.weights(4 * BANDS))
    first = graph.reshape(graph.transpose(graph.reshape(dense, rows, 4, BANDS, 1), 3, 1, 0, 2), 1, 4, rows, BANDS)
    merged = graph.reshape(graph.transpose(network.bands, 3, 1, 2, 0), BANDS, 4 * rows, 1)  # channels and times
    across = graph.add("GRU", merged, network.weights(1, 3, 1), network.weights(1, 3, 1), hidden_size=1)
    second = graph.transpose(graph.reshape(across, BANDS, 4, rows, 1), 3, 1, 2, 0)
    return graph.add("Add", first, graph.add("Squeeze", graph.add("Unsqueeze", second, graph.constant([1], np.int64)),
                                             graph.constant([1], np.int64)))


def levels(network: Network) -> str:
    """Means and maxima over time, joined and split channels, numbers for each row, what is spread over all bands."""
    graph, rows = network.graph, network.rows
    loud = graph.mean(graph.mean(graph.add("Abs", network.bands), 3, keep=True), 2, keep=True)
    peak = graph.add("ReduceMax", network.bands, axes=[2, 3], keepdims=1)
    level = graph.add("Div", network.bands, graph.add("Add", loud, graph.add("Abs", peak)))
    ramp = np.linspace(-1, 1, contract.FRAMES)[-rows:].reshape(1, 1, rows, 1)
    left, right = graph.split(graph.add("Mul", level, ramp), 1, [2, 2])
    joined = graph.concat(1, right, graph.pad(graph.slice(left, 1, 0, 1), [0, 1, 0, 0], [0, 0, 0, 0]))
    spread = graph.add("Expand", graph.mean(joined, 3, keep=True), graph.constant((1, 4, rows, BANDS), np.int64))
    mixed = graph.add("MatMul", graph.add("Add", spread, joined), network.weights(BANDS, BANDS))
    even = graph.add("Gather", mixed, graph.constant(np.arange(BANDS)[::-1], np.int64), axis=3)
    return graph.add("Where", graph.add("Greater", even, 0.0), even, graph.add("Softmax", mixed, axis=1))


def build(part: Callable[[Network], str], rows: int) -> onnx.ModelProto:
    network = Network(rows)
    return network.finish(part(network))


class Live(ConverterTest):
    def test_the_newest_rows_are_those_of_a_network_for_so_many(self) -> None:
        for part in (strides, recurrent, levels):
            with self.subTest(part.__name__):
                whole = self.folder / "whole.onnx"
                onnx.save(build(part, contract.FRAMES), str(whole))
                result = stems_of(self.converted("live", whole, "--rows", KEPT), noise())[0]["piano"]
                expected = stems_of(build(part, KEPT), noise()[:, :, -KEPT:])[0]["piano"]
                self.assertLess(error(result[:, :, -KEPT:], expected), 1e-6)
                self.assertFalse(result[:, :, :-KEPT].any())

    def test_networks_that_need_all_rows_are_refused(self) -> None:
        rows = contract.FRAMES

        def transform(network: Network) -> str:
            return network.graph.add("MatMul", network.weights(rows, rows), network.bands)

        def total(network: Network) -> str:
            return network.graph.add("Mul", network.bands, network.graph.sum(network.bands, 2, keep=True))

        def shifted(network: Network) -> str:
            return network.graph.pad(network.graph.slice(network.bands, 2, 0, rows - 1), [0, 0, 1, 0], [0] * 4)

        def apart(network: Network) -> str:
            graph = network.graph
            return graph.reshape(graph.add("Relu", graph.reshape(network.bands, 4, 16, 16, BANDS)), 1, 4, rows, BANDS)

        for part, words in ((transform, "reaches it where only weights are expected"), (total, "sums over time"),
                            (shifted, "takes some of the rows"), (apart, "takes time apart")):
            onnx.save(build(part, rows), str(self.folder / "whole.onnx"))
            self.assert_refused(words, "live", self.folder / "whole.onnx")
        onnx.save(build(strides, rows), str(self.folder / "whole.onnx"))
        self.assert_refused("cannot be cut to its newest 30 rows", "live", self.folder / "whole.onnx", "--rows", 30)
        self.assert_refused("--rows must be from 1 to 255", "live", self.folder / "whole.onnx", "--rows", 256)


if __name__ == "__main__":
    unittest.main()
