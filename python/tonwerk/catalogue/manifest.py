# SPDX-License-Identifier: MIT
"""Which songs there are, and which of them are this worker's."""

import csv
import hashlib
import json
import os
import urllib.parse
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from typing import Any

import fsspec

ENDINGS = (".wav", ".wave", ".flac", ".mp3", ".ogg", ".oga", ".aif", ".aiff")
"""What counts as a song in a folder."""

_LONGEST_ID = 500

# (index of the shard from the variable, number of the first one, variable of their count)
_SCHEDULERS = (("SLURM_ARRAY_TASK_ID", "SLURM_ARRAY_TASK_MIN", "SLURM_ARRAY_TASK_COUNT"),
               ("AWS_BATCH_JOB_ARRAY_INDEX", None, "AWS_BATCH_JOB_ARRAY_SIZE"),
               ("JOB_COMPLETION_INDEX", None, "JOB_COMPLETIONS"))


@dataclass(frozen=True)
class Song:
    """One song of a catalogue."""

    id: str
    """Its name for ever: the place of its results follows from it."""
    uri: str
    """Where fsspec finds it."""
    sha256: str | None = None
    """Of its bytes, in hexadecimal digits, if known: results are then found without reading it."""


def id_hash(song_id: str) -> str:
    """SHA-256 of an id in hexadecimal digits; shards and folders follow from it."""
    return hashlib.sha256(song_id.encode()).hexdigest()


def folder_of(song_id: str) -> str:
    """The song's folder, `ab/cd/ID`, where ab and cd are digits of the id's hash. What is no letter, digit, point, dash
    or underscore of an id is written as %XX; a long one ends in its hash."""
    digits = id_hash(song_id)
    name = urllib.parse.quote(song_id, safe="")
    if len(name) > 120 or name in (".", ".."):
        name = f"{name[:80]}-{digits[:32]}"
    return f"{digits[:2]}/{digits[2:4]}/{name}"


def shard_of(song_id: str, count: int) -> int:
    """Which of `count` shards the song belongs to, from 1. New songs change nothing for the others."""
    return int(id_hash(song_id)[:16], 16) % count + 1


def read_shard(text: str | None) -> tuple[int, int]:
    """(number from 1, count) of a shard, from "i/n" or from the variables that Slurm arrays, AWS Batch arrays and
    Kubernetes indexed jobs set. JOB_COMPLETIONS must be set in a Kubernetes job's template, which knows the count.

    Raises ValueError with a sentence.
    """
    if text is not None:
        number, slash, count = text.partition("/")
        if not slash or not number.isdecimal() or not count.isdecimal() or not 1 <= int(number) <= int(count):
            raise ValueError(f"--shard {text} must be i/n, with i from 1 to n.")
        return int(number), int(count)
    for index, first, total in _SCHEDULERS:
        if index in os.environ:
            if total not in os.environ:
                raise ValueError(f"{index} is set and {total} is not: name the shard with --shard i/n.")
            place = int(os.environ[index]) - int(os.environ.get(first or "", 0)) + 1
            if not 1 <= place <= int(os.environ[total]):
                raise ValueError(f"{index} and {total} do not fit together: array numbers must follow one another.")
            return place, int(os.environ[total])
    raise ValueError("This is no array job that is known here: name the shard with --shard i/n.")


def read_manifest(source: str) -> Iterator[Song]:
    """The songs of a manifest (a `.jsonl`, `.ndjson` or `.csv` file), a folder or a pattern, anywhere fsspec reads.

    Every line of a manifest has `id` and `uri`, and may have `sha256`; a relative uri starts from the manifest's
    folder. A song of a folder has its path in there as its id. Manifests are read line by line.

    Raises ValueError, with a sentence that names the line or the song, for what is no song and for an id that came
    before; FileNotFoundError.
    """
    kind = source.rpartition(".")[2].lower()
    songs = _of_file(source, kind) if kind in ("jsonl", "ndjson", "csv") else _of_folder(source)
    return _distinct(songs)


def _distinct(songs: Iterable[Song]) -> Iterator[Song]:
    """Refuses an id that comes twice: one song would overwrite the other. Keeps eight bytes of each id's hash."""
    seen: set[bytes] = set()
    for song in songs:
        mark = hashlib.sha256(song.id.encode()).digest()[:8]
        if mark in seen:
            raise ValueError(f"The id {song.id!r} comes twice: one of its songs would overwrite the other.")
        seen.add(mark)
        yield song


def _of_file(source: str, kind: str) -> Iterator[Song]:
    home = source.rpartition("/")[0]
    with fsspec.open(source, "rt", encoding="utf-8", newline="") as file:
        rows: Iterable[Any] = csv.DictReader(file) if kind == "csv" else file
        for number, row in enumerate(rows, 2 if kind == "csv" else 1):
            if isinstance(row, str) and not row.strip():
                continue
            yield _song(row, home, f"{source}, line {number}")


def _song(row: str | dict[str, Any], home: str, place: str) -> Song:
    if isinstance(row, str):
        try:
            row = json.loads(row)
        except ValueError as failure:
            raise ValueError(f"{place}: this is no JSON ({failure}).") from None
    if not isinstance(row, dict):
        raise ValueError(f"{place}: this is no record with id and uri.")
    song_id, uri, sha256 = row.get("id"), row.get("uri"), row.get("sha256") or None
    if not isinstance(song_id, str) or not 0 < len(song_id) <= _LONGEST_ID or not song_id.isprintable():
        raise ValueError(f"{place}: the id must be a text of 1 to {_LONGEST_ID} printable characters.")
    if not isinstance(uri, str) or not uri:
        raise ValueError(f"{place}: {song_id} has no uri.")
    if sha256 is not None and (not isinstance(sha256, str) or len(sha256) != 64):
        raise ValueError(f"{place}: the sha256 of {song_id} must be 64 hexadecimal digits.")
    absolute = "://" in uri or os.path.isabs(uri) or not home
    return Song(song_id, uri if absolute else f"{home}/{uri}", sha256.lower() if sha256 else None)


def _of_folder(source: str) -> Iterator[Song]:
    fs, path = fsspec.core.url_to_fs(source)
    if any(character in path for character in "*?["):
        found = fs.glob(path)
        home = path[:min(path.index(character) for character in "*?[" if character in path)].rpartition("/")[0]
    elif fs.isdir(path):
        found, home = fs.find(path), path.rstrip("/")
    else:
        raise FileNotFoundError(f"{source} is no manifest (.jsonl or .csv), no folder and no pattern.")
    for name in sorted(found):
        if name.lower().endswith(ENDINGS):
            yield Song(name.removeprefix(home).lstrip("/"), fs.unstrip_protocol(name))
