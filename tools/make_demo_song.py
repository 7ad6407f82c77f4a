#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Makes the piece of music that `make demo` separates: 36 seconds of a rock ballad, from a Debian package.

Usage: make_demo_song.py OUT.wav

The package is downloaded once into .deps and not installed. Nothing is done when OUT.wav exists.
"""

import hashlib
import os
import sys
from pathlib import Path

from debian_package import PackageError, extract, run

PACKAGE = "fretsonfire-songs-sectoid"
FOLDER = "usr/share/games/fretsonfire/data/songs/sectoid/Feelings"
CREDITS = (f"Demo song: \"Feelings\", composed and performed by Sectoid, (c) 2006/2007 Carlos Viola Iborra.\n"
           f"From Debian's package {PACKAGE}, under the MIT licence: see .deps/demo-music/copyright.")

# The band recorded its lead guitar apart from all the rest; together they are the song.
TRACKS = {
    "song.ogg": "8f3b11be42b4caf1b277c62a46436f015a0bcc559ca53871899ada23c6837bf5",
    "guitar.ogg": "77089d9bfa71890a9b731d22512a0388914b17295992c3f3a1534dcf60a6894a",
}
START = 163  # seconds: the end of a guitar solo, a quiet break without drums, then the whole band
LENGTH = 36

MUSIC = Path(__file__).resolve().parent.parent / ".deps" / "demo-music"


def check_track(path: Path) -> None:
    if hashlib.sha256(path.read_bytes()).hexdigest() != TRACKS[path.name]:
        raise PackageError(f"Debian's package {PACKAGE} no longer has the {path.name} pinned in make_demo_song.py.")


def fetch_tracks() -> None:
    if not (MUSIC / "copyright").exists():
        print(f"Fetching Debian's package {PACKAGE} (29 MB)", flush=True)
    extract(PACKAGE, [f"{FOLDER}/{name}" for name in TRACKS], MUSIC, check_track)


def render(target: Path) -> None:
    """Both tracks at the level they were made for, brought to just below full scale, with soft ends."""
    target.parent.mkdir(parents=True, exist_ok=True)
    partial = target.with_suffix(f".{os.getpid()}.part")
    try:
        run(["sox", "-D", "-m", *(word for name in TRACKS for word in ("-v", "0.5", MUSIC / name)),
             "-t", "wav", "-b", "16", partial,
             "trim", str(START), str(LENGTH), "fade", "t", "0.05", str(LENGTH), "0.5", "norm", "-1"])
        partial.replace(target)
    finally:
        partial.unlink(missing_ok=True)


def main(arguments: list[str]) -> None:
    if len(arguments) != 1:
        sys.exit("usage: make_demo_song.py OUT.wav")
    target = Path(arguments[0])
    if target.exists():
        return
    try:
        fetch_tracks()
        render(target)
    except PackageError as failure:
        sys.exit(f"make_demo_song.py: {failure}")
    except OSError as failure:
        sys.exit(f"make_demo_song.py: cannot write {failure.filename}: {failure.strerror}.")
    print(CREDITS)


if __name__ == "__main__":
    main(sys.argv[1:])
