"""kwt under everything that befalls a program, and run again: kwt_torture_test.py KWT FAKE-BLUEZ SHIM [ROUNDS [SEED [ONE]]]

In each round one thing befalls one command, with a simulated recorder or, where there is FAKE-BLUEZ, over Bluetooth.
Afterwards: what the recorder has deleted is on the disk, byte for byte; nothing has the name of a whole file that is none;
it ended by itself, in time, with a status and a message of what happened; and the same command again does what it says.
ONE is a round by its name, such as "kill Pull 3".
"""

import collections
import concurrent.futures
import contextlib
import itertools
import os
import random
import resource
import shlex
import signal
import subprocess
import sys

from kwt_device_test import FAKE_BLUEZ, Station
from kwt_support import KWT, Recorder, finish, packets_of, sound
from recorders import BLOCK, image, packets_in

SHIM = os.path.abspath(sys.argv[1])
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 20
SEED = int(sys.argv[3]) if len(sys.argv) > 3 else random.randrange(2**32)
ONE = " ".join(sys.argv[4:])
TIMING = "interval 7.5ms\npackets 60\n"
SIZES, IMAGE = (2 * BLOCK, BLOCK), image(20000)
PATIENCE = ("--timeout", "15")  # a recorder that stops sending is tried again for two minutes
# Without the id: a recorder that is killed with kwt while it deletes has counted on, and may still have the recording.
NAMED = ("--name", "%H%M%S")


class Command:
    sizes, contents, inputs, expected = SIZES, (), {}, {}

    def files(self, recorder):
        return {str(path.relative_to(recorder.home)): path.read_bytes()
                for path in recorder.home.rglob("*") if path.is_file()}

    def check(self, recorder):
        """What is true at any moment."""

    def done(self, recorder):
        """What is true when it has succeeded."""

    def again(self, recorder):
        """What is run then, and comes to its end."""
        yield self.arguments
        self.done(recorder)


class Pull(Command):
    arguments, seconds, largest = ("pull", *NAMED), 0.3, SIZES[0]
    frames = {"write": 9, "acknowledgement": 9, "notification": 10 + packets_of(SIZES[0])}

    def check(self, recorder):
        """Also between rename and deletion: then the recording is at both places."""
        here = [file.read_bytes() for file in recorder.home.glob("*.opus")]
        gone = [content for number, content in enumerate(recorder.contents) if f"{number}.opus" not in recorder.names()]
        assert all(content in here for content in gone), "deleted, and not on the disk"
        assert all(content in recorder.contents for content in here), "a whole file's name, and not whole"

    def done(self, recorder):
        assert list(recorder.home.glob("*.opus")), "success, and no file"

    def again(self, recorder):
        for _ in recorder.names():
            yield self.arguments
        assert sorted(file.read_bytes() for file in recorder.home.glob("*.opus")) == sorted(recorder.contents)
        assert not list(recorder.home.glob("*.part")), recorder.files()


class PullAll(Command):
    """As MP3: what is there in the end is what a command has made that nothing happened to."""

    arguments, seconds, largest = ("pull", "--all", "--as", "mp3", "-o", "in", *NAMED), 1, BLOCK
    frames = {"write": 40, "acknowledgement": 40, "notification": 50 + packets_of(3 * BLOCK)}
    sizes, contents = (), [sound(seconds, seconds) for seconds in (2, 5, 3)]

    def saved(self, recorder):
        """Its number, where it is there; as it was on the recorder, if the disk failed while it was converted."""
        files = {name: content for name, content in self.files(recorder).items() if "/." not in name}
        for number, (name, made) in enumerate(sorted(self.expected.items())):
            original = name[:-3] + "opus"
            assert files.get(name, made) == made, "a whole file's name, and not whole"
            assert files.get(original, self.contents[number]).rstrip(b"\0") == self.contents[number].rstrip(b"\0")
            if name in files or original in files:
                yield number

    def check(self, recorder):
        saved = list(self.saved(recorder))
        assert all(number in saved or f"{number}.opus" in recorder.names() for number in range(3)), "deleted, not saved"

    def done(self, recorder):
        assert (len(list(self.saved(recorder))), recorder.names()) == (3, []), (sorted(self.files(recorder)), recorder.names())
        assert not (recorder.home / "in" / ".kwt-pull").exists()


class Record(Command):
    arguments, seconds, largest = ("record", "-o", "f.rec", "-d", "0.3"), 0.6, 2000
    frames = {"write": 3, "acknowledgement": 3, "notification": 18}

    def check(self, recorder):
        for content in filter(None, (file.read_bytes() for file in recorder.home.glob("*.rec"))):
            packets_in(content)  # from its beginning on
        assert len(recorder.names()) == len(recorder.contents)

    def done(self, recorder):
        content = (recorder.home / "f.rec").read_bytes()
        assert content and packets_in(content)[1] == 0, "no sound, or half a packet"

    def again(self, recorder):
        (recorder.home / "f.rec").unlink(missing_ok=True)
        yield from super().again(recorder)


class Convert(Command):
    arguments, seconds, largest = ("convert", "--force", "--to", "wav", "-o", ".", "a.opus", "b.opus"), 0.3, 500000
    inputs = {"a.opus": sound(4, 4), "b.opus": sound(3, 3)}
    frames = {}

    def check(self, recorder):
        made = {name: content for name, content in self.files(recorder).items() if name[0] != "."}
        assert made.items() <= self.expected.items(), "a whole file's name, and not whole"
        assert all(made.get(name) == content for name, content in self.inputs.items()), "the input is another"

    def done(self, recorder):
        assert self.files(recorder) == self.expected, sorted(self.files(recorder))


class Update(Command):
    arguments, seconds, largest, inputs = ("update", "fw"), 1, len(IMAGE), {"fw": IMAGE}
    frames = {"write": 93, "acknowledgement": 93, "notification": 13}

    def check(self, recorder):
        assert recorder.firmware() in (None, IMAGE), "half a firmware"

    def done(self, recorder):
        assert recorder.firmware() == IMAGE


def run(recorder, command, *signals, **options):
    """With these signals, each after so many seconds."""
    process = recorder.start(*command.arguments, *PATIENCE, **options)
    for seconds, number in signals:
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(seconds)
        process.send_signal(number)
    return finish(process), {-number for _, number in signals}


def signalled(*numbers):
    def send(recorder, command, moments):
        return run(recorder, command, *((moments.uniform(0, command.seconds), number) for number in numbers))
    return send


def limited(kind, least, most):
    def limit(recorder, command, moments):
        return run(recorder, command, limits={kind: moments.randint(least, most)})
    return limit


def least_space():
    """With less, what runs before main() ends the program."""
    def starts(space):
        return subprocess.run([KWT, "--version"], capture_output=True,
                              preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (space, space))).returncode == 0
    return next(space for space in itertools.count(10 << 20, 1 << 20) if starts(space)) + (1 << 20)


def refused(kind, most):
    """By the shim: one call of many, the early ones rather, and often those that follow."""
    def refuse(recorder, command, moments):
        number = int(most ** moments.random())
        mode = moments.choice(["once", "on"])
        return run(recorder, command, shim={"LD_PRELOAD": SHIM, "SHIM": f"{kind} {number} {mode}"})
    return refuse


def fill(recorder, command, moments):
    return run(recorder, command, limit=moments.randrange(command.largest))


def pipe(recorder, command, moments):
    """Nobody reads what it says."""
    process = recorder.start(*command.arguments, *PATIENCE)
    process.stdout.close()
    process.stderr.close()
    return (process.wait(60), "", "nobody reads it"), {-signal.SIGPIPE}


def two(recorder, command, moments):
    """At once: one may be told that the other has the recorder or the file."""
    other = recorder.start(*command.arguments, *PATIENCE)
    first = run(recorder, command)
    assert finish(other)[0] in (0, 1, 69, 75)
    return first


# Of "cut" the script says when.
FAULTS = {"kill": signalled(signal.SIGKILL), "cut": signalled(), "fill": fill, "read": refused("read", 60),
          "write": refused("write", 400), "sync": refused("sync", 6), "memory": refused("memory", 20000),
          "thread": refused("thread", 8), "space": limited(resource.RLIMIT_AS, least_space(), 120 << 20),
          "descriptors": limited(resource.RLIMIT_NOFILE, 3, 30), "terminate": signalled(signal.SIGTERM),
          "hangup": signalled(signal.SIGHUP), "stop": signalled(signal.SIGSTOP, signal.SIGCONT), "pipe": pipe, "two": two}
PLACES = [Recorder, Station] if os.path.exists(FAKE_BLUEZ) else [Recorder]
COMMANDS = [(place, command) for command in (Pull, PullAll, Record, Update, Convert) for place in PLACES
            if (place, command) != (Station, Convert)]


def torment(fault, place, kind, number):
    command = kind()
    moments = random.Random(f"{SEED} {fault} {place.__name__} {kind.__name__} {number}")
    event = fault == "cut" and command.frames and moments.choice(sorted(command.frames.items()))
    script = TIMING + (f"{event[0]} {moments.randint(1, event[1])} disconnect\n" if event else "")
    with contextlib.ExitStack() as stack:
        recorder = make(stack, place, command, script)
        (code, out, err), deaths = FAULTS[fault](recorder, command, moments)
        if ONE:
            print(code, out, err, recorder.files(), recorder.names(), command.files(recorder).keys(), sep="\n")
        assert code in {*range(125), 127, *deaths}, f"ended with {code}: {out}{err}"
        assert code == 0 or code < 0 or err.strip() or out.strip(), f"status {code} without a word"
        command.check(recorder)
        if code == 0:
            command.done(recorder)
        recorder.script(TIMING)
        for arguments in command.again(recorder):
            status, out, err = recorder.run(*arguments)
            if status == 75 and place is Station:  # "run the command again": Bluetooth is still busy with the end of the first
                status, out, err = recorder.run(*arguments)
            # The deletion that the first had asked for may come about after its end.
            assert status == 0 or ("no recordings" in err and not recorder.names()), "again: " + out + err
            command.check(recorder)
    return "killed" if code < 0 else "failed" if code else "done"


def make(stack, place, command, script):
    stack.addCleanup = stack.callback
    recorder = place(stack, *command.sizes, script=script, contents=command.contents)
    for name, content in command.inputs.items():
        (recorder.home / name).write_bytes(content)
    return recorder


def rehearse():
    """What the commands make when nothing happens."""
    for command in (PullAll, Convert):
        with contextlib.ExitStack() as stack:
            recorder = make(stack, Recorder, command, "")
            status, out, err = recorder.run(*command.arguments)
            assert status == 0, out + err
            command.expected = command().files(recorder)
            status, _, err = recorder.run(*command.arguments, shim={"LD_PRELOAD": SHIM, "SHIM": "thread 1 on"})
            assert status == 1 and "No thread" in err, "the shim does nothing: " + err


rehearse()
rounds = [(fault, place, command, number)
          for start, fault in enumerate(FAULTS) for number in range(ROUNDS)
          for place, command in [COMMANDS[(number + start) % len(COMMANDS)]]]
named = {f"{fault} {place.__name__} {command.__name__} {number}": (fault, place, command, number)
         for fault, place, command, number in rounds}
if ONE:
    fault, place, command, number = ONE.split()
    named = {ONE: (fault, globals()[place], globals()[command], int(number))}
print(f"seed {SEED}, {len(named)} rounds")
table, findings = collections.defaultdict(collections.Counter), 0
with concurrent.futures.ThreadPoolExecutor(4 * os.cpu_count()) as pool:
    running = {pool.submit(torment, fault, place, command, number): name
               for name, (fault, place, command, number) in named.items()}
    for done in concurrent.futures.as_completed(running):
        name = running[done]
        outcome = "found" if done.exception() else done.result()
        table[name.split()[0]][outcome] += 1
        if done.exception():
            findings += 1
            print(f"FOUND {name}: {done.exception()!r}\n  again: "
                  f"{shlex.join(['python3', '-B', sys.argv[0], KWT, FAKE_BLUEZ, SHIM, '1', str(SEED)])} {name}")
print(f"{'':12}{'rounds':>8}{'done':>8}{'failed':>8}{'killed':>8}{'found':>8}")
for fault, counts in table.items():
    print(f"{fault:12}{sum(counts.values()):8}" + "".join(f"{counts[end]:8}" for end in ("done", "failed", "killed", "found")))
print(f"{len(named)} rounds, {findings} findings")
sys.exit(findings > 0)
