"""The packages on a machine that boots: units, the room, what stays over an upgrade and a removal."""
import subprocess
import unittest

from boot import BootedRoom
from drill import await_room
from room import BUILD, Broker, Room, Subscriber, await_true

STORE = "/var/lib/aiservice/101/ai.data"


class Boot(unittest.TestCase):
    def test_room_on_a_fresh_machine(self):
        outside = self.enterContext(Room())
        machine = self.enterContext(BootedRoom())
        names = list(machine.units.values())
        machine.run("systemd-analyze", "verify", *(f"{name}@101.service" for name in names))
        for name in names:
            subprocess.run(["systemd-analyze", "security", "--offline=true", "--threshold=20",
                            BUILD / f"packaging/{name}@.service"], check=True, stdout=subprocess.DEVNULL)

        broker = Broker(outside)
        subscriber = Subscriber(outside, broker.port)
        machine.begin(broker.port)
        await_room(subscriber)
        self.assertEqual(machine.run("stat", "-c", "%U %a", "/run/aiservice/101", "/var/lib/aiservice/101").stdout.split(),
                         ["aiservice", "700"] * 2)
        order = [int(machine.property(name, "ExecMainStartTimestampMonotonic")) for name in machine.units]
        self.assertEqual(order, sorted(order), "camera, service, bridge")

        for name in machine.units:
            machine.kill(name)
            await_room(subscriber)
        self.assertIn("--recovery", self.command_line(machine), "after a crash")
        self.enrol(machine)

        # The bridge ends a service that is stuck, here so much that only SIGKILL does, and systemd starts it again.
        stuck = machine.property("service", "MainPID")
        machine.run("systemctl", "kill", "--kill-whom=main", "--signal=STOP", "aiservice@101.service")
        await_true(lambda: machine.property("service", "MainPID") not in (stuck, "0"))
        await_room(subscriber)

        machine.run("sh", "-c", "dpkg -i /packages/aiservice_*.deb /packages/aiservice-bridge_*.deb")
        await_room(subscriber)
        self.assertIn("--recovery", self.command_line(machine), "an upgrade keeps the students")
        subscriber.await_newest("state", lambda state: state["students"] == 1)

        machine.run("systemctl", "restart", "aiservice@101.service")
        await_room(subscriber)
        self.assertNotIn("--recovery", self.command_line(machine), "after an orderly end")

        machine.run("aiservice-room", "--remove", "101")
        journal = machine.run("journalctl", "--no-pager", "-o", "cat").stdout.splitlines()
        stopped = [line.split()[1] for line in journal if line.startswith("Stopped ") and "@101.service" in line]
        self.assertEqual(stopped[-3:], [f"{name}@101.service" for name in ("aibridge", "aiservice", "camerafeed")])
        self.assertIn("aiservice@101.service: Deactivated successfully.", journal)
        told = machine.run("journalctl", "--no-pager", "-o", "cat", "-u", "*@101.service").stdout
        for words in ("camerafeed: ended by a signal, after", "aibridge: the broker is there"):
            self.assertIn(words, told)
        machine.run("dpkg", "--remove", "aiservice-bridge", "aiservice")
        machine.run("test", "-s", STORE)
        machine.run("sh", "-c", "DEBIAN_FRONTEND=noninteractive dpkg --purge aiservice")
        machine.run("test", "-s", STORE)

    def command_line(self, machine):
        return machine.run("cat", f"/proc/{machine.property('service', 'MainPID')}/cmdline").stdout

    def enrol(self, machine):
        def as_aiservice(*command):
            return machine.run("setpriv", "--reuid=aiservice", "--regid=aiservice", "--init-groups", "env",
                               "TMPDIR=/run/aiservice/101", *command, check=False)
        await_true(lambda: as_aiservice("aictl", "fetch-gallery", "--save", "/var/lib/aiservice/class").returncode == 0)
        done = as_aiservice("sh", "-c", "aictl register $(ls /var/lib/aiservice/class/faces/*.jpg | head -n 1)=Ada")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)


if __name__ == "__main__":
    unittest.main()
