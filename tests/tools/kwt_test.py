"""Runs kwt as a person would, against simulated recorders: kwt_test.py KWT [UNITTEST-ARGUMENT...]"""

import json
import os
import signal
import tempfile
import unittest

from kwt_support import KwtTestCase, Recorder, Terminal, finish, tool

BLOCK, PACKET = 32768, 84
# Before a download's packets come the answers to the queries of kwt and of the library, three each.
QUERIES = 6


class KwtTest(KwtTestCase):
    def assert_pulled(self, recorder, name):
        content = recorder.contents[0]
        stored = content + bytes(-len(content) % BLOCK)
        pulled = (recorder.home / name).read_bytes()
        self.assertEqual(pulled[:len(stored)], stored)
        self.assertLess(len(pulled) - len(stored), PACKET)

    def assert_resumes(self, recorder, name="f.opus"):
        """The same command again, now without trouble, ends with the whole recording."""
        recorder.script("")
        size = (recorder.home / name).stat().st_size
        self.check(recorder.run("pull", "-o", name), 0, f"continued at byte {size}", "has deleted")
        self.assert_pulled(recorder, name)
        self.assertNotIn("0.opus", recorder.names())

    def test_results_for_people_and_programs(self):
        recorder = Recorder(self, BLOCK, 3 * BLOCK - 1)
        self.check(recorder.run("info"), 0, "80", "1.2.3", "536870912, 536739840")
        self.check(recorder.run("list"), 0, "98304  2024-05-17 09:30:01")
        name = "recording-1-20240517-093000.opus"
        created = "2024-05-17T09:30:0"
        expected = {
            "info": {"battery": 80, "firmware": "1.2.3", "storage": [536870912, 536739840]},
            "list": {"recordings": [
                {"id": 1, "size": BLOCK, "type": 0, "present": True, "created": created + "0"},
                {"id": 2, "size": 3 * BLOCK, "type": 0, "present": True, "created": created + "1"}]},
            "pull": {"id": 1, "file": name, "bytes": BLOCK, "continuedAt": 0, "deleted": True},
            "rm": {"id": 2, "size": 3 * BLOCK, "deleted": True},
        }
        for command, values in expected.items():
            with self.subTest(command):
                code, out, err = recorder.run(command, "--json")
                self.assertEqual((code, err), (0, ""))  # no progress either: this is no terminal
                result = json.loads(out)
                result.pop("seconds", None)
                self.assertEqual(result, values)
        self.assert_pulled(recorder, name)
        self.assertEqual(recorder.names(), [])

    def test_usage(self):
        for arguments in ([], ["list"], ["--sim", ".", "dance"], ["--sim", ".", "tour"],
                          ["--sim", ".", "pull", "-o", ""], ["--sim", "", "info"],
                          ["--sim", ".", "update"], ["update", "f"],
                          ["--sim", ".", "list", "more"], ["--sim", ".", "record"], ["record", "-o", "f"],
                          ["--sim", ".", "record", "-o", "f", "-t", "5"],
                          ["--sim", ".", "record", "-o", "f", "-d", "0"],
                          ["--sim", ".", "record", "-o", "f", "-d", "nan"],
                          ["convert", "f"], ["convert", "f", "f.ogg"], ["--sim", ".", "convert", "f", "f.wav"]):
            with self.subTest(arguments):
                code, out, err = tool(*arguments)
                self.assertEqual((code, out), (2, ""))
                self.assertIn("--help", err)
        for option, word in (("--help", "Exit status"), ("--version", "kwt 0.")):
            self.check(tool(option), 0, word)

    def test_refusals_before_anything_is_sent(self):
        recorder = Recorder(self, BLOCK)
        for name, word in ((".", "is a folder"), ("no/f", "no is not a folder"),
                           ("/dev/null", "regular file"), ("../store/f", "simulated recorder's folder")):
            with self.subTest(name):
                self.check(recorder.run("pull", "-o", name), 1, f"Cannot write {name}", word, "-o")
        recorder.script("latency fast")
        self.check(recorder.run("info"), 1, "line 1", "fast")
        recorder.store = recorder.home / "missing"
        self.check(recorder.run("info"), 1, "missing cannot be read", "name an existing folder")
        self.assertEqual(list(recorder.home.iterdir()), [])

    def test_empty_store(self):
        recorder = Recorder(self)
        self.check(recorder.run("list"), 0, "holds no recordings")
        for command in (["pull"], ["pull", "-o", "f"], ["rm"]):
            self.check(recorder.run(*command), 1, "holds no recordings")
        self.assertEqual(list(recorder.home.iterdir()), [])
        error = json.loads(recorder.run("rm", "--json")[1])["error"]
        self.assertEqual((error["domain"], error["code"]), ("kwt", 8))

    def test_existing_files(self):
        recorder = Recorder(self, BLOCK)
        target = recorder.home / "f.opus"
        target.write_bytes(bytes(BLOCK + 1))
        self.check(recorder.run("pull", "-o", "f.opus"), 1, "longer (32769", "1007", "83 bytes", "kwt rm")
        self.assertEqual((target.stat().st_size, recorder.names()), (BLOCK + 1, ["0.opus"]))
        target.write_bytes(recorder.contents[0])
        self.assert_resumes(recorder)

    def test_link_trouble(self):
        """Script, words, the packets that are then in the file, and whether it can be continued."""
        packet = f"notification {QUERIES + 101}"
        for script, words, packets, resumes in (
                (f"{packet} disconnect", ("lost after 8400 of 98304", "continue"), 100, True),
                (f"write {QUERIES + 1} refuse", ("ATT error 0x03",), None, False),
                (f"{packet} drop", ("Packets were lost", "Remove the file"), 1170, False),
                (f"{packet} corrupt 4", ("Packets were lost", "Remove"), 1170, False)):
            with self.subTest(script):
                recorder = Recorder(self, 3 * BLOCK, script=script)
                self.check(recorder.run("pull", "-o", "f.opus"), 1, *words)
                self.assertEqual(recorder.names(), ["0.opus"])
                target = recorder.home / "f.opus"
                self.assertEqual(target.exists(), packets is not None)
                if packets is not None:
                    self.assertEqual(target.stat().st_size, packets * PACKET)
                if resumes:
                    self.assert_resumes(recorder)

    def test_silence(self):
        """All of them at once, since each waits for a time-out."""
        packets = -(-BLOCK // PACKET)
        deletion = QUERIES + packets + 2
        cases = (
            ("notification 1 drop", ["info"], ("did not answer within 5 s", "switched on")),
            ("notification 2 disconnect", ["info"], ("connection to the recorder was lost",)),
            ("notification 6 drop", ["list"], ("described only 1 of its 2", "?         32768")),
            ("notification 5 drop", ["rm"], ("did not confirm that it deleted recording 1", "kwt list")),
            (f"notification {deletion} drop", ["pull", "-o", "f.opus"],
             ("f.opus is safe", "did not confirm", "kwt list")),
            (f"notification {QUERIES + 51} delay 60s", ["pull", "-o", "f.opus"],
             ("stopped sending after 4200 of 32768", "continue")))
        running = []
        for script, command, words in cases:
            recorder = Recorder(self, BLOCK, BLOCK, script=script)
            running.append((recorder, recorder.start(*command), words))
        for recorder, process, words in running:
            self.check(finish(process), 1, *words)
        self.assert_pulled(running[4][0], "f.opus")
        self.assert_resumes(running[5][0])

    def test_recorder_refuses_deletion(self):
        recorder = Recorder(self, BLOCK)
        (recorder.store / "device" / "script").unlink()
        (recorder.store / "device").rmdir()
        (recorder.store / "device").touch()  # the recorder has no place for its state
        self.check(recorder.run("rm"), 1, "in use", "com.kwt.sdk 3")
        code, out, _ = recorder.run("pull", "-o", "f.opus", "--json")
        result = json.loads(out)
        self.assertEqual((code, result["deleted"], result["error"]["code"]), (1, False, 3))
        self.assertIn("f.opus is safe", result["error"]["hint"])
        self.assert_pulled(recorder, "f.opus")

    def test_full_disk(self):
        recorder = Recorder(self, 2 * BLOCK)
        result = recorder.run("pull", "-o", "f.opus", limit=20000)
        self.check(result, 1, "Cannot write f.opus: File too large", "still has", "Free space")
        self.assertEqual((recorder.home / "f.opus").stat().st_size, 20000)
        self.assert_resumes(recorder)
        with open("/dev/full", "w") as full:
            code, _, err = recorder.run("list", stdout=full)
            self.check((code, "", err), 1, "could not be written to standard output")

    def test_interruption(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number):
                recorder = Recorder(self, 3 * BLOCK, script="interval 7.5ms\npackets 1\n")
                terminal = Terminal(lambda stderr: recorder.start("pull", "-o", "f.opus", stderr=stderr))
                terminal.wait_for(b"%", 3)
                self.assertIn(b"s left", terminal.shown)
                terminal.process.send_signal(number)
                result = terminal.finish()
                size = (recorder.home / "f.opus").stat().st_size
                self.check(result, 1, f"Interrupted after {size} of 98304", "continue")
                self.assert_resumes(recorder)

    def test_tour(self):
        with tempfile.TemporaryDirectory() as folder:
            result = tool("tour", TMPDIR=folder, XDG_STATE_HOME=folder)
            self.check(result, 0, "Connection lost after", "same, byte for byte", "C4 D4 E4 F4 G4",
                       "firmware 1.2.3 -> 2.5.1.", "Firmware version  2.5.1", "the image, byte for byte")
            self.assertIn(f"Files: {folder}/kwt-tour-", result[1].splitlines()[-1])
            self.check(tool("tour", TMPDIR=folder + "/missing"), 1, "set TMPDIR")


unittest.main()
