# SPDX-License-Identifier: MIT
"""Running tonwerk-separate as a user does, and looking at what it leaves behind."""

import json
import re
import struct
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

RATE = 44100
DATA = Path(__file__).resolve().parent / "data"
# What the model gains.onnx makes of a song. The first six sum to 1.
GAINS = {"vocals": 10 / 32, "drum": 8 / 32, "piano": 4 / 32, "acoustic_guitar": 3 / 32,
         "electric_guitar": 1 / 32, "bass": 6 / 32, "residual": 0.0, "mix": 1.0}
SUMMARY = re.compile(r"(.+) \(\d+:\d\d\): real-time factor \d+\.\d+, "
                     r"null test (-?[\d.]+|-inf) dBFS \(([\d.e+-]+)\)")
# The runtime speaks before any of our code can silence it where the system hides its processor's caches.
RUNTIMES_OWN = re.compile(r"\[E:onnxruntime:.*InitializeCpuInfo\]")
INTERRUPTED = "tonwerk-separate: Interrupted: what was not done has left no files."
PROGRESS = re.compile(r"\d+ %, \d+:\d\d left, [\d.]+ x real time")
# Mostly what the edges of a song have in the Nyquist bin; elsewhere rounding, about 1e-7.
TOLERANCE = 1e-4


def noise(frames: int, channels: int = 2) -> np.ndarray:
    """Noise without the highest frequency: the model's tensors have no place for the Nyquist bin."""
    white = np.random.default_rng(frames).uniform(-0.5, 0.5, (frames + 4, channels))
    weighted = [weight * white[start:start + frames] for start, weight in enumerate((1, 4, 6, 4, 1))]
    return (np.sum(weighted, axis=0) / 16).astype("<f4")


def tone(frames: int, rate: int = RATE) -> np.ndarray:
    time = np.arange(frames) / rate
    return np.stack([0.25 * np.sin(2 * np.pi * 441 * time), 0.125 * np.sin(2 * np.pi * 882 * time)], axis=1)


def wav_header(frames: int, channels: int = 2, rate: int = RATE) -> bytes:
    size = frames * channels * 4
    return struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + size, b"WAVE", b"fmt ", 16, 3, channels, rate,
                       rate * channels * 4, channels * 4, 32, b"data", size)


def wav_parts(content: bytes) -> tuple[tuple[int, ...], bytes]:
    """The numbers of a WAV file's format chunk, and its samples as bytes: those that the header says it has."""
    assert content[:4] + content[8:12] == b"RIFFWAVE", content[:12]
    assert struct.unpack_from("<I", content, 4)[0] <= len(content) - 8
    place = 12
    size = 0
    chunks: dict[bytes, bytes] = {}
    while b"data" not in chunks:
        name, size = struct.unpack_from("<4sI", content, place)
        chunks[name] = content[place + 8:place + 8 + size]
        place += 8 + size + size % 2
    assert len(chunks[b"data"]) == size
    return struct.unpack_from("<HHIIHH", chunks[b"fmt "]), chunks[b"data"]


def file_set(song: str, names: Iterable[str] = tuple(GAINS)) -> set[str]:
    return {f"{song}/{name}.wav" for name in names} | {f"{song}/receipt.json"}


def decibels(value: float) -> float:
    return 20 * np.log10(value)


def wav_bytes(samples: np.ndarray, rate: int = RATE) -> bytes:
    return wav_header(len(samples), samples.shape[1], rate) + samples.astype("<f4").tobytes()


@dataclass
class Done:
    """How the program ended, and what it said."""

    returncode: int
    raw: bytes  # of standard output
    stdout: str
    stderr: str

    @property
    def errors(self) -> list[str]:
        """The lines of standard error that are neither progress nor the runtime's own."""
        return [line for line in self.stderr.splitlines()
                if not PROGRESS.fullmatch(line) and not RUNTIMES_OWN.search(line)]


class ProgramTest(unittest.TestCase):
    """Each test has a folder of its own, in which the program runs."""

    models = Path()
    command: list[str] = []
    on_windows = False

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tonwerk-separate-test-")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def put(self, name: str, content: bytes) -> str:
        (self.folder / name).write_bytes(content)
        return name

    def arguments(self, song: str, model: str | Path = "gains.onnx") -> list[str]:
        return [*self.command, *self.as_shells_pass(song), "-o", "out", "--model", str(self.models / model)]

    def as_shells_pass(self, song: str) -> list[str]:
        """What a shell makes of a pattern. Windows shells leave patterns to the program."""
        matches = self.folder.glob(song) if "*" in song and not self.on_windows else []
        return sorted(str(path.relative_to(self.folder)) for path in matches) or [song]

    def run_program(self, arguments: list[str], input: bytes | None = None) -> Done:
        done = subprocess.run(arguments, cwd=self.folder, capture_output=True, input=input)
        return Done(done.returncode, done.stdout, done.stdout.decode("utf-8", "replace"), done.stderr.decode())

    def separate(self, song: str, *arguments: str, model: str | Path = "gains.onnx") -> Done:
        return self.run_program([*self.arguments(song, model), *arguments])

    def files(self) -> set[str]:
        """All files below the output folder, as paths relative to it."""
        out = self.folder / "out"
        return {str(path.relative_to(out)) for path in out.rglob("*") if path.is_file()}

    def stem(self, song: str, name: str, rate: int = RATE) -> np.ndarray:
        content = (self.folder / "out" / song / f"{name}.wav").read_bytes()
        (tag, channels, *numbers), data = wav_parts(content)
        # Only of a song from standard input is it unknown whether its stems fit into a plain WAV file.
        format_tag = 0xFFFE if song == "stdin" else 3
        self.assertEqual((tag, *numbers), (format_tag, rate, rate * channels * 4, channels * 4, 32), name)
        self.assertEqual(content[-len(data):], data, "there is nothing behind the samples")
        return np.frombuffer(data, "<f4").reshape(-1, channels)

    def receipt(self, song: str) -> Any:
        return json.loads((self.folder / "out" / song / "receipt.json").read_text(encoding="utf-8"))

    def assert_done(self, done: Done) -> re.Match[str]:
        self.assertEqual((done.returncode, done.errors), (0, []), done.stdout)
        summary = SUMMARY.fullmatch(done.stdout.splitlines()[-1])
        assert summary, done.stdout
        self.assertLess(float(summary[2]), -120.0)
        return summary

    def assert_stems(self, song: str, expected: np.ndarray, names: Iterable[str] = tuple(GAINS)) -> None:
        for name in names:
            samples = self.stem(song, name)
            self.assertEqual(samples.shape, expected.shape, name)
            np.testing.assert_allclose(samples, GAINS[name] * expected, rtol=0, atol=TOLERANCE, err_msg=name)

    def assert_failed(self, done: Done, words: str, code: int = 1) -> None:
        """One sentence on standard error with these words, and no files."""
        self.assertEqual((done.returncode, len(done.errors)), (code, 1), done.stderr)
        self.assertRegex(done.errors[0], f"^tonwerk-separate: .*{re.escape(words)}.*\\.$")
        self.assertFalse((self.folder / "out").exists(), "files or folders are left behind")


def main() -> None:
    """Runs the tests of the program that the command line names: MODELDIR [RUNNER] PROGRAM."""
    ProgramTest.models = Path(sys.argv[1]).resolve()
    ProgramTest.command = sys.argv[2:]
    ProgramTest.on_windows = sys.argv[-1].endswith(".exe")
    unittest.main(argv=[sys.argv[0]], verbosity=2)
