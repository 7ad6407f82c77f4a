#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that the sources include each other in one direction, and other libraries only where they belong.

usage: check_includes.py ROOT        (ROOT holds include/, src/ and apps/)

Data flows from the api to the pipeline, the spectral part and the inference interface, and so do the includes. In the
program they lead from the command line to the batch, the separation, the audio files and the system.
"""
import re
import sys
from collections.abc import Iterable, Iterator
from pathlib import Path

# For each module, what it may include of our own: a folder of src or apps, or one file.
ALLOWED = {
    "include": ["tonwerk/"],
    "src/common": ["common/", "tonwerk/"],
    "src/inference": ["common/", "inference/", "tonwerk/StreamGeometry.h"],
    "src/spectral": ["common/", "spectral/", "inference/IInference.h"],
    "src/pipeline": [
        "common/", "pipeline/", "spectral/", "inference/IInference.h", "tonwerk/StreamGeometry.h",
    ],
    "src/c": [
        "c/", "common/", "tonwerk/tonwerk_c.h", "tonwerk/tonwerk_live.h", "tonwerk/StreamGeometry.h",
        "api/ModelScrambling.h", "api/SampleLayout.h", "pipeline/SteppedStream.h", "pipeline/RunGeometry.h",
        "inference/IInference.h", "inference/ISharedModel.h", "inference/InferenceBackend.h",
        "inference/ProcessMemory.h",
    ],
    "src/api": [
        "common/", "api/", "pipeline/", "tonwerk/",
        "inference/IInference.h", "inference/StemFlags.h", "inference/InferenceBackend.h",
    ],
    "apps/system": ["system/"],
    "apps/audio": ["audio/", "system/"],
    "apps/analysis": ["analysis/"],
    "apps/separation": [
        "separation/", "audio/", "system/", "tonwerk/", "common/Stem",
        "inference/RuntimeLoader.h", "api/ModelScrambling.h", "common/MessageReader.h",
    ],
    "apps/report": ["report/", "separation/", "audio/FlacFile.h", "system/", "spectral/"],
    "apps/handoff": ["handoff/", "separation/"],
    "apps/batch": ["batch/", "handoff/", "report/", "separation/", "analysis/", "audio/", "system/", "tonwerk/"],
    "apps/cli": ["cli/", "batch/", "separation/", "audio/", "system/"],
    "apps/tools": [
        "tools/", "separation/", "system/", "tonwerk/",
        "inference/", "api/ModelScrambling.h", "common/Log.h",
    ],
    "apps": ["Program.h", "cli/", "batch/", "tools/", "separation/", "system/"],
}

# Other libraries' headers (a pattern of the included name), and the only files that may include them.
CONFINED = {
    r"(.*/)?pffft\.h": ["src/spectral/PFFFTTransformer.cpp"],
    r"(.*/)?onnxruntime.*|.*provider_(factory|options)\.h": ["src/inference/OrtApi.h"],
    r"dxgi.*|d3d.*|DirectML\.h": ["src/inference/"],
    r"windows\.h|dlfcn\.h|link\.h|io\.h|fcntl\.h|unistd\.h": ["src/inference/", "apps/system/"],
    r"delayimp\.h": ["src/inference/"],
    # The set-up of the one logger needs plog's appender and formatter.
    r"plog/.*": ["src/common/Log.h", "src/api/LogSetup.", "src/c/LogRoute.", "apps/tools/LogLines."],
    r"boost/lockfree/.*": ["src/c/LiveExchange.h"],
    r"CLI/CLI\.hpp": ["apps/cli/", "apps/tools/Tools.cpp"],
    r"sndfile\.h|mpg123\.h|ogg/.*": ["apps/audio/"],
    r"ebur128\.h": ["apps/analysis/Loudness.h"],
    r"stb/stb_image_write.*": ["apps/report/"],
    r"CDSPResampler.*": ["apps/separation/Resampler.cpp"],
}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*[<"]([^>"]+)[>"]', re.MULTILINE)


def starts_with_one_of(text: str, beginnings: Iterable[str]) -> bool:
    return any(text.startswith(beginning) for beginning in beginnings)


def problems_of(path: Path, root: Path) -> Iterator[str]:
    """One sentence for each include of the file that is out of place."""
    name = path.relative_to(root).as_posix()
    top, *inner = name.split("/")
    module = top if top == "include" or len(inner) == 1 else f"{top}/{inner[0]}"
    if module not in ALLOWED:
        yield f"{name}: the folder {module} has no include rules yet"
        return
    included = INCLUDE.findall(path.read_text(encoding="utf-8"))
    for header in included:
        ours = any((root / folder / header).is_file() for folder in ("src", "include", "apps"))
        if ours and not starts_with_one_of(header, ALLOWED[module]):
            yield f"{name} includes {header}, which {module} must not see"
        if not ours and (path.parent / header).is_file():
            yield f"{name} includes {header}, which should be written with its folder"
        for pattern, places in CONFINED.items():
            if re.fullmatch(pattern, header, re.IGNORECASE) and not starts_with_one_of(name, places):
                yield f"{name} includes {header}, which belongs to {' and '.join(places)} alone"
    own = re.sub(r"(_win32|_posix)?\.cpp$", ".h", name.split("/", 1)[1])
    if path.suffix == ".cpp" and path.with_name(Path(own).name).is_file() and included[:1] != [own]:
        yield f"{name} does not include its own header {own} first"


def main() -> int:
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    root = Path(sys.argv[1])
    files = [path for top in ("include", "src", "apps") for path in sorted((root / top).rglob("*.*"))
             if path.suffix in (".h", ".cpp")]
    problems = [problem for path in files for problem in problems_of(path, root)]
    print(*problems, f"{len(files)} files checked, {len(problems)} problems", sep="\n")
    return 1 if problems or not files else 0


if __name__ == "__main__":
    sys.exit(main())
