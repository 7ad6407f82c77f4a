# SPDX-License-Identifier: MIT
"""Runs over a manifest: on Ray, or as one part of an array job."""

import os
import socket
import uuid
from collections import Counter
from collections.abc import Callable, Iterable, Iterator
from dataclasses import asdict, dataclass
from typing import Any

from tonwerk.catalogue.failures import PassingError
from tonwerk.catalogue.ledger import Ledger, new_run
from tonwerk.catalogue.manifest import Song
from tonwerk.catalogue.worker import Outcome, Task, Worker
from tonwerk.models import Model

Report = Callable[[Outcome], None]
AddRow = Callable[[dict[str, Any]], None]


@dataclass(frozen=True)
class Resources:
    """What one song at a time may take, and how often it is tried."""

    threads: int = 1
    """Processors of a worker: threads that compute a run of its model."""
    gpus: float = 0.0
    memory: int = 2 << 30
    """Bytes that Ray reserves for a worker."""
    retries: int = 5
    """Further tries after passing failures and dead workers."""
    jobs: int | None = None
    """Workers at the same time on this machine, if Ray is started in this process; None: as many as fit."""


def attempt(worker: Worker, song: Song, add_row: AddRow) -> Outcome:
    """One try at a song, with its rows of the ledger. Raises PassingError."""
    row = {"id": song.id, "attempt": uuid.uuid4().hex[:12], "host": socket.gethostname(), "process": os.getpid()}
    add_row({**row, "state": "begun"})
    try:
        outcome = worker.separate(song)
    except PassingError as failure:
        add_row({**row, "state": "passing", "reason": str(failure)})
        raise
    add_row({**row, **asdict(outcome)})
    return outcome


def run_here(songs: Iterable[Song], model: Model, task: Task, resources: Resources, report: Report) -> Counter[str]:
    """One after the other in this process: a part of an array job. Returns how often each state came."""
    ledger = Ledger(task.output, new_run())
    worker = Worker(model, task)
    counts: Counter[str] = Counter()
    for song in songs:
        outcome = _with_retries(worker, song, ledger.add, resources.retries)
        counts[outcome.state] += 1
        report(outcome)
    ledger.close()
    return counts


def _with_retries(worker: Worker, song: Song, add_row: AddRow, retries: int) -> Outcome:
    for last in [False] * retries + [True]:
        try:
            return attempt(worker, song, add_row)
        except PassingError as failure:
            if last:
                return Outcome(song.id, "passing", str(failure))
    raise AssertionError


_workers: dict[tuple[Any, ...], Worker] = {}
"""Of this process of Ray's, which it uses for one song after the other."""


def _worker(model_id: str, model: list[Any], key: bytes, provider: str, task: Task, threads: int) -> Worker:
    """model: a reference to its bytes, in a list so that Ray does not bring them for every song."""
    import ray

    place = (model_id, task, threads)
    if place not in _workers:
        _workers.clear()
        _workers[place] = Worker(Model(ray.get(model[0]), key=key, threads=threads, provider=provider), task)
    return _workers[place]


def run_on_ray(songs: Iterator[Song], model: tuple[bytes, bytes, str], task: Task, resources: Resources,
               address: str | None, report: Report) -> Counter[str]:
    """Hands the songs to Ray, which places, retries and balances them.

    model: (its bytes, its scrambling key, provider), which Ray brings to every machine once.
    address: of a cluster; None: Ray is started in this process, for this run.

    Returns how often each state came; "passing" counts songs that all tries could not save.
    """
    import ray

    if address is None:
        os.environ.setdefault("RAY_USAGE_STATS_ENABLED", "0")
        jobs = resources.jobs or max(1, (os.cpu_count() or 1) // resources.threads)
        ray.init(num_cpus=jobs * resources.threads, object_store_memory=max(100 << 20, 2 * len(model[0])),
                 include_dashboard=False, log_to_driver=False)
    else:
        ray.init(address=address, log_to_driver=False)
    try:
        return _Submission(songs, model, task, resources, report).run()
    finally:
        ray.shutdown()


class _Submission:
    """Keeps a bounded number of songs with Ray, twice as many as it can work on at once."""

    def __init__(self, songs: Iterator[Song], model: tuple[bytes, bytes, str], task: Task, resources: Resources,
                 report: Report) -> None:
        import ray

        self._songs, self._report = songs, report
        self._resources = resources
        here = ray.util.scheduling_strategies.NodeAffinitySchedulingStrategy(
            ray.get_runtime_context().get_node_id(), soft=False)
        self._ledger = ray.remote(Ledger).options(num_cpus=0, scheduling_strategy=here).remote(task.output, new_run())
        content, key, provider = model
        self._arguments = (uuid.uuid4().hex, [ray.put(content)], key, provider, task, resources.threads, self._ledger)
        self._remote = ray.remote(_separate).options(
            num_cpus=resources.threads, num_gpus=resources.gpus, memory=resources.memory,
            max_retries=resources.retries, retry_exceptions=[PassingError], name="song")
        self._pending: dict[Any, Song] = {}
        self._counts: Counter[str] = Counter()

    def run(self) -> Counter[str]:
        import ray

        self._refill()
        while self._pending:
            # What is lost with a worker is Ray's to find out, so no wait is too long.
            ready, _ = ray.wait(list(self._pending), num_returns=1, timeout=10)
            for reference in ready:
                self._take(reference)
            self._refill()
        ray.get(self._ledger.close.remote())
        return self._counts

    def _window(self) -> int:
        """Grows with the cluster."""
        import ray

        return 4 + 2 * int(ray.cluster_resources().get("CPU", 1) / max(self._resources.threads, 1))

    def _refill(self) -> None:
        wanted = self._window() - len(self._pending)
        for _, song in zip(range(wanted), self._songs):
            self._pending[self._remote.remote(song, *self._arguments)] = song

    def _take(self, reference: Any) -> None:
        import ray

        song = self._pending.pop(reference)
        try:
            outcome: Outcome = ray.get(reference)
        except ray.exceptions.RayError as failure:
            # PassingError after the last try, or a worker that died again and again.
            text = str(failure).strip().splitlines()[-1]
            outcome = Outcome(song.id, "passing", text if song.id in text else f"{song.id}: {text}")
            self._ledger.add.remote({"state": "given up", "id": song.id, "reason": outcome.reason})
        self._counts[outcome.state] += 1
        self._report(outcome)


def _separate(song: Song, model_id: str, model: list[Any], key: bytes, provider: str, task: Task, threads: int,
              ledger: Any) -> Outcome:
    """Runs on Ray's workers."""
    try:
        worker = _worker(model_id, model, key, provider, task, threads)
    except Exception as failure:
        raise PassingError(f"{song.id}: the model cannot be loaded: {failure}") from failure
    return attempt(worker, song, lambda row: ledger.add.remote(row) and None)
