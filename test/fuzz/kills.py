#!/usr/bin/env python3
"""Kills bakes, parts and merges at random moments: what then lies under the file's name is nothing, what lay there
before, or the picture; and the same commands again end right.

    test/fuzz/kills.py VELTO COUNT [SEED]
"""
import random
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

GRAPH = Path(__file__).resolve().parents[2] / "examples/nodes/checkerboard.json"
FORMATS = ("png", "exr", "tif", "jpg", "tga", "hdr")
OLD = b"what lay there before"
SHARDS = 3


def run(velto, command, file, *options):
    return subprocess.Popen([velto, command, GRAPH, "-o", file, "--size", "200", *options], stderr=subprocess.DEVNULL)


def part_of(file, number):
    return file.with_suffix(f".{number}-of-{SHARDS}.part.exr")


class Kind:
    """One way to a file: what is killed, what it writes, what it should hold, and how long it takes."""

    def __init__(self, velto, folder, name, suffix):
        self.velto, self.name, self.suffix = velto, name, suffix
        file = folder / f"{name}.{suffix}"
        if name == "merge":
            self.prepare(file)
        begin = time.monotonic()
        if self.start(file).wait() != 0:
            sys.exit(f"{file} was not made")
        self.seconds = time.monotonic() - begin
        self.expected = self.target(file).read_bytes()

    def prepare(self, file):
        for number in range(1, SHARDS + 1):
            if run(self.velto, "bake", file, "--shard", f"{number}/{SHARDS}", "--skip-existing").wait() != 0:
                sys.exit(f"{file}: part {number} was not made")

    def start(self, file):
        if self.name == "part":
            return run(self.velto, "bake", file, "--shard", f"2/{SHARDS}", "--skip-existing")
        return run(self.velto, self.name, file, *(["--remove-parts"] if self.name == "merge" else []))

    def target(self, file):
        return part_of(file, 2) if self.name == "part" else file

    def repeat(self, file):
        if self.name == "merge":
            self.prepare(file)
        return self.start(file).wait() == 0 and self.target(file).read_bytes() == self.expected


def main():
    velto, count = sys.argv[1], int(sys.argv[2])
    chance = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 1)
    folder = Path(tempfile.mkdtemp(prefix="velto_kills_"))
    kinds = [Kind(velto, folder, name, suffix) for name in ("bake", "part", "merge") for suffix in FORMATS]
    shutil.rmtree(folder)
    seen = {}
    for number in range(count):
        folder.mkdir()
        kind = chance.choice(kinds)
        file = folder / f"picture.{kind.suffix}"
        target = kind.target(file)
        if kind.name == "merge":
            kind.prepare(file)
        if number % 2:
            target.write_bytes(OLD)
        killed = kind.start(file)
        time.sleep(kind.seconds * chance.uniform(0.0, 1.3))
        killed.kill()
        killed.wait()
        found = target.read_bytes() if target.exists() else None
        what = {None: "nothing", OLD: "the old file", kind.expected: "the picture"}.get(found, "a torn file")
        # Parts go once the picture is there, and not before.
        parts = sum(part_of(file, each).exists() for each in range(1, SHARDS + 1))
        isLost = kind.name == "merge" and parts < SHARDS and found != kind.expected
        if what == "a torn file" or (found is None) > (number % 2 == 0) or isLost:
            sys.exit(f"kill {number} of a {kind.name}: {what} in {folder}, {parts} parts")
        if not kind.repeat(file):
            sys.exit(f"kill {number} of a {kind.name}: the same command again ends wrong, in {folder}")
        key = (kind.name, what)
        seen[key] = seen.get(key, 0) + 1
        shutil.rmtree(folder)
    for (name, what), times in sorted(seen.items()):
        print(f"{name}: {times} times {what}")


if __name__ == "__main__":
    main()
