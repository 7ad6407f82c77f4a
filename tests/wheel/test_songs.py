# SPDX-License-Identifier: MIT
"""Whole songs: arrays and files."""

import tempfile
import unittest
from pathlib import Path

import numpy as np
import soundfile
import tonwerk
from signals import GAINS, MODELS, ROUNDING, TOLERANCE, noise, tone

GAINS_MODEL = MODELS / "gains.onnx"

# A conversion there and back: its pass band is flat to 1e-4, and the ends of a tone are left out.
CONVERSION = 3e-4


class Arrays(unittest.TestCase):
    def test_mono_comes_back_as_mono_in_the_shape_it_came(self) -> None:
        song = noise(10_000, 1)
        for shaped in (song, song[:, 0], song[:, 0].astype(np.float64)):
            stems = tonwerk.separate(shaped, 44100, GAINS_MODEL)
            self.assertEqual(stems["drum"].shape, shaped.shape)
            self.assertLess(np.abs(stems["drum"] - GAINS["drum"] * shaped).max(), TOLERANCE)

    def test_other_rates_come_back_in_place_and_add_up(self) -> None:
        for rate in (8000, 22050, 48000, 96000):
            with self.subTest(rate=rate):
                song = tone(3 * rate + 17, 220, rate)
                stems = tonwerk.separate(song, rate, GAINS_MODEL, stems=[*GAINS, "residual"])
                inner = slice(rate // 4, -rate // 4)
                for stem, gain in GAINS.items():
                    self.assertEqual(stems[stem].shape, song.shape)
                    self.assertLess(np.abs(stems[stem] - gain * song)[inner].max(), CONVERSION, stem)
                self.assertLess(np.abs(sum(stems.values()) - song).max(), ROUNDING)

    def test_only_what_is_asked_for_and_the_residual_of_all_six(self) -> None:
        song = noise(5000)
        self.assertEqual(list(tonwerk.separate(song, 44100, GAINS_MODEL, stems=["bass", "vocals"])), ["vocals", "bass"])
        for rate in (44100, 32000):
            residual = tonwerk.separate(tone(rate, 300, rate), rate, GAINS_MODEL, stems="residual")["residual"]
            self.assertLess(np.abs(residual[rate // 4:-rate // 4]).max(), CONVERSION)

    def test_silence_and_nothing(self) -> None:
        for rate in (44100, 48000):
            silent = tonwerk.separate(np.zeros((30_000, 2), np.float32), rate)
            self.assertEqual(max(np.abs(stem).max() for stem in silent.values()), 0)
            self.assertEqual(tonwerk.separate(np.zeros((0, 2)), rate, GAINS_MODEL)["bass"].shape, (0, 2))

    def test_wrong_audio_is_refused(self) -> None:
        for wrong in (np.zeros((100, 3)), np.zeros((2, 100)), np.zeros((1, 100, 2))):
            with self.assertRaisesRegex(ValueError, "shape"):
                tonwerk.separate(wrong, 44100, GAINS_MODEL)
        with self.assertRaisesRegex(TypeError, "int16"):
            tonwerk.separate(np.zeros((100, 2), np.int16), 44100, GAINS_MODEL)
        with self.assertRaisesRegex(ValueError, "0 Hz"):
            tonwerk.separate(np.zeros((100, 2)), 0, GAINS_MODEL)


class Files(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name) / "Töne Ω"
        self.folder.mkdir()

    def song(self, name: str, samples: np.ndarray, rate: int = 44100, subtype: str = "PCM_24") -> Path:
        path = self.folder / name
        soundfile.write(path, samples, rate, subtype)
        return path

    def left_over(self) -> list[str]:
        return [path.name for path in self.folder.rglob("*.part")]

    def test_every_format_holds_the_stems(self) -> None:
        song = self.song("song.flac", noise(300_001, 1), 44100)
        samples, _ = soundfile.read(song)
        for name, (ending, subtype, bits) in tonwerk.FORMATS.items():
            with self.subTest(format=name):
                shares: list[float] = []
                files = tonwerk.separate_file(song, self.folder / name, GAINS_MODEL, format=name,
                                              progress=shares.append)
                self.assertEqual(set(files), {*GAINS, "residual"})
                info = soundfile.info(files["bass"])
                self.assertEqual((info.subtype, info.frames, info.channels), (subtype, 300_001, 1))
                self.assertEqual(files["bass"].name, f"bass.{ending}")
                stem, _ = soundfile.read(files["bass"])
                # Rounding is half a step; dither spreads over two more.
                step = 2.0 ** (1 - bits) if bits else 0
                self.assertLess(np.abs(stem - GAINS["bass"] * samples).max(),
                                TOLERANCE + step * (1.5 if bits == 16 else 0.5))
                self.assertEqual(shares, sorted(shares))
                self.assertEqual(shares[-1], 1)
                self.assertEqual(self.left_over(), [])

    def test_files_are_separated_as_arrays_are(self) -> None:
        for rate in (44100, 48000):
            song = noise(2 * rate)
            files = tonwerk.separate_file(self.song("song.wav", song, rate, "FLOAT"), self.folder / "out", GAINS_MODEL)
            for stem, samples in tonwerk.separate(song, rate, GAINS_MODEL).items():
                # The conversion sees other blocks, which moves its last digits.
                np.testing.assert_allclose(soundfile.read(files[stem])[0], samples, atol=0 if rate == 44100 else 1e-6)

    def test_one_gain_keeps_all_fixed_point_files_from_clipping(self) -> None:
        song = 5 * noise(50_000)
        path = self.song("loud.wav", song, subtype="FLOAT")
        for name in ("flac24", "pcm16"):
            files = tonwerk.separate_file(path, self.folder / name, GAINS_MODEL, stems=["vocals", "mix"], format=name)
            vocals, mix = (soundfile.read(files[stem])[0] for stem in ("vocals", "mix"))
            self.assertGreater(np.abs(mix).max(), 0.999)
            np.testing.assert_allclose(vocals, GAINS["vocals"] * mix, atol=1e-4)

    def test_flac_keeps_the_songs_tags(self) -> None:
        path = self.folder / "tagged.flac"
        with soundfile.SoundFile(path, "w", 44100, 2, "PCM_16") as file:
            file.title, file.artist = "Tönwerk", "Ω"
            file.write(noise(1000))
        files = tonwerk.separate_file(path, self.folder / "out", GAINS_MODEL, stems="mix", format="flac16")
        with soundfile.SoundFile(files["mix"]) as file:
            self.assertEqual((file.title, file.artist), ("Tönwerk", "Ω"))

    def test_compressed_files_are_read_whole_and_refused_if_cut(self) -> None:
        for ending in ("mp3", "ogg"):
            path = self.folder / f"song.{ending}"
            soundfile.write(path, noise(200_001), 44100)
            stem = tonwerk.separate_file(path, self.folder / "out", GAINS_MODEL, stems="mix")["mix"]
            self.assertEqual(soundfile.info(stem).frames, 200_001)
        whole = (self.folder / "song.mp3").read_bytes()
        (self.folder / "cut.mp3").write_bytes(whole[:len(whole) // 2])
        with self.assertRaisesRegex(tonwerk.AudioError, "cut off"):
            tonwerk.separate_file(self.folder / "cut.mp3", self.folder / "out", GAINS_MODEL)

    def test_an_mp3_whose_length_is_estimated_is_not_taken_for_cut(self) -> None:
        song = Path(__file__).parents[1] / "apps/data/tone.mp3"  # 19 frames of MPEG, and no word of that
        self.assertGreater(soundfile.info(song).frames, 19 * 1152)
        stem = tonwerk.separate_file(song, self.folder, GAINS_MODEL, stems="mix")["mix"]
        self.assertEqual(soundfile.info(stem).frames, 19 * 1152)

    def test_what_cannot_be_separated_leaves_no_file(self) -> None:
        (self.folder / "text.wav").write_text("This is no music at all.")
        whole = self.song("whole.flac", noise(200_000)).read_bytes()
        (self.folder / "cut.flac").write_bytes(whole[:len(whole) // 2])
        self.song("three.wav", noise(1000, 3))
        loud = self.song("loud.wav", 10_000 * noise(20_000), subtype="FLOAT")
        out = self.folder / "out"
        for name in ("text.wav", "cut.flac", "three.wav"):
            with self.subTest(name), self.assertRaisesRegex(tonwerk.AudioError, name):
                tonwerk.separate_file(self.folder / name, out, GAINS_MODEL)
        with self.assertRaises(tonwerk.StreamFailedError):
            tonwerk.separate_file(loud, out, MODELS / "fail_on_request.onnx", format="flac24")
        with self.assertRaises(FileNotFoundError):
            tonwerk.separate_file(self.folder / "none.wav", out, GAINS_MODEL)
        self.assertEqual([path.name for path in out.iterdir()], [])


if __name__ == "__main__":
    unittest.main()
