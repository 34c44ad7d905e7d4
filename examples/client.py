#!/usr/bin/env python3
"""A complete client of the vision service in plain Python; docs/protocol.md tells bytes, commands and events.

  client.py COMMAND [ARGUMENT...]    one command; the exit code is 0 only when the service answered with 0
  client.py session                  commands from standard input, one a line, on one connection

  status | open | init [KEY=JSON...] | close | quit | reset | call CODE [JSON] | watch [COUNT [CODE]]
  fetch [DIR [STUDENT]] | students [DIR] | rename OLD NEW | replace STUDENT FILE | delete STUDENT
  register FILE=STUDENT... | external set FILE=STUDENT... | external clear      (128 by 128 JPEG files)
  handup|concentration start|stop | track start|stop STUDENT | game start|stop STUDENT... | attributes
  record start [DIR] | record stop

All analyses end when any client leaves: one that is started outside a session stays until Ctrl-C.
"""
import base64, collections, io, json, os, pathlib, re, shlex, signal, socket, struct, sys, tempfile
NUMBERS = {1: ">?", 2: ">i", 3: ">I", 4: ">q", 5: ">Q", 6: ">d"}
MODELS = dict.fromkeys(("faceMtcnn", "faceid", "ssd", "bodypose", "handup", "emotion", "faceAttr"), True)
ANALYSES = {"handup": 1030, "concentration": 1032, "track": 1034, "game": 1036}  # the code after it stops it

def encode(value):
    """One value as QDataStream (Qt 5.12) writes a QVariant: type, null flag, content."""
    def text(units):
        return struct.pack(">I", len(units)) + units
    if value is None:
        return struct.pack(">IB", 0, 1)
    if isinstance(value, str):
        return struct.pack(">IB", 10, 0) + text(value.encode("utf-16-be"))
    if isinstance(value, dict):
        entries = (text(key.encode("utf-16-be")) + encode(entry) for key, entry in sorted(value.items()))
        return struct.pack(">IBI", 8, 0, len(value)) + b"".join(entries)
    if isinstance(value, list):
        return struct.pack(">IBI", 9, 0, len(value)) + b"".join(map(encode, value))
    kind = 1 if isinstance(value, bool) else 6 if isinstance(value, float) else 2 if abs(value) < 2**31 else 4
    return struct.pack(">IB", kind, 0) + struct.pack(NUMBERS[kind], value)

def decode(take):
    """The next value; take(format) unpacks the next bytes of the payload."""
    def text():
        size = take(">I")
        return "" if size == 0xFFFFFFFF else take(f"{size}s").decode("utf-16-be", "replace")
    kind, _is_null = take(">I"), take("B")
    if kind in NUMBERS:
        return take(NUMBERS[kind])
    if kind == 8:
        return {text(): decode(take) for _ in range(take(">I"))}
    return [decode(take) for _ in range(take(">I"))] if kind == 9 else text() if kind == 10 else None

class Client:
    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(os.path.join(tempfile.gettempdir(), "AI"))
        self.stream = self.socket.makefile("rb")
        self.events, self.last = collections.deque(), 0

    def send(self, kind, code=0, data=None, identifier=None):
        """Sends a request; the answer to it has the returned number as its "rsp_id"."""
        self.last += 1
        payload = encode({"req_code": kind, "req_id": identifier or f"python-{os.getpid()}-{self.last}",
                          "req_id2": self.last, "req_data": {"command_code": code, "data": data}})
        # The first length counts the second one too: so the service never reads before all of it is there.
        self.socket.sendall(struct.pack(">II", len(payload) + 4, len(payload)) + payload)
        return self.last

    def receive(self):
        if not (payload := self.stream.read(int.from_bytes(self.stream.read(8)[4:], "big"))):
            raise ConnectionError("the service has closed the connection")
        content = io.BytesIO(payload)
        return decode(lambda form: struct.unpack(form, content.read(struct.calcsize(form)))[0])

    def answer(self, number):
        while (message := self.receive()).get("rsp_id") != number:
            self.events.append(message)
        return message

    def event(self, code=None):
        """The next event, or the next one of a code; those before it are only shown."""
        while True:
            message = self.events.popleft() if self.events else self.receive()
            if code in (None, message["msg"]):
                return message
            show(message)

def show(value):
    print(re.sub(r'"data:image/[^"]*"', '"(picture)"', json.dumps(value, ensure_ascii=False)), flush=True)

def save(folder, name, text):
    os.makedirs(folder, exist_ok=True)
    pathlib.Path(folder, name.replace("/", "_") + ".jpg").write_bytes(base64.b64decode(text.split(",")[1]))

def face(argument, student_key="stuID", image_key="faceImg"):
    path, _, student = argument.rpartition("=")
    image = "data:image/jpg;base64," + base64.b64encode(pathlib.Path(path).read_bytes()).decode()
    return {student_key: student, image_key: image, "x": 0, "y": 0, "width": 0, "height": 0}

def stay(client, code, data):
    """Shows events until Ctrl-C, which sends the stop; the answer to that ends the wait."""
    stops = []
    signal.signal(signal.SIGINT, lambda *_: stops.append(client.send(3, code, data)))
    while (message := client.receive()).get("rsp_id") not in stops:
        show(message)
    return message["rsp_error"] == 0

def run(client, stays, name, first="", *rest):
    def do(code=0, data=None, kind=3, identifier=None, event=None):
        reply = client.answer(client.send(kind, code, data, identifier))
        show(reply)
        return reply["rsp_error"] == 0 and (client.event(event)["event_info"] if event else True)
    def analysis(code):
        data = {"stuID": (rest or ("",))[0], "requestID": " ".join([name, *rest]),
                "stuList": [{"stuID": student} for student in rest]}
        if first == "stop":
            return do(code + 1, data)
        return do(code, data, identifier=data["requestID"]) and (not stays or stay(client, code + 1, data))
    settings = [word.partition("=") for word in (first, *rest)]
    commands = {
        "status": lambda: do(1001, kind=4), "open": lambda: do(kind=1), "close": lambda: do(kind=2),
        "quit": lambda: do(kind=2, identifier="self-kill"), "reset": lambda: do(1028),
        "init": lambda: do(1001, {**MODELS, **{key: json.loads(text) for key, _, text in settings if key}}),
        "call": lambda: do(int(first), json.loads(rest[0]) if rest else None),
        "watch": lambda: [show(client.event(*map(int, rest))) for _ in range(int(first or 1 << 31))] or True,
        "fetch": lambda: do(1021, {"stuID": rest[0]} if rest else {}, event=1011),
        "register": lambda: do(1022, {"galleries": [face(word) for word in (first, *rest)]}, event=1018),
        "external": lambda: do(1020, {"galleries": list(map(face, rest))}) if first == "set" else do(1027),
        "students": lambda: do(1026, event=1021), "attributes": lambda: do(1038, event=1017),
        "rename": lambda: do(1024, {"oldStuID": first, "newStuID": rest[0]}),
        "replace": lambda: do(1023, face(f"{rest[0]}={first}", "oldStuID", "faceImageBase64")),
        "delete": lambda: do(1025, {"stuID": first}),
        "record": lambda: do(1040) if first == "stop" else do(1039, {"recordPath": (rest or ("",))[0]})}
    result = analysis(ANALYSES[name]) if name in ANALYSES else commands[name]()
    if isinstance(result, dict):
        show(result)
        if first and "image" in result:
            save(first, "frame", result["image"])
        for one in result.get("galleries", result.get("bestGalleries", [])) if first else []:
            save(first, one["stuID"] or f"face-{one['gid']}", one.get("faceImg") or one["bestFaceImg"])
    return bool(result)

def main(words):
    good, line = True, []
    try:
        client = Client()
        for line in map(shlex.split, sys.stdin) if words == ["session"] else [words]:
            good = (not line or run(client, words != ["session"], *line)) and good
    except OSError as problem:
        return str(problem) if line[:1] != ["quit"] else not good
    return not good

if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]) if sys.argv[1:] else __doc__)
