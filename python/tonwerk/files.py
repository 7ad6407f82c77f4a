# SPDX-License-Identifier: MIT
"""Separation of files, in bounded memory."""

import os
from collections.abc import Callable, Iterable
from pathlib import Path
from typing import BinaryIO

import numpy as np
import soundfile
from numpy.typing import NDArray

from tonwerk import errors
from tonwerk._song import SongStream
from tonwerk.models import Model, as_model
from tonwerk.streams import Samples

FORMATS = {"float32": ("wav", "FLOAT", 0), "pcm24": ("wav", "PCM_24", 24), "pcm16": ("wav", "PCM_16", 16),
           "flac24": ("flac", "PCM_24", 24), "flac16": ("flac", "PCM_16", 16)}
"""What stems may be written as: (ending, libsndfile's subtype, bits of a fixed-point sample or 0)."""

# A file of the ordinary WAV format cannot exceed 4 GB; the wider one is read by fewer programs.
_LARGEST_WAV = (1 << 32) - (1 << 16)

_BLOCK = 1 << 16

_ESTIMATE = 0.1

Progress = Callable[[float], None]


class SongFile:
    """An audio file that is read in blocks: whatever libsndfile reads, mono or stereo."""

    def __init__(self, source: str | os.PathLike[str] | BinaryIO, name: str | None = None) -> None:
        """Opens the file. name: for sentences, if the source is no path. Raises AudioError, OSError."""
        self.name = name or str(source)
        if isinstance(source, str | os.PathLike):
            with open(source, "rb"):
                pass  # what the system has against it is an OSError with the system's words
        try:
            self._file = soundfile.SoundFile(source)
        except soundfile.LibsndfileError as failure:
            raise errors.AudioError(f"{self.name} is no audio that can be read: {failure.error_string}") from failure
        self.channels: int = self._file.channels
        self.sample_rate: int = self._file.samplerate
        self.frames: int = self._file.frames
        self.tags: dict[str, str] = self._file.copy_metadata()
        if self.channels > 2:
            self.close()
            raise errors.AudioError(f"{self.name} has {self.channels} channels: a song must be mono or stereo.")

    def read(self, frames: int) -> Samples:
        """The next frames, float32 of shape (n, channels); fewer at the end only. Raises AudioError for damage."""
        try:
            block: Samples = self._file.read(frames, dtype="float32", always_2d=True)
        except soundfile.LibsndfileError as failure:
            raise errors.AudioError(f"{self.name} is damaged: {failure.error_string}") from failure
        return block

    def check_complete(self, frames: int) -> None:
        """Raises AudioError if fewer frames were read than the file says it has; an MP3 may lack a tenth, as libsndfile
        estimates its length where the encoder has not noted it."""
        least = self.frames * (1 - _ESTIMATE) if self._file.format == "MP3" else self.frames
        if frames < least:
            raise errors.AudioError(f"{self.name} is cut off: it has {frames} of {self.frames} frames.")

    def close(self) -> None:
        """Closes the file."""
        self._file.close()


class StemFile:
    """A stem on its way into a file: under a temporary name until it is complete.

    Fixed-point files wait as float samples until their common gain is known, 8 bytes for each stereo frame.
    """

    def __init__(self, path: Path, sample_rate: int, channels: int, frames: int, format_name: str) -> None:
        self.path = path
        self._partial = path.with_name(path.name + ".part")
        self._scratch = path.with_name(path.name + ".samples.part")
        self._rate, self._channels = sample_rate, channels
        ending, self._subtype, self._bits = FORMATS[format_name]
        large = ending == "wav" and frames * channels * (self._bits or 32) // 8 > _LARGEST_WAV
        self._container = "FLAC" if ending == "flac" else "RF64" if large else "WAV"
        self.peak = 0.0
        self._file = self._open_scratch() if self._bits else self._open(self._partial)

    def _open(self, path: Path) -> soundfile.SoundFile:
        return soundfile.SoundFile(path, "w", self._rate, self._channels, self._subtype, format=self._container)

    def _open_scratch(self) -> soundfile.SoundFile:
        return soundfile.SoundFile(self._scratch, "w", self._rate, self._channels, "FLOAT", "LITTLE", "RAW")

    def write(self, block: Samples) -> None:
        """Appends frames, float32 of shape (n, channels)."""
        if len(block):
            self.peak = max(self.peak, float(np.abs(block).max()))
            self._file.write(block)

    def finish(self, gain: float, tags: dict[str, str]) -> None:
        """Completes the file under its temporary name. gain: of a fixed-point file, the same for all of a song's."""
        self._file.close()
        if not self._bits:
            return
        with (soundfile.SoundFile(self._scratch, "r", self._rate, self._channels, "FLOAT", "LITTLE", "RAW") as samples,
              self._open(self._partial) as target):
            for tag, text in tags.items():
                setattr(target, tag, text)
            dither = np.random.Generator(np.random.PCG64(1)) if self._bits == 16 else None
            for block in samples.blocks(_BLOCK, dtype="float64", always_2d=True):
                target.write(self._fixed(block * gain, dither))
        self._scratch.unlink()

    def _fixed(self, block: NDArray[np.float64], dither: np.random.Generator | None) -> NDArray[np.int32]:
        """Fixed-point samples in the upper bits of 32; 16 bits with TPDF dither, which leaves digital silence alone."""
        scale = 2.0 ** (self._bits - 1)
        scaled = block * scale
        if dither is not None:
            scaled = scaled + (scaled != 0) * (dither.random(block.shape) - dither.random(block.shape))
        clipped = np.clip(np.rint(scaled), -scale, scale - 1).astype(np.int32)
        shifted: NDArray[np.int32] = np.left_shift(clipped, 32 - self._bits)
        return shifted

    def commit(self) -> None:
        """Gives the file its name; on this file system that cannot be seen half done."""
        os.replace(self._partial, self.path)

    def discard(self) -> None:
        """Removes what is unfinished."""
        self._file.close()
        for path in (self._partial, self._scratch):
            path.unlink(missing_ok=True)


def common_gain(peaks: Iterable[float], format_name: str) -> float:
    """The factor by which all fixed-point files of a song are lowered so that none clips; 1 where none would."""
    bits = FORMATS[format_name][2]
    # 16 bits: the dither adds up to one step.
    most = 1.0 - 2.0 ** (1 - bits) * (2 if bits == 16 else 1)
    peak = max(peaks, default=0.0)
    return most / peak if bits and peak > most else 1.0


def separate_file(path: str | os.PathLike[str], out: str | os.PathLike[str],
                  model: Model | str | os.PathLike[str] | bytes | None = None, quality: str = "normal",
                  stems: Iterable[str] | None = None, *, format: str = "float32",
                  progress: Progress | None = None) -> dict[str, Path]:
    """Separates an audio file into one file per stem, in memory that does not grow with the song.

    path: what libsndfile reads (WAV, FLAC, OGG, MP3, AIFF ...), mono or stereo, of any sample rate.
    out: the folder for the stems' files, made if it is not there. They are named after the stems.
    model, quality, stems: as for `tonwerk.separate`.
    format: one of FORMATS. If one fixed-point file would clip, all are lowered by one gain. FLAC keeps the song's tags.
    progress: is called with the share that is done, up to 1.

    Returns the files by the stems' names. All appear when the song is complete; after a failure there is none.

    Raises AudioError, OSError, and what `tonwerk.separate` raises.
    """
    if format not in FORMATS:
        raise ValueError(f"There is no format {format!r}; there are {', '.join(FORMATS)}.")
    song = SongFile(path)
    try:
        stream = SongStream(as_model(model), quality, stems, song.sample_rate, song.channels)
    except BaseException:
        song.close()
        raise
    targets: dict[str, StemFile] = {}
    try:
        folder = Path(out)
        folder.mkdir(parents=True, exist_ok=True)
        for stem in stream.stems:
            targets[stem] = StemFile(folder / f"{stem}.{FORMATS[format][0]}", song.sample_rate, song.channels,
                                     song.frames, format)
        _write_stems(song, stream, targets, progress or (lambda share: None))
        gain = common_gain((target.peak for target in targets.values()), format)
        for target in targets.values():
            target.finish(gain, song.tags)
        for target in targets.values():
            target.commit()
    except BaseException:
        for target in targets.values():
            target.discard()
        raise
    finally:
        stream.close()
        song.close()
    return {stem: target.path for stem, target in targets.items()}


def _write_stems(song: SongFile, stream: SongStream, targets: dict[str, StemFile], progress: Progress) -> None:
    read = written = 0

    def take(stems: dict[str, Samples]) -> None:
        nonlocal written
        for stem, target in targets.items():
            target.write(stems[stem])
        written += len(next(iter(stems.values())))

    while len(block := song.read(stream.frames_until_result)):
        read += len(block)
        take(stream.feed(block))
        progress(min(read / max(song.frames, 1), 1.0))
    song.check_complete(read)
    take(stream.finish())
    if written != read:
        raise errors.StreamFailedError(f"{written} frames came back for the {read} of {song.name}.")
    progress(1.0)
