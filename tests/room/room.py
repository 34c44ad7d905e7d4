"""What the tests of a room share: a folder of its own, the processes in it, and looks at what they do.

Waits have no limit of their own: CTest ends a test that hangs.
"""
import ctypes
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import time

BUILD = pathlib.Path(os.environ.get("AI_BUILD") or pathlib.Path(__file__).resolve().parents[2] / "build").resolve()
BIN = BUILD / "bin"
HERE = pathlib.Path(__file__).resolve().parent


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def await_true(condition, what=None):
    """Returns the first true value of the condition; what fails meanwhile is told by an exception of its own."""
    while True:
        value = condition()
        if value:
            return value
        if what is not None:
            what()
        time.sleep(0.02)


class Process:
    """A process in the room's folder, with its output in a file."""

    def __init__(self, room, name, command, env=None, **options):
        self.room = room
        self.log = room.folder / f"{name}.txt"
        self.command = [str(word) for word in command]
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                            cwd=room.folder, env=dict(room.env, **(env or {})), **options)
        self.pid = self.process.pid
        room.processes.append(self)

    def output(self):
        return self.log.read_text(errors="replace")

    def lines(self):
        return self.output().splitlines()

    def alive(self):
        return self.process.poll() is None

    def must_live(self):
        if not self.alive():
            raise AssertionError(f"{self.command[0]} ended with {self.process.returncode}:\n{self.output()}")

    def await_output(self, text, count=1):
        await_true(lambda: self.output().count(text) >= count, self.must_live)

    def end(self, number=signal.SIGTERM):
        """Sends the signal and returns the exit code."""
        if self.alive():
            self.process.send_signal(number)
        return self.process.wait()


class Room:
    """A folder for TMPDIR and its processes; all end with it."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="room-", dir=os.environ.get("AI_ROOM_TMP")))
        self.env = dict(os.environ, TMPDIR=str(self.folder), QT_LOGGING_RULES="")
        self.processes = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in reversed(self.processes):
            if process.alive():
                process.end(signal.SIGTERM if "camerafeed" in process.command[0] else signal.SIGKILL)
        Segment.remove(self.folder)
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, name, *command, **options):
        return Process(self, name, command, **options)

    def camerafeed(self, *arguments, **options):
        feed = self.start("camerafeed", BIN / "camerafeed", *arguments, **options)
        feed.await_output("writing to")
        return feed

    def aictl(self, *arguments, check=True):
        done = subprocess.run([BIN / "aictl", *arguments], env=self.env, cwd=self.folder, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, check=False)
        if check and done.returncode != 0:
            raise AssertionError(f"aictl {arguments}: {done.returncode} {done.stdout}{done.stderr}")
        return done


class Segment:
    """The shared memory "Camera" of a folder, looked at without its lock."""

    libc = ctypes.CDLL(None, use_errno=True)
    libc.shmat.restype = ctypes.c_void_p
    header = 124
    record = 136

    def __init__(self, folder):
        number = self.find(folder, "qipc_sharedmemory_Camera*", self.libc.shmget, 0, 0)
        if number < 0:
            raise FileNotFoundError("no segment")
        self.address = self.libc.shmat(number, None, 0o10000)

    @classmethod
    def find(cls, folder, pattern, get, *arguments):
        for key_file in pathlib.Path(folder).glob(pattern):
            key = cls.libc.ftok(os.fsencode(key_file), ord("Q"))
            return get(key, *arguments)
        return -1

    @classmethod
    def remove(cls, folder):
        memory = cls.find(folder, "qipc_sharedmemory_Camera*", cls.libc.shmget, 0, 0)
        if memory >= 0:
            cls.libc.shmctl(memory, 0, None)
        for pattern in ("qipc_sharedmemory_Camera*", "qipc_systemsem_Camera*"):
            semaphore = cls.find(folder, pattern, cls.libc.semget, 1, 0)
            if semaphore >= 0:
                cls.libc.semctl(semaphore, 0, 0)

    def change(self):
        return ctypes.string_at(self.address + 24, 100).split(b"\0")[0]

    def stride(self):
        return int.from_bytes(ctypes.string_at(self.address + 4, 4), "little")

    def newest(self, x, y):
        """The pixel of the frame written last: red, green, blue."""
        write_index = int.from_bytes(ctypes.string_at(self.address + 16, 4), "little")
        block = (write_index + 2) % 3
        place = self.header + block * self.stride() + self.record + 3 * (1920 * y + x)
        return tuple(ctypes.string_at(self.address + place, 3))

    def moves(self):
        """True when a frame is written within two seconds."""
        before, begin = self.change(), time.monotonic()
        while time.monotonic() - begin < 2:
            if self.change() != before:
                return True
            time.sleep(0.01)
        return False


class Broker:
    """A mosquitto with a configuration of its own."""

    def __init__(self, room, settings="", port=None):
        self.room = room
        self.port = port or free_port()
        self.file = room.folder / "mosquitto.conf"
        self.file.write_text(settings or f"listener {self.port} 127.0.0.1\nallow_anonymous true\n")
        self.process = None
        self.start()

    def start(self):
        # As root it would give up its rights, and with them the room's folder.
        text = self.file.read_text()
        if "user root" not in text:
            self.file.write_text(text + "user root\n")
        mosquitto = shutil.which("mosquitto") or "/usr/sbin/mosquitto"
        self.process = self.room.start("mosquitto", mosquitto, "-c", self.file)

        def listens():
            with socket.socket() as probe:
                return probe.connect_ex(("127.0.0.1", self.port)) == 0
        await_true(listens, self.process.must_live)


class Subscriber:
    """What a subscriber with a session of its own gets: mosquitto_sub, one JSON line for each message."""

    def __init__(self, room, port, topic="#", name="subscriber", options=(), host="127.0.0.1"):
        self.process = room.start(name, "mosquitto_sub", "-V", "5", "-h", host, "-p", port, "-t", topic, "-q", "1",
                                  "-i", name, "-c", "-x", "3600", "-F", "%j", *options)
        self.received = []
        self.read = 0  # bytes of the output that are in there

    def messages(self, topic=None):
        """(topic below the room, payload, retained), oldest first; a payload that is JSON is decoded."""
        with open(self.process.log, "rb") as output:
            output.seek(self.read)
            news = output.read()
        whole = news[:news.rfind(b"\n") + 1]  # the line that is being written comes later
        self.read += len(whole)
        for line in whole.decode(errors="replace").split("\n"):
            if not line.startswith("{"):
                continue
            message = json.loads(line)
            name, payload = message["topic"].split("/", 3)[-1], message["payload"]
            # What is sent to the bridge may be anything.
            if isinstance(payload, str) and payload[:1] in ("{", "[") and not name.startswith("command/"):
                payload = json.loads(payload)
            self.received.append((name, payload, bool(message.get("retain"))))
        return [message for message in self.received if topic in (None, message[0])]

    def newest(self, topic):
        found = self.messages(topic)
        return found[-1][1] if found else None

    def await_newest(self, topic, condition):
        return await_true(lambda: (lambda payload: payload is not None and condition(payload))(self.newest(topic)),
                          self.process.must_live)


def write_room(room, port, extra="", name="room.conf", broker="host = 127.0.0.1"):
    """The configuration of a room whose camera is the demo class."""
    path = room.folder / name
    path.write_text(f"[room]\nschool = north\nroom = 101\n[broker]\n{broker}\nport = {port}\n{extra}")
    path.chmod(0o600)
    return path
