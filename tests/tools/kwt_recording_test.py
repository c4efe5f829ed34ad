"""Records live and converts with kwt, as a person would: kwt_recording_test.py KWT [UNITTEST-ARGUMENT...]"""

import contextlib
import json
import random
import signal
import subprocess
import unittest
import wave

from kwt_support import AUDIO, CommandTest, KwtTestCase, Recorder, Terminal, finish, packets_in

PER_SECOND = 50  # packets of sound


class RecordingTest(CommandTest, KwtTestCase):
    # Then comes whether anything is in the file.
    commands = (
        ("key 400ms", "record -o f.rec", 0, ("Recorded f.rec (0.40 s", "The key on the recorder ended it."), True),
        ("call 400ms", "record -o f.rec", 0, ("(0.40 s", "The recorder entered a call, which ended it."), True),
        ("key 200ms", "record -o f.rec -t 4 --json", 0, ('"ended": "key"', '"seconds": 0.2', '"type": 4'), True),
        ("call", "record -o f.rec -t call -d 0.3 --json", 0, ('"ended": "time"', '"type": 2'), True),
        ("call", "record -o f.rec", 1, ("in a call", "1004", "-t call")),
        ("", "record -o f.rec -t 2", 1, ("not in a call", "1004", "-t")),
        ("write 2 refuse", "record -o f.rec", 75, ("ATT error",)),
        ("write 2 drop", "record -o f.rec", 75, ("did not answer within 10 s",)),
        ("notification 1 disconnect", "record -o f.rec", 75, ("connection to the recorder was lost",)),
        ("notification 2 disconnect", "record -o f.rec", 75, ("connection to the recorder was lost",)),
        ("notification 32 disconnect", "record -o f.rec", 75, ("lost after 0.", "bytes)", "kwt convert"), True),
        ("write 3 drop", "record -o f.rec -d 0.2", 1, ("did not confirm the stop", "with its key"), True),
        ("write 3 refuse", "record -o f.rec -d 0.2", 1, ("did not confirm the stop",), True))

    def check_end(self, recorder, isKept=False):
        self.assertEqual(recorder.files(), ["f.rec"] if isKept else [])
        if isKept:
            self.assertGreater(self.recorded(recorder), 0)

    def on_terminal(self, script=""):
        recorder = Recorder(self, script=script)
        return recorder, Terminal(recorder, "record", "-o", "f.rec")

    def recorded(self, recorder, whole=True):
        """The number of packets in the file, which converts."""
        count, rest = packets_in((recorder.home / "f.rec").read_bytes())
        if whole:
            self.assertEqual(rest, 0)
        code, out, err = recorder.run("convert", "f.rec", "f.wav", "--json")
        self.assertEqual((code, err), (0, ""), out)
        with wave.open(str(recorder.home / "f.wav")) as sound:
            self.assertEqual((sound.getframerate(), sound.getnframes()), (16000, count * 16000 // PER_SECOND))
        return count

    def test_interruption(self):
        recorder, terminal = self.on_terminal()
        terminal.wait_for(b"dBFS", 3)
        self.assertRegex(terminal.shown, rb"\r\x1b\[K0:00\.\d  \d+ bytes  \[#+ *\] +-\d+ dBFS")
        terminal.process.send_signal(signal.SIGINT)  # twice, as timeout(1) does
        self.check(terminal.end(b"dBFS", 3, signal.SIGINT), 0, "Recorded f.rec (0.", "It was stopped.")
        self.recorded(recorder)

    def test_second_interruption(self):
        recorder, terminal = self.on_terminal("write 3 drop")
        terminal.wait_for(b"dBFS", 2)
        while terminal.process.poll() is None:
            terminal.process.send_signal(signal.SIGINT)
            with contextlib.suppress(subprocess.TimeoutExpired):
                terminal.process.wait(0.3)
        self.check(terminal.finish(), -signal.SIGINT)
        self.assertGreater(self.recorded(recorder), 0)

    def test_killed_host(self):
        """Whatever had arrived is in the file, but for the packet that was being written."""
        seed = random.randrange(2**32)
        moments = random.Random(seed)
        running = sorted(((moments.randint(1, 12), *self.on_terminal(f"latency {moments.randrange(40)}ms"))
                          for _ in range(20)), key=lambda one: one[0])
        contents = []
        for updates, recorder, terminal in running:
            self.check(terminal.end(b"dBFS", updates, signal.SIGKILL), -signal.SIGKILL)
            with self.subTest(seed=seed, updates=updates):
                self.assertGreater(self.recorded(recorder, whole=False), 0)
            contents.append((recorder.home / "f.rec").read_bytes())
        longest = max(contents, key=len)
        for content in contents:  # the microphone hears the same each time
            self.assertTrue(longest.startswith(content), f"seed {seed}")


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

    def test_interruption(self):
        recorder = Recorder(self)
        silence = AUDIO + bytes([3, 0, 0xB8, 0xFF, 0xFE])  # 20 ms
        (recorder.home / "f.rec").write_bytes(silence * 1000000)
        result = Terminal(recorder, "convert", "f.rec", "f.mp3").end(b"%", 2, signal.SIGINT)
        self.check(result, 1, "Interrupted: nothing was written")
        self.assertEqual(recorder.files(), ["f.rec"])


unittest.main()
