# SPDX-License-Identifier: MIT
"""Separation of whole songs, from arrays."""

import os
from collections.abc import Iterable
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from tonwerk import errors
from tonwerk._song import SongStream
from tonwerk.models import Model, as_model
from tonwerk.streams import Stems, Stream

Floats = NDArray[np.floating[Any]]

# Ctrl-C is looked at between the blocks.
_BLOCK = 1 << 18


def separate(audio: ArrayLike, sample_rate: int, model: Model | str | os.PathLike[str] | bytes | None = None,
             quality: str = "normal", stems: Iterable[str] | None = None) -> Stems:
    """Separates a song that lies in memory.

    audio: floating-point numbers, full scale at 1, of shape (frames, 2), (frames, 1) or (frames,), where mono is given
        to the model on both channels and comes back as their mean.
    sample_rate: of the audio, in Hz. Other rates than the model's are converted there and back (soxr, "VHQ").
    model: a Model, a file, the model's bytes; None: the default model.
    quality: one of `presets()`.
    stems: names of `STEMS`; None: those of the model and the residual.

    Returns float32 arrays of the shape of `audio` by the stems' names, sample-aligned with it. The six stems and the
    residual add up to `audio`; digital silence gives zeros.

    Raises ValueError, TypeError, StreamFailedError (the model failed), and what Model raises.
    """
    samples = np.asarray(audio)
    if not np.issubdtype(samples.dtype, np.floating):
        raise TypeError(f"Samples must be floating-point numbers, full scale at 1, and not {samples.dtype}.")
    if samples.ndim not in (1, 2) or (samples.ndim == 2 and samples.shape[1] not in (1, 2)):
        raise ValueError(f"The audio must be of shape (frames, 2), (frames, 1) or (frames,), and not {samples.shape}.")
    loaded = as_model(model)
    columns = samples[:, None] if samples.ndim == 1 else samples
    if columns.shape[1] == 2 and sample_rate == loaded.sample_rate:
        results = _separate_directly(columns, loaded, quality, stems)
    else:
        results = _separate_converting(columns, sample_rate, loaded, quality, stems)
    return {stem: result.reshape(samples.shape) for stem, result in results.items()}


def _separate_directly(samples: Floats, model: Model, quality: str, stems: Iterable[str] | None) -> Stems:
    """The library writes into the results itself."""
    with Stream(model, quality, stems) as stream:
        results = {stem: np.empty((len(samples), 2), np.float32) for stem in stream.stems}
        written = 0
        for start in range(0, len(samples), _BLOCK):
            stream.push(samples[start:start + _BLOCK])
            written += stream.read_into({stem: result[written:] for stem, result in results.items()})
        stream.flush()
        written += stream.read_into({stem: result[written:] for stem, result in results.items()})
        info = stream.info
    if info.failed_runs:
        raise errors.StreamFailedError(f"The model failed in {info.failed_runs} of its {info.runs} runs.")
    if written != len(samples):
        raise errors.StreamFailedError(f"The library returned {written} frames for the {len(samples)} it was given.")
    return results


def _separate_converting(samples: Floats, sample_rate: int, model: Model, quality: str,
                         stems: Iterable[str] | None) -> Stems:
    song = SongStream(model, quality, stems, sample_rate, samples.shape[1])
    try:
        blocks = [song.feed(samples[start:start + _BLOCK].astype(np.float32, copy=False))
                  for start in range(0, len(samples), _BLOCK)]
        blocks.append(song.finish())
    finally:
        song.close()
    return {stem: np.concatenate([block[stem] for block in blocks]) for stem in song.stems}


