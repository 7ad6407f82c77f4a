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
from ..model.firststage import FirstStage
from . import casting, fluidsynth, mastering, mixing, recorded, sampled, songs, styles, vocals, voices

CHUNKS_PER_SONG = 3
CHUNKS_PER_SHARD = 50
SONG_SECONDS = CHUNKS_PER_SONG * CHUNK_SAMPLES / SAMPLE_RATE + 0.01
ACTIVITY = 0.82  # share of a song's sections in which a stem plays
ORDINARY_ACTIVITY = 0.65
MIXES_PER_SONG = 2  # ordinary ones: rendering is half of the work
SECOND_OTHER = 0.35  # share of the strangers that are two
RECORD_SPREAD = 3.0  # dB by which a stem is louder or softer than usual
MASTERED_SHARE = 0.8  # of the songs are finished as records are
FIRST_STAGE_SHARE = 0.7  # of the chunks show what the network before ours leaves, if there is one
# In which share of the ordinary songs a stem sounds at all. No record has everything.
ORDINARY_PRESENCE = {"vocals": 0.6, "drum": 0.92, "piano": 0.5, "acoustic_guitar": 0.45, "electric_guitar": 0.72,
                     "bass": 0.92, "other": 0.75}

# Audio float32 [2, samples] by stem, and what was used, by stem.
Rendition = tuple[dict[str, np.ndarray], dict[str, str]]


class Studio:
    """Fonts, kits and voices in memory: what songs are rendered with. role: "training" or "heldout"."""

    def __init__(self, material: Path, role: str, notes: Path | None = None, first: Path | None = None) -> None:
        """notes: folder of the recorded notes, if training shall use them; first: the model that goes before ours, if
        training shall show what it leaves."""
        self.first = FirstStage(first) if first else None
        self.casting = casting.Casting(recorded.load(notes) if notes else {}) if role == "training" else None
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
            if stem == "other" and self.casting:
                audio[stem], used[stem] = self._others(song, activity, seconds)
                continue
            part = styles.STEM_STYLES[stem](song, activity)
            if stem == "drum" and self.kits and rng.random() < sampled.SHARE:
                kit = sampled.draw(self.kits, rng)
                audio[stem], used[stem] = kit.render(part.notes, seconds, rng), f"kit {kit.name}"
            else:
                if vary:
                    fluidsynth.vary_timbre(part, rng)
                audio[stem], used[stem] = self._play(stem, part, seconds, name, rng)
        return audio, used

    def _play(self, stem: str, part: fluidsynth.Part, seconds: float, font: str,
              rng: np.random.Generator) -> tuple[np.ndarray, str]:
        """A part on an instrument of any origin in training, and of the font otherwise."""
        if self.casting and stem != "drum":
            return self.casting.play(stem, part, seconds, self.fonts[font], rng)
        return self.fonts[font].render(part, seconds), f"{font} {part.bank}:{part.program}"

    def _others(self, song: songs.Song, activity: float, seconds: float) -> tuple[np.ndarray, str]:
        """One stranger or two."""
        assert self.casting
        players = [self.casting.other(song, activity, seconds, self.fonts[str(song.rng.choice(list(self.fonts)))])
                   for _ in range(1 + (song.rng.random() < SECOND_OTHER))]
        balanced = [audio / max(mixing.active_level(audio), 1e-6) for audio, _ in players]
        return np.sum(balanced, axis=0).astype(np.float32) / 10, " and ".join(name for _, name in players)

    def summarise(self, mixed: np.ndarray, rng: np.random.Generator) -> chunkstore.Chunk:
        """What training keeps of a chunk [7, 2, CHUNK_SAMPLES]: of the mix, or of what the first stage leaves."""
        taken = self.first if rng.random() < FIRST_STAGE_SHARE else None
        return chunkstore.summarise_chunk(np.ascontiguousarray(mixed), taken)


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
            mixed = mixing.mix_chunk(sources, rng)
            chunks.append(studio.summarise(mastering.master(mixed, rng) if rng.random() < MASTERED_SHARE else mixed,
                                           rng))
            provenance.append(origin)
    chunkstore.write_shard(folder, shard, chunks, {"seed": seed, "shard": shard, "chunks": provenance})
    return time.process_time() - begin


def make_ordinary_shard(studio: Studio, folder: Path, seed: int, shard: int, count: int = CHUNKS_PER_SHARD) -> float:
    """As make_shard(), of songs with the usual instruments, mixed as usual. Returns seconds of processor time.

    They are what a network sees most, so their sounds vary the most: three fonts alone would be learned by heart.
    """
    begin = time.process_time()
    rng = np.random.default_rng(np.random.SeedSequence([seed, shard]))
    chunks: list[chunkstore.Chunk] = []
    provenance: list[dict[str, str]] = []
    while len(chunks) < count:
        rendered, used = studio.render_song(rng, SONG_SECONDS, SOURCES, ORDINARY_ACTIVITY, vary=True)
        for _ in range(MIXES_PER_SONG):
            stems = [stem for stem in SOURCES if rng.random() < ORDINARY_PRESENCE[stem]] or ["piano"]
            mixed = _record({stem: rendered[stem] for stem in stems}, rng)
            for place in range(min(CHUNKS_PER_SONG, count - len(chunks))):
                piece = mixed[:, :, place * CHUNK_SAMPLES:(place + 1) * CHUNK_SAMPLES]
                chunks.append(studio.summarise(piece, rng))
                provenance.append({stem: used[stem] for stem in stems})
    chunkstore.write_shard(folder, shard, chunks,
                           {"seed": seed, "shard": shard, "mix": chunkstore.ORDINARY, "chunks": provenance})
    return time.process_time() - begin


def _record(sources: dict[str, np.ndarray], rng: np.random.Generator) -> np.ndarray:
    """A song mixed as usual, and mostly finished as records are: float32 [7, 2, samples]."""
    mixed = mixing.mix_ordinary({stem: mixing.colour(audio, stem, rng) for stem, audio in sources.items()}, rng,
                                RECORD_SPREAD)
    return mastering.master(mixed, rng) if rng.random() < MASTERED_SHARE else mixed


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
