"""A fleet's owner that is none: it serves the page's files and what a test wants it to say, and notes what it is asked for."""
import copy
import http.server
import json
import pathlib
import queue
import re
import threading
import time
import urllib.parse

PAGE = pathlib.Path(__file__).resolve().parents[2] / "fleet/page"
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css", ".js": "text/javascript", ".svg": "image/svg+xml"}
KEY = "the-key-of-alice"


def unit(state="active", why="", *, out=None, name="fabric", **more):
    settled = 8 if state in ("active", "inMaintenance") else 5
    return {"unit": name, "out": state != "active" if out is None else out, "why": why, "state": state,
            "ready": state == "inMaintenance", "disturbed": False, "settled": settled, "interfaces": 8, **more}


def box(name, labels, *units, heard=2, trouble=""):
    """`heard`: how many seconds ago; None: never."""
    heard = None if heard is None else time.time() - heard
    return {"box": name, "labels": labels, "heard": heard, "trouble": trouble, "units": list(units) or [unit()]}


def plan(name, state, **more):
    return {"plan": name, "state": state, "why": "", "wave": 1, "waves": 3, "units": 4, "done": 0, "by": "alice",
            "made": time.time() - 400, "waitsFor": [], **more}


class Owner:
    """What it says may be changed at any time; tell() sends it to those that listen."""

    def __init__(self, *, reachable=True):
        self.boxes, self.details, self.plans, self.whole_plans = {}, {}, [], {}
        self.budgets = {}                    # label -> how many of each of its groups may be out
        self.reachable, self.doubt, self.brakes = reachable, "", []
        self.asked = []                      # (method, path, parameters, Authorization)
        self.post_answer, self.post_seconds = (200, {}), 0
        self.answering = self.speaking = True
        self.listeners = []
        owner = self

        class Handler(CannedHandler):
            pass

        Handler.owner = owner
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.url = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def put(self, *boxes):
        for one in boxes:
            self.boxes[one["box"]] = one
        return self

    def fleet(self):
        units = [(f"{b['box']}/{u['unit']}", u, b) for b in self.boxes.values() for u in b["units"]]
        groups = {}
        for name, its, b in units:
            for label in self.budgets:
                if label in b["labels"]:
                    group = groups.setdefault(f"{label}: {b['labels'][label]}", [0, [], self.budgets[label]])
                    group[0] += 1
                    if its["out"]:
                        group[1].append({"unit": name, "why": its["why"]})
        out = sum(its["out"] for _, its, _ in units)
        silent = sum(b["heard"] is None or time.time() - b["heard"] > 45 for b in self.boxes.values())
        return {"now": time.time(), "reachable": self.reachable, "broker": "" if self.reachable else "connection refused",
                "doubt": self.doubt, "heartbeatSeconds": 15,
                "counts": {"boxes": len(self.boxes), "units": len(units), "inService": len(units) - out, "out": out,
                           "silent": silent},
                "brakes": self.brakes, "plans": self.plans,
                "groups": [{"group": name, "budget": f"at most {most} out", "units": count, "mayBeOut": most, "out": gone}
                           for name, (count, gone, most) in sorted(groups.items())]}

    def boxes_event(self, names, **more):
        return "boxes", {"now": time.time(), **more, "boxes": [self.boxes[name] for name in names]}

    def all_events(self):
        """What a stream begins with: all the boxes, in pieces of which the first says that it is."""
        names = list(self.boxes)
        size = len(names) // 2 + 1
        pieces = [names[at:at + size] for at in range(0, len(names), size)]
        return [("fleet", self.fleet()), *(self.boxes_event(piece, **({} if i else {"first": True})) for i, piece in enumerate(pieces))]

    def detail(self, name):
        whole = copy.deepcopy(self.boxes[name])
        for its in whole["units"]:
            its.update({"order": None, "unsettled": []} | self.details.get((name, its["unit"]), {}))
        return whole

    def tell(self, *names):
        self.say(*([self.boxes_event(names)] if names else []), ("fleet", self.fleet()))

    def tell_all_anew(self):
        self.say(*self.all_events())

    def say(self, *events):
        for listener in self.listeners:
            for event in events:
                listener.put(event)

    def end_streams(self):
        for listener in self.listeners:
            listener.put(None)

    def posts(self):
        return [asked for asked in self.asked if asked[0] == "POST"]


class CannedHandler(http.server.BaseHTTPRequestHandler):
    owner = None

    def log_message(self, *_):
        pass

    def answer(self, status, body, content_type="application/json"):
        body = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def note(self):
        split = urllib.parse.urlsplit(self.path)
        path = urllib.parse.unquote(split.path)
        query = urllib.parse.parse_qsl(split.query)
        self.owner.asked.append((self.command, path, query, self.headers.get("Authorization")))
        return path

    def do_POST(self):
        self.note()
        time.sleep(self.owner.post_seconds)
        if self.headers.get("Authorization") != f"Bearer {KEY}" and self.owner.post_answer[0] == 200:
            return self.answer(401, {"error": "nobody has that key"})
        return self.answer(*self.owner.post_answer)

    def do_GET(self):
        path = self.note()
        if not path.startswith("/v1/"):
            return self.file(PAGE / ("index.html" if path == "/" else path.strip("/")))
        if not self.owner.answering:
            return self.answer(503, {"error": "not now"})
        if path == "/v1/stream":
            return self.stream()
        kind, name = path.split("/")[2:4]
        if kind == "boxes" and name in self.owner.boxes:
            return self.answer(200, self.owner.detail(name))
        if kind == "plans" and name in self.owner.whole_plans:
            return self.answer(200, self.owner.whole_plans[name])
        return self.answer(404, {"error": f"there is no {kind} \"{name}\""})

    def file(self, path):
        if path.parent != PAGE or path.suffix not in TYPES or not path.exists():
            return self.answer(404, b"", "text/plain")
        # It says something ten times a second: a test need not wait for long until it has said nothing for three times
        # this.
        body = re.sub(rb'(stream-speaks-every" content=")[\d.]+', rb"\g<1>1", path.read_bytes())
        # What changes, changes because it was told.
        body = re.sub(rb"(againAfter = )\d+", rb"\g<1>1000000", body)
        return self.answer(200, body, TYPES[path.suffix])

    def stream(self):
        said = queue.Queue()
        for event in self.owner.all_events():
            said.put(event)
        self.owner.listeners.append(said)
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.end_headers()
        try:
            while True:
                try:
                    event = said.get(timeout=0.1)
                except queue.Empty:
                    if self.owner.speaking:
                        self.wfile.write(b":\n\n")
                    continue
                if event is None:
                    return
                self.wfile.write(f"event: {event[0]}\ndata: {json.dumps(event[1])}\n\n".encode())
        except OSError:
            pass
        finally:
            self.owner.listeners.remove(said)
            self.close_connection = True
