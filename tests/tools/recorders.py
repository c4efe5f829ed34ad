"""Simulated recorders for the programs under test: their folders, what these hold, and a fake Bluetooth to reach them by."""

import os
import pathlib
import random
import re
import subprocess
import tempfile
import zlib

HEADERS = "".join(path.read_text() for path in pathlib.Path(__file__).parents[2].glob("wire/*.h"))


def wire(name):
    """What the library's headers say of the recorder's protocol: a number, or bytes."""
    text, number = re.search(rf'\b{name} = (?:"(\w+)"|(\d+))', HEADERS).groups()
    return int(number) if number else bytes.fromhex(text)


BLOCK, DATA, AUDIO = wire("kBlockSize"), wire("kDownloadDataSize"), wire("kAudioPacket")
MADE = 1715938200  # 2024-05-17 09:30 UTC, the first of them; the others a second later each
ADDRESS = "AA:BB:CC:DD:EE:FF"
CONFIGURATION = """<busconfig><listen>unix:path={folder}/socket</listen><auth>EXTERNAL</auth>
<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/></policy></busconfig>"""


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


def packets_in(content):
    """The number of a live recording's whole packets, and of the bytes of one that is not whole."""
    count = at = 0
    while (end := at + 4 + int.from_bytes(content[at + 2:at + 4], "little")) <= len(content):
        if content[at:at + 2] != AUDIO:
            raise AssertionError(f"no packet at {at}: {content[at:at + 8].hex()}")
        count, at = count + 1, end
    return count, len(content) - at


def image(size, version=(2, 5, 1)):
    return random.Random(size).randbytes(size - 4) + bytes(version) + b"\x07"


class RecorderFolder:
    """A simulated recorder's folder, and a folder beside it that programs run in."""

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
            os.utime(path, (MADE + number, MADE + number))
        self.script(script)

    def script(self, text):
        (self.store / "device" / "script").write_text(text)

    def names(self):
        return sorted(path.name for path in self.store.glob("*.opus"))

    def files(self):
        """What programs have left where they ran."""
        return sorted(path.name for path in self.home.iterdir())

    def firmware(self):
        file = self.store / "device" / "firmware.bin"
        return file.read_bytes() if file.exists() else None

    def open_bus(self, case, fake_bluez):
        """A system bus of its own, with a bluetoothd in whose reach the recorder is."""
        folder = self.home.parent
        (folder / "conf").write_text(CONFIGURATION.format(folder=folder))
        self.bus = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": f"unix:path={folder}/socket"}
        for command in (["dbus-daemon", f"--config-file={folder}/conf", "--nofork", "--print-address=1"],
                        [fake_bluez, str(self.store)]):
            self.bluez = subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                          stderr=subprocess.DEVNULL, env=self.bus)
            for end in (self.bluez.stdout.close, self.bluez.stdin.close, self.bluez.wait, self.bluez.kill):
                case.addCleanup(end)
            assert self.bluez.stdout.readline(), command
