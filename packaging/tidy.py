#!/usr/bin/env python3
"""Runs clang-tidy on the sources that have changed since they last passed. Usage: tidy.py BUILD_DIR JOBS SOURCE...

A pass is recorded in .cache/tidy under a hash of everything that it depends on: the source, the project's headers that it includes, directly or
indirectly, the compile options, the rules, and clang-tidy itself. So after a change in a header only its users are checked again, and switching
branches costs nothing. Left out are sources that the build does not compile, tests and the like (LEFT_OUT), and the library that replaces
functions of the C library, which clang sees as defined twice.
"""

import concurrent.futures
import hashlib
import json
import re
import subprocess
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
CACHE = TOP / ".cache" / "tidy"
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.M)
GCC_ALONE = re.compile(r" -mmemset-strategy=\S+")  # options that clang does not know
LEFT_OUT = ("tests/", "bench/", "fuzz/", "campaign/preload/")

_contents = {}


def contents(path):
    """A file's bytes, or None if there is no such file; each is read once."""
    if path not in _contents:
        _contents[path] = path.read_bytes() if path.is_file() else None
    return _contents[path]


def dependencies(source, roots):
    """The source and every project header in it, in a stable order."""
    found, queue = {}, [source]
    while queue:
        path = queue.pop()
        if path in found:
            continue
        found[path] = contents(path)
        for name in INCLUDE.findall(found[path]):
            candidates = [folder / name.decode() for folder in [path.parent, *roots]]
            queue += [each for each in candidates if contents(each) is not None][:1]
    return sorted(found.items())


def fingerprint(command, rules):
    source = Path(command["directory"], command["file"]).resolve()
    words = command["command"].split()
    roots = [Path(word[2:]) for word in words if word.startswith("-I")]
    digest = hashlib.sha256(rules)
    top = f"{TOP}/"  # left out, so that a pass is also valid in another clone
    digest.update(" ".join(word for word in words if word.startswith("-")).replace(top, "").encode())
    for path, text in dependencies(source, roots):
        digest.update(str(path).replace(top, "").encode() + b"\0" + text)
    return digest.hexdigest()


def tidy(commands, source):
    """The output of clang-tidy; empty if the source is clean. `commands`: the folder of the compile commands."""
    run = subprocess.run(["clang-tidy", "-p", str(commands), "--quiet", str(source)], cwd=TOP, capture_output=True, text=True, check=False)
    return run.stdout if run.returncode != 0 else ""


def main():
    build, jobs, wanted = sys.argv[1], int(sys.argv[2]), set(sys.argv[3:])
    rules = (TOP / ".clang-tidy").read_bytes() + subprocess.run(["clang-tidy", "--version"], capture_output=True, check=True).stdout
    CACHE.mkdir(parents=True, exist_ok=True)
    todo = {}
    commands = GCC_ALONE.sub("", (TOP / build / "compile_commands.json").read_text())
    (CACHE / "compile_commands.json").write_text(commands)
    for command in json.loads(commands):
        source = Path(command["directory"], command["file"]).resolve()
        name = str(source.relative_to(TOP)) if source.is_relative_to(TOP) else ""
        if name in wanted and not name.startswith(LEFT_OUT):
            passed = CACHE / fingerprint(command, rules)
            if not passed.exists():
                todo[name] = passed

    said = set()  # a finding in a header is reported for every source that includes it
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = {pool.submit(tidy, CACHE, name): name for name in todo}
        for number, run in enumerate(concurrent.futures.as_completed(runs), 1):
            name, output = runs[run], run.result()
            if not output:
                todo[name].touch()
            failed += bool(output)
            for finding in re.split(r"^(?=\S+:\d+:\d+: (?:error|warning):)", output, flags=re.M):
                if finding.strip() and finding not in said:
                    said.add(finding)
                    print(finding, end="", file=sys.stderr)
            if sys.stderr.isatty():
                print(f"tidy: {number} of {len(todo)}\r", end="", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
