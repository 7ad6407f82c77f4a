# SPDX-License-Identifier: MIT
"""Evaluation of a model as its users meet it: whole songs through tonwerk-separate, the library and the runtime."""

import json
import subprocess
import tempfile
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from ..data.audio import read_wav
from ..data.chunkstore import SOURCES, STEMS
from . import oracles
from .metrics import StemScore, decibels, energy


class SeparationError(RuntimeError):
    """tonwerk-separate refused; its own sentence is the message."""


@dataclass(frozen=True)
class SongsResult:
    """Scores over all songs of a folder: by kind of estimate ("model", "mixture", "ratio mask", "best mask") and stem
    the figures of StemScore.summary(), and the median of the songs' real-time factors."""

    scores: dict[str, dict[str, dict[str, float]]]
    real_time_factor: float


def separate(separator: list[str], model: Path, song: Path) -> tuple[dict[str, np.ndarray], float]:
    """Separates one WAV file. Returns ({stem: float32 [2, samples]} with residual and mix, real-time factor)."""
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run([*separator, str(song), "-o", folder, "--model", str(model)],
                             capture_output=True, text=True, errors="replace", check=False)
        if run.returncode != 0:
            raise SeparationError(run.stderr.strip() or run.stdout.strip())
        out = Path(folder) / song.stem
        receipt = json.loads((out / "receipt.json").read_text())
        stems = {name: read_wav(out / track["file"]) for name, track in receipt["tracks"].items()}
        return stems, float(receipt["real_time_factor"])


def read_song(folder: Path) -> tuple[np.ndarray, np.ndarray]:
    """A song with known stems: (mixture [2, n], sources [7, 2, n] in the order of SOURCES); silent ones may lack."""
    mixture = read_wav(folder / "mixture.wav")
    sources = np.zeros((len(SOURCES), *mixture.shape), np.float32)
    for index, name in enumerate(SOURCES):
        if (folder / f"{name}.wav").exists():
            sources[index] = read_wav(folder / f"{name}.wav")
    if np.abs(sources.sum(axis=0) - mixture).max() > 1e-3:
        raise ValueError(f"The stems of {folder} do not add up to its mixture.")
    return mixture, sources


def songs_in(folder: Path) -> list[Path]:
    """The folders of songs with known stems, sorted."""
    found = sorted(path.parent for path in folder.glob("*/mixture.wav"))
    if not found:
        raise ValueError(f"{folder} holds no songs (SONG/mixture.wav and SONG/vocals.wav and so on).")
    return found


def evaluate_songs(folder: Path, separator: list[str], model: Path,
                   progress: Callable[[str, float], None] = lambda song, factor: None) -> SongsResult:
    """Scores of the model and of the references over all songs of a folder.

    An all-zero estimate needs no run: its SDR is 0 dB.
    """
    scores = {kind: {stem: StemScore() for stem in STEMS} for kind in ("model", "mixture", "ratio mask", "best mask")}
    factors = []
    for path in songs_in(folder):
        mixture, sources = read_song(path)
        separated, factor = separate(separator, model, path / "mixture.wav")
        factors.append(factor)
        estimates: dict[str, Sequence[np.ndarray] | np.ndarray]
        estimates = {"model": [separated[stem] for stem in STEMS],
                     "mixture": [mixture] * len(STEMS),
                     "ratio mask": oracles.ratio_mask_estimates(sources),
                     "best mask": oracles.best_mask_estimates(sources)}
        for kind, guesses in estimates.items():
            for index, stem in enumerate(STEMS):
                scores[kind][stem].add(sources[index], guesses[index])
        progress(path.name, factor)
    return SongsResult({kind: {stem: score.summary() for stem, score in by_stem.items()}
                        for kind, by_stem in scores.items()}, float(np.median(factors)))


def evaluate_recording(song: Path, separator: list[str], model: Path) -> tuple[dict[str, Any], dict[str, np.ndarray]]:
    """What can be said of a recording without its stems: each stem's energy as a share of the mixture's in dB, and
    the loudest second of each stem against the mixture's in dB. Returns (figures, stems)."""
    mixture = read_wav(song)
    separated, factor = separate(separator, model, song)
    loudest = _loudest_second(mixture)
    figures: dict[str, Any] = {stem: {"share": decibels(energy(separated[stem]), energy(mixture)),
                                      "loudest": decibels(_loudest_second(separated[stem]), loudest)}
                               for stem in (*STEMS, "residual")}
    figures["real_time_factor"] = factor
    return figures, separated


def _loudest_second(audio: np.ndarray) -> float:
    """The largest energy of any second from the start on."""
    length = 44100
    starts = range(0, max(1, audio.shape[1] - length + 1), length)
    return max(energy(audio[:, start:start + length]) for start in starts)
