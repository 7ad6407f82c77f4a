#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Draws the pictures of the documents, the same bytes on every run.

usage: make_pictures.py FOLDER            writes the SVG files
       make_pictures.py --check FOLDER    fails if they are not what this script draws
"""
import sys
from collections.abc import Callable
from html import escape
from pathlib import Path

import curves
from stream_contract import FFT_SIZE, FIRST_BLOCK, HOP, NEXT_BLOCK, OVERLAP, SEGMENT_FRAMES

SEGMENT = (SEGMENT_FRAMES - 1) * HOP + FFT_SIZE  # what the spectrogram of one run covers
BLOCKS = (FIRST_BLOCK, NEXT_BLOCK, NEXT_BLOCK)

# On paper of its own, so that it can be read on any page; dark where the reader's system is dark.
STYLE = """
svg { font: 13px sans-serif; }
.paper { fill: #ffffff; }
.line { stroke: #50606e; fill: none; stroke-width: 1.2; }
.dashed { stroke-dasharray: 4 4; }
text { fill: #1d2730; }
.small { font-size: 11.5px; fill: #50606e; }
.strong { font-weight: bold; }
.host { fill: #dfe7ee; stroke: #50606e; }
.chunk { fill: #cfe3f7; stroke: #2f6ea8; }
.run { fill: #f9e3c0; stroke: #a8742f; }
.result { fill: #d3eed8; stroke: #2f8a4a; }
.curve { stroke: #a8482f; fill: none; stroke-width: 2; }
.arrow { fill: #50606e; }
@media (prefers-color-scheme: dark) {
.paper { fill: #161c22; }
.line { stroke: #93a4b3; }
text { fill: #e4ebf1; }
.small { fill: #a9b8c5; }
.host { fill: #34414d; stroke: #93a4b3; }
.chunk { fill: #1f4467; stroke: #7db4e6; }
.run { fill: #5d4318; stroke: #e6b877; }
.result { fill: #1f5230; stroke: #7fd397; }
.curve { stroke: #ef8f76; }
.arrow { fill: #93a4b3; }
}
"""


def number(value: float) -> str:
    return f"{value:.1f}".rstrip("0").rstrip(".")


class Picture:
    """Shapes in the order in which they are drawn."""

    def __init__(self, width: float, height: float, title: str) -> None:
        self.lines = [
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
            'role="img">', f"<title>{escape(title)}</title>", f"<style>{STYLE}</style>",
            '<defs><marker id="head" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" '
            'orient="auto"><path class="arrow" d="M0 0 L8 4 L0 8 z"/></marker></defs>']
        self.box("paper", 0, 0, width, height, 6)

    def box(self, kind: str, x: float, y: float, width: float, height: float, radius: float = 2) -> None:
        self.lines.append(f'<rect class="{kind}" x="{number(x)}" y="{number(y)}" width="{number(width)}" '
                          f'height="{number(height)}" rx="{radius}"/>')

    def text(self, x: float, y: float, words: str, kind: str = "", anchor: str = "start") -> None:
        self.lines.append(f'<text x="{number(x)}" y="{number(y)}" class="{kind}" text-anchor="{anchor}">'
                          f"{escape(words)}</text>")

    def path(self, points: list[tuple[float, float]], kind: str = "line", arrow: bool = False) -> None:
        steps = " L".join(f"{number(x)} {number(y)}" for x, y in points)
        end = ' marker-end="url(#head)"' if arrow else ""
        self.lines.append(f'<path class="{kind}" d="M{steps}"{end}/>')

    def svg(self) -> str:
        return "\n".join([*self.lines, "</svg>"]) + "\n"


def streaming() -> str:
    """Blocks, chunks, runs and results over time, and what has not come back yet."""
    picture = Picture(960, 500, "Blocks, chunks, model runs and results over the time of a stream")
    left, scale = 136, 796 / sum(BLOCKS)
    ends = [sum(BLOCKS[:count + 1]) for count in range(len(BLOCKS))]

    def place(frame: float) -> float:
        return left + frame * scale

    for row, (name, note) in enumerate((("blocks", "process() is given"), ("chunks", "4,096 shared"),
                                        ("runs", "256 spectra each"), ("results", "process() returns"))):
        picture.text(12, 50 + 66 * row, name, "strong")
        picture.text(12, 66 + 66 * row, note, "small")
    for index, (end, size) in enumerate(zip(ends, BLOCKS)):
        start = end - size
        picture.box("host", place(start), 36, size * scale, 34)
        picture.text(place(start + size / 2), 58, f"{size:,}", anchor="middle")
        first = max(0, start - OVERLAP)
        picture.box("chunk", place(first), 98 + 8 * (index % 2), (end - first) * scale, 30)
        picture.text(place((first + end) / 2), 118 + 8 * (index % 2), f"chunk {index + 1}", anchor="middle")
        began = max(-OVERLAP, end - SEGMENT)
        picture.box("run", place(began), 166 + 8 * (index % 2), (end - began) * scale, 28)
        words = "mirrored lead-in, then the chunk" if index == 0 else f"run {index + 1}: 249 spectra are new"
        picture.text(place((began + end) / 2), 185 + 8 * (index % 2), words, "small", "middle")
        done = end - OVERLAP
        picture.box("result", place(first), 234, (done - first) * scale, 34)
        picture.text(place((first + done) / 2), 256, f"{done - first:,}", anchor="middle")
        picture.path([(place(end), 28), (place(end), 440)], "line dashed")
        picture.path([(place(end), 290), (place(done) - 3, 271)], arrow=True)
        picture.text(place(end) - 6, 304, f"comes at {end:,}", "small", "end")
    held_back(picture, place, ends)
    return picture.svg()


def held_back(picture: Picture, place: Callable[[float], float], ends: list[int]) -> None:
    """Frames fed and not returned yet: a saw."""
    top, base = 340, 440
    most = ends[1] - 1 - (ends[0] - OVERLAP)
    points: list[tuple[float, float]] = [(place(0), base)]
    returned = 0
    for end in ends:
        points.append((place(end), base - (end - returned) / most * (base - top)))
        returned = end - OVERLAP
        points.append((place(end), base - OVERLAP / most * (base - top)))
    picture.path([(place(0), base), (place(ends[-1]) + 14, base)], arrow=True)
    picture.path([(place(0), top), (place(ends[-1]), top)], "line dashed")
    picture.path(points, "curve")
    picture.text(12, top + 4, "not returned", "strong")
    picture.text(12, top + 20, f"at most {most:,}", "small")
    picture.text(12, base + 4, "fed, in frames", "strong")
    for end in (0, *ends):
        picture.text(place(end), base + 20, f"{end:,}", "small", "middle")
    picture.text(place(ends[-1]), 484, "one run of the model per tooth; in between, calls only copy", "small", "end")


def architecture() -> str:
    """The modules, and what goes between them."""
    picture = Picture(960, 560, "The modules of tonwerk and the data between them")
    layers = (
        ("host", 20, "hosts", "C++: TonwerkProc, StreamFeeder · C and others: tonwerk_c · "
         "the program tonwerk-separate"),
        ("host", 108, "include/tonwerk, src/c", "TonwerkProc.h · StreamFeeder.h · tonwerk_c.h and its "
         "library over them"),
        ("chunk", 196, "src/api", "handles, the model's bytes, channels, residual and mix, the log"),
        ("chunk", 284, "src/pipeline", "ring buffer, chunks, overlap-add of each stem"),
        ("run", 372, "src/spectral", "window, FFT, the sliding spectrogram of 256 frames"),
        ("run", 460, "src/inference", "the network on ONNX Runtime: loading, execution providers, runs"))
    for kind, y, name, words in layers:
        picture.box(kind, 40, y, 640, 58, 5)
        picture.text(56, y + 24, name, "strong")
        picture.text(56, y + 44, words, "small")
    between = (("samples, any block", "eight stems, sample-aligned"), ("float vectors", "float vectors"),
               ("array {channel, sample}", "array {stem, channel, sample}"),
               ("chunk and its padding", "spectra {stem, channel, frame, 4096}"),
               ("spectrogram {1, 4, 256, 2048}, six flags", "six spectrograms"))
    for (_, y, _, _), (down, up) in zip(layers, between):
        picture.path([(120, y + 59), (120, y + 86)], arrow=True)
        picture.text(130, y + 77, down, "small")
        picture.path([(420, y + 87), (420, y + 60)], arrow=True)
        picture.text(430, y + 77, up, "small")
    picture.box("result", 730, 460, 200, 58, 5)
    picture.text(746, 484, "inference runtime", "strong")
    picture.text(746, 504, "loaded on first use", "small")
    picture.path([(681, 489), (728, 489)], arrow=True)
    picture.box("result", 730, 372, 200, 58, 5)
    picture.text(746, 396, "PFFFT", "strong")
    picture.text(746, 416, "4096-point real FFT", "small")
    picture.path([(681, 401), (728, 401)], arrow=True)
    picture.box("result", 730, 196, 200, 146, 5)
    picture.text(746, 220, "src/common", "strong")
    picture.text(746, 240, "arrays (xtensor), log (plog),", "small")
    picture.text(746, 258, "denormals off during a call", "small")
    picture.path([(681, 225), (728, 225)], arrow=True)
    picture.path([(681, 313), (728, 313)], arrow=True)
    picture.text(40, 546, "Includes follow the arrows downwards only; a test checks it.", "small")
    return picture.svg()


def program() -> str:
    """The rooms of tonwerk-separate and of the training, and which of them use which."""
    picture = Picture(960, 770, "The rooms of the program and of the training")
    rooms = (
        ("host", 40, 48, 270, "cli", "command line, progress as text or JSON"),
        ("chunk", 40, 136, 270, "batch", "the job, its songs, one receipt each"),
        ("chunk", 40, 224, 180, "analysis", "loudness, activity, peaks"),
        ("chunk", 250, 224, 200, "report", "images, the page of a song"),
        ("host", 480, 48, 250, "tools", "doctor, check-model, scramble"),
        ("run", 250, 312, 400, "separation", "a song through the library: model, sample rate, tracks"),
        ("run", 250, 400, 400, "audio", "reads songs, writes stems"),
        ("run", 250, 488, 400, "system", "files, text, what operating systems do differently"),
        ("result", 710, 312, 210, "the library", "include, parts of src"),
        ("chunk", 40, 596, 200, "synthesis", "songs, written by code"),
        ("chunk", 270, 596, 200, "model", "network, training, export"),
        ("chunk", 500, 596, 200, "evaluation", "scores, listening"),
        ("run", 40, 684, 660, "data", "spectra, files of training chunks, multitracks"),
        ("host", 730, 596, 190, "converters", "networks of other makers"))
    for kind, x, y, width, name, words in rooms:
        picture.box(kind, x, y, width, 58, 5)
        picture.text(x + 14, y + 24, name, "strong")
        picture.text(x + 14, y + 44, words, "small")
    picture.text(40, 34, "apps: tonwerk-separate", "strong")
    picture.text(40, 582, "training", "strong")
    for x, start, end in ((175, 107, 134), (130, 195, 222), (285, 195, 222), (350, 283, 310), (565, 107, 310),
                          (720, 107, 310), (450, 371, 398), (450, 459, 486), (140, 655, 682), (370, 655, 682),
                          (600, 655, 682)):
        picture.path([(x, start), (x, end)], arrow=True)
    picture.path([(651, 341), (708, 341)], arrow=True)
    picture.text(40, 762, "A room uses what its arrows lead to, and what those use.", "small")
    return picture.svg()


def axes(picture: Picture, across: tuple[str, Callable[[float], float], tuple[float, ...]],
         upward: tuple[str, Callable[[float], float], tuple[float, ...]]) -> None:
    """Two axes with their names, scales and marks."""
    name, place, marks = across
    bottom = upward[1](upward[2][0])
    for mark in marks:
        picture.path([(place(mark), bottom), (place(mark), bottom + 5)])
        picture.text(place(mark), bottom + 20, f"{mark:g}", "small", "middle")
    picture.text(place(marks[-1]), bottom + 40, name, "strong", "end")
    left = place(marks[0])
    for mark in upward[2]:
        picture.path([(left - 5, upward[1](mark)), (place(marks[-1]), upward[1](mark))], "line dashed")
        picture.text(left - 10, upward[1](mark) + 4, f"{mark:g}", "small", "end")
    picture.text(left - 40, upward[1](upward[2][-1]) - 14, upward[0], "strong")


def dots(picture: Picture, points: list[tuple[float, float, str]], kind: str) -> None:
    """A dot for each point, with the name of a preset beside it; other geometries stay nameless."""
    for x, y, label in points:
        named = not label.startswith("(")
        size = 10 if named else 6
        picture.box(kind, x - size / 2, y - size / 2, size, size, size / 2)
        if named:
            above = 24 if label == "best" else 9  # it lies close to another one
            picture.text(x + 8 if x < 300 else x - 8, y - above, label, "", "start" if x < 300 else "end")


def latency() -> str:
    """SDR over latency, for both pieces of music."""
    picture = Picture(760, 380, "Quality against latency")
    across = curves.logarithmic(0.2, 6.5, 70, 730)
    upward = curves.linear(2.6, 4.0, 300, 50)
    axes(picture, ("latency, s", across, (0.2, 0.3, 0.5, 1, 2, 3, 6)), ("SDR, dB", upward, (2.6, 3.0, 3.5, 4.0)))
    points = [point for point in curves.measured() if point.model != "tonwerk-small"]
    dots(picture, [(across(point.latency), upward(point.stem_file), point.label) for point in points], "result")
    dots(picture, [(across(point.latency), upward(point.multitrack), "(") for point in points], "chunk")
    picture.text(70, 366, "green: stem file, blue: multitrack; tonwerk-live up to 0.3 s, beyond that tonwerk-standard",
                 "small")
    return picture.svg()


def smoothness() -> str:
    """The level's jumps at joins over the work, on the chord, of the whole models."""
    picture = Picture(760, 380, "Joins against work")
    across = curves.logarithmic(0.16, 0.8, 70, 730)
    upward = curves.linear(0.0, 8.0, 300, 50)
    axes(picture, ("runs a second", across, (0.16, 0.2, 0.3, 0.4, 0.5, 0.8)),
         ("level jump at joins, dB", upward, (0, 1, 2, 4, 6, 8)))
    for model, kind in (("tonwerk-standard", "result"), ("tonwerk-small", "chunk")):
        points = [point for point in curves.measured() if point.model == model]
        dots(picture, [(across(point.runs), upward(point.jump), point.label if kind == "result" else "(")
                       for point in points], kind)
    picture.text(70, 366, "a steady chord; green: tonwerk-standard, blue: tonwerk-small; 0.67 runs a second: no blend",
                 "small")
    return picture.svg()


PICTURES = {"streaming.svg": streaming, "architecture.svg": architecture, "program.svg": program,
            "latency.svg": latency, "smoothness.svg": smoothness}


def main() -> None:
    check = sys.argv[1:2] == ["--check"]
    if len(sys.argv) != 2 + check:
        sys.exit(__doc__)
    folder = Path(sys.argv[-1])
    folder.mkdir(parents=True, exist_ok=True)
    wrong = {path.name for path in folder.glob("*.svg")} - PICTURES.keys() if check else set()
    for name, draw in PICTURES.items():
        path = folder / name
        if not check:
            path.write_text(draw(), encoding="utf-8")
        elif not path.exists() or path.read_text(encoding="utf-8") != draw():
            wrong.add(name)
    if wrong:
        sys.exit(f"Not what make_pictures.py draws: {', '.join(sorted(wrong))}. Call it with {folder}.")


if __name__ == "__main__":
    main()
