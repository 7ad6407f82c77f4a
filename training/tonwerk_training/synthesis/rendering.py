# SPDX-License-Identifier: MIT
"""Rendered songs and the chunks cut from them; a shard depends on its seed and number alone: any can be made anew."""

import time
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np

from ..data import chunkstore, multitracks
from ..data.chunkstore import CHUNK_SAMPLES, SOURCES
from ..data.stft import SAMPLE_RATE
from . import fluidsynth, mixing, sampled, songs, styles, vocals, voices

CHUNKS_PER_SONG = 3
CHUNKS_PER_SHARD = 50
SONG_SECONDS = CHUNKS_PER_SONG * CHUNK_SAMPLES / SAMPLE_RATE + 0.01
ACTIVITY = 0.82  # share of a song's sections in which a stem plays
ORDINARY_ACTIVITY = 0.65
ORDINARY_OTHER = 0.5  # share of the ordinary songs with a seventh instrument

# Audio float32 [2, samples] by stem, and what was used, by stem.
Rendition = tuple[dict[str, np.ndarray], dict[str, str]]


class Studio:
    """Fonts, kits and voices in memory: what songs are rendered with. role: "training" or "heldout"."""

    def __init__(self, material: Path, role: str) -> None:
        self.fonts = fluidsynth.load_fonts(
            fluidsynth.TRAINING_FONTS if role == "training" else fluidsynth.HELD_OUT_FONTS)
        self.voices = voices.load(material, role)
        self.kits = sampled.load_kits(material, role)

    def render_song(self, rng: np.random.Generator, seconds: float, stems: Sequence[str] = SOURCES,
                    activity: float = ACTIVITY, vocal_kind: str | None = None, vary: bool = False) -> Rendition:
        """A new song: (audio float32 [2, samples] by stem, what was used, by stem).

        vary: the fonts' instruments are played with changed timbres.
        """
        song = songs.write_song(rng, seconds)
        audio: dict[str, np.ndarray] = {}
        used: dict[str, str] = {}
        for stem in stems:
            name = str(rng.choice(list(self.fonts)))
            if stem == "vocals":
                audio[stem], used[stem] = vocals.make_vocals(song, seconds, self.voices, self.fonts[name], activity,
                                                             vocal_kind)
                continue
            part = styles.STEM_STYLES[stem](song, activity)
            if stem == "drum" and self.kits and rng.random() < sampled.SHARE:
                kit = sampled.draw(self.kits, rng)
                audio[stem], used[stem] = kit.render(part.notes, seconds, rng), f"kit {kit.name}"
            else:
                if vary:
                    fluidsynth.vary_timbre(part, rng)
                audio[stem] = self.fonts[name].render(part, seconds)
                used[stem] = f"{name} {part.bank}:{part.program}"
        return audio, used


def make_shard(studio: Studio, folder: Path, seed: int, shard: int, count: int = CHUNKS_PER_SHARD,
               tracks: Sequence[Path] = (), track_share: float = 0.0) -> float:
    """Renders, mixes and writes one shard. Returns seconds of processor time.

    tracks: folders of real multitracks, from which a share of the chunks is cut.
    """
    begin = time.process_time()
    rng = np.random.default_rng(np.random.SeedSequence([seed, shard]))
    rendered: list[Rendition] = []
    chunks: list[chunkstore.Chunk] = []
    provenance: list[dict[str, Any]] = []
    while len(chunks) < count:
        if tracks and rng.random() < track_share:
            track = tracks[rng.integers(len(tracks))]
            sources, origin = multitracks.excerpt(track, CHUNK_SAMPLES, rng), {"track": track.name}
            sources = {stem: sources[stem] for stem in mixing.choose_stems(rng) & set(sources)}
        else:
            if len(rendered) * CHUNKS_PER_SONG <= len(chunks):
                rendered = [*rendered, studio.render_song(rng, SONG_SECONDS)]
            sources, origin = _cut(rendered, len(chunks), rng)
        if sources:
            chunks.append(chunkstore.summarise_chunk(mixing.mix_chunk(sources, rng)))
            provenance.append(origin)
    chunkstore.write_shard(folder, shard, chunks, {"seed": seed, "shard": shard, "chunks": provenance})
    return time.process_time() - begin


def make_ordinary_shard(studio: Studio, folder: Path, seed: int, shard: int, count: int = CHUNKS_PER_SHARD) -> float:
    """As make_shard(), of songs in which all six stems play, mixed as usual. Returns seconds of processor time.

    They are what a network sees most, so their sounds vary the most: three fonts alone would be learned by heart.
    """
    begin = time.process_time()
    rng = np.random.default_rng(np.random.SeedSequence([seed, shard]))
    chunks: list[chunkstore.Chunk] = []
    provenance: list[dict[str, str]] = []
    while len(chunks) < count:
        stems = SOURCES if rng.random() < ORDINARY_OTHER else SOURCES[:-1]
        sources, used = studio.render_song(rng, SONG_SECONDS, stems, ORDINARY_ACTIVITY, vary=True)
        sources = {stem: mixing.colour(audio, stem, rng) for stem, audio in sources.items()}
        mixed = mixing.mix_ordinary(sources, rng)
        for place in range(min(CHUNKS_PER_SONG, count - len(chunks))):
            piece = mixed[:, :, place * CHUNK_SAMPLES:(place + 1) * CHUNK_SAMPLES]
            chunks.append(chunkstore.summarise_chunk(np.ascontiguousarray(piece)))
            provenance.append(used)
    chunkstore.write_shard(folder, shard, chunks,
                           {"seed": seed, "shard": shard, "mix": chunkstore.ORDINARY, "chunks": provenance})
    return time.process_time() - begin


def _cut(rendered: list[Rendition], index: int, rng: np.random.Generator) -> Rendition:
    """Stems of one chunk, of one song or, for some chunks, each of another: (audio by stem, what was used)."""
    here = min(index // CHUNKS_PER_SONG, len(rendered) - 1)
    strangers = len(rendered) > 1 and rng.random() < mixing.STRANGERS_SHARE
    sources: dict[str, np.ndarray] = {}
    used: dict[str, str] = {}
    for stem in sorted(mixing.choose_stems(rng)):
        audio, names = rendered[rng.integers(len(rendered)) if strangers else here]
        begin = (index % CHUNKS_PER_SONG) * CHUNK_SAMPLES
        if strangers:
            begin = int(rng.integers(audio[stem].shape[1] - CHUNK_SAMPLES + 1))
        piece = mixing.fade_edges(audio[stem][:, begin:begin + CHUNK_SAMPLES])
        if mixing.active_level(piece) > 1e-4:
            sources[stem], used[stem] = piece, names[stem]
    return sources, used


def find_tracks(folder: Path | None) -> list[Path]:
    """Folders of real multitracks, none if no folder is given."""
    return multitracks.find_tracks(folder) if folder else []
