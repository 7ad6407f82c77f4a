# SPDX-License-Identifier: MIT
"""The command `tonwerk-catalogue`."""

import argparse
import json
import sys
import time
from collections.abc import Iterator
from pathlib import Path

from tonwerk.catalogue.manifest import Song, read_manifest, read_shard, shard_of
from tonwerk.catalogue.options import Options
from tonwerk.catalogue.reports import collect, plan, verify
from tonwerk.catalogue.run import Resources, run_here, run_on_ray
from tonwerk.catalogue.store import Store
from tonwerk.catalogue.worker import Outcome, Task
from tonwerk.errors import TonwerkError
from tonwerk.files import FORMATS
from tonwerk.models import PROVIDERS, Model, default_model

DONE, FAILED, USAGE, INTERRUPTED = 0, 1, 2, 130


def _add_options(parser: argparse.ArgumentParser) -> None:
    ordinary = Options()
    parser.add_argument("manifest", help="JSON lines or CSV with id, uri and perhaps sha256; or a folder or a pattern")
    parser.add_argument("--stems", default=",".join(ordinary.stems), help="(%(default)s)")
    parser.add_argument("--format", default=ordinary.format, choices=FORMATS, help="(%(default)s)")
    parser.add_argument("--quality", default=ordinary.quality, help="a preset (%(default)s)")
    parser.add_argument("--longest", type=float, default=ordinary.longest_seconds, metavar="SECONDS",
                        help="refuse longer songs (%(default)s)")
    parser.add_argument("--model", type=Path, help="the separation model; without it the default model")
    parser.add_argument("--key", default="", help="scrambling key of the model")
    parser.add_argument("--provider", default="automatic", choices=PROVIDERS)
    parser.add_argument("--threads", type=int, default=1, help="processors of each worker (%(default)s)")


def parser() -> argparse.ArgumentParser:
    """What the command takes."""
    top = argparse.ArgumentParser("tonwerk-catalogue", description="Separates catalogues of songs.")
    commands = top.add_subparsers(dest="command", required=True)
    run = commands.add_parser("run", help="separate what is not done yet")
    _add_options(run)
    run.add_argument("-o", "--output", required=True, help="a folder, or for instance s3://bucket/prefix")
    run.add_argument("--address", help="a Ray cluster (auto, or HOST:PORT); without it Ray is started in this process")
    run.add_argument("--jobs", type=int, help="workers at a time, without --address (as many as there are processors)")
    run.add_argument("--gpus", type=float, default=0.0, help="graphics processors of each worker, as Ray counts them")
    run.add_argument("--memory", type=float, default=2.0, metavar="GB", help="of each worker (%(default)s)")
    run.add_argument("--retries", type=int, default=5, help="after passing failures and dead workers (%(default)s)")
    run.add_argument("--replace", action="store_true", help="make results anew that other options or models made")
    run.add_argument("--scratch", help="a folder for temporary files, on every machine")
    run.add_argument("--array", action="store_true", help="without Ray: do the part of an array job that its variables "
                     "or --shard name, in this process")
    run.add_argument("--shard", metavar="I/N", help="only the songs of part I of N, by the hash of their ids")
    estimate = commands.add_parser("plan", help="estimate hours and bytes from a few songs; writes nothing")
    _add_options(estimate)
    estimate.add_argument("--try", type=int, default=5, dest="tries", metavar="SONGS", help="(%(default)s)")
    table = commands.add_parser("collect", help="one table of all receipts")
    table.add_argument("output")
    table.add_argument("table", type=Path, help="NAME.csv or NAME.parquet")
    check = commands.add_parser("verify", help="recompute what the receipts promise")
    check.add_argument("output")
    check.add_argument("--sample", type=int, help="so many songs by chance; without it all")
    return top


def _options(arguments: argparse.Namespace) -> Options:
    stems = tuple(stem.strip() for stem in arguments.stems.split(","))
    return Options(stems, arguments.format, arguments.quality, arguments.longest)


class _Display:
    """A line for what fails, and one every ten seconds."""

    def __init__(self) -> None:
        self._begin = self._shown = time.monotonic()
        self._songs = 0
        self._seconds = 0.0

    def report(self, outcome: Outcome) -> None:
        self._songs += 1
        self._seconds += outcome.seconds if outcome.state == "done" else 0.0
        if outcome.state in ("failed", "passing"):
            print(outcome.reason, file=sys.stderr, flush=True)
        now = time.monotonic()
        if now - self._shown > 10:
            self._shown = now
            hours = (now - self._begin) / 3600
            print(f"{self._songs} songs, {self._songs / hours:.0f} per hour, {self._seconds / 3600:.1f} hours of sound",
                  file=sys.stderr, flush=True)


def _run(arguments: argparse.Namespace) -> int:
    task = Task(arguments.output, _options(arguments), arguments.replace, arguments.scratch)
    resources = Resources(arguments.threads, arguments.gpus, int(arguments.memory * 1e9), arguments.retries,
                          arguments.jobs)
    songs: Iterator[Song] = read_manifest(arguments.manifest)
    if arguments.array or arguments.shard:
        number, count = read_shard(arguments.shard)
        songs = (song for song in songs if shard_of(song.id, count) == number)
    path = arguments.model or default_model()
    display = _Display()
    if arguments.array:
        model = Model(path, key=arguments.key, threads=arguments.threads, provider=arguments.provider)
        counts = run_here(songs, model, task, resources, display.report)
    else:
        # What no worker could load is said at once, and not for every song.
        Model(path, key=arguments.key, threads=1, provider="cpu")
        content = (path.read_bytes(), arguments.key.encode(), arguments.provider)
        counts = run_on_ray(songs, content, task, resources, arguments.address, display.report)
    print(", ".join(f"{counts[state]} {name}" for state, name in (
        ("done", "done"), ("skipped", "done before"), ("failed", "failed for good"), ("passing", "to be tried again"))))
    return FAILED if counts["failed"] or counts["passing"] else DONE


def _plan(arguments: argparse.Namespace) -> int:
    model = Model(arguments.model, key=arguments.key, threads=arguments.threads, provider=arguments.provider)
    print(json.dumps(plan(read_manifest(arguments.manifest), model, _options(arguments), arguments.tries), indent=1))
    return DONE


def _collect(arguments: argparse.Namespace) -> int:
    print(f"{collect(Store(arguments.output), arguments.table)} songs in {arguments.table}")
    return DONE


def _verify(arguments: argparse.Namespace) -> int:
    wrong = total = 0
    for song_id, faults in verify(Store(arguments.output), arguments.sample):
        total += 1
        wrong += bool(faults)
        for fault in faults:
            print(f"{song_id}: {fault}")
    print(f"{total} songs, {wrong} of them not as their receipts say")
    return FAILED if wrong else DONE


def main(words: list[str] | None = None) -> int:
    """Runs the command. 0: done; 1: some songs are not; 2: wrong usage; 130: interrupted."""
    arguments = parser().parse_args(words)
    commands = {"run": _run, "plan": _plan, "collect": _collect, "verify": _verify}
    try:
        return commands[arguments.command](arguments)
    except (ValueError, OSError, TonwerkError) as failure:
        print(f"tonwerk-catalogue: {failure}", file=sys.stderr)
        return USAGE
    except KeyboardInterrupt:
        print("tonwerk-catalogue: interrupted; what is done stays done", file=sys.stderr)
        return INTERRUPTED


if __name__ == "__main__":
    sys.exit(main())
