#!/usr/bin/env python3
"""Kills service, camera, bridge and broker of a room at random, and waits each time until the room is as configured.

  drill.py [--seconds N] [--boot] [--seed N] [--within SECONDS]

The room runs on a broker of its own. Its processes are started again by the drill itself, or with --boot by systemd,
which runs as process 1 in namespaces of its own, on the Debian packages that lie in <build>/packages (root only).
The last line tells how often it was as configured again, and the longest time that this took.
"""
import argparse
import datetime
import random
import signal
import sys
import threading
import time

from boot import BootedRoom
from room import BIN, Broker, Room, Subscriber, write_room

ANALYSES = "[run]\nanalyses = hands\nsilence = 8\npatience = 10\n[camera]\naddress = demo\n"


class SupervisedRoom(Room):
    """Starts the three again a second after their end, the service with --recovery, as the units do."""

    def begin(self, port):
        file = write_room(self, port, ANALYSES)
        self.ending = False
        self.current = {}
        self.threads = [threading.Thread(target=self.supervise, args=(name, command), daemon=True) for name, command in (
            ("camera", lambda _: [BIN / "camerafeed", "--config", file]),
            ("service", lambda again: [BIN / "AIService"] + ["--recovery"] * again),
            ("bridge", lambda _: [BIN / "aibridge", file]))]
        for thread in self.threads:
            thread.start()

    def supervise(self, name, command):
        again = 0
        while not self.ending:
            self.current[name] = self.start(name, *command(again))
            self.current[name].process.wait()
            again = 1
            time.sleep(1)

    def kill(self, name):
        self.current[name].end(signal.SIGKILL)

    def __exit__(self, *details):
        self.ending = True
        super().__exit__(*details)


def as_configured(subscriber, since):
    """True when the newest state, told since then, is the wanted one, and an event has come since."""
    state = subscriber.newest("state")
    events = subscriber.messages("event/hands")
    return (state is not None and state["time"] > since and state["service"] == "initialised" and state["video"]
            and state["running"] == state["wanted"] == ["hands"] and state["problem"] == ""
            and subscriber.newest("availability") == "online" and events and events[-1][1]["time"] > since)


def await_room(subscriber):
    since = datetime.datetime.now(datetime.timezone.utc).isoformat(timespec="milliseconds").replace("+00:00", "Z")
    begin = time.monotonic()
    while not as_configured(subscriber, since):
        subscriber.process.must_live()
        time.sleep(0.1)
    return time.monotonic() - begin


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=float, default=3600)
    parser.add_argument("--boot", action="store_true")
    parser.add_argument("--seed", type=int, default=int(time.time()))
    parser.add_argument("--within", type=float, default=0)
    arguments = parser.parse_args()
    print(f"seed {arguments.seed}", flush=True)
    dice = random.Random(arguments.seed)

    times = []
    with Room() as outside, (BootedRoom() if arguments.boot else SupervisedRoom()) as room:
        broker = Broker(outside)
        subscriber = Subscriber(outside, broker.port)
        room.begin(broker.port)
        print(f"as configured after {await_room(subscriber):.1f} s", flush=True)
        begin = time.monotonic()
        victims = []
        while time.monotonic() - begin < arguments.seconds or not times:
            # Each in its turn, in an order of chance.
            victims = victims or dice.sample(["service", "camera", "bridge", "broker"], 4)
            victim = victims.pop()
            if victim == "broker":
                broker.process.end(signal.SIGKILL)
                broker.start()
            else:
                room.kill(victim)
            times.append(await_room(subscriber))
            print(f"{victim} killed: as configured after {times[-1]:.1f} s", flush=True)
    print(f"{len(times)} kills, the longest took {max(times):.1f} s")
    return 1 if arguments.within and max(times) > arguments.within else 0


if __name__ == "__main__":
    sys.exit(main())
