# SPDX-License-Identifier: MIT
"""From an exported model back to a network that training can go on with.

Of a finished run only the model is kept, without the optimizer's state and with its batch norms folded into their
convolutions. This reads the weights layer by layer, in the order in which `exporting` writes them, and then gives each
batch norm the statistics that its convolution has on real chunks, so that the network computes the same in training.
"""

import json
from collections.abc import Iterable, Iterator
from pathlib import Path

import onnx
import torch
from onnx import numpy_helper
from torch import nn

from .exporting import NETWORK_SETTINGS, load_network
from .network import ConvUnit, FrequencyMixer, GlobalMixer, MaskNetwork, NetworkSettings, Upsampler

LayerConstants = tuple[torch.Tensor, torch.Tensor, torch.Tensor | None]


def load_start(path: Path, inputs: Iterable[torch.Tensor]) -> MaskNetwork:
    """The network to begin a run with: the averaged one of a checkpoint (.pt), or that of an exported model, whose
    batch norms are calibrated on the inputs."""
    if path.suffix == ".pt":
        return load_network(path)[0]
    network = load_model(path)
    calibrate(network, inputs)
    return network


def description_of(path: Path) -> str:
    """What an exported model says of its training."""
    return str(onnx.load(str(path)).doc_string)


def load_model(path: Path) -> MaskNetwork:
    """The MaskNetwork that an exported model holds, ready to run. Raises ValueError if it holds none."""
    model = onnx.load(str(path))
    rows = {row.key: row.value for row in model.metadata_props}
    network = MaskNetwork(NetworkSettings.of(json.loads(rows.get(NETWORK_SETTINGS, "{}")))).eval()
    source = _Constants(model)
    try:
        with torch.no_grad():
            for layer in _layers(network):
                _fill(layer, source)
    except (StopIteration, RuntimeError) as problem:
        raise ValueError(f"{path} does not hold a network of this project: {problem}") from problem
    if source.left():
        raise ValueError(f"{path} holds more layers than its network has.")
    return network


@torch.no_grad()
def calibrate(network: MaskNetwork, inputs: Iterable[torch.Tensor]) -> None:
    """Gives every batch norm the mean and the variance of its convolution's results over the inputs, and a scale and
    shift that undo them: the network computes what it did, and does so in training as well.

    inputs: tensors as MaskNetwork.forward() takes them; a few dozen crops suffice.
    """
    units = [module for module in network.modules() if isinstance(module, ConvUnit)]
    sums = {unit: [torch.zeros(unit.norm.num_features, dtype=torch.float64) for _ in range(2)] for unit in units}
    counts = dict.fromkeys(units, 0)

    def record(unit: ConvUnit) -> torch.utils.hooks.RemovableHandle:
        def hook(_module: nn.Module, _inputs: tuple[torch.Tensor, ...], output: torch.Tensor) -> None:
            values = output.double().transpose(0, 1).flatten(1)
            counts[unit] += values.shape[1]
            sums[unit][0] += values.sum(dim=1)
            sums[unit][1] += (values ** 2).sum(dim=1)
        return unit.conv.register_forward_hook(hook)

    handles = [record(unit) for unit in units]
    for item in inputs:
        network.eval()(item)
    for handle in handles:
        handle.remove()
    for unit in units:
        mean = sums[unit][0] / counts[unit]
        variance = (sums[unit][1] / counts[unit] - mean ** 2).clamp(min=1e-8)
        _renormalise(unit.norm, mean.float(), variance.float())


def _renormalise(norm: nn.BatchNorm2d, mean: torch.Tensor, variance: torch.Tensor) -> None:
    """Other statistics for a batch norm, and the scale and shift with which its results stay as they were."""
    scale = norm.weight / torch.sqrt(norm.running_var + norm.eps)
    norm.bias += (mean - norm.running_mean) * scale
    norm.weight.copy_(scale * torch.sqrt(variance + norm.eps))
    norm.running_mean.copy_(mean)
    norm.running_var.copy_(variance)


class _Constants:
    """The convolutions' and dense layers' constants of a model, in the order of their nodes; and what is added to the
    result of a node."""

    def __init__(self, model: onnx.ModelProto) -> None:
        arrays = {item.name: numpy_helper.to_array(item) for item in model.graph.initializer}
        nodes = [node for node in model.graph.node if node.op_type in ("Conv", "Gemm")]
        self._added = {node.input[0]: arrays[node.input[1]] for node in model.graph.node
                       if node.op_type == "Add" and node.input[1] in arrays}
        self._nodes = iter([(node.output[0], arrays[node.input[1]], arrays[node.input[2]]) for node in nodes])

    def next(self) -> LayerConstants:
        """Weight, bias and what is added afterwards (or None) of the next layer."""
        result, weight, bias = next(self._nodes)
        added = self._added.get(result)
        return torch.tensor(weight), torch.tensor(bias), None if added is None else torch.tensor(added)

    def left(self) -> bool:
        """Whether there are more."""
        return next(self._nodes, None) is not None


def _layers(network: MaskNetwork) -> Iterator[nn.Module]:
    """The layers with weights in the order in which they run."""
    for stage in network.down:
        yield from stage
    yield from network.bottom
    for stage, lift in zip(reversed(network.up), reversed(network.lift)):
        yield lift
        yield from stage
    yield network.head


def _fill(layer: nn.Module, source: _Constants) -> None:
    if isinstance(layer, ConvUnit):
        _fill_unit(layer, *source.next())
    elif isinstance(layer, (FrequencyMixer, GlobalMixer)):
        for dense in (layer.narrow, layer.widen):
            weight, bias, _ = source.next()
            dense.weight.copy_(weight.t())
            dense.bias.copy_(bias)
    else:
        conv = layer.conv if isinstance(layer, Upsampler) else layer
        assert isinstance(conv, nn.Conv2d)
        weight, bias, _ = source.next()
        conv.weight.copy_(weight)
        conv.bias.copy_(bias)


def _fill_unit(unit: ConvUnit, weight: torch.Tensor, bias: torch.Tensor, place: torch.Tensor | None) -> None:
    unit.conv.weight.copy_(weight)
    unit.norm.weight.fill_(1)
    unit.norm.running_mean.zero_()
    unit.norm.running_var.fill_(1 - unit.norm.eps)
    unit.norm.bias.copy_(bias)
    if place is not None and unit.place is not None:
        unit.place.copy_(place.squeeze(0))
    elif place is not unit.place:
        raise RuntimeError("one has a bias per frequency where the other has none")
