# SPDX-License-Identifier: MIT
"""Reads the weights out of a PyTorch checkpoint without PyTorch and without running anything of the file.

torch.save writes a zip file (since 1.6): NAME/data.pkl pickles the structure, in which each tensor names a storage,
and NAME/data/KEY is the storage's raw numbers, little-endian and not compressed. Before, it wrote pickles one behind
the other (a magic number, a version, a record on the machine, the structure, the keys of the storages) and then the
storages, each behind the number of its elements.
"""

import io
import zipfile
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

from .errors import ConversionError
from .files import read_whole
from .pickled import Name, read_pickle

LARGEST_CHECKPOINT = 4 << 30
OLD_MAGIC = 0x1950A86A20F9469CFC6C
STATE_NAMES = ("best_state", "state", "state_dict", "model_state_dict", "model")  # where trainers put the weights

# Element types of storages. Numbers of bfloat16 are the upper halves of float32.
BFLOAT16 = "BFloat16Storage"
ELEMENTS = {"FloatStorage": "<f4", "DoubleStorage": "<f8", "HalfStorage": "<f2", BFLOAT16: "<u2", "LongStorage": "<i8",
            "IntStorage": "<i4", "ShortStorage": "<i2", "CharStorage": "<i1", "ByteStorage": "<u1",
            "BoolStorage": "<u1"}


@dataclass(frozen=True)
class _Storage:
    """A run of numbers that lies elsewhere in the file."""

    key: str
    kind: str
    count: int


@dataclass(frozen=True)
class _View:
    """A tensor: which numbers of a storage it shows, counted in elements."""

    storage: _Storage
    offset: int
    shape: tuple[int, ...]
    strides: tuple[int, ...]


def read_weights(path: Path) -> dict[str, np.ndarray]:
    """All tensors of the state dict in a checkpoint, by name, in float32 unless they hold integers.

    The state dict may be the whole file or lie under one of STATE_NAMES; prefixes that wrappers of a network add are
    dropped.
    Raises ConversionError, a sentence, if the file is no checkpoint, is broken or asks for code.
    """
    data = read_whole(path, LARGEST_CHECKPOINT)
    try:
        content, load = _from_zip(data) if data[:2] == b"PK" else _from_pickles(data)
        return _tensors(_state(content), load)
    except ConversionError as failure:
        raise ConversionError(f"{path} cannot be used: {failure}.") from failure


def _inert(*_: Any) -> dict[Any, Any]:
    """Stands in for values that trainers store beside the weights and that nobody here needs; some are filled like a
    dictionary."""
    return {}


def _tensor(storage: Any, offset: Any, shape: Any, strides: Any, *_: Any) -> _View:
    numbers = (offset, *shape, *strides)
    if not isinstance(storage, _Storage) or not all(type(number) is int and number >= 0 for number in numbers):
        raise TypeError("a tensor of what is no storage")
    return _View(storage, offset, tuple(shape), tuple(strides))


MAKERS: dict[str, Callable[..., Any]] = {
    "collections.OrderedDict": lambda entries=(): dict(entries),
    "torch._utils._rebuild_tensor_v2": _tensor,
    "torch._utils._rebuild_parameter": lambda tensor, *_: tensor,
    "torch.Size": lambda sizes: tuple(sizes),
    **dict.fromkeys((
        "argparse.Namespace", "collections.Counter", "collections.defaultdict", "datetime.datetime",
        "fractions.Fraction", "ml_collections.config_dict.config_dict.ConfigDict", "numpy._core.multiarray._reconstruct",
        "numpy._core.multiarray.scalar", "numpy.core.multiarray._reconstruct", "numpy.core.multiarray.scalar",
        "numpy.dtype", "omegaconf.base.ContainerMetadata", "omegaconf.base.Metadata",
        "omegaconf.dictconfig.DictConfig", "omegaconf.listconfig.ListConfig", "omegaconf.nodes.AnyNode",
        "pathlib.PosixPath", "torch.device", "types.SimpleNamespace", "__builtin__.set", "builtins.set",
        "_codecs.encode"), _inert),
}


def _stored(what: Any) -> _Storage:
    """The meaning of ("storage", type, key, device, count[, part of another storage])."""
    if not isinstance(what, tuple) or len(what) < 5 or what[0] != "storage" or any(what[5:]):
        raise TypeError("a thing stored in an unknown way")
    kind, key, count = what[1], what[2], what[4]
    if not isinstance(kind, Name) or kind.name not in ELEMENTS or not isinstance(count, int) or count < 0:
        raise TypeError("a storage of an unknown kind")
    return _Storage(str(key), kind.name, count)


def _numbers(data: bytes, storage: _Storage) -> np.ndarray:
    kind = np.dtype(ELEMENTS[storage.kind])
    if len(data) < storage.count * kind.itemsize:
        raise ConversionError("it ends in the middle of its numbers")
    values = np.frombuffer(data, kind, storage.count)
    return (values.astype(np.uint32) << 16).view(np.float32) if storage.kind == BFLOAT16 else values


def _from_zip(data: bytes) -> tuple[Any, Callable[[_Storage], np.ndarray]]:
    """The structure of a checkpoint in the zip format, and a function that loads a storage."""
    def read(name: str) -> bytes:
        try:
            entry = archive.getinfo(name)
            if entry.compress_type != zipfile.ZIP_STORED or entry.file_size > len(data):
                raise ConversionError("it is a zip file, but not of the kind that PyTorch writes")
            return archive.read(entry)
        except (KeyError, zipfile.BadZipFile, EOFError, ValueError, NotImplementedError, RuntimeError) as failure:
            raise ConversionError(f"its part {name} is missing or broken") from failure

    try:
        archive = zipfile.ZipFile(io.BytesIO(data))
    except (zipfile.BadZipFile, ValueError, NotImplementedError) as failure:
        raise ConversionError("its table of contents is broken") from failure
    roots = [name.removesuffix("data.pkl") for name in archive.namelist() if name.endswith("/data.pkl")]
    if len(roots) != 1:
        raise ConversionError("it is a zip file, but no checkpoint")
    root = roots[0]
    if f"{root}byteorder" in archive.namelist() and read(f"{root}byteorder") != b"little":
        raise ConversionError("it was written by a big-endian machine")
    content = read_pickle(io.BytesIO(read(f"{root}data.pkl")), MAKERS, _stored)
    return content, lambda storage: _numbers(read(f"{root}data/{storage.key}"), storage)


def _from_pickles(data: bytes) -> tuple[Any, Callable[[_Storage], np.ndarray]]:
    """The same of a checkpoint in the old format."""
    stream = io.BytesIO(data)
    try:
        magic = read_pickle(stream, {}, _stored)
    except ConversionError as failure:
        if "Nothing of it was run" in str(failure):
            raise
        magic = None
    if magic != OLD_MAGIC:
        raise ConversionError("it is no PyTorch checkpoint")
    read_pickle(stream, {}, _stored)
    read_pickle(stream, {}, _stored)
    storages: dict[str, _Storage] = {}

    def remember(what: Any) -> _Storage:
        storage = _stored(what)
        return storages.setdefault(storage.key, storage)

    content = read_pickle(stream, MAKERS, remember)
    keys = read_pickle(stream, {}, _stored)
    if not isinstance(keys, list) or not set(storages) <= set(map(str, keys)):
        raise ConversionError("its storages are missing")
    loaded = {}
    for key in keys:
        if key not in storages:
            raise ConversionError("it has a storage that no tensor uses")
        storage = storages[key]
        if int.from_bytes(stream.read(8), "little") != storage.count:
            raise ConversionError("it ends in the middle of its numbers")
        loaded[key] = _numbers(stream.read(storage.count * np.dtype(ELEMENTS[storage.kind]).itemsize), storage)
    return content, lambda storage: loaded[storage.key]


def _state(content: Any) -> Mapping[Any, Any]:
    """The dictionary of tensors in a checkpoint."""
    def tensors(candidate: Any) -> int:
        return sum(isinstance(value, _View) for value in candidate.values()) if isinstance(candidate, dict) else 0

    inner = [content.get(name) for name in STATE_NAMES] if isinstance(content, dict) else []
    for candidate in (content, *inner):
        if tensors(candidate):
            return candidate
    raise ConversionError("there is no state dict in it")


def _tensors(state: Mapping[Any, Any], load: Callable[[_Storage], np.ndarray]) -> dict[str, np.ndarray]:
    loaded: dict[str, np.ndarray] = {}
    result = {}
    for name, view in state.items():
        if not isinstance(view, _View) or not isinstance(name, str):
            continue
        if not name.isprintable():
            raise ConversionError("a tensor has a name that cannot be printed")
        storage = view.storage
        if storage.key not in loaded:
            loaded[storage.key] = load(storage)
        result[name.removeprefix("_orig_mod.").removeprefix("module.")] = _show(view, loaded[storage.key])
    return result


def _show(view: _View, numbers: np.ndarray) -> np.ndarray:
    """A copy of what a tensor shows of its storage. One that shows numbers twice is refused: it could be of any
    size."""
    size = 1
    for length in view.shape:
        size *= length
    last = view.offset + sum((length - 1) * stride for length, stride in zip(view.shape, view.strides))
    if len(view.shape) != len(view.strides) or len(view.shape) > 8 or size > len(numbers) or (size and
                                                                                             last >= len(numbers)):
        raise ConversionError("a tensor reaches beyond its numbers")
    strides = [stride * numbers.itemsize for stride in view.strides]
    shown = np.lib.stride_tricks.as_strided(numbers[view.offset:], view.shape, strides, writeable=False)
    return shown.astype(np.float32) if numbers.dtype.kind == "f" else shown.copy()
