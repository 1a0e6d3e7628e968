#!/usr/bin/env python3
"""/hmx on two machines: export and import between network namespaces, through losses of everything in between.

Usage: relay.py BIN_DIR [--deaths N] [--seed N]

Without the right to make namespaces, the machines are two runtime directories that share the loopback, and links are not cut."""

import argparse
import contextlib
import json
import os
import random
import signal
import subprocess
import sys
import time
from pathlib import Path

from cockpit import Cockpit

LEASE = 1.0
VOLUME = "popups/Driver_Display/Volume"
VOLUME_ID = "popups/1002c581-0c83-5177-9382-35fa05fc7015"
REGION = "regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER"
LISTS = ("displays", "displayables", "layerconfigurations", "popups")


class Network:
    """Namespaces joined by one bridge, or nothing but the loopback."""

    def __init__(self, names):
        self.tag = f"hmx{os.getpid() % 100000}"
        self.names = names
        self.made = []
        self.real = self._make()
        if not self.real:
            print("relay: no network namespaces here; over the loopback, links are not cut")

    def _ip(self, *words):
        return subprocess.run(["ip", *words], capture_output=True, check=False).returncode == 0

    def space(self, name):
        return f"{self.tag}{name}"

    def _make(self):
        hub = self.space("hub")
        if not self._ip("netns", "add", hub):
            return False
        self.made.append(hub)
        good = self._ip("-n", hub, "link", "add", "hub0", "type", "bridge", "mcast_snooping", "0") and self._ip("-n", hub, "link", "set", "hub0", "up")
        for number, name in enumerate(self.names, 1):
            space = self.space(name)
            good = good and self._ip("netns", "add", space)
            self.made.append(space)
            good = good and self._ip("link", "add", "eth", "netns", space, "type", "veth", "peer", "name", f"p{name}", "netns", hub)
            good = good and self._ip("-n", hub, "link", "set", f"p{name}", "master", "hub0", "up")
            good = good and self._ip("-n", space, "addr", "add", f"10.79.0.{number}/24", "dev", "eth")
            good = good and self._ip("-n", space, "link", "set", "eth", "up") and self._ip("-n", space, "link", "set", "lo", "up")
        return good

    def cut(self, name, cut=True):
        if self.real:
            self._ip("-n", self.space("hub"), "link", "set", f"p{name}", "down" if cut else "up")
        return self.real

    def close(self):
        for space in self.made:
            self._ip("netns", "del", space)


class Machine(Cockpit):
    """A cockpit whose relays live in the machine's own network."""

    def __init__(self, binaries, network, name, **options):
        super().__init__(binaries, **options)
        self.network, self.name = network, name

    def command(self, *words):
        if not self.network.real:
            return [self.binaries / "hmxrelay", *words]
        return ["ip", "netns", "exec", self.network.space(self.name), self.binaries / "hmxrelay", "--interface", "eth", *words]

    def relay(self, *words):
        with open(self.directory / "relay.log", "ab") as log:
            self.processes["relay"] = subprocess.Popen(self.command(*words), env=self.environment, stderr=log, stdin=subprocess.DEVNULL)

    def kill(self, name):
        self.stop(name, signal.SIGKILL)


class Copy(Machine):
    """A machine without a bridge."""

    def __init__(self, binaries, network, name):
        super().__init__(binaries, network, name)

    def __enter__(self):
        return self

    def shown(self, *words, service="/hmx@cluster", **options):
        return self.ctl("--service", service, *words, **options)


def own_time():
    """Seconds that have passed here, without those for which the host of a virtual machine withheld its processors."""
    with open("/proc/stat", encoding="ascii") as file:
        stolen = int(file.readline().split()[8])
    return time.monotonic() - stolen / os.sysconf("SC_CLK_TCK")


def until(what, true, seconds):
    begun = own_time()
    while not true():
        if own_time() - begun > seconds:
            raise AssertionError(f"not within {seconds} s: {what}")
        time.sleep(0.02)
    return max(0.0, own_time() - begun)


def expect(what, good):
    if not good:
        raise AssertionError(what)


def same(a, b, resources=LISTS, service="/hmx@cluster"):
    for resource in resources:
        left = a.ctl("list", resource, "-o", "json")
        right = b.shown("list", resource, "-o", "json", service=service)
        if left.returncode != 0 or left.stdout != right.stdout:
            return False
    return True


def change_world(machine, number):
    """One popup goes, and another comes."""
    for words in (("remove", f"popups/Driver_Display/Made_{number - 1}" if number else "popups/Driver_Display/Hint"),
                  ("add", "popups/Driver_Display", f"name=Made_{number}")):
        machine.ctl("sim", *words)


def requested(machine, words=()):
    done = machine.ctl(*words, "get", VOLUME, "-o", "json")
    return done.returncode == 0 and json.loads(done.stdout)["requested"] is True


def data(machine):
    done = machine.ctl("get", VOLUME, "-o", "json")
    return json.loads(done.stdout).get("requestData") if done.returncode == 0 else None


def origin(b, service="/hmx@cluster"):
    done = b.ctl("call", service, "retrieve", "/relay", "-o", "json")
    return json.loads(done.stdout) if done.returncode == 0 else {}


class Watcher:
    """What somebody sees who watches a resource all the time; ends with the machine, if not before."""

    def __init__(self, machine, *words):
        self.machine, self.name = machine, f"watch{id(self)}"
        self.path = machine.directory / self.name
        with open(self.path, "wb") as file:
            machine.processes[self.name] = subprocess.Popen(
                [machine.binaries / "hmxctl", *words, "-o", "json"], env=machine.environment, stdout=file,
                stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL)

    def events(self):
        return [json.loads(line) for line in self.path.read_text().splitlines() if line.endswith("}")]

    def state(self):
        """The elements that the events lead to, by id; each event must change something, and nothing may happen in a loss."""
        state, lost = {}, False
        for event in self.events():
            what = event["event"]
            if what in ("changed", "removed"):
                expect(f"in a loss: {event}", not lost)
                expect(f"{what} twice: {event}", state.get(event["id"]) != event.get("element"))
            if what == "snapshot":
                state = {element["id"]: element for element in event["elements"]}
            elif what == "changed":
                state[event["id"]] = event["element"]
            elif what == "removed":
                del state[event["id"]]
            lost = what == "source-down" or (lost and what != "source-up")
        return state

    def close(self):
        self.machine.kill(self.name)


def insert_region(ctl):
    body = json.dumps({"display": "Driver_Display", "hmi": "HMI_ID_ANDROID_DRIVER", "regions": {"infoForAllLayers": [
        {"layer": "Home", "inputRegions": [{"bounds": {"upperLeftPoint": {"posX": 1, "posY": 2}, "width": 9, "height": 9}}]}]}})
    expect("insert", ctl("insert", "regionconfigurations", "-f", "-", input=body, stdin=None).returncode == 0)


def same_region(a, b):
    return b.shown("get", REGION, "-o", "json").stdout == a.ctl("get", REGION, "-o", "json").stdout != ""


def alike(a, b):
    until("the same on both", lambda: same(a, b), 10)
    for words in (("tree",), ("hit", "Driver_Display", "300", "300")):
        expect(f"{words[0]} differs", a.ctl(*words).stdout == b.shown(*words).stdout != "")
    # Region configurations are followed as soon as somebody asks.
    missing = b.shown("get", REGION)
    expect(f"a region configuration that is not there: {missing}", missing.returncode == 3)
    insert_region(b.shown)
    until("a region configuration", lambda: same_region(a, b), 5)
    expect("delete", b.shown("delete", REGION).returncode == 0)
    until("its removal", lambda: b.shown("get", REGION).returncode == 3, 5)
    # A popup's change there is seen here, and answered by the bridge.
    expect("update", b.shown("update", VOLUME, "requested=true").returncode == 0)
    until("the change at the origin", lambda: requested(a), 5)
    expect("the bridge's own refusal", b.shown("update", "popups/Driver_Display/Nope", "requested=true").returncode == 3)
    expect("services", "cluster" in b.ctl("services").stdout)


def losses(network, a, b, export):
    """Each way to lose the origin: its watchers are told in time, nothing old is passed off as new, and all heals."""
    def kill():
        a.kill("relay")
        return lambda: a.relay(*export)

    def cut():
        network.cut("a")
        return lambda: network.cut("a", False)

    for number, (what, lose) in enumerate((("the export is killed", kill), ("the link is cut", cut))):
        if lose is cut and not network.real:
            continue
        watcher = Watcher(b, "--service", "/hmx@cluster", "watch", "popups")
        until("the first state", lambda: bool(watcher.events()), 5)
        expect("not there yet", b.shown("get", REGION).returncode == 3)
        heal = lose()
        until(f"{what}: watchers are told", lambda: watcher.events()[-1]["event"] == "source-down", LEASE + 0.5)
        expect(f"{what}: why {watcher.events()[-2:]}", "origin 'cluster' is lost: last heard of" in json.dumps(watcher.events()[-1]))
        refused = b.shown("list", "displays")
        expect(f"{what}: {refused}", refused.returncode == 4 and "is lost: last heard of" in refused.stderr)
        old = b.shown("--stale", "list", "displays", "-o", "json")
        expect(f"{what}: {old}", old.stdout == a.ctl("list", "displays", "-o", "json").stdout and "ms ago" in old.stderr)
        change = b.shown("update", VOLUME_ID, "requested=false")
        expect(f"{what}: {change}", change.returncode == 4 and "not sent" in change.stderr)
        expect("a change without an origin", requested(a))
        # Meanwhile the origin changes: something goes, something comes.
        change_world(a, number)
        insert_region(a.ctl)
        heal()
        took = until(f"{what}: heals", lambda: same(a, b), LEASE + 2 + 2)
        # Nobody has asked for it in the meantime, so the export has left it and follows it anew.
        until(f"{what}: the region configuration", lambda: same_region(a, b), 5)
        expect("delete", a.ctl("delete", REGION).returncode == 0)
        until("the watcher", lambda: watcher.events()[-1]["event"] in ("source-up", "snapshot", "changed"), 3)
        print(f"relay: {what}: healed in {took:.2f} s")
        watcher.close()
    # A change under way when the link goes: its end is told, and says that nobody knows.
    if network.real:
        os.kill(a.processes["hmxtolubridge"].pid, signal.SIGSTOP)
        with subprocess.Popen([b.binaries / "hmxctl", "--timeout", "8s", "--service", "/hmx@cluster", "update", VOLUME, "requested=false"],
                              env=b.environment, stderr=subprocess.PIPE, text=True) as change:
            time.sleep(0.3)
            network.cut("a")
            _, told = change.communicate(timeout=8)
        expect(f"a change under way: {change.returncode} {told}", change.returncode == 4 and "outcome unknown" in told)
        network.cut("a", False)
        os.kill(a.processes["hmxtolubridge"].pid, signal.SIGCONT)
        until("healed", lambda: same(a, b), LEASE + 4)
    # A dead bridge is not an empty one.
    a.kill("hmxtolubridge")
    until("the bridge's loss", lambda: b.shown("list", "displays").returncode == 4, 3)
    expect("the origin lives", origin(b)["state"] == "live")
    a.start("hmxtolubridge")
    until("the bridge is back", lambda: same(a, b), 5)


def names(a, b, binaries, network):
    """Two exports of one name, several origins, an import under the bridge's own name."""
    second = a.run(a.command("export", "--name", "cluster"))
    expect(f"a second export: {second}", second.returncode == 7 and "'cluster' is exported already" in second.stderr)
    with Machine(binaries, network, "c") as c:
        c.relay("export", "--name", "rear")
        until("another origin", lambda: same(c, b, service="/hmx@rear"), 5)
        expect("the first one stays", same(a, b))
        taken = c.run(c.command("import", "--as", "/hmx", "--origin", "cluster"))
        expect(f"/hmx is served: {taken}", taken.returncode == 7)
        c.stop("relay")
        # Told apart when they meet only later: the one that began first is followed.
        if network.cut("c"):
            time.sleep(0.2)
            c.relay("export", "--name", "cluster")
            time.sleep(1)
            c.ctl("update", VOLUME, "requested=false")
            a.ctl("update", VOLUME, "requested=true")
            network.cut("c", False)
            until("a namesake", lambda: origin(b).get("exports") == 2, 5)
            expect("the elder", requested(b, ("--service", "/hmx@cluster")))
            expect("and nothing else", same(a, b))
            # One that hears of an elder only after it has begun ends all the same.
            c.stop("relay")
            network.cut("c")
            c.relay("export", "--name", "cluster")
            time.sleep(0.2)
            late = c.processes["relay"]
            late.send_signal(signal.SIGSTOP)
            network.cut("c", False)
            time.sleep(2)
            late.send_signal(signal.SIGCONT)
            until("an elder heard of late", lambda: late.poll() == 7, 5)
        c.stop("relay") if "relay" in c.processes else None
    with Copy(binaries, network, "c") as c:
        c.relay("import", "--as", "/hmx", "--origin", "cluster", "--read-only")
        until("under the bridge's name", lambda: same(a, c, service="/hmx"), 5)
        done = c.ctl("update", VOLUME, "requested=false")
        expect(f"only for reading: {done}", done.returncode == 6 and "only for reading" in done.stderr)


def interfere(machine, network, life, *words):
    words = [machine.binaries / "hmxforeigner", "eth" if network.real else "lo", "cluster", life, *words]
    if network.real:
        words = ["ip", "netns", "exec", network.space(machine.name), *words]
    done = machine.run(words)
    expect(f"the foreigner: {done}", done.returncode == 0)


def secrets(a, b, binaries, network):
    """With security, who does not belong sees nothing, and nothing of it is seen."""
    script = Path(__file__).parents[2] / "packaging" / "relay_security.sh"
    for folder in ("ours", "theirs"):
        made = a.run([script, a.directory / folder, "a", "b"])
        expect(f"the example set: {made}", made.returncode == 0)
    for machine, words in ((a, ("export", "--name", "cluster")), (b, ("import",))):
        machine.stop("relay")
        machine.relay(*words, "--security", a.directory / "ours" / machine.name)
    until("the origin, secured", lambda: same(a, b), 10)
    with Copy(binaries, network, "c") as c, Copy(binaries, network, "c") as d:
        c.relay("import")
        d.relay("import", "--security", a.directory / "theirs" / "b")
        time.sleep(2 * LEASE)
        for stranger in (c, d):
            expect("a stranger sees the origin", "cluster" not in stranger.ctl("services").stdout)
        until("the origin, still", lambda: origin(b).get("state") == "live", 5)
        before = origin(b)
        interfere(a, network, before["life"])
        interfere(a, network, before["life"], a.directory / "theirs" / "a")
        expect("samples of strangers", origin(b)["foreign"] == before["foreign"] == 0 and same(a, b))


def foreigners(a, b, network):
    """What others write to the same topics is counted and left."""
    before = origin(b)
    interfere(a, network, before["life"])
    until("the foreigner is noticed", lambda: origin(b)["foreign"] > before["foreign"], 3)
    until("nothing has changed", lambda: same(a, b), LEASE + 2)
    expect("alive", origin(b)["state"] == "live")


def deaths(network, a, b, export, count, seed):
    """Random deaths; each time, everybody who watches is at the true state soon after all lives again, and has heard of every
    change once. A change that was answered with success is there; others were told why not."""
    choose = random.Random(seed)
    slowest, changes, refused = 0.0, 0, 0
    watchers = {each: Watcher(b, "--service", "/hmx@cluster", "watch", each) for each in LISTS}

    def watched():
        for each, watcher in watchers.items():
            done = a.ctl("list", each, "-o", "json")
            if done.returncode != 0 or watcher.state() != {element["id"]: element for element in json.loads(done.stdout)["data"]}:
                return False
        return True

    for number in range(count):
        # "import" last, because the watchers of a killed import find their way alone.
        who = choose.choice(["hmxtolubridge", "hmxsim", "export", "import", "link"])
        a.ctl("update", VOLUME, f"requested={choose.choice(['true', 'false'])}")
        words = ("--timeout", "10s", "--service", "/hmx@cluster", "update", VOLUME_ID, f"requestData={number}")
        change = subprocess.Popen([b.binaries / "hmxctl", *words], env=b.environment, text=True, stdin=subprocess.DEVNULL,
                                  stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        time.sleep(choose.uniform(0, 0.02))
        if who == "link":
            network.cut("a")
            time.sleep(choose.uniform(0, 2))
            change_world(a, number)
            network.cut("a", False)
        elif who == "export":
            a.kill("relay")
            time.sleep(choose.uniform(0, 1.5))
            a.relay(*export)
        elif who == "import":
            b.kill("relay")
            time.sleep(choose.uniform(0, 1.5))
            b.relay("import")
        else:
            a.kill(who)
            time.sleep(choose.uniform(0, 0.5))
            a.start(who, *(["--world", "cockpit"] if who == "hmxsim" else []))
        out, told = change.communicate(timeout=15)
        changes += change.returncode == 0
        refused += change.returncode != 0
        expect(f"an end without a word: {change.returncode} {out} {told}", change.returncode == 0 or told.strip() != "")
        until("the origin itself", lambda: all(a.ctl("list", each).returncode == 0 for each in LISTS), 10)
        took = until(f"death {number} of {who}, seed {seed}", lambda: same(a, b) and watched(), LEASE + 2 + 1.5)
        slowest = max(slowest, took)
        # A simulator that comes back begins anew.
        expect(f"death {number} of {who}, seed {seed}: a change is lost", change.returncode != 0 or who == "hmxsim" or data(a) == str(number))
    for watcher in watchers.values():
        watcher.close()
    print(f"relay: {count} deaths, the slowest recovery took {slowest:.2f} s; {changes} changes made, {refused} refused with a reason")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("binaries")
    parser.add_argument("--deaths", type=int, default=8)
    parser.add_argument("--seed", type=int, default=int(time.time()) % 1000)
    options = parser.parse_args()
    network = Network("abc")
    export = ("export", "--name", "cluster")
    try:
        with Machine(options.binaries, network, "a") as a, Copy(options.binaries, network, "b") as b:
            try:
                a.relay(*export)
                b.relay("import")
                until("the origin", lambda: origin(b).get("state") == "live", 10)
                alike(a, b)
                foreigners(a, b, network)
                losses(network, a, b, export)
                names(a, b, options.binaries, network)
                deaths(network, a, b, export, options.deaths, options.seed)
                secrets(a, b, options.binaries, network)
            except BaseException:
                for machine in (a, b):
                    with contextlib.suppress(OSError):
                        print(machine.name, (machine.directory / "relay.log").read_text(), file=sys.stderr)
                raise
    finally:
        network.close()


if __name__ == "__main__":
    main()
