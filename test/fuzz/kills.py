#!/usr/bin/env python3
"""Kills bakes at random moments: what then lies under the file's name is nothing, what lay there before, or the picture.

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


def bake(velto, file, size):
    return subprocess.Popen([velto, "bake", GRAPH, "-o", file, "--size", str(size)], stderr=subprocess.DEVNULL)


def main():
    velto, count = sys.argv[1], int(sys.argv[2])
    chance = random.Random(int(sys.argv[3]) if len(sys.argv) > 3 else 1)
    folder = Path(tempfile.mkdtemp(prefix="velto_kills_"))
    whole = {}
    for suffix in FORMATS:
        file = folder / f"whole.{suffix}"
        begin = time.monotonic()
        if bake(velto, file, 200).wait() != 0:
            sys.exit(f"{file.name} was not baked")
        whole[suffix] = (file.read_bytes(), time.monotonic() - begin)
    seen = {"nothing": 0, "the old file": 0, "the picture": 0}
    for number in range(count):
        suffix = chance.choice(FORMATS)
        expected, seconds = whole[suffix]
        file = folder / f"{number}.{suffix}"
        if number % 2:
            file.write_bytes(OLD)
        baking = bake(velto, file, 200)
        time.sleep(seconds * chance.uniform(0.0, 1.3))
        baking.kill()
        baking.wait()
        found = file.read_bytes() if file.exists() else None
        if found is None and not number % 2:
            seen["nothing"] += 1
        elif found == OLD and number % 2:
            seen["the old file"] += 1
        elif found == expected:
            seen["the picture"] += 1
        else:
            sys.exit(f"kill {number}: {file} is {'missing' if found is None else 'torn'}")
        file.unlink(missing_ok=True)
    left = len(list(folder.iterdir())) - len(FORMATS)
    shutil.rmtree(folder)
    print(f"{count} kills:", ", ".join(f"{times} times {what}" for what, times in seen.items()), f"; {left} unfinished files")


if __name__ == "__main__":
    main()
