#!/usr/bin/env python3
"""The log in DLT: what a real daemon gets of it, and what happens without one. Usage: dlt.py BIN_DIR"""

import contextlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from cockpit import Cockpit

LINES, PER_SECOND = 30_000, 10_000
EXIT_SECONDS = 1.0


def eventually(what, get, seconds=20.0):
    end = time.monotonic() + seconds
    while not (result := get()):
        assert time.monotonic() < end, what
        time.sleep(0.1)
    return result


class Dlt:
    """A daemon with a directory and a port of its own, and what a receiver shows of it."""

    def __init__(self, folder):
        self.folder = Path(folder)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = str(probe.getsockname()[1])
        self.configuration = self.folder / "dlt.conf"
        self.configuration.write_text(f"ControlSocketPath = {folder}/control.sock\nPersistanceStoragePath = {folder}\nBindAddress = ::ffff:127.0.0.1\n"
                                      f"LoggingMode = 2\nLoggingFilename = {folder}/daemon.log\nRingbufferMaxSize = 50000000\n")
        self.environment = {"DLT_PIPE_DIR": str(folder)}
        self.daemon = self.receiver = None

    def start(self):
        self.daemon = subprocess.Popen(["dlt-daemon", "-c", self.configuration, "-t", self.folder, "-p", self.port],
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually("the daemon's port", self._listens)
        with open(self.folder / "received", "wb") as received:
            self.receiver = subprocess.Popen(["stdbuf", "-oL", "dlt-receive", "-a", "-p", self.port, "127.0.0.1"], stdout=received,
                                             stderr=subprocess.DEVNULL)

    def _listens(self):
        with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", int(self.port)), 1):
            return True
        return False

    def lines(self, pattern):
        """Matches in the payloads of a context: (context, level, match)."""
        text = (self.folder / "received").read_text(errors="replace") if self.receiver else ""
        found = re.findall(r"^\S+ \S+ +\d+ \d+ \S+ (\S+) (\S+) log (\S+) V 1 \[(.*)\]$", text, re.M)
        return [(context, level, match) for _, context, level, line in found if (match := re.search(pattern, line))]

    def control(self, *words):
        done = subprocess.run(["dlt-control", "-p", self.port, *words, "127.0.0.1"], capture_output=True, text=True, check=False, timeout=20)
        return done.stdout

    def close(self):
        for process in (self.receiver, self.daemon):
            if process:
                process.send_signal(signal.SIGCONT)
                process.terminate()
                process.wait(10)


def chatter(binaries, environment, lines, meanwhile=lambda: None):
    """Runs it to its end. What it says of itself, and the seconds from its last line to its end."""
    process = subprocess.Popen([binaries / "chatter", str(lines), str(PER_SECOND)], env=dict(os.environ, KELO_TRACE_SINK="dlt", **environment),
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    meanwhile()
    said = json.loads(process.stdout.readline())
    began = time.monotonic()
    process.stdin.close()
    assert process.wait(20) == 0
    return dict(said, exit_seconds=time.monotonic() - began)


def check_flood(binaries, dlt):
    """Every line arrives, once and in order."""
    said = chatter(binaries, dlt.environment, LINES)
    numbers = eventually("the last line", lambda: (got := dlt.lines(r"^line (\d+) of")) and got[-1][2][1] == str(LINES) and got, 60)
    assert [int(match[1]) for _, _, match in numbers] == list(range(1, LINES + 1)), len(numbers)
    assert {(context, level) for context, level, _ in numbers} == {(numbers[0][0], "info")}
    return said


def check_alone(binaries, dlt):
    """What nobody fetches is kept up to a limit, which is reached in the first half."""
    return chatter(binaries, dict(dlt.environment, DLT_USER_BUFFER_MAX="500000"), LINES)


def check_stuck(binaries, dlt):
    """A daemon that does not read holds nobody up."""
    dlt.daemon.send_signal(signal.SIGSTOP)
    said = check_alone(binaries, dlt)
    dlt.daemon.send_signal(signal.SIGCONT)
    return said




def check_bridge(binaries, dlt):
    """Levels follow each other in both directions, and the daemon can ask for the status."""
    os.environ.update(dlt.environment, KELO_TRACE_SINK="dlt")
    with Cockpit(binaries) as cockpit:
        del os.environ["KELO_TRACE_SINK"]
        contexts = eventually("the contexts", lambda: bridge_contexts(dlt))
        popups = contexts["HMX_TOLU_BRIDGE_POPUPS"]
        progress = lambda: len(dlt.lines(r"^PopupBridge::.*"))
        for level, is_logged in (("5", True), ("4", False), ("6", True)):
            dlt.control("-a", contexts["hmx_tolubridge"], "-c", popups, "-l", level)
            time.sleep(0.5)  # the daemon's message is read ten times a second
            before = progress()
            cockpit.ctl("list", "popups")
            if is_logged:
                eventually(f"lines at level {level}", lambda before=before: progress() > before)
            else:
                time.sleep(0.5)
                assert progress() == before, level
        ids = {each["channel"]: each["id"] for each in json.loads(cockpit.ctl("trace", "HMX_TOLU_BRIDGE_LAYERS=1", "-o", "json").stdout)}
        assert ids.items() <= contexts.items() and "KELO_RUNTIME" in ids, (ids, contexts)
        eventually("the level that hmxctl set", lambda: f"CTID:{ids['HMX_TOLU_BRIDGE_LAYERS']} 5 " in re.sub(r" +", " ", dlt.control("-j")))
        dlt.control("-a", contexts["hmx_tolubridge"], "-c", contexts["KELO_STATUS"], "-s", "4096", "-m", "dump status")
        pieces = eventually("the status", lambda: whole_status(dlt))
        status = json.loads("".join(pieces))
        assert status["application"] == "hmx_tolubridge" and status["published"][0]["path"] == "/hmx", status


def bridge_contexts(dlt):
    """Ids by name, of the bridge and its channels, as the daemon lists them."""
    found = re.search(r"APID:(\S+) hmx_tolubridge\n((?:CTID:.*\n)*)", dlt.control("-j"))
    ids = {name: context for context, name in re.findall(r"CTID:(\S+) \S+ \S+ (\S+)", found[2])} if found else {}
    return dict(ids, hmx_tolubridge=found[1]) if "HMX_TOLU_BRIDGE_POPUPS" in ids else None


def whole_status(dlt):
    pieces = dlt.lines(r"^status (\d+)/(\d+) (.*)")
    return [match[3] for _, _, match in pieces] if pieces and len(pieces) == int(pieces[0][2][2]) else None


def check_refusals(binaries, folder):
    """One line says why there is no sink, and the log goes to standard error."""
    library = "libkelo-trace-odd.so"
    loose = folder / "loose"
    loose.mkdir()
    loose.chmod(0o777)
    (loose / library).touch()
    odd = folder / "odd"
    odd.mkdir()
    (odd / library).write_bytes(b"no library")
    foreign = folder / "foreign"
    foreign.mkdir()
    shutil.copy(next(each for each in (binaries, binaries.parent) if (each / "libhmxfaults.so").exists()) / "libhmxfaults.so", foreign / library)
    for name, directory, why in (
            ("nothing", None, "No such file or directory"), ("../odd", odd, "not the name of a sink"), ("odd", "odd", "not an absolute path"),
            ("odd", loose, "could be changed by others"), ("odd", odd, "file too short"), ("odd", foreign, "is no trace sink")):
        environment = {**os.environ, "KELO_TRACE_SINK": name, **({"KELO_TRACE_SINK_DIR": str(directory)} if directory else {})}
        done = subprocess.run([binaries / "chatter", "2", "1000"], env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              check=True)
        said = done.stderr.splitlines()
        assert len(said) == 3 and re.search(why, said[0]) and "the log goes to standard error" in said[0], (name, directory, said)
        assert all(" chatter CHATTER 2 line " in line for line in said[1:]), said


def main():
    binaries = Path(sys.argv[1]).resolve()
    for name in ("KELO_TRACE", "KELO_TRACE_SINK", "KELO_TRACE_SINK_DIR"):
        os.environ.pop(name, None)
    with tempfile.TemporaryDirectory(prefix="hmx_dlt_") as folder:
        check_refusals(binaries, Path(folder))
        lacking = [name for name in ("dlt-daemon", "dlt-receive", "dlt-control") if not shutil.which(name)]
        if lacking:
            print(f"dlt: {lacking[0]} is not installed; nothing but refusals was tested")
            sys.exit(77)
        for check, is_running in ((check_alone, False), (check_flood, True), (check_stuck, True), (check_bridge, True)):
            with tempfile.TemporaryDirectory(prefix="hmx_dlt_") as own, contextlib.closing(Dlt(own)) as dlt:
                if is_running:
                    dlt.start()
                said = check(binaries, dlt)
            print(f"{check.__name__}: {said}")
            if said:
                assert said["exit_seconds"] < EXIT_SECONDS and said["slowest_ms"] < 1000 and said["grown_kib"] < 512, said


if __name__ == "__main__":
    main()
