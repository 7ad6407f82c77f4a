#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""The sessions that tonwerk-separate writes for recording programs.

Usage: project_test.py MODELDIR [RUNNER] PROGRAM

RUNNER starts a Windows program.
"""

import io
import re
import zipfile
from xml.etree import ElementTree

from program import ProgramTest, main, noise, wav_bytes

FRAMES = 50001
# What the published schema of DAWproject 1.0 asks of the elements that we write: their attributes (with ! the required
# ones), and their children in order (with * any number).
SCHEMA = {
    "Project": ("version!", "Application Structure Arrangement"),
    "Application": ("name! version!", ""),
    "Structure": ("", "Track*"),
    "Track": ("id name color comment contentType loaded", "Channel Track*"),
    "Channel": ("id name color comment audioChannels destination role solo", "Mute Pan Volume"),
    "Mute": ("id name value", ""),
    "Pan": ("id name unit! min max value", ""),
    "Volume": ("id name unit! min max value", ""),
    "Arrangement": ("id name", "Lanes"),
    "Lanes": ("id name timeUnit track", "Lanes* Clips*"),
    "Clips": ("id name timeUnit track", "Clip*"),
    "Clip": ("name color time! duration contentTimeUnit playStart", "Audio"),
    "Audio": ("id name algorithm channels! duration! sampleRate!", "File"),
    "File": ("path! external", ""),
    "MetaData": ("", "Title Comment"),
    "Title": ("", ""),
    "Comment": ("", ""),
}


class ProjectTest(ProgramTest):
    def make(self, song: str, channels: int = 2, *options: str) -> tuple[ElementTree.Element, ElementTree.Element, str]:
        """Project, metadata, and REAPER's project of a song."""
        done = self.separate(self.put(song, wav_bytes(noise(FRAMES, channels))), "--project", *options)
        self.assertEqual(done.returncode, 0, done.stderr)
        folder = self.folder / "out" / song.removesuffix(".wav")
        with zipfile.ZipFile(io.BytesIO((folder / "stems.dawproject").read_bytes())) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual(archive.namelist(), ["project.xml", "metadata.xml"])
            project, about = (ElementTree.fromstring(archive.read(name)) for name in archive.namelist())
        for element in [*project.iter(), *about.iter()]:
            self.check(element)
        return project, about, (folder / "stems.rpp").read_text(encoding="ascii")

    def check(self, element: ElementTree.Element) -> None:
        attributes, children = SCHEMA[element.tag]
        known = {name.rstrip("!") for name in attributes.split()}
        self.assertLessEqual(set(element.keys()), known, element.tag)
        self.assertLessEqual({name[:-1] for name in attributes.split() if name.endswith("!")}, set(element.keys()))
        order = "".join(f"(?:{child.rstrip('*')} ){'*' if child.endswith('*') else '?'}" for child in children.split())
        self.assertRegex("".join(f"{child.tag} " for child in element), f"^{order}$")

    def test_a_session_has_a_track_per_stem_at_the_start_of_the_song(self) -> None:
        project, about, reaper = self.make("song.wav")
        ids = [element.get("id") for element in project.iter() if element.get("id")]
        self.assertEqual(len(ids), len(set(ids)))
        tracks = project.findall("Structure/Track")
        self.assertEqual([track.get("name") for track in tracks],
                         ["Vocals", "Drum", "Piano", "Acoustic guitar", "Electric guitar", "Bass", "Residual",
                          "Master"])
        self.assertEqual({track.find("Channel").get("destination") for track in tracks[:-1]}, {"master"})
        self.assertEqual((tracks[-1].find("Channel").get("id"), tracks[-1].find("Channel").get("role")),
                         ("master", "master"))
        self.assertEqual(len({track.get("color") for track in tracks[:-1]}), 7)
        lanes = project.findall("Arrangement/Lanes/Lanes")
        self.assertEqual([lane.get("track") for lane in lanes], [track.get("id") for track in tracks[:-1]])
        for lane in lanes:
            clip = lane.find("Clips/Clip")
            sound = clip.find("Audio")
            self.assertEqual((clip.get("time"), sound.get("channels"), sound.get("sampleRate")), ("0", "2", "44100"))
            self.assertAlmostEqual(float(clip.attrib["duration"]) * 44100, FRAMES, places=6)
            self.assertEqual(sound.find("File").get("external"), "true")
            self.assertTrue((self.folder / "out/song" / sound.find("File").attrib["path"]).is_file())
        self.assertEqual(about.findtext("Title"), "song")
        self.assertEqual([line for line in reaper.splitlines() if not line.strip()], [])
        self.assertEqual(len(re.findall(r"<", reaper)), len(re.findall(r"^ *>$", reaper, re.MULTILINE)))
        files = re.findall(r'<SOURCE WAVE\n +FILE "(.+)"', reaper)
        self.assertEqual(len(files), 7)
        self.assertTrue(all((self.folder / "out/song" / name).is_file() for name in files))
        lengths = re.findall(r"LENGTH (\S+)", reaper)
        self.assertTrue(all(abs(float(length) * 44100 - FRAMES) < 1e-6 for length in lengths))
        self.assertIn("SAMPLERATE 44100", reaper)
        self.assertTrue(self.receipt("song")["options"]["project"])

    def test_chosen_stems_mono_and_a_name_that_xml_must_not_see(self) -> None:
        name = "A & B <live> \u97f3\u697d" if not self.on_windows else "A & B \u97f3\u697d"
        project, about, reaper = self.make(f"{name}.wav", 1, "--stems", "bass,mix", "--karaoke")
        self.assertEqual([track.get("name") for track in project.findall("Structure/Track")], ["Bass", "Master"])
        self.assertEqual(project.find(".//Audio").get("channels"), "1")
        self.assertEqual(about.findtext("Title"), name)
        self.assertEqual(reaper.count("<TRACK"), 1)

    def test_sessions_come_and_go_with_the_stems(self) -> None:
        self.make("song.wav")
        self.assertIn("already done", self.separate("song.wav", "--project", "--resume").stdout)
        (self.folder / "out/song/stems.rpp").write_text("")
        self.assertIn("real-time factor", self.separate("song.wav", "--project", "--resume").stdout)
        self.assertEqual(self.separate("song.wav").returncode, 0)
        self.assertFalse({name for name in self.files() if name.endswith((".rpp", ".dawproject"))})

    def test_sessions_want_stems(self) -> None:
        self.put("song.wav", wav_bytes(noise(1000)))
        for options in (["--stems", "none", "--karaoke"], ["--raw"]):
            done = self.separate("song.wav", "--project", *options)
            self.assertEqual((done.returncode, len(done.errors)), (2, 1), done.stderr)
            self.assertIn("--project", done.errors[0])


if __name__ == "__main__":
    main()
