#!/usr/bin/env python3
"""Measures hmxrelay between two network namespaces: how soon a change is seen, a minute of changes, a late joiner, memory, idle
traffic, reading. Usage: relay.py BUILD_DIR [--seconds N] [--json FILE]

docs/relay.md says what each figure means.
"""

import argparse
import contextlib
import json
import os
import pathlib
import re
import select
import socket
import statistics
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).parents[1]
sys.path[:0] = [str(ROOT / "tests" / "programs"), str(ROOT / "examples" / "python")]
import hmx  # noqa: E402
from relay import Copy, Machine, Network, origin, until  # noqa: E402

CHANGES, READS = 50, 200
SPACES = ("ip", "netns", "exec")


def memory_mib(process):
    """Of the relay itself, not of what put it into its namespace."""
    return int(re.search(r"^VmRSS:\s+(\d+)", pathlib.Path(f"/proc/{process.pid}/status").read_text(), re.M).group(1)) / 1024


def engine_one_way(network):
    """Half of the median round trip of 1 KB, as the engine's own tool measures it, in seconds."""
    tool = pathlib.Path("/tmp/hmx_bench_ddsperf.xml")
    tool.write_text('<CycloneDDS><Domain><General><Interfaces><NetworkInterface name="eth"/></Interfaces></General></Domain></CycloneDDS>')
    environment = dict(os.environ, CYCLONEDDS_URI=f"file://{tool}")
    pong = subprocess.Popen([*SPACES, network.space("b"), "ddsperf", "-D", "8", "pong"], env=environment,
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    ping = subprocess.run([*SPACES, network.space("a"), "ddsperf", "-D", "6", "ping", "10Hz", "size", "1k"], env=environment,
                          capture_output=True, text=True, check=False)
    pong.terminate()
    pong.wait()
    medians = [float(each) for each in re.findall(r"50% ([\d.]+)us", ping.stdout)]
    return statistics.median(medians) / 2e6 if medians else None


def latencies(a, watching, *words):
    """From before the request of a change until a watcher has its line, in seconds. Nobody else watches, because two watchers would
    wait for each other's turn on a processor."""
    popup = "popups/Driver_Display/Volume"
    watcher = subprocess.Popen([watching.binaries / "hmxctl", *words, "watch", popup, "-o", "json"], env=watching.environment,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    watcher.stdout.readline()
    sent, seen = {}, {}

    def change():
        with hmx.Client(runtime_dir=a.environment["KELO_RUNTIME_DIR"]) as client:
            for number in range(CHANGES):
                sent[f"{watcher.pid}.{number}"] = time.perf_counter()
                client.update(popup, requestData=f"{watcher.pid}.{number}", requested=True)
                time.sleep(0.03)

    changing = threading.Thread(target=change)
    changing.start()
    rest = b""
    end = time.monotonic() + 30
    while len(seen) < CHANGES and time.monotonic() < end:
        if select.select([watcher.stdout], [], [], 0.5)[0]:
            *lines, rest = (rest + os.read(watcher.stdout.fileno(), 65536)).split(b"\n")
            for line in lines:
                number = json.loads(line).get("element", {}).get("requestData")
                seen.setdefault(number, time.perf_counter())
    changing.join()
    watcher.kill()
    watcher.wait()
    return [seen[number] - sent[number] for number in sent if number in seen]


def reading(machine, service, rounds):
    """Seconds for each retrieve of all displays, one after the other, on a bare socket."""
    client = hmx.Client(service, machine.environment["KELO_RUNTIME_DIR"])
    address, call = client._address, hmx._Call("bench", 60)
    connection = hmx._run(hmx._Connection.establish(address, call))
    plain = connection._socket
    plain.setblocking(True)
    frame = hmx._encode_frame(2, 1, 1_000_001, {"$request-command": "retrieve", "$request-path": "/displays", "$accept": "application/json"})
    took = []
    for _ in range(rounds):
        begin = time.perf_counter()
        plain.sendall(frame)
        buffer = b""
        while len(buffer) < 16 or len(buffer) < 16 + int.from_bytes(buffer[:4], "little"):
            buffer += plain.recv(1 << 20)
        took.append(time.perf_counter() - begin)
    connection.close()
    return took


def traffic(network):
    words = ["ip", "-s", "-j", "-n", network.space("b"), "link", "show", "eth"]
    stats = json.loads(subprocess.run(words, capture_output=True, text=True, check=True).stdout)[0]["stats64"]
    return stats["rx"]["bytes"] + stats["tx"]["bytes"]


def everything(machine, words):
    documents = {}
    for resource in ("displays", "displayables", "layerconfigurations", "popups"):
        done = machine.ctl(*words, "--timeout", "20s", "list", resource, "-o", "json")
        documents[resource] = done.stdout if done.returncode == 0 else None
    return documents


def minute(a, b, seconds):
    """A thousand changes a second, among a hundred popups; then how soon both sides are equal."""
    names = [f"P{number}" for number in range(100)]
    for name in names:
        a.ctl("sim", "add", "popups/Driver_Display", f"name={name}")
    steps = [{"at_ms": index * 2 + half * 100, "every_ms": 200, "times": seconds * 5, "popup": f"Driver_Display/{name}",
              "value": {"requestData": f"{half}"}} for index, name in enumerate(names) for half in (0, 1)]
    plan = a.directory / "plan.json"
    plan.write_text(json.dumps(steps))
    begun = a.ctl("sim", "plan", "-f", str(plan))
    if begun.returncode != 0:
        sys.exit(f"relay.py: {begun.stderr}")
    samples = origin(b)["samples"]
    memory = {"export": 0.0, "import": 0.0}
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        time.sleep(0.5)
        for name, machine in (("export", a), ("import", b)):
            memory[name] = max(memory[name], memory_mib(machine.processes["relay"]))
    until("the end of the plan", lambda: "0" in re.findall(r"\d+", a.ctl("sim", "plan", "-o", "json").stdout), 30)
    equal = until("equal", lambda: everything(a, ()) == everything(b, ("--service", "/hmx@cluster")), 10)
    now = origin(b)
    return {"changes/s": 1000, "seconds": seconds, "equal after, s": equal, "samples/s": (now["samples"] - samples) / seconds,
            "lag after, ms": now["lag"], "lost": now["lost"], "repairs": now["repairs"],
            "memory, export, MiB": memory["export"], "memory, import, MiB": memory["import"]}


def late_joiner(binaries):
    """5,000 elements; from the start of an import until they are all there, with the process's own start and discovery."""
    network = Network("ab")
    world = pathlib.Path("/tmp/hmx_bench_world.json")
    sizes = "displays=20,displayables=1000,popups=3960,regions=10"
    world.write_text(subprocess.run([binaries / "hmxsim", "--make-world", sizes], capture_output=True, text=True, check=True).stdout)
    try:
        with Machine(binaries, network, "a", world=world) as a, Copy(binaries, network, "b") as b:
            a.relay("export", "--name", "cluster")
            time.sleep(5)
            took, repairs = [], 0
            for _ in range(5):
                begin = time.perf_counter()
                b.relay("import")
                seen = None
                while time.perf_counter() < begin + 20:
                    now = origin(b)
                    if seen is None and now:
                        seen = time.perf_counter()
                    if now.get("state") == "live" and now["elements"] >= 5000 and now["lag"] == 0:
                        break
                took.append((time.perf_counter() - begin, time.perf_counter() - seen))
                repairs += now["repairs"]
                memory = memory_mib(b.processes["relay"])
                b.stop("relay")
            return {"elements": now["elements"], "since start, s": statistics.median(each[0] for each in took),
                    "since the origin was seen, s": statistics.median(each[1] for each in took), "repairs": repairs,
                    "memory, import, MiB": memory, "memory, export, MiB": memory_mib(a.processes["relay"])}
    finally:
        network.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=int, default=60)
    parser.add_argument("--json", type=pathlib.Path)
    arguments = parser.parse_args()
    binaries = (arguments.build / "bin").resolve()
    if not (binaries / "hmxrelay").exists():
        sys.exit("relay.py: hmxrelay is not built; its part is left out")
    network = Network("ab")
    if not network.real:
        sys.exit("relay.py: no network namespaces here; nothing is measured")
    figures = {}
    try:
        with Machine(binaries, network, "a") as a, Copy(binaries, network, "b") as b:
            a.relay("export", "--name", "cluster")
            b.relay("import")
            until("the origin", lambda: origin(b).get("state") == "live", 10)
            time.sleep(2)
            before = traffic(network)
            time.sleep(10)
            figures["idle traffic, bytes/s"] = (traffic(network) - before) / 10
            one_way = engine_one_way(network)
            local, across = [], []
            for _ in range(4):
                local += latencies(a, a)
                across += latencies(a, b, "--service", "/hmx@cluster")
            figures["engine, one way, us"] = one_way and one_way * 1e6
            figures["change to watcher, beside the bridge, median us"] = statistics.median(local) * 1e6
            figures["change to watcher, across, median us"] = statistics.median(across) * 1e6
            figures["allowed, us"] = one_way and (statistics.median(local) + 2 * one_way) * 1e6
            bridge, copy = [], []
            for _ in range(20):
                bridge += reading(a, "/hmx", READS)
                copy += reading(b, "/hmx@cluster", READS)
            figures["read from the bridge, median us"] = statistics.median(bridge) * 1e6
            figures["read from the copy, median us"] = statistics.median(copy) * 1e6
            figures["ratio of speeds"] = statistics.median(bridge) / statistics.median(copy)
            figures["a minute of changes"] = minute(a, b, arguments.seconds)
    finally:
        network.close()
    figures["late joiner"] = late_joiner(binaries)
    print(json.dumps(figures, indent=2))
    if arguments.json:
        arguments.json.write_text(json.dumps(figures))


if __name__ == "__main__":
    main()
