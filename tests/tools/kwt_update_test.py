"""Updates firmware with kwt, as a person would: kwt_update_test.py KWT [UNITTEST-ARGUMENT...]"""

import json
import signal
import unittest

from kwt_support import CommandTest, KwtTestCase, Recorder, Terminal
from recorders import image, wire

SEGMENT, SMALLEST, FLOOR = wire("kSegmentSize"), wire("kSmallestPacket"), wire("kPacketFloor")
SIZE = 3 * SEGMENT
SLOW = "interval 7.5ms\npackets 6\n"

# Three queries, then a write for each step: 4 prepare, ... 8 configuration, 9 to 42 the first segment's packets, 43 its
# check, ... 113 the last check, 114 bye, 115 done. The notifications: 4 to 8 the handshake, 9 to 11 the checks, 12 bye,
# 13 the new version.
OLD = "still runs its old firmware"
UNCONFIRMED, INSTALLED = "accepted the image, but", "firmware 1.2.3 -> 2.5.1."


def failing(script, *words, status=1):
    return script, "update fw", status, (*words, OLD, "same command again")


def silent(step, *words):
    return failing("update silent " + step, "stopped answering ", *words, status=75)


class UpdateTest(CommandTest, KwtTestCase):
    # Then comes whether the recorder has the new firmware, and the image's size.
    commands = (
        failing("update refuse prepare", "refused the preparation", "1008", "charge it"),
        failing("update refuse partition", "refused the partition selection", "1010", "off and on"),
        failing("update refuse configuration", "refused the configuration", "1009", "one for this recorder"),
        failing("update refuse check 2", "check of a segment failed", "1012", "closer", status=75),
        failing("update refuse bye", "refused the whole image", "1013", "one for this recorder"),
        *(silent(step, "before") for step in ("prepare", "partition", "resume", "begin", "configuration")),
        silent("check 3", "after", f"of {SIZE} bytes"),
        silent("bye", f"after {SIZE} of {SIZE}"),
        failing("write 4 disconnect\nwrite 5 disconnect\nwrite 6 disconnect", "Connection lost before", "into range", status=75),
        failing("write 22 disconnect\nwrite 42 disconnect\nwrite 62 disconnect", "Connection lost after", status=75),
        *((fault, "update fw", 0, (INSTALLED,), True) for fault in (
            "acknowledgement 52 drop", "write 62 refuse", "write 115 disconnect", "notification 13 disconnect",
            "notification 14 drop")),
        ("write 116 disconnect", "update fw", 1, (UNCONFIRMED, "kwt info")),
        ("update mtu 100", "update fw", 1, (f"last {450 % FLOOR} bytes are too few", f"padded to {2 * SEGMENT}"), False,
         SEGMENT + 450))

    @staticmethod
    def recorder(case, script="", isInstalled=False, size=SIZE):
        recorder = Recorder(case, script=script)
        (recorder.home / "fw").write_bytes(image(size))
        return recorder

    def check_end(self, recorder, isInstalled=False, size=SIZE):
        """The same command again, now without faults, installs the image."""
        self.assertEqual(recorder.firmware(), image(size) if isInstalled else None)
        recorder.script("")
        after = "2.5.1, as before" if isInstalled else INSTALLED
        self.check(recorder.run("update", "fw"), 0, after)
        self.assertEqual(recorder.firmware(), image(size))

    def test_results_for_people_and_programs(self):
        recorder = self.recorder(self)
        self.check_end(recorder)
        self.check(recorder.run("info"), 0, "2.5.1")
        self.check(recorder.run("update", "fw"), 0, f"Sent fw ({SIZE} bytes in", "2.5.1, as before")
        (recorder.home / "fw").write_bytes(image(100, (1, 0, 9)))
        code, out, err = recorder.run("update", "fw", "--json", "--yes")
        self.assertEqual((code, err), (0, ""))  # no progress either: this is no terminal
        result = json.loads(out)
        self.assertGreater(result.pop("seconds"), 0)
        self.assertEqual(result, {"schema": 1, "image": "fw", "bytes": 100, "versionBefore": "2.5.1", "versionAfter": "1.0.9", "versionImage": "1.0.9",
                                  "battery": 80})

    def test_check(self):
        recorder = self.recorder(self)
        self.check(recorder.run("update", "fw", "--check"), 0, "1.2.3 -> 2.5.1", "Nothing was sent", "80 %")
        (recorder.home / "fw").write_bytes(image(SIZE, (1, 2, 2)))
        result = json.loads(recorder.run("update", "fw", "--check", "--json")[1])
        self.assertEqual(result, {"schema": 1, "image": "fw", "bytes": SIZE, "versionBefore": "1.2.3",
                                  "versionImage": "1.2.2", "battery": 80, "older": True})
        self.assertIsNone(recorder.firmware())

    def test_questions(self):
        """An older version, a low battery: to somebody at a terminal, or --yes has answered."""
        for script, version, words in (("", (1, 2, 2), ("is older (1.2.2)", "(1.2.3)")),
                                       ("battery 19", (2, 5, 1), ("battery is low (19 %)",)),
                                       ("battery 3000", (1, 10, 0), None), ("battery 20", (1, 2, 3), None)):
            recorder = self.recorder(self, script)
            (recorder.home / "fw").write_bytes(image(SIZE, version))
            with self.subTest(script=script, version=version):
                result = recorder.run("update", "fw")
                self.check(result, 1 if words else 0, *(words or ()), *(("--yes",) if words else ()))
                self.assertEqual(recorder.firmware() is None, bool(words))
                for typed, status in (("n", 1), ("y", 0)) if words else ():
                    terminal = Terminal(recorder, "update", "fw", types=typed + "\n")
                    self.check(terminal.finish(), status, *words, "[y/N]")
                    self.assertEqual(recorder.firmware() is None, bool(status))
                self.check(recorder.run("update", "fw", "--yes"), 0)

    def test_refusals_before_anything_is_sent(self):
        recorder = self.recorder(self, "write 1 disconnect")
        more = 2 * SEGMENT + 1
        for name, content, words in (
                (".", None, ("is a folder",)), ("missing", None, ("No such file", "Name")),
                ("f", b"", ("0 bytes", "the last 4 of an image")),
                ("f", bytes(more), ("last 1 bytes", f"padded to {more - 1 + SMALLEST} bytes")),
                ("f", b"\x89PNG" + bytes(SEGMENT), (": it is ", "PNG")), ("f", b"some more text\n" * 300, (": it is ", "text"))):
            with self.subTest(words):
                if content is not None:
                    (recorder.home / name).write_bytes(content)
                self.check(recorder.run("update", name, "--yes"), 1, f"Cannot install {name}", *words)

    def test_interruption(self):
        recorder = self.recorder(self, SLOW)
        result = Terminal(recorder, "update", "fw").end(b"s left", 1, signal.SIGINT)
        self.check(result, 1, "Interrupted after", OLD)
        self.assertRegex(result[2], rf" \d+ %  \d+ of {SIZE} bytes  \d+\.\d kB/s  \d+ s left")
        self.check_end(recorder)


unittest.main()
