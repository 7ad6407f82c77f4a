# SPDX-License-Identifier: MIT
"""Loaded models."""

import ctypes
import functools
import hashlib
import os
import threading
import weakref
from collections.abc import Mapping
from pathlib import Path
from types import MappingProxyType
from typing import Any

import numpy as np

from tonwerk import _library, errors
from tonwerk._stems import MODEL_STEMS

PROVIDERS = ("automatic", "cpu", "directml", "cuda", "rocm")
"""What can run a model, as the C interface numbers it."""

ENTRIES = ("name", "license", "source", "authors", "training_data", "stems", "sample_rate", "rows", "converted_from",
           "notes")
"""The entries of a passport."""

MODEL_VARIABLE = "TONWERK_MODEL"
"""The environment variable that names the default model."""

_DEFAULTS = ("tonwerk-standard.onnx", "tonwerk-small.onnx")


def default_model() -> Path:
    """The file of the model that is used where none is named: that of TONWERK_MODEL, else the wheel's.

    Raises ModelError if there is none.
    """
    named = os.environ.get(MODEL_VARIABLE)
    for path in [Path(named)] if named else [_library.FILES / name for name in _DEFAULTS]:
        if path.is_file():
            return path
    raise errors.ModelError(f"There is no default model: name one, or put its file into {MODEL_VARIABLE}." if not named
                            else f"{MODEL_VARIABLE} names the model {named}, which does not exist.")


class Model:
    """A loaded model, for any number of streams; of those only one runs it at a time.

    A model is pickled as its path and options, and loaded anew where it is unpickled, so that workers can have one
    each. The scrambling key stands in the pickle as it is. A model given as bytes cannot be pickled.
    """

    def __init__(self, source: str | os.PathLike[str] | bytes | None = None, *, key: str | bytes = b"",
                 threads: int = 0, provider: str = "automatic") -> None:
        """Loads a model, which takes up to some seconds.

        source: a file, the serialized ONNX model itself, or None for the default model.
        key: the scrambling key; empty if the model is plain.
        threads: that compute a run, the calling one among them; 0 for one per processor.
        provider: one of PROVIDERS. One that is named is used or refused.

        Raises FileNotFoundError and other OSErrors, ModelError, ProviderError, MemoryError, ValueError.
        """
        if provider not in PROVIDERS:
            raise ValueError(f"There is no provider {provider!r}; there are {', '.join(PROVIDERS)}.")
        if not 0 <= threads <= 1024:
            raise ValueError("threads must be from 0 to 1024.")
        self._key = key.encode() if isinstance(key, str) else bytes(key)
        self._choice = {"threads": threads, "provider": provider}
        self._bytes = source if isinstance(source, bytes) else None
        named = default_model() if source is None else source
        self._path = None if isinstance(named, bytes) else Path(named).absolute()
        self._library = _library.library()
        self._process = os.getpid()
        self._handle = self._open()
        self._close = weakref.finalize(self, _library.give_back, self._library, "context_destroy", self._handle,
                                        self._process)
        info = _library.ContextInfo()
        self._library.call("context_get_info", self._handle, ctypes.byref(info))
        self._info = info

    def _open(self) -> ctypes.c_void_p:
        options = _library.ContextOptions(
            threads=self._choice["threads"], provider=PROVIDERS.index(str(self._choice["provider"])),
            log=_library.forward_log, key=self._key or None, key_size=len(self._key))
        handle = ctypes.c_void_p()

        try:
            content = self._content()
            self._library.call("context_open", content.ctypes.data, content.size, ctypes.byref(options),
                               ctypes.byref(handle))
        except errors.ModelError as failure:
            raise errors.ModelError(f"{self._path}: {failure}" if self._path else str(failure)) from None
        return handle

    def _content(self) -> np.ndarray[Any, np.dtype[np.uint8]]:
        """The model's bytes, where they lie."""
        if self._bytes is not None:
            return np.frombuffer(self._bytes, np.uint8)
        if os.path.getsize(self._path or "") == 0:
            return np.zeros(0, np.uint8)  # which cannot be mapped
        return np.memmap(self._path or "", np.uint8, "r")

    @property
    def path(self) -> Path | None:
        """The model's file; None if it was given as bytes."""
        return self._path

    @property
    def provider(self) -> str:
        """What runs the model: one of PROVIDERS, never "automatic"."""
        return PROVIDERS[self._info.provider]

    @property
    def threads(self) -> int:
        """Threads that compute a run; 0: one per processor."""
        return int(self._info.threads)

    @property
    def sample_rate(self) -> int:
        """In Hz, what the model was made for. Streams want sound of this rate."""
        return int(self._info.sample_rate)

    @property
    def stems(self) -> tuple[str, ...]:
        """The stems that the model really gives, by its passport; all six if that says nothing."""
        return tuple(stem for number, stem in enumerate(MODEL_STEMS) if self._info.stems >> number & 1)

    @property
    def rows(self) -> int:
        """The most that step, lookahead, blend and 5 of a stream may come to."""
        return int(self._info.rows)

    @functools.cached_property
    def passport(self) -> Mapping[str, str]:
        """What the file says of the network: those of ENTRIES that it has. Nobody has checked these claims."""
        found = {entry: self._library.ask("context_metadata", self._handle, f"tonwerk.{entry}".encode())
                 for entry in ENTRIES}
        return MappingProxyType({entry: text.decode(errors="replace") for entry, text in found.items()
                                 if text is not None})

    @functools.cached_property
    def sha256(self) -> str:
        """SHA-256 of the model's bytes as they were given, in hexadecimal digits."""
        if self._path is None:
            return hashlib.sha256(self._bytes or b"").hexdigest()
        with open(self._path, "rb") as file:
            return hashlib.file_digest(file, "sha256").hexdigest()

    def open_stream(self, options: _library.StreamOptions) -> ctypes.c_void_p:
        """A handle of the C interface, which keeps the model; for Stream alone."""
        return self._opened("stream_open", options)

    def open_live(self, options: _library.LiveOptions) -> ctypes.c_void_p:
        """As open_stream; for Live alone."""
        return self._opened("live_open", options)

    def _opened(self, function: str, options: _library.Record) -> ctypes.c_void_p:
        if os.getpid() != self._process:
            raise RuntimeError("A model does not survive fork(), which leaves its threads behind: load it in the new "
                               "process, or start processes by multiprocessing's method \"spawn\".")
        handle = ctypes.c_void_p()
        self._library.call(function, self._handle, ctypes.byref(options), ctypes.byref(handle))
        return handle

    def __reduce__(self) -> tuple[Any, ...]:
        if self._path is None:
            raise TypeError("A model that was given as bytes cannot be pickled: load it from a file.")
        return _unpickled, (str(self._path), self._key, self._choice)

    def __repr__(self) -> str:
        name = self.passport.get("name") or (self._path.name if self._path else "bytes")
        return f"<tonwerk.Model {name!r}, {self.provider}>"


def _unpickled(path: str, key: bytes, choice: dict[str, Any]) -> Model:
    return Model(path, key=key, **choice)


@functools.lru_cache(maxsize=2)
def _shared(path: Path) -> Model:
    return Model(path)


_sharing = threading.Lock()


def as_model(model: "Model | str | os.PathLike[str] | bytes | None") -> Model:
    """The model itself, or loads it. The last two that were named by their paths are kept for the next calls."""
    if isinstance(model, Model):
        return model
    if isinstance(model, bytes):
        return Model(model)
    with _sharing:
        return _shared(Path(default_model() if model is None else model).absolute())
