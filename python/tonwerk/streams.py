# SPDX-License-Identifier: MIT
"""Separation of sound while it comes."""

import ctypes
import os
import threading
import weakref
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import dataclass
from types import TracebackType
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, NDArray

from tonwerk import _library, _stems
from tonwerk._interrupts import call_interruptibly
from tonwerk.models import Model, as_model

Samples = NDArray[np.float32]
Stems = dict[str, Samples]


@dataclass(frozen=True)
class StreamInfo:
    """How a stream goes. Lengths are in frames (samples per channel)."""

    step: int
    """The model runs once for so many steps of 1,024 frames."""
    lookahead: int
    """Of a run's answer, so many of the newest steps wait for the next run."""
    blend: int
    """Over so many steps a run's answer is faded into that of the next one."""
    latency: int
    """The most that is ever held back."""
    available: int
    """That can be read now."""
    frames_until_result: int
    """To push until the model runs next; 0 if the stream takes no more input."""
    runs: int
    """Runs of the model since the beginning or the last reset."""
    failed_runs: int
    """Those of them that failed, and left silence."""
    last_run_seconds: float
    worst_run_seconds: float


def presets() -> tuple[str, ...]:
    """The names for `quality`, by rising latency."""
    library = _library.library()
    names: list[str] = []
    while (name := library.ask("preset_name", len(names))) is not None:
        names.append(name.decode())
    return tuple(names)


def stream_options(quality: str, step: int | None, lookahead: int, blend: int) -> _library.StreamOptions:
    """The three numbers, or those of a preset. Raises ValueError for a preset that there is not."""
    options = _library.StreamOptions()
    if step is not None:
        options.step, options.lookahead, options.blend = step, lookahead, blend
    elif lookahead or blend:
        raise ValueError("lookahead and blend need a step.")
    elif quality not in presets():
        raise ValueError(f"There is no quality {quality!r}; there are {', '.join(presets())}.")
    else:
        _library.library().call("preset", quality.encode(), ctypes.byref(options))
    return options


def as_stereo(block: ArrayLike) -> Samples:
    """The block as float32 of shape (frames, 2), without a copy where it is that already.

    Raises TypeError for samples that are no floating-point numbers, ValueError for another shape.
    """
    samples = np.asarray(block)
    if not np.issubdtype(samples.dtype, np.floating):
        raise TypeError(f"Samples must be floating-point numbers, full scale at 1, and not {samples.dtype}.")
    if samples.ndim != 2 or samples.shape[1] != 2:
        raise ValueError(f"A block must have the shape (frames, 2), and not {samples.shape}.")
    return samples.astype(np.float32, copy=False)


def buffers_of(targets: Mapping[str, Samples], stems: Iterable[str]) -> tuple[Any, int]:
    """(the places for the stems as the C interface has them, their frames). Raises ValueError for other arrays than
    contiguous float32 of shape (frames, 2), all of one length, and for a stem that is not among `stems`."""
    lengths = {len(target) for target in targets.values()}
    if len(lengths) != 1:
        raise ValueError("The targets must be arrays of one length, and at least one.")
    buffers = _library.StemBuffers()
    for stem, target in targets.items():
        if target.dtype != np.float32 or target.shape[1:] != (2,) or not target.flags.carray:
            raise ValueError(f"The target for {stem} must be a contiguous float32 array of shape (frames, 2).")
        if stem not in stems:
            raise ValueError(f"The stream was not asked for {stem}.")
        buffers[_stems.STEMS.index(stem)] = ctypes.cast(target.ctypes.data, _library.FloatPointer)
    return buffers, lengths.pop()


class Stream:
    """One stream of stereo sound on its way through a model, in blocks of any size.

    What comes back is the same, bit for bit, for every way to cut the input. After n frames have been pushed, at least
    n - latency can be read. Sound must have the sample rate of the model (`Model.sample_rate`); `tonwerk.separate`
    converts others.

    Calls for one stream take turns; `cancel` alone may come at any time. The interpreter's lock is released while the
    library works, and Ctrl-C ends a model that is running: the stream is cancelled then.

        with tonwerk.Stream(quality="smooth", stems=["vocals"]) as stream:
            for stems in stream.process(blocks):
                play(stems["vocals"])
    """

    def __init__(self, model: Model | str | os.PathLike[str] | bytes | None = None, quality: str = "normal",
                 stems: Iterable[str] | None = None, *, step: int | None = None, lookahead: int = 0,
                 blend: int = 0) -> None:
        """Opens a stream.

        quality: one of `presets()`: "instant" has the lowest latency, "live" a low one for less work, "normal" the
            least work, "smooth" no audible joins of runs, "best" the most quality.
        stems: to read; None: those of the model and the residual. Residual (the input without the six) and mix (their
            sum) make the model give all six.
        step, lookahead, blend: instead of `quality`, in steps of 1,024 frames; see StreamInfo.

        Raises ValueError and what Model raises.
        """
        self.model = as_model(model)
        self.stems = _stems.checked((*self.model.stems, _stems.RESIDUAL) if stems is None else stems)
        options = stream_options(quality, step, lookahead, blend)
        options.stems = _stems.bits(_stems.asked_of_model(self.stems))
        self._library = _library.library()
        self._turn = threading.RLock()
        self._handle = self.model.open_stream(options)
        self._close = weakref.finalize(self, _library.give_back, self._library, "stream_destroy", self._handle,
                                       os.getpid())

    def push(self, block: ArrayLike) -> None:
        """Takes the next frames: floating-point numbers of shape (frames, 2).

        Float32 in the order of C (interleaved) or of Fortran (planar, as the transpose of an array of shape
        (2, frames)) is taken without a copy. Takes as long as a run of the model if that completes a step, else next to
        no time.

        Raises StreamEndedError after a flush, CancelledError, StreamFailedError, MemoryError.
        """
        samples = as_stereo(block)
        frames = len(samples)
        if samples.strides[0] == 4 and frames > 1:
            left, right = samples[:, 0], samples[:, 1]
            name, buffers = "stream_push_planar", [left.ctypes.data, right.ctypes.data]
        else:
            samples = np.ascontiguousarray(samples)
            name, buffers = "stream_push", [samples.ctypes.data]
        with self._turn:
            handle = self._open_handle()
            if frames >= self._library.ask("stream_frames_until_result", handle):
                call_interruptibly(lambda: self._library.call(name, handle, *buffers, frames), self.cancel)
            else:
                self._library.call(name, handle, *buffers, frames)

    def flush(self) -> None:
        """Ends the stream: all that is still held becomes available, so that as many frames come out as went in."""
        with self._turn:
            handle = self._open_handle()
            call_interruptibly(lambda: self._library.call("stream_flush", handle), self.cancel)

    def read(self, frames: int | None = None) -> Stems:
        """The oldest frames that have not been read: for each of `stems` float32 of shape (n, 2).

        frames: the most to read; None: all that is available.
        """
        with self._turn:
            wanted = self.available if frames is None else min(frames, self.available)
            block = np.empty((len(self.stems), wanted, 2), np.float32)
            result = dict(zip(self.stems, block))
            self.read_into(result)
            return result

    def read_into(self, targets: Mapping[str, Samples]) -> int:
        """Reads the oldest frames into arrays of the caller's, and returns how many.

        targets: for each stem a contiguous float32 array of shape (frames, 2), all of one length. All stems move on
            by these frames, those that are not among the targets too.
        """
        buffers, frames = buffers_of(targets, self.stems)
        count = ctypes.c_size_t()
        with self._turn:
            self._library.call("stream_read", self._open_handle(), ctypes.byref(buffers), frames, ctypes.byref(count))
        return count.value

    def process(self, blocks: Iterable[ArrayLike], size: int | None = None) -> Iterator[Stems]:
        """Pushes all blocks, flushes, and gives out the stems as they are completed.

        blocks: as for `push`, from a list, a generator, a file.
        size: frames of what is given out, of which only the last may have fewer; None: as many as there are.
        """
        if size is not None and size < 1:
            raise ValueError("size must be at least 1.")
        for block in blocks:
            self.push(block)
            yield from self._completed(size)
        self.flush()
        yield from self._completed(size)
        if self.available:
            yield self.read()

    def _completed(self, size: int | None) -> Iterator[Stems]:
        while self.available >= (size or 1):
            yield self.read(size)

    def reset(self) -> None:
        """Begins a new stream, whatever has become of the former one; what has not been read is gone."""
        with self._turn:
            self._library.call("stream_reset", self._open_handle())

    def cancel(self) -> None:
        """Ends a push or flush that is under way on another thread, soon also if the model is running: it and every
        later one raise CancelledError until a reset. May be called from any thread at any time."""
        if self._close.alive:
            self._library.ask("stream_cancel", self._handle)

    @property
    def available(self) -> int:
        """Frames that can be read now."""
        return int(self._library.ask("stream_available", self._open_handle()))

    @property
    def latency(self) -> int:
        """The most frames that are ever held back."""
        return int(self._library.ask("stream_latency", self._open_handle()))

    @property
    def frames_until_result(self) -> int:
        """Frames to push until the model runs next; 0 if the stream takes no more input."""
        return int(self._library.ask("stream_frames_until_result", self._open_handle()))

    @property
    def info(self) -> StreamInfo:
        """How the stream goes."""
        record = _library.StreamRecord()
        with self._turn:
            self._library.call("stream_get_info", self._open_handle(), ctypes.byref(record))
        return StreamInfo(**{name: getattr(record, name) for name in StreamInfo.__dataclass_fields__})

    def close(self) -> None:
        """Gives the stream back; what has not been read is gone. A second call does nothing."""
        with self._turn:
            self._close()

    def _open_handle(self) -> ctypes.c_void_p:
        if not self._close.alive:
            raise ValueError("The stream is closed.")
        return self._handle

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def __reduce__(self) -> Any:
        raise TypeError("A stream cannot be pickled; its model can.")
