"""All recordings in one command, into pipes and while a recorder comes and goes: kwt_pull_test.py KWT [ARGUMENT...]"""

import json
import os
import signal
import unittest

from kwt_support import QUERIES, CommandTest, KwtTestCase, Recorder, Terminal, finish, packets_of, sound
from recorders import BLOCK, MADE

SECONDS = (6, 7, 8, 9, 10)  # of one block, and of two
TIMING = "latency 2ms\ninterval 7.5ms\npackets 30\n"
NAMES = [f"recording-{number + 1}-20240517-09300{number}" for number in range(5)]
DELETION = QUERIES + 4 + packets_of(BLOCK) + 2  # the answer to the first one, behind a list of three


class PullTest(CommandTest, KwtTestCase):
    recorder = staticmethod(lambda case, script, *_: Recorder(case, BLOCK, BLOCK, BLOCK, script=script))
    # Then come what is there in the end, and what the recorder still has.
    commands = (
        ("", "pull --all -o in/", 0, ("Pulled 3 recordings (98304 bytes) into in; the recorder has",), ["in"], ""),
        ("", "pull --all --keep", 0, ("Pulled 1 of 3", "keeps its copy", "no other", "not saved: 2, 3"),
         [NAMES[0] + ".opus"], "012"),
        (f"notification {DELETION} drop", "pull --all --name {id}", 0, ("Pulled 3", "has deleted"),
         ["1.opus", "2.opus", "3.opus"], ""),
        ("", "pull --all --name %Y", 1, ("Pulled 1 of 3", "2024.opus exists", "left as it is", "--name"),
         ["2024.opus"], "12"),
        ("", "pull --as mp3", 1, ("could not be converted", f"{NAMES[0]}.opus is the recording"),
         [NAMES[0] + ".opus"], "12"),
        ("", "pull --keep -o f", 0, ("Saved f", "keeps its copy"), ["f"], "012"),
        ("", "pull --all -o f/g", 1, ("Cannot write into f/g",), [], "012"),
        ("", "pull --all -o ../store", 1, ("simulated recorder's folder",), [], "012"),
        *(("", line, 2, (word,), [], "012") for line, word in (
            ("pull --as ogg", "opus, wav or mp3"), ("pull --as mp3 -o f.wav", "contradict"),
            ("pull --name a -o f", "--name"), ("pull --all --name a/b", "without a folder"),
            ("pull -o - --all", "--all"), ("pull -o - --json", "one pipe"),
            ("rm", "`kwt rm 1`"), ("rm one", "kwt list"), ("watch --every 0", "--every"))),
        ("", "rm 2", 1, ("which is not 2", "recording 1 (32768 bytes, made 2024-05-17 09:30:00)"), [], "012"),
        ("", "rm 1", 0, ("Deleted recording 1",), [], "12"))

    def check_end(self, recorder, files, left):
        self.assertEqual((recorder.files(), recorder.names()), (files, [f"{number}.opus" for number in left]))

    def test_broken_links_and_a_full_disk(self):
        """Five recordings as MP3; run again, it finishes."""
        line = ("pull", "--all", "--as", "mp3", "-o", "in")
        recorder = Recorder(self, contents=[sound(seconds, seconds) for seconds in SECONDS])
        recorder.script(TIMING + "".join(f"notification {number} disconnect\n" for number in (100, 500, 600)))
        code, out, err = recorder.run(*line, "--json", limit=40000)
        result = json.loads(out)
        self.assertEqual((code, [one["id"] for one in result["saved"]], [one["id"] for one in result["left"]]),
                         (1, [1], [2, 3, 4, 5]))
        self.check((code, err), 1, "File too large", "free space", "same command again")
        code, out, err = recorder.run(*line, "--json")
        saved = json.loads(out)["saved"]
        self.assertEqual((code, [one["id"] for one in saved]), (0, [2, 3, 4, 5]), err)
        self.assertGreater(saved[0]["continuedAt"], 30000)
        self.assertEqual({path.name: int(path.stat().st_mtime) for path in (recorder.home / "in").iterdir()},
                         {name + ".mp3": MADE + number for number, name in enumerate(NAMES)})
        self.assertEqual(recorder.names(), [])
        self.check(recorder.run(*line), 0, "holds no recordings")

    def test_files_that_are_there(self):
        recorder = Recorder(self, contents=[sound(6, 1)])
        name, line = NAMES[0] + ".wav", ("pull", "--all", "--as", "wav")
        (recorder.home / name).write_bytes(b"else")
        self.check(recorder.run(*line), 1, "exists already and is not this recording", "--name")
        self.assertEqual((recorder.home / name).read_bytes(), b"else")
        (recorder.home / name).unlink()
        self.check(recorder.run(*line, "--keep"), 0, "Saved " + name)
        made = (recorder.home / name).read_bytes()
        self.check(recorder.run(*line, "--keep"), 0, "was there already")
        self.check(recorder.run("pull", "-o", name), 1, "exists already")
        self.check(recorder.run(*line), 0, "was there already", "has deleted")
        # As it is left by a kill between the deletion and the end.
        (recorder.home / ".kwt-pull").mkdir()
        (recorder.home / ".kwt-pull" / (name + ".opus")).write_bytes(recorder.contents[0] + bytes(1000))
        (recorder.home / ".kwt-pull" / "half").write_bytes(b"RIFF")
        self.check(recorder.run(*line), 0, "holds no recordings")
        self.assertEqual((recorder.files(), (recorder.home / name).read_bytes()), ([name], made))

    def test_pipe(self):
        recorder = Recorder(self, 4 * BLOCK, BLOCK)  # more than a pipe holds
        code, out, err = recorder.run("pull", "-o", "-", text=False, env={**os.environ, "TMPDIR": str(recorder.home)})
        self.assertEqual((code, out == recorder.contents[0]), (0, True), err)
        self.assertIn(b"`kwt rm 1` deletes it", err)
        reader, writer = os.pipe()
        process = recorder.start("pull", "-o", "-", stdout=writer)
        os.close(writer)
        self.assertEqual(os.read(reader, 4), b"OggS")
        process.send_signal(signal.SIGINT)  # while it waits for the reader
        self.check(finish(process), 1, "Interrupted after ", f" of {4 * BLOCK} bytes")
        os.close(reader)
        self.check(Terminal(recorder, "pull", "-o", "-", prints=True).finish(), 2, "is a terminal")
        self.assertEqual((recorder.files(), len(recorder.names())), ([], 2))

    def test_question(self):
        recorder = Recorder(self, BLOCK, BLOCK)
        for typed, status, words, left in (("\n", 1, "nothing was done", 2), ("y\n", 0, "Deleted recording 1", 1)):
            terminal = Terminal(recorder, "rm", types=typed)
            self.check(terminal.finish(), status, "[y/N]", "recording 1 (32768 bytes, made 2024-05-17 09:30:00)", words)
            self.assertEqual(len(recorder.names()), left)

    def test_watch(self):
        recorder = Recorder(self, BLOCK, BLOCK)
        away = recorder.store.rename(recorder.home.parent / "away")
        command = 'echo "$1 $KWT_ID $KWT_CREATED" >> ../log; test $KWT_ID = 1'
        process = recorder.start("watch", "--every", "0.5", "-o", "in", "--json", "--exec", command)
        self.assertIn("cannot be read", process.stderr.readline())
        away.rename(recorder.store)
        saved = [json.loads(process.stdout.readline()) for _ in range(2)]
        self.assertEqual([one["id"] for one in saved], [1, 2])
        self.assertIn("goes on", process.stderr.readline())
        self.assertIn("The command for in/" + NAMES[1] + ".opus: it ended with status 1", process.stderr.readline())
        process.send_signal(signal.SIGTERM)
        code, out, err = finish(process)
        self.assertEqual((code, json.loads(out), err), (0, {"saved": 2, "schema": 1}, ""))
        self.assertEqual((recorder.home.parent / "log").read_text(), "".join(
            f"{recorder.home}/in/{name}.opus {number + 1} 2024-05-17T09:30:0{number}\n"
            for number, name in enumerate(NAMES[:2])))

    def test_watch_ends_its_command(self):
        recorder = Recorder(self, BLOCK)
        process = recorder.start("watch", "--exec", "echo runs; exec sleep 600")
        for word in ("Saved", "runs"):
            self.assertIn(word, process.stdout.readline())
        process.send_signal(signal.SIGTERM)
        self.check(finish(process), 0, "signal 15 ended it")


if __name__ == "__main__":
    unittest.main()
