#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""SCNet: the graph computes what the authors' code computes, at all sizes and levels, on the library's own frames.

data/scnet.npz holds a small network with random weights (w:NAME), a sound and every seventh sample of what the authors'
code made of it with PyTorch 1.13: their own transform, network and inverse transform.
"""

import unittest
from collections.abc import Callable
from pathlib import Path

import numpy as np
import onnx
import torch_files
from scnet_reference import Reference, Weights, separate
from sounds import decibels, frames_of, noise, overlap_add, spectrum_of
from support import BLACKMAN, TOLERANCE, ConverterTest, Session, contract
from tonwerk_converters import waves
from tonwerk_converters.graph import Graph
from tonwerk_converters.moments import moments
from tonwerk_converters.passport import Passport
from tonwerk_converters.scnet import model as scnet
from tonwerk_converters.scnet.network import Network
from tonwerk_converters.scnet.sizes import read_sizes

SHARES = (0.175, 0.392)
EVERY = 7  # samples of the authors' result that data/scnet.npz holds


def authors() -> tuple[Weights, np.ndarray, np.ndarray]:
    """The weights of the small network, sound in, sources out."""
    with np.load(Path(__file__).resolve().parent / "data/scnet.npz") as file:
        return {name[2:]: file[name] for name in file if name.startswith("w:")}, file["wave_in"], file["wave_out"]


def random_weights() -> Weights:
    """A network of odd sizes."""
    channels, sources, depths, dual_paths, kernels = (4, 5, 6, 7), 3, (2, 1, 1), 2, (3, 4, 16)
    random = np.random.default_rng(9)
    weights = {}

    def layer(name: str, *shape: int, bias: int | None = None) -> None:
        scale = 1 / np.sqrt(max(1, np.prod(shape[1:]))) if len(shape) > 1 else 0.1
        weights[f"{name}.weight"] = (random.standard_normal(shape) * scale + (len(shape) == 1)).astype(np.float32)
        weights[f"{name}.bias"] = (random.standard_normal(bias or shape[0]) * 0.1).astype(np.float32)

    blocks = len(channels) - 1
    for block, (before, after) in enumerate(zip(channels, channels[1:])):
        layer(f"encoder.{block}.globalconv", after, after, 3, 3)
        layer(f"decoder.{blocks - 1 - block}.0.conv", 2 * after, 2 * after, 3, 3)
        out = before if block else sources * before
        for band, kernel in enumerate(kernels):
            layer(f"encoder.{block}.SDlayer.convs.{band}", after, before, kernel, 1)
            layer(f"decoder.{blocks - 1 - block}.1.convtrs.{band}", after, out, kernel, 1, bias=out)
            for depth in range(depths[band]):
                part = f"encoder.{block}.conv_modules.{band}.layers.{depth}"
                for place, shape in (("0", (after,)), ("1", (6, after, 3)), ("3", (3, 1, 3)), ("4", (3,)),
                                     ("6", (after, 3, 1))):
                    layer(f"{part}.{place}", *shape)
    for index in range(dual_paths):
        width = channels[-1] * (1 + index % 2)
        for path in range(2):
            part = f"separation_net.dp_modules.{index}"
            layer(f"{part}.norm_layers.{path}", width)
            layer(f"{part}.linear_layers.{path}", width, 2 * width)
            for suffix in ("l0", "l0_reverse"):
                for side in ("ih", "hh"):
                    values = random.standard_normal((4 * width, width + 1)).astype(np.float32) / np.sqrt(width)
                    weights[f"{part}.lstm_layers.{path}.weight_{side}_{suffix}"] = values[:, :-1]
                    weights[f"{part}.lstm_layers.{path}.bias_{side}_{suffix}"] = values[:, -1]
    return weights


def run(build: Callable[[Graph, str], str], given: np.ndarray, shape: tuple[int, ...]) -> np.ndarray:
    """The result of a graph that build adds to."""
    graph = Graph()
    graph.input("given", given.shape)
    graph.add("Identity", build(graph, "given"), name="result")
    graph.output("result", shape)
    session = Session(graph.model("test", ""))
    result = session.run(given=given.astype(np.float32))["result"]
    session.close()
    return result


class Arithmetic(unittest.TestCase):
    """The network alone, and what it computes with."""

    def test_a_small_network_computes_what_its_authors_code_computes(self) -> None:
        weights, sound, expected = authors()
        sizes = read_sizes(weights)
        even = np.pad(sound[0], ((0, 0), (0, 2048)))  # to an even number of frames, with a whole hop of zeros at least
        padded = np.pad(even, ((0, 0), (2048, 2048)), mode="reflect")
        frames = padded.shape[1] // 1024 - 3

        def whole(graph: Graph, given: str) -> str:
            spectrum = waves.transform(graph, given, 2, frames, waves.RECTANGLE, 2049)
            planes = graph.reshape(graph.add("Mul", spectrum, 1 / 64), 1, 4, 2049, frames)
            sources = Network(graph, weights, sizes, frames).build(planes, 2049, SHARES)
            parts = graph.reshape(graph.add("Mul", sources, 64.0), 8, 2, 2049, frames)
            samples = waves.inverse_transform(graph, parts, 8, 2049, frames)
            return waves.overlap_add(graph, samples, 8, frames, waves.RECTANGLE)

        hops = padded.reshape(2, frames + 3, 1024).transpose(0, 2, 1)
        result = run(whole, hops, (8, 1024, frames + 3)).transpose(0, 2, 1).reshape(4, 2, -1)[:, :, 2048:-4096]
        error = np.abs(result.reshape(-1)[::EVERY] - expected).max() / np.abs(expected).max()
        self.assertLess(error, TOLERANCE / 10)

    def test_other_sizes_and_frames_compute_what_double_precision_computes(self) -> None:
        self.compare(34, (0.225, 0.372), random_weights())
        self.compare(10, SHARES, authors()[0])

    def compare(self, frames: int, shares: tuple[float, float], weights: Weights) -> None:
        sizes = read_sizes(weights)
        spectrum = np.random.default_rng(2).standard_normal((1, 4, 2049, frames)) + 0.3
        expected = Reference(weights, shares)(spectrum[0])
        result = run(lambda graph, given: Network(graph, weights, sizes, frames).build(given, 2049, shares),
                     spectrum, (1, 4 * sizes.sources, 2049, frames))
        self.assertLess(np.abs(result[0] - expected).max() / np.abs(expected).max(), TOLERANCE / 10)

    def test_moments_of_millions_keep_their_digits(self) -> None:
        values = np.random.default_rng(4).standard_normal((32, 616, 256)).astype(np.float32) + np.float32(30)
        for index, expected in ((0, values.mean(dtype=np.float64)), (2, values.astype(np.float64).var())):
            found = run(lambda graph, given, index=index: moments(graph, given, (2, 1, 0), values.size)[index],
                        values, (1, 1, 1))
            self.assertLess(abs(found[0, 0, 0] / expected - 1), 2e-6)


class Frames(unittest.TestCase):
    """The way to rectangular frames and back."""

    def through(self, sound: np.ndarray, network: Callable[[Graph, str], str], stems: list[str | None],
                frames: int) -> np.ndarray:
        spectrum = spectrum_of(sound)
        return run(lambda graph, given: scnet.on_its_own_frames(graph, given, stems, frames, lambda planes: network(
            graph, planes))["drum"], spectrum, spectrum.shape)

    def test_with_an_identity_network_stems_are_the_input(self) -> None:
        for frames in (9, contract.FRAMES):
            sound = noise(frames)  # white: the worst case, because the frames' Nyquist bins are unknown
            stem = self.through(sound, lambda _, planes: planes, ["drum"], frames)
            rows = decibels_by_row(stem - spectrum_of(sound), spectrum_of(sound))
            self.assertLess(rows.max(), -60)
            self.assertLess(rows[3:-3].max(), -110)

    def test_the_network_hears_every_sound_at_the_usual_level(self) -> None:
        planes = np.zeros((1, 4, 2049, 9))
        planes[:, ::2, 0] = 1  # a network whose answer does not depend on the sound: its scale is how that was scaled
        for gain in (1e-4, 1, 50):
            sound = noise(9) * gain
            stem = self.through(sound, lambda graph, _: graph.table(planes), ["drum"], 9)
            deviation = np.stack([np.fft.rfft(frames_of(sound, 1.0)).real, np.fft.rfft(frames_of(sound, 1.0)).imag]).std()
            self.assertAlmostEqual(stem[0, 0, 4, 0] / (BLACKMAN.mean() * deviation / scnet.USUAL_DEVIATION), 1, places=2)

    def test_sources_without_a_stem_are_left_out_and_the_others_keep_their_place(self) -> None:
        sound = noise(9)
        stem = self.through(sound, lambda graph, planes: graph.concat(1, graph.zeros((1, 4, 2049, 9)), planes),
                            [None, "drum"], 9)
        self.assertLess(decibels(stem - spectrum_of(sound), spectrum_of(sound)), -60)


def decibels_by_row(error: np.ndarray, whole: np.ndarray) -> np.ndarray:
    """The error of each row."""
    return np.array([decibels(error[:, :, row], whole) for row in range(error.shape[2])])


class Converted(ConverterTest):
    """The model that the command makes of a checkpoint."""

    def setUp(self) -> None:
        super().setUp()
        self.weights = random_weights()
        torch_files.save(self.folder / "checkpoint.th", self.weights, under="state")

    def session(self, *options: str) -> Session:
        session = Session(self.converted("scnet", self.folder / "checkpoint.th", "--stems", "vocals,other,drums",
                                         *options))
        self.addCleanup(session.close)
        return session

    def test_stems_are_the_authors_way_on_the_sound_of_the_window(self) -> None:
        sound = noise(contract.FRAMES, color=0.7) * 0.8
        results = self.session().run(unified_input=spectrum_of(sound))
        expected = separate(Reference(self.weights, SHARES), sound)
        for stem, source in (("vocals", 0), ("drum", 2)):
            bins = results[f"{stem}_output"][0, ::2] + 1j * results[f"{stem}_output"][0, 1::2]
            found = overlap_add(np.fft.irfft(bins, 4096), BLACKMAN)
            error = np.abs(found - expected[source]) / np.abs(expected[source]).max()
            self.assertLess(error[:, 4096:-4096].max(), 2e-2)
            # Norms of single bins make the rounding of quiet ones audible to the network: 1e-4. At both ends of the
            # window, 100 samples are unknown to it.
            self.assertLess(error[:, 16 * 1024:-16 * 1024].max(), 5e-4)
        for stem in ("bass", "piano", "acoustic_guitar", "electric_guitar"):
            self.assertFalse(results[f"{stem}_output"].any())

    def test_the_newest_rows_are_those_of_a_shorter_window(self) -> None:
        rows = 32
        sound = noise(rows, color=0.7)
        given = np.random.default_rng(6).standard_normal(contract.SHAPE).astype(np.float32)
        given[:, :, -rows:] = spectrum_of(sound)
        result = self.session("--rows", str(rows)).run(unified_input=given)["drum_output"]
        self.assertFalse(result[:, :, :-rows].any())
        expected = spectrum_of(separate(Reference(self.weights, SHARES), sound)[2])[:, :, 12:-12]
        self.assertLess(np.abs(result[:, :, -rows + 12:-12] - expected).max() / np.abs(expected).max(), 1e-2)
        self.assertEqual(Passport.read(onnx.load(str(self.model))).rows, rows)

    def test_the_level_goes_through(self) -> None:
        spectrum = spectrum_of(noise(contract.FRAMES, color=0.7))
        session = self.session()
        expected = session.run(unified_input=spectrum)["drum_output"]
        for level in (-60, -20, 20):
            gain = np.float32(10 ** (level / 20))
            found = session.run(unified_input=spectrum * gain)["drum_output"] / gain
            self.assertLess(np.abs(found - expected).max() / np.abs(expected).max(), TOLERANCE)

    def test_silence_stays_silence_and_nothing_becomes_nonsense(self) -> None:
        session = self.session()
        silent = session.run(unified_input=np.zeros(contract.SHAPE, np.float32))
        self.assertFalse(any(result.any() for result in silent.values()))
        square = np.sign(np.sin(np.arange(waves.HOP * (contract.FRAMES + 3)) * 0.05)) * np.ones((2, 1))
        broken = spectrum_of(noise(contract.FRAMES))
        broken[0, 0, 5] = np.nan
        broken[0, 1, 7] = np.inf
        for spectrum in (spectrum_of(square), broken, spectrum_of(square) * np.float32(1e20)):
            for result in session.run(unified_input=spectrum).values():
                self.assertTrue(np.isfinite(result).all())


class Refusals(ConverterTest):
    """Checkpoints that are none."""

    def refuse(self, words: str, weights: Weights, *options: str) -> None:
        torch_files.save(self.folder / "checkpoint.th", weights)
        self.assert_refused(words, "scnet", self.folder / "checkpoint.th", *options)

    def test_weights_that_do_not_fit_end_in_a_sentence(self) -> None:
        good = random_weights()
        lstm = "separation_net.dp_modules.1.lstm_layers.0.weight_hh_l0"
        for words, changes in {
                "is missing": {lstm: None},
                "should be [56, 14]": {lstm: np.ones((56, 13))},
                "no finite number": {lstm: np.full((56, 14), np.nan)},
                "too few axes": {"encoder.0.SDlayer.convs.0.weight": np.ones(3)},
                "is unknown": {"extra": np.ones(3)},
                "globalconv.weight is missing": {name: None for name in good if "globalconv" in name},
                "convs.1.weight is missing": {name: None for name in good if "convs.1" in name},
                "library has stereo sound": {name: values[:, :2] for name, values in good.items()
                                             if name.startswith("encoder.0.SDlayer") and "weight" in name}}.items():
            self.refuse(words, {name: values for name, values in {**good, **changes}.items() if values is not None},
                        "--stems", "vocals,drums,bass")
        for stems in ("vocals,drums", "a,b,c", "drum,drums,bass"):
            self.refuse("must name 3", good, "--stems", stems)
        self.refuse("name them with --stems", good)


if __name__ == "__main__":
    unittest.main()
