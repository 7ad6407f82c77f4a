#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Compares streams of the C interface in every geometry with the offline reference, sample by sample.

usage: compare_geometries.py [--seed N] LIBRARY MODELS

LIBRARY is libtonwerk_c.so, MODELS the folder that make_analytic_models.py wrote.
"""

import argparse
import ctypes
import sys
from collections.abc import Iterator
from pathlib import Path

import numpy as np
import offline_reference
from compare_with_library import ROUNDING, differences, noise_with_impulses
from offline_reference import STEMS, Geometry

NAMES = (*STEMS, "residual", "mix")

# (geometry, frames of the signal, frames of a block): blocks of a sound card, odd ones, and longer than a step.
CASES = [
    (Geometry(1, 0, 0), 25_013, 441),
    (Geometry(8, 4, 0), 60_001, 480),
    (Geometry(16, 8, 2), 90_007, 1000),
    (Geometry(64, 32, 16), 230_017, 7919),
    (Geometry(128, 64, 32), 400_009, 65_537),
    (Geometry(249, 1, 0), 520_021, 333),
    (Geometry(200, 30, 20), 620_003, 300_007),
    (Geometry(8, 4, 0), 3001, 17),  # ends before the first run
]


class Options(ctypes.Structure):
    """tonwerk_stream_options"""

    _fields_ = [(name, ctypes.c_uint32) for name in ("size", "stems", "step", "lookahead", "blend")]


class Library:
    """The functions of tonwerk_c.h; a status that is not TONWERK_OK ends the program with its sentence."""

    def __init__(self, path: Path) -> None:
        self.functions = ctypes.CDLL(str(path.resolve()))
        self.functions.tonwerk_last_error.restype = ctypes.c_char_p
        for name in ("available", "latency", "frames_until_result"):
            getattr(self.functions, f"tonwerk_stream_{name}").restype = ctypes.c_uint64

    def call(self, name: str, *arguments: object) -> None:
        if getattr(self.functions, f"tonwerk_{name}")(*arguments) != 0:
            sys.exit(f"tonwerk_{name}: {self.functions.tonwerk_last_error().decode()}")

    def ask(self, name: str, stream: ctypes.c_void_p) -> int:
        return getattr(self.functions, f"tonwerk_stream_{name}")(stream)


def pointer_to(samples: np.ndarray) -> ctypes.c_void_p:
    return ctypes.c_void_p(samples.ctypes.data)


class Stream:
    """A stream that pushes blocks of one size and reads all that comes, both channel by channel."""

    def __init__(self, library: Library, model: bytes, geometry: Geometry) -> None:
        self.library = library
        self.handle = ctypes.c_void_p()
        context = ctypes.c_void_p()
        library.call("context_open", model, ctypes.c_size_t(len(model)), None, ctypes.byref(context))
        options = Options(ctypes.sizeof(Options), 0x3F, geometry.step, geometry.lookahead, geometry.blend)
        library.call("stream_open", context, ctypes.byref(options), ctypes.byref(self.handle))
        library.functions.tonwerk_context_destroy(context)  # the stream keeps the model
        self.pieces: list[np.ndarray] = []
        self.pushed = self.returned = 0

    def push(self, block: np.ndarray) -> Iterator[str]:
        left, right = (np.ascontiguousarray(channel) for channel in block)
        frames = left.size
        announced = self.library.ask("frames_until_result", self.handle)
        before = self.returned
        self.library.call("stream_push_planar", self.handle, pointer_to(left), pointer_to(right),
                          ctypes.c_size_t(frames))
        self.pushed += frames
        self._read()
        if (self.returned > before) != (frames >= announced):
            yield f"a push of {frames} frames returned {self.returned - before}, a result was due in {announced}"
        if self.pushed - self.returned > self.library.ask("latency", self.handle):
            yield f"{self.pushed - self.returned} frames are held after {self.pushed}: more than the latency"

    def finish(self) -> dict[str, np.ndarray]:
        self.library.call("stream_flush", self.handle)
        self._read()
        self.library.functions.tonwerk_stream_destroy(self.handle)
        whole = np.concatenate(self.pieces, axis=1)
        return {name: whole[2 * stem:2 * stem + 2] for stem, name in enumerate(NAMES)}

    def _read(self) -> None:
        frames = self.library.ask("available", self.handle)
        piece = np.empty((2 * len(NAMES), frames), np.float32)
        rows = (ctypes.c_void_p * len(piece))(*(row.ctypes.data for row in piece))
        count = ctypes.c_size_t()
        self.library.call("stream_read_planar", self.handle, rows, ctypes.c_size_t(frames), ctypes.byref(count))
        self.pieces.append(piece[:, :count.value])
        self.returned += count.value


def problems_of(library: Library, models: Path, seed: int) -> Iterator[str]:
    for geometry, length, block in CASES:
        signal = noise_with_impulses(length, seed)
        for kind in ("frame_mask", "neighbours"):
            name = f"{kind}, {geometry}, {length} frames in blocks of {block}, seed {seed}"
            stream = Stream(library, (models / f"{kind}.onnx").read_bytes(), geometry)
            for first in range(0, length, block):
                yield from (f"{name}: {problem}" for problem in stream.push(signal[:, first:first + block]))
            expected = offline_reference.separate(signal.astype(float), kind, geometry)
            results = stream.finish()
            worst = max(np.abs(results[stem] - expected[stem]).max() for stem in NAMES
                        if results[stem].shape == expected[stem].shape)
            print(f"{name}: largest difference {worst:.1e}", flush=True)
            yield from differences(name, results, expected, ROUNDING)


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("library", type=Path)
    parser.add_argument("models", type=Path)
    options = parser.parse_args()
    problems = list(problems_of(Library(options.library), options.models, options.seed))
    print(*problems, sep="\n")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
