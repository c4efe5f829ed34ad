"""Runs kwt against a fake bluetoothd on a system bus of its own: kwt_device_test.py KWT FAKE-BLUEZ [ARGUMENT...]"""

import json
import os
import signal
import sys
import time
import unittest

from kwt_support import QUERIES, CommandTest, KwtTestCase, Recorder, finish, packets_of, tool
from recorders import ADDRESS, BLOCK, DATA, wire

FAKE_BLUEZ = os.path.abspath(sys.argv.pop(1))
LAST, MTU = QUERIES + packets_of(BLOCK), wire("kDownloadHeadSize") + DATA + 3


class Station(Recorder):
    """A recorder in reach of a Bluetooth adapter."""

    def __init__(self, case, *sizes, **options):
        super().__init__(case, *sizes, **options)
        self.open_bus(case, FAKE_BLUEZ)

    def obey(self, commands):
        print(commands, file=self.bluez.stdin, flush=True)
        assert self.bluez.stdout.readline() == "done\n", commands

    def options(self):
        return ["--device", ADDRESS.lower()]

    def start(self, *arguments, **options):
        return super().start(*arguments, **options, env=self.bus)


class DeviceTest(CommandTest, KwtTestCase):
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

    @staticmethod
    def recorder(case, script="", *commands):
        station = Station(case, BLOCK, BLOCK, script=script)
        for command in commands:
            station.obey(command)
        return station

    def test_scan(self):
        station = self.recorder(self)
        self.check(station.run("scan", "-d", "1"), 0, ADDRESS, "-50", "Recorder")
        devices = json.loads(station.run("scan", "-d", "1", "--json", "--all")[1])["devices"]
        self.assertEqual(devices, [{"address": ADDRESS, "name": "Recorder", "signal": -60}])
        station.obey("heard off")
        self.check(station.run("scan", "-d", "1"), 0, "No recorder was heard")

    def test_usual_recorder(self):
        station = self.recorder(self)

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
                station = self.recorder(self, "", "hold " + call)
                process = station.start("--json", *command.split())
                station.obey("await " + call)
                process.send_signal(signal.SIGINT)
                began = time.monotonic()
                code, out, _ = finish(process)
                self.assertEqual((code, json.loads(out)["error"]["text"]), (1, "Interrupted."))
                self.assertLess(time.monotonic() - began, 1)


if __name__ == "__main__":
    unittest.main()
