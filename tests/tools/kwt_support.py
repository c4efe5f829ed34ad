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
import tempfile
import termios
import types
import unittest
import zlib

KWT = os.path.abspath(sys.argv.pop(1))
HEADERS = "".join(path.read_text() for path in pathlib.Path(__file__).parents[2].glob("wire/*.h"))


def wire(name):
    """What the library's headers say of the recorder's protocol: a number, or bytes."""
    text, number = re.search(rf'\b{name} = (?:"(\w+)"|(\d+))', HEADERS).groups()
    return int(number) if number else bytes.fromhex(text)


BLOCK, DATA, AUDIO = wire("kBlockSize"), wire("kDownloadDataSize"), wire("kAudioPacket")
QUERIES = 2  # whose answers come before a download's packets


def packets_of(size):
    return -(-size // DATA)


def ogg_crc(page):
    """As zlib's, with every byte's bits the other way round."""
    return (zlib.crc32(page.translate(REVERSED), 0xFFFFFFFF) ^ 0xFFFFFFFF).to_bytes(4, "big").translate(REVERSED)


REVERSED = bytes(int(f"{byte:08b}"[::-1], 2) for byte in range(256))


def ogg_page(number, flags, packets, granule=0):
    lacing = b"".join(bytes([*[255] * (len(packet) // 255), len(packet) % 255]) for packet in packets)
    head = b"OggS\0" + bytes([flags]) + granule.to_bytes(8, "little") + bytes(4) + number.to_bytes(4, "little")
    rest = bytes([len(lacing)]) + lacing + b"".join(packets)
    return head + ogg_crc(head + bytes(4) + rest) + rest


def opus(size, seed):
    """Whole Ogg pages of noise, which begin as Ogg Opus does, with so many bytes."""
    noise, pages = random.Random(seed), []
    while size:
        length = size if size <= 5000 else 4000
        payload = noise.randbytes(length - 27 - -(-(length - 27) // 256))
        payload = payload if pages else b"OpusHead" + payload[8:]
        pages.append(ogg_page(len(pages), (0 if pages else 2) + (4 if length == size else 0), [payload]))
        size -= length
    return b"".join(pages)


def sound(seconds, seed):
    """Ogg Opus that can be decoded, 5077 bytes a second: what packets of noise sound like."""
    noise = random.Random(seed)
    head = b"OpusHead\1\1" + (312).to_bytes(2, "little") + (16000).to_bytes(4, "little") + bytes(3)
    pages = [ogg_page(0, 2, [head]), ogg_page(1, 0, [b"OpusTags" + bytes(8)])]
    for second in range(1, seconds + 1):
        packets = [b"\xb8" + noise.randbytes(99) for _ in range(50)]  # of 20 ms
        pages.append(ogg_page(second + 1, 4 if second == seconds else 0, packets, 48000 * second))
    return b"".join(pages)


def packets_in(content):
    """The number of whole packets, and the bytes of one that is not whole. Each is as long as the first."""
    if content[:2] != AUDIO:
        raise AssertionError(content[:8].hex())
    return divmod(len(content), 4 + int.from_bytes(content[2:4], "little"))


def image(size, version=(2, 5, 1)):
    return random.Random(size).randbytes(size - 4) + bytes(version) + b"\x07"


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


class Recorder:
    """A simulated recorder's folder, and a folder beside it that kwt runs in."""

    def __init__(self, case, *sizes, script="", contents=()):
        temporary = tempfile.TemporaryDirectory()
        case.addCleanup(temporary.cleanup)
        self.home = pathlib.Path(temporary.name) / "home"
        self.store = self.home.parent / "store"
        (self.store / "device").mkdir(parents=True)
        self.home.mkdir()
        self.contents = [*(opus(size, seed) for seed, size in enumerate(sizes)), *contents]
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

    def files(self):
        """What kwt has left where it ran."""
        return sorted(path.name for path in self.home.iterdir())

    def firmware(self):
        file = self.store / "device" / "firmware.bin"
        return file.read_bytes() if file.exists() else None

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
    """A terminal as the standard error of a recorder's command."""

    def __init__(self, recorder, *arguments, columns=80, types=None, **options):
        self.ours, theirs = os.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("4H", 25, columns, 0, 0))
        options.setdefault("env", {**os.environ, "TERM": "xterm"})
        if types is not None:
            os.write(self.ours, types.encode())
            options["stdin"] = theirs
        self.process = recorder.start(*arguments, stderr=theirs, **options)
        os.close(theirs)
        self.shown = b""

    def wait_for(self, mark, count):
        while self.shown.count(mark) < count:
            self.shown += os.read(self.ours, 1000)

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
