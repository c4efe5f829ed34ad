"""Runs kwt against a fake bluetoothd on a system bus of its own: kwt_device_test.py KWT FAKE-BLUEZ [ARGUMENT...]"""

import json
import os
import signal
import subprocess
import sys
import time
import unittest

from kwt_support import (BLOCK, DATA, QUERIES, CommandTest, KwtTestCase, Recorder, finish, image, packets_of, tool,
                         wire)

FAKE_BLUEZ = os.path.abspath(sys.argv.pop(1))
ADDRESS = "AA:BB:CC:DD:EE:FF"
CONFIGURATION = """<busconfig><listen>unix:path={folder}/socket</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/></policy></busconfig>"""
LAST, MTU = QUERIES + packets_of(BLOCK), wire("kDownloadHeadSize") + DATA + 3


class Station(Recorder):
    """A recorder in reach of a Bluetooth adapter, with a system bus and a bluetoothd of its own."""

    def __init__(self, case, script="", command="", sizes=(BLOCK, BLOCK), contents=()):
        super().__init__(case, *sizes, script=script, contents=contents)
        folder = self.home.parent
        (folder / "conf").write_text(CONFIGURATION.format(folder=folder))
        self.bus = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={folder}/socket"}
        self.run_beside(case, "dbus-daemon", f"--config-file={folder}/conf", "--nofork", "--print-address=1")
        self.serve(case)
        if command:
            self.obey(command)

    def run_beside(self, case, *command):
        process = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=self.bus)
        for end in (process.stdout.close, process.stdin.close, process.wait, process.kill):
            case.addCleanup(end)
        assert process.stdout.readline(), command
        return process

    def serve(self, case):
        """From the script that the recorder has now."""
        self.bluez = self.run_beside(case, FAKE_BLUEZ, str(self.store))

    def obey(self, commands):
        print(commands, file=self.bluez.stdin, flush=True)
        assert self.bluez.stdout.readline() == "done\n", commands

    def options(self):
        return ["--device", ADDRESS.lower()]

    def start(self, *arguments, **options):
        return super().start(*arguments, **options, env=self.bus)


class DeviceTest(CommandTest, KwtTestCase):
    recorder = Station
    # Then comes what the fake is told before.
    commands = (
        ("", "scan -d 1", 69, ("no Bluetooth adapter", "Plug one in"), "adapter off"),
        ("", "pull", 69, ("Bluetooth is off", "bluetoothctl power on"), "power off"),
        ("", "list", 69, ("bluetoothd, is not running", "systemctl start bluetooth"), "end"),
        ("", "info", 75, ("Bluetooth reported an error (org.bluez.Error.No",), "refuse Connect org.bluez.Error.No"),
        ("", "info", 1, ("is no recorder", "77777777-7777", "kwt scan"), "lack 7777"),
        ("", "info", 1, (f"ATT MTU {MTU - 1}", f"at least {MTU}"), f"mtu {MTU - 1}"),
        ("notification 6 disconnect", "rm 1", 1, ("did not confirm that it deleted recording 1", "kwt list")),
        (f"notification {LAST + 2} disconnect", "pull -o f", 1, ("f is safe", "kwt list", "recording 1")),
        ("notification 3 disconnect", "list", 75, ("connection to the recorder was lost",)),
        ("acknowledgement 1 refuse", "info", 75, ("org.bluez.Error.Failed",)))

    def test_scan(self):
        station = Station(self)
        self.check(station.run("scan", "-d", "1"), 0, ADDRESS, "-50", "Recorder")
        devices = json.loads(station.run("scan", "-d", "1", "--json", "--all")[1])["devices"]
        self.assertEqual(devices, [{"address": ADDRESS, "name": "Recorder", "signal": -60}])
        station.obey("heard off")
        self.check(station.run("scan", "-d", "1"), 0, "No recorder was heard")

    def test_commands(self):
        breaks = "".join(f"notification {number} disconnect\n" for number in (20, 400, 900))
        station = Station(self, breaks, sizes=(3 * BLOCK, BLOCK))
        self.check(station.run("info"), 0, "80", "1.2.3")
        self.check(station.run("list"), 0, "98.3 kB", "32.8 kB")
        self.check(station.run("pull", "-o", "f"), 0, "Saved f", "has deleted")
        self.assertEqual((station.home / "f").read_bytes(), station.contents[0])
        self.check(station.run("rm", "2"), 0)
        self.assertEqual(station.names(), [])
        self.check(station.run("record", "-o", "live.rec", "-d", "1"), 0)
        self.assertGreater((station.home / "live.rec").stat().st_size, 1000)
        (station.home / "image").write_bytes(image(20000))
        self.check(station.run("update", "image"), 0, "2.5.1")
        self.assertEqual(station.firmware(), image(20000))

    def test_usual_recorder(self):
        station = Station(self)

        def kwt(*words, **env):
            return tool(*words, env={**station.bus, "XDG_CONFIG_HOME": str(station.home), **env})

        self.check(kwt("info", "-v"), 0, "80 %", f"{ADDRESS}, the only one in range", "battery level 80")
        self.check(kwt("info", "--device", "recorder", "--adapter", "hci0"), 0, "80 %")
        self.check(kwt("info", "--device", ADDRESS, "--adapter", "hci7"), 69, "Bluetooth adapter")
        station.obey("stranger on")
        self.check(kwt("info"), 2, "2 recorders are in range", ADDRESS, "11:22:33:44:55:66", "kwt device")
        self.check(kwt("device", ADDRESS), 0)
        self.check(kwt("info"), 0, "80 %")
        self.check(kwt("info", "--timeout", "0.5", KWT_DEVICE="Nobody"), 75, "--timeout")

    def test_interrupts(self):
        """While the fake does not answer a call."""
        for call, command in (("Connect", "info"), ("AcquireNotify C92A", "info"), ("WriteValue CA2A", "info"),
                              ("WriteValue 9E07", "pull"), ("WriteValue CA2A", "record -o f.rec")):
            with self.subTest(call=call, command=command):
                station = Station(self, command="hold " + call)
                process = station.start("--json", *command.split())
                station.obey("await " + call)
                process.send_signal(signal.SIGINT)
                began = time.monotonic()
                code, out, _ = finish(process)
                self.assertEqual((code, json.loads(out)["error"]["text"]), (1, "Interrupted."))
                self.assertLess(time.monotonic() - began, 1)


if __name__ == "__main__":
    unittest.main()
