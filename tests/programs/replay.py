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


def applied(document, entry):
    """The document after a change."""
    document = json.loads(json.dumps(document))
    for key, value in entry.get("document", {}).items():
        if value is None:
            document.pop(key, None)
        else:
            document[key] = value
    array = document[entry["array"]] if entry.get("array") else document
    for step in entry["steps"]:
        if step["step"] == "insert":
            array.insert(step["at"], step["element"])
        elif step["step"] == "erase":
            del array[step["at"]]
        else:
            array[step["at"]] = step["element"]
    return document


def states_of(file):
    """By source of /hmx: what it said, one after the other, without repetitions."""
    states, documents = {}, {}
    for line in file.read_text().splitlines()[1:]:
        entry = json.loads(line)
        if entry["service"] != "/hmx":
            continue
        key = entry["path"] + json.dumps(entry.get("parameters", {}))
        said = entry["event"]
        if said in ("state", "change"):
            documents[key] = entry["document"] if said == "state" else applied(documents[key], entry)
            said = documents[key]
        if states.setdefault(key, [])[-1:] != [said]:
            states[key].append(said)
    return states


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
        time.sleep(0.3)
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
    """Between what /hmx said in the recording, and what a bridge beside its replay says, which is recorded in the file `again`."""
    with Replay(binaries, sim_options=["--replay", str(recording), "--speed", speed, "--paused"]) as replay:
        with Recording(replay, again):
            replay.ctl("sim", "replay", "run")
            wait_until(replay, "replay", lambda status: status["state"] == "over")
    one, other = states_of(recording), states_of(again)
    for key in sorted(one.keys() | other.keys()):
        here, there = one.get(key, []), other.get(key, [])
        if here != there:
            at = next((i for i, pair in enumerate(zip(here, there)) if pair[0] != pair[1]), min(len(here), len(there)))
            yield (f"{recording.name} at speed {speed}, {key}: {len(here)} and {len(there)} states; state {at}: "
                   f"{json.dumps(here[at:at + 1])} and {json.dumps(there[at:at + 1])}")


def complaints_of(binaries, seed, speed):
    with Cockpit(binaries) as cockpit:
        first, second = (cockpit.directory / f"{name}_of_{seed}.jsonl" for name in ("first", "second"))
        with Recording(cockpit, first):
            started = cockpit.ctl("sim", "plan", "-f", "-", stdin=None, input=json.dumps(random_plan(seed)))
            if started.returncode != 0:
                sys.exit(started.stderr)
            wait_until(cockpit, "plan", lambda status: status["pending"] == 0)
        if (count := sum(map(len, states_of(first).values()))) < 60:
            yield f"seed {seed}: only {count} states"
        yield from differences(binaries, first, second, speed)


def main():
    complaints, seeds = [], [int(word) for word in sys.argv[2:]] or [1, 2]
    sample = Path(__file__).resolve().parents[2] / "share/recordings/phone_call.jsonl"
    with tempfile.TemporaryDirectory(prefix="hmx_replay_") as folder:
        complaints += differences(sys.argv[1], sample, Path(folder) / "again.jsonl", "max")
    for seed in seeds:
        complaints += complaints_of(sys.argv[1], seed, "max" if seed % 3 == 0 else "4" if seed % 3 == 1 else "1")
    print("\n".join(complaints) or f"{len(seeds) + 1} recordings, each the same when it is replayed")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
