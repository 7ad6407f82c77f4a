#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Sets our pipeline against the same job written with NumPy/SciPy and with PyTorch: one core, one run, no network.

usage: compare.py [--seconds N] [--repetitions N] [--bench FILE]

First shows that every peer does the job, then measures it on N seconds of stereo noise, then our steady-state chunk
with the built benchmark. The time of the stand-in network is left out. If BENCH_OUT is set, the figures are written to
that file as JSON.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Any

os.environ["OMP_NUM_THREADS"] = "1"  # read when the libraries are loaded

try:
    import numpy as np
    import scipy_peers
    import torch_peers
    from job import BLOCK, CHANNELS, CONTEXT, FFT_SIZE, GAINS, SEGMENT_SAMPLES
    from offline_reference import spectra_of
except ImportError as failure:
    sys.exit(f"compare.py: {failure} (run tools/setup.sh peers).")

SAMPLE_RATE = 44100
OUR_BENCHMARK = "chunkPlanar"  # the peers take and return their channels apart, too
BENCH = Path(__file__).resolve().parents[2] / "build" / "linux" / "bench"

# Single precision: 2^-24 of spectra of up to a few hundred, over two transforms of 12 stages; and what the noise leaves
# in the highest bin, which the job drops. Frames in a wrong place or order are wrong by 0.1 and more.
ROUNDING = 1e-5


def noise(blocks: int) -> list[np.ndarray]:
    """Blocks {channel, sample} without content at half the sample rate."""
    white = np.random.default_rng(1).uniform(-0.5, 0.5, (CHANNELS, blocks * BLOCK + 2))
    smooth = (white[:, :-2] + 2 * white[:, 1:-1] + white[:, 2:]) / 4
    return [np.ascontiguousarray(block, np.float32) for block in np.split(smooth, blocks, axis=1)]


def check(peer: Any, blocks: list[np.ndarray]) -> None:
    """Ends the program unless the network sees the right spectra and the results are what its gains make them."""
    results = np.concatenate([np.asarray(peer.process(block)) for block in blocks], axis=2)
    signal = np.concatenate(blocks, axis=1).astype(float)

    spectra = spectra_of(signal[:, -SEGMENT_SAMPLES:])
    planes = np.stack([spectra[0].real, spectra[0].imag, spectra[1].real, spectra[1].imag])
    error = np.abs(np.asarray(peer.segment)[0] - planes).max() / np.abs(planes).max()
    if not error <= ROUNDING:
        sys.exit(f"compare.py: {peer.name}: the network's input is off by {error:.1e} of its largest value.")

    # The stream begins out of silence, so that its first frames are no whole overlap-add.
    expected = np.append(GAINS, [0, 1])[:, None, None] * signal[:, FFT_SIZE:-CONTEXT]
    error = np.abs(results[..., CONTEXT + FFT_SIZE:] - expected).max()
    if not error <= ROUNDING:
        sys.exit(f"compare.py: {peer.name}: the results are off by {error:.1e}.")


def run_peer(peer: Any, blocks: list[np.ndarray]) -> tuple[float, float]:
    """Seconds (of the processor, of the clock) per second of audio."""
    peer.network.cpu = peer.network.wall = 0.0
    wall, cpu = time.perf_counter(), time.process_time()
    for block in blocks:
        peer.process(block)
    cpu = time.process_time() - cpu - peer.network.cpu
    wall = time.perf_counter() - wall - peer.network.wall
    audio = len(blocks) * BLOCK / SAMPLE_RATE
    return cpu / audio, wall / audio


def measure_peer(peer: Any, blocks: list[np.ndarray], repetitions: int) -> list[tuple[float, float]]:
    check(peer, blocks[:3])
    run_peer(peer, blocks)  # warm-up
    runs = [run_peer(peer, blocks) for _ in range(repetitions)]
    with open("/proc/self/status") as status:
        threads = next(int(line.split()[1]) for line in status if line.startswith("Threads:"))
    if threads != 1:
        sys.exit(f"compare.py: {peer.name} started threads: there are {threads}.")
    return runs


def measure_ours(bench: Path, repetitions: int) -> list[tuple[float, float]]:
    with tempfile.TemporaryDirectory() as folder:
        report = Path(folder) / "report.json"
        run = subprocess.run([bench, f"--benchmark_filter=^{OUR_BENCHMARK}",
                              f"--benchmark_repetitions={repetitions}",
                              f"--benchmark_out={report}", "--benchmark_out_format=json"],
                             env={name: value for name, value in os.environ.items() if name != "BENCH_OUT"},
                             stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace")
        if run.returncode != 0:
            sys.exit(f"compare.py: {bench} ended with {run.returncode}:\n{run.stdout}{run.stderr}")
        entries = json.loads(report.read_text())["benchmarks"]
    chunks = [entry for entry in entries if entry["run_type"] == "iteration"]
    if len(chunks) != repetitions or any(entry.get("error_occurred") for entry in chunks):
        sys.exit(f"compare.py: {bench} gave {len(chunks)} results of {OUR_BENCHMARK}.")
    seconds = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    audio = BLOCK / SAMPLE_RATE
    return [tuple(entry[kind] * seconds[entry["time_unit"]] / audio for kind in ("cpu_time", "real_time"))
            for entry in chunks]


def medians(runs: list[tuple[float, float]]) -> list[float]:
    return [statistics.median(times) for times in zip(*runs)]


def print_table(results: dict[str, list[tuple[float, float]]], about: dict[str, Any]) -> None:
    before, after = about["load"]
    print(f"The pipeline around the network, without the network: {about['seconds']:.0f} s of stereo noise in blocks\n"
          f"of {BLOCK} frames, one core of {about['processor']}, median of {about['repetitions']} runs.\n"
          f"{', '.join(about['versions'])}. Load of the machine before and after: {before:.1f}, {after:.1f}.\n")
    print(f"{'':32}{'processor time per second of audio':>42}{'clock':>18}")
    print(f"{'':32}{'median':>11}{'lowest':>11}{'highest':>11}{'share':>9}{'to ours':>9}{'median':>9}")
    ours, _ = medians(results["tonwerk"])
    for name, runs in results.items():
        cpu, wall = medians(runs)
        times = (cpu, min(runs)[0], max(runs)[0])
        print(f"{name:32}" + "".join(f"{1e3 * value:8.2f} ms" for value in times)
              + f"{cpu:9.2%}{cpu / ours:8.2f}x{1e3 * wall:7.1f} ms")


def processor_name() -> str:
    with open("/proc/cpuinfo") as lines:
        return next((line.split(":")[1].strip() for line in lines if line.startswith("model name")), "this machine")


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--bench", type=Path, default=BENCH)
    options = parser.parse_args()
    if not options.bench.is_file():
        sys.exit(f"compare.py: there is no {options.bench} (run make bench-peers).")
    if options.repetitions < 1:
        sys.exit("compare.py: --repetitions must be at least 1.")

    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})  # the benchmark inherits it
    load = os.getloadavg()[0]
    blocks = noise(max(3, round(options.seconds * SAMPLE_RATE / BLOCK)))
    peers: list[Any] = [*scipy_peers.PEERS, *torch_peers.PEERS]
    results = {peer.name: measure_peer(peer(), blocks, options.repetitions) for peer in peers}
    results = {"tonwerk": measure_ours(options.bench, options.repetitions), **results}
    about = {"processor": processor_name(), "seconds": len(blocks) * BLOCK / SAMPLE_RATE,
             "repetitions": options.repetitions, "load": [load, os.getloadavg()[0]],
             "versions": [scipy_peers.VERSION, torch_peers.VERSION]}
    print_table(results, about)
    if os.environ.get("BENCH_OUT"):
        figures = {name: [{"cpu": cpu, "wall": wall} for cpu, wall in runs] for name, runs in results.items()}
        report = {**about, "seconds_per_second_of_audio": figures}
        Path(os.environ["BENCH_OUT"]).write_text(json.dumps(report, indent=2) + "\n")


if __name__ == "__main__":
    main()
