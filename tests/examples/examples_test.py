"""Runs the programs in examples/ with a simulated recorder over a link that breaks: examples_test.py LONGEST NAME=PROGRAM...

LONGEST is for how many milliseconds the event loop may be held up. The names are event_loop and own_bluetooth; and,
for an adapter for BlueZ, harvest, memo, install and fake-bluez, through which these reach the recorder."""

import os
import pathlib
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tools"))

from recorders import ADDRESS, BLOCK, MADE, RecorderFolder, image, packets_in  # noqa: E402

PROGRAMS = {name: os.path.abspath(path) for name, path in (word.split("=", 1) for word in sys.argv[2:])}
LONGEST = float(sys.argv[1])
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


class Recorder(RecorderFolder):
    """A recorder whose recordings a program fetches into the folder that it runs in, over BlueZ where that is asked for."""

    def __init__(self, case, script, sizes=(2 * BLOCK - 1000, BLOCK, BLOCK - 1), over_bluez=False):
        super().__init__(case, *sizes, script=script)
        self.case, self.reached_by, self.bus = case, self.store, os.environ
        if over_bluez:
            self.open_bus(case, PROGRAMS["fake-bluez"])
            self.reached_by = ADDRESS

    def start(self, program, *arguments):
        return subprocess.Popen([PROGRAMS[program], self.reached_by, *arguments], text=True, cwd=self.home,
                                env={**self.bus, "TZ": "UTC0"}, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE)

    def check_saved(self, output):
        """All recordings are in the folder, byte by byte, and none is left on the recorder."""
        names = [time.strftime("%Y%m%d-%H%M%S", time.gmtime(MADE + number)) + f"-{number + 1}.opus"
                 for number in range(len(self.contents))]
        self.case.assertEqual((self.files(), self.names()), (names, []))
        for number, (name, content) in enumerate(zip(names, self.contents)):
            saved = self.home / name
            self.case.assertIn(str(saved), output.splitlines())
            self.case.assertEqual(int(saved.stat().st_mtime), MADE + number)
            self.case.assertTrue(saved.read_bytes() == content.ljust(-(-len(content) // BLOCK) * BLOCK, b"\0"), name)


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
        recorder.check_saved(self.finish(recorder.start("own_bluetooth", recorder.home)))

    def test_event_loop(self):
        """On a loaded machine a run may have to wait for a processor; a library that blocks holds up each of them."""
        longest = []
        while len(longest) < 20 and min(longest, default=LONGEST) >= LONGEST:
            recorder = Recorder(self, BROKEN, sizes=(BLOCK, BLOCK))
            output = self.finish(recorder.start("event_loop", recorder.home))
            recorder.check_saved(output)
            longest.append(float(output.split("at most ")[1].split(" ms")[0]))
        self.assertLess(min(longest), LONGEST, longest)


@unittest.skipUnless("harvest" in PROGRAMS, "no adapter for BlueZ")
class BluezTest(ExampleTest):
    def test_harvest_and_memo(self):
        """Beside one another, since each waits for ten seconds: memo with a link that is lost, and one that is not."""
        station, broken, whole = (Recorder(self, script, over_bluez=True)
                                  for script in (BROKEN, "notification 200 disconnect", ""))
        harvest = station.start("harvest", station.home)
        memos = [(station, station.start("memo", "memo.rec")) for station in (broken, whole)]
        station.check_saved(self.finish(harvest))
        for station, process in memos:
            with self.subTest(whole=station is whole):
                output = self.finish(process, 0 if station is whole else 1)
                self.assertIn("battery 80\n", output)
                packets = int(output.split(" packets")[0].split()[-1])
                self.assertEqual((packets, 0), packets_in((station.home / "memo.rec").read_bytes()))
                self.assertGreater(packets, 100)  # a loaded machine records slowly

    def test_install(self):
        for cancelled in (False, True):
            # Long enough that the cancellation comes before its end.
            firmware = image(200000 if cancelled else 20000)
            with self.subTest(cancelled=cancelled):
                faults = "" if cancelled else "notification 8 disconnect\nwrite 90 disconnect\n"
                station = Recorder(self, "interval 15ms\n" + faults, sizes=(), over_bluez=True)
                (station.home / "image.bin").write_bytes(firmware)
                process = station.start("install", "image.bin")
                if cancelled:
                    while process.stderr.read(1) not in "%":
                        pass
                    process.stdin.write("\n")
                    process.stdin.flush()
                output = self.finish(process, int(cancelled))
                self.assertIn("nothing was installed" if cancelled else "1.2.3 -> 2.5.1", output)
                self.assertEqual(station.firmware(), None if cancelled else firmware)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
