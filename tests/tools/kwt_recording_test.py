"""Records live and converts with kwt, as a person would: kwt_recording_test.py KWT [UNITTEST-ARGUMENT...]"""

import contextlib
import json
import random
import signal
import subprocess
import time
import types
import unittest
import wave

from kwt_support import KwtTestCase, Recorder, Terminal, finish

PACKET, PER_SECOND = 84, 50  # one packet with its 80 bytes of sound


def packets_in(content):
    """The number of whole records, and the bytes of one that is not whole."""
    count = at = 0
    while at + 4 <= len(content):
        if content[at:at + 2] != b"\x50\x01":
            raise AssertionError(f"no record at {at}: {content[at:at + 8].hex()}")
        end = at + 4 + int.from_bytes(content[at + 2:at + 4], "little")
        if end > len(content):
            break
        count, at = count + 1, end
    return count, len(content) - at


class RecordingTest(KwtTestCase):
    @classmethod
    def setUpClass(cls):
        """What waits longest runs beside all the rest."""
        owner = types.SimpleNamespace(addCleanup=cls.addClassCleanup)
        cls.unanswered = Recorder(owner, script="write 2 drop").start("record", "-o", "f.rec")

    def recorder(self, script=""):
        return Recorder(self, script=script)

    def on_terminal(self, script=""):
        recorder = self.recorder(script)
        return recorder, Terminal(lambda stderr: recorder.start("record", "-o", "f.rec", stderr=stderr))

    def recorded(self, recorder, name="f.rec", whole=True):
        """The number of packets in the file, which converts."""
        count, rest = packets_in((recorder.home / name).read_bytes())
        if whole:
            self.assertEqual(rest, 0)
        code, out, err = recorder.run("convert", name, name + ".wav", "--json")
        self.assertEqual((code, err), (0, ""), out)
        with wave.open(str(recorder.home / (name + ".wav"))) as sound:
            self.assertEqual((sound.getframerate(), sound.getnframes()), (16000, count * 320))
        return count

    def test_ends(self):
        """All of them at once, for time."""
        cases = (("", ["-d", "0.5"], "time", None), ("key 400ms", [], "key", 20), ("call 400ms", [], "call", 20),
                 ("call", ["-t", "call", "-d", "0.3"], "time", None),
                 ("key 200ms", ["-t", "4"], "key", 10))
        running = [(recorder := self.recorder(script), recorder.start("record", "-o", "f.rec", "--json", *options),
                    options, ended, count) for script, options, ended, count in cases]
        for recorder, process, options, ended, count in running:
            with self.subTest(ended=ended, options=options):
                code, out, err = finish(process)
                self.assertEqual((code, err), (0, ""))  # no display either: this is no terminal
                packets = self.recorded(recorder)
                if count:
                    self.assertEqual(packets, count)
                self.assertGreater(packets, 0)
                kind = {"call": 2, "4": 4}.get(options[1], 0) if "-t" in options else 0
                self.assertEqual(json.loads(out), {"file": "f.rec", "type": kind, "bytes": packets * PACKET,
                                                   "seconds": packets / PER_SECOND, "ended": ended})

    def test_files_in_the_way(self):
        recorder = self.recorder("write 1 disconnect")  # nothing may be sent
        (recorder.home / "full.rec").write_bytes(b"x")
        for name, words in (("full.rec", ("not empty", "another file")), (".", ("is a folder",)),
                            ("no/f", ("no is not a folder",)), ("/dev/null", ("regular file",))):
            with self.subTest(name):
                self.check(recorder.run("record", "-o", name), 1, f"Cannot write {name}", "-o", *words)
        self.assertEqual((recorder.home / "full.rec").read_bytes(), b"x")
        (recorder.store / "device" / "microphone.wav").write_text("noise")
        self.check(recorder.run("record", "-o", "f.rec"), 1, "microphone.wav")
        self.assertEqual([path.name for path in recorder.home.iterdir()], ["full.rec"])

    def test_trouble(self):
        """Script, options, words and whether anything is in the file; all at once, since some wait for a time-out."""
        stop, silent = ["-d", "0.2"], "did not confirm the stop"
        cases = (("call", [], ("in a call", "1004", "-t call"), False),
                 ("", ["-t", "2"], ("not in a call", "1004", "-t"), False),
                 ("write 2 refuse", [], ("ATT error",), False),
                 ("notification 1 disconnect", [], ("connection to the recorder was lost",), False),
                 ("notification 2 disconnect", [], ("connection to the recorder was lost",), False),
                 ("notification 32 disconnect", [], ("Connection lost after 0.", "bytes)", "kwt convert"), True),
                 ("write 3 drop", stop, (silent, "with its key"), True),
                 ("write 3 refuse", stop, (silent, "ATT error"), True))
        running = [(recorder := self.recorder(script), recorder.start("record", "-o", "f.rec", *options), words, kept)
                   for script, options, words, kept in cases]
        for recorder, process, words, kept in running:
            with self.subTest(words):
                self.check(finish(process), 1, *words)
                if kept:
                    self.assertGreater(self.recorded(recorder), 0)
                else:
                    self.assertEqual(list(recorder.home.iterdir()), [])

    def test_full_disk(self):
        recorder = self.recorder()
        result = recorder.run("record", "-o", "f.rec", limit=1000)
        self.check(result, 1, "Cannot write f.rec: File too large", "was stopped", "0.22 s, 1000 bytes")
        self.assertEqual((self.recorded(recorder, whole=False)), 1000 // PACKET)

    def test_interruption(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                recorder, terminal = self.on_terminal()
                terminal.wait_for(b"dBFS", 3)
                self.assertRegex(terminal.shown, rb"\r\x1b\[K0:00\.\d  \d+ bytes  \[#+ *\] +-\d+ dBFS")
                terminal.process.send_signal(number)
                terminal.process.send_signal(number)  # as timeout(1) does
                self.check(terminal.finish(), 0, "Recorded f.rec (0.", "It was stopped.")
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
        running = sorted(((moments.randint(1, 12), *self.on_terminal()) for _ in range(20)), key=lambda one: one[0])
        contents = []
        for updates, recorder, terminal in running:
            terminal.wait_for(b"dBFS", updates)
            time.sleep(moments.uniform(0, 0.04))
            terminal.process.kill()
            self.check(terminal.finish(), -signal.SIGKILL)
            with self.subTest(seed=seed, updates=updates):
                self.assertGreater(self.recorded(recorder, whole=False), 0)
            contents.append((recorder.home / "f.rec").read_bytes())
        longest = max(contents, key=len)
        for content in contents:  # the microphone hears the same each time
            self.assertTrue(longest.startswith(content), f"seed {seed}")

    def test_unanswered_start(self):
        self.check(finish(self.unanswered), 1, "did not answer within 10 s")


class ConversionTest(KwtTestCase):
    def test_matrix(self):
        recorder = Recorder(self, 32768)  # with a recording that only begins like one
        self.check(recorder.run("record", "-o", "live.rec", "-d", "0.3"), 0)
        live = (recorder.home / "live.rec").read_bytes()
        (recorder.home / "damaged.rec").write_bytes(live + b"\x50\x01\x05\x00" + b"\xff" * 5 + live)
        (recorder.home / "junk").write_text("no sound at all")
        (recorder.home / "old.mp3").write_text("old")
        length = f"({len(live) // PACKET / PER_SECOND:.2f} s at 16000 Hz)"
        for source, output, options, status, words in (
                ("live.rec", "a.wav", [], 0, (f"Converted a live recording, live.rec, to a.wav {length}.",)),
                ("live.rec", "a.wav", [], 1, ("Cannot write a.wav: it exists", "--force")),
                ("live.rec", "A.MP3", [], 0, (length,)),
                ("live.rec", "old.mp3", ["--force"], 0, (length,)),
                ("live.rec", "no/f.wav", [], 1, ("cannot be written",)),
                ("damaged.rec", "d.wav", [], 0, ("1 damaged packet",)),
                ("../store/0.opus", "o.wav", [], 1, ("headers are damaged",)),
                ("junk", "j.wav", [], 1, ("junk is no recording",)),
                ("missing", "m.mp3", [], 1, ("missing cannot be opened",)),
                (".", "f.mp3", [], 1, (". is a folder",))):
            with self.subTest(source=source, output=output, options=options):
                self.check(recorder.run("convert", source, output, *options), status, *words)
        self.assertEqual(sorted(path.name for path in recorder.home.iterdir()),
                         ["A.MP3", "a.wav", "d.wav", "damaged.rec", "junk", "live.rec", "old.mp3"])
        self.assertEqual(json.loads(recorder.run("convert", "live.rec", "b.wav", "--json")[1]),
                         {"input": "live.rec", "output": "b.wav", "source": "live", "sampleRate": 16000,
                          "seconds": len(live) // PACKET / PER_SECOND, "damagedPackets": 0})

    def test_interruption(self):
        recorder = Recorder(self)
        self.check(recorder.run("record", "-o", "f.rec", "-d", "0.3"), 0)
        (recorder.home / "f.rec").write_bytes((recorder.home / "f.rec").read_bytes() * 50000)
        terminal = Terminal(lambda stderr: recorder.start("convert", "f.rec", "f.mp3", stderr=stderr))
        terminal.wait_for(b"%", 2)
        terminal.process.send_signal(signal.SIGINT)
        self.check(terminal.finish(), 1, "Interrupted: nothing was written")
        self.assertEqual([path.name for path in recorder.home.iterdir()], ["f.rec"])


unittest.main()
