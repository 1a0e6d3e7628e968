#!/usr/bin/env python3
"""The bridge and the gateway under a supervisor that this script plays: what they tell it, how they obey it, and that a stuck one is
noticed. Usage: init_system.py BIN_DIR"""

import json
import os
import signal
import socket
import subprocess
import sys
import time

from cockpit import Cockpit

WATCHDOG = 0.4  # seconds


class Supervisor:
    """The socket that a process is to notify, and the messages that have come."""

    def __init__(self, address):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind("\0" + address[1:] if address[0] == "@" else address)
        self.environment = {"NOTIFY_SOCKET": address}

    def wait_for(self, *wanted, seconds=20):
        """The messages until one that has each of these lines."""
        end = time.monotonic() + seconds
        seen = []
        while True:
            self.socket.settimeout(max(0.001, end - time.monotonic()))
            try:
                seen.append(self.socket.recv(4096).decode())
            except TimeoutError:
                raise AssertionError(f"no {wanted} in {seconds} s, but {seen}") from None
            if all(each in seen[-1].split("\n") for each in wanted):
                return seen

    def count(self, text, seconds):
        """How many messages with the text come in this time."""
        end, found = time.monotonic() + seconds, 0
        while True:
            self.socket.settimeout(max(0.001, end - time.monotonic()))
            try:
                found += text in self.socket.recv(4096).decode()
            except TimeoutError:
                return found


def under(cockpit, supervisor, program, *words, **more):
    """Starts a program under the supervisor; its log is a pipe, which counts as the journal."""
    reader, writer = os.pipe()
    log = os.fstat(writer)
    environment = dict(cockpit.environment, **supervisor.environment, JOURNAL_STREAM=f"{log.st_dev}:{log.st_ino}", **more)
    process = subprocess.Popen([cockpit.binaries / program, *words], env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=writer)
    os.close(writer)
    cockpit.processes[program] = process
    return process, reader


def end_of(process, client):
    """Ends a process by SIGTERM; how long it takes, and what the client got."""
    began = time.monotonic()
    process.terminate()
    status = process.wait(10)
    took = time.monotonic() - began
    out, err = client.communicate(timeout=10)
    assert status == 0, status
    assert took < 1, took
    return out + err


def check_bridge(cockpit):
    supervisor = Supervisor(str(cockpit.directory / "notify"))
    levels = cockpit.directory / "trace"
    levels.write_text("KELO_RUNTIME=3\n")
    bridge, log = under(cockpit, supervisor, "hmxtolubridge", KELO_TRACE_FILE=str(levels), WATCHDOG_USEC=str(int(WATCHDOG * 1e6)))
    states = [each.split("STATUS=")[1] for each in supervisor.wait_for("READY=1", "STATUS=serving /hmx") if "STATUS=" in each]
    assert states[-1] == "serving /hmx" and any(each.startswith("waiting for /hmxdisplaymanager") for each in states[:-1]), states
    cockpit.stop("hmxsim", signal.SIGKILL)
    supervisor.wait_for("STATUS=serving /hmx; lost /hmxdisplaymanager, /hmxinputmanager, /hmxpopupmanager")
    cockpit.start("hmxsim", "--world", "cockpit")
    supervisor.wait_for("STATUS=serving /hmx")
    signs = supervisor.count("WATCHDOG=1", 2)
    assert 2 / WATCHDOG <= signs <= 2 * 2 / WATCHDOG + 1, signs
    assert not supervisor.count("READY=1", 0.1)

    assert level_of(cockpit, "KELO_RUNTIME") == 3 and level_of(cockpit, "HMX_TOLU_BRIDGE_POPUPS") == 2
    cockpit.ctl("trace", "HMX_TOLU_BRIDGE_DISPLAYS=1", "KELO_RUNTIME=2", check=True)
    assert level_of(cockpit, "HMX_TOLU_BRIDGE_DISPLAYS") == 1
    cockpit.ctl("list", "displays")
    levels.write_text("*=3,KELO_RUNTIME=2\n")
    bridge.send_signal(signal.SIGHUP)
    time.sleep(0.3)
    assert level_of(cockpit, "HMX_TOLU_BRIDGE_DISPLAYS") == 3
    for wrong, code in (('[{"channel":"KELO_LOOP","level":0},{"channel":"NO","level":1}]', 3), ('[{"channel":"KELO_LOOP","level":9}]', 7),
                        ('{"KELO_LOOP":0}', 7)):
        assert cockpit.ctl("call", "/hmx", "update", "/$platform/trace", wrong).returncode == code, wrong
    assert level_of(cockpit, "KELO_LOOP") == 3, "all or none"

    watch = subprocess.Popen(["hmxctl", "watch", "displays", "--no-reconnect"], env=cockpit.environment, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    while not any(client["application"] == "hmxctl" and client["streams"] for client in clients(cockpit)):
        time.sleep(0.02)
    said = end_of(bridge, watch)
    assert watch.returncode == 4, (watch.returncode, said)
    supervisor.wait_for("STOPPING=1", seconds=1)
    lines = os.read(log, 1 << 20).decode().splitlines()
    assert all(line[:1] == "<" and line[2:3] == ">" for line in lines), lines
    for line in ("<6>KELO_RUNTIME 2 trace level of HMX_TOLU_BRIDGE_DISPLAYS set to 1 by pid", "<7>HMX_TOLU_BRIDGE_DISPLAYS 1 ",
                 "<6>KELO_RUNTIME 2 SIGHUP: settings were read again", "<6>KELO_RUNTIME 2 SIGTERM: the process ends"):
        assert any(each.startswith(line) for each in lines), (line, lines)


def clients(cockpit):
    status = json.loads(cockpit.ctl("status", "-o", "json").stdout or "{}")
    return [client for service in status.get("published", []) for client in service["clients"]]


def level_of(cockpit, channel):
    levels = json.loads(cockpit.ctl("trace", "-o", "json", check=True).stdout)
    return next(each["level"] for each in levels if each["channel"] == channel)


def check_waiting(cockpit):
    """A bridge that has found nothing yet ends, too, and a stopped one is noticed."""
    supervisor = Supervisor("@" + str(cockpit.directory))
    bridge, _ = under(cockpit, supervisor, "hmxtolubridge", KELO_DOMAIN="empty", WATCHDOG_USEC=str(int(WATCHDOG * 1e6)))
    supervisor.wait_for("STATUS=waiting for /hmxdisplaymanager")
    bridge.send_signal(signal.SIGSTOP)
    supervisor.count("WATCHDOG=1", WATCHDOG / 2)
    assert supervisor.count("WATCHDOG=1", 2 * WATCHDOG) == 0
    bridge.send_signal(signal.SIGCONT)
    supervisor.wait_for("WATCHDOG=1")
    bridge.terminate()
    assert bridge.wait(10) == 0


def check_gateway(cockpit):
    cockpit.start("hmxtolubridge")
    cockpit.wait_for("/hmx")
    supervisor = Supervisor(str(cockpit.directory / "gateway"))
    gateway, _ = under(cockpit, supervisor, "hmxgateway", "--listen", f"unix:{cockpit.directory}/http",
                       WATCHDOG_USEC=str(int(WATCHDOG * 1e6)))
    supervisor.wait_for("READY=1", "STATUS=serving /hmx")
    cockpit.stop("hmxtolubridge")
    supervisor.wait_for("STATUS=waiting for /hmx")
    cockpit.start("hmxtolubridge")
    supervisor.wait_for("STATUS=serving /hmx")
    assert supervisor.count("WATCHDOG=1", 2) >= 2 / WATCHDOG
    gateway.send_signal(signal.SIGHUP)
    supervisor.wait_for("WATCHDOG=1")
    gateway.terminate()
    assert gateway.wait(10) == 0
    supervisor.wait_for("STOPPING=1")


def main():
    with Cockpit(sys.argv[1], bridge=False) as cockpit:
        for check in (check_bridge, check_waiting, check_gateway):
            check(cockpit)
    print("the programs obey their supervisor")


if __name__ == "__main__":
    main()
