# SPDX-License-Identifier: MIT
"""CRC-32C (Castagnoli, 1993), as TensorFlow and LevelDB store it, fast enough for checkpoints of many megabytes.

The data is cut into lanes of equal length, whose checksums NumPy works out side by side. A lane's checksum is carried
over those that follow it by a linear map, which is four tables.
"""

import numpy as np
from numpy.typing import NDArray

POLYNOMIAL = 0x82F63B78  # reflected
LANES = 4096
MASK_DELTA = 0xA282EAD8

Table = NDArray[np.uint32]


def _byte_tables() -> list[Table]:
    """Tables for four bytes at once: tables[k][b] is byte b followed by k zero bytes."""
    first = np.arange(256, dtype=np.uint32)
    for _ in range(8):
        first = np.where(first & 1, (first >> 1) ^ np.uint32(POLYNOMIAL), first >> 1).astype(np.uint32)
    tables = [first]
    for _ in range(3):
        tables.append((tables[-1] >> 8) ^ first[tables[-1] & 0xFF])
    return tables


TABLES = _byte_tables()
BYTES: list[int] = TABLES[0].tolist()


def _bytewise(state: int, data: bytes) -> int:
    for byte in data:
        state = (state >> 8) ^ BYTES[(state ^ byte) & 0xFF]
    return state


def _step(state: Table, words: Table) -> Table:
    """The states after four bytes more."""
    mixed = state ^ words
    return (TABLES[3][mixed & 0xFF] ^ TABLES[2][(mixed >> 8) & 0xFF]
            ^ TABLES[1][(mixed >> 16) & 0xFF] ^ TABLES[0][mixed >> 24])


def _shift_tables(words: int) -> list[list[int]]:
    """Tables of the map that a state undergoes over so many words of zeros: [k][b] for byte b at place k."""
    states = (np.arange(256, dtype=np.uint32)[None, :] << np.array([[0], [8], [16], [24]], np.uint32)).reshape(-1)
    nothing = np.zeros(1, np.uint32)
    for _ in range(words):
        states = _step(states, nothing)
    return states.reshape(4, 256).tolist()


def crc32c(data: bytes | memoryview) -> int:
    """The checksum of some bytes."""
    view = memoryview(data).cast("B")
    per_lane = len(view) // (4 * LANES)
    covered = per_lane * 4 * LANES
    state = 0xFFFFFFFF
    if per_lane:
        lanes = np.ascontiguousarray(np.frombuffer(view[:covered], "<u4").reshape(LANES, per_lane).T)
        sums = np.zeros(LANES, np.uint32)
        for words in lanes:
            sums = _step(sums, words)
        shift = _shift_tables(per_lane)
        for own in sums.tolist():
            state = (shift[0][state & 0xFF] ^ shift[1][(state >> 8) & 0xFF] ^ shift[2][(state >> 16) & 0xFF]
                     ^ shift[3][state >> 24] ^ own)
    return _bytewise(state, bytes(view[covered:])) ^ 0xFFFFFFFF


def masked(checksum: int) -> int:
    """How LevelDB and TensorFlow store a checksum, so that checksums of checksums do not cancel."""
    return (((checksum >> 15) | (checksum << 17)) + MASK_DELTA) & 0xFFFFFFFF
