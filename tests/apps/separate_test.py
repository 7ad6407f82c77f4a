#!/usr/bin/python3
"""Runs tonwerk-separate as a user does and looks at what it leaves behind.

Usage: separate_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program. data/tone.* hold 20,000 frames of two sines (see `tone`).
"""

import os
import pty
import re
import signal
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import numpy as np

RATE = 44100
DATA = Path(__file__).resolve().parent / "data"
# What the model gains.onnx makes of a song. The first six sum to 1.
GAINS = {"vocals": 10 / 32, "drum": 8 / 32, "piano": 4 / 32, "acoustic_guitar": 3 / 32,
         "electric_guitar": 1 / 32, "bass": 6 / 32, "residual": 0.0, "mix": 1.0}
SUMMARY = re.compile(r"(.+) \(\d+:\d\d\): real-time factor \d+\.\d+, "
                     r"null test (-?[\d.]+|-inf) dBFS \(([\d.e+-]+)\)")
INTERRUPTED = "tonwerk-separate: Interrupted, no stems were kept."
# The runtime speaks before any of our code can silence it where the system hides its processor's caches.
RUNTIMES_OWN = re.compile(r"\[E:onnxruntime:.*InitializeCpuInfo\]")
PROGRESS = re.compile(r"\d+ %, \d+:\d\d left, [\d.]+ x real time")
# Mostly what the edges of a song have in the Nyquist bin; elsewhere rounding, about 1e-7.
TOLERANCE = 1e-4

models = Path()
command = []
on_windows = False


def noise(frames, channels=2):
    """Noise without the highest frequency: the model's tensors have no place for the Nyquist bin."""
    white = np.random.default_rng(frames).uniform(-0.5, 0.5, (frames + 4, channels))
    weighted = [weight * white[start:start + frames] for start, weight in enumerate((1, 4, 6, 4, 1))]
    return (sum(weighted) / 16).astype("<f4")


def tone(frames):
    time = np.arange(frames) / RATE
    return np.stack([0.25 * np.sin(2 * np.pi * 441 * time), 0.125 * np.sin(2 * np.pi * 882 * time)], axis=1)


def wav_header(frames, channels=2, rate=RATE):
    size = frames * channels * 4
    return struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + size, b"WAVE", b"fmt ", 16, 3, channels, rate,
                       rate * channels * 4, channels * 4, 32, b"data", size)


def wav_bytes(samples, rate=RATE):
    return wav_header(len(samples), samples.shape[1], rate) + samples.astype("<f4").tobytes()


class SeparateTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="tonwerk-separate-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def put(self, name, content):
        (self.folder / name).write_bytes(content)
        return name

    def arguments(self, song, model="gains.onnx"):
        return [*command, song, "-o", "out", "--model", str(models / model)]

    def run_program(self, arguments):
        done = subprocess.run(arguments, cwd=self.folder, capture_output=True, encoding="utf-8")
        done.complaints = [line for line in done.stderr.splitlines()
                           if not PROGRESS.fullmatch(line) and not RUNTIMES_OWN.search(line)]
        return done

    def separate(self, song, *arguments, model="gains.onnx"):
        return self.run_program([*self.arguments(song, model), *arguments])

    def files(self):
        """All files below the output folder, as paths relative to it."""
        out = self.folder / "out"
        return {str(path.relative_to(out)) for path in out.rglob("*") if path.is_file()}

    def stem(self, song, name):
        content = (self.folder / "out" / song / f"{name}.wav").read_bytes()
        channels = struct.unpack_from("<H", content, 22)[0]
        samples = np.frombuffer(content, "<f4", offset=44).reshape(-1, channels)
        self.assertEqual(content[:44], wav_header(len(samples), channels), name)
        return samples

    def assert_done(self, done):
        self.assertEqual((done.returncode, done.complaints), (0, []), done.stdout)
        summary = SUMMARY.fullmatch(done.stdout.splitlines()[-1])
        self.assertIsNotNone(summary, done.stdout)
        self.assertLess(float(summary[2]), -120.0)
        return summary

    def assert_stems(self, song, expected, names=tuple(GAINS)):
        for name in names:
            samples = self.stem(song, name)
            self.assertEqual(samples.shape, expected.shape, name)
            np.testing.assert_allclose(samples, GAINS[name] * expected, rtol=0, atol=TOLERANCE, err_msg=name)

    def assert_failed(self, done, words, code=1):
        """One sentence on standard error with these words, and no files."""
        self.assertEqual((done.returncode, len(done.complaints)), (code, 1), done.stderr)
        self.assertRegex(done.complaints[0], f"^tonwerk-separate: .*{re.escape(words)}.*\\.$")
        self.assertFalse((self.folder / "out").exists(), "files or folders are left behind")

    def test_stems_are_as_long_as_the_song_in_step_with_it_and_mono_if_it_is(self):
        # One sample; exactly one block; a block and a rest; four blocks that leave nothing for a fifth.
        for frames, channels in ((1, 2), (257024, 2), (300000, 2), (300000, 1), (257024 + 3 * 254976, 2)):
            with self.subTest(frames=frames, channels=channels):
                song = noise(frames, channels)
                self.assert_done(self.separate(self.put("song.wav", wav_bytes(song))))
                self.assert_stems("song", song)
                self.assertEqual(self.files(), {f"song/{name}.wav" for name in GAINS})

    def test_silence_comes_back_as_exact_zeros(self):
        summary = self.assert_done(self.separate(self.put("still.wav", wav_bytes(np.zeros((70000, 2))))))
        self.assertEqual((summary[2], summary[3]), ("-inf", "0"))
        self.assertFalse([name for name in GAINS if self.stem("still", name).any()])

    def test_only_the_listed_stems_are_written(self):
        song = noise(30000)
        self.put("song.wav", wav_bytes(song))
        self.assert_done(self.separate("song.wav", "--stems", "bass,vocals"))
        self.assertEqual(self.files(), {"song/bass.wav", "song/vocals.wav"})
        self.assert_stems("song", song, ["bass", "vocals"])
        # All six are asked of the model for the residual: it would hold the whole song otherwise.
        self.assert_done(self.separate("song.wav", "--stems=residual"))
        self.assert_stems("song", song, ["residual"])

    def test_other_formats_are_read(self):
        expected = tone(20000)
        # What lossy formats may change; the MP3 encoder puts 1105 frames in front and fills its last block.
        for ending, tolerance, delay in (("flac", 1e-4, 0), ("ogg", 0.02, 0), ("mp3", 0.02, 1105)):
            with self.subTest(format=ending):
                self.assert_done(self.separate(str(DATA / f"tone.{ending}")))
                mix = self.stem("tone", "mix")
                self.assertEqual(len(mix), 19 * 1152 if ending == "mp3" else 20000)
                middle = slice(1000, 18000)
                np.testing.assert_allclose(mix[delay:][middle], expected[middle], rtol=0, atol=tolerance)

    def test_names_in_any_script_work(self):
        song = noise(5000)
        done = self.separate(self.put("Größe 歌 песня 🎵.wav", wav_bytes(song)))
        self.assertEqual(self.assert_done(done)[1], "Größe 歌 песня 🎵.wav")
        self.assert_stems("Größe 歌 песня 🎵", song)

    def test_a_scrambled_model_needs_its_key(self):
        key = b"correct horse"
        plain = np.frombuffer((models / "gains.onnx").read_bytes(), np.uint8)
        scrambled = plain ^ np.resize(np.frombuffer(key, np.uint8), plain.shape)
        model = self.folder / self.put("model.onnx", scrambled.tobytes())
        self.put("song.wav", wav_bytes(noise(5000)))
        self.assert_failed(self.separate("song.wav", "--key", "wrong", model=model), "cannot be used: ")
        self.assert_done(self.separate("song.wav", "--key", key.decode(), model=model))

    def test_a_song_that_cannot_be_separated_is_refused_in_one_sentence(self):
        whole = wav_bytes(noise(300000))
        flac = (DATA / "tone.flac").read_bytes()
        ogg = (DATA / "tone.ogg").read_bytes()
        for name, content, words in (
                ("rate.wav", wav_bytes(noise(100), rate=48000), "48000 Hz"),
                ("six.wav", wav_bytes(noise(100, channels=6)), "6 channels"),
                ("empty.wav", b"", "empty"),
                ("soundless.wav", wav_header(0), "no sound"),
                ("garbage.mp3", np.random.default_rng(1).bytes(500000), "not a readable"),
                ("text.ogg", b"This is no music. " * 1000, "not a readable"),
                ("head.wav", whole[:30], "not a readable"),
                ("cut.wav", whole[:-1000], "cut off"),
                ("cut.flac", flac[:len(flac) // 2], "cut off"),
                ("cut.ogg", ogg[:-100], "cut off"),
                ("damaged.ogg", ogg[:500] + b"!" + ogg[501:], "damaged")):
            with self.subTest(song=name):
                self.assert_failed(self.separate(self.put(name, content)), words)
        self.assert_failed(self.separate("missing.wav"), "does not exist")
        self.assert_failed(self.separate("."), "is a folder")

    def test_a_model_that_cannot_be_used_is_refused_in_one_sentence(self):
        self.put("song.wav", wav_bytes(noise(5000)))
        self.put("empty.onnx", b"")
        for model, words in (("missing.onnx", "does not exist"), ("song.wav", "cannot be used: "),
                             ("empty.onnx", "empty")):
            self.assert_failed(self.separate("song.wav", model=self.folder / model), words)

    def test_wrong_usage_is_told_apart(self):
        self.put("song.wav", wav_bytes(noise(100)))
        self.assert_failed(self.separate("song.wav", "--stems", "vocals,trumpet"), "\"trumpet\"", code=2)
        self.assert_failed(self.separate("song.wav", "--loud"), "--loud", code=2)
        self.assert_failed(self.run_program([*command, "song.wav"]), "required", code=2)

    def test_older_stems_stay_when_a_run_fails_and_go_when_one_succeeds(self):
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(3000)))))
        before = self.stem("song", "vocals").copy()
        self.assertEqual(self.separate(self.put("song.wav", wav_bytes(noise(300000))[:-8])).returncode, 1)
        np.testing.assert_array_equal(self.stem("song", "vocals"), before)
        self.assertEqual(len(self.files()), 8)
        self.assert_done(self.separate(self.put("song.wav", wav_bytes(noise(4000)))))
        self.assertEqual(len(self.stem("song", "vocals")), 4000)

    def test_an_interrupted_run_leaves_nothing(self):
        frames = 10 * 60 * RATE  # long enough to be still at work
        with open(self.folder / "long.wav", "wb") as song:
            song.write(wav_header(frames))
            song.truncate(44 + frames * 8)
        # A shell's background jobs, and so perhaps we, ignore the signal.
        with subprocess.Popen(self.arguments("long.wav"), cwd=self.folder, stderr=subprocess.PIPE,
                              stdout=subprocess.DEVNULL, encoding="utf-8",
                              preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL)) as program:
            first = next(line for line in program.stderr if not RUNTIMES_OWN.search(line))
            self.assertRegex(first, PROGRESS)
            self.assertIn("long/vocals.wav.part", self.files())
            program.send_signal(signal.SIGINT)
            last = program.stderr.read().splitlines()[-1]
        self.assertEqual((last, program.returncode), (INTERRUPTED, 130))
        self.assertFalse((self.folder / "out").exists())

    def test_a_full_disk_is_told(self):
        if on_windows:
            self.skipTest("needs a device that is always full")
        (self.folder / "out/song").mkdir(parents=True)
        (self.folder / "out/song/drum.wav.part").symlink_to("/dev/full")
        done = self.separate(self.put("song.wav", wav_bytes(noise(3000))))
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^tonwerk-separate: Cannot write .*: No space left on device\.\n$")
        self.assertEqual(self.files(), set())

    def test_a_terminal_shows_a_bar(self):
        if on_windows:
            self.skipTest("needs a console")
        self.put("song.wav", wav_bytes(noise(300000)))
        ours, theirs = pty.openpty()
        subprocess.run(self.arguments("song.wav"), cwd=self.folder, stderr=theirs, stdout=subprocess.DEVNULL)
        os.close(theirs)
        shown = os.read(ours, 10000).decode()
        os.close(ours)
        self.assertRegex(shown, r"\r\[#{25} {5}\]  85 %, \d+:\d\d left, [\d.]+ x real time *"
                                r"\r\[#{30}\] 100 %.*\r?\n$")


if __name__ == "__main__":
    models = Path(sys.argv[1]).resolve()
    command = sys.argv[2:]
    on_windows = command[-1].endswith(".exe")
    unittest.main(argv=[sys.argv[0]], verbosity=2)
