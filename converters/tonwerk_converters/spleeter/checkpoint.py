# SPDX-License-Identifier: MIT
"""Reads TensorFlow's checkpoints (the second format) without TensorFlow.

PREFIX.index is a table of LevelDB's format: blocks of sorted keys, each key stored as what differs from the one before,
each block followed by a type byte and a checksum. A key is a variable's name; its value, a protocol buffer, says where
in PREFIX.data-MMMMM-of-NNNNN the numbers lie, raw and little-endian. All checksums are checked.
"""

import math
import re
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
from numpy.typing import NDArray

from ..crc32c import crc32c, masked
from ..errors import ConversionError
from ..files import read_whole

FOOTER_BYTES = 48
MAGIC = 0xDB4775248B80FB57
TRAILER_BYTES = 5  # the type of a block, and its checksum
FLOAT32 = 1
LARGEST_INDEX = 64 << 20
LARGEST_DATA = 4 << 30
Tensor = NDArray[np.float32]


class Damaged(ValueError):
    """The bytes are not what the format says; the message completes "... is damaged: "."""


@dataclass
class Entry:
    """Where one variable lies."""

    element: int = 0
    shape: list[int] = field(default_factory=list)
    shard: int = 0
    offset: int = 0
    size: int = 0
    checksum: int = 0
    is_sliced: bool = False


def read_checkpoint(path: Path) -> tuple[dict[str, Tensor], list[Path]]:
    """All float32 variables of a checkpoint by name, and the files that they come from.

    path: the checkpoint's folder, or its .index file. Raises ConversionError if it cannot be read or is damaged.
    """
    index = _index_file(path)
    try:
        entries = _read_table(read_whole(index, LARGEST_INDEX))
    except Damaged as reason:
        raise ConversionError(f"{index} is damaged: {reason}.") from reason
    shards = _shard_count(index, entries.pop("", b""))
    files = [index.with_name(f"{index.stem}.data-{number:05d}-of-{shards:05d}") for number in range(shards)]
    contents = [memoryview(read_whole(file, LARGEST_DATA)) for file in files]
    tensors = {}
    for name, value in entries.items():
        try:
            entry = _parse_entry(value)
            if entry.element == FLOAT32:
                tensors[name] = _read_tensor(entry, contents)
        except Damaged as reason:
            raise ConversionError(f"The variable {name!r} of {index} is damaged: {reason}.") from reason
    return tensors, [index, *files]


def _index_file(path: Path) -> Path:
    """The one index of a folder: the one that its file `checkpoint` names, if there are several."""
    if path.suffix == ".index":
        return path
    if not path.is_dir():
        raise ConversionError(f"{path} is no folder with a checkpoint of TensorFlow.")
    found = sorted(file for file in path.glob("*.index") if not file.name.startswith("."))
    if len(found) > 1:
        named = re.search(r'^model_checkpoint_path:\s*"([^"]*)"', _text_of(path / "checkpoint"), re.MULTILINE)
        found = [file for file in found if named and file.stem == Path(named[1]).name] or found
    if len(found) != 1:
        raise ConversionError(f"{path} has {len(found) or 'no'} checkpoints of TensorFlow (*.index)" +
                              (": name one of these files." if found else "."))
    return found[0]


def _text_of(path: Path) -> str:
    return read_whole(path, 1 << 16).decode(errors="replace") if path.is_file() else ""


def _shard_count(index: Path, header: bytes) -> int:
    try:
        fields = dict(_fields(header))
    except Damaged as reason:
        raise ConversionError(f"{index} is damaged: {reason}.") from reason
    shards, endianness = fields.get(1, 0), fields.get(2, 0)
    if not isinstance(shards, int) or not 1 <= shards <= 1000:
        raise ConversionError(f"{index} names no number of data files.")
    if endianness != 0:
        raise ConversionError(f"{index} is of a big-endian machine, which is not supported.")
    return shards


def _read_tensor(entry: Entry, contents: list[memoryview]) -> Tensor:
    if entry.is_sliced:
        raise Damaged("it is stored in slices, which are not supported")
    if entry.shard >= len(contents):
        raise Damaged("its data file does not exist")
    if any(size < 0 for size in entry.shape) or math.prod(entry.shape) * 4 != entry.size:
        raise Damaged(f"its shape {entry.shape} does not fit its {entry.size} bytes")
    data = contents[entry.shard]
    if entry.offset + entry.size > len(data):
        raise Damaged("it lies beyond the end of its data file")
    data = data[entry.offset:entry.offset + entry.size]
    if masked(crc32c(data)) != entry.checksum:
        raise Damaged("its checksum is wrong")
    values = np.frombuffer(data, "<f4").reshape(entry.shape)
    if not np.isfinite(values).all():
        raise Damaged("it holds numbers that are not finite")
    return values


# --- the table ----------------------------------------------------------------------------------------------------


def _read_table(data: bytes) -> dict[str, bytes]:
    """All keys and values of a table."""
    if len(data) < FOOTER_BYTES or int.from_bytes(data[-8:], "little") != MAGIC:
        raise Damaged("it does not end as an index ends")
    footer = data[-FOOTER_BYTES:-8]
    place = 0
    for _ in range(2):  # of the block about blocks, which is not needed, then of the block of blocks
        start, place = _varint(footer, place)
        size, place = _varint(footer, place)
    entries = {}
    for _, handle in _block_entries(_block(data, start, size)):
        start, place = _varint(handle, 0)
        size, place = _varint(handle, place)
        for key, value in _block_entries(_block(data, start, size)):
            entries[key.decode(errors="replace")] = value
    return entries


def _block(data: bytes, start: int, size: int) -> bytes:
    """The content of a block."""
    end = start + size
    if end + TRAILER_BYTES > len(data) - FOOTER_BYTES:
        raise Damaged("a block lies beyond its end")
    if masked(crc32c(data[start:end + 1])) != int.from_bytes(data[end + 1:end + TRAILER_BYTES], "little"):
        raise Damaged("a block's checksum is wrong")
    if data[end] != 0:
        raise Damaged("a block is compressed, which checkpoints are not")
    return data[start:end]


def _block_entries(block: bytes) -> Iterator[tuple[bytes, bytes]]:
    """Keys and values of a block. At its end stand the places where keys are stored whole, and their number."""
    if len(block) < 4:
        raise Damaged("a block is too short")
    end = len(block) - 4 * (1 + int.from_bytes(block[-4:], "little"))
    if end < 0:
        raise Damaged("a block is too short")
    place, key = 0, b""
    while place < end:
        shared, place = _varint(block, place)
        own, place = _varint(block, place)
        size, place = _varint(block, place)
        if shared > len(key) or place + own + size > end:
            raise Damaged("a block's entry is longer than the block")
        key = key[:shared] + block[place:place + own]
        place += own
        yield key, block[place:place + size]
        place += size


# --- protocol buffers ---------------------------------------------------------------------------------------------


def _varint(data: bytes, place: int) -> tuple[int, int]:
    """A number of seven bits per byte, and the place behind it."""
    result = shift = 0
    while True:
        if place >= len(data) or shift > 63:
            raise Damaged("a number has no end")
        result |= (data[place] & 0x7F) << shift
        shift += 7
        place += 1
        if not data[place - 1] & 0x80:
            return result, place


def _fields(message: bytes) -> Iterator[tuple[int, int | bytes]]:
    """Numbers and values of a message's fields."""
    place = 0
    while place < len(message):
        tag, place = _varint(message, place)
        kind = tag & 7
        if kind == 0:
            value, place = _varint(message, place)
            yield tag >> 3, value
            continue
        if kind == 2:
            size, place = _varint(message, place)
        elif kind in (1, 5):
            size = 8 if kind == 1 else 4
        else:
            raise Damaged("a message has a field of no known kind")
        if place + size > len(message):
            raise Damaged("a message is cut off")
        content = message[place:place + size]
        yield tag >> 3, content if kind == 2 else int.from_bytes(content, "little")
        place += size


def _parse_entry(message: bytes) -> Entry:
    entry = Entry()
    names = {1: "element", 3: "shard", 4: "offset", 5: "size", 6: "checksum"}
    for number, value in _fields(message):
        if number in names and isinstance(value, int):
            setattr(entry, names[number], value)
        elif number == 2 and isinstance(value, bytes):
            entry.shape = [_dimension(size) for dim, size in _fields(value) if dim == 2]
        elif number == 7:
            entry.is_sliced = True
    return entry


def _dimension(message: int | bytes) -> int:
    sizes = [size for number, size in _fields(message) if number == 1] if isinstance(message, bytes) else []
    return sizes[-1] if sizes and isinstance(sizes[-1], int) else 0
