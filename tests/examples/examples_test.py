"""Runs the programs in examples/ with a simulated recorder over a link that breaks: examples_test.py LONGEST NAME=PROGRAM...

LONGEST is for how many milliseconds the event loop may be held up. The names are event_loop and own_bluetooth; and,
for an adapter for BlueZ, harvest, memo, install and fake-bluez, through which these reach the recorder."""

import os
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAMS = {name: os.path.abspath(path) for name, path in (word.split("=", 1) for word in sys.argv[2:])}
LONGEST = float(sys.argv[1])
ADDRESS = "AA:BB:CC:DD:EE:FF"
BLOCK = 32768
MADE = 1715938200  # 2024-05-17 09:30 UTC
BUS = """<busconfig><listen>unix:path={folder}/bus</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/></policy></busconfig>"""
BROKEN = """latency 1ms
interval 7.5ms
packets 6
notification 40 drop
notification 100 duplicate
notification 160 corrupt 40
notification 240 disconnect
notification 350 drop
notification 500 disconnect
notification 650 duplicate
"""


def crc_table():
    for value in range(256):
        register = value << 24
        for _ in range(8):
            register = register << 1 ^ (0x104C11DB7 if register >> 31 else 0)
        yield register


CRC = list(crc_table())


def page(content, number, flags):
    """Of an Ogg stream (RFC 3533)."""
    lacing = bytes([255] * (len(content) // 255) + [len(content) % 255])
    head = struct.pack("<4sBBqIII", b"OggS", 0, flags, number, 7, number, 0) + bytes([len(lacing)]) + lacing
    crc = 0
    for byte in head + content:
        crc = crc << 8 & 0xFFFFFFFF ^ CRC[crc >> 24 ^ byte]
    return head[:22] + struct.pack("<I", crc) + head[26:] + content


def recording(size, seed):
    """Ogg Opus as a file is, but for its sound."""
    noise = random.Random(seed)
    pages = [page(b"OpusHead" + bytes([1, 1]) + bytes(9), 0, 2)]
    while sum(map(len, pages)) < size - 4200:
        pages.append(page(noise.randbytes(4000), len(pages), 0))
    return b"".join([*pages, page(noise.randbytes(100), len(pages), 4)])


class Recorder:
    """A simulated recorder's folder, and one beside it that a program fills."""

    def __init__(self, case, script, sizes=(2 * BLOCK, BLOCK, BLOCK)):
        temporary = tempfile.TemporaryDirectory()
        case.addCleanup(temporary.cleanup)
        self.case = case
        self.folder = pathlib.Path(temporary.name)
        self.store, self.saved = self.folder / "store", self.folder / "saved"
        (self.store / "device").mkdir(parents=True)
        self.saved.mkdir()
        (self.store / "device" / "script").write_text(script)
        self.contents = [recording(size, seed) for seed, size in enumerate(sizes)]
        for number, content in enumerate(self.contents):
            path = self.store / f"{number}.opus"
            path.write_bytes(content)
            os.utime(path, (MADE + 60 * number, MADE + 60 * number))

    def start(self, program, *arguments, env=os.environ):
        return subprocess.Popen([PROGRAMS[program], *map(str, arguments)], text=True, cwd=self.folder,
                                env={**env, "TZ": "UTC0"}, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)

    def check_saved(self, output):
        """All recordings are in the folder, byte by byte, and none is left on the recorder."""
        names = [time.strftime("%Y%m%d-%H%M%S", time.gmtime(MADE + 60 * number)) + f"-{number + 1}.opus"
                 for number in range(len(self.contents))]
        self.case.assertEqual(sorted(path.name for path in self.saved.iterdir()), names)
        for number, (name, content) in enumerate(zip(names, self.contents)):
            saved = self.saved / name
            self.case.assertIn(str(saved), output.splitlines())
            self.case.assertEqual(int(saved.stat().st_mtime), MADE + 60 * number)
            self.case.assertTrue(saved.read_bytes() == content.ljust(-(-len(content) // BLOCK) * BLOCK, b"\0"), name)
        self.case.assertEqual(list(self.store.glob("*.opus")), [])


class Station(Recorder):
    """A recorder in reach of BlueZ, on a system bus of its own."""

    def __init__(self, case, script, **options):
        super().__init__(case, script, **options)
        (self.folder / "bus.conf").write_text(BUS.format(folder=self.folder))
        self.bus = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={self.folder}/bus"}
        self.run_beside("dbus-daemon", f"--config-file={self.folder}/bus.conf", "--nofork", "--print-address=1")
        self.run_beside(PROGRAMS["fake-bluez"], str(self.store))

    def run_beside(self, *command):
        process = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, env=self.bus)
        for end in (process.stdout.close, process.stdin.close, process.wait, process.kill):
            self.case.addCleanup(end)
        assert process.stdout.readline(), command

    def start(self, program, *arguments):
        return super().start(program, ADDRESS, *arguments, env=self.bus)


class ExampleTest(unittest.TestCase):
    def finish(self, process, status=0):
        """What it printed on standard output; its standard input stays open until it ends."""
        self.addCleanup(process.stdin.close)
        outputs = [stream.read() for stream in (process.stdout, process.stderr)]
        for stream in (process.stdout, process.stderr):
            stream.close()
        self.assertEqual(process.wait(60), status, outputs)
        return outputs[0]


class SimulatedLinkTest(ExampleTest):
    def test_own_bluetooth(self):
        recorder = Recorder(self, BROKEN)
        recorder.check_saved(self.finish(recorder.start("own_bluetooth", recorder.store, recorder.saved)))

    def test_event_loop(self):
        """On a loaded machine a run may have to wait for a processor; a library that blocks holds up each of them."""
        longest = []
        while len(longest) < 20 and min(longest, default=LONGEST) >= LONGEST:
            recorder = Recorder(self, BROKEN, sizes=(BLOCK, BLOCK))
            output = self.finish(recorder.start("event_loop", recorder.store, recorder.saved))
            recorder.check_saved(output)
            longest.append(float(output.split("at most ")[1].split(" ms")[0]))
        self.assertLess(min(longest), LONGEST, longest)


@unittest.skipUnless("harvest" in PROGRAMS, "no adapter for BlueZ")
class BluezTest(ExampleTest):
    def test_harvest(self):
        station = Station(self, BROKEN)
        station.check_saved(self.finish(station.start("harvest", station.saved)))

    def test_memo(self):
        """Two, since each takes ten seconds: one whose link is lost, one that is whole."""
        broken, whole = Station(self, "notification 200 disconnect"), Station(self, "")
        memos = [(station, station.start("memo", "memo.rec")) for station in (broken, whole)]
        for station, process in memos:
            with self.subTest(whole=station is whole):
                output = self.finish(process, 0 if station is whole else 1)
                self.assertIn("battery 80\n", output)
                packets = int(output.split(" packets")[0].split()[-1])
                self.assertEqual(packets, self.packets_in(station.folder / "memo.rec"))
                self.assertGreater(packets, 100)  # a loaded machine records slowly

    def packets_in(self, file):
        """50 01, length, Opus packet."""
        content, count, at = file.read_bytes(), 0, 0
        while at < len(content):
            magic, length = struct.unpack_from("<2sH", content, at)
            self.assertEqual(magic, b"\x50\x01")
            count, at = count + 1, at + 4 + length
        self.assertEqual(at, len(content))
        return count

    def test_install(self):
        for cancelled in (False, True):
            # Long enough that the cancellation comes before its end.
            image = random.Random(1).randbytes(200000 if cancelled else 20000) + bytes([2, 5, 1, 0])
            with self.subTest(cancelled=cancelled):
                station = Station(self, "interval 15ms\nnotification 8 disconnect\nwrite 90 disconnect\n"
                                  if not cancelled else "interval 15ms", sizes=())
                (station.folder / "image.bin").write_bytes(image)
                process = station.start("install", "image.bin")
                if cancelled:
                    while process.stderr.read(1) not in "%":
                        pass
                    process.stdin.write("\n")
                    process.stdin.flush()
                output = self.finish(process, int(cancelled))
                installed = station.store / "device" / "firmware.bin"
                self.assertIn("nothing was installed" if cancelled else "1.2.3 -> 2.5.1", output)
                self.assertEqual(installed.exists() and installed.read_bytes(), False if cancelled else image)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
