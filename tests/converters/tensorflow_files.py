# SPDX-License-Identifier: MIT
"""Writes checkpoints as TensorFlow does, so that tests have some of any size, damaged ones too."""

import struct
from collections.abc import Mapping
from pathlib import Path

import numpy as np

POLYNOMIAL = 0x82F63B78
MAGIC = 0xDB4775248B80FB57
KEYS_PER_RESTART = 16
KEYS_PER_BLOCK = 40  # TensorFlow goes by bytes; here several blocks must come of few keys


def checksum(data: bytes) -> int:
    """CRC-32C bit by bit, masked."""
    state = 0xFFFFFFFF
    for byte in data:
        state ^= byte
        for _ in range(8):
            state = (state >> 1) ^ (POLYNOMIAL * (state & 1))
    state ^= 0xFFFFFFFF
    return (((state >> 15) | (state << 17)) + 0xA282EAD8) & 0xFFFFFFFF


def varint(number: int) -> bytes:
    """A number of seven bits per byte."""
    result = b""
    while number > 0x7F:
        result += bytes([number & 0x7F | 0x80])
        number >>= 7
    return result + bytes([number])


def entry(shape: tuple[int, ...], offset: int, size: int, crc: int, element: int = 1) -> bytes:
    """The protocol buffer that stands for a variable."""
    dims = b"".join(b"\x12" + varint(len(varint(size)) + 1) + b"\x08" + varint(size) for size in shape)
    return (b"\x08" + varint(element) + b"\x12" + varint(len(dims)) + dims + b"\x20" + varint(offset)
            + b"\x28" + varint(size) + b"\x35" + struct.pack("<I", crc))


def block(items: list[tuple[bytes, bytes]]) -> bytes:
    """Sorted keys, each stored as what differs from the one before."""
    data, restarts, before = b"", [], b""
    for count, (key, value) in enumerate(items):
        if count % KEYS_PER_RESTART == 0:
            restarts.append(len(data))
            before = b""
        shared = next((place for place, (a, b) in enumerate(zip(before, key)) if a != b), min(len(before), len(key)))
        data += varint(shared) + varint(len(key) - shared) + varint(len(value)) + key[shared:] + value
        before = key
    restarts = restarts or [0]
    return data + struct.pack(f"<{len(restarts) + 1}I", *restarts, len(restarts))


def table(items: list[tuple[bytes, bytes]]) -> bytes:
    """An .index file."""
    data, handles = b"", []

    def put(content: bytes) -> bytes:
        nonlocal data
        handle = varint(len(data)) + varint(len(content))
        data += content + b"\0" + struct.pack("<I", checksum(content + b"\0"))
        return handle

    for first in range(0, len(items), KEYS_PER_BLOCK):
        part = items[first:first + KEYS_PER_BLOCK]
        handles.append((part[-1][0], put(block(part))))
    footer = put(block([])) + put(block(handles))
    return data + footer + bytes(40 - len(footer)) + struct.pack("<Q", MAGIC)


def write_checkpoint(folder: Path, variables: Mapping[str, np.ndarray],
                     altered: Mapping[str, bytes] | None = None) -> None:
    """Writes variables as a checkpoint. altered: entries that stand in the index in place of the true ones."""
    folder.mkdir(parents=True, exist_ok=True)
    data, items = b"", [(b"", b"\x08\x01\x1a\x02\x08\x01")]  # one data file, little-endian
    for name in sorted(variables, key=str.encode):
        values = np.asarray(variables[name])
        content = values.tobytes()
        element = 1 if values.dtype == np.float32 else 9  # 64-bit integers
        value = entry(values.shape, len(data), len(content), checksum(content), element)
        items.append((name.encode(), (altered or {}).get(name, value)))
        data += content
    (folder / "model.index").write_bytes(table(items))
    (folder / "model.data-00000-of-00001").write_bytes(data)
    (folder / "checkpoint").write_text('model_checkpoint_path: "model"\nall_model_checkpoint_paths: "model"\n')
