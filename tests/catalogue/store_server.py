#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""An S3 store on loopback that refuses at random, and keeps a record of what is written.

usage: store_server.py PORT RECORD [SHARE [SEED]]

SHARE of the requests are refused: half of them as a busy store does (503), half of them as one does whose credentials
are just being exchanged (403). RECORD gets a line for every object that was written.
"""
import random
import sys
import threading
from collections.abc import Callable, Iterable
from typing import Any

from moto.server import DomainDispatcherApplication, create_backend_app
from werkzeug.serving import run_simple

Environment = dict[str, Any]

BODY = b"<?xml version='1.0'?><Error><Code>%s</Code><Message>Not now.</Message></Error>"


class RefusingStore:
    """A WSGI application around another one."""

    def __init__(self, store: Callable[..., Iterable[bytes]], record: str, share: float, seed: int) -> None:
        self._store, self._share = store, share
        self._record = open(record, "a", buffering=1)  # noqa: SIM115  (as long as the process)
        self._random = random.Random(seed)
        self._lock = threading.Lock()

    def __call__(self, environment: Environment, start: Callable[..., Any]) -> Iterable[bytes]:
        with self._lock:
            lot = self._random.random()
        if lot < self._share:
            busy = lot < self._share / 2
            status, code = ("503 Slow Down", b"SlowDown") if busy else ("403 Forbidden", b"AccessDenied")
            environment["wsgi.input"].read(int(environment.get("CONTENT_LENGTH") or 0))
            start(status, [("Content-Type", "application/xml")])
            return [BODY % code]

        def noting_start(status: str, *rest: Any) -> Any:
            if environment["REQUEST_METHOD"] in ("PUT", "POST", "DELETE") and status.startswith("2"):
                with self._lock:
                    self._record.write(f"{environment['REQUEST_METHOD']} {environment['PATH_INFO']}\n")
            return start(status, *rest)

        return self._store(environment, noting_start)


def main() -> None:
    port, record, *rest = sys.argv[1:]
    share, seed = (float(rest[0]) if rest else 0.0), (int(rest[1]) if len(rest) > 1 else 1)
    store = RefusingStore(DomainDispatcherApplication(create_backend_app), record, share, seed)
    run_simple("127.0.0.1", int(port), store, threaded=True)


if __name__ == "__main__":
    main()
