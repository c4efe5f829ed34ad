"""What the tests of kwt have in common; the first argument of each test program is kwt."""

import contextlib
import fcntl
import json
import os
import pathlib
import random
import re
import resource
import signal
import struct
import subprocess
import sys
import termios
import types
import unittest

from recorders import BLOCK, DATA, RecorderFolder, ogg_page

KWT = os.path.abspath(sys.argv.pop(1))
QUERIES = 2  # whose answers come before a download's packets


def packets_of(size):
    return -(-size // DATA)


def sound(seconds, seed):
    """Ogg Opus that can be decoded, 5077 bytes a second: what packets of noise sound like."""
    noise = random.Random(seed)
    head = b"OpusHead\1\1" + (312).to_bytes(2, "little") + (16000).to_bytes(4, "little") + bytes(3)
    pages = [ogg_page(0, 2, [head]), ogg_page(1, 0, [b"OpusTags" + bytes(8)])]
    for second in range(1, seconds + 1):
        packets = [b"\xb8" + noise.randbytes(99) for _ in range(50)]  # of 20 ms
        pages.append(ogg_page(second + 1, 4 if second == seconds else 0, packets, 48000 * second))
    return b"".join(pages)


def documented():
    """{command: {path of a field: its type}} from docs/kwt.md."""
    page = (pathlib.Path(__file__).parents[2] / "docs" / "kwt.md").read_text()
    fields = {}
    for names, kind, commands in re.findall(r"^\| (`[^|]+`) \| (number|text|truth) \| ([^|]+) \|", page, re.MULTILINE):
        for command in commands.split(", "):
            fields.setdefault(command, {}).update(dict.fromkeys(re.findall(r"`([^`]+)`", names), kind))
    return fields


FIELDS = documented()


def check_fields(command, value, path=""):
    """Every field of a result stands in docs/kwt.md with its type."""
    if isinstance(value, dict):
        for name, content in value.items():
            check_fields(command, content, f"{path}.{name}" if path else name)
    elif isinstance(value, list):
        for content in value:
            check_fields(command, content, path + "[]")
    else:
        kind = "truth" if isinstance(value, bool) else "text" if isinstance(value, str) else "number"
        known = {**FIELDS["every"], **FIELDS.get(command, {})}
        if known.get(path) != kind:
            raise AssertionError(f"docs/kwt.md does not know {path} of {command} as a {kind}")


def finish(process):
    try:
        out, err = process.communicate(timeout=60)
    except subprocess.TimeoutExpired:
        process.kill()
        raise
    if "--json" in process.args and out and out.startswith("{"):
        check_fields(next((word for word in process.args if word in FIELDS), "every"), json.loads(out))
    if "--progress=json" in process.args:
        for line in err.splitlines():
            check_fields("progress", json.loads(line))
    return process.returncode, out, err


def start_tool(*arguments, **options):
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE}
    return subprocess.Popen([KWT, *arguments], **{"text": True, **pipes, **options})


def tool(*arguments, **options):
    return finish(start_tool(*arguments, **options))


class Recorder(RecorderFolder):
    def options(self):
        """How kwt is told of the recorder."""
        return ["--sim", str(self.store)]

    def start(self, *arguments, limit=resource.RLIM_INFINITY, limits={}, shim={}, env=os.environ, **options):
        def prepare():
            for number in (signal.SIGINT, signal.SIGHUP):  # ignored in background jobs and below nohup
                signal.signal(number, signal.SIG_DFL)
            for kind, most in {resource.RLIMIT_FSIZE: limit, **limits}.items():
                resource.setrlimit(kind, (most, most))

        command = [*([] if arguments[0] in ("convert", "scan") else self.options()), *arguments]
        env = {**env, **shim, "TZ": "UTC0"}
        if limit != resource.RLIM_INFINITY:
            env["LLVM_PROFILE_FILE"] = "/dev/null"  # which would be cut as well, and is shared
        return start_tool(*command, cwd=self.home, preexec_fn=prepare, env=env, **options)

    def run(self, *arguments, **options):
        return finish(self.start(*arguments, **options))


class Terminal:
    """A terminal as the standard error of a recorder's command, and its input or output too if asked to."""

    def __init__(self, recorder, *arguments, columns=80, types=None, prints=False, **options):
        self.ours, theirs = os.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("4H", 25, columns, 0, 0))
        options.setdefault("env", {**os.environ, "TERM": "xterm"})
        if types is not None:
            os.write(self.ours, types.encode())
            options["stdin"] = theirs
        if prints:
            options["stdout"] = theirs
        self.process = recorder.start(*arguments, stderr=theirs, **options)
        os.close(theirs)
        self.shown = b""

    def read(self):
        self.shown += os.read(self.ours, 1000)

    def wait_for(self, mark, count):
        try:
            while self.shown.count(mark) < count:
                self.read()
        except OSError:
            raise AssertionError(f"it ended without {mark}: {self.shown}") from None

    def end(self, mark, count, number):
        """Sends the signal when the terminal has shown the mark so often; returns what finish() does."""
        self.wait_for(mark, count)
        self.process.send_signal(number)
        return self.finish()

    def finish(self):
        """Status, standard output, and all that the terminal showed."""
        code, out, _ = finish(self.process)
        with contextlib.suppress(OSError):  # its end
            while True:
                self.read()
        os.close(self.ours)
        return code, out, self.shown.decode()


class KwtTestCase(unittest.TestCase):
    maxDiff = None

    def check(self, result, status, *words):
        code, *texts = result
        text = "".join(filter(None, texts))
        self.assertEqual(code, status, text)
        for word in words:
            self.assertIn(word, text)

    def assert_pulled(self, recorder, name, number=0):
        content = recorder.contents[number]
        stored, pulled = content + bytes(-len(content) % BLOCK), (recorder.home / name).read_bytes()
        differing = next((at for at, pair in enumerate(zip(stored, pulled)) if pair[0] != pair[1]), None)
        self.assertEqual((differing, len(pulled)), (None, len(stored)), name)


class CommandTest:
    """Part of a test case: commands that are all started before its tests, since many wait for a time-out."""

    # For each the recorder's script, the command, its status and words, and what else the next two take.
    commands = ()
    recorder = staticmethod(lambda case, script="", *_: Recorder(case, script=script))
    check_end = staticmethod(lambda recorder, *_: None)

    @classmethod
    def setUpClass(cls):
        case = types.SimpleNamespace(addCleanup=cls.addClassCleanup)
        recorders = [cls.recorder(case, script, *more) for script, _, _, _, *more in cls.commands]
        cls.running = [recorder.start(*row[1].split()) for recorder, row in zip(recorders, cls.commands)], recorders

    def test_what_was_started(self):
        for process, recorder, (script, command, status, words, *more) in zip(*self.running, self.commands):
            with self.subTest(script=script, command=command):
                self.check(finish(process), status, *words)
                self.check_end(recorder, *more)
