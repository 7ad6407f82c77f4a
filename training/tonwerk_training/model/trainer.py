# SPDX-License-Identifier: MIT
"""The training run: schedule, checkpoints, records."""

import csv
import io
import math
import os
import signal
import time
from collections.abc import Sequence
from concurrent.futures import ThreadPoolExecutor
from dataclasses import asdict, dataclass, field
from pathlib import Path
from typing import Any

import torch
from torch.optim.lr_scheduler import LambdaLR
from torch.optim.swa_utils import AveragedModel

from ..data.chunkstore import STEMS, dequantise
from . import losses
from .importing import load_start
from .network import MaskNetwork, NetworkSettings
from .optimizer import Muon
from .sampling import Batch, Sampler, unpack

CALIBRATION_CROPS = 48
LONGEST_STEP = 0.5  # minutes; in what took longer the process stood still
WARM_UP = 0.01  # of the run
ORDINARY_FROM = 0.55  # of the run: ordinary mixes, such as the network is for, come last
LAST_RATE = 0.01  # of the full learning rate, at the end
CLIP_NORM = 5.0
LOG_STEPS = 50
CHECKPOINT_MINUTES = 3
VALIDATION_MINUTES = 5
LOG_COLUMNS = ("minutes", "step", "loss", "entropy", "amplitude", "decibel", "rate", "epoch")
VALIDATION_COLUMNS = ("minutes", "step", *STEMS, "mean")


@dataclass(frozen=True)
class TrainingSettings:
    """What a run is made with."""

    data: Path  # folder of chunks
    out: Path  # folder of the checkpoint and the logs
    minutes: float = 160  # length of the whole run
    steps: int = 0  # end after this many at the latest; 0: no limit
    start: Path | None = None  # model or checkpoint whose network the run begins with; none: random weights
    begin: float = 0.0  # place in the schedule, 0 to 1, at which it begins: late for a network that can do much already
    precision: str = "fp32"  # of the network's passes; "bf16" is faster where the processor has it
    compiled: bool = False  # the network goes through torch.compile, which this PyTorch must have
    batch: int = 4  # crops per step
    frames: int = 128  # per crop, a multiple of 16, at most 256
    rate: float = 2e-3  # full learning rate
    decay: float = 1e-2  # of the weights, relative to the rate
    average: float = 0.998  # share that the moving average keeps of itself in a step
    seed: int = 1
    device: str = "auto"  # auto, cpu or cuda
    network: NetworkSettings = field(default_factory=NetworkSettings)


def choose_device(name: str) -> torch.device:
    """The device of this name; "auto" is the first GPU or else the processor."""
    if name == "auto":
        name = "cuda" if torch.cuda.is_available() else "cpu"
    return torch.device(name)


def rate_share(progress: float) -> float:
    """The share of the full learning rate: a short linear warm-up, then a cosine down to LAST_RATE."""
    if progress < WARM_UP:
        return 0.05 + 0.95 * progress / WARM_UP
    angle = math.pi * min(1.0, (progress - WARM_UP) / (1 - WARM_UP))
    return LAST_RATE + (1 - LAST_RATE) * 0.5 * (1 + math.cos(angle))


def make_optimizers(network: MaskNetwork, rate: float, decay: float) -> list[torch.optim.Optimizer]:
    """Muon for kernels and dense layers; AdamW for the head and for what is no matrix."""
    matrices = [value for name, value in network.named_parameters() if value.dim() in (2, 4) and "head" not in name]
    chosen = {id(value) for value in matrices}
    others = [value for value in network.parameters() if id(value) not in chosen]
    return [Muon(matrices, rate, decay), torch.optim.AdamW(others, lr=rate, weight_decay=0.0)]


class Record:
    """A table on disk that grows by rows. A resumed run drops the rows that came after its checkpoint."""

    def __init__(self, path: Path, columns: Sequence[str], step: int) -> None:
        """step: the last one before the rows to come."""
        rows: list[dict[str, str]] = []
        if step and path.exists():
            with open(path, newline="") as file:
                rows = [row for row in csv.DictReader(file) if int(row["step"]) <= step]
        self.path, self.columns = path, columns
        with open(path, "w", newline="") as file:
            writer = csv.DictWriter(file, columns)
            writer.writeheader()
            writer.writerows(rows)

    def add(self, row: dict[str, Any]) -> None:
        """Appends a row, {column: value}."""
        with open(self.path, "a", newline="") as file:
            csv.DictWriter(file, self.columns).writerow(row)


class Trainer:
    """One run in one folder: checkpoint.pt, log.csv and validation.csv lie there.

    How far the run is counts in minutes spent, not in steps: the learning rate and the loss follow the share of the
    budget that is used up, so a run lands properly on any machine. Minutes spent before a resume count.
    """

    def __init__(self, settings: TrainingSettings, resume: bool) -> None:
        """resume: go on from the folder's checkpoint, whose network counts and not that of the settings."""
        self.settings = settings
        self.folder = settings.out
        self.folder.mkdir(parents=True, exist_ok=True)
        self.device = choose_device(settings.device)
        torch.manual_seed(settings.seed)
        self.minutes = 0.0
        saved = torch.load(self.folder / "checkpoint.pt", map_location="cpu") if resume else None
        self.sampler = Sampler(settings.data, settings.batch, settings.frames, settings.seed)
        self.network = self._first_network(saved).to(self.device, memory_format=torch.channels_last)
        self.passes = torch.compile(self.network) if settings.compiled else self.network
        self.average = AveragedModel(self.network, avg_fn=self._averaged, use_buffers=True).eval()
        self.optimizers = make_optimizers(self.network, settings.rate, settings.decay)
        self.taken = self.sampler.state()
        if saved:
            self._restore(saved)
        self.stopping: list[int] = []  # signals that asked for the end
        for number in (signal.SIGTERM, signal.SIGINT):
            signal.signal(number, lambda number, _: self.stopping.append(number))
        self.schedules = [self._schedule(optimizer) for optimizer in self.optimizers]
        self.log = Record(self.folder / "log.csv", LOG_COLUMNS, self.step)
        self.validation_log = Record(self.folder / "validation.csv", VALIDATION_COLUMNS, self.step)

    def _first_network(self, saved: dict[str, Any] | None) -> MaskNetwork:
        """The network of a checkpoint to go on from or of a model to begin with, or a new one."""
        if saved:
            return MaskNetwork(NetworkSettings.of(saved["network"]))
        if not self.settings.start:
            return MaskNetwork(self.settings.network)
        sampler = Sampler(self.settings.data, 1, self.settings.frames, self.settings.seed)
        crops = (unpack(sampler.next(), torch.device("cpu"))["seen"] for _ in range(CALIBRATION_CROPS))
        return load_start(self.settings.start, crops)

    @property
    def step(self) -> int:
        """Steps taken so far."""
        return self.taken["step"]

    @property
    def progress(self) -> float:
        """The share of the run that is done, 0 to 1."""
        done = self.minutes / self.settings.minutes
        if self.settings.steps:
            done = max(done, self.step / self.settings.steps)
        return min(1.0, self.settings.begin + (1 - self.settings.begin) * done)

    def _restore(self, saved: dict[str, Any]) -> None:
        self.network.load_state_dict(saved["weights"])
        self.average.module.load_state_dict(saved["average"])
        self.average.n_averaged.fill_(saved["sampler"]["step"])
        for optimizer, state in zip(self.optimizers, saved["optimizers"]):
            optimizer.load_state_dict(state)
        self.sampler.load(saved["sampler"])
        self.taken = saved["sampler"]
        self.minutes = saved["minutes"]

    def description(self) -> str:
        """A sentence on the run so far, for the exported model."""
        start = f" from {self.settings.start.name} on" if self.settings.start else ""
        return f"Six-stem mask network, trained{start} for {self.minutes:.0f} minutes, {self.step} steps."

    def save(self) -> None:
        """Writes the checkpoint; a crash or a full disk leaves the former one."""
        partial = self.folder / f"checkpoint.{os.getpid()}.part"
        state = {"network": asdict(self.network.settings), "weights": self.network.state_dict(),
                 "average": self.average.module.state_dict(),
                 "optimizers": [optimizer.state_dict() for optimizer in self.optimizers],
                 "sampler": self.taken, "minutes": self.minutes, "description": self.description()}
        packed = io.BytesIO()  # PyTorch itself would end the program on a full disk
        torch.save(state, packed)
        try:
            partial.write_bytes(packed.getbuffer())
            partial.replace(self.folder / "checkpoint.pt")
        except OSError as failure:
            partial.unlink(missing_ok=True)
            raise OSError(f"The checkpoint cannot be written: {failure}. A former one is whole.") from failure

    def run(self) -> None:
        """Trains until the budget is spent or a signal asks to stop; the checkpoint is written either way."""
        saved = validated = self.minutes
        sums: dict[str, float] = {}
        summed = 0
        with ThreadPoolExecutor(1) as reader:
            future = reader.submit(self._draw)
            while self.progress < 1 and not self.stopping:
                self.sampler.late = self.progress >= ORDINARY_FROM
                began = time.monotonic()
                batch, state = future.result()
                future = reader.submit(self._draw)
                terms = self._train(batch)
                self.taken = state
                sums = {name: sums.get(name, 0.0) + value for name, value in terms.items()}
                summed += 1
                self.minutes += min((time.monotonic() - began) / 60, LONGEST_STEP)
                for schedule in self.schedules:
                    schedule.step()
                if self.step % LOG_STEPS == 0:
                    self._write_log(sums, summed)
                    sums, summed = {}, 0
                if self.minutes - saved >= CHECKPOINT_MINUTES:
                    self.save()
                    saved = self.minutes
                if self.minutes - validated >= VALIDATION_MINUTES:
                    self.validate()
                    validated = self.minutes
        self.save()
        self.validate()

    def _draw(self) -> tuple[Batch, dict[str, Any]]:
        """The next batch and the sampler's state after it. Drawn ahead of its use, so the state travels along."""
        return self.sampler.next(), self.sampler.state()

    def _train(self, batch: Batch) -> dict[str, float]:
        """One step; returns the terms of its loss."""
        data = unpack(batch, self.device)
        self.network.train()
        with torch.autocast(self.device.type, torch.bfloat16, enabled=self.settings.precision == "bf16"):
            logits = self.passes(data["seen"])
        values = losses.MaskLoss.apply(logits.float(), data, losses.weights_at(self.progress))
        self.network.zero_grad(set_to_none=True)
        values[0].backward()
        torch.nn.utils.clip_grad_norm_(self.network.parameters(), CLIP_NORM)
        for optimizer in self.optimizers:
            optimizer.step()
        self.average.update_parameters(self.network)
        terms = dict(zip(("loss", "entropy", "amplitude", "decibel"), values.tolist()))
        if not math.isfinite(terms["loss"]):
            raise FloatingPointError(f"The loss of step {self.step} is not a number; the last checkpoint is whole.")
        return terms

    def _schedule(self, optimizer: torch.optim.Optimizer) -> LambdaLR:
        """The rate by the run's progress, whatever rate a checkpoint may have left in the optimizer."""
        for group in optimizer.param_groups:
            group["initial_lr"] = self.settings.rate
        return LambdaLR(optimizer, lambda _: rate_share(self.progress))

    def _averaged(self, mean: torch.Tensor, value: torch.Tensor, count: torch.Tensor) -> torch.Tensor:
        """The exported weights are a moving average, short at first so that it leaves the beginning behind."""
        if not value.is_floating_point():
            return value
        keep = min(self.settings.average, (1 + int(count)) / (10 + int(count)))
        return mean.lerp(value, 1 - keep)

    def _write_log(self, sums: dict[str, float], count: int) -> None:
        row = {name: f"{value / count:.5f}" for name, value in sums.items()}
        row |= {"minutes": f"{self.minutes:.3f}", "step": str(self.step), "epoch": str(self.taken["epoch"]),
                "rate": f"{self.optimizers[0].param_groups[0]['lr']:.6f}"}
        self.log.add(row)

    @torch.no_grad()
    def validate(self) -> None:
        """SDR per stem of the averaged weights over the chunks kept aside, all of them as one piece."""
        error, energy = torch.zeros(len(STEMS)), torch.zeros(len(STEMS))
        for batch in self.sampler.validation():
            data = unpack(batch, self.device)
            masks = torch.softmax(self.average(data["seen"]), dim=1)
            ratio = dequantise(data["codes"].float())
            wrong = losses.squared_errors(masks, data["power"], ratio, data["rest"])
            error += wrong.cpu().sum(0)
            energy += data["energy"].cpu().sum(0)
        values = losses.separation_ratio(error, energy).tolist()
        row = {stem: f"{value:.3f}" for stem, value in zip(STEMS, values)}
        row |= {"minutes": f"{self.minutes:.3f}", "step": str(self.step), "mean": f"{sum(values) / len(values):.3f}"}
        self.validation_log.add(row)
        print("  ".join(f"{name} {row[name]}" for name in VALIDATION_COLUMNS), flush=True)
