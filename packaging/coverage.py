#!/usr/bin/env python3
"""Reports which lines of the product the tests have run: by folder, and the files below the limit. Usage: coverage.py BUILD_DIR"""

import collections
import gzip
import json
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

TOP = Path(__file__).resolve().parent.parent
# Folders that are not part of the product.
APART = ("tests/", "campaign/", "fuzz/", "bench/", "build/")
MEASURE = 90.0
# Folders that decode what a peer sent, and folders on the path of every request.
CORE = ("platform/src/serializer", "platform/include/kelo/serializer", "platform/src/wire", "platform/src/net", "core/", "bridge/")
CORE_MEASURE = 95.0


def lines_of(note, build):
    """Yields (source, line, count) of one object's notes."""
    run = subprocess.run(["gcov", "--json-format", "--stdout", note], cwd=build, capture_output=True, check=False)
    for document in run.stdout.split(b"\n"):
        if not document.strip():
            continue
        for each in json.loads(gzip.decompress(document) if document[:2] == b"\x1f\x8b" else document)["files"]:
            path = os.path.normpath(os.path.join(build, each["file"]))
            if not path.startswith(str(TOP) + "/"):
                continue
            source = path[len(str(TOP)) + 1 :]
            if not source.startswith(APART):
                for line in each["lines"]:
                    yield source, line["line_number"], line["count"]


def main():
    build = Path(sys.argv[1]).resolve()
    notes = [str(path) for path in build.rglob("*.gcno")]
    counts = collections.defaultdict(dict)
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(lambda note: list(lines_of(note, build)), notes):
            for source, line, count in found:
                counts[source][line] = max(count, counts[source].get(line, 0))

    def share(sources):
        total = sum(len(counts[source]) for source in sources)
        hit = sum(sum(1 for count in counts[source].values() if count > 0) for source in sources)
        return (100.0 * hit / total if total else 100.0), hit, total

    folders = collections.defaultdict(list)
    for source in sorted(counts):
        folders[os.path.dirname(source)].append(source)
    for folder, sources in folders.items():
        percent, hit, total = share(sources)
        print(f"{percent:6.1f} %  {hit:6} of {total:6}  {folder}")
    low = [(share([source])[0], source) for source in counts if share([source])[0] < MEASURE and len(counts[source]) > 10]
    for percent, source in sorted(low):
        missing = sorted(line for line, count in counts[source].items() if count == 0)
        print(f"below {MEASURE:.0f} %: {percent:5.1f} %  {source}: {', '.join(map(str, missing[:12]))}{' ...' if len(missing) > 12 else ''}")
    everything = share(counts)
    core = share([source for source in counts if source.startswith(CORE)])
    print(f"decoders and request core: {core[0]:.1f} % of {core[2]} lines (at least {CORE_MEASURE:.0f} %)")
    print(f"all: {everything[0]:.1f} % of {everything[2]} lines (at least {MEASURE:.0f} %)")
    return 0 if everything[0] >= MEASURE and core[0] >= CORE_MEASURE else 1


if __name__ == "__main__":
    sys.exit(main())
