# SPDX-License-Identifier: MIT
"""Evaluation results as Markdown tables and pictures."""

from collections.abc import Iterable
from pathlib import Path
from typing import Any

import numpy as np

from ..data.audio import read_wav
from ..data.chunkstore import STEMS
from ..data.stft import HOP, SAMPLE_RATE, stft
from .listening import Recording
from .scoring import SongsResult

KINDS = (("model", "this model"), ("mixture", "mixture as estimate"), ("ratio mask", "ideal ratio mask"),
         ("best mask", "best real mask"))


def _row(label: str, values: Iterable[float], form: str = "{:.2f}") -> str:
    return "| " + " | ".join([label, *(form.format(value) for value in values)]) + " |"


def _header(first: str, columns: list[str]) -> list[str]:
    return ["| " + " | ".join([first, *columns]) + " |", "|" + "---|" * (len(columns) + 1)]


def score_table(result: SongsResult, figure: str) -> list[str]:
    """One figure (a key of StemScore.summary) of every estimate, stem by stem, with the mean; a list of lines."""
    lines = _header("", [stem.replace("_", " ") for stem in STEMS] + ["mean"])
    for kind, label in KINDS:
        values = [result.scores[kind][stem][figure] for stem in STEMS]
        lines.append(_row(label, [*values, float(np.mean(values))]))
    return lines


def joins_table(result: SongsResult) -> list[str]:
    """How the model's stems fare where chunks join; a list of lines."""
    lines = _header("", [stem.replace("_", " ") for stem in STEMS])
    for figure, label in (("sdr_near_joins", "SDR within 0.5 s of joins, dB"), ("sdr_elsewhere", "SDR elsewhere, dB"),
                          ("seam", "spectral jump at joins / elsewhere")):
        lines.append(_row(label, [result.scores["model"][stem][figure] for stem in STEMS]))
    return lines


def songs_report(title: str, result: SongsResult) -> list[str]:
    """Markdown of evaluate_songs(); a list of lines."""
    lines = [f"## {title}", ""]
    for figure, label in (("sdr", "Global SDR"), ("median_sdr", "Median SDR of playing seconds"),
                          ("si_sdr", "Global SI-SDR"), ("median_si_sdr", "Median SI-SDR of playing seconds")):
        lines += [f"{label}, dB (an all-zero estimate has an SDR of 0):" if figure == "sdr" else f"{label}, dB:", "",
                  *score_table(result, figure), ""]
    return [*lines, "Where chunks join:", "", *joins_table(result), "",
            f"Real-time factor (median over the songs): {result.real_time_factor:.3f}", ""]


def recordings_report(results: dict[Recording, dict[str, Any]]) -> list[str]:
    """Markdown of {Recording: figures of evaluate_recording()}; a list of lines."""
    columns = [stem.replace("_", " ") for stem in (*STEMS, "residual")]
    lines = ["## Real recordings", "", "Energy of each stem against the mixture, dB (in brackets: loudest second "
             "against the mixture's loudest):", "", *_header("", columns)]
    for recording, figures in results.items():
        cells = [f"{figures[stem]['share']:.1f} ({figures[stem]['loudest']:.1f})" for stem in (*STEMS, "residual")]
        lines.append("| " + " | ".join([recording.title, *cells]) + " |")
    return [*lines, ""]


def multitracks_report(results: dict[str, dict[str, Any]]) -> list[str]:
    """Markdown of multitracks.evaluate_multitracks(): a table per track; a list of lines."""
    lines = ["## Real multitracks", ""]
    for track, figures in results.items():
        groups = [group for group in figures if group != "real_time_factor"]
        present = [group for group in groups if "model" in figures[group]]
        lines += [f"{track}: SDR, dB (an all-zero estimate has 0); of absent stems what is given nevertheless, dB "
                  "against the mixture:", "", *_header("", groups)]
        for kind, label in (("model", "this model"), ("mixture", "mixture as estimate"),
                            ("best mask", "best real mask")):
            cells = [f"{figures[group][kind]:.2f}" if group in present else
                     f"absent: {figures[group]['leakage']:.1f}" if kind == "model" else "" for group in groups]
            lines.append("| " + " | ".join([label, *cells]) + " |")
        lines += ["", f"Real-time factor: {figures['real_time_factor']:.3f}", ""]
    return lines


def draw_stems(mixture: Path, stems: dict[str, np.ndarray], path: Path) -> None:
    """A picture of the mixture's spectrogram and of each stem's below, one colour scale for all.

    mixture: path of a WAV file; stems: {name: float32 [2, samples]}; path: a PNG file to write.
    """
    import matplotlib  # pylint: disable=import-outside-toplevel
    matplotlib.use("Agg")
    from matplotlib import pyplot  # pylint: disable=import-outside-toplevel
    named = {"mixture": read_wav(mixture), **{name: stems[name] for name in (*STEMS, "residual")}}
    figure, axes = pyplot.subplots(len(named), 1, figsize=(8, 1.25 * len(named)), sharex=True, layout="constrained")
    for axis, (name, audio) in zip(axes, named.items()):
        power = (np.abs(stft(audio)) ** 2).mean(axis=0)[:, :1024]
        level = 10 * np.log10(power.T + 1e-6)
        axis.imshow(level, origin="lower", aspect="auto", vmin=-40, vmax=50, cmap="magma",
                    extent=(0, len(power) * HOP / SAMPLE_RATE, 0, SAMPLE_RATE / 4 / 1000))
        axis.set_ylabel(name.replace("_", "\n"), fontsize=8)
    axes[-1].set_xlabel("seconds (vertical: 0 to 11 kHz)")
    figure.savefig(path, dpi=80)
    pyplot.close(figure)
