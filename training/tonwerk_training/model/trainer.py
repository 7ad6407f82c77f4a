# SPDX-License-Identifier: MIT
"""The training run: schedule, checkpoints, records."""

import csv
import io
import math
import os
import signal
import time
from concurrent.futures import ThreadPoolExecutor
from copy import deepcopy
from pathlib import Path

import torch

from ..data.chunkstore import STEMS, dequantise
from . import losses
from .network import MaskNetwork
from .optimizer import Muon
from .sampling import Sampler, unpack

WARM_UP = 0.01  # of the run
ORDINARY_FROM = 0.55  # of the run: ordinary mixes, such as the network is for, come last
LAST_RATE = 0.01  # of the full learning rate, at the end
CLIP_NORM = 5.0
LOG_STEPS = 50
CHECKPOINT_MINUTES = 3
VALIDATION_MINUTES = 5
LOG_COLUMNS = ("minutes", "step", "loss", "entropy", "amplitude", "decibel", "rate", "epoch")
VALIDATION_COLUMNS = ("minutes", "step", *STEMS, "mean")


def choose_device(name):
    """The device of this name; "auto" is the first GPU or else the processor."""
    if name == "auto":
        name = "cuda" if torch.cuda.is_available() else "cpu"
    return torch.device(name)


def learning_rate(full, progress):
    """A short linear warm-up, then a cosine down to LAST_RATE of the full rate."""
    if progress < WARM_UP:
        return full * (0.05 + 0.95 * progress / WARM_UP)
    angle = math.pi * min(1.0, (progress - WARM_UP) / (1 - WARM_UP))
    return full * (LAST_RATE + (1 - LAST_RATE) * 0.5 * (1 + math.cos(angle)))


def make_optimizers(network, rate, decay):
    """Muon for kernels and dense layers; AdamW for the head and for what is no matrix."""
    matrices = [value for name, value in network.named_parameters() if value.dim() in (2, 4) and "head" not in name]
    chosen = {id(value) for value in matrices}
    others = [value for value in network.parameters() if id(value) not in chosen]
    return [Muon(matrices, rate, decay), torch.optim.AdamW(others, lr=rate, weight_decay=0.0)]


class Record:
    """A table on disk that grows by rows. A resumed run drops the rows that came after its checkpoint."""

    def __init__(self, path, columns, step):
        rows = []
        if step and path.exists():
            with open(path, newline="") as file:
                rows = [row for row in csv.DictReader(file) if int(row["step"]) <= step]
        self.path, self.columns = path, columns
        with open(path, "w", newline="") as file:
            writer = csv.DictWriter(file, columns)
            writer.writeheader()
            writer.writerows(rows)

    def add(self, row):
        with open(self.path, "a", newline="") as file:
            csv.DictWriter(file, self.columns).writerow(row)


class Trainer:
    """One run in one folder: checkpoint.pt, log.csv and validation.csv lie there.

    How far the run is counts in minutes spent, not in steps: the learning rate and the loss follow the share of the
    budget that is used up, so a run lands properly on any machine. Minutes spent before a resume count.
    """

    def __init__(self, options, resume):
        """options: data, out, minutes, steps (0: no limit), batch, frames, rate, decay, average, seed, device and
        network (settings of MaskNetwork). resume: go on from the folder's checkpoint."""
        self.options = options
        self.folder = Path(options["out"])
        self.folder.mkdir(parents=True, exist_ok=True)
        self.device = choose_device(options["device"])
        torch.manual_seed(options["seed"])
        self.minutes = 0.0
        saved = torch.load(self.folder / "checkpoint.pt", map_location="cpu") if resume else None
        if saved:
            options["network"] = saved["network"]
        self.network = MaskNetwork(**options["network"]).to(self.device)
        self.average = deepcopy(self.network).eval()
        self.optimizers = make_optimizers(self.network, options["rate"], options["decay"])
        self.sampler = Sampler(options["data"], options["batch"], options["frames"], options["seed"])
        self.taken = self.sampler.state()
        if saved:
            self._restore(saved)
        self.log = Record(self.folder / "log.csv", LOG_COLUMNS, self.step)
        self.validation_log = Record(self.folder / "validation.csv", VALIDATION_COLUMNS, self.step)

    @property
    def step(self):
        """Steps taken so far."""
        return self.taken["step"]

    @property
    def progress(self):
        """The share of the run that is done, 0 to 1."""
        done = self.minutes / self.options["minutes"]
        if self.options["steps"]:
            done = max(done, self.step / self.options["steps"])
        return min(1.0, done)

    def _restore(self, saved):
        self.network.load_state_dict(saved["weights"])
        self.average.load_state_dict(saved["average"])
        for optimizer, state in zip(self.optimizers, saved["optimizers"]):
            optimizer.load_state_dict(state)
        self.sampler.load(saved["sampler"])
        self.taken = saved["sampler"]
        self.minutes = saved["minutes"]

    def save(self):
        """Writes the checkpoint; a crash or a full disk leaves the former one."""
        partial = self.folder / f"checkpoint.{os.getpid()}.part"
        state = {"network": self.network.settings, "weights": self.network.state_dict(),
                 "average": self.average.state_dict(),
                 "optimizers": [optimizer.state_dict() for optimizer in self.optimizers],
                 "sampler": self.taken, "minutes": self.minutes}
        packed = io.BytesIO()  # PyTorch itself would end the program on a full disk
        torch.save(state, packed)
        try:
            partial.write_bytes(packed.getbuffer())
            partial.replace(self.folder / "checkpoint.pt")
        except OSError as failure:
            partial.unlink(missing_ok=True)
            raise OSError(f"The checkpoint cannot be written: {failure}. A former one is whole.") from failure

    def run(self):
        """Trains until the budget is spent or a signal asks to stop; the checkpoint is written either way."""
        stopping = []
        for number in (signal.SIGTERM, signal.SIGINT):
            signal.signal(number, lambda *_: stopping.append(True))
        saved = validated = self.minutes
        sums, summed = {}, 0
        with ThreadPoolExecutor(1) as reader:
            future = reader.submit(self._draw)
            while self.progress < 1 and not stopping:
                self.sampler.late = self.progress >= ORDINARY_FROM
                began = time.monotonic()
                batch, state = future.result()
                future = reader.submit(self._draw)
                terms = self._train(batch)
                self.taken = state
                sums = {name: sums.get(name, 0.0) + value for name, value in terms.items()}
                summed += 1
                self.minutes += (time.monotonic() - began) / 60
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

    def _draw(self):
        """The next batch and the sampler's state after it. Drawn ahead of its use, so the state travels along."""
        return self.sampler.next(), self.sampler.state()

    def _train(self, batch):
        """One step; returns the terms of its loss."""
        rate = learning_rate(self.options["rate"], self.progress)
        for optimizer in self.optimizers:
            for group in optimizer.param_groups:
                group["lr"] = rate
        data = unpack(batch, self.device)
        self.network.train()
        logits = self.network(data["seen"])
        values = losses.MaskLoss.apply(logits, data, losses.weights_at(self.progress))
        self.network.zero_grad(set_to_none=True)
        values[0].backward()
        torch.nn.utils.clip_grad_norm_(self.network.parameters(), CLIP_NORM)
        for optimizer in self.optimizers:
            optimizer.step()
        self._update_average()
        terms = dict(zip(("loss", "entropy", "amplitude", "decibel"), values.tolist()))
        if not math.isfinite(terms["loss"]):
            raise FloatingPointError(f"The loss of step {self.step} is not a number; the last checkpoint is whole.")
        return terms

    @torch.no_grad()
    def _update_average(self):
        """The exported weights are a moving average, short at first so that it leaves the beginning behind."""
        keep = min(self.options["average"], (1 + self.step) / (10 + self.step))
        for mean, value in zip(self.average.state_dict().values(), self.network.state_dict().values()):
            if value.is_floating_point():
                mean.lerp_(value, 1 - keep)
            else:
                mean.copy_(value)

    def _write_log(self, sums, count):
        row = {name: f"{value / count:.5f}" for name, value in sums.items()}
        row |= {"minutes": f"{self.minutes:.3f}", "step": self.step, "epoch": self.taken["epoch"],
                "rate": f"{self.optimizers[0].param_groups[0]['lr']:.6f}"}
        self.log.add(row)

    @torch.no_grad()
    def validate(self):
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
        row |= {"minutes": f"{self.minutes:.3f}", "step": self.step, "mean": f"{sum(values) / len(values):.3f}"}
        self.validation_log.add(row)
        print("  ".join(f"{name} {row[name]}" for name in VALIDATION_COLUMNS), flush=True)
