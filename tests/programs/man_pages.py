#!/usr/bin/env python3
"""Compares the man pages with the programs: a page has everything that `--help` shows, and nothing else.
Usage: man_pages.py BIN_DIR MAN_DIR PAGE_MAKER"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

OPTION = re.compile(r"(?<![\w-])--?[a-zA-Z][a-z-]*")
BOLD = re.compile(r"\*([^*\s]+)\*")


def help_of(program, *words):
    done = subprocess.run([program, *words, "--help"], capture_output=True, text=True, stdin=subprocess.DEVNULL, check=True)
    return done.stdout


def options_of(text):
    """The options that a help text declares: at a line's start, or in a usage line."""
    lines = [line for line in text.splitlines() if re.match(r"\s+-|usage:", line)]
    return {option for line in lines for option in OPTION.findall(re.split(r"\s{2,}(?=[A-Z])", line.strip())[0])}


def section(page, title):
    return re.search(rf"^# {title}\n(.*?)(?=^# |\Z)", page, re.M | re.S).group(1)


def complaints_about(page, page_name, wanted):
    """`wanted`: where in the program each text was found."""
    shown = re.sub(r"(?<!\w)_|_(?!\w)", "", re.sub(r"[\\*]", "", page))
    for text, source in sorted(wanted.items()):
        if not re.search(rf"(?<![\w-]){re.escape(text)}(?![\w-])", shown):
            yield f"{page_name}: lacks {text}, which {source} has"


def check_hmxctl(program, page):
    top = help_of(program)
    wanted = {option: "hmxctl --help" for option in options_of(top)}
    verbs = re.findall(r"^  ([a-z]+) ", top.split("Verbs:")[1], re.M)
    described = section(page, "VERBS")
    complaints = []
    for verb in verbs:
        text = help_of(program, verb)
        entry = re.search(rf"^\*{verb}\*.*?(?=^\*|\Z)", described, re.M | re.S)
        if entry is None:
            complaints.append(f"hmxctl.1.scd: has no entry for the verb {verb}")
            continue
        own = {option: f"hmxctl {verb} --help" for option in options_of(text) - options_of(top)}
        complaints += complaints_about(entry.group(0), f"hmxctl.1.scd, {verb}", {o: own[o] for o in own if o != "--file"})
        wanted.update(own)
        wanted.update({word: f"hmxctl {verb}" for word in re.findall(r"[A-Z]{2,}|(?<=[\[|])[a-z]+", text.splitlines()[1])})
    for action in re.findall(r"^([a-z]+) ", help_of(program, "sim").split("\n\n")[1], re.M):
        wanted[f"sim {action}"] = "hmxctl sim --help"
    codes = re.search(r"Exit codes: (.*?)\.\n", top, re.S).group(1)
    for code, meaning in re.findall(r"(\d+) ([a-z ]+)", codes):
        if not re.search(rf"^\|\[?\s+{code}\n:<?\s+{meaning}", section(page, "EXIT STATUS"), re.M):
            complaints.append(f"hmxctl.1.scd: EXIT STATUS lacks {code} {meaning}")
    return complaints, wanted


def check_plain(program, _page):
    text = help_of(program)
    return [], {option: f"{program.name} --help" for option in options_of(text)}


def warnings_of(path, maker):
    """What the page's compiler and its reader have to say, and whether words that are read can be typed; a machine without them says nothing."""
    if shutil.which("scdoc") is None:
        return ""
    with path.open() as source:
        compiled = subprocess.run([maker, "scdoc"], stdin=source, capture_output=True, text=True, check=False)
    text = compiled.stderr
    if compiled.returncode == 0 and shutil.which("man") is not None:
        reader = ["man", "--warnings", "--encoding=UTF-8", "--local-file", "-"]
        read = subprocess.run(reader, input=compiled.stdout, capture_output=True, text=True, check=False,
                              env=dict(os.environ, MANWIDTH="80", LC_ALL="C.UTF-8"))
        text += read.stderr + "\n".join(line for line in read.stdout.splitlines() if "\u2010" in line)
    return text


def main():
    binaries, pages, maker = Path(sys.argv[1]), Path(sys.argv[2]), sys.argv[3]
    complaints = []
    for name, check in (("hmxctl.1", check_hmxctl), ("hmxsim.1", check_plain), ("hmxgateway.1", check_plain), ("hmxrelay.1", check_plain),
                        ("hmxtolubridge.8", check_plain)):
        path = pages / f"{name}.scd"
        page = path.read_text()
        more, wanted = check(binaries / name.split(".")[0], page)
        complaints += more
        complaints += complaints_about(page, path.name, wanted)
        promised = {word for word in BOLD.findall(page) if word.startswith("-") and word.strip("-")}
        complaints += [f"{path.name}: shows {word}, which no help does" for word in sorted(promised - set(wanted))]
        complaints += [f"{path.name}: {line}" for line in warnings_of(path, maker).splitlines()]
    print("\n".join(complaints) or "the man pages show what the programs do")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
