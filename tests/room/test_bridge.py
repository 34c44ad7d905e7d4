"""The bridge between a real service and a real broker, each of which is killed and comes back."""
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import time
import unittest
import urllib.request

from room import BIN, BUILD, HERE, Broker, Room, Subscriber, await_true, free_port, write_room

DEMO = BUILD / "opencv-doc/usr/share/doc/opencv-doc/opencv4/html"
HANDS = "event/hands"
ROOT = HERE.parents[1]


class Bridge(unittest.TestCase):
    extra = "[run]\nanalyses = hands\nsilence = 3\npatience = 5\n"

    def setUp(self):
        self.room = self.enterContext(Room())
        self.camera = self.room.camerafeed("--demo", DEMO)
        self.service = self.start_service()

    def start_service(self, *arguments):
        (self.room.folder / "AI").unlink(missing_ok=True)
        return self.room.start("service", BIN / "AIService", *arguments)

    def start_bridge(self, port, extra=None, **options):
        self.bridge = self.room.start("bridge", BIN / "aibridge",
                                      write_room(self.room, port, self.extra if extra is None else extra, **options))
        self.bridge.await_output("the service is there")
        return self.bridge

    def start_all(self, extra=None, persistence=False):
        port = free_port()
        settings = f"listener {port} 127.0.0.1\nallow_anonymous true\n"
        if persistence:
            settings += f"persistence true\npersistence_location {self.room.folder}/\n"
        self.broker = Broker(self.room, settings, port)
        self.subscriber = Subscriber(self.room, self.broker.port)
        self.start_bridge(self.broker.port, extra)
        self.await_hands(1)

    def hands(self):
        return [payload for _, payload, _ in self.subscriber.messages(HANDS)]

    def await_hands(self, more):
        count = len(self.hands()) + more
        await_true(lambda: len(self.hands()) >= count, self.bridge.must_live)

    def as_configured(self):
        state = self.subscriber.newest("state")
        return state["service"] == "initialised" and state["running"] == ["hands"] and state["problem"] == ""

    def test_lookers_come_and_go_and_another_clients_leaving_is_mended(self):
        self.start_all()
        before = len(self.hands())
        for _ in range(3):
            self.assertEqual(json.loads(self.room.aictl("status").stdout)["rsp_data"]["status"], 2)
        looking = self.room.start("looking", BIN / "aictl", "handup", "start")
        looking.await_output('"msg":1013')
        self.assertEqual(looking.end(signal.SIGINT), 0)
        self.await_hands(2)
        self.assertNotIn("another client", self.bridge.output(), "a looker has ended the analysis")
        sequence = [payload["sequence"] for payload in self.hands()]
        self.assertEqual(sequence, sorted(set(sequence)), "an analysis was started twice")
        self.assertGreater(len(sequence), before)

        # An erasure looks at what the service has left and has open, not the bridge.
        erased = self.room.aictl("erase", "--all", "--logs", "--yes").stdout
        self.assertIn(f"service: process {self.service.pid}\n", erased)
        self.assertTrue(list(self.room.folder.glob("Orelia/logs/AI_*.log")), "the open log was removed")

        self.room.aictl("--direct", "status")
        self.bridge.await_output("hands had been ended by another client")
        self.await_hands(2)
        # What another client puts into another state is put right, too.
        self.room.aictl("close")
        await_true(lambda: self.subscriber.newest("state")["running"] == [] or len(self.hands()) > len(sequence) + 3)
        self.await_hands(2)
        self.subscriber.await_newest("state", lambda _: self.as_configured())

    def test_service_killed_camera_killed_and_service_stuck(self):
        self.start_all()
        self.service.end(signal.SIGKILL)
        self.subscriber.await_newest("state", lambda state: state["service"] == "away")
        self.service = self.start_service("--recovery")
        self.await_hands(2)

        self.camera.end(signal.SIGKILL)
        self.subscriber.await_newest("state", lambda state: not state["video"])
        self.camera = self.room.camerafeed("--demo", DEMO)
        self.await_hands(2)

        os.kill(self.service.pid, signal.SIGSTOP)
        self.bridge.await_output("has not answered for 5 s; it is ended")
        os.kill(self.service.pid, signal.SIGCONT)
        self.assertEqual(self.service.process.wait(), -signal.SIGABRT)
        self.service = self.start_service("--recovery")
        self.await_hands(2)
        self.assertTrue(self.as_configured())

    def test_nothing_is_lost_over_a_broker_that_ends_or_is_killed(self):
        # It keeps the subscriber's session, so whether that one or the bridge comes back first does not matter.
        self.start_all(persistence=True)
        self.broker.process.end(signal.SIGTERM)
        self.bridge.await_output("waiting for the broker")
        time.sleep(3)  # events of this time have to wait
        self.broker.start()
        self.bridge.await_output("the broker is there", 2)
        self.await_hands(3)

        self.broker.process.end(signal.SIGKILL)
        self.broker.start()
        self.bridge.await_output("the broker is there", 3)
        late = Subscriber(self.room, self.broker.port, name="late")
        late.await_newest("state", lambda state: state["service"] == "initialised")
        late.await_newest("availability", lambda text: text == "online")
        self.await_hands(2)
        sequence = sorted({payload["sequence"] for payload in self.hands()})
        self.assertEqual(sequence, list(range(1, sequence[-1] + 1)), "an event is missing")
        self.assertEqual(self.subscriber.newest("dropped")["count"], 0)

        self.bridge.end(signal.SIGKILL)
        self.subscriber.await_newest("availability", lambda text: text == "offline")

    def test_names_and_pictures_stay_and_commands_are_off(self):
        self.start_all("[run]\nanalyses = hands\n[commands]\nallow = status, fetch-faces, delete\n")

        def ask(word, payload="{}", reply="reply/1"):
            return json.loads(subprocess.run(
                ["mosquitto_rr", "-p", str(self.broker.port), "-V", "5", "-q", "1", "-t", f"classroom/north/101/command/{word}",
                 "-e", f"classroom/north/101/{reply}", "-m", payload, "-D", "publish", "correlation-data", "c1", "-F", "%p"],
                check=True, capture_output=True, text=True).stdout)

        self.assertEqual(ask("status")["data"], {"command_code": 1001, "status": 2, "version": "0.8"})
        self.assertEqual(ask("reset")["words"], "not allowed by the room's configuration")
        self.assertEqual(ask("status", "nonsense")["error"], -12)
        self.assertEqual(ask("status", "[" * 100000)["error"], -12)
        self.assertEqual(ask("delete", '{"stuID": "Ada"}')["words"], "no such student, or no place is known of him")
        huge = self.room.folder / "huge"
        huge.write_bytes(b"x" * (32 << 20))
        subprocess.run(["mosquitto_pub", "-p", str(self.broker.port), "-V", "5", "-t", "classroom/north/101/command/status",
                        "-f", huge, "-D", "publish", "response-topic", "classroom/north/101/reply/1"], check=True)
        self.assertEqual(ask("fetch-faces")["error"], 0)
        faces = await_true(lambda: self.subscriber.newest("event/faces"), self.bridge.must_live)["event_info"]
        self.assertTrue(faces["galleries"])
        self.assertEqual({faces["image"]} | {face[key] for face in faces["galleries"] for key in ("faceImg", "showImg", "stuID")},
                         {""})
        # A request that wants its answer elsewhere gets none.
        subprocess.run(["mosquitto_pub", "-p", str(self.broker.port), "-V", "5", "-t", "classroom/north/101/command/status",
                        "-m", "{}", "-D", "publish", "response-topic", "classroom/north/102/state"], check=True)
        self.bridge.await_output("is dropped")
        self.await_hands(1)
        self.assertFalse([line for line in self.subscriber.process.lines() if '"topic":"classroom/north/102' in line])

    def test_a_store_that_is_full_drops_the_oldest_and_tells(self):
        self.extra = "store = 3\n[run]\nanalyses = hands\n"
        port = free_port()
        bridge = self.start_bridge(port)
        looking = self.room.start("looking", BIN / "aictl", "handup", "start")
        looking.await_output('"msg":1013', 6)
        self.assertTrue(bridge.alive())
        broker = Broker(self.room, port=port)
        self.subscriber = Subscriber(self.room, broker.port)
        dropped = await_true(lambda: self.subscriber.newest("dropped"))
        self.assertGreaterEqual(dropped["count"], 3)
        self.await_hands(1)
        self.assertGreater(self.hands()[0]["sequence"], 3)

    def scrape(self, port):
        """The samples by name with labels; each has its type, and docs/counters.md tells what it is."""
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/metrics") as answer:
            lines = answer.read().decode().splitlines()
        page = (ROOT / "docs/counters.md").read_text()
        types = dict(line.split()[2:4] for line in lines if line.startswith("# TYPE "))
        samples = dict(line.rsplit(" ", 1) for line in lines if not line.startswith(("#", "exposer_")))
        for name in {sample.split("{")[0] for sample in samples}:
            self.assertEqual(types[name], "counter" if name.endswith("_total") else "gauge", name)
            self.assertIn("`" + name, page)
        return {sample: float(value) for sample, value in samples.items()}

    def test_metrics_on_the_loopback(self):
        port = free_port()
        with socket.create_server(("127.0.0.1", port)):
            self.start_all(self.extra + f"[metrics]\nport = {port}\n")
            self.bridge.await_output(f"cannot serve metrics on 127.0.0.1:{port}")
        self.bridge.await_output(f"metrics are at http://127.0.0.1:{port}/metrics")
        # Before: an event is counted when the service sends it, and is here a little later.
        known = len(self.hands())
        samples = self.scrape(port)
        self.assertEqual(samples["aiservice_up"], 1)
        self.assertEqual(samples["aibridge_broker_connected"], 1)
        self.assertGreaterEqual(samples['aiservice_events_total{event="hands",code="1013"}'], known)
        self.assertGreaterEqual(samples["aibridge_sent_messages_total"], known)
        self.assertGreater(samples["aibridge_sent_bytes_total"], 100 * known)
        row = '{analysis="HandupPickStrategy"}'
        self.assertGreater(samples["aiservice_analysis_frames_total" + row], samples["aiservice_analysis_handled_total" + row])
        self.assertLess(samples["aiservice_frame_age_seconds"], 60)
        for process in ("camera", "service", "bridge"):
            label = f'{{process="{process}"}}'
            self.assertGreater(samples["aiservice_process_cpu_seconds_total" + label], 0)
            self.assertGreater(samples["aiservice_process_resident_memory_bytes" + label], 1e6)
        listening = [line.split()[1] for line in pathlib.Path("/proc/net/tcp").read_text().splitlines()
                     if line.split()[3] == "0A" and line.split()[1].endswith(f":{port:04X}")]
        self.assertEqual(listening, [f"0100007F:{port:04X}"])

        self.service.end(signal.SIGKILL)
        samples = self.scrape(port)
        self.assertEqual(samples["aiservice_up"], 0)
        self.assertNotIn('aiservice_events_total{event="hands",code="1013"}', samples)
        self.service = self.start_service("--recovery")
        self.await_hands(1)
        samples = self.scrape(port)
        self.assertEqual((samples["aiservice_restarts_total"], samples["aiservice_crashes_total"]), (1, 1))
        with socket.create_connection(("127.0.0.1", port)):  # one that asks nothing holds up no end
            self.assertEqual(self.bridge.end(), 0)

    def test_certificates_of_their_own_and_a_room_that_cannot_write_for_another(self):
        folder = self.room.folder

        def openssl(*arguments):
            subprocess.run(["openssl", *map(str, arguments)], check=True, cwd=folder, capture_output=True)

        def certificate(name, common_name, extra=()):
            openssl("req", "-newkey", "rsa:2048", "-nodes", "-keyout", f"{name}.key", "-out", f"{name}.csr", "-subj",
                    "/CN=" + common_name.replace("/", r"\/"), *extra)
            openssl("x509", "-req", "-in", f"{name}.csr", "-CA", "ca.crt", "-CAkey", "ca.key", "-CAcreateserial", "-out",
                    f"{name}.crt", "-days", "2", "-copy_extensions", "copy")
            (folder / f"{name}.key").chmod(0o600)

        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.crt", "-days", "2",
                "-subj", "/CN=ca")
        certificate("broker", "localhost", ("-addext", "subjectAltName=DNS:localhost"))
        certificate("room", "north/101")
        certificate("neighbour", "north/102")
        port = free_port()
        shutil.copy(ROOT / "packaging/mosquitto.acl", folder / "rooms.acl")
        broker = Broker(self.room, f"listener {port} 127.0.0.1\ncafile {folder}/ca.crt\ncertfile {folder}/broker.crt\n"
                        f"keyfile {folder}/broker.key\nrequire_certificate true\nuse_identity_as_username true\n"
                        f"allow_anonymous false\nacl_file {folder}/rooms.acl\n", port=port)

        def tls(name):
            return ["--cafile", folder / "ca.crt", "--cert", folder / f"{name}.crt", "--key", folder / f"{name}.key"]

        certificate("viewer", "viewer")
        self.subscriber = Subscriber(self.room, port, options=tls("viewer"), host="localhost")
        self.start_bridge(port, self.extra, broker=f"host = localhost\nca-file = {folder}/ca.crt\n"
                          f"certificate-file = {folder}/room.crt\nkey-file = {folder}/room.key")
        self.await_hands(1)
        subprocess.run(["mosquitto_pub", "-V", "5", "-h", "localhost", "-p", str(port), "-q", "1", "-t",
                        "classroom/north/101/event/hands", "-m", '{"sequence": 0}', *map(str, tls("neighbour"))], check=False,
                       capture_output=True)
        self.await_hands(1)
        self.assertNotIn(0, [payload["sequence"] for payload in self.hands()])

        # A broker with another authority behind it gets nothing; a key that others can read is refused.
        self.bridge.end()
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "other.key", "-out", "other.crt", "-days", "2",
                "-subj", "/CN=other")
        wrong = write_room(self.room, port, broker=f"host = localhost\nca-file = {folder}/other.crt")
        bridge = self.room.start("wrong", BIN / "aibridge", wrong)
        bridge.await_output("waiting for the broker")
        self.assertNotIn("the broker is there", bridge.output())
        bridge.end()
        (folder / "room.key").chmod(0o644)
        exposed = write_room(self.room, port, broker=f"host = localhost\nca-file = {folder}/ca.crt\n"
                             f"certificate-file = {folder}/room.crt\nkey-file = {folder}/room.key")
        bridge = self.room.start("exposed", BIN / "aibridge", exposed)
        self.assertEqual(bridge.process.wait(), 2)
        self.assertIn("others can read", bridge.output())
        self.assertTrue(broker.process.alive())

    def test_a_broker_that_stalls_or_lies_changes_nothing(self):
        with socket.create_server(("127.0.0.1", 0)) as liar:
            bridge = self.start_bridge(liar.getsockname()[1])
            for answer in (b"\x20\x03\x00\x86\x00", b"HTTP/1.1 200 OK\r\n\r\n" * 100, b"\xff" * 4096, b""):
                connection, _ = liar.accept()
                self.addCleanup(connection.close)
                connection.sendall(answer)
                if answer:
                    connection.close()
            looking = self.room.start("looking", BIN / "aictl", "handup", "start")
            looking.await_output('"msg":1013', 2)
            bridge.must_live()
            self.assertIn("refuses", bridge.output())


if __name__ == "__main__":
    unittest.main()
