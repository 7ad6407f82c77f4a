# SPDX-License-Identifier: MIT
"""Sampled drum kits of other origin than the soundfonts' kits: single strokes placed where the notes are."""

import subprocess
from dataclasses import dataclass
from pathlib import Path

import numpy as np

from ..data.stft import SAMPLE_RATE
from . import styles_drums as d
from .fluidsynth import Note

SHARE = 0.4  # of the drum parts
WEIGHTS = {"sonic-acoustic": 3, "rumpf": 3, "audiophob": 2}  # how often a kit is drawn, against 1: recorded kits more
SONIC = "/usr/share/sonic-pi/samples/"
HYDROGEN = "/usr/share/hydrogen/data/drumkits/"

# kit: (folder, {drum: files from soft to loud})
KITS: dict[str, dict[str, tuple[str, dict[int, tuple[str, ...]]]]] = {
    "training": {
        "sonic-acoustic": (SONIC, {
            d.KICK: ("drum_bass_soft.flac", "drum_bass_hard.flac"), d.PEDAL: ("drum_cymbal_pedal.flac",),
            d.SNARE: ("drum_snare_soft.flac", "drum_snare_hard.flac"),
            d.CLOSED: ("drum_cymbal_closed.flac",), d.OPEN: ("drum_cymbal_open.flac",),
            d.LOW_TOM: ("drum_tom_lo_soft.flac", "drum_tom_lo_hard.flac"), d.COWBELL: ("drum_cowbell.flac",),
            d.MID_TOM: ("drum_tom_mid_soft.flac", "drum_tom_mid_hard.flac"),
            d.HIGH_TOM: ("drum_tom_hi_soft.flac", "drum_tom_hi_hard.flac"),
            d.RIDE: ("drum_cymbal_soft.flac",), d.CRASH: ("drum_splash_hard.flac", "drum_cymbal_hard.flac")}),
        "sonic-club": (SONIC, {
            d.KICK: ("bd_haus.flac",), d.SNARE: ("sn_dub.flac",), d.CLAP: ("elec_hi_snare.flac",),
            d.CLOSED: ("drum_cymbal_closed.flac",), d.OPEN: ("elec_cymbal.flac",), d.COWBELL: ("elec_triangle.flac",),
            d.LOW_TOM: ("elec_fuzz_tom.flac",), d.HIGH_TOM: ("elec_wood.flac",), d.CRASH: ("drum_splash_soft.flac",)}),
        "sonic-tight": (SONIC, {
            d.KICK: ("bd_tek.flac",), d.SNARE: ("sn_dolf.flac",), d.CLAP: ("perc_snap.flac",),
            d.CLOSED: ("drum_cymbal_pedal.flac",), d.OPEN: ("drum_cymbal_open.flac",), d.MID_TOM: ("elec_pop.flac",),
            d.LOW_TOM: ("elec_hollow_kick.flac",), d.RIDE: ("elec_bell.flac",), d.CRASH: ("drum_cymbal_hard.flac",)}),
        "sonic-deep": (SONIC, {
            d.KICK: ("bd_808.flac",), d.SNARE: ("sn_generic.flac",), d.CLAP: ("elec_snare.flac",),
            d.CLOSED: ("elec_tick.flac",), d.OPEN: ("elec_cymbal.flac",), d.LOW_TOM: ("drum_tom_lo_hard.flac",),
            d.SHAKER: ("elec_soft_kick.flac",), d.CRASH: ("drum_splash_hard.flac",)}),
        "sonic-fat": (SONIC, {
            d.KICK: ("bd_fat.flac",), d.SNARE: ("elec_mid_snare.flac",), d.CLAP: ("elec_lo_snare.flac",),
            d.CLOSED: ("drum_cymbal_closed.flac",), d.RIDE: ("drum_cymbal_soft.flac",),
            d.OPEN: ("drum_cymbal_open.flac",), d.LOW_TOM: ("drum_tom_lo_soft.flac",),
            d.HIGH_TOM: ("drum_tom_hi_hard.flac",), d.CRASH: ("drum_cymbal_hard.flac",)}),
        "audiophob": (HYDROGEN + "Audiophob/", {
            d.KICK: ("86335__zgump__tom-0105.wav",), d.SNARE: ("25671__walter-odington__garage-city-snare-snappy.wav",),
            d.CLAP: ("29800__stomachache__3.wav",), d.CLOSED: ("116973__cbeeching__hat-light.wav",),
            d.OPEN: ("104227__minorr__hhat-paiste-302-14-open-p.wav",), d.CRASH: ("124101__connersaw8__crash.wav",),
            d.LOW_TOM: ("99930__menegass__noise-tom0.wav",), d.MID_TOM: ("99931__menegass__noise-tom1.wav",),
            d.HIGH_TOM: ("101450__menegass__tomh.wav",), d.STICK: ("16336__sstokes__ss-ht-crunchtime.wav",)}),
        "rumpf": (HYDROGEN + "rumpf_kit_z01_h2/", {
            d.KICK: ("beats_06-38.flac",), d.STICK: ("beats_09-12.flac",), d.SNARE: ("beats_01-21.flac",),
            d.CLAP: ("beats_01-26.flac",), d.SNARE2: ("beats_06-25.flac",), d.CLOSED: ("beats_09-10.flac",),
            d.PEDAL: ("beats_06-28.flac",), d.OPEN: ("beats_08-31.flac",), d.LOW_TOM: ("beats_08-17.flac",),
            d.MID_TOM: ("beats_08-18.flac",), d.HIGH_TOM: ("beats_08-19.flac",), d.CRASH: ("beats_06-43.flac",),
            d.RIDE: ("beats_08-20.flac",), d.RIDE_BELL: ("beats_06-40.flac",), d.COWBELL: ("beats_08-32.flac",)}),
    },
    "heldout": {
        "colombo": (HYDROGEN + "ColomboAcousticDrumkit/", {
            d.KICK: ("bassdrum-4mics-br-stereo-soft2.flac", "bassdrum-4mics-br-stereo-normal3.flac"),
            d.STICK: ("stick-rim-9.flac",), d.CLOSED: ("hihat-closed-1.flac", "hihat-closed-4.flac"),
            d.SNARE: ("snare-opaque-normal-mic-normal_shot2.flac", "snare-opaque-normal-mic-rimshot6.flac"),
            d.OPEN: ("hihat-open-4.flac",), d.PEDAL: ("hihat-semi-open-1.flac",), d.LOW_TOM: ("tom-low-1.flac",),
            d.MID_TOM: ("tom-mid-1.flac",), d.HIGH_TOM: ("tom-hi-1.flac",), d.CRASH: ("crash16i__crash1.flac",),
            d.CRASH2: ("crash20i__crash.flac",), d.RIDE: ("crash20i__ride4.flac",),
            d.RIDE_BELL: ("crash20i__ride-cup1.flac",)}),
    },
}
# What stands in for a drum that a kit lacks.
SUBSTITUTES = {d.STICK: d.SNARE, d.CLAP: d.SNARE, d.SNARE2: d.SNARE, d.PEDAL: d.CLOSED, d.OPEN: d.CLOSED,
               d.RIDE: d.CLOSED, d.RIDE_BELL: d.RIDE, d.CRASH2: d.CRASH, d.TAMBOURINE: d.CLOSED, d.SHAKER: d.CLOSED,
               d.COWBELL: d.STICK, d.HIGH_TOM: d.MID_TOM, d.MID_TOM: d.LOW_TOM}


@dataclass
class Kit:
    """Strokes of a kit: {drum: list of float32 [2, samples] from soft to loud}."""

    name: str
    strokes: dict[int, list[np.ndarray]]

    def _stroke(self, drum: int, velocity: int) -> np.ndarray | None:
        while drum not in self.strokes and drum in SUBSTITUTES:
            drum = SUBSTITUTES[drum]
        layers = self.strokes.get(drum)
        return layers[min(int(velocity * len(layers) / 110), len(layers) - 1)] if layers else None

    def render(self, notes: list[Note], seconds: float, rng: np.random.Generator) -> np.ndarray:
        """Audio float32 [2, samples] of drum Notes; the kit is tuned a little, drums stand left and right."""
        out = np.zeros((2, int(round(seconds * SAMPLE_RATE))), np.float32)
        balance = {drum: rng.uniform(-0.35, 0.35) * (drum not in (d.KICK, d.SNARE)) for drum in range(30, 90)}
        level = {drum: 10 ** (rng.normal(0, 2) / 20) for drum in range(30, 90)}
        for note in notes:
            stroke = self._stroke(note.pitch, note.velocity)
            begin = int(note.start * SAMPLE_RATE)
            if stroke is None or begin < 0 or begin >= out.shape[1]:
                continue
            count = min(stroke.shape[1], out.shape[1] - begin)
            gain = (note.velocity / 110) ** 1.6 * level[note.pitch]
            sides = np.array([[1 - max(balance[note.pitch], 0)], [1 + min(balance[note.pitch], 0)]], np.float32)
            out[:, begin:begin + count] += stroke[:, :count] * sides * np.float32(gain)
        return out


def draw(kits: list[Kit], rng: np.random.Generator) -> Kit:
    """One of the kits."""
    weights = np.array([WEIGHTS.get(kit.name, 1) for kit in kits], float)
    return kits[rng.choice(len(kits), p=weights / weights.sum())]


def _decode(path: Path) -> np.ndarray:
    command = ["ffmpeg", "-v", "error", "-i", str(path), "-ac", "2", "-ar", str(SAMPLE_RATE), "-f", "f32le", "pipe:1"]
    result = subprocess.run(command, capture_output=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{path} cannot be read: is its package installed? (tools/setup.sh training)")
    audio = np.frombuffer(result.stdout, np.float32).reshape(-1, 2).T[:, :SAMPLE_RATE * 3]
    loud = np.abs(audio).max(axis=0) > 1e-4
    return np.ascontiguousarray(audio[:, int(np.argmax(loud)):])


def prepare(material: Path, role: str) -> None:
    """Decodes the kits of a role under the folder `material`, those that are not there yet."""
    for name, (folder, drums) in KITS[role].items():
        path = material / "kits" / role / f"{name}.npz"
        if path.exists():
            continue
        strokes = {f"{drum}-{layer}": _decode(Path(folder) / file)
                   for drum, files in drums.items() for layer, file in enumerate(files)}
        path.parent.mkdir(parents=True, exist_ok=True)
        partial = path.with_suffix(".part.npz")
        np.savez(partial, **strokes)
        partial.replace(path)


def load_kits(material: Path, role: str) -> list[Kit]:
    """The prepared kits of a role, in order of their names."""
    kits = []
    for path in sorted((material / "kits" / role).glob("*.npz")):
        strokes: dict[int, list[np.ndarray]] = {}
        with np.load(path) as arrays:
            for key in sorted(arrays.files):
                strokes.setdefault(int(key.split("-")[0]), []).append(arrays[key])
        kits.append(Kit(path.stem, strokes))
    return kits
