#!/usr/bin/env python3
"""What the viewer costs at 30 frames a second: processor time and memory beside those of a bare copy loop.

  bench/viewer/cost.py [SECONDS]   starts the demo camera, the copy loop and the viewer (on a display without a
                                   screen, drawn by Mesa's software renderer) and measures both at once

Expects the programs in build/bin: camerafeed, copyloop, classview.
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(__file__).resolve().parents[2] / "build" / "bin"
TICK = os.sysconf("SC_CLK_TCK")
SIZE = "1360x860"


def processor_seconds(process):
    fields = pathlib.Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICK


def megabytes(process):
    for line in pathlib.Path(f"/proc/{process}/smaps_rollup").read_text().splitlines():
        if line.startswith("Pss:"):
            return int(line.split()[1]) / 1024
    return 0


def viewer_process(parent):
    """The program itself: xvfb-run is only its parent."""
    found = subprocess.run(["pgrep", "-P", str(parent), "-x", "classview"], stdout=subprocess.PIPE, text=True,
                           check=False)
    return int(found.stdout or 0)


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 20
    with tempfile.TemporaryDirectory() as home:
        environment = dict(os.environ, TMPDIR=home, LIBGL_ALWAYS_SOFTWARE="1")
        quiet = {"env": environment, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        camera = subprocess.Popen([BIN / "camerafeed", "--demo"], **quiet)
        time.sleep(2)
        copy = subprocess.Popen([BIN / "copyloop"], **quiet)
        viewer = subprocess.Popen(["xvfb-run", "-a", "-s", "-screen 0 1600x1000x24", BIN / "classview", "--size", SIZE,
                                   "--screenshot", os.path.join(home, "end.png"), "--after", str(seconds + 8)], **quiet)
        time.sleep(6)
        processes = {"copy loop": copy.pid, "viewer": viewer_process(viewer.pid)}
        before = {name: processor_seconds(process) for name, process in processes.items()}
        time.sleep(seconds)
        print(f"load of the machine {os.getloadavg()[0]:.1f} on {os.cpu_count()} cores, window {SIZE}, {seconds:g} s")
        for name, process in processes.items():
            percent = 100 * (processor_seconds(process) - before[name]) / seconds
            print(f"{name:<10} {percent:6.1f} % of a core, {megabytes(process):6.0f} MB")
        copy.kill()
        camera.terminate()
        viewer.wait()
        camera.wait()


if __name__ == "__main__":
    main()
