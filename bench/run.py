#!/usr/bin/env python3
"""Measures the path of a request and prints one table; `--json FILE` keeps the figures. Usage: run.py BUILD_DIR [--seconds N] [--json FILE]

Each figure is compared with the floor, a relay that makes the same hand-overs and does nothing else. What counts is the ratio of the two in
the same round, because absolute times depend on the machine and its load. In a round, the systems are shuffled for every task; the table
shows medians with minimum and maximum.
docs/performance.md explains each figure.
"""

import argparse
import contextlib
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
import uuid

FLOOR, BRIDGE, DBUS, GRPC = "floor", "bridge", "sd-bus", "gRPC"
MIMES = {BRIDGE: "application/json", "msgpack": "application/vnd.msgpack", "cbor": "application/vnd.ixobin"}
PEERS = {DBUS: "peer_sdbus", GRPC: "peer_grpc"}
IDLE_SECONDS = 3
WATCHERS = REGIONS = (1, 10, 100, 1000)
POLICY = '<policy context="default"><allow send_destination="*"/><allow receive_sender="*"/><allow own="*"/></policy>'


class Process:
    """A process that we started, and what the kernel has counted for it."""

    def __init__(self, command, cpu, directory, ready):
        pinned = ["taskset", "-c", str(cpu)] if cpu is not None else []
        self.log = directory / "log"
        with self.log.open("a", encoding="utf-8") as log:
            self.process = subprocess.Popen([*pinned, *map(str, command)], env=dict(os.environ, KELO_RUNTIME_DIR=str(directory)),
                                            stdout=subprocess.PIPE if ready else log, stderr=log, text=True)
        if ready and not self.process.stdout.readline():
            sys.exit(f"run.py: {command[0]} did not start: {self.log.read_text(encoding='utf-8')}")
        self.pid = self.process.pid

    def threads(self, file):
        for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir():
            with contextlib.suppress(FileNotFoundError):  # a thread that has just ended
                yield (task / file).read_text()

    def cpu_seconds(self):
        return sum(int(text.split()[0]) for text in self.threads("schedstat")) / 1e9

    def switches(self, kinds):
        return sum(int(number) for text in self.threads("status") for number in re.findall(rf"^{kinds}_ctxt_switches:\s+(\d+)", text, re.M))

    def memory_mib(self):
        return int(re.search(r"^VmRSS:\s+(\d+)", pathlib.Path(f"/proc/{self.pid}/status").read_text(), re.M).group(1)) / 1024

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=5)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        if self.process.stdout:
            self.process.stdout.close()


class Stage:
    """Everything needed to measure one system: its upstream service, the system in the middle, and a directory for their sockets."""

    def __init__(self, binaries, system, cpu=None, sends="gathered"):
        self.system, self.cpu, self.sends, self.slow = system, cpu, sends, system in PEERS
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="road-"))
        self.domain = self.directory / "local"
        self.domain.mkdir(mode=0o700)
        self.processes, self.middle = [], []
        if self.slow:
            self.tool, self.arguments = [binaries / PEERS[system]], [self.domain]
        else:
            self.tool, self.arguments = [binaries / "road"], [self.domain, "/floor" if system == FLOOR else "/hmx"]
            relay = [*self.tool, "relay", *self.arguments, "/hmxdisplaymanager"]
            self.middle_command = relay if system == FLOOR else [binaries / "hmxtolubridge"]

    def __enter__(self):
        """Starts the upstream service."""
        try:
            if self.system == DBUS:
                self.middle.append(self.start(self.bus()))
            sends = [] if self.slow else [f"sends={self.sends}"]
            self.upstream = self.start([*self.tool, "upstream", self.domain, *sends])
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for process in reversed(self.processes):
            process.close()
        shutil.rmtree(self.directory, ignore_errors=True)

    def bus(self):
        """The command of a private bus at DIR/bus: dbus-broker if it is installed."""
        if shutil.which("dbus-broker"):
            return [*self.tool, "broker", self.domain]
        config = self.directory / "bus.conf"
        config.write_text(f"<busconfig><listen>unix:path={self.domain}/bus</listen>{POLICY}</busconfig>", encoding="utf-8")
        return ["dbus-daemon", f"--config-file={config}", "--nofork", "--print-address"]

    def start(self, command, ready=True):
        process = Process(command, self.cpu, self.directory, ready)
        self.processes.append(process)
        return process

    def ready(self):
        """Starts the system in the middle and warms it up."""
        command = [*self.tool, "relay", self.domain] if self.slow else self.middle_command
        self.middle.append(self.start(command, ready=self.system not in MIMES))
        self.client(200)
        return self

    def command(self, role, **options):
        pinned = ["taskset", "-c", str(self.cpu)] if self.cpu is not None else []
        return list(map(str, [*pinned, *self.tool, role, *self.arguments, *(f"{key}={value}" for key, value in options.items())]))

    def run(self, command):
        done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False,
                              env=dict(os.environ, KELO_RUNTIME_DIR=str(self.directory)))
        if done.returncode != 0:
            sys.exit(f"run.py: {' '.join(command)}: {done.stderr}")
        return json.loads(done.stdout.splitlines()[-1])

    def client(self, count, **options):
        """The client's figures and, per request, what the other processes spent on it."""
        if self.system in MIMES:
            options.setdefault("mime", MIMES[self.system])
        before = self.spent()
        result = self.run(self.command("client", count=count, warm_up=max(100, count // 10), sends=self.sends, **options))
        middle, everybody, sleeps = ((after - then) / result["requests"] for after, then in zip(self.spent(), before))
        return dict(result, middle_us=middle * 1e6, total_us=everybody * 1e6 + result["cpu_us"], sleeps=sleeps)

    def spent(self):
        middle = sum(process.cpu_seconds() for process in self.middle)
        return middle, middle + self.upstream.cpu_seconds(), sum(process.switches("voluntary") for process in self.middle)

    def system_calls(self, count):
        """System calls per request; None if strace is missing or not permitted."""
        if shutil.which("strace") is None:
            return None
        output = self.directory / "strace"
        attach = [word for process in self.middle for word in ("-p", str(process.pid))]
        with subprocess.Popen(["strace", "-f", "-c", "-o", output, *attach], stderr=subprocess.PIPE, text=True) as tracer:
            if any("attached" not in tracer.stderr.readline() for _ in self.middle):
                return None
            requests = self.client(count)["requests"]
            tracer.terminate()
        match = re.search(r"^100\.00\s+\S+\s+\S+\s+(\d+)(?:\s+\d+)?\s+total", output.read_text(encoding="utf-8"), re.M)
        return int(match.group(1)) / requests if match else None


def quietest(measure):
    """The best of a few tries, because other programs can only make them slower."""
    return min(measure() for _ in range(3))


# The tasks of a round: what is measured while a stage is running. Peers are slow, so they get fewer requests.
def one_in_flight(stage):
    one = stage.client(1000 if stage.slow else 3000)
    return {"p50 pinned, us": one["p50_us"], "p99 pinned, us": one["p99_us"], "CPU in the middle, us": one["middle_us"],
            "sleeps": one["sleeps"]}


def many_in_flight(stage):
    deep = stage.client(1500 if stage.slow else 10000, in_flight=32)
    return {f"requests/s pinned, 32 {stage.sends}": deep["per_second"], f"CPU of all, us, 32 {stage.sends}": deep["total_us"]}


def many_clients(stage):
    many = stage.client(200 if stage.slow else 1000, clients=8)
    return {"requests/s pinned, 8 clients": many["per_second"], "CPU of all, us, 8 clients": many["total_us"]}


def system_calls(stage):
    calls = stage.system_calls(500)
    memory = sum(process.memory_mib() for process in stage.middle)
    return {"memory in the middle, MiB": memory} | ({} if calls is None else {"system calls": calls})


def free_of_pins(stage):
    one = stage.client(500 if stage.slow else 3000)
    deep = stage.client(1500 if stage.slow else 10000, in_flight=32)
    many = stage.client(200 if stage.slow else 1000, clients=8)
    return {"p50 free, us": one["p50_us"], "p99 free, us": one["p99_us"], "requests/s free, 32 gathered": deep["per_second"],
            "requests/s free, 8 clients": many["per_second"]}


def start_to_first_answer(stage):
    command = stage.command("start") + list(map(str, stage.middle_command))
    return {"start to first answer, ms": quietest(lambda: stage.run(command)["first_answer_ms"])}


def measure_road(binaries, systems):
    """The figures that are compared with the floor. Each task runs with all systems, directly one after another, before the next task."""
    ours = [system for system in systems if system not in PEERS]
    plan = [
        (systems, {"cpu": 0}, [one_in_flight, many_in_flight, many_clients, system_calls]),
        (ours, {"cpu": 0, "sends": "single"}, [many_in_flight]),
        ([system for system in systems if system not in ("msgpack", "cbor")], {}, [free_of_pins]),
    ]
    figures = {system: {} for system in systems}
    for those, how, tasks in plan:
        with contextlib.ExitStack() as stages:
            ready = [stages.enter_context(Stage(binaries, system, **how)).ready() for system in those]
            for task in tasks:
                for stage in random.sample(ready, len(ready)):
                    figures[stage.system] |= task(stage)
    for system in random.sample((FLOOR, BRIDGE), 2):
        with Stage(binaries, system) as stage:
            figures[system] |= start_to_first_answer(stage)
    return figures


def measure_rest(binaries):
    """The figures of the bridge alone."""
    figures = {}
    with Stage(binaries, BRIDGE) as free:
        bridge = free.ready().middle[0]
        before = bridge.switches("(?:non)?voluntary")
        time.sleep(IDLE_SECONDS)
        figures[f"wake-ups in {IDLE_SECONDS} s idle"] = bridge.switches("(?:non)?voluntary") - before
        ways = {"p99 beside 1000 watchers": {"count": 10000}, "p99 beside 1000 watchers, paced": {"count": 500, "interval_us": 1000}}
        own = {name: quietest(lambda how=how: free.client(**how)["p99_us"]) for name, how in ways.items()}
        watching = free.start(free.command("watch", watchers=1000, changes=100000, interval_us=50000))
        for name, how in ways.items():
            figures[f"{name}, to its own"] = quietest(lambda how=how: free.client(**how)["p99_us"]) / own[name]
        watching.close()
    return figures


def measure_growth(binaries):
    """How figures grow: by name, and by the number of what grows."""
    series = {}

    def note(name, number, value):
        series.setdefault(name, {})[number] = value

    with Stage(binaries, BRIDGE, cpu=0) as pinned:
        bridge = pinned.ready().middle[0]
        for watchers in WATCHERS:
            changes = 20
            before = bridge.cpu_seconds()
            result = pinned.run(pinned.command("watch", watchers=watchers, changes=changes))
            note("us from a popup's change to its last watcher", watchers, result["p50_us"])
            note("bridge's CPU for a popup's change, us", watchers, (bridge.cpu_seconds() - before) / changes * 1e6)
        regions_a, regions_b = ('"regions":{"infoForAllLayers":[{"layer":"%s"}]}' % layer for layer in "AB")
        body = '{"display":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","subComponent":"map%",' + regions_a + "}"
        first = uuid.uuid5(uuid.NAMESPACE_URL, "Driver_DisplayHMI_ID_ANDROID_DRIVERmap1")
        for regions in REGIONS:
            pinned.run(pinned.command("client", command="insert", path="/regionconfigurations", body=body, count=regions))
            for command, change in (("retrieve", ""), ("update", "{" + regions_b + "}")):
                result = pinned.client(500, command=command, path=f"/regionconfigurations/{first}", body=change)
                note(f"bridge's CPU to {command} one region configuration, us", regions, result["middle_us"])
    return series


def measure_parts(binaries):
    """The micro-benchmarks, with the names that they print, in nanoseconds of CPU time."""
    command = [binaries / "micro", "--benchmark_format=json", "--benchmark_min_time=0.1"]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    parts, slopes = {}, {}
    for part in json.loads(done.stdout)["benchmarks"]:
        if part["run_type"] == "iteration":
            parts[part["name"].removesuffix("/real_time")] = part["real_time"] if part["name"].endswith("real_time") else part["cpu_time"]
        elif part.get("aggregate_name") == "BigO":
            slopes[part["run_name"]] = f"{part['cpu_coefficient']:.3g} {part['big_o']}"
    return {"nanoseconds": parts, "slopes": slopes}


def spread(values):
    return {"median": statistics.median(values), "min": min(values), "max": max(values)}


def compare(rounds, systems):
    """For each figure and system, the values and the ratios to the floor; for the bridge also the ratios to the peers."""
    table = {}
    for system in systems:
        for figure in rounds[0][system]:
            pairs = [(done[system][figure], done) for done in rounds if figure in done[system]]
            row = table.setdefault(figure, {}).setdefault(system, spread([value for value, _ in pairs]))
            for other in (FLOOR, *PEERS) if system == BRIDGE else (FLOOR,):
                ratios = [value / done[other][figure] for value, done in pairs if done.get(other, {}).get(figure)]
                if other != system and ratios:
                    row[f"to {other}"] = spread(ratios)
    return table


def slope(points):
    """The slope of the least-squares line."""
    numbers = [float(number) for number in points]
    mean_x, mean_y = statistics.mean(numbers), statistics.mean(points.values())
    return sum((float(x) - mean_x) * (y - mean_y) for x, y in points.items()) / sum((x - mean_x) ** 2 for x in numbers)


def show(report):
    def cells(row, width):
        print(f"{row[0]:46}" + "".join(f"{cell:>{width}}" for cell in row[1:]))

    def number(values):
        texts = (f"{values[key]:.0f}" if values[key] >= 1000 else f"{values[key]:.3g}" for key in ("median", "min", "max"))
        return "{} ({}-{})".format(*texts)

    for name in report["left out"]:
        print(f"left out: {name}")
    systems = report["systems"]
    cells(["per request, and as ratio to the floor", *systems], 32)
    for figure, row in report["figures"].items():
        cells([figure, *(number(row[system]) + (f" x{row[system]['to floor']['median']:.2f}" if "to floor" in row[system] else "")
                         if system in row else "-" for system in systems)], 32)
    print()
    others = [system for system in systems if system in (FLOOR, *PEERS)]
    cells(["the bridge as ratio to", *others], 32)
    for figure, row in report["figures"].items():
        ratios = [row.get(BRIDGE, {}).get(f"to {other}") for other in others]
        if any(ratios):
            cells([figure, *(number(ratio) if ratio else "-" for ratio in ratios)], 32)
    print()
    for figure, values in report["rest"].items():
        cells([figure, number(values)], 32)
    print()
    cells(["with so many of them", *WATCHERS, "slope"], 14)
    for name, points in report["growth"].items():
        cells([name, *(f"{value:.4g}" for value in points["values"].values()), f"{points['slope']:.3g}"], 14)
    if report["parts"]:
        print()
        cells(["parts", "ns"], 14)
        for name, value in report["parts"]["nanoseconds"].items():
            cells([name, f"{value:.0f}"], 14)
        for name, value in report["parts"]["slopes"].items():
            cells([f"slope of {name}", value], 14)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--seconds", type=float, default=200, help="begin no further round after that time")
    parser.add_argument("--json", type=pathlib.Path)
    arguments = parser.parse_args()
    binaries = (arguments.build / "bin").resolve()

    left_out = [f"{name}: its packages are missing" for name, program in PEERS.items() if not (binaries / program).exists()]
    if not (binaries / "micro").exists():
        left_out.append("the parts one by one: libbenchmark-dev is missing")
    if not shutil.which("strace"):
        left_out.append("system calls: strace is missing")
    if not shutil.which("dbus-broker"):
        left_out.append("dbus-broker: not installed, dbus-daemon takes its place")
    systems = [FLOOR, *MIMES, *(name for name, program in PEERS.items() if (binaries / program).exists())]

    begin, load = time.monotonic(), os.getloadavg()
    rounds, rests, growths = [], [], []
    while not rounds or time.monotonic() < begin + arguments.seconds:
        print(f"round {len(rounds) + 1}, {time.monotonic() - begin:.0f} s", file=sys.stderr)
        if len(rounds) % 4 == 0:
            rests.append(measure_rest(binaries))
            growths.append(measure_growth(binaries))
        rounds.append(measure_road(binaries, systems))
    growth = {}
    for name, points in growths[0].items():
        medians = {number: statistics.median([done[name][number] for done in growths]) for number in points}
        growth[name] = {"values": medians, "slope": slope(medians)}
    report = {
        "left out": left_out,
        "systems": systems,
        "figures": compare(rounds, systems),
        "rest": {figure: spread([done[figure] for done in rests]) for figure in rests[0]},
        "growth": growth,
        "parts": measure_parts(binaries) if (binaries / "micro").exists() else {},
        "load": {"before": load[0], "after": os.getloadavg()[0], "processors": os.cpu_count()},
        "seconds": time.monotonic() - begin,
    }
    show(report)
    print(f"\n{len(rounds)} rounds in {report['seconds']:.0f} s; load before {load[0]:.1f} on {os.cpu_count()} processors")
    if arguments.json:
        arguments.json.write_text(json.dumps(report, indent=2) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
