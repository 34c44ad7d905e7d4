#!/usr/bin/env python3
"""How often a second the demo class gets its raised hands and its attention when both analyses run, with the camera at
30 frames a second on the same machine.

  democlass.py [--seconds N] [--build FOLDER]
"""
import argparse, pathlib, shutil, sys, tempfile, time

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "tests" / "soak"))
sys.dont_write_bytecode = True
import soak  # noqa: E402

EVENTS = {1013: "raised hands", 1012: "attention"}


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--seconds", type=int, default=60)
    options.add_argument("--build", type=pathlib.Path, default=root / "build")
    given = options.parse_args()
    home = pathlib.Path(tempfile.mkdtemp(prefix="democlass-"))
    day = soak.Day(given.build.resolve(), home, fps=30)
    try:
        day.start_camera()
        day.start_service()
        day.client = soak.Visitor()
        day.open_class()
        day.enrol()
        day.client.execute(1030)
        day.client.execute(1032)
        day.client.wait(*EVENTS)  # from here on both run
        begin, counts = time.monotonic(), dict.fromkeys(EVENTS, 0)
        while time.monotonic() - begin < given.seconds:
            message = day.client.events.popleft() if day.client.events else day.client.receive()
            if message.get("msg") in counts:
                counts[message["msg"]] += 1
        for code, name in EVENTS.items():
            print(f"{name}: {counts[code] / (time.monotonic() - begin):.2f} a second")
    finally:
        day.tidy()
        shutil.rmtree(home, ignore_errors=True)


if __name__ == "__main__":
    main()
