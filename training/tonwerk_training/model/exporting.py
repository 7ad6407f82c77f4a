# SPDX-License-Identifier: MIT
"""From a checkpoint to a model of the library's interface.

The graph is written from the network's weights, layer by layer, and not traced: batch norms are folded into their
convolutions, and the operators are those that every execution provider has. What surrounds the trained part is here
too: level, band powers, masks per bin.
"""

import json
from dataclasses import asdict
from pathlib import Path

import numpy as np
import onnx
import torch
from onnx import TensorProto
from stream_contract import FLAGS, INPUT, SHAPE, STEMS
from torch import nn

from ..data import bands
from ..data.stft import SAMPLE_RATE
from .graph import Graph
from .network import (
    CLASSES,
    FEATURE_FLOOR,
    FOLD,
    GROUPS,
    SMALLEST_MEAN,
    ConvUnit,
    FrequencyMixer,
    GlobalMixer,
    MaskNetwork,
    NetworkSettings,
    Upsampler,
    unfold,
)

FRAMES = SHAPE[2]
SMALLEST_PEAK = 1e-37  # the quietest level that is brought to full scale; below are numbers of reduced precision
LARGEST_LOGIT = 30.0  # exp() of more is never needed and of a lot more overflows
EXPANDED = 16  # bands at a time that are repeated for their bins
MASK_SCALE = 1 - 1e-6  # so that six masks do not add up to more than 1 by rounding

NETWORK_SETTINGS = "tonwerk.network"  # metadata from which a later run can load the network again

# What the file says of itself; check-model and receipts show it.
METADATA = {
    "tonwerk.name": "tonwerk-small",
    "tonwerk.license": "MIT",
    "tonwerk.authors": "The tonwerk authors",
    "tonwerk.source": "training/ of the tonwerk project",
    "tonwerk.training_data": "Songs written and rendered by a program, with sounds from Debian's packages and recorded "
                             "notes of the npm registry, listed with their licences in training/SOURCES.md; "
                             "attribution in models/README.md.",
    "tonwerk.stems": "; ".join(STEMS),
    "tonwerk.sample_rate": str(SAMPLE_RATE),
}


def load_network(path: Path) -> tuple[MaskNetwork, str]:
    """The averaged network of a checkpoint, ready to run, and a sentence on how it was trained."""
    saved = torch.load(path, map_location="cpu")
    network = MaskNetwork(NetworkSettings.of(saved["network"]))
    network.load_state_dict(saved["average"])
    return network.eval(), saved["description"]


def export(network: MaskNetwork, description: str) -> onnx.ModelProto:
    """The whole model as an ONNX ModelProto. network: a MaskNetwork."""
    graph = Graph()
    spectrum = graph.input(INPUT, SHAPE)
    for stem in FLAGS:
        graph.input(f"{stem}_flag", [1], TensorProto.BOOL)
    with torch.no_grad():
        logits = _network(graph, network, _features(graph, spectrum))
    _apply(graph, spectrum, _masks(graph, logits))
    settings = {NETWORK_SETTINGS: json.dumps(asdict(network.settings))}
    return graph.model("tonwerk_masks", description, METADATA | settings)


def _features(graph: Graph, spectrum: str) -> str:
    """Level, band powers and their logs: the network's input [1, 24, 256, 112]."""
    # The peak goes first: squares of loud or quiet spectra leave the range of the numbers.
    peak = graph.add("ReduceMax", graph.add("Abs", spectrum), keepdims=0)
    level = graph.add("Div", spectrum, graph.add("Max", peak, SMALLEST_PEAK))
    left, left_i, right, right_i = graph.split(level, 1, [1, 1, 1, 1])

    def power(real: str, imaginary: str) -> str:
        return graph.add("Add", graph.add("Mul", real, real), graph.add("Mul", imaginary, imaginary))

    def mean_of(first: str, second: str) -> str:
        return graph.add("Mul", graph.add("Add", first, second), 0.5)

    middle = power(mean_of(left, right), mean_of(left_i, right_i))
    planes = graph.add("Concat", power(left, left_i), power(right, right_i), middle, axis=1)
    pooled = _pool(graph, planes)
    channels = graph.split(pooled, 1, [2, 1])[0]
    mean = graph.add("Max", graph.add("ReduceMean", channels, keepdims=0), SMALLEST_MEAN)
    relative = graph.add("Add", graph.add("Div", pooled, mean), FEATURE_FLOOR)
    logs = graph.add("Add", graph.add("Mul", graph.add("Log", relative), 0.25 / np.log(10)), 2.0)
    groups = graph.reshape(logs, 3, FRAMES, GROUPS, FOLD)
    return graph.reshape(graph.add("Transpose", groups, perm=[0, 3, 1, 2]), 1, 3 * FOLD, FRAMES, GROUPS)


def _pool(graph: Graph, planes: str) -> str:
    """Sums bins to bands: [1, 3, 256, 2048] -> [1, 3, 256, 896]."""
    sections = graph.split(planes, 3, [last - first for first, last, _ in bands.SECTIONS])
    parts = [section if width == 1 else
             graph.sum(graph.reshape(section, 1, 3, FRAMES, (last - first) // width, width), 4)
             for section, (first, last, width) in zip(sections, bands.SECTIONS)]
    return graph.add("Concat", *parts, axis=3)


def _network(graph: Graph, network: MaskNetwork, maps: str) -> str:
    """The trained part, as MaskNetwork.forward() has it: [1, 112, 256, 112]."""
    frames, skips = FRAMES, []
    for index, stage in enumerate(network.down):
        frames = FRAMES >> index
        for layer in stage:
            maps = _layer(graph, layer, maps, frames)
        skips.append(maps)
    maps = skips.pop()
    for layer in network.bottom:
        maps = _layer(graph, layer, maps, frames)
    for stage, lift in zip(reversed(network.up), reversed(network.lift)):
        frames *= 2
        maps = graph.add("Add", _layer(graph, lift, maps, frames), skips.pop())
        for layer in stage:
            maps = _layer(graph, layer, maps, frames)
    return _convolution(graph, network.head, maps)


def _layer(graph: Graph, layer: nn.Module, maps: str, frames: int) -> str:
    if isinstance(layer, ConvUnit):
        return _conv_unit(graph, layer, maps)
    if isinstance(layer, FrequencyMixer):
        rows = graph.reshape(maps, -1, layer.narrow.in_features)
        return graph.add("Add", maps, graph.reshape(_perceptron(graph, layer, rows), 1, -1, frames,
                                                    layer.narrow.in_features))
    if isinstance(layer, GlobalMixer):
        return _global_mixer(graph, layer, maps, frames)
    if isinstance(layer, Upsampler):
        return graph.add("Resize", _convolution(graph, layer.conv, maps), "", graph.constant([1, 1, 2, 2]),
                         mode="nearest", coordinate_transformation_mode="asymmetric", nearest_mode="floor")
    raise TypeError(f"No way to export a {type(layer).__name__}.")


def _convolution(graph: Graph, conv: nn.Conv2d, maps: str, weight: torch.Tensor | None = None,
                 bias: torch.Tensor | None = None) -> str:
    """A convolution with its own weights, or with others in their place."""
    weight = conv.weight if weight is None else weight
    bias = conv.bias if bias is None else bias
    return graph.add("Conv", maps, weight.numpy(), bias.numpy(), kernel_shape=list(conv.kernel_size),
                     strides=list(conv.stride), dilations=list(conv.dilation),
                     pads=[conv.padding[0], conv.padding[1]] * 2)


def _conv_unit(graph: Graph, unit: ConvUnit, maps: str) -> str:
    scale = unit.norm.weight / torch.sqrt(unit.norm.running_var + unit.norm.eps)
    shift = unit.norm.bias - unit.norm.running_mean * scale
    result = _convolution(graph, unit.conv, maps, unit.conv.weight * scale.view(-1, 1, 1, 1), shift)
    if unit.place is not None:
        result = graph.add("Add", result, unit.place.unsqueeze(0).numpy())
    result = graph.add("Relu", result)
    return graph.add("Add", maps, result) if unit.residual else result


def _perceptron(graph: Graph, layer: FrequencyMixer | GlobalMixer, rows: str) -> str:
    """Two dense layers on the rows of a matrix."""
    for dense in (layer.narrow, layer.widen):
        rows = graph.add("Gemm", rows, dense.weight.t().numpy(), dense.bias.numpy())
        if dense is layer.narrow:
            rows = graph.add("Relu", rows)
    return rows


def _global_mixer(graph: Graph, layer: GlobalMixer, maps: str, frames: int) -> str:
    size = layer.narrow.in_features
    rows = graph.reshape(graph.add("Transpose", maps, perm=[0, 2, 1, 3]), frames, size)
    rows = graph.reshape(_perceptron(graph, layer, rows), 1, frames, -1, layer.frequencies)
    return graph.add("Add", maps, graph.add("Transpose", rows, perm=[0, 2, 1, 3]))


def _masks(graph: Graph, logits: str) -> str:
    """Six masks per band, [6, 2, 256, 896], from [1, 112, 256, 112]."""
    classes = graph.reshape(logits, CLASSES, 2, FOLD, FRAMES, GROUPS)
    powers = graph.add("Exp", graph.add("Clip", classes, -LARGEST_LOGIT, LARGEST_LOGIT))
    scale = graph.add("Div", MASK_SCALE, graph.sum(powers, 0))
    stems = graph.split(powers, 0, [CLASSES - 1, 1])[0]
    shares = graph.add("Transpose", graph.add("Mul", stems, scale), perm=[0, 1, 3, 4, 2])
    return graph.reshape(shares, CLASSES - 1, 2, FRAMES, bands.BANDS)


def _repeat(graph: Graph, masks: str, count: int, width: int) -> str:
    """Repeats each of the last axis's entries (count of them), as a product with ones and zeros: exact, and ten times
    faster than the operator that repeats, which copies number by number."""
    if width == 1:
        return masks
    rows = graph.reshape(masks, -1, EXPANDED)
    rows = graph.add("MatMul", rows, np.repeat(np.eye(EXPANDED), width, axis=1))
    return graph.reshape(rows, CLASSES - 1, 2, FRAMES, count * width)


def _apply(graph: Graph, spectrum: str, masks: str) -> None:
    """Each stem's output: the input's real and imaginary parts times the mask of their channel."""
    counts = [(last - first) // width for first, last, width in bands.SECTIONS]
    sizes = [last - first for first, last, _ in bands.SECTIONS]
    parts: list[list[str]] = [[] for _ in STEMS]
    sections = zip(graph.split(spectrum, 3, sizes), graph.split(masks, 3, counts), counts, bands.SECTIONS)
    for section, mask, count, (_, _, width) in sections:
        planes = graph.reshape(section, 2, 2, FRAMES, count * width)
        by_stem = graph.split(_repeat(graph, mask, count, width), 0, [1] * len(STEMS))
        for collected, own in zip(parts, by_stem):
            product = graph.add("Mul", planes, graph.reshape(own, 2, 1, FRAMES, count * width))
            collected.append(graph.reshape(product, 1, 4, FRAMES, count * width))
    for stem, collected in zip(STEMS, parts):
        graph.add("Concat", *collected, axis=3, name=f"{stem}_output")
        graph.output(f"{stem}_output", SHAPE)


def reference(network: MaskNetwork, spectrum: np.ndarray) -> dict[str, np.ndarray]:
    """What the model must give, by PyTorch: spectrum float32 of SHAPE to a dictionary of stems."""
    parts = torch.from_numpy(spectrum).view(2, 2, *SHAPE[2:])
    spectra = torch.cat([parts, parts.mean(dim=0, keepdim=True)])
    power = (spectra ** 2).sum(dim=1).numpy()
    with torch.no_grad():
        logits = network(torch.from_numpy(bands.pool(power)).unsqueeze(0))
        masks = unfold(torch.softmax(logits, dim=1)[0])
    planes = bands.expand(masks.numpy())
    return {stem: (parts * torch.from_numpy(planes[index]).unsqueeze(1)).reshape(SHAPE).numpy()
            for index, stem in enumerate(STEMS)}
