#!/usr/bin/env python3
"""What the managers did is recorded, replayed to a bridge, and recorded again: /hmx must have said the same, state by state.
Usage: replay.py BIN_DIR [SEED…]"""

import json
import random
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from cockpit import Cockpit

POPUPS = [("Driver_Display", name) for name in ("Incoming_Call", "Low_Fuel", "Software_Update", "Volume", "Rear_View", "Hint")]
POPUPS += [("Co_Driver_Display", "Seat_Massage"), ("Co_Driver_Display", "Volume")]
LAYERS = [{"id": 10, "name": "Map", "active": True, "zpos": 10}, {"id": 11, "name": "Home", "active": False, "zpos": 20},
          {"id": 12, "name": "Popups", "active": True, "zpos": 90}, {"id": 13, "name": "New", "zpos": 50}]
REGIONS = [{"hmi": hmi, "infoForAllLayers": [{"layer": layer, "inputRegions": [
    {"bounds": {"width": size, "height": size, "pointMin": {"x": size, "y": 7}}} for size in (20, 300)]}]}
    for hmi in ("Radio", "Phone") for layer in ("Home", "Map")]


def random_step(dice):
    """One change of the world, as a plan has it."""
    display, name = dice.choice(POPUPS)
    kind = dice.random()
    if kind < 0.6:
        members = {"requested": dice.random() < 0.6, "visible": dice.random() < 0.7, "priorityInlayer": dice.randrange(100),
                   "requestData": f"data={dice.randrange(1000)}", "slot": dice.choice(["center", "top", None])}
        chosen = dice.sample(sorted(members), dice.randint(1, 3))
        return {"popup": f"{display}/{name}", "value": {key: members[key] for key in chosen}}
    if kind < 0.7:
        path = f"/popups/{display}/Extra"
        if dice.random() < 0.5:
            return {"insert": f"/popups/{display}", "value": {"name": "Extra", "requested": True, "priorityInlayer": 99}}
        return {"delete": path}
    if kind < 0.8:
        return {"set": f"displaymanager/displays/{display}", "value": {"terminal": dice.randrange(9), "updateRate": dice.choice([30, 60])}}
    if kind < 0.85:
        return {"set": "displaymanager/displayables/1001", "value": {"type": dice.randrange(9), "is_visible": dice.random() < 0.5}}
    if kind < 0.92:
        layers = dice.sample(LAYERS, dice.randint(1, len(LAYERS)))
        return {"set": f"displaymanager/layerConfig/{display}", "value": {"layers": {"infoForAllLayers": layers}}}
    return {"set": f"inputmanager/displays/{display}", "value": {"regions": dice.sample(REGIONS, 1)}}


def random_plan(seed):
    """Changes for a second and a half. In some, a manager or a display goes and comes back meanwhile."""
    dice = random.Random(seed)
    steps = [{"at_ms": dice.randrange(1500), **random_step(dice)} for _ in range(120)]
    if seed % 2 == 0:
        manager = dice.choice(["displaymanager", "inputmanager", "popupmanager"])
        steps = [step for step in steps if step["at_ms"] < 700 or step["at_ms"] > 2000]
        steps.append({"at_ms": 800, "fault": manager, "value": {"now": True, "close": True, "reopen_ms": dice.choice([100, 300])}})
        steps += [{"at_ms": 2400 + dice.randrange(400), **random_step(dice)} for _ in range(40)]
    return sorted(steps, key=lambda step: step["at_ms"])


def said_by_hmx(file):
    """By source of /hmx: what kinds of things it said, one after the other."""
    said = {}
    for line in file.read_text().splitlines()[1:]:
        try:
            entry = json.loads(line)
        except json.JSONDecodeError:
            break  # it is being written
        if entry.get("service") == "/hmx":
            said.setdefault(entry["path"] + json.dumps(entry.get("parameters", {})), []).append(entry["event"])
    return said


class Recording:
    """A recorder beside what runs in the cockpit, as long as the `with` block."""

    def __init__(self, cockpit, file):
        self.cockpit, self.file = cockpit, file

    def __enter__(self):
        self.process = subprocess.Popen(["hmxctl", "record", "--upstream", "-o", str(self.file)], env=self.cockpit.environment,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        end = time.monotonic() + 20
        sources = 3 + 3 + 3 * 3 + 4  # three lists here and there, three displays with their popups and regions, four configurations
        while not self.file.exists() or len(self.file.read_text().splitlines()) <= sources:
            if time.monotonic() > end or self.process.poll() is not None:
                sys.exit(f"the recorder does not record: {self.process.stderr.read() if self.process.poll() else ''}")
            time.sleep(0.01)
        return self

    def __exit__(self, *_):
        end = time.monotonic() + 10
        time.sleep(0.3)
        while any(events[-1] == "lost" for events in said_by_hmx(self.file).values()) and time.monotonic() < end:
            time.sleep(0.1)
        self.process.send_signal(signal.SIGINT)
        self.process.communicate(timeout=20)


class Replay(Cockpit):
    """A replay in place of a world."""

    def start(self, program, *words):
        super().start(program, *(self.sim_options if program == "hmxsim" else words))


def wait_until(cockpit, word, done):
    end = time.monotonic() + 30
    while time.monotonic() < end:
        status = json.loads(cockpit.ctl("sim", word, "-o", "json").stdout)
        if done(status):
            return status
        time.sleep(0.05)
    sys.exit(f"sim {word} takes too long")


def differences(binaries, recording, again, speed):
    """Between the recording and one of its replay beside a bridge, which is kept in the file `again`."""
    with Replay(binaries, sim_options=["--replay", str(recording), "--speed", speed, "--paused"]) as replay:
        with Recording(replay, again):
            replay.ctl("sim", "replay", "run")
            wait_until(replay, "replay", lambda status: status["state"] == "over")
        compared = replay.ctl("diff", str(recording), str(again))
        if compared.returncode != 0:
            yield f"{recording.name} and its replay at speed {speed}: {compared.stdout}{compared.stderr}"


def complaints_of(binaries, seed, speed):
    with Cockpit(binaries) as cockpit:
        first, second = (cockpit.directory / f"{name}_of_{seed}.jsonl" for name in ("first", "second"))
        with Recording(cockpit, first):
            started = cockpit.ctl("sim", "plan", "-f", "-", stdin=None, input=json.dumps(random_plan(seed)))
            if started.returncode != 0:
                sys.exit(started.stderr)
            wait_until(cockpit, "plan", lambda status: status["pending"] == 0)
        if (count := sum(map(len, said_by_hmx(first).values()))) < 60:
            yield f"seed {seed}: only {count} states"
        yield from differences(binaries, first, second, speed)


def main():
    complaints, seeds = [], [int(word) for word in sys.argv[2:]] or [1, 2]
    sample = Path(__file__).resolve().parents[2] / "share/recordings/phone_call.jsonl"
    with tempfile.TemporaryDirectory(prefix="hmx_replay_") as folder:
        complaints += differences(sys.argv[1], sample, Path(folder) / "again.jsonl", "max")
    for seed in seeds:
        complaints += complaints_of(sys.argv[1], seed, "max" if seed % 3 == 0 else "4" if seed % 2 == 1 else "1")
    print("\n".join(complaints) or f"{len(seeds) + 1} recordings, each the same when it is replayed")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
