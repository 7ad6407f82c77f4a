#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Exports the PyTorch example, checks it in the library against PyTorch, and sees that models which break the contract
are told apart.

usage: run_model_example.py MODELS EXAMPLES LIBRARY
"""
import subprocess
import sys
import tempfile
from pathlib import Path

MODELS, EXAMPLES, LIBRARY = map(Path, sys.argv[1:])
REASONS = {"missing_output": "The output bass_output is missing.", "missing_flag": "The input piano_flag is missing.",
           "extra_input": "The input temperature is one too many.", "mono": "is FLOAT [1, 2, 256, 2048]",
           "wrong_type": "is DOUBLE", "dynamic_output_shape": "0 means: left open"}


def run(script: str, *arguments: str | Path) -> subprocess.CompletedProcess[str]:
    done = subprocess.run([sys.executable, "-B", EXAMPLES / script, *arguments], capture_output=True, text=True)
    print(done.stdout, done.stderr, flush=True)
    return done


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        model = Path(folder) / "new" / "mine.onnx"
        assert run("export.py", model).returncode == 0
        assert run("check.py", LIBRARY, model, "--pytorch").returncode == 0
    other = run("check.py", LIBRARY, MODELS / "gains.onnx", "--pytorch")
    assert other.returncode == 1 and "not those of the network" in other.stdout, "Another network was taken for it."
    for name, reason in REASONS.items():
        done = run("check.py", LIBRARY, MODELS / f"wrong/{name}.onnx")
        assert done.returncode == 1 and reason in done.stdout, name


if __name__ == "__main__":
    main()
