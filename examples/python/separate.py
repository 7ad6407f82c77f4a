#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Separates a WAV file into one WAV file per stem, through the C interface with ctypes and NumPy.

usage: separate.py LIBRARY MODEL.onnx SONG.wav FOLDER [PRESET]

LIBRARY is libtonwerk_c.so or tonwerk_c.dll. SONG.wav holds 16-bit stereo; so will the stems in FOLDER. PRESET is smooth
unless it is given: live, normal and best are others.
"""
import ctypes
import sys
import wave
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np

STEMS = ["vocals", "drum", "piano", "acoustic_guitar", "electric_guitar", "bass", "residual", "mix"]
BLOCK = 4410  # frames; any number will do

FloatPointer = ctypes.POINTER(ctypes.c_float)
Handle = ctypes.c_void_p


class ContextOptions(ctypes.Structure):
    """tonwerk_context_options; zeros are the defaults"""

    _fields_ = [("size", ctypes.c_uint32), ("flags", ctypes.c_uint32), ("threads", ctypes.c_uint32),
                ("provider", ctypes.c_int32), ("log_level", ctypes.c_int32), ("reserved", ctypes.c_uint32),
                ("log", ctypes.c_void_p), ("log_user", ctypes.c_void_p), ("key", ctypes.c_char_p),
                ("key_size", ctypes.c_size_t)]

    def __init__(self) -> None:
        errors_only = 2
        super().__init__(ctypes.sizeof(ContextOptions), log_level=errors_only)


class StreamOptions(ctypes.Structure):
    """tonwerk_stream_options"""

    _fields_ = [("size", ctypes.c_uint32), ("stems", ctypes.c_uint32), ("step", ctypes.c_uint32),
                ("lookahead", ctypes.c_uint32), ("blend", ctypes.c_uint32)]

    def __init__(self, stems: Sequence[str]) -> None:
        super().__init__(ctypes.sizeof(StreamOptions), sum(1 << STEMS.index(stem) for stem in stems))


class Library:
    """The functions of tonwerk_c.h; a status that is not TONWERK_OK becomes an exception."""

    def __init__(self, path: Path) -> None:
        self.functions = ctypes.CDLL(str(path))
        size = ctypes.c_size_t
        self._declare("preset", ctypes.c_char_p, ctypes.POINTER(StreamOptions))
        self._declare("context_open", ctypes.c_char_p, size, ctypes.POINTER(ContextOptions), ctypes.POINTER(Handle))
        self._declare("stream_open", Handle, ctypes.POINTER(StreamOptions), ctypes.POINTER(Handle))
        self._declare("stream_push", Handle, FloatPointer, size)
        self._declare("stream_flush", Handle)
        self._declare("stream_read", Handle, ctypes.POINTER(FloatPointer), size, ctypes.POINTER(size))
        for name in ("context_destroy", "stream_destroy"):
            self._declare(name, Handle, result=None)
        self._declare("stream_available", Handle, result=ctypes.c_uint64)
        self.functions.tonwerk_last_error.restype = ctypes.c_char_p

    def _declare(self, name: str, *arguments: Any, result: Any = ctypes.c_int32) -> None:
        function = getattr(self.functions, "tonwerk_" + name)
        function.argtypes = arguments
        function.restype = result

    def call(self, name: str, *arguments: Any) -> int:
        result = getattr(self.functions, "tonwerk_" + name)(*arguments)
        if name.endswith(("preset", "open", "push", "flush", "read")) and result != 0:
            raise RuntimeError(self.functions.tonwerk_last_error().decode())
        return result


class Stream:
    """Separates one stream of sound, given as float32 arrays of shape (frames, 2)."""

    def __init__(self, library: Library, model: bytes, stems: Sequence[str], preset: str) -> None:
        self.library = library
        self.handle = Handle()
        options = StreamOptions(stems)
        library.call("preset", preset.encode(), ctypes.byref(options))
        context = Handle()
        library.call("context_open", model, len(model), ctypes.byref(ContextOptions()), ctypes.byref(context))
        try:
            library.call("stream_open", context, ctypes.byref(options), ctypes.byref(self.handle))
        finally:
            library.call("context_destroy", context)  # the stream keeps the model

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, *_: object) -> None:
        self.library.call("stream_destroy", self.handle)

    def push(self, block: np.ndarray) -> None:
        block = np.ascontiguousarray(block, dtype=np.float32)
        self.library.call("stream_push", self.handle, block.ctypes.data_as(FloatPointer), len(block))

    def flush(self) -> None:
        self.library.call("stream_flush", self.handle)

    def read(self) -> np.ndarray:
        """All that is available, as an array of shape (8, frames, 2)."""
        frames = self.library.call("stream_available", self.handle)
        stems = np.empty((len(STEMS), frames, 2), dtype=np.float32)
        pointers = (FloatPointer * len(STEMS))(*(stem.ctypes.data_as(FloatPointer) for stem in stems))
        count = ctypes.c_size_t()
        self.library.call("stream_read", self.handle, pointers, frames, ctypes.byref(count))
        return stems[:, :count.value]


def to_pcm(samples: np.ndarray) -> bytes:
    return np.rint(np.clip(samples, -1.0, 32767 / 32768) * 32768).astype("<i2").tobytes()


def main() -> None:
    if len(sys.argv) not in (5, 6):
        sys.exit(__doc__)
    library, model, song, folder = map(Path, sys.argv[1:5])
    preset = sys.argv[5] if len(sys.argv) == 6 else "smooth"
    folder.mkdir(parents=True, exist_ok=True)
    with wave.open(str(song)) as source, Stream(Library(library), model.read_bytes(), STEMS[:6], preset) as stream:
        if (source.getnchannels(), source.getsampwidth()) != (2, 2):
            sys.exit(f"{song} is not 16-bit stereo.")
        targets = [wave.open(str(folder / f"{stem}.wav"), "wb") for stem in STEMS]  # noqa: SIM115
        for target in targets:
            target.setparams(source.getparams())
        while True:
            pcm = source.readframes(BLOCK)
            if pcm:
                stream.push(np.frombuffer(pcm, dtype="<i2").reshape(-1, 2) / 32768)
            else:
                stream.flush()
            for target, stem in zip(targets, stream.read()):
                target.writeframes(to_pcm(stem))
            if not pcm:
                break
        for target in targets:
            target.close()


if __name__ == "__main__":
    main()
