"""What the tests over the air have in common: the programs that run beside kwt. Their output goes to /out as well."""

import os
import pathlib
import queue
import re
import socket
import struct
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "tools"))

from kwt_support import Recorder  # noqa: E402  it takes the first argument, kwt

KWT_RECORDER = os.path.abspath(sys.argv.pop(1))
ADDRESS = "00:AA:01:01:00:01"  # of the second controller
NAME = "Voice 1"


class Program:
    """A program in the background, whose output is waited for."""

    def __init__(self, name, *command, on_line=lambda line: None):
        self.name, self.lines, self.on_line = name, queue.Queue(), on_line
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        with self.process.stdout as output, open(f"/out/{self.name}.log", "a", buffering=1) as log:
            for line in output:
                log.write(line)
                self.on_line(line)
                self.lines.put(line)
        self.lines.put(None)

    def wait_for(self, *patterns, seconds=20):
        """Until all of them have been seen, in any order."""
        end, missing = time.monotonic() + seconds, set(patterns)
        while missing:
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                raise AssertionError(f"{self.name} did not say {missing} within {seconds} s") from None
            if line is None:
                raise AssertionError(f"{self.name} ended without {missing}")
            missing -= {pattern for pattern in missing if re.search(pattern, line)}

    def used(self):
        """Descriptors, threads and kB of memory."""
        process = pathlib.Path("/proc", str(self.process.pid))
        memory = int(re.search(r"VmRSS:\s*(\d+)", (process / "status").read_text())[1])
        return len(os.listdir(process / "fd")), len(os.listdir(process / "task")), memory

    def end(self, stop=subprocess.Popen.terminate):
        stop(self.process)
        try:
            return self.process.wait(10)
        finally:
            self.process.kill()
            self.reader.join()


def controller_socket(index):
    controller = socket.socket(socket.AF_BLUETOOTH, socket.SOCK_RAW, socket.BTPROTO_HCI)
    controller.bind((index,))
    return controller


def advertise_again_for_scans(line):
    """Where a real controller repeats itself, a virtual one tells a scanner of advertising once, as soon as both are on:
    before the kernel expects it."""
    if not re.search("hci0 type . discovering 1", line):
        return
    with controller_socket(1) as controller:
        for enabled in (0, 1):
            controller.send(bytes([0x01, 0x0A, 0x20, 1, enabled]))  # LE Set Advertising Enable


class BluetoothService:
    def start(self):
        self.program = Program("bluetoothd", "/usr/libexec/bluetooth/bluetoothd", "--nodetach",
                               "--debug=src/adapter.c,src/device.c", f"--configfile={HERE / 'bluetoothd.conf'}",
                               on_line=advertise_again_for_scans)
        self.program.wait_for("hci0 has been enabled", "hci1 has been enabled")

    def kill(self):
        self.program.end(subprocess.Popen.kill)

    def lose(self):
        """Kills it while there is a connection, which the kernel ends 2 s later, for each controller by itself. One that is
        late would end the next connection instead, as that has the same handle; Linux 6.1 then kills bluetoothd."""
        events, disconnection_complete = 4, 5
        with controller_socket(0) as ours, controller_socket(1) as theirs:
            for controller in (ours, theirs):
                controller.settimeout(20)
                controller.setsockopt(socket.SOL_HCI, socket.HCI_FILTER,
                                      struct.pack("IIIHxx", 1 << events, 1 << disconnection_complete, 0, 0))
            self.kill()
            for controller in (ours, theirs):
                controller.recv(260)


class AirRecorder(Recorder):
    """A recorder that kwt-recorder serves."""

    def __init__(self, case, *sizes, script="", mtu=247):
        super().__init__(case, *sizes, script=script)
        self.program = Program("recorder", KWT_RECORDER, "--adapter", "hci1", "--name", NAME, "--mtu", str(mtu),
                               str(self.store))
        case.addCleanup(lambda: case.assertEqual(self.program.end(), 0))
        self.program.wait_for(f"^Serving {self.store} as {NAME}, {ADDRESS}$")

    def options(self):
        return ["--device", ADDRESS]
