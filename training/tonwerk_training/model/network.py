# SPDX-License-Identifier: MIT
"""The mask network: a convolutional U-Net with layers that see all frequencies at once.

It works on maps [batch, channels, T, F]: T frames, F = 112 groups of eight neighbouring bands at the top level, both
halved from level to level. The three kinds of layers:

- ConvUnit: 3x3 convolution, batch norm, ReLU: local shapes, onsets and partials.
- FrequencyMixer: a residual two-layer perceptron along the frequency axis of every frame and channel, with weights
  for each frequency: the pattern of a note's partials, which no small convolution spans. (After the time-distributed
  fully-connected blocks of Choi et al., "Investigating U-Nets with various intermediate blocks for spectrogram-based
  singing voice separation", 2020.)
- GlobalMixer: at the bottom, the same over frequencies and channels together.
"""

from collections.abc import Mapping, Sequence
from dataclasses import dataclass, fields
from typing import Any, TypeVar

import numpy as np
import torch
import torch.nn.functional as functional
from torch import nn

from ..data.bands import BANDS
from ..data.chunkstore import STEMS

FOLD = 8  # neighbouring bands that share a place on the frequency axis
GROUPS = BANDS // FOLD
CLASSES = len(STEMS) + 1  # the last one is what no stem claims
SMALLEST_MEAN = 1e-14  # less than that is silence
FEATURE_FLOOR = 1e-8  # relative to the mean band power: 80 dB below it everything is silence

Values = TypeVar("Values", np.ndarray, torch.Tensor)


@dataclass(frozen=True)
class NetworkSettings:
    """The network's sizes. Lists, as JSON gives them, do as well as tuples."""

    channels: Sequence[int] = (32, 64, 96, 128, 160)  # per level, top first
    units: Sequence[int] = (1, 2, 2, 2, 2)  # ConvUnits per level, the way down and the way up each
    mixers: Sequence[int] = (0, 4, 2, 2, 0)  # FrequencyMixer: its hidden size is F divided by this; 0: none
    bottom: int = 256  # hidden size of the GlobalMixer

    @classmethod
    def of(cls, values: Mapping[str, Any]) -> "NetworkSettings":
        """The defaults with these in their place; a name that is no setting raises ValueError."""
        unknown = set(values) - {field.name for field in fields(cls)}
        if unknown:
            raise ValueError(f"Unknown settings of the network: {', '.join(sorted(unknown))}.")
        return cls(**values)


class ConvUnit(nn.Module):
    """3x3 convolution, batch norm, a learned bias per channel and frequency (optional), ReLU.

    stride 2 halves T and F. Where the shape stays, the input is added to the result.
    """

    def __init__(self, inputs: int, outputs: int, frequencies: int = 0, stride: int = 1, dilation: int = 1) -> None:
        super().__init__()
        self.conv = nn.Conv2d(inputs, outputs, 3, stride=stride, padding=(dilation, 1), dilation=(dilation, 1),
                              bias=False)
        self.norm = nn.BatchNorm2d(outputs)
        self.place = nn.Parameter(torch.zeros(outputs, 1, frequencies)) if frequencies else None
        self.residual = inputs == outputs and stride == 1

    def forward(self, maps: torch.Tensor) -> torch.Tensor:
        result = self.norm(self.conv(maps))
        if self.place is not None:
            result = result + self.place
        result = functional.relu(result)
        return maps + result if self.residual else result


class FrequencyMixer(nn.Module):
    """maps + W2 relu(W1 maps + b1) + b2 along the last axis."""

    def __init__(self, frequencies: int, hidden: int) -> None:
        super().__init__()
        self.narrow = nn.Linear(frequencies, hidden)
        self.widen = nn.Linear(hidden, frequencies)
        nn.init.zeros_(self.widen.weight)
        nn.init.zeros_(self.widen.bias)

    def forward(self, maps: torch.Tensor) -> torch.Tensor:
        return maps + self.widen(functional.relu(self.narrow(maps)))


class GlobalMixer(nn.Module):
    """As FrequencyMixer, over channels and frequencies of each frame together."""

    def __init__(self, channels: int, frequencies: int, hidden: int) -> None:
        super().__init__()
        self.frequencies = frequencies
        self.narrow = nn.Linear(channels * frequencies, hidden)
        self.widen = nn.Linear(hidden, channels * frequencies)
        nn.init.zeros_(self.widen.weight)
        nn.init.zeros_(self.widen.bias)

    def forward(self, maps: torch.Tensor) -> torch.Tensor:
        batch, channels, frames, frequencies = maps.shape
        rows = maps.permute(0, 2, 1, 3).reshape(batch, frames, channels * frequencies)
        rows = self.widen(functional.relu(self.narrow(rows)))
        return maps + rows.view(batch, frames, channels, frequencies).permute(0, 2, 1, 3)


class Upsampler(nn.Module):
    """Changes the channels and doubles T and F by repetition; what is between comes from the way down."""

    def __init__(self, inputs: int, outputs: int) -> None:
        super().__init__()
        self.conv = nn.Conv2d(inputs, outputs, 1)

    def forward(self, maps: torch.Tensor) -> torch.Tensor:
        return functional.interpolate(self.conv(maps), scale_factor=2, mode="nearest")


def level(inputs: int, outputs: int, frequencies: int, units: int, divisor: int, stride: int = 1) -> nn.Sequential:
    """The layers of a level on the way down (stride 2 first, below the top) or up."""
    layers: list[nn.Module] = [ConvUnit(inputs, outputs, frequencies, stride)]
    layers += [ConvUnit(outputs, outputs) for _ in range(units - 1)]
    if divisor:
        layers.append(FrequencyMixer(frequencies, frequencies // divisor))
    return nn.Sequential(*layers)


class MaskNetwork(nn.Module):
    """From the mixture's band powers to the logits of the stems' shares."""

    def __init__(self, settings: NetworkSettings) -> None:
        super().__init__()
        self.settings = settings
        channels, units, mixers = settings.channels, settings.units, settings.mixers
        depth = len(channels)
        sizes = [GROUPS >> index for index in range(depth)]
        self.down = nn.ModuleList(
            level(3 * FOLD if index == 0 else channels[index - 1], channels[index], sizes[index], units[index],
                  mixers[index], stride=1 if index == 0 else 2)
            for index in range(depth))
        self.bottom = nn.Sequential(
            GlobalMixer(channels[-1], sizes[-1], settings.bottom),
            ConvUnit(channels[-1], channels[-1], dilation=2),
            GlobalMixer(channels[-1], sizes[-1], settings.bottom))
        self.lift = nn.ModuleList(Upsampler(channels[index + 1], channels[index]) for index in range(depth - 1))
        self.up = nn.ModuleList(
            level(channels[index], channels[index], sizes[index], units[index], mixers[index])
            for index in range(depth - 1))
        self.head = nn.Conv2d(channels[0], CLASSES * 2 * FOLD, 1)
        nn.init.zeros_(self.head.weight)
        nn.init.zeros_(self.head.bias)

    def forward(self, power: torch.Tensor) -> torch.Tensor:
        """power: [batch, 3, T, 896], band powers of left, right and their mean at any scale; T is a multiple
        of 16. Returns logits [batch, 7, 2, 8, T, 112], folded; the masks are their softmax over the second axis."""
        maps = fold(features(power)).flatten(1, 2)
        skips = []
        for stage in self.down:
            maps = stage(maps)
            skips.append(maps)
        maps = self.bottom(skips.pop())
        for stage, lift in zip(reversed(self.up), reversed(self.lift)):
            maps = stage(lift(maps) + skips.pop())
        return self.head(maps).unflatten(1, (CLASSES, 2, FOLD))


def features(power: torch.Tensor) -> torch.Tensor:
    """Log powers relative to the mean of both channels, so that the scale does not matter: 0 is silence (which is
    also what the convolutions' padding means), 2 the mean."""
    mean = power[:, :2].mean(dim=(1, 2, 3), keepdim=True).clamp(min=SMALLEST_MEAN)
    return 0.25 * (torch.log10(power / mean + FEATURE_FLOOR) + 8)


def fold(values: Values) -> Values:
    """[..., T, 896] -> [..., 8, T, 112]. Also for NumPy arrays."""
    groups = values.reshape(*values.shape[:-1], GROUPS, FOLD)
    return groups.swapaxes(-1, -2).swapaxes(-2, -3)


def unfold(values: Values) -> Values:
    """[..., 8, T, 112] -> [..., T, 896]."""
    groups = values.swapaxes(-2, -3).swapaxes(-1, -2)
    return groups.reshape(*groups.shape[:-2], BANDS)


def multiplications(network: MaskNetwork, frames: int = 256) -> int:
    """Multiply-accumulates for one run over this many frames, counted by running it."""
    total = 0

    def count(module: nn.Module, inputs: Any, output: torch.Tensor) -> None:
        nonlocal total
        if isinstance(module, nn.Conv2d):
            total += output.numel() * module.weight[0].numel()
        else:
            total += output.numel() * module.in_features

    layers = [layer for layer in network.modules() if isinstance(layer, (nn.Conv2d, nn.Linear))]
    handles = [layer.register_forward_hook(count) for layer in layers]
    with torch.no_grad():
        network.eval()(torch.ones(1, 3, frames, BANDS, device=next(network.parameters()).device))
    for handle in handles:
        handle.remove()
    return total
