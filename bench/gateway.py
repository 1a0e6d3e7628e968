#!/usr/bin/env python3
"""Measures the HTTP gateway: requests beside what libmicrohttpd alone serves of the same bytes in the same round, how soon viewers hear of
a change, memory and wake-ups. Usage: gateway.py BUILD_DIR [--rounds N]

docs/performance.md says what each figure means.
"""

import argparse
import os
import pathlib
import re
import statistics
import subprocess
import tempfile
import time
import urllib.request

from run import Process

VIEWERS, CHANGES, IDLE_SECONDS, SECONDS = 1000, 9, 3, 1
POPUP = "/hmx/popups/Driver_Display/Volume"
CHANGE = '{"requested":true,"requestData":"#"}'


def load(binaries, *words):
    """What the load says: rows of numbers."""
    done = subprocess.run([binaries / "http_load", *map(str, words)], capture_output=True, text=True, check=True)
    return [[float(word) for word in line.split()] for line in done.stdout.splitlines()]


def measure(binaries, directory, port):
    page = urllib.request.urlopen(f"http://127.0.0.1:{port}/hmx/displays").read()
    file = directory / "page.json"
    file.write_bytes(page)
    floor = subprocess.Popen([binaries / "http_load", "floor", file], stdout=subprocess.PIPE, text=True)
    floor_port = floor.stdout.readline().strip()
    figures = {"bytes of the document": len(page)}
    for connections in (1, 32):
        (floor_rate, _), = load(binaries, "get", floor_port, "/", connections, SECONDS)
        (rate, median), = load(binaries, "get", port, "/hmx/displays", connections, SECONDS)
        figures[f"requests/s, {connections} connections: floor"] = floor_rate
        figures[f"requests/s, {connections} connections: gateway"] = rate
        figures[f"requests/s, {connections} connections: ratio"] = rate / floor_rate
        figures[f"median, {connections} connections, us"] = median
    floor.kill()
    floor.wait()
    return figures


def measure_viewers(binaries, gateway, port):
    idle = gateway.switches("voluntary")
    time.sleep(IDLE_SECONDS)
    figures = {"memory, MiB": gateway.memory_mib(), f"wake-ups in {IDLE_SECONDS} s": gateway.switches("voluntary") - idle}
    told = load(binaries, "watch", port, POPUP, CHANGE, VIEWERS, CHANGES)
    figures[f"{VIEWERS} viewers: median told after, ms"] = statistics.median(row[0] for row in told) / 1000
    figures[f"{VIEWERS} viewers: last told after, ms"] = statistics.median(row[1] for row in told) / 1000
    figures[f"memory after {VIEWERS} viewers, MiB"] = gateway.memory_mib()
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    binaries = (arguments.build / "bin").resolve()
    rounds = []
    for _ in range(arguments.rounds):
        with tempfile.TemporaryDirectory() as name:
            directory = pathlib.Path(name)
            sim = Process([binaries / "hmxsim"], None, directory, False)
            bridge = Process([binaries / "hmxtolubridge"], None, directory, False)
            environment = dict(os.environ, KELO_RUNTIME_DIR=name)
            subprocess.run([binaries / "hmxctl", "--timeout", "20s", "list", "displays"], env=environment, check=True, capture_output=True)
            gateway = Process([binaries / "hmxgateway", "--allow-changes", "--listen", "127.0.0.1:0"], None, directory, False)
            while not (address := re.search(r"http://127.0.0.1:(\d+)/", gateway.log.read_text(encoding="utf-8"))):
                time.sleep(0.01)
            rounds.append(measure(binaries, directory, address[1]) | measure_viewers(binaries, gateway, address[1]))
            for process in (gateway, bridge, sim):
                process.close()
    width = max(map(len, rounds[0]))
    for figure in rounds[0]:
        values = [done[figure] for done in rounds]
        print(f"{figure:{width}}  {statistics.median(values):10.2f}  ({min(values):.2f}-{max(values):.2f})")
    print(f"{len(rounds)} rounds; load {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors")


if __name__ == "__main__":
    main()
