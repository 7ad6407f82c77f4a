# SPDX-License-Identifier: MIT
"""Singing made from speech: the envelopes of a voice's syllables over a melody's pitch, and speech itself in rhythm."""

import numpy as np
import scipy.fft
import scipy.signal

from ..data.stft import SAMPLE_RATE
from .fluidsynth import Note
from .songs import Song
from .voices import FRAME_SECONDS, POINTS, Voice

FFT, HOP = 1024, 256
WINDOW = np.sqrt(scipy.signal.get_window("hann", FFT)).astype(np.float32)


def _interpolation(shift: float) -> np.ndarray:
    """Matrix [64, 513] from the envelope's POINTS to the transform's bins, formants scaled by `shift`."""
    frequencies = np.fft.rfftfreq(FFT, 1 / SAMPLE_RATE) / shift
    matrix = np.zeros((len(POINTS), len(frequencies)), np.float32)
    place = np.clip(np.searchsorted(POINTS, frequencies) - 1, 0, len(POINTS) - 2)
    weight = np.clip((frequencies - POINTS[place]) / (POINTS[place + 1] - POINTS[place]), 0, 1)
    columns = np.arange(len(frequencies))
    matrix[place, columns] = 1 - weight
    matrix[place + 1, columns] = weight
    return matrix


class Singer:
    """How one voice sings one part: everything that stays the same over a song."""

    def __init__(self, voice: Voice, rng: np.random.Generator) -> None:
        self.voice, self.rng = voice, rng
        self.shift = float(rng.uniform(0.86, 1.22))
        self.portamento = float(rng.uniform(0.01, 0.06))
        self.vibrato_rate, self.vibrato_depth = float(rng.uniform(4.5, 6.8)), float(rng.choice([0.08, 0.25, 0.5]))
        self.breath = float(rng.uniform(0.01, 0.12))
        self.wobble = float(rng.uniform(0.03, 0.12))
        self.evenness = float(rng.uniform(0.4, 0.9))
        self.tilt = float(rng.uniform(-4, 5))  # dB per octave above 500 Hz: darker or brighter singing

    def sing(self, notes: list[Note], seconds: float) -> np.ndarray:
        """Audio float32 [samples] of Notes, one syllable each."""
        frames = int(seconds * SAMPLE_RATE) // HOP + 1
        source, gain, pitch = self._plan(sorted(notes, key=lambda note: note.start), frames)
        pitch = self._intonation(pitch, gain)
        low = np.floor(source).astype(int)
        part = (source - low)[:, None].astype(np.float32)
        high = np.minimum(low + 1, len(self.voice.envelope) - 1)
        envelope = self.voice.envelope[low] * (1 - part) + self.voice.envelope[high] * part
        voicing = self.voice.voicing[low].astype(np.float32)
        return self._synthesise(envelope.astype(np.float32), voicing, gain, pitch, int(seconds * SAMPLE_RATE))

    def _plan(self, notes: list[Note], frames: int) -> tuple[np.ndarray, np.ndarray, np.ndarray]:
        """Per output frame the voice's frame (fractional), a gain and a pitch in semitones."""
        source, gain = np.zeros(frames), np.zeros(frames, np.float32)
        pitch = np.full(frames, notes[0].pitch if notes else 60, np.float32)
        syllables = self.voice.syllables
        place = int(self.rng.integers(max(1, len(syllables) - len(notes) - 1)))
        rate = SAMPLE_RATE / HOP
        for index, note in enumerate(notes):
            first, nucleus, last = syllables[(place + index) % len(syllables)]
            onset = (nucleus - first) * FRAME_SECONDS
            begin = int((note.start - min(onset, 0.12) * 0.6) * rate)
            until = notes[index + 1].start if index + 1 < len(notes) else seconds_end(note)
            end = min(int(min(seconds_end(note) + 0.05, until) * rate), frames)
            if end - max(begin, 0) < 4:
                continue
            times = _warp(end - begin, first, nucleus, last)
            fade = np.minimum(1, np.minimum(np.arange(1, end - begin + 1) / 3, np.arange(end - begin, 0, -1) / 5))
            inside = slice(max(0, -begin), None)
            begin = max(begin, 0)
            source[begin:end] = times[inside]
            gain[begin:end] = (fade * note.velocity / 90)[inside]
            pitch[begin:] = note.pitch
        return source, gain, pitch

    def _intonation(self, pitch: np.ndarray, gain: np.ndarray) -> np.ndarray:
        """Glides between notes, vibrato that grows on held ones, and unsteadiness. Hz per frame."""
        rate = SAMPLE_RATE / HOP
        keep = float(np.exp(-1 / (self.portamento * rate)))
        smooth = scipy.signal.lfilter([1 - keep], [1, -keep], pitch, zi=[keep * pitch[0]])[0]
        changed = np.concatenate([[0], np.flatnonzero(np.diff(pitch)) + 1])
        held = np.arange(len(pitch)) - changed[np.searchsorted(changed, np.arange(len(pitch)), side="right") - 1]
        growth = np.clip((held / rate - 0.2) / 0.4, 0, 1)
        phase = 2 * np.pi * np.cumsum(self.vibrato_rate * (1 + 0.05 * self.rng.standard_normal(len(pitch)))) / rate
        drift = scipy.signal.lfilter([0.06], [1, -0.94], self.rng.standard_normal(len(pitch)))
        return 440 * 2 ** ((smooth + self.vibrato_depth * growth * np.sin(phase) + self.wobble * drift * 4 - 69) / 12)

    def _excitation(self, frequency: np.ndarray, samples: int) -> np.ndarray:
        """Glottal pulses as white as noise, and where they fall follows the frequency. float32 [samples]."""
        grid = np.arange(samples)
        cycles = np.cumsum(np.interp(grid / HOP, np.arange(len(frequency)), frequency)) / SAMPLE_RATE
        whole = np.floor(cycles)
        places = np.flatnonzero(np.diff(whole) > 0)
        step = cycles[places + 1] - cycles[places]
        offset = (whole[places + 1] - cycles[places]) / step
        size = np.sqrt(1 / step) * (1 + 0.04 * self.rng.standard_normal(len(places)))
        pulses = np.zeros(samples + 16, np.float32)
        for tap in range(-3, 5):  # a windowed sinc puts each pulse between samples
            distance = tap - offset
            weight = size * np.sinc(distance) * np.cos(np.pi * distance / 9)
            np.add.at(pulses, places + tap + 4, weight.astype(np.float32))
        return pulses[4:samples + 4]

    def _synthesise(self, envelope: np.ndarray, voicing: np.ndarray, gain: np.ndarray, frequency: np.ndarray,
                    samples: int) -> np.ndarray:
        """Filters pulses and noise with the envelopes, frame by frame."""
        total = len(gain) * HOP + FFT
        pulses = self._excitation(frequency, total)
        noise = self.rng.standard_normal(total).astype(np.float32)
        level = envelope[:, (POINTS > 150) & (POINTS < 4000)].max(axis=1)
        sung = level[gain > 0]
        if not len(sung):
            return np.zeros(samples, np.float32)
        envelope = envelope - (self.evenness * np.clip(level - np.median(sung), -3, 6))[:, None]
        octaves = np.log2(np.maximum(POINTS / 500, 1))
        envelope = envelope - np.median(sung) + octaves * self.tilt * np.log(10) / 20
        shape = np.exp(0.5 * np.minimum(envelope.astype(np.float32) @ _interpolation(self.shift), 6)) * gain[:, None]
        shape[:, :2] = 0  # nobody sings below 70 Hz, and pulses of one sign have a constant part
        mask = voicing[:, None].astype(np.float32)
        spectra = []
        for audio in (pulses, noise):
            rows = np.lib.stride_tricks.sliding_window_view(audio, FFT)[::HOP][:len(gain)]
            spectra.append(scipy.fft.rfft(rows * WINDOW, axis=-1))
        mixed = (spectra[0] * mask + spectra[1] * (0.5 * (1 - mask) + self.breath * mask)) * shape
        return _overlap_add(scipy.fft.irfft(mixed, axis=-1) * WINDOW, samples)


def seconds_end(note: Note) -> float:
    """Seconds at which a note ends."""
    return note.start + note.length


def _warp(count: int, first: int, nucleus: int, last: int) -> np.ndarray:
    """Frames of the voice for `count` frames of output: consonants at their speed, the vowel as long as needed."""
    ratio = HOP / SAMPLE_RATE / FRAME_SECONDS
    onset = min((nucleus - first) / ratio, 0.4 * count)
    coda = min((last - nucleus) * 0.7 / ratio, 0.3 * count)
    middle = nucleus + (last - nucleus) * 0.3
    return np.interp(np.arange(count), [0, onset, count - coda, count], [first, nucleus, middle, last])


def _overlap_add(rows: np.ndarray, samples: int) -> np.ndarray:
    """Frames [T, FFT] at their places, scaled for the window's overlap. float32 [samples]."""
    overlap = FFT // HOP
    padded = np.zeros((len(rows) + overlap - 1, HOP), np.float32)
    for index in range(overlap):
        padded[index:index + len(rows)] += rows[:, index * HOP:(index + 1) * HOP]
    audio = padded.ravel()[FFT // 2:] * (2 / overlap)
    return np.pad(audio, (0, max(0, samples - len(audio))))[:samples].astype(np.float32)


def resample(audio: np.ndarray, rate: int, speed: float = 1.0) -> np.ndarray:
    """Audio at 44.1 kHz; `speed` above 1 makes it shorter and higher, formants and all."""
    count = max(1, int(len(audio) * SAMPLE_RATE / rate / speed))
    padded = scipy.fft.next_fast_len(len(audio) + 512, real=True)
    target = int(round(padded * SAMPLE_RATE / rate / speed))
    spectrum = scipy.fft.rfft(audio.astype(np.float32), padded)
    stretched = np.zeros(target // 2 + 1, np.complex64)
    keep = min(len(spectrum), len(stretched))
    stretched[:keep] = spectrum[:keep]
    return (scipy.fft.irfft(stretched, target) * (target / padded))[:count]


def brighten(audio: np.ndarray, edge: float, amount: float) -> np.ndarray:
    """Adds what a narrow-band recording lacks above `edge` Hz: its upper half moved up, `amount` times as loud."""
    carrier = 2 * np.cos(np.pi * edge * np.arange(len(audio)) / SAMPLE_RATE).astype(np.float32)
    high = scipy.signal.butter(4, edge / 2, "highpass", fs=SAMPLE_RATE, output="sos")
    above = scipy.signal.butter(6, edge, "highpass", fs=SAMPLE_RATE, output="sos")
    upper = scipy.signal.sosfilt(above, scipy.signal.sosfilt(high, audio) * carrier)
    return (audio + amount * upper).astype(np.float32)


def speak(voice: Voice, song: Song, seconds: float, rng: np.random.Generator) -> np.ndarray:
    """Recorded or synthesised speech as a vocal stem: phrases of free speech, or syllables on the beat as in rap."""
    speed = float(rng.choice([1.0, rng.uniform(0.85, 1.2)]))
    out = np.zeros(int(seconds * SAMPLE_RATE), np.float32)
    rhythmic, step = rng.random() < 0.5, float(rng.choice([0.5, 0.5, 0.25, 1.0]))
    syllables, frame = voice.syllables, int(voice.rate * FRAME_SECONDS)
    place, now = int(rng.integers(max(1, len(syllables) - 200))), float(rng.uniform(0, 1))
    while now < seconds and place + 16 < len(syllables):
        count = 1 if rhythmic else int(rng.integers(5, 16))
        first, last = syllables[place][0], syllables[place + count - 1][2]
        piece = resample(voice.audio[first * frame:(last + 1) * frame], voice.rate, speed)
        ramp = min(300, len(piece) // 4)
        piece[:ramp] *= np.linspace(0, 1, ramp)
        piece[-ramp:] *= np.linspace(1, 0, ramp)
        begin = int(now * SAMPLE_RATE)
        end = min(begin + len(piece), len(out))
        out[begin:end] += piece[:end - begin]
        place += count
        now = _next_start(song, now, len(piece) / SAMPLE_RATE, rhythmic, step, rng)
    out /= 32768
    edge = voice.rate / 2 * 0.95 * speed
    return brighten(out, edge, rng.uniform(0.1, 0.6)) if rng.random() < 0.5 else out


def _next_start(song: Song, now: float, length: float, rhythmic: bool, step: float, rng: np.random.Generator) -> float:
    """When the next piece of speech begins: soon after this one, or on the next step of the beat."""
    if not rhythmic:
        return now + length + rng.choice([0.05, 0.3, 1.2], p=[0.55, 0.3, 0.15])
    beat = (now + length * 0.8 + song.lead) * song.tempo / 60
    beat = np.ceil(beat / step) * step + (rng.random() < 0.08) * 2
    return max(song.time(beat), now + 0.05)
