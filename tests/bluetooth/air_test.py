"""kwt operates recorders over the air, in the virtual machine: air_test.py KWT KWT-RECORDER [UNITTEST-ARGUMENT...]"""

import json
import os
import random
import subprocess
import sys
import time
import unittest

from air_support import ADDRESS, KWT_RECORDER, NAME, AirRecorder, BluetoothService
from kwt_support import KwtTestCase, Terminal, finish, tool
from recorders import BLOCK, DATA, image, wire

SEGMENT = wire("kSegmentSize")
ROUNDS = int(os.environ["KWT_ROUNDS"])

bluetooth = BluetoothService()
setUpModule, tearDownModule = bluetooth.start, bluetooth.kill


class AirTest(KwtTestCase):
    def assert_recorded(self, recorder, name):
        code, out, err = recorder.run("convert", name, name + ".wav", "--json")
        self.assertEqual((code, err), (0, ""), out)
        result = json.loads(out)
        self.assertEqual(result["damagedPackets"], 0)
        self.assertGreater(result["seconds"], 0)

    def assert_updates(self, recorder, size):
        (recorder.home / "fw").write_bytes(image(size))
        self.check(recorder.run("update", "fw"), 0, "firmware 1.2.3 -> 2.5.1")
        self.assertEqual(recorder.firmware(), image(size))

    def all_operations(self, mtu):
        seed = random.randrange(2**32)
        queries = 12  # of the commands before
        cuts = [queries + cut for cut in random.Random(seed).sample(range(BLOCK // DATA), 3)]
        recorder = AirRecorder(self, BLOCK, BLOCK - 1, mtu=mtu,
                               script="".join(f"notification {cut} disconnect\n" for cut in cuts))
        self.check(recorder.run("info"), 0, "1.2.3")
        self.check(recorder.run("list"), 0, " 1  32.8 kB", " 2  32.8 kB")
        for _ in range(2):
            recorder.program.wait_for("^Disconnected")
        with self.subTest(f"download over three broken connections, seed {seed}"):
            self.check(recorder.run("pull", "-o", "f.opus"), 0, "has deleted")
            self.assert_pulled(recorder, "f.opus")
            for _ in range(3 + 1):
                recorder.program.wait_for("^Disconnected")
        self.check(recorder.run("pull", "-o", "g.opus"), 0, "has deleted")
        self.assert_pulled(recorder, "g.opus", 1)
        self.assertEqual(recorder.names(), [])
        self.check(recorder.run("record", "-o", "f.rec", "-d", "1"), 0, "Recorded f.rec")
        self.assert_recorded(recorder, "f.rec")
        self.assert_updates(recorder, SEGMENT)

    def test_mtu_185(self):
        self.all_operations(185)

    def test_mtu_247(self):
        self.all_operations(247)

    def test_mtu_517(self):
        self.all_operations(517)

    def test_mtu_that_is_too_small(self):
        self.check(AirRecorder(self, mtu=23).run("info"), 1, "ATT MTU 23", f"at least {wire('kDownloadHeadSize') + DATA + 3}")

    def test_scan(self):
        AirRecorder(self)
        self.check(tool("scan", "-d", "2"), 0, ADDRESS, NAME)
        code, out, err = tool("scan", "-d", "2", "--json")
        self.assertEqual((code, err), (0, ""))
        found = [(device["address"], device["name"]) for device in json.loads(out)["devices"]]
        self.assertEqual(found, [(ADDRESS, NAME)])

    def test_rounds(self):
        recorder = AirRecorder(self)
        used = []
        for number in range(ROUNDS):
            with self.subTest(number):
                self.check(recorder.run("info"), 0, "1.2.3")
                recorder.program.wait_for("^Disconnected")
            used.append(recorder.program.used())
        print(f"kwt-recorder's descriptors, threads, kB: {used[ROUNDS // 2]}, {used[-1]} after {ROUNDS} rounds", file=sys.stderr)
        for name, margin, early, late in zip(("descriptors", "threads", "kB"), (3, 3, 1000), used[ROUNDS // 2], used[-1]):
            self.assertLess(late, early + margin, name)

    def test_advertising_ends_with_kwt_recorder(self):
        AirRecorder(self)
        self.doCleanups()
        advertised = subprocess.run(["btmgmt", "--index", "1", "advinfo"], capture_output=True, text=True, timeout=20)
        self.assertIn("with 0 items", advertised.stdout)

    def test_adapters_that_are_not_there(self):
        recorder = AirRecorder(self)
        for adapter in ("hci7", "00:00:00:00:00:01"):
            refused = subprocess.Popen([KWT_RECORDER, "--adapter", adapter, str(recorder.home)], text=True,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            self.check(finish(refused), 1, f"no Bluetooth controller {adapter}", f"hci1 ({ADDRESS})")

    def lose_service(self, recorder, mark, count, *command):
        """The service ends in the middle of the command, which ends soon after; its text."""
        terminal = Terminal(recorder, *command)
        terminal.wait_for(mark, count)
        began = time.monotonic()
        bluetooth.lose()
        code, out, shown = terminal.finish()
        took = time.monotonic() - began
        bluetooth.start()
        recorder.program.wait_for("^Disconnected")
        self.assertIn(code, (69, 75), shown)
        self.assertLess(took, 10, shown)
        return shown

    def test_service_restarts_during_a_download(self):
        """Which goes on as soon as it can."""
        recorder = AirRecorder(self, 3 * BLOCK)
        terminal = Terminal(recorder, "pull", "-o", "f.opus")
        terminal.wait_for(b"%", 3)
        bluetooth.lose()
        bluetooth.start()
        self.check(terminal.finish(), 0, "has deleted")
        self.assert_pulled(recorder, "f.opus")

    def test_service_restarts_during_a_recording(self):
        recorder = AirRecorder(self)
        self.assertIn("Connection lost after", self.lose_service(recorder, b"dBFS", 3, "record", "-o", "f.rec"))
        self.assert_recorded(recorder, "f.rec")
        self.check(recorder.run("record", "-o", "g.rec", "-d", "1"), 0, "Recorded g.rec")
        self.assert_recorded(recorder, "g.rec")

    def test_service_restarts_during_an_update(self):
        recorder = AirRecorder(self)
        (recorder.home / "fw").write_bytes(image(5 * SEGMENT))
        self.assertIn("old firmware", self.lose_service(recorder, b"%", 3, "update", "fw"))
        self.assertIsNone(recorder.firmware())
        self.assert_updates(recorder, 5 * SEGMENT)


program = unittest.main(verbosity=2, exit=False)
sys.exit(not (program.result.testsRun and program.result.wasSuccessful()))  # none at all is a mistake too
