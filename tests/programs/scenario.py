#!/usr/bin/env python3
"""A plan with a seed gives every watcher the same sequence of events in every run, and the requests made meanwhile are recorded.
Usage: scenario.py BIN_DIR"""

import json
import subprocess
import sys
import tempfile
from pathlib import Path

from cockpit import Cockpit

# Everything in a plan that can be random: times, repetition, whether a step happens, and its value.
PLAN = [
    {"at_ms": 0, "jitter_ms": 40, "every_ms": 15, "times": 12, "chance": 0.7, "popup": "Driver_Display/Incoming_Call",
     "values": [{"requested": True}, {"requested": False}, {"requested": True, "requestData": "caller=Ada"}]},
    {"at_ms": 5, "jitter_ms": 60, "every_ms": 20, "times": 8, "popup": "Driver_Display/Software_Update",
     "values": [{"requested": True, "priorityInlayer": 95}, {"requested": False}, {"visible": False}]},
    {"at_ms": 50, "jitter_ms": 100, "popup": "Driver_Display/Low_Fuel", "value": {"requested": False}},
    {"at_ms": 400, "popup": "Driver_Display/Hint", "value": {"requestData": "over"}},
]


def events_of(binaries, seed, record):
    """What a watch shows, from the start of the plan to its end."""
    with Cockpit(binaries, sim_options=["--seed", str(seed), "--record-requests", str(record)]) as cockpit:
        watch = subprocess.Popen(["hmxctl", "watch", "popups", "display=Driver_Display", "-o", "json"], env=cockpit.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        events = [json.loads(watch.stdout.readline())]
        started = cockpit.ctl("sim", "plan", "-f", "-", stdin=None, input=json.dumps(PLAN))
        if started.returncode != 0:
            sys.exit(started.stderr)
        while not (events[-1].get("name") == "Hint" and events[-1]["element"].get("requestData") == "over"):
            events.append(json.loads(watch.stdout.readline()))
        watch.terminate()
        watch.communicate()
        return events


def complaints_about_record(record):
    lines = [json.loads(line) for line in record.read_text().splitlines()]
    if [line["number"] for line in lines] != list(range(1, len(lines) + 1)):
        yield "the record's numbers are not 1, 2, 3, …"
    if sorted(line["at_ms"] for line in lines) != [line["at_ms"] for line in lines]:
        yield "the record is not in the order of time"
    plans = [line for line in lines if (line["service"], line["command"], line["path"]) == ("control", "insert", "/plan")]
    watched = [line for line in lines if line["service"] == "popupmanager" and not line["oneShot"]]
    if len(plans) != 1 or plans[0]["body"] != PLAN or not watched:
        yield f"the record lacks the plan or the watch: {plans} {watched}"


def main():
    complaints = []
    with tempfile.TemporaryDirectory(prefix="hmx_scenario_") as folder:
        record = Path(folder) / "requests.jsonl"
        first, second, other = (events_of(sys.argv[1], seed, record) for seed in (5, 5, 6))
        complaints += complaints_about_record(record)
    if first != second:
        apart = next((i for i, pair in enumerate(zip(first, second)) if pair[0] != pair[1]), min(len(first), len(second)))
        complaints.append(f"event {apart} differs: {first[apart:apart + 1]} {second[apart:apart + 1]}")
    if first == other:
        complaints.append("another seed gives the same events")
    if len(first) < 10:
        complaints.append(f"only {len(first)} events")
    print("\n".join(complaints) or f"{len(first)} events, twice the same")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
