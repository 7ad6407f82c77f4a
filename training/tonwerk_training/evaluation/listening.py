# SPDX-License-Identifier: MIT
"""Real recordings from Debian's packages: nobody has their stems, but much can be seen.

None of this music is ever trained on.
"""

import subprocess
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

REPOSITORY = Path(__file__).resolve().parents[3]
UNPACK = REPOSITORY / "tools/debian_package.py"
EXCERPT = 40  # seconds

SECTOID = "usr/share/games/fretsonfire/data/songs/sectoid"
MULDJORD = "usr/share/games/fretsonfire/data/songs/muldjord"
HYPERROGUE = "usr/share/hyperrogue/music"


@dataclass(frozen=True)
class Recording:
    """A piece, the files that make it up when they are added, and where its excerpt begins in seconds."""

    name: str
    title: str
    licence: str
    package: str
    files: tuple[str, ...]
    start: int


RECORDINGS = (
    Recording("chaosland", "\"Escape from chaosland\" by Sectoid (rock, lead guitar)", "MIT",
              "fretsonfire-songs-sectoid",
              (f"{SECTOID}/Escape from chaosland/song.ogg", f"{SECTOID}/Escape from chaosland/guitar.ogg"), 60),
    Recording("mutilated_mime", "\"Mutilated mime\" by El Senator of Muldjord (metal)", "CC-BY-SA-3.0",
              "fretsonfire-songs-muldjord",
              (f"{MULDJORD}/mutilated_mime/song.ogg", f"{MULDJORD}/mutilated_mime/guitar.ogg"), 60),
    Recording("caribbean", "\"Caribbean\" from HyperRogue, by Will Savino", "CC-BY-SA-3.0", "hyperrogue-music",
              (f"{HYPERROGUE}/hr-savino-caribbean.ogg",), 10),
    Recording("jungle", "\"Jungle\" from HyperRogue, by Shawn Parrotte", "CC-BY-SA-3.0", "hyperrogue-music",
              (f"{HYPERROGUE}/hr3-jungle.ogg",), 20),
)


class FetchError(RuntimeError):
    """A recording cannot be had; the reason in one sentence."""


def fetch(folder: Path) -> list[Path]:
    """Writes every recording's excerpt as NAME.wav into the folder, fetching what is missing. Returns the paths."""
    paths = []
    for recording in RECORDINGS:
        path = folder / f"{recording.name}.wav"
        paths.append(path)
        if path.exists():
            continue
        source = folder / "packages" / recording.name
        _run([UNPACK, recording.package, source, *recording.files])
        tracks = [source / Path(name).name for name in recording.files]
        partial = path.with_suffix(".part")
        mixed = ["-m", *(word for track in tracks for word in ("-v", "0.5", track))] if len(tracks) > 1 else tracks
        _run(["sox", "-D", *mixed, "-t", "wav", "-b", "16", partial, "rate", "44100", "channels", "2",
              "trim", str(recording.start), str(EXCERPT), "fade", "t", "0.05", str(EXCERPT), "0.1", "norm", "-1"])
        partial.replace(path)
    return paths


def _run(command: Sequence[str | Path]) -> None:
    try:
        result = subprocess.run(command, capture_output=True, text=True, errors="replace", check=False)
    except OSError as failure:
        raise FetchError(f"{command[0]} cannot be run: {failure.strerror}.") from failure
    if result.returncode != 0:
        raise FetchError((result.stderr.strip() or f"{command[0]} failed.").splitlines()[-1])
