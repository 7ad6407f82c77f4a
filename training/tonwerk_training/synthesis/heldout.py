# SPDX-License-Identifier: MIT
"""The held-out evaluation songs: font, kit, voices and melodies that training never sees, all stems dense."""

import json
from pathlib import Path

import numpy as np
import scipy.io.wavfile

from ..data.chunkstore import SOURCES, STEMS
from ..data.stft import SAMPLE_RATE
from . import mixing, rendering

SECONDS = 36.0
SEED_OFFSET = 770_000  # keeps the songs apart from those of training, whatever seed that uses
# Of the sections, a stem plays in this many. With it the best real masks reach 9.0 dB on average; with all stems
# playing nearly all the time they reach 7.8.
ACTIVITY = 0.65
OTHER_SHARE = 0.5
RENDITIONS = ("sung", "speech")
SONGS_PER_CHOIR = 6


def make_songs(material: Path, folder: Path, count: int, seed: int) -> None:
    """Writes `count` songs to folder/SONG and, with recorded speech as the vocals, to folder-speech/SONG.

    Each song is a folder of mixture.wav and a WAV file per source, float32, 44.1 kHz, stereo.
    """
    studio = rendering.Studio(material, "heldout")
    speakers = [voice for voice in studio.voices if voice.recorded]
    singers = [voice for voice in studio.voices if not voice.recorded]
    energies = {rendition: np.zeros((2, len(STEMS))) for rendition in RENDITIONS}
    for song in range(count):
        turn, seeds = song % SONGS_PER_CHOIR, (seed + SEED_OFFSET, song)
        studio.voices = [singers[(turn - 1) % len(singers)]]
        sung, used = _render(studio, np.random.default_rng(np.random.SeedSequence(seeds)), "sung" if turn else "choir")
        studio.voices = speakers
        speech, _ = studio.render_song(np.random.default_rng([*seeds, 1]), SECONDS, ("vocals",), 1.0, "spoken")
        for rendition, vocals in zip(RENDITIONS, (sung["vocals"], speech["vocals"])):
            mixed = mixing.mix_ordinary({**sung, "vocals": vocals}, np.random.default_rng([*seeds, 2]))
            target = folder if rendition == "sung" else Path(f"{folder}-speech")
            _write(target / f"song-{song:02d}", mixed, {**used, "rendition": rendition})
            energies[rendition] += mixture_energies(mixed)
    for rendition, (own, rest) in energies.items():
        ratios = 10 * np.log10(own / rest)
        print(f"{rendition}: SDR of the mixture as the estimate, over all songs, dB: " +
              " ".join(f"{stem} {value:.1f}" for stem, value in zip(STEMS, ratios)) + f", mean {ratios.mean():.1f}")


def _render(studio: rendering.Studio, rng: np.random.Generator,
            vocal_kind: str) -> tuple[dict[str, np.ndarray], dict[str, str]]:
    """All six stems and sometimes a seventh."""
    stems = SOURCES if rng.random() < OTHER_SHARE else STEMS
    return studio.render_song(rng, SECONDS, stems, ACTIVITY, vocal_kind)


def mixture_energies(mixed: np.ndarray) -> np.ndarray:
    """Energies [2, 6] of each stem, and of all the others together, from the sources [7, 2, samples] of a mix."""
    mixture = mixed.sum(axis=0)
    return np.array([[(stem ** 2).sum(), ((mixture - stem) ** 2).sum()] for stem in mixed[:len(STEMS)]]).T


def _write(folder: Path, mixed: np.ndarray, used: dict[str, str]) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    for name, audio in [("mixture", mixed.sum(axis=0)), *zip(SOURCES, mixed)]:
        scipy.io.wavfile.write(folder / f"{name}.wav", SAMPLE_RATE, np.ascontiguousarray(audio.T, dtype=np.float32))
    (folder / "song.json").write_text(json.dumps(used, indent=1))
