#!/usr/bin/env python3
"""The Python client with the real programs, and with providers that misbehave. Usage: python_client.py BIN_DIR"""

import contextlib
import json
import os
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

from cockpit import Cockpit
from manners import Complaints

MODULE = Path(__file__).resolve().parents[2] / "examples/python"
sys.path.insert(0, str(MODULE))
sys.dont_write_bytecode = True
import hmx  # noqa: E402

VOLUME = "popups/Driver_Display/Volume"
HMI = "HMI_ID_ANDROID_DRIVER"
CONFIGURATION = f"regionconfigurations/Driver_Display/{HMI}"
REGIONS = {"infoForAllLayers": [{"layer": "Home", "inputRegions": [{"bounds": {"width": 9, "height": 9}}]}]}
WIDER = {"infoForAllLayers": [{"layer": "Home", "inputRegions": [{"bounds": {"width": 99, "height": 9}}]}]}

# Calls that fail at once: the call, the class of its error, and a word of it.
FAILURES = [
    (lambda c: c.retrieve("displayz"), hmx.UsageError, "popups"), (lambda c: c.get("displays"), hmx.UsageError, "displays/NAME"),
    (lambda c: c.get("popups/Volume"), hmx.UsageError, "DISPLAY/NAME"), (lambda c: c.get("displayables/Map"), hmx.UsageError, "NUMBER"),
    (lambda c: c.retrieve("regionconfigurations"), hmx.UsageError, "one by one"),
    (lambda c: c.retrieve("popups", limit=1), hmx.UsageError, "display="), (lambda c: c.retrieve("displays", a={1}), hmx.UsageError, "JSON"),
    (lambda c: c.insert("displays", a="x" * 2**20), hmx.UsageError, "larger"),
    (lambda c: c.retrieve("displays", timeout=float("inf")), hmx.UsageError, "seconds"),
    (lambda c: c.retrieve("displays", limit=0), hmx.Refused, "limit"),
    (lambda c: c.retrieve("popups", display="Nope"), hmx.NotFound, "Nope"),
    (lambda c: c.get("displays/Nope"), hmx.NotFound, "404"), (lambda c: c.get(CONFIGURATION), hmx.NotFound, "404"),
    (lambda c: c.delete("displays/Driver_Display"), hmx.NotFound, "404"), (lambda c: next(c.watch("displays/Nope")), hmx.NotFound, "404"),
    (lambda c: c.wait("displays/Nope", timeout=0.2), hmx.Timeout, "no such element"),
    (lambda c: c.wait(VOLUME, lambda popup: False, timeout=0.2), hmx.Timeout, "did not hold"),
]


def failure(call, *arguments):
    """The error that a call ends with, and how long it took; None for one that ends well."""
    begun = time.monotonic()
    try:
        call(*arguments)
    except hmx.Error as error:
        return error, time.monotonic() - begun
    return None, time.monotonic() - begun


def check_resources(cockpit, client, complaints):
    for resource, count in (("displays", 3), ("displayables", 12), ("layerconfigurations", 3), ("popups", 8)):
        page = client.retrieve(resource)
        complaints.unless(len(page) == page.total == count and page.total_pages == 1, f"{resource}: {page}")
        listed = json.loads(cockpit.ctl("list", resource, "-o", "json").stdout)["data"]
        complaints.unless(sorted(map(str, page)) == sorted(map(str, listed)), f"{resource}: {page} is not {listed}")
    display = client.get("displays/Driver_Display", fields=["resolution"])
    complaints.unless(set(display) == {"id", "name", "uri", "resolution"}, f"fields: {display}")
    for name, there in ((display["uri"], "Driver_Display"), (f"displays/{display['id']}", "Driver_Display"), (VOLUME, "Volume"),
                        ("displayables/1001", "Map_Main"), ("layerconfigurations/Driver_Display", "")):
        complaints.unless(client.get(name)["name"] == client.retrieve(name)[0]["name"] == there, f"not found as {name}")
    complaints.unless(str(hmx.element_id("displays/Driver_Display")) == display["id"], "the id of a name differs")
    slots = [popup["slot"] for popup in client.retrieve("popups", display="Driver_Display", slot="center")]
    complaints.unless(slots == ["center"] * 3, f"a filter: {slots}")
    page, seen = client.retrieve("displayables", limit=5), []
    while page.next:
        seen += [each["name"] for each in page]
        page = client.retrieve("displayables", **page.next)
    seen += [each["name"] for each in page]
    complaints.unless(seen == [each["name"] for each in client.retrieve("displayables")], f"pages: {seen}")


def check_changes(_, client, complaints):
    uri = client.insert("regionconfigurations", {"display": "Driver_Display"}, hmi=HMI, regions=REGIONS)
    complaints.unless(client.get(uri)["regions"] == REGIONS, f"inserted: {client.get(uri)}")
    complaints.unless(client.update(CONFIGURATION, regions=WIDER) == uri and client.get(uri)["regions"] == WIDER, "the update is lost")
    client.delete(uri)
    complaints.unless(isinstance(failure(client.get, uri)[0], hmx.NotFound), "the delete is lost")
    for call, kind, word in FAILURES:
        error, _ = failure(call, client)
        expected = isinstance(error, kind) and word in str(error)
        sent = kind is not hmx.UsageError or error.outcome is not hmx.Outcome.NOT_SENT
        complaints.unless(expected and sent == (kind is not hmx.UsageError), f"{kind.__name__} {word}: {error!r}")


def kinds(watch, count, timeout=20.0):
    """The next events and their kinds, without spaces."""
    events = [watch.next(timeout) for _ in range(count)]
    return events, [type(event).__name__ for event in events]


def check_watch(cockpit, client, complaints):
    """Changes, then the end and the return of the upstream, of the bridge, and of the element itself."""
    with client.watch(VOLUME) as one, client.watch("popups", display="Driver_Display", fields=["visible"]) as all_of_display:
        complaints.unless(kinds(one, 1)[1] + kinds(all_of_display, 1)[1] == ["Snapshot", "Snapshot"], "no snapshots")
        client.update(VOLUME, requested=True)
        (changed,), said = kinds(one, 1)
        complaints.unless(said == ["Changed"] and changed.element["visible"] and not changed.before["visible"], f"{changed}")
        shown = client.wait("popups", lambda popup: popup["visible"], name="Volume")
        complaints.unless(shown["name"] == "Volume", f"waited for {shown}")
        complaints.unless(kinds(all_of_display, 1)[1] == ["Changed"] and one.next(0.05) is None, "a change is told twice or never")
        for program, words in (("hmxsim", ("--world", "cockpit")), ("hmxtolubridge", ())):
            cockpit.stop(program, signal.SIGKILL)
            (lost,), said = kinds(one, 1)
            complaints.unless(said == ["Lost"] and lost.error.outcome is hmx.Outcome.UNKNOWN, f"{program}: {lost}")
            begun = time.monotonic()
            complaints.unless(one.next(0.3) is None and 0.3 <= time.monotonic() - begun < 5, "a limited wait takes its own time")
            cockpit.start(program, *words)
            (_, snapshot), said = kinds(one, 2)
            complaints.unless(said == ["Back", "Snapshot"] and snapshot.elements[0]["name"] == "Volume", f"{program} returned: {said}")
            complaints.unless(kinds(all_of_display, 3)[1] == ["Lost", "Back", "Snapshot"], f"{program}: the list")
        cockpit.ctl("sim", "remove", VOLUME)
        complaints.unless(kinds(one, 1)[1] + kinds(all_of_display, 1)[1] == ["Removed", "Removed"], "the removal")
        cockpit.ctl("sim", "add", "popups/Driver_Display", "name=Volume", "slot=top")
        complaints.unless(kinds(one, 1)[1] + kinds(all_of_display, 1)[1] == ["Added", "Added"], "the return of the popup")
    cockpit.ctl("sim", "fault", "popupmanager", "delay_ms=900")
    with hmx.connect(runtime_dir=cockpit.environment["KELO_RUNTIME_DIR"], timeout=0.3) as hasty:
        with hasty.watch("popups", display="Driver_Display") as late:
            said = kinds(late, 3)[1]
        complaints.unless(said == ["Lost", "Back", "Snapshot"], f"an upstream that is slow: {said}")
    cockpit.ctl("sim", "fault", "popupmanager", "clear")


def check_limits(cockpit, client, complaints):
    """A bridge that stands still, and none at all."""
    runtime = cockpit.environment["KELO_RUNTIME_DIR"]
    client.retrieve("displays")  # connects
    process = cockpit.processes["hmxtolubridge"]
    process.send_signal(signal.SIGSTOP)
    os.waitpid(process.pid, os.WUNTRACED)
    try:
        for call, outcome in ((lambda: client.retrieve("displays", timeout=0.3), hmx.Outcome.UNKNOWN),
                              (lambda: client.update(VOLUME, requested=False, timeout=0.3), hmx.Outcome.UNKNOWN),
                              (lambda: hmx.connect(runtime_dir=runtime, timeout=0.3), hmx.Outcome.NOT_SENT)):
            error, took = failure(call)
            complaints.unless(isinstance(error, hmx.Timeout) and error.outcome is outcome and 0.3 <= took < 5, f"stopped: {error!r} {took}")
            complaints.unless(outcome.value in str(error) and "0.3 s" in str(error), f"stopped: {error}")
    finally:
        process.send_signal(signal.SIGCONT)
    complaints.unless(len(client.retrieve("displays")) == 3, "what came too late was taken for the answer")
    cockpit.stop("hmxtolubridge", signal.SIGKILL)
    error, took = failure(lambda: client.retrieve("displays", timeout=0.4))
    complaints.unless(isinstance(error, hmx.ServiceAbsent) and took < 5, f"absent: {error!r} {took}")
    error, took = failure(lambda: list(client.watch("displays", give_up=0.4)))
    complaints.unless(isinstance(error, hmx.ServiceAbsent) and 0.4 <= took < 5, f"given up: {error!r} {took}")
    cockpit.start("hmxtolubridge")
    complaints.unless(len(client.retrieve("displays", timeout=20)) == 3, "a call does not wait for the bridge to return")


def frame(kind, number, body, flags=0):
    return struct.pack("<IBBHQ", len(body), kind, flags, 0, number) + body


def answer(payload, mime=b"\x70application/json"):
    return frame(3, 1, b"\xbf\x67$status\x18\xc8\x6a$mime-type" + mime + b"\xff" + payload, 2)


HELLO = frame(1, 0, b"\xa2\x68$version\x01\x6b$mime-types\x70application/json")
PAGE = b'{"total":0,"totalPages":1,"data":[]}'
# What a provider sends at once, the class of the error that a retrieve ends with, and a word of it.
PROVIDERS = [
    (HELLO + answer(PAGE), type(None), ""), (HELLO + frame(5, 7, b"", 0) + answer(PAGE), hmx.ProtocolError, "7"),
    (frame(1, 0, b"\xa1\x68$version\x02"), hmx.ProtocolError, "version"), (frame(1, 0, b"\xa1\x68$version\x01"), hmx.ProtocolError, "JSON"),
    (b"HTTP/1.1 400 Bad Request\r\n\r\n", hmx.ProtocolError, "bytes"), (HELLO + HELLO, hmx.ProtocolError, "status"),
    (HELLO + frame(2, 1, b"\xa0"), hmx.ProtocolError, "type 2"), (HELLO + frame(3, 1, b"\xa0", 4), hmx.ProtocolError, "flags"),
    (HELLO + frame(3, 0, b"\xa0"), hmx.ProtocolError, "request 0"), (HELLO + frame(3, 1, b""), hmx.ProtocolError, "cut short"),
    (HELLO + frame(3, 1, b"\xa1\x61a\x81" * 9), hmx.ProtocolError, "other than"),
    (HELLO + frame(3, 1, b"\xbb" + b"\xff" * 8), hmx.ProtocolError, "cut"),
    (HELLO + frame(3, 1, b"\xbf" + b"\x61a\x00" * 65 + b"\xff"), hmx.ProtocolError, "64 fields"),
    (HELLO + frame(3, 1, b"\xa1\x61\xff\x00"), hmx.ProtocolError, "UTF-8"), (HELLO + answer(b"[" * 500_000), hmx.ProtocolError, "JSON"),
    (HELLO + answer(b"[" * 65 + b"]" * 65), hmx.ProtocolError, "deeper"),
    (HELLO + answer(b"[" + b"0," * 100_000 + b"0]"), hmx.ProtocolError, "deeper"),
    (HELLO + answer(b"{}"), hmx.ProtocolError, "page"), (HELLO + answer(PAGE[:-2] + b"1]}"), hmx.ProtocolError, "element"),
    (HELLO + answer(PAGE, b"\x69text/html"), hmx.ProtocolError, "text/html"),
    (HELLO + frame(5, 1, b""), hmx.ProtocolError, "without an answer"),
    (HELLO + answer(PAGE)[:-1], hmx.ConnectionLost, "outcome unknown"),
    (HELLO + frame(4, 1, b"\xa1\x67$status\x19\x01\xf7upstream: \x1b[1m request not sent"), hmx.Refused, "\\x1b[1m request not sent"),
    (HELLO, hmx.ConnectionLost, "outcome unknown"), (HELLO + answer(PAGE), hmx.Timeout, "outcome unknown"),
    (b"", hmx.Timeout, "not sent"),  # last, because the client connects to it repeatedly
]


def check_providers(_, __, complaints):
    """Those that say something wrong, and one that never stops saying something."""
    with tempfile.TemporaryDirectory() as runtime:
        (Path(runtime) / "local").mkdir(mode=0o700)
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(str(Path(runtime) / "local/%2Fhmx.sock"))
            listening.listen()

            def serve(said, endless):
                peer, _ = listening.accept()
                with peer, contextlib.suppress(OSError):
                    peer.sendall(said)
                    while endless:
                        peer.sendall(answer(PAGE) * 1000)
                    peer.shutdown(socket.SHUT_WR)
                    while peer.recv(4096):
                        pass

            for said, kind, word in PROVIDERS:
                endless = kind is hmx.Timeout and len(said) > len(HELLO)  # repeats its first answer to every request
                provider = threading.Thread(target=serve, args=(said, endless), daemon=True)
                provider.start()

                def ask():
                    with hmx.connect(runtime_dir=runtime, timeout=0.5 if kind is hmx.Timeout else 10) as client:
                        client.retrieve("displays")
                        if endless:
                            client.retrieve("displays")

                error, took = failure(ask)
                expected = isinstance(error, kind) and took < 5 and word in str(error)
                complaints.unless(expected, f"{said[:80]}: {kind.__name__} {word}: {error!r} {took}")
                provider.join(10)


def check_places(cockpit, _, complaints):
    """A directory whose sockets go by hashes, and the command line."""
    runtime = cockpit.directory / ("x" * max(1, 51 - len(str(cockpit.directory))))
    environment = dict(cockpit.environment, KELO_RUNTIME_DIR=str(runtime))
    with subprocess.Popen(["hmxsim"], env=environment, stderr=subprocess.DEVNULL) as sim:
        try:
            with hmx.connect("/hmxdisplaymanager", str(runtime), timeout=20, application="é" * 300) as client:
                complaints.unless(client.status()["application"] == "hmxsim", "no status")
                complaints.unless(list(runtime.glob("local/#*.sock")), "no socket's name is a hash")
        finally:
            sim.terminate()
    environment = dict(cockpit.environment, PYTHONPATH=str(MODULE), PYTHONDONTWRITEBYTECODE="1")
    for line, code, word in (("list displays fields=resolution", 0, "1920"), ("list displays/Nope", 1, "404"),
                             ("watch displays/Nope", 1, "404"), ("id displays/Driver_Display", 0, "19243473"),
                             (f"update {VOLUME} requested=true", 0, "/hmx/popups/"),
                             (f"wait {VOLUME} visible=true", 0, "Volume"), ("list displays x", 1, "KEY=VALUE"), ("nothing x", 2, "usage")):
        done = subprocess.run([sys.executable, "-W", "error", "-m", "hmx", *line.split()], env=environment, check=False,
                              capture_output=True, text=True, timeout=60)
        complaints.unless(done.returncode == code and word in (done.stderr if code else done.stdout), f"hmx {line}: {done}")


def main():
    complaints = Complaints()
    with Cockpit(sys.argv[1]) as cockpit:
        open_before = len(os.listdir("/proc/self/fd"))
        with hmx.connect(runtime_dir=cockpit.environment["KELO_RUNTIME_DIR"], timeout=20) as client:
            for check in (check_resources, check_changes, check_watch, check_limits, check_providers, check_places):
                check(cockpit, client, complaints)
        complaints.unless(isinstance(failure(client.open)[0], hmx.UsageError), "a closed client connects")
        complaints.unless(len(os.listdir("/proc/self/fd")) == open_before, "descriptors stay open")
    print("\n".join(complaints) or f"{len(FAILURES)} failures and {len(PROVIDERS)} providers end as they should")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
