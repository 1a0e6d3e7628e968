#!/usr/bin/env python3
"""Types the commands that a document shows, and compares their output with the document.

In indented blocks, text after "$ " is typed in a terminal and text after "2$ " in a second one; lines that begin with "> " continue the
command. The lines after it are its whole output, including standard error. A "…" stands for anything within a line; a line with nothing
else stands for any number of lines. A command in the second terminal may keep running: if it is shown again, it is not typed again, but
the terminal's output is compared again.
Usage: shown_commands.py BUILD_DIR DOCUMENT"""

import os
import queue
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

PATIENCE = 20
PROMPT = re.compile(r"    (2?)\$ (.*)")


def steps_of(document):
    """(line number, terminal, command, expected output) of each command, in the order of the document."""
    steps = []
    open_step = None
    for number, line in enumerate(document.read_text().splitlines(), 1):
        prompt = PROMPT.fullmatch(line)
        if prompt:
            open_step = [number, prompt[1] or "1", prompt[2], []]
            steps.append(open_step)
        elif not line.startswith("    "):
            open_step = None if line else open_step
        elif open_step and line.startswith("    > ") and not open_step[3]:
            open_step[2] += "\n" + line[6:]
        elif open_step:
            open_step[3].append(line[4:].rstrip())
    return steps


def pattern_of(expected):
    lines = "".join((r"(?:.*\n)*?" if line == "…" else re.escape(line).replace("…", ".*") + r"\n") for line in expected)
    return re.compile(lines)


class Terminal:
    def __init__(self, folder, environment, is_first):
        self.is_first = is_first
        self.shell = subprocess.Popen(["bash", "--norc"], cwd=folder, env=environment, text=True, bufsize=1, stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self.lines = queue.Queue()
        self.serial = 0
        self.running, self.shown = "", ""
        threading.Thread(target=self.read, daemon=True).start()

    def read(self):
        for line in self.shell.stdout:
            self.lines.put(line)

    def type(self, command):
        self.serial += 1
        self.running, self.shown = command, ""
        # Nothing is typed after a command that keeps running, because it could read it.
        self.shell.stdin.write(command + (f"\necho end-of-step-{self.serial}\n" if self.is_first else "\n"))
        self.shell.stdin.flush()

    def look(self, expected):
        """What the terminal shows as soon as it is what was expected, or when patience ends."""
        end = time.monotonic() + PATIENCE
        wanted = pattern_of(expected)
        over = False
        while not over and (self.is_first or not wanted.fullmatch(self.shown)):
            try:
                line = self.lines.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                return self.shown, False
            over = line == f"end-of-step-{self.serial}\n"
            self.shown += "" if over else line
        return self.shown, bool(wanted.fullmatch(self.shown))

    def close(self):
        # Ends everything that was started in the terminal.
        os.killpg(self.shell.pid, signal.SIGTERM)
        self.shell.kill()
        self.shell.wait()


def main():
    build, document = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
    failed = 0
    steps = steps_of(document)
    with tempfile.TemporaryDirectory(prefix="hmx_shown_") as folder:
        # Looks as after `make build`, wherever the build really is.
        Path(folder, "build").mkdir()
        Path(folder, "build/release").symlink_to(build)
        for name in ("examples", "share"):
            Path(folder, name).symlink_to(Path(__file__).resolve().parents[2] / name)
        environment = dict(os.environ, TMPDIR=folder, LC_ALL="C.UTF-8", TERM="dumb")
        for name in ("KELO_RUNTIME_DIR", "KELO_TRACE", "XDG_RUNTIME_DIR"):
            environment.pop(name, None)
        terminals = {}
        try:
            for number, name, command, expected in steps:
                if name not in terminals:
                    terminals[name] = Terminal(folder, environment, name == "1")
                terminal = terminals[name]
                if terminal.is_first or command != terminal.running:
                    terminal.type(command)
                shown, same = terminal.look(expected)
                if not same:
                    failed += 1
                    print(f"{document}:{number}: $ {command}\n--- shows\n" + "\n".join(expected) + f"\n--- but prints\n{shown}")
        finally:
            for terminal in terminals.values():
                terminal.close()
    print(f"{document.name}: {len(steps)} commands, {failed} print something else")
    sys.exit(1 if failed or not steps else 0)


if __name__ == "__main__":
    main()
