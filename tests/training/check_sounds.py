#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Holds the training's sounds to what they stand for: pitches, mutes and bends of computed and recorded instruments,
amplifiers, and records whose stems add up.

usage: check_sounds.py TRAINING_FOLDER [unittest's arguments]
"""

import sys
import unittest

import numpy as np

sys.path.insert(0, sys.argv[1])

from tonwerk_training.data import chunkstore
from tonwerk_training.data.stft import SAMPLE_RATE, stft
from tonwerk_training.synthesis import (
    amplifier,
    casting,
    fluidsynth,
    mastering,
    playing,
    plucked,
    recorded,
    songs,
    styles,
    synthesiser,
)
from tonwerk_training.synthesis.fluidsynth import Note

del sys.argv[1]


def frequency(audio: np.ndarray, low: float = 60, high: float = 1000) -> float:
    """Hz of the strongest period, by autocorrelation."""
    audio = np.atleast_2d(audio)[0][2000:32000]
    correlation = np.fft.irfft(np.abs(np.fft.rfft(audio, 1 << 17)) ** 2)
    first, last = int(SAMPLE_RATE / high), int(SAMPLE_RATE / low)
    return float(SAMPLE_RATE / (first + np.argmax(correlation[first:last])))


def energy(audio: np.ndarray) -> float:
    return float((np.asarray(audio, np.float64) ** 2).sum())


class Instruments(unittest.TestCase):
    def test_play_the_pitch_that_is_asked_for(self) -> None:
        random = np.random.default_rng(1)
        for make in (plucked.electric_guitar, plucked.acoustic_guitar, plucked.bass_guitar, plucked.clavinet,
                     synthesiser.organ, synthesiser.tine_piano, synthesiser.synthesiser_bass,
                     lambda rng: synthesiser.synthesiser(rng, held=True)):
            for pitch in (45, 57.5, 64):
                audio = make(random).sound(pitch, 90, 1.0, random)
                wanted = 440 * 2 ** ((pitch - 69) / 12)
                octaves = np.log2(frequency(audio) / wanted)  # an organ may sound an octave lower
                self.assertAlmostEqual(octaves, round(octaves), delta=0.02, msg=str((make, pitch)))
                self.assertIn(round(octaves), (-1, 0))
                self.assertTrue(np.isfinite(audio).all())

    def test_strings_die_away_and_high_ones_sooner(self) -> None:
        random = np.random.default_rng(2)
        strings = plucked.electric_guitar(random)
        left = []
        for pitch in (40, 76):
            audio = strings.sound(pitch, 100, 3.0, random)
            left.append(energy(audio[-SAMPLE_RATE:]) / energy(audio[:SAMPLE_RATE]))
        self.assertLess(left[0], 1)
        self.assertLess(left[1], 0.5 * left[0])

    def test_recorded_notes_are_found_by_name_and_tuned(self) -> None:
        names = ("C4.wav", "Cs4.mp3", "D#3v8.ogg", "Bb2.wav", "A0v16.ogg")
        self.assertEqual([recorded.pitch_of(name) for name in names],
                         [60, 61, 51, 46, 21])
        self.assertIsNone(recorded.pitch_of("README.md"))
        grid = np.arange(2 * SAMPLE_RATE) / SAMPLE_RATE
        tones = [np.sin(2 * np.pi * 440 * 2 ** ((pitch - 69) / 12) * grid) * 20000 for pitch in (57, 69)]
        samples = np.concatenate([np.stack([tone, tone]) for tone in tones], axis=1).astype(np.int16)
        index = [{"pitch": pitch, "layer": 0, "begin": place * len(grid), "end": (place + 1) * len(grid)}
                 for place, pitch in enumerate((57, 69))]
        notes = recorded.RecordedNotes("tone", samples, index)
        random = np.random.default_rng(3)
        for pitch in (55, 60, 66, 70):
            audio = notes.sound(pitch, 127, 1.0, random)
            self.assertAlmostEqual(frequency(audio), 440 * 2 ** ((pitch - 69) / 12), delta=3)
            self.assertAlmostEqual(audio.shape[1], SAMPLE_RATE, delta=4)

    def test_every_pin_names_a_package_and_a_hash(self) -> None:
        for packages in recorded.pins().values():
            for package, integrity in packages:
                self.assertRegex(package, r"^(@[a-z-]+/)?[a-z0-9-]+@\d+\.\d+\.\d+$")
                self.assertRegex(integrity, r"^sha512-[A-Za-z0-9+/]{86}==$")


class Playing(unittest.TestCase):
    def play(self, manner: playing.Manner, notes: list[Note], seconds: float = 2.0) -> np.ndarray:
        random = np.random.default_rng(1)
        return playing.perform(plucked.electric_guitar(np.random.default_rng(7)), notes, seconds, random, manner)

    def test_notes_sound_where_they_stand_and_end(self) -> None:
        audio = self.play(playing.Manner(release=0.03), [Note(0.5, 0.4, 50, 100), Note(-0.2, 1, 50, 100)])
        self.assertEqual(audio.shape, (2, 2 * SAMPLE_RATE))
        self.assertFalse(audio[:, :SAMPLE_RATE // 2].any())
        self.assertGreater(energy(audio[:, SAMPLE_RATE // 2:int(0.9 * SAMPLE_RATE)]), 0.99 * energy(audio))

    def test_muted_notes_die_sooner(self) -> None:
        notes = [Note(0, 1.0, 45, 100)]
        late = slice(SAMPLE_RATE // 4, None)
        free, muted = (energy(self.play(playing.Manner(muted=muted), notes)[:, late]) for muted in (0.0, 0.05))
        self.assertLess(muted, 0.05 * free)

    def test_the_pedal_holds_notes_until_it_is_lifted(self) -> None:
        controls = [(0.0, 64, 127), (1.5, 64, 0), (1.6, 64, 127), (3.0, 64, 0)]
        held = playing.pedalled([Note(0.2, 0.1, 60, 80), Note(1.55, 0.1, 60, 80)], controls)
        self.assertEqual([round(note.start + note.length, 3) for note in held], [1.5, 3.0])

    def test_bends_come_back_to_the_written_pitch_or_reach_it(self) -> None:
        random = np.random.default_rng(5)
        for _ in range(30):
            curve = playing.expression(1.0, SAMPLE_RATE, random)
            self.assertLess(np.abs(curve).max(), 6.5)
            self.assertLess(abs(curve[-SAMPLE_RATE // 4:].mean()), 0.4)


class Amplifiers(unittest.TestCase):
    def test_keep_the_loudness_and_distort_by_their_gain(self) -> None:
        grid = np.arange(SAMPLE_RATE) / SAMPLE_RATE
        tone = (0.1 * np.sin(2 * np.pi * 220 * grid)).astype(np.float32)
        overtones = {}
        for gain in amplifier.GAINS:
            shares = []
            for seed in range(12):
                audio = amplifier.amplify(tone, gain, np.random.default_rng(seed))
                self.assertAlmostEqual(amplifier.loudness(audio), amplifier.loudness(tone), delta=1e-3)
                power = np.abs(np.fft.rfft(audio)) ** 2
                shares.append(1 - power[210:231].sum() / power.sum())
            overtones[gain] = np.median(shares)
        self.assertLess(overtones["clean"], 0.5 * overtones["high"])

    def test_a_compressor_turns_down_what_is_loud(self) -> None:
        audio = np.concatenate([np.full(SAMPLE_RATE, 0.01), np.full(SAMPLE_RATE, 1.0)]).astype(np.float32)[None]
        gain = amplifier.gain_curve(audio, -6, 4, 0.005, 0.1)
        self.assertAlmostEqual(gain[SAMPLE_RATE // 2], 1, delta=1e-3)
        level = 20 * np.log10(1 / amplifier.loudness(audio))
        self.assertAlmostEqual(20 * np.log10(gain[-1]), -(level + 6) * 0.75, delta=0.1)


class Casts(unittest.TestCase):
    def test_every_stem_can_be_played_without_recorded_notes(self) -> None:
        font = fluidsynth.Renderer(fluidsynth.TRAINING_FONTS["csound"])
        cast = casting.Casting({})
        heard = set()
        for seed in range(6):
            song = songs.write_song(np.random.default_rng(seed), 4.0)
            for stem in ("piano", "acoustic_guitar", "electric_guitar", "bass"):
                audio, kind = cast.play(stem, styles.STEM_STYLES[stem](song, 1.0), 4.0, font, song.rng)
                self.check(audio, kind)
                heard.add(kind)
            audio, kind = cast.other(song, 1.0, 4.0, font)
            self.check(audio, kind)
            heard.add(kind)
        self.assertGreater(len(heard), 6)
        self.assertFalse({"grand piano", "horns"} & heard)

    def check(self, audio: np.ndarray, kind: str) -> None:
        self.assertEqual(audio.shape, (2, 4 * SAMPLE_RATE), kind)
        self.assertTrue(np.isfinite(audio).all() and audio.any(), kind)


class Records(unittest.TestCase):
    @staticmethod
    def mix(seed: int) -> np.ndarray:
        random = np.random.default_rng(seed)
        noise = random.standard_normal((7, 2, 2 * SAMPLE_RATE)).astype(np.float32)
        swell = 0.1 + np.abs(np.sin(np.arange(2 * SAMPLE_RATE) / 9000)) * random.uniform(0, 0.3, (7, 1, 1))
        return (noise * swell).astype(np.float32)

    def test_stay_below_full_scale_however_they_are_limited(self) -> None:
        for seed in range(12):
            limited = mastering.limit(self.mix(seed), 0.4, np.random.default_rng(seed))
            self.assertLessEqual(np.abs(limited.sum(axis=0)).max(), 1.001)
            self.assertGreater(amplifier.loudness(limited.sum(axis=0)), 0.15)

    def test_a_stem_alone_stays_alone(self) -> None:
        """Nothing that happens to a mix moves sound from one stem to another."""
        mixed = self.mix(1)
        mixed[[0, 2, 3, 5, 6]] = 0
        for seed in range(8):
            done = mastering.master(mixed, np.random.default_rng(seed))
            self.assertFalse(done[[0, 2, 3, 5]].any())
            self.assertTrue(done[1].any() and done[4].any() and np.isfinite(done).all())

    def test_coding_goes_to_the_last_source_and_moves_nothing(self) -> None:
        mixed = self.mix(2) * np.float32(0.2)
        changed = 0
        for seed in range(6):
            coded = mastering.code(mixed, np.random.default_rng(seed))
            np.testing.assert_array_equal(coded[:-1], mixed[:-1])
            self.assertEqual(mastering.delay(mixed.sum(axis=0), coded.sum(axis=0)), 0)
            changed += not np.array_equal(coded, mixed)
        self.assertGreater(changed, 3)
        shifted = np.roll(mixed.sum(axis=0), 576, axis=1)
        self.assertEqual(mastering.delay(mixed.sum(axis=0), shifted), 576)


class FirstStages(unittest.TestCase):
    def test_masks_are_drawn_over_what_the_first_network_leaves(self) -> None:
        random = np.random.default_rng(4)
        stems = random.standard_normal((7, 2, chunkstore.CHUNK_SAMPLES)).astype(np.float32) * np.float32(0.1)
        stems[[2, 3, 4]] = 0
        left = chunkstore.summarise_chunk(stems, lambda mixture: np.float32(0.1) * mixture)
        whole = chunkstore.summarise_chunk(stems)
        np.testing.assert_allclose(left["power"], whole["power"] + 2 * np.log10(0.9), atol=0.01)
        np.testing.assert_allclose(left["energy"], whole["energy"], rtol=1e-4)
        mask, power = np.float32(0.4), 10.0 ** left["power"][:2].astype(np.float64)
        told = (power * (mask - chunkstore.dequantise(left["ratio"][1])) ** 2).sum() + left["rest"][1].sum()
        exact = (np.abs(stft(stems[1]) - mask * 0.9 * stft(stems.sum(axis=0))) ** 2).sum()
        self.assertAlmostEqual(told / exact, 1, delta=0.01)


if __name__ == "__main__":
    unittest.main()
