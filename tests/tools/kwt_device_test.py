"""Runs kwt against a fake bluetoothd on a private system bus: kwt_device_test.py KWT FAKE-BLUEZ [UNITTEST-ARGUMENT...]"""

import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import types
import unittest

from kwt_support import KwtTestCase, Recorder, finish

FAKE_BLUEZ = os.path.abspath(sys.argv.pop(1))
ADDRESS = "AA:BB:CC:DD:EE:FF"
BLOCK = 32768
CONFIGURATION = """<busconfig><listen>{address}</listen><auth>EXTERNAL</auth><policy context="default">
<allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>{more}
</policy></busconfig>"""

# Commands to the fake, arguments of kwt, and what kwt says then.
TROUBLES = (
    ("adapter off", ["info"], ("no Bluetooth adapter", "Plug one in")),
    ("adapter off", ["scan", "-d", "1"], ("no Bluetooth adapter",)),
    ("power off", ["pull"], ("Bluetooth is off", "bluetoothctl power on")),
    ("end", ["list"], ("bluetoothd, is not running", "systemctl start bluetooth")),
    ("refuse Connect org.bluez.Error.AuthenticationFailed", ["info"], ("reported an error", "AuthenticationFailed")),
    ("lack 7777", ["info"], ("is no recorder", "77777777-7777", "kwt scan")),
    ("mtu 23", ["info"], ("ATT MTU 23", "at least 99")),
)
# The recorder's script, arguments of kwt, and what kwt says when the connection ends there.
LOSSES = (
    ("notification 5 disconnect", ["rm"], ("did not confirm that it deleted recording 1", "kwt list")),
    ("notification 399 disconnect", ["pull", "-o", "f"], ("f is safe", "kwt list", "recording 1")),
    ("write 6 disconnect", ["pull", "-o", "f"], ("still has the recording",)),
    ("notification 3 disconnect", ["list"], ("connection to the recorder was lost",)),
    ("acknowledgement 1 refuse", ["info"], ("org.bluez.Error.Failed",)),
)
# What the fake does not answer to kwt, which is interrupted then.
INTERRUPTED = ("Connect", "StartNotify C92A", "WriteValue CA2A")
# These wait for a time-out of 20 s.
SLOW_TROUBLES = (
    ("heard off", ["info"], ("recorder was not found", "switched on", "kwt scan")),
    ("hold Connect", ["info"], ("did not accept the connection",)),
    ("resolve off", ["info"], ("did not say what it can do", "off and on")),
)


class Station(Recorder):
    """A recorder in reach of a Bluetooth adapter, with a system bus and a bluetoothd of its own."""

    def __init__(self, case, *sizes, script="", more=""):
        super().__init__(case, *sizes, script=script)
        folder = tempfile.TemporaryDirectory()
        case.addCleanup(folder.cleanup)
        self.address = f"unix:path={folder.name}/socket"
        configuration = pathlib.Path(folder.name) / "conf"
        configuration.write_text(CONFIGURATION.format(address=self.address, more=more))
        self.run_beside(case, ["dbus-daemon", f"--config-file={configuration}", "--nofork", "--print-address=1"],
                        stderr=subprocess.DEVNULL)
        self.bluez = None
        self.serve(case)

    def run_beside(self, case, command, **options):
        process = subprocess.Popen(command, text=True, stdout=subprocess.PIPE, **options)
        case.addCleanup(process.stdout.close)
        case.addCleanup(process.wait)
        case.addCleanup(process.kill)
        case.assertTrue(process.stdout.readline(), command[0])
        return process

    def serve(self, case):
        """From the script that the recorder has now."""
        if self.bluez:
            self.bluez.communicate(timeout=60)
        self.bluez = self.run_beside(case, [FAKE_BLUEZ, str(self.store)], stdin=subprocess.PIPE,
                                     env={**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": self.address})
        case.addCleanup(self.bluez.stdin.close)

    def obey(self, commands):
        print(commands, file=self.bluez.stdin, flush=True)
        assert self.bluez.stdout.readline() == "done\n", commands

    def options(self):
        return ["--device", ADDRESS.lower()]

    def start(self, *arguments, **options):
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        return super().start(*arguments, **options)


class DeviceTest(KwtTestCase):
    @classmethod
    def setUpClass(cls):
        def require(value, text):
            if not value:
                raise AssertionError(text)

        owner = types.SimpleNamespace(addCleanup=cls.addClassCleanup, assertTrue=require)
        cls.slow = []
        for commands, arguments, words in SLOW_TROUBLES:
            station = Station(owner)
            station.obey(commands)
            cls.slow.append((station.start(*arguments), commands, words))

    def test_scan(self):
        station = Station(self)
        self.check(station.run("scan", "-d", "1"), 0, ADDRESS, "-50", "Recorder")
        devices = json.loads(station.run("scan", "-d", "1", "--json", "--all")[1])["devices"]
        self.assertEqual(devices, [{"address": ADDRESS, "name": "Recorder", "signal": -60}])
        station.obey("heard off")
        self.check(station.run("scan", "-d", "1"), 0, "No recorder was heard")

    def test_commands(self):
        station = Station(self, BLOCK, 2 * BLOCK)
        self.check(station.run("info"), 0, "80", "1.2.3")
        self.check(station.run("list"), 0, "32768", "65536")
        self.check(station.run("pull", "-o", "f.opus"), 0, "has deleted")
        self.assertEqual((station.home / "f.opus").read_bytes()[:BLOCK], station.contents[0])
        self.check(station.run("rm"), 0)
        self.assertEqual(station.names(), [])
        self.check(station.run("record", "-o", "live", "-d", "1"), 0)
        self.assertGreater((station.home / "live").stat().st_size, 1000)
        image = os.urandom(20000 - 4) + bytes([2, 5, 1, 7])
        (station.home / "image").write_bytes(image)
        self.check(station.run("update", "image"), 0, "2.5.1")
        self.assertEqual((station.store / "device" / "firmware.bin").read_bytes(), image)

    def test_a_lost_download_continues(self):
        station = Station(self, 3 * BLOCK, script="notification 107 disconnect")
        self.check(station.run("pull", "-o", "f.opus"), 1, "lost after 8400 of 98304", "continue")
        station.script("")
        station.serve(self)
        self.check(station.run("pull", "-o", "f.opus"), 0, "continued at byte 8400", "has deleted")
        self.assertEqual((station.home / "f.opus").read_bytes()[:3 * BLOCK], station.contents[0])

    def test_troubles(self):
        for commands, arguments, words in TROUBLES:
            with self.subTest(commands):
                station = Station(self, BLOCK)
                station.obey(commands)
                self.check(station.run(*arguments), 1, *words)
                self.assertEqual(station.names(), ["0.opus"])
        denied = Station(self, more='<deny send_destination="org.bluez"/>')
        self.check(denied.run("info"), 1, "may not use Bluetooth", "group bluetooth")
        denied.address = "unix:path=/nowhere/socket"
        self.check(denied.run("info"), 1, "there is no system bus")

    def test_losses(self):
        for script, arguments, words in LOSSES:
            with self.subTest(script):
                self.check(Station(self, BLOCK, BLOCK, script=script).run(*arguments), 1, *words)

    def test_interrupts(self):
        for call in INTERRUPTED:
            with self.subTest(call):
                station = Station(self, BLOCK)
                station.obey("hold " + call)
                process = station.start("--json", "info")
                station.obey("await " + call)
                process.send_signal(signal.SIGINT)
                code, out, _ = finish(process)
                self.assertEqual((code, json.loads(out)["error"]["text"]), (1, "Interrupted."))

    def test_time_outs(self):
        for process, commands, words in self.slow:
            with self.subTest(commands):
                self.check(finish(process), 1, *words)


if __name__ == "__main__":
    unittest.main()
