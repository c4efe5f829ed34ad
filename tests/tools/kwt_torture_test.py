"""kwt killed, cut off and out of disk space at random moments, and run again: kwt_torture_test.py KWT [MOMENTS [SEED]]

After each of so many moments of each kind in pull, record and update: what the recorder has deleted is on the disk,
byte for byte; nothing has the name of a whole file that is none; and the same command again does what it says.
"""

import concurrent.futures
import contextlib
import os
import random
import signal
import subprocess
import sys

from kwt_support import BLOCK, Recorder, finish, image, packets_in, packets_of, sound

MOMENTS = int(sys.argv[1]) if len(sys.argv) > 1 else 3
SEED = int(sys.argv[2]) if len(sys.argv) > 2 else random.randrange(2**32)
TIMING = "interval 7.5ms\npackets 30\n"
SIZES, IMAGE = (2 * BLOCK, BLOCK), image(60000)


class Command:
    sizes, contents = SIZES, ()


# Without the id: a recorder that is killed with kwt while it deletes has counted on, and may still have the recording.
NAMED = ("--name", "%H%M%S")


class Pull(Command):
    arguments, seconds, largest = ("pull", *NAMED), 0.4, SIZES[0]
    frames = {"write": 9, "acknowledgement": 9, "notification": 10 + packets_of(SIZES[0])}

    def check(self, recorder):
        """Also between rename and deletion: then the recording is at both places."""
        here = [file.read_bytes() for file in recorder.home.glob("*.opus")]
        gone = [content for number, content in enumerate(recorder.contents) if f"{number}.opus" not in recorder.names()]
        assert all(content in here for content in gone), "deleted, and not on the disk"
        assert all(content in recorder.contents for content in here), "a whole file's name, and not whole"

    def again(self, recorder):
        for _ in recorder.names():
            yield self.arguments
        assert sorted(file.read_bytes() for file in recorder.home.glob("*.opus")) == sorted(recorder.contents)
        assert not list(recorder.home.glob("*.part")), recorder.files()


class PullAll(Command):
    """As MP3: what is there in the end is what a command has made that nothing happened to."""

    arguments, seconds, largest = ("pull", "--all", "--as", "mp3", "-o", "in", *NAMED), 1.5, 2 * BLOCK
    frames = {"write": 40, "acknowledgement": 40, "notification": 50 + packets_of(4 * BLOCK)}
    sizes, contents = (), [sound(seconds, seconds) for seconds in (2, 7, 3)]

    def files(self, recorder):
        return {str(path.relative_to(recorder.home)): path.read_bytes()
                for path in recorder.home.rglob("*") if path.is_file()}

    def check(self, recorder):
        made = {name: content for name, content in self.files(recorder).items() if name[-4:] == ".mp3" and "/." not in name}
        assert made.items() <= EXPECTED.items(), "a whole file's name, and not whole"
        gone = [name for number, name in enumerate(sorted(EXPECTED)) if f"{number}.opus" not in recorder.names()]
        assert all(name in made for name in gone), "deleted, and not on the disk"

    def again(self, recorder):
        yield self.arguments
        assert (self.files(recorder), recorder.names()) == (EXPECTED, []), recorder.files()
        assert not (recorder.home / "in" / ".kwt-pull").exists()


class Record(Command):
    arguments, seconds, largest = ("record", "-o", "f.rec", "-d", "0.5"), 1, 2000
    frames = {"write": 3, "acknowledgement": 3, "notification": 29}

    def check(self, recorder):
        for content in filter(None, (file.read_bytes() for file in recorder.home.glob("*.rec"))):
            packets_in(content)  # from its beginning on

    def again(self, recorder):
        (recorder.home / "f.rec").unlink(missing_ok=True)
        yield self.arguments
        packets, rest = packets_in((recorder.home / "f.rec").read_bytes())
        assert packets > 0 and rest == 0, (packets, rest)


class Update(Command):
    arguments, seconds, largest = ("update", "fw"), 2.5, len(IMAGE)
    frames = {"write": 263, "acknowledgement": 263, "notification": 17}

    def check(self, recorder):
        assert recorder.firmware() in (None, IMAGE), "half a firmware"

    def again(self, recorder):
        yield self.arguments
        assert recorder.firmware() == IMAGE


def kill(recorder, command, moments):
    process = recorder.start(*command.arguments)
    with contextlib.suppress(subprocess.TimeoutExpired):
        process.wait(moments.uniform(0, command.seconds))
    process.send_signal(signal.SIGKILL)
    finish(process)


def cut(recorder, command, moments):
    event, last = moments.choice(sorted(command.frames.items()))
    recorder.script(TIMING + f"{event} {moments.randint(1, last)} disconnect\n")
    recorder.run(*command.arguments)


def fill(recorder, command, moments):
    recorder.run(*command.arguments, limit=moments.randrange(command.largest))


def torment(fault, command, moment):
    moments = random.Random(f"{SEED} {fault.__name__} {type(command).__name__} {moment}")
    with contextlib.ExitStack() as stack:
        stack.addCleanup = stack.callback
        recorder = Recorder(stack, *command.sizes, script=TIMING, contents=command.contents)
        if isinstance(command, Update):
            (recorder.home / "fw").write_bytes(IMAGE)
        fault(recorder, command, moments)
        command.check(recorder)
        recorder.script(TIMING)
        for arguments in command.again(recorder):
            code, out, err = recorder.run(*arguments)
            assert code == 0, out + err
            command.check(recorder)


with contextlib.ExitStack() as undisturbed:
    undisturbed.addCleanup = undisturbed.callback
    whole = Recorder(undisturbed, contents=PullAll.contents)
    assert whole.run(*PullAll.arguments)[0] == 0
    EXPECTED = PullAll().files(whole)
print(f"seed {SEED}, {MOMENTS} moments each")
failed = 0
with concurrent.futures.ThreadPoolExecutor(4 * os.cpu_count()) as pool:
    running = {pool.submit(torment, fault, command(), moment): f"{fault.__name__} {command.__name__} {moment}"
               for moment in range(MOMENTS) for fault in (kill, cut, fill)
               for command in (Pull, PullAll, Record, Update)}
    for done in concurrent.futures.as_completed(running):
        if done.exception():
            failed += 1
            print(f"{running[done]}: {done.exception()!r}")
print(f"{len(running)} runs, {failed} failed")
sys.exit(failed > 0)
