#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Attacks tonwerk-separate for some minutes: with songs, models, names, signals, other writers and full disks.

Usage: attack.py MODELDIR PROGRAM [--minutes M] [--seed S] [--round R]

PROGRAM had better be one with the address sanitizer. Every round draws an attack and its details from the seed and
its own number, so that --seed S --round R repeats one. What must hold whatever happens: the program ends by itself,
with one of its own exit codes; a song has all its files or none of this run; nothing unfinished and no lock is left
behind, but by a run that was killed, and then the next run clears it away. Ends with 1 at the first round in which
that was not so, and leaves its folder.
"""

import argparse
import json
import os
import random
import resource
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter
from collections.abc import Callable
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "apps"))

from program import noise, wav_bytes

SEEDS = Path(__file__).resolve().parents[1] / "fuzz/seeds/audio"
LIMIT = 120  # seconds for a run under a sanitizer on a busy machine
SANITIZERS = {"ASAN_OPTIONS": "exitcode=99:detect_leaks=0:allocator_may_return_null=1",
              "UBSAN_OPTIONS": "halt_on_error=1:exitcode=99:print_stacktrace=1"}
UNFINISHED = "tonwerk-unfinished"
LOCK = "tonwerk.lock"
# Numbers that are read as sizes, counts and positions.
ODD_NUMBERS = [0, 1, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x20000001,
               0x7FFFFFF0]


class BrokenPromiseError(Exception):
    """A promise did not hold."""


class Round:
    """One attack in a folder of its own."""

    def __init__(self, program: Path, models: Path, folder: Path, dice: random.Random) -> None:
        self.program = program
        self.models = models
        self.folder = folder
        self.dice = dice
        self.out = folder / "out"

    def command(self, *arguments: str, model: str = "gains.onnx") -> list[str]:
        return [str(self.program), *arguments, "-o", "out", "--model", str(self.models / model)]

    def start(self, command: list[str], limit: Callable[[], None] | None = None) -> "subprocess.Popen[bytes]":
        return subprocess.Popen(command, cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=dict(os.environ, **SANITIZERS), preexec_fn=limit)

    def end(self, run: "subprocess.Popen[bytes]", codes: tuple[int, ...] = (0, 1), input: bytes | None = None) -> str:
        try:
            _, errors = run.communicate(input, timeout=LIMIT)
        except subprocess.TimeoutExpired:
            run.kill()
            raise BrokenPromiseError(f"it did not end within {LIMIT} s: {run.args}") from None
        text = errors.decode("utf-8", "replace")
        if run.returncode not in codes or "Sanitizer" in text or "runtime error:" in text:
            raise BrokenPromiseError(f"exit code {run.returncode} of {run.args}:\n{text[-6000:]}")
        return text

    def run(self, *arguments: str, model: str = "gains.onnx", codes: tuple[int, ...] = (0, 1),
            limit: Callable[[], None] | None = None) -> str:
        return self.end(self.start(self.command(*arguments, model=model), limit), codes)

    def check_folders(self, may_be_killed: bool = False) -> None:
        """Every folder of stems is whole."""
        for folder in self.out.iterdir() if self.out.is_dir() else []:
            names = {path.name for path in folder.iterdir()}
            if not may_be_killed and names & {UNFINISHED, LOCK}:
                raise BrokenPromiseError(f"{folder} has {names}")
            receipt = folder / "receipt.json"
            if not receipt.exists():
                if not may_be_killed:
                    raise BrokenPromiseError(f"{folder} has no receipt: {names}")
                continue
            for name, size in json.loads(receipt.read_text(encoding="utf-8"))["files"].items():
                if (folder / name).stat().st_size != size:
                    raise BrokenPromiseError(f"{folder / name} is not as long as its receipt says")

    def mutated(self, content: bytes) -> bytes:
        bytes_ = bytearray(content)
        for _ in range(self.dice.choice((1, 1, 2, 4, 16))):
            place = self.dice.randrange(len(bytes_)) if self.dice.random() < 0.5 else \
                self.dice.randrange(min(len(bytes_), 128))
            match self.dice.randrange(7):
                case 0:
                    bytes_[place] = self.dice.randrange(256)
                case 1:
                    bytes_[place] ^= 1 << self.dice.randrange(8)
                case 2 | 3:
                    width = self.dice.choice((2, 4, 8))
                    order = self.dice.choice(("little", "big"))
                    value = self.dice.choice(ODD_NUMBERS) & (1 << 8 * width) - 1
                    bytes_[place:place + width] = value.to_bytes(width, order)
                case 4:
                    del bytes_[place:place + self.dice.randrange(1, 200)]
                case 5:
                    bytes_[place:place] = bytes_[place:place + self.dice.randrange(1, 200)]
                case 6:
                    del bytes_[place:]
            if not bytes_:
                return b"\0"
        return bytes(bytes_)

    # --- the attacks ---------------------------------------------------------------------------------------------

    def songs(self) -> None:
        """Changed files of every format."""
        seeds = sorted(SEEDS.iterdir())
        for number in range(40):
            (self.folder / f"{number}.wav").write_bytes(self.mutated(self.dice.choice(seeds).read_bytes()))
        self.run(".", "--stems", "bass", "--fast", *self.dice.choice(([], ["--jobs", "3"], ["--format", "pcm16"])))
        self.check_folders()

    def models_of_others(self) -> None:
        """Hostile networks, and changed ones."""
        (self.folder / "song.wav").write_bytes(wav_bytes(noise(5000)))
        for source in self.dice.sample(sorted(self.models.glob("*.onnx")) + sorted(self.models.glob("wrong/*.onnx")) +
                                       sorted(self.models.glob("hostile/external*.onnx")), 3):
            content = source.read_bytes()
            for number in range(4):
                model = self.folder / f"{number}.onnx"
                model.write_bytes(self.mutated(content) if number or "external" not in source.name else content)
                text = self.run("song.wav", model=str(model))
                if number == 0 and "external" in source.name and "has external data" not in text:
                    raise BrokenPromiseError(f"{source.name} is not refused: {text}")
                self.check_folders()
                check = self.start([str(self.program), "check-model", str(model)])
                self.end(check)

    def names(self) -> None:
        """Names of all kinds, for songs that can be separated and others."""
        letters = ["a", " ", ".", "-", "'", '"', "[", "]", ",", "\\", "*", "%s", "\n", "\x1b[2J", "\u202e", "\u009b",
                   "ß", "歌", "\udc9b", "\udcff", "~", "$(x)", "CON", ";"]
        for number in range(8):
            name = "".join(self.dice.choices(letters, k=self.dice.randrange(1, 30))).strip(".") or "x"
            content = wav_bytes(noise(500)) if number % 2 else b"none"
            (self.folder / "songs").mkdir(exist_ok=True)
            (self.folder / "songs" / f"{name}.wav").write_bytes(content)
        text = self.run("songs", "--fast", "--progress", self.dice.choice(("text", "json")))
        if any(character in text for character in "\x1b\u202e\u009b"):
            raise BrokenPromiseError(f"names steer the terminal: {text!r}")
        self.check_folders()

    def signals(self) -> None:
        """A run that is ended at any moment, in any way; then it is resumed."""
        for number in range(3):
            (self.folder / f"{number}.wav").write_bytes(wav_bytes(noise(self.dice.randrange(1, 600000))))
        options = [".", *self.dice.choice(([], ["--jobs", "2"], ["--report"], ["--fast"]))]
        for _ in range(3):
            run = self.start(self.command(*options, "--resume"))
            time.sleep(self.dice.uniform(0, 6))
            number = self.dice.choice((signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGKILL))
            run.send_signal(number)
            sent = time.monotonic()
            # Before it watches for signals the system ends it.
            self.end(run, (0, 1, 130, -number))
            if time.monotonic() - sent > 10:
                raise BrokenPromiseError(f"{number.name} was heeded after {time.monotonic() - sent:.1f} s")
            self.check_folders(may_be_killed=True)
        self.run(*options, "--resume", codes=(0,))
        self.check_folders()
        for number in range(3):
            if not (self.out / str(number) / "receipt.json").exists():
                raise BrokenPromiseError(f"song {number} was not done after all")

    def writers(self) -> None:
        """Several runs for the same folders: each song is one run's."""
        for number in range(3):
            (self.folder / f"{number}.wav").write_bytes(wav_bytes(noise(300000 + number)))
        runs = [self.start(self.command(".", *self.dice.choice(([], ["--format", "pcm24"], ["--resume"]))))
                for _ in range(3)]
        for run in runs:
            self.end(run)
        self.check_folders()

    def disks(self) -> None:
        """Files that must not grow, folders that must not be written to, obstacles."""
        (self.folder / "song.wav").write_bytes(wav_bytes(noise(300000)))
        size = self.dice.choice((0, 1, 44, 100, 4096, 10000, 1000000, 2400000, 2400100))
        text = self.run("song.wav", "--report", codes=(1,) if size < 2400000 else (0, 1),
                        limit=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (size, size)))
        if size < 2400000 and "tonwerk-separate: " not in text:
            raise BrokenPromiseError(f"nothing was said of a disk that holds {size} bytes")
        self.check_folders()
        song = self.out / "song"
        song.mkdir(parents=True, exist_ok=True)
        precious = self.folder / "precious"
        precious.write_bytes(b"mine")
        names = ["vocals.wav", "mix.wav", "receipt.json", "report.html", UNFINISHED, LOCK, "drum.wav"]
        for name in self.dice.sample(names, 3):
            place = song / name
            if not place.exists():
                self.dice.choice((place.mkdir, lambda place=place: place.symlink_to(precious),
                                  lambda place=place: os.link(precious, place), lambda place=place: os.mkfifo(place)))()
        before = {path.name for path in song.iterdir()}
        run = self.start(self.command("song.wav", "--report"))
        text = self.end(run)
        if precious.read_bytes() != b"mine":
            raise BrokenPromiseError("a link was followed")
        if run.returncode == 1 and "tonwerk-separate: " not in text:
            raise BrokenPromiseError("nothing was said of an obstacle")
        if run.returncode == 1 and not (before - {LOCK, UNFINISHED}) <= {path.name for path in song.iterdir()}:
            raise BrokenPromiseError("what was there is gone")


ATTACKS = [Round.songs, Round.songs, Round.models_of_others, Round.names, Round.signals, Round.writers, Round.disks]


def attack(program: Path, models: Path, seed: int, number: int) -> str:
    dice = random.Random(f"{seed}.{number}")
    kind = dice.choice(ATTACKS)
    folder = Path(tempfile.mkdtemp(prefix="tonwerk-attack-"))
    try:
        kind(Round(program, models, folder, dice))
    except BrokenPromiseError as broken:
        sys.exit(f"Round {number}, {kind.__name__}, in {folder} (--seed {seed} --round {number}): {broken}")
    subprocess.run(["rm", "-rf", str(folder)], check=True)
    return kind.__name__


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("models", type=Path)
    parser.add_argument("program", type=Path)
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--round", type=int)
    options = parser.parse_args()
    program, models = options.program.resolve(), options.models.resolve()
    if options.round is not None:
        print(attack(program, models, options.seed, options.round))
        return
    end = time.monotonic() + 60 * options.minutes
    done: Counter[str] = Counter()
    while time.monotonic() < end:
        done[attack(program, models, options.seed, done.total())] += 1
    print(f"Seed {options.seed}: {done.total()} rounds held: " +
          ", ".join(f"{count} of {name}" for name, count in sorted(done.items())) + ".")


if __name__ == "__main__":
    main()
