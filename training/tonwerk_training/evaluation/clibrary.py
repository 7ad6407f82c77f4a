# SPDX-License-Identifier: MIT
"""Streams of the C interface, with ctypes: whole signals through a model in any geometry."""

import ctypes
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from stream_contract import ALL_STEMS, CHANNELS, HOP, STEMS

from ..data.stft import SAMPLE_RATE

ROWS = CHANNELS * len(ALL_STEMS)


class LibraryError(RuntimeError):
    """A call failed; the library's sentence is the message."""


@dataclass(frozen=True)
class Geometry:
    """step, lookahead, blend of a stream, in steps of 1,024 frames (include/tonwerk/tonwerk_c.h tells what they do)."""

    step: int
    lookahead: int
    blend: int

    @property
    def latency(self) -> float:
        """Seconds that are held back at most."""
        return (self.step + self.lookahead + self.blend + 3) * HOP / SAMPLE_RATE

    def __str__(self) -> str:
        return f"{self.step}, {self.lookahead}, {self.blend}"


class _ContextOptions(ctypes.Structure):
    """tonwerk_context_options"""

    _fields_ = [("size", ctypes.c_uint32), ("flags", ctypes.c_uint32), ("threads", ctypes.c_uint32),
                ("provider", ctypes.c_int32), ("log_level", ctypes.c_int32), ("reserved", ctypes.c_uint32),
                ("log", ctypes.c_void_p), ("log_user", ctypes.c_void_p), ("key", ctypes.c_void_p),
                ("key_size", ctypes.c_size_t)]


class _StreamOptions(ctypes.Structure):
    """tonwerk_stream_options"""

    _fields_ = [(name, ctypes.c_uint32) for name in ("size", "stems", "step", "lookahead", "blend")]


class CModel:
    """A model in libtonwerk_c, on the processor."""

    def __init__(self, library: Path, model: Path, threads: int = 2) -> None:
        self.functions = ctypes.CDLL(str(library))
        self.functions.tonwerk_last_error.restype = ctypes.c_char_p
        for name in ("available", "latency", "frames_until_result"):
            getattr(self.functions, f"tonwerk_stream_{name}").restype = ctypes.c_uint64
        cpu, silent = 1, 1
        options = _ContextOptions(ctypes.sizeof(_ContextOptions), 0, threads, cpu, silent)
        content = model.read_bytes()
        self.context = ctypes.c_void_p()
        self._call("context_open", content, ctypes.c_size_t(len(content)), ctypes.byref(options),
                   ctypes.byref(self.context))

    def separate(self, signal: np.ndarray, geometry: Geometry) -> tuple[dict[str, np.ndarray], list[int]]:
        """signal: float32 [2, samples]. Returns ({stem: float32 [2, samples]}, with residual and mix; the positions at
        which the result of one run ends and that of the next one begins)."""
        stream = ctypes.c_void_p()
        options = _StreamOptions(ctypes.sizeof(_StreamOptions), (1 << len(STEMS)) - 1, geometry.step,
                                 geometry.lookahead, geometry.blend)
        self._call("stream_open", self.context, ctypes.byref(options), ctypes.byref(stream))
        try:
            pieces = [np.zeros((ROWS, 0), np.float32)]
            position = 0
            while position < signal.shape[1]:
                count = min(signal.shape[1] - position, self._ask("frames_until_result", stream))
                left, right = (np.ascontiguousarray(row) for row in signal[:, position:position + count])
                self._call("stream_push_planar", stream, _pointer(left), _pointer(right), ctypes.c_size_t(count))
                position += count
                pieces.append(self._read(stream))
            self._call("stream_flush", stream)
            joins = np.cumsum([piece.shape[1] for piece in pieces if piece.shape[1]]).tolist()
            pieces.append(self._read(stream))
        finally:
            self.functions.tonwerk_stream_destroy(stream)
        whole = np.concatenate(pieces, axis=1)
        return {stem: whole[CHANNELS * row:CHANNELS * (row + 1)] for row, stem in enumerate(ALL_STEMS)}, joins

    def _read(self, stream: ctypes.c_void_p) -> np.ndarray:
        piece = np.empty((ROWS, self._ask("available", stream)), np.float32)
        rows = (ctypes.c_void_p * ROWS)(*(row.ctypes.data for row in piece))
        count = ctypes.c_size_t()
        self._call("stream_read_planar", stream, rows, ctypes.c_size_t(piece.shape[1]), ctypes.byref(count))
        return piece

    def _call(self, name: str, *arguments: object) -> None:
        if getattr(self.functions, f"tonwerk_{name}")(*arguments) != 0:
            raise LibraryError(self.functions.tonwerk_last_error().decode())

    def _ask(self, name: str, stream: ctypes.c_void_p) -> int:
        return int(getattr(self.functions, f"tonwerk_stream_{name}")(stream))


def _pointer(samples: np.ndarray) -> ctypes.c_void_p:
    return ctypes.c_void_p(samples.ctypes.data)
