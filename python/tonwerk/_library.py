# SPDX-License-Identifier: MIT
"""The functions and records of tonwerk_c.h and tonwerk_live.h, by ctypes, which releases the interpreter's lock
during every call."""

import ctypes
import functools
import logging
import os
import sys
from ctypes import POINTER, c_char_p, c_double, c_float, c_int, c_int32, c_int64, c_size_t, c_uint32, c_uint64, c_void_p
from pathlib import Path
from typing import Any

from tonwerk import errors
from tonwerk._stems import STEMS

FILES = Path(__file__).parent / "native"
"""Where a wheel has the libraries and the models."""

VARIABLE = "TONWERK_LIBRARY"
"""The environment variable that names another library file."""

MAJOR = 1

FloatPointer = POINTER(c_float)
LogCallback = ctypes.CFUNCTYPE(None, c_void_p, c_int32, c_char_p)
log = logging.getLogger("tonwerk")
log.addHandler(logging.NullHandler())

_LEVELS = {2: logging.ERROR, 3: logging.WARNING, 4: logging.INFO, 5: logging.DEBUG}


class Record(ctypes.Structure):
    """A record of the C interface: begins with its size, and all that is not given is 0."""

    def __init__(self, **values: Any) -> None:
        super().__init__(**values)
        self.size = ctypes.sizeof(self)


class ContextOptions(Record):
    """tonwerk_context_options"""

    _fields_ = [("size", c_uint32), ("flags", c_uint32), ("threads", c_uint32), ("provider", c_int32),
                ("log_level", c_int32), ("reserved", c_uint32), ("log", LogCallback), ("log_user", c_void_p),
                ("key", c_char_p), ("key_size", c_size_t)]


class ContextInfo(Record):
    """tonwerk_context_info"""

    _fields_ = [("size", c_uint32), ("provider", c_int32), ("threads", c_uint32), ("sample_rate", c_uint32),
                ("stems", c_uint32), ("rows", c_uint32), ("model_size", c_uint64)]


class StreamOptions(Record):
    """tonwerk_stream_options"""

    _fields_ = [(name, c_uint32) for name in ("size", "stems", "step", "lookahead", "blend")]


class StreamRecord(Record):
    """tonwerk_stream_info"""

    _fields_ = [*((name, c_uint32) for name in ("size", "stems", "step", "lookahead", "blend", "reserved")),
                *((name, c_uint64) for name in ("latency", "frames_until_result", "available", "runs",
                                                "failed_runs")),
                ("last_run_seconds", c_double), ("worst_run_seconds", c_double)]


class LiveOptions(Record):
    """tonwerk_live_options"""

    _fields_ = [*((name, c_uint32) for name in ("size", "flags", "block", "run_frames")),
                ("stream", POINTER(StreamOptions))]


class LiveRecord(Record):
    """tonwerk_live_info"""

    _fields_ = [("size", c_uint32), ("block", c_uint32),
                *((name, c_uint64) for name in ("latency", "underruns", "late_frames", "restarts", "runs",
                                                "failed_runs", "cancelled_runs")),
                *((name, c_double) for name in ("last_run_seconds", "worst_run_seconds", "load"))]


StemBuffers = FloatPointer * len(STEMS)

# name: (what it returns, what it takes)
_FUNCTIONS: dict[str, tuple[Any, list[Any]]] = {
    "version": (c_char_p, []),
    "c_version": (c_uint32, []),
    "last_error": (c_char_p, []),
    "preset": (c_int32, [c_char_p, POINTER(StreamOptions)]),
    "preset_name": (c_char_p, [c_uint32]),
    "context_open": (c_int32, [c_void_p, c_size_t, POINTER(ContextOptions), POINTER(c_void_p)]),
    "context_get_info": (c_int32, [c_void_p, POINTER(ContextInfo)]),
    "context_metadata": (c_char_p, [c_void_p, c_char_p]),
    "context_destroy": (None, [c_void_p]),
    "stream_open": (c_int32, [c_void_p, POINTER(StreamOptions), POINTER(c_void_p)]),
    "stream_destroy": (None, [c_void_p]),
    "stream_push": (c_int32, [c_void_p, c_void_p, c_size_t]),
    "stream_push_planar": (c_int32, [c_void_p, c_void_p, c_void_p, c_size_t]),
    "stream_flush": (c_int32, [c_void_p]),
    "stream_reset": (c_int32, [c_void_p]),
    "stream_cancel": (None, [c_void_p]),
    "stream_available": (c_uint64, [c_void_p]),
    "stream_read": (c_int32, [c_void_p, POINTER(StemBuffers), c_size_t, POINTER(c_size_t)]),
    "stream_frames_until_result": (c_uint64, [c_void_p]),
    "stream_latency": (c_uint64, [c_void_p]),
    "stream_get_info": (c_int32, [c_void_p, POINTER(StreamRecord)]),
    "live_open": (c_int32, [c_void_p, POINTER(LiveOptions), POINTER(c_void_p)]),
    "live_destroy": (None, [c_void_p]),
    "live_process": (c_size_t, [c_void_p, c_void_p, POINTER(StemBuffers), c_size_t]),
    "live_reset": (None, [c_void_p, c_int64]),
    "live_position": (c_int64, [c_void_p]),
    "live_set_offline": (None, [c_void_p, c_int]),
    "live_latency": (c_uint64, [c_void_p]),
    "live_get_info": (c_int32, [c_void_p, POINTER(LiveRecord)]),
}

# By tonwerk_status.
_ERRORS: dict[int, type[Exception]] = {
    1: ValueError, 2: MemoryError, 3: errors.ModelError, 4: errors.StreamEndedError, 5: errors.StreamFailedError,
    6: errors.CancelledError, 7: errors.ProviderError}


class Library:
    """The loaded library."""

    def __init__(self, path: str) -> None:
        try:
            self._functions = ctypes.CDLL(path)
            version = self._declared("c_version", *_FUNCTIONS["c_version"])()
        except (OSError, AttributeError) as failure:
            raise errors.LibraryMissingError(
                f"The native library {path} cannot be loaded ({failure}). A wheel of tonwerk brings it; otherwise "
                f"the environment variable {VARIABLE} names it.") from failure
        if version >> 16 != MAJOR:
            raise errors.LibraryMissingError(
                f"{path} has version {version >> 16} of the C interface instead of {MAJOR}.")
        self._callables = {name: self._declared(name, *types) for name, types in _FUNCTIONS.items()}

    def _declared(self, name: str, result: Any, arguments: list[Any]) -> Any:
        function = getattr(self._functions, f"tonwerk_{name}")
        function.restype = result
        function.argtypes = arguments
        return function

    def ask(self, name: str, *arguments: Any) -> Any:
        """What the function tonwerk_`name` returns."""
        return self._callables[name](*arguments)

    def call(self, name: str, *arguments: Any) -> None:
        """Calls a function that returns a status; a failure becomes an exception with the library's sentence, which is
        kept for the calling thread."""
        status = self._callables[name](*arguments)
        if status != 0:
            sentence = self._callables["last_error"]().decode(errors="replace")
            raise _ERRORS.get(status, errors.TonwerkError)(sentence)


def _path() -> str:
    named = os.environ.get(VARIABLE)
    if named:
        return os.path.abspath(named)
    name = "tonwerk_c.dll" if sys.platform == "win32" else "libtonwerk_c.so.1"
    own = FILES / name
    return str(own) if own.exists() else name  # the system's, where there is one


@functools.cache
def library() -> Library:
    """The library, loaded on first use: that of TONWERK_LIBRARY, else the wheel's, else the system's."""
    return Library(_path())


def _forward(_: int | None, level: int, text: bytes) -> None:
    log.log(_LEVELS.get(level, logging.INFO), "%s", text.decode(errors="replace"))


forward_log = LogCallback(_forward)
"""Hands a line of the native log to the logger "tonwerk". Called from threads of the runtime, too."""


def give_back(library: Library, function: str, handle: c_void_p, process: int) -> None:
    """Destroys a handle, unless a fork() has left the runtime's threads in another process than this one."""
    if os.getpid() == process:
        library.ask(function, handle)
