#!/usr/bin/env python3
"""Recorders that are killed, interrupted, told to write and left without a reader. Usage: record.py BIN_DIR"""

import json
import random
import signal
import subprocess
import sys
import time

from cockpit import Cockpit

KILLED = 200
AT_ONCE = 10


def start(cockpit, *words):
    return subprocess.Popen(["hmxctl", "record", *words], env=cockpit.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True)


def entries_of(path):
    """The entries of a recording, each of which must be a whole line and the next of its source; what follows the last line end is cut."""
    lines = path.read_bytes().split(b"\n")[:-1]
    entries = [json.loads(line) for line in lines]
    assert entries[0]["recording"] == 1
    if entries[-1].get("event") == "stopped":
        assert entries.pop()["t"] >= entries[-1].get("t", 0)
    last = {}
    for entry in entries[1:]:
        source = (entry["service"], entry["path"], str(entry.get("parameters")))
        assert entry["n"] == last.get(source, entry["n"] - 1) + 1, (source, entry["n"], last[source])
        last[source] = entry["n"]
    return entries[1:]


def wait_until_followed(cockpit):
    """Until a recorder has opened its requests for the displays and for the popups of three of them."""
    end = time.monotonic() + 20
    while True:
        status = json.loads(cockpit.ctl("-o", "json", "status").stdout or "{}")
        clients = [client for service in status.get("published", []) for client in service["clients"]]
        if any(client["streams"] >= 4 for client in clients):
            return
        assert time.monotonic() < end, clients
        time.sleep(0.05)


def kill_at_random_moments(cockpit, random_):
    """Whatever kills a recorder, all lines but the last are whole, and hmxctl reads them without complaint."""
    total = 0
    for round_ in range(KILLED // AT_ONCE):
        paths = [cockpit.directory / f"killed-{round_}-{number}.jsonl" for number in range(AT_ONCE)]
        recorders = [start(cockpit, "--upstream", "-o", str(path)) for path in paths]
        began = time.monotonic()
        for recorder, moment in zip(recorders, sorted(random_.uniform(0.0, 0.15) for _ in recorders)):
            time.sleep(max(0.0, began + moment - time.monotonic()))
            recorder.kill()
            recorder.communicate()
        for path in paths:
            if not path.exists():
                continue  # killed before there was anything to say
            total += len(entries_of(path))
            read = cockpit.ctl("--from", str(path), "call", "/hmx", "retrieve", "/displays")
            complaints = [line for line in read.stderr.splitlines() if f"{path.name}, line" in line and ": incomplete, " not in line]
            assert read.returncode in (0, 3, 4) and not complaints, (path.name, read)
    assert total > KILLED, "the recorders had something to write"


def end_cleanly(cockpit):
    """SIGTERM and SIGINT end a recording; what was shown until then is in it."""
    for number in (signal.SIGTERM, signal.SIGINT):
        path = cockpit.directory / f"ended-{number}.jsonl"
        recorder = start(cockpit, "popups", "-o", str(path))
        cockpit.ctl("wait", "popups", "count > 0")
        time.sleep(0.3)
        recorder.send_signal(number)
        notes = recorder.communicate(timeout=20)[1]
        assert recorder.returncode == 0 and f"recorded {len(entries_of(path))} entries" in notes, (recorder.returncode, notes)


def write_the_ring_when_told(cockpit):
    """Each SIGUSR1 writes a recording of its own, which begins with whole answers."""
    path = cockpit.directory / "ring.jsonl"
    recorder = start(cockpit, "popups", "--last", "1s", "-o", str(path))
    paths = [path, path.with_name("ring-2.jsonl"), path.with_name("ring-3.jsonl")]
    wait_until_followed(cockpit)
    time.sleep(1.2)
    for each, number in zip(paths, (signal.SIGUSR1, signal.SIGUSR1, signal.SIGTERM)):
        recorder.send_signal(number)
        end = time.monotonic() + 20
        while not each.exists():
            assert time.monotonic() < end, f"{each.name} was not written"
            time.sleep(0.01)
        time.sleep(0.3)
    notes = recorder.communicate(timeout=20)[1]
    assert recorder.returncode == 0 and notes.count("wrote the last ") == 3, notes
    for each in paths:
        begun = set()
        for entry in entries_of(each):
            source = (entry["path"], str(entry.get("parameters")))
            assert entry["event"] == "state" or source in begun, (each.name, entry)
            begun.add(source)
        listed = cockpit.ctl("--from", str(each), "list", "popups", "display=Driver_Display")
        assert listed.returncode == 0, listed
    times = [entry["t"] for entry in entries_of(paths[2]) if entry["event"] == "change"]
    assert not times or times[-1] - times[0] <= 1_000_000_000, f"older changes have fallen out: {times[:3]} {times[-1:]}"


def pipe_it(cockpit):
    """Standard output may be a pipe, whose reader may go; what comes out of it can be read from another one."""
    shell = ["bash", "-c", "hmxctl record -o - --for 500ms | hmxctl --from - list displays"]
    assert "Driver_Display" in cockpit.run(shell).stdout
    done = cockpit.run(["bash", "-c", "hmxctl record -o - | head -n 3 | wc -l; echo ${PIPESTATUS[0]}"])
    assert done.stdout == "3\n0\n", done
    limited = cockpit.run(["bash", "-c", "ulimit -f 40; hmxctl record -o limited.jsonl --for 20s"], cwd=cockpit.directory)
    assert limited.returncode == 1 and "cannot write limited.jsonl: File too large" in limited.stderr, limited
    assert len((cockpit.directory / "limited.jsonl").read_bytes().rsplit(b"\n", 1)[1]) == 0, "no line is cut"
    entries_of(cockpit.directory / "limited.jsonl")


def main():
    random_ = random.Random(18)
    with Cockpit(sys.argv[1]) as cockpit:
        plan = [{"at_ms": 1, "every_ms": 2, "times": 40_000, "popup": f"Driver_Display/{name}", "values": [{"requested": True}, {"requested": False}]}
                for name in ("Incoming_Call", "Volume")]
        planned = cockpit.run(["hmxctl", "--timeout", "30s", "sim", "plan", "-f", "-"], input=json.dumps(plan), stdin=None)
        assert planned.returncode == 0, planned
        end_cleanly(cockpit)
        write_the_ring_when_told(cockpit)
        pipe_it(cockpit)
        kill_at_random_moments(cockpit, random_)


if __name__ == "__main__":
    main()
