#!/usr/bin/env python3
"""Several users in one domain, with the programs as they are: who may do what by a policy, and that a user who floods the bridge delays
nobody else. Only root can become somebody else. With SLOW, the programs are slower than usual. Usage: users.py BIN_DIR SHARE_DIR [SLOW]"""

import json
import os
import select
import shutil
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

GROUP = 62000
DISPLAY, BRIDGE, APP, TESTER, STRANGER, FLOODER = range(61001, 61007)
POLICY = f"""
[[allow]]
user = {DISPLAY}
publish = ["/hmxdisplaymanager", "/hmxinputmanager", "/hmxpopupmanager", "/hmxsim"]
[[allow]]
user = {BRIDGE}
publish = "/hmx"
[[allow]]
user = {BRIDGE}
service = ["/hmxdisplaymanager", "/hmxinputmanager", "/hmxpopupmanager"]
[[allow]]
user = {APP}
service = "/hmx"
command = ["retrieve", "update"]
path = ["/displays/**", "/popups/**"]
[[allow]]
user = {TESTER}
service = "/**"
[[deny]]
user = {TESTER}
service = "/hmx"
command = ["insert", "update", "delete"]
[[allow]]
user = {FLOODER}
service = "/hmx"
"""
UPDATE = "update popups/Driver_Display/Hint requested=true"
# The exit codes of each command for display, bridge, application, tester, stranger, root.
COMMANDS = {
    "list displays": (6, 0, 0, 0, 6, 0),
    UPDATE: (6, 0, 0, 6, 6, 0),
    "list layerconfigurations": (6, 0, 6, 0, 6, 0),
    "status": (6, 0, 6, 0, 6, 0),
    "call /hmxdisplaymanager retrieve /displays": (0, 0, 6, 0, 6, 0),
    "call /hmxsim retrieve /world": (0, 6, 6, 0, 6, 0),
    "services": (0, 0, 0, 0, 0, 0),
}
HELLO, REQUEST, NEXT, CANCEL, ONE_SHOT = 1, 2, 3, 6, 1


def cbor_text(text):
    data = text.encode()
    return (bytes([0x60 + len(data)]) if len(data) < 24 else bytes([0x78, len(data)])) + data


def frame(kind, flags, number, payload=b"", **fields):
    body = bytes([0xa0 + len(fields)])
    for key, value in fields.items():
        body += cbor_text("$" + key.replace("_", "-")) + (bytes([value]) if isinstance(value, int) else cbor_text(value))
    return struct.pack("<IBBHQ", len(body) + len(payload), kind, flags, 0, number) + body + payload


def question(number, flags=ONE_SHOT):
    return frame(REQUEST, flags, number, request_command="retrieve", request_path="/displays", mime_type="application/json")


def insertion(number, payload):
    return frame(REQUEST, ONE_SHOT, number, payload, request_command="insert", request_path="/regionconfigurations",
                 mime_type="application/json")


CONNECTIONS = 40
LARGE = b'{"hmi":"a","x":[' + b"1," * 450_000 + b"1]}"
FLOODS = {"requests": lambda i: question(i + 1),
          "streams": lambda i: question(i + 1, 0) + frame(CANCEL, 0, i + 1),
          "inserts": lambda i: insertion(i + 1, b'{"displayName":"Driver_Display","hmi":"HMI_ID_ANDROID_DRIVER","subComponent":"b","regions":[]}'),
          "large": lambda i: insertion(i + 1, LARGE) if i % 64 == 0 else b"",
          "half": lambda i: insertion(i + 1, LARGE)[:450_000] if i % 64 == 0 else b""}


def connect(path):
    peer = socket.socket(socket.AF_UNIX)
    peer.connect(path)
    peer.sendall(frame(HELLO, 0, 0, version=1, application="raw", service_path="/hmx"))
    peer.recv(4096)
    return peer


def flood(path, kind):
    """Keeps many connections full until it is killed; half a frame is given up as soon as it is sent."""
    blocks = [memoryview(b"".join(FLOODS[kind](64 * block + i) for i in range(64))) for block in range(8)]  # ids come again much later
    ready = select.epoll()
    peers, rest, sent = {}, {}, 0

    def join():
        peer = connect(path)
        peer.setblocking(False)
        peers[peer.fileno()], rest[peer.fileno()] = peer, b""
        ready.register(peer, select.EPOLLIN | select.EPOLLOUT)

    for _ in range(CONNECTIONS):
        join()
    while True:
        for number, events in ready.poll():
            try:
                is_over = events & select.EPOLLIN and not peers[number].recv(1 << 18)
                if events & select.EPOLLOUT:
                    if not rest[number]:
                        rest[number], sent = blocks[sent % len(blocks)], sent + 1
                    rest[number] = rest[number][peers[number].send(rest[number]):]
                    is_over = is_over or (kind == "half" and not rest[number])
            except (BrokenPipeError, ConnectionResetError):  # too many incomplete frames
                is_over = True
            if is_over:
                peers.pop(number).close()
                join()


def ask_calmly(path, count=300):
    """Prints the time that 99 of 100 answers take at most, in seconds."""
    peer, took = connect(path), []
    for number in range(1, count + 1):
        begin = time.monotonic()
        peer.sendall(question(number))
        answer = b""
        while len(answer) < 16 or len(answer) < 16 + struct.unpack_from("<I", answer)[0]:
            answer += peer.recv(65536)
        if answer[4] != NEXT:
            raise RuntimeError(f"answered with {answer}")
        took.append(time.monotonic() - begin)
        time.sleep(0.002)
    print(statistics.quantiles(took, n=100)[98])


class Domain:
    """The programs, each as its user, in a directory that belongs to their group."""

    def __init__(self, binaries, share):
        self.top = Path(tempfile.mkdtemp(prefix="hmx_users_"))
        self.top.chmod(0o755)
        for name in ("hmxsim", "hmxtolubridge", "hmxctl"):
            shutil.copy(Path(binaries) / name, self.top / name)
        shutil.copy(Path(share) / "worlds/cockpit.json", self.top)
        shutil.copy(__file__, self.top / "users.py")
        self.domain, policy = self.top / "run/local", self.top / "policy.d"
        for folder in (self.domain, policy):
            folder.mkdir(parents=True)
            folder.chmod(0o755)
        os.chown(self.domain, 0, GROUP)
        self.domain.chmod(0o3770)
        (policy / "10.toml").write_text(POLICY)
        self.environment = {"PATH": f"{self.top}:/usr/bin:/bin", "KELO_RUNTIME_DIR": str(self.top / "run"), "KELO_POLICY_DIR": str(policy)}
        self.socket = str(self.domain / "%2Fhmx.sock")
        self.processes = []

        # Before other work on the machine, so that only what is measured counts.
        self.priority = ["chrt", "--rr", "1"] if subprocess.run(["chrt", "--rr", "1", "true"], check=False).returncode == 0 else []

    def command(self, user, *words, priority=False):
        return [*(self.priority if priority else []), "setpriv", f"--reuid={user}", f"--regid={user}", f"--groups={GROUP}", *words]

    def start(self, user, *words, priority=False):
        with open(self.top / "log", "ab") as log:
            self.processes.append(subprocess.Popen(self.command(user, *words, priority=priority), env=self.environment, stdin=subprocess.DEVNULL, stdout=log,
                                                   stderr=log, cwd=self.top))
        return self.processes[-1]

    def run(self, user, *words, priority=False):
        return subprocess.run(self.command(user, *words, priority=priority), env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60, check=False, cwd=self.top)

    def script(self, what, *words):
        return ["/usr/bin/python3", str(self.top / "users.py"), what, self.socket, *words]

    def ask_calmly(self):
        done = self.run(TESTER, *self.script("calm"), priority=True)
        if done.returncode != 0:
            raise RuntimeError(done.stderr)
        return float(done.stdout)

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()
        shutil.rmtree(self.top)


def check(domain):
    complaints = []
    domain.start(DISPLAY, "hmxsim", "--world", "cockpit.json", priority=True)
    domain.start(BRIDGE, "hmxtolubridge", priority=True)
    up = domain.run(BRIDGE, "hmxctl", "--timeout", "20s", "list", "displays")
    if up.returncode != 0:
        return [f"no bridge: {up.stderr}{(domain.top / 'log').read_text()}"]
    for words, expected in COMMANDS.items():
        for user, code in zip((DISPLAY, BRIDGE, APP, TESTER, STRANGER, 0), expected):
            done = domain.run(user, "hmxctl", *words.split())
            if done.returncode != code:
                complaints.append(f"user {user}: {words}: {done.returncode}, not {code}: {done.stderr}")
    named = domain.run(TESTER, "hmxctl", *UPDATE.split()).stderr
    if "403" not in named or "10.toml:19" not in named:
        complaints.append(f"the rule is not named: {named}")
    told = domain.run(0, "hmxctl", "policy", "test", str(TESTER), "update", "/popups/x")
    if told.returncode != 6 or "10.toml:19" not in told.stdout:
        complaints.append(f"policy test: {told}")
    return complaints + [complaint for kind in FLOODS for complaint in complaints_about_flood(domain, kind)]


def complaints_about_flood(domain, kind):
    """Some measurements may be disturbed; five are not."""
    for _ in range(5):
        alone = domain.ask_calmly()
        flooder = domain.start(FLOODER, *domain.script("flood", kind))
        time.sleep(0.5)
        beside = domain.ask_calmly()
        status = json.loads(domain.run(0, "hmxctl", "status", "-o", "json").stdout)
        has_ended = flooder.poll() is not None
        flooder.kill()
        flooder.wait()
        print(f"p99 beside a flood of {kind}: {beside * 1000:.2f} ms, alone {alone * 1000:.2f} ms")
        if beside <= domain.most * alone:
            break
    else:
        yield f"beside a flood of {kind}: {beside}, alone: {alone}"
    if has_ended:
        yield f"the flood of {kind} has ended: {(domain.top / 'log').read_text()[-2000:]}"
    if not any(user["uid"] == FLOODER and user["connections"] for user in status.get("users", [])):
        yield f"the flooder is not shown: {status}"
    programs = {client.get("program") for client in status["published"][0]["clients"] if client["application"] == "raw"}
    if not programs or not all(str(program).startswith("[python3") for program in programs):
        yield f"programs called raw: {programs}"


def main():
    if sys.argv[1] == "flood":
        return flood(*sys.argv[2:])
    if sys.argv[1] == "calm":
        return ask_calmly(sys.argv[2])
    if os.geteuid() != 0:
        print("skipped: only root can become somebody else")
        sys.exit(77)
    domain = Domain(*sys.argv[1:3])
    # Sanitizers slow down the bridge, and without its priority other tests disturb it.
    domain.most = 2 if len(sys.argv) == 3 and domain.priority else 10
    try:
        complaints = check(domain)
    finally:
        domain.close()
    print("\n".join(complaints) or "every user may do what the policy says")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
