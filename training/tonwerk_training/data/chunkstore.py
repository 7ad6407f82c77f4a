# SPDX-License-Identifier: MIT
"""Training chunks on disk: of a mixture only what the loss needs, and no audio.

A mask m that is real and constant over a band and a frame leaves the squared error

    sum |S - m X|^2  =  P (m - R)^2 + rest,    P = sum |X|^2,  R = sum Re(S conj X) / P,

over the band's bins, where X is the mixture and S the stem. So the mixture's band powers, the optimal masks R and
the rest, which no mask changes, are all that training needs: no transform, no complex numbers, a tenth of the size.

A data folder holds shards of n chunks, each of 256 frames:

    shard-00000.power.npy   float16 [n, 3, 256, 896]     log10(P + 1e-10) of left, right and their mean
    shard-00000.ratio.npy   uint8   [n, 6, 2, 256, 896]  R per stem and channel, see quantise()
    shard-00000.rest.npy    float32 [n, 6, 256]          the rest, summed over bands and both channels
    shard-00000.energy.npy  float32 [n, 6, 256]          sum |S|^2 likewise
    shard-00000.json        where the chunks come from; written last, so a shard without it is not finished
"""

import json
import os
import re
from collections.abc import Callable
from pathlib import Path
from typing import Any, TypeVar

import numpy as np
from stream_contract import BINS, SEGMENT_FRAMES, STEMS

from . import bands
from .stft import sample_count, stft

SOURCES = STEMS + ("other",)
FRAMES = SEGMENT_FRAMES
CHUNK_SAMPLES = sample_count(FRAMES)
POWER_FLOOR = 1e-10
RATIO_RANGE = (-0.5, 1.5)  # beyond it a stem and the rest of the mixture nearly cancel; no mask gets there anyway
ORDINARY = "ordinary"  # what the provenance calls a shard of ordinary mixes
FIELDS = ("power", "ratio", "rest", "energy")

Chunk = dict[str, np.ndarray]  # arrays by the names in FIELDS, of one chunk or of a shard
Codes = TypeVar("Codes", bound=Any)  # an array or a tensor


def quantise(ratio: np.ndarray | np.float32) -> np.ndarray:
    """Optimal masks in 8 bits: RATIO_RANGE in 255 equal steps."""
    low, high = RATIO_RANGE
    return np.rint((np.clip(ratio, low, high) - low) * (255 / (high - low))).astype(np.uint8)


def dequantise(codes: Codes) -> Codes:
    """The inverse of quantise(), float32. Works on arrays and on tensors that are float already."""
    low, high = RATIO_RANGE
    return codes * np.float32((high - low) / 255) + np.float32(low)


def log_powers(mixture: np.ndarray) -> np.ndarray:
    """Band powers of spectra [2, T, 2048]: float16 [3, T, 896], log10 of left, right and their mean."""
    channels = np.concatenate([mixture, mixture.mean(axis=0, keepdims=True)])
    power = bands.pool(channels.real ** 2 + channels.imag ** 2)
    return np.log10(power + POWER_FLOOR).astype(np.float16)


def summarise_chunk(stems: np.ndarray, taken: Callable[[np.ndarray], np.ndarray] | None = None) -> Chunk:
    """What training keeps of one chunk.

    stems: float32 [7, 2, CHUNK_SAMPLES], the sources in the order of SOURCES at their places in the mix, full scale 1.
    Their sum is the mixture. taken: tells what another network, which goes before this one, takes out of the mixture's
    spectra [2, 256, 2048]; masks are then drawn over what it leaves. Returns a dictionary of one chunk's arrays by the
    names in FIELDS.
    """
    if stems.shape != (len(SOURCES), 2, CHUNK_SAMPLES):
        raise ValueError(f"A chunk is {(len(SOURCES), 2, CHUNK_SAMPLES)} samples, not {stems.shape}.")
    # A silent stem costs no transform: more than half of them are in a sparse mix.
    spectra = [stft(stem) if stem.any() else None for stem in stems]
    mixture = sum((spectrum for spectrum in spectra if spectrum is not None),
                  np.zeros((2, FRAMES, BINS), np.complex64))
    if taken:
        mixture = mixture - taken(mixture)
    power = bands.pool(mixture.real ** 2 + mixture.imag ** 2)
    ratio = np.zeros((len(STEMS), 2, FRAMES, bands.BANDS), np.uint8) + quantise(np.float32(0))
    rest = np.zeros((len(STEMS), FRAMES), np.float32)
    energy = np.zeros((len(STEMS), FRAMES), np.float32)
    for index, spectrum in enumerate(spectra[:len(STEMS)]):
        if spectrum is None:
            continue
        ratio[index], rest[index], energy[index] = _summarise_stem(spectrum, mixture, power)
    return {"power": log_powers(mixture), "ratio": ratio, "rest": rest, "energy": energy}


def _summarise_stem(stem: np.ndarray, mixture: np.ndarray,
                    power: np.ndarray) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
    """Codes of R [2, T, 896], rest [T] and energy [T] of a stem's spectra [2, T, 2048]."""
    cross = bands.pool(stem.real * mixture.real + stem.imag * mixture.imag)
    own = bands.pool(stem.real ** 2 + stem.imag ** 2)
    exact = cross / np.maximum(power, np.float32(1e-20))
    codes = quantise(exact)
    # The clipped and rounded R is what training sees. The rest is such that the sum is exact at the best mask, so
    # that neither clipping nor rounding makes the best look better than it is.
    best = np.clip(exact, 0, 1)
    error = own - 2 * best * cross + best ** 2 * power
    rest = error - power * (best - dequantise(codes)) ** 2
    return codes, rest.sum(axis=(0, 2)), own.sum(axis=(0, 2))


def shard_path(folder: Path, index: int, field: str | None) -> Path:
    """Where a field (one of FIELDS) of a shard lies, or with field None its provenance."""
    return folder / (f"shard-{index:05d}.{field}.npy" if field else f"shard-{index:05d}.json")


def has_shard(folder: Path, index: int) -> bool:
    """Whether the shard has been written completely."""
    return shard_path(folder, index, None).exists()


def shard_indices(folder: Path) -> list[int]:
    """The finished shards of a folder, ascending."""
    names = (re.fullmatch(r"shard-(\d{5})\.json", path.name) for path in folder.glob("shard-*.json"))
    return sorted(int(name[1]) for name in names if name)


def is_ordinary(folder: Path, index: int) -> bool:
    """Whether a finished shard holds ordinary mixes."""
    return json.loads(shard_path(folder, index, None).read_text())["provenance"].get("mix") == ORDINARY


def write_shard(folder: Path, index: int, chunks: list[Chunk], provenance: dict[str, Any]) -> None:
    """Writes summaries (from summarise_chunk) as one shard; readers see all of it or nothing.

    provenance: anything JSON can hold: seeds, songs, sounds used.
    """
    folder.mkdir(parents=True, exist_ok=True)
    for field in FIELDS:
        path = shard_path(folder, index, field)
        partial = path.with_suffix(f".{os.getpid()}.part")
        with open(partial, "wb") as file:
            np.save(file, np.stack([chunk[field] for chunk in chunks]))
        partial.replace(path)
    path = shard_path(folder, index, None)
    partial = path.with_suffix(f".{os.getpid()}.part")
    partial.write_text(json.dumps({"chunks": len(chunks), "provenance": provenance}, indent=1))
    partial.replace(path)


def open_shard(folder: Path, index: int) -> Chunk:
    """A shard's arrays by field name, mapped and not read."""
    return {field: np.load(shard_path(folder, index, field), mmap_mode="r") for field in FIELDS}
