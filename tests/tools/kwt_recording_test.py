"""Records live and converts with kwt, as a person would: kwt_recording_test.py KWT [UNITTEST-ARGUMENT...]"""

import contextlib
import json
import os
import signal
import subprocess
import unittest
import wave

from kwt_support import CommandTest, KwtTestCase, Recorder, Terminal, finish
from recorders import AUDIO, BLOCK, packets_in

PER_SECOND = 50  # packets of sound
SILENCE = PER_SECOND * (AUDIO + bytes([3, 0, 0xB8, 0xFF, 0xFE]))


def length_of(file):
    """In seconds, as another program reads it."""
    command = ("ffprobe", "-loglevel", "error", "-show_entries", "format=duration", "-of", "csv=p=0", file)
    return float(subprocess.run(command, check=True, capture_output=True).stdout)


class RecordingTest(CommandTest, KwtTestCase):
    # Then comes whether anything is in the file.
    commands = (
        ("key 400ms", "record -o f.rec", 0, ("Recorded f.rec (0.40 s", "The key on the recorder ended it."), True),
        ("call 400ms", "record -o f.rec -d 1:00", 0, ("(0.40 s", "The recorder entered a call, which ended it."), True),
        ("key 200ms", "record -o f.rec -t 4 --json", 0, ('"ended": "key"', '"seconds": 0.2', '"type": 4'), True),
        ("call", "record -o f.rec -t call -d 0.3 --json", 0, ('"ended": "time"', '"type": 2'), True),
        ("call", "record -o f.rec", 1, ("in a call", "1004", "-t call")),
        ("", "record -o f.rec -t 2", 1, ("not in a call", "1004", "-t")),
        ("write 2 refuse", "record -o f.rec", 75, ("ATT error",)),
        ("write 2 drop", "record -o f.rec", 75, ("did not answer within 10 s",)),
        ("notification 2 disconnect", "record -o f.rec", 75, ("connection to the recorder was lost",)),
        ("notification 32 disconnect", "record -o f.rec", 75, ("lost after 0.", "bytes)", "kwt convert"), True),
        ("write 3 drop", "record -o f.rec -d 0.2", 1, ("did not confirm the stop", "with its key"), True),
        ("notification 32 disconnect", "record -o f.opus", 75, ("lost after 0.", "f.opus holds what arrived, and plays"),
         True),
        ("key 200ms", "record -o f.MP3", 0, ("Recorded f.MP3 (0.20 s",), True),
        ("write 2 refuse", "record -o f.wav", 75, ("ATT error",)))

    def check_end(self, recorder, isKept=False):
        names = recorder.files()
        self.assertEqual(len(names), isKept)  # and no packets of those that are made into something else
        if names == ["f.rec"]:
            self.assertGreater(self.recorded(recorder), 0)
        elif isKept:
            self.assertGreater(length_of(recorder.home / names[0]), 0.1)

    def recorded(self, recorder):
        """The number of packets in the file, which converts."""
        count, rest = packets_in((recorder.home / "f.rec").read_bytes())
        self.assertEqual(rest, 0)
        code, out, err = recorder.run("convert", "f.rec", "f.wav", "--json")
        self.assertEqual((code, err), (0, ""), out)
        with wave.open(str(recorder.home / "f.wav")) as sound:
            self.assertEqual((sound.getframerate(), sound.getnframes()), (16000, count * 16000 // PER_SECOND))
        return count

    def test_interruption(self):
        recorder = Recorder(self)
        terminal = Terminal(recorder, "record", "-o", "f.rec")
        terminal.wait_for(b"dBFS", 3)
        self.assertRegex(terminal.shown, rb"\r\x1b\[K0:00\.\d  \[#+ *\] +-\d+ dBFS  \d+ bytes")
        terminal.process.send_signal(signal.SIGINT)  # twice, as timeout(1) does
        self.check(terminal.end(b"dBFS", 3, signal.SIGINT), 0, "Recorded f.rec (0.", "It was stopped.")
        self.recorded(recorder)

    def test_second_interruption(self):
        """What is named for a player plays as far as it had got, and nothing else is left."""
        recorder = Recorder(self, script="write 3 drop")
        terminal = Terminal(recorder, "record", "-o", "f.opus")
        terminal.wait_for(b"dBFS", 2)
        while terminal.process.poll() is None:
            terminal.process.send_signal(signal.SIGINT)
            with contextlib.suppress(subprocess.TimeoutExpired):
                terminal.process.wait(0.3)
        self.check(terminal.finish(), -signal.SIGINT)
        self.assertEqual(recorder.files(), ["f.opus"])
        self.assertGreater(length_of(recorder.home / "f.opus"), 0.02)

    def test_pipe(self):
        """Sound comes while it is recorded, and nothing else with it."""
        recorder = Recorder(self)
        for reader_goes, ended in ((False, "host"), (True, "reader")):
            process = recorder.start("record", "-o", "-", "--json", text=False)
            content = b""
            while len(content) < 2000:
                content += os.read(process.stdout.fileno(), 1000)
            if reader_goes:
                process.stdout.close()
                err = process.stderr.read()
                process.stderr.close()
            else:
                process.send_signal(signal.SIGINT)
                rest, err = process.communicate(timeout=60)
            self.assertEqual(process.wait(60), 0, err)
            self.assertEqual(json.loads(err)["ended"], ended)
            if not reader_goes:
                (recorder.home / "live.opus").write_bytes(content + rest)
                self.assertEqual(length_of(recorder.home / "live.opus"), json.loads(err)["seconds"])
        self.assertEqual(recorder.files(), ["live.opus"])
        self.check(Terminal(recorder, "record", "-o", "-", prints=True).finish(), 2, "terminal", "| ffplay -")


class ConversionTest(KwtTestCase):
    def test_matrix(self):
        recorder = Recorder(self)
        code, out, err = recorder.run("record", "-o", "live.rec", "-d", "0.3", "--json")
        self.assertEqual((code, err), (0, ""))  # no display either: this is no terminal
        live = (recorder.home / "live.rec").read_bytes()
        seconds = packets_in(live)[0] / PER_SECOND
        self.assertEqual(json.loads(out), {"schema": 1, "file": "live.rec", "type": 0, "bytes": len(live), "seconds": seconds,
                                           "ended": "time"})
        (recorder.home / "damaged.rec").write_bytes(live + AUDIO + b"\x05\x00" + b"\xff" * 5 + live)
        (recorder.home / "junk").write_text("no sound at all")
        (recorder.home / "old.mp3").write_text("old")
        length = f"({seconds:.2f} s at 16000 Hz)"
        for arguments, status, words in (
                ("live.rec a.wav", 0, f"Converted a live recording, live.rec, to a.wav {length}."),
                ("live.rec a.wav", 1, "Cannot write a.wav: it exists already."),
                ("live.rec A.MP3", 0, length),
                ("live.rec old.mp3 --force", 0, length),
                ("damaged.rec d.wav", 0, "1 damaged packet"),
                ("junk j.wav", 1, "junk is no recording")):
            with self.subTest(arguments):
                self.check(recorder.run("convert", *arguments.split()), status, words)
        self.assertEqual(recorder.files(), ["A.MP3", "a.wav", "d.wav", "damaged.rec", "junk", "live.rec", "old.mp3"])
        self.assertEqual(json.loads(recorder.run("convert", "live.rec", "b.wav", "--json")[1]),
                         {"schema": 1, "input": "live.rec", "output": "b.wav", "source": "live", "sampleRate": 16000,
                          "seconds": seconds, "damagedPackets": 0})

    def test_several_and_pipes(self):
        recorder = Recorder(self)
        for name in ("a.rec", "b.rec"):
            (recorder.home / name).write_bytes(SILENCE)
        (recorder.home / "d").mkdir()
        for arguments, status, words in (
                ("a.rec b.rec -o d", 0, ("to d/a.mp3 (1.00 s", "to d/b.mp3")),
                ("a.rec none b.rec -o d --to wav --json", 1, ('"output": "d/b.wav"', "1 of 3 recordings was not")),
                ("a.rec --to mp3 --bitrate 64", 0, ("to a.mp3",)),
                ("a.rec b.rec", 1, ("a.mp3: it exists already", "to b.mp3")),
                ("none - -o d", 2, ("stands alone",)),
                ("a.rec a.rec -o d", 2, ("Two inputs would become d/a.mp3",))):
            with self.subTest(arguments):
                self.check(recorder.run("convert", *arguments.split(), stdin=subprocess.DEVNULL), status, *words)
        self.assertEqual(recorder.files(), ["a.mp3", "a.rec", "b.mp3", "b.rec", "d"])
        self.assertEqual(sorted(os.listdir(recorder.home / "d")), ["a.mp3", "a.wav", "b.mp3", "b.wav"])
        self.assertGreater((recorder.home / "a.mp3").stat().st_size, 2 * (recorder.home / "b.mp3").stat().st_size)
        with open(recorder.home / "a.rec", "rb") as given:
            code, out, _ = recorder.run("convert", "-", "--to", "wav", stdin=given, text=False)
        self.assertEqual((code, out), (0, (recorder.home / "d/a.wav").read_bytes()))

    def test_play(self):
        recorder = Recorder(self, BLOCK, BLOCK)
        player = recorder.home / "ffplay"
        player.write_text('#!/bin/sh\nfor file; do :; done\ncp "$file" heard\nexec sleep "$SLEEP"\n')
        player.chmod(0o700)
        (recorder.home / "a.rec").write_bytes(SILENCE)
        env = {**os.environ, "PATH": f"{recorder.home}:/usr/bin:/bin", "TMPDIR": str(recorder.home), "SLEEP": "0"}
        for what, status, words, heard in (
                ("a.rec", 0, (), b"RIFF"), ("1", 0, (), recorder.contents[0]), ("2", 1, ("gives out no other",), b""),
                ("none", 1, ("no file none",), b"")):
            with self.subTest(what):
                (recorder.home / "heard").write_bytes(b"")
                self.check(recorder.run("play", what, env=env), status, *words)
                self.assertTrue((recorder.home / "heard").read_bytes().startswith(heard))
        self.assertEqual(recorder.names(), ["0.opus", "1.opus"])
        self.check(recorder.run("play", "a.rec", env={**env, "PATH": "/none"}), 1, "looks for ffplay, mpv, play")
        (recorder.home / "heard").unlink()
        process = recorder.start("play", "a.rec", env={**env, "SLEEP": "100"})
        while not (recorder.home / "heard").exists():
            self.assertIsNone(process.poll())
        process.send_signal(signal.SIGINT)
        self.check(finish(process), 0)
        self.assertEqual(recorder.files(), ["a.rec", "ffplay", "heard"])

    def test_interruption(self):
        recorder = Recorder(self)
        (recorder.home / "f.rec").write_bytes(SILENCE * 20000)
        result = Terminal(recorder, "convert", "f.rec", "f.mp3").end(b"%", 2, signal.SIGINT)
        self.check(result, 1, "Interrupted: nothing was written")
        self.assertEqual(recorder.files(), ["f.rec"])


unittest.main()
