#!/usr/bin/env python3
"""How the client behaves as a process: exit codes, standard output and error, closed and full outputs, terminals, services that
start late, belong to another user or are gone. Usage: manners.py BIN_DIR"""

import json
import os
import pty
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from cockpit import Cockpit

REGION = 'regions:={"infoForAllLayers":[{"layer":"Home","inputRegions":[{"bounds":{"width":9,"height":9}}]}]}'
RECORDING = str(Path(__file__).resolve().parents[2] / "share/recordings/phone_call.jsonl")
CONFIGURATION = "regionconfigurations/Driver_Display/HMI_ID_ANDROID_DRIVER"

# Exit code and words, in this order. With -o json, a success prints one document on standard output and nothing else. A failure prints
# nothing there, and on standard error what was tried and what would help.
COMMANDS = [
    (0, "list displays"), (0, "list popups"), (2, "list"), (2, "list displayz"), (2, "list displays terminal=x"), (2, "list displays limit=0"),
    (2, "list displays fields=nam"), (3, "list popups display=Nope"), (2, "list regionconfigurations"), (0, "list displays limit=1"),
    (0, "get displays/Driver_Display"), (2, "get"), (2, "get displays"), (3, "get displays/Nope"), (2, "get popups/Volume"),
    (0, "get displays/19243473"), (3, "get displays/00000000-0000-0000-0000-000000000000"),
    (0, "insert regionconfigurations display=Driver_Display hmi=HMI_ID_ANDROID_DRIVER " + REGION), (2, "insert displays id=1"),
    (2, "insert regionconfigurations display=Elsewhere"), (2, "insert regionconfigurations -f /dev/null"),
    (0, f"update {CONFIGURATION} " + REGION), (0, "update popups/Driver_Display/Volume requested=true"),
    (2, "update popups/Driver_Display/Volume requested=maybe"), (2, "update popups/Driver_Display/Volume"),
    (2, "update popups/Driver_Display/Volume -f /nowhere/x.json"), (0, f"delete {CONFIGURATION}"), (3, f"delete {CONFIGURATION}"),
    (2, "delete displays/Driver_Display"), (0, "wait popups/Driver_Display/Volume visible==true"), (2, "wait popups/Driver_Display/Volume"),
    (5, "wait popups/Driver_Display/Volume visible==false --timeout 50ms"), (2, "wait popups/Driver_Display/Volume visibel==true"),
    (0, "wait popups display=Driver_Display count>=6"), (5, "wait popups count>99 --timeout 50ms"), (0, "wait popups/Driver_Display/Nope removed"),
    (2, "record displays/Driver_Display"), (2, "record -o /nowhere/x"),
    (0, "watch displays --once"), (0, "watch displays --timeout 9s --once"), (4, "--domain other watch displays"), (3, "watch displays/Nope"), (2, "watch displays --count no"), (0, "describe"), (0, "describe popups"),
    (2, "describe x"), (0, "tree"), (0, "tree Cluster_Display"), (3, "tree Nope"), (0, "hit Driver_Display 900 640"), (2, "hit Driver_Display 1"),
    (2, "hit Driver_Display a b"), (3, "hit Nope 1 1"), (0, "uuid displays/A popups/A/B"), (0, "uuid displays/A --id"), (2, "uuid"),
    (0, "explain popups/Driver_Display/Hint"), (0, "explain regions/Driver_Display/1"), (3, "explain displays/Nope"), (2, "explain regions"),
    (0, "diff live live"), (10, f"diff {RECORDING}@0.5s {RECORDING}"), (0, f"diff {RECORDING} {RECORDING}"), (2, "diff live"),
    (2, "diff live /nowhere/x"),
    (0, "doctor"), (10, "--domain other doctor"), (2, "doctor x"), (1, "doctor --report /nowhere/x"),
    (0, "services"), (2, "services x"), (0, "call /hmx retrieve /displays"), (3, "call /hmx retrieve /nothing"), (2, "call /hmx retrieve x"),
    (4, "call /nothing retrieve /x"), (0, "status"), (4, "status /nothing"), (0, "sim world"), (0, "sim set displays/Driver_Display terminal=3"),
    (2, "sim set displays/Driver_Display no=3"), (2, "get displays/Driver_Display terminal=1"), (3, "sim set displays/Nope terminal=3"), (2, "sim sett"), (0, "sim fault"),
    (0, "sim requests"), (0, "completion bash"), (2, "completion csh"), (0, "help"), (0, "help hit"), (2, "help x"), (0, "version"),
    (2, ""), (2, "lisst"), (2, "list displays --nope"), (2, "list displays --timeout never"),
]


class Complaints(list):
    def unless(self, holds, text):
        if not holds:
            self.append(text[:1000])


def is_document(text):
    try:
        json.loads(text)
    except ValueError:
        return False
    return text.endswith("\n")


def check_commands(cockpit, complaints):
    for code, line in COMMANDS:
        done = cockpit.ctl(*line.split(), "-o", "json")
        said = f"hmxctl {line}: {done.returncode}\n{done.stdout}{done.stderr}"
        complaints.unless(done.returncode == code, f"not {code}: {said}")
        if code in (0, 10):
            complaints.unless(is_document(done.stdout), f"no one document: {said}")
        else:
            lines = done.stderr.splitlines()
            helps = len(lines) == 2 or code == 5 and lines
            complaints.unless(done.stdout == "" and helps and all(each.startswith("hmxctl: ") for each in lines), f"unhelpful: {said}")
        # The same with standard input and output closed, which is an error if something has to be printed.
        closed = cockpit.run(["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", "hmxctl", *line.split()])
        silent = line.startswith(("delete", "wait", "sim set")) or line.startswith("diff") and code == 0
        expected = 3 if line.startswith("delete regionconf") else 1 if code in (0, 10) and not silent else code
        complaints.unless(closed.returncode == expected, f"closed: {closed.returncode}, not {expected}: {said}")


def check_outputs(cockpit, complaints):
    full = cockpit.run(["sh", "-c", "hmxctl list displays >/dev/full"])
    complaints.unless(full.returncode == 1 and "No space left" in full.stderr, f"a full disk: {full}")
    cut = cockpit.run(["bash", "-c", "hmxctl watch displays -o json | head -c 9; echo ${PIPESTATUS[0]}"], timeout=20)
    complaints.unless(cut.stdout == '{"event":0\n' and not cut.stderr, f"a reader that goes: {cut}")
    for variable, coloured in ((None, True), ("NO_COLOR", False)):
        environment = dict(cockpit.environment, TERM="xterm", **({variable: "1"} if variable else {}))
        ours, theirs = pty.openpty()
        subprocess.run(["hmxctl", "list", "displays"], env=environment, stdout=theirs, stdin=subprocess.DEVNULL, check=True)
        os.close(theirs)
        shown = os.read(ours, 65536)
        os.close(ours)
        complaints.unless((b"\x1b[" in shown) == coloured, f"colours with {variable}: {shown}")


def check_interruption(cockpit, complaints):
    watch = subprocess.Popen(["hmxctl", "watch", "displays", "-o", "json"], env=cockpit.environment, stdout=subprocess.PIPE, text=True)
    first = json.loads(watch.stdout.readline())
    watch.send_signal(2)
    complaints.unless(first["event"] == "snapshot" and watch.wait(10) == 130, f"interrupted: {watch.returncode}")
    watch.stdout.close()


def check_stopped(cockpit, complaints):
    """Only a bridge that had time enough to answer is called stuck."""
    bridge = cockpit.processes["hmxtolubridge"]
    bridge.send_signal(signal.SIGSTOP)
    for options, code, words in ((["--timeout", "100ms"], 5, "has not answered yet"), ([], 4, "does not answer")):
        asked = cockpit.ctl(*options, "list", "displays")
        complaints.unless(asked.returncode == code and words in asked.stderr, f"a stopped bridge, {options}: {asked}")
    bridge.send_signal(signal.SIGCONT)


def check_absence(cockpit, complaints):
    """A bridge that is started again while somebody asks, and one that is late."""
    cockpit.stop("hmxtolubridge", 9)
    begun = time.monotonic()
    absent = cockpit.ctl("--timeout", "300ms", "list", "displays")
    complaints.unless(absent.returncode == 4 and 0.3 <= time.monotonic() - begun < 5, f"gone: {absent}")
    waiting = subprocess.Popen(["hmxctl", "--timeout", "20s", "list", "displays"], env=cockpit.environment, stdout=subprocess.DEVNULL)
    cockpit.start("hmxtolubridge")
    complaints.unless(waiting.wait(30) == 0, "a command that was told to wait did not see the bridge return")
    with tempfile.TemporaryDirectory() as empty:
        environment = dict(cockpit.environment, KELO_RUNTIME_DIR=empty + "/later")
        hasty = cockpit.run(["env", f"KELO_RUNTIME_DIR={empty}/later", "hmxctl", "list", "displays"])
        complaints.unless(hasty.returncode == 4 and not Path(empty, "later").exists(), f"no directory: {hasty}")
        late = subprocess.Popen(["hmxctl", "--timeout", "20s", "sim", "world"], env=environment, stdout=subprocess.DEVNULL)
        sim = subprocess.Popen(["hmxsim"], env=environment, stderr=subprocess.DEVNULL)
        complaints.unless(late.wait(30) == 0, "a command that was told to wait did not see the directory come")
        sim.terminate()
        sim.wait()


def check_other_user(cockpit, complaints):
    """Only root can become somebody else."""
    if os.geteuid() != 0:
        return
    nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    private = cockpit.run([*nobody, cockpit.binaries / "hmxctl", "list", "displays"], cwd="/")
    complaints.unless(private.returncode in (6, 126), f"another user's private directory: {private}")
    for folder in (cockpit.directory, cockpit.directory / "run", cockpit.directory / "run/local"):
        folder.chmod(0o1777)
    shared = cockpit.run([*nobody, cockpit.binaries / "hmxctl", "list", "displays"], cwd="/")
    if shared.returncode != 126:  # skipped if the other user cannot access the build folder
        complaints.unless(shared.returncode == 6 and "run by root" in shared.stderr, f"another user's service: {shared}")


def main():
    complaints = Complaints()
    with Cockpit(sys.argv[1]) as cockpit:
        for check in (check_commands, check_outputs, check_interruption, check_stopped, check_absence, check_other_user):
            check(cockpit, complaints)
    print("\n".join(complaints) or f"{len(COMMANDS)} commands behave")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
