"""Updates firmware with kwt, as a person would: kwt_update_test.py KWT [UNITTEST-ARGUMENT...]"""

import json
import os
import signal
import unittest

from kwt_support import CommandTest, KwtTestCase, Recorder, Terminal, image, wire

SEGMENT, SMALLEST, FLOOR = wire("kSegmentSize"), wire("kSmallestPacket"), wire("kPacketFloor")
SIZE = 3 * SEGMENT
SLOW = "interval 7.5ms\npackets 6\n"

# Two queries, then a write for each step: 3 prepare, ... 7 configuration, 8 to 41 the first segment's packets,
# 42 its check, ... 112 the last check, 113 bye, 114 done. The notifications: 3 to 7 the handshake, 8 to 10 the
# checks, 11 bye, 12 the new version.
OLD = "still runs its old firmware"
SILENT, STOPPED, UNCONFIRMED = "did not answer the ", "stopped answering ", "accepted the image, but"


def failing(script, *words):
    return script, "update fw", 1, (*words, OLD, "same command again")


class UpdateTest(CommandTest, KwtTestCase):
    # Then comes whether the recorder has the new firmware, and the image's size.
    commands = (
        failing("update refuse prepare", "refused the preparation", "1008", "charge it"),
        failing("update refuse partition", "refused the partition selection", "1010", "off and on"),
        failing("update refuse configuration", "refused the configuration", "1009", "one for this recorder"),
        failing("update refuse check 2", "check of a segment failed", "1012", "closer"),
        failing("update refuse bye", "refused the whole image", "1013", "one for this recorder"),
        failing("update silent prepare", SILENT + "preparation within 5 s", "999"),
        failing("update silent partition", SILENT + "partition selection"),
        failing("update silent resume", SILENT + "resume verification"),
        failing("update silent begin", SILENT + "start of the transfer"),
        failing("update silent configuration", SILENT + "configuration"),
        failing("update silent check 3", STOPPED + f"after {2 * SEGMENT} of {SIZE}"),
        failing("update silent bye", STOPPED + "at the end (bye)"),
        failing("acknowledgement 50 drop", STOPPED + f"after {SEGMENT} of"),
        failing("write 60 refuse", "check of a segment failed"),
        failing("write 5 refuse", "error at the resume verification", "ATT error"),
        failing("write 3 disconnect", "Connection lost at the preparation"),
        failing("notification 6 disconnect", "Connection lost at the start of the transfer", "into range"),
        failing("write 60 disconnect", f"Connection lost after {SEGMENT} of"),
        failing("write 113 disconnect", "Connection lost at the end (bye)"),
        ("write 114 disconnect", "update fw", 1, (UNCONFIRMED, "kwt info")),
        ("notification 12 drop", "update fw", 1, (UNCONFIRMED, "kwt info"), True),
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
        after = "2.5.1, as before" if isInstalled else "firmware 1.2.3 -> 2.5.1."
        self.check(recorder.run("update", "fw"), 0, after)
        self.assertEqual(recorder.firmware(), image(size))

    def test_results_for_people_and_programs(self):
        recorder = self.recorder(self)
        self.check_end(recorder)
        self.check(recorder.run("info"), 0, "2.5.1")
        self.check(recorder.run("update", "fw"), 0, f"Sent fw ({SIZE} bytes in", "2.5.1, as before")
        (recorder.home / "fw").write_bytes(image(100, (1, 0, 9)))
        code, out, err = recorder.run("update", "fw", "--json")
        self.assertEqual((code, err), (0, ""))  # no progress either: this is no terminal
        result = json.loads(out)
        self.assertGreater(result.pop("seconds"), 0)
        self.assertEqual(result, {"image": "fw", "bytes": 100, "versionBefore": "2.5.1", "versionAfter": "1.0.9"})
        self.assertTrue((recorder.home.parent / "state" / "kwt" / "settings").exists())

    def test_refusals_before_anything_is_sent(self):
        recorder = self.recorder(self, "write 1 disconnect")
        os.mkfifo(recorder.home / "pipe")
        few, more = SMALLEST - 1, 2 * SEGMENT + 1
        for name, size, words in (
                (".", None, ("is a folder",)), ("missing", None, ("No such file", "name")),
                ("pipe", None, ("not a regular file",)), ("f", 0, ("0 bytes", "last 4 bytes")), ("f", 3, ("3 bytes",)),
                ("f", few, (f"last {few} bytes are too few", f"to {SMALLEST} bytes")),
                ("f", more, ("last 1 bytes", f"padded to {more - 1 + SMALLEST} bytes"))):
            with self.subTest(name=name, size=size):
                if size is not None:
                    (recorder.home / name).write_bytes(bytes(size))
                self.check(recorder.run("update", name), 1, f"Cannot install {name}", *words)

    def test_interruption(self):
        recorder = self.recorder(self, SLOW)
        result = Terminal(recorder, "update", "fw").end(b"%", 3, signal.SIGINT)
        self.check(result, 1, f" 66 %  {2 * SEGMENT} of {SIZE} bytes  ", "Interrupted after", OLD)
        self.assertRegex(result[2], r" \d+\.\d kB/s  \d+ s left")
        self.check_end(recorder)


unittest.main()
