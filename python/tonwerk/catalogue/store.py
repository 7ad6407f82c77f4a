# SPDX-License-Identifier: MIT
"""Where results lie: any file system of fsspec, on which an object is there as a whole or not at all."""

import contextlib
import hashlib
import json
import os
import uuid
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import fsspec
from fsspec.implementations.local import LocalFileSystem

RECEIPT = "receipt.json"
FAILURE = "failure.json"
LEDGER = "ledger"



class Store:
    """The output of a catalogue."""

    def __init__(self, url: str) -> None:
        """url: for instance a folder, or s3://bucket/prefix."""
        self.url = url
        self._fs, root = fsspec.core.url_to_fs(url)
        self._root = str(root).rstrip("/")

    @property
    def is_local(self) -> bool:
        """Whether it is a folder of this machine."""
        return isinstance(self._fs, LocalFileSystem)

    def path(self, name: str) -> str:
        """The place of an object, as fsspec names it."""
        return f"{self._root}/{name}"

    def read_json(self, name: str) -> dict[str, Any] | None:
        """An object's content; None if it is not there, or no JSON (which counts as not committed)."""
        try:
            found = json.loads(self._fs.cat_file(self.path(name)))
        except (FileNotFoundError, NotADirectoryError, ValueError):
            return None
        return found if isinstance(found, dict) else None

    def put_json(self, name: str, content: object) -> None:
        """Writes an object; nobody sees it half done."""
        text = json.dumps(content, ensure_ascii=False, indent=1, sort_keys=True) + "\n"
        self.put_bytes(name, text.encode())

    def put_bytes(self, name: str, content: bytes) -> None:
        """As put_json."""
        if self.is_local:
            with self._local(name) as partial:
                partial.write_bytes(content)
        else:
            self._fs.pipe_file(self.path(name), content)

    def put_file(self, source: Path, name: str) -> None:
        """Copies a local file in, streamed; nobody sees it half done."""
        if self.is_local:
            with self._local(name) as partial:
                self._fs.cp_file(str(source), str(partial))
        else:
            self._fs.put_file(str(source), self.path(name))

    @contextlib.contextmanager
    def _local(self, name: str) -> Iterator[Path]:
        """A temporary neighbour that gets the name when it is complete and on the disk."""
        target = Path(self.path(name))
        target.parent.mkdir(parents=True, exist_ok=True)
        partial = target.with_name(f".{uuid.uuid4().hex}.part")
        try:
            yield partial
            with open(partial, "rb") as file:
                os.fsync(file.fileno())
            os.replace(partial, target)
        except BaseException:
            partial.unlink(missing_ok=True)
            raise

    def clear_partials(self, folder: str) -> None:
        """Removes what killed workers have left below a folder. One that is nevertheless alive fails, and tries again.
        Object stores have nothing of the kind."""
        if self.is_local:
            for partial in Path(self.path(folder)).rglob(".*.part"):
                partial.unlink(missing_ok=True)

    def get_file(self, name: str, target: Path) -> None:
        """Copies an object to a local file, streamed."""
        self._fs.get_file(self.path(name), str(target))

    def remove(self, name: str) -> None:
        """Removes an object, if it is there."""
        with contextlib.suppress(FileNotFoundError):
            self._fs.rm_file(self.path(name))

    def sizes(self, folder: str) -> dict[str, int]:
        """The objects below a folder, with their bytes; names start from the store's root."""
        self._fs.invalidate_cache()
        found = self._fs.find(self.path(folder) if folder else self._root, detail=True)
        return {name.removeprefix(self._root).lstrip("/"): int(info["size"] or 0) for name, info in found.items()}


def version_of(info: dict[str, Any]) -> str:
    """What changes when an input is written anew: its size, and what the file system knows besides."""
    known = [info.get(name) for name in ("ETag", "etag", "md5Hash", "generation", "LastModified", "mtime")]
    return json.dumps([info.get("size"), *[str(value) for value in known if value is not None]])


def fetch(uri: str, target: Path) -> tuple[str, int, str]:
    """Copies a song to a local file, streamed. Returns (SHA-256, bytes, version)."""
    version = input_version(uri)
    fs, path = fsspec.core.url_to_fs(uri)
    fs.get_file(path, str(target))
    return sha256_of(target), target.stat().st_size, version


def input_version(uri: str) -> str:
    """The version of a song without reading it."""
    fs, path = fsspec.core.url_to_fs(uri)
    fs.invalidate_cache()
    return version_of(fs.info(path))


def sha256_of(path: Path) -> str:
    """In hexadecimal digits."""
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()
