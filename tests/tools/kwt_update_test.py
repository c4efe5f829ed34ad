"""Updates firmware with kwt, as a person would: kwt_update_test.py KWT [UNITTEST-ARGUMENT...]"""

import json
import os
import random
import signal
import time
import types
import unittest

from kwt_support import KwtTestCase, Recorder, Terminal, finish

SEGMENT = 8192
SIZE = 3 * SEGMENT
SLOW = "interval 7.5ms\npackets 6\n"

# Two queries, then a write for each step: 3 prepare, ... 7 configuration, 8 to 41 the first segment's packets,
# 42 its check, ... 112 the last check, 113 bye, 114 done. The notifications: 3 to 7 the handshake, 8 to 10 the
# checks, 11 bye, 12 the new version.
SILENT, STOPPED = "did not answer the ", "stopped answering "
TROUBLES = (
    ("update refuse prepare", ("refused the preparation", "1008", "charge it")),
    ("update refuse partition", ("refused the partition selection", "1010", "off and on")),
    ("update refuse configuration", ("refused the configuration", "1009", "one for this recorder")),
    ("update refuse check 2", ("check of a segment failed", "1012", "closer")),
    ("update refuse bye", ("refused the whole image", "1013", "one for this recorder")),
    ("update silent prepare", (SILENT + "preparation within 5 s", "999")),
    ("update silent partition", (SILENT + "partition selection",)),
    ("update silent resume", (SILENT + "resume verification",)),
    ("update silent begin", (SILENT + "start of the transfer",)),
    ("update silent configuration", (SILENT + "configuration",)),
    ("update silent check 3", (STOPPED + "after 16384 of 24576",)),
    ("update silent bye", (STOPPED + "at the end (bye)",)),
    ("write 20 drop", (STOPPED + "after 0 of",)),
    ("acknowledgement 50 drop", (STOPPED + "after 8192 of",)),
    ("write 60 corrupt 100", ("check of a segment failed",)),
    ("write 60 refuse", ("check of a segment failed",)),
    ("write 5 refuse", ("error at the resume verification", "ATT error")),
    ("write 3 disconnect", ("Connection lost at the preparation",)),
    ("notification 6 disconnect", ("Connection lost at the start of the transfer", "into range")),
    ("write 60 disconnect", ("Connection lost after 8192 of",)),
    ("write 113 disconnect", ("Connection lost at the end (bye)",)),
)


def image(size=SIZE, version=(2, 5, 1), seed=1):
    return random.Random(seed).randbytes(size - 4) + bytes(version) + b"\x07"


class UpdateTest(KwtTestCase):
    @classmethod
    def setUpClass(cls):
        """What waits longest runs beside all the rest."""
        owner = types.SimpleNamespace(addCleanup=cls.addClassCleanup)
        cls.troubled = []
        for script, words in TROUBLES:
            recorder = cls.recorder(owner, script)
            cls.troubled.append((script, recorder, recorder.start("update", "fw"), words))
        cls.unconfirmed = cls.recorder(owner, "notification 12 drop")
        cls.waiting = cls.unconfirmed.start("update", "fw")

    def recorder(self, script="", content=image()):
        recorder = Recorder(self, script=script)
        (recorder.home / "fw").write_bytes(content)
        return recorder

    def installed(self, recorder):
        file = recorder.store / "device" / "firmware.bin"
        return file.read_bytes() if file.exists() else None

    def assert_updates(self, recorder):
        """The same command again, now without trouble, installs the image."""
        self.assertIsNone(self.installed(recorder))
        recorder.script("")
        self.check(recorder.run("update", "fw"), 0, "Installed fw", "firmware 1.2.3 -> 2.5.1.")
        self.assertEqual(self.installed(recorder), image())

    def test_results_for_people_and_programs(self):
        recorder = self.recorder()
        self.assert_updates(recorder)
        self.check(recorder.run("info"), 0, "2.5.1")
        self.check(recorder.run("update", "fw"), 0, "Sent fw (24576 bytes in", "2.5.1, as before")
        (recorder.home / "fw").write_bytes(image(100, (1, 0, 9)))
        code, out, err = recorder.run("update", "fw", "--json")
        self.assertEqual((code, err), (0, ""))  # no progress either: this is no terminal
        result = json.loads(out)
        self.assertGreater(result.pop("seconds"), 0)
        self.assertEqual(result, {"image": "fw", "bytes": 100, "versionBefore": "2.5.1", "versionAfter": "1.0.9"})
        self.assertTrue((recorder.home.parent / "state" / "kwt" / "settings").exists())

    def test_refusals_before_anything_is_sent(self):
        recorder = self.recorder("write 1 disconnect")
        os.mkfifo(recorder.home / "pipe")
        for name, size, words in ((".", None, ("is a folder",)), ("missing", None, ("No such file", "name")),
                                  ("pipe", None, ("not a regular file",)), ("f", 0, ("0 bytes", "last 4 bytes")),
                                  ("f", 3, ("3 bytes",)), ("f", 87, ("last 87 bytes are too few", "to 88 bytes")),
                                  ("f", 2 * SEGMENT + 1, ("last 1 bytes", "padded to 16472 bytes"))):
            with self.subTest(name=name, size=size):
                if size is not None:
                    (recorder.home / name).write_bytes(bytes(size))
                self.check(recorder.run("update", name), 1, f"Cannot install {name}", *words)

    def test_packets_that_do_not_fit(self):
        for size, script, tail in ((8642, "", 0), (8642, "update mtu 100", 10), (8688, "", 10),
                                   (8688, "update mtu 500", 0), (SEGMENT + 88, "", 0), (100, "update mtu 0", 0)):
            with self.subTest(size=size, script=script):
                recorder = self.recorder(script, image(size))
                result = recorder.run("update", "fw")
                if tail:
                    self.check(result, 1, f"last {tail} bytes are too few", "padded to 16384", "old firmware")
                    self.assertIsNone(self.installed(recorder))
                else:
                    self.check(result, 0, "-> 2.5.1")

    def test_trouble(self):
        for script, recorder, process, words in self.troubled:
            with self.subTest(script):
                self.check(finish(process), 1, *words, "still runs its old firmware", "same command again")
                self.assert_updates(recorder)

    def test_unconfirmed_installation(self):
        recorder = self.recorder("write 114 disconnect")
        self.check(recorder.run("update", "fw"), 1, "accepted the image, but", "kwt info")
        self.assert_updates(recorder)
        self.check(finish(self.waiting), 1, "accepted the image, but", "kwt info")
        self.assertEqual(self.installed(self.unconfirmed), image())

    def test_interruption(self):
        for number, script, count in ((signal.SIGINT, SLOW, 3), (signal.SIGTERM, "update silent check 1", 1)):
            with self.subTest(number):
                recorder = self.recorder(script)
                terminal = Terminal(lambda stderr: recorder.start("update", "fw", stderr=stderr))
                terminal.wait_for(b"%", count)
                if count > 1:
                    self.assertRegex(terminal.shown, rb" 66 %  16384 of 24576 bytes  \d+\.\d kB/s  \d+ s left")
                terminal.process.send_signal(number)
                self.check(terminal.finish(), 1, "Interrupted after", "still runs its old firmware")
                self.assert_updates(recorder)

    def test_killed_host(self):
        seed = random.randrange(2**32)
        moments = random.Random(seed)
        for _ in range(10):
            recorder = self.recorder()
            process = recorder.start("update", "fw")
            time.sleep(moments.uniform(0, 0.12))
            process.kill()
            finish(process)
            with self.subTest(seed=seed):
                before = self.installed(recorder)
                self.assertIn(before, (None, image()))
                self.check(recorder.run("update", "fw"), 0, "has firmware 2.5.1" if before else "1.2.3 -> 2.5.1")
                self.assertEqual(self.installed(recorder), image())


unittest.main()
