# SPDX-License-Identifier: MIT
"""Evaluation of a model as its users meet it: whole songs through tonwerk-separate, the library and the runtime."""

import re
import subprocess
import tempfile
from pathlib import Path

import numpy as np

from ..data.audio import read_wav
from ..data.chunkstore import SOURCES, STEMS
from . import oracles
from .metrics import StemScore, decibels, energy


class SeparationFailed(RuntimeError):
    """tonwerk-separate refused; its own sentence is the message."""


def separate(separator, model, song):
    """Separates one WAV file. Returns ({stem: float32 [2, samples]} with residual and mix, real-time factor)."""
    with tempfile.TemporaryDirectory() as folder:
        run = subprocess.run([*separator, str(song), "-o", folder, "--model", str(model)],
                             capture_output=True, text=True, errors="replace")
        if run.returncode != 0:
            raise SeparationFailed(run.stderr.strip() or run.stdout.strip())
        stems = {path.stem: read_wav(path) for path in (Path(folder) / Path(song).stem).glob("*.wav")}
        factor = re.search(r"real-time factor ([0-9.]+)", run.stdout)
        return stems, float(factor[1])


def read_song(folder):
    """A song with known stems: (mixture [2, n], sources [7, 2, n] in the order of SOURCES); silent ones may lack."""
    mixture = read_wav(folder / "mixture.wav")
    sources = np.zeros((len(SOURCES), *mixture.shape), np.float32)
    for index, name in enumerate(SOURCES):
        if (folder / f"{name}.wav").exists():
            sources[index] = read_wav(folder / f"{name}.wav")
    if np.abs(sources.sum(axis=0) - mixture).max() > 1e-3:
        raise ValueError(f"The stems of {folder} do not add up to its mixture.")
    return mixture, sources


def songs_in(folder):
    """The folders of songs with known stems, sorted."""
    found = sorted(path.parent for path in Path(folder).glob("*/mixture.wav"))
    if not found:
        raise ValueError(f"{folder} holds no songs (SONG/mixture.wav and SONG/vocals.wav and so on).")
    return found


def evaluate_songs(folder, separator, model, progress=lambda song, factor: None):
    """Scores of the model and of the references over all songs of a folder.

    Returns {"model": {stem: figures}, "mixture": ..., "ratio mask": ..., "best mask": ..., and
    "real_time_factor": the median over the songs}. An all-zero estimate needs no run: its SDR is 0 dB.
    """
    scores = {kind: {stem: StemScore() for stem in STEMS} for kind in ("model", "mixture", "ratio mask", "best mask")}
    factors = []
    for path in songs_in(folder):
        mixture, sources = read_song(path)
        separated, factor = separate(separator, model, path / "mixture.wav")
        factors.append(factor)
        estimates = {"model": [separated[stem] for stem in STEMS],
                     "mixture": [mixture] * len(STEMS),
                     "ratio mask": oracles.ratio_mask_estimates(sources),
                     "best mask": oracles.best_mask_estimates(sources)}
        for kind, guesses in estimates.items():
            for index, stem in enumerate(STEMS):
                scores[kind][stem].add(sources[index], guesses[index])
        progress(path.name, factor)
    result = {kind: {stem: score.summary() for stem, score in by_stem.items()} for kind, by_stem in scores.items()}
    result["real_time_factor"] = float(np.median(factors))
    return result


def evaluate_recording(song, separator, model):
    """What can be said of a recording without its stems: each stem's energy as a share of the mixture's in dB, and
    the loudest second of each stem against the mixture's in dB. Returns (figures, stems)."""
    mixture = read_wav(song)
    separated, factor = separate(separator, model, song)
    loudest = _loudest_second(mixture)
    figures = {stem: {"share": float(decibels(energy(separated[stem]), energy(mixture))),
                      "loudest": float(decibels(_loudest_second(separated[stem]), loudest))}
               for stem in (*STEMS, "residual")}
    figures["real_time_factor"] = factor
    return figures, separated


def _loudest_second(audio):
    length = 44100
    starts = range(0, max(1, audio.shape[1] - length + 1), length)
    return max(energy(audio[:, start:start + length]) for start in starts)
