# SPDX-License-Identifier: MIT
"""What a finished or half finished catalogue says: tables, checks, estimates."""

import csv
import random
import tempfile
import time
from collections.abc import Iterable, Iterator
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from tonwerk.catalogue.manifest import Song
from tonwerk.catalogue.meters import Meter
from tonwerk.catalogue.options import Options
from tonwerk.catalogue.store import FAILURE, LEDGER, RECEIPT, Store, fetch, sha256_of
from tonwerk.catalogue.worker import SongResult
from tonwerk.files import FORMATS, SongFile
from tonwerk.models import Model

_READERS = 16

# Rounding to 16 bits, with dither, moves the peak of a stem by so much, and its loudness by less than the last is wide.
_PEAK_STEPS = 2.5 * 2.0**-15
_LOUDNESS = 0.05


def records(store: Store) -> Iterator[tuple[str, dict[str, Any]]]:
    """(folder, receipt or record of a failure) of every song that has one; the receipt where there are both."""
    names = [name for name in store.sizes("") if name.endswith((f"/{RECEIPT}", f"/{FAILURE}"))
             and not name.startswith(f"{LEDGER}/")]
    done = {name.rpartition("/")[0] for name in names if name.endswith(RECEIPT)}
    chosen = sorted(name for name in names if name.endswith(RECEIPT) or name.rpartition("/")[0] not in done)
    with ThreadPoolExecutor(_READERS) as pool:
        for name, record in zip(chosen, pool.map(store.read_json, chosen)):
            if record is not None:
                yield name.rpartition("/")[0], record


def row_of(folder: str, record: dict[str, Any]) -> dict[str, Any]:
    """A line of the table."""
    source = record["input"]
    row = {"id": record["id"], "state": "failed" if "reason" in record else "done", "reason": record.get("reason", ""),
           "folder": folder, "uri": source["uri"], "sha256": source.get("sha256"), "seconds": source.get("seconds"),
           "sample_rate": source.get("sample_rate"), "channels": source.get("channels"),
           "null_test_dbfs": record.get("null_test_dbfs"), "gain_db": record.get("gain_db")}
    for stem, track in record.get("tracks", {}).items():
        row[f"{stem}_loudness_lufs"] = track["loudness_lufs"]
        row[f"{stem}_peak_dbfs"] = track["peak_dbfs"]
        row[f"{stem}_active_seconds"] = round(sum(end - begin for begin, end in track["active_seconds"]), 3)
        row[f"{stem}_bytes"] = track["bytes"]
    return row


def collect(store: Store, target: Path) -> int:
    """Writes one table of all receipts, as CSV or, if the name ends in .parquet, as Parquet. Returns its rows.

    Raises ValueError if there is no pyarrow for Parquet.
    """
    rows = [row_of(folder, record) for folder, record in records(store)]
    columns = list(dict.fromkeys(name for row in rows for name in row)) or ["id", "state", "reason"]
    if target.suffix == ".parquet":
        try:
            import pyarrow
            import pyarrow.parquet
        except ImportError:
            raise ValueError("Parquet needs pyarrow (pip install pyarrow); CSV does not.") from None
        table = {name: [row.get(name) for row in rows] for name in columns}
        pyarrow.parquet.write_table(pyarrow.table(table), target)
    else:
        with open(target, "w", encoding="utf-8", newline="") as file:
            writer = csv.DictWriter(file, columns)
            writer.writeheader()
            writer.writerows(rows)
    return len(rows)


def verify(store: Store, sample: int | None, seed: int = 1) -> Iterator[tuple[str, list[str]]]:
    """Recomputes what receipts promise, of all or of a random sample: files are there, have their SHA-256, as many
    samples as the song, and the levels that were measured. Yields (id, what is wrong) for each."""
    found = [item for item in records(store) if "tracks" in item[1]]
    if sample is not None and sample < len(found):
        found = random.Random(seed).sample(found, sample)
    for folder, receipt in found:
        with tempfile.TemporaryDirectory(prefix="tonwerk-") as scratch:
            yield receipt["id"], list(_faults(store, folder, receipt, Path(scratch)))


def _faults(store: Store, folder: str, receipt: dict[str, Any], scratch: Path) -> Iterator[str]:
    for stem, track in receipt["tracks"].items():
        copy = scratch / Path(track["file"]).name
        try:
            store.get_file(f"{folder}/{track['file']}", copy)
        except FileNotFoundError:
            yield f"{track['file']} is missing"
            continue
        if sha256_of(copy) != track["sha256"]:
            yield f"{track['file']} is not the file of the receipt"
            continue
        yield from _measured_faults(copy, stem, track, receipt)
        copy.unlink()


def _measured_faults(path: Path, stem: str, track: dict[str, Any], receipt: dict[str, Any]) -> Iterator[str]:
    file = SongFile(path)
    meter = Meter(file.sample_rate, file.channels)
    frames = 0
    while len(block := file.read(1 << 16)):
        meter.feed(block)
        frames += len(block)
    file.close()
    if (frames, file.sample_rate) != (receipt["input"]["frames"], receipt["input"]["sample_rate"]):
        yield f"{stem} has {frames} frames of {file.sample_rate} Hz"
    promised = 10 ** (track["peak_dbfs"] / 20) if track["peak_dbfs"] is not None else 0.0
    if abs(meter.peak - promised) > _PEAK_STEPS + 1e-3 * promised:
        yield f"the peak of {stem} is {meter.peak:.6f} and not {promised:.6f}"
    loudness = meter.integrated(1.0)
    if track["loudness_lufs"] is not None and track["loudness_lufs"] > -60 and (
            loudness is None or abs(loudness - track["loudness_lufs"]) > _LOUDNESS):
        yield f"the loudness of {stem} is {loudness} LUFS and not {track['loudness_lufs']}"


def plan(songs: Iterable[Song], model: Model, options: Options, tries: int) -> dict[str, Any]:
    """Separates a few songs, chosen by chance, keeps nothing, and estimates the whole.

    Returns numbers: songs, tried, seconds_per_song, real_time_factor (of one worker), worker_hours, input_bytes,
    output_bytes.
    """
    count, chosen = _sample(songs, max(tries, 1))
    if not chosen:
        raise ValueError("There are no songs.")
    seconds = elapsed = 0.0
    size = written = 0
    ending = FORMATS[options.format][0]
    for song in chosen:
        with tempfile.TemporaryDirectory(prefix="tonwerk-") as name:
            begin = time.monotonic()
            scratch = Path(name)
            _, song_size, _ = fetch(song.uri, scratch / "song")
            result = SongResult(song, scratch / "song", scratch, model, options)
            elapsed += time.monotonic() - begin
            seconds += result.seconds
            size += song_size
            written += sum(path.stat().st_size for path in scratch.glob(f"*.{ending}"))
    share = count / len(chosen)
    return {"songs": count, "tried": len(chosen), "seconds_per_song": round(seconds / len(chosen), 1),
            "real_time_factor": round(elapsed / seconds, 4), "worker_hours": round(elapsed * share / 3600, 2),
            "input_bytes": round(size * share), "output_bytes": round(written * share)}


def _sample(songs: Iterable[Song], size: int) -> tuple[int, list[Song]]:
    """(number of songs, so many of them, each with the same chance), in one pass (Vitter 1985, algorithm R)."""
    lots = random.Random(1)
    chosen: list[Song] = []
    count = 0
    for count, song in enumerate(songs, 1):
        place = lots.randrange(count)
        if len(chosen) < size:
            chosen.append(song)
        elif place < size:
            chosen[place] = song
    return count, chosen
