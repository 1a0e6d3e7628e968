#!/usr/bin/env python3
"""Checks what neither compiler nor formatter checks: what each floor includes, how headers begin, and that every atomic operation with a
memory order of its own is argued for in docs/architecture.md. Usage: house_rules.py SOURCE..."""

import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
# A standard header's name has neither a dot nor a slash, except these.
STANDARD = re.compile(r"(experimental/)?[a-z_0-9]+$|(assert|errno|math|stdlib|string|time)\.h$")
PACKAGED = re.compile(r"(cbor|toml\+\+|uuid|nlohmann|CLI|gtest|gmock|benchmark)\b")


ORDERED = re.compile(r"(\w+)(?:\.|->)(?:load|store|exchange|fetch_\w+|compare_exchange_\w+|test_and_set|clear)\(")
ORDER = re.compile(r"memory_order_(\w+)")


class Floor:
    """A library as CMakeLists.txt declares it: the folders of its sources, its include roots, and the floors it links to."""

    def __init__(self, declaration):
        words = declaration.split()
        self.name, key, lists = words[0], None, {"SOURCES": [], "INCLUDE": [], "LINKS": [], "PRIVATE": []}
        for word in words[1:]:
            if word in lists:
                key = word
            else:
                lists[key].append(word)
        self.sources = lists["SOURCES"]
        self.roots = lists["INCLUDE"] or self.sources
        self.links = lists["LINKS"]
        # A package that a floor's public headers use is visible to the floor's users too.
        self.shown_packages = [link for link in self.links if "::" in link and not link.startswith("Threads")]
        self.has_packages = bool(lists["PRIVATE"] or self.shown_packages)

    def holds(self, path):
        return any(path.startswith(folder + "/") for folder in self.sources + self.roots)


def read_floors():
    text = (TOP / "CMakeLists.txt").read_text()
    return {floor.name: floor for floor in map(Floor, re.findall(r"^ *hmx_floor\(([^)]*)\)", text, re.M))}


def visible(floor, floors):
    """The floor itself and all floors below that it can see."""
    seen, queue = [], [floor.name]
    while queue:
        name = queue.pop()
        if name in floors and name not in seen:
            seen.append(name)
            queue += floors[name].links
    return [floors[name] for name in seen]


def complaints_about_includes(path, text, floors):
    floor = next((each for each in floors.values() if each.holds(path)), None)
    for kind, name in INCLUDE.findall(text):
        if ".." in name.split("/"):
            yield f'includes "{name}": headers are named from an include root'
        elif floor is None:
            continue
        elif kind == "<" and floor.has_packages:
            # Floors with packages may use the system too; their public headers include only the packages that they show.
            shown = any(name.split("/")[0] in package for package in floor.shown_packages)
            if PACKAGED.match(name) and not shown and not path.startswith(tuple(folder + "/" for folder in floor.sources)):
                yield f"includes <{name}> in a public header"
        elif kind == "<":
            if not STANDARD.match(name):
                yield f"includes <{name}>: {floor.name} stands on the standard library and the platform alone"
        else:
            roots = [root for each in visible(floor, floors) for root in each.roots] + floor.sources
            if not any((TOP / root / name).is_file() for root in roots):
                yield f'includes "{name}", which is on no floor that {floor.name} may see'


def complaints_about_header(text):
    if not text.startswith("// "):
        yield "does not open with a line that says what it is"
    if not re.search(r"^#pragma once$", text, re.M):
        yield "lacks #pragma once"


def argued_orders():
    """(file name, atomic, order) of each row in the document's table, as far as the file is there."""
    table = (TOP / "docs/architecture.md").read_text().split("## Memory order\n")[1].split("\n## ")[0]
    rows = [[re.findall(r"`([^`]+)`", cell) or re.findall(r"\w+", cell) for cell in line.split("|")[1:4]] for line in table.splitlines()
            if line.startswith("| `")]
    return {(file, atomic, order) for atomics, files, orders in rows for file in files for atomic in atomics for order in orders}


def used_orders(text):
    """(atomic, order) of each operation that names an order; "?" for an atomic that is not named beside it."""
    for line in text.splitlines():
        orders = ORDER.findall(line)
        atomics = ORDERED.findall(line)
        yield from {(atomic, order) for order in orders for atomic in atomics or ["?"]}


def main():
    floors = read_floors()
    argued = argued_orders()
    count = 0
    for path in sys.argv[1:]:
        text = (TOP / path).read_text()
        complaints = list(complaints_about_includes(path, text, floors))
        orders = {(Path(path).name, *each) for each in used_orders(text)}
        complaints += [f"{atomic} is {order}, and docs/architecture.md does not say why" for _, atomic, order in sorted(orders - argued)]
        complaints += [f"{atomic} is not {order}, as docs/architecture.md says"
                       for name, atomic, order in sorted(argued - orders) if name == Path(path).name]
        if path.endswith(".h"):
            complaints += complaints_about_header(text)
        for complaint in complaints:
            print(f"{path}: {complaint}", file=sys.stderr)
        count += len(complaints)
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main())
