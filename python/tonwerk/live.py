# SPDX-License-Identifier: MIT
"""Separation in an audio callback."""

import ctypes
import os
import threading
import weakref
from collections.abc import Iterable, Mapping
from dataclasses import dataclass
from pathlib import Path
from types import TracebackType
from typing import Any

import numpy as np
from numpy.typing import ArrayLike

from tonwerk import _library, _stems
from tonwerk.models import Model, as_model, default_model
from tonwerk.streams import Samples, Stems, as_stereo, buffers_of, stream_options

_DRY = 1
_LIVE_MODEL = "tonwerk-live.onnx"


@dataclass(frozen=True)
class LiveInfo:
    """How a live object goes. The counts begin with the object."""

    block: int
    """The most frames that a call was announced to have."""
    latency: int
    """Frames from what is given to what comes out."""
    underruns: int
    """Calls in which frames were missing."""
    late_frames: int
    """Frames that were missing."""
    restarts: int
    """How often the worker was so far behind that it began anew."""
    runs: int
    """Runs of the model."""
    failed_runs: int
    """Those of them that failed: their stems are silent."""
    cancelled_runs: int
    """Runs that a reset, or falling behind, has ended."""
    last_run_seconds: float
    worst_run_seconds: float
    load: float
    """The share of its time that the worker needs: it keeps up as long as this is below 1."""


def default_live_model() -> Path:
    """The file of the model for small steps: the wheel's, or where it has none, the default model."""
    own = _library.FILES / _LIVE_MODEL
    return own if own.is_file() and not os.environ.get("TONWERK_MODEL") else default_model()


class Live:
    """Every call gives n frames and gets n frames of each stem, a constant time later: `latency` frames.

    A thread of the library's own runs the model, and a call only copies. Frames that the model has not finished in
    time are silent and counted, and what follows is in its place. The library's part of a call is wait-free; Python's
    is not, so a callback of Python's may come late for reasons of its own.

        with tonwerk.Live(stems=["vocals"], block=480) as live:
            def callback(indata, outdata, frames, time, status):        # of sounddevice
                outdata[:] = live.process(indata)["vocals"]
    """

    def __init__(self, model: Model | str | os.PathLike[str] | bytes | None = None, quality: str = "live",
                 stems: Iterable[str] | None = None, *, block: int = 1024, run_frames: int = 0, dry: bool = False,
                 step: int | None = None, lookahead: int = 0, blend: int = 0) -> None:
        """Starts the worker.

        model: one for small steps; None: `default_live_model()`.
        quality, stems, step, lookahead, blend: as for Stream.
        block: the most frames that a call will have, at most 65,536.
        run_frames: the time in frames that a run of the model may take; 0: one step.
        dry: where frames are missing, the residual has the input instead of silence.

        Raises ValueError and what Model raises.
        """
        self.model = as_model(default_live_model() if model is None else model)
        self.stems = _stems.checked((*self.model.stems, _stems.RESIDUAL) if stems is None else stems)
        stream = stream_options(quality, step, lookahead, blend)
        stream.stems = _stems.bits(_stems.asked_of_model(self.stems))
        options = _library.LiveOptions(flags=_DRY if dry else 0, block=block, run_frames=run_frames,
                                       stream=ctypes.pointer(stream))
        self._library = _library.library()
        self._turn = threading.RLock()
        self._handle = self.model.open_live(options)
        self._close = weakref.finalize(self, _library.give_back, self._library, "live_destroy", self._handle,
                                       os.getpid())

    def process(self, block: ArrayLike) -> Stems:
        """Gives a block of shape (frames, 2), and gets float32 of that shape for each of `stems`."""
        samples = as_stereo(block)
        result = dict(zip(self.stems, np.empty((len(self.stems), *samples.shape), np.float32)))
        self.process_into(samples, result)
        return result

    def process_into(self, block: ArrayLike, targets: Mapping[str, Samples]) -> int:
        """The same into contiguous float32 arrays of the block's shape. Returns how many frames were missing."""
        samples = np.ascontiguousarray(as_stereo(block))
        buffers, frames = buffers_of(targets, self.stems)
        if frames != len(samples):
            raise ValueError(f"The targets have {frames} frames and the block has {len(samples)}.")
        with self._turn:
            return int(self._library.ask("live_process", self._open_handle(), samples.ctypes.data,
                                         ctypes.byref(buffers), frames))

    def reset(self, position: int = 0) -> None:
        """Begins a new stream, for a seek or a stop: nothing of the former one is heard any more. The next block is at
        `position`, which only the property of that name uses."""
        with self._turn:
            self._library.ask("live_reset", self._open_handle(), position)

    def set_offline(self, offline: bool) -> None:
        """From now on a call waits for what would be missing, for work that is faster than it sounds."""
        with self._turn:
            self._library.ask("live_set_offline", self._open_handle(), int(offline))

    @property
    def position(self) -> int:
        """Of the next frame that comes out; the first stream starts with minus the latency."""
        return int(self._library.ask("live_position", self._open_handle()))

    @property
    def latency(self) -> int:
        """Frames from what is given to what comes out, always the same."""
        return int(self._library.ask("live_latency", self._open_handle()))

    @property
    def info(self) -> LiveInfo:
        """How it goes."""
        record = _library.LiveRecord()
        self._library.call("live_get_info", self._open_handle(), ctypes.byref(record))
        return LiveInfo(**{name: getattr(record, name) for name in LiveInfo.__dataclass_fields__})

    def close(self) -> None:
        """Ends the worker. A second call does nothing."""
        with self._turn:
            self._close()

    def _open_handle(self) -> ctypes.c_void_p:
        if not self._close.alive:
            raise ValueError("The live object is closed.")
        return self._handle

    def __enter__(self) -> "Live":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __reduce__(self) -> Any:
        raise TypeError("A live object cannot be pickled; its model can.")
