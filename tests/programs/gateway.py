#!/usr/bin/env python3
"""The gateway against the real bridge and simulator: as tools, pages and attackers use it. Usage: gateway.py BIN_DIR"""

import base64
import contextlib
import http.client
import json
import os
import random
import re
import select
import socket
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path
from urllib.parse import quote

import cbor2
import msgpack

from cockpit import Cockpit
from manners import Complaints

VOLUME = "/hmx/popups/Driver_Display/Volume"
HMI = "/hmx/regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER"
REGION = {"display": "Driver_Display", "hmi": "HMI_ID_ANDROID_DRIVER", "regions": {"infoForAllLayers": [
    {"layer": "Home", "inputRegions": [{"bounds": {"upperLeftPoint": {"posX": 1, "posY": 2}, "width": 9, "height": 9}}]}]}}
JSON, STREAM = {"Content-Type": "application/json"}, {"Accept": "text/event-stream"}

# Method, path, headers, body and the status, on a gateway that allows changes.
ANSWERS = [
    ("GET", "/hmx/displays", {}, None, 200), ("HEAD", "/hmx/displays", {}, None, 200), ("HEAD", "/hmx/displays", STREAM, None, 200),
    ("GET", "/hmx/displays/Driver_Display?fields=terminal", {}, None, 200), ("GET", "/hmx/displayables/1001", {}, None, 200),
    ("GET", "/hmx/displays?name=Driver_Display&limit=1&fields=terminal,connector", {}, None, 200), ("GET", "/hmx/popups", {}, None, 200),
    ("GET", VOLUME, {}, None, 200), ("GET", "/input/Driver_Display", {}, None, 200), ("GET", "/about", {}, None, 200),
    ("GET", "/output/displayables", {}, None, 200), ("GET", "/output", {}, None, 404), ("GET", "/output/displays", {}, None, 404),
    ("GET", "/recordings", {}, None, 404), ("GET", "/recordings/a.jsonl", {}, None, 404), ("POST", "/recordings/a.jsonl", JSON, "{}", 405),
    ("GET", "/healthz", {}, None, 200), ("GET", "/readyz", {}, None, 200), ("OPTIONS", "/hmx/displays", {}, None, 204),
    ("GET", "/hmx/displays/Nope", {}, None, 404), ("GET", "/hmx/displayz", {}, None, 404), ("GET", "/hmx", {}, None, 404),
    ("GET", "/hmx/displays/", {}, None, 404), ("GET", "/nothing", {}, None, 404), ("GET", "/input", {}, None, 404),
    ("GET", "/hmx/displays?limit=0", {}, None, 400), ("GET", "/hmx/displays?limit=x", {}, None, 400),
    ("GET", "/hmx/displays?nam=x", {}, None, 400), ("GET", "/hmx/displays?name=a&name=b", {}, None, 400),
    ("GET", "/hmx/displays?limit=1", STREAM, None, 400), ("GET", "/hmx/displays/%ff", {}, None, 400),
    ("GET", "/events", {}, None, 400), ("GET", "/events?watch=/about", {}, None, 400), ("GET", "/events?watch=/hmx/popups&x=1", {}, None, 400),
    ("GET", "/events?watch=/hmx/popups", {"Accept": "application/json"}, None, 406), ("GET", "/hmx/displays", {"Accept": "text/html"}, None, 406),
    ("GET", "/hmx/regionconfigurations", {}, None, 405), ("POST", "/hmx/displays", JSON, "{}", 405), ("PUT", VOLUME, JSON, "{}", 405),
    ("DELETE", "/about", {}, None, 405), ("POST", "/", JSON, "{}", 405), ("BREW", "/hmx/displays", {}, None, 405),
    ("PATCH", VOLUME, JSON, '{"requested":true}', 200), ("PATCH", VOLUME, JSON, '{"requested":"yes"}', 400),
    ("PATCH", VOLUME, JSON, '{"requested":true', 400), ("PATCH", VOLUME, JSON, "", 400), ("PATCH", VOLUME, {}, '{"requested":true}', 415),
    ("PATCH", VOLUME, {"Content-Type": "application/x-www-form-urlencoded"}, "requested=true", 415),
    ("PATCH", "/hmx/popups/Driver_Display/Nope", JSON, "{}", 404), ("PATCH", VOLUME, JSON, b"x" * 1_100_000, 413),
    ("POST", "/hmx/regionconfigurations", JSON, json.dumps(REGION), 201), ("GET", HMI, {}, None, 200),
    ("POST", "/hmx/regionconfigurations", JSON, '{"display":"Elsewhere"}', 400), ("PUT", HMI, JSON, json.dumps(REGION), 200),
    ("DELETE", HMI, {}, None, 204), ("DELETE", HMI, {}, None, 404), ("GET", HMI, {}, None, 404),
    ("GET", "/about", {"Host": "evil.example"}, None, 403), ("GET", "/about", {"Origin": "http://evil.example"}, None, 403),
    ("PATCH", VOLUME, {"Origin": "null", **JSON}, '{"requested":true}', 403),
    ("OPTIONS", VOLUME, {"Origin": "http://evil.example", "Access-Control-Request-Method": "PATCH"}, None, 403),
]

# Request targets that look for the file beside the page's directory, and for the link within it.
TRICKS = ["/../secret", "/%2e%2e/secret", "/..%2fsecret", "/assets/../../secret", "//../secret", "/assets/..%5c..%5csecret", "/link",
          "/.hidden", "/assets", "/assets/", "/index.html/", "/INDEX.HTML", "/%00index.html", "/folder/secret", "http://localhost/../secret"]


# Names that look for what is beside the directory of recordings, or in it and none.
RECORDING_TRICKS = ["../secret.jsonl", "..%2fsecret.jsonl", "%2e%2e%2fsecret.jsonl", "..%5csecret.jsonl", "./a.jsonl", "/a.jsonl", "a.jsonl/",
                    "a.jsonl%00", "%00a.jsonl", "link.jsonl", "inner.jsonl", "folder.jsonl", "folder.jsonl/secret.jsonl", "pipe.jsonl",
                    ".hidden.jsonl", ".jsonl", "notes.txt", "A.JSONL", "..", "%2e%2e", "a.jsonl%2f..%2fa.jsonl", "%ff.jsonl", "x" * 300 + ".jsonl"]

# Range, If-Range, the status, and the bytes of a recording of 200,000 bytes.
RANGES = [("bytes=0-9", None, 206, (0, 10)), ("bytes=199990-", None, 206, (199990, 200000)), ("bytes=-5", None, 206, (199995, 200000)),
          ("bytes=150000-999999999", None, 206, (150000, 200000)), ("bytes=0-", None, 200, (0, 200000)), ("bytes=5-4", None, 200, (0, 200000)),
          ("bytes=0-1,5-6", None, 200, (0, 200000)), ("lines=0-1", None, 200, (0, 200000)), ("bytes=-", None, 200, (0, 200000)),
          ("bytes=0-1", "own", 206, (0, 2)), ("bytes=0-1", '"other"', 200, (0, 200000)), ("bytes=200000-", None, 416, None),
          ("bytes=-0", None, 416, None), ("bytes=99999999999999999999-", None, 200, (0, 200000))]


class Gateway:
    """A gateway beside a cockpit, with a directory as its page."""

    def __init__(self, cockpit, *options, page=None, address="127.0.0.1:0"):
        words = [cockpit.binaries / "hmxgateway", "--listen", address, *options, *(["--page", page] if page else [])]
        self.process = subprocess.Popen(words, env=cockpit.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.url = self.process.stdout.readline().strip().removeprefix("hmxgateway: ")
        self.port = int(self.url.rsplit(":", 1)[1].strip("/")) if "://" in self.url else None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.status = self.process.wait(10)
        self.process.stdout.close()

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), timeout=30)

    def ask(self, method, path, headers=None, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        try:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, dict(answer.getheaders()), answer.read()
        finally:
            connection.close()

    def json(self, path, **headers):
        return json.loads(self.ask("GET", path, headers)[2])

    def raw(self, request):
        """The first bytes of the answer to a request as it stands."""
        with self.connect() as connection:
            connection.sendall(request)
            return connection.recv(4096)

    def memory(self):
        """Resident, in MiB."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s*(\d+)", status)[1]) / 1024

    def refusals(self, reason):
        return int(re.search(rf'refused_total{{reason="{reason}"}} (\d+)', self.ask("GET", "/metrics")[2].decode())[1])


class Watch:
    """An event stream, read as EventSource reads it."""

    def __init__(self, gateway, path, last_id=None):
        self.connection = http.client.HTTPConnection("127.0.0.1", gateway.port, timeout=30)
        self.connection.request("GET", path, headers={**STREAM, **({"Last-Event-ID": last_id} if last_id else {})})
        self.answer, self.id = self.connection.getresponse(), last_id

    def next(self, *kinds):
        """The next event of these kinds, or of any: its kind and its data."""
        event = {}
        while True:
            line = self.answer.readline().decode().rstrip("\n")
            if line and not line.startswith(":"):
                key, value = line.split(": ", 1)
                event[key] = value
            elif "event" in event:
                self.id = event["id"]
                if not kinds or event["event"] in kinds:
                    return event["event"], json.loads(event["data"])
                event = {}
            elif not line and not self.answer.fp:
                raise EOFError
            else:
                event = {}

    def until(self, holds):
        """Follows the state, element by id, until it is as wanted."""
        state = {}
        while True:
            kind, data = self.next()
            if kind == "snapshot":
                state = {each["id"]: each for each in data["elements"]}
            elif kind == "changed":
                state[data["element"]["id"]] = data["element"]
            elif kind == "removed":
                state.pop(data["id"], None)
            if kind != "lost" and holds(state):
                return state

    def close(self):
        self.answer.close()
        self.connection.close()


def check_answers(cockpit, complaints):
    with Gateway(cockpit, "--allow-changes") as gateway:
        for method, path, headers, body, expected in ANSWERS:
            status, got, content = gateway.ask(method, path, headers, body)
            said = f"{method} {path} {headers}: {status} {got} {content[:300]}"
            complaints.unless(status == expected, f"not {expected}: {said}")
            if status >= 400 and method != "HEAD":
                problem = json.loads(content) if got.get("Content-Type") == "application/problem+json" else {}
                complaints.unless(problem.get("status") == status and problem.get("detail") and problem.get("title"), f"no problem: {said}")
            complaints.unless(status != 405 or "Allow" in got, f"no Allow: {said}")
            if status == 201:
                complaints.unless(gateway.ask("GET", got["Location"])[0] == 200, f"no such location: {said}")
        expected = {"version": gateway.json("/openapi.json")["info"]["version"], "changes": True, "recordings": False}
        complaints.unless(gateway.json("/about") == expected, "about")
        again = gateway.raw(b"GET /about HTTP/1.1\r\nHost: localhost\r\nHost: evil.example\r\n\r\n")
        complaints.unless(b" 403 " in again, f"two hosts: {again}")
    complaints.unless(gateway.status == 0, f"ended with {gateway.status}")
    with Gateway(cockpit) as gateway:
        for method, path, headers, body, expected in ANSWERS:
            if method in ("POST", "PUT", "PATCH", "DELETE") and expected in (200, 201, 204):
                status = gateway.ask(method, path, headers, body)[0]
                complaints.unless(status == 403, f"{method} {path}: {status} though it only reads")
        complaints.unless(not any(set(each) - {"get", "parameters"} for each in gateway.json("/openapi.json")["paths"].values()),
                          "changes are described though they are not allowed")


def check_documents(cockpit, complaints):
    with Gateway(cockpit) as gateway:
        shown = cockpit.ctl("list", "displays", "-o", "raw").stdout
        status, headers, document = gateway.ask("GET", "/hmx/displays")
        complaints.unless(document.decode() == shown, f"not what the bridge sent: {document} {shown}")
        for tags, expected in ((headers["ETag"], 304), (f'"x", W/{headers["ETag"]}', 304), ('"x"', 200)):
            status, _, body = gateway.ask("GET", "/hmx/displays", {"If-None-Match": tags})
            complaints.unless(status == expected and (status == 200 or not body), f"{tags}: {status} {body}")
        expected = [each.get("terminal") for each in json.loads(document)["data"]]
        for accept, read in (("application/cbor", cbor2.loads), ("application/json;q=0.1, application/vnd.msgpack", msgpack.loads)):
            _, headers, body = gateway.ask("GET", "/hmx/displays?fields=terminal", {"Accept": accept})
            terminals = [each.get("terminal") for each in read(body)["data"]]
            complaints.unless(terminals == expected and headers["Content-Type"] in accept, f"{accept}: {terminals} {headers}")
        popups = gateway.json("/hmx/popups")
        complaints.unless(popups["total"] == len(popups["data"]) == 8, f"popups of all displays: {popups}")
        surface = gateway.json("/input/Driver_Display")["elements"][0]
        complaints.unless(surface["id"] == "Driver_Display" and "inactiveLayers" in surface, f"surface: {surface}")
        placements = gateway.json("/output/displayables")["elements"]
        complaints.unless(placements[0]["id"] == "1001" and placements[0]["layers"][0]["name"] == "Map", f"placements: {placements}")
        check_description(gateway, complaints)
        metrics = gateway.ask("GET", "/metrics")[2].decode()
        line = re.compile(r'# (TYPE|HELP) [a-z_]+ .+|[a-z_]+(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})? \d+|# EOF')
        complaints.unless(all(line.fullmatch(each) for each in metrics.splitlines()) and metrics.endswith("# EOF\n"), metrics)
        for expected in ('hmxgateway_requests_total{resource="displays",status="304"} 2', 'hmx_upstream_up{service="/hmxpopupmanager"} 1',
                         "hmx_bridge_up 1"):
            complaints.unless(expected in metrics, f"no {expected} in {metrics}")
        complaints.unless(re.search(r"^hmx_bridge_requests_accepted_total [1-9]", metrics, re.M), metrics)


def check_description(gateway, complaints):
    """Every reference leads somewhere, and every path that reads without a name of its own answers."""
    description = gateway.json("/openapi.json")
    schemas = description["components"]["schemas"]
    for name in re.findall(r'"\$ref": ?"#/components/schemas/([^"]+)"', json.dumps(description)):
        complaints.unless(name in schemas, f"no schema {name}")
    operations = [each["operationId"] for path in description["paths"].values() for key, each in path.items() if key != "parameters"]
    complaints.unless(len(operations) == len(set(operations)), f"operation ids: {operations}")
    for path, methods in description["paths"].items():
        if "{" not in path and path != "/events" and "get" in methods:
            complaints.unless(gateway.ask("GET", path)[0] == 200, f"described, but not there: {path}")


def check_page(cockpit, complaints):
    with tempfile.TemporaryDirectory() as folder:
        page = Path(folder, "page")
        (page / "assets").mkdir(parents=True)
        (page / "index.html").write_text("<!doctype html>")
        (page / "assets/app-1.js").write_text("let x;")
        (page / ".hidden").write_text("SECRET")
        Path(folder, "secret").write_text("SECRET")
        (page / "link").symlink_to("../secret")
        (page / "folder").symlink_to("..")
        with Gateway(cockpit, page=page) as gateway:
            status, headers, body = gateway.ask("GET", "/")
            complaints.unless((status, body) == (200, b"<!doctype html>") and headers["Content-Type"].startswith("text/html")
                              and headers["Content-Security-Policy"].startswith("default-src 'self'")
                              and headers["X-Content-Type-Options"] == "nosniff", f"page: {status} {headers} {body}")
            status, headers, _ = gateway.ask("GET", "/assets/app-1.js")
            complaints.unless(status == 200 and "immutable" in headers["Cache-Control"], f"asset: {status} {headers}")
            complaints.unless(gateway.ask("GET", "/assets/app-1.js", {"If-None-Match": headers["ETag"]})[0] == 304, "asset again")
            for target in TRICKS:
                answer = gateway.raw(f"GET {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
                complaints.unless(re.match(rb"HTTP/1.1 40[04] ", answer) and b"SECRET" not in answer, f"{target}: {answer}")


def check_recordings(cockpit, complaints):
    """What is in the directory can be read, while it grows, too; what is not cannot."""
    with tempfile.TemporaryDirectory() as folder:
        own = Path(folder, "own")
        (own / "folder.jsonl").mkdir(parents=True)
        content = b"".join(b'{"t":%013d}\n' % number for number in range(10_000))
        (own / "a.jsonl").write_bytes(content)
        (own / "Fahrt 2 \u00fc.jsonl").write_bytes(b"x")
        for name in ("notes.txt", ".hidden.jsonl", "folder.jsonl/secret.jsonl", "../secret.jsonl"):
            (own / name).write_text("SECRET")
        (own / "link.jsonl").symlink_to("../secret.jsonl")
        (own / "inner.jsonl").symlink_to("a.jsonl")
        os.mkfifo(own / "pipe.jsonl")
        os.utime(own / "a.jsonl", (1, 1_700_000_000.125))
        with Gateway(cockpit, "--recordings", own) as gateway:
            listed = gateway.json("/recordings")
            complaints.unless([each["name"] for each in listed["recordings"]] == ["Fahrt 2 \u00fc.jsonl", "a.jsonl"] and not listed["more"]
                              and listed["recordings"][1] == {"name": "a.jsonl", "size": 200_000, "modified": "2023-11-14T22:13:20.125Z"},
                              f"list: {listed}")
            complaints.unless(gateway.ask("GET", "/recordings/Fahrt%202%20%C3%BC.jsonl")[2] == b"x", "a name with a blank")
            for name in RECORDING_TRICKS:
                answer = gateway.raw(f"GET /recordings/{name} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
                complaints.unless(re.match(rb"HTTP/1.1 40[04] ", answer) and b"SECRET" not in answer, f"recording {name}: {answer}")
            status, headers, body = gateway.ask("GET", "/recordings/a.jsonl")
            complaints.unless((status, body == content, headers["Content-Type"]) == (200, True, "application/jsonl")
                              and headers["X-Content-Type-Options"] == "nosniff" and headers["Content-Length"] == "200000", f"whole: {status} {headers}")
            for ask, condition, expected, span in RANGES:
                more = {"If-Range": headers["ETag"] if condition == "own" else condition} if condition else {}
                status, got, body = gateway.ask("GET", "/recordings/a.jsonl", {"Range": ask, **more})
                complaints.unless(status == expected and (span is None or body == content[slice(*span)]), f"{ask}: {status} {got} {len(body)} bytes")
                if status == 206:
                    complaints.unless(got["Content-Range"] == f"bytes {span[0]}-{span[1] - 1}/200000", f"{ask}: {got}")
            complaints.unless(gateway.ask("HEAD", "/recordings/a.jsonl")[1]["Content-Length"] == "200000", "HEAD")
            complaints.unless(gateway.ask("GET", "/recordings/a.jsonl", {"If-None-Match": headers["ETag"]})[0] == 304, "the same again")
            # One that is being written ends where it ended when it was asked for, and one that is cut ends early.
            with open(own / "a.jsonl", "ab") as file:
                file.write(b"{}\n")
            status, grown, body = gateway.ask("GET", "/recordings/a.jsonl", {"If-None-Match": headers["ETag"]})
            complaints.unless(status == 200 and body == content + b"{}\n" and grown["ETag"] != headers["ETag"], f"grown: {status} {grown}")
            # As many as may be sent at once, to clients that do not read, leave the others alone.
            with open(own / "large.jsonl", "wb") as file:
                file.truncate(64 << 20)
            unread = [gateway.connect() for _ in range(8)]
            for each in unread:
                each.sendall(b"GET /recordings/large.jsonl HTTP/1.1\r\nHost: localhost\r\n\r\n")
                complaints.unless(each.recv(12) == b"HTTP/1.1 200", "a recording to one who does not read")
            complaints.unless(gateway.ask("GET", "/recordings/a.jsonl")[0] == 503 and gateway.refusals("recordings") == 1, "nine at once")
            complaints.unless(gateway.ask("GET", "/hmx/displays")[0] == 200 and gateway.memory() < 12, f"memory: {gateway.memory()} MiB")
            os.truncate(own / "large.jsonl", 0)
            unread[0].settimeout(20)
            received = 0
            while piece := unread[0].recv(1 << 20):
                received += len(piece)
            complaints.unless(received < 64 << 20, f"a recording that was cut: {received} bytes")
            for each in unread:
                each.close()
            check_description(gateway, complaints)
            metrics = gateway.ask("GET", "/metrics")[2].decode()
            complaints.unless('resource="recordings",status="206"' in metrics and "Fahrt" not in metrics, metrics)


def check_streams(cockpit, complaints):
    """Changes, losses and returns as viewers see them."""
    with Gateway(cockpit, "--allow-changes") as gateway:
        watch, both = Watch(gateway, VOLUME), Watch(gateway, "/events?watch=/hmx/displays&watch=" + quote("/input/Driver_Display", ""))
        kind, data = watch.next()
        complaints.unless(kind == "snapshot" and [each["name"] for each in data["elements"]] == ["Volume"], f"first: {kind} {data}")
        names = {both.next("snapshot")[1]["watch"] for _ in range(2)}
        complaints.unless(names == {"/hmx/displays", "/input/Driver_Display"}, f"both: {names}")
        requested = data["elements"][0]["requested"]
        gateway.ask("PATCH", VOLUME, JSON, json.dumps({"requested": not requested}))
        kind, data = watch.next()
        complaints.unless(kind == "changed" and data["element"]["requested"] is not requested, f"changed: {kind} {data}")
        gateway.ask("POST", "/hmx/regionconfigurations", JSON, json.dumps(REGION))
        kind, data = both.next("changed")
        complaints.unless(data["watch"] == "/input/Driver_Display" and "9" in json.dumps(data["data"]), f"surface: {data}")
        last = watch.id
        watch.close()
        gateway.ask("PATCH", VOLUME, JSON, json.dumps({"requested": requested}))
        back = Watch(gateway, VOLUME, last)
        kind, data = back.next()
        complaints.unless(kind == "changed" and data["element"]["requested"] is requested, f"gone on: {kind} {data}")
        for victim, restart in (("hmxtolubridge", ["hmxtolubridge"]), ("hmxsim", ["hmxsim", "--world", "cockpit"])):
            cockpit.stop(victim, 9)
            kind, data = back.next()
            complaints.unless(kind == "lost" and data["reason"] and data["service"] and data["since"].endswith("Z"), f"{victim}: {kind} {data}")
            refused = gateway.ask("GET", VOLUME)
            complaints.unless(refused[0] == 503 and json.loads(refused[2])["sent"] == "no" and "Retry-After" in refused[1], f"{victim}: {refused}")
            complaints.unless((gateway.ask("GET", "/readyz")[0] == 503) == (victim == "hmxtolubridge"), f"ready without {victim}")
            cockpit.start(*restart)
            kinds = [back.next()[0] for _ in range(2)]
            complaints.unless(kinds == ["back", "snapshot"], f"return of {victim}: {kinds}")
        for each in (both, back):
            each.close()
        cockpit.wait_for("/hmx")


def check_kills(cockpit, complaints):
    """Bridge and simulator are killed at random while things change: every viewer ends at the true state and never sees an empty one."""
    chance = random.Random(os.environ.get("SEED", "1"))
    paths = ["/hmx/popups", "/hmx/displays", "/hmx/layerconfigurations", "/hmx/displayables", "/input/Driver_Display", "/output/displayables"]
    with Gateway(cockpit, "--allow-changes") as gateway:
        viewers = [(path, Watch(gateway, path)) for path in paths * 10]
        faults = [[] for _ in viewers]
        states = [{} for _ in viewers]
        done = threading.Event()

        def follow(number, watch):
            lost = False
            while True:
                try:
                    kind, data = watch.next()
                except (EOFError, OSError):
                    return faults[number].append("cut") if not done.is_set() else None
                if kind == "snapshot":
                    states[number] = {each["id"]: each for each in data["elements"]}
                    if not states[number] or len(states[number]) != len(data["elements"]):
                        faults[number].append(f"snapshot of {len(data['elements'])} elements with {len(states[number])} ids")
                elif kind == "changed":
                    states[number][data["element"]["id"]] = data["element"]
                elif kind == "removed":
                    faults[number].append(f"removed: {data}")
                if kind in ("lost", "back"):
                    if lost == (kind == "lost"):
                        faults[number].append(f"{kind} twice")
                    lost = kind == "lost"

        threads = [threading.Thread(target=follow, args=(number, watch), daemon=True) for number, (_, watch) in enumerate(viewers)]
        for thread in threads:
            thread.start()
        for number in range(8):
            for _ in range(chance.randrange(20)):
                gateway.ask("PATCH", VOLUME, JSON, json.dumps({"requested": chance.random() < 0.5, "requestData": str(number)}))
            victim, restart = chance.choice((("hmxtolubridge", ["hmxtolubridge"]), ("hmxsim", ["hmxsim", "--world", "cockpit"])))
            cockpit.stop(victim, 9)
            time.sleep(chance.random() / 4)
            cockpit.start(*restart)
            time.sleep(chance.random() / 2)
        cockpit.wait_for("/hmx")
        truth = {}
        for path in paths:
            while (answer := gateway.ask("GET", path))[0] != 200:
                time.sleep(0.05)
            document = json.loads(answer[2])
            truth[path] = {each["id"]: each for each in document.get("data", document.get("elements"))}
        until = time.monotonic() + 10
        while time.monotonic() < until and any(states[number] != truth[path] for number, (path, _) in enumerate(viewers)):
            time.sleep(0.05)
        done.set()
        for number, (path, _) in enumerate(viewers):
            complaints.unless(states[number] == truth[path], f"{path}: {states[number]} is not {truth[path]}")
            complaints.unless(not faults[number], f"{path}: {faults[number]}")


def check_crowd(cockpit, complaints):
    """Viewers that read, viewers that never do, connections that send nothing or too slowly: nobody holds up another."""
    with Gateway(cockpit, "--allow-changes") as gateway:
        slow = gateway.connect()
        slow.sendall(b"GET /about HTTP/1.1\r\nHost: localhost\r\n")
        body = gateway.connect()
        body.sendall(b"PATCH " + VOLUME.encode() + b" HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\nContent-Length: 9\r\n\r\n{")
        begun = time.monotonic()
        half_open = [gateway.connect() for _ in range(1000)]
        sleepers = []
        for _ in range(50):
            sleepers.append(gateway.connect())
            sleepers[-1].setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            sleepers[-1].sendall(b"GET /hmx/popups HTTP/1.1\r\nHost: localhost\r\nAccept: text/event-stream\r\n\r\n")
        viewers = [Watch(gateway, "/hmx/popups") for _ in range(50)]
        complaints.unless(gateway.ask("GET", "/hmx/displays")[0] == 200, "no answer beside 1,000 half-open connections")
        for viewer in viewers:
            viewer.next("snapshot")
        for number in range(600):
            changed = gateway.ask("PATCH", VOLUME, JSON, json.dumps({"requested": True, "requestData": str(number) + "x" * 900}))
            complaints.unless(changed[0] == 200, f"change {number}: {changed}")
            if number % 8 == 0:  # two changes in one turn, the viewers behind
                for viewer in viewers[:2]:
                    viewer.next()
        for viewer in viewers:
            viewer.until(lambda state: any(each.get("requestData", "").startswith("599x") for each in state.values()))
        complaints.unless(gateway.memory() < 40 or "SANITIZE" in os.environ, f"{gateway.memory():.1f} MiB with a crowd")
        for name, connection in (("slow_headers", slow), ("slow_body", body)):
            while time.monotonic() < begun + 14 and not select.select([connection], [], [], 0.5)[0]:
                with contextlib.suppress(OSError):
                    connection.sendall(b"x")  # each byte in time, the whole not
            answer = connection.recv(4096)
            complaints.unless(b" 408 " in answer and gateway.refusals(name) >= 1, f"{name}: {answer}")
        for connection in (*half_open, *sleepers, slow, body):
            connection.close()
        for viewer in viewers:
            viewer.close()
        complaints.unless(gateway.ask("GET", "/healthz")[0] == 200, "no answer after the crowd")


def check_admission(cockpit, complaints):
    """Tokens, Unix sockets, other users, foreign origins that are admitted."""
    with tempfile.TemporaryDirectory() as folder:
        token = Path(folder, "token")
        token.write_text("0123456789abcdef\n")
        for mode, words, code in ((0o644, ["--listen", "127.0.0.1:0", "--token-file", token], 6), (0o600, ["--listen", "0.0.0.0:0"], 2),
                                  (0o600, ["--listen", "localhost:0"], 2), (0o600, ["--listen", "unix:/nowhere/x"], 1), (0o600, ["--nope"], 2),
                                  (0o600, ["--page", folder], 1), (0o600, ["--allow-origin", "evil"], 2), (0o600, ["--help"], 0)):
            token.chmod(mode)
            ended = cockpit.run([cockpit.binaries / "hmxgateway", *words], timeout=20)
            complaints.unless(ended.returncode == code and (code == 0 or ended.stderr.startswith("hmxgateway: ")), f"{words}: {ended}")
        with Gateway(cockpit, "--token-file", token, "--allow-origin", "https://panel.example", address="0.0.0.0:0") as gateway:
            basic = base64.b64encode(b"me:0123456789abcdef").decode()
            for headers, expected in (({}, 401), ({"Authorization": "Bearer 0123456789abcdeF"}, 401),
                                      ({"Authorization": "Bearer 0123456789abcdef"}, 200), ({"Authorization": "Basic " + basic}, 200)):
                status, got, _ = gateway.ask("GET", "/healthz", headers)
                complaints.unless(status == expected and (status == 200 or "WWW-Authenticate" in got), f"{headers}: {status} {got}")
            foreign = {"Origin": "https://panel.example", "Authorization": "Basic " + basic}
            for method, extra, expected in (("GET", {}, 200), ("OPTIONS", {"Access-Control-Request-Method": "GET"}, 204)):
                status, got, _ = gateway.ask(method, "/hmx/displays", {**foreign, **extra})
                complaints.unless(status == expected and got.get("Access-Control-Allow-Origin") == "https://panel.example", f"{method}: {status} {got}")
        path = Path(folder, "socket")
        with Gateway(cockpit, address=f"unix:{path}") as gateway:
            with socket.socket(socket.AF_UNIX) as connection:
                connection.connect(str(path))
                connection.sendall(b"GET /about HTTP/1.1\r\nHost: anything\r\n\r\n")
                answer = connection.recv(4096)
            complaints.unless(b" 200 " in answer and path.stat().st_mode & 0o077 == 0, f"Unix socket: {answer}")
            if os.geteuid() == 0:
                path.chmod(0o666)
                os.chmod(folder, 0o755)
                asked = subprocess.run(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "curl", "-s", "--unix-socket", path,
                                        "http://localhost/about"], capture_output=True, text=True, check=False)
                complaints.unless(asked.returncode == 127 or '"status":403' in asked.stdout, f"another user: {asked}")
        complaints.unless(not path.exists(), "the socket is left behind")


def main():
    complaints = Complaints()
    with Cockpit(sys.argv[1]) as cockpit:
        for check in (check_answers, check_documents, check_page, check_recordings, check_admission, check_streams, check_kills, check_crowd):
            begun = time.monotonic()
            check(cockpit, complaints)
            print(f"{check.__name__}: {time.monotonic() - begun:.1f} s", flush=True)
    print("\n".join(complaints) or f"{len(ANSWERS)} requests are answered as they should be")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
