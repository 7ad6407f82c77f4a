# SPDX-License-Identifier: MIT
"""Voices: recorded and synthesised speech, decoded and analysed once, from which the vocal stems are made.

A voice on disk is a folder material/ROLE/NAME of plain arrays, mapped when read: audio.npy (int16, 8 to 22.05 kHz,
silence shortened), envelope.npy (float16 [frames, 64], natural log of the smoothed power spectrum at POINTS),
voicing.npy (float16 [frames], 0 to 1), syllables.npy (int32 [n, 3]: first frame, nucleus, frame after the last).
"""

import json
import subprocess
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

import numpy as np
import scipy.fft
import scipy.interpolate
import scipy.io.wavfile
import scipy.ndimage
import scipy.signal

FRAME_SECONDS = 0.010
WINDOW_SECONDS = 0.036
ENVELOPE_POINTS = 64
ARRAYS = ("audio", "envelope", "voicing", "syllables")
LIFTER_SECONDS = 0.0016  # keeps formants, drops the harmonics of voices below 600 Hz
MAX_SECONDS = 1500


def _mel_points(count: int, top: float = 20000.0) -> np.ndarray:
    return 700 * (10 ** (np.linspace(0, 2595 * np.log10(1 + top / 700), count) / 2595) - 1)


POINTS = _mel_points(ENVELOPE_POINTS)  # Hz

ASTERISK = "/usr/share/asterisk/sounds/"
# name: how it is made. Recordings are (pattern of files, whether people are recorded), the rest are programs' options.
RECORDED = {
    "training": {
        "ivrvoice-ru": ASTERISK + "ru_RU_f_IvrvoiceRU/**/*.g722",
        "carlo-it": ASTERISK + "it_IT_m_Carlo/**/*.g722",
        "armelle-fr": ASTERISK + "fr/**/*.gsm",
        "nsh-ru": "/usr/share/festival/voices/russian/msu_ru_nsh_clunits/wav/*.wav",
    },
    "heldout": {
        "allison-en": ASTERISK + "en_US_f_Allison/**/*.g722",
        "librivox-en": "/usr/share/pocketsphinx/test/data/librivox/*.wav",
    },
}
ESPEAK = {
    "training": ["en-us+m1", "en-us+m3", "en-us+f2", "en-us+f4", "en-gb+m7", "en-gb+f5", "de+m2", "de+f1", "fr+f2",
                 "fr+m4", "es+m1", "es+f3", "it+m3", "it+f4", "pt+f1", "pl+m5", "sv+f2", "nl+m2", "ru+f4", "fi+m6"],
    "heldout": ["en-gb-scotland+m5", "en-us+f3", "cs+f5", "ro+m8"],
}
FLITE = {"training": ["awb", "rms", "kal16"], "heldout": ["slt"]}
WORDS = """away love night shine river stone falling slowly open heart window golden morning never always dreaming
highway silver shadow fire water singing under over moon summer winter honey baby yeah mountain city lights running
tomorrow yesterday believe forever dance lonely street color thunder gentle ocean bright velvet garden whisper echo
feather candle harbour valley marble lantern meadow horizon wander tender hollow amber island arrow ribbon""".split()


@dataclass
class Voice:
    """An analysed voice; arrays as the module describes. recorded: a person's recording, not a program's speech."""

    name: str
    rate: int
    recorded: bool
    audio: np.ndarray
    envelope: np.ndarray
    voicing: np.ndarray
    syllables: np.ndarray


def _run(command: list[str], text: bytes | None = None) -> bytes:
    result = subprocess.run(command, input=text, capture_output=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]} failed: {result.stderr.decode(errors='replace').strip()[-300:]}")
    return result.stdout


def _decode(data: bytes, rate: int, seconds: int, form: str = "wav") -> np.ndarray:
    """The first seconds of a file's bytes (wav, or raw g722 or gsm) as float32 at a sample rate."""
    raw = _run(["ffmpeg", "-v", "error", "-f", form, "-i", "pipe:0", "-t", str(seconds), "-ac", "1", "-ar", str(rate),
                "-f", "s16le", "pipe:1"], data)
    return np.frombuffer(raw, np.int16).astype(np.float32) / 32768


def _recordings(pattern: str, rng: np.random.Generator, seconds: int) -> tuple[np.ndarray, int]:
    """Files of a recorded voice in random order, concatenated, and their sample rate."""
    folder, _, rest = pattern.partition("*")
    files = sorted(path for path in Path(folder).glob("*" + rest) if "silence" not in str(path))
    if not files:
        raise RuntimeError(f"No recordings match {pattern}: is the package installed? (tools/setup.sh training)")
    files = [files[index] for index in rng.permutation(len(files))]
    form = files[0].suffix[1:]
    rate = 8000 if form == "gsm" else 16000
    if form != "wav":  # frames of equal size without a header: the files may stand one after the other
        return _decode(b"".join(path.read_bytes() for path in files), rate, seconds, form), rate
    parts, missing = [], seconds * rate
    while files and missing > 0:
        parts.append(scipy.io.wavfile.read(files.pop(0))[1][:missing])
        missing -= len(parts[-1])
    return np.concatenate(parts).astype(np.float32) / 32768, rate


def _lyrics(rng: np.random.Generator, lines: int) -> str:
    return "\n".join(" ".join(rng.choice(WORDS, size=rng.integers(4, 9))) + "." for _ in range(lines))


def _espeak(voice: str, rng: np.random.Generator, seconds: int) -> tuple[np.ndarray, int]:
    speed, pitch = int(rng.integers(120, 190)), int(rng.integers(30, 70))
    lyrics = _lyrics(rng, min(60, seconds))
    wav = _run(["espeak-ng", "-v", voice, "-s", str(speed), "-p", str(pitch), "--stdout"], lyrics.encode())
    return _decode(wav, 22050, seconds), 22050


def _flite(voice: str, rng: np.random.Generator, seconds: int) -> tuple[np.ndarray, int]:
    wav = _run(["flite", "-voice", voice, "-t", _lyrics(rng, min(45, seconds)), "-o", "/dev/stdout"])
    return _decode(wav, 16000, seconds), 16000


def _shorten_silence(audio: np.ndarray, rate: int) -> np.ndarray:
    """Level-normalised audio without the pauses longer than a quarter of a second."""
    frame = int(rate * FRAME_SECONDS)
    frames = audio[:len(audio) // frame * frame].reshape(-1, frame)
    level = np.sqrt((frames ** 2).mean(1))
    loud = np.sqrt((frames[level > 0.3 * level.max()] ** 2).mean()) if len(level) else 1.0
    keep = scipy.ndimage.maximum_filter1d((level > 0.02 * loud).astype(np.uint8), 25) > 0
    return (frames[keep] * (0.12 / loud)).ravel()


def _smoothing(count: int, rate: int) -> np.ndarray:
    """Matrix [count / 2 + 1, 64]: log spectrum to its cepstrally smoothed values at POINTS (a linear operation)."""
    cepstrum = scipy.fft.irfft(np.eye(count // 2 + 1), axis=-1)
    keep = int(rate * LIFTER_SECONDS)
    cepstrum[:, keep:-keep + 1] = 0
    bins = np.fft.rfftfreq(count, 1 / rate)
    smooth = scipy.fft.rfft(cepstrum, axis=-1).real
    return scipy.interpolate.interp1d(bins, smooth, axis=1)(np.minimum(POINTS, bins[-1])).astype(np.float32)


def _smooth_log_spectrum(audio: np.ndarray, rate: int) -> tuple[np.ndarray, np.ndarray]:
    """(log spectra at POINTS [frames, 64], autocorrelation voicing [frames])."""
    size, hop = int(rate * WINDOW_SECONDS) // 2 * 2, int(rate * FRAME_SECONDS)
    count = 1 << (2 * size - 1).bit_length()
    window, smoothing = np.hanning(size).astype(np.float32), _smoothing(count, rate)
    # The window's own autocorrelation is divided out, or low voices would count as unvoiced.
    fade = scipy.fft.irfft(np.abs(scipy.fft.rfft(window, count)) ** 2)
    lags = slice(int(rate / 400), int(rate / 70))
    rows = np.lib.stride_tricks.sliding_window_view(np.pad(audio, size // 2), size)[::hop]
    envelope, periodic = np.empty((len(rows), ENVELOPE_POINTS), np.float32), np.empty(len(rows), np.float32)
    for first in range(0, len(rows), 1024):
        block = slice(first, first + 1024)
        spectrum = np.abs(scipy.fft.rfft(rows[block] * window, count, axis=-1)) ** 2
        correlation = scipy.fft.irfft(spectrum, axis=-1)
        periodic[block] = (correlation[:, lags] / (fade[lags] / fade[0])).max(1) / np.maximum(correlation[:, 0], 1e-9)
        envelope[block] = np.log(spectrum + 1e-7) @ smoothing
    return envelope, periodic


def _extend(envelope: np.ndarray, voicing: np.ndarray, rate: int) -> np.ndarray:
    """Continues the envelopes above what the recording holds: vowels fall faster than consonants."""
    edge = 0.92 * rate / 2
    last = int(np.searchsorted(POINTS, edge)) - 1
    base = envelope[:, last - 2:last + 1].mean(axis=1, keepdims=True)
    fall = np.where(voicing > 0.5, 18.0, 8.0)[:, None] * np.log(10) / 10
    envelope[:, last + 1:] = base - fall * np.log2(POINTS[last + 1:] / POINTS[last])
    return envelope


def _find_syllables(envelope: np.ndarray, voicing: np.ndarray) -> np.ndarray:
    """Stretches around the peaks of the loudness of the middle frequencies."""
    middle = (POINTS > 250) & (POINTS < 3000)
    loud = np.log(np.exp(envelope[:, middle]).mean(1) + 1e-6)
    loud = scipy.ndimage.gaussian_filter1d(loud, 2.0)
    peaks, _ = scipy.signal.find_peaks(loud, distance=9, prominence=0.7)
    peaks = peaks[(voicing[peaks] > 0.45) & (loud[peaks] > np.percentile(loud, 40))]
    valleys = [int(left + np.argmin(loud[left:right])) for left, right in zip(peaks[:-1], peaks[1:])]
    rows = [(max(valleys[index - 1], peak - 25), peak, min(valleys[index], peak + 30))
            for index, peak in enumerate(peaks[1:-1], start=1)]
    return np.array(rows, np.int32).reshape(-1, 3)


def _analyse(folder: Path, audio: np.ndarray, rate: int, recorded: bool) -> None:
    audio = _shorten_silence(audio, rate)
    envelope, lags = _smooth_log_spectrum(audio, rate)
    voicing = np.clip((lags - 0.45) / 0.35, 0, 1)
    envelope = _extend(envelope, voicing, rate)
    folder.mkdir(parents=True, exist_ok=True)
    np.save(folder / "audio.npy", np.clip(audio * 32768, -32768, 32767).astype(np.int16))
    np.save(folder / "envelope.npy", envelope.astype(np.float16))
    np.save(folder / "voicing.npy", voicing.astype(np.float16))
    np.save(folder / "syllables.npy", _find_syllables(envelope, voicing))
    (folder / "voice.json").write_text(json.dumps({"rate": rate, "recorded": recorded}))


def prepare(material: Path, role: str, seconds: int = MAX_SECONDS, seed: int = 2026) -> None:
    """Makes the voices of a role ("training" or "heldout") under the folder `material`, those that are not there yet.

    seconds: of each voice at most so much, at least 10.
    """
    jobs: list[tuple[str, bool, Callable[[str, np.random.Generator, int], tuple[np.ndarray, int]], str]]
    jobs = [(name, True, _recordings, pattern) for name, pattern in RECORDED[role].items()]
    jobs += [("espeak-" + voice.replace("+", "-"), False, _espeak, voice) for voice in ESPEAK[role]]
    jobs += [("flite-" + voice, False, _flite, voice) for voice in FLITE[role]]
    for index, (name, recorded, make, argument) in enumerate(jobs):
        folder = material / role / name
        if not (folder / "voice.json").exists():
            rng = np.random.default_rng([seed, len(role), index])
            _analyse(folder, *make(argument, rng, seconds), recorded)


def load(material: Path, role: str) -> list[Voice]:
    """The prepared voices of a role, in order of their names."""
    voices = []
    for folder in sorted((material / role).iterdir()):
        about = json.loads((folder / "voice.json").read_text())
        arrays = [np.load(folder / f"{name}.npy", mmap_mode="r") for name in ARRAYS]
        voices.append(Voice(folder.name, about["rate"], about["recorded"], *arrays))
    return voices
