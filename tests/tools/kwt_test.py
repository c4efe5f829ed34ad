"""Runs kwt as a person would, against simulated recorders: kwt_test.py KWT [UNITTEST-ARGUMENT...]"""

import json
import os
import pathlib
import random
import re
import shlex
import shutil
import signal
import tempfile
import unittest

from kwt_support import QUERIES, CommandTest, KwtTestCase, Recorder, Terminal, finish, packets_of, start_tool, tool
from recorders import BLOCK, image

WRONG_USAGE = ("", "--sim . dance", "--sim . tour", "--sim . pull -o ''", "--sim '' info", "--sim . update",
               "--sim . list more", "--sim . record -o f.ogg", "--sim . record -o f.rec -t 5",
               "--sim . record -d 0", "--sim . record -d nan", "--sim . record -d 1:99", "convert", "convert f -o f.ogg",
               "convert f g -o f.wav", "convert f --to wav --bitrate 8", "convert f --bitrate 9",
               "--sim . convert f f.wav", "scan -d 0", "scan -d x",
               "--timeout 0 info", "--progress some info", "--trace '' info", "--device '' info", "device a --forget",
               "--sim . device")


def retold(trace, datalink, flags_of):
    """A trace of kind 1002 as one of another kind, whose records have no byte that tells what they are."""
    result, rest = trace[:12] + datalink.to_bytes(4, "big"), trace[16:]
    while rest:
        size, flags = int.from_bytes(rest[:4], "big"), int.from_bytes(rest[8:12], "big")
        length = (size - 1).to_bytes(4, "big")
        result += length * 2 + flags_of(rest[24], flags).to_bytes(4, "big") + rest[12:24] + rest[25:24 + size]
        rest = rest[24 + size:]
    return result


class KwtTest(CommandTest, KwtTestCase):
    recorder = staticmethod(lambda case, script, *_: Recorder(case, 3 * BLOCK, BLOCK, script=script))
    # Then comes what is on the disk.
    commands = (
        *((script, "pull -o f", 0, ("Saved f", "has deleted"), ["f"]) for script in (
            "notification 100 disconnect\nnotification 900 disconnect", "notification 50 duplicate", "write 4 refuse",
            "notification 100 drop\nnotification 800 disconnect", "notification 50 corrupt 40",
            "notification 100 delay 8s", "interval 7.5ms\npackets 6\nnotification 50 corrupt 40")),
        ("\n".join(f"notification {100 * number} disconnect" for number in range(1, 22)), "pull -o f", 75,
         ("Connection lost after ", f" of {3 * BLOCK} bytes", "f.part keeps", "continue"), ["f.part", "f.part.id"]),
        (f"notification {QUERIES + packets_of(3 * BLOCK) + 2} drop", "pull -o f", 1,
         ("f is safe", "not confirm", "kwt list"), ["f"]),
        ("notification 1 drop", "info", 75, ("did not answer within 5 s", "switched on")),
        ("write 1 refuse", "info", 75, ("ATT error 0x03",)))

    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.tour = folder, start_tool("tour", env={**os.environ, "TMPDIR": folder})
        super().setUpClass()

    def check_end(self, recorder, files=()):
        self.assertEqual(recorder.files(), list(files))
        if "f" in files:
            self.assert_pulled(recorder, "f")
        elif files:
            self.assertEqual(recorder.names(), ["0.opus", "1.opus"])
            self.assert_resumes(recorder)

    def assert_resumes(self, recorder):
        """The same command again, now without faults, ends with the whole recording."""
        recorder.script("")
        self.check(recorder.run("pull", "-o", "f"), 0, "continued at byte ", "has deleted")
        self.assert_pulled(recorder, "f")
        self.assertEqual(recorder.files(), ["f"])
        self.assertNotIn("0.opus", recorder.names())

    def test_results_for_people_and_programs(self):
        recorder = Recorder(self, BLOCK, 3 * BLOCK - 1)
        free = 536870912 - 4 * BLOCK
        self.check(recorder.run("info"), 0, "80 %", "1.2.3", "2, 131.1 kB", "536.7 MB free of 536.9 MB")
        self.check(recorder.run("list"), 0, "ID     Size  Recorded          Type\n",
                   " 2  98.3 kB  2024-05-17 09:30  normal\n")
        name, created = "recording-1-20240517-093000.opus", "2024-05-17T09:30:0"
        expected = {
            "info": {"battery": 80, "firmware": "1.2.3", "storage": [536870912, free], "total": 536870912, "free": free,
                     "recordings": 2, "used": 4 * BLOCK},
            "list": {"recordings": [
                {"id": 1, "size": BLOCK, "type": 0, "typeName": "normal", "present": True, "created": created + "0"},
                {"id": 2, "size": 3 * BLOCK, "type": 0, "typeName": "normal", "present": True, "created": created + "1"}]},
            "pull": {"id": 1, "file": name, "bytes": BLOCK, "continuedAt": 0, "deleted": True},
            "rm 2": {"id": 2, "size": 3 * BLOCK, "deleted": True},
        }
        for command, values in expected.items():
            with self.subTest(command):
                code, out, err = recorder.run(*command.split(), "--json")
                self.assertEqual((code, err), (0, ""))  # no progress either: this is no terminal
                result = json.loads(out)
                result.pop("seconds", None)
                self.assertEqual(result, {"schema": 1, **values})
        self.assert_pulled(recorder, name)
        self.assertEqual((recorder.names(), recorder.files()), ([], [name]))
        self.check(recorder.run("list"), 0, "holds no recordings")
        self.check(recorder.run("pull", "-o", "f"), 1, "holds no recordings")
        error = json.loads(recorder.run("rm", "--json")[1])["error"]
        self.assertEqual((error["domain"], error["code"], recorder.files()), ("kwt", 8, [name]))

    def test_usage(self):
        for line in WRONG_USAGE:
            with self.subTest(line):
                code, out, err = tool(*shlex.split(line))
                self.assertEqual((code, out), (2, ""))
                self.assertIn("--help", err)
                code, out, _ = tool(*shlex.split(line), "--json")
                self.assertEqual((code, json.loads(out)["error"]["code"]), (2, 15))
        for line, word in (("--help", "Exit status"), ("--version", "kwt 0."), ("pull --help", "--output FILE")):
            self.check(tool(*line.split()), 0, word)
            with open("/dev/full", "w") as full:
                self.check(tool(*line.split(), stdout=full), 1, "could not be written")
        self.assertNotIn("--sim DIR", tool("pull", "--help")[1])  # but what it has of its own
        for word, meant in (("lst", "list"), ("conver", "convert"), ("upadte", "update"), ("inf", "info"), ("xyzzy", None)):
            error = tool(word)[2]
            self.assertEqual(f"did you mean {meant}?" in error, meant is not None, error)

    def test_page(self):
        """Every option of every command stands in docs/kwt.md."""
        page = (pathlib.Path(__file__).parents[2] / "docs" / "kwt.md").read_text()
        text = tool("--help")[1]
        for name in re.findall(r"^  (\w+) ", text.partition("Commands:")[2], re.MULTILINE):
            text += tool(name, "--help")[1]
            self.assertIn(f"`{name}`", page)
        for option in re.findall(r"^  (-\S+)", text, re.MULTILINE):
            for word in option.split(","):
                self.assertRegex(page, rf"`{word}[ `]")

    def test_usual_recorder(self):
        with tempfile.TemporaryDirectory() as folder:
            config = pathlib.Path(folder) / "kwt" / "config"

            def kwt(*words, **env):
                return tool(*words, env={"XDG_CONFIG_HOME": folder, **env})

            self.check(kwt("device"), 0, "No recorder")
            self.check(kwt("device", "Voice 1"), 0, "Voice 1")
            config.write_text("# mine\nother=1\n" + config.read_text())
            self.check(kwt("device"), 0, "Voice 1", str(config))
            self.check(kwt("device", KWT_DEVICE="Voice 2"), 0, "Voice 2", "KWT_DEVICE")
            self.assertEqual(json.loads(kwt("device", "Voice 3", "--json")[1]),
                             {"schema": 1, "device": "Voice 3", "by": str(config)})
            self.assertEqual(config.read_text(), "# mine\nother=1\ndevice = Voice 3\n")
            self.check(kwt("device", "--forget"), 0)
            self.assertEqual((config.read_text(), len(os.listdir(config.parent))), ("# mine\nother=1\n", 1))
            config.chmod(0)
            if os.geteuid() != 0:
                self.check(kwt("device"), 1, f"Cannot read {config}")

    def test_streams(self):
        """Readers that go, terminals that cannot write over a line, progress for programs."""
        recorder = Recorder(self, BLOCK)
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "w") as gone:
            self.assertEqual(recorder.run("list", stdout=gone)[0::2], (-signal.SIGPIPE, ""))
        script = "interval 7.5ms\npackets 6\n"
        for more, shown in (({}, True), ({"TERM": "dumb"}, False), ({"words": ["--progress=none"]}, False),
                            ({"words": ["-q"]}, False)):
            with self.subTest(more):
                recorder = Recorder(self, 3 * BLOCK, script=script)
                env = {**os.environ, "TERM": "xterm", **{name: more[name] for name in more if name == "TERM"}}
                terminal = Terminal(recorder, "pull", "-o", "f", *more.get("words", ()), columns=30, env=env)
                code, out, text = terminal.finish()
                self.assertEqual((code, "kB/s" in text or " of " in text), (0, shown), text)
                self.assertEqual(out == "", "-q" in more.get("words", ()))
                for line in text.split("\r\x1b[K"):
                    self.assertLess(len(line), 30)
        recorder = Recorder(self, 3 * BLOCK, script=script)
        code, _, err = recorder.run("pull", "-o", "f", "--progress=json")
        objects = [json.loads(line) for line in err.splitlines()]
        self.assertEqual((code, objects[-1]["stage"]), (0, "over"))
        self.assertTrue(any(0 < one["done"] < one["total"] == 3 * BLOCK for one in objects if "total" in one))

    def test_trace(self):
        """What a trace has is what the library makes of it again, in each kind of btsnoop file."""
        recorder = Recorder(self, 3 * BLOCK, BLOCK, script="notification 100 disconnect\nnotification 900 disconnect")
        code, _, err = recorder.run("pull", "-o", "f", "--trace", "t", "-v")
        self.check((code, err), 0, "> 01 82 01 00 00  how many recordings?", "84 bytes of the recording", "disconnected")
        trace = (recorder.home / "t").read_bytes()
        (recorder.home / "plain").write_bytes(retold(trace, 1001, lambda kind, flags: flags))
        (recorder.home / "monitor").write_bytes(
            retold(trace, 2001, lambda kind, flags: 3 if kind == 4 else 5 if flags else 4))
        (recorder.home / "out").mkdir()
        for name in ("t", "plain", "monitor"):
            code, out, err = tool("replay", name, "-o", "out", "--json", cwd=recorder.home)
            self.assertEqual((code, err), (0, ""))
            self.assertEqual(json.loads(out), {"schema": 1, "unknown": 0, "operations": [
                {"operation": "download", "text": f"recording 1, {3 * BLOCK} bytes, whole, deleted"}]})
            (saved,) = (recorder.home / "out").glob("*.opus")
            self.assertEqual(saved.read_bytes(), recorder.contents[0])
            saved.unlink()
        recorder.script("")
        (recorder.home / "image").write_bytes(image(20000))
        for command, words in (("info", ("battery: 80 %", "firmware: 1.2.3", "recordings: 1, 2: 32.8 kB")),
                               ("record -o live.rec -d 0.2", ("recording: normal, ", "bytes")),
                               ("update image", ("update: 20000 bytes, 1.2.3 -> 2.5.1",)), ("rm 2", ("recording 2",))):
            (recorder.home / "t").unlink()
            self.check(recorder.run(*command.split(), "--trace", "t"), 0)
            result = tool("replay", "t", cwd=recorder.home)
            self.check(result, 0, *words)
            self.assertNotIn("failed", result[1])
        self.check(recorder.run("info", "--trace", "t"), 1, "Cannot write t", "--trace")
        for content, word in ((b"", "no btsnoop file"), (trace[:16], "nothing was sent")):
            (recorder.home / "t").write_bytes(content)
            self.check(tool("replay", "t", cwd=recorder.home), 1, "Cannot replay t", word)
        seed = random.randrange(2**32)
        cuts = random.Random(seed)
        for _ in range(5):  # a program that was killed, a damaged disk
            (recorder.home / "t").write_bytes(trace[:cuts.randrange(5000, len(trace))] + cuts.randbytes(cuts.randrange(40)))
            self.assertEqual(tool("replay", "t", cwd=recorder.home)[0], 0, seed)

    def test_time(self):
        recorder = Recorder(self, 3 * BLOCK, script="interval 7.5ms\npackets 1\n")
        self.check(recorder.run("pull", "-o", "f", "--timeout", "0.5"), 75, "--timeout, 0.5 s")
        terminal = Terminal(Recorder(self), "record", "-o", "live.rec")
        self.check(terminal.end(b"dBFS", 2, signal.SIGHUP), 0, "It was stopped.")

    def test_refusals_before_anything_is_sent(self):
        recorder = Recorder(self, BLOCK, script="write 1 disconnect")
        (recorder.home / "full.rec").write_bytes(b"x")
        for command, name, word in (
                ("record", ".", "is a folder"), ("pull", "no/f", "no is not a folder"),
                ("pull", "/dev/null", "regular file"), ("record", "/dev/null", "regular file"),
                ("pull", "../store/f", "simulated recorder's folder"), ("record", "full.rec", "not empty")):
            with self.subTest(command=command, name=name):
                self.check(recorder.run(command, "-o", name), 1, f"Cannot write {name}", word, "-o")
        with open(recorder.home / "out.rec", "w") as out:
            for line in ("pull -o out.rec", "pull -o /dev/stdout", "record -o out.rec"):
                self.check(recorder.run(*line.split(), stdout=out), 1, "Cannot write", "what kwt prints goes there")
        self.assertEqual((recorder.home / "out.rec").read_bytes(), b"")
        (recorder.home / "out.rec").unlink()
        (recorder.store / "device" / "microphone.wav").write_text("noise")
        self.check(recorder.run("record", "-o", "f.wav"), 1, "microphone.wav")
        recorder.script("latency fast")
        self.check(recorder.run("info"), 1, "line 1", "fast")
        recorder.store = recorder.home / "missing"
        self.check(recorder.run("info"), 1, "missing cannot be read", "name an existing folder")
        self.assertEqual((recorder.files(), (recorder.home / "full.rec").read_bytes()), (["full.rec"], b"x"))

    def test_existing_files(self):
        """Are never touched; one that is this recording counts as saved."""
        recorder = Recorder(self, BLOCK, BLOCK)
        first, second = recorder.contents
        for content in (b"", bytes(BLOCK), bytes(BLOCK + 1), second):
            (recorder.home / "f").write_bytes(content)
            code, out, err = recorder.run("pull", "-o", "f")
            self.check((code, out, err), 1, "exists", "Name another file")
            self.assertNotIn("rm", err)
            self.assertEqual((recorder.home / "f").read_bytes(), content)
        (recorder.home / "f").write_bytes(first)
        (recorder.home / "f.part.id").write_text("of one that was killed behind the rename")
        for _ in range(2):
            result = recorder.run("pull", "-o", "f")
        self.check(result, 1, "exists and is another recording")
        self.assertEqual((recorder.files(), recorder.names()), (["f"], ["1.opus"]))
        self.assert_pulled(recorder, "f")

    def test_content_that_does_not_check(self):
        recorder = Recorder(self, BLOCK)
        recorder.contents[0] = bytes([*recorder.contents[0][:9000], 0, *recorder.contents[0][9001:]])
        (recorder.store / "0.opus").write_bytes(recorder.contents[0])
        self.check(recorder.run("pull", "-o", "f"), 0, "could not be checked", "twice, and alike", "has deleted")
        self.assert_pulled(recorder, "f")

    def test_recorder_refuses_deletion(self):
        recorder = Recorder(self, BLOCK)
        shutil.rmtree(recorder.store / "device")
        (recorder.store / "device").touch()  # the recorder has no place for its state
        self.check(recorder.run("rm", "1"), 1, "in use", "com.kwt.sdk 3")
        code, out, _ = recorder.run("pull", "-o", "f", "--json")
        result = json.loads(out)
        self.assertEqual((code, result["deleted"], result["error"]["code"]), (1, False, 3))
        self.assertIn("f is safe", result["error"]["hint"])
        self.assert_pulled(recorder, "f")

    def test_full_disk(self):
        recorder = Recorder(self)
        result = recorder.run("record", "-o", "f.rec", limit=1000)
        self.check(result, 1, "Cannot write f.rec: File too large", "was stopped", "(1000 bytes)")
        with open("/dev/full", "w") as full:
            self.check(recorder.run("list", stdout=full), 1, "could not be written to standard output")

    def test_tour(self):
        folder, process = self.tour
        self.check(tool("tour", env={"TMPDIR": folder + "/missing"}), 1, "set TMPDIR")
        result = finish(process)
        self.check(result, 0, "goes on over the next", "same, byte for byte", "microphone heard: C4",
                   "firmware 1.2.3 -> 2.5.1.", "Firmware    2.5.1", "the image, byte for byte")
        self.assertIn(f"Files: {folder}/kwt-tour-", result[1].splitlines()[-1])


unittest.main()
