# SPDX-License-Identifier: MIT
"""Weighs the classes of a trained network anew for other data than it was trained with, and leaves the rest alone.

A network is surest of what its training had most of. On records, where horns and organs play that it hardly heard, it
gives far too much to the guitars, and with too much confidence (Guo et al., "On calibration of modern neural networks",
2017). A factor and an offset per class mend much of that in minutes: the maps before the last layer are computed once
and kept. The error of all chunks of a step together is what counts for each stem, as in an evaluation.
"""

from collections.abc import Iterator, Sequence
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import torch

from ..data import chunkstore
from ..data.chunkstore import STEMS, dequantise
from .losses import separation_ratio
from .network import CLASSES, FOLD, GROUPS, MaskNetwork
from .sampling import crop, stack, unpack

FRAMES = 128  # of each chunk go through the network
STEP_CHUNKS = 30
HELD_BACK = 5  # of so many chunks one is not fitted to but decides when to end
PATIENCE = 3  # epochs without a gain on those
VOCALS = STEMS.index("vocals")
FLOOR = 1e-3  # of all stems' energy, added to each: silent stems do not outweigh all else


@dataclass
class Prepared:
    """What is kept of a chunk: maps float16 [channels, T, 112] before the last layer, band powers float16
    [2, 8, T, 112] and codes of the optimal masks [6, 2, 8, T, 112], folded as the network's results are."""

    maps: torch.Tensor
    power: torch.Tensor
    codes: torch.Tensor


def prepare(network: MaskNetwork, folder: Path, kept: float, seed: int) -> Iterator[Prepared]:
    """The chunks of a folder through all layers but the last; a share of their frames is kept."""
    random = np.random.default_rng(seed)
    last: list[torch.Tensor] = []
    handle = network.head.register_forward_pre_hook(lambda _module, inputs: last.append(inputs[0][0]))
    for index in chunkstore.shard_indices(folder):
        shard = chunkstore.open_shard(folder, index)
        for row in range(len(shard["rest"])):
            begin = int(random.integers(chunkstore.FRAMES - FRAMES + 1))
            data = unpack(stack([crop(shard, row, begin, FRAMES)]), torch.device("cpu"))
            with torch.no_grad():
                network.eval()(data["seen"])
            frames = torch.from_numpy(np.sort(random.choice(FRAMES, max(1, int(kept * FRAMES)), replace=False)))
            yield Prepared(last.pop()[:, frames].half(), data["power"][0][:, :, frames].half(),
                           data["codes"][0][:, :, :, frames])
    handle.remove()


class Balance:
    """How the classes of the last layer are weighed while that is fitted: a factor and an offset of each class's
    logits. That of the vocals stays as it is: what is rendered as singing is no voice to learn from."""

    def __init__(self, network: MaskNetwork) -> None:
        self.weight = network.head.weight.detach()[:, :, 0, 0].view(CLASSES, 2 * FOLD, -1)
        self.bias = network.head.bias.detach().view(CLASSES, 2 * FOLD)
        self.changes = torch.zeros(2, CLASSES, requires_grad=True)  # of the factors, of the offsets

    def weights(self) -> tuple[torch.Tensor, torch.Tensor]:
        """Weight [112, channels] and bias [112] of the layer."""
        factors, offsets = self.changes[:, :, None] * (torch.arange(CLASSES) != VOCALS)[:, None]
        return ((1 + factors[:, :, None]) * self.weight).flatten(0, 1), ((1 + factors) * self.bias + offsets).flatten()

    def masks(self, maps: torch.Tensor) -> torch.Tensor:
        """Shares [7, 2, 8, T, 112] from maps."""
        weight, bias = self.weights()
        logits = torch.einsum("oc,ctf->otf", weight, maps.float()) + bias[:, None, None]
        return torch.softmax(logits.view(CLASSES, 2, FOLD, maps.shape[1], GROUPS), dim=0)

    def energies(self, chunks: Sequence[Prepared]) -> tuple[torch.Tensor, torch.Tensor]:
        """(error, energy) [6] per stem over all the chunks, of what masks can change."""
        error, energy = torch.zeros(len(STEMS)), torch.zeros(len(STEMS))
        for chunk in chunks:
            power, ratio = chunk.power.float(), dequantise(chunk.codes.float())
            difference = self.masks(chunk.maps)[:len(STEMS)] - ratio
            error = error + (difference ** 2 * power).flatten(1).sum(dim=1)
            energy = energy + (ratio ** 2 * power).flatten(1).sum(dim=1)
        return error, energy

    @torch.no_grad()
    def score(self, chunks: Sequence[Prepared]) -> torch.Tensor:
        """SDR in dB per stem."""
        return separation_ratio(*self.energies(chunks))


def fit(network: MaskNetwork, chunks: Sequence[Prepared], epochs: int, rate: float, seed: int) -> list[list[float]]:
    """Fits the balance of the network's last layer. Returns the SDR per stem of the chunks held back, before and after
    each epoch; the network gets the weights of the best."""
    random = np.random.default_rng(seed)
    order = random.permutation(len(chunks))
    held, fitted = ([chunks[place] for place in part]
                    for part in (order[:len(chunks) // HELD_BACK], order[len(chunks) // HELD_BACK:]))
    if not held:
        raise ValueError(f"There are fewer than {HELD_BACK} chunks to fit to.")
    balance = Balance(network)
    optimizer = torch.optim.Adam([balance.changes], lr=rate)
    history, best = [balance.score(held)], balance.changes.detach().clone()
    while len(history) <= epochs and len(history) - _best(history) <= PATIENCE:
        for places in np.array_split(random.permutation(len(fitted)), max(1, len(fitted) // STEP_CHUNKS)):
            error, energy = balance.energies([fitted[place] for place in places])
            floor = FLOOR * energy.sum()
            loss = torch.log((error + floor) / (energy + floor)).mean()
            optimizer.zero_grad()
            loss.backward()
            optimizer.step()
        history.append(balance.score(held))
        if _best(history) == len(history) - 1:
            best = balance.changes.detach().clone()
    with torch.no_grad():
        balance.changes.copy_(best)
        weight, bias = balance.weights()
        network.head.weight.copy_(weight[:, :, None, None])
        network.head.bias.copy_(bias)
    return [scores.tolist() for scores in history]


def _best(history: Sequence[torch.Tensor]) -> int:
    """The place of the highest mean."""
    return int(np.argmax([float(scores.mean()) for scores in history]))
