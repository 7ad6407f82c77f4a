#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Builds a project that takes the tree in by add_subdirectory, and runs its programs.

usage: check_embedding.py SOURCES BUILD_FOLDER MODEL
"""

import subprocess
import sys
from pathlib import Path


def run(*command: str | Path) -> str:
    """What a command prints; one that fails ends the test."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
    print(f"$ {' '.join(str(word) for word in command)}\n{done.stdout[-3000:]}{done.stderr}", flush=True)
    if done.returncode != 0:
        sys.exit(f"{command[0]} ended with {done.returncode}.")
    return done.stdout


def main() -> None:
    """Configures, builds and runs the consumer."""
    sources, build, model = (Path(word).resolve() for word in sys.argv[1:])
    consumer = Path(__file__).resolve().parent / "consumer"
    run("cmake", "-S", consumer, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", f"-DTONWERK_SOURCES={sources}")
    run("cmake", "--build", build, "-j", "2")
    for program in ("consumer_c", "consumer_cpp"):
        if "441000 frames" not in run(build / program, model):
            sys.exit(f"{program} did not separate its ten seconds.")


if __name__ == "__main__":
    main()
