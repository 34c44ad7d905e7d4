#!/usr/bin/env python3
"""A mixed day in fast motion against the real service: lesson after lesson with every command, all analyses,
recordings, cameras that die, clients that come and go. After each lesson it looks at the memory, threads and
file descriptors of the process and at its shared-memory segments and semaphores, and at the end it tells
whether they stayed flat. Then the process is killed, and a recovery has to bring the class back.

  soak.py [--seconds N] [--build FOLDER] [--fps N] [--keep]

Exit code 0 for flat, 1 for growth, a wrong answer, a dead process or missing photographs.
"""
import argparse, itertools, os, pathlib, shutil, signal, statistics, subprocess, sys, tempfile, time

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "examples"))
sys.dont_write_bytecode = True
import client as example  # noqa: E402

OPEN, CLOSE, EXECUTE, INFO = 1, 2, 3, 4
PASSING_CLIENTS = 5  # in each lesson
# Kilobytes. The nets keep room for what they computed last, a hundred megabytes more or less, and the heap has
# gaps; so a few lessons show only the loss of pictures, and many show the rest.
ENOUGH_LESSONS = 30
SLACK_OF_FEW, SLACK_OF_MANY = 128 * 1024, 24 * 1024
SLACK = {"threads": 3, "files": 3}  # the pool's threads, and those of analyses that are ending


class Visitor(example.Client):
    """A client that remembers no more events than it is asked for. It waits as long as it takes."""

    def ask(self, kind, code=0, data=None, identifier=None, expect=0):
        reply = self.answer(self.send(kind, code, data, identifier))
        if expect is not None and reply["rsp_error"] != expect:
            raise AssertionError(f"request {kind} {code} was answered with {reply}")
        return reply

    def execute(self, code, data=None, identifier=None, expect=0):
        return self.ask(EXECUTE, code, data, identifier, expect)

    def wait(self, *codes):
        """Waits for one event of each code, in any order. What the last one that came told."""
        missing = set(codes)
        while missing:
            message = self.events.popleft() if self.events else self.receive()
            missing.discard(message.get("msg"))
        return message["event_info"]

    def leave(self):
        self.stream.close()
        self.socket.close()


class Day:
    def __init__(self, build, home, fps):
        self.build, self.home, self.fps = build, home, fps
        self.environment = dict(os.environ, TMPDIR=str(home))
        self.heap = home / "heap"
        self.heapmeter = build / "tests" / "soak" / "libheapmeter.so"
        tempfile.tempdir = str(home)
        self.camera = self.service = self.client = None
        self.console = open(home / "console.txt", "wb")
        self.students = []

    # The processes

    def start_camera(self):
        feed = self.build / "bin" / "camerafeed"
        self.camera = subprocess.Popen([feed, "--demo", "--fps", str(self.fps)], env=self.environment,
                                       stdout=subprocess.DEVNULL, stderr=self.console)

    def start_service(self, *arguments):
        old = os.stat(self.home / "AI").st_ctime_ns if (self.home / "AI").exists() else 0
        environment = dict(self.environment, AI_HEAP=str(self.heap))
        if self.heapmeter.exists():
            environment["LD_PRELOAD"] = str(self.heapmeter)
        self.service = subprocess.Popen([self.build / "bin" / "AIService", *arguments], cwd=self.home,
                                        env=environment, stdout=subprocess.DEVNULL, stderr=self.console)
        while not (self.home / "AI").exists() or os.stat(self.home / "AI").st_ctime_ns == old:
            if self.service.poll() is not None:
                raise AssertionError("the service has ended")
            time.sleep(0.02)

    def kill(self, process):
        if process and process.poll() is None:
            process.send_signal(signal.SIGKILL)
            process.wait()

    # What one looks at

    def measure(self):
        proc = pathlib.Path("/proc", str(self.service.pid))
        status = dict(line.split(":", 1) for line in (proc / "status").read_text().splitlines() if ":" in line)
        keys = set()
        for file in self.home.glob("qipc_*"):
            entry = file.stat()  # as ftok() does with 'Q'
            keys.add((ord("Q") << 24) | ((entry.st_dev & 0xFF) << 16) | (entry.st_ino & 0xFFFF))
        owned = [sum(int(line.split()[0]) & 0xFFFFFFFF in keys
                     for line in pathlib.Path("/proc/sysvipc", kind).read_text().splitlines()[1:])
                 for kind in ("shm", "sem")]
        return {"memory": int(status["VmRSS"].split()[0]), "heap": self.heap_in_use(),
                "threads": int(status["Threads"]), "files": len(list((proc / "fd").iterdir())),
                "segments": owned[0], "semaphores": owned[1]}

    def heap_in_use(self):
        """Kilobytes, the least of a second, since the lesson's analyses may still be ending."""
        def told():
            return int(self.heap.read_text()) // 1024 if self.heap.exists() else 0
        looks = []
        for _ in range(10):
            looks.append(told())
            time.sleep(0.1)
        return min(looks)

    # What happens in a day

    def open_class(self):
        self.client.ask(OPEN)
        self.client.execute(1001, {**example.MODELS, "identify": "soak", "enableEmotion": True})
        while self.client.execute(1022, expect=None)["rsp_error"] == -9:
            time.sleep(0.1)
        self.students = []

    def enrol(self):
        self.client.execute(1021, {}, "fetch")
        faces = [entry for entry in self.client.wait(1011)["galleries"] if entry["faceImg"]]
        if not faces:
            raise AssertionError("no face was found")
        for number, entry in enumerate(faces):
            entry["stuID"] = f"student {number}"
        self.faces = faces
        self.client.execute(1020, {"galleries": faces[:3]})
        self.client.execute(1022, {"galleries": faces})
        taken = self.client.wait(1018)["successList"]
        self.students = sorted(set(self.students) | {entry["stuID"] for entry in taken})

    def change_students(self, lesson):
        first, last = self.students[0], self.students[-1]
        self.client.execute(1024, {"oldStuID": first, "newStuID": f"renamed {lesson}"})
        self.client.execute(1023, {**self.faces[-1], "oldStuID": last, "faceImageBase64": self.faces[-1]["faceImg"]})
        self.client.execute(1025, {"stuID": f"renamed {lesson}"})
        self.students.remove(first)
        self.client.execute(1025, {"stuID": "nobody"}, expect=-1003)
        self.client.execute(1021, {"stuID": last})
        self.client.wait(1011)
        self.client.execute(1026)
        known = sorted(entry["stuID"] for entry in self.client.wait(1021)["bestGalleries"])
        if known != self.students:
            raise AssertionError(f"the service knows {known} instead of {self.students}")

    def analyse(self):
        videos = self.home / "video"
        players = [{"stuID": student} for student in self.students[:2]]
        watched = self.students[-1]
        self.client.execute(1039, {"recordPath": str(videos)})
        self.client.execute(1030, {}, "hands")
        self.client.execute(1032, {}, "attention")
        self.client.execute(1034, {"stuID": watched}, "track")
        self.client.wait(1012, 1013, 1014, 1020)
        self.client.execute(1036, {"stuList": players}, "game")
        self.client.wait(1016)
        self.client.execute(1038)
        self.client.wait(1017)
        self.client.execute(1030, expect=-15)
        self.client.execute(1031)
        self.client.execute(1033)
        self.client.execute(1035, {"stuID": watched, "requestID": "track"})
        self.client.execute(1037, {"stuList": []})
        self.client.execute(1040)
        shutil.rmtree(videos)

    def visit(self):
        """Clients that come and go; their leaving ends the analyses that run."""
        self.client.execute(1030)
        for _ in range(PASSING_CLIENTS):
            visitor = Visitor()
            visitor.ask(INFO, 1001)
            visitor.leave()
        while self.client.execute(1031, expect=None)["rsp_error"] == 0:
            self.client.execute(1030, expect=None)
        self.client.leave()
        self.client = Visitor()

    def lesson(self, number):
        self.enrol()
        self.analyse()
        self.change_students(number)
        self.visit()
        if number % 3 == 2:
            self.kill(self.camera)
            self.start_camera()
        if number % 4 == 3:
            self.client.execute(1027)
            self.client.execute(1028)
            self.students = []
        if number % 4 == 1:
            self.client.ask(CLOSE)
            self.open_class()
        self.client.events.clear()

    def recover(self):
        self.client.ask(CLOSE)
        self.open_class()  # after a reset nothing is kept until the next open
        self.enrol()
        self.client.leave()
        self.kill(self.service)
        self.start_service("--recovery")
        self.client = Visitor()
        self.client.execute(1026)
        known = sorted(entry["stuID"] for entry in self.client.wait(1021)["bestGalleries"])
        if known != self.students:
            raise AssertionError(f"after the recovery: {known} instead of {self.students}")
        self.client.send(CLOSE, identifier="self-kill")
        if self.service.wait() != 0:
            raise AssertionError("the service did not leave with code 0")

    def tidy(self):
        self.kill(self.service)
        self.kill(self.camera)
        for file in self.home.glob("qipc_*"):
            entry = file.stat()
            key = hex((ord("Q") << 24) | ((entry.st_dev & 0xFF) << 16) | (entry.st_ino & 0xFFFF))
            for kind in ("-M", "-S"):
                subprocess.run(["ipcrm", kind, key], stderr=subprocess.DEVNULL)


def grown(rows):
    """The measures that were higher in the last third of the day than in the third before."""
    third = max(1, len(rows) // 3)
    before, after = rows[-2 * third:-third], rows[-third:]
    result = []
    for name in ("threads", "files", "segments", "semaphores"):
        if max(row[name] for row in after) > max(row[name] for row in rows[:-third]) + SLACK.get(name, 0):
            result.append(name)
    slack = SLACK_OF_MANY if len(rows) >= ENOUGH_LESSONS else SLACK_OF_FEW
    for name in ("heap", "memory"):
        if min(row[name] for row in after) > max(row[name] for row in before) + slack:
            result.append(name)
    return result


def run(day, seconds):
    day.start_camera()
    day.start_service()
    day.client = Visitor()
    day.open_class()
    rows, begin = [], time.monotonic()
    print(f"{'lesson':>6} {'second':>6} {'memory KB':>9} {'heap KB':>7} {'threads':>7} {'files':>5} {'segments':>8} "
          f"{'semaphores':>10}")
    for number in itertools.count():
        day.lesson(number)
        rows.append(row := day.measure())
        second = time.monotonic() - begin
        print(f"{number:>6} {second:>6.0f} {row['memory']:>9} {row['heap']:>7} {row['threads']:>7} {row['files']:>5} "
              f"{row['segments']:>8} {row['semaphores']:>10}", flush=True)
        if second >= seconds:
            break
    day.recover()
    if len(rows) < 6:
        print("too few lessons to tell whether anything grows")
        return 0
    third = len(rows) // 3
    for name in ("heap", "memory"):
        print(f"{name} in KB, medians of the middle and the last third:",
              *(round(statistics.median(row[name] for row in part)) for part in (rows[third:-third], rows[-third:])))
    what = grown(rows)
    print("grew: " + ", ".join(what) if what else "flat")
    return 1 if what else 0


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--seconds", type=int, default=3600)
    options.add_argument("--build", type=pathlib.Path, default=root / "build")
    options.add_argument("--fps", type=int, default=60)
    options.add_argument("--keep", action="store_true", help="leave the folder of the service")
    given = options.parse_args()
    home = pathlib.Path(tempfile.mkdtemp(prefix="soak-"))
    day = Day(given.build.resolve(), home, given.fps)
    good = False
    try:
        probe = subprocess.run([day.build / "bin" / "camerafeed", "--demo", "--fps", "100", "--frames", "1"],
                               env=day.environment, stdout=subprocess.DEVNULL, stderr=day.console)
        if probe.returncode == 1:
            print("the photographs are not here")
            return 1
        result = run(day, given.seconds)
        good = result == 0
        return result
    except (AssertionError, OSError, KeyError) as problem:
        print(f"{type(problem).__name__}: {problem}")
        return 1
    finally:
        day.tidy()
        if good and not given.keep:
            shutil.rmtree(home, ignore_errors=True)
        else:
            print("what the service left is in", home)


if __name__ == "__main__":
    sys.exit(main())
