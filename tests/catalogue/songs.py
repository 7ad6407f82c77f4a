# SPDX-License-Identifier: MIT
"""Songs, models and stores that the tests of the catalogue share."""

import json
import os
import subprocess
import time
from collections.abc import Callable
from pathlib import Path
from typing import TypeVar

import fsspec
import numpy as np
import soundfile

T = TypeVar("T")

MODELS = Path(os.environ["TONWERK_TEST_MODELS"])
MODEL = MODELS / "gains.onnx"


def write_song(path: Path, number: int, seconds: float = 1.0, rate: int = 44100) -> None:
    """A tone and some noise, different for each number."""
    frames = int(seconds * rate)
    noise = np.random.default_rng(number).standard_normal(frames)
    wave = 0.3 * np.sin(2 * np.pi * (100 + number) * np.arange(frames) / rate) + 0.03 * noise
    soundfile.write(path, np.stack([wave, wave[::-1]], axis=1), rate, "PCM_16")


def write_songs(folder: Path, count: int, seconds: float = 1.0) -> None:
    """Files named by their numbers."""
    folder.mkdir(parents=True, exist_ok=True)
    for number in range(count):
        write_song(folder / f"{number:05}.flac", number, seconds)


def insist(action: Callable[..., T], *arguments: object) -> T:
    """What a call returns that a store may refuse for a while."""
    for _ in range(200):
        try:
            return action(*arguments)
        except PermissionError:
            time.sleep(0.1)
    raise OSError("The store refuses everything.")


def results(url: str) -> dict[str, bytes]:
    """All objects of a catalogue but its ledger."""
    fs, root = fsspec.core.url_to_fs(url)
    fs.invalidate_cache()
    names = [name for name in insist(fs.find, root) if "/ledger/" not in name]
    return {name.removeprefix(str(root)).lstrip("/"): insist(fs.cat_file, name) for name in names}


def ledger(url: str) -> list[dict[str, object]]:
    """All rows."""
    fs, root = fsspec.core.url_to_fs(url)
    fs.invalidate_cache()
    return [json.loads(line) for name in insist(fs.find, f"{root}/ledger")
            for line in insist(fs.cat_file, name).splitlines()]


def descendants(root: int, title: str = "") -> list[int]:
    """Processes that a process has started, and those have, whose command begins with the title."""
    listing = subprocess.run(["ps", "-eo", "pid=,ppid=,args="], capture_output=True, text=True, check=True).stdout
    rows = [line.split(None, 2) for line in listing.splitlines()]
    family = {root}
    while True:
        found = {int(row[0]) for row in rows if int(row[1]) in family} - family
        if not found:
            break
        family |= found
    return sorted(int(row[0]) for row in rows if int(row[0]) in family - {root} and row[2].startswith(title))
