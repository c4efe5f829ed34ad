"""The adapter for BlueZ beside a bare client of its bus, in the virtual machine: air_bench.py KWT KWT-RECORDER BUILD.

Each run of a client is a process of its own against a recorder of its own; clients alternate, medians count."""

import os
import pathlib
import re
import statistics
import subprocess
import sys
import time
import unittest
import zlib

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "tests" / "bluetooth"))

from air_support import ADDRESS, AirRecorder, BluetoothService  # noqa: E402
from kwt_support import packets_of, tool  # noqa: E402

BUILD = pathlib.Path(sys.argv.pop(1), "bench", "bluetooth")
RUNS, ROUNDS, SIZE, OTHERS = int(os.environ["KWT_RUNS"]), int(os.environ["KWT_ROUNDS"]), int(os.environ["KWT_BYTES"]), 40
NO_RADIO = "latency 0ms\ninterval 0.1ms\npackets 100\n"
CLIENTS = {
    "bare": ("bluetooth-bare", "acquire"),
    "bare, StartNotify": ("bluetooth-bare", "notify"),
    "adapter": ("bluetooth-adapter", "adapter"),
    "with the facade": ("bluetooth-adapter", "facade"),
    "with a session": ("bluetooth-adapter", "session"),
}
COLUMNS = {"services_ms": "services known ms", "others_ms": f"with {OTHERS} others ms", "round_ms": "round ms",
           "round_waits": "thread changes a round", "packets_per_s": "packets/s", "packet_us": "CPU a packet us",
           "packet_waits": "thread changes a packet", "kB": "memory kB"}
LIMITS = {("adapter", "round_ms"): 1.15, ("with the facade", "round_ms"): 1.25, ("with a session", "round_ms"): 1.2,
          ("adapter", "packet_us"): 2.5, ("with the facade", "packet_us"): 4, ("adapter", "services_ms"): 1.3}


def know_others(count):
    """What bluetoothd keeps of devices that it has met."""
    for number in range(count):
        folder = pathlib.Path("/var/lib/bluetooth/00:AA:01:00:00:00", f"11:22:33:44:55:{number:02X}")
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "info").write_text(f"[General]\nName=Other {number}\nAddressType=public\n"
                                     "SupportedTechnologies=LE;\nTrusted=false\nBlocked=false\n"
                                     "Services=0000180f-0000-1000-8000-00805f9b34fb;\n")


class Bench(unittest.TestCase):
    def run_client(self, name, rounds, size):
        recorder = AirRecorder(self, size or 1000, script=NO_RADIO)
        code, out, err = tool("scan", "-d", "1")  # from now on bluetoothd knows it
        self.assertEqual(code, 0, err)
        program, way = CLIENTS[name]
        ran = subprocess.run([BUILD / program, ADDRESS, str(rounds), str(size), way], capture_output=True, text=True,
                             timeout=300)
        self.assertEqual(ran.returncode, 0, f"{name}: {ran.stderr}")
        print(f"{time.monotonic():.1f} s {name}: {' '.join(ran.stdout.split())}", file=sys.stderr)
        recorder.program.wait_for("^Disconnected")
        figures = {figure: float(value) for figure, value in re.findall(r"^(\w+) (\S+)$", ran.stdout, re.MULTILINE)}
        # Nothing was lost, and nothing came in another order.
        self.assertIn(figures.pop("crc", None), (None, zlib.crc32(recorder.contents[0])), name)
        self.doCleanups()
        return figures

    def test_all(self):
        results = {name: {} for name in CLIENTS}
        for others in (0, OTHERS):
            know_others(others)
            bluetooth = BluetoothService()
            bluetooth.start()
            for run in range(RUNS + 1):  # the first is for the emulator, which translates each program once
                for name in CLIENTS:
                    figures = self.run_client(name, *((1, 0) if others or not run else (ROUNDS, SIZE)))
                    if not run:
                        continue
                    if others:
                        figures = {"others_ms": figures["services_ms"]}
                    for figure, value in figures.items():
                        results[name].setdefault(figure, []).append(value)
            bluetooth.kill()
        self.assertTrue(show({name: {figure: statistics.median(values) for figure, values in all_of_it.items()}
                              for name, all_of_it in results.items()}), "beyond a limit")


def show(medians):
    print("| client | " + " | ".join(COLUMNS.values()) + " |")
    print("| --- |" + " --- |" * len(COLUMNS))
    for name, figures in medians.items():
        print(f"| {name} | " + " | ".join(f"{figures[column]:.4g}" for column in COLUMNS) + " |")
    ratios = [(f"{name}: {COLUMNS[figure]} / bare", medians[name][figure] / medians["bare"][figure], limit)
              for (name, figure), limit in LIMITS.items()]
    adapter = medians["adapter"]
    ratios += [(f"adapter: services known with {OTHERS} others / with none", adapter["others_ms"] / adapter["services_ms"], 1.2),
               ("adapter: thread changes a round", adapter["round_waits"], 4),
               ("adapter: thread changes a packet", adapter["packet_waits"], 2)]
    print("\n| ratio | measured | at most |\n| --- | --- | --- |")
    for what, measured, limit in ratios:
        print(f"| {what} | {measured:.3g} | {limit}{'' if measured <= limit else ' EXCEEDED'} |")
    return all(measured <= limit for _, measured, limit in ratios)


if __name__ == "__main__":
    program = unittest.main(verbosity=0, exit=False)
    sys.exit(not program.result.wasSuccessful())
