#!/usr/bin/env python3
"""Checks the sources that have changed since they last passed: each compiles by itself, and clang-tidy finds nothing in it.
Usage: tidy.py ALONE_DIR TOGETHER_DIR JOBS SOURCE...

ALONE_DIR is a configured build in which every source is compiled by itself, TOGETHER_DIR one that compiles them in batches. clang-tidy
looks at everything that a source includes, so a batch of eight takes little more time than two of its sources; that a source includes
what it uses is only seen by itself.

A pass is recorded in .cache/tidy under a hash of everything that it depends on: the source, the project's headers that it includes, directly or
indirectly, the compile options, the rules, and the tool itself. So after a change in a header only its users are checked again, and switching
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
# Options that clang does not know, and precompiled headers, which are GCC's.
GCC_ONLY = re.compile(r" -mmemset-strategy=\S+| --param=\S+| -fpch-preprocess| -Winvalid-pch| -include \S+/cmake_pch\.hxx| \S*/cmake_pch\.hxx\.gch")
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


def name_of(path):
    """Below the top; "" elsewhere."""
    return str(path.relative_to(TOP)) if path.is_relative_to(TOP) else ""


def checked(source, wanted):
    """Whether it is wanted, or a batch of which a part is."""
    batch = [Path(name.decode()) for name in INCLUDE.findall(contents(source))] if source.suffix == ".cxx" else [source]
    names = [name_of(each) for each in batch]
    return any(name in wanted and not name.startswith(LEFT_OUT) for name in names)


def commands_of(build):
    text = GCC_ONLY.sub("", (TOP / build / "compile_commands.json").read_text())
    return text, [(command, Path(command["directory"], command["file"]).resolve()) for command in json.loads(text)]


def version_of(tool):
    return subprocess.run([tool, "--version"], capture_output=True, check=True).stdout


def compile_alone(command):
    """The compiler's complaints; empty if there are none."""
    words = re.sub(r" -o \S+", "", command["command"]).removeprefix("/usr/bin/ccache ")
    run = subprocess.run(f"{words} -fsyntax-only", shell=True, cwd=command["directory"], capture_output=True, text=True, check=False)
    return run.stderr if run.returncode != 0 else ""


def tidy(commands, source):
    """The output of clang-tidy; empty if the source is clean. `commands`: the folder of the compile commands."""
    run = subprocess.run(["clang-tidy", "-p", str(commands), "--quiet", str(source)], cwd=TOP, capture_output=True, text=True, check=False)
    return run.stdout if run.returncode != 0 else ""


def main():
    alone, together, jobs, wanted = sys.argv[1], sys.argv[2], int(sys.argv[3]), set(sys.argv[4:])
    CACHE.mkdir(parents=True, exist_ok=True)
    todo = []  # what to call, and where its pass is recorded
    compiler = version_of("c++")
    for command, source in commands_of(alone)[1]:
        if checked(source, wanted) and not (passed := CACHE / fingerprint(command, compiler)).exists():
            todo.append((compile_alone, (command,), passed))
    rules = (TOP / ".clang-tidy").read_bytes() + version_of("clang-tidy")
    text, commands = commands_of(together)
    (CACHE / "compile_commands.json").write_text(text)
    for command, source in commands:
        if checked(source, wanted) and not (passed := CACHE / fingerprint(command, rules)).exists():
            todo.append((tidy, (CACHE, source), passed))

    said = set()  # a finding in a header is reported for every source that includes it
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        runs = {pool.submit(check, *words): passed for check, words, passed in todo}
        for number, run in enumerate(concurrent.futures.as_completed(runs), 1):
            output = run.result()
            if not output:
                runs[run].touch()
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
