#!/usr/bin/env python3
"""Several users in one domain, with the programs as they are: who may do what by a policy, and that a user who floods the bridge delays
nobody else. Only root can become somebody else. Usage: users.py BIN_DIR SHARE_DIR"""

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
DISPLAY, BRIDGE, APP, TESTER, STRANGER = range(61001, 61006)
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
HELLO, REQUEST, NEXT, ONE_SHOT = 1, 2, 3, 1


def cbor_text(text):
    data = text.encode()
    return (bytes([0x60 + len(data)]) if len(data) < 24 else bytes([0x78, len(data)])) + data


def frame(kind, flags, number, **fields):
    body = bytes([0xa0 + len(fields)])
    for key, value in fields.items():
        body += cbor_text("$" + key.replace("_", "-")) + (bytes([value]) if isinstance(value, int) else cbor_text(value))
    return struct.pack("<IBBHQ", len(body), kind, flags, 0, number) + body


def question(number):
    return frame(REQUEST, ONE_SHOT, number, request_command="retrieve", request_path="/displays", mime_type="application/json")


def connect(path):
    peer = socket.socket(socket.AF_UNIX)
    peer.connect(path)
    peer.sendall(frame(HELLO, 0, 0, version=1, application="raw", service_path="/hmx"))
    peer.recv(4096)
    return peer


def flood(path):
    """Keeps many connections full of requests until it is killed."""
    blocks = [b"".join(question(64 * block + i + 1) for i in range(64)) for block in range(64)]  # ids come again, but much later
    ready = select.epoll()
    peers, rest, sent = {}, {}, 0
    for _ in range(40):
        peer = connect(path)
        peer.setblocking(False)
        peers[peer.fileno()], rest[peer.fileno()] = peer, b""
        ready.register(peer, select.EPOLLIN | select.EPOLLOUT)
    while True:
        for number, events in ready.poll():
            if events & select.EPOLLIN:
                peers[number].recv(1 << 18)
            if events & select.EPOLLOUT:
                if not rest[number]:
                    rest[number], sent = blocks[sent % len(blocks)], sent + 1
                rest[number] = rest[number][peers[number].send(rest[number]):]


def ask_calmly(path, count=200):
    """Prints the median time to an answer, in seconds."""
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
    print(statistics.median(took))


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

    def command(self, user, *words):
        return ["setpriv", f"--reuid={user}", f"--regid={user}", f"--groups={GROUP}", *words]

    def start(self, user, *words):
        with open(self.top / "log", "ab") as log:
            self.processes.append(subprocess.Popen(self.command(user, *words), env=self.environment, stdin=subprocess.DEVNULL, stdout=log,
                                                   stderr=log, cwd=self.top))
        return self.processes[-1]

    def run(self, user, *words):
        return subprocess.run(self.command(user, *words), env=self.environment, stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=60, check=False, cwd=self.top)

    def script(self, *words):
        return ["/usr/bin/python3", str(self.top / "users.py"), *words, self.socket]

    def close(self):
        for process in self.processes:
            process.kill()
            process.wait()
        shutil.rmtree(self.top)


def check(domain):
    complaints = []
    domain.start(DISPLAY, "hmxsim", "--world", "cockpit.json")
    domain.start(BRIDGE, "hmxtolubridge")
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
    alone = domain.run(TESTER, *domain.script("calm"))
    domain.start(APP, *domain.script("flood"))
    time.sleep(2)
    beside = domain.run(TESTER, *domain.script("calm"))
    if beside.returncode != 0 or float(beside.stdout) > 0.05:  # without turns, it would be seconds
        complaints.append(f"beside a flood: {beside}, alone: {alone.stdout}")
    return complaints


def main():
    if sys.argv[1] in ("flood", "calm"):
        return (flood if sys.argv[1] == "flood" else ask_calmly)(sys.argv[2])
    if os.geteuid() != 0:
        print("skipped: only root can become somebody else")
        sys.exit(77)
    domain = Domain(*sys.argv[1:])
    try:
        complaints = check(domain)
    finally:
        domain.close()
    print("\n".join(complaints) or "every user may do what the policy says")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
