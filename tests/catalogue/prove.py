#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A catalogue in a store that refuses at random, on a Ray cluster whose workers and nodes are killed: the end result
must be that of one clean run, bit for bit.

usage: prove.py [--songs N] [--seed N] [--figures SIZE...]

Three nodes of one processor each on this machine, one of them with a full disk where it can have one of its own (as
root). One node is killed in mid-run, another is added, and a worker is killed every few seconds. --figures measures
instead, on quiet nodes: songs per hour and the overhead of each song, for catalogues of those sizes.
"""
import argparse
import contextlib
import json
import os
import random
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter
from pathlib import Path

import fsspec
from songs import MODEL, descendants, insist, ledger, results, write_songs

HERE = Path(__file__).resolve().parent
CATALOGUE = [sys.executable, "-m", "tonwerk.catalogue.cli"]


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


class S3:
    """The store, as a process of its own."""

    def __init__(self, folder: Path, share: float, seed: int) -> None:
        self.port, self.record = free_port(), folder / "written.txt"
        self.record.touch()
        with open(folder / "store.log", "wb") as log:
            self.process = subprocess.Popen([sys.executable, HERE / "store_server.py", str(self.port), self.record,
                                             str(share), str(seed)], stdout=log, stderr=log)
        os.environ.update(AWS_ACCESS_KEY_ID="test", AWS_SECRET_ACCESS_KEY="test", AWS_DEFAULT_REGION="us-east-1",
                          AWS_ENDPOINT_URL=f"http://127.0.0.1:{self.port}")

    def fill(self, songs: Path) -> None:
        """Puts the songs into the bucket `songs`, however often that is refused."""
        fs = fsspec.filesystem("s3")
        for bucket in ("songs", "out"):
            insist(fs.mkdir, bucket)
        for song in songs.iterdir():
            insist(fs.put_file, str(song), f"songs/{song.name}")

    def written(self) -> list[str]:
        return self.record.read_text().splitlines()

    def end(self) -> None:
        self.process.kill()
        self.process.wait()


class Cluster:
    """Nodes of Ray on this machine, as processes that can be killed."""

    def __init__(self, folder: Path) -> None:
        self.address = f"127.0.0.1:{free_port()}"
        self.folder = folder
        self.nodes: list[subprocess.Popen[bytes]] = []
        self.add("--head", f"--port={self.address.rpartition(':')[2]}", "--include-dashboard=false",
                 f"--temp-dir={folder}/ray")

    def add(self, *words: str, scratch: Path | None = None) -> None:
        role = words or (f"--address={self.address}",)
        settings = {**os.environ, "TMPDIR": str(scratch or self.folder)}
        with open(self.folder / f"node{len(self.nodes)}.log", "wb") as log:
            self.nodes.append(subprocess.Popen(
                [Path(sys.executable).with_name("ray"), "start", *role, "--num-cpus=1", "--block",
                 "--object-store-memory=100000000"], env=settings, stdout=log, stderr=log))
        self.wait_for_nodes()

    def wait_for_nodes(self) -> None:
        log = self.folder / f"node{len(self.nodes) - 1}.log"
        while b"Ray runtime started" not in log.read_bytes():
            if self.nodes[-1].poll() is not None:
                sys.exit(f"A node does not start:\n{log.read_text()}")
            time.sleep(0.2)

    def kill_node(self, number: int) -> int:
        """With everything that belongs to it. Returns how many processes that were."""
        node = self.nodes[number]
        family = [node.pid, *descendants(node.pid)]
        for process in family:
            kill(process)
        node.wait()
        return len(family)

    def workers(self) -> list[int]:
        return [process for node in self.nodes if node.poll() is None
                for process in descendants(node.pid, "ray::song")]

    def end(self) -> None:
        for number, node in enumerate(self.nodes):
            if node.poll() is None:
                self.kill_node(number)


def kill(process: int) -> None:
    with contextlib.suppress(ProcessLookupError):
        os.kill(process, signal.SIGKILL)


def run_catalogue(output: str, *words: str) -> str:
    done = subprocess.run([*CATALOGUE, "run", "s3://songs", "-o", output, "--model", MODEL, "--memory", "0.1", *words],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode not in (0, 1):
        sys.exit(f"The run ended with {done.returncode}:\n{done.stdout}")
    return done.stdout.strip().splitlines()[-1]


def full_disk(folder: Path) -> Path | None:
    """A file system of 200 KB, which no song fits on; None where that is not allowed."""
    folder.mkdir()
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=200k", "tmpfs", folder], capture_output=True)
    return folder if mounted.returncode == 0 else None


def disturb(cluster: Cluster, lots: random.Random, over: threading.Event, told: Counter[str]) -> None:
    """Kills a worker every few seconds, a whole node once, and adds one."""
    begin = time.monotonic()
    while not over.wait(lots.uniform(2, 5)):
        workers = cluster.workers()
        if workers:
            kill(lots.choice(workers))
            told["workers killed"] += 1
        if time.monotonic() - begin > 15 and not told["nodes killed"]:
            told["processes of that node"] = cluster.kill_node(1)
            told["nodes killed"] += 1
        if time.monotonic() - begin > 25 and not told["nodes added"]:
            cluster.add()
            told["nodes added"] += 1


def check_written_once(lines: list[str]) -> None:
    """After a song's receipt nothing of it is written again."""
    committed: set[str] = set()
    for line in lines:
        method, path = line.split(" ", 1)
        if method != "PUT" or not path.startswith("/out/faulty/") or "/ledger/" in path:
            continue
        song = "/".join(path.split("/")[:6])
        if song in committed:
            sys.exit(f"Written after its receipt: {path}")
        if path.endswith("/receipt.json"):
            committed.add(song)


def prove(folder: Path, songs: int, seed: int) -> None:
    write_songs(folder / "songs", songs)
    store = S3(folder, 0.04, seed)
    time.sleep(3)
    disk = full_disk(folder / "full")
    cluster = Cluster(folder)
    try:
        store.fill(folder / "songs")
        print("clean:", run_catalogue("s3://out/clean", "--array", "--shard", "1/1", "--retries", "100"), flush=True)
        cluster.add()
        cluster.add(scratch=disk)
        told: Counter[str] = Counter()
        over = threading.Event()
        trouble = threading.Thread(target=disturb, args=(cluster, random.Random(seed), over, told))
        trouble.start()
        begin = time.monotonic()
        try:
            said = run_catalogue("s3://out/faulty", "--address", cluster.address, "--retries", "50")
        finally:
            over.set()
            trouble.join()
        seconds = time.monotonic() - begin
        print(f"in trouble: {said} in {seconds:.0f} s; {dict(told)}; full disk: {bool(disk)}", flush=True)
        check(store, songs, told)
    finally:
        cluster.end()
        store.end()
        if disk:
            subprocess.run(["umount", disk], check=True)


def check(store: S3, songs: int, told: Counter[str]) -> None:
    clean, faulty = results("s3://out/clean"), results("s3://out/faulty")
    assert len(clean) == 5 * songs, len(clean)
    different = [name for name in clean.keys() | faulty.keys() if clean.get(name) != faulty.get(name)]
    assert not different, different[:10]
    check_written_once(store.written())
    rows = ledger("s3://out/faulty")
    states = Counter(row["state"] for row in rows)
    done = Counter(row["id"] for row in rows if row["state"] == "done")
    assert max(done.values()) == 1 and told["workers killed"] and told["nodes killed"] and told["nodes added"], (
        states, told)
    print("the results are the same bit for bit; rows of the ledger:", dict(states))


def figures(folder: Path, sizes: list[int]) -> None:
    """On three quiet nodes and a store without faults."""
    store = S3(folder, 0, 1)
    time.sleep(3)
    try:
        for size in sizes:
            write_songs(folder / "songs", size, 0.1)
            if size == sizes[0]:
                store.fill(folder / "songs")
            else:
                fs = fsspec.filesystem("s3")
                for song in (folder / "songs").iterdir():
                    fs.put_file(str(song), f"songs/{song.name}")
            begin = time.monotonic()
            run_catalogue(f"s3://out/plain{size}", "--array", "--shard", "1/1")
            alone = time.monotonic() - begin
            begin = time.monotonic()
            run_catalogue(f"s3://out/ray{size}", "--jobs", "1")
            ray = time.monotonic() - begin
            print(json.dumps({"songs": size, "seconds_without_ray": round(alone, 1), "seconds_on_ray": round(ray, 1),
                              "ms_per_song_without_ray": round(1000 * alone / size, 1),
                              "ms_per_song_on_ray": round(1000 * ray / size, 1)}), flush=True)
    finally:
        store.end()


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--songs", type=int, default=500)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--figures", type=int, nargs="+")
    options = parser.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("Ended from outside."))
    with tempfile.TemporaryDirectory(prefix="tw") as name:
        if options.figures:
            figures(Path(name), options.figures)
        else:
            print("seed", options.seed)
            prove(Path(name), options.songs, options.seed)


if __name__ == "__main__":
    main()
