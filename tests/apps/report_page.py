# SPDX-License-Identifier: MIT
"""Report pages that tonwerk-separate makes, in a headless Chromium that is used as a person would."""

import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import Any

import numpy as np
from browser import Browser

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

from stream_contract import ALL_STEMS

RATE = 44100
SECONDS = 12  # more than one segment of the player
STEMS = list(ALL_STEMS)

models = Path()
command: list[str] = []


def wav_of(samples: np.ndarray) -> bytes:
    data = samples.astype("<f4").tobytes()
    return struct.pack("<4sI4s4sIHHIIHH4sI", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, 3, 2, RATE, RATE * 8, 8,
                       32, b"data", len(data)) + data


def rising_noise(seconds: int) -> np.ndarray:
    frames = seconds * RATE
    noise = np.random.default_rng(1).uniform(-0.5, 0.5, (frames, 2))
    return noise * np.linspace(-0.2, 1, frames).clip(0)[:, None]


def separate(folder: Path, song: str, samples: np.ndarray, *options: str) -> subprocess.CompletedProcess[str]:
    (folder / song).write_bytes(wav_of(samples))
    return subprocess.run([*command, song, "-o", "out", "--model", str(models / "gains.onnx"), *options],
                          cwd=folder, capture_output=True, encoding="utf-8")


def make_report(folder: Path, song: str, samples: np.ndarray, *options: str) -> Path:
    done = separate(folder, song, samples, "--report", *options)
    if done.returncode:
        raise AssertionError(done.stderr)
    return folder / "out" / Path(song).stem / "report.html"


class PageTest(unittest.TestCase):
    folder: Path
    page: Path
    browser: Browser

    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory(prefix="tonwerk-report-test-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.page = make_report(cls.folder, "song.wav", rising_noise(SECONDS))
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self) -> None:
        self.open(self.page)

    def open(self, page: Path) -> None:
        """Opens a page as if for the first time."""
        self.browser.open(page)
        self.run_script("(localStorage.clear(), 0)")
        self.browser.open(page)

    def tearDown(self) -> None:
        self.assertEqual(self.browser.errors(), [])

    def run_script(self, script: str, *arguments: Any) -> Any:
        return self.browser.run(script, *arguments)

    def text(self, selector: str) -> str:
        return self.run_script("document.querySelector(arguments[0]).textContent", selector)

    def pressed(self, selector: str) -> bool:
        return self.run_script("document.querySelector(arguments[0]).getAttribute('aria-pressed')", selector) == "true"

    def click(self, selector: str) -> None:
        self.browser.drag(selector, 0.5, 0.5)

    def row(self, name: str) -> str:
        return f".track:nth-of-type({STEMS.index(name) + 2})"

    def resize(self, width: int, height: int) -> None:
        self.browser.devtools("Emulation.setDeviceMetricsOverride",
                              {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})
        self.addCleanup(self.browser.devtools, "Emulation.clearDeviceMetricsOverride", {})


def main() -> None:
    """Runs the tests of the script that calls this."""
    global models, command
    models = Path(sys.argv[1]).resolve()
    command = sys.argv[2:]
    unittest.main(argv=[sys.argv[0]], verbosity=2)
