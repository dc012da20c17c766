"""What the tests of the Python package share. The environment says where the command and the examples are."""
import os
import subprocess
import sys
import unittest
from pathlib import Path

try:
    import numpy  # noqa: F401
    import velto
except ImportError as missing:
    print(f"skipped: {missing}")
    sys.exit(77)

COMMAND = os.environ["VELTO_COMMAND"]
EXAMPLES = Path(os.environ["VELTO_EXAMPLES"])

CLOUD = {"version": 1, "nodes": {
    "place": {"type": "placement2d", "inputs": {"localRepetitions": [3, 3]}},
    "cloud": {"type": "noise", "inputs": {"contextLocal": {"from": "place.result"}, "octaves": 4}},
    "tint": {"type": "blend", "inputs": {"background": [0.05, 0.2, 0.5, 1], "foreground": [1, 0.9, 0.7, 1],
                                         "maskblend": {"from": "cloud.result"}}}},
    "outputs": {"color": "tint.result", "grey": "cloud.result"}}

# A sample takes some ten microseconds.
SLOW = {"version": 1, "nodes": {"sum0": {"type": "noise", "inputs": {"octaves": 16}}}, "outputs": {"color": "sum20.result"}}
for i in range(1, 21):
    SLOW["nodes"][f"cloud{i}"] = {"type": "noise", "inputs": {"octaves": 16, "seed": i}}
    SLOW["nodes"][f"sum{i}"] = {"type": "blend", "inputs": {
        "background": {"from": f"sum{i - 1}.result"}, "foreground": {"from": f"cloud{i}.result"}, "maskblend": 0.5}}


def documents():
    """The files of all examples that the command takes for documents with outputs."""
    for file in sorted(EXAMPLES.rglob("*.json")):
        if '"nodes"' not in file.read_text() or "embed" in file.parts:
            continue
        try:
            graph = velto.load(file)
        except velto.DocumentError:
            continue  # a node of others
        if graph.outputs:
            yield file


def run(*arguments, **options):
    return subprocess.run([COMMAND, *map(str, arguments)], capture_output=True, text=True, check=False, **options)


def main():
    unittest.main(verbosity=2)
