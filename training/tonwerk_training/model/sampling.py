# SPDX-License-Identifier: MIT
"""Training batches from a folder of chunks, in an order that a resumed run continues exactly."""

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import numpy as np
import torch

from ..data import chunkstore
from ..data.bands import BANDS
from .network import fold

VALIDATION_CHUNKS = 24
VARIED_SHARE_LATE = 0.25  # of the other chunks stay among the ordinary mixes of the later part
SILENCED_SHARE = 0.05  # of the crops begin with silence, as a stream's first window does
EQUALISED_SHARE = 0.5  # of the crops are seen through a random equaliser
EQUALISER_POINTS = 7
EQUALISER_BELS = 0.4  # standard deviation at each point

Batch = dict[str, torch.Tensor]  # tensors by name, see stack() and unpack()


class Sampler:
    """Draws batches: random crops in time, without replacement within an epoch.

    Everything random follows from the seed, the epoch and the step. Shards that appear in the folder during an epoch
    are part of the next. The first shard's first chunks are kept for validation. Set `late` to go over to ordinary
    mixes with the next epoch, if there are such shards.
    """

    def __init__(self, folder: Path, batch: int, frames: int, seed: int) -> None:
        self.folder, self.batch, self.frames, self.seed = folder, batch, frames, seed
        self.epoch, self.position, self.step = -1, 0, 0
        self.late = False
        self.shards: list[int] = []
        self.opened: dict[int, chunkstore.Chunk] = {}
        self._begin_epoch(chunkstore.shard_indices(folder))

    def state(self) -> dict[str, Any]:
        """What load() needs to go on from here."""
        return {"epoch": self.epoch, "position": self.position, "step": self.step, "shards": self.shards,
                "late": self.epoch_is_late}

    def load(self, state: dict[str, Any]) -> None:
        self.epoch = state["epoch"] - 1
        self.late = state.get("late", False)
        self._begin_epoch(state["shards"])
        self.position, self.step = state["position"], state["step"]

    def _begin_epoch(self, shards: list[int]) -> None:
        if not shards:
            raise FileNotFoundError(f"There is no training data in {self.folder}.")
        self.shards = shards
        self.epoch += 1
        self.position = 0
        counts = [len(self._shard(index)["rest"]) for index in shards]
        self.held_aside = min(VALIDATION_CHUNKS, counts[0] // 2)
        chunks = [(index, row) for index, count in zip(shards, counts)
                  for row in range(self.held_aside if index == shards[0] else 0, count)]
        random = np.random.default_rng([self.seed, 1, self.epoch])
        self.epoch_is_late = self.late
        if self.late:
            chunks = self._mostly_ordinary(chunks, random)
        order = random.permutation(len(chunks))
        self.order = [chunks[place] for place in order] * -(-self.batch // len(chunks))

    def _mostly_ordinary(self, chunks: list[tuple[int, int]], random: np.random.Generator) -> list[tuple[int, int]]:
        ordinary = {index for index in self.shards if chunkstore.is_ordinary(self.folder, index)}
        if not ordinary:
            return chunks
        return [chunk for chunk in chunks if chunk[0] in ordinary or random.random() < VARIED_SHARE_LATE]

    def _shard(self, index: int) -> chunkstore.Chunk:
        if index not in self.opened:
            self.opened[index] = chunkstore.open_shard(self.folder, index)
        return self.opened[index]

    def validation(self) -> Iterator[Batch]:
        """The chunks kept aside, whole, one at a time, as batches of one."""
        shard = self._shard(self.shards[0])
        for row in range(self.held_aside):
            yield stack([crop(shard, row, 0, chunkstore.FRAMES)])

    def next(self) -> Batch:
        """The next batch, see stack()."""
        if self.position + self.batch > len(self.order):
            self._begin_epoch(chunkstore.shard_indices(self.folder))
        chosen = self.order[self.position:self.position + self.batch]
        random = np.random.default_rng([self.seed, 2, self.step])
        self.position += self.batch
        self.step += 1
        return stack([self._augmented(index, row, random) for index, row in chosen])

    def _augmented(self, index: int, row: int, random: np.random.Generator) -> chunkstore.Chunk:
        start = random.integers(chunkstore.FRAMES - self.frames + 1)
        piece = crop(self._shard(index), row, start, self.frames)
        if random.random() < 0.5:
            piece["power"] = piece["power"][[1, 0, 2]]
            piece["ratio"] = piece["ratio"][:, ::-1]
        if random.random() < SILENCED_SHARE:
            silence(piece, random.integers(1, self.frames - self.frames // 8))
        if random.random() < EQUALISED_SHARE:
            piece["gain"] = equaliser(random)
        return piece


def crop(shard: chunkstore.Chunk, row: int, start: int, frames: int) -> chunkstore.Chunk:
    """Frames of one chunk: power [3, T, 896] float16, ratio codes [6, 2, T, 896], rest and energy [6], gain [896]."""
    span = slice(start, start + frames)
    return {"power": np.array(shard["power"][row, :, span]), "ratio": np.array(shard["ratio"][row, :, :, span]),
            "rest": shard["rest"][row, :, span].sum(-1), "energy": shard["energy"][row, :, span].sum(-1),
            "gain": np.zeros(BANDS, np.float32)}


def silence(piece: chunkstore.Chunk, frames: int) -> None:
    """Silences the first frames of a crop. Its energies shrink in proportion, which is near enough for a loss."""
    piece["power"][:, :frames] = np.log10(chunkstore.POWER_FLOOR)
    piece["ratio"][:, :, :frames] = chunkstore.quantise(np.float32(0))
    left = 1 - frames / piece["power"].shape[1]
    piece["rest"], piece["energy"] = piece["rest"] * left, piece["energy"] * left


def equaliser(random: np.random.Generator) -> np.ndarray:
    """A smooth random curve over the bands, log10 of power: float32 [896]. Only what the network sees goes through
    it: which share of a band a stem has does not depend on it."""
    points = random.normal(0, EQUALISER_BELS, EQUALISER_POINTS)
    places = np.linspace(0, 1, EQUALISER_POINTS)
    return np.interp(np.sqrt(np.arange(BANDS) / BANDS), places, points).astype(np.float32)


def stack(pieces: list[chunkstore.Chunk]) -> Batch:
    """Pieces as tensors with a leading batch axis; ratio folded as the network's results are."""
    for piece in pieces:
        piece["ratio"] = np.ascontiguousarray(fold(piece["ratio"]))
    names = ("power", "ratio", "rest", "energy", "gain")
    return {name: torch.from_numpy(np.stack([piece[name] for piece in pieces])) for name in names}


def unpack(batch: Batch, device: torch.device) -> Batch:
    """A batch as the network and the loss take it: seen [B, 3, T, 896], power [B, 2, 8, T, 112], codes of the
    optimal masks [B, 6, 2, 8, T, 112], rest and energy [B, 6]; all energies relative to the crop's mean band power."""
    batch = {name: value.to(device, non_blocking=True) for name, value in batch.items()}
    power = torch.pow(10.0, batch["power"].float()).sub_(chunkstore.POWER_FLOOR).clamp_(min=0)
    mean = power[:, :2].mean(dim=(1, 2, 3)).clamp(min=chunkstore.POWER_FLOOR)
    power /= mean.view(-1, 1, 1, 1)
    seen = power * torch.pow(10.0, batch["gain"])[:, None, None, :]
    return {"seen": seen, "power": fold(power[:, :2]).contiguous(),
            "codes": batch["ratio"], "rest": batch["rest"] / mean.unsqueeze(1),
            "energy": batch["energy"] / mean.unsqueeze(1)}
