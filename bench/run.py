#!/usr/bin/env python3
"""Measures the road of a request against the bare floor and prints one table. Usage: run.py BUILD_DIR [--json FILE] [--rounds N]

Every figure of the bridge stands beside the same figure of the floor relay from the same round, and what counts is their ratio: absolute times
depend on the machine and its mood. Rounds are shuffled; the table shows medians with minimum and maximum.
"""

import argparse
import json
import os
import pathlib
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

UPSTREAMS = ["/hmxdisplaymanager", "/hmxinputmanager", "/hmxpopupmanager"]
MIMES = {"json": "application/json", "msgpack": "application/vnd.msgpack", "cbor": "application/vnd.ixobin"}


class Stage:
    """The processes between which one thing is measured: upstream, and bridge or floor."""

    def __init__(self, binaries, kind, cpu):
        self.directory = tempfile.mkdtemp(prefix="road-")
        self.binaries = binaries
        self.cpu = cpu
        environment = dict(os.environ, KELO_RUNTIME_DIR=self.directory)
        domain = os.path.join(self.directory, "local")
        os.mkdir(domain, 0o700)
        self.domain = domain
        self.log = open(os.path.join(self.directory, "log"), "w", encoding="utf-8")
        self.processes = [self.start([binaries / "road", "upstream", domain, *UPSTREAMS], environment)]
        for service in UPSTREAMS:
            self.wait_for(service)
        begin = time.monotonic()
        if kind == "floor":
            self.service = "/floor"
            middle = [binaries / "road", "relay", domain, "/floor", UPSTREAMS[0]]
        else:
            self.service = "/hmx"
            middle = [binaries / "hmxtolubridge"]
        self.processes.append(self.start(middle, environment))
        self.wait_for(self.service)
        self.client(1, warmup=0)
        self.ready_ms = (time.monotonic() - begin) * 1000
        self.middle = self.processes[-1].pid

    def start(self, command, environment):
        prefix = ["taskset", "-c", str(self.cpu)] if self.cpu is not None else []
        return subprocess.Popen([*prefix, *map(str, command)], env=environment, stdout=self.log, stderr=self.log)

    def wait_for(self, service):
        path = os.path.join(self.domain, service.replace("/", "%2F") + ".sock")
        for _ in range(2000):
            if os.path.exists(path):
                return
            time.sleep(0.002)
        raise SystemExit(f"run.py: {service} did not appear; log: {self.log.name}")

    def client(self, count, in_flight=1, connections=1, warmup=None, mime="json"):
        warmup = max(200, count // 10) if warmup is None else warmup
        prefix = ["taskset", "-c", str(self.cpu)] if self.cpu is not None else []
        command = [*prefix, str(self.binaries / "road"), "client", self.domain, self.service, str(count), str(in_flight), str(connections),
                   str(warmup), MIMES[mime]]
        done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
        if done.returncode != 0:
            raise SystemExit(f"run.py: {' '.join(command)}: {done.stderr}")
        return json.loads(done.stdout)

    def cpu_seconds(self):
        """Processor time of the middle process, all threads, from the scheduler's own account."""
        total = 0
        for task in pathlib.Path(f"/proc/{self.middle}/task").iterdir():
            total += int((task / "schedstat").read_text().split()[0])
        return total / 1e9

    def sleeps(self):
        total = 0
        for task in pathlib.Path(f"/proc/{self.middle}/task").iterdir():
            total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", (task / "status").read_text(), re.M).group(1))
        return total

    def memory_mib(self):
        return int(re.search(r"^VmRSS:\s+(\d+)", pathlib.Path(f"/proc/{self.middle}/status").read_text(), re.M).group(1)) / 1024

    def system_calls(self, count):
        """System calls per request, counted by strace over a bounded run; None where strace is missing or not permitted."""
        if shutil.which("strace") is None:
            return None
        output = os.path.join(self.directory, "strace")
        tracer = subprocess.Popen(["strace", "-f", "-c", "-o", output, "-p", str(self.middle)], stderr=subprocess.PIPE, text=True)
        time.sleep(0.3)
        if tracer.poll() is not None:
            return None
        self.client(count, warmup=0)
        tracer.terminate()
        tracer.wait(timeout=10)
        match = re.search(r"^100\.00\s+\S+\s+(?:\S+\s+)?(\d+)(?:\s+\d+)? total", pathlib.Path(output).read_text(), re.M)
        return int(match.group(1)) / count if match else None

    def close(self):
        for process in reversed(self.processes):
            process.kill()
            process.wait()
        self.log.close()
        shutil.rmtree(self.directory, ignore_errors=True)


def measure(binaries, kind, mime, quick):
    figures = {}
    scale = 1 if quick else 3
    stage = Stage(binaries, kind, cpu=0)
    try:
        count = 4000 * scale
        before_cpu, before_sleeps = stage.cpu_seconds(), stage.sleeps()
        result = stage.client(count, mime=mime)
        requests = count + max(200, count // 10)
        figures["p50 pinned, us"] = result["p50_us"]
        figures["p99 pinned, us"] = result["p99_us"]
        figures["CPU per request pinned, us"] = (stage.cpu_seconds() - before_cpu) / requests * 1e6
        figures["sleeps per request"] = (stage.sleeps() - before_sleeps) / requests
        figures["requests/s pinned, 32 in flight"] = stage.client(count * 2, in_flight=32, mime=mime)["per_second"]
        figures["requests/s pinned, 8 clients"] = stage.client(count // 4, connections=8, mime=mime)["per_second"]
        figures["memory, MiB"] = stage.memory_mib()
        figures["start to first answer, ms"] = stage.ready_ms
        if mime == "json":
            calls = stage.system_calls(2000)
            if calls is not None:
                figures["system calls per request"] = calls
    finally:
        stage.close()
    if mime == "json":
        stage = Stage(binaries, kind, cpu=None)
        try:
            result = stage.client(4000 * scale)
            figures["p50 free, us"] = result["p50_us"]
            figures["p99 free, us"] = result["p99_us"]
            figures["requests/s free, 32 in flight"] = stage.client(8000 * scale, in_flight=32)["per_second"]
        finally:
            stage.close()
    return figures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--quick", action="store_true")
    arguments = parser.parse_args()
    binaries = (arguments.build / "bin").resolve()
    subjects = [("floor", "json"), ("bridge", "json"), ("bridge", "msgpack"), ("bridge", "cbor")]
    rounds = []
    for index in range(arguments.rounds):
        order = random.sample(subjects, len(subjects))
        print(f"round {index + 1} of {arguments.rounds}", file=sys.stderr)
        rounds.append({subject: measure(binaries, *subject, arguments.quick) for subject in order})
    table = {}
    for kind, mime in subjects:
        for figure in rounds[0][(kind, mime)]:
            values = [done[(kind, mime)][figure] for done in rounds if figure in done[(kind, mime)]]
            ratios = [done[(kind, mime)][figure] / done[("floor", "json")][figure] for done in rounds
                      if figure in done[(kind, mime)] and done[("floor", "json")].get(figure)]
            table.setdefault(figure, {})[f"{kind} {mime}"] = {
                "median": statistics.median(values), "min": min(values), "max": max(values),
                "ratio": statistics.median(ratios) if ratios else None,
            }
    columns = [f"{kind} {mime}" for kind, mime in subjects]
    print(f"{'':34}" + "".join(f"{column:>30}" for column in columns))
    for figure, row in table.items():
        cells = []
        for column in columns:
            cell = row.get(column)
            if cell is None:
                cells.append("-")
                continue
            ratio = f" x{cell['ratio']:.2f}" if cell["ratio"] is not None and column != "floor json" else ""
            cells.append(f"{cell['median']:.4g} ({cell['min']:.4g}-{cell['max']:.4g}){ratio}")
        print(f"{figure:34}" + "".join(f"{cell:>30}" for cell in cells))
    if arguments.json:
        arguments.json.write_text(json.dumps(table, indent=2) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
