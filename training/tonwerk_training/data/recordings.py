# SPDX-License-Identifier: MIT
"""Real multitracks to measure with: a folder per track, whose audio files are the parts of one mix.

Records are not split into the library's six stems: a track has "horns" and "keys", or one "other" for all that is
neither sung nor beaten. So parts and stems are compared in groups that both sides have.
"""

import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

from .stft import SAMPLE_RATE

ENDINGS = (".wav", ".flac", ".mp3", ".ogg", ".m4a")
MIXTURE = "mixture"
OTHER = "other"  # a file of this name holds everything that has no file of its own

# The stems of the library (and the residual) that make up each group.
GROUPS: dict[str, tuple[str, ...]] = {
    "vocals": ("vocals",),
    "drum": ("drum",),
    "bass": ("bass",),
    "guitars": ("acoustic_guitar", "electric_guitar"),
    "keys and rest": ("piano", "residual"),
}
REST = "keys and rest"
# What a file's name contains, and its group; the first that fits counts, so a bass guitar is a bass.
KEYWORDS = (("vocal", "vocals"), ("voice", "vocals"), ("drum", "drum"), ("percussion", "drum"), ("bass", "bass"),
            ("guitar", "guitars"))


@dataclass
class Multitrack:
    """A track: mixture float32 [2, samples], parts of it by group; stems tells which stems are compared with which
    group's part. absent: the groups that do not sound in the track at all. The parts of a mastered mixture do not add
    up to it exactly."""

    name: str
    mixture: NDArray[np.float32]
    parts: dict[str, NDArray[np.float32]]
    stems: dict[str, tuple[str, ...]]
    absent: tuple[str, ...]


def group_of(name: str) -> str:
    """The group of a file by its name without the ending."""
    return next((group for word, group in KEYWORDS if word in name.lower()), REST)


def decode(path: Path, *options: str) -> NDArray[np.float32]:
    """float32 [2, samples] at 44.1 kHz of any audio file. options: more of ffmpeg's, such as a stream to take."""
    command = ["ffmpeg", "-v", "error", "-i", str(path), *options, "-ac", "2", "-ar", str(SAMPLE_RATE), "-f", "f32le",
               "pipe:1"]
    run = subprocess.run(command, capture_output=True, check=False)
    if run.returncode != 0:
        raise ValueError(f"{path} cannot be read: {run.stderr.decode(errors='replace').strip()}")
    return np.ascontiguousarray(np.frombuffer(run.stdout, np.float32).reshape(-1, 2).T)


def read_multitrack(folder: Path) -> Multitrack:
    """A track from its folder. Parts of unequal length are filled up with silence. The mixture is the file of that
    name, or else what the parts add up to."""
    decoded = {path.stem.lower(): decode(path) for path in audio_files(folder)}
    samples = max(audio.shape[1] for audio in decoded.values())
    filled = {name: np.pad(audio, ((0, 0), (0, samples - audio.shape[1]))) for name, audio in decoded.items()}
    mixture = filled.pop(MIXTURE, None)
    parts: dict[str, NDArray[np.float32]] = {}
    for name, audio in filled.items():
        group = group_of(name)
        parts[group] = parts[group] + audio if group in parts else audio
    if mixture is None:
        mixture = np.sum(list(parts.values()), axis=0, dtype=np.float32)
    stems, absent = dict(GROUPS), tuple(group for group in GROUPS if group not in parts)
    if OTHER in filled:
        stems[REST] = sum((GROUPS[group] for group in absent), GROUPS[REST])
        absent = ()
    return Multitrack(folder.name, mixture, parts, {group: stems[group] for group in parts}, absent)


def audio_files(folder: Path) -> list[Path]:
    """The audio files of a folder, sorted by name."""
    return sorted(path for path in Path(folder).iterdir() if path.suffix.lower() in ENDINGS)


def multitracks_in(folder: Path) -> list[Path]:
    """The folder itself if it holds at least two audio files, or else those of its folders that do."""
    if not Path(folder).is_dir():
        raise ValueError(f"{folder} is no folder.")
    candidates = [Path(folder), *sorted(path for path in Path(folder).iterdir() if path.is_dir())]
    found = [path for path in candidates if len(audio_files(path)) >= 2]
    if not found:
        raise ValueError(f"{folder} holds no multitrack: a folder with at least two audio files.")
    return found
