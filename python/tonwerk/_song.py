# SPDX-License-Identifier: MIT
"""A whole song on its way through a model, at the song's own sample rate and with its own channels."""

from collections.abc import Iterable

import numpy as np
import soxr

from tonwerk import _stems, errors
from tonwerk.models import Model
from tonwerk.streams import Samples, Stems, Stream

# Its pass band ends at 0.95 of the lower rate's half, and its errors lie at those of 28 bits.
_CONVERSION = "VHQ"


class Fifo:
    """Frames that wait: arrays of shape (frames, channels), joined only where they must be."""

    def __init__(self) -> None:
        self._blocks: list[Samples] = []
        self.frames = 0

    def push(self, block: Samples) -> None:
        """Takes a copy, as the caller may use its buffer again."""
        self._blocks.append(block.copy())
        self.frames += len(block)

    def pop(self, frames: int, channels: int) -> Samples:
        """The oldest frames; silence where there are fewer."""
        joined = np.concatenate(self._blocks) if self._blocks else np.zeros((0, channels), np.float32)
        taken, rest = joined[:frames], joined[frames:]
        self._blocks = [rest] if len(rest) else []
        self.frames = len(rest)
        return np.pad(taken, ((0, frames - len(taken)), (0, 0)))


class SongStream:
    """Separates one song in blocks of any size.

    What goes in has the song's rate and one or two channels; so has what comes out, sample-aligned and of equal length.
    At another rate than the model's, the stems are converted back, and residual and mix are made of them at the song's
    rate: the six and the residual add up to the song.
    """

    def __init__(self, model: Model, quality: str, stems: Iterable[str] | None, sample_rate: int,
                 channels: int) -> None:
        """Raises ValueError for a rate or a number of channels that cannot be separated, and what Stream raises."""
        if not 1000 <= sample_rate <= 768_000:
            raise ValueError(f"A sample rate of {sample_rate} Hz cannot be separated.")
        if channels not in (1, 2):
            raise ValueError(f"Sound of {channels} channels cannot be separated: it must be mono or stereo.")
        self._channels = channels
        self._stream = Stream(model, quality, stems)
        self.stems = self._stream.stems
        self.null_peak = 0.0
        """The largest value of the six + residual - input, of what the library got and returned: rounding noise."""
        self._rates = sample_rate, model.sample_rate
        # The library's residual is read in any case, for the null test.
        self._asked = _stems.asked_of_model(self.stems)
        self._stream.stems = _stems.checked({*self._asked, *self.stems, _stems.RESIDUAL})
        self._given, self._waiting, self._back = Fifo(), Fifo(), Fifo()
        if self._converts:
            self._in = soxr.ResampleStream(sample_rate, model.sample_rate, 2, dtype="float32", quality=_CONVERSION)
            self._out = soxr.ResampleStream(model.sample_rate, sample_rate, 2 * len(self._asked), dtype="float32",
                                            quality=_CONVERSION)

    @property
    def _converts(self) -> bool:
        return self._rates[0] != self._rates[1]

    @property
    def frames_until_result(self) -> int:
        """About so many frames until the model runs: a good size for the next block; at least 1."""
        wanted = self._stream.frames_until_result * self._rates[0] // self._rates[1]
        return max(1, wanted)

    def feed(self, block: Samples) -> Stems:
        """Takes float32 of shape (frames, channels), and returns the stems of the frames that are completed."""
        stereo = np.repeat(block, 2, axis=1) if self._channels == 1 else block
        if self._converts:
            self._waiting.push(stereo)
            stereo = self._in.resample_chunk(stereo)
        self._push(stereo)
        return self._result(self._read(), last=False)

    def finish(self) -> Stems:
        """Ends the song, and returns the stems of all frames that are left.

        Raises StreamFailedError if the model failed anywhere in the song.
        """
        if self._converts:
            self._push(self._in.resample_chunk(np.zeros((0, 2), np.float32), last=True))
        self._stream.flush()
        stems = self._read()
        info = self._stream.info
        if info.failed_runs:
            raise errors.StreamFailedError(f"The model failed in {info.failed_runs} of its {info.runs} runs.")
        return self._result(stems, last=True)

    def close(self) -> None:
        """Gives the stream back."""
        self._stream.close()

    def cancel(self) -> None:
        """Ends a call that is under way on another thread."""
        self._stream.cancel()

    def _push(self, stereo: Samples) -> None:
        self._given.push(stereo)
        self._stream.push(stereo)

    def _read(self) -> Stems:
        stems = self._stream.read()
        frames = len(stems[_stems.RESIDUAL])
        if frames:
            rest = self._given.pop(frames, 2).astype(np.float64)
            for stem in (*self._asked, _stems.RESIDUAL):
                rest -= stems[stem]
            self.null_peak = max(self.null_peak, float(np.abs(rest).max()))
        return stems

    def _result(self, stems: Stems, last: bool) -> Stems:
        if self._converts:
            stems = self._converted(stems, last)
        if self._channels == 1:
            return {stem: stems[stem].mean(axis=1, keepdims=True, dtype=np.float32) for stem in self.stems}
        return {stem: stems[stem] for stem in self.stems}

    def _converted(self, stems: Stems, last: bool) -> Stems:
        """The same at the song's rate. Conversion there and back may end a frame early or late, hence `last`."""
        rows = np.concatenate([stems[stem] for stem in self._asked], axis=1)
        channels = rows.shape[1]
        self._back.push(self._out.resample_chunk(rows, last=last))
        frames = self._waiting.frames if last else min(self._back.frames, self._waiting.frames)
        song, rows = self._waiting.pop(frames, 2), self._back.pop(frames, channels)
        result = {stem: np.ascontiguousarray(rows[:, 2 * place:2 * place + 2])
                  for place, stem in enumerate(self._asked)}
        if not {_stems.RESIDUAL, _stems.MIX}.isdisjoint(self.stems):
            mix = np.sum(list(result.values()), axis=0, dtype=np.float64)
            result[_stems.MIX] = mix.astype(np.float32)
            result[_stems.RESIDUAL] = (song - mix).astype(np.float32)
        return result

