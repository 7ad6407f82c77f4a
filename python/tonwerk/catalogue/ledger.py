# SPDX-License-Identifier: MIT
"""One row for each attempt at a song, in JSON lines that are written once."""

import json
import socket
import time
import uuid
from typing import Any

from tonwerk.catalogue.store import LEDGER, Store

_MOST_ROWS = 1000
_MOST_SECONDS = 10.0


class Ledger:
    """Gathers rows and writes them as objects `ledger/RUN/00000001.jsonl` and so on, every thousand rows or ten
    seconds.

    An attempt has the states "begun" and then "done", "skipped", "failed" (for good) or "passing" (to be tried
    again). One that was killed has "begun" alone.
    """

    def __init__(self, output: str, run: str) -> None:
        self._store = Store(output)
        self._run = run
        self._rows: list[dict[str, Any]] = []
        self._number = 0
        self._written = time.monotonic()

    def add(self, row: dict[str, Any]) -> None:
        """Takes a row, which gets the time."""
        self._rows.append({"time": round(time.time(), 3), **row})
        if len(self._rows) >= _MOST_ROWS or time.monotonic() - self._written > _MOST_SECONDS:
            self.flush()

    def flush(self) -> None:
        """Writes what there is. A store that refuses it now gets it with the next rows."""
        self._written = time.monotonic()
        if not self._rows:
            return
        text = "".join(json.dumps(row, ensure_ascii=False) + "\n" for row in self._rows)
        try:
            self._store.put_bytes(f"{LEDGER}/{self._run}/{self._number + 1:08}.jsonl", text.encode())
        except OSError:
            return
        self._number += 1
        self._rows.clear()

    def close(self, tries: int = 10) -> None:
        """Writes the rest. Raises OSError if the store goes on refusing it."""
        for _ in range(tries):
            self.flush()
            if not self._rows:
                return
            time.sleep(0.5)
        raise OSError(f"The last {len(self._rows)} rows of the ledger cannot be written to {self._store.url}.")


def new_run() -> str:
    """A name that no other run has and that sorts by time. Containers share names and process numbers."""
    return time.strftime("%Y%m%d-%H%M%S", time.gmtime()) + f"-{socket.gethostname()}-{uuid.uuid4().hex[:12]}"
