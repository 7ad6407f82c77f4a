# SPDX-License-Identifier: MIT
"""One song: from the manifest's line to its receipt."""

import tempfile
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import tonwerk
from tonwerk._song import SongStream
from tonwerk.catalogue.failures import PassingError, PermanentError, classified
from tonwerk.catalogue.manifest import Song, folder_of
from tonwerk.catalogue.meters import Meter, decibels
from tonwerk.catalogue.options import Options
from tonwerk.catalogue.store import FAILURE, RECEIPT, Store, fetch, input_version, sha256_of
from tonwerk.files import SongFile, StemFile, common_gain
from tonwerk.models import Model

Record = dict[str, Any]

# A worker whose machine is the reason waits before it gives the song back, so that another one gets it.
_PAUSE_SECONDS = 1.0


@dataclass(frozen=True)
class Task:
    """What a worker is told besides the song."""

    output: str
    options: Options
    replace: bool = False
    """Makes a result anew that was made by another model or with other options, or that failed for good."""
    scratch: str | None = None
    """A folder of the worker's machine; None: the system's for temporary files."""


@dataclass
class Outcome:
    """How an attempt ended: a row of the ledger."""

    id: str
    state: str
    """"done", "skipped" (was done before), "failed" (for good)."""
    reason: str = ""
    seconds: float = 0.0
    """Of sound."""
    processing_seconds: float = 0.0
    bytes: int = 0
    """Written."""


class Worker:
    """A loaded model and a store; for any number of songs, one after the other."""

    def __init__(self, model: Model, task: Task) -> None:
        self._model = model
        self._task = task
        self._store = Store(task.output)

    def separate(self, song: Song) -> Outcome:
        """Makes the song's results, unless they are there.

        A song that cannot be separated is an outcome, too. Raises PassingError for what another try may mend.
        """
        begin = time.monotonic()
        try:
            folder = folder_of(song.id)
            receipt = self._store.read_json(f"{folder}/{RECEIPT}")
            failure = None if receipt else self._store.read_json(f"{folder}/{FAILURE}")
            outcome = self._known(song, receipt, failure) or self._made(song, receipt, failure)
        except Exception as reason:
            kind = classified(song.id, reason)
            if isinstance(kind, PassingError):
                time.sleep(_PAUSE_SECONDS)
                raise kind from reason
            self._record_failure(song, str(kind))
            outcome = Outcome(song.id, "failed", str(kind))
        outcome.processing_seconds = round(time.monotonic() - begin, 3)
        return outcome

    def _known(self, song: Song, receipt: Record | None, failure: Record | None) -> Outcome | None:
        """What an earlier attempt has come to, if it was about the same song, model and options.

        Raises PermanentError if there is a result of others, which nobody asked to replace.
        """
        if receipt is not None:
            if self._is_about(receipt, song):
                return Outcome(song.id, "skipped", seconds=receipt["input"]["seconds"])
            if not self._task.replace:
                raise PermanentError(
                    f"{song.id}: there is a result of another song file, model or other options already. Choose "
                    "another output, or replace it with --replace.")
        if failure is not None and not self._task.replace and self._is_about(failure, song):
            return Outcome(song.id, "failed", failure["reason"])
        return None

    def _is_about(self, record: Record, song: Song) -> bool:
        if record["model"]["sha256"] != self._model.sha256 or record["options"] != self._task.options.described():
            return False
        known = record["input"]
        if song.sha256 is not None and known.get("sha256") is not None:
            return bool(known["sha256"] == song.sha256)
        return bool(known["uri"] == song.uri and known["version"] == input_version(song.uri))

    def _record_failure(self, song: Song, reason: str) -> None:
        """So that the next run knows it. Beside a receipt it would contradict, none is written."""
        folder = folder_of(song.id)
        try:
            if self._store.read_json(f"{folder}/{RECEIPT}") is None:
                self._store.put_json(f"{folder}/{FAILURE}", {
                    "id": song.id, "reason": reason, "model": {"sha256": self._model.sha256},
                    "options": self._task.options.described(),
                    "input": {"uri": song.uri, "sha256": song.sha256, "version": _version_if_there(song.uri)}})
        except OSError as failure:
            raise PassingError(f"{song.id}: {failure}") from failure

    def _made(self, song: Song, receipt: Record | None, failure: Record | None) -> Outcome:
        with tempfile.TemporaryDirectory(prefix="tonwerk-", dir=self._task.scratch) as name:
            scratch = Path(name)
            source = scratch / "song"
            sha256, size, version = fetch(song.uri, source)
            if song.sha256 not in (None, sha256):
                raise PermanentError(f"{song.id}: {song.uri} is not the file of the manifest: its SHA-256 is {sha256}.")
            made = SongResult(song, source, scratch, self._model, self._task.options)
            new = made.receipt({"uri": song.uri, "sha256": sha256, "bytes": size, "version": version})
            folder = folder_of(song.id)
            self._commit(folder, made, new)
        if failure is not None:
            self._store.remove(f"{folder}/{FAILURE}")
        if receipt is not None and receipt["key"] != new["key"]:
            for track in receipt["tracks"].values():
                self._store.remove(f"{folder}/{track['file']}")
        written = sum(track["bytes"] for track in new["tracks"].values())
        return Outcome(song.id, "done", seconds=new["input"]["seconds"], bytes=written)

    def _commit(self, folder: str, made: "SongResult", receipt: Record) -> None:
        """The stems first, into a folder of the result's key; then the receipt that points there. Two workers on one
        song write the same, and what the receipt replaces stays whole until then."""
        for stem, target in made.files.items():
            self._store.put_file(target.path, f"{folder}/{receipt['tracks'][stem]['file']}")
        self._store.put_json(f"{folder}/{RECEIPT}", receipt)
        self._store.clear_partials(folder)


class SongResult:
    """The stems of one song, as files in a scratch folder, with what was measured of them."""

    def __init__(self, song: Song, source: Path, scratch: Path, model: Model, options: Options) -> None:
        """Separates the song. Raises PermanentError, AudioError, StreamFailedError, OSError."""
        self._song, self._model, self._options = song, model, options
        file = SongFile(source, song.uri)
        try:
            self.seconds = file.frames / file.sample_rate
            if self.seconds > options.longest_seconds:
                raise PermanentError(f"{song.id}: it lasts {self.seconds:.0f} s, and {options.longest_seconds:.0f} s "
                                     "are the most (--longest).")
            if file.frames == 0:
                raise PermanentError(f"{song.id}: it has no samples.")
            self._facts = {"sample_rate": file.sample_rate, "channels": file.channels}
            self._separate(file, scratch)
        finally:
            file.close()

    def _separate(self, file: SongFile, scratch: Path) -> None:
        options = self._options
        ending = tonwerk.FORMATS[options.format][0]
        stream = SongStream(self._model, options.quality, options.stems, file.sample_rate, file.channels)
        self.files = {stem: StemFile(scratch / f"{stem}.{ending}", file.sample_rate, file.channels, file.frames,
                                     options.format) for stem in stream.stems}
        self._meters = {stem: Meter(file.sample_rate, file.channels) for stem in stream.stems}
        try:
            self.frames = self._stream(file, stream)
            self.gain = common_gain((target.peak for target in self.files.values()), options.format)
            for target in self.files.values():
                target.finish(self.gain, file.tags)
                target.commit()
        except BaseException:
            for target in self.files.values():
                target.discard()
            raise
        finally:
            stream.close()
        self._null_peak = stream.null_peak

    def _stream(self, file: SongFile, stream: SongStream) -> int:
        read = written = 0
        while True:
            block = file.read(stream.frames_until_result)
            read += len(block)
            stems = stream.feed(block) if len(block) else stream.finish()
            for stem, samples in stems.items():
                self.files[stem].write(samples)
                self._meters[stem].feed(samples)
            written += len(next(iter(stems.values())))
            if not len(block):
                break
        file.check_complete(read)
        if written != read:
            raise tonwerk.StreamFailedError(f"{written} frames came back for {read}.")
        return read

    def receipt(self, source: Record) -> Record:
        """All that is known, the same for every attempt: nothing of times and machines."""
        key = self._options.key(source["sha256"], self._model.sha256)
        tracks = {stem: {"file": f"{key[:16]}/{target.path.name}", "bytes": target.path.stat().st_size,
                         "sha256": sha256_of(target.path), **self._meters[stem].described(self.gain)}
                  for stem, target in self.files.items()}
        return {"program": "tonwerk-catalogue", "version": tonwerk.__version__, "id": self._song.id, "key": key,
                "input": {**source, **self._facts, "frames": self.frames,
                          "seconds": round(self.frames / self._facts["sample_rate"], 6)},
                "model": {"sha256": self._model.sha256, "passport": dict(self._model.passport)},
                "options": self._options.described(), "gain_db": decibels(self.gain),
                "null_test_dbfs": decibels(self._null_peak), "tracks": tracks}


def _version_if_there(uri: str) -> str | None:
    try:
        return input_version(uri)
    except OSError:
        return None

