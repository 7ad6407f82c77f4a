#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Runs the commands that the documents show, and checks their links and pictures.

usage: check_documents.py SOURCES PRODUCTS BUILD_TREE MODELS

Each document's commands run in one folder that looks like the repository after `make build`, with a song.wav, the same
as raw samples in song.raw, and a model.onnx; the built programs are on the search path. Blocks marked `file=NAME` are
written there first. tests/docs/shell_blocks.py tells how blocks are marked. The package's own
README.md is run by the package's test.
"""
import os
import re
import subprocess
import sys
import tempfile
import wave
from pathlib import Path

import numpy as np
import shell_blocks

SOURCES, PRODUCTS, BUILD, MODELS = map(Path, sys.argv[1:])
DOCUMENTS = [*(SOURCES / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "SECURITY.md",
                                              "THIRD-PARTY.md")),
             *sorted((SOURCES / "docs").glob("*.md"))]


def look_like_the_repository(folder: Path) -> None:
    """Links to what a user has; build/ is a folder, so that what the commands write stays here."""
    for path in SOURCES.iterdir():
        if path.name not in ("build", ".git"):
            (folder / path.name).symlink_to(path)
    (folder / "build/cmake").mkdir(parents=True)
    (folder / "build/linux").symlink_to(PRODUCTS)
    (folder / "build/models").symlink_to(MODELS)
    (folder / "build/cmake/linux-release").symlink_to(BUILD)
    (folder / "model.onnx").symlink_to(MODELS / "gains.onnx")
    song = np.random.default_rng(1).uniform(-0.5, 0.5, (100001, 2))
    song.astype("<f4").tofile(folder / "song.raw")
    with wave.open(str(folder / "song.wav"), "wb") as file:
        file.setparams((2, 2, 44100, 0, "NONE", ""))
        file.writeframes((song * 32767).astype("<i2").tobytes())


def run_commands(document: Path) -> list[str]:
    """Runs a document's commands; returns what failed."""
    commands = shell_blocks.blocks_to_run(document)
    if not commands:
        return []
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        look_like_the_repository(folder)
        for target, text in shell_blocks.named_files(document):
            (folder / target).parent.mkdir(parents=True, exist_ok=True)
            (folder / target).write_text(text)
        done = subprocess.run(["bash", "-eux", "-c", "\n".join(commands)], cwd=folder, stdin=subprocess.DEVNULL,
                              env={**os.environ, "PATH": f"{PRODUCTS}:{os.environ['PATH']}"},
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    print(f"=== {document.name}\n{done.stdout}", flush=True)
    return [f"{document.name}: its commands end with {done.returncode}."] if done.returncode else []


def broken_links(document: Path) -> list[str]:
    text = document.read_text(encoding="utf-8")
    for *_, block in shell_blocks.blocks(document):
        text = text.replace(block, "")
    targets = re.findall(r"\]\(([^)#\s]+)[^)]*\)", text)
    return [f"{document.name}: there is no {target}." for target in targets
            if not re.match(r"[a-z]+:", target) and not (document.parent / target).exists()]


def unused_pictures() -> list[str]:
    texts = "".join(path.read_text(encoding="utf-8") for path in DOCUMENTS)
    return [f"No document shows {path.name}." for path in (SOURCES / "docs/pictures").iterdir()
            if f"pictures/{path.name})" not in texts]


def main() -> None:
    failures = unused_pictures()
    drawn = subprocess.run([sys.executable, SOURCES / "tools/make_pictures.py", "--check", SOURCES / "docs/pictures"],
                           stderr=subprocess.PIPE, text=True)
    failures += [drawn.stderr.strip()] if drawn.returncode else []
    for document in DOCUMENTS:
        try:
            failures += broken_links(document) + run_commands(document)
        except shell_blocks.UnmarkedError as fault:
            failures.append(str(fault))
    sys.exit("\n".join(failures) if failures else 0)


if __name__ == "__main__":
    main()
