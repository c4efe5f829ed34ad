"""What the tests of kwt have in common; the first argument of each test program is kwt."""

import contextlib
import os
import pathlib
import random
import resource
import signal
import subprocess
import sys
import tempfile
import unittest

KWT = os.path.abspath(sys.argv.pop(1))


def opus(size, seed):
    """What a recorder takes for Ogg Opus; only its first page has to look like it."""
    page = b"OggS" + bytes(22) + bytes([1, 19]) + b"OpusHead"
    return page + random.Random(seed).randbytes(size - len(page))


def finish(process):
    try:
        out, err = process.communicate(timeout=60)
    except subprocess.TimeoutExpired:
        process.kill()
        raise
    return process.returncode, out, err


def tool(*arguments, **environment):
    return finish(subprocess.Popen([KWT, *arguments], env={**os.environ, **environment}, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE))


class Recorder:
    """A simulated recorder's folder, and a folder beside it that kwt runs in."""

    def __init__(self, case, *sizes, script=""):
        temporary = tempfile.TemporaryDirectory()
        case.addCleanup(temporary.cleanup)
        self.home = pathlib.Path(temporary.name) / "home"
        self.store = self.home.parent / "store"
        (self.store / "device").mkdir(parents=True)
        self.home.mkdir()
        self.contents = [opus(size, seed) for seed, size in enumerate(sizes)]
        for number, content in enumerate(self.contents):
            path = self.store / f"{number}.opus"
            path.write_bytes(content)
            os.utime(path, (1715938200 + number, 1715938200 + number))
        self.script(script)

    def script(self, text):
        (self.store / "device" / "script").write_text(text)

    def options(self):
        """How kwt is told of the recorder."""
        return ["--sim", str(self.store)]

    def names(self):
        return sorted(path.name for path in self.store.glob("*.opus"))

    def start(self, *arguments, limit=None, **streams):
        def prepare():
            signal.signal(signal.SIGINT, signal.SIG_DFL)
            if limit is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

        streams = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **streams}
        command = [KWT, *([] if arguments[0] in ("convert", "scan") else self.options()), *arguments]
        environment = {**os.environ, "TZ": "UTC0", "XDG_STATE_HOME": str(self.home.parent / "state")}
        return subprocess.Popen(command, cwd=self.home, text=True, preexec_fn=prepare, env=environment, **streams)

    def run(self, *arguments, **options):
        process = self.start(*arguments, **options)
        return finish(process)


class Terminal:
    """A terminal as the standard error of one process."""

    def __init__(self, start):
        self.ours, theirs = os.openpty()
        self.process = start(theirs)
        os.close(theirs)
        self.shown = b""

    def wait_for(self, mark, count):
        while self.shown.count(mark) < count:
            self.shown += os.read(self.ours, 1000)

    def finish(self):
        """Status, standard output, and all that the terminal showed."""
        code, out, _ = finish(self.process)
        with contextlib.suppress(OSError):  # its end
            while True:
                self.shown += os.read(self.ours, 1000)
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
