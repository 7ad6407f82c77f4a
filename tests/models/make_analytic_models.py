#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes tiny networks with the model interface of tonwerk and with known answers into a folder.

Usage: make_analytic_models.py OUTDIR

Nothing in them is trained, so what the library must return can be worked out by hand: docs/analytic-models.md
has the table. The same bytes are written on every run. Models that break the interface go to OUTDIR/wrong, and those
that do harm to OUTDIR/hostile.
"""

import os
import sys
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto, helper, numpy_helper

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from stream_contract import BINS, INPUT, SHAPE
from stream_contract import FLAGS as FLAG_ORDER
from stream_contract import SEGMENT_FRAMES as FRAMES
from stream_contract import STEMS as OUTPUT_ORDER

SAMPLE_RATE = 44100
OPSET = 17
IR_VERSION = 8  # the one that belongs to this opset; ONNX Runtime 1.21 reads it

# All different, so that exchanged stems show; fractions of a power of two, so that they sum to exactly 1.
GAINS = {stem: parts / 32 for stem, parts in
         zip(OUTPUT_ORDER, (10, 8, 4, 3, 1, 6))}

# Weights of the frames before, at and after each frame, in 32nds. Over the stems they sum to 0, 32 and 0, so that
# the mix is the input; none is symmetric, so that a reversed time axis shows.
TAPS = {
    "vocals": (4, 10, -2),
    "drum": (-3, 8, 1),
    "piano": (2, 4, 3),
    "acoustic_guitar": (-1, 3, -4),
    "electric_guitar": (-4, 1, 1),
    "bass": (2, 6, 1),
}

# A run fails when the magnitude of any real or imaginary part exceeds this. Samples of magnitude 1 reach at most
# the sum of the window, 1720.3, so a signal below 58 times full scale never does.
FAILURE_LEVEL = 1e5
ROUNDS = 10**12  # of a loop, about a microsecond each

# Upper edge of each stem's band in Hz, lowest band first. What lies above the last edge stays for the residual.
BANDS = (("bass", 120), ("electric_guitar", 400), ("piano", 1000), ("vocals", 3000),
         ("acoustic_guitar", 7000), ("drum", 16000))
CROSSFADE_OCTAVES = 0.5


class Network:
    """A graph in the making. It has the interface's inputs; operators and outputs are added one by one."""

    def __init__(self, shape: Sequence[int | str] = SHAPE, element: int = TensorProto.FLOAT,
                 flags: Sequence[str] = FLAG_ORDER) -> None:
        self.shape = shape
        self.element = element
        self.kind = np.float64 if element == TensorProto.DOUBLE else np.float32
        self.inputs = [helper.make_tensor_value_info(INPUT, element, shape)]
        self.inputs += [helper.make_tensor_value_info(f"{stem}_flag", TensorProto.BOOL, [1]) for stem in flags]
        self.outputs: list[onnx.ValueInfoProto] = []
        self.nodes: list[onnx.NodeProto] = []
        self.constants: list[onnx.TensorProto] = []

    def constant(self, name: str, values: Any, kind: Any = None) -> str:
        self.constants.append(numpy_helper.from_array(np.asarray(values, dtype=kind or self.kind), name))
        return name

    def add(self, operator: str, inputs: list[str], result: str, **attributes: Any) -> str:
        self.nodes.append(helper.make_node(operator, inputs, [result], name=f"make_{result}", **attributes))
        return result

    def add_output(self, operator: str, inputs: list[str], stem: str, **attributes: Any) -> None:
        name = self.add(operator, inputs, f"{stem}_output", **attributes)
        self.outputs.append(helper.make_tensor_value_info(name, self.element, self.shape))

    def model(self) -> onnx.ModelProto:
        graph = helper.make_graph(self.nodes, "analytic", self.inputs, self.outputs, self.constants)
        model = helper.make_model(graph, producer_name="tonwerk", ir_version=IR_VERSION,
                                  opset_imports=[helper.make_opsetid("", OPSET)])
        onnx.checker.check_model(model, full_check=True)
        return model


def scale(network: Network, factors: dict[str, Any], source: str = INPUT,
          order: Sequence[str] = OUTPUT_ORDER) -> Network:
    """Adds outputs in the given order, each the source times its stem's factor (a number or a mask)."""
    for stem in order:
        factor = network.constant(f"{stem}_factor", factors[stem])
        network.add_output("Mul", [source, factor], stem)
    return network


def phase_shifted_masks(length: int, axis: int) -> dict[str, np.ndarray]:
    """One raised cosine per stem over the length of an axis, a sixth of a period apart: they sum to 1."""
    position = np.arange(length) / length
    shape = [1, 1, 1, 1]
    shape[axis] = length
    return {stem: ((1 + np.cos(2 * np.pi * (position + index / 6))) / 6).reshape(shape)
            for index, stem in enumerate(OUTPUT_ORDER)}


# --- models that keep the interface -------------------------------------------------------------------------------


def gains() -> Network:
    return scale(Network(), GAINS)


def identity_vocals() -> Network:
    return scale(Network(), {stem: float(stem == "vocals") for stem in OUTPUT_ORDER})


def bin_mask() -> Network:
    return scale(Network(), phase_shifted_masks(BINS, axis=3))


def frame_mask() -> Network:
    return scale(Network(), phase_shifted_masks(FRAMES, axis=2))


def neighbours() -> Network:
    network = Network()
    for stem in OUTPUT_ORDER:
        kernel = np.tile(np.reshape(TAPS[stem], (1, 1, 3, 1)) / 32, (4, 1, 1, 1))
        taps = network.constant(f"{stem}_taps", kernel)
        network.add_output("Conv", [INPUT, taps], stem, group=4, kernel_shape=[3, 1], pads=[1, 0, 1, 0])
    return network


def fail_on_request() -> Network:
    """Loud input asks for a reshape to one bin more than there is, which every execution provider refuses."""
    network = Network()
    network.add("Abs", [INPUT], "magnitude")
    network.add("ReduceMax", ["magnitude"], "peak", keepdims=0)
    network.add("Greater", ["peak", network.constant("failure_level", FAILURE_LEVEL)], "is_loud")
    network.add("Cast", ["is_loud"], "excess", to=TensorProto.INT64)
    network.add("Mul", ["excess", network.constant("last_axis", [0, 0, 0, 1], np.int64)], "excess_bins")
    network.add("Add", ["excess_bins", network.constant("true_shape", SHAPE, np.int64)], "asked_shape")
    network.add("Reshape", [INPUT, "asked_shape"], "checked_input")
    return scale(network, GAINS, source="checked_input")


def slow_on_request() -> Network:
    """Loud input goes around a loop for days; only a run that is told to end comes back."""
    network = Network()
    network.add("Abs", [INPUT], "magnitude")
    network.add("ReduceMax", ["magnitude"], "peak", keepdims=0)
    network.add("Greater", ["peak", network.constant("patience", FAILURE_LEVEL)], "is_loud")
    network.add("Cast", ["is_loud"], "once", to=TensorProto.INT64)
    network.add("Mul", ["once", network.constant("rounds", ROUNDS, np.int64)], "trips")
    turn = [helper.make_node("Identity", ["go_on"], ["go_on_still"]),
            helper.make_node("Cos", ["angle"], ["next_angle"])]
    body = helper.make_graph(turn, "turn", [helper.make_tensor_value_info("trip", TensorProto.INT64, []),
                                            helper.make_tensor_value_info("go_on", TensorProto.BOOL, []),
                                            helper.make_tensor_value_info("angle", TensorProto.FLOAT, [])],
                             [helper.make_tensor_value_info("go_on_still", TensorProto.BOOL, []),
                              helper.make_tensor_value_info("next_angle", TensorProto.FLOAT, [])])
    network.add("Loop", ["trips", network.constant("always", True, np.bool_), network.constant("start", 0.0)],
                "last_angle", body=body)
    network.add("Mul", ["last_angle", network.constant("nothing", 0.0)], "zero")
    network.add("Add", [INPUT, "zero"], "late_input")
    return scale(network, GAINS, source="late_input")


def reordered() -> Network:
    return scale(Network(), GAINS, order=FLAG_ORDER)


def band_split() -> Network:
    """Masks that are 1 within a stem's band and cross-fade with the next one over half an octave."""
    frequency = np.maximum(np.arange(BINS), 0.5) * SAMPLE_RATE / (2 * BINS)

    def share_below(edge: float) -> np.ndarray:
        fade = np.clip(np.log2(edge / frequency) / CROSSFADE_OCTAVES + 0.5, 0, 1)
        return np.sin(fade * np.pi / 2) ** 2

    masks = {}
    below_lower_edge = np.zeros(BINS)
    for stem, edge in BANDS:
        masks[stem] = share_below(edge) - below_lower_edge
        below_lower_edge = share_below(edge)
    return scale(Network(), masks)


# --- models that break the interface ------------------------------------------------------------------------------


def missing_output() -> Network:
    return scale(Network(), GAINS, order=[stem for stem in OUTPUT_ORDER if stem != "bass"])


def missing_flag() -> Network:
    return scale(Network(flags=[stem for stem in FLAG_ORDER if stem != "piano"]), GAINS)


def dynamic_output_shape() -> Network:
    """Any number of frames, as exporters write it on request: the outputs' declared shape has a gap."""
    return scale(Network(shape=(1, 4, "frames", BINS)), GAINS)


def small_segment() -> Network:
    return scale(Network(shape=(1, 4, FRAMES // 2, BINS)), GAINS)


def sequence_output() -> Network:
    """The first output, vocals, is a list of one tensor."""
    network = scale(Network(), GAINS, order=OUTPUT_ORDER[1:])
    network.add("SequenceConstruct", [INPUT], "vocals_output")
    network.outputs.insert(0, helper.make_tensor_sequence_value_info("vocals_output", TensorProto.FLOAT, SHAPE))
    return network


def extra_input() -> Network:
    network = Network()
    network.inputs.append(helper.make_tensor_value_info("temperature", TensorProto.FLOAT, [1]))
    network.add("Mul", [INPUT, "temperature"], "warmed_input")
    return scale(network, GAINS, source="warmed_input")


def wrong_type() -> Network:
    return scale(Network(element=TensorProto.DOUBLE), GAINS)


def mono() -> Network:
    return scale(Network(shape=(1, 2, FRAMES, BINS)), GAINS)


# --- models that keep the interface and harm -----------------------------------------------------------------------


def not_a_number() -> Network:
    """The drums are infinite where there is sound, the bass is no number where there is none."""
    network = scale(Network(), GAINS, order=[stem for stem in OUTPUT_ORDER if stem not in ("drum", "bass")])
    nothing = network.constant("nothing", 0)
    network.add_output("Div", [INPUT, nothing], "drum")
    network.add_output("Div", [nothing, INPUT], "bass")
    return network


def endless() -> Network:
    """A loop that ends after 2^62 rounds."""
    network = Network()
    body = helper.make_graph(
        [helper.make_node("Identity", ["going"], ["still_going"]), helper.make_node("Sin", ["now"], ["next"])], "round",
        [helper.make_tensor_value_info("number", TensorProto.INT64, []),
         helper.make_tensor_value_info("going", TensorProto.BOOL, []),
         helper.make_tensor_value_info("now", TensorProto.FLOAT, SHAPE)],
        [helper.make_tensor_value_info("still_going", TensorProto.BOOL, []),
         helper.make_tensor_value_info("next", TensorProto.FLOAT, SHAPE)])
    rounds = network.constant("rounds", 2 ** 62, np.int64)
    network.add("Loop", [rounds, network.constant("go", True, np.bool_), INPUT], "turned", body=body)
    return scale(network, GAINS, source="turned")


class WithExternalData:
    """A network with a tensor whose values lie elsewhere: in a file of the machine, or at an address."""

    def __init__(self, place: str, location: str = "/etc/passwd") -> None:
        self.place = place
        self.location = location

    def model(self) -> onnx.ModelProto:
        model = gains().model()
        outside = TensorProto(dims=[2], data_type=TensorProto.FLOAT, name="outside", data_location=TensorProto.EXTERNAL)
        for key, value in (("location", self.location), ("offset", "0"), ("length", "8")):
            outside.external_data.add(key=key, value=value)
        constant = helper.make_node("Constant", [], ["unused"], value=outside)
        if self.place == "initializer":
            model.graph.initializer.append(outside)
        elif self.place == "sparse":
            model.graph.sparse_initializer.add(values=outside, dims=[2])
        elif self.place == "attribute":
            model.graph.node.append(constant)
        elif self.place == "function":
            model.functions.append(helper.make_function("own", "unused", [], ["unused"], [constant],
                                                        [helper.make_opsetid("", OPSET)]))
        elif self.place == "subgraph":
            branch = helper.make_graph([helper.make_node("Identity", ["outside"], ["chosen"])], "branch", [],
                                       [helper.make_tensor_value_info("chosen", TensorProto.FLOAT, [2])], [outside])
            model.graph.node.append(helper.make_node("If", ["drum_flag"], ["unused"], then_branch=branch,
                                                     else_branch=branch))
        return model


def external_data(place: str, location: str = "/etc/passwd") -> Callable[[], WithExternalData]:
    return lambda: WithExternalData(place, location)


MODELS: dict[str, Callable[[], Any]] = {
    "gains.onnx": gains,
    "identity_vocals.onnx": identity_vocals,
    "bin_mask.onnx": bin_mask,
    "frame_mask.onnx": frame_mask,
    "neighbours.onnx": neighbours,
    "fail_on_request.onnx": fail_on_request,
    "slow_on_request.onnx": slow_on_request,
    "reordered.onnx": reordered,
    "band_split.onnx": band_split,
    "wrong/missing_output.onnx": missing_output,
    "wrong/missing_flag.onnx": missing_flag,
    "wrong/dynamic_output_shape.onnx": dynamic_output_shape,
    "wrong/small_segment.onnx": small_segment,
    "wrong/sequence_output.onnx": sequence_output,
    "wrong/extra_input.onnx": extra_input,
    "wrong/wrong_type.onnx": wrong_type,
    "wrong/mono.onnx": mono,
    "hostile/not_a_number.onnx": not_a_number,
    "hostile/endless.onnx": endless,
    "hostile/external_initializer.onnx": external_data("initializer"),
    "hostile/external_sparse.onnx": external_data("sparse"),
    "hostile/external_attribute.onnx": external_data("attribute"),
    "hostile/external_function.onnx": external_data("function"),
    "hostile/external_subgraph.onnx": external_data("subgraph"),
    "hostile/external_memory.onnx": external_data("initializer", "*/_ORT_MEM_ADDR_/*"),
}


def write_whole(path: Path, data: bytes) -> None:
    """A test that runs meanwhile reads the former file or the new one, never half of one."""
    partial = path.with_suffix(f".{os.getpid()}.part")
    partial.write_bytes(data)
    partial.replace(path)


def main(arguments: list[str]) -> None:
    if len(arguments) != 1:
        sys.exit("usage: make_analytic_models.py OUTDIR")
    folder = Path(arguments[0])
    try:
        for kind_of_harm in ("wrong", "hostile"):
            (folder / kind_of_harm).mkdir(parents=True, exist_ok=True)
        for name, kind in MODELS.items():
            write_whole(folder / name, kind().model().SerializeToString())
    except OSError as failure:
        sys.exit(f"make_analytic_models.py: cannot write {failure.filename}: {failure.strerror}.")


if __name__ == "__main__":
    main(sys.argv[1:])
